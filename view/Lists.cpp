#include "view/Lists.h"

#include <algorithm>

#include "view/View.h"

namespace pimbsr::view {

std::string listsOf(std::vector<std::string> lists, std::vector<std::string> const& absent) {
  for (std::string& list : lists) {
    if (std::find(absent.begin(), absent.end(), list) != absent.end()) list += " (not there)";
  }
  return cellOf(lists, "none");
}

}  // namespace pimbsr::view
