#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using Routing::Pim::Packet::BootstrapRpData;
using Routing::Pim::Packet::GroupFlags;

std::string const head = "2400 0000 04b0 1e 40 0100 0a000001";

Zet::Ptr<BootstrapMessage> accepted(Buffer const& bytes) {
  auto outcome = readBootstrap(cut(bytes, bytes.size()));
  EXPECT_TRUE(outcome) << nameOf(dropReason(outcome));
  return outcome ? *outcome : nullptr;
}

std::vector<Zet::Ptr<BootstrapGroupData>> groups(BootstrapMessage const& message) {
  std::vector<Zet::Ptr<BootstrapGroupData>> all;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) all.emplace_back(&*group);
  return all;
}

// A message as a machine makes it, with one group of 239.0.0.0/8.
struct Made {
  explicit Made(char const* range = "239.0.0.0/8") : group(Zet::make<BootstrapGroupData>(prefix(range))) {
    message->bsrAddressIs(ip("10.0.0.1"));
    message->groupRpDataIs(Zet::make<BootstrapOptionalData>());
    message->groupRpData()->groupDataEnq(group);
  }
  void announce(U8 rpCount, U8 fragRpCount) {
    group->rpCountIs(rpCount);
    group->fragRpCountIs(fragRpCount);
  }
  // RPs 10.1.0.0, 10.1.0.1 and so on.
  void hold(U32 rps) {
    for (U32 i = 0; i < rps; ++i) group->rpListIs(Lanet::IpAddr::fromHost(0x0a010000 + i));
  }

  Zet::Ptr<BootstrapMessage> message = Zet::make<BootstrapMessage>();
  Zet::Ptr<BootstrapGroupData> group;
};

TEST(Bootstrap, OfARealRouterGivesAllItsFields) {
  auto message = accepted(hex(twoRpBootstrap));
  EXPECT_EQ(message->srcAddr(), sender());
  EXPECT_EQ(message->dstAddr(), receiver());
  EXPECT_TRUE(message->forward());
  EXPECT_EQ(message->fragmentTag(), 0x04b0);
  EXPECT_EQ(message->hashMaskLen(), 0);
  EXPECT_EQ(message->bsrPriority(), 0);
  EXPECT_EQ(message->bsrAddress(), ip("1.1.1.1"));
  ASSERT_EQ(groups(*message).size(), 1u);
  auto group = groups(*message).front();
  EXPECT_EQ(group->prefix(), prefix("224.0.0.0/4"));
  EXPECT_EQ(group->groupFlags().value, 0);
  EXPECT_EQ(group->rpCount(), 2);
  EXPECT_EQ(group->fragRpCount(), 2);
  EXPECT_EQ(group->rpListCount(), 2u);
  for (char const* address : {"2.2.2.2", "3.3.3.3"}) {
    auto rp = group->rpList(ip(address));
    ASSERT_TRUE(rp) << address;
    EXPECT_EQ(rp->rpHoldtime(), 150);
    EXPECT_EQ(rp->rpPriority(), 0);
  }
}

TEST(Bootstrap, OfARealRouterIsReadUnderEachOfItsTags) {
  struct Sent {
    char const* head;
    U16 tag;
  };
  std::string const rest =
      "00 00 0100 01010101 0100 00 04 e0000000 02 02 0000 0100 02020202 0096 00 00 0100 03030303 0096 00 00";
  for (Sent sent : {Sent{"2400 e410 04b0", 0x04b0}, Sent{"2400 df74 094c", 0x094c},
                    Sent{"2400 d555 136b", 0x136b}, Sent{"2400 e3ab 0515", 0x0515}}) {
    EXPECT_EQ(accepted(hex(sent.head + rest))->fragmentTag(), sent.tag);
  }
}

TEST(Bootstrap, FieldsHaveTheirWholeRange) {
  auto message = accepted(pimbsr::wire::test::message(
      "2480 0000 ffff ff ff 0100 dfffffff 0100 81 20 efffffff ff 01 0000 0100 01000000 ffff ff 00"));
  EXPECT_FALSE(message->forward()) << "the No-Forward bit is set";
  EXPECT_EQ(message->fragmentTag(), 0xffff);
  EXPECT_EQ(message->hashMaskLen(), 0xff) << "the mask length is checked by others";
  EXPECT_EQ(message->bsrPriority(), 0xff);
  EXPECT_EQ(message->bsrAddress(), ip("223.255.255.255"));
  auto group = groups(*message).front();
  EXPECT_EQ(group->prefix(), prefix("239.255.255.255/32"));
  EXPECT_TRUE(group->groupFlags().scoped());
  EXPECT_TRUE(group->groupFlags().bidir());
  EXPECT_EQ(group->rpCount(), 0xff);
  EXPECT_EQ(group->fragRpCount(), 1);
  EXPECT_EQ(group->rpList(ip("1.0.0.0"))->rpHoldtime(), 0xffff);
  EXPECT_EQ(group->rpList(ip("1.0.0.0"))->rpPriority(), 0xff);
}

TEST(Bootstrap, WithoutGroupsHasDataThatHoldsNone) {
  auto message = accepted(pimbsr::wire::test::message(head));
  ASSERT_TRUE(message->groupRpData());
  EXPECT_EQ(message->groupRpData()->groupDataCount(), 0u);
}

TEST(Bootstrap, KeepsGroupsInTheOrderOfTheWireAlsoWhenOneComesTwice) {
  auto message = accepted(pimbsr::wire::test::message(head + "0100 01 08 ef000000 00 00 0000"
                                                             "0100 00 04 e0000000 05 00 0000"
                                                             "0100 00 08 ef000000 03 00 0000"));
  ASSERT_EQ(groups(*message).size(), 3u);
  EXPECT_EQ(groups(*message)[0]->prefix(), prefix("239.0.0.0/8"));
  EXPECT_TRUE(groups(*message)[0]->groupFlags().scoped());
  EXPECT_EQ(groups(*message)[1]->prefix(), prefix("224.0.0.0/4"));
  EXPECT_EQ(groups(*message)[1]->rpCount(), 5) << "announced for other fragments";
  EXPECT_EQ(groups(*message)[2]->prefix(), prefix("239.0.0.0/8"));
  EXPECT_EQ(groups(*message)[2]->rpCount(), 3);
}

TEST(Bootstrap, OneRpMayServeSeveralGroups) {
  std::string const rp = "0100 02020202 0096 00 00";
  auto message = accepted(pimbsr::wire::test::message(head + "0100 00 08 ef000000 01 01 0000" + rp +
                                                      "0100 00 08 ef000000 01 01 0000" + rp));
  EXPECT_EQ(groups(*message).size(), 2u);
}

TEST(Bootstrap, IgnoresWhatHasNoMeaning) {
  std::string const group = "0100 00 08 ef000000 01 01 0000 0100 02020202 0096 07 00";
  auto plain = accepted(pimbsr::wire::test::message(head + group));
  struct Odd {
    char const* label;
    std::string digits;
  };
  Odd const cases[] = {
      {"unassigned flags of the message", "247f" + head.substr(4) + group},
      {"unassigned flags of a group, and its host bits",
       head + "0100 7e 08 ef0a0b0c 01 01 0000 0100 02020202 0096 07 00"},
      {"reserved bytes", head + "0100 00 08 ef000000 01 01 ffff 0100 02020202 0096 07 ff"},
      {"a rest too short for a group", head + group + "0100 00 08 ef000000 01 01 00"},
      {"a rest of one byte", head + group + "ff"},
      {"padding of any length", head + group + std::string(80, '0')},
  };
  for (Odd const& odd : cases) {
    auto message = accepted(pimbsr::wire::test::message(odd.digits));
    ASSERT_TRUE(message) << odd.label;
    EXPECT_TRUE(equal(*message, *plain)) << odd.label;
    EXPECT_EQ(written(*message), pimbsr::wire::test::message(head + group)) << odd.label;
  }
}

TEST(Bootstrap, IsWrittenAsItWasRead) {
  for (std::string const& digits : {head, head + "0100 80 04 e0000000 09 00 0000", "2480" + head.substr(4),
                                    std::string(twoRpBootstrap)}) {
    Buffer const bytes = message(digits);
    Buffer const again = written(*accepted(bytes));
    EXPECT_TRUE(equal(*accepted(again), *accepted(bytes))) << digits;
    EXPECT_EQ(again.size(), bytes.size()) << digits;
  }
}

TEST(Bootstrap, WritesRpsInTheOrderOfTheRecord) {
  Made made;
  made.hold(40);
  made.announce(40, 40);
  auto bytes = written(*made.message);
  std::size_t at = 14 + 12;
  for (auto rp = made.group->rpListIterator(); rp; ++rp, at += 10) {
    Reader in(Bytes(bytes).subspan(at + 2));
    EXPECT_EQ(in.u32(), rp->rpAddress().v4Addr().hostWord());
  }
  EXPECT_EQ(at, bytes.size());
}

TEST(Bootstrap, EveryTruncationIsDroppedUnlessItEndsBetweenGroups) {
  std::string const first =
      "0100 00 08 ef000000 02 02 0000 0100 02020202 0096 07 00 0100 03030303 0096 07 00";
  std::string const second = "0100 00 04 e0000000 01 01 0000 0100 02020202 0096 07 00";
  Buffer const whole = message(head + first + second);
  ASSERT_EQ(whole.size(), 14u + 32 + 22);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    // A rest of fewer than 12 bytes after the head or after the first record is no group record.
    bool complete = (n >= 14 && n < 14 + 12) || (n >= 46 && n < 46 + 12);
    auto outcome = readBootstrap(checksummed(cut(whole, n)));
    EXPECT_EQ(nameOf(dropReason(outcome)), complete ? "accepted" : "truncated") << n << " bytes";
    EXPECT_TRUE(dropReason(readBootstrap(cut(whole, n))))
        << "the checksum gives it away, too: " << n << " bytes";
  }
}

// What a record announces and holds, and what may go out for it.
struct Oddity {
  char const* label;
  U8 rpCount;
  U8 fragRpCount;
  U32 held;
  U8 rpCountSent;
  U8 fragRpCountSent;
};

TEST(Bootstrap, IsWellFormedHoweverOddTheRecord) {
  Oddity const cases[] = {
      {"nothing odd", 3, 2, 2, 3, 2},
      {"a fragment that was given fewer RPs than it announces", 4, 4, 2, 4, 2},
      {"a fragment without RPs", 4, 2, 0, 4, 0},
      {"more RPs held than announced", 5, 1, 3, 5, 1},
      {"300 RPs, whose count is cut to 8 bits", 44, 44, 300, 44, 44},
      {"256 RPs, whose count is cut to nothing", 0, 0, 256, 0, 0},
      {"the most that one record can have", 255, 255, 300, 255, 255},
      {"more RPs here than in all", 1, 3, 3, 1, 1},
      {"RPs of a zone's record that are not for here", 7, 0, 7, 7, 0},
  };
  for (Oddity const& odd : cases) {
    Made made;
    made.announce(odd.rpCount, odd.fragRpCount);
    made.hold(odd.held);
    auto bytes = written(*made.message);
    EXPECT_EQ(bytes.size(), 14u + 12 + 10u * odd.fragRpCountSent) << odd.label;
    auto message = accepted(bytes);
    ASSERT_TRUE(message) << odd.label;
    auto sent = groups(*message).front();
    EXPECT_EQ(sent->rpCount(), odd.rpCountSent) << odd.label;
    EXPECT_EQ(sent->fragRpCount(), odd.fragRpCountSent) << odd.label;
    EXPECT_EQ(sent->rpListCount(), odd.fragRpCountSent) << odd.label;
    EXPECT_EQ(made.group->rpListCount(), odd.held) << "the record keeps its oddity: " << odd.label;
  }
}

TEST(Bootstrap, LeavesOutAddressesThatReadingWouldDrop) {
  Made made;
  made.announce(6, 6);
  made.hold(1);
  made.group->rpListIs(Lanet::IpGenAddr());
  made.group->rpListIs(ip("0.0.0.0"));
  made.group->rpListIs(ip("127.0.0.1"));
  made.group->rpListIs(ip("224.0.0.1"));
  made.group->rpListIs(Lanet::IpGenAddr::parse("2001:db8::1"));
  for (char const* range : {"10.0.0.0/8", "224.0.0.0/3", "0.0.0.0/0", "ff00::/8", ""}) {
    made.message->groupRpData()->groupDataEnq(Zet::make<BootstrapGroupData>(prefix(range)));
  }
  auto message = accepted(written(*made.message));
  ASSERT_EQ(groups(*message).size(), 1u);
  auto group = groups(*message).front();
  EXPECT_EQ(group->rpCount(), 6);
  EXPECT_EQ(group->fragRpCount(), 1);
  EXPECT_TRUE(group->rpList(ip("10.1.0.0")));
}

TEST(Bootstrap, CannotBeWrittenWithoutABsr) {
  for (char const* bsr : {"", "0.0.0.0", "127.0.0.1", "224.0.0.13", "255.255.255.255", "2001:db8::1"}) {
    Made made;
    made.message->bsrAddressIs(Lanet::IpGenAddr::parse(bsr));
    Buffer out = hex("0102");
    EXPECT_FALSE(encodeBootstrap(*made.message, out)) << bsr;
    EXPECT_TRUE(out.empty()) << bsr;
  }
}

TEST(Bootstrap, WithoutGroupDataIsWrittenAsOneWithoutGroups) {
  Made made;
  made.message->groupRpDataIs(nullptr);
  made.message->fragmentTagIs(0x04b0);
  made.message->hashMaskLenIs(0x1e);
  made.message->bsrPriorityIs(0x40);
  EXPECT_EQ(written(*made.message), message(head));
}

TEST(Bootstrap, UsesTheBufferItIsGivenAgain) {
  Made made;
  made.announce(9, 9);
  made.hold(9);
  Buffer out = written(*made.message);
  U8 const* place = out.data();
  Buffer const first = out;
  ASSERT_TRUE(encodeBootstrap(*made.message, out));
  EXPECT_EQ(out, first);
  EXPECT_EQ(out.data(), place);
}

// Every field in turn, so that none is forgotten by the comparison on which the other tests depend.
TEST(Bootstrap, EqualLooksAtEveryField) {
  std::string const group = "0100 00 08 ef000000 02 01 0000 0100 02020202 0096 07 00";
  auto plain = accepted(message(head + group));
  EXPECT_TRUE(equal(*plain, *accepted(message(head + group))));
  for (std::string const& other :
       {"2480" + head.substr(4) + group, "2400 0000 04b1 1e 40 0100 0a000001" + group,
        "2400 0000 04b0 1f 40 0100 0a000001" + group, "2400 0000 04b0 1e 41 0100 0a000001" + group,
        "2400 0000 04b0 1e 40 0100 0a000002" + group, head, head + group + group,
        head + "0100 00 09 ef000000 02 01 0000 0100 02020202 0096 07 00",
        head + "0100 01 08 ef000000 02 01 0000 0100 02020202 0096 07 00",
        head + "0100 00 08 ef000000 03 01 0000 0100 02020202 0096 07 00",
        head + "0100 00 08 ef000000 02 00 0000",
        head + "0100 00 08 ef000000 02 01 0000 0100 02020203 0096 07 00",
        head + "0100 00 08 ef000000 02 01 0000 0100 02020202 0097 07 00",
        head + "0100 00 08 ef000000 02 01 0000 0100 02020202 0096 08 00"}) {
    EXPECT_FALSE(equal(*plain, *accepted(message(other)))) << other;
    EXPECT_FALSE(equal(*accepted(message(other)), *plain)) << other;
  }
  auto const bytes = message(head + group);
  EXPECT_FALSE(equal(*plain, **decodeBootstrap(bytes, ip("10.0.0.6"), receiver())));
  EXPECT_FALSE(equal(*plain, **decodeBootstrap(bytes, sender(), ip("10.0.0.6"))));
}

}  // namespace
}  // namespace pimbsr::wire::test
