#pragma once

#include "model/Lanet.h"
#include "runtime/Ptr.h"

namespace Routing::Pim {

/// What is known of the way towards an address.
struct RpfLookupResult {
  /// The RPF neighbor (RFC 5059 section 3.1.3); the unset address if there is none.
  Lanet::IpGenAddr rpfNeighbor;
};

/// RPF neighbors, as the host knows them from its unicast routes and PIM neighbors.
class PIMBSR_API PimRpfTable : public Zet::PtrInterface {
 public:
  /// Looks up the neighbor towards `address`. The second address may narrow the question to a group or
  /// source; the machines leave it unset. No neighbor is an ordinary result.
  virtual RpfLookupResult doLookup(Lanet::IpGenAddr const& address, Lanet::IpGenAddr const& second) = 0;
};

}  // namespace Routing::Pim
