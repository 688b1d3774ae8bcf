#include "cli/web/HttpConnections.h"

#include <microhttpd.h>
#include <netinet/in.h>

namespace pimbsr::cli {

/// What one client can't change about its address, as bytes; empty for loopback and for Unix sockets, by
/// which a proxy or a tunnel connects for many clients.
static std::string clientOf(sockaddr const* address) {
  if (address == nullptr) return "";
  if (address->sa_family == AF_INET) {
    in_addr const& four = reinterpret_cast<sockaddr_in const*>(address)->sin_addr;
    bool isLoopback = (ntohl(four.s_addr) >> 24) == 127;
    return isLoopback ? "" : std::string(reinterpret_cast<char const*>(&four), sizeof four);
  }
  if (address->sa_family != AF_INET6) return "";
  in6_addr const& six = reinterpret_cast<sockaddr_in6 const*>(address)->sin6_addr;
  if (IN6_IS_ADDR_LOOPBACK(&six)) return "";
  auto const* bytes = reinterpret_cast<char const*>(&six);
  if (!IN6_IS_ADDR_V4MAPPED(&six)) return {bytes, 8};
  return bytes[12] == 127 ? "" : std::string(bytes + 12, 4);
}

static MHD_ConnectionInfo const* infoOf(MHD_Connection* connection, MHD_ConnectionInfoType type) {
  return MHD_get_connection_info(connection, type);
}

bool HttpConnections::isWelcome(sockaddr const* client) const {
  auto found = clients_.find(clientOf(client));
  return found == clients_.end() || found->second < perAddress_;
}

void HttpConnections::add(MHD_Connection* connection, double now) {
  auto const* address = infoOf(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  auto const* socket = infoOf(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  Entry entry{.socket = socket->connect_fd,
              .client = clientOf(address == nullptr ? nullptr : address->client_addr)};
  if (!entry.client.empty()) ++clients_[entry.client];
  connections_[connection] = std::move(entry);
  expectRequest(connection, now);
}

void HttpConnections::remove(MHD_Connection* connection) {
  receivedRequest(connection);
  auto client = clients_.find(connections_.at(connection).client);
  if (client != clients_.end() && --client->second == 0) clients_.erase(client);
  connections_.erase(connection);
}

void HttpConnections::expectRequest(MHD_Connection* connection, double now) {
  receivedRequest(connection);
  Entry& entry = connections_.at(connection);
  entry.deadline = now + patience_;
  deadlines_.emplace(entry.deadline, connection);
}

void HttpConnections::receivedRequest(MHD_Connection* connection) {
  deadlines_.erase({connections_.at(connection).deadline, connection});
}

void HttpConnections::shutDownLate(double now) {
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    ::shutdown(connections_.at(deadlines_.begin()->second).socket, SHUT_RDWR);
    deadlines_.erase(deadlines_.begin());
  }
}

}  // namespace pimbsr::cli
