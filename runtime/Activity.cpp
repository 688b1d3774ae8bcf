#include "runtime/Activity.h"

#include <map>
#include <utility>

#include "runtime/Notifiee.h"

namespace Zet {

Ptr<ActivityConfig> const& ActivityConfig::standard() {
  static Ptr<ActivityConfig> config = make<ActivityConfig>();
  return config;
}

// The queue's members need the whole Reactor, which in turn uses this header.
ActivitySm::ActivitySm() = default;
ActivitySm::~ActivitySm() = default;

void ActivitySm::enqueue(Ptr<Reactor> const& reactor) { waiting_.push_back(reactor); }

U32 ActivitySm::serve(ActivityConfig* config) {
  // The queue is taken over whole: a reactor that enqueues one during its turn waits for the next serve(), so
  // that a cycle of reactors can't hold the event loop.
  auto serving = std::exchange(waiting_, {});
  for (Ptr<Reactor> const& reactor : serving) reactor->handleNotification(config);
  return static_cast<U32>(serving.size());
}

Ptr<ActivitySm> zetActivitySmFor(Ptr<ActivityConfig> const& config) {
  static std::map<Ptr<ActivityConfig>, Ptr<ActivitySm>,
                  decltype([](auto const& a, auto const& b) { return a.ptr() < b.ptr(); })>
      machines;
  Ptr<ActivitySm>& machine = machines[config];
  if (!machine) machine = make<ActivitySm>();
  return machine;
}

}  // namespace Zet
