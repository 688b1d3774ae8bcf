#pragma once

#include "model/Rpf.h"
#include "model/UcastRoute.h"
#include "pim/NeighborTable.h"
#include "pim/Port.h"

namespace pimbsr::pim {

/// The best route to an address: that of the outside where it looks routes up, else that of `routes`. The
/// default value if there is none.
PIMBSR_INTERNAL ::Slosh::Fib::Route routeTo(Lanet::IpGenAddr const& address,
                                            Routing::Pim::PimUcastRouteStatus const& routes,
                                            Port const& port);

/// RPF neighbors from unicast routes and Hello neighbors (RFC 5059 section 3.1.3, RFC 7761 section 4.1).
///
/// An address of this router has no RPF neighbor, so that a BSR drops its own flood. A connected address
/// has the neighbor that owns it, and a remote one the neighbor that owns the next hop; without such a
/// neighbor there is none. The answer is the neighbor's primary address, which is what its messages come
/// from.
class PIMBSR_INTERNAL RpfTable : public Routing::Pim::PimRpfTable {
 public:
  /// The port outlives the table.
  RpfTable(Zet::Ptr<Routing::Pim::PimUcastRouteStatus const> const& routes,
           Zet::Ptr<NeighborTable const> const& neighbors, Port const& port)
      : routes_(routes), neighbors_(neighbors), port_(port) {}

  Routing::Pim::RpfLookupResult doLookup(Lanet::IpGenAddr const& address,
                                         Lanet::IpGenAddr const& second) override;

 private:
  Zet::Ptr<Routing::Pim::PimUcastRouteStatus const> routes_;
  Zet::Ptr<NeighborTable const> neighbors_;
  Port const& port_;
};

}  // namespace pimbsr::pim
