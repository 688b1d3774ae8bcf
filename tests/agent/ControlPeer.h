#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "agent/control/ControlSocket.h"

namespace test {

/// A client of a control socket whose steps a test makes; it never blocks.
class ControlPeer {
 public:
  explicit ControlPeer(std::string const& path) : socket_(pimbsr::agent::connectTo(path, SOCK_NONBLOCK)) {}

  bool isConnected() const { return bool(socket_); }
  /// How many bytes of it went out.
  std::size_t send(std::string const& text) {
    ssize_t count = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  void finish() { shutdown(socket_.get(), SHUT_WR); }
  void leave() { socket_ = pimbsr::agent::FileDescriptor(); }

  /// Reads what is there.
  void read() {
    std::array<char, 65536> chunk;
    for (;;) {
      ssize_t count = recv(socket_.get(), chunk.data(), chunk.size(), 0);
      if (count > 0) take({chunk.data(), static_cast<std::size_t>(count)});
      if (count == 0 || (count < 0 && errno == ECONNRESET)) ended_ = true;
      if (count <= 0) return;
    }
  }
  /// What was read so far.
  std::string const& text() const { return text_; }
  std::size_t lines() const { return lines_; }
  /// Whether read() met the end of the connection.
  bool isEnded() const { return ended_; }

 private:
  void take(std::string_view bytes) {
    text_ += bytes;
    lines_ += static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n'));
  }

  pimbsr::agent::FileDescriptor socket_;
  std::string text_;
  std::size_t lines_ = 0;
  bool ended_ = false;
};

}  // namespace test
