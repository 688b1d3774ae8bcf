// The store of group ranges of which not all RPs have come: its timer and its ageing. RpSetStore.cpp fills
// it.

#include <cmath>

#include "protocol/PimBsrSm.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

/// Runs after a tag has come or gone: the first tag starts the timer, further ones leave its phase alone, and
/// the end of the last one stops it.
void PimBsrSm::handleBsmRxFragments(U16 const& tag) {
  if (!initialized()) return;
  if (bsmRxFragments(tag) && bsmRxFragmentsCount() == 1) {
    if (zetFragmentTimer()) zetFragmentTimer()->timeMinIs(Zet::now() + fragmentInterval());
    ZET_TRACE(trace, 8, "Started fragment timer to expire in " << fragmentInterval() << " seconds from now");
  }
  if (bsmRxFragmentsCount() == 0) {
    if (zetFragmentTimer()) zetFragmentTimer()->timeMinIs(Kiv::never);
    ZET_TRACE(trace, 8, "Stopped fragment timer");
  }
}

/// Discards what is too old under one tag.
static void discardOldRanges(PimBsrRxFragments& fragments, U32 timeout) {
  for (auto at = fragments.groupRpDataIterator(); at; ++at) {
    double age = std::round(Zet::now() - at->creationTime());
    ZET_TRACE(trace, 1, "fragment " << at->prefix() << " around for " << age << " seconds");
    if (age < timeout) continue;
    ZET_TRACE(trace, 1,
              "Deleted Group fragment " << at->prefix() << " due to timeout. Num Rps=" << at->rps());
    fragments.groupRpDataDel(at->prefix());
  }
}

void PimBsrSm::handleFragmentTimerExpiry() {
  if (!initialized()) return;
  for (auto at = bsmRxFragmentsIterator(); at; ++at) {
    discardOldRanges(*at, fragmentTimeout());
    if (at->groupRpDataCount() != 0) continue;
    bsmRxFragmentsDel(at->fragTag());
    ZET_TRACE(trace, 1, "Deleted fragment " << at->fragTag() << " due to timeout");
  }
  if (bsmRxFragmentsCount() == 0) return;
  zetFragmentTimer()->timeMinIs(Zet::now() + fragmentInterval());
  ZET_TRACE(trace, 8, "Next fragmentTimerTimeout in " << fragmentInterval() << " seconds from now");
}

}  // namespace Routing::Pim::Bsr
