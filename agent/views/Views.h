#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "agent/views/Observed.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// The view of an agent with a name, as an object: "bsr", "rp-set", "candidates", "rp" (of a multicast
/// group), "neighbors", "interfaces", "borders", "filter", "counters", "drops", "corrections", "history",
/// "config", "control" or "on-change". With
/// "rp-set" a prefix restricts it to the zone of that name and to the ranges that cover it or lie within; the
/// empty one does not. Times are seconds, left or ago; an absent value is null. Throws
/// RequestError for another name, with those that are valid.
nlohmann::ordered_json show(Observed const& observed, std::string_view what, Lanet::IpAddr group = {},
                            Lanet::IpGenPrefix const& prefix = {});

}  // namespace pimbsr::agent
