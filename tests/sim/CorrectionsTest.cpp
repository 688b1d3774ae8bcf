// Corrections whose effect a network shows only without the bounds of a configuration file, or with routers
// of both sorts.
#include <gtest/gtest.h>

#include <string>

#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using pimbsr::host::CorrectionSettings;

std::string const pair =
    "link l1 prefix 10.1.0.0/24 mtu 9000\nrouter r1\nrouter r2\ninterface r1 l1 10.1.0.1\n"
    "interface r2 l1 10.1.0.2\ncandidate-bsr r1 global\nrun 20\n";

/// Advertisements of so many RPs for one range.
std::string advertisements(int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += fmt::format("inject l1 crp-adv from 10.7.{}.{} to 10.1.0.1 group 239.1.0.0/16\n", i / 250,
                        i % 250 + 1);
  return text;
}

Zet::U32 rps(Script const& script, Zet::U32 router) {
  auto set = script.node(router).router()->rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
  return set ? set->rpCount() : 0;
}

TEST(CorrectionsTest, FollowersHave255OfTooManyRpsOfARange) {
  for (int count : {255, 256, 300}) {
    for (bool isOn : {false, true}) {
      Script script;
      script.simulation.network().ingressIs({});
      script.simulation.network().correctionsAre({.rangeFull = isOn, .cutBySize = true});
      script.play(pair + advertisements(count) + "run 30\n");
      EXPECT_EQ(rps(script, 0), static_cast<Zet::U32>(count));
      EXPECT_EQ(rps(script, 1) == 255, isOn || count == 255) << count << " " << isOn;
    }
  }
}

TEST(CorrectionsTest, AStatementTurnsThemOnForSomeRoutersAndSurvivesARestart) {
  Script script(pair + "corrections elected-only on r2\nchecks not-own-bsr on r1\n");
  auto isOn = [&](Zet::U32 router) {
    return script.node(router).router()->corrections().of(&CorrectionSettings::electedOnly).isOn();
  };
  EXPECT_FALSE(isOn(0));
  EXPECT_TRUE(isOn(1));
  script.play("crash r2\nstart r2\n");
  EXPECT_TRUE(isOn(1));
  script.play("corrections none\n");
  EXPECT_FALSE(isOn(1));
  script.play("corrections all\n");
  EXPECT_TRUE(isOn(0));
}

TEST(CorrectionsTest, LimitsOfAStatementHoldForItsRoutersAndSurviveARestart) {
  struct Case {
    char const* statements;
    Zet::U32 rps;  ///< of r1
  };
  Script script(pair);
  for (Case const& c : {Case{"limits rps-per-range 3 on r1\n", 3},
                        {"crash r1\nstart r1\nrun 20\n", 3},
                        {"limits rps-per-range 5 on r2\n", 3},
                        {"limits rps-per-range 4 rps 100\n", 4},
                        {"limits none\n", 6},
                        {"limits none rps-per-range 5\ncrash r1\nstart r1\nrun 20\n", 5}}) {
    script.play(c.statements + advertisements(6) + "run 1\n");
    EXPECT_EQ(rps(script, 0), c.rps) << c.statements;
  }
}

/// r1 withdraws an RP as BSR, which is back under the next BSR, r3, before r1 is elected again.
TEST(CorrectionsTest, ABsrThatIsElectedAgainRepeatsNoFormerWithdrawal) {
  Script script(row(3));
  script.play(
      "corrections all\ncandidate-bsr r1 global\ncandidate-rp r2 239.1.0.0/16\nrun 60\n"
      "no candidate-rp r2 239.1.0.0/16\nrun 12\ncandidate-bsr r3 global priority 200\nrun 20\n"
      "candidate-rp r2 239.1.0.0/16\nrun 60\nno candidate-bsr r3 global\n");
  for (int second = 0; second < 60; ++second) {
    ASSERT_EQ(rps(script, 1), 1u) << second;
    script.play("run 1\n");
  }
  EXPECT_EQ(script.bsr(1), "10.0.0.1");
}

/// A row of routers in which every second is exact.
TEST(CorrectionsTest, CorrectedAndExactRoutersLearnTheSameTogether) {
  Script script(row(6, " mtu 576"));
  script.play(
      "corrections all on r1 r3 r5\nchecks all on r1 r3 r5\ncandidate-bsr r1 global priority 9\n"
      "candidate-bsr r4 global priority 5\n"
      "candidate-rp r2 239.1.0.0/16 239.2.0.0/16\ncandidate-rp r5 239.1.0.0/16\nrun 300\n");
  for (Zet::U32 router = 0; router < 6; ++router) {
    EXPECT_EQ(script.bsr(router), "10.0.0.1") << router;
    EXPECT_EQ(script.rpSet(router), script.rpSet(0)) << router;
  }
  EXPECT_NE(script.rpSet(0), "");
}

}  // namespace
}  // namespace test
