#include <ostream>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

static void writeIdle(std::ostream& out, std::vector<view::IdleCandidate> const& idle) {
  for (view::IdleCandidate const& candidate : idle) {
    out << fmt::format("  {} waits: {}\n", candidate.interface, candidate.because);
  }
}

static void writeBsrCandidates(std::ostream& out, view::Candidates const& view) {
  if (view.bsr.empty() && view.idleBsr.empty()) {
    out << "This router is no candidate BSR.\n";
    return;
  }
  out << "Candidate BSR (higher priority wins)\n";
  if (!view.bsr.empty()) tableOf(view.bsr).write(out, 2);
  writeIdle(out, view.idleBsr);
}

static void writeRpCandidates(std::ostream& out, view::Candidates const& view) {
  if (view.rp.empty() && view.idleRp.empty()) {
    out << "This router is no candidate RP.\n";
    return;
  }
  out << "Candidate RP (lower priority wins)\n";
  Table table(joined(view::headOf<view::CandidateRp>(), view::headOf<view::CandidateRange>()));
  for (view::CandidateRp const& candidate : view.rp) addGroup(table, cellsOf(candidate), candidate.ranges);
  if (!table.empty()) table.write(out, 2);
  writeIdle(out, view.idleRp);
}

void writeShown(std::ostream& out, view::Candidates const& view) {
  writeBsrCandidates(out, view);
  out << '\n';
  writeRpCandidates(out, view);
}

}  // namespace pimbsr::cli
