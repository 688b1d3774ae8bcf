#include <ostream>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

static void writeFile(std::ostream& out, view::History const& view) {
  if (view.fileError) out << fmt::format("Not all of it is in the file: {}.\n", *view.fileError);
}

void writeShown(std::ostream& out, view::History const& view) {
  writeFile(out, view);
  if (view.entries.empty()) {
    out << (view.wasCleared ? "Nothing has happened since the last clear.\n" : "Nothing has happened yet.\n");
    return;
  }
  out << fmt::format(
      "The last {}, the newest at the end (at most {} of elections, of RPs, of zones and of runs)\n",
      countOf(view.entries.size(), "change"), view.maxEntries);
  tableOf(view.entries).write(out, 2);
}

}  // namespace pimbsr::cli
