#include <ostream>
#include <utility>

#include "cli/base/Table.h"
#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

/// Interfaces whose candidacy is configured but doesn't stand.
static void writeIdle(std::ostream& out, Json const& idle) {
  for (Json const& candidate : idle) {
    out << fmt::format("  {} waits: {}\n", textOf(candidate.at("interface")),
                       textOf(candidate.at("because")));
  }
}

// As BSR ----------------------------------------------------------------------------------------------

static void writeBsrCandidates(std::ostream& out, Json const& candidates, Json const& idle) {
  if (candidates.empty() && idle.empty()) {
    out << "This router is no candidate BSR.\n";
    return;
  }
  out << "Candidate BSR (higher priority wins)\n";
  Table table(
      {"zone", "interface", "address", "priority", "hash mask length", "interval", "state", "next message"});
  for (Json const& c : candidates) {
    table.add({textOf(c.at("zone")), textOf(c.at("interface")), textOf(c.at("address")),
               textOf(c.at("priority")), textOf(c.at("hashMaskLen")), textOf(c.at("interval")) + " s",
               textOf(c.at("state")), textOfSpan(c.at("nextMessage"))});
  }
  if (!table.empty()) table.write(out, 2);
  writeIdle(out, idle);
}

// As RP -----------------------------------------------------------------------------------------------

static std::string bsrOf(Json const& range) {
  if (range.at("priority").is_null()) return "none: it has no priority";
  return range.at("bsr").is_null() ? "none known" : textOf(range.at("bsr"));
}

static void writeRpCandidates(std::ostream& out, Json const& candidates, Json const& idle) {
  if (candidates.empty() && idle.empty()) {
    out << "This router is no candidate RP.\n";
    return;
  }
  out << "Candidate RP (lower priority wins)\n";
  Table table(
      {"interface", "address", "interval", "group range", "priority", "next advertisement", "to BSR"});
  for (Json const& c : candidates) {
    std::string intf = textOf(c.at("interface"));
    std::string address = textOf(c.at("address"));
    std::string interval = textOf(c.at("interval")) + " s";
    for (Json const& range : c.at("ranges")) {
      table.add({std::exchange(intf, ""), std::exchange(address, ""), std::exchange(interval, ""),
                 textOf(range.at("range")), textOf(range.at("priority")),
                 textOfSpan(range.at("nextAdvertisement")), bsrOf(range)});
    }
  }
  if (!table.empty()) table.write(out, 2);
  writeIdle(out, idle);
}

void writeCandidates(std::ostream& out, Json const& view) {
  writeBsrCandidates(out, view.at("bsr"), view.at("idleBsr"));
  out << '\n';
  writeRpCandidates(out, view.at("rp"), view.at("idleRp"));
}

}  // namespace pimbsr::cli
