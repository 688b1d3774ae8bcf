#pragma once

#include "model/Lanet.h"
#include "runtime/Assert.h"

namespace Routing::Pim::Bsr {

/// What the address of a source interface is good for.
enum class SourceAddress {
  unset,  ///< there is none, not even 0.0.0.0
  zero,   ///< 0.0.0.0: the interface has none now
  set,
};

/// Ends the process for an IPv6 address: only IPv4 is served.
inline SourceAddress kindOf(Lanet::IpGenAddr const& address) {
  ZET_ASSERT(address.af() != Lanet::AddressFamily::ipv6, "IPV6 not supported");
  if (address.isEmpty()) return SourceAddress::unset;
  bool isZero = address.af() == Lanet::AddressFamily::ipv4 && address.v4Addr() == Lanet::IpAddr();
  return isZero ? SourceAddress::zero : SourceAddress::set;
}

}  // namespace Routing::Pim::Bsr
