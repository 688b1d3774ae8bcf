#include "tests/protocol/CandidateSupport.h"

namespace test {
namespace {

using Zet::Ptr;
using Zet::U16;
using Zet::U32;

class CandidateConfig : public CandidateTest {};

std::string overridden(std::string const& how, U32 timeout, U32 period) {
  return "BS holdtime is " + how + std::to_string(timeout) +
         " secs, which is less than this C-BSR BSM interval of " + std::to_string(period) +
         " secs. Overriding this with value ( 2 * BS_Period ) + 10 as recommended by RFC 5059.";
}

// Start -----------------------------------------------------------------------------------------------

using Omission = void (*)(Bsr::BsrCandidate&);

TEST_F(CandidateConfig, StartWaitsForEachUnknownAttribute) {
  struct {
    char const* name;
    Omission forget;
    Omission omit;
  } const omissions[] = {
      {"priority", [](auto& entry) { entry.priorityIs(256); }, [](auto& entry) { entry.priorityIs(10); }},
      {"mask", [](auto& entry) { entry.hashMaskLenIs(128); }, [](auto& entry) { entry.hashMaskLenIs(30); }},
      {"period", [](auto& entry) { entry.bsPeriodIs(0); }, [](auto& entry) { entry.bsPeriodIs(60); }},
      {"address", [](auto& entry) { entry.addressIs(Lanet::IpGenAddr()); },
       [](auto& entry) { entry.addressIs(addr("10.0.0.5")); }},
  };
  for (auto const& omission : omissions) {
    SCOPED_TRACE(omission.name);
    context.traces.clear();
    restart([&] {
      configure();
      omission.forget(*candidate());
    });
    // Each replayed attribute but `elected` tries to start.
    EXPECT_EQ(
        context.traced("Postponing initialization of CandidateSm 224.0.0.0/4 till all the attributes of "
                       "Candidate Bsr is initialized."),
        4);
    EXPECT_FALSE(machine()->initialized());
    EXPECT_EQ(show(), "noInfoBsr timer - expiry - stored - status - keeps -");
    hear(superior());
    EXPECT_EQ(show(), "noInfoBsr timer - expiry - stored - status - keeps -");
    omission.omit(*candidate());
    EXPECT_TRUE(machine()->initialized());
    EXPECT_EQ(show(), "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -");
  }
  EXPECT_EQ(sent(), 0u);
}

TEST_F(CandidateConfig, PriorityZeroIsKnown) {
  configure({.priority = 0});
  EXPECT_EQ(machine()->state(), Bsr::BsrCandidateState::pBsr);
}

TEST_F(CandidateConfig, WhatComesBeforeTheStartChangesNothing) {
  restart([this] {
    configure();
    candidate()->addressIs(Lanet::IpGenAddr());
  });
  engine.status->bsTimeoutIs(500);
  EXPECT_EQ(machine()->bsTimeout(), 130u);
  machine()->handleBsrTimerExpiry();
  candidate()->electedIs(true);
  machine()->doSendBsm(false);
  EXPECT_EQ(show(), "noInfoBsr timer - expiry - elected stored - status - keeps -");
  EXPECT_EQ(sent(), 0u);
  EXPECT_EQ(context.traced(" ( shutdown=False )"), 1);
}

TEST_F(CandidateConfig, SecondStartDoesNothing) {
  toElected();
  engine.runTo(7);
  std::string before = show();
  machine()->handleInitialized();
  EXPECT_EQ(show(), before);
}

struct Known {
  char const* address;
  U16 priority;
  char const* stored;
};

TEST_F(CandidateConfig, StartKeepsAHeavierBsrThatStatusNames) {
  Known const table[] = {{"10.0.0.1", 9, "10.0.0.5/10/30"},    {"10.0.0.9", 9, "10.0.0.5/10/30"},
                         {"10.0.0.5", 10, "10.0.0.5/10/30"},   {"10.0.0.6", 10, "10.0.0.6/10/24"},
                         {"10.0.0.1", 200, "10.0.0.1/200/24"}, {"10.0.0.9", 265, "10.0.0.5/10/30"}};
  configure();
  for (Known const& known : table) {
    restart([&] {
      auto entry = engine.status->bootstrapRouterIs(prefix(globalZone));
      entry->ipAddrIs(addr(known.address));
      entry->priorityIs(known.priority);
      entry->hashMaskLenIs(24);
    });
    EXPECT_NE(show().find(std::string(" stored ") + known.stored + " status"), std::string::npos) << show();
    EXPECT_EQ(machine()->state(), Bsr::BsrCandidateState::pBsr);
  }
}

TEST_F(CandidateConfig, ElectedThatRestartsSendsFirstAtItsFirstExpiry) {
  toElected();
  engine.runTo(7);
  restart([] {});
  EXPECT_EQ(context.traced(" ( shutdown=False )"), 2);
  EXPECT_EQ(sent(), 1u);
  EXPECT_FALSE(machine()->lastBsm());
  engine.runTo(66);
  EXPECT_EQ(sent(), 1u);
  engine.runTo(67);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(CandidateConfig, ElectedThatStartsByItsLastAttributeIsGuardedByItsPeriod) {
  restart([this] {
    configure();
    candidate()->addressIs(Lanet::IpGenAddr());
    candidate()->electedIs(true);
  });
  engine.runTo(3);
  candidate()->addressIs(addr("10.0.0.5"));
  EXPECT_EQ(show(), "eBsr timer 63 expiry 63 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps -");
}

TEST_F(CandidateConfig, ElectedThatRestartsPublishesTheHeavierBsrUntilItsFirstExpiry) {
  restart([this] {
    configure();
    candidate()->electedIs(true);
    auto entry = engine.status->bootstrapRouterIs(prefix(globalZone));
    entry->ipAddrIs(addr("10.0.0.9"));
    entry->priorityIs(20);
    entry->hashMaskLenIs(24);
  });
  // The replay of the mask, the period and the address comes after the start, and they follow the candidate.
  EXPECT_EQ(context.traced("Added Elected BSR 10.0.0.9 with priority 20, hashMaskLen 24"), 1);
  EXPECT_EQ(context.traced("Added Elected BSR 10.0.0.9 with priority 20, hashMaskLen 30"), 1);
  EXPECT_EQ(show(), "eBsr timer 60 expiry 60 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps -");
}

// Replay ----------------------------------------------------------------------------------------------

TEST_F(CandidateConfig, BindingReplaysTheAttributesInOrder) {
  restart([this] {
    configure();
    candidate()->electedIs(true);
  });
  // `elected` comes before the start and does nothing; `priority` starts the machine; the others find it
  // running.
  EXPECT_EQ(traceAt("We, "), -1);
  EXPECT_EQ(traceAt("Changing priority"), -1);
  int started = traceAt(" ( shutdown=False )");
  int mask = traceAt("Changing hashmask lenth of Elected BSR to 30");
  int period = traceAt("BS timer expiry was in 60 seconds from now. Resetting BS timer expiry to 60 seconds");
  int address = traceAt("Changing IP address to 10.0.0.5 for zone 224.0.0.0/4");
  EXPECT_LT(0, started);
  EXPECT_LT(started, mask);
  EXPECT_LT(mask, period);
  EXPECT_LT(period, address);
}

TEST_F(CandidateConfig, ReplayOfThePeriodGivesBackTheTimeoutOfStatus) {
  engine.status->bsTimeoutIs(30);
  restart([this] { configure(); });
  EXPECT_EQ(context.traced(overridden("set to ", 30, 60)), 1);
  EXPECT_EQ(machine()->bsTimeout(), 30u);
}

TEST_F(CandidateConfig, StartByTheLastAttributeKeepsTheOverride) {
  engine.status->bsTimeoutIs(30);
  configure();
  // Before the start the period is compared with a timeout that was derived from no period.
  EXPECT_EQ(context.traced(overridden("", 0, 0)), 1);
  EXPECT_EQ(context.traced(overridden("", 10, 60)), 1);
  EXPECT_EQ(context.traced(overridden("set to ", 30, 60)), 1);
  EXPECT_EQ(machine()->bsTimeout(), 130u);
}

TEST_F(CandidateConfig, StartByThePeriodGivesBackTheTimeoutOfStatus) {
  engine.status->bsTimeoutIs(30);
  configure({.bsPeriod = 0});
  candidate()->bsPeriodIs(60);
  EXPECT_TRUE(machine()->initialized());
  EXPECT_EQ(machine()->bsTimeout(), 30u);
}

TEST_F(CandidateConfig, ReplayOfAShortPeriodShortensTheFirstDelay) {
  restart([this] { configure({.priority = 10, .bsPeriod = 3}); });
  EXPECT_EQ(show(), "pBsr timer 3 expiry - stored 10.0.0.5/10/30 status - keeps -");
}

// Holdtime --------------------------------------------------------------------------------------------

TEST_F(CandidateConfig, TimeoutMustBeAboveThePeriod) {
  struct {
    U32 timeout, derived;
  } const table[] = {{61, 61}, {60, 130}, {200, 200}, {59, 130}, {30, 130}, {0, 130}};
  configure();
  for (auto const& row : table) {
    context.traces.clear();
    engine.status->bsTimeoutIs(row.timeout);
    EXPECT_EQ(machine()->bsTimeout(), row.derived);
    EXPECT_EQ(context.traced(overridden("set to ", row.timeout, 60)), row.timeout <= 60 ? 1 : 0);
  }
}

TEST_F(CandidateConfig, TimeoutOfStatusMovesTheTimerOnlyAfterAnotherBsr) {
  toCandidate();
  engine.runTo(30);
  engine.status->bsTimeoutIs(101);
  EXPECT_EQ(context.tracedPrefix("BS timer expiry was in"), 0);
  engine.status->bsTimeoutIs(100);
  EXPECT_EQ(context.traced("BS timer expiry was in 100 seconds from now. Resetting BS timer expiry to 100 "
                           "seconds from now."),
            1);
  engine.status->bsTimeoutIs(61);
  EXPECT_EQ(context.traced("BS timer expiry was in 100 seconds from now. Resetting BS timer expiry to 61 "
                           "seconds from now."),
            1);
  EXPECT_EQ(show(), "cBsr timer 91 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500");
}

TEST_F(CandidateConfig, TimeoutOfStatusLeavesAStoppedTimer) {
  toCandidate();
  for (double stopped : {Kiv::never, 0.0}) {
    machine()->zetBsTimer()->timeMinIs(stopped);
    context.traces.clear();
    engine.status->bsTimeoutIs(engine.status->bsTimeout() - 10);
    EXPECT_EQ(context.traced("BS timer not set. Nothing to be done. "), 1);
    EXPECT_EQ(machine()->zetBsTimer()->timeMin(), stopped);
    EXPECT_EQ(machine()->bsTimeout(), engine.status->bsTimeout());
  }
}

// Period ----------------------------------------------------------------------------------------------

TEST_F(CandidateConfig, PeriodMovesTheTimerIfThatMuchRemains) {
  toElected();
  engine.runTo(7);
  candidate()->bsPeriodIs(9);
  EXPECT_EQ(context.tracedPrefix("BS timer expiry was in"), 0);
  candidate()->bsPeriodIs(8);
  EXPECT_EQ(
      context.traced("BS timer expiry was in 8 seconds from now. Resetting BS timer expiry to 8 seconds "
                     "from now."),
      1);
  candidate()->bsPeriodIs(3);
  EXPECT_EQ(
      context.traced("BS timer expiry was in 8 seconds from now. Resetting BS timer expiry to 3 seconds "
                     "from now."),
      1);
  EXPECT_EQ(engine.since(machine()->zetBsTimer()->timeMin()), 10);
}

TEST_F(CandidateConfig, PeriodWithoutTimerLeavesTheHoldtimeToo) {
  engine.status->bsTimeoutIs(30);
  configure();
  ASSERT_EQ(machine()->bsTimeout(), 130u);
  machine()->zetBsTimer()->timeMinIs(Kiv::never);
  candidate()->bsPeriodIs(20);
  EXPECT_EQ(context.traced("BS timer not set. Nothing to be done. "), 1);
  EXPECT_EQ(machine()->bsTimeout(), 130u);
  EXPECT_FALSE(machine()->zetBsTimer()->isArmed());
}

TEST_F(CandidateConfig, PeriodComparesTheDerivedTimeout) {
  engine.status->bsTimeoutIs(30);
  toCandidate();
  ASSERT_EQ(machine()->bsTimeout(), 130u);
  struct {
    U32 period, derived;
  } const table[] = {{130, 270}, {269, 30}, {30, 70}, {69, 30}, {29, 30}};
  U32 former = 130;
  for (auto const& row : table) {
    context.traces.clear();
    candidate()->bsPeriodIs(row.period);
    EXPECT_EQ(machine()->bsTimeout(), row.derived) << "after period " << row.period;
    EXPECT_EQ(context.traced(overridden("", former, row.period)), former <= row.period ? 1 : 0);
    former = row.derived;
  }
}

// The delay before a claim ----------------------------------------------------------------------------

TEST_F(CandidateConfig, DelayIsLessForABetterCandidateAndCutToSeconds) {
  struct {
    char const* own;
    U16 ownPriority;
    char const* stored;
    U16 storedPriority;
    U32 seconds;
    char const* why;
  } const table[] = {
      {"10.0.0.1", 10, "10.0.0.1", 10, 5, "5 + 0 + 0"},
      {"10.0.0.1", 10, "10.0.0.0", 10, 5, "the best address is its own"},
      {"10.0.0.1", 10, "10.0.0.2", 10, 5, "5 + 0.0625"},
      {"10.0.0.1", 10, "11.0.0.1", 10, 6, "5 + 24 * 0.0625"},
      {"10.0.0.1", 10, "255.255.255.255", 10, 6, "5 + 31.94 * 0.0625"},
      {"10.0.0.1", 20, "255.255.255.255", 10, 6, "the best address wins whatever its priority"},
      {"10.0.0.1", 0, "10.0.0.9", 255, 22, "5 + 16 + 1.921875"},
      {"10.0.0.1", 9, "10.0.0.9", 10, 8, "5 + 2 + 1.921875"},
      {"192.0.2.1", 9, "10.0.0.9", 10, 7, "5 + 2 + 0.5, less a trifle"},
      {"255.255.255.255", 9, "10.0.0.9", 10, 7, "5 + 2 + 0.0000000005"},
      {"10.0.0.1", 7, "10.0.0.9", 10, 10, "5 + 4 + 1.921875"},
      {"10.0.0.1", 8, "10.0.0.9", 10, 10, "5 + 3.17 + 1.921875"},
      {"10.0.0.1", 0, "10.0.0.9", 1000, 26, "5 + 19.93 + 1.921875: priorities are not cut to a byte"},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(row.why);
    restart([&] { configure({.address = row.own, .priority = row.ownPriority}); });
    machine()->storedBsr()->ipAddrIs(addr(row.stored));
    machine()->storedBsr()->priorityIs(row.storedPriority);
    EXPECT_EQ(machine()->bs_rand_override(), row.seconds);
  }
}

TEST_F(CandidateConfig, DelayIsTraced) {
  configure({.address = "10.0.0.1", .priority = 0});
  machine()->storedBsr()->priorityIs(255);
  context.traces.clear();
  machine()->bs_rand_override();
  std::string all;
  for (Zet::TraceLine const& line : context.traces) all += line.text;
  EXPECT_EQ(all,
            " Stored Priority=255, myPriority0addrDelay=1.92187, priorityDelay=16, delay=22.9219, "
            "bs_rand_override=22");
}

// Changes while it runs -------------------------------------------------------------------------------

TEST_F(CandidateConfig, WithoutABsrTheStoredValuesStayStale) {
  toPending();
  candidate()->priorityIs(99);
  candidate()->addressIs(addr("10.0.0.77"));
  EXPECT_EQ(show(), "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -");
  EXPECT_EQ(context.traced("Changing priority to 99 for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(context.traced("Changing IP address to 10.0.0.77 for zone 224.0.0.0/4"), 1);
  engine.runTo(5);
  EXPECT_EQ(show(), "eBsr timer 15 expiry 15 elected stored 10.0.0.77/99/30 status 10.0.0.77/99/30 keeps 1");
}

TEST_F(CandidateConfig, AfterABsrTheStoredValuesFollowOnlyAHeavierCandidate) {
  toCandidate();  // after 10.0.0.9/20/24
  candidate()->hashMaskLenIs(28);
  std::string const after = "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500";
  EXPECT_EQ(show(), after);
  for (U16 priority : {19, 20, 275}) {
    candidate()->priorityIs(priority);
    EXPECT_EQ(show(), after) << priority;
  }
  candidate()->priorityIs(20);
  candidate()->addressIs(addr("10.0.0.9"));
  EXPECT_EQ(show(), after) << "equal weight";
  candidate()->addressIs(addr("10.0.0.10"));
  EXPECT_EQ(show(), "cBsr timer 130 expiry 130 stored 10.0.0.10/20/28 status 10.0.0.9/20/24 keeps 500");
  candidate()->priorityIs(21);
  EXPECT_EQ(show(), "cBsr timer 130 expiry 130 stored 10.0.0.10/21/28 status 10.0.0.9/20/24 keeps 500");
  EXPECT_EQ(context.tracedPrefix("Changing priority of Elected BSR"), 0);
  EXPECT_EQ(sent(), 1u);
}

TEST_F(CandidateConfig, ElectedPublishesEachChangeAtOnceAndSendsItWithItsNextMessage) {
  toElected();
  engine.runTo(7);
  candidate()->priorityIs(3);
  EXPECT_EQ(show(), "eBsr timer 15 expiry 15 elected stored 10.0.0.5/3/30 status 10.0.0.5/3/30 keeps 1");
  EXPECT_EQ(context.traced("Changing priority to 3 for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(context.traced("Changing priority of Elected BSR to 3"), 1);
  candidate()->addressIs(addr("10.0.0.4"));
  EXPECT_EQ(show(), "eBsr timer 15 expiry 15 elected stored 10.0.0.4/3/30 status 10.0.0.4/3/30 keeps 1");
  EXPECT_EQ(context.tracedPrefix("Changing priority of Elected BSR"), 1);
  candidate()->hashMaskLenIs(20);
  EXPECT_EQ(show(), "eBsr timer 15 expiry 15 elected stored 10.0.0.4/3/20 status 10.0.0.4/3/20 keeps 1");
  EXPECT_EQ(context.traced("Changing hashmask lenth of Elected BSR to 20"), 1);
  EXPECT_EQ(engine.since(engine.elected(globalZone)->setupTime()), 5);
  EXPECT_EQ(sent(), 1u);
  engine.runTo(15);
  EXPECT_EQ(lastSent(), "forward tag 2 bsr 10.0.0.4 priority 3 mask 20");
}

TEST_F(CandidateConfig, MaskOfTheElectedIsTheOnlyValueItsChangeCopies) {
  toElected();
  machine()->storedBsr()->priorityIs(77);
  candidate()->hashMaskLenIs(20);
  EXPECT_EQ(show(), "eBsr timer 15 expiry 15 elected stored 10.0.0.5/77/20 status 10.0.0.5/77/20 keeps 1");
}

TEST_F(CandidateConfig, MaskOfOneThatIsNotElectedHasNoEffect) {
  toPending();
  candidate()->hashMaskLenIs(20);
  EXPECT_EQ(show(), "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -");
  EXPECT_EQ(context.tracedPrefix("Changing hashmask"), 0);
}

// The elected flag ------------------------------------------------------------------------------------

TEST_F(CandidateConfig, ElectionIsPublished) {
  toElected();
  EXPECT_EQ(context.traced("We, 10.0.0.5 are elected as BSR for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(context.traced("Added Elected BSR 10.0.0.5 with priority 10, hashMaskLen 30"), 1);
  EXPECT_EQ(engine.since(engine.elected(globalZone)->setupTime()), 5);
}

TEST_F(CandidateConfig, FlagTakenAwayTakesTheEntryAndTheRpSet) {
  toElected();
  putRp("203.0.113.1");
  candidate()->electedIs(false);
  EXPECT_FALSE(engine.elected(globalZone));
  EXPECT_EQ(engine.rpSet(globalZone), "");
  EXPECT_EQ(context.traced("We, 10.0.0.5 are no longer BSR for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(context.traced("Deleting 10.0.0.5 as elected BSR for zone"), 1);
  EXPECT_EQ(sent(), 1u);
}

TEST_F(CandidateConfig, FlagTakenAwayTakesNoOtherZonesRpSet) {
  toElected();
  putRp("203.0.113.1", "239.1.0.0/16", orgZone);
  candidate()->electedIs(false);
  EXPECT_EQ(engine.rpSet(orgZone), "239.1.0.0/16: 203.0.113.1/1000/7");
}

}  // namespace
}  // namespace test
