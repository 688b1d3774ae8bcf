#include "agent/control/ControlClient.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/control/ControlProtocol.h"
#include "agent/control/ControlSocket.h"
#include "tests/agent/InChild.h"
#include "tests/support/FakeAgent.h"

namespace pimbsr::agent {
namespace {

using Json = nlohmann::ordered_json;
using test::FakeAgent;
using test::ScratchFolder;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

Json const version{{"command", "version"}};

/// Why an agent can't be asked.
std::string errorOf(std::string const& path, double patience = clientPatience) {
  try {
    ask(path, version, patience);
  } catch (ClientError const& error) {
    return error.what();
  }
  return "no error";
}

TEST(ControlClientTest, ARequestIsOneLineAndItsAnswerTheResult) {
  FakeAgent agent(answerLine({{"version", "1.2"}}));
  EXPECT_EQ(ask(agent.path(), version), Json({{"version", "1.2"}}));
  EXPECT_THAT(agent.requests(), ElementsAre(R"({"command":"version"})"));
}

TEST(ControlClientTest, AnAnswerMayBeLarge) {
  std::string text(5'000'000, 'x');
  FakeAgent agent(answerLine({{"text", text}}));
  EXPECT_EQ(ask(agent.path(), version)["text"], text);
}

TEST(ControlClientTest, TheErrorOfTheAgentIsThrown) {
  FakeAgent agent(errorLine("there is no group for that"));
  try {
    ask(agent.path(), version);
    FAIL() << "it has an error";
  } catch (RequestError const& error) {
    EXPECT_STREQ(error.what(), "there is no group for that");
  }
}

TEST(ControlClientTest, InvalidAnswerIsAnError) {
  for (char const* answer : {"SSH-2.0-server\r\n", "{}\n", "[]\n", "{\"ok\":true}\n", "{\"ok\":false}\n",
                             "{\"ok\":false,\"error\":1}\n", "\xff\n"}) {
    FakeAgent agent{std::string(answer)};
    EXPECT_THAT(errorOf(agent.path()), HasSubstr("is no pimbsr")) << answer;
  }
}

TEST(ControlClientTest, ConnectionWithoutAnAnswerIsAnError) {
  for (char const* answer : {"", "{\"ok\":true,\"resu"}) {
    FakeAgent agent{std::string(answer)};
    EXPECT_THAT(errorOf(agent.path()), HasSubstr("without an answer"));
  }
}

TEST(ControlClientTest, AnAgentThatIsSilentIsNotWaitedForLong) {
  ScratchFolder folder;
  ControlSocket unserved(folder.file("control.sock"));
  EXPECT_THAT(errorOf(unserved.path(), 0.03), HasSubstr("has not answered for 0.03 seconds"));
}

TEST(ControlClientTest, WaitForAFullBacklogIsBounded) {
  ScratchFolder folder;
  ControlSocket unserved(folder.file("control.sock"));
  ASSERT_EQ(listen(unserved.fd(), 0), 0);
  FileDescriptor first = connectTo(unserved.path(), 0);
  EXPECT_THAT(errorOf(unserved.path(), 0.03), HasSubstr("took no client for 0.03 seconds"));
}

TEST(ControlClientTest, AnAgentThatIsNotThereIsExplained) {
  ScratchFolder folder;
  std::string path = folder.file("control.sock");
  EXPECT_THAT(errorOf(path), AllOf(HasSubstr("there is no " + path + ": is pimbsr running?"),
                                   HasSubstr("--socket or PIMBSR_SOCKET")));
  EXPECT_THAT(errorOf(path + "/below"), HasSubstr("there is no"));
  std::ofstream(path) << "no socket";
  EXPECT_THAT(errorOf(path), HasSubstr("no pimbsr listens at"));
  EXPECT_THAT(errorOf(std::string(200, 'x')), HasSubstr("name too long"));
}

/// A user without rights.
constexpr uid_t powerless = 65534;

std::string nameOfPowerless() {
  passwd const* user = getpwuid(powerless);
  return user == nullptr ? "" : user->pw_name;
}

/// The error of that user.
std::string errorWithoutRights(std::string const& path) {
  return test::inChild([&]() -> std::string {
    if (setgroups(0, nullptr) != 0 || setgid(powerless) != 0 || setuid(powerless) != 0)
      return "the user can't be set";
    return errorOf(path);
  });
}

TEST(ControlClientTest, ErrorOfADeniedUserNamesThePermittedOnes) {
  NEEDS_ROOT();
  ScratchFolder folder;
  ControlSocket socket(folder.file("control.sock"));
  EXPECT_THAT(errorWithoutRights(socket.path()),
              HasSubstr(nameOfPowerless() + " may not look for " + socket.path()));
  ASSERT_EQ(chmod(folder.file(".").c_str(), 0755), 0);
  EXPECT_THAT(errorWithoutRights(socket.path()),
              AllOf(HasSubstr("root and the members of group root may use " + socket.path()),
                    HasSubstr(nameOfPowerless() + " is not among them")));
}

TEST(ControlClientTest, TheNextSocketIsTriedOnlyWithoutPermissionForTheFirst) {
  std::vector<std::string> tried;
  std::vector<std::string> const paths = {"a", "b"};
  tryInTurn(paths, [&](std::string const& path) {
    tried.push_back(path);
    if (path == "a") throw DeniedError("a is denied");
  });
  EXPECT_THAT(tried, ElementsAre("a", "b"));
  tried.clear();
  auto absent = [&](std::string const& path) {
    tried.push_back(path);
    throw ClientError("absent");
  };
  EXPECT_THROW(tryInTurn(paths, absent), ClientError);
  EXPECT_THAT(tried, ElementsAre("a"));
}

TEST(ControlClientTest, WithoutPermissionForAnySocketAllReasonsAreGiven) {
  std::vector<std::string> const paths = {"a", "b"};
  try {
    tryInTurn(paths, [](std::string const& path) { throw DeniedError(path + " is denied"); });
    FAIL() << "one was opened";
  } catch (DeniedError const& error) {
    EXPECT_STREQ(error.what(), "a is denied; b is denied");
  }
}

// Watching --------------------------------------------------------------------------------------------

std::vector<std::string> watchAll(std::string const& path, std::size_t enough, std::string& end) {
  std::vector<std::string> lines;
  auto take = [&](std::string_view line) {
    lines.emplace_back(line);
    return lines.size() < enough;
  };
  try {
    watch(path, take);
    end = "enough";
  } catch (ClientError const& error) {
    end = error.what();
  }
  return lines;
}

TEST(ControlClientTest, AWatchHandsOnEachLineUntilItHasEnough) {
  FakeAgent agent(answerLine(Json::object()) + "{\"a\":1}\n{\"b\":2}\n{\"c\":3}\n");
  std::string end;
  EXPECT_THAT(watchAll(agent.path(), 2, end), ElementsAre("{\"a\":1}", "{\"b\":2}"));
  EXPECT_EQ(end, "enough");
  EXPECT_THAT(agent.requests(), ElementsAre(R"({"command":"watch"})"));
}

TEST(ControlClientTest, EndOfAWatchIsAnErrorAndDropsAnIncompleteLine) {
  FakeAgent agent(answerLine(Json::object()) + "{\"a\":1}\n{\"b\"");
  std::string end;
  EXPECT_THAT(watchAll(agent.path(), 9, end), ElementsAre("{\"a\":1}"));
  EXPECT_THAT(end, AllOf(HasSubstr("has ended"), HasSubstr("not read fast enough")));
}

TEST(ControlClientTest, RejectedWatchThrowsTheErrorOfTheAgent) {
  FakeAgent agent(errorLine("no watchers today"));
  EXPECT_THROW(watch(agent.path(), [](std::string_view) { return true; }), RequestError);
}

}  // namespace
}  // namespace pimbsr::agent
