#include "model/Acl.h"

#include <string>

#include "model/SourceIntf.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Acl::Action;
using Acl::IpFilter;
using Acl::IpFilterBase;
using Acl::IpRuleConfig;
using Acl::UniqueId;
using testing_support::rangeError;
using testing_support::streamed;
using Zet::Ptr;

Lanet::IpAddr ip(char const* text) { return Lanet::IpAddr::parse(text); }

IpFilter filterOf(char const* source, char const* mask) {
  IpFilter filter;
  filter.source = ip(source);
  filter.sourceMask = ip(mask);
  return filter;
}

// Values ----------------------------------------------------------------------------------------------

TEST(AclValues, ADefaultRuleDoesNothingToAnyPacket) {
  IpRuleConfig rule;
  EXPECT_EQ(rule.action, Action::unset);
  EXPECT_EQ(rule.filter, filterOf("0.0.0.0", "0.0.0.0"));
  EXPECT_EQ(rule.filter.tni() + rule.filter.vni() + rule.filter.protocol, 0u);
}

TEST(AclValues, VirtualNetworksHave24Bits) {
  IpFilterBase filter;
  filter.tniIs(16777215);
  filter.vniIs(16777215);
  EXPECT_EQ(rangeError([&] { IpFilterBase().tniIs(16777216); }),
            "IpFilterBase::tni < 0 or > 16777215 not allowed");
  EXPECT_EQ(rangeError([&] { IpFilterBase().vniIs(16777216); }),
            "IpFilterBase::vni < 0 or > 16777215 not allowed");
}

TEST(AclValues, ARejectedNumberStaysAndACopyIsRejectedWithTheSameText) {
  char const* rejected = "IpFilterBase::tni < 0 or > 16777215 not allowed";
  IpRuleConfig rule;
  EXPECT_EQ(rangeError([&] { rule.filter.tniIs(16777216); }), rejected);
  EXPECT_EQ(rule.filter.tni(), 16777216u);
  EXPECT_EQ(rangeError([&] { IpRuleConfig copy(rule); }), rejected);
  EXPECT_EQ(rangeError([&] {
              IpRuleConfig other;
              other = rule;
            }),
            rejected);
  auto list = Acl::aclConfigFactory("list");
  EXPECT_EQ(rangeError([&] { list->ipRuleByIdIs(UniqueId(1), rule); }), rejected);
  EXPECT_EQ(list->ipRuleByIdCount(), 0u);
}

TEST(AclValues, ARulesTextIsReadBack) {
  IpRuleConfig rule(Action::deny, filterOf("10.0.0.0", "255.0.0.0"));
  rule.filter.tniIs(1);
  rule.filter.vniIs(2);
  rule.filter.protocol = 17;
  rule.filter.sourcePort = 3;
  rule.filter.destinationPort = 4;
  EXPECT_EQ(streamed(rule),
            "Value('Acl::IpRuleConfig', ** {'action': 'deny', 'filter': Value('Acl::IpFilter', ** {'tni': 1, "
            "'vni': 2, 'source': '10.0.0.0', 'sourceMask': '255.0.0.0', 'protocol': 17, 'sourcePort': 3, "
            "'destinationPort': 4})})");
  EXPECT_EQ(Zet::strepToValue<IpRuleConfig>(valueToStrep(rule)), rule);
  EXPECT_EQ(Zet::strepToValue<UniqueId>(valueToStrep(UniqueId(1ULL << 40))), UniqueId(1ULL << 40));
}

// Lists -----------------------------------------------------------------------------------------------

TEST(AclEntities, AListIsReachedByNameAndItsRulesByIdAndSequence) {
  auto lists = Acl::aclTypeConfigFactory("ip");
  auto list = lists->aclIs("list");
  EXPECT_EQ(list->name(), "list");
  EXPECT_FALSE(list->currCfg());
  IpRuleConfig rule(Action::permit, filterOf("224.0.0.0", "240.0.0.0"));
  list->ipRuleByIdIs(UniqueId(7), rule);
  auto version = Acl::aclSubConfigFactory();
  version->ruleBySequenceIs(10, UniqueId(7));
  list->currCfgIs(version);
  EXPECT_EQ(list->ipRuleById(list->currCfg()->ruleBySequence(10)), rule);
  EXPECT_EQ(list->ipRuleById(UniqueId(8)), IpRuleConfig());
  EXPECT_FALSE(lists->acl("other"));
}

TEST(AclEntities, ARuleIsWrittenAndReadByName) {
  auto list = Acl::aclConfigFactory("list");
  Acl::AclConfig::GenericIf_ byName;
  IpRuleConfig rule(Action::permit, filterOf("239.0.0.0", "255.0.0.0"));
  byName.write(*list, "ipRuleById", "7", valueToStrep(rule));
  EXPECT_EQ(list->ipRuleById(UniqueId(7)), rule);
  EXPECT_EQ(byName.read(*list, "ipRuleById", "7"), valueToStrep(rule));
}

// Source interfaces -----------------------------------------------------------------------------------

class AddressWatch : public Ip::SourceIntf::SourceIntf::NotifieeConst {
 public:
  void onIpAddr() override { ++heard; }
  int heard = 0;
};

TEST(SourceIntf, AllWhoRegisterAnInterfaceShareIt) {
  auto sources = Ip::SourceIntf::sourceIntfSmFactory();
  auto first = sources->registerSourceIntf(intf("eth0"));
  EXPECT_EQ(first->ipAddr(), Lanet::IpAddr());
  EXPECT_EQ(sources->registerSourceIntf(intf("eth0")), first);
  EXPECT_NE(sources->registerSourceIntf(intf("eth1")), first);
}

TEST(SourceIntf, AnAddressIsReportedToEachWatcherAndFoundByALaterOne) {
  auto sources = Ip::SourceIntf::sourceIntfSmFactory();
  auto one = Zet::make<AddressWatch>();
  auto two = Zet::make<AddressWatch>();
  one->notifierIs(sources->registerSourceIntf(intf("eth0")));
  two->notifierIs(sources->registerSourceIntf(intf("eth0")));
  sources->sourceIntfIs(intf("eth0"))->ipAddrIs(ip("10.0.0.1"));
  sources->sourceIntfIs(intf("eth0"))->ipAddrIs(ip("10.0.0.1"));
  EXPECT_EQ(one->heard, 1);
  EXPECT_EQ(two->heard, 1);
  EXPECT_EQ(sources->registerSourceIntf(intf("eth0"))->ipAddr(), ip("10.0.0.1"));
}

}  // namespace
}  // namespace test
