#include "cli/web/HostName.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>

namespace pimbsr::cli {

std::string nameOfHost(std::string const& host) {
  std::size_t bracket = host.rfind(']');
  std::size_t colon = host.find(':', bracket == host.npos ? 0 : bracket);
  if (colon != host.npos && host.find_first_not_of("0123456789", colon + 1) != host.npos) return "";
  std::string name = host.substr(0, colon);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char one) { return static_cast<char>(std::tolower(one)); });
  return name;
}

static std::string textOf(int family, void const* address) {
  char text[INET6_ADDRSTRLEN] = "";
  return inet_ntop(family, address, text, sizeof text);
}

std::string urlAddress(sockaddr const* address) {
  if (address->sa_family == AF_INET)
    return textOf(AF_INET, &reinterpret_cast<sockaddr_in const*>(address)->sin_addr);
  if (address->sa_family != AF_INET6) return "";
  in6_addr const& six = reinterpret_cast<sockaddr_in6 const*>(address)->sin6_addr;
  if (IN6_IS_ADDR_V4MAPPED(&six)) return textOf(AF_INET, &six.s6_addr[12]);
  return '[' + textOf(AF_INET6, &six) + ']';
}

std::string localAddress(int socket) {
  sockaddr_storage name{};
  socklen_t size = sizeof name;
  auto* address = reinterpret_cast<sockaddr*>(&name);
  return getsockname(socket, address, &size) == 0 ? urlAddress(address) : "";
}

}  // namespace pimbsr::cli
