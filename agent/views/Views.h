#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "agent/config/ConfigFile.h"
#include "agent/control/ControlConnection.h"
#include "agent/control/ControlProtocol.h"
#include "agent/views/Observed.h"
#include "model/Lanet.h"
#include "view/Answers.h"

namespace pimbsr::agent {

/// The view of an agent with a name, as an object: "bsr", "rp-set", "candidates", "rp" (of a multicast
/// group), "neighbors", "interfaces", "borders", "filter", "counters", "drops", "corrections", "history",
/// "config", "control", "on-change" or "tree" (from its roots). With "rp-set" a prefix restricts it to the
/// zone of that name and to the ranges that cover it or lie within; the empty one does not. Times are
/// seconds, left or ago; an absent value is null. Throws RequestError for another name, with those that are
/// valid.
nlohmann::ordered_json show(Observed const& observed, std::string_view what, Lanet::IpAddr group = {},
                            Lanet::IpGenPrefix const& prefix = {});

/// What a reload of a file does, as far as the file decides on it: applied unless it has errors, with what is
/// unwise in it, and with the keys that differ from those in use and need a restart.
view::Reload reloadOf(ConfigReading const& reading, Settings const& inUse);

// The model by paths, as host/ModelTree.h has them. A path that names nothing is a RequestError.

/// A page of the tree of a path; of all roots for the empty one.
nlohmann::ordered_json showTree(host::Router const& router, std::string const& path, TreePart const& part);
/// What a path names.
nlohmann::ordered_json get(host::Router const& router, std::string const& path);

/// What a watched path names.
PathValue valueAt(host::Router const& router, std::string const& path);
/// It as a line of the watch, without a newline; the time is on the agent's clock.
std::string lineOf(std::string const& path, PathValue const& value, double now);

}  // namespace pimbsr::agent
