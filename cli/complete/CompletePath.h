#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pimbsr::cli {

/// What one completion reads of a model at most. A collection may have hundreds of thousands of members.
inline constexpr int maxPathPages = 5;  ///< answers, each of which has 1000 entries at most

/// What is before the last step of a path, which is perhaps begun; empty for a root. A slash or a bracket
/// within single quotes is part of a key.
std::string parentOf(std::string_view path);

/// The paths of a running agent's model that continue a path by one step: the roots for an empty one. If one
/// alone does, what is in it follows, so that a shell goes on to the next step. They are as the agent writes
/// them; a shell adds its own quotes. Where `seconds` for all requests or maxPathPages end before all are
/// read, `begun` is among them, so that a shell adds nothing that other paths lack. None if no agent answers
/// at one of the sockets, which are tried in turn.
std::vector<std::string> pathsFrom(std::span<std::string const> sockets, std::string const& begun,
                                   double seconds);

}  // namespace pimbsr::cli
