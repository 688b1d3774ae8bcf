#include "runtime/Collections.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/RangeError.h"

namespace {

using testing_support::rangeError;
using Zet::make;
using Zet::Ptr;
using Zet::U32;

struct Letter : Zet::PtrInterface {
  explicit Letter(char n) : name(n) {}
  char name;
};
using Queue = Zet::LinkQueue<Letter>;

Ptr<Letter> letter(char name) { return make<Letter>(name); }

std::string names(Queue const& queue) {
  std::string found;
  for (auto at = queue.iterator(); at; ++at) found += at->name;
  return found;
}

std::vector<U32> keys(Queue const& queue) {
  std::vector<U32> found;
  for (auto at = queue.iterator(); at; ++at) found.push_back(at.key());
  return found;
}

TEST(LinkQueue, IsEmptyAtFirst) {
  Queue queue;
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.size(), 0u);
  EXPECT_FALSE(queue.first());
  EXPECT_FALSE(queue.member(0));
  EXPECT_FALSE(queue.iterator());
  EXPECT_FALSE(queue.del(0));
}

TEST(LinkQueue, AppendsUnderRisingKeysAndCountsItsMembers) {
  Queue queue;
  Ptr<Letter> a = letter('a');
  EXPECT_EQ(queue.enq(a), 0u);
  EXPECT_EQ(queue.enq(letter('b')), 1u);
  EXPECT_EQ(queue.enq(letter('c')), 2u);
  EXPECT_EQ(names(queue), "abc");
  EXPECT_EQ(queue.first(), a);
  EXPECT_EQ(a->references(), 2u);
  queue.clear();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(a->references(), 1u);
}

TEST(LinkQueue, IsInTheOrderOfTheKeys) {
  Queue queue;
  queue.memberIs(30, letter('c'));
  queue.memberIs(10, letter('a'));
  queue.memberIs(20, letter('b'));
  EXPECT_EQ(names(queue), "abc");
  EXPECT_EQ(keys(queue), (std::vector<U32>{10, 20, 30}));
  EXPECT_EQ(queue.enq(letter('d')), 31u);
  EXPECT_EQ(queue.first()->name, 'a');
}

TEST(LinkQueue, AKeyHoldsOneMember) {
  Queue queue;
  queue.memberIs(5, letter('a'));
  queue.memberIs(5, letter('b'));
  EXPECT_EQ(names(queue), "b");
  EXPECT_EQ(queue.member(5)->name, 'b');
  EXPECT_FALSE(queue.member(4));
  EXPECT_FALSE(queue.del(4));
  EXPECT_TRUE(queue.del(5));
  EXPECT_FALSE(queue.del(5));
  EXPECT_TRUE(queue.empty());
}

TEST(LinkQueue, RejectsNull) {
  Queue queue;
  EXPECT_EQ(rangeError([&] { queue.enq(Ptr<Letter>()); }), "null ValidPtr");
  EXPECT_EQ(rangeError([&] { queue.memberIs(1, Ptr<Letter>()); }), "null ValidPtr");
  EXPECT_TRUE(queue.empty());
}

TEST(LinkQueue, AWalkGoesOnAfterAMemberThatIsRemovedUnderIt) {
  Queue queue;
  for (char name : std::string("abcd")) queue.enq(letter(name));
  std::string seen;
  for (auto at = queue.iterator(); at; ++at) {
    seen += at->name;
    EXPECT_EQ(at.ptr().ptr(), &*at);
    if (at->name == 'b') {
      queue.del(0);
      queue.del(1);
      queue.enq(letter('e'));
      EXPECT_EQ(at->name, 'b');
    }
  }
  EXPECT_EQ(seen, "abcde");
  EXPECT_EQ(names(queue), "cde");
}

TEST(LinkQueue, AWalkEndsAfterTheHighestKey) {
  Queue queue;
  queue.memberIs(~U32{0}, letter('z'));
  EXPECT_EQ(names(queue), "z");
}

TEST(DynArray, IsIndexedFromZeroAndGrows) {
  Zet::DynArray<int> array;
  array.resize(3);
  array[2] = 7;
  EXPECT_EQ(array.size(), 3u);
  EXPECT_EQ(array[0], 0);
  EXPECT_EQ(array[2], 7);
}

TEST(RbTreeMap, WalksInTheOrderOfItsKeys) {
  Zet::RbTreeMap<int, char> map;
  for (int key : {3, 1, 2}) map[key] = static_cast<char>('a' + key);
  std::string found;
  for (auto const& [key, value] : map) found += value;
  EXPECT_EQ(found, "bcd");
}

}  // namespace
