#include "agent/base/Log.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "agent/base/JournalSocket.h"
#include "tests/agent/InChild.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
namespace logEvents = pimbsr::agent::logEvents;
using agent::LogRecord;
using testing::HasSubstr;

std::string textOf(std::string const& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

LogRecord const elected{.event = logEvents::bsrElected,
                        .subject = {{"ZONE", "224.0.0.0/4"}},
                        .text = "zone 224.0.0.0/4: BSR elected"};

/// Logs in a process whose standard error stream is a file, and gives what is in it then.
class LogTest : public testing::Test {
 protected:
  std::string logged(std::function<void()> const& act) {
    std::string path = folder.file("log");
    inChild([&] {
      agent::endLog();  // of other tests
      int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
      dup2(file, STDERR_FILENO);
      act();
      return std::string();
    });
    return textOf(path);
  }
  /// Makes the standard error stream that of the journal.
  static void joinJournal() {
    struct stat status {};
    fstat(STDERR_FILENO, &status);
    setenv("JOURNAL_STREAM", fmt::format("{}:{}", status.st_dev, status.st_ino).c_str(), 1);
  }

  ScratchFolder folder;
};

TEST_F(LogTest, LineHasNoPriorityWhereTheStreamIsNotTheJournals) {
  EXPECT_EQ(logged([] { agent::log(elected); }), "pimbsr: zone 224.0.0.0/4: BSR elected\n");
  EXPECT_EQ(logged([] {
              setenv("JOURNAL_STREAM", "1:2", 1);  // inherited, but the stream was sent elsewhere
              agent::log(elected);
            }),
            "pimbsr: zone 224.0.0.0/4: BSR elected\n");
}

TEST_F(LogTest, LineHasItsPriorityWhereTheJournalReadsTheStream) {
  std::string text = logged([] {
    joinJournal();
    agent::log(elected);
    agent::logLine("a note");
    agent::logTrace("a trace");
  });
  bool isTaken = access(agent::JournalSocket::standardPath, W_OK) == 0;  // with its fields
  std::string lines = "<5>pimbsr: zone 224.0.0.0/4: BSR elected\n<6>pimbsr: a note\n<7>pimbsr: a trace\n";
  EXPECT_EQ(text, isTaken ? std::string() : lines);
}

TEST_F(LogTest, FloodIsSuppressedAndCounted) {
  std::string text = logged([] {
    for (int i = 0; i < 1000; ++i) agent::log(elected);
    EXPECT_TRUE(agent::logHoldsBack());
    agent::endLog();
  });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6);
  EXPECT_THAT(text, HasSubstr("994 lines before this one were suppressed"));
}

TEST_F(LogTest, TracesAreNotLimited) {
  std::string text = logged([] {
    for (int i = 0; i < 1000; ++i) agent::logTrace("trace");
  });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1000);
}

// The journal -----------------------------------------------------------------------------------------

TEST(JournalTest, DatagramHasAFieldForEachThing) {
  EXPECT_EQ(agent::journalDatagram(elected),
            "MESSAGE=zone 224.0.0.0/4: BSR elected\nPRIORITY=5\nMESSAGE_ID=a51ea1884a764f13bd7fd3e817790f43\n"
            "SYSLOG_IDENTIFIER=pimbsr\nPIMBSR_EVENT=bsr-elected\nPIMBSR_ZONE=224.0.0.0/4\n");
}

TEST(JournalTest, ValueWithALineEndCannotForgeAField) {
  LogRecord record{.event = logEvents::note, .subject = {}, .text = "one\nPRIORITY=0"};
  EXPECT_THAT(agent::journalDatagram(record),
              testing::StartsWith(std::string("MESSAGE\n\x0e\0\0\0\0\0\0\0one\nPRIORITY=0\n", 31)));
}

TEST(JournalTest, LineIsOneDatagramAndAJournalThatIsRestartedGetsTheNext) {
  ScratchFolder folder;
  std::string path = folder.file("socket");
  auto listen = [&] {
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
  };
  auto received = [](int fd) {
    char buffer[4096];
    ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    return std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  };
  agent::JournalSocket journal(path);
  EXPECT_FALSE(journal.send(elected)) << "there is none yet";
  int first = listen();
  EXPECT_TRUE(journal.send(elected));
  EXPECT_EQ(received(first), agent::journalDatagram(elected));
  EXPECT_EQ(received(first), "");
  close(first);
  int second = listen();
  EXPECT_TRUE(journal.send(elected));
  EXPECT_EQ(received(second), agent::journalDatagram(elected));
  while (journal.send(elected)) {
  }
  EXPECT_FALSE(journal.send(elected)) << "a journal that reads nothing is not waited for";
  close(second);
}

// Kinds -----------------------------------------------------------------------------------------------

TEST(LogEventsTest, EachKindHasAnIdOfItsOwnAndIsDescribed) {
  std::string const source = textOf(PIMBSR_SOURCE_DIR "/agent/base/LogEvents.h");
  std::string const page = textOf(PIMBSR_SOURCE_DIR "/docs/operations.md");
  std::regex const kind(
      "LogEvent \\w+\\{\"([a-z-]+)\",\\s*LogPriority::(\\w+),\\s*\"([0-9a-f]*)\"(,\\s*\"\\w+\")?\\}");
  std::set<std::string> names, ids;
  for (std::sregex_iterator at(source.begin(), source.end(), kind), end; at != end; ++at) {
    EXPECT_TRUE(names.insert((*at)[1]).second) << (*at)[1];
    if (!(*at)[3].str().empty()) {
      EXPECT_TRUE(ids.insert((*at)[3]).second) << (*at)[1];
      EXPECT_EQ((*at)[3].length(), 32) << (*at)[1];
    }
    std::string row = "| `" + (*at)[1].str() + "` | " + (*at)[2].str() + " |";
    EXPECT_NE(page.find(row), page.npos) << row;
  }
  EXPECT_GT(names.size(), 15u);
}

}  // namespace
}  // namespace test
