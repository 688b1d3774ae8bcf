#include "tests/support/StateTable.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "tests/protocol/CandidateSupport.h"
#include "tests/protocol/NonCandidateSupport.h"

/// Each event in each state of the two machines of a zone (RFC 5059 section 3.1): the table in
/// docs/state-tables.md has one row for each pair, as the machines do it here.
namespace test {
namespace {

using Routing::Pim::Bsr::BsrCandidateState;
using Timer = Kiv::TimerWheel::NotifieeConst;
using Zet::Ptr;

template <class Value>
std::string textOf(Value const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

/// A state of a machine, and how a test leads there.
template <class Test>
struct Start {
  char const* name;
  void (*lead)(Test& test);
};

/// An event, and the handler that it runs; empty for one from outside the machine.
template <class Test>
struct Event {
  char const* name;
  char const* handler;
  void (*happen)(Test& test);
};

/// Lets a timer expire at once, whether it was armed or not.
void expire(Engine& engine, Timer* timer) {
  timer->timeMinIs(Zet::now());
  engine.wheel->advance(Zet::now());
}

std::string timerOf(Engine const& engine, Timer const* timer) {
  return remainingOf(timer->isArmed(), engine.since(timer->timeMin()) - engine.elapsed());
}

std::string bsrOf(Ptr<Bsr::ElectedBsrStatus> const& bsr) {
  if (!bsr) return "none";
  return textOf(bsr->ipAddr()) + ", priority " + textOf(bsr->priority()) + ", hash mask length " +
         textOf(bsr->hashMaskLen());
}

/// The messages that left since the position `from`: those whose text has `received` were forwarded.
Description sentSince(Engine const& engine, std::size_t from, std::string const& received) {
  int originated = 0, forwarded = 0;
  for (std::size_t i = from; i < engine.outbox->sent.size(); ++i) {
    ++(engine.outbox->sent[i].text.find(received) == std::string::npos ? originated : forwarded);
  }
  return {{"messages originated:", textOf(originated)}, {"messages forwarded:", textOf(forwarded)}};
}

// Kinds of messages -----------------------------------------------------------------------------------

Bsm with(Bsm given, bool forward) {
  given.forward = forward;
  return given;
}

std::set<std::string> bothForwardings(std::vector<std::string> const& kinds) {
  std::set<std::string> all;
  for (std::string const& kind : kinds) all.insert({kind, kind + ", No-Forward"});
  return all;
}

/// The kinds that a machine distinguishes: by weight and sender if it knows a BSR. RFC 5059 section 3.1.1
/// has a transition for a non-preferred message of the elected BSR alone.
std::set<std::string> kindsOfMessages(bool knowsBsr) {
  if (!knowsBsr) return bothForwardings({"message"});
  return bothForwardings({"preferred, known BSR", "preferred, another BSR", "non-preferred, known BSR",
                          "non-preferred, another BSR"});
}

std::string kindOf(Bsm const& given, Ptr<Bsr::ElectedBsrStatus> const& known) {
  std::string const forwarding = given.forward ? "" : ", No-Forward";
  if (!known) return "message" + forwarding;
  bool const isKnown = addr(given.bsr) == known->ipAddr();
  Bsr::PimBsrWeight const weight(static_cast<Zet::U8>(known->priority()), known->ipAddr());
  bool const isPreferred = !(Bsr::PimBsrWeight(given.priority, addr(given.bsr)) < weight);
  return std::string(isPreferred ? "preferred" : "non-preferred") + (isKnown ? ", known" : ", another") +
         " BSR" + forwarding;
}

/// The kinds of messages that came, by the state in which they came.
using Heard = std::map<std::string, std::set<std::string>>;

void note(Heard& heard, std::string const& state, std::string const& kind) {
  if (!kind.empty()) heard[state].insert(kind);
}

// A candidate BSR -------------------------------------------------------------------------------------

char const* const ownAddress = "10.0.0.5";
char const* const rpRange = "224.1.0.0/16";

class CandidateTable : public CandidateTest {
 public:
  std::string kind;  ///< of the message that came as the event

  void hear(Bsm const& message) {
    kind = kindOf(message, machine()->storedBsr());
    received_ = " tag " + textOf(message.tag) + " ";
    CandidateTest::hear(message);
  }
  std::string stateName() const { return machine() ? textOf(machine()->state()) : "the machine ends"; }
  Description describe(std::size_t sentBefore) const {
    Ptr<Bsr::BsrCandidateSm> m = machine();
    Description text = sentSince(engine, sentBefore, received_);
    text.push_back({"Bootstrap Timer", m ? timerOf(engine, m->zetBsTimer()) : "ends"});
    text.push_back({"elected BSR", bsrOf(engine.elected(globalZone))});
    text.push_back({"known BSR", m ? bsrOf(m->storedBsr()) : "none"});
    text.push_back({"RP set", engine.rpSet(globalZone).empty() ? "cleared" : engine.rpSet(globalZone)});
    text.push_back({"timeout", m ? textOf(m->bsTimeout()) + " s" : "none"});
    text.push_back({"kept message of", m && m->lastBsm() ? textOf(m->lastBsm()->bsrAddress()) : "none"});
    return text;
  }

 private:
  std::string received_ = "no message came";  ///< the tag of the event's message, as a sent one shows it
};

Bsm const highest = {.bsr = "10.0.0.12", .priority = 25, .tag = 700, .hashMaskLen = 20};

/// A message of the BSR that the machine knows, of the same weight or of priority 1. A pending or elected
/// candidate knows itself, and so does one whose machine waits for the address.
Bsm ofKnownBsr(CandidateTable const& test, bool isPreferred) {
  bool const isOther = test.machine()->state() == BsrCandidateState::cBsr;
  Bsm given = isOther ? superior() : Bsm{.bsr = ownAddress, .priority = 10, .tag = 800, .hashMaskLen = 30};
  if (!isPreferred) given.priority = 1;
  return given;
}

/// Leads to a state, and to a time at which no timer was armed.
void lead(CandidateTable& test, void (CandidateTest::*way)(), double time) {
  (test.*way)();
  test.putRp("203.0.113.1", rpRange);
  test.engine.runTo(time);
}

/// All of a candidacy but its address.
void configureInPart(CandidateTable& test) {
  Ptr<Bsr::BsrCandidate> entry = test.engine.status->cbsrIs(prefix(globalZone));
  entry->priorityIs(10);
  entry->hashMaskLenIs(30);
  entry->bsPeriodIs(60);
}

Start<CandidateTable> const candidateStarts[] = {
    {"noInfoBsr", configureInPart},
    {"cBsr", [](CandidateTable& test) { lead(test, &CandidateTest::toCandidate, 7); }},
    {"pBsr", [](CandidateTable& test) { lead(test, &CandidateTest::toPending, 2); }},
    {"eBsr", [](CandidateTable& test) { lead(test, &CandidateTest::toElected, 7); }},
};

Event<CandidateTable> const candidateEvents[] = {
    {"preferred message of the known BSR", "handleBsm",
     [](CandidateTable& test) { test.hear(ofKnownBsr(test, true)); }},
    {"preferred message of the known BSR, No-Forward", "handleBsm",
     [](CandidateTable& test) { test.hear(with(ofKnownBsr(test, true), false)); }},
    {"preferred message of another BSR", "handleBsm", [](CandidateTable& test) { test.hear(highest); }},
    {"preferred message of another BSR, No-Forward", "handleBsm",
     [](CandidateTable& test) { test.hear(with(highest, false)); }},
    {"non-preferred message of the known BSR", "handleBsm",
     [](CandidateTable& test) { test.hear(ofKnownBsr(test, false)); }},
    {"non-preferred message of the known BSR, No-Forward", "handleBsm",
     [](CandidateTable& test) { test.hear(with(ofKnownBsr(test, false), false)); }},
    {"non-preferred message of another BSR", "handleBsm",
     [](CandidateTable& test) { test.hear(inferior()); }},
    {"non-preferred message of another BSR, No-Forward", "handleBsm",
     [](CandidateTable& test) { test.hear(with(inferior(), false)); }},
    {"Bootstrap Timer expires", "handleBsrTimerExpiry",
     [](CandidateTable& test) { expire(test.engine, test.machine()->zetBsTimer()); }},
    {"BS_Timeout shortened to 100 s", "handleBsTimeout",
     [](CandidateTable& test) { test.engine.status->bsTimeoutIs(100); }},
    {"BS_Timeout shortened to 50 s, below BS_Period", "handleBsTimeout",
     [](CandidateTable& test) { test.engine.status->bsTimeoutIs(50); }},
    {"BS_Timeout lengthened to 200 s", "handleBsTimeout",
     [](CandidateTable& test) { test.engine.status->bsTimeoutIs(200); }},
    {"candidate's elected is set", "handleElected",
     [](CandidateTable& test) { test.candidate()->electedIs(true); }},
    {"candidate's elected is cleared", "handleElected",
     [](CandidateTable& test) { test.candidate()->electedIs(false); }},
    {"priority raised to 30", "handlePriority",
     [](CandidateTable& test) { test.candidate()->priorityIs(30); }},
    {"priority lowered to 5", "handlePriority",
     [](CandidateTable& test) { test.candidate()->priorityIs(5); }},
    {"hash mask length changed", "handleHashMaskLen",
     [](CandidateTable& test) { test.candidate()->hashMaskLenIs(20); }},
    {"BS_Period shortened to 2 s", "handleBsPeriod",
     [](CandidateTable& test) { test.candidate()->bsPeriodIs(2); }},
    {"BS_Period lengthened to 200 s", "handleBsPeriod",
     [](CandidateTable& test) { test.candidate()->bsPeriodIs(200); }},
    {"address set or changed to 10.0.0.7", "handleIpChange",
     [](CandidateTable& test) { test.candidate()->addressIs(addr("10.0.0.7")); }},
    {"the candidacy ends", "", [](CandidateTable& test) { test.engine.status->cbsrDel(prefix(globalZone)); }},
};

TEST(StateTableTest, ACandidateBsrReactsInEachStateToEachEventAsItsTableSays) {
  std::vector<StateRow> rows;
  Heard heard;
  for (Start<CandidateTable> const& start : candidateStarts) {
    for (Event<CandidateTable> const& event : candidateEvents) {
      struct Case final : CandidateTable {
        void TestBody() override {}
      } test;
      start.lead(test);
      std::size_t const sent = test.sent();
      Description const before = test.describe(sent);
      EXPECT_EQ(test.stateName(), start.name);
      event.happen(test);
      note(heard, start.name, test.kind);
      rows.push_back({start.name, event.name, test.stateName(), changesOf(before, test.describe(sent))});
    }
    EXPECT_EQ(heard[start.name], kindsOfMessages(std::string("noInfoBsr") != start.name)) << start.name;
  }
  expectSection("Candidate BSR", rows);
}

// A router that is no candidate BSR -------------------------------------------------------------------

class FollowerTable : public NonCandidate {
 public:
  std::string zone = scoped;
  std::string kind;  ///< of the last message that came

  void hear(Bsm given) {
    kind = kindOf(given, engine.elected(zone));
    given.groups = {{zone, {{"203.0.113.2"}}, zone == scoped ? scopedFlag : Zet::U8{0}}};
    engine.receive(given);
  }
  Ptr<Bsr::BsrNonCandidateSm> machine() const { return engine.follower(zone); }
  std::string stateName() const { return machine() ? textOf(machine()->state()) : "the machine ends"; }
  Description describe(std::size_t sentBefore) const {
    Ptr<Bsr::BsrNonCandidateSm> m = machine();
    Description text = {sentSince(engine, sentBefore, "")[1]};
    text.push_back({"Bootstrap Timer", m ? timerOf(engine, m->zetBsTimer()) : "ends"});
    text.push_back({"Scope Zone Timer", m ? timerOf(engine, m->zetSzTimer()) : "ends"});
    text.push_back({"elected BSR", bsrOf(engine.elected(zone))});
    text.push_back({"RP set", engine.rpSet(zone).empty() ? "empty" : engine.rpSet(zone)});
    text.push_back({"kept message of", m && m->lastBsm() ? textOf(m->lastBsm()->bsrAddress()) : "none"});
    return text;
  }

  using NonCandidate::engine;
};

Bsm const known = {.bsr = "10.0.0.5", .priority = 10, .tag = 400};
Bsm const lowered = {.bsr = "10.0.0.5", .priority = 5, .tag = 401};

void toFollowing(FollowerTable& test, std::string const& zone) {
  test.zone = zone;
  test.hear(known);
  test.engine.runTo(7);
}

void toAnyBsr(FollowerTable& test, std::string const& zone) {
  toFollowing(test, zone);
  expire(test.engine, test.machine()->zetBsTimer());
}

Start<FollowerTable> const followerStarts[] = {
    {"noInfo, scoped zone", [](FollowerTable& test) { test.engine.makeFollower(scoped); }},
    {"acceptAny, scoped zone", [](FollowerTable& test) { toAnyBsr(test, scoped); }},
    {"acceptPreferred, scoped zone", [](FollowerTable& test) { toFollowing(test, scoped); }},
    {"acceptAny, global zone", [](FollowerTable& test) { toAnyBsr(test, global); }},
    {"acceptPreferred, global zone", [](FollowerTable& test) { toFollowing(test, global); }},
};

void changeBsTimeout(FollowerTable& test, Zet::U32 seconds) { test.engine.status->bsTimeoutIs(seconds); }
void changeSzTimeout(FollowerTable& test, Zet::U32 seconds) { test.engine.status->szTimeoutIs(seconds); }

void beginCandidacy(FollowerTable& test) {
  Ptr<Bsr::BsrCandidate> candidate = test.engine.status->cbsrIs(prefix(test.zone));
  candidate->priorityIs(10);
  candidate->hashMaskLenIs(30);
  candidate->bsPeriodIs(60);
  candidate->addressIs(addr("10.0.0.7"));
}

Event<FollowerTable> const followerEvents[] = {
    {"message of 10.0.0.5", "handleBsm", [](FollowerTable& test) { test.hear(known); }},
    {"message of 10.0.0.5, No-Forward", "handleBsm",
     [](FollowerTable& test) { test.hear(with(known, false)); }},
    {"message of 10.0.0.5 with its priority lowered to 5", "handleBsm",
     [](FollowerTable& test) { test.hear(lowered); }},
    {"message of 10.0.0.5 with its priority lowered to 5, No-Forward", "handleBsm",
     [](FollowerTable& test) { test.hear(with(lowered, false)); }},
    {"message of a preferred BSR", "handleBsm", [](FollowerTable& test) { test.hear(superior()); }},
    {"message of a preferred BSR, No-Forward", "handleBsm",
     [](FollowerTable& test) { test.hear(with(superior(), false)); }},
    {"message of a non-preferred BSR", "handleBsm", [](FollowerTable& test) { test.hear(inferior()); }},
    {"message of a non-preferred BSR, No-Forward", "handleBsm",
     [](FollowerTable& test) { test.hear(with(inferior(), false)); }},
    {"Bootstrap Timer expires", "handleBsrTimerExpiry",
     [](FollowerTable& test) { expire(test.engine, test.machine()->zetBsTimer()); }},
    {"Scope Zone Timer expires", "handleSzTimerExpiry",
     [](FollowerTable& test) { expire(test.engine, test.machine()->zetSzTimer()); }},
    {"BS_Timeout shortened to 50 s", "handleBsTimeout",
     [](FollowerTable& test) { changeBsTimeout(test, 50); }},
    {"BS_Timeout lengthened to 200 s", "handleBsTimeout",
     [](FollowerTable& test) { changeBsTimeout(test, 200); }},
    {"SZ_Timeout shortened to 300 s", "handleSzTimeout",
     [](FollowerTable& test) { changeSzTimeout(test, 300); }},
    {"SZ_Timeout lengthened to 2000 s", "handleSzTimeout",
     [](FollowerTable& test) { changeSzTimeout(test, 2000); }},
    {"a candidacy of the zone begins", "", beginCandidacy},
};

TEST(StateTableTest, ARouterThatIsNoCandidateReactsInEachStateToEachEventAsItsTableSays) {
  std::vector<StateRow> rows;
  Heard heard;
  for (Start<FollowerTable> const& start : followerStarts) {
    for (Event<FollowerTable> const& event : followerEvents) {
      struct Case final : FollowerTable {
        void TestBody() override {}
      } test;
      test.engine.addIntf("eth0");
      start.lead(test);
      std::size_t const sent = test.engine.outbox->sent.size();
      Description const before = test.describe(sent);
      EXPECT_TRUE(std::string(start.name).starts_with(test.stateName() + ",")) << test.stateName();
      test.kind.clear();
      event.happen(test);
      note(heard, start.name, test.kind);
      rows.push_back({start.name, event.name, test.stateName(), changesOf(before, test.describe(sent))});
    }
    bool const knowsBsr = std::string(start.name).starts_with("acceptPreferred");
    EXPECT_EQ(heard[start.name], kindsOfMessages(knowsBsr)) << start.name;
  }
  expectSection("No candidate BSR", rows);
}

// The tables are complete -----------------------------------------------------------------------------

template <class Events>
std::set<std::string> handlersOf(Events const& events) {
  std::set<std::string> found;
  for (auto const& event : events) found.insert(event.handler);
  found.erase("");
  return found;
}

template <class Starts>
bool hasStart(Starts const& starts, std::string const& name) {
  return std::any_of(std::begin(starts), std::end(starts),
                     [&](auto const& start) { return start.name == name; });
}

TEST(StateTableTest, EachDeclaredReactionIsAnEvent) {
  EXPECT_EQ(handlersOf(candidateEvents), declaredHandlers("protocol/BsrCandidateSm.zet"));
  EXPECT_EQ(handlersOf(followerEvents), declaredHandlers("protocol/BsrNonCandidateSm.zet"));
}

TEST(StateTableTest, EachStateOfAMachineIsAStart) {
  for (char const* state : enumText(BsrCandidateState{}).names) {
    EXPECT_TRUE(hasStart(candidateStarts, state)) << state;
  }
  for (std::string state : enumText(State{}).names) {
    EXPECT_TRUE(hasStart(followerStarts, state + ", scoped zone")) << state;
    EXPECT_TRUE(state == "noInfo" || hasStart(followerStarts, state + ", global zone")) << state;
  }
}

}  // namespace
}  // namespace test
