#include "cli/web/HttpServer.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <map>
#include <system_error>
#include <utility>

#include "cli/web/HostName.h"

namespace pimbsr::cli {

HttpResponse textResponse(unsigned status, std::string text) {
  return {.status = status, .body = std::make_shared<std::string const>(std::move(text) + '\n')};
}

// Callbacks of the library ----------------------------------------------------------------------------

struct HttpServer::Callbacks {
  static MHD_Result handle(void* server, MHD_Connection* connection, char const* path, char const* method,
                           char const*, char const*, std::size_t*, void** state) {
    return static_cast<MHD_Result>(static_cast<HttpServer*>(server)->handle(connection, path, method, state));
  }
  static void complete(void* server, MHD_Connection*, void** state, MHD_RequestTerminationCode) {
    std::unique_ptr<Exchange> exchange(static_cast<Exchange*>(*state));
    *state = nullptr;
    if (exchange) static_cast<HttpServer*>(server)->complete(*exchange);
  }
  static MHD_Result accept(void* server, sockaddr const* client, socklen_t) {
    return static_cast<HttpServer*>(server)->connections_.isWelcome(client) ? MHD_YES : MHD_NO;
  }
  static void notify(void* server, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
    auto& that = *static_cast<HttpServer*>(server);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
      that.open(connection);
    } else {
      that.connections_.remove(connection);
    }
  }
  static ssize_t read(void* exchange, std::uint64_t, char* bytes, std::size_t size) {
    auto& stream = *static_cast<HttpExchange*>(exchange);
    return stream.server_->readStream(stream, bytes, size);
  }
  /// Drops the library's own log lines: a stranger's malformed request must not fill the log.
  static void log(void*, char const*, va_list) {}
};

// The server ------------------------------------------------------------------------------------------

HttpServer::HttpServer(agent::Loop& loop, int socket, HttpRouter& router, HttpLimits const& limits)
    : limits_(limits),
      router_(router),
      connections_(limits.perAddress, limits.requestTime),
      timer_(loop, [this] { serve(); }),
      heartbeat_(loop, [this] { handleHeartbeat(); }) {
  daemon_ = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, &Callbacks::accept, this,
      &Callbacks::handle, this, MHD_OPTION_EXTERNAL_LOGGER, &Callbacks::log, nullptr,
      MHD_OPTION_LISTEN_SOCKET, socket, MHD_OPTION_NOTIFY_COMPLETED, &Callbacks::complete, this,
      MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::notify, this, MHD_OPTION_CONNECTION_LIMIT, limits.connections,
      MHD_OPTION_CONNECTION_TIMEOUT, limits.idleTime, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      limits.requestMemory, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
  if (daemon_ == nullptr) throw std::system_error(errno, std::generic_category(), "HTTP server");
  auto const* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
  reader_ = std::make_unique<agent::LoopReader>(loop, info->epoll_fd, [this] { serve(); });
  heartbeat_.startIn(limits_.heartbeat);
}

/// The library closes no connection that is suspended.
HttpServer::~HttpServer() {
  onStreams = {};
  for (Exchange const& exchange : exchanges_) {
    exchange->isEnding_ = true;
    if (exchange->isStream_) {
      resume(*exchange);
    } else {
      exchange->respond(textResponse(MHD_HTTP_SERVICE_UNAVAILABLE, "the server ends"));
    }
  }
  MHD_run(daemon_);
  reader_.reset();
  MHD_stop_daemon(daemon_);
  for (Exchange const& exchange : exchanges_) exchange->server_ = nullptr;
}

void HttpServer::serve() {
  connections_.shutDownLate(clock_.now());
  MHD_run(daemon_);
  armTimer(std::exchange(peak_, connections_.size()) >= limits_.connections);
}

void HttpServer::serveSoon() { timer_.startIn(0); }

/// The library closes idle connections, and may have more to do at once. At its limit it stops to listen, and
/// begins again in a run of its own, which no event of its sockets announces.
void HttpServer::armTimer(bool wasFull) {
  static constexpr double checkTime = 1;  // seconds; of late requests, and of a limit that is still reached
  MHD_UNSIGNED_LONG_LONG milliseconds = 0;
  double wait = HUGE_VAL;
  if (MHD_get_timeout(daemon_, &milliseconds) == MHD_YES) wait = static_cast<double>(milliseconds) / 1000;
  if (wasFull || connections_.expected() > 0) wait = std::min(wait, checkTime);
  if (wasFull && connections_.size() < limits_.connections) wait = 0;
  if (wait < HUGE_VAL) {
    timer_.startIn(wait);
  } else {
    timer_.stop();
  }
}

void HttpServer::open(MHD_Connection* connection) {
  connections_.add(connection, clock_.now());
  peak_ = std::max(peak_, connections_.size());
}

void HttpServer::suspend(HttpExchange& exchange) {
  exchange.isSuspended_ = true;
  MHD_suspend_connection(exchange.connection_);
}

void HttpServer::resume(HttpExchange& exchange) {
  if (exchange.connection_ == nullptr || !std::exchange(exchange.isSuspended_, false)) return;
  MHD_resume_connection(exchange.connection_);
  serveSoon();
}

// Requests --------------------------------------------------------------------------------------------

static std::string headerOf(MHD_Connection* connection, char const* name) {
  char const* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? "" : value;
}

/// The token of "Authorization: Bearer TOKEN", or the password of a browser; empty for neither.
static std::string tokenOf(MHD_Connection* connection) {
  static constexpr std::string_view bearer = "Bearer ";
  std::string header = headerOf(connection, MHD_HTTP_HEADER_AUTHORIZATION);
  if (header.starts_with(bearer)) return header.substr(bearer.size());
  char* password = nullptr;
  char* user = MHD_basic_auth_get_username_password(connection, &password);
  std::string token = password == nullptr ? "" : password;
  MHD_free(user);
  MHD_free(password);
  return token;
}

/// The client of a connection, as of HttpLimits.
static std::string clientOf(MHD_Connection* connection) {
  auto const* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  sockaddr const* address = info == nullptr ? nullptr : info->client_addr;
  if (address == nullptr) return "";
  constexpr std::size_t networkBytes = 8;
  if (address->sa_family == AF_INET6) {
    auto const* bytes = reinterpret_cast<sockaddr_in6 const*>(address)->sin6_addr.s6_addr;
    return {reinterpret_cast<char const*>(bytes), networkBytes};
  }
  if (address->sa_family != AF_INET) return "";
  in_addr const& four = reinterpret_cast<sockaddr_in const*>(address)->sin_addr;
  return {reinterpret_cast<char const*>(&four), sizeof four};
}

/// A body is rejected with the headers, so that nothing waits for it.
static bool hasBody(MHD_Connection* connection) {
  std::string length = headerOf(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  return (!length.empty() && length != "0") ||
         !headerOf(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING).empty();
}

/// A response to a request that is not to be routed; status 0 for one that is.
HttpResponse HttpServer::checked(MHD_Connection* connection, std::string const& method) const {
  auto const* socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  std::string const host = nameOfHost(headerOf(connection, MHD_HTTP_HEADER_HOST));
  if (!router_.hasHost(host, localAddress(socket->connect_fd)))
    return textResponse(MHD_HTTP_MISDIRECTED_REQUEST, "the header Host names another server; see --host");
  if (!router_.isAllowed(tokenOf(connection)))
    return textResponse(MHD_HTTP_UNAUTHORIZED, "a token is needed, as password of any user or as bearer");
  if (method != MHD_HTTP_METHOD_GET) return textResponse(MHD_HTTP_METHOD_NOT_ALLOWED, "GET alone is served");
  if (hasBody(connection)) return textResponse(MHD_HTTP_BAD_REQUEST, "a GET has no body here");
  return {.status = 0};
}

/// Called once the headers are read, and again with each part of a body and after each resumption.
int HttpServer::handle(MHD_Connection* connection, char const* path, char const* method, void** state) {
  if (*state == nullptr) {
    auto exchange = std::make_shared<HttpExchange>(*this, connection);
    exchange->path_ = path;
    exchange->client_ = clientOf(connection);
    *state = new Exchange(exchange);
    exchanges_.insert(exchange);
    connections_.receivedRequest(connection);
    HttpResponse rejection = checked(connection, method);
    if (rejection.status == 0) return MHD_YES;
    exchange->isRouted_ = true;
    exchange->respond(std::move(rejection));
    return queue(*exchange);
  }
  Exchange exchange = *static_cast<Exchange*>(*state);
  if (!std::exchange(exchange->isRouted_, true)) router_.route(exchange);
  if (exchange->isReady_) return queue(*exchange);
  suspend(*exchange);
  return MHD_YES;
}

int HttpServer::queue(HttpExchange& exchange) {
  if (exchange.isStream_) return queueStream(exchange);
  HttpResponse const& made = exchange.response_;
  static std::string const empty;
  std::string const& body = made.body ? *made.body : empty;
  // The exchange holds the body until it is complete, and the library writes nothing to it.
  MHD_Response* response =
      MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_PERSISTENT);
  if (response == nullptr) return MHD_NO;
  auto add = [&](char const* name, char const* value) { MHD_add_response_header(response, name, value); };
  add(MHD_HTTP_HEADER_CONTENT_TYPE, made.type.c_str());
  add(MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  add("X-Content-Type-Options", "nosniff");
  add("X-Frame-Options", "DENY");
  if (made.status == MHD_HTTP_METHOD_NOT_ALLOWED) add(MHD_HTTP_HEADER_ALLOW, MHD_HTTP_METHOD_GET);
  if (made.status == MHD_HTTP_UNAUTHORIZED)
    add(MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Basic realm=\"pimbsr\", charset=\"UTF-8\"");
  MHD_Result result = MHD_queue_response(exchange.connection_, made.status, response);
  MHD_destroy_response(response);
  return result;
}

void HttpServer::complete(Exchange const& exchange) {
  connections_.expectRequest(std::exchange(exchange->connection_, nullptr), clock_.now());
  if (exchange->response_.body) bodies_ -= exchange->response_.body->size();
  bool wasStream = streams_.erase(exchange.get()) != 0;
  exchanges_.erase(exchange);
  if (wasStream && streams_.empty() && onStreams) onStreams(false);
}

std::string HttpExchange::argument(char const* name) const {
  if (connection_ == nullptr) return "";
  char const* value = MHD_lookup_connection_value(connection_, MHD_GET_ARGUMENT_KIND, name);
  return value == nullptr ? "" : value;
}

void HttpExchange::respond(HttpResponse response) {
  if (server_ == nullptr || connection_ == nullptr || isReady_) return;
  std::size_t size = response.body ? response.body->size() : 0;
  if (server_->bodies_ + size > server_->limits_.bodies) {
    response = textResponse(MHD_HTTP_SERVICE_UNAVAILABLE, "too many responses wait to be read");
    size = response.body->size();
  }
  server_->bodies_ += size;
  response_ = std::move(response);
  isReady_ = true;
  server_->resume(*this);
}

// Streams of events -----------------------------------------------------------------------------------

void HttpExchange::beginStream(std::string const& first) {
  if (!server_->makeRoomFor(client_))
    return respond(textResponse(MHD_HTTP_SERVICE_UNAVAILABLE, "too many streams are open"));
  isStream_ = isReady_ = true;
  number_ = ++server_->begun_;
  server_->push(*this, std::make_shared<std::string const>(first));
  bool isFirst = server_->streams_.empty();
  server_->streams_.insert(this);
  if (isFirst && server_->onStreams) server_->onStreams(true);
  server_->resume(*this);
}

/// Whether one more stream of a client may begin; ends another one if need be.
bool HttpServer::makeRoomFor(std::string const& client) {
  std::map<std::string, std::size_t> counts;
  std::size_t open = 0;
  for (HttpExchange const* stream : streams_) {
    if (stream->isEnding_) continue;
    ++open;
    ++counts[stream->client_];
  }
  if (open < limits_.streams) return true;
  auto fewer = [](auto const& a, auto const& b) { return a.second < b.second; };
  auto most = std::max_element(counts.begin(), counts.end(), fewer);
  if (most == counts.end() || most->second < counts[client] + 2) return false;
  HttpExchange* oldest = nullptr;
  for (HttpExchange* stream : streams_) {
    bool isOlder = oldest == nullptr || stream->number_ < oldest->number_;
    if (!stream->isEnding_ && stream->client_ == most->first && isOlder) oldest = stream;
  }
  endStream(*oldest);
  return true;
}

void HttpServer::endStream(HttpExchange& exchange) {
  exchange.isEnding_ = true;
  exchange.events_.clear();
  resume(exchange);
}

int HttpServer::queueStream(HttpExchange& exchange) {
  MHD_Response* response =
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 4096, &Callbacks::read, &exchange, nullptr);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/event-stream");
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  MHD_add_response_header(response, "X-Accel-Buffering", "no");
  MHD_Result result = MHD_queue_response(exchange.connection_, MHD_HTTP_OK, response);
  MHD_destroy_response(response);
  return result;
}

long HttpServer::readStream(HttpExchange& exchange, char* bytes, std::size_t size) {
  if (exchange.isEnding_) return MHD_CONTENT_READER_END_OF_STREAM;
  if (exchange.events_.empty()) {
    suspend(exchange);
    return 0;
  }
  std::string const& event = *exchange.events_.front();
  std::size_t count = std::min(size, event.size() - exchange.sent_);
  std::copy_n(event.data() + exchange.sent_, count, bytes);
  exchange.sent_ += count;
  exchange.waiting_ -= count;
  if (exchange.sent_ == event.size()) {
    exchange.events_.pop_front();
    exchange.sent_ = 0;
  }
  return static_cast<long>(count);
}

void HttpServer::push(HttpExchange& exchange, std::shared_ptr<std::string const> const& event) {
  if (exchange.isEnding_) return;
  exchange.events_.push_back(event);
  exchange.waiting_ += event->size();
  if (exchange.waiting_ > limits_.streamBacklog) return endStream(exchange);
  resume(exchange);
}

void HttpServer::publish(std::string const& event) {
  auto shared = std::make_shared<std::string const>(event);
  for (HttpExchange* stream : streams_) push(*stream, shared);
}

/// A comment, which the page ignores: a client that is gone does not take it. The run lets the library listen
/// again where it had no descriptor left for a client.
void HttpServer::handleHeartbeat() {
  publish(":\n\n");
  serve();
  heartbeat_.startIn(limits_.heartbeat);
}

}  // namespace pimbsr::cli
