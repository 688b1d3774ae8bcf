#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/control/ControlSocket.h"

namespace test {

/// A network namespace that goes with this object, and with it all links within.
class NetworkNamespace {
 public:
  /// Throws std::system_error if there can be none.
  NetworkNamespace();

  /// For `ip link ... netns PATH`; valid while this object lives.
  std::string path() const;
  int fd() const { return fd_.get(); }

 private:
  pimbsr::agent::FileDescriptor fd_;
};

/// The process is in a namespace as long as this object lives, and then where it was. Sockets
/// that are opened meanwhile stay there.
class Inside {
 public:
  explicit Inside(NetworkNamespace const& network);
  ~Inside();
  Inside(Inside const&) = delete;
  Inside& operator=(Inside const&) = delete;

 private:
  pimbsr::agent::FileDescriptor former_;
};

/// Runs a command of iproute2, such as "link set a up", where the process is; a failure fails the test.
void ip(std::string const& arguments);
/// Runs many in one go; with `mayFail` those that fail are passed over.
void ipAll(std::vector<std::string> const& commands, bool mayFail = false);

/// Runs something meanwhile in a process of its own, and waits for its end when this object goes.
class Meanwhile {
 public:
  explicit Meanwhile(std::function<void()> const& act);
  ~Meanwhile();
  Meanwhile(Meanwhile const&) = delete;
  Meanwhile& operator=(Meanwhile const&) = delete;

  bool isOver();

 private:
  int child_ = 0;  ///< 0 once it is over
};

/// Writes a network setting of the namespace, such as "ipv4/ip_forward".
void setting(std::string const& name, std::string_view value);
/// Waits until packets pass a link of the namespace: for a moment after it is up, what is sent is lost.
void awaitRunning(std::string const& link);
/// Whether a file can be read within so many seconds.
bool becomesReadable(int fd, double seconds);

/// Tests in namespaces of their own. Where there can be none they are skipped, unless the environment says
/// that they must run.
class NetworkTest : public testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace test
