#include <algorithm>
#include <ostream>
#include <utility>

#include "cli/base/Table.h"
#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// The BSR of each zone --------------------------------------------------------------------------------

/// One line of a zone's block.
static void writeFact(std::ostream& out, std::string_view name, std::string const& fact) {
  out << fmt::format("  {:<16}  {}\n", name, fact);
}

static void writeKnownBsr(std::ostream& out, Json const& zone) {
  Json const& bsr = zone.at("bsr");
  bool own = bsr.at("own");
  writeFact(out, "BSR", textOf(bsr.at("address")) + (own ? ", this router" : ""));
  writeFact(out, "priority", textOf(bsr.at("priority")) + " (higher wins)");
  writeFact(out, "hash mask length", textOf(bsr.at("hashMaskLen")));
  writeFact(out, "state", textOf(zone.at("state")));
  writeFact(out, own ? "elected for" : "known for", textOfSpan(bsr.at("uptime")));
  if (own) {
    writeFact(out, "next message in", textOfSpan(zone.at("nextMessage")));
  } else {
    writeFact(out, "expires in", textOfSpan(bsr.at("expiresIn")));
  }
}

/// What the timers of a zone without a BSR lead to.
static void writeNoBsr(std::ostream& out, Json const& zone) {
  writeFact(out, "BSR", "none");
  writeFact(out, "state", textOf(zone.at("state")));
  if (!zone.at("scopeZoneTimer").is_null())
    writeFact(out, "forgotten in", textOfSpan(zone.at("scopeZoneTimer")));
  if (zone.at("bootstrapTimer").is_null()) return;
  writeFact(out, zone.at("candidate") ? "decides in" : "expires in", textOfSpan(zone.at("bootstrapTimer")));
}

static std::string sizeOf(Json const& zone) {
  if (zone.at("rps") == 0) return "empty";
  return entriesOf(zone.at("rps")) + " in " + countOf(zone.at("ranges"), "group range");
}

void writeBsr(std::ostream& out, Json const& view) {
  Json const& zones = view.at("zones");
  bool isKnown =
      std::any_of(zones.begin(), zones.end(), [](Json const& zone) { return !zone.at("bsr").is_null(); });
  if (!isKnown) out << "No BSR is known in any zone.\n";
  bool isFirst = isKnown;
  for (Json const& zone : zones) {
    if (!std::exchange(isFirst, false)) out << '\n';
    out << fmt::format("Zone {}, {}\n", textOf(zone.at("zone")), zone.at("scoped") ? "scoped" : "global");
    zone.at("bsr").is_null() ? writeNoBsr(out, zone) : writeKnownBsr(out, zone);
    writeFact(out, "RP set", sizeOf(zone));
  }
}

// The RP set of each zone -----------------------------------------------------------------------------

static std::string expiryOf(Json const& rp) {
  bool withdrawn = rp.at("holdTime") == 0;
  return withdrawn ? "withdrawn" : textOfSpanOrNever(rp.at("expiresIn"));
}

static void writeZoneRps(std::ostream& out, Json const& zone) {
  Table table({"group range", "RP", "priority", "holdtime", "expires in", "mode"});
  for (Json const& range : zone.at("ranges")) {
    std::string name = textOf(range.at("range"));
    for (Json const& rp : range.at("rps")) {
      table.add({std::exchange(name, ""), textOf(rp.at("address")), textOf(rp.at("priority")),
                 rp.at("holdTime").dump() + " s", expiryOf(rp),
                 rp.at("bidirectional") ? "bidirectional" : "sparse"});
    }
  }
  table.write(out, 2);
}

void writeRpSet(std::ostream& out, Json const& view) {
  bool isFirst = true;
  for (Json const& zone : view.at("zones")) {
    if (zone.at("rps") == 0) continue;
    if (!std::exchange(isFirst, false)) out << '\n';
    std::string bsr = zone.at("bsr").is_null() ? "no BSR" : "BSR " + textOf(zone.at("bsr"));
    out << fmt::format("Zone {}, {}, {} (lower priority wins)\n", textOf(zone.at("zone")), bsr,
                       entriesOf(zone.at("rps")));
    writeZoneRps(out, zone);
  }
  if (isFirst) out << "No RP is known in any zone.\n";
}

// Which RP serves a group -----------------------------------------------------------------------------

static std::string noteOf(Json const& range) {
  if (range.at("chosen")) return "chosen";
  return range.at("live") == 0 ? "passed over: none is live" : "a longer one is chosen";
}

static void writeCovering(std::ostream& out, Json const& ranges) {
  out << "\nGroup ranges that cover it, the longest first\n";
  Table table({"group range", "zone", "RPs", "live", ""});
  for (Json const& range : ranges) {
    table.add({textOf(range.at("range")), listOf(range.at("zones")), textOf(range.at("rps")),
               textOf(range.at("live")), noteOf(range)});
  }
  table.write(out, 2);
}

void writeRp(std::ostream& out, Json const& view) {
  Json const& ranges = view.at("ranges");
  std::string group = textOf(view.at("group"));
  if (view.at("rp").is_null()) {
    out << fmt::format("Group {} has no RP: {}.\n", group, textOf(view.at("because")));
    if (!ranges.empty()) writeCovering(out, ranges);
    return;
  }
  out << fmt::format("Group {} is served by RP {}, {}.\n", group, textOf(view.at("rp")),
                     textOf(view.at("because")));
  writeCovering(out, ranges);
  out << fmt::format(
      "\nLive RPs of {}: the lowest priority wins, then the highest hash, then the highest address\n",
      textOf(view.at("range")));
  Table table({"RP", "priority", "hash", "hash mask length", ""});
  std::string note = "chosen";
  for (Json const& rp : view.at("candidates")) {
    table.add({textOf(rp.at("address")), textOf(rp.at("priority")), textOf(rp.at("hash")),
               textOf(rp.at("hashMaskLen")), std::exchange(note, "")});
  }
  table.write(out, 2);
}

}  // namespace pimbsr::cli
