#include "agent/helpers/ChangeCommand.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "agent/process/Privileges.h"
#include "agent/process/Sandbox.h"
#include "tests/agent/InChild.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

using pimbsr::agent::ChangeCommand;
using pimbsr::agent::ChangeOptions;
using testing::HasSubstr;

/// A folder in which commands leave what they got.
class ChangeCommandTest : public testing::Test {
 protected:
  void start(std::string const& script, double timeLimit = 20) {
    command = std::make_unique<ChangeCommand>(
        ChangeOptions{.command = "cd " + folder.path() + "; " + script, .timeLimit = timeLimit});
  }
  std::string text(std::string const& name) const {
    std::ifstream in(folder.file(name));
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// Waits for the helper to say something, and gives what that means.
  std::string report() {
    pollfd waiting{command->fd(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 20000), 1) << "no report";
    return command->handleReport();
  }
  /// Whether the process with an id has ended.
  static bool isOver(std::string const& pid) {
    std::string state;
    std::getline(std::ifstream("/proc/" + std::to_string(std::stoi(pid)) + "/stat"), state);
    return state.empty() || state.find(" Z ") != state.npos;
  }
  /// How the helper ended, once its agent has let go of it.
  int helperStatus() {
    pid_t helper = command->helper();
    command = nullptr;
    int status = -1;
    EXPECT_EQ(waitpid(helper, &status, 0), helper);
    return status;
  }

  ScratchFolder folder;
  std::unique_ptr<ChangeCommand> command;
};

TEST_F(ChangeCommandTest, CommandGetsTheTextOnItsStandardInput) {
  start("cat > got");
  EXPECT_EQ(command->notify("{\"zones\":[]}"), "");
  EXPECT_TRUE(command->isBusy());
  EXPECT_EQ(report(), "");
  EXPECT_FALSE(command->isBusy());
  EXPECT_EQ(text("got"), "{\"zones\":[]}");
}

TEST_F(ChangeCommandTest, CommandReadsLongAndEmptyTextsWhole) {
  start("cat > got");
  std::string longText(std::size_t{8} << 20, 'x');
  longText += "end";
  for (std::string const& next : {longText, std::string(), std::string("short")}) {
    command->notify(next);
    EXPECT_EQ(report(), "");
    EXPECT_EQ(text("got"), next);
  }
}

TEST_F(ChangeCommandTest, CommandThatReadsNoInputSucceeds) {
  start("true");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(command->notify(std::string(1 << 20, 'x')), "");
    EXPECT_EQ(report(), "");
  }
}

TEST_F(ChangeCommandTest, OnlyTheNewestTextWaitsDuringARun) {
  start("cat >> got; echo >> got; while [ ! -e go ]; do sleep 0.01; done");
  for (char const* next : {"first", "second", "third", "fourth"}) command->notify(next);
  EXPECT_TRUE(command->isBusy());
  folder.write("go", "");
  EXPECT_EQ(report(), "");
  EXPECT_TRUE(command->isBusy());
  EXPECT_EQ(report(), "");
  EXPECT_FALSE(command->isBusy());
  EXPECT_EQ(text("got"), "first\nfourth\n");
}

TEST_F(ChangeCommandTest, RunsNeverOverlap) {
  start("mkdir running || echo overlap >> overlaps; sleep 0.02; rmdir running; echo run >> runs");
  int reports = 0;
  for (int i = 0; i < 60 || command->isBusy(); ++i) {
    if (i < 60) command->notify(std::to_string(i));
    pollfd waiting{command->fd(), POLLIN, 0};
    if (poll(&waiting, 1, 3) == 1 && command->handleReport().empty()) ++reports;
  }
  EXPECT_EQ(text("overlaps"), "");
  std::string runs = text("runs");
  EXPECT_EQ(std::count(runs.begin(), runs.end(), '\n'), reports);
  EXPECT_GT(reports, 1);
}

TEST_F(ChangeCommandTest, FailureIsReportedAndTheNextRunIsStarted) {
  start("read word; exit $word");
  command->notify("3\n");
  EXPECT_THAT(report(), HasSubstr("ended with status 3"));
  command->notify("0\n");
  EXPECT_EQ(report(), "");
}

TEST_F(ChangeCommandTest, TerminationBySignalIsReported) {
  start("kill -9 $$");
  command->notify("");
  EXPECT_THAT(report(), HasSubstr("was terminated by signal 9 (Killed)"));
}

TEST_F(ChangeCommandTest, UnknownCommandIsReported) {
  start("/nonexistent/command 2> /dev/null");
  command->notify("");
  EXPECT_THAT(report(), HasSubstr("ended with status 127"));
}

TEST_F(ChangeCommandTest, HelperInheritsNoOtherFile) {
  int kept = open("/dev/null", O_RDONLY);
  int high = fcntl(kept, F_DUPFD, 200);
  start(
      "echo $(ls /proc/$PPID/fd) > helper; echo $(ls /proc/$$/fd) > shell; "
      "readlink /proc/$PPID/fd/0 > input");
  command->notify("");
  EXPECT_EQ(report(), "");
  EXPECT_THAT(text("helper"), testing::StartsWith("0 1 2 3"));
  EXPECT_THAT(text("helper"), testing::Not(HasSubstr("200")));
  EXPECT_THAT(text("shell"), testing::Not(HasSubstr("200")));
  EXPECT_EQ(text("input"), "/dev/null\n");
  close(high);
  close(kept);
}

TEST_F(ChangeCommandTest, SignalsForTheAgentLeaveTheHelperAndCommandsHaveTheirDefaults) {
  std::signal(SIGPIPE, SIG_IGN);
  start("grep SigIgn /proc/self/status > ignored; grep SigBlk /proc/self/status > blocked; cat > got");
  for (int number : {SIGHUP, SIGINT, SIGTERM}) {
    command->notify("warm-up");
    EXPECT_EQ(report(), "");
    kill(command->helper(), number);
  }
  command->notify("after");
  EXPECT_EQ(report(), "");
  EXPECT_EQ(text("got"), "after");
  EXPECT_EQ(text("ignored"), "SigIgn:\t0000000000000000\n");
  EXPECT_EQ(text("blocked"), "SigBlk:\t0000000000000000\n");
  std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(ChangeCommandTest, HelperEndsWithItsAgent) {
  start("true");
  EXPECT_EQ(helperStatus(), 0);
  start("sleep 0.2; echo done > got");
  command->notify("");
  command->finish();
  EXPECT_EQ(helperStatus(), 0);
  EXPECT_EQ(text("got"), "done\n");
}

/// As an agent that was killed: the next one may begin a run of its own.
TEST_F(ChangeCommandTest, RunOfAnAgentThatHasGoneIsEndedAndTheTextsThatWaitAreDropped) {
  start("echo $$ >> got; sleep 300");
  command->notify("first");
  command->notify("second");
  while (text("got").empty()) usleep(1000);
  EXPECT_EQ(helperStatus(), 0);
  EXPECT_TRUE(isOver(text("got")));
}

TEST_F(ChangeCommandTest, ProcessThatLeftTheSessionIsEndedWithItsRun) {
  start("setsid sh -c 'echo $$ > got; exec sleep 300' & wait; sleep 300", 0.5);
  command->notify("");
  EXPECT_THAT(report(), HasSubstr("took longer"));
  EXPECT_TRUE(isOver(text("got")));
}

TEST_F(ChangeCommandTest, ProcessThatARunHasLeftStaysWhenALaterRunIsEnded) {
  start("[ -e got ] && sleep 300; setsid sh -c 'echo $$ > got; exec sleep 300' > /dev/null & sleep 0.2", 0.5);
  command->notify("");
  EXPECT_EQ(report(), "");
  command->notify("");
  EXPECT_THAT(report(), HasSubstr("took longer"));
  EXPECT_FALSE(isOver(text("got")));
  kill(std::stoi(text("got")), SIGKILL);
}

TEST_F(ChangeCommandTest, AnotherGoesOnForARunnerThatHasDied) {
  start("echo $$ > got; read word; [ $word = end ] || sleep 300");
  command->notify("hang\n");
  while (text("got").empty()) usleep(1000);
  std::string const pid = std::to_string(command->helper());
  pid_t runner = 0;
  std::ifstream("/proc/" + pid + "/task/" + pid + "/children") >> runner;
  ASSERT_GT(runner, 0);
  kill(runner, SIGKILL);
  EXPECT_THAT(report(), HasSubstr("has died during a run; another goes on"));
  EXPECT_TRUE(isOver(text("got")));
  EXPECT_FALSE(command->isBusy());
  EXPECT_EQ(command->counts().restarts, 1u);
  command->notify("end\n");
  EXPECT_EQ(report(), "");
  EXPECT_EQ(command->counts().succeeded, 1u);
}

TEST_F(ChangeCommandTest, RunThatHangsIsEndedWithAllItsProcessesAndTheNextOneIsDone) {
  start("read word; [ $word = hang ] || { echo $word > got; exit 0; }; trap '' TERM; sleep 300 & sleep 300",
        1);
  command->notify("hang\n");
  command->notify("next\n");
  EXPECT_THAT(report(), HasSubstr("was terminated since it took longer than 1 s"));
  EXPECT_TRUE(command->lastRun()->end.timedOut);
  EXPECT_GE(command->lastRun()->end.duration, 1);
  EXPECT_EQ(report(), "");
  EXPECT_EQ(text("got"), "next\n");
  EXPECT_FALSE(command->lastRun()->end.timedOut);
  EXPECT_EQ(command->counts().timedOut, 1u);
  EXPECT_EQ(command->counts().succeeded, 1u);
}

TEST_F(ChangeCommandTest, HangingRunMayCleanUpBeforeItEnds) {
  start("trap 'echo ended > got; exit 0' TERM; sleep 300 & wait", 0.2);
  command->notify("");
  EXPECT_THAT(report(), HasSubstr("took longer"));
  EXPECT_EQ(text("got"), "ended\n");
}

TEST_F(ChangeCommandTest, ProcessesOfAnEndedRunDoNotStay) {
  start("sleep 300 & echo $! > got; wait", 0.2);
  command->notify("");
  report();
  EXPECT_TRUE(isOver(text("got")));
}

TEST_F(ChangeCommandTest, EachEndIsCounted) {
  start("read word; exit $word");
  for (char const* word : {"0\n", "3\n", "0\n"}) {
    command->notify(word);
    report();
  }
  EXPECT_EQ(command->counts().succeeded, 2u);
  EXPECT_EQ(command->counts().failed, 1u);
}

TEST_F(ChangeCommandTest, TextThatWaitsAtTheEndIsRun) {
  start("cat >> got; echo >> got; sleep 0.1");
  for (char const* word : {"first", "second", "third"}) command->notify(word);
  EXPECT_EQ(command->finish(), "");
  EXPECT_FALSE(command->isBusy());
  EXPECT_EQ(text("got"), "first\nthird\n");
  EXPECT_EQ(command->counts().succeeded, 2u);
}

/// A run that ignores SIGTERM takes its limit and the grace, and the one that waits is made after it.
TEST_F(ChangeCommandTest, EndTakesNoLongerThanTheRunsThatAreLeftMayTake) {
  start("read word; [ $word = hang ] || { echo $word > got; exit 0; }; trap '' TERM; sleep 300 & sleep 300",
        0.5);
  EXPECT_EQ(command->maxFinishTime(), 0);
  command->notify("hang\n");
  EXPECT_EQ(command->maxFinishTime(), 3.5);
  command->notify("next\n");
  EXPECT_EQ(command->maxFinishTime(), 7);
  auto begin = ChangeCommand::Clock::now();
  command->finish();
  std::chrono::duration<double> const taken = ChangeCommand::Clock::now() - begin;
  EXPECT_GE(taken.count(), 2.5);
  EXPECT_LT(taken.count(), 7);
  EXPECT_EQ(text("got"), "next\n");
  EXPECT_EQ(command->maxFinishTime(), 0);
}

TEST_F(ChangeCommandTest, EndOfTheHelperIsReportedOnceAndLaterTextsHaveNoEffect) {
  start("true");
  kill(command->helper(), SIGKILL);
  EXPECT_THAT(report(), HasSubstr("has ended"));
  EXPECT_LT(command->fd(), 0);
  EXPECT_EQ(command->notify("text"), "");
  EXPECT_EQ(command->handleReport(), "");
  EXPECT_FALSE(command->isBusy());
}

TEST_F(ChangeCommandTest, HelperKeepsThePrivilegesFromBeforeTheDrop) {
  NEEDS_ROOT();
  std::string found = inChild([this] {
    start("grep CapEff /proc/self/status | cut -f2 > got; grep NoNewPrivs /proc/self/status >> got");
    pimbsr::agent::dropPrivileges();
    pimbsr::agent::enterSandbox();
    std::string error = command->notify(std::string(1 << 20, 'x'));
    pollfd waiting{command->fd(), POLLIN, 0};
    poll(&waiting, 1, 20000);
    return error + command->handleReport();
  });
  EXPECT_EQ(found, "");
  EXPECT_THAT(text("got"), HasSubstr("NoNewPrivs:\t0"));
  EXPECT_THAT(text("got"), testing::Not(testing::StartsWith("0000000000002000")));
}

}  // namespace
}  // namespace test
