#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>

struct MHD_Connection;

namespace pimbsr::cli {

/// The connections of an HTTP server: their number, in all and by client address, and until when each has to
/// send the headers of its request. Each operation is O(log n) of the connections.
class HttpConnections {
 public:
  /// `perAddress` bounds the connections of one client address that is not loopback, of one /64 with IPv6;
  /// `patience` is in seconds.
  HttpConnections(std::size_t perAddress, double patience) : perAddress_(perAddress), patience_(patience) {}

  std::size_t size() const { return connections_.size(); }
  /// Whether a further client of this address may connect.
  bool isWelcome(sockaddr const* client) const;
  /// A client has connected; its request is expected.
  void add(MHD_Connection* connection, double now);
  /// It is closed.
  void remove(MHD_Connection* connection);
  /// A request is expected: its headers must be complete within the patience, however they arrive.
  void expectRequest(MHD_Connection* connection, double now);
  /// The headers of the request are complete.
  void receivedRequest(MHD_Connection* connection);
  /// Shuts down the sockets whose requests are late; the library closes these connections then.
  void shutDownLate(double now);
  /// The connections whose requests are expected.
  std::size_t expected() const { return deadlines_.size(); }

 private:
  struct Entry {
    int socket = -1;
    std::string client;   ///< empty where the number isn't limited
    double deadline = 0;  ///< of the request; 0 for none
  };

  std::size_t const perAddress_;
  double const patience_;
  std::map<MHD_Connection*, Entry> connections_;
  std::set<std::pair<double, MHD_Connection*>> deadlines_;
  std::map<std::string, std::size_t> clients_;  ///< the number of connections by client
};

}  // namespace pimbsr::cli
