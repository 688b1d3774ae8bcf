#pragma once

#include <set>

#include "host/Corrections.h"
#include "model/Status.h"

namespace pimbsr::host {

/// Which zones end at which interfaces: a border closes the zones within its own too (RFC 5059 section
/// 3.1.3), where that correction is on.
class PIMBSR_INTERNAL Borders {
 public:
  /// Both are read for as long as this object is.
  Borders(Zet::Ptr<Routing::Pim::Bsr::Status const> const& status, CorrectionSwitch const& covering)
      : status_(status), covering_(covering) {}

  /// Replaces the interfaces whose borders close exactly their zones; none at first.
  void exactAre(std::set<Lanet::IntfId> const& interfaces) { exact_ = interfaces; }

  /// Whether an interface is a border of exactly this zone, which the engine knows by itself.
  bool isBorder(Lanet::IpGenPrefix const& zone, Lanet::IntfId const& intfId) const;
  /// Whether an interface is a border of a zone that this one lies within and is not.
  bool isCovered(Lanet::IpGenPrefix const& zone, Lanet::IntfId const& intfId) const;

 private:
  Zet::Ptr<Routing::Pim::Bsr::Status const> status_;
  CorrectionSwitch const& covering_;
  std::set<Lanet::IntfId> exact_;
};

}  // namespace pimbsr::host
