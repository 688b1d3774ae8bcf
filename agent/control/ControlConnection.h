#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/base/UvHandle.h"
#include "agent/control/ControlProtocol.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Bounds for the clients of one control socket. Times are real time, and above 0.
///
/// A connection is idle while it holds no complete request, asking while its request waits for its turn,
/// unread while its answer was not read to its end, or a watcher. At the limit one gives way to a new one:
/// the longest idle one of the user with the most connections; else the longest unread one, once that has
/// waited for `unreadGrace`; else an asking one. Only users with more connections than the new one's have to
/// give way, and that user itself with idle ones. Watchers never give way, so `watches` and `userWatches`
/// bound them. Users are distinguished by uid. Root and the agent's own user are privileged: `reserve`
/// connections and watches are for them alone, and all but the watchers of other users give way to them at
/// once.
struct ControlLimits {
  std::size_t clients = 32;                     ///< connections at a time, watchers and reserve among them
  std::size_t reserve = 4;                      ///< of `clients` and of `watches`, for privileged users
  std::size_t watches = 24;                     ///< watchers at a time, the reserve among them
  std::size_t userWatches = 12;                 ///< watchers of one user
  std::size_t userUnread = 8;                   ///< unread connections of one user
  std::size_t watchBacklog = 256 * 1024;        ///< bytes that may wait for a watcher before it is dropped
  std::size_t acceptsPerTurn = 64;              ///< new connections in one turn of the loop
  std::chrono::milliseconds answersPerTurn{5};  ///< of one turn, after which no further answer is begun
  unsigned restFactor = 4;                      ///< times of a longer answer for which its user gets no other
  unsigned valuesRestFactor = 19;               ///< times of a reading of watched values for which they rest
  std::chrono::milliseconds silence{10000};     ///< for a whole request to come, from the last answer on
  std::chrono::milliseconds answerTime{10000};  ///< for an answer to be read
  std::chrono::milliseconds unreadGrace{1000};  ///< for which an unread connection doesn't give way
  std::chrono::milliseconds acceptPause{1000};  ///< until the next accept, once descriptors ran out
};

/// The bounds of a socket with so many connections, of which so many may be one user's watches; the others
/// are in proportion.
ControlLimits limitsFor(std::size_t clients, std::size_t userWatches);

/// Why a connection has ended.
enum class ConnectionEnd {
  open,     ///< it hasn't
  closed,   ///< by the client, or after an answer that was the last one
  silent,   ///< no whole request came in time
  slow,     ///< the client did not read in time
  gaveWay,  ///< a new connection took its place
  failed    ///< a system error
};

/// What a connection does, which decides whether it may give way.
enum class ConnectionState {
  idle,    ///< it holds no complete request
  asking,  ///< its request waits for the server's turn
  unread,  ///< its answer was not read to its end
  watching
};

/// The value of a path of the model at one time.
struct PathValue {
  std::optional<std::string> value;  ///< nothing while the path names nothing
  std::string unit;                  ///< empty for none
  std::string missing;               ///< why the path names nothing
};

/// What a connection is to send for a request.
struct Reply {
  std::string line;     ///< with its newline
  bool watch = false;   ///< from now on it is a watcher's
  std::string path;     ///< of a watch: the path of the model; empty for changes
  bool atOnce = false;  ///< the connection ends if the kernel doesn't take the whole line at once
};

class ControlConnection;

/// What a connection needs from its server.
class ConnectionOwner {
 public:
  virtual ~ConnectionOwner() = default;
  /// A connection has begun to ask: returns its ticket, above 0 and above all earlier ones. The owner calls
  /// answer() in a later turn of the loop.
  virtual Zet::U64 asks() = 0;
  /// The answer to a line without its newline.
  virtual Reply reply(ControlConnection const& connection, std::string const& line) = 0;
  /// An event was served; called last of all, so that a connection that is over may be destroyed.
  virtual void served(ControlConnection& connection) = 0;
};

/// One client of the control socket.
///
/// Requests are answered one by one, at most one in a turn of the loop, and none before the answer ahead of
/// it was handed to the kernel; until then nothing is read. So a client costs one answer and two requests of
/// memory, however much it asks. Lines for a watcher wait up to a bound; what it sends is discarded.
class ControlConnection {
 public:
  /// Takes the socket of a client that `user` runs; it must not block. Throws std::system_error if the loop
  /// doesn't accept it.
  ControlConnection(uv_loop_t* loop, FileDescriptor socket, uid_t user, ControlLimits const& limits,
                    ConnectionOwner& owner);
  ControlConnection(ControlConnection const&) = delete;
  ControlConnection& operator=(ControlConnection const&) = delete;

  uid_t user() const { return user_; }
  ConnectionState state() const;
  bool isWatcher() const { return watching_; }
  ConnectionEnd end() const { return end_; }
  bool isOver() const { return end_ != ConnectionEnd::open; }
  /// Of an asking connection: what its owner gave it; else 0.
  Zet::U64 ticket() const { return ticket_; }
  /// Since when it is idle or unread: milliseconds on the loop's clock.
  Zet::U64 since() const { return since_; }
  /// Whether the kernel holds a complete request of an idle connection that was not read yet.
  bool hasRequestInKernel() const;

  /// Answers the request of an asking connection. May destroy this object.
  void answer();
  /// Ends it in favor of another connection. An idle one is sent the line, which has its newline.
  void giveWay(std::string const& line);
  // The value that a watcher follows.

  /// The path of a watcher; empty for one of changes, and for a client that is none.
  std::string const& watchedPath() const { return path_; }
  /// From now on the value may be another one than the watcher was sent.
  void valueMayDiffer() { wantsValue_ = !path_.empty() && !isOver(); }
  bool wantsValue() const { return wantsValue_ && !isOver(); }
  /// When takeValue() was called last: its number; 0 for never.
  Zet::U64 lastRead() const { return lastRead_; }
  /// Takes the value as it is now; whether it is the first one or differs from the one before.
  bool takeValue(PathValue const& value, Zet::U64 number);
  /// Ends it after an error of the system.
  void fail() { endIs(ConnectionEnd::failed); }
  /// Sends a line, with its newline, to a watcher. One that has left too much unread is over then.
  void publish(std::shared_ptr<std::string const> const& line);

 private:
  template <class Step>
  void guard(Step const& step) noexcept;
  void serve(int status, int events);
  void read();
  bool isReady() const { return lines_.isReady() || (finished_ && !lines_.empty()); }
  void ask();
  void answerNext();
  Reply nextReply();
  void enqueue(std::shared_ptr<std::string const> line);
  void flush();
  void waitFor(std::chrono::milliseconds time);
  void handleTimeout();
  int wantedEvents() const;
  void attend();
  void endIs(ConnectionEnd end);

  ControlLimits const& limits_;
  ConnectionOwner& owner_;
  uid_t user_;
  FileDescriptor socket_;
  UvHandle<uv_poll_t> poll_;  ///< closed before its socket
  UvHandle<uv_timer_t> timer_;
  int attended_ = 0;  ///< events that the loop watches for
  LineBuffer lines_;
  bool finished_ = false;  ///< the client sends no more
  bool leaving_ = false;   ///< the answer in hand is the last one
  bool watching_ = false;
  std::string path_;
  std::optional<std::string> value_;  ///< as it was sent last
  bool wantsValue_ = false;
  Zet::U64 lastRead_ = 0;
  Zet::U64 ticket_ = 0;
  Zet::U64 since_ = 0;
  std::deque<std::shared_ptr<std::string const>> out_;
  std::size_t sent_ = 0;    ///< of the first line of out_
  std::size_t unread_ = 0;  ///< bytes of out_ that were not sent
  ConnectionEnd end_ = ConnectionEnd::open;
};

}  // namespace pimbsr::agent
