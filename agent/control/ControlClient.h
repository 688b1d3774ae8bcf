#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/base/RequestError.h"

namespace pimbsr::agent {

/// An agent that can't be reached. The text has the reason and a remedy.
class ClientError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An agent whose socket this user may not open.
class DeniedError : public ClientError {
 public:
  using ClientError::ClientError;
};

/// Seconds for which a client waits for the next bytes.
inline constexpr double clientPatience = 5;

/// Sends a request to the agent whose control socket is at `path`, and returns the result in its answer.
/// Throws RequestError with the agent's error text, and ClientError if the agent can't be reached or doesn't
/// answer within `patience` seconds.
nlohmann::ordered_json ask(std::string const& path, nlohmann::ordered_json const& request,
                           double patience = clientPatience);

/// Calls `act` with the path of each socket in turn until one may be opened: the next only if this user may
/// not open the one before. Throws what `act` throws; if none may be opened, a DeniedError with all reasons.
void tryInTurn(std::span<std::string const> paths, std::function<void(std::string const& path)> const& act);

/// Takes one line, without its newline; false ends the watch.
using TakeLine = std::function<bool(std::string_view line)>;

/// Passes each line of the agent's stream to `take`, and returns once that returns false: of its changes, or
/// of the values of a path of the model. Throws as ask() does until the watch is granted, and then
/// ClientError when the stream ends.
void watch(std::string const& path, TakeLine const& take, std::string const& watched = {},
           double patience = clientPatience);

}  // namespace pimbsr::agent
