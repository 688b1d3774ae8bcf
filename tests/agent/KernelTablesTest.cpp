#include "agent/kernel/KernelTables.h"

#include <gmock/gmock.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <memory>
#include <random>

namespace test {
namespace {

using Lanet::IpAddr;
using pimbsr::agent::KernelAddress;
using pimbsr::agent::KernelRecords;
using pimbsr::agent::KernelTables;
using pimbsr::agent::readRoute;
using pimbsr::agent::RouteRecord;
using Slosh::Fib::RouteType;
using testing::ElementsAre;

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
  char const* via = "";
  int link = 5;
  Zet::U32 metric = 0;
  int kind = RTN_UNICAST;
};

/// The kernel's answer for one address.
Message route(RouteFields const& fields) {
  rtmsg fixed{.rtm_family = AF_INET, .rtm_dst_len = 32, .rtm_type = static_cast<Zet::U8>(fields.kind)};
  Message message(RTM_NEWROUTE, fixed);
  message = std::move(message).with(RTA_DST, address("10.7.0.1"));
  if (*fields.via != '\0') message = std::move(message).with(RTA_GATEWAY, address(fields.via));
  if (fields.link != 0) message = std::move(message).with(RTA_OIF, static_cast<Zet::U32>(fields.link));
  if (fields.metric != 0) message = std::move(message).with(RTA_PRIORITY, fields.metric);
  return message;
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

  bool isChangedBy(Message const& message) const { return tables.isChangedBy(*message); }

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

TEST_F(KernelTablesTest, ChangeOfALinkIsAskedFor) {
  EXPECT_FALSE(isChangedBy(link(5, "a"))) << "as it is";
  EXPECT_FALSE(isChangedBy(link(5, "a", working | IFF_PROMISC))) << "of no concern";
  EXPECT_TRUE(isChangedBy(link(5, "c"))) << "renamed";
  EXPECT_TRUE(isChangedBy(link(5, "a", IFF_UP))) << "lost its carrier";
  EXPECT_TRUE(isChangedBy(link(5, "a").with(IFLA_MTU, Zet::U32{1400})));
  EXPECT_TRUE(isChangedBy(link(5, "a").with(IFLA_MASTER, Zet::U32{9})));
  EXPECT_TRUE(isChangedBy(link(7, "c"))) << "new";
  EXPECT_TRUE(isChangedBy(link(5, "a", 0, RTM_DELLINK)));
  EXPECT_FALSE(isChangedBy(link(7, "c", 0, RTM_DELLINK))) << "come and gone";
}

TEST_F(KernelTablesTest, NoticeOfALinkOrAnAddressMayBeAChangeWhateverTheTablesHold) {
  EXPECT_TRUE(KernelTables::mayBeChangedBy(*link(5, "a"))) << "as it is";
  EXPECT_TRUE(KernelTables::mayBeChangedBy(*link(7, "c", 0, RTM_DELLINK)));
  EXPECT_TRUE(KernelTables::mayBeChangedBy(*addressOf(5, "10.0.0.9", 24)));
  ifinfomsg port{.ifi_family = AF_BRIDGE, .ifi_index = 5};
  EXPECT_FALSE(KernelTables::mayBeChangedBy(*Message(RTM_DELLINK, port).with(IFLA_IFNAME, "a")));
  EXPECT_FALSE(KernelTables::mayBeChangedBy(*Message(NLMSG_NOOP, Zet::U32{0})));
}

TEST_F(KernelTablesTest, EachStepOfALinkThatLosesItsCarrierIsAskedFor) {
  replace({link(7, "c", IFF_UP | IFF_RUNNING)});
  EXPECT_TRUE(isChangedBy(link(7, "c", IFF_UP))) << "only now the routes have heard";
  replace({link(7, "c", IFF_UP)});
  EXPECT_FALSE(isChangedBy(link(7, "c", IFF_UP)));
  EXPECT_TRUE(isChangedBy(link(7, "c", 0)));
}

TEST_F(KernelTablesTest, MessageOfABridgeOnAPortIsNoLink) {
  ifinfomsg port{.ifi_family = AF_BRIDGE, .ifi_index = 5};
  EXPECT_FALSE(isChangedBy(Message(RTM_DELLINK, port).with(IFLA_IFNAME, "a")));
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
  EXPECT_TRUE(isChangedBy(addressOf(5, "10.0.0.9", 24)));
}

// Routes ----------------------------------------------------------------------------------------------------

TEST_F(KernelTablesTest, KindOfARouteIsWhereItLeads) {
  for (auto const& [fields, type] : std::vector<std::pair<RouteFields, RouteType>>{
           {{.kind = RTN_LOCAL}, RouteType::local},
           {{}, RouteType::connected},
           {{.via = "10.0.0.9"}, RouteType::remote},
           {{.link = 0}, RouteType::unset},
           {{.kind = RTN_UNREACHABLE}, RouteType::unset},
           {{.kind = RTN_BLACKHOLE}, RouteType::unset},
           {{.kind = RTN_PROHIBIT}, RouteType::unset},
           {{.kind = RTN_THROW}, RouteType::unset},
           {{.kind = RTN_BROADCAST}, RouteType::unset},
           {{.kind = RTN_MULTICAST}, RouteType::unset},
       }) {
    auto record = readRoute(*route(fields));
    ASSERT_TRUE(record) << fields.kind;
    EXPECT_EQ(record->type, type) << fields.kind;
  }
}

TEST_F(KernelTablesTest, RouteHasItsLinkItsNextHopAndItsMetric) {
  RouteRecord wanted{
      .type = RouteType::remote, .interfaceIndex = 6, .nextHop = address("10.0.0.9"), .metric = 100};
  EXPECT_EQ(readRoute(*route({.via = "10.0.0.9", .link = 6, .metric = 100})), wanted);
}

TEST_F(KernelTablesTest, RoutesAreNeitherKeptNorAskedForByNotice) {
  EXPECT_FALSE(isChangedBy(route({.via = "10.0.0.9"})));
  KernelRecords records;
  records.add(*route({.via = "10.0.0.9"}));
  EXPECT_TRUE(records.links.empty() && records.addresses.empty());
}

TEST_F(KernelTablesTest, LinkThatIsNotKnownHasNoName) {
  EXPECT_EQ(tables.nameOf(5), Lanet::IntfId("a"));
  EXPECT_TRUE(tables.nameOf(99).isEmpty());
}

// Invalid messages ------------------------------------------------------------------------------------------

std::vector<Message> samples() {
  std::vector<Message> all;
  all.push_back(link(5, "a").with(IFLA_MTU, Zet::U32{1500}).with(IFLA_MASTER, Zet::U32{3}));
  all.push_back(addressOf(5, "10.0.0.1", 24).with(IFA_FLAGS, Zet::U32{1}));
  all.push_back(route({.via = "10.0.0.9", .metric = 3}));
  return all;
}

/// Hands bytes to everything that reads messages, in memory of just their size.
void readAnything(KernelTables& tables, std::vector<Zet::U8> const& bytes) {
  if (bytes.size() < sizeof(nlmsghdr)) return;
  std::unique_ptr<Zet::U8[]> exact(new Zet::U8[bytes.size()]);
  std::memcpy(exact.get(), bytes.data(), bytes.size());
  auto* message = reinterpret_cast<nlmsghdr*>(exact.get());
  message->nlmsg_len = static_cast<Zet::U32>(bytes.size());
  tables.isChangedBy(*message);
  readRoute(*message);
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
}

TEST_F(KernelTablesTest, MessageWithoutARequiredAttributeIsIgnored) {
  EXPECT_FALSE(readRoute(*Message(RTM_NEWROUTE, Zet::U32{AF_INET})));
  EXPECT_FALSE(readRoute(*Message(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET6})));
  EXPECT_FALSE(isChangedBy(Message(RTM_NEWLINK, ifinfomsg{.ifi_index = 9})));
  EXPECT_FALSE(isChangedBy(Message(RTM_NEWADDR, ifaddrmsg{.ifa_family = AF_INET})));
  EXPECT_FALSE(isChangedBy(Message(NLMSG_NOOP, Zet::U32{0})));
}

}  // namespace
}  // namespace test
