#include "crp/PimBsrCrpPermitTrieBuilderSm.h"

#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;

static Zet::TraceSource const trace("Pim::Bsr::CrpPermitTrieBuilderSm", "PimBsrCrpPermitTrieBuilderSm");

void PimBsrCrpPermitTrieBuilderSm::handleConstruction() { handleCrpPermit(); }

/// Counts each range here once more than handleCrpPermit(prefix) does by itself.
void PimBsrCrpPermitTrieBuilderSm::handleCrpPermit() {
  for (auto at = bsrStatus()->crpPermitIterator(); at; ++at) {
    handleCrpPermit(at.key());
    trieUpdatesInc(1);
  }
}

void PimBsrCrpPermitTrieBuilderSm::handleCrpPermit(IpGenPrefix const& prefix) {
  ZET_TRACE_ENTRY(trace);
  if (bsrStatus()->crpPermit(prefix)) {
    crpPermitTrie()->routeIs(prefix, true);
    ZET_TRACE(trace, 8, "Added prefix " << prefix << " into trie");
  } else {
    crpPermitTrie()->routeDel(prefix);
    ZET_TRACE(trace, 8, "Deleted prefix " << prefix << " from trie");
  }
  trieUpdatesInc(1);
}

}  // namespace Routing::Pim::Bsr
