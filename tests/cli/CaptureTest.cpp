#include "cli/capture/Capture.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string errorOfOpening(std::string const& path) {
  try {
    Capture capture(path);
  } catch (CaptureError const& error) {
    return error.what();
  }
  return "opened";
}

TEST(CaptureTest, EveryFormGivesTheSamePacketsAtTheSameTimes) {
  double const times[] = {0, 1, 1.02, 2, 3, 4};
  for (char const* name : {"few-ethernet.pcap", "few-ethernet.pcapng", "few-big-endian.pcap",
                           "few-nanosecond.pcap", "few-vlan.pcap", "few-cooked.pcap", "few-cooked-2.pcap",
                           "few-raw-ip.pcap", "starts-near-zero.pcap"}) {
    SCOPED_TRACE(name);
    Capture capture(test::capture(name));
    Frame frame;
    CaptureTime first;
    for (U64 i = 0; i < std::size(times); ++i) {
      ASSERT_TRUE(capture.next(frame));
      if (i == 0) first = frame.time;
      EXPECT_EQ(frame.number, i + 1);
      EXPECT_DOUBLE_EQ(frame.time.since(first), times[i]);
      ASSERT_EQ(frame.packet.version, 4);
      EXPECT_EQ(frame.packet.bytes[0], 0x45);
    }
    EXPECT_FALSE(capture.next(frame));
  }
}

TEST(CaptureTest, CaptureWithoutPacketsIsOne) {
  Capture capture(test::capture("header-only.pcap"));
  Frame frame;
  EXPECT_FALSE(capture.next(frame));
  EXPECT_EQ(frame.number, 0u);
}

TEST(CaptureTest, FileThatIsNoCaptureIsRejectedWithItsName) {
  struct Case {
    char const* file;
    char const* text;
  };
  Case const cases[] = {
      {"missing.pcap", "No such file"},
      {"zero-bytes.pcap", "is empty, which no capture is"},
      {"not-a-capture.txt", "is no pcap or pcapng capture"},
      {"unknown-link-type.pcap",
       "is of link type USER0 (147), which can't be read; those that can are Ethernet"},
  };
  for (Case const& one : cases) {
    EXPECT_THAT(errorOfOpening(test::capture(one.file)), AllOf(HasSubstr(one.file), HasSubstr(one.text)));
  }
  EXPECT_THAT(errorOfOpening(test::capture("")), AllOf(StartsWith("cannot read"), HasSubstr("directory")));
}

TEST(CaptureTest, CaptureCutWithinItsHeadIsCutShort) {
  std::string head = test::fileText(test::capture("header-only.pcap")).substr(0, 10);
  std::string path = testing::TempDir() + "pimbsr-cut-head.pcap";
  std::ofstream(path, std::ios::binary) << head;
  EXPECT_THAT(errorOfOpening(path), HasSubstr("is cut short within its head"));
  std::remove(path.c_str());
}

TEST(CaptureTest, CaptureCutShortGivesTheFramesBeforeTheCut) {
  Capture capture(test::capture("cut-short.pcap"));
  Frame frame;
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(capture.next(frame));
  try {
    capture.next(frame);
    FAIL() << "packet 6 is cut short";
  } catch (CaptureError const& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("cut-short.pcap"), HasSubstr("in the middle of packet 6")));
  }
  EXPECT_EQ(frame.number, 5u);
}

TEST(CaptureTest, DamagedPacketHeadIsNoCut) {
  test::CaptureFile file;
  file.add(0, test::packetOf({}));
  // The head of a packet that claims to be longer than any can be.
  std::ofstream(file.path(), std::ios::binary | std::ios::app) << std::string(16, '\x7f');
  Capture capture(file.path());
  Frame frame;
  EXPECT_TRUE(capture.next(frame));
  try {
    capture.next(frame);
    FAIL() << "packet 2 is damaged";
  } catch (CaptureError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("is damaged at packet 2"));
  }
}

TEST(CaptureTest, FractionOfASecondIsCarried) {
  test::CaptureFile file(1000000000);
  file.add(0, test::packetOf({})).add(1.75, test::packetOf({}));
  Capture capture(file.path());
  Frame frame;
  ASSERT_TRUE(capture.next(frame));
  ASSERT_TRUE(capture.next(frame));
  EXPECT_EQ(frame.time.seconds, 1000000001);
  EXPECT_EQ(frame.time.nanoseconds, 750000000);
}

TEST(CaptureTimeTest, TimeIsRealFrom2001To2105) {
  EXPECT_FALSE((CaptureTime{0, 0}.isReal()));
  EXPECT_FALSE((CaptureTime{-1, 0}.isReal()));
  EXPECT_FALSE((CaptureTime{999999999, 999999999}.isReal()));
  EXPECT_TRUE((CaptureTime{1000000000, 0}.isReal()));
  EXPECT_TRUE((CaptureTime{4294967295, 0}.isReal()));
  EXPECT_FALSE((CaptureTime{4294967296, 0}.isReal()));
}

TEST(CaptureTimeTest, DifferenceIsExactWhereADoubleOfTheDateIsNot) {
  CaptureTime first{1768467600, 1};
  CaptureTime second{1768467600, 4};
  EXPECT_EQ(first.value(), second.value());
  EXPECT_NEAR(second.since(first), 3e-9, 1e-18);
  EXPECT_NEAR(first.since(second), -3e-9, 1e-18);
}

TEST(CaptureTimeTest, DifferenceOfTheWildestStampsIsANumber) {
  CaptureTime early{std::numeric_limits<S64>::min(), 0};
  CaptureTime late{std::numeric_limits<S64>::max(), 999999999};
  EXPECT_GT(late.since(early), 1e19);
}

TEST(CaptureTimeTest, TextIsInUtcWithMilliseconds) {
  EXPECT_EQ((CaptureTime{1768467600, 1999999}.text()), "2026-01-15 09:00:00.001 UTC");
}

}  // namespace
}  // namespace pimbsr::cli
