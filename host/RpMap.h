#pragma once

#include <vector>

#include "model/RpSet.h"

namespace pimbsr::host {

/// One RP that was looked at for a group.
struct RpChoice {
  Lanet::IpGenAddr address;  ///< of the RP
  U32 priority = 0;          ///< lower wins
  U32 hashMaskLen = 0;       ///< mask length for the hash
  U32 hash = 0;              ///< hash value for the group, higher wins
};

/// What decided between the RPs of a range.
enum class RpTieBreak : U8 {
  noRp,      ///< no range covers the group, or none has a live RP
  onlyOne,   ///< the range has one live RP
  priority,  ///< one RP has the lowest priority
  hash,      ///< one of those with the lowest priority has the highest hash
  address,   ///< the highest address of those that are equal in both
};

/// Which RP serves a group, and why.
struct RpAnswer {
  Lanet::IpGenAddr rp;                     ///< unset if no RP serves the group
  Lanet::IpGenPrefix range;                ///< the range that it was taken from
  RpTieBreak tieBreak = RpTieBreak::noRp;  ///< what decided
  std::vector<RpChoice> choices;           ///< the live RPs of that range, the best first
  std::vector<Lanet::IpGenPrefix> ranges;  ///< all ranges that cover the group, the longest first
};

/// 224.0.0.0/24, groups that no router forwards, so that no RP serves them (RFC 5771 section 4).
PIMBSR_API Lanet::IpGenPrefix const& linkLocalGroups();

/// The hash of RFC 7761 section 4.7.2 for a group, a mask length of 0 to 32 and an RP. A longer mask counts
/// as 32.
PIMBSR_API U32 rpHash(Lanet::IpAddr group, U32 hashMaskLen, Lanet::IpAddr rp);

/// Answers for the RP set that PIM reads (RFC 7761 section 4.7.1): the longest range that covers the group,
/// in it the lowest priority, then the highest hash, then the highest address. An RP whose `expires` is past
/// counts as absent, and a range without a live RP as well.
class PIMBSR_API RpMap {
 public:
  /// Answers from this RP set, which is read at each question and must not be null.
  explicit RpMap(Zet::Ptr<Routing::Pim::RpCandidateStatus const> const& rpSet) : rpSet_(rpSet) {}

  /// The RP of an IPv4 group at a time, in seconds on the clock of Zet::now().
  RpAnswer lookup(Lanet::IpAddr group, double now) const;

 private:
  Zet::Ptr<Routing::Pim::RpCandidateStatus const> rpSet_;
};

}  // namespace pimbsr::host
