#include "agent/process/ServiceNotify.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace pimbsr::agent {

namespace {

struct Target {
  sockaddr_un address{};
  socklen_t length = 0;
};

/// An abstract name starts with a zero byte in the place of its '@'. Other kinds of address are not
/// supported.
std::optional<Target> targetOf(std::string_view name) {
  Target target;
  bool isNamed = name.size() > 1 && (name[0] == '/' || name[0] == '@');
  if (!isNamed || name.size() > sizeof(target.address.sun_path)) return std::nullopt;
  target.address.sun_family = AF_UNIX;
  std::memcpy(target.address.sun_path, name.data(), name.size());
  if (name[0] == '@') target.address.sun_path[0] = '\0';
  target.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  return target;
}

}  // namespace

bool notifyService(std::string_view state) {
  char const* name = std::getenv("NOTIFY_SOCKET");
  std::optional<Target> target = name != nullptr ? targetOf(name) : std::nullopt;
  if (!target) return false;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  ssize_t sent = sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
                        reinterpret_cast<sockaddr const*>(&target->address), target->length);
  close(fd);
  return sent == static_cast<ssize_t>(state.size());
}

bool extendServiceTimeout(double seconds) {
  return notifyService(fmt::format("EXTEND_TIMEOUT_USEC={:.0f}", seconds * 1e6));
}

}  // namespace pimbsr::agent
