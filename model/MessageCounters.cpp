#include "model/MessageCounters.h"

namespace Routing::Pim::IO {

void clearMessageCounters(Zet::ValidPtr<Slosh::MessageCounters> const& counters) {
  for (auto at = counters->rxIterator(); at; ++at) counters->rxIs(at.key(), 0);
  for (auto at = counters->rxErrorIterator(); at; ++at) counters->rxErrorIs(at.key(), 0);
  for (auto at = counters->txIterator(); at; ++at) counters->txIs(at.key(), 0);
}

}  // namespace Routing::Pim::IO
