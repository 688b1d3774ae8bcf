#include "cli/replay/ReplayJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/replay/ReplayViews.h"
#include "view/Fill.h"
#include "view/Json.h"
#include "view/Replay.h"

namespace pimbsr::cli {

struct ReplayJson::Document {
  view::Replay replay;
};

ReplayJson::ReplayJson(Take take) : take_(std::move(take)), document_(std::make_unique<Document>()) {}

ReplayJson::ReplayJson(std::ostream& out)
    : ReplayJson([&out](view::Json const& document) { out << document.dump(2) << '\n'; }) {}

ReplayJson::~ReplayJson() = default;

void ReplayJson::onMessage(PlayedMessage const& message, std::span<host::Change const> changes) {
  document_->replay.timeline.push_back(eventOf(message, changes));
}

void ReplayJson::onTimers(double time, std::span<host::Change const> changes) {
  document_->replay.timeline.push_back(eventOf(time, changes));
}

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
  view::Replay& shown = document_->replay;
  shown.end = result.end;
  shown.messages = viewOf(result.messages);
  for (auto const& [reason, drop] : result.messages.dropped) {
    shown.drops.push_back(
        {.reason = std::string(reason), .sentence = std::string(drop.sentence), .count = drop.count});
  }
  for (host::ZoneView const& zone : result.zones) {
    view::fillZone(shown.zones.emplace_back(), zone, result.now);
  }
  shown.counters = view::viewOf(result.counters);
  take_(jsonOf(shown));
}

}  // namespace pimbsr::cli
