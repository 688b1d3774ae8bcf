// Any text -> the name in a header Host. A name is the text without a port, in lower case, and has no port
// itself.

#include "cli/web/HostName.h"

#include <cctype>
#include <cstdint>

#include "fuzz/Goal.h"
#include "runtime/Assert.h"

namespace {

fuzz::Goal addressNamed("an address of IPv6 with a port");
fuzz::Goal portRejected("a port that is no number");

bool isPort(std::string const& text) {
  return text.empty() || (text.front() == ':' && text.find_first_not_of("0123456789", 1) == text.npos);
}

bool isLowered(std::string const& name, std::string const& host) {
  for (std::size_t at = 0; at < name.size(); ++at)
    if (name[at] != static_cast<char>(std::tolower(static_cast<unsigned char>(host[at])))) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const host(reinterpret_cast<char const*>(data), size);
  std::string const name = pimbsr::cli::nameOfHost(host);
  addressNamed.reachedIf(name == "[2001:db8::1]" && host != name);
  portRejected.reachedIf(name.empty() && host.starts_with("localhost:"));
  if (name.empty()) return 0;
  ZET_ASSERT(name.size() <= host.size() && isLowered(name, host), "a name is the begin of its text");
  ZET_ASSERT(isPort(host.substr(name.size())), "what is not part of the name is a port");
  ZET_ASSERT(pimbsr::cli::nameOfHost(name) == name, "a name has no port");
  return 0;
}
