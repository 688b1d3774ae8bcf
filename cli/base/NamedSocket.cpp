#include "cli/base/NamedSocket.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "cli/base/Errors.h"

namespace pimbsr::cli {

static constexpr std::size_t maxName = 64;

bool isAgentName(std::string const& text) {
  static constexpr std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./";
  return !text.empty() && text.size() <= maxName && text.find_first_not_of(allowed) == text.npos;
}

NamedSocket parseNamedSocket(std::string const& text) {
  std::size_t equals = text.find('=');
  if (equals == text.npos) {
    if (text.empty()) throw UsageError("an agent is NAME=SOCKET, or SOCKET, and this one is empty");
    return {text, text};
  }
  NamedSocket named{text.substr(0, equals), text.substr(equals + 1)};
  if (!isAgentName(named.name) || named.path.empty())
    throw UsageError(
        fmt::format("'{}' is not NAME=SOCKET: a name has up to {} letters, digits, '-', '_', '.' and '/'",
                    text, maxName));
  return named;
}

std::vector<NamedSocket> parseNamedSockets(std::vector<std::string> const& texts) {
  std::vector<NamedSocket> sockets;
  std::set<std::string> names;
  for (std::string const& text : texts) {
    sockets.push_back(parseNamedSocket(text));
    if (!names.insert(sockets.back().name).second)
      throw UsageError(fmt::format("two agents are called '{}'; name them NAME=SOCKET", sockets.back().name));
  }
  return sockets;
}

}  // namespace pimbsr::cli
