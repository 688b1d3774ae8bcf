#include <ostream>
#include <utility>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

using view::cellOf;

// The BSR of each zone --------------------------------------------------------------------------------

/// One line of a zone's block.
static void writeFact(std::ostream& out, std::string_view name, std::string const& fact) {
  out << fmt::format("  {:<16}  {}\n", name, fact);
}

static void writeKnownBsr(std::ostream& out, view::BsrZone const& zone) {
  view::KnownBsr const& bsr = *zone.bsr;
  writeFact(out, "BSR", cellOf(bsr.address, "-") + (bsr.own ? ", this router" : ""));
  writeFact(out, "priority", fmt::format("{} (higher wins)", bsr.priority));
  writeFact(out, "hash mask length", fmt::to_string(bsr.hashMaskLen));
  writeFact(out, "state", cellOf(zone.state, "-"));
  writeFact(out, bsr.own ? "elected for" : "known for", cellOf(bsr.uptime, "-"));
  if (bsr.own) {
    writeFact(out, "next message in", cellOf(zone.nextMessage, "-"));
  } else {
    writeFact(out, "expires in", cellOf(bsr.expiresIn, "-"));
  }
}

static void writeLearnedFrom(std::ostream& out, view::LearnedFrom const& from) {
  writeFact(out, "learned from",
            fmt::format("{} on {}, tag {}{}, {} ago", cellOf(from.neighbor, "-"), from.interface,
                        from.fragmentTag, from.noForward ? ", No-Forward" : "", view::spanOf(from.ago)));
}

/// The neighbor towards the BSR, or why there is none.
static std::string rpfOf(view::RpfPath const& path) {
  std::string intf = path.interface.value_or("");
  if (!path.neighbor.isEmpty()) return fmt::format("{} on {}", cellOf(path.neighbor, "-"), intf);
  if (!path.interface) return "none: no route to the BSR";
  if (path.nextHop.isEmpty()) return fmt::format("none: the BSR is on {}, and no PIM neighbor there", intf);
  return fmt::format("none: the next hop {} is no PIM neighbor on {}", cellOf(path.nextHop, "-"), intf);
}

/// What the timers of a zone without a BSR lead to.
static void writeNoBsr(std::ostream& out, view::BsrZone const& zone) {
  writeFact(out, "BSR", "none");
  writeFact(out, "state", cellOf(zone.state, "-"));
  if (zone.scopeZoneTimer) writeFact(out, "forgotten in", cellOf(zone.scopeZoneTimer, "-"));
  if (!zone.bootstrapTimer) return;
  writeFact(out, zone.candidate ? "decides in" : "expires in", cellOf(zone.bootstrapTimer, "-"));
}

static std::string sizeOf(view::BsrZone const& zone) {
  if (zone.rps == 0) return "empty";
  return entriesOf(zone.rps) + " in " + countOf(zone.ranges, "group range");
}

void writeShown(std::ostream& out, view::Bsr const& view) {
  if (view.zones.empty()) out << "No BSR is known in any zone.\n";
  bool isFirst = true;
  for (view::BsrZone const& zone : view.zones) {
    if (!std::exchange(isFirst, false)) out << '\n';
    out << fmt::format("Zone {}, {}\n", cellOf(zone.zone, "-"), zone.scoped ? "scoped" : "global");
    zone.bsr ? writeKnownBsr(out, zone) : writeNoBsr(out, zone);
    if (zone.learnedFrom) writeLearnedFrom(out, *zone.learnedFrom);
    if (zone.rpf) writeFact(out, "RPF neighbor", rpfOf(*zone.rpf));
    writeFact(out, "RP set", sizeOf(zone));
    if (!zone.digest.empty()) writeFact(out, "digest", zone.digest);
  }
}

// The RP set of each zone -----------------------------------------------------------------------------

static void writeZoneRps(std::ostream& out, view::SetZone const& zone) {
  Table table(joined(view::headOf<view::SetRange>(), view::headOf<view::SetRp>()));
  for (view::SetRange const& range : zone.rpSet) addGroup(table, cellsOf(range), range.rps);
  table.write(out, 2);
}

void writeShown(std::ostream& out, view::RpSet const& view) {
  bool isFirst = true;
  for (view::SetZone const& zone : view.zones) {
    if (zone.rps == 0) continue;
    if (!std::exchange(isFirst, false)) out << '\n';
    std::string bsr = zone.bsr ? "BSR " + cellOf(zone.bsr->address, "-") : "no BSR";
    out << fmt::format("Zone {}, {}, {} (lower priority wins)\n", cellOf(zone.zone, "-"), bsr,
                       entriesOf(zone.rps));
    writeZoneRps(out, zone);
  }
  if (isFirst) out << "No RP is known in any zone.\n";
}

// The RP of a group -----------------------------------------------------------------------------------

static void writeCovering(std::ostream& out, std::vector<view::CoveringRange> const& ranges) {
  out << "\nGroup ranges that cover it, the longest first\n";
  tableOf(ranges).write(out, 2);
}

void writeShown(std::ostream& out, view::Rp const& view) {
  std::string group = cellOf(view.group, "-");
  if (view.rp.isEmpty()) {
    out << fmt::format("Group {} has no RP: {}.\n", group, view.because);
    if (!view.ranges.empty()) writeCovering(out, view.ranges);
    return;
  }
  out << fmt::format("Group {} is served by RP {}, {}.\n", group, cellOf(view.rp, "-"), view.because);
  writeCovering(out, view.ranges);
  out << fmt::format(
      "\nLive RPs of {}: the lowest priority wins, then the highest hash, then the highest address\n",
      cellOf(view.range, "-"));
  Table table(joined(view::headOf<view::RpChoice>(), {""}));
  std::string note = "chosen";
  for (view::RpChoice const& rp : view.candidates) {
    table.add(joined(cellsOf(rp), {std::exchange(note, "")}));
  }
  table.write(out, 2);
}

}  // namespace pimbsr::cli
