#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ScratchFolder.h"

namespace test {

/// Listens where an agent would, in a thread of its own, and gives the answers that the test sets: one client
/// after the other, each with one request.
class FakeAgent {
 public:
  /// Gets the request without its newline; what it returns is sent as it is, and ends the connection.
  using Answer = std::function<std::string(std::string const& request)>;

  explicit FakeAgent(Answer answer);
  /// Always answers the same.
  explicit FakeAgent(std::string const& answer)
      : FakeAgent([answer](std::string const&) { return answer; }) {}
  ~FakeAgent();
  FakeAgent(FakeAgent const&) = delete;
  FakeAgent& operator=(FakeAgent const&) = delete;

  std::string path() const { return folder_.file("control.sock"); }
  /// All that were asked so far.
  std::vector<std::string> requests() const;

 private:
  void serve();
  void converse(int client);

  ScratchFolder folder_;
  Answer answer_;
  int socket_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace test
