#include <ostream>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

static std::string outcomeOf(view::ChangeRun const& run) {
  std::string text = view::shownRunOutcome(run.outcome);
  if (run.signal) return fmt::format("{}, by signal {}", text, *run.signal);
  return run.status ? fmt::format("{}, with status {}", text, *run.status) : text;
}

static void writeLastRun(std::ostream& out, view::ChangeRun const& run) {
  out << fmt::format("The last run ended {} ago after {}: {}.\n", view::spanOf(run.ago),
                     view::spanOf(run.duration), outcomeOf(run));
}

void writeShown(std::ostream& out, view::OnChange const& view) {
  if (!view.command) {
    out << "No change command runs: the agent was started without --on-change.\n";
    return;
  }
  out << fmt::format("Change command: {}\n", *view.command);
  out << fmt::format("{} succeeded, {} failed, {} took longer than {} and {} ended.\n",
                     countOf(view.succeeded, "run"), view.failed, view.timedOut,
                     view::spanOf(view.timeLimit.value_or(0)), view.timedOut == 1 ? "was" : "were");
  if (view.lastRun) writeLastRun(out, *view.lastRun);
  if (view.runningFor) out << fmt::format("A run has lasted for {}.\n", view::spanOf(*view.runningFor));
  if (view.helperRestarts != 0)
    out << fmt::format("Its helper process has died and was started again: {}.\n",
                       countOf(view.helperRestarts, "time"));
  if (view.helperEnded) out << "Its helper process has ended: it does not run any more; restart the agent.\n";
  if (view.waiting) out << "A change waits to be handed to it.\n";
}

}  // namespace pimbsr::cli
