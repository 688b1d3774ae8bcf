#pragma once

#include "protocol/Fragments.h"

namespace Routing::Pim::Bsr {

/// The sizing rule of fragments, in bytes. The numbers are the same for every address family and are no sizes
/// of encoded fields, so that all routers with this rule cut a message alike.
inline constexpr U32 bsmHeaderLength = 36;
inline constexpr U32 bsmGroupLength = 12;
inline constexpr U32 bsmRpLength = 12;

/// Size of a message by the sizing rule: the RPs that its records announce count, not those that they hold.
PIMBSR_API U32 bsmLength(Packet::BootstrapMessage const& bsm);

/// Number of fragments planned for a message of `length` bytes above `mtu`; `scoped` messages repeat the
/// record of their zone in each fragment.
PIMBSR_API U32 fragmentEstimate(U32 length, U32 mtu, bool scoped);

/// Puts one group record into the first fragment that takes it whole. With `split` it is spread, where none
/// does, over the fragments that have room; RPs that fit nowhere are lost. Returns 0, or -1 if it
/// fits nowhere whole and may not be split. `zoneRpCount` is announced by the record of the zone that opens a
/// fragment of a scoped zone.
PIMBSR_API Zet::S32 doAddGroupData(Lanet::IpGenPrefix const& zone, U32 zoneRpCount,
                                   PimBsrTxFragments& fragments, U32 mtu,
                                   Packet::BootstrapGroupData const& groupData, bool split);

}  // namespace Routing::Pim::Bsr
