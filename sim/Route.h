#pragma once

#include "model/Lanet.h"
#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// Where a router sends a packet next.
struct NextHop {
  U32 intf = 0;
  Lanet::IpAddr address;
};

/// A router's way to one address; no hops for none.
struct Way {
  U32 hops = 0;
  U32 intf = 0;
  Lanet::IpAddr nextHop;
  bool operator==(Way const&) const = default;
};

struct FoundRoute {
  Lanet::IpAddr destination;
  Way way;
};

}  // namespace pimbsr::sim
