#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

using Routing::Pim::Packet::CrpAdvMessage;
using Routing::Pim::Packet::CrpGroupData;

std::string const head = "2800 0000 02 c0 0096 0100 03030303";
std::string const twoGroups = "0100 00 08 ef000000 0100 81 10 e8010000";

Zet::Ptr<CrpAdvMessage> accepted(Buffer const& bytes) {
  auto outcome = readCrpAdv(cut(bytes, bytes.size()));
  EXPECT_TRUE(outcome) << nameOf(dropReason(outcome));
  return outcome ? *outcome : nullptr;
}

// An advertisement as a machine makes it, with groups 239.0.0.0/32, 239.0.0.1/32 and so on.
Zet::Ptr<CrpAdvMessage> made(U8 prefixCount, U32 held) {
  auto message = Zet::make<CrpAdvMessage>();
  message->rpAddressIs(ip("10.0.0.1"));
  message->prefixCountIs(prefixCount);
  message->groupDataIs(Zet::make<CrpGroupData>());
  for (U32 i = 0; i < held; ++i) {
    message->groupData()->groupInfoIs(Lanet::IpGenPrefix(Lanet::IpAddr::fromHost(0xef000000 + i)));
  }
  return message;
}

TEST(CrpAdv, OfARealRouterGivesAllItsFields) {
  auto message = accepted(hex(oneGroupAdvertisement));
  EXPECT_EQ(message->srcAddr(), sender());
  EXPECT_EQ(message->dstAddr(), receiver());
  EXPECT_EQ(message->prefixCount(), 1);
  EXPECT_EQ(message->priority(), 0);
  EXPECT_EQ(message->holdtime(), 150);
  EXPECT_EQ(message->rpAddress(), ip("3.3.3.3"));
  ASSERT_EQ(message->groupData()->groupInfoCount(), 1u);
  auto group = message->groupData()->groupInfo(prefix("224.0.0.0/4"));
  ASSERT_TRUE(group);
  EXPECT_EQ(group->groupFlags().value, 0);
  EXPECT_EQ(written(*message), hex(oneGroupAdvertisement));
}

TEST(CrpAdv, GivesEachGroupItsFlags) {
  auto message = accepted(pimbsr::wire::test::message(head + twoGroups));
  EXPECT_EQ(message->priority(), 0xc0);
  EXPECT_EQ(message->groupData()->groupInfoCount(), 2u);
  EXPECT_EQ(message->groupData()->groupInfo(prefix("239.0.0.0/8"))->groupFlags().value, 0);
  auto flags = message->groupData()->groupInfo(prefix("232.1.0.0/16"))->groupFlags();
  EXPECT_TRUE(flags.scoped());
  EXPECT_TRUE(flags.bidir());
}

TEST(CrpAdv, WithoutPrefixesSpeaksForAllGroups) {
  auto const bytes = message("2800 0000 00 c0 0000 0100 03030303");
  auto advertisement = accepted(bytes);
  EXPECT_EQ(advertisement->prefixCount(), 0);
  EXPECT_EQ(advertisement->holdtime(), 0);
  ASSERT_TRUE(advertisement->groupData());
  EXPECT_EQ(advertisement->groupData()->groupInfoCount(), 0u);
  EXPECT_EQ(written(*advertisement), bytes);
}

TEST(CrpAdv, IgnoresWhatHasNoMeaning) {
  auto plain = accepted(message(head + twoGroups));
  struct Odd {
    char const* label;
    std::string digits;
  };
  Odd const cases[] = {
      {"flags of the message", "28ff" + head.substr(4) + twoGroups},
      {"unassigned flags of a group, and its host bits", head + "0100 7e 08 ef010203 0100 ff 10 e801ffff"},
      {"bytes after the last prefix announced", head + twoGroups + "0100 00 08 ee000000 ffffff"},
      {"the other order", head + "0100 81 10 e8010000 0100 00 08 ef000000"},
  };
  for (Odd const& odd : cases) {
    auto advertisement = accepted(message(odd.digits));
    ASSERT_TRUE(advertisement) << odd.label;
    EXPECT_TRUE(equal(*advertisement, *plain)) << odd.label;
    EXPECT_EQ(written(*advertisement), written(*plain)) << odd.label;
  }
}

TEST(CrpAdv, EveryTruncationIsDropped) {
  Buffer const whole = message(head + twoGroups);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    auto reason = dropReason(readCrpAdv(checksummed(cut(whole, n))));
    EXPECT_EQ(nameOf(reason), n < 14 ? "truncated" : "prefix-count") << n << " bytes";
    EXPECT_TRUE(dropReason(readCrpAdv(cut(whole, n)))) << n << " bytes";
  }
}

TEST(CrpAdv, IsWellFormedHoweverOddTheRecord) {
  struct Oddity {
    char const* label;
    U8 prefixCount;
    U32 held;
    U8 sent;
  };
  Oddity const cases[] = {
      {"nothing odd", 3, 3, 3},
      {"one more than is announced, as the widest set has it", 255, 256, 255},
      {"fewer than are announced", 4, 2, 2},
      {"prefixes where none is announced", 0, 2, 0},
  };
  for (Oddity const& odd : cases) {
    auto record = made(odd.prefixCount, odd.held);
    auto bytes = written(*record);
    EXPECT_EQ(bytes.size(), 14u + 8u * odd.sent) << odd.label;
    auto advertisement = accepted(bytes);
    ASSERT_TRUE(advertisement) << odd.label;
    EXPECT_EQ(advertisement->prefixCount(), odd.sent) << odd.label;
    EXPECT_EQ(advertisement->groupData()->groupInfoCount(), odd.sent) << odd.label;
    EXPECT_EQ(record->groupData()->groupInfoCount(), odd.held)
        << "the record keeps its oddity: " << odd.label;
  }
}

TEST(CrpAdv, LeavesOutGroupsThatReadingWouldDrop) {
  auto record = made(6, 1);
  for (char const* range : {"10.0.0.0/8", "224.0.0.0/3", "0.0.0.0/0", "ff00::/8", ""}) {
    record->groupData()->groupInfoIs(prefix(range));
  }
  auto advertisement = accepted(written(*record));
  EXPECT_EQ(advertisement->prefixCount(), 1);
  EXPECT_TRUE(advertisement->groupData()->groupInfo(prefix("239.0.0.0/32")));
}

TEST(CrpAdv, CannotBeWrittenIfItWouldSayMoreThanTheRecord) {
  auto nothingHeld = made(1, 0);
  auto nothingToHold = made(1, 0);
  nothingToHold->groupDataIs(nullptr);
  auto nothingFit = made(1, 0);
  nothingFit->groupData()->groupInfoIs(prefix("10.0.0.0/8"));
  for (auto const& record : {nothingHeld, nothingToHold, nothingFit}) {
    Buffer out = hex("0102");
    EXPECT_FALSE(encodeCrpAdv(*record, out)) << "a count of 0 would claim all groups";
    EXPECT_TRUE(out.empty());
  }
}

TEST(CrpAdv, CannotBeWrittenWithoutAnRp) {
  for (char const* rp : {"", "0.0.0.0", "127.0.0.1", "239.0.0.1", "2001:db8::1"}) {
    auto record = made(1, 1);
    record->rpAddressIs(Lanet::IpGenAddr::parse(rp));
    Buffer out = hex("0102");
    EXPECT_FALSE(encodeCrpAdv(*record, out)) << rp;
    EXPECT_TRUE(out.empty()) << rp;
  }
}

TEST(CrpAdv, WithoutGroupDataIsWrittenAsOneWithoutGroups) {
  auto record = made(0, 0);
  auto same = accepted(written(*record));
  record->groupDataIs(nullptr);
  EXPECT_TRUE(equal(*accepted(written(*record)), *same));
}

// Every field in turn, so that none is forgotten by the comparison on which the other tests depend.
TEST(CrpAdv, EqualLooksAtEveryField) {
  auto plain = accepted(message(head + twoGroups));
  EXPECT_TRUE(equal(*plain, *accepted(message(head + twoGroups))));
  for (std::string const& other :
       {"2800 0000 01 c0 0096 0100 03030303" + twoGroups, "2800 0000 02 c1 0096 0100 03030303" + twoGroups,
        "2800 0000 02 c0 0097 0100 03030303" + twoGroups, "2800 0000 02 c0 0096 0100 03030304" + twoGroups,
        head + "0100 00 09 ef000000 0100 81 10 e8010000", head + "0100 01 08 ef000000 0100 81 10 e8010000"}) {
    EXPECT_FALSE(equal(*plain, *accepted(message(other)))) << other;
    EXPECT_FALSE(equal(*accepted(message(other)), *plain)) << other;
  }
  auto const bytes = message(head + twoGroups);
  EXPECT_FALSE(equal(*plain, **decodeCrpAdv(bytes, ip("10.0.0.6"), receiver())));
  EXPECT_FALSE(equal(*plain, **decodeCrpAdv(bytes, sender(), ip("10.0.0.6"))));
}

}  // namespace
}  // namespace pimbsr::wire::test
