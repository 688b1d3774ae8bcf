#include "view/Learned.h"

namespace pimbsr::view {

using Routing::Pim::Mode;

std::optional<BsrTerms> termsOf(host::BsrView const& bsr) {
  if (bsr.address.isEmpty()) return std::nullopt;
  return BsrTerms{.address = bsr.address, .priority = bsr.priority, .hashMaskLen = bsr.hashMaskLen};
}

std::optional<RpTerms> termsOf(host::RpView const& rp) {
  if (rp.address.isEmpty()) return std::nullopt;
  return RpTerms{.range = rp.range,
                 .address = rp.address,
                 .priority = rp.priority,
                 .holdTime = rp.holdTime,
                 .bidirectional = rp.mode == Mode::bidir};
}

host::BsrView bsrOf(BsrTerms const& terms) {
  return {.address = terms.address, .priority = terms.priority, .hashMaskLen = terms.hashMaskLen};
}

host::RpView rpOf(RpTerms const& terms) {
  return {.range = terms.range,
          .address = terms.address,
          .priority = terms.priority,
          .holdTime = terms.holdTime,
          .mode = terms.bidirectional ? Mode::bidir : Mode::sparse};
}

}  // namespace pimbsr::view
