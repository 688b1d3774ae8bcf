#include "agent/process/InterfaceClaims.h"

#include <fmt/format.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <utility>

namespace pimbsr::agent {

namespace {

/// An abstract address: its first byte is 0, and its length counts.
struct AbstractAddress {
  explicit AbstractAddress(std::string const& interface) {
    std::string name = "pimbsr/interface/" + interface;
    std::size_t length = std::min(name.size(), sizeof value.sun_path - 1);
    value.sun_family = AF_UNIX;
    std::memcpy(value.sun_path + 1, name.data(), length);
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
  }
  sockaddr const* get() const { return reinterpret_cast<sockaddr const*>(&value); }

  sockaddr_un value{};
  socklen_t size = 0;
};

FileDescriptor newSocket() {
  return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool countsAsAgent(uid_t user) {
  static passwd const* const service = getpwnam("pimbsr");
  static uid_t const serviceUser = service == nullptr ? 0 : service->pw_uid;
  return user == 0 || user == geteuid() || user == serviceUser;
}

/// Questions of other agents that wait: each stays, since no claim takes them.
constexpr int maxQuestions = SOMAXCONN;

/// The process that listens at an address; nothing if none does, or one that doesn't count.
std::optional<pid_t> listenerAt(AbstractAddress const& address) {
  FileDescriptor client = newSocket();
  ucred peer{};
  socklen_t size = sizeof peer;
  bool isThere = connect(client.get(), address.get(), address.size) == 0;
  if (!isThere || getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) < 0) return {};
  if (!countsAsAgent(peer.uid)) return {};
  return peer.pid;
}

}  // namespace

std::vector<InterfaceClaims::Conflict> InterfaceClaims::claim(std::set<std::string> const& interfaces) {
  std::vector<Conflict> conflicts;
  std::map<std::string, FileDescriptor> added;
  for (std::string const& interface : interfaces) {
    if (claims_.contains(interface)) continue;
    AbstractAddress address(interface);
    FileDescriptor socket = newSocket();
    if (bind(socket.get(), address.get(), address.size) == 0 && listen(socket.get(), maxQuestions) == 0) {
      added.emplace(interface, std::move(socket));
    } else if (std::optional<pid_t> other = listenerAt(address)) {
      conflicts.push_back({interface, *other});
    }
  }
  if (!conflicts.empty()) return conflicts;
  std::erase_if(claims_, [&](auto const& entry) { return !interfaces.contains(entry.first); });
  claims_.merge(added);
  return conflicts;
}

std::string textOf(InterfaceClaims::Conflict const& conflict) {
  return fmt::format(
      "interface {}: process {} is an agent that speaks PIM there; end it, or leave the interface out of one "
      "of "
      "both configuration files",
      conflict.interface, conflict.process);
}

}  // namespace pimbsr::agent
