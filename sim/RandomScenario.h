#pragma once

#include <string>
#include <vector>

#include "sim/Random.h"

namespace pimbsr::sim {

/// A scenario drawn from a seed: a connected network with candidates and, in half of the cases, a scoped zone
/// within borders; a phase of faults; and the healing. It is text in the scenario language, so that a seed
/// that fails can be kept, reduced and added as a scenario test.
class RandomScenario {
 public:
  static constexpr U32 minRouters = 2;
  static constexpr U32 maxRouters = 200;  ///< of the networks that must agree in the end
  /// Seconds at which the phase of faults starts and ends.
  static constexpr U32 faultsFrom = 200;
  static constexpr U32 faultsUntil = 500;
  /// When the last of what the faults broke has come back.
  static constexpr U32 healedAt = faultsUntil + 120;

  /// `routers` is from minRouters to 10,000. Above maxRouters a network may need longer to settle.
  RandomScenario(U64 seed, U32 routers);

  /// Links, routers and what they are configured to do.
  std::string const& network() const { return network_; }
  /// What goes wrong, and when; it ends with the clock at faultsUntil.
  std::string const& faults() const { return faults_; }
  /// All links up and perfect, all routers running.
  std::string const& healing() const { return healing_; }
  /// The number of a router to be restarted at the end.
  U32 restarted() const { return restarted_; }

 private:
  void drawTree();
  void drawLinks();
  void addLink();
  void drawBsrs(char const* zone, std::vector<U32> const& among);
  void drawCandidates();
  void drawFaults();
  void drawFault(U32 time);
  void attach(U32 router);
  void attachMore();
  U32 anyRouter() { return rng_.below(routers_); }
  U32 anyLink() { return rng_.below(static_cast<U32>(links_.size())); }

  Rng rng_;
  U32 routers_;
  std::vector<U32> parents_;             ///< in the tree, by router
  std::vector<std::vector<U32>> links_;  ///< routers by link
  U32 zoneTop_ = 0;                      ///< the router that all of the scoped zone hang below; 0 for no zone
  std::vector<bool> inZone_;             ///< by router
  U32 bsr_ = 0;                          ///< a candidate BSR of all groups
  std::string network_;
  std::string faults_;
  std::string healing_;
  U32 restarted_ = 0;
};

}  // namespace pimbsr::sim
