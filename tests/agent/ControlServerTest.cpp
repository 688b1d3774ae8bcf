#include "agent/control/ControlServer.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <filesystem>
#include <stdexcept>
#include <thread>

#include "agent/control/ControlClient.h"
#include "tests/agent/ControlServerFixture.h"

namespace pimbsr::agent {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

class ControlServerTest : public ControlServerFixture {};

// Requests --------------------------------------------------------------------------------------------

TEST_F(ControlServerTest, RequestsOfOneConnectionAreAnsweredInOrder) {
  start();
  ControlPeer peer = connected();
  peer.send(askVersion + askVersion + "nonsense\n" + askVersion);
  readUntilLines(peer, 4);
  EXPECT_THAT(peer.text(),
              StartsWith(asked(1) + asked(2) + "{\"ok\":false,\"error\":\"the request is no JSON"));
  EXPECT_THAT(peer.text(), testing::EndsWith(asked(3)));
  EXPECT_EQ(server_->counts().requests, 4u);
}

TEST_F(ControlServerTest, ARequestMayComeByteByByte) {
  start();
  ControlPeer peer = connected();
  for (char c : askVersion) {
    peer.read();
    EXPECT_EQ(peer.text(), "");
    peer.send(std::string(1, c));
    turn();
  }
  readUntilLines(peer, 1);
  EXPECT_EQ(peer.text(), asked(1));
}

TEST_F(ControlServerTest, InvalidRequestsAreAnsweredAndTheConnectionStays) {
  start();
  ControlPeer peer = connected();
  std::size_t lines = 0;
  for (std::string const& error :
       {std::string("\n"), std::string("\xff\xfe\n"), std::string(4000, '[') + "\n",
        std::string("{\"command\":\"sho\"}\n"), std::string(1, '\0') + "\n"}) {
    peer.send(error);
    readUntilLines(peer, ++lines);
  }
  EXPECT_EQ(handler_.asked, 0);
  peer.send(askVersion);
  readUntilLines(peer, ++lines);
  EXPECT_THAT(peer.text(), testing::EndsWith(asked(1)));
}

TEST_F(ControlServerTest, ARequestThatIsTooLongIsAnsweredAndEndsTheConnection) {
  start();
  ControlPeer peer = connected();
  std::string longest = "{\"command\":\"version\"" + std::string(maxRequest - 22, ' ') + "}\n";
  ASSERT_EQ(longest.size(), maxRequest);
  peer.send(longest);
  readUntilLines(peer, 1);
  EXPECT_EQ(peer.text(), asked(1));
  peer.send(" " + longest + askVersion);
  readUntilEnd(peer);
  EXPECT_EQ(peer.lines(), 2u);
  EXPECT_THAT(peer.text(), HasSubstr("longer than 4096 bytes"));
  EXPECT_EQ(server_->counts().clients, 0u);
}

TEST_F(ControlServerTest, ClientThatSendsWithoutEndIsReadNoLonger) {
  start();
  ControlPeer peer = connected();
  std::string const flood(1'000'000, 'x');
  std::size_t sent = 0;
  runUntil([&] {
    sent += peer.send(flood);
    peer.read();
    return peer.isEnded();
  });
  EXPECT_EQ(peer.text(), errorLine("a request is longer than 4096 bytes, its newline included"));
  EXPECT_LT(sent, flood.size()) << "it must fill what the kernel keeps, and no more";
}

TEST_F(ControlServerTest, AClientThatSaysNoMoreStillGetsItsAnswers) {
  start();
  ControlPeer peer = connected();
  peer.send(large + askVersion);
  peer.finish();
  readUntilEnd(peer);
  EXPECT_EQ(peer.lines(), 2u);
  EXPECT_GT(peer.text().size(), largeSize);
  EXPECT_THAT(peer.text(), testing::EndsWith(asked(2)));
  EXPECT_EQ(server_->counts().clients, 0u);
}

TEST_F(ControlServerTest, LastRequestWithoutNewlineIsAnError) {
  start();
  ControlPeer peer = connected();
  peer.send(askVersion + "{\"command\":\"version\"}");
  peer.finish();
  readUntilEnd(peer);
  EXPECT_THAT(peer.text(), StartsWith(asked(1)));
  EXPECT_THAT(peer.text(), HasSubstr("no newline"));
  EXPECT_EQ(handler_.asked, 1);
}

TEST_F(ControlServerTest, RequestOfAClientThatLeavesIsServed) {
  start();
  for (std::string const& request : {askVersion, large}) {
    ControlPeer peer = connected();
    peer.send(request);
    peer.leave();
  }
  runUntil([&] { return handler_.asked == 2 && server_->counts().clients == 0; });
}

TEST_F(ControlServerTest, ClientThatLeavesInTheMiddleOfAnAnswerIsRemoved) {
  start();
  ControlPeer peer = connected();
  peer.send(large);
  runUntil([&] { return handler_.asked == 1; });
  peer.leave();
  runUntil([&] { return server_->counts().clients == 0; });
  EXPECT_EQ(server_->counts().slow, 0u);
}

TEST_F(ControlServerTest, WhatTheHandlerCannotDoIsAnswered) {
  start();
  ControlPeer peer = connected();
  handler_.onAsked = [](Request const&) { throw RequestError("not today"); };
  peer.send(askVersion);
  readUntilLines(peer, 1);
  handler_.onAsked = [](Request const&) { throw std::runtime_error("broken \xff"); };
  peer.send(askVersion);
  readUntilLines(peer, 2);
  EXPECT_EQ(peer.text(),
            errorLine("not today") +
                "{\"ok\":false,\"error\":\"the agent failed to answer: broken \xef\xbf\xbd\"}\n");
}

// Limits ----------------------------------------------------------------------------------------------

TEST_F(ControlServerTest, ALargeAnswerComesWholeAndOthersAreServedMeanwhile) {
  start();
  ControlPeer slow = connected();
  slow.send(large);
  runUntil([&] { return handler_.asked == 1; });
  ControlPeer other = connected();
  other.send(askVersion);
  readUntilLines(other, 1);
  EXPECT_EQ(other.text(), asked(2));
  readUntilLines(slow, 1);
  EXPECT_EQ(slow.text(), answerLine({{"text", std::string(largeSize, 'x')}}));
}

TEST_F(ControlServerTest, NothingIsAskedForAClientThatHasNotReadItsAnswer) {
  start();
  ControlPeer peer = connected();
  peer.send(large + large + large);
  for (int n = 0; n < 50; ++n) turn();
  EXPECT_EQ(handler_.asked, 1);
  readUntilLines(peer, 3);
  EXPECT_EQ(handler_.asked, 3);
}

TEST_F(ControlServerTest, AClientIsAnsweredOnceInATurnSoThatOthersGetTheirs) {
  start();
  ControlPeer peer = connected();
  std::string many;
  for (int n = 0; n < 100; ++n) many += askVersion;
  peer.send(many);
  runUntil([&] {
    int before = handler_.asked;
    turn();
    peer.read();
    EXPECT_LE(handler_.asked, before + 1);
    return handler_.asked == 100;
  });
  readUntilLines(peer, 100);
}

TEST_F(ControlServerTest, ClientThatDoesNotReadAnAnswerInTimeIsDropped) {
  start({.answerTime = milliseconds(20)});
  ControlPeer peer = connected();
  peer.send(large);
  runUntil([&] { return server_->counts().slow == 1; });
  EXPECT_EQ(server_->counts().clients, 0u);
  readUntilEnd(peer);
  EXPECT_EQ(peer.lines(), 0u);
}

TEST_F(ControlServerTest, ClientThatSendsNoWholeRequestInTimeIsDropped) {
  start({.silence = milliseconds(20)});
  ControlPeer silent = connected();
  ControlPeer beginner = connected();
  beginner.send("{\"comm");
  ControlPeer fallenSilent = connected();
  fallenSilent.send(askVersion);
  runUntil([&] { return server_->counts().silent == 3; });
  for (ControlPeer* peer : {&silent, &beginner, &fallenSilent}) readUntilEnd(*peer);
  EXPECT_EQ(fallenSilent.text(), asked(1));
}

TEST_F(ControlServerTest, TricklingBytesBuyNoTime) {
  start({.silence = milliseconds(20)});
  ControlPeer peer = connected();
  runUntil([&] {
    peer.send("x");
    return server_->counts().silent == 1;
  });
}

/// Leaves this process no descriptor for as long as it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &former_);
    int next = dup(0);
    close(next);
    rlimit none = former_;
    none.rlim_cur = static_cast<rlim_t>(next);
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &former_); }

 private:
  rlimit former_{};
};

TEST_F(ControlServerTest, WithoutDescriptorsClientsWaitAndTheLoopSleeps) {
  start({.acceptPause = milliseconds(20)});
  ControlPeer peer = connected();
  peer.send(askVersion);
  {
    NoDescriptors none;
    turn();
    EXPECT_EQ(uv_backend_timeout(&loop_) > 0, true) << "the loop would not rest";
    turn();
    EXPECT_EQ(server_->counts().clients, 0u);
  }
  readUntilLines(peer, 1);
  EXPECT_EQ(peer.text(), asked(1));
}

// Watching --------------------------------------------------------------------------------------------

TEST_F(ControlServerTest, WatchersGetEachLineAndOthersNone) {
  start();
  EXPECT_FALSE(server_->hasWatchers());
  server_->publish("{\"unread\":1}");
  ControlPeer asking = connected();
  ControlPeer one = watcher();
  ControlPeer two = watcher();
  EXPECT_TRUE(server_->hasWatchers());
  EXPECT_EQ(server_->counts().watchers, 2u);
  server_->publish("{\"n\":1}");
  server_->publish("{\"n\":2}");
  for (ControlPeer* peer : {&one, &two}) {
    readUntilLines(*peer, 3);
    EXPECT_EQ(peer->text(), watchGranted + "{\"n\":1}\n{\"n\":2}\n");
  }
  asking.read();
  EXPECT_EQ(asking.text(), "");
}

TEST_F(ControlServerTest, AWatcherIsNotListenedToAndMayBeSilent) {
  start({.silence = milliseconds(300), .answerTime = milliseconds(300)});
  ControlPeer peer = connected();
  peer.send(askVersion + watching + askVersion);
  readUntilLines(peer, 2);
  peer.send(askVersion + std::string(10000, 'x'));
  std::this_thread::sleep_for(milliseconds(320));
  for (int n = 0; n < 20; ++n) turn();
  server_->publish("{\"n\":1}");
  readUntilLines(peer, 3);
  EXPECT_EQ(peer.text(), asked(1) + watchGranted + "{\"n\":1}\n");
  EXPECT_EQ(handler_.asked, 2);
}

TEST_F(ControlServerTest, AWatchEndsWithItsClient) {
  start();
  ControlPeer leaving = watcher();
  ControlPeer finishing = watcher();
  leaving.leave();
  finishing.finish();
  runUntil([&] { return server_->counts().clients == 0; });
  EXPECT_FALSE(server_->hasWatchers());
  readUntilEnd(finishing);
}

TEST_F(ControlServerTest, AWatchThatIsNotGrantedIsNone) {
  start();
  handler_.onAsked = [](Request const&) { throw RequestError("no"); };
  ControlPeer peer = connected();
  peer.send(watching);
  readUntilLines(peer, 1);
  EXPECT_EQ(peer.text(), errorLine("no"));
  EXPECT_FALSE(server_->hasWatchers());
}

TEST_F(ControlServerTest, AWatcherThatDoesNotReadIsDroppedAndTheOthersGoOn) {
  start({.watchBacklog = 10'000});
  ControlPeer slow = watcher();
  ControlPeer quick = watcher();
  std::string line = "\"" + std::string(5'000, 'x') + "\"";
  std::size_t published = 0;
  for (; server_->counts().slow == 0 && published < 1000; ++published) {
    server_->publish(line);
    quick.read();
    turn();
  }
  EXPECT_EQ(server_->counts().slow, 1u);
  EXPECT_EQ(server_->counts().watchers, 1u);
  readUntilLines(quick, 1 + published);
  readUntilEnd(slow);
  EXPECT_LT(slow.lines(), quick.lines());
}

TEST_F(ControlServerTest, OneLineAboveTheBoundIsSentToAWatcherThatReads) {
  start({.watchBacklog = 10});
  ControlPeer peer = watcher();
  std::string line = "\"" + std::string(largeSize, 'x') + "\"";
  server_->publish(line);
  readUntilLines(peer, 2);
  EXPECT_EQ(peer.text(), watchGranted + line + "\n");
}

TEST_F(ControlServerTest, AnAnswerMayPublish) {
  start({.watchBacklog = 10});
  ControlPeer slow = watcher();
  ControlPeer quick = watcher();
  handler_.onAsked = [&](Request const&) {
    for (int n = 0; n < 200 && server_->counts().watchers == 2; ++n) {
      server_->publish("\"" + std::string(5'000, 'x') + "\"");
      quick.read();
    }
  };
  ControlPeer peer = connected();
  peer.send(reloading);
  readUntilLines(peer, 1);
  EXPECT_EQ(peer.text(), watchGranted);
  EXPECT_EQ(server_->counts().slow, 1u);
}

// The end ---------------------------------------------------------------------------------------------

TEST_F(ControlServerTest, CloseEndsAllConnectionsAndRemovesTheSocket) {
  start();
  ControlPeer asking = connected();
  asking.send(large);
  ControlPeer watches = watcher();
  server_->close();
  EXPECT_FALSE(std::filesystem::exists(path_));
  readUntilEnd(asking);
  readUntilEnd(watches);
  server_->publish("{}");
  server_->close();
  EXPECT_EQ(uv_run(&loop_, UV_RUN_DEFAULT), 0) << "nothing keeps the loop";
}

TEST_F(ControlServerTest, OneThatCannotListenLeavesTheLoopAsItWas) {
  start();
  EXPECT_THROW(ControlServer(&loop_, {.path = path_}, handler_), ControlError);
}

TEST_F(ControlServerTest, ControlClientGetsAnswersAndChanges) {
  start();
  Json answer;
  std::string change;
  std::thread client([&] {
    answer = ask(path_, {{"command", "metrics"}});
    watch(path_, [&](std::string_view line) {
      change = line;
      return false;
    });
  });
  runUntil([&] { return server_->hasWatchers(); });
  server_->publish("{\"n\":1}");
  runUntil([&] { return !server_->hasWatchers(); });
  client.join();
  EXPECT_EQ(answer.at("text").get_ref<std::string const&>().size(), largeSize);
  EXPECT_EQ(change, "{\"n\":1}");
}

}  // namespace
}  // namespace pimbsr::agent
