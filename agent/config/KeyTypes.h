#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/config/ConfigText.h"
#include "model/AclValues.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// An item of a list of the file, with its place.
template <class Value>
struct Placed {
  TextPlace at;
  Value value;

  bool operator==(Placed const&) const = default;
};

}  // namespace pimbsr::agent

/// The types of the file's keys, by their names in declarations (host/ConfigKey.h).
namespace pimbsr::agent::file {

using InterfaceName = std::string;  ///< empty without a valid one
using SocketPath = std::string;
using Path = std::string;
using GroupName = std::string;
using GroupRanges = std::vector<Placed<Lanet::IpGenPrefix>>;
using ListNames = std::vector<Placed<std::string>>;
using Rules = std::vector<ConfigValue const*>;  ///< pointers into the parsed text, which outlives the table
using Prefix = std::optional<Lanet::IpGenPrefix>;
using Address = std::optional<Lanet::IpAddr>;
using Action = std::optional<Acl::Action>;

}  // namespace pimbsr::agent::file
