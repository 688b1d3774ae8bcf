#pragma once

#include <memory>
#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/control/ControlSocket.h"

namespace pimbsr::cli {

/// The socket at which the pages are served: TCP, Unix, or one that the service manager has opened.
class WebSocket {
 public:
  /// Listens at ADDRESS:PORT or unix:PATH; port 0 is any. Throws UsageError for another text, or
  /// std::system_error or agent::ControlError if it can't listen there.
  explicit WebSocket(std::string const& place);
  /// Takes the socket that the service manager passed (LISTEN_FDS of the environment), which must listen.
  static WebSocket passed();
  /// Whether the service manager passed a socket to this process.
  static bool isPassed();

  int fd() const { return unix_ ? unix_->fd() : socket_.get(); }
  /// Whether it can't be reached from other systems.
  bool isLocal() const { return isLocal_; }
  /// Where it listens, as "http://127.0.0.1:9743/" or "unix:/run/pimbsr/web.sock".
  std::string place() const;

 private:
  WebSocket() = default;
  void readName();

  std::unique_ptr<agent::ControlSocket> unix_;
  agent::FileDescriptor socket_;
  bool isLocal_ = true;
  bool isUnix_ = false;
  std::string address_;  ///< as in a URL, with brackets around one of IPv6
  unsigned port_ = 0;
};

}  // namespace pimbsr::cli
