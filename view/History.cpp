#include "view/History.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

namespace pimbsr::view {

/// What was other of the BSR before.
static std::string formerOf(Event const& event) {
  BsrTerms const& bsr = *event.bsr;
  BsrTerms const& former = *event.formerBsr;
  bool wasOwn = event.formerOwn.value_or(false);
  std::string text;
  auto add = [&](std::string const& part) { text += (text.empty() ? "" : ", ") + part; };
  if (former.address != bsr.address) {
    add(cellOf(former.address, "-") + (wasOwn ? " (this router)" : ""));
  } else if (wasOwn != event.own.value_or(false)) {
    add(wasOwn ? "this router" : "another router");
  }
  if (former.priority != bsr.priority) add(fmt::format("priority {}", former.priority));
  if (former.hashMaskLen != bsr.hashMaskLen) add(fmt::format("hash mask length {}", former.hashMaskLen));
  return text;
}

static std::string detailsOfBsr(Event const& event) {
  BsrTerms const& bsr = *event.bsr;
  std::string text = cellOf(bsr.address, "-") + (event.own.value_or(false) ? " (this router)" : "");
  if (event.event == keyOf(EventKind::bsrLost)) return text;
  text += fmt::format(", priority {}", bsr.priority);
  if (!event.formerBsr) return text;
  bool otherMask = event.formerBsr->hashMaskLen != bsr.hashMaskLen;
  if (otherMask) text += fmt::format(", hash mask length {}", bsr.hashMaskLen);
  return text + "; was " + formerOf(event);
}

static std::string termsOf(RangeRp const& rp) {
  return fmt::format("priority {}, holdtime {} s{}", rp.priority, rp.holdtime,
                     rp.bidirectional ? ", bidirectional" : "");
}

static std::string detailsOfRp(Event const& event) {
  RangeRp const& rp = *event.rp;
  std::string text = fmt::format("{} for {}", cellOf(rp.address, "-"), cellOf(rp.range, "-"));
  bool isGone = event.event == keyOf(EventKind::rpRemoved) || event.event == keyOf(EventKind::rpExpired);
  if (!isGone) text += ", " + termsOf(rp);
  if (event.formerRp) text += "; was " + termsOf(*event.formerRp);
  return text;
}

/// As in "12 added, 3 removed: 10.0.0.1, 10.0.0.2, ...".
static std::string detailsOfRps(Event const& event) {
  std::pair<char const*, Zet::U64> const counts[] = {{"added", event.rps->added},
                                                     {"updated", event.rps->updated},
                                                     {"kept", event.rps->kept.value_or(0)},
                                                     {"removed", event.rps->removed},
                                                     {"expired", event.rps->expired}};
  std::string text;
  for (auto const& [change, count] : counts) {
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, change);
  }
  return text + ": " + cellOf(event.firstRps, "-") + (event.moreRps.value_or(false) ? ", ..." : "");
}

static std::string detailsOfState(Event const& event) {
  std::optional<std::string> former = event.formerState.value_or(std::nullopt);
  if (!*event.state) return "candidacy ended; was " + cellOf(former, "-");
  return former ? **event.state + "; was " + *former : **event.state;
}

static std::string detailsOfStart(Event const& event) {
  if (!event.orderly) return "";
  return *event.orderly ? "the run before ended in order" : "the run before was killed or crashed";
}

static std::string detailsOfOne(Event const& event) {
  if (event.bsr) return detailsOfBsr(event);
  if (event.rp) return detailsOfRp(event);
  if (event.rps) return detailsOfRps(event);
  return event.state ? detailsOfState(event) : detailsOfStart(event);
}

/// What the last change was and, of several, how many.
std::string detailsOf(Event const& view) {
  std::string text = detailsOfOne(view);
  if (!view.count) return text;
  std::string span = spanOf(view.time - view.firstTime.value_or(view.time));
  return fmt::format("{}{}{} times in {}", text, text.empty() ? "" : "; ", *view.count, span);
}

std::string localTime(double seconds) {
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(static_cast<std::time_t>(seconds)));
}

std::string localTimeOf(Event const& view) { return localTime(view.time); }

std::string causeTextOf(Event const& view) {
  Cause const& cause = view.cause;
  if (cause.kind != keyOf(CauseKind::message)) return shownCauseKind(cause.kind);
  return fmt::format("{} from {} on {}", shownMessageKind(cause.message.value_or("-")),
                     cellOf(cause.sender, "-"), cellOf(cause.interface, "-"));
}

}  // namespace pimbsr::view
