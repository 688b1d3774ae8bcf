#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "agent/ControlProtocol.h"
#include "agent/ControlSocket.h"
#include "agent/UvHandle.h"

namespace pimbsr::agent {

/// How much the clients of a control socket may cost the agent. Times are real time, and above 0.
struct ControlLimits {
  std::size_t clients = 32;                     ///< connections at a time, watchers among them
  std::size_t watchBacklog = 256 * 1024;        ///< bytes that may wait for a watcher before it is dropped
  std::chrono::milliseconds silence{10000};     ///< for a whole request to come, from the last answer on
  std::chrono::milliseconds answerTime{10000};  ///< for an answer to be read
  std::chrono::milliseconds acceptPause{
      1000};  ///< until a next client is let in, once there was no room for it
};

/// Why a connection is over.
enum class ConnectionEnd {
  open,    ///< it isn't
  closed,  ///< by the client, or after an answer that was the last one
  silent,  ///< no whole request came in time
  slow,    ///< the client did not read in time
  failed   ///< the system refused something
};

/// What a connection is to send for a request.
struct Reply {
  std::string line;    ///< with its newline
  bool watch = false;  ///< from now on it is a watcher's
};

class ControlConnection;

/// What a connection needs from the one who took it.
class ConnectionOwner {
 public:
  virtual ~ConnectionOwner() = default;
  /// The answer to a line without its newline.
  virtual Reply reply(std::string const& line) = 0;
  /// An event was served; called last of all, so that a connection that is over may be destroyed.
  virtual void served(ControlConnection& connection) = 0;
};

/// One client of the control socket.
///
/// Requests are answered one by one, at most one in a turn of the loop, and none before the answer ahead of
/// it was handed to the kernel; until then nothing is read. So a client costs one answer and two requests of
/// memory, however much it asks. A watcher's lines wait for it up to a bound; what it says is not listened
/// to, but its end is.
class ControlConnection {
 public:
  /// Takes the socket, which must not block. Throws std::system_error if the loop refuses it.
  ControlConnection(uv_loop_t* loop, SocketFd socket, ControlLimits const& limits, ConnectionOwner& owner);
  ControlConnection(ControlConnection const&) = delete;
  ControlConnection& operator=(ControlConnection const&) = delete;

  bool isWatcher() const { return watching_; }
  ConnectionEnd end() const { return end_; }
  bool isOver() const { return end_ != ConnectionEnd::open; }
  /// Sends a line, with its newline, to a watcher. One that has left too much unread is over then.
  void publish(std::shared_ptr<std::string const> const& line);

 private:
  template <class Step>
  void guard(Step const& step) noexcept;
  void serve(int status, int events);
  void read();
  void answerNext();
  Reply nextReply();
  void enqueue(std::shared_ptr<std::string const> line);
  void flush();
  void waitFor(std::chrono::milliseconds time);
  void handleTimeout();
  void attend();
  void endIs(ConnectionEnd end);

  ControlLimits const& limits_;
  ConnectionOwner& owner_;
  SocketFd socket_;
  UvHandle<uv_poll_t> poll_;  ///< closed before its socket
  UvHandle<uv_timer_t> timer_;
  int attended_ = 0;  ///< events that the loop watches for
  LineBuffer lines_;
  bool finished_ = false;  ///< the client sends no more
  bool leaving_ = false;   ///< the answer in hand is the last one
  bool watching_ = false;
  std::deque<std::shared_ptr<std::string const>> out_;
  std::size_t sent_ = 0;    ///< of the first line of out_
  std::size_t unread_ = 0;  ///< bytes of out_ that were not sent
  ConnectionEnd end_ = ConnectionEnd::open;
};

}  // namespace pimbsr::agent
