#include "agent/control/ControlServer.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "runtime/Assert.h"

namespace pimbsr::agent {

using Zet::U64;

ControlServer::ControlServer(uv_loop_t* loop, ControlEndpoint endpoint, RequestHandler& handler,
                             ControlLimits const& limits)
    : loop_(loop),
      endpoint_(std::move(endpoint)),
      handler_(handler),
      limits_(limits),
      agentUser_(geteuid()),
      socket_(std::make_unique<ControlSocket>(endpoint_.path, endpoint_.group)),
      poll_(makePoll(loop, socket_->fd(), this)),
      pause_(makeTimer(loop, this)),
      answers_(makeIdle(loop, this)),
      rest_(makeTimer(loop, this)),
      valuesRest_(makeTimer(loop, this)) {
  listen();
}

ControlServer::~ControlServer() { close(); }

void ControlServer::close() {
  ZET_ASSERT(!answering_, "a control server is not closed by an answer");
  connections_.clear();
  pathWatches_ = 0;
  users_.clear();
  poll_.reset();
  pause_.reset();
  answers_.reset();
  rest_.reset();
  valuesRest_.reset();
  socket_.reset();
}

// Counting --------------------------------------------------------------------------------------------------

std::size_t ControlServer::clientsOf(uid_t user) const {
  auto found = users_.find(user);
  return found == users_.end() ? 0 : found->second.clients;
}

std::size_t ControlServer::count(uid_t user, ConnectionState state) const {
  auto matches = [&](auto const& connection) {
    return connection->user() == user && connection->state() == state;
  };
  return static_cast<std::size_t>(std::count_if(connections_.begin(), connections_.end(), matches));
}

/// Whether users that are not privileged have all places that may be theirs.
bool ControlServer::isOrdinaryFull() const {
  std::size_t privileged = clientsOf(0) + (agentUser_ == 0 ? 0 : clientsOf(agentUser_));
  return connections_.size() - privileged + limits_.reserve >= limits_.clients;
}

static bool isWatcher(std::unique_ptr<ControlConnection> const& connection) {
  return connection->isWatcher();
}

static bool watchesChanges(std::unique_ptr<ControlConnection> const& connection) {
  return connection->isWatcher() && connection->watchedPath().empty();
}

bool ControlServer::hasWatchers() const {
  return std::any_of(connections_.begin(), connections_.end(), watchesChanges);
}

ControlCounts ControlServer::counts() const {
  ControlCounts counts = totals_;
  counts.clients = connections_.size();
  auto watchers = std::count_if(connections_.begin(), connections_.end(), isWatcher);
  counts.watchers = static_cast<std::size_t>(watchers);
  return counts;
}

ControlStatus ControlServer::status() const {
  ControlStatus status{.path = endpoint_.path, .readOnly = endpoint_.readOnly, .counts = counts()};
  for (auto const& [uid, user] : users_) {
    status.users.push_back({.uid = uid,
                            .clients = user.clients,
                            .watchers = count(uid, ConnectionState::watching),
                            .unread = count(uid, ConnectionState::unread)});
  }
  return status;
}

// Accepting -------------------------------------------------------------------------------------------------

void ControlServer::listen() {
  auto call = [](uv_poll_t* poll, int, int) { static_cast<ControlServer*>(poll->data)->acceptSome(); };
  uv_poll_start(poll_.get(), UV_READABLE, call);
}

/// A client that waits for a descriptor would wake the loop again at once, in vain.
void ControlServer::pause() {
  uv_poll_stop(poll_.get());
  auto call = [](uv_timer_t* timer) { static_cast<ControlServer*>(timer->data)->listen(); };
  uv_timer_start(pause_.get(), call, static_cast<uint64_t>(limits_.acceptPause.count()), 0);
}

/// Several at once, so that a user who connects without end doesn't keep others waiting in the kernel's
/// queue; and not all, so that the loop gets on.
void ControlServer::acceptSome() {
  for (std::size_t n = 0; n < limits_.acceptsPerTurn; ++n) {
    if (!acceptNext()) break;
  }
}

/// The uid of a client when it connected; one uid, -1, for all clients without.
static uid_t userOf(FileDescriptor const& client) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  bool known = getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0;
  return known ? credentials.uid : static_cast<uid_t>(-1);
}

bool ControlServer::acceptNext() {
  FileDescriptor client(accept4(socket_->fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!client) {
    if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) pause();
    return false;
  }
  uid_t user = userOf(client);
  try {
    if (hasPlaceFor(user) || makePlaceFor(user)) {
      take(std::move(client), user);
    } else {
      reject(client);
    }
  } catch (std::exception const&) {
    ++totals_.failed;
  }
  return true;
}

void ControlServer::take(FileDescriptor client, uid_t user) {
  ConnectionOwner& self = *this;
  auto connection = std::make_unique<ControlConnection>(loop_, std::move(client), user, limits_, self);
  User& its = users_[user];
  connections_.push_back(std::move(connection));
  ++its.clients;
}

/// The send buffer of a new socket holds the line; otherwise its client sees the end of the connection alone.
void ControlServer::reject(FileDescriptor const& client) {
  ++totals_.rejected;
  std::string line =
      errorLine(fmt::format("{} clients are connected, and no more are served; 'pimbsr show control' has "
                            "their users",
                            connections_.size()));
  [[maybe_unused]] auto sent = send(client.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

// Giving way ------------------------------------------------------------------------------------------------

bool ControlServer::hasPlaceFor(uid_t user) const {
  if (connections_.size() >= limits_.clients) return false;
  return isPrivileged(user) || !isOrdinaryFull();
}

/// Whether the end of a connection of `other` may make the place that a new one of `user` needs. That of a
/// privileged user makes none while only the places of the others are taken.
bool ControlServer::mayTakeFrom(uid_t other, uid_t user) const {
  if (isPrivileged(user) && !isPrivileged(other)) return true;
  if (!isPrivileged(user) && isPrivileged(other) && isOrdinaryFull()) return false;
  return clientsOf(other) > clientsOf(user);
}

/// Whether a connection gives way to a new one of `user` at this step.
bool ControlServer::givesWay(ControlConnection const& connection, uid_t user, GivingWay step) const {
  bool mayTake = mayTakeFrom(connection.user(), user);
  ConnectionState state = connection.state();
  if (step == GivingWay::asking) {
    return mayTake && (state == ConnectionState::asking || state == ConnectionState::idle);
  }
  if (step == GivingWay::idle) {
    return (mayTake || connection.user() == user) && state == ConnectionState::idle &&
           !connection.hasRequestInKernel();
  }
  if (!mayTake || state != ConnectionState::unread) return false;
  bool isUrgent = isPrivileged(user) && !isPrivileged(connection.user());
  auto grace = static_cast<U64>(limits_.unreadGrace.count());
  return isUrgent || uv_now(loop_) >= connection.since() + grace;
}

/// The longest in its state, of the user with the most connections among those that give way.
ControlConnection* ControlServer::nextToGiveWay(uid_t user, GivingWay step) const {
  U64 now = uv_now(loop_);
  auto rank = [&](ControlConnection const& each) {
    return std::pair(clientsOf(each.user()), now - each.since());
  };
  ControlConnection* found = nullptr;
  for (auto const& each : connections_) {
    if (found != nullptr && rank(*each) <= rank(*found)) continue;
    if (givesWay(*each, user, step)) found = each.get();
  }
  return found;
}

bool ControlServer::makePlaceFor(uid_t user) {
  ControlConnection* connection = nullptr;
  for (GivingWay step : {GivingWay::idle, GivingWay::unread, GivingWay::asking}) {
    if (connection == nullptr) connection = nextToGiveWay(user, step);
  }
  if (connection == nullptr) return false;
  connection->giveWay(errorLine(fmt::format(
      "this connection gave way to a new one: {} clients are connected, {} of them of user {}, and idle ones "
      "give way first",
      connections_.size(), clientsOf(connection->user()), connection->user())));
  sweep();
  return true;
}

// Answering -------------------------------------------------------------------------------------------------

static U64 nanoseconds(std::chrono::milliseconds time) { return static_cast<U64>(time.count()) * 1'000'000; }

U64 ControlServer::asks() {
  answerInTurns();
  return ++tickets_;
}

void ControlServer::answerInTurns() {
  auto call = [](uv_idle_t* idle) { static_cast<ControlServer*>(idle->data)->answerSome(); };
  uv_idle_start(answers_.get(), call);
}

/// Users take turns, so that one who asks much delays another by one answer at most; then who asked first.
ControlConnection* ControlServer::nextAsking(U64 lastTicket, U64 now) const {
  ControlConnection* found = nullptr;
  auto rank = [&](ControlConnection const& each) {
    return std::pair(users_.at(each.user()).lastAnswer, each.ticket());
  };
  for (auto const& each : connections_) {
    if (each->ticket() == 0 || each->ticket() > lastTicket || isResting(each->user(), now)) continue;
    if (found == nullptr || rank(*each) < rank(*found)) found = each.get();
  }
  return found;
}

bool ControlServer::isResting(uid_t user, U64 now) const {
  auto rest = rests_.find(user);
  return rest != rests_.end() && now < rest->second;
}

/// One answer at least, and each connection one at most.
void ControlServer::answerSome() {
  U64 const lastTicket = tickets_, start = uv_hrtime();
  std::erase_if(rests_, [&](auto const& rest) { return rest.second <= start; });
  do {
    ControlConnection* next = nextAsking(lastTicket, uv_hrtime());
    if (next == nullptr) break;
    answer(*next);
  } while (uv_hrtime() - start < nanoseconds(limits_.answersPerTurn));
  U64 const now = uv_hrtime();
  if (nextAsking(tickets_, now) != nullptr) return;
  uv_idle_stop(answers_.get());
  waitForRests(now);
}

/// A long answer, such as one of thousands of RPs, holds the timers up. So its user gets the next one after a
/// rest, and a client that asks again at once has a share of the loop and not all of it.
void ControlServer::answer(ControlConnection& connection) {
  uid_t const user = connection.user();
  users_.at(user).lastAnswer = ++answered_;
  U64 const start = uv_hrtime();
  connection.answer();
  U64 const end = uv_hrtime();
  if (end - start > nanoseconds(limits_.answersPerTurn))
    rests_[user] = end + limits_.restFactor * (end - start);
  if (std::exchange(hasNewPathWatch_, false)) modelChanged();
}

void ControlServer::waitForRests(U64 now) {
  U64 first = 0;
  for (auto const& each : connections_) {
    if (each->ticket() == 0) continue;
    U64 const end = rests_.at(each->user());
    if (first == 0 || end < first) first = end;
  }
  if (first == 0) return;
  constexpr U64 perMillisecond = 1'000'000;
  auto call = [](uv_timer_t* timer) { static_cast<ControlServer*>(timer->data)->answerInTurns(); };
  uv_timer_start(rest_.get(), call, (first - now) / perMillisecond + 1, 0);
}

std::string ControlServer::watchError(uid_t user) const {
  if (std::size_t own = count(user, ConnectionState::watching); own >= limits_.userWatches)
    return fmt::format("user {} has {} watches, and no more are granted to one user", user, own);
  std::size_t all = counts().watchers, open = limits_.watches;
  if (!isPrivileged(user)) open -= std::min(open, limits_.reserve);
  if (all < open) return {};
  return fmt::format("there are {} watches, and no more are granted{}", all,
                     isPrivileged(user) ? "" : " but to root and the agent's own user");
}

/// Why a request is beyond the share of its user; empty if it isn't.
std::string ControlServer::shareError(ControlConnection const& connection, Request const& request) const {
  uid_t user = connection.user();
  if (std::size_t unread = count(user, ConnectionState::unread); unread >= limits_.userUnread)
    return fmt::format("{} answers to user {} wait to be read, and no more are made until then", unread,
                       user);
  return request.command == Command::watch ? watchError(user) : "";
}

nlohmann::ordered_json ControlServer::resultOf(Request const& request) {
  if (!endpoint_.readOnly || isReading(request.command)) return handler_.answer(request);
  throw RequestError(fmt::format(
      "\"{}\" is not available on the read-only socket {}; {}", nameOf(request.command), endpoint_.path,
      endpoint_.fullPath.empty() ? "the configuration has no other" : "use " + endpoint_.fullPath));
}

Reply ControlServer::reply(ControlConnection const& connection, std::string const& line) {
  ++totals_.requests;
  answering_ = true;
  Reply result;
  try {
    Request request = parseRequest(line);
    if (std::string error = shareError(connection, request); !error.empty()) {
      ++totals_.rejectedRequests;
      result = {.line = errorLine(error), .atOnce = true};
    } else {
      result = {.line = answerLine(resultOf(request)), .watch = request.command == Command::watch};
      if (result.watch && !request.path.empty()) {
        result.path = std::move(request.path);
        hasNewPathWatch_ = true;
        ++pathWatches_;
      }
    }
  } catch (RequestError const& invalid) {
    result = {.line = errorLine(invalid.what())};
  } catch (std::exception const& error) {
    result = {.line = errorLine(fmt::format("the agent failed to answer: {}", error.what()))};
  }
  answering_ = false;
  return result;
}

void ControlServer::publish(std::string_view jsonLine) {
  if (!hasWatchers()) return;
  ZET_ASSERT(jsonLine.find('\n') == jsonLine.npos, "a published line is one line");
  auto line = std::make_shared<std::string const>(std::string(jsonLine) + '\n');
  for (auto const& connection : connections_) {
    if (watchesChanges(connection)) connection->publish(line);
  }
  sweep();
}

// Watched values --------------------------------------------------------------------------------------------

void ControlServer::modelChanged() {
  if (pathWatches_ == 0) return;
  for (auto const& connection : connections_) connection->valueMayDiffer();
  if (uv_is_active(reinterpret_cast<uv_handle_t*>(valuesRest_.get())) == 0) readValues();
}

/// The one whose value was read longest ago.
ControlConnection* ControlServer::nextToRead() const {
  ControlConnection* next = nullptr;
  for (auto const& each : connections_) {
    if (!each->wantsValue()) continue;
    if (next == nullptr || each->lastRead() < next->lastRead()) next = each.get();
  }
  return next;
}

/// A watcher must not end the agent, not even by exhausting memory.
void ControlServer::readValue(ControlConnection& connection) {
  try {
    std::string const& path = connection.watchedPath();
    PathValue const value = handler_.valueAt(path);
    if (!connection.takeValue(value, ++valuesRead_)) return;
    connection.publish(std::make_shared<std::string const>(handler_.lineOf(path, value) + '\n'));
  } catch (std::exception const&) {
    connection.fail();
  }
}

/// One value at least; the others after a rest, if reading takes long.
void ControlServer::readValues() {
  U64 const start = uv_hrtime();
  bool hasTime = true;
  for (ControlConnection* next = nextToRead(); next != nullptr && hasTime; next = nextToRead()) {
    readValue(*next);
    hasTime = uv_hrtime() - start < nanoseconds(limits_.answersPerTurn);
  }
  sweep();
  if (pathWatches_ > 0) restFromValues(start);
}

/// The number of members of a large collection takes a walk to read. So watched values have a small share of
/// the loop, however much happens.
void ControlServer::restFromValues(U64 start) {
  constexpr U64 perMillisecond = 1'000'000;
  U64 const rest = (uv_hrtime() - start) * limits_.valuesRestFactor / perMillisecond + 1;
  auto call = [](uv_timer_t* timer) {
    auto* self = static_cast<ControlServer*>(timer->data);
    if (self->nextToRead() != nullptr) self->readValues();
  };
  uv_update_time(loop_);
  uv_timer_start(valuesRest_.get(), call, rest, 0);
}

// Ends ------------------------------------------------------------------------------------------------------

void ControlServer::served(ControlConnection& connection) {
  if (connection.isOver()) sweep();
}

void ControlServer::sweep() {
  for (auto const& connection : connections_) {
    if (!connection->isOver()) continue;
    totals_.slow += connection->end() == ConnectionEnd::slow;
    totals_.silent += connection->end() == ConnectionEnd::silent;
    totals_.gaveWay += connection->end() == ConnectionEnd::gaveWay;
    totals_.failed += connection->end() == ConnectionEnd::failed;
    pathWatches_ -= connection->watchedPath().empty() ? 0 : 1;
    auto user = users_.find(connection->user());
    if (--user->second.clients == 0) users_.erase(user);
  }
  std::erase_if(connections_, [](auto const& connection) { return connection->isOver(); });
}

}  // namespace pimbsr::agent
