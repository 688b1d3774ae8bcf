#include "crp/PimBsrTrieBuilder.h"

#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrTrieBuilderSm");

void PimBsrTrieBuilderSm::handleConstruction() { handleBsr(); }

/// Adds only: it runs when the trie is empty.
void PimBsrTrieBuilderSm::handleBsr() {
  for (auto at = bsrStatus()->bootstrapRouterIterator(); at; ++at) {
    trie()->routeIs(at->zone(), true);
    trieUpdatesInc(1);
  }
}

void PimBsrTrieBuilderSm::handleBsr(IpGenPrefix const& zone) {
  ZET_TRACE_ENTRY(trace);
  if (bsrStatus()->bootstrapRouter(zone)) {
    trie()->routeIs(zone, true);
    ZET_TRACE(trace, 8, "Added prefix " << zone << " into trie");
  } else {
    trie()->routeDel(zone);
    ZET_TRACE(trace, 8, "Deleted prefix " << zone << " from trie");
  }
  trieUpdatesInc(1);
}

void PimBsrTrieBuilderSm::ZetBsr::handleBsrIp() {
  if (!initialized()) {
    initializedIs(true);
    return;
  }
  ZET_TRACE(trace, 8, "BSR of zone " << fwkKey() << " changed to " << notifier()->ipAddr());
  owner()->trie()->signalChange(fwkKey());
}

}  // namespace Routing::Pim::Bsr
