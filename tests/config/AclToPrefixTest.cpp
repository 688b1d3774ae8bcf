#include "config/AclToPrefix.h"

#include <rapidcheck.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/TestContext.h"

namespace test {
namespace {

using Acl::Action;
using Acl::IpFilter;
using Acl::IpRuleConfig;
using AclPrefix::AclToPrefix;
using Lanet::IpAddr;
using Lanet::IpGenPrefixSet;
using Zet::U32;
using Zet::U64;
using Texts = std::vector<std::string>;

constexpr Action permit = Action::permit;
constexpr Action deny = Action::deny;

IpRuleConfig rule(Action action, char const* source, char const* mask) {
  IpFilter filter;
  filter.source = IpAddr::parse(source);
  filter.sourceMask = IpAddr::parse(mask);
  return IpRuleConfig(action, filter);
}

Texts textsOf(IpGenPrefixSet const& prefixes) {
  Texts texts;
  for (auto const& prefix : prefixes) texts.emplace_back(prefix.stringValue().view());
  return texts;
}

IpGenPrefixSet permitted(std::vector<IpRuleConfig> const& rules, bool unicast) {
  AclToPrefix list;
  if (unicast) list.unicastModeIs();
  for (IpRuleConfig const& one : rules) list.handleRule(one);
  IpGenPrefixSet prefixes;
  list.PermittedPrefixes(prefixes);
  return prefixes;
}

Texts groups(std::vector<IpRuleConfig> const& rules) { return textsOf(permitted(rules, false)); }
Texts senders(std::vector<IpRuleConfig> const& rules) { return textsOf(permitted(rules, true)); }

Texts rangeToPrefixes(char const* first, char const* last) {
  IpGenPrefixSet prefixes;
  AclToPrefix::ip4RangeToPrefixes(IpAddr::parse(first).hostWord(), IpAddr::parse(last).hostWord(), prefixes);
  return textsOf(prefixes);
}

// Ranges to prefixes ----------------------------------------------------------------------------------

TEST(RangeToPrefixes, AreExactAtBothEnds) {
  EXPECT_EQ(rangeToPrefixes("0.0.0.0", "255.255.255.255"), Texts{"0.0.0.0/0"});
  EXPECT_EQ(rangeToPrefixes("0.0.0.0", "0.0.0.0"), Texts{"0.0.0.0/32"});
  EXPECT_EQ(rangeToPrefixes("255.255.255.255", "255.255.255.255"), Texts{"255.255.255.255/32"});
  EXPECT_EQ(rangeToPrefixes("224.0.0.0", "239.255.255.255"), Texts{"224.0.0.0/4"});
  EXPECT_EQ(rangeToPrefixes("239.0.0.1", "239.0.0.6"),
            (Texts{"239.0.0.1/32", "239.0.0.2/31", "239.0.0.4/31", "239.0.0.6/32"}));
  EXPECT_EQ(rangeToPrefixes("128.0.0.0", "255.255.255.254").size(), 31u);
  EXPECT_EQ(rangeToPrefixes("10.0.0.2", "10.0.0.1"), Texts());
}

/// Prefixes in order, as ranges of numbers.
struct Block {
  U64 first;
  U64 size;
};

std::vector<Block> blocksOf(IpGenPrefixSet const& prefixes) {
  std::vector<Block> blocks;
  for (auto const& prefix : prefixes) {
    blocks.push_back({prefix.v4Prefix().address().hostWord(), U64{1} << (32 - prefix.length())});
  }
  return blocks;
}

/// No two halves of one larger prefix, and no prefix within another: fewer would not do.
bool isFewest(IpGenPrefixSet const& prefixes) {
  std::vector<Block> blocks = blocksOf(prefixes);
  for (std::size_t i = 1; i < blocks.size(); ++i) {
    Block const& a = blocks[i - 1];
    Block const& b = blocks[i];
    if (b.first < a.first + a.size) return false;
    if (a.size == b.size && a.first % (2 * a.size) == 0 && b.first == a.first + a.size) return false;
  }
  return true;
}

TEST(RangeToPrefixes, CoverAnyRangeWithoutGapByTheFewest) {
  EXPECT_TRUE(rc::check([](U32 a, U32 b) {
    auto [first, last] = std::minmax(a, b);
    IpGenPrefixSet prefixes;
    AclToPrefix::ip4RangeToPrefixes(first, last, prefixes);
    U64 next = first;
    for (Block const& block : blocksOf(prefixes)) {
      RC_ASSERT(block.first == next);
      next += block.size;
    }
    RC_ASSERT(next == U64{last} + 1);
    RC_ASSERT(isFewest(prefixes));
  }));
}

// Rules over group addresses --------------------------------------------------------------------------

TEST(GroupList, OverlappingPermitsGiveOneRange) {
  EXPECT_EQ(groups({rule(permit, "239.0.0.0", "255.0.0.0"), rule(permit, "239.1.0.0", "255.255.0.0")}),
            Texts{"239.0.0.0/8"});
  EXPECT_EQ(groups({rule(permit, "239.1.0.0", "255.255.0.0"), rule(permit, "239.0.0.0", "255.0.0.0")}),
            Texts{"239.0.0.0/8"});
}

TEST(GroupList, NeighboringPermitsGiveOneRange) {
  EXPECT_EQ(groups({rule(permit, "238.0.0.0", "255.0.0.0"), rule(permit, "239.0.0.0", "255.0.0.0")}),
            Texts{"238.0.0.0/7"});
}

TEST(GroupList, PermitsWithAGapGivePrefixesOfEachSide) {
  EXPECT_EQ(groups({rule(permit, "239.3.0.0", "255.255.0.0"), rule(permit, "239.1.0.0", "255.255.0.0")}),
            (Texts{"239.1.0.0/16", "239.3.0.0/16"}));
}

TEST(GroupList, APermitOfEverythingIsAllGroups) {
  EXPECT_EQ(groups({rule(permit, "0.0.0.0", "0.0.0.0")}), Texts{"224.0.0.0/4"});
}

TEST(GroupList, WithoutRulesPermitsNothing) { EXPECT_EQ(groups({}), Texts()); }

TEST(GroupList, OfUnicastAddressesPermitsNothing) {
  EXPECT_EQ(groups({rule(permit, "10.0.0.0", "255.0.0.0"), rule(permit, "240.0.0.0", "240.0.0.0")}), Texts());
}

TEST(GroupList, TheFirstRuleThatMatchesDecides) {
  IpRuleConfig narrow = rule(deny, "239.128.0.0", "255.128.0.0");
  IpRuleConfig wide = rule(permit, "239.0.0.0", "255.0.0.0");
  EXPECT_EQ(groups({narrow, wide}), Texts{"239.0.0.0/9"});
  EXPECT_EQ(groups({wide, narrow}), Texts{"239.0.0.0/8"});
  EXPECT_EQ(groups({narrow, rule(permit, "239.192.0.0", "255.192.0.0"), wide}), Texts{"239.0.0.0/9"});
}

TEST(GroupList, AddressBitsOutsideTheMaskDontCount) {
  EXPECT_EQ(groups({rule(permit, "239.9.8.7", "255.0.0.0")}), Texts{"239.0.0.0/8"});
}

TEST(GroupList, ADefaultRuleDoesNothing) {
  EXPECT_EQ(groups({IpRuleConfig(), rule(permit, "239.0.0.0", "255.0.0.0")}), Texts{"239.0.0.0/8"});
}

TEST(GroupList, ARuleLimitedToAProtocolOrPortIsSkipped) {
  IpRuleConfig limited[3];
  for (IpRuleConfig& one : limited) one = rule(deny, "239.0.0.0", "255.0.0.0");
  limited[0].filter.protocol = 17;
  limited[1].filter.sourcePort = 1;
  limited[2].filter.destinationPort = 2;
  for (IpRuleConfig const& one : limited) {
    EXPECT_EQ(groups({one, rule(permit, "239.0.0.0", "255.0.0.0")}), Texts{"239.0.0.0/8"}) << one;
  }
}

// Masks with holes ------------------------------------------------------------------------------------

class MaskWithHoles : public ModelTest {};

TEST_F(MaskWithHoles, CoversExactlyTheAddressesThatAgreeUnderIt) {
  EXPECT_EQ(groups({rule(permit, "239.0.5.0", "255.254.255.0")}), (Texts{"239.0.5.0/24", "239.1.5.0/24"}));
  EXPECT_EQ(groups({rule(permit, "239.0.0.1", "255.255.255.1")}).size(), 128u);
}

TEST_F(MaskWithHoles, Matches4096RangesAtMostAndIsElseSkippedWithATrace) {
  EXPECT_EQ(groups({rule(permit, "239.0.0.1", "255.255.224.1")}).size(), 4096u);
  EXPECT_EQ(context.tracedPrefix("Skipping rule"), 0);
  EXPECT_EQ(groups({rule(permit, "239.0.0.1", "255.255.192.1")}), Texts());
  EXPECT_EQ(context.traced("Skipping rule with mask 255.255.192.1 of 8192 ranges"), 1);
}

// Rules over all addresses ----------------------------------------------------------------------------

TEST(UnicastList, IsReadOverAllAddresses) {
  EXPECT_EQ(senders({rule(permit, "10.0.0.0", "255.0.0.0"), rule(permit, "239.0.0.0", "255.0.0.0")}),
            (Texts{"10.0.0.0/8", "239.0.0.0/8"}));
}

TEST(UnicastList, LosesTheLastAddressOfAll) {
  Texts all = senders({rule(permit, "0.0.0.0", "0.0.0.0")});
  EXPECT_EQ(all.size(), 32u);
  EXPECT_EQ(all.front(), "0.0.0.0/1");
  EXPECT_EQ(all.back(), "255.255.255.254/32");
  EXPECT_EQ(senders({rule(permit, "255.255.255.255", "255.255.255.255")}), Texts());
  EXPECT_EQ(senders({rule(permit, "255.255.255.254", "255.255.255.254")}), Texts{"255.255.255.254/32"});
}

// Any list --------------------------------------------------------------------------------------------

/// Whether a list permits an address, rule by rule.
bool isPermitted(std::vector<IpRuleConfig> const& rules, U32 address) {
  for (IpRuleConfig const& one : rules) {
    U32 mask = one.filter.sourceMask.hostWord();
    bool isLimited = one.filter.protocol != 0;
    if (one.action == Action::unset || isLimited) continue;
    if ((address & mask) == (one.filter.source.hostWord() & mask)) return one.action == permit;
  }
  return false;
}

bool covers(IpGenPrefixSet const& prefixes, U32 address) {
  for (auto const& prefix : prefixes) {
    if (prefix.contains(Lanet::IpGenAddr(IpAddr::fromHost(address)))) return true;
  }
  return false;
}

/// Addresses around the edges of each rule, so that rules meet each other and the edges of the number range.
U32 genAddress() {
  static constexpr U32 corners[] = {0, 0xe0000000, 0xef000000, 0xf0000000, 0xffffff00, 0x0a000000};
  return *rc::gen::elementOf(std::vector<U32>(std::begin(corners), std::end(corners))) +
         *rc::gen::inRange<U32>(0, 64) - 8;
}

IpRuleConfig genRule() {
  IpRuleConfig made;
  made.action = *rc::gen::element(Action::unset, permit, permit, deny);
  made.filter.source = IpAddr::fromHost(genAddress());
  U32 length = *rc::gen::element(0u, 4u, 8u, 26u, 28u, 30u, 31u, 32u);
  U32 mask = length == 0 ? 0 : ~U32{0} << (32 - length);
  U32 holes = *rc::gen::element(0u, 0u, 0u, 0x00000010u, 0x01000004u);
  made.filter.sourceMask = IpAddr::fromHost(mask & ~holes);
  made.filter.protocol = *rc::gen::element(Zet::U8{0}, Zet::U8{0}, Zet::U8{0}, Zet::U8{6});
  return made;
}

TEST(AnyList, PermitsTheAddressesThatItsRulesPermitOneByOne) {
  EXPECT_TRUE(rc::check([] {
    std::vector<IpRuleConfig> rules(*rc::gen::inRange<std::size_t>(0, 8));
    for (IpRuleConfig& one : rules) one = genRule();
    bool unicast = *rc::gen::arbitrary<bool>();
    IpGenPrefixSet prefixes = permitted(rules, unicast);
    RC_ASSERT(isFewest(prefixes));
    std::set<U32> probes{0, 1, 0xdfffffff, 0xe0000000, 0xefffffff, 0xf0000000, 0xfffffffe};
    for (int i = 0; i < 64; ++i) probes.insert(genAddress());
    probes.erase(0xffffffff);  // never permitted: see LosesTheLastAddressOfAll
    for (U32 address : probes) {
      bool expected = isPermitted(rules, address) && (unicast || address >> 28 == 0xe);
      RC_ASSERT(covers(prefixes, address) == expected);
    }
  }));
}

}  // namespace
}  // namespace test
