#include "agent/control/ControlClient.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>

#include "agent/control/ControlSocket.h"
#include "view/Answers.h"

namespace pimbsr::agent {

using Json = nlohmann::ordered_json;

// Explanations ----------------------------------------------------------------------------------------------

static std::string userName(uid_t user) {
  passwd const* entry = getpwuid(user);
  return entry == nullptr ? fmt::format("user {}", user) : entry->pw_name;
}

static std::string groupName(gid_t group) {
  ::group const* entry = getgrgid(group);
  return fmt::format("group {}", entry == nullptr ? std::to_string(group) : entry->gr_name);
}

static std::string deniedText(std::string const& path) {
  std::string me = userName(geteuid());
  struct stat socket {};
  if (stat(path.c_str(), &socket) != 0) {
    return fmt::format("permission denied: {} may not look for {}; try with sudo", me, path);
  }
  return fmt::format("permission denied: {} may use {}, and {} is not among them; try with sudo",
                     userName(socket.st_uid) + " and the members of " + groupName(socket.st_gid), path, me);
}

static std::string unreachableText(std::string const& path, int error, double patience) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return fmt::format(
          "there is no {}: is pimbsr running? 'pimbsr run' makes the socket that its configuration names; "
          "--socket or PIMBSR_SOCKET names another one",
          path);
    case ECONNREFUSED:
      return fmt::format("no pimbsr listens at {}: the one that made it has ended; is another one running?",
                         path);
    case EAGAIN:
      return fmt::format("pimbsr at {} took no client for {:g} seconds", path, patience);
    default:
      return fmt::format("cannot reach pimbsr at {}: {}", path, std::strerror(error));
  }
}

// A connection ----------------------------------------------------------------------------------------------

namespace {

class Conversation {
 public:
  Conversation(std::string const& path, double patience)
      : path_(path), patience_(patience), socket_(connectTo(path, 0, patience)) {
    if (socket_) return;
    int error = errno;
    if (error == EACCES || error == EPERM) throw DeniedError(deniedText(path));
    throw ClientError(unreachableText(path, error, patience));
  }

  /// An agent without a place for the client sends an error and closes; so a failure to send is no error.
  void send(Json const& request) {
    std::string line = request.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    for (std::size_t sent = 0; sent < line.size();) {
      ssize_t count = ::send(socket_.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return;
      sent += static_cast<std::size_t>(count);
    }
  }

  Json result() {
    std::optional<std::string> line = next();
    if (!line) throw ClientError(fmt::format("pimbsr at {} ended the connection without an answer", path_));
    view::Answer answer = answerOf(*line);
    if (answer.ok && answer.result) return std::move(*answer.result);
    if (answer.error) throw RequestError(*answer.error);
    throw ClientError(fmt::format("what answers at {} is no pimbsr", path_));
  }

  void waitForever() {
    timeval never{};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &never, sizeof never);
  }

  /// The next line without its newline; nothing at the end of the connection.
  std::optional<std::string> next() {
    for (std::size_t searched = 0;; searched = bytes_.size(), receive()) {
      std::size_t end = bytes_.find('\n', searched);
      if (end != bytes_.npos) {
        std::string line = bytes_.substr(0, end);
        bytes_.erase(0, end + 1);
        return line;
      }
      if (ended_) return std::nullopt;
    }
  }

 private:
  /// The answer of a line; one with neither result nor error for anything else.
  static view::Answer answerOf(std::string const& line) {
    try {
      return view::readView<view::Answer>(Json::parse(line));
    } catch (std::exception const&) {
      return {};
    }
  }

  void receive() {
    std::array<char, 65536> chunk;
    ssize_t count = recv(socket_.get(), chunk.data(), chunk.size(), 0);
    if (count > 0) bytes_.append(chunk.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno == ECONNRESET)) ended_ = true;
    if (count >= 0 || errno == EINTR || errno == ECONNRESET) return;
    if (errno != EAGAIN) throw ClientError(unreachableText(path_, errno, patience_));
    throw ClientError(fmt::format("pimbsr at {} has not answered for {:g} seconds", path_, patience_));
  }

  std::string path_;
  double patience_;
  FileDescriptor socket_;
  std::string bytes_;
  bool ended_ = false;
};

}  // namespace

// Asking ----------------------------------------------------------------------------------------------------

Json ask(std::string const& path, Json const& request, double patience) {
  Conversation agent(path, patience);
  agent.send(request);
  return agent.result();
}

void tryInTurn(std::span<std::string const> paths, std::function<void(std::string const& path)> const& act) {
  std::string reasons;
  for (std::string const& path : paths) {
    try {
      return act(path);
    } catch (DeniedError const& error) {
      reasons += (reasons.empty() ? "" : "; ") + std::string(error.what());
    }
  }
  throw DeniedError(reasons);
}

void watch(std::string const& path, TakeLine const& take, std::string const& watched, double patience) {
  Conversation agent(path, patience);
  Json request{{"command", "watch"}};
  if (!watched.empty()) request["path"] = watched;
  agent.send(request);
  agent.result();
  agent.waitForever();
  while (std::optional<std::string> line = agent.next()) {
    if (!take(*line)) return;
  }
  throw ClientError(fmt::format(
      "the stream of {} has ended: pimbsr was stopped, or its changes were not read fast enough", path));
}

}  // namespace pimbsr::agent
