#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Clock.h"
#include "agent/base/Loop.h"
#include "cli/web/HttpConnections.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace pimbsr::cli {

/// A response that is complete.
struct HttpResponse {
  unsigned status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::shared_ptr<std::string const> body = {};  ///< may be shared by many; null for none
};

/// A response with a short text.
HttpResponse textResponse(unsigned status, std::string text);

/// Bounds of the resources that the clients of an HTTP server can use. A client is an IPv4 address, an IPv6
/// network of 64 bits, or all of a Unix socket together. At the limit of streams the oldest one of the client
/// with the most gives way to one of a client with two fewer at least.
struct HttpLimits {
  unsigned connections = 256;              ///< at a time; further ones wait in the kernel
  unsigned idleTime = 15;                  ///< seconds without progress until a connection ends
  double requestTime = 10;                 ///< seconds for the headers of a request, however they arrive
  std::size_t perAddress = 32;             ///< connections of one client address that is not loopback
  std::size_t requestMemory = 16 * 1024;   ///< of one connection: request line, headers and buffers
  std::size_t bodies = 64 * 1024 * 1024;   ///< bytes of responses that wait to be read
  std::size_t streams = 100;               ///< event streams at a time
  std::size_t streamBacklog = 256 * 1024;  ///< bytes that may wait for a stream before it ends
  double heartbeat = 15;                   ///< seconds; a client that is gone is found by the next one
};

class HttpServer;

/// One request while it is served. Its owner may keep it for as long as it likes.
class HttpExchange : public std::enable_shared_from_this<HttpExchange> {
 public:
  HttpExchange(HttpServer& server, MHD_Connection* connection) : server_(&server), connection_(connection) {}

  /// The path, decoded, and an argument of the query; empty for none.
  std::string const& path() const { return path_; }
  std::string argument(char const* name) const;
  /// Sends a response, now or later; ignored after the first, and once the client or the server is gone.
  void respond(HttpResponse response);
  /// Begins a stream of events, with a first one; a response instead if there are too many streams.
  void beginStream(std::string const& first);

 private:
  friend class HttpServer;

  HttpServer* server_;          ///< null once the server is gone
  MHD_Connection* connection_;  ///< null once it is over
  std::string client_;          ///< who sends it, in the form of an address
  std::string path_;
  bool isRouted_ = false;
  bool isReady_ = false;
  bool isSuspended_ = false;
  HttpResponse response_;
  // Of a stream.
  bool isStream_ = false;
  bool isEnding_ = false;
  std::uint64_t number_ = 0;  ///< in the order in which streams began
  std::deque<std::shared_ptr<std::string const>> events_;
  std::size_t sent_ = 0;     ///< of the first event
  std::size_t waiting_ = 0;  ///< bytes of events_ that were not sent
};

using Exchange = std::shared_ptr<HttpExchange>;

/// Checks and routes requests.
class HttpRouter {
 public:
  virtual ~HttpRouter() = default;
  /// Whether a name of the header Host is one of this server's: in lower case, without a port, an address of
  /// IPv6 with its brackets. `local` is the address of the connection's own end in the same form; empty for a
  /// Unix socket.
  virtual bool hasHost(std::string const& name, std::string const& local) const = 0;
  /// Whether a password, or bearer token, grants access; called with an empty one where there is none.
  virtual bool isAllowed(std::string const& token) const = 0;
  /// A GET; the answer may come later.
  virtual void route(Exchange const& exchange) = 0;
};

/// An HTTP server in an event loop, for GET alone. Streams and memory are bounded; it waits for no client.
class HttpServer {
 public:
  /// `socket` listens, doesn't block, and outlives the server. Throws std::system_error.
  HttpServer(agent::Loop& loop, int socket, HttpRouter& router, HttpLimits const& limits = {});
  ~HttpServer();
  HttpServer(HttpServer const&) = delete;
  HttpServer& operator=(HttpServer const&) = delete;

  /// Sends an event to all streams. One that has left too much unread ends.
  void publish(std::string const& event);
  std::size_t streams() const { return streams_.size(); }
  std::size_t exchanges() const { return exchanges_.size(); }
  /// Called whenever the last stream has ended, or the first has begun.
  std::function<void(bool hasStreams)> onStreams;

 private:
  friend class HttpExchange;
  struct Callbacks;

  void serve();
  void serveSoon();
  /// `wasFull`: the connections were at their limit since the last run.
  void armTimer(bool wasFull);
  void handleHeartbeat();
  void suspend(HttpExchange& exchange);
  void resume(HttpExchange& exchange);
  int handle(MHD_Connection* connection, char const* path, char const* method, void** state);
  HttpResponse checked(MHD_Connection* connection, std::string const& method) const;
  int queue(HttpExchange& exchange);
  int queueStream(HttpExchange& exchange);
  long readStream(HttpExchange& exchange, char* bytes, std::size_t size);
  void complete(Exchange const& exchange);
  void open(MHD_Connection* connection);
  void push(HttpExchange& exchange, std::shared_ptr<std::string const> const& event);
  bool makeRoomFor(std::string const& client);
  void endStream(HttpExchange& exchange);

  HttpLimits const limits_;
  HttpRouter& router_;
  MHD_Daemon* daemon_ = nullptr;
  agent::Clock const clock_;
  HttpConnections connections_;
  std::size_t peak_ = 0;  ///< of the connections since the last run
  std::unique_ptr<agent::LoopReader> reader_;
  agent::LoopTimer timer_;      ///< of the connections
  agent::LoopTimer heartbeat_;  ///< of the streams
  std::set<Exchange> exchanges_;
  std::set<HttpExchange*> streams_;
  std::uint64_t begun_ = 0;  ///< streams so far
  std::size_t bodies_ = 0;   ///< bytes of responses in exchanges_
};

}  // namespace pimbsr::cli
