#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "agent/views/Observed.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// What an agent shows of itself under one name, as an object: "bsr", "rp-set", "candidates", "rp" (of a
/// multicast group), "neighbors", "interfaces", "borders", "filter", "counters", "drops", "history" or
/// "config". Times are seconds, left or ago; null stands for what there is none of. Throws RequestError for
/// another name, with those that are valid.
nlohmann::ordered_json show(Observed const& observed, std::string_view what, Lanet::IpAddr group = {});

}  // namespace pimbsr::agent
