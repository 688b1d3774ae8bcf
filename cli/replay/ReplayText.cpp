#include "cli/replay/ReplayText.h"

#include <ostream>
#include <utility>

namespace pimbsr::cli {

namespace Packet = Routing::Pim::Packet;
using host::Change;
using host::MessageKind;
using host::Reception;

void ReplayText::onStart(CaptureTime const& first) { first_ = first; }

/// The head comes with the first row: a capture without PIM has none.
void ReplayText::writeRow(TimelineRow const& row) {
  if (!std::exchange(hasHead_, true)) {
    std::string date = first_.isReal() ? "at " + first_.text() : "without a date";
    out_ << fmt::format("{}: first packet {}; times are seconds after it\n\n", file_, date);
    out_ << lineOf({"time", "event", "from, zone, range", "BSR or RP", "details"});
  }
  out_ << lineOf(row);
}

// Messages --------------------------------------------------------------------------------------------

static std::string detailsOf(Packet::BootstrapMessage const& bsm, Reception const& reception) {
  std::string details = fmt::format("priority {}, tag {:#06x}", bsm.bsrPriority(), bsm.fragmentTag());
  if (!bsm.forward()) details += ", No-Forward";
  bool isToAllRouters = reception.destination == Lanet::IpGenAddr(Lanet::allPimRouters);
  if (!isToAllRouters) details += ", to " + textOf(reception.destination);
  return details;
}

static std::string detailsOf(Packet::CrpAdvMessage const& adv, Reception const& reception) {
  return fmt::format("to {}, priority {}, holdtime {} s, prefix count {}", textOf(reception.destination),
                     adv.priority(), adv.holdtime(), adv.prefixCount());
}

static TimelineRow rowOf(PlayedMessage const& played) {
  Reception const& reception = played.reception;
  std::string verdict = reception.accepted() ? " accepted" : " dropped";
  TimelineRow row{.time = textOfTime(played.time), .where = textOf(reception.source)};
  if (reception.kind == MessageKind::bootstrap) {
    auto const& bsm = static_cast<Packet::BootstrapMessage const&>(*reception.message);
    row.event = "BSM" + verdict;
    row.who = textOf(bsm.bsrAddress());
    row.details = detailsOf(bsm, reception);
  } else if (reception.kind == MessageKind::crpAdv) {
    auto const& adv = static_cast<Packet::CrpAdvMessage const&>(*reception.message);
    row.event = "C-RP-Adv" + verdict;
    row.who = textOf(adv.rpAddress());
    row.details = detailsOf(adv, reception);
  } else {
    row.event = "PIM malformed";
  }
  return row;
}

/// Why a message was dropped, with the RPF neighbor where that was the reason.
static std::string dropTextOf(PlayedMessage const& played) {
  std::string text = fmt::format("{}: {}", played.reception.reason, played.reception.sentence);
  if (played.reception.reason == name(DropReason::notRpfNeighbor)) {
    text += fmt::format(" That is {}.", textOf(played.rpfNeighbor));
  }
  return text;
}

/// A Hello changes nothing of the learned state, and neither does a message of another type.
static bool isShown(MessageKind kind) { return kind != MessageKind::hello && kind != MessageKind::other; }

void ReplayText::onMessage(PlayedMessage const& played, std::span<Change const> changes) {
  if (!isShown(played.reception.kind)) return;
  TimelineRow row = rowOf(played);
  if (!played.reception.accepted()) {
    row.details += (row.details.empty() ? "" : "; ") + dropTextOf(played);
  }
  writeRow(row);
  if (played.betterBsr) {
    std::string stays = fmt::format("priority {} stays", played.betterBsr->priority);
    writeRow({"", "not preferred", textOf(played.zone), textOf(played.betterBsr->address), stays});
  }
  for (Change const& change : changes) writeRow(cli::rowOf(change, ""));
}

void ReplayText::onTimers(double time, std::span<Change const> changes) {
  for (Change const& change : changes) writeRow(cli::rowOf(change, textOfTime(time)));
}

// The end ---------------------------------------------------------------------------------------------

static TimelineRow lastRow(ReplayResult const& result) {
  TimelineRow row{.time = textOfTime(result.end), .event = result.complete ? "last packet" : "cut short"};
  double runOn = result.end - result.lastPacket;
  if (runOn > 0) {
    row.event = "end";
    row.details = fmt::format("{} s after the last packet", textOfTime(runOn));
  }
  return row;
}

void ReplayText::onEnd(ReplayResult const& result) {
  if (result.messages.pim == 0) {
    char const* plural = result.frames == 1 ? "" : "s";
    out_ << fmt::format("There is no PIM in {}: {} packet{}, none of them PIM.\n", file_, result.frames,
                        plural);
    return;
  }
  writeRow(lastRow(result));
  out_ << '\n';
  writeSummary(out_, result);
}

}  // namespace pimbsr::cli
