#include "agent/kernel/Netlink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Loop.h"
#include "tests/agent/NetworkLab.h"

namespace test {
namespace {

using pimbsr::agent::FileDescriptor;
using pimbsr::agent::KernelLink;
using pimbsr::agent::KernelView;
using pimbsr::agent::Netlink;
using Slosh::Fib::Route;
using Slosh::Fib::RouteType;
using testing::ElementsAre;
using testing::IsEmpty;

std::string text(Route const& route) {
  static constexpr char const* types[] = {"nowhere", "local", "connected", "remote"};
  std::ostringstream out;
  out << types[static_cast<int>(route.type)];
  if (!route.nextHop.isEmpty()) out << " via " << route.nextHop;
  if (!route.intfId.isEmpty()) out << " dev " << route.intfId;
  if (route.metric != 0) out << " metric " << route.metric;
  return out.str();
}

std::string text(KernelView const& view) {
  std::ostringstream out;
  for (auto const& [name, link] : view.links) {
    out << link.index << " " << name << (name == link.name ? "" : " misnamed") << (link.up ? " up" : " down")
        << (link.loopback ? " loopback" : "") << " mtu " << link.mtu;
    for (auto const& at : link.addresses) {
      out << " " << at.address << "/" << at.prefixLength << (at.secondary ? " secondary" : "");
    }
    out << "\n";
  }
  return out.str();
}

/// The first lines that are in one text alone.
std::string difference(KernelView const& followed, KernelView const& answered) {
  std::ostringstream out;
  int left = 10;
  auto compare = [&](std::string const& lines, std::string const& others, char const* mark) {
    std::istringstream in(lines);
    for (std::string line; left > 0 && std::getline(in, line);) {
      if (others.find(line + "\n") == std::string::npos) out << mark << line << "\n", --left;
    }
  };
  compare(text(followed), text(answered), "followed: ");
  compare(text(answered), text(followed), "answered: ");
  return out.str();
}

std::set<int> socketsOfThisProcess() {
  std::set<int> found;
  for (int fd = 0; fd < 1024; ++fd) {
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode)) found.insert(fd);
  }
  return found;
}

/// Follows a namespace of its own. Link v5, of index 5, is up with 10.0.0.1/24; its other end is v6.
class NetlinkTest : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    network = std::make_unique<NetworkNamespace>();
    inside = std::make_unique<Inside>(*network);
    ipAll({"link add name v5 index 5 type veth peer name v6 index 6", "link set v6 up", "link set v5 up",
           "address add 10.0.0.1/24 dev v5"});
    awaitRunning("v5");
    awaitRunning("v6");
    netlink = std::make_unique<Netlink>();
  }

  /// The followed view must equal a complete answer of the kernel. The kernel sends the last notices a moment
  /// later, so it is asked until both are equal.
  void TearDown() override {
    if (!netlink) return;
    EXPECT_TRUE(becomes([this] { return netlink->view() == Netlink().view(); }))
        << difference(netlink->view(), Netlink().view());
    EXPECT_TRUE(becomes([this] { return !netlink->isStale(); }));
  }

  /// Follows what the kernel has reported so far; returns whether the view has changed.
  bool follow() {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    bool isChanged = netlink->read();
    while (netlink->isStale() && std::chrono::steady_clock::now() < until) {
      becomesReadable(netlink->fd(), 0.01);
      isChanged = netlink->read() || isChanged;
    }
    EXPECT_FALSE(netlink->isStale());
    return isChanged;
  }

  /// Follows until something is so.
  bool becomes(std::function<bool()> const& so) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < until) {
      netlink->read();
      if (so()) return true;
      becomesReadable(netlink->fd(), 0.01);
    }
    return false;
  }

  std::string route(std::string const& address) {
    auto found = netlink->routeTo(Lanet::IpAddr::parse(address.c_str()));
    return found ? text(*found) : "no answer";
  }

  /// The route to an address after a command.
  std::string routeAfter(std::string const& command, std::string const& address) {
    ip(command);
    return route(address);
  }

  std::vector<std::string> addresses(std::string const& name) {
    std::vector<std::string> found;
    auto at = netlink->view().links.find(name);
    if (at == netlink->view().links.end()) return {"no link"};
    for (auto const& one : at->second.addresses) {
      found.push_back(std::string(one.address.stringValue().view()) + "/" + std::to_string(one.prefixLength) +
                      (one.secondary ? " secondary" : ""));
    }
    return found;
  }

  bool isUp(std::string const& name) {
    auto at = netlink->view().links.find(name);
    return at != netlink->view().links.end() && at->second.up;
  }

  std::unique_ptr<NetworkNamespace> network;
  std::unique_ptr<Inside> inside;
  std::unique_ptr<Netlink> netlink;
};

// Links ---------------------------------------------------------------------------------------------------

TEST_F(NetlinkTest, AllTablesAreKnownAtFirst) {
  EXPECT_EQ(text(Netlink().view()),
            "1 lo down loopback mtu 65536\n"
            "5 v5 up mtu 1500 10.0.0.1/24\n"
            "6 v6 up mtu 1500\n");
  EXPECT_FALSE(Netlink().read());
}

TEST_F(NetlinkTest, LinkThatGoesDownTakesItsRoutesAlong) {
  ip("route add 10.7.0.0/16 via 10.0.0.9");
  EXPECT_EQ(route("10.7.0.1"), "remote via 10.0.0.9 dev v5");
  ip("link set v5 down");
  EXPECT_EQ(route("10.7.0.1"), "nowhere") << "before the notice is read";
  EXPECT_TRUE(follow());
  EXPECT_FALSE(isUp("v5"));
  EXPECT_EQ(route("10.0.0.9"), "nowhere");
  ip("link set v5 up");
  EXPECT_TRUE(becomes([this] { return isUp("v5"); }));
  EXPECT_EQ(route("10.0.0.9"), "connected dev v5");
}

TEST_F(NetlinkTest, LinkWithoutCarrierIsNotUp) {
  ip("link set v6 down");
  EXPECT_TRUE(becomes([this] { return !isUp("v5"); }));
  ip("link set v6 up");
  EXPECT_TRUE(becomes([this] { return isUp("v5"); }));
}

TEST_F(NetlinkTest, RenamedLinkTakesItsAddressesAndRoutesToItsNewName) {
  ipAll({"link set v5 down", "link set v5 name v7", "link set v7 up"});
  EXPECT_TRUE(becomes([this] { return isUp("v7"); }));
  EXPECT_FALSE(netlink->view().links.contains("v5"));
  EXPECT_THAT(addresses("v7"), ElementsAre("10.0.0.1/24"));
  EXPECT_EQ(netlink->view().links.at("v7").index, 5);
  EXPECT_EQ(route("10.0.0.9"), "connected dev v7");
}

TEST_F(NetlinkTest, LinksThatSwapTheirNamesKeepTheirIndexes) {
  ipAll({"link set v5 down", "link set v6 down", "link set v5 name v9", "link set v6 name v5",
         "link set v9 name v6"});
  follow();
  EXPECT_EQ(netlink->view().links.at("v5").index, 6);
  EXPECT_EQ(netlink->view().links.at("v6").index, 5);
  EXPECT_THAT(addresses("v6"), ElementsAre("10.0.0.1/24"));
}

TEST_F(NetlinkTest, DeletedLinkIsGoneWithAllThatItHad) {
  ip("link del v5");
  EXPECT_TRUE(follow());
  EXPECT_EQ(text(netlink->view()), "1 lo down loopback mtu 65536\n");
}

TEST_F(NetlinkTest, LinkThatComesAgainIsAnotherOne) {
  ipAll({"link del v5", "link add name v5 index 9 mtu 1400 type veth peer name v6"});
  follow();
  EXPECT_EQ(netlink->view().links.at("v5").index, 9);
  EXPECT_THAT(addresses("v5"), IsEmpty());
}

TEST_F(NetlinkTest, MtuIsFollowed) {
  ip("link set v5 mtu 576");
  EXPECT_TRUE(follow());
  EXPECT_EQ(netlink->view().links.at("v5").mtu, 576U);
}

TEST_F(NetlinkTest, WhatDoesNotConcernRoutingChangesNothing) {
  ipAll({"link set v5 promisc on", "link set v5 txqueuelen 77", "link set v5 promisc off"});
  EXPECT_TRUE(becomesReadable(netlink->fd(), 0));
  EXPECT_FALSE(follow());
}

TEST_F(NetlinkTest, PortThatLeavesItsBridgeStays) {
  ipAll({"link add name br0 type bridge", "link set v6 master br0"});
  follow();
  ip("link set v6 nomaster");
  follow();
  EXPECT_TRUE(netlink->view().links.contains("v6"));
}

// Addresses -----------------------------------------------------------------------------------------------

TEST_F(NetlinkTest, AddressesAreInTheKernelsOrder) {
  ipAll(
      {"address add 10.0.0.2/24 dev v5", "address add 10.1.0.1/16 dev v5", "address add 10.0.0.3/24 dev v5"});
  EXPECT_TRUE(follow());
  EXPECT_THAT(addresses("v5"),
              ElementsAre("10.0.0.1/24", "10.1.0.1/16", "10.0.0.2/24 secondary", "10.0.0.3/24 secondary"));
  EXPECT_EQ(route("10.1.0.9"), "connected dev v5");
}

TEST_F(NetlinkTest, SecondaryAddressGoesWithItsPrimaryOneOrFollowsIt) {
  setting("ipv4/conf/v5/promote_secondaries", "0");
  ipAll({"address add 10.0.0.2/24 dev v5", "address del 10.0.0.1/24 dev v5"});
  follow();
  EXPECT_THAT(addresses("v5"), IsEmpty());
  EXPECT_EQ(route("10.0.0.9"), "nowhere");
  setting("ipv4/conf/v5/promote_secondaries", "1");
  ipAll(
      {"address add 10.0.0.1/24 dev v5", "address add 10.0.0.2/24 dev v5", "address del 10.0.0.1/24 dev v5"});
  follow();
  EXPECT_THAT(addresses("v5"), ElementsAre("10.0.0.2/24"));
}

TEST_F(NetlinkTest, OwnAddressCountsWhereTheFarEndHasOneToo) {
  ip("address add 10.3.0.1 peer 10.3.0.2/32 dev v5");
  follow();
  EXPECT_THAT(addresses("v5"), ElementsAre("10.0.0.1/24", "10.3.0.1/32"));
  auto const& all = netlink->view().links.at("v5").addresses;
  EXPECT_EQ(all[0].peer, Lanet::IpAddr()) << "a subnet has no far end";
  EXPECT_EQ(Lanet::IpGenAddr(all[1].peer), Lanet::IpGenAddr::parse("10.3.0.2"));
  EXPECT_EQ(route("10.3.0.2"), "connected dev v5");
}

TEST_F(NetlinkTest, LoopbackLendsItsAddresses) {
  ipAll({"link set lo up", "address add 192.0.2.1/32 dev lo"});
  follow();
  EXPECT_TRUE(netlink->view().links.at("lo").loopback);
  EXPECT_TRUE(isUp("lo"));
  EXPECT_THAT(addresses("lo"), ElementsAre("127.0.0.1/8", "192.0.2.1/32"));
  EXPECT_EQ(route("192.0.2.1"), "local dev lo");
}

// Routes --------------------------------------------------------------------------------------------------

TEST_F(NetlinkTest, RouteIsThatOfTheKernelAtTheTimeOfTheLookup) {
  EXPECT_EQ(route("10.7.0.1"), "nowhere");
  EXPECT_EQ(routeAfter("route add 10.7.0.0/16 via 10.0.0.9 metric 100", "10.7.0.1"),
            "remote via 10.0.0.9 dev v5");
  EXPECT_EQ(routeAfter("route add 10.7.0.0/16 via 10.0.0.8 metric 50", "10.7.0.1"),
            "remote via 10.0.0.8 dev v5");
  EXPECT_EQ(routeAfter("route del 10.7.0.0/16 metric 50", "10.7.0.1"), "remote via 10.0.0.9 dev v5");
  EXPECT_EQ(routeAfter("route replace default via 10.0.0.6", "10.8.0.1"), "remote via 10.0.0.6 dev v5");
  EXPECT_EQ(routeAfter("route replace default dev v6", "10.8.0.1"), "connected dev v6");
  EXPECT_FALSE(follow()) << "no notice of a route is asked for";
}

TEST_F(NetlinkTest, OfSeveralNextHopsOneThatLivesCounts) {
  ipAll({"link add name v7 type veth peer name v8", "link set v7 up", "link set v8 up",
         "address add 10.2.0.1/24 dev v7",
         "route add 10.7.0.0/16 nexthop via 10.2.0.9 nexthop via 10.0.0.9"});
  follow();
  EXPECT_THAT(route("10.7.0.1"), testing::StartsWith("remote via 10."));
  EXPECT_EQ(routeAfter("link set v7 down", "10.7.0.1"), "remote via 10.0.0.9 dev v5");
}

/// The sockets of the lookups are replaced by one that reaches no kernel table.
TEST_F(NetlinkTest, LookupWithoutAnAnswerIsNotOneWithoutARoute) {
  EXPECT_EQ(route("10.9.9.9"), "nowhere");
  std::set<int> const before = socketsOfThisProcess();
  Netlink cut;
  FileDescriptor other(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  for (int fd : socketsOfThisProcess()) {
    if (before.contains(fd) || fd == other.get()) continue;
    ASSERT_EQ(dup3(other.get(), fd, O_CLOEXEC), fd);
  }
  EXPECT_FALSE(cut.routeTo(Lanet::IpAddr::parse("10.9.9.9")).has_value());
  EXPECT_EQ(route("10.9.9.9"), "nowhere");
}

TEST_F(NetlinkTest, RouteThatLeadsNowhereHidesShorterOnes) {
  ipAll({"route add default via 10.0.0.9", "route add blackhole 10.7.0.0/16",
         "route add unreachable 10.8.0.0/16", "route add prohibit 10.9.0.0/16"});
  for (char const* address : {"10.7.0.1", "10.8.0.1", "10.9.0.1"})
    EXPECT_EQ(route(address), "nowhere") << address;
  EXPECT_EQ(route("10.0.0.255"), "nowhere dev v5") << "a broadcast";
  EXPECT_EQ(route("10.6.0.1"), "remote via 10.0.0.9 dev v5");
}

TEST_F(NetlinkTest, PolicyRulesCount) {
  ipAll({"route add 10.7.0.0/16 via 10.0.0.9", "route add 10.7.0.0/16 via 10.0.0.8 table 100",
         "rule add to 10.7.1.0/24 lookup 100"});
  EXPECT_EQ(route("10.7.0.1"), "remote via 10.0.0.9 dev v5");
  EXPECT_EQ(route("10.7.1.1"), "remote via 10.0.0.8 dev v5");
}

TEST_F(NetlinkTest, NextHopOfAnotherFamilyHasNoAddress) {
  EXPECT_EQ(routeAfter("route add 10.7.0.0/16 via inet6 fe80::9 dev v5", "10.7.0.1"), "remote dev v5");
}

TEST_F(NetlinkTest, NextHopsThatAreObjectsAreFollowed) {
  ipAll({"nexthop add id 1 via 10.0.0.9 dev v5", "route add 10.7.0.0/16 nhid 1"});
  EXPECT_EQ(route("10.7.0.1"), "remote via 10.0.0.9 dev v5");
  EXPECT_EQ(routeAfter("nexthop replace id 1 via 10.0.0.8 dev v5", "10.7.0.1"), "remote via 10.0.0.8 dev v5");
  EXPECT_EQ(routeAfter("nexthop del id 1", "10.7.0.1"), "nowhere");
}

// Many of them ----------------------------------------------------------------------------------------------

std::vector<std::string> manyRoutes(int count, std::string const& verb, std::string const& via) {
  std::vector<std::string> commands;
  for (int i = 0; i < count; ++i) {
    commands.push_back("route " + verb + " 20." + std::to_string(i / 256) + "." + std::to_string(i % 256) +
                       ".0/24 via " + via);
  }
  return commands;
}

std::vector<std::string> manyLinks(int count) {
  std::vector<std::string> commands;
  for (int i = 0; i < count; ++i) commands.push_back("link add name d" + std::to_string(i) + " type bridge");
  return commands;
}

TEST_F(NetlinkTest, LostNoticesAreMadeGoodFor) {
  netlink = std::make_unique<Netlink>(1);
  ipAll(manyLinks(100));
  EXPECT_TRUE(follow());
  EXPECT_EQ(netlink->view().links.size(), 103U);
  ip("link set v5 mtu 1400");
  EXPECT_TRUE(follow()) << "one notice fits";
}

TEST_F(NetlinkTest, LostNoticesDoNotDeafenTheEventLoop) {
  netlink = std::make_unique<Netlink>(1);
  pimbsr::agent::Loop loop;
  std::size_t wanted = 103;
  pimbsr::agent::LoopReader reader(loop, netlink->fd(), [&] {
    netlink->read();
    if (netlink->view().links.size() == wanted) loop.stop();
  });
  pimbsr::agent::LoopTimer patience(loop, [&] {
    ADD_FAILURE() << "no notice of link number " << wanted;
    loop.stop();
  });
  ipAll(manyLinks(100));
  for (; wanted <= 104; ++wanted) {
    patience.startIn(5);
    loop.run();
    if (wanted == 103) ip("link add name one type bridge");
  }
}

/// Routes of others neither wake the agent nor make a lookup or a change of a link dearer.
TEST_F(NetlinkTest, HowManyRoutesThereAreDoesNotMatter) {
  using Clock = std::chrono::steady_clock;
  auto timeOf = [&](auto const& act) {  // the shortest, in which nothing else ran
    Clock::duration shortest = Clock::duration::max();
    for (int i = 0; i < 50; ++i) {
      auto start = Clock::now();
      act();
      shortest = std::min(shortest, Clock::now() - start);
    }
    return shortest;
  };
  auto flap = [&] {
    ip("link set v6 mtu 1400");
    follow();
    ip("link set v6 mtu 1500");
    follow();
  };
  auto lookup = [&] { route("20.1.7.1"); };
  auto fewLookups = timeOf(lookup), fewFlaps = timeOf(flap);
  ipAll(manyRoutes(20000, "add", "10.0.0.9"));
  EXPECT_FALSE(becomesReadable(netlink->fd(), 0));
  EXPECT_EQ(route("20.1.7.1"), "remote via 10.0.0.9 dev v5");
  auto manyLookups = timeOf(lookup), manyFlaps = timeOf(flap);
  EXPECT_LT(manyLookups, fewLookups * 10);
  EXPECT_LT(manyFlaps, fewFlaps * 10);
}

// Pieces ----------------------------------------------------------------------------------------------------

/// Follows many addresses, whose table takes many datagrams, one with each read().
class NetlinkPiecesTest : public NetlinkTest {
 protected:
  static constexpr int count = 3000;

  void SetUp() override {
    NetlinkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    std::vector<std::string> commands;
    for (int i = 0; i < count; ++i) commands.push_back("address add " + address(i) + " dev v6");
    ipAll(commands);
    netlink = std::make_unique<Netlink>(Netlink::usualBuffer, Netlink::Duration(0));
  }

  static std::string address(int number) {
    return "20." + std::to_string(number / 250) + "." + std::to_string(number % 250) + ".1/32";
  }
  /// Begins to read an answer, and takes all links of it and some of the addresses.
  void readSome() {
    for (int i = 0; i < 4; ++i) EXPECT_FALSE(netlink->read());
    EXPECT_TRUE(netlink->isStale());
  }
  Zet::U32 mtu(std::string const& name) { return netlink->view().links.at(name).mtu; }
};

TEST_F(NetlinkPiecesTest, ViewIsExchangedOnceWhenAllPiecesAreRead) {
  ip("link set v5 mtu 1400");
  int pieces = 0;
  do {
    EXPECT_EQ(mtu("v5"), 1500U);
    EXPECT_EQ(addresses("v6").size(), static_cast<unsigned>(count));
    ++pieces;
  } while (!netlink->read() && pieces < 1000);
  EXPECT_GE(pieces, 8);
  EXPECT_EQ(mtu("v5"), 1400U);
  EXPECT_EQ(addresses("v6").size(), static_cast<unsigned>(count));
}

TEST_F(NetlinkPiecesTest, ChangeBackToTheFormerTablesWhileTheyAreReadIsNoticed) {
  ip("link set v5 mtu 1400");
  readSome();
  ip("link set v5 mtu 1500");
  follow();
  EXPECT_EQ(mtu("v5"), 1500U);
}

TEST_F(NetlinkPiecesTest, AddressesThatComeAndGoWhileTheyAreReadAreNeitherMissedNorKept) {
  ip("link set v5 mtu 1400");
  readSome();
  ipAll({"address del " + address(0) + " dev v6", "address del " + address(count - 1) + " dev v6",
         "address add 20.99.0.1/32 dev v6"});
  follow();
  std::vector<std::string> all = addresses("v6");
  EXPECT_EQ(all.size(), count - 1U);
  EXPECT_THAT(all, testing::Contains("20.99.0.1/32"));
  EXPECT_THAT(all, testing::Not(testing::Contains(address(0))));
}

TEST_F(NetlinkPiecesTest, NoticesLostWhileTablesAreReadAreMadeGoodFor) {
  netlink = std::make_unique<Netlink>(1, Netlink::Duration(0));
  ip("link set v5 mtu 1400");
  readSome();
  ipAll(manyLinks(100));
  follow();
  EXPECT_EQ(netlink->view().links.size(), 103U);
}

TEST_F(NetlinkPiecesTest, RoutesAreFoundWhileTablesAreRead) {
  ip("link set v5 mtu 1400");
  readSome();
  EXPECT_EQ(route("10.0.0.9"), "connected dev v5");
  EXPECT_EQ(route("20.0.7.1"), "local dev lo");
  follow();
  EXPECT_EQ(mtu("v5"), 1400U);
}

TEST_F(NetlinkPiecesTest, ManyChangesAreReadTogetherAndAfterARest) {
  ip("link set v5 mtu 1400");
  readSome();
  std::this_thread::sleep_for(std::chrono::milliseconds(900));
  while (!netlink->read()) {
  }
  auto begin = std::chrono::steady_clock::now();
  std::vector<std::string> changes;
  for (int i = 0; i < 20; ++i) changes.push_back("link set v5 mtu " + std::to_string(1300 + i));
  ipAll(changes);
  EXPECT_FALSE(netlink->read());
  EXPECT_FALSE(becomesReadable(netlink->fd(), 0.05)) << "nothing is to be done before the rest is over";
  int exchanges = 0;
  while (netlink->isStale()) {
    becomesReadable(netlink->fd(), 0.1);
    exchanges += netlink->read() ? 1 : 0;
  }
  EXPECT_EQ(exchanges, 1);
  EXPECT_EQ(mtu("v5"), 1319U);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(850));
}

/// In time of the processor, the longest read() of a change; of several changes the one that cost least.
TEST_F(NetlinkPiecesTest, LongTablesHoldTheCallerUpForAPieceOnly) {
  auto maxReadTime = [&](Netlink::Duration piece) {
    netlink = std::make_unique<Netlink>(Netlink::usualBuffer, piece);
    std::clock_t least = std::numeric_limits<std::clock_t>::max();
    for (int i = 0; i < 8; ++i) {
      std::clock_t maxOfChange = 0;
      ip("link set v5 mtu " + std::to_string(1400 + i));
      do {
        becomesReadable(netlink->fd(), 0.1);
        std::clock_t start = std::clock();
        netlink->read();
        maxOfChange = std::max(maxOfChange, std::clock() - start);
      } while (netlink->isStale());
      least = std::min(least, maxOfChange);
    }
    return least;
  };
  EXPECT_LT(maxReadTime(Netlink::Duration(0)) * 2, maxReadTime(std::chrono::hours(1)));
}

TEST_F(NetlinkTest, ViewIsThatOfTheKernelAfterAnyChange) {
  std::mt19937 random(20);
  auto one = [&](std::vector<std::string> const& of) { return of[random() % of.size()]; };
  auto address = [&] {
    return "10." + one({"0", "1"}) + ".0." + one({"1", "2", "3"}) + "/" + one({"24", "32"});
  };
  auto command = [&]() -> std::string {
    std::string dev = one({"v5", "v6"});
    if (random() % 2 == 0) return "link set " + dev + one({" up", " down", " up", " mtu 1400", " mtu 1500"});
    return "address " + one({"add ", "del "}) + address() + " dev " + dev;
  };
  for (int round = 0; round < 60 && !HasFailure(); ++round) {
    std::vector<std::string> commands;
    for (int i = 0; i < 8; ++i) commands.push_back(command());
    ipAll(commands, true);
    EXPECT_TRUE(becomes([this] { return netlink->view() == Netlink().view(); }))
        << testing::PrintToString(commands) << difference(netlink->view(), Netlink().view());
  }
}

}  // namespace
}  // namespace test
