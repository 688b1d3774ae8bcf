#pragma once

#include "model/Pim.h"
#include "model/Rpf.h"
#include "model/UcastRoute.h"
#include "pim/Port.h"

namespace pimbsr::pim {

/// RPF neighbours from unicast routes and Hello neighbours (RFC 5059 section 3.1.3, RFC 7761 section 4.1).
///
/// An address of this router has no RPF neighbour, so that a BSR refuses its own flood. A connected address
/// has the neighbour that owns it, and a remote one the neighbour that owns the next hop; without such a
/// neighbour there is none. The answer is the neighbour's primary address, which is what its messages come
/// from.
class PIMBSR_API RpfTable : public Routing::Pim::PimRpfTable {
 public:
  /// The port outlives the table.
  RpfTable(Zet::Ptr<Routing::Pim::PimUcastRouteStatus const> const& routes,
           Zet::Ptr<Routing::Pim::Status const> const& pimStatus, Port const& port)
      : routes_(routes), pimStatus_(pimStatus), port_(port) {}

  Routing::Pim::RpfLookupResult doLookup(Lanet::IpGenAddr const& address,
                                         Lanet::IpGenAddr const& second) override;

 private:
  Lanet::IpGenAddr ownerOn(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const;

  Zet::Ptr<Routing::Pim::PimUcastRouteStatus const> routes_;
  Zet::Ptr<Routing::Pim::Status const> pimStatus_;
  Port const& port_;
};

}  // namespace pimbsr::pim
