#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Machines.h"
#include "host/Observer.h"
#include "host/Views.h"
#include "view/History.h"
#include "view/Learned.h"

/// Fills the views of the learned state, for the agent, the simulator and the replay.
namespace pimbsr::view {

/// Fills what a BSR announces of itself, and of an RP, into a view that has it.
template <class View>
void fillTerms(View& shown, host::BsrView const& bsr) {
  fillBsrTerms(shown, bsr);
}
template <class View>
void fillTerms(View& shown, host::RpView const& rp) {
  fillRpTerms(shown, rp);
  shown.bidirectional = rp.mode == Routing::Pim::Mode::bidir;
}

/// Nothing for a BSR, or an RP, without an address.
std::optional<BsrTerms> termsOf(host::BsrView const& bsr);
std::optional<RangeRp> termsOf(host::RpView const& rp);

/// The reverse; the expiry time is 0.
inline host::BsrView bsrOf(BsrTerms const& terms) {
  host::BsrView bsr;
  restoreBsrTerms(terms, bsr);
  return bsr;
}
inline host::RpView rpOf(RangeRp const& terms) {
  using Routing::Pim::Mode;
  host::RpView rp{.range = terms.range, .mode = terms.bidirectional ? Mode::bidir : Mode::sparse};
  restoreRpTerms(terms, rp);
  return rp;
}

/// The RP set of a zone; `now` is the time on the clock of the router.
std::vector<SetRange> setOf(host::ZoneView const& zone, double now);

/// Fills the BSR and the RP set of a zone into a view that has them.
template <class View>
void fillZone(View& shown, host::ZoneView const& zone, double now) {
  shown.zone = zone.zone;
  if (zone.bsr) fillTerms(shown.bsr.emplace(), *zone.bsr);
  shown.rpSet = setOf(zone, now);
}

/// Fills what a change says of BSR and RP into a view that has it.
template <class View, class Change>
void fillChange(View& shown, Change const& change) {
  shown.zone = change.zone;
  shown.bsr = termsOf(change.bsr);
  shown.formerBsr = termsOf(change.formerBsr);
  shown.rp = termsOf(change.rp);
  shown.formerRp = termsOf(change.formerRp);
}

/// The name of a change as an event.
EventKind kindOf(host::ChangeKind kind);

/// The engine's counters.
std::vector<Counter> viewOf(std::vector<host::CounterView> const& counters);

/// The name of a machine's state; nothing where there is no machine.
std::optional<std::string> stateOf(host::MachineView const& machine);

}  // namespace pimbsr::view
