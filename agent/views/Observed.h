#pragma once

#include <vector>

#include "agent/account/Drops.h"
#include "agent/account/History.h"
#include "agent/account/TimerLatency.h"
#include "agent/account/Traffic.h"
#include "agent/config/Settings.h"
#include "agent/control/ControlCounts.h"
#include "agent/kernel/KernelView.h"
#include "agent/kernel/Platform.h"
#include "host/Router.h"

namespace pimbsr::agent {

/// All that may be shown of a running agent. Nothing here is changed by showing it.
struct Observed {
  host::Router const& router;
  Settings const& settings;
  KernelView const& kernel;
  Traffic const& traffic;
  Drops const& drops;
  History const& history;
  TimerLatency const& timerLatency;
  LinkReports links;
  double startTime = 0;  ///< when the agent started, on its clock

  std::vector<ControlStatus> controls = {};  ///< of each control socket that is open

  /// The time for which times left are told; its owner sets the router's clock before it shows anything.
  double now() const { return router.context().now(); }
};

}  // namespace pimbsr::agent
