#include "view/Candidates.h"

namespace pimbsr::view {

std::string bsrOf(CandidateRange const& view) {
  return view.priority ? cellOf(view.bsr, "none known") : "none: it has no priority";
}

}  // namespace pimbsr::view
