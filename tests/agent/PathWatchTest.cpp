#include "agent/control/ControlServer.h"
#include "tests/agent/ControlServerFixture.h"

namespace pimbsr::agent {
namespace {

using std::chrono::milliseconds;

/// Clients that watch values of the model.
class PathWatchTest : public ControlServerFixture {
 protected:
  void SetUp() override { handler_.values = {{"a", "1"}, {"b", "5"}}; }
  void change(std::string const& path, std::string const& value) {
    handler_.values[path] = value;
    server_->modelChanged();
  }
  /// Runs the loop for a time.
  void runFor(milliseconds time) {
    auto const end = std::chrono::steady_clock::now() + time;
    runUntil([&] { return std::chrono::steady_clock::now() >= end; });
  }
};

TEST_F(PathWatchTest, TheFirstLineIsTheValueAndThenEachOtherOne) {
  start();
  ControlPeer peer = watcherOf("a");
  EXPECT_EQ(peer.text(), watchGranted + "a=1\n");
  change("a", "2");
  readUntilLines(peer, 3);
  change("a", "3");
  readUntilLines(peer, 4);
  EXPECT_EQ(peer.text(), watchGranted + "a=1\na=2\na=3\n");
}

TEST_F(PathWatchTest, AnEventThatLeavesTheValueIsNoLine) {
  start();
  ControlPeer peer = watcherOf("a");
  int const before = handler_.read;
  change("b", "6");
  runUntil([&] { return handler_.read > before; });
  change("a", "2");
  readUntilLines(peer, 3);
  EXPECT_EQ(peer.text(), watchGranted + "a=1\na=2\n");
}

TEST_F(PathWatchTest, AValueThatGoesAndComesAgainIsALineEachTime) {
  start();
  ControlPeer peer = watcherOf("a");
  handler_.values.erase("a");
  server_->modelChanged();
  readUntilLines(peer, 3);
  server_->modelChanged();
  runFor(milliseconds(20));
  change("a", "1");
  readUntilLines(peer, 4);
  EXPECT_EQ(peer.text(), watchGranted + "a=1\na=nothing\na=1\n");
}

TEST_F(PathWatchTest, WatchersOfPathsAndOfChangesDoNotGetEachOthersLines) {
  start();
  ControlPeer changes = watcher(), value = watcherOf("a");
  server_->publish("{}");
  change("a", "2");
  readUntilLines(changes, 2);
  readUntilLines(value, 3);
  EXPECT_EQ(changes.text(), watchGranted + "{}\n");
  EXPECT_EQ(value.text(), watchGranted + "a=1\na=2\n");
  EXPECT_EQ(server_->counts().watchers, 2u);
}

TEST_F(PathWatchTest, WithoutAWatcherOfAPathNothingIsRead) {
  start();
  ControlPeer changes = watcher();
  server_->modelChanged();
  EXPECT_EQ(handler_.read, 0);
  EXPECT_FALSE(watcherOf("a").isEnded());
  runUntil([&] { return server_->counts().watchers == 1; });
  runFor(milliseconds(5));
  int const before = handler_.read;
  server_->modelChanged();
  runFor(milliseconds(5));
  EXPECT_EQ(handler_.read, before);
}

TEST_F(PathWatchTest, ChangesDuringTheRestAreOneLine) {
  start({.valuesRestFactor = 200});
  ControlPeer peer = watcherOf("a");
  handler_.onRead = [](std::string const&) { std::this_thread::sleep_for(milliseconds(1)); };
  change("a", "2");
  readUntilLines(peer, 3);
  int const before = handler_.read;
  for (int n = 3; n <= 100; ++n) change("a", std::to_string(n));
  EXPECT_EQ(handler_.read, before) << "values were read while they rest";
  readUntilLines(peer, 4);
  EXPECT_EQ(peer.text(), watchGranted + "a=1\na=2\na=100\n");
}

TEST_F(PathWatchTest, LongReadingIsDividedAndEveryPathGetsItsTurn) {
  start({.answersPerTurn = milliseconds(1), .valuesRestFactor = 1});
  std::vector<ControlPeer> peers;
  for (int n = 0; n < 4; ++n) {
    handler_.values["p" + std::to_string(n)] = "0";
    peers.push_back(watcherOf("p" + std::to_string(n)));
  }
  runFor(milliseconds(50));
  handler_.onRead = [](std::string const&) { std::this_thread::sleep_for(milliseconds(2)); };
  for (auto& [path, value] : handler_.values) value = "1";
  int const before = handler_.read;
  server_->modelChanged();
  EXPECT_EQ(handler_.read, before + 1);
  for (ControlPeer& peer : peers) {
    runUntil([&] {
      server_->modelChanged();
      peer.read();
      return peer.lines() >= 3;
    });
  }
}

TEST_F(PathWatchTest, AWatcherWhoseValueCannotBeReadEndsAlone) {
  start();
  ControlPeer broken = watcherOf("a"), other = watcherOf("b");
  handler_.onRead = [](std::string const& path) {
    if (path == "a") throw std::runtime_error("broken");
  };
  change("b", "6");
  readUntilEnd(broken);
  readUntilLines(other, 3);
  EXPECT_EQ(server_->counts().failed, 1u);
  EXPECT_EQ(server_->counts().watchers, 1u);
}

TEST_F(PathWatchTest, AWatcherThatDoesNotReadIsDropped) {
  start({.watchBacklog = 1000, .valuesRestFactor = 0});
  ControlPeer peer = watcherOf("a");
  std::string const line(100'000, 'x');
  int number = 0;
  runUntil([&] {
    change("a", line + std::to_string(++number));
    return server_->counts().slow == 1;
  });
  EXPECT_EQ(server_->counts().clients, 0u);
}

TEST_F(PathWatchTest, AUserHasNoMoreWatchesOfPathsThanOfChanges) {
  start({.userWatches = 2});
  ControlPeer one = watcherOf("a"), other = watcher();
  ControlPeer third = connected();
  third.send("{\"command\":\"watch\",\"path\":\"b\"}\n");
  readUntilLines(third, 1);
  EXPECT_THAT(third.text(), testing::HasSubstr("has 2 watches, and no more are granted"));
}

TEST_F(PathWatchTest, TheServerMayCloseWhileValuesRest) {
  start({.valuesRestFactor = 1000});
  ControlPeer peer = watcherOf("a");
  server_->close();
  server_->modelChanged();
  readUntilEnd(peer);
}

}  // namespace
}  // namespace pimbsr::agent
