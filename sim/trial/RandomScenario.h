#pragma once

#include <string>

#include "sim/trial/RandomFaults.h"

namespace pimbsr::sim {

/// A scenario drawn from a seed: a network, a phase of faults, and the healing. It is text in the scenario
/// language, so that a seed that fails can be kept, reduced and added as a scenario test.
class RandomScenario {
 public:
  static constexpr U32 minRouters = 2;
  static constexpr U32 maxRouters = 2000;  ///< of the networks that must agree in the end
  /// Seconds at which the phase of faults starts and ends.
  static constexpr U32 faultsFrom = RandomFaults::from;
  static constexpr U32 faultsUntil = RandomFaults::until;
  /// When the last of what the faults broke has come back.
  static constexpr U32 healedAt = RandomFaults::healedAt;

  /// `routers` is from minRouters to 10,000. Above maxRouters a network may need longer to settle.
  RandomScenario(U64 seed, U32 routers, Domain domain = Domain::corrected)
      : rng_(seed), network_(rng_, routers, domain), faults_(rng_, network_) {}

  /// Links, routers and what they are configured to do.
  std::string const& network() const { return network_.text(); }
  /// The faults and their times; it ends with the clock at faultsUntil.
  std::string const& faults() const { return faults_.text(); }
  /// All links up and perfect, all routers running, and the mistakes of operators corrected.
  std::string const& healing() const { return faults_.healing(); }
  /// The address with which a router is a candidate BSR of a zone or, if it is none, would be.
  std::string bsrAddress(U32 router, std::string_view zone) const {
    return network_.bsrAddress(router, zone);
  }
  /// The statement that takes a range from a candidate RP; nothing where no RP is drawn.
  std::string removalOfRange() { return network_.removalOfRange(); }
  /// The RNG, for what follows.
  Rng& rng() { return rng_; }

 private:
  Rng rng_;
  RandomNetwork network_;
  RandomFaults faults_;
};

}  // namespace pimbsr::sim
