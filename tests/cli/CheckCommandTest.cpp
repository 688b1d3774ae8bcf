#include "cli/run/CheckCommand.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/cli/CliSupport.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

using testing::HasSubstr;

/// A configuration file that is removed with this object.
class ConfigurationFile {
 public:
  explicit ConfigurationFile(std::string const& text) : path_(folder_.write("pimbsr.toml", text)) {}

  std::string const& path() const { return path_; }

 private:
  ScratchFolder folder_;
  std::string path_;
};

RunResult check(std::string const& file, bool json = false) {
  std::ostringstream out;
  std::ostringstream err;
  int code = pimbsr::cli::checkConfig(file, json, out, err);
  return {.code = code, .out = out.str(), .err = err.str()};
}

std::string const wrong = "[interface.eth0]\n[limits]\nrps = 0\nlearned-zones = -5\n[colour]\n";

TEST(CheckCommandTest, ExampleHasNoErrors) {
  std::string file = sourceFile("examples/pimbsr.toml");
  RunResult run = check(file);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, file + ": configuration OK\n");
  EXPECT_EQ(run.err, "");
}

TEST(CheckCommandTest, UnwiseFileHasNoErrors) {
  ConfigurationFile file("[interface.eth0]\n[timers]\nsz-timeout = 700\n");
  RunResult run = check(file.path());
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, file.path() + ":3:14: warning: timers.sz-timeout: 700 is below 1300, ten times " +
                         "timers.bs-timeout, which is used in its place\n" + file.path() +
                         ": configuration OK\n");
}

TEST(CheckCommandTest, ErrorsAndWarningsComeInTheOrderOfTheFile) {
  ConfigurationFile file(wrong);
  RunResult run = check(file.path());
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(
      run.out,
      file.path() +
          ":3:7: warning: limits.rps: 0 is no bound, so that a flood takes what time and memory there is\n" +
          file.path() +
          ":4:17: error: limits.learned-zones: read -5; valid is a whole number from 0 to 4294967295\n" +
          file.path() +
          ":5:2: error: colour: no such key; valid here are interface, candidate-bsr, candidate-rp, filter, "
          "access-list, timers, checks, limits, corrections, control, state, trace\n");
}

TEST(CheckCommandTest, FileThatCannotBeReadFails) {
  RunResult run = check("/nowhere/pimbsr.toml");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.out, "/nowhere/pimbsr.toml: error: cannot be read: No such file or directory\n");
}

RunResult rewrite(std::string const& file) {
  std::ostringstream out;
  std::ostringstream err;
  int code = pimbsr::cli::rewriteConfig(file, false, out, err);
  return {.code = code, .out = out.str(), .err = err.str()};
}

std::string textOf(std::string const& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

TEST(CheckCommandTest, FileIsWrittenAnewWithTheNamesOfNowAndKeepsItsMode) {
  ConfigurationFile file("[interface.eth0]\n[timers] # short\nhold-time = 100\n  zone-timeout = 1000\n");
  std::filesystem::permissions(file.path(), std::filesystem::perms(0640));
  EXPECT_EQ(check(file.path()).code, 1);
  RunResult run = rewrite(file.path());
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, file.path() + ": keys renamed: 2\n" + file.path() + ": configuration OK\n");
  EXPECT_EQ(textOf(file.path()),
            "[interface.eth0]\n[timers] # short\nbs-timeout = 100\n  sz-timeout = 1000\n");
  EXPECT_EQ(std::filesystem::status(file.path()).permissions(), std::filesystem::perms(0640));
}

TEST(CheckCommandTest, LinkStaysALinkToTheFileThatIsWrittenAnew) {
  ConfigurationFile file("[interface.eth0]\n[timers]\nhold-time = 100\nzone-timeout = 1000\n");
  std::string const link = file.path() + ".link";
  std::filesystem::create_symlink(file.path(), link);
  EXPECT_EQ(rewrite(link).code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_THAT(textOf(file.path()), HasSubstr("bs-timeout = 100\nsz-timeout = 1000\n"));
  std::filesystem::remove(link);
}

TEST(CheckCommandTest, FileWithoutFormerNamesIsNotWritten) {
  ConfigurationFile file(wrong);
  auto const before = std::filesystem::last_write_time(file.path());
  RunResult run = rewrite(file.path());
  EXPECT_EQ(run.out, check(file.path()).out);
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(std::filesystem::last_write_time(file.path()), before);
  EXPECT_EQ(rewrite("/nowhere/pimbsr.toml").code, 1);
}

TEST(CheckCommandTest, CommandRewritesWhereItIsAsked) {
  ConfigurationFile file("[interface.eth0]\n[timers]\nhold-time = 130\n");
  EXPECT_EQ(command("check " + file.path()).code, 1);
  EXPECT_EQ(command("check --rewrite " + file.path()).code, 0);
  EXPECT_THAT(textOf(file.path()), HasSubstr("\nbs-timeout = 130\n"));
}

TEST(CheckCommandTest, JsonHoldsTheSame) {
  ConfigurationFile file(wrong);
  RunResult run = check(file.path(), true);
  EXPECT_EQ(run.code, 1);
  auto document = nlohmann::json::parse(run.out);
  EXPECT_EQ(document["file"], file.path());
  EXPECT_EQ(document["sound"], false);
  ASSERT_EQ(document["findings"].size(), 3u);
  auto const& error = document["findings"][1];
  EXPECT_EQ(error["severity"], "error");
  EXPECT_EQ(error["line"], 4);
  EXPECT_EQ(error["column"], 17);
  EXPECT_THAT(std::string(error["text"]), HasSubstr("learned-zones: read -5;"));
}

TEST(CheckCommandTest, JsonHasNullForThePlaceOfTheWholeFile) {
  RunResult run = check("/nowhere/pimbsr.toml", true);
  auto document = nlohmann::json::parse(run.out);
  ASSERT_EQ(document["findings"].size(), 1u);
  auto const& error = document["findings"][0];
  EXPECT_TRUE(error.at("line").is_null()) << error;
  EXPECT_TRUE(error.at("column").is_null()) << error;
}

TEST(CheckCommandTest, NameOfAnyBytesIsWrittenInJson) {
  RunResult run = check("/nowhere/\xff", true);
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(nlohmann::json::parse(run.out)["findings"].size(), 1u);
}

TEST(CheckCommandTest, OutputThatCannotBeWrittenFails) {
  std::ostringstream err;
  std::ostream out(nullptr);
  EXPECT_EQ(pimbsr::cli::checkConfig(sourceFile("examples/pimbsr.toml"), false, out, err), 1);
  EXPECT_EQ(err.str(), "pimbsr: cannot write the output\n");
}

}  // namespace
}  // namespace test
