#include "agent/process/ServiceNotify.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/ChangeRunner.h"

namespace test {
namespace {

using pimbsr::agent::notifyService;

/// A service manager's datagram socket, named by a path or, after '@', abstractly.
class Manager {
 public:
  explicit Manager(std::string const& name)
      : name_(name), fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), length), 0);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  ~Manager() {
    unsetenv("NOTIFY_SOCKET");
    close(fd_);
    if (name_[0] == '/') unlink(name_.c_str());
  }
  /// The next datagram; "nothing" if there is none.
  std::string next() {
    char text[256];
    ssize_t got = recv(fd_, text, sizeof text, 0);
    return got < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(got));
  }

 private:
  std::string name_;
  int fd_;
};

std::string uniqueName(std::string const& start) { return start + std::to_string(getpid()); }

TEST(ServiceNotifyTest, StateIsOneDatagramToAPath) {
  Manager manager(uniqueName("/tmp/pimbsr-notify-"));
  EXPECT_TRUE(notifyService("READY=1\nSTATUS=Follows 10.0.0.1"));
  EXPECT_TRUE(notifyService("STOPPING=1"));
  EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Follows 10.0.0.1");
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_EQ(manager.next(), "nothing");
}

TEST(ServiceNotifyTest, AbstractNameFollowsAnAtSign) {
  Manager manager(uniqueName("@pimbsr-notify-"));
  EXPECT_TRUE(notifyService("RELOADING=1"));
  EXPECT_EQ(manager.next(), "RELOADING=1");
}

TEST(ServiceNotifyTest, TimeToStopIsAskedForInMicroseconds) {
  Manager manager(uniqueName("@pimbsr-notify-"));
  EXPECT_TRUE(pimbsr::agent::extendServiceTimeout(66));
  EXPECT_TRUE(pimbsr::agent::extendServiceTimeout(7206.5));
  EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=66000000");
  EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=7206500000");
}

TEST(ServiceNotifyTest, EndAsksForTheTimeOfTheRunsThatItWaitsFor) {
  pimbsr::agent::Loop loop;
  pimbsr::agent::ChangeCommand command({.command = "sleep 0.2", .timeLimit = 30});
  pimbsr::agent::ChangeRunner runner(loop, &command, [] { return std::string(); });
  Manager manager(uniqueName("@pimbsr-notify-"));
  runner.finish();
  EXPECT_EQ(manager.next(), "nothing") << "no run is left";
  command.notify("first");
  command.notify("second");
  runner.finish();
  EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=66000000");
  EXPECT_EQ(command.counts().succeeded, 2u);
}

TEST(ServiceNotifyTest, WithoutAManagerNothingIsSent) {
  unsetenv("NOTIFY_SOCKET");
  EXPECT_FALSE(notifyService("READY=1"));
}

TEST(ServiceNotifyTest, NameThatIsNoSocketIsLeftAlone) {
  for (std::string const& name : {std::string(), std::string("/"), std::string("vsock:2:1234"),
                                  std::string("/tmp/pimbsr-no-listener"), "/" + std::string(200, 'x')}) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_FALSE(notifyService("READY=1")) << name;
  }
  unsetenv("NOTIFY_SOCKET");
}

TEST(ServiceNotifyTest, ManagerThatReadsNothingDoesNotHoldUp) {
  Manager manager(uniqueName("@pimbsr-notify-"));
  int sent = 0;
  while (sent < 100000 && notifyService("STATUS=again")) ++sent;
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, 100000);
}

}  // namespace
}  // namespace test
