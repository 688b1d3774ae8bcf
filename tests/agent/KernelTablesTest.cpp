#include "agent/kernel/KernelTables.h"

#include <gmock/gmock.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <memory>
#include <random>

namespace test {
namespace {

using Lanet::IpAddr;
using Lanet::Prefix;
using pimbsr::agent::KernelAddress;
using pimbsr::agent::KernelRecords;
using pimbsr::agent::KernelTables;
using pimbsr::agent::KernelView;
using Slosh::Fib::Route;
using Slosh::Fib::RouteType;
using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = KernelTables::Outcome;

Prefix prefix(char const* text) { return Prefix::parse(text); }
IpAddr address(char const* text) { return IpAddr::parse(text); }

/// A message as the kernel builds them. It knows nothing of what is read, and may say anything.
class Message {
 public:
  template <class Fixed>
  Message(int type, Fixed const& fixed, int flags = 0) : bytes_(4096) {
    mnl_nlmsg_put_header(bytes_.data());
    header()->nlmsg_type = static_cast<Zet::U16>(type);
    header()->nlmsg_flags = static_cast<Zet::U16>(flags);
    std::memcpy(mnl_nlmsg_put_extra_header(header(), sizeof fixed), &fixed, sizeof fixed);
  }

  Message with(int type, Zet::U32 word) && {
    mnl_attr_put_u32(header(), static_cast<Zet::U16>(type), word);
    return std::move(*this);
  }
  Message with(int type, IpAddr one) && { return std::move(*this).with(type, one.netWord()); }
  Message with(int type, std::string const& text) && {
    mnl_attr_put_strz(header(), static_cast<Zet::U16>(type), text.c_str());
    return std::move(*this);
  }
  Message with(int type, std::vector<Zet::U8> const& bytes) && {
    mnl_attr_put(header(), static_cast<Zet::U16>(type), bytes.size(), bytes.data());
    return std::move(*this);
  }

  nlmsghdr const& operator*() const { return *reinterpret_cast<nlmsghdr const*>(bytes_.data()); }
  /// The bytes of the message, no more.
  std::vector<Zet::U8> bytes() const { return {bytes_.begin(), bytes_.begin() + (**this).nlmsg_len}; }

 private:
  nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(bytes_.data()); }

  std::vector<Zet::U8> bytes_;
};

constexpr unsigned working = IFF_UP | IFF_LOWER_UP | IFF_RUNNING;

Message link(int index, std::string const& name, unsigned flags = working, int type = RTM_NEWLINK) {
  return Message(type, ifinfomsg{.ifi_index = index, .ifi_flags = flags}).with(IFLA_IFNAME, name);
}

Message addressOf(int index, char const* local, int length, int flags = 0) {
  return Message(RTM_NEWADDR, ifaddrmsg{.ifa_family = AF_INET,
                                        .ifa_prefixlen = static_cast<Zet::U8>(length),
                                        .ifa_flags = static_cast<Zet::U8>(flags),
                                        .ifa_index = static_cast<Zet::U32>(index)})
      .with(IFA_LOCAL, address(local));
}

/// What is said of a route; what is empty or 0 isn't.
struct RouteFields {
  char const* to = "10.7.0.0/16";
  char const* via = "";
  int link = 5;
  Zet::U32 metric = 0;
  int kind = RTN_UNICAST;
  int table = RT_TABLE_MAIN;
  unsigned flags = 0;
  int protocol = RTPROT_STATIC;
};

Message route(RouteFields const& fields, int type = RTM_NEWROUTE, int flags = NLM_F_CREATE) {
  rtmsg fixed{.rtm_family = AF_INET,
              .rtm_dst_len = static_cast<Zet::U8>(prefix(fields.to).length()),
              .rtm_table = static_cast<Zet::U8>(fields.table),
              .rtm_protocol = static_cast<Zet::U8>(fields.protocol),
              .rtm_type = static_cast<Zet::U8>(fields.kind),
              .rtm_flags = fields.flags};
  Message message(type, fixed, flags);
  if (fixed.rtm_dst_len != 0) message = std::move(message).with(RTA_DST, prefix(fields.to).address());
  if (*fields.via != '\0') message = std::move(message).with(RTA_GATEWAY, address(fields.via));
  if (fields.link != 0) message = std::move(message).with(RTA_OIF, static_cast<Zet::U32>(fields.link));
  if (fields.metric != 0) message = std::move(message).with(RTA_PRIORITY, fields.metric);
  return message;
}

Message gone(RouteFields const& fields) { return route(fields, RTM_DELROUTE, 0); }

struct Hop {
  int link = 0;
  char const* via = "";
  unsigned flags = 0;
};

/// The next hops of one route as bytes.
std::vector<Zet::U8> hops(std::vector<Hop> const& all) {
  std::vector<Zet::U8> bytes;
  auto put = [&](auto const& value) {
    auto const* at = reinterpret_cast<Zet::U8 const*>(&value);
    bytes.insert(bytes.end(), at, at + sizeof value);
  };
  for (Hop const& hop : all) {
    rtnexthop fixed{.rtnh_len = sizeof(rtnexthop) + sizeof(nlattr) + 4,
                    .rtnh_flags = static_cast<Zet::U8>(hop.flags),
                    .rtnh_ifindex = hop.link};
    put(fixed);
    put(nlattr{.nla_len = sizeof(nlattr) + 4, .nla_type = RTA_GATEWAY});
    put(address(hop.via).netWord());
  }
  return bytes;
}

/// Tables that know of links 5 and 6, named a and b, and of nothing else.
class KernelTablesTest : public testing::Test {
 protected:
  KernelTablesTest() { replace({}); }

  bool replace(std::vector<Message> messages) {
    KernelRecords records;
    records.add(*link(5, "a"));
    records.add(*link(6, "b"));
    for (Message const& message : messages) records.add(*message);
    return tables.replace(std::move(records));
  }

  Outcome follow(Message const& message) { return tables.follow(*message); }

  Route best(char const* to = "10.7.0.0/16") {
    auto at = tables.view().routes.find(prefix(to));
    return at == tables.view().routes.end() ? Route() : at->second;
  }
  std::string nextHop() { return std::string(best().nextHop.stringValue().view()); }
  std::vector<Prefix> changed() { return tables.takeChangedRoutes(); }

  KernelTables tables;
};

// Links and addresses -------------------------------------------------------------------------------------

TEST_F(KernelTablesTest, LinkIsUpWhenItIsEnabledAndWorks) {
  for (unsigned flags :
       std::initializer_list<unsigned>{working, working | IFF_LOOPBACK, IFF_UP | IFF_LOWER_UP,
                                       IFF_UP | IFF_RUNNING, IFF_LOWER_UP | IFF_RUNNING, 0U}) {
    replace({link(7, "c", flags).with(IFLA_MTU, Zet::U32{1400})});
    auto const& c = tables.view().links.at("c");
    EXPECT_EQ(c.up, (flags & working) == working) << flags;
    EXPECT_EQ(c.loopback, (flags & IFF_LOOPBACK) != 0);
    EXPECT_EQ(c.mtu, 1400U);
    EXPECT_EQ(c.index, 7);
  }
}

TEST_F(KernelTablesTest, ChangeOfALinkIsUnclear) {
  EXPECT_EQ(follow(link(5, "a")), Outcome::nothing) << "as it is";
  EXPECT_EQ(follow(link(5, "a", working | IFF_PROMISC)), Outcome::nothing) << "of no concern";
  EXPECT_EQ(follow(link(5, "c")), Outcome::unclear) << "renamed";
  EXPECT_EQ(follow(link(5, "a", IFF_UP)), Outcome::unclear) << "lost its carrier";
  EXPECT_EQ(follow(link(5, "a").with(IFLA_MTU, Zet::U32{1400})), Outcome::unclear);
  EXPECT_EQ(follow(link(5, "a").with(IFLA_MASTER, Zet::U32{9})), Outcome::unclear);
  EXPECT_EQ(follow(link(7, "c")), Outcome::unclear) << "new";
  EXPECT_EQ(follow(link(5, "a", 0, RTM_DELLINK)), Outcome::unclear);
  EXPECT_EQ(follow(link(7, "c", 0, RTM_DELLINK)), Outcome::nothing) << "come and gone";
}

TEST_F(KernelTablesTest, EachStepOfALinkThatLosesItsCarrierIsUnclear) {
  replace({link(7, "c", IFF_UP | IFF_RUNNING)});
  EXPECT_EQ(follow(link(7, "c", IFF_UP)), Outcome::unclear) << "only now the routes have heard";
  replace({link(7, "c", IFF_UP)});
  EXPECT_EQ(follow(link(7, "c", IFF_UP)), Outcome::nothing);
  EXPECT_EQ(follow(link(7, "c", 0)), Outcome::unclear);
}

TEST_F(KernelTablesTest, MessageOfABridgeOnAPortIsNoLink) {
  ifinfomsg port{.ifi_family = AF_BRIDGE, .ifi_index = 5};
  EXPECT_EQ(follow(Message(RTM_DELLINK, port).with(IFLA_IFNAME, "a")), Outcome::nothing);
}

TEST_F(KernelTablesTest, AddressesAreTheLinksOwnInTheKernelsOrder) {
  EXPECT_TRUE(replace({addressOf(5, "10.0.0.9", 24), addressOf(6, "10.2.0.1", 16),
                       addressOf(5, "10.0.0.1", 24, IFA_F_SECONDARY),
                       addressOf(5, "10.1.0.1", 32).with(IFA_ADDRESS, address("10.1.0.2")),
                       addressOf(5, "10.0.0.2", 24).with(IFA_FLAGS, Zet::U32{IFA_F_SECONDARY})}));
  EXPECT_THAT(
      tables.view().links.at("a").addresses,
      ElementsAre(KernelAddress{address("10.0.0.9"), 24}, KernelAddress{address("10.0.0.1"), 24, true},
                  KernelAddress{address("10.1.0.1"), 32, false, address("10.1.0.2")},
                  KernelAddress{address("10.0.0.2"), 24, true}));
  EXPECT_THAT(tables.view().links.at("b").addresses, ElementsAre(KernelAddress{address("10.2.0.1"), 16}));
  EXPECT_EQ(follow(addressOf(5, "10.0.0.9", 24)), Outcome::unclear);
}

// Routes ----------------------------------------------------------------------------------------------------

TEST_F(KernelTablesTest, KindOfARouteIsWhereItLeads) {
  struct Case {
    RouteFields fields;
    RouteType type;
  };
  for (auto const& [fields, type] : std::vector<Case>{
           {{.via = "10.0.0.9"}, RouteType::remote},
           {{}, RouteType::connected},
           {{.kind = RTN_LOCAL, .table = RT_TABLE_LOCAL}, RouteType::local},
           {{.link = 0}, RouteType::unset},
           {{.kind = RTN_UNREACHABLE}, RouteType::unset},
           {{.kind = RTN_BLACKHOLE}, RouteType::unset},
           {{.kind = RTN_PROHIBIT}, RouteType::unset},
           {{.kind = RTN_THROW}, RouteType::unset},
           {{.kind = RTN_BROADCAST, .table = RT_TABLE_LOCAL}, RouteType::unset},
           {{.kind = RTN_MULTICAST}, RouteType::unset},
       }) {
    replace({route(fields)});
    EXPECT_EQ(best().type, type) << fields.kind;
    EXPECT_TRUE(tables.view().routes.contains(prefix("10.7.0.0/16"))) << fields.kind;
  }
}

TEST_F(KernelTablesTest, RouteHasItsLinkItsNextHopAndItsMetric) {
  replace({route({.to = "0.0.0.0/0", .via = "10.0.0.9", .link = 6, .metric = 100})});
  Route wanted{
      .type = RouteType::remote, .intfId = Lanet::IntfId("b"), .nextHop = address("10.0.0.9"), .metric = 100};
  EXPECT_EQ(best("0.0.0.0/0"), wanted);
}

TEST_F(KernelTablesTest, TableMayBeNamedByAnAttribute) {
  replace({route({.table = RT_TABLE_COMPAT}).with(RTA_TABLE, Zet::U32{1000})});
  EXPECT_THAT(tables.view().routes, IsEmpty());
  replace({route({.table = RT_TABLE_COMPAT}).with(RTA_TABLE, Zet::U32{RT_TABLE_MAIN})});
  EXPECT_EQ(best().type, RouteType::connected);
}

TEST_F(KernelTablesTest, FirstNextHopThatLivesCounts) {
  auto several = [](unsigned first, unsigned second) {
    return route({.link = 0}).with(RTA_MULTIPATH, hops({{5, "10.0.0.8", first}, {6, "10.0.0.9", second}}));
  };
  replace({several(0, 0)});
  EXPECT_EQ(nextHop(), "10.0.0.8");
  replace({several(RTNH_F_DEAD, 0)});
  EXPECT_EQ(nextHop(), "10.0.0.9");
  EXPECT_EQ(best().intfId, Lanet::IntfId("b"));
  replace({several(RTNH_F_LINKDOWN, 0)});
  EXPECT_EQ(nextHop(), "10.0.0.8") << "the kernel goes on using it, unless it says dead";
  replace({several(RTNH_F_DEAD, RTNH_F_DEAD)});
  EXPECT_THAT(tables.view().routes, IsEmpty());
}

TEST_F(KernelTablesTest, DeadRouteIsPassedOver) {
  replace({route({.via = "10.0.0.8", .metric = 1, .flags = RTNH_F_DEAD}),
           route({.via = "10.0.0.9", .metric = 2})});
  EXPECT_EQ(nextHop(), "10.0.0.9");
}

TEST_F(KernelTablesTest, LocalTableComesBeforeTheMainOne) {
  replace({route({.via = "10.0.0.9"}), route({.metric = 77, .kind = RTN_LOCAL, .table = RT_TABLE_LOCAL})});
  EXPECT_EQ(best().type, RouteType::local);
}

TEST_F(KernelTablesTest, LinkThatIsNotKnownHasNoName) {
  replace({route({.via = "10.0.0.9", .link = 99})});
  EXPECT_TRUE(best().intfId.isEmpty());
}

// Following routes ------------------------------------------------------------------------------------

TEST_F(KernelTablesTest, RoutesComeAndGoByTheirMetrics) {
  EXPECT_EQ(follow(route({.via = "10.0.0.9", .metric = 9})), Outcome::changed);
  EXPECT_EQ(follow(route({.via = "10.0.0.8", .metric = 8})), Outcome::changed);
  EXPECT_EQ(follow(route({.via = "10.0.0.7", .metric = 10})), Outcome::nothing);
  EXPECT_EQ(nextHop(), "10.0.0.8");
  EXPECT_EQ(follow(gone({.via = "10.0.0.8", .metric = 8})), Outcome::changed);
  EXPECT_EQ(nextHop(), "10.0.0.9");
  EXPECT_THAT(changed(), ElementsAre(prefix("10.7.0.0/16")));
  EXPECT_EQ(follow(gone({.via = "10.0.0.7", .metric = 10})), Outcome::nothing);
  EXPECT_EQ(follow(gone({.via = "10.0.0.9", .metric = 9})), Outcome::changed);
  EXPECT_THAT(tables.view().routes, IsEmpty());
  EXPECT_THAT(changed(), ElementsAre(prefix("10.7.0.0/16")));
  EXPECT_THAT(changed(), IsEmpty());
}

TEST_F(KernelTablesTest, ReplacementTakesThePlaceOfTheOnlyOne) {
  follow(route({.via = "10.0.0.9"}));
  EXPECT_EQ(follow(route({.via = "10.0.0.8"}, RTM_NEWROUTE, NLM_F_REPLACE)), Outcome::changed);
  EXPECT_EQ(nextHop(), "10.0.0.8");
  EXPECT_EQ(follow(route({.kind = RTN_BLACKHOLE}, RTM_NEWROUTE, NLM_F_REPLACE)), Outcome::changed);
  EXPECT_EQ(best().type, RouteType::unset);
  EXPECT_EQ(follow(gone({.kind = RTN_BLACKHOLE})), Outcome::changed);
}

TEST_F(KernelTablesTest, OrderAmongOneMetricIsUnclear) {
  follow(route({.via = "10.0.0.9"}));
  EXPECT_EQ(follow(route({.via = "10.0.0.8"})), Outcome::unclear);
  replace({route({.via = "10.0.0.8"}), route({.via = "10.0.0.9"})});
  EXPECT_EQ(nextHop(), "10.0.0.8") << "in the order of the answer";
  EXPECT_EQ(follow(route({.via = "10.0.0.7"}, RTM_NEWROUTE, NLM_F_REPLACE)), Outcome::unclear);
}

TEST_F(KernelTablesTest, OldNoticesAfterAnAnswerDoNoHarm) {
  replace({route({.via = "10.0.0.9"})});
  EXPECT_EQ(follow(route({.via = "10.0.0.9"})), Outcome::nothing) << "it is there";
  EXPECT_EQ(follow(gone({.to = "10.8.0.0/16"})), Outcome::nothing) << "it isn't there";
  EXPECT_EQ(follow(gone({.metric = 4})), Outcome::nothing);
  EXPECT_EQ(follow(gone({.via = "10.0.0.8"})), Outcome::unclear) << "another one is there";
  EXPECT_EQ(nextHop(), "10.0.0.9");
}

TEST_F(KernelTablesTest, NextHopsDieAndReviveByNotice) {
  follow(route({.via = "10.0.0.9"}));
  EXPECT_EQ(follow(route({.via = "10.0.0.9", .flags = RTNH_F_DEAD})), Outcome::changed);
  EXPECT_THAT(tables.view().routes, IsEmpty());
  EXPECT_EQ(follow(route({.via = "10.0.0.9"})), Outcome::changed);
  EXPECT_EQ(follow(gone({.via = "10.0.0.9", .flags = RTNH_F_DEAD})), Outcome::changed);
}

TEST_F(KernelTablesTest, RoutesThatDifferInOriginAreTwo) {
  replace({route({.via = "10.0.0.9"}), route({.via = "10.0.0.9", .protocol = RTPROT_BOOT})});
  EXPECT_EQ(follow(gone({.via = "10.0.0.9"})), Outcome::nothing);
  EXPECT_EQ(follow(gone({.via = "10.0.0.9", .protocol = RTPROT_BOOT})), Outcome::changed);
}

TEST_F(KernelTablesTest, NextHopObjectsMakeRoutesUnclear) {
  EXPECT_EQ(follow(Message(RTM_DELNEXTHOP, nhmsg{})), Outcome::unclear);
}

TEST_F(KernelTablesTest, AnswerMarksTheRoutesThatDiffer) {
  replace({route({.to = "10.1.0.0/16"}), route({.to = "10.2.0.0/16"}), route({.to = "10.4.0.0/16"}),
           route({.to = "10.6.0.0/16"})});
  changed();
  EXPECT_TRUE(replace({route({.to = "10.0.0.0/16"}), route({.to = "10.2.0.0/16"}),
                       route({.to = "10.4.0.0/16", .link = 6}), route({.to = "10.5.0.0/16"})}));
  EXPECT_THAT(changed(), ElementsAre(prefix("10.0.0.0/16"), prefix("10.1.0.0/16"), prefix("10.4.0.0/16"),
                                     prefix("10.5.0.0/16"), prefix("10.6.0.0/16")));
  EXPECT_FALSE(replace({route({.to = "10.0.0.0/16"}), route({.to = "10.2.0.0/16"}),
                        route({.to = "10.4.0.0/16", .link = 6}), route({.to = "10.5.0.0/16"})}));
  EXPECT_THAT(changed(), IsEmpty());
}

// Invalid messages ------------------------------------------------------------------------------------------

std::vector<Message> samples() {
  std::vector<Message> all;
  all.push_back(link(5, "a").with(IFLA_MTU, Zet::U32{1500}).with(IFLA_MASTER, Zet::U32{3}));
  all.push_back(addressOf(5, "10.0.0.1", 24).with(IFA_FLAGS, Zet::U32{1}));
  all.push_back(route({.via = "10.0.0.9", .metric = 3}));
  all.push_back(route({.link = 0}).with(RTA_MULTIPATH, hops({{5, "10.0.0.8"}, {6, "10.0.0.9"}})));
  all.push_back(route({.to = "10.9.0.0/16"}, RTM_DELROUTE));
  return all;
}

/// Hands bytes to everything that reads messages, in memory of just their size.
void readAnything(KernelTables& tables, std::vector<Zet::U8> const& bytes) {
  if (bytes.size() < sizeof(nlmsghdr)) return;
  std::unique_ptr<Zet::U8[]> exact(new Zet::U8[bytes.size()]);
  std::memcpy(exact.get(), bytes.data(), bytes.size());
  auto* message = reinterpret_cast<nlmsghdr*>(exact.get());
  message->nlmsg_len = static_cast<Zet::U32>(bytes.size());
  tables.follow(*message);
  KernelRecords records;
  records.add(*message);
}

TEST_F(KernelTablesTest, MessagesThatAreCutShortAreRead) {
  for (Message const& sample : samples()) {
    std::vector<Zet::U8> bytes = sample.bytes();
    while (!bytes.empty()) {
      readAnything(tables, bytes);
      bytes.pop_back();
    }
  }
}

TEST_F(KernelTablesTest, MessagesOfRandomBytesAreRead) {
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    for (Message const& sample : samples()) {
      if (random() % 4 != 0) continue;
      std::vector<Zet::U8> bytes = sample.bytes();
      for (unsigned flips = 1 + random() % 6; flips > 0; --flips) {
        bytes[random() % bytes.size()] = static_cast<Zet::U8>(random() % 3 == 0 ? random() : random() % 40);
      }
      readAnything(tables, bytes);
    }
  }
  for (auto const& [to, best] : tables.view().routes) {
    EXPECT_LE(to.length(), 32U);
    if (best.nextHop.isEmpty()) continue;
    EXPECT_EQ(best.nextHop.af(), Lanet::AddressFamily::ipv4);
  }
}

TEST_F(KernelTablesTest, MessageWithoutARequiredAttributeIsIgnored) {
  rtmsg tooLong{
      .rtm_family = AF_INET, .rtm_dst_len = 33, .rtm_table = RT_TABLE_MAIN, .rtm_type = RTN_UNICAST};
  rtmsg nowhere{.rtm_family = AF_INET, .rtm_dst_len = 8, .rtm_table = RT_TABLE_MAIN, .rtm_type = RTN_UNICAST};
  EXPECT_EQ(follow(Message(RTM_NEWROUTE, tooLong).with(RTA_DST, address("10.0.0.0"))), Outcome::nothing);
  EXPECT_EQ(follow(Message(RTM_NEWROUTE, nowhere)), Outcome::nothing);
  EXPECT_EQ(follow(Message(RTM_NEWROUTE, Zet::U32{AF_INET})), Outcome::nothing);
  EXPECT_EQ(follow(Message(RTM_NEWLINK, ifinfomsg{.ifi_index = 9})), Outcome::nothing);
  EXPECT_EQ(follow(Message(RTM_NEWADDR, ifaddrmsg{.ifa_family = AF_INET})), Outcome::nothing);
  EXPECT_EQ(follow(Message(NLMSG_NOOP, Zet::U32{0})), Outcome::nothing);
}

}  // namespace
}  // namespace test
