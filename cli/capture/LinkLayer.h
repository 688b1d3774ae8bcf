#pragma once

#include <span>
#include <string>

#include "runtime/Types.h"

namespace pimbsr::cli {

using Zet::U32;
using Zet::U8;

/// What a captured frame carries.
struct IpPacket {
  /// 4 or 6 by what the link says; 0 if the frame carries no IP.
  int version = 0;
  /// From the IP header on, with trailing bytes of the link.
  std::span<U8 const> bytes;
};

/// Whether frames of a link type, a DLT number of libpcap, can be read.
bool isLinkTypeKnown(int linkType);
/// The known link types, for a message.
std::string knownLinkTypes();
/// Finds the IP packet in a frame of a known link type: Ethernet with any number of VLAN tags (IEEE 802.1Q,
/// 802.1ad), Linux cooked 1 and 2, raw IP, BSD loopback.
IpPacket ipPacketOf(int linkType, std::span<U8 const> frame);

}  // namespace pimbsr::cli
