#pragma once

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <string>
#include <vector>

#include "model/Lanet.h"

template <>
struct fmt::formatter<Lanet::IpGenAddr> : fmt::ostream_formatter {};
template <>
struct fmt::formatter<Lanet::IpGenPrefix> : fmt::ostream_formatter {};
template <>
struct fmt::formatter<Lanet::IntfId> : fmt::ostream_formatter {};

namespace pimbsr::sim {

/// Deviations from the expected state, each as one human-readable sentence.
using Findings = std::vector<std::string>;

}  // namespace pimbsr::sim
