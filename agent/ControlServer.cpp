#include "agent/ControlServer.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "runtime/Assert.h"

namespace pimbsr::agent {

ControlServer::ControlServer(uv_loop_t* loop, std::string path, RequestHandler& handler,
                             ControlLimits const& limits)
    : loop_(loop),
      handler_(handler),
      limits_(limits),
      socket_(std::make_unique<ControlSocket>(std::move(path))),
      poll_(makePoll(loop, socket_->fd(), this)),
      pause_(makeTimer(loop, this)) {
  listen();
}

ControlServer::~ControlServer() { close(); }

void ControlServer::close() {
  ZET_ASSERT(!answering_, "a control server is not closed by an answer");
  connections_.clear();
  poll_.reset();
  pause_.reset();
  socket_.reset();
}

// Clients come ----------------------------------------------------------------------------------------------

void ControlServer::listen() {
  auto call = [](uv_poll_t* poll, int, int) { static_cast<ControlServer*>(poll->data)->acceptNext(); };
  uv_poll_start(poll_.get(), UV_READABLE, call);
}

/// The one who waits would wake the loop again at once, and there would still be no room for it.
void ControlServer::pause() {
  uv_poll_stop(poll_.get());
  auto call = [](uv_timer_t* timer) { static_cast<ControlServer*>(timer->data)->listen(); };
  uv_timer_start(pause_.get(), call, static_cast<uint64_t>(limits_.acceptPause.count()), 0);
}

void ControlServer::acceptNext() {
  SocketFd client(accept4(socket_->fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!client) {
    if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) pause();
    return;
  }
  try {
    take(std::move(client));
  } catch (std::exception const&) {
    ++totals_.failed;
  }
}

void ControlServer::take(SocketFd client) {
  if (connections_.size() < limits_.clients) {
    ConnectionOwner& self = *this;
    connections_.push_back(std::make_unique<ControlConnection>(loop_, std::move(client), limits_, self));
    return;
  }
  ++totals_.refused;
  std::string line =
      errorLine(fmt::format("{} clients are connected, and no more are served", limits_.clients));
  // A new socket has room for it; if not, its client learns by the end of the connection.
  [[maybe_unused]] auto sent = send(client.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

// Clients ask -----------------------------------------------------------------------------------------------

Reply ControlServer::reply(std::string const& line) {
  ++totals_.requests;
  answering_ = true;
  Reply result;
  try {
    Request request = parseRequest(line);
    result = {.line = answerLine(handler_.answer(request)), .watch = request.command == Command::watch};
  } catch (RequestError const& refusal) {
    result = {.line = errorLine(refusal.what())};
  } catch (std::exception const& fault) {
    result = {.line = errorLine(fmt::format("the agent failed to answer: {}", fault.what()))};
  }
  answering_ = false;
  return result;
}

void ControlServer::publish(std::string_view jsonLine) {
  if (!hasWatchers()) return;
  ZET_ASSERT(jsonLine.find('\n') == jsonLine.npos, "a published line is one line");
  auto line = std::make_shared<std::string const>(std::string(jsonLine) + '\n');
  for (auto const& connection : connections_) {
    if (connection->isWatcher()) connection->publish(line);
  }
  sweep();
}

// Clients go ------------------------------------------------------------------------------------------------

void ControlServer::served(ControlConnection& connection) {
  if (connection.isOver()) sweep();
}

void ControlServer::sweep() {
  for (auto const& connection : connections_) {
    totals_.slow += connection->end() == ConnectionEnd::slow;
    totals_.silent += connection->end() == ConnectionEnd::silent;
    totals_.failed += connection->end() == ConnectionEnd::failed;
  }
  std::erase_if(connections_, [](auto const& connection) { return connection->isOver(); });
}

static bool isWatcher(std::unique_ptr<ControlConnection> const& connection) {
  return connection->isWatcher();
}

bool ControlServer::hasWatchers() const {
  return std::any_of(connections_.begin(), connections_.end(), isWatcher);
}

ControlCounts ControlServer::counts() const {
  ControlCounts counts = totals_;
  counts.clients = connections_.size();
  auto watchers = std::count_if(connections_.begin(), connections_.end(), isWatcher);
  counts.watchers = static_cast<std::size_t>(watchers);
  return counts;
}

}  // namespace pimbsr::agent
