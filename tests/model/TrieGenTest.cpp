#include "model/TrieGen.h"

#include <string>
#include <vector>

#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Lanet::IpGenPrefix;
using Routing::TrieGen;

/// Notes each wake with the named route, and whether that route was in the trie by then.
class RouteWatch : public TrieGen::NotifieeConst {
 public:
  void onChangedRoute() override {
    IpGenPrefix changed = notifier()->changedRoute();
    std::string text(changed.stringValue().view());
    if (!changed.isEmpty()) text += notifier()->route(changed) ? " there" : " gone";
    heard.push_back(text);
  }
  std::vector<std::string> heard;
};

class Trie : public ModelTest {
 protected:
  Trie() { watch->notifierIs(trie); }
  void addAll(std::vector<std::string> const& routes) {
    for (std::string const& route : routes) trie->routeIs(prefix(route), true);
  }
  std::string longest(std::string const& asked) const { return textOf(trie->longestMatch(prefix(asked))); }
  std::string parent(std::string const& asked) const { return textOf(trie->findParent(prefix(asked))); }
  static std::string textOf(IpGenPrefix const& found) { return std::string(found.stringValue().view()); }

  Zet::Ptr<TrieGen> trie = Routing::trieGenFactory("zones", Lanet::AddressFamily::ipv4);
  Zet::Ptr<RouteWatch> watch = Zet::make<RouteWatch>();
};

using TrieDeath = Trie;

TEST_F(Trie, KeepsItsNameAndFamily) {
  EXPECT_EQ(trie->name(), "zones");
  EXPECT_EQ(trie->af(), Lanet::AddressFamily::ipv4);
  EXPECT_EQ(trie->changedRoute(), IpGenPrefix());
}

TEST_F(Trie, HoldsExactlyTheRoutesGiven) {
  addAll({"239.0.0.0/8", "239.1.0.0/16"});
  EXPECT_TRUE(trie->route(prefix("239.1.0.0/16")));
  EXPECT_FALSE(trie->route(prefix("239.2.0.0/16")));
  EXPECT_FALSE(trie->route(prefix("239.0.0.0/7")));
  EXPECT_EQ(trie->routes(), 2u);
  trie->routeDel(prefix("239.0.0.0/8"));
  EXPECT_FALSE(trie->route(prefix("239.0.0.0/8")));
  EXPECT_TRUE(trie->route(prefix("239.1.0.0/16")));
  EXPECT_EQ(trie->routes(), 1u);
}

TEST_F(Trie, ARouteGivenAsFalseIsRemoved) {
  addAll({"239.0.0.0/8"});
  trie->routeIs(prefix("239.0.0.0/8"), false);
  EXPECT_FALSE(trie->route(prefix("239.0.0.0/8")));
}

TEST_F(Trie, LongestMatchIsTheLongestCoveringRouteItselfIncluded) {
  addAll({"224.0.0.0/4", "239.0.0.0/8", "239.1.0.0/16"});
  EXPECT_EQ(longest("239.1.2.3/32"), "239.1.0.0/16");
  EXPECT_EQ(longest("239.1.0.0/16"), "239.1.0.0/16");
  EXPECT_EQ(longest("239.0.0.0/15"), "239.0.0.0/8");
  EXPECT_EQ(longest("225.0.0.0/8"), "224.0.0.0/4");
}

TEST_F(Trie, LongestMatchWithoutACoverIsTheEmptyPrefix) {
  addAll({"239.0.0.0/8"});
  EXPECT_TRUE(trie->longestMatch(prefix("238.0.0.0/8")).isEmpty());
  EXPECT_TRUE(trie->longestMatch(prefix("239.0.0.0/7")).isEmpty());
}

TEST_F(Trie, FindParentIsTheLongestCoveringRouteThatIsShorter) {
  addAll({"224.0.0.0/4", "239.0.0.0/8", "239.1.0.0/16"});
  EXPECT_EQ(parent("239.1.0.0/16"), "239.0.0.0/8");
  EXPECT_EQ(parent("239.2.0.0/16"), "239.0.0.0/8");
  EXPECT_EQ(parent("239.0.0.0/8"), "224.0.0.0/4");
  EXPECT_EQ(parent("224.0.0.0/4"), "");
}

TEST_F(Trie, TheWholeRangeIsARouteAndNotTheEmptyPrefix) {
  EXPECT_TRUE(trie->longestMatch(prefix("10.0.0.1/32")).isEmpty());
  addAll({"0.0.0.0/0"});
  EXPECT_EQ(longest("10.0.0.1/32"), "0.0.0.0/0");
  EXPECT_EQ(parent("10.0.0.1/32"), "0.0.0.0/0");
  EXPECT_TRUE(trie->findParent(prefix("0.0.0.0/0")).isEmpty());
}

TEST_F(Trie, KnowsNothingOfTheEmptyPrefixAndOfIp6) {
  addAll({"0.0.0.0/0"});
  for (IpGenPrefix const& foreign : {IpGenPrefix(), prefix("ff00::/8")}) {
    EXPECT_FALSE(trie->route(foreign)) << foreign;
    EXPECT_TRUE(trie->longestMatch(foreign).isEmpty()) << foreign;
    EXPECT_TRUE(trie->findParent(foreign).isEmpty()) << foreign;
    trie->routeDel(foreign);
  }
  EXPECT_EQ(trie->routes(), 1u);
}

TEST_F(TrieDeath, AnIp6RouteEndsTheProcess) {
  EXPECT_DEATH(trie->routeIs(prefix("ff00::/8"), true), "IPV6 Not supported");
}

TEST_F(Trie, ARouteThatComesOrGoesWakesTheWatchersWhoFindItDone) {
  trie->routeIs(prefix("239.0.0.0/8"), true);
  trie->routeIs(prefix("224.0.0.0/4"), true);
  trie->routeDel(prefix("239.0.0.0/8"));
  EXPECT_EQ(watch->heard,
            (std::vector<std::string>{"239.0.0.0/8 there", "224.0.0.0/4 there", "239.0.0.0/8 gone"}));
}

TEST_F(Trie, OneRouteThatComesAndGoesInTurnWakesTheWatchersEachTime) {
  for (int i = 0; i < 2; ++i) {
    trie->routeIs(prefix("239.0.0.0/8"), true);
    trie->routeDel(prefix("239.0.0.0/8"));
  }
  EXPECT_EQ(watch->heard, (std::vector<std::string>{"239.0.0.0/8 there", "", "239.0.0.0/8 gone", "",
                                                    "239.0.0.0/8 there", "", "239.0.0.0/8 gone"}));
}

TEST_F(Trie, ARouteThatExistsAlreadyOrIsAbsentNotifiesNone) {
  trie->routeIs(prefix("239.0.0.0/8"), true);
  watch->heard.clear();
  trie->routeIs(prefix("239.0.0.0/8"), true);
  trie->routeDel(prefix("238.0.0.0/8"));
  trie->routeIs(prefix("238.0.0.0/8"), false);
  EXPECT_TRUE(watch->heard.empty());
}

TEST_F(Trie, ChangedRouteItselfNotifiesAChangedValueOnly) {
  trie->changedRouteIs(prefix("239.0.0.0/8"));
  trie->changedRouteIs(prefix("239.0.0.0/8"));
  EXPECT_EQ(watch->heard, (std::vector<std::string>{"239.0.0.0/8 gone"}));
  trie->changedRouteIs(IpGenPrefix());
  trie->changedRouteIs(prefix("239.0.0.0/8"));
  EXPECT_EQ(watch->heard.size(), 3u);
}

TEST_F(Trie, ASignalledChangeWakesTheWatchersWhateverWasNamedBefore) {
  trie->routeIs(prefix("239.0.0.0/8"), true);
  watch->heard.clear();
  trie->signalChange(prefix("239.0.0.0/8"));
  trie->signalChange(prefix("239.0.0.0/8"));
  EXPECT_EQ(watch->heard, (std::vector<std::string>{"", "239.0.0.0/8 there", "", "239.0.0.0/8 there"}));
  EXPECT_EQ(trie->changedRoute(), prefix("239.0.0.0/8"));
}

}  // namespace
}  // namespace test
