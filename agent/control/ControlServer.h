#pragma once

#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "agent/base/UvHandle.h"
#include "agent/control/ControlConnection.h"
#include "agent/control/ControlCounts.h"
#include "agent/control/ControlProtocol.h"
#include "agent/control/ControlSocket.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Answers the requests of a control socket.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;
  /// The result of a request; that of `watch` grants it. Throws RequestError, whose text is sent, for one
  /// that can't be granted. May publish, and must not close the server.
  virtual nlohmann::ordered_json answer(Request const& request) = 0;
  /// What a watched path names now.
  virtual PathValue valueAt(std::string const& path) = 0;
  /// That as a line for who watches the path, without a newline.
  virtual std::string lineOf(std::string const& path, PathValue const& value) = 0;
};

/// Where a control socket is, and what it serves.
struct ControlEndpoint {
  std::string path;
  std::string group;      ///< name of the group that may use it; empty for that of the process
  bool readOnly = false;  ///< it serves no request that changes the agent
  std::string fullPath;   ///< of a read-only one: the socket that serves all requests; empty for none
};

/// Serves the control protocol on a Unix socket, from a libuv loop. It never waits for a client, nothing that
/// a client does ends the agent, and the work of one turn of the loop is bounded: see ControlLimits.
class ControlServer final : private ConnectionOwner {
 public:
  /// Listens at once, and serves once the loop runs. Throws ControlError, with what would help, if it can't
  /// listen. The loop and the handler outlive it.
  ControlServer(uv_loop_t* loop, ControlEndpoint endpoint, RequestHandler& handler,
                ControlLimits const& limits = {});
  /// Closes.
  ~ControlServer() override;

  /// Ends all connections, with what they have not read yet, and removes the socket. The loop lets go of what
  /// is left of them in its next turn, also when the server is gone by then: run it until idle before closing
  /// it.
  void close();

  /// Sends a line of JSON, which has no newline, to all watchers of changes.
  void publish(std::string_view jsonLine);
  bool hasWatchers() const;
  /// An event has ended that may have changed the model. A client that watches a path of it is sent the value
  /// if that is another one than before; what happens while watched values rest is compared once, after that.
  void modelChanged();
  ControlCounts counts() const;
  ControlStatus status() const;

 private:
  /// What is kept of a user while it has a connection.
  struct User {
    std::size_t clients = 0;
    Zet::U64 lastAnswer = 0;  ///< number of its last answer among all; 0 for none
  };

  /// Which connections give way first, next and last.
  enum class GivingWay { idle, unread, asking };

  Zet::U64 asks() override;
  Reply reply(ControlConnection const& connection, std::string const& line) override;
  void served(ControlConnection& connection) override;

  bool isPrivileged(uid_t user) const { return user == 0 || user == agentUser_; }
  std::size_t clientsOf(uid_t user) const;
  std::size_t count(uid_t user, ConnectionState state) const;
  bool isOrdinaryFull() const;

  void acceptSome();
  bool acceptNext();
  void take(FileDescriptor client, uid_t user);
  void reject(FileDescriptor const& client);
  bool hasPlaceFor(uid_t user) const;
  bool makePlaceFor(uid_t user);
  bool mayTakeFrom(uid_t other, uid_t user) const;
  bool givesWay(ControlConnection const& connection, uid_t user, GivingWay step) const;
  ControlConnection* nextToGiveWay(uid_t user, GivingWay step) const;
  void listen();
  void pause();

  void answerInTurns();
  void answerSome();
  void answer(ControlConnection& connection);
  bool isResting(uid_t user, Zet::U64 now) const;
  void waitForRests(Zet::U64 now);
  ControlConnection* nextAsking(Zet::U64 lastTicket, Zet::U64 now) const;
  nlohmann::ordered_json resultOf(Request const& request);
  std::string shareError(ControlConnection const& connection, Request const& request) const;
  std::string watchError(uid_t user) const;
  void sweep();

  void readValues();
  void readValue(ControlConnection& connection);
  void restFromValues(Zet::U64 start);
  ControlConnection* nextToRead() const;

  uv_loop_t* loop_;
  ControlEndpoint endpoint_;
  RequestHandler& handler_;
  ControlLimits limits_;
  uid_t agentUser_;
  ControlCounts totals_;
  std::unique_ptr<ControlSocket> socket_;  ///< null once closed
  UvHandle<uv_poll_t> poll_;               ///< closed before the socket
  UvHandle<uv_timer_t> pause_;
  UvHandle<uv_idle_t> answers_;  ///< runs while a connection asks whose user doesn't rest
  UvHandle<uv_timer_t> rest_;    ///< runs while all that ask belong to users that rest
  std::vector<std::unique_ptr<ControlConnection>> connections_;
  std::map<uid_t, User> users_;
  /// Users that rest after a long answer, with or without a connection, and until when by uv_hrtime().
  std::map<uid_t, Zet::U64> rests_;
  Zet::U64 tickets_ = 0;
  Zet::U64 answered_ = 0;
  bool answering_ = false;
  UvHandle<uv_timer_t> valuesRest_;  ///< runs while no watched value is read
  std::size_t pathWatches_ = 0;      ///< connections that watch a path
  Zet::U64 valuesRead_ = 0;
  bool hasNewPathWatch_ = false;  ///< granted by the answer in hand
};

}  // namespace pimbsr::agent
