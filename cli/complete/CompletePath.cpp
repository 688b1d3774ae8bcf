#include "cli/complete/CompletePath.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>

#include "agent/control/ControlClient.h"
#include "view/Tree.h"

namespace pimbsr::cli {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;
using Sockets = std::span<std::string const>;

std::string parentOf(std::string_view path) {
  std::size_t last = 0;
  bool isQuoted = false;
  for (std::size_t at = 0; at < path.size(); ++at) {
    char const one = path[at];
    if (isQuoted && one == '\\') {
      ++at;  // what follows is part of the key
    } else if (one == '\'') {
      isQuoted = !isQuoted;
    } else if (!isQuoted && (one == '/' || one == '[')) {
      last = at;
    }
  }
  return std::string(path.substr(0, last));
}

namespace {

/// One completion, with bounds for all of its requests together.
class PathReader {
 public:
  PathReader(Sockets sockets, std::string const& begun, double seconds)
      : sockets_(sockets), begun_(begun), end_(Clock::now() + std::chrono::duration<double>(seconds)) {}

  std::vector<std::string> read();

 private:
  double secondsLeft() const { return std::chrono::duration<double>(end_ - Clock::now()).count(); }
  std::optional<view::Tree> ask(Json const& request);
  bool addLevel(std::string const& parent);

  Sockets sockets_;
  std::string const& begun_;
  std::chrono::time_point<Clock, std::chrono::duration<double>> end_;
  int pages_ = 0;
  std::vector<std::string> found_;
};

/// A part of the tree; nothing once a bound is reached, or without an answer that is understood.
std::optional<view::Tree> PathReader::ask(Json const& request) {
  static constexpr double minTime = 0.01;  // a socket with a timeout of 0 has none
  if (pages_ == maxPathPages || secondsLeft() < minTime) return std::nullopt;
  ++pages_;
  try {
    view::Tree tree;
    agent::tryInTurn(sockets_, [&](std::string const& path) {
      tree = view::readView<view::Tree>(agent::ask(path, request, std::max(minTime, secondsLeft())));
    });
    return tree;
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

/// Adds what is one step below a path, or the roots for an empty one, and begins as asked. Returns whether
/// that is all of it.
bool PathReader::addLevel(std::string const& parent) {
  Json request{{"command", "show"}, {"what", "tree"}, {"depth", parent.empty() ? 0 : 1}};
  if (!parent.empty()) request["path"] = parent;
  while (std::optional<view::Tree> tree = ask(request)) {
    for (view::ModelValue const& entry : tree->entries)
      if (entry.path != parent && entry.path.starts_with(begun_)) found_.push_back(entry.path);
    if (!tree->next) return true;
    request["from"] = *tree->next;
  }
  return false;
}

std::vector<std::string> PathReader::read() {
  bool const isWhole = addLevel(parentOf(begun_));
  if (!isWhole && !found_.empty()) found_.push_back(begun_);
  if (isWhole && found_.size() == 1) addLevel(std::string(found_.front()));
  return std::move(found_);
}

}  // namespace

std::vector<std::string> pathsFrom(Sockets sockets, std::string const& begun, double seconds) {
  return PathReader(sockets, begun, seconds).read();
}

}  // namespace pimbsr::cli
