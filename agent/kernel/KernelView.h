#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/Lanet.h"

namespace pimbsr::agent {

/// One IPv4 address of an interface with its subnet.
struct KernelAddress {
  Lanet::IpAddr address;
  Zet::U32 prefixLength = 32;  ///< 0 to 32
  bool secondary = false;
  Lanet::IpAddr peer;  ///< the far end of a point-to-point link, whose subnet it is then; else 0.0.0.0

  bool operator==(KernelAddress const&) const = default;
};

/// Whether others could send to an address: those of 127.0.0.0/8 stay on the host (RFC 1122 section 3.2.1.3).
inline bool isUsable(KernelAddress const& address) { return address.address.hostWord() >> 24 != 127; }

/// One network interface of the kernel.
struct KernelLink {
  int index = 0;
  std::string name;
  bool up = false;  ///< administratively up and with carrier
  bool loopback = false;
  Zet::U32 mtu = 1500;                   ///< bytes
  std::vector<KernelAddress> addresses;  ///< in the kernel's order: primary ones first

  bool operator==(KernelLink const&) const = default;
};

/// The kernel's interfaces and addresses as one value.
struct KernelView {
  std::map<std::string, KernelLink> links;  ///< by name

  bool operator==(KernelView const&) const = default;
};

}  // namespace pimbsr::agent
