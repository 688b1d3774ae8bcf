#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace pimbsr::cli {

/// Writes the answer of a running agent to `show`, as human-readable tables. A view whose name is unknown
/// here, from an agent of another version, is written as indented JSON. Throws nlohmann::json::exception if a
/// known one lacks what is shown of it.
void writeShow(std::ostream& out, std::string const& what, nlohmann::ordered_json const& view);

}  // namespace pimbsr::cli
