#pragma once

#include <sys/socket.h>

#include <string>

namespace pimbsr::cli {

/// The name in a value of the header Host, in lower case and without its port, by which a tunnel and a proxy
/// may differ from the server. Empty for a value that is none.
std::string nameOfHost(std::string const& host);

/// An address as in a URL, with brackets around one of IPv6; one of IPv4 that is mapped to IPv6 is one of
/// IPv4. Empty for other families.
std::string urlAddress(sockaddr const* address);

/// The address of a socket's own end in this form.
std::string localAddress(int socket);

}  // namespace pimbsr::cli
