#include <ostream>

#include "cli/base/Columns.h"
#include "cli/replay/ReplayText.h"

namespace pimbsr::cli {

using host::BsrView;
using host::CounterView;
using host::RangeView;
using host::RpView;
using host::ZoneView;

// Zones -----------------------------------------------------------------------------------------------

static void writeBsr(std::ostream& out, BsrView const& bsr, double now) {
  out << fmt::format("  BSR {}, priority {} (the highest wins), hash mask length {}, expires in {} s\n",
                     textOf(bsr.address), bsr.priority, bsr.hashMaskLen, textOfTime(bsr.expiryTime - now));
}

static void writeRps(std::ostream& out, std::vector<RangeView> const& rpSet, double now) {
  constexpr char const* columns = "    {:<18}  {:<15}  {:>8}  {:>8}  {:>10}{}\n";
  out << "  RP set (the lowest priority wins; times in seconds)\n";
  out << fmt::format(columns, "group range", "RP", "priority", "holdtime", "expires in", "");
  for (RangeView const& range : rpSet) {
    for (RpView const& rp : range.rps) {
      bool isFirst = &rp == &range.rps.front();
      bool isBidir = rp.mode == Routing::Pim::Mode::bidir;
      out << fmt::format(columns, isFirst ? textOf(range.range) : "", textOf(rp.address), rp.priority,
                         rp.holdTime, textOfTime(rp.expires - now), isBidir ? "  bidirectional" : "");
    }
  }
}

static void writeZone(std::ostream& out, ZoneView const& zone, double now) {
  out << fmt::format("Zone {}\n", textOf(zone.zone));
  if (zone.bsr) {
    writeBsr(out, *zone.bsr, now);
  } else {
    out << "  no BSR\n";
  }
  if (zone.rpSet.empty()) {
    out << "  no RPs\n";
  } else {
    writeRps(out, zone.rpSet, now);
  }
  out << '\n';
}

// Counts ----------------------------------------------------------------------------------------------

static void writeCount(std::ostream& out, std::string_view name, U64 count, std::string_view sentence) {
  out << fmt::format("  {:<18}  {:>8}{}{}\n", name, count, sentence.empty() ? "" : "  ", sentence);
}

static void writeMessages(std::ostream& out, MessageCounts const& messages) {
  out << "Messages\n";
  writeCount(out, "bsm", messages.bsm, "Bootstrap Messages");
  writeCount(out, "crpAdv", messages.crpAdv, "Candidate-RP-Advertisements");
  writeCount(out, "hello", messages.hello, "Hellos");
  writeCount(out, "other", messages.other, "PIM messages of other types, and PIM over IPv6");
  writeCount(out, "malformed", messages.malformed, "PIM that can't be read");
  writeCount(out, "pim", messages.pim, "all of them");
  out << "\nDropped\n";
  for (auto const& [reason, drop] : messages.dropped) writeCount(out, reason, drop.count, drop.sentence);
  if (messages.dropped.empty()) out << "  none\n";
}

static void writeCounters(std::ostream& out, std::vector<CounterView> const& counters) {
  out << "\nCounters\n";
  for (CounterView const& counter : counters) {
    writeCount(out, counter.name, counter.value, counter.sentence);
    for (CounterView const& part : counter.parts) writeCount(out, "  " + part.name, part.value, "");
  }
}

void writeSummary(std::ostream& out, ReplayResult const& result) {
  for (ZoneView const& zone : result.zones) writeZone(out, zone, result.now);
  if (result.zones.empty()) out << "No zone has a BSR or an RP.\n\n";
  writeMessages(out, result.messages);
  writeCounters(out, result.counters);
  if (result.exceptions == 0) return;
  out << fmt::format("\nThe engine caught {} exceptions inside; that is a defect of this program.\n",
                     result.exceptions);
}

}  // namespace pimbsr::cli
