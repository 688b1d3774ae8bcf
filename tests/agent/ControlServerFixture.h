#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "agent/control/ControlServer.h"
#include "tests/agent/ControlPeer.h"
#include "tests/support/ScratchFolder.h"

namespace pimbsr::agent {

using Json = nlohmann::ordered_json;
using test::ControlPeer;

inline std::string const askVersion = "{\"command\":\"version\"}\n";
inline std::string const watching = "{\"command\":\"watch\"}\n";
inline std::string const large = "{\"command\":\"metrics\"}\n";
inline std::string const reloading = "{\"command\":\"reload\"}\n";
inline std::string const watchGranted = "{\"ok\":true,\"result\":{}}\n";

inline constexpr std::size_t largeSize = 3'000'000;

/// Counts what it is asked, and answers as each test needs it.
class CountingHandler : public RequestHandler {
 public:
  Json answer(Request const& request) override {
    ++asked;
    if (onAsked) onAsked(request);
    if (request.command == Command::metrics) return {{"text", std::string(largeSize, 'x')}};
    if (request.command == Command::version) return {{"asked", asked}};
    return Json::object();
  }
  PathValue valueAt(std::string const& path) override {
    ++read;
    if (onRead) onRead(path);
    auto found = values.find(path);
    if (found == values.end()) return {.missing = "nothing"};
    return {.value = found->second};
  }
  std::string lineOf(std::string const& path, PathValue const& value) override {
    return path + "=" + value.value.value_or(value.missing);
  }

  std::map<std::string, std::string> values;  ///< of the paths that name something
  int read = 0;
  std::function<void(std::string const&)> onRead;
  int asked = 0;
  std::function<void(Request const&)> onAsked;
};

/// A control server in a loop that the test runs, and clients in the same process.
class ControlServerFixture : public testing::Test {
 protected:
  ControlServerFixture() { uv_loop_init(&loop_); }
  ~ControlServerFixture() override {
    server_.reset();
    uv_run(&loop_, UV_RUN_DEFAULT);
    EXPECT_EQ(uv_loop_close(&loop_), 0) << "something is still hung into the loop";
  }

  void start(ControlLimits const& limits = {}) {
    server_ = std::make_unique<ControlServer>(&loop_, ControlEndpoint{.path = path_}, handler_, limits);
  }
  ControlPeer connected() {
    ControlPeer peer(path_);
    EXPECT_TRUE(peer.isConnected());
    return peer;
  }
  void start(ControlEndpoint const& endpoint, ControlLimits const& limits = {}) {
    server_ = std::make_unique<ControlServer>(&loop_, endpoint, handler_, limits);
  }
  void turn() { uv_run(&loop_, UV_RUN_NOWAIT); }
  /// Runs the loop until something is true, for at most a minute: beside other work a turn takes long.
  void runUntil(std::function<bool()> const& isTrue) {
    auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!isTrue()) {
      ASSERT_LT(std::chrono::steady_clock::now(), latest) << "it never came to it";
      turn();
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }
  void readUntilLines(ControlPeer& peer, std::size_t lines) {
    runUntil([&] {
      peer.read();
      return peer.lines() >= lines || peer.isEnded();
    });
    EXPECT_EQ(peer.lines(), lines) << peer.text().substr(0, 300);
  }
  void readUntilEnd(ControlPeer& peer) {
    runUntil([&] {
      peer.read();
      return peer.isEnded();
    });
  }
  /// A client whose watch was granted.
  ControlPeer watcher() {
    ControlPeer peer = connected();
    peer.send(watching);
    readUntilLines(peer, 1);
    EXPECT_EQ(peer.text(), watchGranted);
    return peer;
  }
  /// A client that watches a path and has its first value.
  ControlPeer watcherOf(std::string const& path) {
    ControlPeer peer = connected();
    peer.send("{\"command\":\"watch\",\"path\":\"" + path + "\"}\n");
    readUntilLines(peer, 2);
    return peer;
  }

  test::ScratchFolder folder_;
  std::string path_ = folder_.file("control.sock");
  uv_loop_t loop_;
  CountingHandler handler_;
  std::unique_ptr<ControlServer> server_;
};

/// The answer to `version` as the handler's n-th request.
inline std::string asked(int number) {
  return "{\"ok\":true,\"result\":{\"asked\":" + std::to_string(number) + "}}\n";
}

}  // namespace pimbsr::agent
