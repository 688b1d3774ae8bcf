#include "agent/EventLog.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/agent/RecordingLog.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::HistoryEntry;
using agent::HistoryKind;
using testing::ElementsAre;
using testing::IsEmpty;

class EventLogTest : public testing::Test {
 protected:
  /// The lines of an event, each with its kind.
  std::vector<std::string> linesOf(std::vector<HistoryEntry> const& changes) {
    sink.records.clear();
    log.onChanges(changes);
    std::vector<std::string> lines;
    for (agent::LogRecord const& record : sink.records)
      lines.push_back(std::string(record.event.name) + "|" + record.text);
    return lines;
  }
  /// A change of the zone of this test, so that no other test has used up its limit.
  HistoryEntry change(HistoryKind kind) const {
    HistoryEntry entry{.kind = kind, .cause = {.kind = agent::CauseKind::timer}, .zone = zone};
    entry.bsr = {addr("10.0.0.1"), 10, 30};
    return entry;
  }
  HistoryEntry rpChange(HistoryKind kind, std::string const& rp) const {
    HistoryEntry entry = change(kind);
    entry.bsr = {};
    entry.rp = {.range = prefix("239.1.0.0/16"), .address = addr(rp), .priority = 5, .holdTime = 150};
    return entry;
  }

  RecordingLog sink;
  agent::EventLog log;
  Lanet::IpGenPrefix zone = prefix("224.0.0.0/4");
};

TEST_F(EventLogTest, LineSaysWhatChangedAndWhatMadeTheChange) {
  zone = prefix("239.10.0.0/16");
  HistoryEntry changed = change(HistoryKind::bsrChanged);
  changed.formerBsr = {addr("10.0.0.1"), 10, 16};
  changed.cause = {agent::CauseKind::message, "eth0", pimbsr::host::MessageKind::bootstrap, addr("10.0.1.2")};
  EXPECT_THAT(
      linesOf({changed}),
      ElementsAre("bsr-changed|zone 239.10.0.0/16: BSR changed: 10.0.0.1, priority 10, hash mask length "
                  "30; was hash mask length 16 (BSM from 10.0.1.2 on eth0)"));
  EXPECT_EQ(sink.records[0].subject.at(0).first, "ZONE");
  EXPECT_EQ(sink.records[0].subject.at(0).second, "239.10.0.0/16");
}

TEST_F(EventLogTest, EachElectionAndEachStateIsLogged) {
  zone = prefix("239.11.0.0/16");
  HistoryEntry state = change(HistoryKind::candidateState);
  state.bsr = {};
  state.state = "Elected-BSR";
  state.formerState = "Pending-BSR";
  EXPECT_THAT(linesOf({change(HistoryKind::bsrElected), change(HistoryKind::bsrLost), state}),
              ElementsAre("bsr-elected|zone 239.11.0.0/16: BSR elected: 10.0.0.1, priority 10 (timer)",
                          "bsr-lost|zone 239.11.0.0/16: BSR lost: 10.0.0.1 (timer)",
                          "candidate-state|zone 239.11.0.0/16: state: Elected-BSR; was Pending-BSR (timer)"));
}

TEST_F(EventLogTest, OnlyTheLastRpOfAZoneIsLogged) {
  zone = prefix("239.12.0.0/16");
  EXPECT_THAT(
      linesOf({rpChange(HistoryKind::rpAdded, "10.0.0.2"), rpChange(HistoryKind::rpAdded, "10.0.0.3")}),
      IsEmpty());
  EXPECT_THAT(linesOf({rpChange(HistoryKind::rpRemoved, "10.0.0.2")}), IsEmpty());
  EXPECT_THAT(
      linesOf({rpChange(HistoryKind::rpExpired, "10.0.0.3")}),
      ElementsAre("rp-set-emptied|zone 239.12.0.0/16: RP set is empty; expired: 10.0.0.3 for 239.1.0.0/16 "
                  "(timer)"));
  EXPECT_THAT(
      linesOf({rpChange(HistoryKind::rpAdded, "10.0.0.2"), rpChange(HistoryKind::rpRemoved, "10.0.0.2"),
               rpChange(HistoryKind::rpAdded, "10.0.0.4")}),
      IsEmpty())
      << "it is empty for no time";
}

TEST_F(EventLogTest, FloodOfAlternatingTermsIsAFewLines) {
  zone = prefix("239.13.0.0/16");
  HistoryEntry changed = change(HistoryKind::bsrChanged);
  for (int i = 0; i < 9000; ++i) {
    changed.bsr.hashMaskLen = 30 - i % 2;
    changed.formerBsr = {addr("10.0.0.1"), 10, 30 - (i + 1u) % 2};
    log.onChanges({changed});
  }
  EXPECT_LE(sink.records.size(), 6u);
}

TEST_F(EventLogTest, NeighborsAreLoggedWithTheirInterface) {
  agent::logNeighbor({intf("eth7"), addr("10.0.7.1"), true, false});
  agent::logNeighbor({intf("eth7"), addr("10.0.7.1"), false, true});
  agent::logNeighbor({intf("eth7"), addr("10.0.7.1"), false, false});
  std::vector<std::string> lines;
  for (agent::LogRecord const& record : sink.records) lines.push_back(record.text);
  EXPECT_THAT(lines,
              ElementsAre("interface eth7: neighbor 10.0.7.1 is up",
                          "interface eth7: neighbor 10.0.7.1 is down: its holdtime is over",
                          "interface eth7: neighbor 10.0.7.1 is down: it sent a Hello with zero holdtime"));
  EXPECT_EQ(sink.records[0].subject.at(1).second, "10.0.7.1");
}

}  // namespace
}  // namespace test
