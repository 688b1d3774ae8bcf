#include "view/Interfaces.h"

#include <fmt/format.h>

#include "view/Lists.h"

namespace pimbsr::view {

std::string generationIdOf(Neighbor const& view) { return fmt::format("{:#010x}", view.generationId); }

std::string drOf(Interface const& view) {
  return cellOf(view.dr, "-") + (view.ownDr ? " (this router)" : "");
}

std::string borderListsOf(Border const& view) { return listsOf(view.lists, view.absentLists); }

}  // namespace pimbsr::view
