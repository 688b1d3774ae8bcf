#include "runtime/String8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "runtime/Exceptions.h"

namespace {

using Zet::Name;
using Zet::String8;

static_assert(sizeof(String8) == sizeof(void*));
static_assert(sizeof(Name) == sizeof(void*));
static_assert(std::is_same_v<String8, Zet::StringN<unsigned char>>);
static_assert(std::is_base_of_v<String8, Name>);

TEST(String8, EmptyInEveryWayIsOneValue) {
  for (String8 const& text : {String8(), String8(""), String8(std::string_view()),
                              String8(static_cast<char const*>(nullptr)), String8() + String8()}) {
    EXPECT_EQ(text.length(), 0u);
    EXPECT_TRUE(text.empty());
    EXPECT_STREQ(text.charPtr(), "");
    EXPECT_EQ(text, String8());
    EXPECT_TRUE(text.begin() == text.end());
  }
}

TEST(String8, BytesEndInAZero) {
  String8 text(std::string_view("abcdef", 3));
  EXPECT_STREQ(text.charPtr(), "abc");
  EXPECT_EQ(text.length(), 3u);
  EXPECT_EQ(text.view(), "abc");
}

TEST(String8, ZeroBytesCountAsBytes) {
  String8 text(std::string_view("a\0b", 3));
  EXPECT_EQ(text.length(), 3u);
  EXPECT_FALSE(text == String8("a"));
  EXPECT_FALSE(text == "a");
  EXPECT_EQ(text.view(), std::string_view("a\0b", 3));
}

TEST(String8, CopySharesTheBytesAndOutlivesTheOriginal) {
  String8 copy;
  {
    String8 original("shared");
    copy = original;
    EXPECT_EQ(copy.charPtr(), original.charPtr());
  }
  EXPECT_EQ(copy, "shared");
}

TEST(String8, MoveLeavesTheSourceEmpty) {
  String8 source("text");
  String8 target(std::move(source));
  EXPECT_EQ(target, "text");
  EXPECT_TRUE(source.empty());
}

TEST(String8, AssignmentToItselfKeepsTheText) {
  String8 text("text");
  String8 const& same = text;
  text = same;
  EXPECT_EQ(text, "text");
}

TEST(String8, AppendingLeavesCopiesAsTheyWere) {
  String8 text("ab");
  String8 before = text;
  text += "cd";
  text += text;
  EXPECT_EQ(text, "abcdabcd");
  EXPECT_EQ(before, "ab");
}

TEST(String8, JoiningWithTheEmptyStringSharesTheBytes) {
  String8 text("ab");
  EXPECT_EQ((text + String8()).charPtr(), text.charPtr());
  EXPECT_EQ((String8() + text).charPtr(), text.charPtr());
  EXPECT_EQ("x" + text + "y", "xaby");
}

TEST(String8, OrderIsOfUnsignedBytesAndAPrefixIsFirst) {
  std::vector<String8> ordered = {"", "a", "a\x01", "ab", "b", "\x7f", "\x80", "\xff"};
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    for (std::size_t k = 0; k < ordered.size(); ++k) {
      EXPECT_EQ(ordered[i] < ordered[k], i < k) << i << " " << k;
      EXPECT_EQ(ordered[i] == ordered[k], i == k) << i << " " << k;
      EXPECT_EQ(ordered[i] != ordered[k], i != k) << i << " " << k;
    }
  }
}

TEST(String8, EqualTextsHaveOneHashHoweverMade) {
  EXPECT_EQ(String8("Ethernet1").hash(), (String8("Ether") + "net1").hash());
  EXPECT_EQ(String8().hash(), String8("").hash());
  EXPECT_NE(String8("ab").hash(), String8("ba").hash());
}

TEST(String8, HashesOfLikeNamesAreSpreadOverAllBits) {
  std::set<Zet::U32> hashes;
  std::set<Zet::U32> high;
  std::set<Zet::U32> low;
  for (int i = 0; i < 4096; ++i) {
    Zet::U32 hash = Zet::format("Ethernet%d", i).hash();
    hashes.insert(hash);
    high.insert(hash >> 24);
    low.insert(hash & 0xff);
  }
  EXPECT_EQ(hashes.size(), 4096u);
  EXPECT_EQ(high.size(), 256u);
  EXPECT_EQ(low.size(), 256u);
}

TEST(String8, PositionWalksTheBytesAndKnowsItsColumn) {
  String8 text("a\xff z");
  std::string walked;
  String8::IteratorConst at = text.begin();
  EXPECT_EQ(at.column(), 0);
  for (; at != text.end(); at++) walked.push_back(static_cast<char>(*at));
  EXPECT_EQ(walked, "a\xff z");
  EXPECT_EQ(at - text.begin(), 4);
  EXPECT_EQ(at.column(), 4);
  at = text.begin();
  EXPECT_EQ(*++at, 0xff);
  EXPECT_EQ(at.column(), 1);
}

TEST(String8, CopiesMayBeReleasedOnAnotherThread) {
  String8 text("counted");
  auto copyOften = [&text] {
    for (int i = 0; i < 20000; ++i) String8 copy = text;
  };
  std::thread other(copyOften);
  copyOften();
  other.join();
  EXPECT_EQ(text, "counted");
}

TEST(String8, StreamingWritesTheBytesAsTheyAre) {
  std::ostringstream out;
  out << String8("it's") << Name("n") << String8(std::string_view("\0", 1));
  EXPECT_EQ(out.str(), std::string("it'sn\0", 6));
}

TEST(Name, IsAStringAndIsMadeFromOne) {
  Name name = String8("crp");
  String8 text = name;
  EXPECT_EQ(text, "crp");
  EXPECT_TRUE(name == Name("crp"));
  EXPECT_EQ(name.charPtr(), text.charPtr());
  EXPECT_TRUE(Name().empty());
}

TEST(Format, PrintsAsPrintfDoes) {
  EXPECT_EQ(Zet::format("%s %d %05.1f %lld%%", "text", -7, 2.25, 5LL), "text -7 002.2 5%");
  EXPECT_EQ(Zet::format("%s", ""), String8());
  EXPECT_EQ(Zet::format("a%cb", '\0').view(), std::string_view("a\0b", 3));
}

TEST(Format, TextOfAnyLengthIsWhole) {
  for (std::size_t length : {254u, 255u, 256u, 257u, 100000u}) {
    std::string text(length, 'x');
    EXPECT_EQ(Zet::format("%s", text.c_str()).view(), text) << length;
  }
}

TEST(Format, AWideCharacterThatCannotBePrintedRaises) {
  EXPECT_THROW(Zet::format("%lc", static_cast<wint_t>(0x7fffffff)), Zet::RangeException);
}

}  // namespace
