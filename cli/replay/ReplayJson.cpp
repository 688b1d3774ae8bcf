#include "cli/replay/ReplayJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "view/Fill.h"
#include "view/Json.h"
#include "view/Replay.h"

namespace pimbsr::cli {

static view::MessageCounts viewOf(MessageCounts const& messages) {
  return {.pim = messages.pim,
          .bsm = messages.bsm,
          .crpAdv = messages.crpAdv,
          .hello = messages.hello,
          .other = messages.other,
          .malformed = messages.malformed};
}

void ReplayJson::onEnd(ReplayResult const& result) {
  if (!result.complete) return;
  view::Replay shown{.messages = viewOf(result.messages)};
  for (auto const& [reason, drop] : result.messages.dropped) {
    shown.drops.push_back(
        {.reason = std::string(reason), .sentence = std::string(drop.sentence), .count = drop.count});
  }
  for (host::ZoneView const& zone : result.zones) {
    view::fillZone(shown.zones.emplace_back(), zone, result.now);
  }
  shown.counters = view::viewOf(result.counters);
  out_ << jsonOf(shown).dump(2) << '\n';
}

}  // namespace pimbsr::cli
