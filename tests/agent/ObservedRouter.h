#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "agent/views/Observed.h"
#include "host/ConfigTree.h"
#include "tests/support/CrpEngine.h"
#include "tests/support/RecordingPort.h"
#include "tests/support/TestContext.h"

namespace test {

/// A configured router as an agent drives it, with all that an agent keeps account of: 192.0.2.9 on eth0 and
/// 198.51.100.9 on eth1 speak Hello, and the neighbor 192.0.2.1 on eth0 leads to 10.0.0.0/8.
class ObservedRouter : public testing::Test {
 protected:
  ObservedRouter();
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  /// Runs the timers that are due within so many seconds.
  void run(double seconds);
  /// Applies `settings`.
  void configure();
  pimbsr::host::Reception receive(std::string const& intf, std::vector<Zet::U8> const& packet);
  pimbsr::host::Reception receive(std::vector<Zet::U8> const& packet) { return receive("eth0", packet); }
  /// Makes this router a candidate BSR of a zone on eth0, and waits until it is elected.
  void lead(std::string const& zone = "224.0.0.0/4");
  /// Makes 192.0.2.1 a neighbor on eth0.
  void helloFromNeighbor();

  pimbsr::agent::Observed observed();

  TestContext context;
  RecordingPort port;
  pimbsr::agent::Settings settings;
  pimbsr::agent::KernelView kernel;
  pimbsr::agent::Traffic traffic;
  pimbsr::agent::Drops drops;
  pimbsr::agent::History history;
  pimbsr::agent::TimerLatency timerLatency;
  pimbsr::agent::LinkReports links;
  pimbsr::agent::HistoryFile historyFile;
  pimbsr::host::ConfigTree tree;
  std::unique_ptr<pimbsr::host::Router> router;
  std::unique_ptr<pimbsr::host::Observer> observer;
  double startTime = 0;

 private:
  template <class Act>
  void call(pimbsr::agent::Cause const& cause, Act const& act);
};

/// Packets from their IP header on.
std::vector<Zet::U8> packetOf(Bsm const& wanted);
std::vector<Zet::U8> packetOf(Adv const& wanted);
std::vector<Zet::U8> helloFrom(std::string const& source, Zet::U32 generation, Zet::U16 holdtime = 105);
/// A PIM packet with a wrong checksum.
std::vector<Zet::U8> brokenPacket(std::string const& source = "192.0.2.1");

}  // namespace test
