#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Observer.h"
#include "host/Router.h"
#include "model/Counters.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// The RPs of one group range, by address.
struct RangeView {
  Lanet::IpGenPrefix range;  ///< the group range
  std::vector<RpView> rps;   ///< never empty
};

/// What a router has learned of one zone.
struct ZoneView {
  Lanet::IpGenPrefix zone;       ///< the scope zone, or the global one
  std::optional<BsrView> bsr;    ///< its BSR; unset if none is known
  std::vector<RangeView> rpSet;  ///< by range
};

/// Every zone that has a BSR, an RP set or a machine, by prefix.
PIMBSR_API std::vector<ZoneView> zonesOf(Router const& router);

/// One counter, or a counter made of parts, each a counter of its own.
struct CounterView {
  std::string name;                ///< of the attribute, such as "bsmRx"
  std::string sentence;            ///< what it counts; empty for a part
  Zet::U64 value = 0;              ///< the sum of the parts where there are any
  std::vector<CounterView> parts;  ///< empty for most
};

/// Every counter in declared order, read by name from the declared attributes.
PIMBSR_API std::vector<CounterView> countersOf(Routing::Pim::Bsr::PimBsrCounters const& counters);

}  // namespace pimbsr::host
