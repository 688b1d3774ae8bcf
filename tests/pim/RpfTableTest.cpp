#include "pim/RpfTable.h"

#include "tests/support/RecordingPort.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Slosh::Fib::RouteType;

class RpfTableTest : public ModelTest {
 protected:
  RpfTableTest() {
    pim->pimIntfIs(intf("eth0"))->neighborIs(addr("192.0.2.1"))->secondaryIs(addr("192.0.2.101"), true);
    routes->routeIs(Lanet::Prefix::parse("192.0.2.0/24"), {RouteType::connected, intf("eth0"), {}, 0});
    routes->routeIs(Lanet::Prefix::parse("192.0.2.9/32"), {RouteType::local, intf("eth0"), {}, 0});
    routes->routeIs(Lanet::Prefix::parse("10.0.0.0/8"),
                    {RouteType::remote, intf("eth0"), addr("192.0.2.1"), 5});
    routes->routeIs(Lanet::Prefix::parse("10.1.0.0/16"),
                    {RouteType::remote, intf("eth0"), addr("192.0.2.101"), 5});
    routes->routeIs(Lanet::Prefix::parse("10.2.0.0/16"),
                    {RouteType::remote, intf("eth0"), addr("192.0.2.7"), 5});
    routes->routeIs(Lanet::Prefix::parse("10.3.0.0/16"),
                    {RouteType::remote, intf("eth7"), addr("192.0.2.1"), 5});
  }

  RecordingPort port;
  Zet::Ptr<Routing::Pim::Status> pim = Routing::Pim::statusFactory("pim");
  Zet::Ptr<Routing::Pim::PimUcastRouteStatus> routes = Zet::make<Routing::Pim::PimUcastRouteStatus>();
  pimbsr::pim::RpfTable table{routes, Zet::make<pimbsr::pim::NeighborTable>(pim), port};
};

TEST_F(RpfTableTest, NeighborTowardsAnAddress) {
  struct Case {
    char const* rule;
    char const* address;
    char const* neighbor;
  };
  for (Case const& c : {Case{"an own address has none, though it is connected", "192.0.2.9", ""},
                        {"an own address without a route has none", "198.51.100.9", ""},
                        {"a connected address is its own neighbor", "192.0.2.1", "192.0.2.1"},
                        {"a secondary address is owned by its neighbor", "192.0.2.101", "192.0.2.1"},
                        {"a connected address that no neighbor owns has none", "192.0.2.5", ""},
                        {"a remote address has the next hop", "10.9.9.9", "192.0.2.1"},
                        {"a next hop by its secondary address is the neighbor", "10.1.0.1", "192.0.2.1"},
                        {"a next hop that speaks no PIM is none", "10.2.0.1", ""},
                        {"a next hop on an interface without PIM is none", "10.3.0.1", ""},
                        {"an address without a route has none", "172.16.0.1", ""}}) {
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(table.doLookup(addr(c.address), Lanet::IpGenAddr()).rpfNeighbor, addr(c.neighbor));
  }
}

TEST_F(RpfTableTest, RouteThatGoesIsNoLongerFollowed) {
  routes->routeDel(Lanet::Prefix::parse("10.0.0.0/8"));
  EXPECT_TRUE(table.doLookup(addr("10.9.9.9"), Lanet::IpGenAddr()).rpfNeighbor.isEmpty());
}

}  // namespace
}  // namespace test
