#include "agent/control/ControlConnection.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace pimbsr::agent {

ControlLimits limitsFor(std::size_t clients, std::size_t userWatches) {
  return {.clients = clients,
          .reserve = ControlLimits().reserve,
          .watches = clients * 3 / 4,
          .userWatches = userWatches,
          .userUnread = clients / 4};
}

ControlConnection::ControlConnection(uv_loop_t* loop, FileDescriptor socket, uid_t user,
                                     ControlLimits const& limits, ConnectionOwner& owner)
    : limits_(limits),
      owner_(owner),
      user_(user),
      socket_(std::move(socket)),
      poll_(makePoll(loop, socket_.get(), this)),
      timer_(makeTimer(loop, this)) {
  waitFor(limits_.silence);
  attend();
}

// State -----------------------------------------------------------------------------------------------------

ConnectionState ControlConnection::state() const {
  if (watching_) return ConnectionState::watching;
  if (!out_.empty()) return ConnectionState::unread;
  return isReady() ? ConnectionState::asking : ConnectionState::idle;
}

bool ControlConnection::hasRequestInKernel() const {
  std::array<char, maxRequest> bytes;
  ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_PEEK);
  return count > 0 && std::memchr(bytes.data(), '\n', static_cast<std::size_t>(count)) != nullptr;
}

void ControlConnection::giveWay(std::string const& line) {
  [[maybe_unused]] ssize_t sent = 0;
  if (out_.empty()) sent = send(socket_.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  endIs(ConnectionEnd::gaveWay);
}

// Events ----------------------------------------------------------------------------------------------------

/// A client must not end the agent, not even by exhausting memory. This object may be destroyed on return.
template <class Step>
void ControlConnection::guard(Step const& step) noexcept {
  try {
    step();
    attend();
  } catch (std::exception const&) {
    endIs(ConnectionEnd::failed);
  }
  owner_.served(*this);
}

void ControlConnection::serve(int status, int events) {
  if (status < 0) return endIs(ConnectionEnd::closed);
  if ((events & UV_READABLE) != 0) read();
  if (!isOver() && !out_.empty()) flush();
  if (!isOver() && out_.empty() && !watching_) ask();
}

void ControlConnection::read() {
  std::array<char, maxRequest> bytes;
  ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count > 0) {
    if (!watching_) lines_.add({bytes.data(), static_cast<std::size_t>(count)});
  } else if (count == 0) {
    finished_ = true;
    if (watching_) endIs(ConnectionEnd::closed);
  } else if (errno != EAGAIN && errno != EINTR) {
    endIs(ConnectionEnd::closed);
  }
}

/// A request that is too long or not complete is the last one: the start of the next one is unknown.
Reply ControlConnection::nextReply() {
  try {
    if (std::optional<std::string> line = lines_.next()) return owner_.reply(*this, *line);
    leaving_ = true;
    return {.line = errorLine("the request has no newline at its end")};
  } catch (RequestError const& tooLong) {
    leaving_ = true;
    return {.line = errorLine(tooLong.what())};
  }
}

/// A request that waits for its turn is not silent, however long others keep the server busy.
void ControlConnection::ask() {
  if (isReady()) {
    if (ticket_ == 0) ticket_ = owner_.asks();
    uv_timer_stop(timer_.get());
  } else if (finished_) {
    endIs(ConnectionEnd::closed);
  }
}

void ControlConnection::answer() {
  guard([this] { answerNext(); });
}

void ControlConnection::answerNext() {
  ticket_ = 0;
  Reply reply = nextReply();
  watching_ = reply.watch;
  path_ = std::move(reply.path);
  if (watching_) lines_.clear();
  waitFor(limits_.answerTime);
  enqueue(std::make_shared<std::string const>(std::move(reply.line)));
  if (reply.atOnce && !isOver() && !out_.empty()) endIs(ConnectionEnd::slow);
}

bool ControlConnection::takeValue(PathValue const& value, Zet::U64 number) {
  wantsValue_ = false;
  bool const isFirst = std::exchange(lastRead_, number) == 0;
  return std::exchange(value_, value.value) != value.value || isFirst;
}

void ControlConnection::publish(std::shared_ptr<std::string const> const& line) {
  if (isOver()) return;
  if (unread_ > limits_.watchBacklog) return endIs(ConnectionEnd::slow);
  enqueue(line);
  attend();
}

// Sending ---------------------------------------------------------------------------------------------------

void ControlConnection::enqueue(std::shared_ptr<std::string const> line) {
  unread_ += line->size();
  out_.push_back(std::move(line));
  if (out_.size() == 1) flush();
}

/// Sends what the kernel takes. With the last byte of an answer begins the wait for the next request.
void ControlConnection::flush() {
  while (!out_.empty()) {
    std::string const& line = *out_.front();
    ssize_t count =
        send(socket_.get(), line.data() + sent_, line.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0) {
      if (errno != EAGAIN && errno != EINTR) endIs(ConnectionEnd::closed);
      return;
    }
    sent_ += static_cast<std::size_t>(count);
    unread_ -= static_cast<std::size_t>(count);
    if (sent_ < line.size()) continue;
    out_.pop_front();
    sent_ = 0;
    if (watching_) uv_timer_stop(timer_.get());  // the grant was the last answer
  }
  if (leaving_) return endIs(ConnectionEnd::closed);
  if (!watching_) waitFor(limits_.silence);
}

// Waiting ---------------------------------------------------------------------------------------------------

void ControlConnection::waitFor(std::chrono::milliseconds time) {
  auto call = [](uv_timer_t* timer) {
    auto* self = static_cast<ControlConnection*>(timer->data);
    self->guard([self] { self->handleTimeout(); });
  };
  uv_update_time(timer_->loop);  // making an answer may have taken long
  since_ = uv_now(timer_->loop);
  uv_timer_start(timer_.get(), call, static_cast<uint64_t>(time.count()), 0);
}

void ControlConnection::handleTimeout() { endIs(out_.empty() ? ConnectionEnd::silent : ConnectionEnd::slow); }

/// Nothing is read while a request is here. One that was here already when an answer went out asks once the
/// socket can be written, so that others get their turn before.
int ControlConnection::wantedEvents() const {
  if (watching_) return out_.empty() ? UV_READABLE : UV_READABLE | UV_WRITABLE;
  if (!out_.empty()) return UV_WRITABLE;
  if (ticket_ != 0) return 0;
  return isReady() || finished_ ? UV_WRITABLE : UV_READABLE;
}

void ControlConnection::attend() {
  if (isOver()) return;
  int events = wantedEvents();
  if (events == attended_) return;
  auto call = [](uv_poll_t* poll, int status, int arrived) {
    auto* self = static_cast<ControlConnection*>(poll->data);
    self->guard([=] { self->serve(status, arrived); });
  };
  int result = events == 0 ? uv_poll_stop(poll_.get()) : uv_poll_start(poll_.get(), events, call);
  if (result < 0) return endIs(ConnectionEnd::failed);
  attended_ = events;
}

void ControlConnection::endIs(ConnectionEnd end) {
  end_ = end;
  uv_poll_stop(poll_.get());
  uv_timer_stop(timer_.get());
}

}  // namespace pimbsr::agent
