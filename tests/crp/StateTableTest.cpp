#include "tests/support/StateTable.h"

#include "tests/support/CrpEngine.h"

/// Each event in each state of a candidate RP (RFC 5059 section 3.2): the table in docs/state-tables.md has
/// one row for each pair, as the machine does it here.
namespace test {
namespace {

char const* const globalZone = "224.0.0.0/4";
char const* const orgZone = "239.0.0.0/8";
char const* const us = "203.0.113.1";
char const* const bsr = "10.0.0.9";

class AdvertiserTable : public CrpTest {
 public:
  /// The machine draws 1 second as each delay.
  AdvertiserTable() { context.randoms.assign(1000, 1); }

  void makeUs() {
    engine.addCrp(us);
    engine.addRange(us, globalZone);
  }
  /// Which state the machine is in: it has no attribute for that.
  std::string state() const {
    auto m = engine.advertiser(us);
    if (!m) return "the machine ends";
    std::string count = m->crpAdvBackoffCount() == 0 ? "periodic" : "quick repetitions";
    return count + (m->crpAdvSetCount() == 0 ? ", no BSR" : ", BSR");
  }
  Description describe() {
    auto m = engine.advertiser(us);
    auto advs = engine.takeAdvs();
    std::string sent;
    for (std::string const& adv : advs) sent += (sent.empty() ? "" : ", ") + adv;
    Description text = {{"sent", sent.empty() ? "nothing" : sent}};
    auto const* timer = m ? m->zetCrpAdvTimer() : nullptr;
    text.push_back({"timer", timer != nullptr ? remainingOf(timer->isArmed(),
                                                            engine.since(timer->timeMin()) - engine.elapsed())
                                              : "ends"});
    text.push_back({"repetitions", m ? std::to_string(m->crpAdvBackoffCount()) : "end"});
    std::string sets = m ? engine.advSets(us) : "";
    text.push_back({"advertised", sets.empty() ? "nothing" : "`" + sets + "`"});
    return text;
  }

  using CrpTest::context;
  using CrpTest::engine;
};

struct Start {
  char const* name;
  void (*lead)(AdvertiserTable& test);
};

struct Event {
  char const* name;
  char const* handler;  ///< that runs
  void (*happen)(AdvertiserTable& test);
};

Start const starts[] = {
    {"periodic, no BSR",
     [](AdvertiserTable& test) {
       test.makeUs();
       test.engine.runTo(10);
     }},
    {"quick repetitions, BSR",
     [](AdvertiserTable& test) {
       test.makeUs();
       test.engine.runTo(10);
       test.engine.electOther(globalZone, bsr);
       test.engine.runTo(10.5);
     }},
    {"periodic, BSR",
     [](AdvertiserTable& test) {
       test.engine.electOther(globalZone, bsr);
       test.makeUs();
       test.engine.runTo(10);
     }},
    {"quick repetitions, no BSR",
     [](AdvertiserTable& test) {
       test.makeUs();
       test.engine.runTo(10);
       test.engine.electOther(globalZone, bsr);
       test.engine.status->bootstrapRouterDel(prefix(globalZone));
       test.engine.runTo(10.5);
     }},
};

Event const events[] = {
    {"a BSR is elected in the zone", "handleBsr",
     [](AdvertiserTable& test) { test.engine.electOther(globalZone, bsr); }},
    {"a BSR is elected in a zone within", "handleBsr",
     [](AdvertiserTable& test) { test.engine.electOther(orgZone, bsr); }},
    {"another BSR is elected", "handleBsr",
     [](AdvertiserTable& test) { test.engine.electOther(globalZone, "10.0.0.10"); }},
    {"the BSR expires", "handleBsr",
     [](AdvertiserTable& test) { test.engine.status->bootstrapRouterDel(prefix(globalZone)); }},
    {"the timer expires", "handleCrpAdvTimerExpiry",
     [](AdvertiserTable& test) {
       test.engine.advertiser(us)->zetCrpAdvTimer()->timeMinIs(Zet::now() + 1);
       test.engine.runTo(test.engine.elapsed() + 1);
     }},
    {"C_RP_Adv_Period shortened to 5 s", "handleInterval",
     [](AdvertiserTable& test) { test.engine.addCrp(us, 5); }},
    {"C_RP_Adv_Period lengthened to 200 s", "handleInterval",
     [](AdvertiserTable& test) { test.engine.addCrp(us, 200); }},
    {"a group range is added", "handlePriority",
     [](AdvertiserTable& test) { test.engine.addRange(us, "225.0.0.0/8"); }},
    {"the only range gets another priority", "handlePriority",
     [](AdvertiserTable& test) { test.engine.addRange(us, globalZone, 20); }},
    {"the only range is removed", "", [](AdvertiserTable& test) { test.engine.delRange(us, globalZone); }},
};

TEST(StateTableTest, ACandidateRpReactsInEachStateToEachEventAsItsTableSays) {
  std::vector<StateRow> rows;
  for (Start const& start : starts) {
    for (Event const& event : events) {
      struct Case final : AdvertiserTable {
        void TestBody() override {}
      } test;
      start.lead(test);
      test.engine.takeAdvs();
      Description const before = test.describe();
      EXPECT_EQ(test.state(), start.name);
      event.happen(test);
      rows.push_back({start.name, event.name, test.state(), changesOf(before, test.describe())});
    }
  }
  expectSection("Candidate RP", rows);
}

TEST(StateTableTest, EachDeclaredReactionOfACandidateRpIsAnEvent) {
  std::set<std::string> handlers;
  for (Event const& event : events) handlers.insert(event.handler);
  handlers.erase("");
  EXPECT_EQ(handlers, declaredHandlers("crp/RpCandidateSm.zet"));
}

TEST(StateTableTest, EachStateOfACandidateRpIsAStart) {
  std::set<std::string> names;
  for (Start const& start : starts) names.insert(start.name);
  std::set<std::string> const all = {"periodic, no BSR", "periodic, BSR", "quick repetitions, no BSR",
                                     "quick repetitions, BSR"};
  EXPECT_EQ(names, all);
}

}  // namespace
}  // namespace test
