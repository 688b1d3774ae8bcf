#include "view/Fill.h"

#include <algorithm>

namespace pimbsr::view {

std::optional<BsrTerms> termsOf(host::BsrView const& bsr) {
  if (bsr.address.isEmpty()) return std::nullopt;
  BsrTerms shown;
  fillTerms(shown, bsr);
  return shown;
}

std::optional<RangeRp> termsOf(host::RpView const& rp) {
  if (rp.address.isEmpty()) return std::nullopt;
  RangeRp shown{.range = rp.range};
  fillTerms(shown, rp);
  return shown;
}

static SetRange viewOf(host::RangeView const& range, double now) {
  SetRange shown{.range = range.range};
  for (host::RpView const& rp : range.rps) {
    fillTerms(shown.rps.emplace_back(), rp);
    shown.rps.back().expiresIn = std::max(0.0, rp.expires - now);
    if (rp.kept) shown.rps.back().kept = true;
  }
  return shown;
}

std::vector<SetRange> setOf(host::ZoneView const& zone, double now) {
  std::vector<SetRange> shown;
  for (host::RangeView const& range : zone.rpSet) shown.push_back(viewOf(range, now));
  return shown;
}

EventKind kindOf(host::ChangeKind kind) {
  static_assert(static_cast<int>(EventKind::bsrElected) == static_cast<int>(host::ChangeKind::bsrElected));
  static_assert(static_cast<int>(EventKind::zoneForgotten) ==
                static_cast<int>(host::ChangeKind::zoneForgotten));
  return static_cast<EventKind>(kind);
}

static Counter viewOf(host::CounterView const& counter) {
  Counter shown{.name = counter.name, .value = counter.value, .sentence = counter.sentence};
  for (host::CounterView const& part : counter.parts) {
    shown.parts.push_back({.name = part.name, .value = part.value});
  }
  return shown;
}

std::vector<Counter> viewOf(std::vector<host::CounterView> const& counters) {
  std::vector<Counter> shown;
  shown.reserve(counters.size());
  for (host::CounterView const& counter : counters) shown.push_back(viewOf(counter));
  return shown;
}

std::optional<std::string> stateOf(host::MachineView const& machine) {
  return machine.state == "-" ? std::nullopt : std::optional(std::string(machine.state));
}

}  // namespace pimbsr::view
