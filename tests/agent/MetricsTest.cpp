#include "agent/views/Metrics.h"

#include <sstream>

#include "tests/agent/ObservedRouter.h"

namespace test {
namespace {

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
  EXPECT_EQ(metrics, 22);
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
  using pimbsr::agent::QueueKind;
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

TEST_F(MetricsTest, TimersAndTheProcessAreReported) {
  helloFromNeighbor();
  run(12);
  timerLatency.note(0.002);
  timerLatency.note(20);
  EXPECT_EQ(sample("pimbsr_timers_armed"), std::to_string(router->timerWheel()->armed()));
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="0.001"})"), "0");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="0.01"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="10"})"), "1");
  EXPECT_EQ(sample(R"(pimbsr_timer_lateness_seconds_bucket{le="+Inf"})"), "2");
  EXPECT_EQ(sample("pimbsr_timer_lateness_seconds_count"), "2");
  EXPECT_EQ(sample("pimbsr_notification_exceptions_total"), "0");
  EXPECT_EQ(sample("pimbsr_uptime_seconds"), "12");
  EXPECT_EQ(sample(R"(pimbsr_neighbors{interface="eth0"})"), "1");
}

TEST_F(MetricsTest, HistoryFileAndChangeCommandAreCountedIfThereAreAny) {
  EXPECT_EQ(pimbsr::agent::metricsText(observed()).find("pimbsr_history_"), std::string::npos);
  EXPECT_EQ(pimbsr::agent::metricsText(observed()).find("pimbsr_change_"), std::string::npos);
  pimbsr::agent::Observed seen = observed();
  seen.historyFile = {.path = "/x", .error = "full", .unsaved = 3, .writerRestarts = 2};
  seen.changeRuns = {.command = "x", .runningFor = 1.5, .succeeded = 4, .failed = 2, .timedOut = 1};
  std::string text = pimbsr::agent::metricsText(seen);
  for (char const* line :
       {"pimbsr_history_unsaved_total 3", "pimbsr_history_complete 0", "pimbsr_state_writer_restarts_total 2",
        "pimbsr_change_command_runs_total{outcome=\"failed\"} 2",
        "pimbsr_change_command_runs_total{outcome=\"timedOut\"} 1",
        "pimbsr_change_command_running_seconds 1.5"})
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
