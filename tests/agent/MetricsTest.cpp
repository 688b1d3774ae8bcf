#include "agent/views/Metrics.h"

#include <set>
#include <sstream>

#include "agent/base/Version.h"
#include "host/Corrections.h"
#include "tests/agent/ObservedRouter.h"
#include "tests/support/Answers.h"

namespace test {
namespace {

using pimbsr::agent::QueueKind;
using pimbsr::host::MessageKind;
using pimbsr::host::Reception;

class MetricsTest : public ObservedRouter {
 protected:
  /// The value of a sample, written as in the text; "absent" if there is none.
  std::string sample(std::string const& name) {
    std::istringstream text(pimbsr::agent::metricsText(observed()));
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with(name + " ")) return line.substr(name.size() + 1);
    }
    return "absent";
  }
  /// How many series the text has.
  static int seriesOf(std::string const& metrics) {
    std::istringstream text(metrics);
    int count = 0;
    for (std::string line; std::getline(text, line);) count += line.starts_with('#') ? 0 : 1;
    return count;
  }
  /// Counts of all kinds, in both directions, on so many interfaces.
  void fillInterfaces(int count) {
    for (int i = 0; i < count; ++i) {
      std::string name = "eth" + std::to_string(i);
      for (int kind = 0; kind < 7; ++kind) {
        Reception reception{.kind = static_cast<MessageKind>(kind)};
        traffic.noteReceived(name, reception);
        reception.reason = "ttl";
        traffic.noteReceived(name, reception);
      }
      for (bool sent : {false, true})
        for (auto const& packet : {packetOf(Bsm{}), packetOf(Adv{}), helloFrom("192.0.2.9", 1)})
          traffic.noteSent(name, packet, sent);
      for (int queue = 0; queue < 6; ++queue) links[name].queues[static_cast<QueueKind>(queue)] = {};
    }
  }
  /// Zones that a sender made up, each with a BSR and RPs.
  void floodZones(int count) {
    helloFromNeighbor();
    for (int i = 0; i < count; ++i) {
      std::string zone = "239." + std::to_string(i / 200) + "." + std::to_string(i % 200) + ".0/24";
      Bsm bsm{.groups = {{zone, {{"10.0.0.2"}}, scopedFlag}}};
      std::string within = zone.substr(0, zone.rfind('.'));
      for (int range = 0; range < 200; ++range)
        bsm.groups.push_back({within + "." + std::to_string(range) + "/32", {{"10.0.0.2"}}});
      ASSERT_TRUE(receive(packetOf(bsm)).accepted());
    }
  }
  void learn() {
    helloFromNeighbor();
    Bsm bsm{.groups = {{"239.1.0.0/16", {{"10.0.0.2"}, {"10.0.0.3"}}}, {"239.2.0.0/16", {{"10.0.0.2"}}}}};
    ASSERT_TRUE(receive(packetOf(bsm)).accepted());
  }
};

TEST_F(MetricsTest, EveryMetricHasHelpTypeAndPrefix) {
  learn();
  receive(brokenPacket());
  std::istringstream text(pimbsr::agent::metricsText(observed()));
  std::string name;
  int metrics = 0;
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("# HELP ")) {
      name = line.substr(7, line.find(' ', 7) - 7);
      EXPECT_TRUE(name.starts_with("pimbsr_")) << line;
      EXPECT_TRUE(line.ends_with(".")) << line;
      ++metrics;
    } else if (line.starts_with("# TYPE ")) {
      EXPECT_TRUE(line.starts_with("# TYPE " + name + " ")) << line;
      EXPECT_EQ(line.ends_with(" counter"), name.ends_with("_total")) << line;
    } else {
      EXPECT_TRUE(line.starts_with(name)) << line;
    }
  }
  EXPECT_EQ(metrics, 29);
}

TEST_F(MetricsTest, ElectionsAndChurnAreCountedByZone) {
  learn();
  EXPECT_EQ(sample(R"(pimbsr_elections_total{zone="224.0.0.0/4"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_changes_total{zone="224.0.0.0/4",change="added"})"), "3");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_rps{zone="224.0.0.0/4"})"), "3");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_ranges{zone="224.0.0.0/4"})"), "2");
  receive(packetOf(Bsm{.priority = 11}));
  EXPECT_EQ(sample(R"(pimbsr_bsr_changes_total{zone="224.0.0.0/4"})"), "1");
  run(1000);
  EXPECT_EQ(sample(R"(pimbsr_bsr_losses_total{zone="224.0.0.0/4"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_bsr_known{zone="224.0.0.0/4"})"), "0");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_changes_total{zone="224.0.0.0/4",change="expired"})"), "3");
}

TEST_F(MetricsTest, OwnElectionIsSeen) {
  learn();
  EXPECT_EQ(sample(R"(pimbsr_bsr_elected{zone="224.0.0.0/4"})"), "0");
  run(200);
  lead();
  EXPECT_EQ(sample(R"(pimbsr_bsr_elected{zone="224.0.0.0/4"})"), "1");
}

TEST_F(MetricsTest, ReplacedBsrIsAChangeAndNoLoss) {
  lead();
  learn();
  ASSERT_TRUE(receive(packetOf(Bsm{.priority = 200})).accepted());
  EXPECT_EQ(sample(R"(pimbsr_elections_total{zone="224.0.0.0/4"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_bsr_changes_total{zone="224.0.0.0/4"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_bsr_losses_total{zone="224.0.0.0/4"})"), "0");
}

TEST_F(MetricsTest, HelpNamesTheZoneOfForgottenCounts) {
  std::istringstream text(pimbsr::agent::metricsText(observed()));
  int noted = 0;
  for (std::string line; std::getline(text, line);)
    noted += line.ends_with("though nothing happened.") ? 1 : 0;
  EXPECT_EQ(noted, 4);
}

TEST_F(MetricsTest, CorrectionsAreCounted) {
  router->correctionsAre(pimbsr::host::allCorrections);
  receive(helloFrom("192.0.2.1", 7));
  EXPECT_EQ(sample(R"(pimbsr_corrections_total{correction="quick-relearn"})"), "0");
  receive(helloFrom("192.0.2.1", 8));
  EXPECT_EQ(sample(R"(pimbsr_corrections_total{correction="quick-relearn"})"), "1");
}

TEST_F(MetricsTest, PacketsThatCameTooFastAreOfAKindOfTheirOwn) {
  router->ingressSettingsIs({.packetsPerSecond = 1});
  for (int i = 0; i < 3; ++i) receive(helloFrom("192.0.2.1", 7));
  EXPECT_EQ(sample(R"(pimbsr_messages_received_total{interface="eth0",kind="unread",outcome="dropped"})"),
            "1");
  EXPECT_EQ(sample(R"(pimbsr_drops_total{reason="neighbor-rate-limit",kind="unread"})"), "1");
}

TEST_F(MetricsTest, MessagesAreCountedByOutcome) {
  learn();
  receive(packetOf(Bsm{.source = "192.0.2.9"}));
  traffic.noteSent("eth0", packetOf(Bsm{}), true);
  traffic.noteSent("", packetOf(Adv{}), false);
  EXPECT_EQ(sample(R"(pimbsr_messages_received_total{interface="eth0",kind="bsm",outcome="accepted"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_messages_received_total{interface="eth0",kind="bsm",outcome="dropped"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_messages_sent_total{interface="eth0",kind="bsm",outcome="sent"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_messages_sent_total{interface="",kind="crpAdv",outcome="failed"})"), "1");
}

TEST_F(MetricsTest, DropsOfAllZonesAndInterfacesAddUp) {
  for (char const* zone : {"239.1.0.0/16", "239.2.0.0/16"}) {
    Bsm bsm{.groups = {{zone, {{"10.0.0.2"}}, scopedFlag}}, .source = "192.0.2.9"};
    receive("eth0", packetOf(bsm));
    receive("eth1", packetOf(bsm));
  }
  EXPECT_EQ(sample(R"(pimbsr_drops_total{reason="own-address",kind="bsm"})"), "4");
}

TEST_F(MetricsTest, KernelLossesAreCountedByQueue) {
  links["eth0"].queues = {{QueueKind::neighbor, {.lost = 3}}, {QueueKind::hello, {}}};
  links[""].queues = {{QueueKind::unicast, {.lost = 7}}};
  EXPECT_EQ(sample(R"(pimbsr_kernel_lost_packets_total{interface="eth0",queue="neighbor"})"), "3");
  EXPECT_EQ(sample(R"(pimbsr_kernel_lost_packets_total{interface="eth0",queue="hello"})"), "0");
  EXPECT_EQ(sample(R"(pimbsr_kernel_lost_packets_total{interface="",queue="unicast"})"), "7");
}

TEST_F(MetricsTest, ZonesWithoutARowOfTheirOwnAreOther) {
  history.causeIs({}, 1);
  history.onChange({.kind = pimbsr::host::ChangeKind::bsrElected, .zone = prefix("239.1.0.0/16")});
  history.onChange({.kind = pimbsr::host::ChangeKind::zoneForgotten, .zone = prefix("239.1.0.0/16")});
  history.noteStates(*router);
  EXPECT_EQ(sample(R"(pimbsr_elections_total{zone="other"})"), "1");
}

TEST_F(MetricsTest, BsrIsALabelOfOneSeriesOfItsZone) {
  learn();
  EXPECT_EQ(sample(R"(pimbsr_bsr_info{zone="224.0.0.0/4",bsr="10.0.0.1"})"), "1");
  EXPECT_EQ(sample("pimbsr_zones"), "1");
  receive(packetOf(Bsm{.bsr = "10.0.0.7", .priority = 11}));
  EXPECT_EQ(sample(R"(pimbsr_bsr_info{zone="224.0.0.0/4",bsr="10.0.0.1"})"), "absent");
  EXPECT_EQ(sample(R"(pimbsr_bsr_info{zone="224.0.0.0/4",bsr="10.0.0.7"})"), "1");
  run(1000);
  EXPECT_EQ(sample(R"(pimbsr_bsr_info{zone="224.0.0.0/4",bsr="10.0.0.7"})"), "absent");
}

TEST_F(MetricsTest, RpsAreCountsByRange) {
  learn();
  EXPECT_EQ(sample(R"(pimbsr_rp_set_range_rps{zone="224.0.0.0/4",range="239.1.0.0/16"})"), "2");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_range_rps{zone="224.0.0.0/4",range="239.2.0.0/16"})"), "1");
}

TEST_F(MetricsTest, RangesBeyondAHundredOfAZoneAreSummedUp) {
  helloFromNeighbor();
  Bsm bsm;
  for (int i = 0; i < 130; ++i)
    bsm.groups.push_back({"239.1." + std::to_string(i) + ".0/24", {{"10.0.0.2"}, {"10.0.0.3"}}});
  ASSERT_TRUE(receive(packetOf(bsm)).accepted());
  EXPECT_EQ(sample(R"(pimbsr_rp_set_range_rps{zone="224.0.0.0/4",range="239.1.99.0/24"})"), "2");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_range_rps{zone="224.0.0.0/4",range="239.1.100.0/24"})"), "absent");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_range_rps{zone="224.0.0.0/4",range="other"})"), "60");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_ranges{zone="224.0.0.0/4"})"), "130");
}

TEST_F(MetricsTest, ZonesOfAFloodDisplaceNoneThatWasThere) {
  learn();
  receive(packetOf(Bsm{.groups = {{"239.255.0.0/16", {{"10.0.0.2"}}, scopedFlag}}}));
  run(1);
  floodZones(40);
  EXPECT_EQ(sample(R"(pimbsr_bsr_known{zone="224.0.0.0/4"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_bsr_known{zone="239.255.0.0/16"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_bsr_known{zone="other"})"), "absent");
  EXPECT_EQ(sample("pimbsr_zones"), "42");
  EXPECT_EQ(sample(R"(pimbsr_rp_set_rps{zone="other"})"), std::to_string(10 * 201));
}

TEST_F(MetricsTest, FloodsOfAllKindsMakeAtMostTwoThousandSeries) {
  router->correctionsAre(pimbsr::host::allCorrections);
  floodZones(300);
  fillInterfaces(100);
  std::vector<std::string> reasons;
  for (int i = 0; i < 100; ++i) reasons.push_back("reason-" + std::to_string(i));
  for (std::string const& reason : reasons)
    for (int kind = 0; kind < 7; ++kind) {
      Reception reception{.kind = static_cast<MessageKind>(kind), .reason = reason};
      drops.note("eth0", reception, context.now());
    }
  pimbsr::agent::Observed seen = observed();
  seen.historyFile = {.path = "/x"};
  seen.changeRuns = {.command = "x"};
  seen.controls = {{.path = "/a"}, {.path = "/b", .readOnly = true}};
  std::string text = pimbsr::agent::metricsText(seen);
  EXPECT_LE(seriesOf(text), 2000);
  EXPECT_GT(seriesOf(text), 1500);  // the flood fills its bounds
  std::set<std::string> names;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('#')) continue;
    EXPECT_TRUE(names.insert(line.substr(0, line.rfind(' '))).second) << line;
  }
}

TEST_F(MetricsTest, InterfacesBeyondTheBoundAreSummedUp) {
  fillInterfaces(30);
  EXPECT_EQ(sample(R"(pimbsr_messages_sent_total{interface="eth0",kind="bsm",outcome="sent"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_messages_sent_total{interface="other",kind="bsm",outcome="sent"})"), "14");
}

TEST_F(MetricsTest, BuildLogAndHistoryAreReported) {
  learn();
  pimbsr::agent::Observed seen = observed();
  seen.log = {.written = 5, .suppressed = 3, .lost = 1};
  std::string text = pimbsr::agent::metricsText(seen);
  for (std::string line :
       {std::string("pimbsr_build_info{version=\"") + pimbsr::agent::version + "\"} 1",
        std::string("pimbsr_log_lines_total{outcome=\"written\"} 5"),
        std::string("pimbsr_log_lines_total{outcome=\"suppressed\"} 3"),
        std::string("pimbsr_log_lines_total{outcome=\"lost\"} 1"), std::string("pimbsr_history_entries 2")})
    EXPECT_NE(text.find(line + "\n"), text.npos) << line;
}

/// tests/prometheus holds alerts and dashboard against this text.
TEST_F(MetricsTest, EachMetricHasASeriesOnceItHasACause) {
  learn();
  receive(brokenPacket());
  fillInterfaces(1);
  pimbsr::agent::Observed seen = observed();
  seen.historyFile = {.path = "/x"};
  seen.changeRuns = {.command = "x"};
  seen.controls = {{.path = "/a"}};
  std::string text = pimbsr::agent::metricsText(seen);
  keepAnswer("metrics", {{"text", text}});
  std::istringstream lines(text);
  std::string last;
  for (std::string line; std::getline(lines, line); last = line) {
    if (!line.starts_with("# HELP")) continue;
    EXPECT_FALSE(last.starts_with("# TYPE")) << last;
  }
}

TEST_F(MetricsTest, TimersAndTheProcessAreReported) {
  helloFromNeighbor();
  run(12);
  timerLatency.note(0.002);
  timerLatency.note(20);
  EXPECT_EQ(sample("pimbsr_timers_armed"), std::to_string(router->armedTimers()));
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="0.001"})"), "0");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="0.01"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="0.02"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="10"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="+Inf"})"), "2");
  EXPECT_EQ(sample("pimbsr_timer_lateness_seconds_count"), "2");
  EXPECT_EQ(sample("pimbsr_notification_exceptions_total"), "0");
  EXPECT_EQ(sample("pimbsr_uptime_seconds"), "12");
  EXPECT_EQ(sample(R"(pimbsr_neighbors{interface="eth0"})"), "1");
}

TEST_F(MetricsTest, HistoryFileAndChangeCommandAreCountedIfThereAreAny) {
  EXPECT_EQ(pimbsr::agent::metricsText(observed()).find("pimbsr_history_unsaved"), std::string::npos);
  EXPECT_EQ(pimbsr::agent::metricsText(observed()).find("pimbsr_change_"), std::string::npos);
  pimbsr::agent::Observed seen = observed();
  seen.historyFile = {.path = "/x", .error = "full", .unsaved = 3, .writerRestarts = 2};
  seen.changeRuns = {.command = "x", .runningFor = 1.5, .succeeded = 4, .failed = 2, .timedOut = 1};
  std::string text = pimbsr::agent::metricsText(seen);
  for (char const* line :
       {"pimbsr_history_unsaved_total 3", "pimbsr_history_complete 0", "pimbsr_state_writer_restarts_total 2",
        "pimbsr_change_command_runs_total{outcome=\"failed\"} 2",
        "pimbsr_change_command_runs_total{outcome=\"timedOut\"} 1",
        "pimbsr_change_command_running_seconds 1.5", "pimbsr_change_command_helper_restarts_total 0",
        "pimbsr_change_command_ready 1"})
    EXPECT_NE(text.find(line), text.npos) << line;
}

TEST_F(MetricsTest, ControlSocketsAreCountedByWhatTheyServe) {
  pimbsr::agent::Observed seen = observed();
  seen.controls = {{.path = "/a", .counts = {.clients = 3, .gaveWay = 4}}, {.path = "/b", .readOnly = true}};
  std::string text = pimbsr::agent::metricsText(seen);
  EXPECT_NE(text.find("pimbsr_control_clients{socket=\"full\"} 3"), text.npos);
  EXPECT_NE(text.find("pimbsr_control_clients{socket=\"read-only\"} 0"), text.npos);
  EXPECT_NE(text.find("pimbsr_control_limited_total{socket=\"full\",reason=\"gaveWay\"} 4"), text.npos);
}

}  // namespace
}  // namespace test
