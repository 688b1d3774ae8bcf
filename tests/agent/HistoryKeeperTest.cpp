#include "agent/HistoryKeeper.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "tests/agent/RecordingLog.h"
#include "tests/support/Messages.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::HistoryEntry;
using agent::HistoryKind;
using testing::ElementsAre;
using testing::HasSubstr;

/// A history that is kept in a folder, by one run of an agent after the other.
class HistoryKeeperTest : public testing::Test {
 protected:
  struct Run {
    explicit Run(std::string const& folder)
        : writer({.folder = folder, .files = {agent::HistoryKeeper::fileName}, .sandbox = false}),
          keeper(loop, clock, history, &writer, "") {
      keeper.load();
    }

    agent::Loop loop;
    agent::Clock clock;
    agent::History history;
    agent::StateWriter writer;
    agent::HistoryKeeper keeper;
  };

  static pid_t childOf(pid_t process) {
    pid_t child = 0;
    std::string pid = std::to_string(process);
    std::ifstream("/proc/" + pid + "/task/" + pid + "/children") >> child;
    EXPECT_GT(child, 0);
    return child;
  }
  /// The process that holds the lock is the child of the one that starts it, and the one that writes is its.
  static pid_t writingProcess(Run const& run) { return childOf(childOf(run.writer.process())); }
  void start() { run = std::make_unique<Run>(folder.path()); }
  /// Ends a run without an end in order.
  void end() { run = nullptr; }
  void elect(std::string const& bsr) {
    HistoryEntry entry{
        .time = run->clock.now(), .kind = HistoryKind::bsrElected, .zone = prefix("224.0.0.0/4")};
    entry.bsr = {addr(bsr), 10, 30};
    run->history.store().add(entry);
    run->keeper.save();
  }
  std::vector<HistoryKind> kinds() const {
    std::vector<HistoryKind> all;
    for (HistoryEntry const& entry : run->history.entries()) all.push_back(entry.kind);
    return all;
  }
  std::string text(std::string const& name = agent::HistoryKeeper::fileName) const {
    std::ifstream in(folder.file(name));
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// Serves the loop until something holds, for some seconds.
  void serveUntil(std::function<bool()> const& holds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    agent::LoopTimer tick(run->loop, [&] {
      if (holds() || std::chrono::steady_clock::now() > end) return run->loop.stop();
      tick.startIn(0.01);
    });
    tick.startIn(0);
    run->loop.run();
    EXPECT_TRUE(holds());
  }

  ScratchFolder folder;
  std::unique_ptr<Run> run;
};

TEST_F(HistoryKeeperTest, EntriesOutliveARunThatEndsAtOnce) {
  start();
  elect("10.0.0.1");
  end();
  start();
  EXPECT_THAT(kinds(),
              ElementsAre(HistoryKind::agentStarted, HistoryKind::bsrElected, HistoryKind::agentStarted));
  EXPECT_EQ(run->history.entries().back().orderly, false);
  run->keeper.stop();
  end();
  start();
  EXPECT_EQ(run->history.entries().back().kind, HistoryKind::agentStarted);
  EXPECT_EQ(run->history.entries().back().orderly, true);
}

TEST_F(HistoryKeeperTest, RepetitionsAreOneEntryInTheFileToo) {
  start();
  for (int i = 0; i < 100; ++i) elect("10.0.0.1");
  end();
  start();
  ASSERT_EQ(kinds().at(1), HistoryKind::bsrElected);
  EXPECT_EQ(std::next(run->history.entries().begin())->count, 100u);
}

TEST_F(HistoryKeeperTest, DamageIsMovedAsideAndTheRestIsTaken) {
  start();
  elect("10.0.0.1");
  end();
  folder.write(agent::HistoryKeeper::fileName, text() + "{\"time\":\n");
  start();
  EXPECT_THAT(kinds(), testing::Contains(HistoryKind::bsrElected));
  EXPECT_THAT(text(std::string(agent::HistoryKeeper::fileName) + ".damaged"),
              testing::EndsWith("{\"time\":\n"));
  end();
  EXPECT_THAT(text(), testing::Not(HasSubstr("{\"time\":\n")));
}

TEST_F(HistoryKeeperTest, FormerDamageIsKept) {
  for (std::string const damage : {"first\n", "second\n", "third\n"}) {
    folder.write(agent::HistoryKeeper::fileName, damage);
    start();
    end();
  }
  EXPECT_EQ(text("history.jsonl.damaged"), "first\n");
  EXPECT_EQ(text("history.jsonl.damaged.2"), "second\n");
  EXPECT_EQ(text("history.jsonl.damaged.3"), "third\n");
}

TEST_F(HistoryKeeperTest, PipeInPlaceOfTheFileIsNamed) {
  RecordingLog log;
  ASSERT_EQ(mkfifo(folder.file(agent::HistoryKeeper::fileName).c_str(), 0600), 0);
  start();
  ASSERT_FALSE(log.records.empty());
  EXPECT_THAT(log.records[0].text, HasSubstr("history.jsonl: it is no regular file; it is now "));
}

TEST_F(HistoryKeeperTest, FileThatIsNoneIsMovedAside) {
  std::filesystem::create_directory(folder.file(agent::HistoryKeeper::fileName));
  start();
  serveUntil([&] { return !text().empty(); });
  EXPECT_TRUE(std::filesystem::is_directory(folder.file("history.jsonl.damaged")));
}

TEST_F(HistoryKeeperTest, HungWriterDelaysNothingAndTheSnapshotFollows) {
  start();
  serveUntil([&] { return !text().empty(); });
  pid_t child = writingProcess(*run);
  kill(child, SIGSTOP);
  auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 2000; ++i) elect("10.0.0." + std::to_string(i % 200));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  EXPECT_THAT(run->keeper.state().error, HasSubstr("too slow"));
  EXPECT_GT(run->keeper.state().unsaved, 100u);
  kill(child, SIGCONT);
  serveUntil([&] { return run->keeper.state().error.empty(); });
  std::size_t entries = run->history.entries().size();
  end();
  start();
  EXPECT_EQ(run->history.entries().size(), entries + 1);
}

TEST_F(HistoryKeeperTest, HistoryIsCompleteAgainAfterBothProcessesOfTheWriterDied) {
  start();
  serveUntil([&] { return !text().empty(); });
  RecordingLog log;
  pid_t const both[] = {childOf(run->writer.process()), writingProcess(*run)};
  for (pid_t one : both) kill(one, SIGKILL);
  elect("10.0.0.1");
  serveUntil([&] { return run->keeper.state().writerRestarts == 1; });
  EXPECT_EQ(run->keeper.state().error, "the process that writes it has died; another goes on");
  elect("10.0.0.2");
  serveUntil([&] { return run->keeper.state().error.empty(); });
  EXPECT_EQ(log.records.size(), 2u) << "one line for the death, one for the end of it";
  end();
  start();
  EXPECT_THAT(kinds(), ElementsAre(HistoryKind::agentStarted, HistoryKind::bsrElected,
                                   HistoryKind::bsrElected, HistoryKind::agentStarted));
}

TEST_F(HistoryKeeperTest, DiskThatDoesNotAnswerIsShownAfterSomeSeconds) {
  start();
  serveUntil([&] { return !text().empty() && run->keeper.state().error.empty(); });
  pid_t child = writingProcess(*run);
  kill(child, SIGSTOP);
  elect("10.0.0.1");
  EXPECT_EQ(run->keeper.state().error, "");
  serveUntil([&] { return !run->keeper.state().error.empty(); });
  EXPECT_EQ(run->keeper.state().error, "the disk has not answered for 3 s");
  EXPECT_GE(run->keeper.state().unsaved, 1u);
  kill(child, SIGCONT);
  serveUntil([&] { return run->keeper.state().error.empty(); });
  EXPECT_GE(run->keeper.state().unsaved, 1u) << "it is a count";
}

TEST_F(HistoryKeeperTest, DiskThatAnswersIsNoErrorHoweverLongNothingIsSaved) {
  start();
  elect("10.0.0.1");
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
  serveUntil([&] { return std::chrono::steady_clock::now() > end; });
  EXPECT_EQ(run->keeper.state().error, "");
  EXPECT_EQ(run->keeper.state().unsaved, 0u);
}

/// Its disk hangs while the next agent starts.
TEST_F(HistoryKeeperTest, WriterOfAKilledAgentIsWaitedForAndItsEntriesAreKept) {
  start();
  serveUntil([&] { return !text().empty(); });
  pid_t child = writingProcess(*run);
  kill(child, SIGSTOP);
  elect("10.0.0.1");
  pid_t dead = fork();
  if (dead == 0) _exit(0);
  waitpid(dead, nullptr, 0);
  folder.write("state.lock", std::to_string(dead) + "\n");
  std::unique_ptr<Run> former = std::move(run);
  start();
  EXPECT_EQ(run->keeper.state().error, "the writer of an earlier run has not ended");
  elect("10.0.0.2");
  former = nullptr;
  kill(child, SIGCONT);
  serveUntil([&] { return run->keeper.state().error.empty(); });
  EXPECT_THAT(kinds(), ElementsAre(HistoryKind::agentStarted, HistoryKind::bsrElected,
                                   HistoryKind::agentStarted, HistoryKind::bsrElected));
  EXPECT_THAT(text(), HasSubstr("10.0.0.2"));
}

TEST_F(HistoryKeeperTest, ClearedHistoryIsEmptyInTheFile) {
  start();
  elect("10.0.0.1");
  run->history.clear();
  run->keeper.saveAll();
  serveUntil([&] { return text().empty(); });
}

TEST_F(HistoryKeeperTest, WithoutAWriterTheReasonIsShown) {
  agent::Loop loop;
  agent::Clock clock;
  agent::History history;
  agent::HistoryKeeper keeper(loop, clock, history, nullptr, "no disk");
  keeper.load();
  keeper.save();
  keeper.saveAll();
  EXPECT_EQ(keeper.state().error, "no disk");
  EXPECT_EQ(keeper.state().path, std::nullopt);
}

}  // namespace
}  // namespace test
