#pragma once

#include <string>
#include <vector>

#include "model/Lanet.h"
#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// How a link treats packets badly: probabilities from 0 to 1, each drawn once for each receiver of a packet.
struct Faults {
  double loss = 0;       ///< the packet doesn't arrive
  double duplicate = 0;  ///< it arrives twice
  double reorder = 0;    ///< it is held back for up to `heldBack` seconds, and others may overtake it
  double corrupt = 0;    ///< one of its bits is changed; drawn for each copy

  static constexpr double heldBack = 0.1;
  bool operator==(Faults const&) const = default;
};

struct LinkOptions {
  std::string name;
  Lanet::Prefix prefix;
  U32 mtu = 1500;        ///< bytes of an IPv4 packet
  double delay = 0.001;  ///< seconds that every packet takes
  double jitter = 0;     ///< seconds up to which it may take longer
  Faults faults;
};

/// A router's interface, by the numbers of the router and of the interface in it.
struct Attachment {
  U32 node = 0;
  U32 intf = 0;
};

/// A network segment to which any number of routers are attached.
struct Link {
  LinkOptions options;
  bool up = true;
  std::vector<Attachment> attached;
  /// When the last packet arrives at each of those attached: unless it is held back, none overtakes another.
  std::vector<double> lastArrival;
  U64 second = 0;   ///< of the run, for which the next member counts
  U32 packets = 0;  ///< put on the link in that second
};

/// Why a packet did not arrive.
enum class Loss : U8 {
  fault,       ///< the link's loss
  tooBig,      ///< longer than the link's MTU
  down,        ///< the link was down
  noReceiver,  ///< no running router has the address on that link
  noRoute,     ///< a router had no route
  ttl          ///< its time to live was over
};

/// A short description of the reason, such as "too big".
std::string_view textOf(Loss loss);

}  // namespace pimbsr::sim
