#pragma once

#include <string>
#include <vector>

#include "model/Lanet.h"
#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// What the statements read so far have made, by which the next ones are checked.
struct ScenarioNames {
  struct Link {
    std::string name;
    Lanet::Prefix prefix;
  };
  struct Interface {
    std::string name;
    U32 link = 0;
    Lanet::IpGenAddr address;
  };
  struct Router {
    std::string name;
    Lanet::IpGenAddr loopback;
    std::vector<Interface> interfaces;
  };

  std::vector<Link> links;
  std::vector<Router> routers;
  double now = 0;  ///< seconds that the scenario has run by then
};

}  // namespace pimbsr::sim
