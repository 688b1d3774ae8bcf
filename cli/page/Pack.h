#pragma once

#include "view/View.h"

namespace pimbsr::cli {

/// The same document in the form that web/src/data.js unpacks, about a seventh as long. A list of objects
/// becomes rows, each with the number of its list of keys; a text, an object or a list in a row is kept once
/// in a table of values, and the row has its number there as a text in base 36.
view::Json pack(view::Json const& document);

}  // namespace pimbsr::cli
