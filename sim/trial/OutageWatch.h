#pragma once

#include <set>
#include <span>
#include <vector>

#include "sim/trial/Checkers.h"

namespace pimbsr::sim {

/// Seconds for which routers that keep running are without the BSR of a zone, or without an RP for a group,
/// while the network goes from one state to another. A router is looked at for what it has before that and
/// is to have afterwards; for a group, where it knows the RP of afterwards before. Another BSR may permit an
/// RP that the former one did not.
class OutageWatch {
 public:
  struct Bounds {
    U32 bsr = 0;
    U32 rp = 0;
  };

  /// Takes what the running routers have now, before the change.
  OutageWatch(Network const& network, std::span<Lanet::IpAddr const> groups);
  /// Leaves out a router that does not keep running.
  void leaveOut(U32 node);
  /// Leaves out what is not expected any more. To be called after the change, before time advances.
  void expect(Expectation const& after);
  /// Looks once; to be called each second.
  void sample();
  /// What lasted for longer than that.
  Findings longerThan(Bounds const& bounds) const;

 private:
  struct Watched {
    U32 node = 0;
    Lanet::IpGenPrefix zone;  ///< empty for a group
    Lanet::IpAddr group;
    std::set<Lanet::IpGenAddr> rps;  ///< of all ranges that cover the group, as they are known before
    U32 seconds = 0;                 ///< of the outage that goes on
    U32 most = 0;
  };

  bool isServed(Watched const& watched) const;

  Network const& network_;
  std::vector<Watched> watched_;
};

}  // namespace pimbsr::sim
