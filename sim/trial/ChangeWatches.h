#pragma once

#include <set>
#include <span>
#include <string>
#include <vector>

#include "sim/trial/Checkers.h"

/// What is watched while a network goes from one state to another.
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

/// Seconds for which routers that keep running use different RPs for a group, so that receivers join one RP
/// and senders register with another (RFC 7761 section 4.7). Routers are compared that know the same BSRs,
/// and are to have the same; one that uses no RP is left to OutageWatch.
class AgreementWatch {
 public:
  /// In seconds.
  struct Bounds {
    U32 lasting = 0;  ///< between RPs that are to stay
    U32 ending = 0;   ///< where one of them has crashed, is cut off, or is not advertised to the next BSR
  };

  /// Takes the routers that run, and of the groups those which are to have an RP. To be made after the
  /// change, before time advances.
  AgreementWatch(Network const& network, Expectation const& after, std::span<Lanet::IpAddr const> groups);
  /// Leaves out a router that does not keep running.
  void leaveOut(U32 node);
  /// Looks once; to be called each second.
  void sample();
  /// What lasted for longer than that.
  Findings longerThan(Bounds const& bounds) const;

 private:
  struct Difference {
    U32 seconds = 0;  ///< of the difference that goes on
    U32 most = 0;
    std::string used;  ///< by two routers, when it lasted longest
  };
  struct Watched {
    std::vector<U32> nodes;
    Lanet::IpAddr group;
    std::set<RangeRp> rps;  ///< that are to stay
    Difference lasting, ending;
  };
  enum class Compared : U8 { all, lasting };

  std::string differing(Watched const& watched, Compared compared) const;

  Network const& network_;
  std::vector<Watched> watched_;
};

}  // namespace pimbsr::sim
