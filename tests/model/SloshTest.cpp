#include "model/Slosh.h"

#include <gtest/gtest.h>

#include "model/UcastRoute.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using Lanet::Prefix;
using Routing::Pim::PimUcastRouteStatus;
using Slosh::ReadOnlySloshTable;
using Slosh::SloshBaseDummy;
using Slosh::Fib::Route;
using Slosh::Fib::RouteType;

using Table = Slosh::SloshTable<Route, Prefix>;
using Map = Slosh::SloshMap<Route, Prefix>;

/// The text of the InternalException that `action` raises.
template <class Action>
std::string raised(Action action) {
  try {
    action();
  } catch (Zet::InternalException const& e) {
    return e.what();
  }
  return "no InternalException";
}

Prefix range(char const* text) { return Prefix::parse(text); }

Route routeOf(RouteType type, Zet::U32 metric = 0) {
  Route route;
  route.type = type;
  route.metric = metric;
  return route;
}

TEST(Slosh, EveryOperationThatATableDoesNotProvideRaisesItsOwnName) {
  struct {
    void (*call)(SloshBaseDummy&);
    char const* text;
  } const cases[] = {
      {[](SloshBaseDummy& t) { t.type(); }, "SloshBaseDummy::type() "},
      {[](SloshBaseDummy& t) { t.capacity(); }, "SloshBaseDummy::capacity() "},
      {[](SloshBaseDummy& t) { t.maxSize(); }, "SloshBaseDummy::maxSize() "},
      {[](SloshBaseDummy& t) { t.members(); }, "SloshBaseDummy::members() "},
      {[](SloshBaseDummy& t) { t.first(); }, "SloshBaseDummy::first() "},
      {[](SloshBaseDummy& t) { t.next(); }, "SloshBaseDummy::next() "},
      {[](SloshBaseDummy& t) { t.lookup(); }, "SloshBaseDummy::lookup() "},
      {[](SloshBaseDummy& t) { t.cleanup(); }, "SloshBaseDummy::cleanup() "},
      {[](SloshBaseDummy& t) { t.validate(); }, "SloshBaseDummy::validate() "},
      {[](SloshBaseDummy& t) { t.validateFiles(); }, "SloshBaseDummy::validateFiles() "},
      {[](SloshBaseDummy& t) { t.detach(); }, "SloshBaseDummy::detach() "},
      {[](SloshBaseDummy& t) { t.initialize(); }, "SloshBaseDummy::initialize() "},
      {[](SloshBaseDummy& t) { t.mountStatus(); }, "SloshBaseDummy::mountStatus() "},
      {[](SloshBaseDummy& t) { t.readerCounters(); }, "SloshBaseDummy::readerCounters() "},
  };
  auto base = Zet::make<SloshBaseDummy>();
  for (auto const& c : cases) EXPECT_EQ(raised([&] { c.call(*base); }), c.text);
}

TEST(Slosh, AReadOnlyTableRejectsChangesAndCounterQueriesAndKeepsItsEntries) {
  struct {
    void (*call)(Map&);
    char const* text;
  } const cases[] = {
      {[](Map& m) { m.write(range("10.0.0.0/8"), routeOf(RouteType::remote)); },
       "write to read-only Slosh table"},
      {[](Map& m) { m.remove(range("10.0.0.0/8")); }, "remove to read-only Slosh table"},
      {[](Map& m) { m.cleanup(); }, "cleanup to read-only Slosh table"},
      {[](Map& m) { m.validateFiles(); }, "validateFiles to read-only Slosh table"},
      {[](Map& m) { m.validate(); }, "validate to read-only Slosh table"},
      {[](Map& m) { m.writerCounters(); }, "writerCounters() not implemented"},
      {[](Map& m) { m.readerCounters(); }, "readerCounters() not implemented"},
  };
  auto table = Zet::make<Table>();
  table->entries[range("10.0.0.0/8")] = routeOf(RouteType::local);
  auto map = Zet::make<Map>(table);
  for (auto const& c : cases) EXPECT_EQ(raised([&] { c.call(*map); }), c.text);
  EXPECT_EQ(map->lookup(range("10.0.0.0/8")), routeOf(RouteType::local));
}

TEST(Slosh, AReadOnlyTableAnswersWhatItDoesNotOverrideAsItsBaseDoes) {
  auto map = Zet::make<Map>(Zet::make<Table>());
  SloshBaseDummy& base = *map;
  EXPECT_EQ(raised([&] { base.members(); }), "SloshBaseDummy::members() ");
  EXPECT_EQ(raised([&] { base.lookup(); }), "SloshBaseDummy::lookup() ");
  EXPECT_EQ(raised([&] { base.cleanup(); }), "cleanup to read-only Slosh table");
}

TEST(Slosh, LookupFindsExactlyTheKeyAndReadsTheDefaultValueElsewhere) {
  auto table = Zet::make<Table>();
  auto map = Zet::make<Map>(table);
  EXPECT_EQ(map->lookup(range("10.0.0.0/8")), Route());
  table->entries[range("10.0.0.0/8")] = routeOf(RouteType::connected);
  EXPECT_EQ(map->lookup(range("10.0.0.0/8")), routeOf(RouteType::connected));
  EXPECT_EQ(map->lookup(range("10.0.0.0/9")), Route());
  EXPECT_EQ(map->lookup(range("0.0.0.0/0")), Route());
}

TEST(Slosh, RoutesCompareByAllTheirFieldsAndLocalIsNumericOne) {
  EXPECT_EQ(static_cast<Zet::U32>(RouteType::local), 1u);
  EXPECT_EQ(Route().type, RouteType::unset);
  Route onIntf = Route();
  onIntf.intfId = intf("eth0");
  Route viaHop = Route();
  viaHop.nextHop = addr("192.0.2.1");
  for (Route const& other : {routeOf(RouteType::local), routeOf(RouteType::unset, 1), onIntf, viaHop}) {
    EXPECT_FALSE(other == Route());
    EXPECT_TRUE(other == Route(other));
  }
}

class UcastRoutes : public testing::Test {
 protected:
  Route best(char const* address) const { return routes->bestRoute(addr(address)); }

  Zet::Ptr<PimUcastRouteStatus> routes = Zet::make<PimUcastRouteStatus>();
};

TEST_F(UcastRoutes, TheBestRouteIsTheLongestThatCovers) {
  EXPECT_EQ(best("10.1.2.3"), Route());
  routes->routeIs(range("0.0.0.0/0"), routeOf(RouteType::remote));
  routes->routeIs(range("10.0.0.0/8"), routeOf(RouteType::connected));
  routes->routeIs(range("10.1.2.3/32"), routeOf(RouteType::local));
  EXPECT_EQ(best("10.1.2.3").type, RouteType::local);
  EXPECT_EQ(best("10.1.2.4").type, RouteType::connected);
  EXPECT_EQ(best("192.0.2.1").type, RouteType::remote);
  EXPECT_EQ(routes->bestRoute(Lanet::IpGenAddr()), Route());
}

TEST_F(UcastRoutes, AWrittenRouteIsReplacedAndRemovedInTrieAndTable) {
  routes->routeIs(range("10.0.0.0/8"), routeOf(RouteType::connected));
  routes->routeIs(range("10.0.0.0/8"), routeOf(RouteType::remote, 7));
  EXPECT_EQ(best("10.0.0.1"), routeOf(RouteType::remote, 7));
  EXPECT_EQ(routes->routeTrie()->routes(), 1u);
  EXPECT_EQ(routes->routeTable()->lookup(range("10.0.0.0/8")), routeOf(RouteType::remote, 7));
  routes->routeDel(range("10.0.0.0/9"));
  EXPECT_EQ(routes->routeTrie()->routes(), 1u);
  routes->routeDel(range("10.0.0.0/8"));
  EXPECT_EQ(routes->routeTrie()->routes(), 0u);
  EXPECT_EQ(routes->routeTable()->lookup(range("10.0.0.0/8")), Route());
}

}  // namespace
}  // namespace test
