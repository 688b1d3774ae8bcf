#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <list>
#include <vector>

#include "agent/config/Settings.h"
#include "agent/control/ControlClient.h"
#include "tests/agent/ControlServerFixture.h"
#include "tests/agent/InChild.h"

namespace pimbsr::agent {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uid_t hog = 61001, other = 61002, third = 61003;

TEST(LimitsForTest, SharesGrowWithTheConnectionsAndTheDefaultsAreThoseOfTheKeys) {
  for (auto const& [limits, expected] :
       {std::pair(limitsFor(32, 12), ControlLimits()),
        std::pair(limitsFor(64, 30),
                  ControlLimits{.clients = 64, .watches = 48, .userWatches = 30, .userUnread = 16})}) {
    EXPECT_EQ(limits.clients, expected.clients);
    EXPECT_EQ(limits.reserve, expected.reserve);
    EXPECT_EQ(limits.watches, expected.watches);
    EXPECT_EQ(limits.userWatches, expected.userWatches);
    EXPECT_EQ(limits.userUnread, expected.userUnread);
  }
  Settings const settings;
  EXPECT_EQ(settings.controlClients, ControlLimits().clients);
  EXPECT_EQ(settings.userWatches, ControlLimits().userWatches);
}

/// Connections of several users: the kernel notes the effective user at the time of a connection.
class ControlLimitsTest : public ControlServerFixture {
 protected:
  void SetUp() override { NEEDS_ROOT(); }

  void serve(ControlLimits const& limits = {}) {
    start(limits);
    openPath();
  }
  /// Lets every user connect, which the modes of folder and socket forbid otherwise.
  void openPath() {
    std::filesystem::permissions(folder_.file("."), std::filesystem::perms(0755));
    std::filesystem::permissions(path_, std::filesystem::perms(0666));
  }
  ControlPeer connectedAs(uid_t user) {
    EXPECT_EQ(seteuid(user), 0);
    ControlPeer peer(path_);
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_TRUE(peer.isConnected());
    return peer;
  }
  /// Connections of a user that were accepted and have sent `request`.
  std::vector<ControlPeer> connectedAs(uid_t user, std::size_t number, std::string const& request = "") {
    std::vector<ControlPeer> peers;
    for (std::size_t n = 0; n < number; ++n) {
      peers.push_back(connectedAs(user));
      peers.back().send(request);
    }
    for (int n = 0; n < 50; ++n) turn();
    return peers;
  }
  /// Whether a new connection of a user gets an answer.
  bool isServed(uid_t user) {
    ControlPeer peer = connectedAs(user);
    peer.send(askVersion);
    runUntil([&] {
      peer.read();
      return peer.lines() > 0 || peer.isEnded();
    });
    return peer.text().starts_with("{\"ok\":true");
  }
  std::string endOf(ControlPeer& peer) {
    readUntilEnd(peer);
    return peer.text();
  }
  std::size_t clientsOf(uid_t user) const {
    for (ControlUser const& each : server_->status().users)
      if (each.uid == user) return each.clients;
    return 0;
  }
};

// Places --------------------------------------------------------------------------------------------------

TEST_F(ControlLimitsTest, IdleConnectionsOfOneUserLockOutNoOther) {
  serve();
  std::vector<ControlPeer> idle = connectedAs(hog, 40);
  EXPECT_EQ(clientsOf(hog), 28u) << "the reserve is not for this user";
  EXPECT_TRUE(isServed(other));
  EXPECT_TRUE(isServed(0));
  EXPECT_EQ(server_->counts().rejected, 0u);
}

TEST_F(ControlLimitsTest, TheLongestIdleConnectionOfTheLargestUserGivesWayWithTheReason) {
  serve({.clients = 6, .reserve = 1});
  ControlPeer earlier = connectedAs(other);
  std::vector<ControlPeer> idle = connectedAs(hog, 4);
  idle[0].send("{\"comm");
  EXPECT_TRUE(isServed(third));
  EXPECT_THAT(endOf(idle[0]), AllOf(StartsWith("{\"ok\":false"), HasSubstr("gave way to a new one"),
                                    HasSubstr("4 of them of user 61001")));
  EXPECT_EQ(server_->counts().gaveWay, 1u);
  EXPECT_EQ(clientsOf(other), 1u);
}

TEST_F(ControlLimitsTest, AUserWithManyConnectionsTakesNoPlaceOfOneWithFew) {
  serve({.clients = 8, .reserve = 2});
  ControlPeer quiet = connectedAs(other);
  for (int n = 0; n < 20; ++n) connectedAs(hog, 10);
  quiet.send(askVersion);
  readUntilLines(quiet, 1);
  EXPECT_FALSE(quiet.isEnded());
}

TEST_F(ControlLimitsTest, ARequestThatWasNotReadYetKeepsItsConnection) {
  serve({.clients = 2, .reserve = 0});
  std::vector<ControlPeer> first = connectedAs(hog, 1);
  ControlPeer asking = connectedAs(hog);
  asking.send(askVersion);
  ControlPeer newcomer = connectedAs(hog);
  readUntilLines(asking, 1);
  EXPECT_THAT(asking.text(), StartsWith("{\"ok\":true"));
  EXPECT_THAT(endOf(first[0]), HasSubstr("gave way"));
}

TEST_F(ControlLimitsTest, RequestsOfOneUserWithoutEndLockOutNoOther) {
  serve();
  std::string many;
  for (int n = 0; n < 100; ++n) many += askVersion;
  std::vector<ControlPeer> asking = connectedAs(hog, 28);
  for (ControlPeer& peer : asking) peer.send(many);
  EXPECT_TRUE(isServed(other));
}

TEST_F(ControlLimitsTest, AnUnreadAnswerKeepsItsConnectionDuringItsGrace) {
  serve({.clients = 4, .reserve = 0, .restFactor = 0, .unreadGrace = milliseconds(60000)});
  std::vector<ControlPeer> unread = connectedAs(hog, 4, large);
  ASSERT_EQ(server_->status().users[0].unread, 4u);
  EXPECT_FALSE(isServed(other));
  EXPECT_EQ(server_->counts().rejected, 1u);
}

TEST_F(ControlLimitsTest, AnUnreadAnswerGivesWayToAnotherUserAfterItsGrace) {
  serve({.clients = 4, .reserve = 0, .restFactor = 0, .unreadGrace = milliseconds(1)});
  std::vector<ControlPeer> unread = connectedAs(hog, 4, large);
  std::this_thread::sleep_for(milliseconds(5));
  EXPECT_FALSE(isServed(hog)) << "its own answers don't give way";
  EXPECT_TRUE(isServed(other));
  EXPECT_EQ(server_->counts().gaveWay, 1u);
}

TEST_F(ControlLimitsTest, RootFindsAPlaceAtOnceHoweverManyUsersHoldThem) {
  serve({.clients = 6, .reserve = 1, .restFactor = 0, .unreadGrace = milliseconds(60000)});
  std::vector<ControlPeer> unread = connectedAs(hog, 3, large);
  std::vector<ControlPeer> others = connectedAs(other, 2, large);
  std::vector<ControlPeer> root = connectedAs(0, 1, large);
  EXPECT_FALSE(isServed(third));
  EXPECT_TRUE(isServed(0));
}

// Shares --------------------------------------------------------------------------------------------------

TEST_F(ControlLimitsTest, WatchesBeyondTheShareOfAUserAreRejectedAndTheConnectionStays) {
  serve({.userWatches = 2});
  std::vector<ControlPeer> watches = connectedAs(hog, 3, watching);
  for (ControlPeer& peer : watches) readUntilLines(peer, 1);
  EXPECT_EQ(watches[1].text(), watchGranted);
  EXPECT_EQ(watches[2].text(), errorLine("user 61001 has 2 watches, and no more are granted to one user"));
  watches[2].send(askVersion);
  readUntilLines(watches[2], 2);
  std::vector<ControlPeer> own = connectedAs(other, 1, watching);
  readUntilLines(own[0], 1);
  EXPECT_EQ(own[0].text(), watchGranted);
  EXPECT_EQ(server_->counts().rejectedRequests, 1u);
}

TEST_F(ControlLimitsTest, WatchesOfAllUsersLeaveTheReserveToRoot) {
  serve({.reserve = 1, .watches = 3});
  std::vector<ControlPeer> first = connectedAs(hog, 1, watching), second = connectedAs(other, 1, watching);
  std::vector<ControlPeer> beyond = connectedAs(third, 1, watching), root = connectedAs(0, 2, watching);
  readUntilLines(beyond[0], 1);
  EXPECT_THAT(beyond[0].text(), HasSubstr("no more are granted but to root and the agent's own user"));
  for (ControlPeer& peer : root) readUntilLines(peer, 1);
  EXPECT_EQ(root[0].text(), watchGranted);
  EXPECT_THAT(root[1].text(), HasSubstr("there are 3 watches"));
}

TEST_F(ControlLimitsTest, NoAnswerIsMadeForAUserWithTooManyUnread) {
  serve({.userUnread = 2});
  std::vector<ControlPeer> unread = connectedAs(hog, 2, large);
  std::vector<ControlPeer> beyond = connectedAs(hog, 1, large);
  readUntilLines(beyond[0], 1);
  EXPECT_THAT(beyond[0].text(), HasSubstr("2 answers to user 61001 wait to be read"));
  EXPECT_EQ(handler_.asked, 2);
  EXPECT_TRUE(isServed(other));
  readUntilLines(unread[0], 1);
  EXPECT_TRUE(isServed(hog));
}

// Turns ---------------------------------------------------------------------------------------------------

TEST_F(ControlLimitsTest, ATurnOfTheLoopBeginsNoAnswerAfterItsTime) {
  serve({.answersPerTurn = milliseconds(1)});
  handler_.onAsked = [](Request const&) { std::this_thread::sleep_for(milliseconds(2)); };
  std::vector<ControlPeer> peers = connectedAs(hog, 10);
  for (ControlPeer& peer : peers) peer.send(askVersion);
  runUntil([&] {
    int before = handler_.asked;
    turn();
    EXPECT_LE(handler_.asked, before + 1);
    return handler_.asked == 10;
  });
}

TEST_F(ControlLimitsTest, UsersTakeTurnsWithTheirRequests) {
  serve({.answersPerTurn = milliseconds(1)});
  handler_.onAsked = [](Request const&) { std::this_thread::sleep_for(milliseconds(2)); };
  std::vector<ControlPeer> many = connectedAs(hog, 10);
  std::vector<ControlPeer> few = connectedAs(other, 1);
  for (ControlPeer& peer : many) peer.send(askVersion);
  few[0].send(askVersion);
  readUntilLines(few[0], 1);
  EXPECT_THAT(few[0].text(), testing::AnyOf(asked(1), asked(2)));
}

TEST_F(ControlLimitsTest, AUserWithLongAnswersHasAShareOfTheLoop) {
  constexpr int answers = 6;
  serve({.answersPerTurn = milliseconds(1), .restFactor = 4});
  handler_.onAsked = [](Request const&) { std::this_thread::sleep_for(milliseconds(10)); };
  ControlPeer greedy = connectedAs(hog);
  auto start = std::chrono::steady_clock::now();
  for (int n = 0; n < answers; ++n) greedy.send(askVersion);
  readUntilLines(greedy, 1);
  ControlPeer modest = connectedAs(other);
  modest.send(askVersion);
  readUntilLines(modest, 1);
  EXPECT_LE(handler_.asked, 3) << "the rest of one user delays no other";
  readUntilLines(greedy, answers);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds((answers - 1) * 50));
}

TEST_F(ControlLimitsTest, AUserRestsAlsoWithAnotherConnection) {
  serve({.answersPerTurn = milliseconds(1), .restFactor = 10});
  handler_.onAsked = [](Request const&) { std::this_thread::sleep_for(milliseconds(10)); };
  EXPECT_TRUE(isServed(hog));
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(isServed(hog));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(90));
}

TEST_F(ControlLimitsTest, ATurnOfTheLoopTakesABoundedNumberOfConnections) {
  serve({.clients = 100, .acceptsPerTurn = 3});
  std::vector<ControlPeer> peers;
  for (int n = 0; n < 10; ++n) peers.push_back(connectedAs(hog));
  runUntil([&] {
    std::size_t before = server_->counts().clients;
    turn();
    EXPECT_LE(server_->counts().clients, before + 3);
    return server_->counts().clients == 10;
  });
}

// Attack --------------------------------------------------------------------------------------------------

/// Connects without end and misuses each connection in one of several ways, until it is killed.
[[noreturn]] void attack(std::string const& path) {
  std::string const uses[] = {"",       "{\"comm", std::string(4096, 'x'),
                              watching, large,     askVersion + askVersion};
  std::list<ControlPeer> held;
  for (std::size_t n = 0;; ++n) {
    ControlPeer peer(path);
    if (!peer.isConnected()) continue;
    peer.send(uses[n % std::size(uses)]);
    if (n % 7 != 0) held.push_back(std::move(peer));
    if (held.size() > 300) held.pop_front();
  }
}

/// How many of its requests were answered.
std::string askOften(std::string const& path, int requests) {
  int answered = 0;
  std::string error;
  for (int n = 0; n < requests; ++n) {
    try {
      ask(path, {{"command", "version"}});
      ++answered;
    } catch (std::exception const& failed) {
      error = failed.what();
    }
  }
  return std::to_string(answered) + error;
}

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST_F(ControlLimitsTest, AnAttackerNeitherLocksOutOthersNorHoldsTheLoop) {
  serve();
  pid_t attacker = fork();
  if (attacker == 0) {
    if (setuid(hog) != 0) _exit(1);
    alarm(60);
    attack(path_);
  }
  std::string result;
  std::atomic<bool> done = false;
  std::thread client([&] {
    result = test::inChild([&] { return setuid(other) == 0 ? askOften(path_, 5) : "cannot change user"; });
    done = true;
  });
  double longest = 0;
  while (!done) {
    double start = cpuSeconds();
    turn();
    server_->publish(Json(std::string(5000, 'x')).dump());
    longest = std::max(longest, cpuSeconds() - start);
  }
  client.join();
  kill(attacker, SIGKILL);
  waitpid(attacker, nullptr, 0);
  EXPECT_EQ(result, "5");
  EXPECT_LT(longest, 0.5) << "CPU time of one turn";
  EXPECT_GT(server_->counts().gaveWay, 10u) << "the attack had no effect";
}

// The read-only socket ------------------------------------------------------------------------------------

TEST_F(ControlLimitsTest, ReadOnlySocketRejectsRequestsThatChangeTheAgentAndNamesTheOther) {
  start({.path = path_, .readOnly = true, .fullPath = "/run/full.sock"});
  ControlPeer peer = connected();
  std::size_t lines = 0;
  for (char const* rejected :
       {R"({"command":"clear","what":"drops"})", R"({"command":"clear","what":"bsr"})",
        R"({"command":"clear","what":"rp-set"})", R"({"command":"clear","what":"neighbors"})",
        R"({"command":"reload"})", R"({"command":"trace","handle":"x","level":1})"}) {
    peer.send(std::string(rejected) + "\n");
    readUntilLines(peer, ++lines);
    EXPECT_THAT(peer.text(), HasSubstr("is not available on the read-only socket " + path_));
    EXPECT_THAT(peer.text(), testing::EndsWith("use /run/full.sock\"}\n"));
  }
  EXPECT_EQ(handler_.asked, 0);
  for (std::string const& served :
       {std::string("{\"command\":\"show\",\"what\":\"bsr\"}\n"), askVersion, large, watching}) {
    peer.send(served);
    readUntilLines(peer, ++lines);
  }
  EXPECT_EQ(handler_.asked, 4);
}

}  // namespace
}  // namespace pimbsr::agent
