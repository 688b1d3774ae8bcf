#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "view/View.h"

namespace pimbsr::cli {

/// Writes a page that shows a document of `sim --json` or `replay --json`: one file for browsers, which loads
/// nothing from outside. The data can't end the element that holds them: each "<" in them is escaped.
void writePage(std::ostream& out, view::Json const& document);

/// Writes the page without data, which `pimbsr web` serves: it may connect to its own server alone.
void writeLivePage(std::ostream& out);

/// What to do with a document at the end of a run.
struct Delivery {
  bool json = false;  ///< write it to the output
  std::string page;   ///< write a page to this file; empty for none
};

/// Carries out a delivery; `out` outlives the result. Of a page the output gets one line unless it gets the
/// document. The result throws UsageError if the file can't be written.
std::function<void(view::Json const&)> deliver(Delivery const& delivery, std::ostream& out);

/// Whether a file starts as a document of --json does, which no scenario and no capture can.
bool isSavedDocument(std::string const& path);

/// The document in a file that `sim --json`, or `replay --json`, wrote. Throws UsageError for another one.
view::Json savedSimulation(std::string const& path);
view::Json savedReplay(std::string const& path);

}  // namespace pimbsr::cli
