#include "tests/agent/NetworkLab.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "tests/agent/InChild.h"

namespace test {

using pimbsr::agent::FileDescriptor;

static FileDescriptor currentNetwork() {
  return FileDescriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
}

static void fail(char const* what) { throw std::system_error(errno, std::generic_category(), what); }

NetworkNamespace::NetworkNamespace() {
  FileDescriptor former = currentNetwork();
  if (unshare(CLONE_NEWNET) != 0) fail("making a network namespace");
  fd_ = currentNetwork();
  if (setns(former.get(), CLONE_NEWNET) != 0) fail("returning from a network namespace");
}

std::string NetworkNamespace::path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd());
}

Inside::Inside(NetworkNamespace const& network) : former_(currentNetwork()) {
  if (setns(network.fd(), CLONE_NEWNET) != 0) fail("entering a network namespace");
}

Inside::~Inside() { EXPECT_EQ(setns(former_.get(), CLONE_NEWNET), 0); }

void ip(std::string const& arguments) {
  EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}

void ipAll(std::vector<std::string> const& commands, bool mayFail) {
  FILE* pipe = popen(mayFail ? "ip -force -batch - 2>/dev/null" : "ip -batch -", "w");
  ASSERT_NE(pipe, nullptr);
  for (std::string const& command : commands) {
    std::fputs(command.c_str(), pipe);
    std::fputc('\n', pipe);
  }
  int status = pclose(pipe);
  EXPECT_TRUE(mayFail || status == 0);
}

Meanwhile::Meanwhile(std::function<void()> const& act) : child_(fork()) {
  if (child_ != 0) return;
  act();
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

Meanwhile::~Meanwhile() {
  while (!isOver()) usleep(1000);
}

bool Meanwhile::isOver() {
  int status = 0;
  if (child_ == 0 || waitpid(child_, &status, WNOHANG) == 0) return child_ == 0;
  EXPECT_EQ(status, 0);
  child_ = 0;
  return true;
}

void setting(std::string const& name, std::string_view value) {
  std::ofstream file("/proc/sys/net/" + name);
  file << value << std::flush;
  EXPECT_TRUE(file.good()) << name;
}

void awaitRunning(std::string const& link) {
  FileDescriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  link.copy(request.ifr_name, sizeof request.ifr_name - 1);
  for (int i = 0; i < 5000; ++i) {
    if (ioctl(any.get(), SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0) return;
    usleep(1000);
  }
  ADD_FAILURE() << link << " did not come up";
}

bool becomesReadable(int fd, double seconds) {
  pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&waiting, 1, static_cast<int>(seconds * 1000)) > 0;
}

/// Why there can be no namespaces; nothing if there can.
static std::optional<std::string> obstacle() {
  if (geteuid() != 0) return "network namespaces need root";
  if (std::system("ip -V >/dev/null 2>&1") != 0) return "links are made by ip of iproute2";
  try {
    NetworkNamespace network;
    return {};
  } catch (std::system_error const& error) {
    return error.what();
  }
}

void NetworkTest::SetUp() {
  static std::optional<std::string> const why = obstacle();
  if (!why) return;
  if (isLabRequired()) FAIL() << *why;
  GTEST_SKIP() << *why;
}

}  // namespace test
