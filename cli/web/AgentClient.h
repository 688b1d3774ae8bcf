#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/base/Clock.h"
#include "agent/base/FileDescriptor.h"
#include "agent/base/Loop.h"
#include "agent/control/ControlProtocol.h"
#include "cli/base/NamedSocket.h"

namespace pimbsr::cli {

/// A connection to a control socket that never blocks, with one request.
class AgentConnection {
 public:
  /// Gets each line without its newline.
  using TakeLine = std::function<void(std::string line)>;
  /// Gets why the connection is over; called once, and last of all.
  using End = std::function<void(std::string const& why)>;

  /// Connects and sends the request, without a newline. Both handlers are called later, in turns of the loop,
  /// and may destroy this object. Without a line after `seconds`, it ends; 0 is no limit.
  AgentConnection(agent::Loop& loop, std::string const& path, std::string const& request, double seconds,
                  TakeLine take, End whenOver);
  /// From now on, waits for the next line for as long as it takes.
  void waitForever() { timer_.stop(); }

 private:
  void read();
  void end(std::string const& why);

  agent::FileDescriptor socket_;
  agent::LineBuffer lines_;
  TakeLine take_;
  End end_;
  std::string failure_;  ///< why it could not connect
  agent::LoopTimer timer_;
  std::unique_ptr<agent::LoopReader> reader_;  ///< closed before its socket
};

/// What an agent answered.
struct AgentAnswer {
  std::shared_ptr<std::string const> result;  ///< the result as JSON; null for an error
  std::string error;                          ///< why there is no result
  bool isRejected = false;                    ///< the agent answers, but rejects the request
};

/// Asks one agent over its control socket, without ever waiting for it.
///
/// Equal requests that wait at the same time are asked once, and few connections are open, so that many
/// clients cost the agent what a few do. A request has an answer or an error `patience` seconds after it was
/// asked at most. If the agent answered nothing in that time, all that wait fail too, and others at once
/// until `retryTime` is over: an agent that hangs delays a client once and not in each of its requests.
class AgentClient {
 public:
  using Done = std::function<void(AgentAnswer const&)>;
  static constexpr double patience = 5;          ///< seconds
  static constexpr double retryTime = 5;         ///< seconds
  static constexpr std::size_t maxActive = 2;    ///< connections at a time, and one for metrics
  static constexpr std::size_t maxWaiting = 64;  ///< different requests that wait for a connection

  AgentClient(agent::Loop& loop, NamedSocket agent) : loop_(loop), agent_(std::move(agent)) {}
  AgentClient(AgentClient const&) = delete;
  AgentClient& operator=(AgentClient const&) = delete;

  std::string const& name() const { return agent_.name; }
  std::string const& path() const { return agent_.path; }
  /// Calls `done` in a later turn of the loop, or at once where too many requests wait or the agent hangs.
  void ask(std::string const& request, Done done);
  /// The same for its metrics, which wait for no other request.
  void askMetrics(Done done);

 private:
  struct Query {
    std::vector<Done> waiting;
    std::unique_ptr<AgentConnection> connection;  ///< null while it waits for its turn
    std::unique_ptr<agent::LoopTimer> timer;
    double asked = 0;
    bool isMetrics = false;  ///< needs none of maxActive
  };

  void add(std::string const& request, Done done, bool isMetrics);
  void start(std::string const& request);
  void startNext();
  void expire(std::string const& request);
  void failAll();
  void finish(std::string const& request, AgentAnswer const& answer);

  agent::Loop& loop_;
  NamedSocket agent_;
  std::map<std::string, Query> queries_;  ///< by request
  std::deque<std::string> next_;
  std::size_t active_ = 0;
  agent::Clock const clock_;
  double answered_ = 0;    ///< when it last answered
  double hangsUntil_ = 0;  ///< no request is sent before
};

/// Follows the changes of one agent while it is wanted, and connects again when the agent is back.
class AgentWatch {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /// The watch was granted, or is over.
    virtual void onAgent(std::string const& name, bool isUp) = 0;
    /// One change, as a JSON object.
    virtual void onChange(std::string const& name, std::string const& change) = 0;
  };
  static constexpr double retryTime = 1;  ///< seconds until the next try

  AgentWatch(agent::Loop& loop, NamedSocket agent, Listener& listener);

  /// Begins or ends watching.
  void isWanted(bool wanted);
  bool isUp() const { return isUp_; }

 private:
  void connect();
  void take(std::string const& line);
  void end();

  agent::Loop& loop_;
  NamedSocket agent_;
  Listener& listener_;
  agent::LoopTimer retry_;
  std::unique_ptr<AgentConnection> connection_;
  bool isWanted_ = false;
  bool isUp_ = false;
};

}  // namespace pimbsr::cli
