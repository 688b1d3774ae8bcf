#pragma once

#include <string_view>
#include <vector>

#include "model/Lanet.h"
#include "runtime/Types.h"

/// The packets of attacks, each prepared as a whole Ethernet frame before the first one is sent.
namespace attack {

using Lanet::IpAddr;
using Lanet::Prefix;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// From the Ethernet header on.
using Frame = std::vector<U8>;

/// What the packets of an attack say. Each kind of attack reads the fields that it needs.
struct Plan {
  IpAddr source = IpAddr::parse("10.0.1.1");         ///< IP source, the first one if there are several
  U32 sources = 1;                                   ///< source addresses in a row, used in turn
  IpAddr destination = IpAddr::parse("224.0.0.13");  ///< ALL-PIM-ROUTERS or, of advertisements, the BSR
  std::vector<U8> mac = {1, 0, 0x5e, 0, 0, 13};      ///< Ethernet destination, 6 bytes
  IpAddr bsr = IpAddr::parse("10.0.1.1");            ///< BSR address of Bootstrap Messages
  U8 priority = 64;                                  ///< of the BSR, or of the RP of an advertisement
  Prefix range = Prefix::parse("224.0.0.0/4");       ///< group range; a longer one than /4 is a scope zone
  IpAddr rp = IpAddr::parse("10.9.0.1");             ///< first RP address where the kind names several
  U16 holdtime = 150;                                ///< seconds, of neighbors and RPs
  U32 count = 1;                                     ///< RPs, ranges, zones, tags or messages of the kind
  U32 bits = 16;                                     ///< leading bits of the hash that chosen keys share
  U64 seed = 1;                                      ///< of what is random
};

/// The names of all kinds, in alphabetical order.
std::vector<std::string_view> kinds();

/// The frames of a kind, to be sent in turn and from the first again. Throws std::invalid_argument for a name
/// that is no kind.
std::vector<Frame> framesOf(std::string_view kind, Plan const& plan);

}  // namespace attack
