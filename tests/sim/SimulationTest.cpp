#include <gmock/gmock.h>
#include <pcap/pcap.h>

#include <cstdlib>
#include <filesystem>

#include "sim/PcapWriter.h"
#include "tests/sim/SimSupport.h"

namespace pimbsr::sim {
namespace {

using test::row;
using test::Script;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string busy() {
  return row(4) +
         "candidate-bsr r1 global priority 10\ncandidate-bsr r4 global priority 20\n"
         "candidate-rp r2 global\ncandidate-rp r3 239.1.0.0/16\n"
         "faults loss 10% duplicate 10% reorder 10%\nreport all\nat 300 crash r4\nat 500 start r4\nrun 800\n";
}

std::vector<std::string> course(std::string const& text, U64 seed) { return Script(text, seed).diary.lines; }

TEST(SimulationTest, TheSameSeedGivesTheSameCourseAndAnotherSeedAnother) {
  std::vector<std::string> first = course(busy(), 1);
  EXPECT_GT(first.size(), 100u);
  EXPECT_EQ(course(busy(), 1), first);
  EXPECT_NE(course(busy(), 2), first);
}

TEST(SimulationTest, RunningInPiecesChangesNothing) {
  std::string text = busy();
  std::string pieces = text.substr(0, text.rfind("run 800"));
  Script script(pieces);
  for (int i = 0; i < 80; ++i) script.simulation.execute("run 10");
  EXPECT_EQ(script.diary.lines, course(text, 1));
}

TEST(SimulationTest, ListeningChangesNothing) {
  std::string text = busy();
  std::string silent = text;
  silent.replace(silent.find("report all"), 10, "quiet all");
  Script heard(text);
  Script unheard(silent);
  EXPECT_THAT(unheard.diary.lines, IsEmpty());
  EXPECT_EQ(heard.simulation.network().events(), unheard.simulation.network().events());
  EXPECT_EQ(heard.rpSet(0), unheard.rpSet(0));
}

TEST(SimulationTest, StatementsForALaterTimeFollowAllEventsOfThatTime) {
  Script script(row(2) + "run 20", 1, drops | commands);
  EXPECT_THAT(
      script.play("at 21 down l1\n"
                  "at 20.999 inject l1 bsm from 10.1.0.9 bsr 203.0.113.1\n"
                  "at 21 up l1\nat 30 heal\nrun until 22"),
      ElementsAre("20.999 - inject l1 bsm from 10.1.0.9 bsr 203.0.113.1",
                  "21.000 r1 bsm from 10.1.0.9 no-rpf-neighbor",
                  "21.000 r2 bsm from 10.1.0.9 no-rpf-neighbor", "21.000 - down l1", "21.000 - up l1"));
  EXPECT_EQ(script.simulation.pending(), 1u);
}

TEST(SimulationTest, WhatBuildsTheNetworkIsNoEvent) {
  Script script(row(2) + "candidate-bsr r1 global\n");
  EXPECT_EQ(script.diary.count(" - "), 0);
  EXPECT_THAT(script.play("run 1\ncandidate-bsr r2 global\nshow"),
              ElementsAre("1.000 - candidate-bsr r2 global", "1.000 - show 0 of 0 routers"));
}

TEST(SimulationTest, ADropIsReportedOncePerRouterReasonAndSourceUnlessRepeatsAreWanted) {
  std::string const strange = "inject l1 bsm from 10.1.0.9 bsr 203.0.113.1\nrun 0.1\n";
  Script script(row(2), 1, drops);
  EXPECT_EQ(script.play(strange).size(), 2u);
  EXPECT_EQ(script.play(strange).size(), 0u);
  EXPECT_EQ(script.play("inject l1 bsm from 10.1.0.8 bsr 203.0.113.1\nrun 0.1").size(), 2u);
  EXPECT_EQ(script.play("report repeats\n" + strange).size(), 2u);
  EXPECT_EQ(script.play("quiet all\n" + strange).size(), 0u);
  EXPECT_EQ(script.node(0).drops().at("no-rpf-neighbor").count, 5u);
}

TEST(SimulationTest, OnlyWhatIsWantedIsReported) {
  Script script(row(2) + "candidate-bsr r1 global\ncandidate-rp r1 global\n", 1, rps);
  std::vector<std::string> lines = script.play("run 100");
  EXPECT_THAT(lines, AllOf(Contains(HasSubstr("added")), Not(Contains(HasSubstr("elected")))));
  lines = script.play("quiet rps\nreport elections states neighbors\ncrash r1\nrun 1\nstart r1\nrun 300");
  EXPECT_THAT(lines, AllOf(Contains(HasSubstr("state 3")), Contains(HasSubstr("neighbor 10.1.0.2 up")),
                           Contains(HasSubstr("dr 10.1.0.2 on eth0")), Contains(HasSubstr("r1 elected"))));
  EXPECT_THAT(lines, Not(Contains(HasSubstr("added"))));
}

TEST(SimulationTest, AnErrorInAScenarioLeavesTheNetworkAsItWas) {
  Script script(row(2));
  EXPECT_THROW(script.simulation.execute("router r3\nrouter r3\n"), ScenarioError);
  EXPECT_EQ(script.simulation.network().nodeCount(), 2u);
}

TEST(SimulationTest, ARouterAddedWhileTheNetworkRunsLearnsFromTheDr) {
  Script script(row(2) + "candidate-bsr r1 global\ncandidate-rp r1 global\nrun 100");
  script.simulation.execute("router r3\ninterface r3 l1 10.1.0.3\nrun 15");
  EXPECT_EQ(script.bsr(2), "10.0.0.1");
  EXPECT_EQ(script.rpSet(2), "224.0.0.0/4 10.0.0.1");
}

// Captures --------------------------------------------------------------------------------------------

class PcapWriterTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "pimbsr-pcap-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
};

TEST_F(PcapWriterTest, EachLinkHasAFileOfRawIpPackets) {
  Script script(row(3) + "link empty prefix 10.9.0.0/24");
  PcapWriter writer(folder_ + "/links", script.simulation.network());
  script.simulation.network().tapAdd(&writer);
  script.simulation.execute("run 10\ninject l1 hello from 10.1.0.9\nrun 1");
  writer.close();
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* file = pcap_open_offline((folder_ + "/links/l1.pcap").c_str(), error);
  ASSERT_NE(file, nullptr) << error;
  EXPECT_EQ(pcap_datalink(file), DLT_RAW);
  pcap_pkthdr* header = nullptr;
  u_char const* bytes = nullptr;
  int packets = 0;
  double last = 0;
  while (pcap_next_ex(file, &header, &bytes) == 1) {
    ++packets;
    EXPECT_EQ(bytes[9], 103);
    last = static_cast<double>(header->ts.tv_sec) + header->ts.tv_usec * 1e-6;
  }
  pcap_close(file);
  EXPECT_GE(packets, 3);
  EXPECT_NEAR(last, Zet::Context::firstTime + 10, 1e-3);
  EXPECT_EQ(std::filesystem::file_size(folder_ + "/links/empty.pcap"), 24u);
}

TEST_F(PcapWriterTest, AFolderThatCantBeMadeIsNamed) {
  Script script;
  try {
    PcapWriter writer("/dev/null/x", script.simulation.network());
    FAIL() << "made";
  } catch (PcapError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("/dev/null/x"));
  }
}

}  // namespace
}  // namespace pimbsr::sim
