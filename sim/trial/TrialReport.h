#pragma once

#include "sim/trial/MessageWatches.h"

namespace pimbsr::sim {

/// Watches the packets of a random network, and passes events on to another report, if there is one.
class TrialReport final : public Report {
 public:
  /// `other` may be null and outlives it.
  explicit TrialReport(Report* other) : other_(other) {}
  /// To be called before the first packet.
  void networkIs(Network const& network) { network_ = &network; }
  Findings findings() const;

  void onSent(Node const& node, NodeInterface const& intf, Bytes packet) override;
  void onReception(Node const& node, NodeInterface const& intf, host::Reception const& reception) override;
  void onLoss(Network const& network, Link const* link, Node const* node, Loss loss, Bytes packet) override;
  void onRunning(Node const& node, bool running) override;
  void onLink(Network const& network, U32 link, bool up) override;
  void onChanges(Node const& node, std::span<host::Change const> changes) override;
  void onCommand(Network const& network, Statement const& statement) override;
  void onEnd(Network const& network) override;

 private:
  Network const* network_ = nullptr;
  Report* other_;
  BorderWatch borders_;
  SizeWatch sizes_;
  FloodWatch floods_;
  PaceWatch pace_;
  AnswerWatch answers_;
};

}  // namespace pimbsr::sim
