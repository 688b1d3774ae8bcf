#include "cli/web/WebSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>

#include "cli/base/Errors.h"
#include "cli/base/Numbers.h"
#include "cli/web/HostName.h"

namespace pimbsr::cli {

namespace {

/// The first descriptor that a service manager passes.
constexpr int firstPassed = 3;

std::system_error failure(std::string const& what) { return {errno, std::generic_category(), what}; }

UsageError wrongPlace(std::string const& place) {
  return UsageError(fmt::format(
      "--listen: '{}' is neither ADDRESS:PORT, such as 127.0.0.1:9743 or [::1]:9743, nor unix:PATH", place));
}

/// An address and its length.
struct Address {
  sockaddr_storage storage{};
  socklen_t size = 0;
};

/// Connections that a socket accepts end when a client acknowledges nothing for 30 seconds, since its network
/// may be lost. Has no effect on a Unix socket.
void endUnreachable(int socket) {
  unsigned milliseconds = 30'000;
  setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &milliseconds, sizeof milliseconds);
}

unsigned portOf(std::string const& text, std::string const& place) {
  std::optional<std::uint16_t> port = numberOf<std::uint16_t>(text);
  if (!port) throw wrongPlace(place);
  return *port;
}

Address addressOf(std::string const& place) {
  std::size_t colon = place.rfind(':');
  if (colon == place.npos) throw wrongPlace(place);
  in_port_t port = htons(static_cast<in_port_t>(portOf(place.substr(colon + 1), place)));
  std::string host = place.substr(0, colon);
  Address address;
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = port;
    if (inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &six.sin6_addr) != 1)
      throw wrongPlace(place);
    std::memcpy(&address.storage, &six, address.size = sizeof six);
    return address;
  }
  sockaddr_in four{};
  four.sin_family = AF_INET;
  four.sin_port = port;
  if (inet_pton(AF_INET, host.c_str(), &four.sin_addr) != 1) throw wrongPlace(place);
  std::memcpy(&address.storage, &four, address.size = sizeof four);
  return address;
}

}  // namespace

WebSocket::WebSocket(std::string const& place) {
  static constexpr std::string_view unixMark = "unix:";
  if (place.starts_with(unixMark)) {
    unix_ = std::make_unique<agent::ControlSocket>(place.substr(unixMark.size()));
    isUnix_ = true;
    address_ = place;
    return;
  }
  Address address = addressOf(place);
  socket_ =
      agent::FileDescriptor(socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket_) throw failure("socket");
  int on = 1;
  setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  endUnreachable(socket_.get());
  if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&address.storage), address.size) != 0 ||
      listen(socket_.get(), SOMAXCONN) != 0)
    throw failure("cannot listen at " + place);
  readName();
}

bool WebSocket::isPassed() {
  char const* process = std::getenv("LISTEN_PID");
  char const* count = std::getenv("LISTEN_FDS");
  return process != nullptr && count != nullptr && std::to_string(getpid()) == process &&
         std::string_view(count) == "1";
}

WebSocket WebSocket::passed() {
  WebSocket made;
  made.socket_ = agent::FileDescriptor(firstPassed);
  int flags = fcntl(firstPassed, F_GETFL);
  if (flags < 0 || fcntl(firstPassed, F_SETFL, flags | O_NONBLOCK) < 0)
    throw failure("the socket of the service manager");
  fcntl(firstPassed, F_SETFD, FD_CLOEXEC);
  endUnreachable(firstPassed);
  made.readName();
  return made;
}

void WebSocket::readName() {
  sockaddr_storage name{};
  socklen_t size = sizeof name;
  if (getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&name), &size) != 0)
    throw failure("the address of the socket");
  address_ = urlAddress(reinterpret_cast<sockaddr*>(&name));
  if (name.ss_family == AF_INET) {
    auto const& four = reinterpret_cast<sockaddr_in const&>(name);
    port_ = ntohs(four.sin_port);
    isLocal_ = (ntohl(four.sin_addr.s_addr) >> 24) == 127;
  } else if (name.ss_family == AF_INET6) {
    auto const& six = reinterpret_cast<sockaddr_in6 const&>(name);
    port_ = ntohs(six.sin6_port);
    isLocal_ = IN6_IS_ADDR_LOOPBACK(&six.sin6_addr);
  } else {
    isUnix_ = true;
    address_ = "a socket of the service manager";
  }
}

std::string WebSocket::place() const {
  return isUnix_ ? address_ : fmt::format("http://{}:{}/", address_, port_);
}

}  // namespace pimbsr::cli
