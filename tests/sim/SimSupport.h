#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <vector>

#include "sim/Simulation.h"

namespace test {

/// Writes down what a simulation reports, one short line for each event: "time router what".
class Diary final : public pimbsr::sim::Report {
 public:
  void onChanges(pimbsr::sim::Node const& node, std::span<pimbsr::host::Change const> changes) override;
  void onReception(pimbsr::sim::Node const& node, pimbsr::sim::NodeInterface const& intf,
                   pimbsr::host::Reception const& reception) override;
  void onNeighbor(pimbsr::sim::Node const& node, pimbsr::sim::NodeInterface const& intf,
                  Lanet::IpGenAddr const& neighbor, bool up) override;
  void onDr(pimbsr::sim::Node const& node, pimbsr::sim::NodeInterface const& intf,
            Lanet::IpGenAddr const& dr) override;
  void onState(pimbsr::sim::Node const& node, Lanet::IpGenPrefix const& zone,
               Routing::Pim::Bsr::BsrCandidateState state) override;
  void onLoss(pimbsr::sim::Network const& network, pimbsr::sim::Link const* link,
              pimbsr::sim::Node const* node, pimbsr::sim::Loss loss, pimbsr::sim::Bytes packet) override;
  void onCommand(pimbsr::sim::Network const& network, pimbsr::sim::Statement const& statement) override;
  void onShow(pimbsr::sim::Network const& network, pimbsr::sim::Show const& show) override;
  void onEnd(pimbsr::sim::Network const&) override { lines.push_back("end"); }

  /// The lines since the last call.
  std::vector<std::string> take() { return std::exchange(lines, {}); }
  /// How many lines hold a text.
  int count(std::string_view text) const;

  std::vector<std::string> lines;

 private:
  void add(pimbsr::sim::Network const& network, std::string const& who, std::string const& what);
};

/// A packet as it was put on a link.
struct Tapped {
  Zet::U32 link;
  double time;
  std::vector<Zet::U8> bytes;
};

class TapRecorder final : public pimbsr::sim::Tap {
 public:
  void onPacket(Zet::U32 link, double time, pimbsr::sim::Bytes packet) override {
    packets.push_back({link, time, {packet.begin(), packet.end()}});
  }
  std::vector<Tapped> packets;
};

/// A scenario in the hand of a test.
class Script {
 public:
  explicit Script(std::string_view text = "", Zet::U64 seed = 1,
                  pimbsr::sim::Kinds kinds = pimbsr::sim::usualKinds)
      : simulation(seed, diary, kinds) {
    simulation.execute(text);
  }

  /// Carries out further statements and gives what was reported meanwhile.
  std::vector<std::string> play(std::string_view text) {
    diary.take();
    simulation.execute(text);
    return diary.take();
  }
  pimbsr::sim::Node const& node(Zet::U32 number) const { return simulation.network().node(number); }
  /// The BSR of a zone at a router; empty if it has none.
  std::string bsr(Zet::U32 router, std::string const& zone = "224.0.0.0/4") const;
  /// The RPs of a router, "range address ..." by range, joined by "; ".
  std::string rpSet(Zet::U32 router) const;
  Zet::U32 neighbors(Zet::U32 router, Zet::U32 intf) const;

  Diary diary;
  pimbsr::sim::Simulation simulation;
};

/// Routers r1 to r`count` in a row, with loopbacks 10.0.0.1 and so on; r1 and r2 share link l1 of prefix
/// 10.1.0.0/24 and have the addresses 10.1.0.1 and 10.1.0.2 there, and so on. `linkOptions` follows the
/// prefix of each link.
std::string row(int count, std::string const& linkOptions = "");

}  // namespace test
