#include "agent/process/Privileges.h"

#include <cap-ng.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <map>
#include <system_error>
#include <vector>

namespace pimbsr::agent {

// Dropping ----------------------------------------------------------------------------------------------

[[noreturn]] static void fail(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The capabilities of the process into the library's own state, where they are changed before they are
/// applied.
static void readCapabilities() {
  if (capng_get_caps_process() != 0) fail("reading the capabilities");
}

void dropPrivileges(RawSockets kept) {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) fail("giving up new privileges");
  readCapabilities();
  bool holdsAny = capng_have_capabilities(CAPNG_SELECT_CAPS) != CAPNG_NONE;
  bool opensRaw = kept == RawSockets::kept && capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW) == 1;
  bool cutsBounds = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) == 1;
  capng_clear(CAPNG_SELECT_ALL);
  if (opensRaw) {
    auto sets = static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED | CAPNG_BOUNDING_SET);
    capng_update(CAPNG_ADD, sets, CAP_NET_RAW);
  }
  // The bounding set first, since cutting it takes a capability that goes with the others.
  if (cutsBounds && capng_apply(CAPNG_SELECT_BOUNDS) != 0) fail("cutting the bounding set");
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) fail("emptying the ambient set");
  // A process that holds none needs no capset(2), for which the filter of its service may end it.
  if (holdsAny && capng_apply(CAPNG_SELECT_CAPS) != 0) fail("giving up capabilities");
}

// Report --------------------------------------------------------------------------------------------------

/// The fields of /proc/self/status that end a line, without the blanks around them.
static std::map<std::string, std::string> statusOfProcess() {
  std::map<std::string, std::string> fields;
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    std::size_t colon = line.find(':');
    std::size_t start = line.find_first_not_of(" \t", colon + 1);
    if (colon != std::string::npos && start != std::string::npos)
      fields[line.substr(0, colon)] = line.substr(start);
  }
  return fields;
}

/// Capabilities that are named; a set may have further bits of a newer kernel.
static constexpr int maxCapabilities = 64;

static std::string namesOf(capng_type_t set) {
  std::vector<std::string> names;
  int held = 0, known = 0;
  for (unsigned i = 0; i < maxCapabilities; ++i) {
    char const* name = capng_capability_to_name(i);
    if (name == nullptr) break;
    ++known;
    if (capng_have_capability(set, i) != 1) continue;
    ++held;
    names.emplace_back(name);
  }
  if (names.empty()) return "none";
  return held == known ? "all" : fmt::format("{}", fmt::join(names, " "));
}

static std::string outcome(bool succeeded) {
  return succeeded ? "allowed" : fmt::format("denied: {}", std::generic_category().message(errno));
}

static std::string tryRawSocket() {
  int fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_PIM);
  if (fd < 0) return outcome(false);
  close(fd);
  return outcome(true);
}

static std::string tryOpen(char const* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return outcome(false);
  close(fd);
  return outcome(true);
}

static std::string tryFork() {
  pid_t child = fork();
  if (child < 0) return outcome(false);
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  return outcome(true);
}

/// The error for a program that doesn't exist differs if the process may execute programs.
static std::string tryExecute() {
  std::array<char*, 1> none = {nullptr};
  execve("/nonexistent", none.data(), none.data());
  return outcome(errno == ENOENT);
}

static std::string filterName(std::string const& mode) {
  if (mode == "0") return "none";
  return mode == "2" ? "on" : fmt::format("mode {}", mode);
}

std::string privilegesHeld() {
  auto fields = statusOfProcess();
  readCapabilities();
  std::vector<std::pair<std::string, std::string>> rows = {
      {"User ID", fmt::format("{} (effective {})", getuid(), geteuid())},
      {"Group ID", fmt::format("{} (effective {})", getgid(), getegid())},
      {"Effective capabilities", namesOf(CAPNG_EFFECTIVE)},
      {"Permitted capabilities", namesOf(CAPNG_PERMITTED)},
      {"Inheritable capabilities", namesOf(CAPNG_INHERITABLE)},
      {"Ambient capabilities", namesOf(CAPNG_AMBIENT)},
      {"Bounding set", namesOf(CAPNG_BOUNDING_SET)},
      {"New privileges", fields["NoNewPrivs"] == "1" ? "impossible" : "possible"},
      {"System-call filter", filterName(fields["Seccomp"])},
      {"Opening a raw PIM socket", tryRawSocket()},
      {"Reading /etc/shadow", tryOpen("/etc/shadow")},
      {"Starting a process", tryFork()},
      {"Executing a program", tryExecute()},
  };
  std::string text;
  for (auto const& [name, value] : rows) text += fmt::format("{:<26}{}\n", name, value);
  return text;
}

}  // namespace pimbsr::agent
