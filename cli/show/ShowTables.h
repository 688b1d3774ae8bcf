#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace pimbsr::cli {

/// Writes what a running agent answered to `show`, as tables for people. A view of a name that isn't known
/// here, from an agent of another version, is written as indented JSON. Throws nlohmann::json::exception if a
/// known one lacks what is shown of it.
void writeShow(std::ostream& out, std::string const& what, nlohmann::ordered_json const& view);

}  // namespace pimbsr::cli
