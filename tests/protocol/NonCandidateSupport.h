#pragma once

#include <string>
#include <vector>

#include "tests/support/Engine.h"

namespace test {

using State = Routing::Pim::Bsr::BsrNonCandidateState;
using Texts = std::vector<std::string>;

inline std::string const global = "224.0.0.0/4";
inline std::string const scoped = "239.0.0.0/8";

/// A message of the scoped zone with one RP.
inline Bsm scopedBsm(Bsm given = {}) {
  given.groups = {{scoped, {{"203.0.113.1"}}, scopedFlag}};
  return given;
}

/// A message of the global zone with one RP.
inline Bsm globalBsm(Bsm given = {}) {
  given.groups = {{global, {{"203.0.113.1"}}}};
  return given;
}

/// When a timer goes off, in seconds after the start; infinite if it doesn't.
inline double due(Engine const& engine, Kiv::TimerWheel::NotifieeConst const* timer) {
  return timer->isArmed() ? engine.since(timer->timeMin()) : Kiv::never;
}

/// Base of tests on the machine of a zone in which the router is no candidate.
class NonCandidate : public EngineTest {
 protected:
  double bsTimer(std::string const& zone) const { return due(engine, engine.follower(zone)->zetBsTimer()); }
  double szTimer(std::string const& zone) const { return due(engine, engine.follower(zone)->zetSzTimer()); }
  double expiry(std::string const& zone) const { return engine.since(engine.elected(zone)->expiryTime()); }
  State state(std::string const& zone) const { return engine.follower(zone)->state(); }
  /// What the zone machines have traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("BsrNonCandidateSm");
    context.traces.clear();
    return all;
  }
};

}  // namespace test
