#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "agent/ControlConnection.h"
#include "agent/ControlProtocol.h"
#include "agent/ControlSocket.h"
#include "agent/UvHandle.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Who answers what is asked over a control socket.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;
  /// The result of a request; that of `watch` grants it. Throws RequestError, whose text is sent, for one
  /// that can't be granted. May publish, and must not close the server.
  virtual nlohmann::ordered_json answer(Request const& request) = 0;
};

/// What a control socket has seen.
struct ControlCounts {
  std::size_t clients = 0;   ///< connected now, watchers among them
  std::size_t watchers = 0;  ///< connected now
  Zet::U64 requests = 0;     ///< lines that were answered, with a result or an error
  Zet::U64 refused = 0;      ///< connections beyond the limit
  Zet::U64 slow = 0;         ///< dropped since they did not read in time
  Zet::U64 silent = 0;       ///< dropped since they sent no whole request in time
  Zet::U64 failed = 0;       ///< dropped since the system refused something
};

/// Serves the control protocol on a Unix socket, from a libuv loop. Nobody is ever waited for, and nothing a
/// client does ends the agent.
class ControlServer final : private ConnectionOwner {
 public:
  /// Listens at once, and serves once the loop runs. Throws ControlError, with what would help, if it can't
  /// listen. The loop and the handler outlive it.
  ControlServer(uv_loop_t* loop, std::string path, RequestHandler& handler, ControlLimits const& limits = {});
  /// Closes.
  ~ControlServer();

  /// Ends all connections, with what they have not read yet, and removes the socket. The loop lets go of what
  /// is left of them in its next turn, also when the server is gone by then: run it until idle before closing
  /// it.
  void close();

  /// Sends a line of JSON, which has no newline, to all watchers.
  void publish(std::string_view jsonLine);
  bool hasWatchers() const;
  ControlCounts counts() const;

 private:
  Reply reply(std::string const& line) override;
  void served(ControlConnection& connection) override;
  void sweep();
  void acceptNext();
  void take(SocketFd client);
  void listen();
  void pause();

  uv_loop_t* loop_;
  RequestHandler& handler_;
  ControlLimits limits_;
  ControlCounts totals_;
  std::unique_ptr<ControlSocket> socket_;  ///< null once closed
  UvHandle<uv_poll_t> poll_;               ///< closed before the socket
  UvHandle<uv_timer_t> pause_;
  std::vector<std::unique_ptr<ControlConnection>> connections_;
  bool answering_ = false;
};

}  // namespace pimbsr::agent
