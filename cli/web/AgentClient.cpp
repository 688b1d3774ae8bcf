#include "cli/web/AgentClient.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/control/ControlProtocol.h"
#include "agent/control/ControlSocket.h"
#include "view/Answers.h"

namespace pimbsr::cli {

/// Of an answer; the RP sets of a large domain take some megabytes.
static constexpr std::size_t maxLine = 64 * 1024 * 1024;

static constexpr char const* late = "it did not answer in time";

// A connection ----------------------------------------------------------------------------------------

AgentConnection::AgentConnection(agent::Loop& loop, std::string const& path, std::string const& request,
                                 double seconds, TakeLine take, End whenOver)
    : socket_(agent::connectTo(path, SOCK_NONBLOCK)),
      lines_(maxLine),
      take_(std::move(take)),
      end_(std::move(whenOver)),
      timer_(loop, [this] { this->end(failure_.empty() ? late : failure_); }) {
  std::string const line = request + '\n';
  if (!socket_) {
    failure_ = std::strerror(errno);
  } else if (::send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) !=
             static_cast<ssize_t>(line.size())) {
    failure_ = "it takes no request";
  } else {
    reader_ = std::make_unique<agent::LoopReader>(loop, socket_.get(), [this] { read(); });
  }
  if (!failure_.empty() || seconds > 0) timer_.startIn(failure_.empty() ? seconds : 0);
}

void AgentConnection::read() {
  std::array<char, 65536> chunk;
  ssize_t count = recv(socket_.get(), chunk.data(), chunk.size(), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) return end("it ended the connection");
  lines_.add({chunk.data(), static_cast<std::size_t>(count)});
  try {
    if (!lines_.isReady()) return;
    // The handler may destroy this object, so that the copy is what calls it.
    TakeLine take = take_;
    std::vector<std::string> whole;
    while (auto line = lines_.next()) whole.push_back(std::move(*line));
    for (std::string& line : whole) take(std::move(line));
  } catch (agent::RequestError const&) {
    end("its answer is too long");
  }
}

void AgentConnection::end(std::string const& why) {
  reader_.reset();
  timer_.stop();
  End whenOver = std::move(end_);
  whenOver(why);
}

// Asking ----------------------------------------------------------------------------------------------

/// Takes the result out of an answer without parsing it; that of a large RP set would take long.
static AgentAnswer answerOf(std::string const& line) {
  using agent::granted;
  if (line.starts_with(granted) && line.ends_with('}')) {
    auto result = line.substr(granted.size(), line.size() - granted.size() - 1);
    return {.result = std::make_shared<std::string const>(std::move(result))};
  }
  try {
    auto answer = view::readView<view::Answer>(view::Json::parse(line));
    return {.error = answer.error.value(), .isRejected = true};
  } catch (std::exception const&) {
    return {.error = "what answers is no pimbsr"};
  }
}

void AgentClient::ask(std::string const& request, Done done) { add(request, std::move(done), false); }

void AgentClient::askMetrics(Done done) { add(R"({"command":"metrics"})", std::move(done), true); }

void AgentClient::add(std::string const& request, Done done, bool isMetrics) {
  auto known = queries_.find(request);
  if (known != queries_.end()) {
    known->second.waiting.push_back(std::move(done));
    return;
  }
  if (clock_.now() < hangsUntil_) return done({.error = late});
  if (!isMetrics && next_.size() >= maxWaiting) return done({.error = "too many requests wait for it"});
  Query& query = queries_[request];
  query.waiting.push_back(std::move(done));
  query.asked = clock_.now();
  query.isMetrics = isMetrics;
  query.timer = std::make_unique<agent::LoopTimer>(loop_, [this, request] { expire(request); });
  query.timer->startIn(patience);
  if (isMetrics) return start(request);
  next_.push_back(request);
  startNext();
}

void AgentClient::start(std::string const& request) {
  auto take = [this, request, isAnswered = false](std::string const& line) mutable {
    if (std::exchange(isAnswered, true)) return;
    answered_ = clock_.now();
    finish(request, answerOf(line));
  };
  auto end = [this, request](std::string const& why) { finish(request, {.error = why}); };
  queries_.at(request).connection =
      std::make_unique<AgentConnection>(loop_, agent_.path, request, 0, take, end);
}

void AgentClient::startNext() {
  while (active_ < maxActive && !next_.empty()) {
    std::string request = std::move(next_.front());
    next_.pop_front();
    ++active_;
    start(request);
  }
}

/// `request` may be a part of a handler that is destroyed with the query.
void AgentClient::finish(std::string const& request, AgentAnswer const& answer) {
  auto found = queries_.find(request);
  Query const query = std::move(found->second);
  if (query.connection == nullptr) {
    std::erase(next_, request);
  } else if (!query.isMetrics) {
    --active_;
  }
  queries_.erase(found);
  for (Done const& done : query.waiting) done(answer);
  startNext();
}

void AgentClient::expire(std::string const& request) {
  bool isAlive = answered_ > queries_.at(request).asked;
  if (isAlive) return finish(request, {.error = late});
  failAll();
}

void AgentClient::failAll() {
  hangsUntil_ = clock_.now() + retryTime;
  next_.clear();
  active_ = 0;
  std::map<std::string, Query> queries = std::exchange(queries_, {});
  for (auto const& [request, query] : queries)
    for (Done const& done : query.waiting) done({.error = late});
}

// Watching --------------------------------------------------------------------------------------------

AgentWatch::AgentWatch(agent::Loop& loop, NamedSocket agent, Listener& listener)
    : loop_(loop), agent_(std::move(agent)), listener_(listener), retry_(loop, [this] { connect(); }) {}

void AgentWatch::isWanted(bool wanted) {
  if (wanted == isWanted_) return;
  isWanted_ = wanted;
  if (wanted) return connect();
  retry_.stop();
  connection_.reset();
  isUp_ = false;
}

void AgentWatch::connect() {
  connection_ = std::make_unique<AgentConnection>(
      loop_, agent_.path, R"({"command":"watch"})", AgentClient::patience,
      [this](std::string const& line) { take(line); }, [this](std::string const&) { end(); });
}

/// The first line grants the watch or rejects it.
void AgentWatch::take(std::string const& line) {
  if (connection_ == nullptr) return;
  if (isUp_) return listener_.onChange(agent_.name, line);
  if (answerOf(line).result == nullptr) return end();
  connection_->waitForever();
  isUp_ = true;
  listener_.onAgent(agent_.name, true);
}

void AgentWatch::end() {
  connection_.reset();
  if (std::exchange(isUp_, false)) listener_.onAgent(agent_.name, false);
  if (isWanted_) retry_.startIn(retryTime);
}

}  // namespace pimbsr::cli
