#include "cli/replay/Reassembly.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::Bytes;
using test::Part;
using testing::IsEmpty;

/// A payload of a length, in which no two parts of 8 bytes are alike.
Bytes payloadOf(std::size_t length) {
  Bytes payload(length);
  for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<U8>(i % 8 == 0 ? i / 8 : i % 251);
  return payload;
}

/// A packet of 3,000 bytes that is fragmented into parts of at most 1,480 bytes.
class ReassemblyTest : public testing::Test {
 protected:
  Bytes whole = test::ipv4Of(payloadOf(2980));
  Bytes one = fragment({0, 1480});
  Bytes two = fragment({1480, 1480});
  Bytes last = fragment({2960, 20, false});
  Reassembly reassembly;

  Bytes fragment(Part const& part) const { return test::fragmentOf(whole, part); }
  /// What the last of these fragments completes, one of them arriving each second.
  Bytes add(std::vector<Bytes> const& fragments) {
    Bytes made;
    double time = 0;
    for (Bytes const& bytes : fragments) {
      EXPECT_THAT(made, IsEmpty()) << "no fragment before the last completes it";
      made = reassembly.add(time++, bytes);
    }
    return made;
  }
};

TEST_F(ReassemblyTest, OrderOfTheFragmentsIsOfNoImportance) {
  std::vector<int> order = {0, 1, 2};
  std::vector<Bytes> const parts = {one, two, last};
  do {
    EXPECT_EQ(add({parts[order[0]], parts[order[1]], parts[order[2]]}), whole);
    EXPECT_FALSE(reassembly.takeOldest());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(ReassemblyTest, DoubledFragmentIsIgnored) {
  EXPECT_EQ(add({one, one, last, last, two}), whole);
  EXPECT_EQ(add({last, two, one}), whole) << "and nothing is left of it";
}

TEST_F(ReassemblyTest, PacketWithAMissingFragmentIsNotComplete) {
  EXPECT_THAT(add({one, two}), IsEmpty());
  EXPECT_EQ(reassembly.takeOldest(), one);
  EXPECT_THAT(add({one, last}), IsEmpty());
  EXPECT_EQ(reassembly.takeOldest(), one);
  EXPECT_THAT(add({last, two}), IsEmpty());
  EXPECT_EQ(reassembly.takeOldest(), last) << "the fragment that arrived first";
  EXPECT_FALSE(reassembly.takeOldest());
}

TEST_F(ReassemblyTest, ContradictingFragmentsMakeNoPacket) {
  Bytes changed = one;
  ++changed.back();
  std::vector<std::vector<Bytes>> const cases = {
      {one, fragment({1472, 1480}), two, last},       // a part of it is held
      {two, fragment({0, 1488}), one, last},          // as above, before what is held
      {one, changed, two, last},                      // other bytes at the same place
      {one, last, fragment({1480, 1496}), two},       // over the end
      {one, last, fragment({2952, 8, false}), two},   // a second end
      {one, two, fragment({1480, 16, false}), last},  // an end before what is held
      {one, fragment({1480, 1477}), two, last},       // no multiple of 8 bytes, and not the last
      {one, fragment({1480, 0}), two, last},          // without a payload
      {one, test::fragmentOf(whole, {0, 16, true, 65528}), two, last},  // beyond the longest packet
  };
  for (std::vector<Bytes> const& fragments : cases) {
    std::string at = "case " + std::to_string(&fragments - cases.data());
    EXPECT_THAT(add(fragments), IsEmpty()) << at;
    EXPECT_EQ(reassembly.takeOldest(), fragments[0]) << at;
    EXPECT_FALSE(reassembly.takeOldest()) << at << ": its other fragments make no new packet";
  }
}

TEST_F(ReassemblyTest, FragmentOfWhichBytesWereNotCapturedMakesNoPacket) {
  Bytes cut = two;
  cut.pop_back();
  EXPECT_THAT(add({one, cut, two, last}), IsEmpty());
}

TEST_F(ReassemblyTest, LongestPacketIsPutTogether) {
  constexpr std::size_t length = wire::maxPacketLength - 20;
  constexpr std::size_t part = 1480;
  whole = test::ipv4Of(payloadOf(length));
  std::vector<Bytes> fragments;
  for (std::size_t at = 0; at < length; at += part) {
    bool isLast = at + part >= length;
    fragments.push_back(fragment({at, isLast ? length - at : part, !isLast}));
  }
  EXPECT_EQ(add(fragments), whole);
}

TEST_F(ReassemblyTest, PacketsAreDistinguishedBySourceDestinationAndIdentification) {
  std::vector<Bytes> const others = {test::ipv4Of(payloadOf(2980), "192.0.2.2"),
                                     test::ipv4Of(payloadOf(2980), "192.0.2.1", "192.0.2.9"),
                                     test::ipv4Of(payloadOf(2980), "192.0.2.1", "224.0.0.13", 7)};
  EXPECT_THAT(add({one, last}), IsEmpty());
  for (Bytes const& other : others) EXPECT_THAT(add({test::fragmentOf(other, {1480, 1480})}), IsEmpty());
  EXPECT_EQ(add({two}), whole);
}

TEST_F(ReassemblyTest, TimeOfAPacketEndsWithMaxAgeAfterItsFirstFragment) {
  reassembly.add(100, one);
  reassembly.add(120, two);
  EXPECT_FALSE(reassembly.takeLost(100 + Reassembly::maxAge - 0.001));
  auto lost = reassembly.takeLost(500);
  ASSERT_TRUE(lost);
  EXPECT_EQ(lost->time, 100 + Reassembly::maxAge);
  EXPECT_EQ(lost->fragment, one);
  EXPECT_THAT(reassembly.add(500, last), IsEmpty());
}

TEST_F(ReassemblyTest, OldestPacketIsLostWhereTooManyAreIncomplete) {
  auto firstOf = [&](std::size_t i) {
    return test::fragmentOf(test::ipv4Of(payloadOf(2980), "192.0.2.1", "224.0.0.13", static_cast<U16>(i)),
                            {0, 1480});
  };
  for (std::size_t i = 0; i < Reassembly::maxPackets; ++i) {
    reassembly.add(1, firstOf(i));
    EXPECT_FALSE(reassembly.takeLost(1)) << i;
  }
  reassembly.add(2, firstOf(Reassembly::maxPackets));
  auto lost = reassembly.takeLost(2);
  ASSERT_TRUE(lost);
  EXPECT_EQ(lost->time, 2);
  EXPECT_EQ(lost->fragment, firstOf(0));
  EXPECT_FALSE(reassembly.takeLost(2));
}

}  // namespace
}  // namespace pimbsr::cli
