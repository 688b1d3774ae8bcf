#include "agent/helpers/StateWriter.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>

#include "agent/process/Privileges.h"
#include "agent/process/Sandbox.h"
#include "tests/agent/InChild.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

using pimbsr::agent::StateReport;
using pimbsr::agent::StateWriter;
using pimbsr::agent::StateWriterOptions;
using testing::HasSubstr;
using Kind = StateReport::Kind;

class StateWriterTest : public testing::Test {
 protected:
  StateWriterOptions options() {
    return {.folder = folder.path() + "/state", .files = {"one", "two"}, .sandbox = false};
  }
  void start() { writer = std::make_unique<StateWriter>(options()); }
  void stop() { writer = nullptr; }
  std::string text(std::string const& name) const {
    std::ifstream in(folder.path() + "/state/" + name);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// The text of a file once it is as expected, or its last text after some seconds. The writer may go on for
  /// a moment after stop().
  std::string textOnce(std::string const& name, std::string const& expected) const {
    for (int i = 0; i < 2000 && text(name) != expected; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return text(name);
  }
  /// The next report, which must come within seconds.
  StateReport nextReport() {
    pollfd waiting{writer->fd(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 20000), 1) << "no report";
    auto report = writer->takeReport();
    return report ? *report : StateReport();
  }
  /// The next one that is not of a sync, which may come between any others.
  StateReport report() {
    StateReport report = nextReport();
    while (report.kind == Kind::synced) report = nextReport();
    return report;
  }
  /// The process that a process has started, once there is one.
  static pid_t childOf(pid_t process) {
    std::string pid = std::to_string(process);
    pid_t child = 0;
    for (int i = 0; i < 1000 && child == 0; ++i) {
      std::ifstream in("/proc/" + pid + "/task/" + pid + "/children");
      if (!(in >> child)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return child;
  }
  /// The process that holds the lock, and its child, which writes.
  pid_t holder() const { return childOf(writer->process()); }
  pid_t worker() const { return childOf(holder()); }
  void killBoth() const {
    pid_t const both[] = {holder(), worker()};
    for (pid_t one : both) kill(one, SIGKILL);
  }
  /// The records before an end of processes, after it and after the restart are written, each once.
  void expectNothingMissedIf(std::function<void()> const& end) {
    start();
    writer->append(0, "before\n");
    EXPECT_EQ(textOnce("one", "before\n"), "before\n");
    end();
    writer->append(0, "meanwhile\n");
    EXPECT_EQ(report().kind, Kind::restarted);
    EXPECT_EQ(writer->counts().restarts, 1u);
    writer->append(0, "after\n");
    stop();
    EXPECT_EQ(textOnce("one", "before\nmeanwhile\nafter\n"), "before\nmeanwhile\nafter\n");
  }

  ScratchFolder folder;
  std::unique_ptr<StateWriter> writer;
};

TEST_F(StateWriterTest, TextsAreWrittenInTheirOrderAndReplacedAsAWhole) {
  start();
  EXPECT_TRUE(writer->append(0, "a\n"));
  EXPECT_TRUE(writer->append(1, "x\n"));
  EXPECT_TRUE(writer->append(0, "b\n"));
  EXPECT_TRUE(writer->replace(1, "new\n"));
  EXPECT_TRUE(writer->append(1, "y\n"));
  EXPECT_EQ(report().kind, Kind::replaced);
  stop();
  EXPECT_EQ(textOnce("one", "a\nb\n"), "a\nb\n");
  EXPECT_EQ(textOnce("two", "new\ny\n"), "new\ny\n");
  start();
  writer->append(0, "c\n");
  stop();
  EXPECT_EQ(textOnce("one", "a\nb\nc\n"), "a\nb\nc\n") << "a later writer goes on";
}

TEST_F(StateWriterTest, SyncsAreReportedWithTheLastRecord) {
  start();
  writer->append(0, "a\n");
  writer->append(0, "b\n");
  EXPECT_EQ(writer->lastNumber(), 2u);
  StateReport synced = nextReport();
  while (synced.number < 2 && !HasFailure()) synced = nextReport();
  EXPECT_EQ(synced.kind, Kind::synced);
  EXPECT_EQ(synced.number, 2u);
  writer->replace(0, "c\n");
  EXPECT_EQ(report().number, 3u);
}

TEST_F(StateWriterTest, LongTextIsReplacedWhole) {
  std::string const longText(std::size_t{8} << 20, 'x');
  start();
  writer->replace(0, longText);
  EXPECT_EQ(report().kind, Kind::replaced);
  stop();
  EXPECT_EQ(textOnce("one", longText), longText);
}

TEST_F(StateWriterTest, AgentThatIsKilledLosesNothingThatItHandedOver) {
  for (int round = 0; round < 10; ++round) {
    std::string name = folder.path() + "/state";
    pid_t agent = fork();
    if (agent == 0) {
      StateWriter doomed(options());
      for (int i = 0; i < 50; ++i) doomed.append(0, std::to_string(round) + "\n");
      kill(getpid(), SIGKILL);
    }
    waitpid(agent, nullptr, 0);
    start();  // which waits for the former writer
    stop();
    std::string const all = text("one");
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 50 * (round + 1));
  }
}

TEST_F(StateWriterTest, KilledAgentThatReadNoReportLosesNothingEither) {
  pid_t agent = fork();
  if (agent == 0) {
    StateWriter doomed(options());
    for (int i = 0; i < 20; ++i) doomed.replace(1, "x");
    for (int i = 0; i < 20; ++i) doomed.append(0, "line\n");
    kill(getpid(), SIGKILL);
  }
  waitpid(agent, nullptr, 0);
  start();
  stop();
  std::string expected;
  for (int i = 0; i < 20; ++i) expected += "line\n";
  EXPECT_EQ(textOnce("one", expected), expected);
}

TEST_F(StateWriterTest, HungWriterDelaysNothingAndLossesAreCounted) {
  start();
  pid_t child = worker();
  kill(child, SIGSTOP);
  auto begin = std::chrono::steady_clock::now();
  int taken = 0;
  for (int i = 0; i < 5000; ++i) taken += writer->append(0, "line\n") ? 1 : 0;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_GT(taken, 50);
  EXPECT_LT(taken, 5000) << "what waits is bounded";
  EXPECT_EQ(writer->counts().lost, 5000u - static_cast<unsigned>(taken));
  EXPECT_FALSE(writer->replace(0, "text"));
  begin = std::chrono::steady_clock::now();
  stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1))
      << "the end waits for it shortly";
  kill(child, SIGCONT);
  start();
  stop();
  std::string expected;
  for (int i = 0; i < taken; ++i) expected += "line\n";
  EXPECT_EQ(textOnce("one", expected), expected);
}

TEST_F(StateWriterTest, FullDiskIsReportedAndLeavesNoPartOfAText) {
  rlimit former{};
  getrlimit(RLIMIT_FSIZE, &former);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit small{.rlim_cur = 10, .rlim_max = former.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  start();
  setrlimit(RLIMIT_FSIZE, &former);
  writer->append(0, "12345678\n");
  writer->append(0, "87654321\n");
  StateReport failed = report();
  EXPECT_EQ(failed.kind, Kind::failed);
  EXPECT_EQ(failed.error, EFBIG);
  EXPECT_EQ(writer->counts().failures, 1u);
  EXPECT_EQ(textOnce("one", "12345678\n"), "12345678\n");
  writer->replace(0, "a text that is too long\n");
  EXPECT_EQ(report().kind, Kind::failed);
  EXPECT_EQ(textOnce("one", "12345678\n"), "12345678\n") << "the former text stays";
  writer->replace(0, "short\n");
  EXPECT_EQ(report().kind, Kind::replaced);
  std::signal(SIGXFSZ, SIG_DFL);
}

TEST_F(StateWriterTest, ProcessThatWritesIsRestartedAndCountedIfItDies) {
  expectNothingMissedIf([this] { kill(worker(), SIGKILL); });
}

TEST_F(StateWriterTest, WriterWhoseProcessesBothDieIsStartedAndMissesNothing) {
  expectNothingMissedIf([this] { killBoth(); });
}

TEST_F(StateWriterTest, WriterThatDiesAgainAndAgainIsStartedLaterEachTime) {
  using Seconds = std::chrono::duration<double>;
  start();
  for (double delay : {0.5, 1.0, 2.0}) {
    auto begin = std::chrono::steady_clock::now();
    killBoth();
    EXPECT_EQ(report().kind, Kind::restarted);
    EXPECT_GE(Seconds(std::chrono::steady_clock::now() - begin).count(), delay);
  }
  EXPECT_EQ(writer->counts().restarts, 3u);
}

TEST_F(StateWriterTest, WhatAnAgentHandedOverAfterItsWriterDiedIsWrittenAfterItsEnd) {
  start();
  killBoth();
  writer->append(0, "last\n");
  stop();
  EXPECT_EQ(textOnce("one", "last\n"), "last\n");
}

TEST_F(StateWriterTest, ProcessThatWritesOutlivesTheHolderOfTheLockAndIsReplacedOnce) {
  start();
  pid_t child = worker();
  kill(holder(), SIGKILL);
  writer->append(0, "orphan\n");
  EXPECT_EQ(textOnce("one", "orphan\n"), "orphan\n");
  EXPECT_EQ(writer->counts().restarts, 0u);
  kill(child, SIGKILL);
  EXPECT_EQ(report().kind, Kind::restarted);
  writer->append(0, "next\n");
  stop();
  EXPECT_EQ(textOnce("one", "orphan\nnext\n"), "orphan\nnext\n");
}

TEST_F(StateWriterTest, WriterThatHasGoneIsReportedOnceAndCounted) {
  start();
  pid_t const all[] = {writer->process(), holder(), worker()};
  for (pid_t one : all) kill(one, SIGKILL);
  StateReport gone = report();
  EXPECT_EQ(gone.kind, Kind::unusable);
  EXPECT_LT(writer->fd(), 0);
  EXPECT_FALSE(writer->takeReport());
  EXPECT_FALSE(writer->append(0, "line\n"));
  EXPECT_FALSE(writer->replace(0, "text"));
  EXPECT_EQ(writer->counts().lost, 2u);
}

TEST_F(StateWriterTest, DirectoryOfAnotherWriterIsRejected) {
  start();
  try {
    StateWriter other(options());
    FAIL() << "both write";
  } catch (std::system_error const& error) {
    EXPECT_THAT(error.what(), HasSubstr("another agent uses it"));
  }
}

TEST_F(StateWriterTest, DirectoryThatCannotBeMadeIsRejected) {
  folder.write("state", "a file");
  EXPECT_THROW(start(), std::system_error);
}

TEST_F(StateWriterTest, SignalsThatEndAnAgentLeaveTheWriter) {
  start();
  for (int number : {SIGHUP, SIGINT, SIGTERM}) {
    for (pid_t one : {writer->process(), holder(), worker()}) kill(one, number);
  }
  writer->append(0, "after\n");
  stop();
  EXPECT_EQ(textOnce("one", "after\n"), "after\n");
}

TEST_F(StateWriterTest, WriterHasNoPrivilegesAndItsAgentNeedsNone) {
  NEEDS_ROOT();
  std::string seen = inChild([this] {
    StateWriterOptions sealed = options();
    sealed.sandbox = true;
    writer = std::make_unique<StateWriter>(sealed);
    std::string pid = std::to_string(worker());
    pimbsr::agent::dropPrivileges();
    pimbsr::agent::enterSandbox();
    writer->append(0, "line\n");
    writer->replace(1, "text");
    std::string found = report().kind == Kind::replaced ? "" : "not replaced\n";
    std::ifstream in("/proc/" + pid + "/status");
    for (std::string line; std::getline(in, line);) {
      if (line.starts_with("CapPrm") || line.starts_with("Seccomp:")) found += line + "\n";
    }
    stop();
    return found;
  });
  EXPECT_EQ(seen, "CapPrm:\t0000000000000000\nSeccomp:\t2\n");
  EXPECT_EQ(textOnce("one", "line\n"), "line\n");
  EXPECT_EQ(textOnce("two", "text"), "text");
}

}  // namespace
}  // namespace test
