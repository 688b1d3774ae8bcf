#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "agent/base/RequestError.h"
#include "agent/views/ViewParts.h"
#include "agent/views/Views.h"
#include "view/Json.h"

namespace pimbsr::agent {

using host::PathError;

static std::optional<std::string> unitOf(std::string const& unit) {
  return unit.empty() ? std::nullopt : std::optional(unit);
}

static view::ModelValue viewOf(host::ModelEntry&& entry) {
  return {.path = std::move(entry.path),
          .type = std::move(entry.type),
          .value = std::move(entry.value),
          .unit = unitOf(entry.unit)};
}

/// Where a path is wrong, as RequestError.
template <class Read>
static auto explained(Read const& read) {
  try {
    return read();
  } catch (PathError const& error) {
    throw RequestError(
        fmt::format("\"path\" names nothing: {}; 'pimbsr show tree' has the paths", error.what()));
  }
}

view::ModelValue showModelValue(host::Router const& router, std::string const& path) {
  return explained([&] { return viewOf(host::readPath(host::modelRoots(router), path)); });
}

view::Tree showModel(host::Router const& router, std::string const& path, host::TreeBounds const& bounds) {
  return explained([&] {
    host::ModelPage page = host::readTree(host::modelRoots(router), path, bounds);
    view::Tree tree;
    for (host::ModelEntry& entry : page.entries) tree.entries.push_back(viewOf(std::move(entry)));
    if (!page.next.empty()) tree.next = std::move(page.next);
    return tree;
  });
}

PathValue valueAt(host::Router const& router, std::string const& path) {
  try {
    host::ModelEntry entry = host::readPath(host::modelRoots(router), path);
    return {.value = std::move(entry.value), .unit = std::move(entry.unit)};
  } catch (PathError const& error) {
    return {.missing = error.what()};
  }
}

std::string lineOf(std::string const& path, PathValue const& value, double now) {
  view::WatchedValue shown{.time = now, .path = path, .value = value.value, .unit = unitOf(value.unit)};
  if (!value.value) shown.missing = value.missing;
  return view::jsonOf(shown).dump(-1, ' ', false, view::Json::error_handler_t::replace);
}

}  // namespace pimbsr::agent
