#include "agent/control/ControlProtocol.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "tests/support/Answers.h"

namespace pimbsr::agent {
namespace {

using Json = nlohmann::ordered_json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string errorOf(std::string const& line) {
  try {
    parseRequest(line);
  } catch (RequestError const& error) {
    return error.what();
  }
  return "no error";
}

TEST(ControlProtocolTest, EveryCommandIsRead) {
  EXPECT_EQ(parseRequest(R"({"command":"watch"})").command, Command::watch);
  EXPECT_EQ(parseRequest(R"({"command":"reload"})").command, Command::reload);
  EXPECT_EQ(parseRequest(R"({"command":"metrics"})").command, Command::metrics);
  EXPECT_EQ(parseRequest(R"({"command":"version"})").command, Command::version);
  for (std::string_view what : clearNames()) {
    Request request = parseRequest(R"({"command":"clear","what":")" + std::string(what) + R"("})");
    EXPECT_EQ(request.command, Command::clear);
    EXPECT_EQ(request.what, what);
  }
}

TEST(ControlProtocolTest, ClearTakesAZoneOrAnInterface) {
  Request zone = parseRequest(R"({"command":"clear","what":"bsr","zone":"239.1.0.0/16"})");
  EXPECT_EQ(zone.zone.stringValue().view(), "239.1.0.0/16");
  EXPECT_TRUE(parseRequest(R"({"command":"clear","what":"rp-set"})").zone.isEmpty());
  Request intf = parseRequest(R"({"command":"clear","what":"neighbors","interface":"eth0"})");
  EXPECT_EQ(intf.interface, "eth0");
}

TEST(ControlProtocolTest, EveryViewIsReadAndOnlyRpTakesAGroup) {
  for (std::string_view what : viewNames()) {
    std::string group = what == "rp" ? R"(,"group":"239.1.2.3")" : "";
    Request request = parseRequest(R"({"command":"show","what":")" + std::string(what) + "\"" + group + "}");
    EXPECT_EQ(request.command, Command::show);
    EXPECT_EQ(request.what, what);
    EXPECT_EQ(request.group.hostWord(), what == "rp" ? 0xef010203 : 0);
  }
}

TEST(ControlProtocolTest, APathIsReadWhereOneIsTaken) {
  EXPECT_EQ(parseRequest(R"({"command":"watch"})").path, "");
  EXPECT_EQ(parseRequest(R"({"command":"watch","path":"a/b['c']"})").path, "a/b['c']");
  EXPECT_EQ(parseRequest(R"({"command":"get","path":"a"})").path, "a");
  Request whole = parseRequest(R"({"command":"show","what":"tree"})");
  EXPECT_EQ(whole.path, "");
  EXPECT_EQ(whole.tree.from, "");
  EXPECT_EQ(whole.tree.depth, host::maxTreeDepth);
  Request part = parseRequest(R"({"command":"show","what":"tree","path":"a","depth":0,"from":"a/b"})");
  EXPECT_EQ(part.path, "a");
  EXPECT_EQ(part.tree.from, "a/b");
  EXPECT_EQ(part.tree.depth, 0);
}

TEST(ControlProtocolTest, WhatReadsIsNoneOfTheCommandsThatChangeSomething) {
  for (Command command : {Command::show, Command::get, Command::watch, Command::metrics, Command::version})
    EXPECT_TRUE(isReading(command)) << nameOf(command);
  for (Command command : {Command::clear, Command::reload, Command::trace})
    EXPECT_FALSE(isReading(command)) << nameOf(command);
}

TEST(ControlProtocolTest, TraceHasALevelOrIsOff) {
  Request on = parseRequest(R"({"command":"trace","handle":"Pim::Bsr::IO","level":9})");
  EXPECT_EQ(on.handle, "Pim::Bsr::IO");
  EXPECT_EQ(on.level, 9);
  EXPECT_EQ(parseRequest(R"({"command":"trace","handle":"a","level":0})").level, 0);
  EXPECT_EQ(parseRequest(R"({"command":"trace","handle":"a","level":"off"})").level, std::nullopt);
}

TEST(ControlProtocolTest, SpacesOrderAndLineEndsDoNotMatter) {
  EXPECT_EQ(parseRequest("  { \"what\" : \"bsr\" ,\t\"command\" : \"show\" }\r\n").what, "bsr");
}

/// A request with an error, and parts of its message.
struct Invalid {
  char const* line;
  char const* read;
  char const* valid;
};

TEST(ControlProtocolTest, ErrorsNameTheReadAndTheValidValues) {
  Invalid const cases[] = {
      {"", "no JSON from byte 1 on", R"({"command":"version"})"},
      {"show bsr", "no JSON from byte 1 on", R"({"command":"version"})"},
      {R"({"command":"version"} {})", "no JSON from byte 23 on", "one object on one line"},
      {"{\"command\":\"\xff\"}", "no JSON from byte 13 on", "one object"},
      {"{\"command\":\"a\0\"}", "no JSON", "one object"},
      {R"("version")", R"(the request is "version")", "an object"},
      {"[]", "the request is []", "an object"},
      {"17", "the request is 17", "an object"},
      {R"({"command":1e999})", "a number that is too large", ""},
      {"{}", "\"command\" is missing",
       R"("show", "get", "watch", "clear", "reload", "trace", "metrics", "version")"},
      {R"({"command":1})", "\"command\" is 1", "\"show\""},
      {R"({"command":null})", "\"command\" is null", "\"show\""},
      {R"({"command":"sho"})", R"("command" is "sho")", "\"show\""},
      {R"({"command":"Show"})", R"("command" is "Show")", "\"show\""},
      {R"({"command":"show"})", "\"what\" is missing", R"("bsr", "rp-set")"},
      {R"({"command":"show","what":7})", "\"what\" is 7", "\"bsr\""},
      {R"({"command":"show","what":"rps"})", R"("what" is "rps")", "\"rp-set\""},
      {R"({"command":"show","what":"rp"})", "\"group\" is missing", "\"239.1.1.1\""},
      {R"({"command":"show","what":"rp","group":239})", "\"group\" is 239", "a multicast group"},
      {R"({"command":"show","what":"rp","group":"10.0.0.1"})", R"("group" is "10.0.0.1")",
       "a multicast group"},
      {R"({"command":"show","what":"rp","group":"239.1.1"})", R"("group" is "239.1.1")", "a multicast group"},
      {R"({"command":"show","what":"rp","group":"ff02::1"})", R"("group" is "ff02::1")", "a multicast group"},
      {R"({"command":"show","what":"rp","group":""})", R"("group" is "")", "a multicast group"},
      {R"({"command":"show","what":"bsr","group":"239.1.1.1"})", R"("group" is given for "bsr")",
       "\"rp\" alone"},
      {R"({"command":"clear"})", "\"what\" is missing", R"("counters", "drops", "history")"},
      {R"({"command":"clear","what":"rp"})", R"("what" is "rp")",
       R"("history", "bsr", "rp-set", "neighbors")"},
      {R"({"command":"clear","what":"drops","zone":"239.0.0.0/8"})", R"("zone" is given for "drops")",
       R"("bsr" and "rp-set" alone)"},
      {R"({"command":"clear","what":"bsr","zone":"10.0.0.0/8"})", R"("zone" is "10.0.0.0/8")",
       "multicast groups"},
      {R"({"command":"clear","what":"bsr","zone":"239.1"})", R"("zone" is "239.1")", "multicast groups"},
      {R"({"command":"clear","what":"bsr","interface":"eth0"})", R"("interface" is given for "bsr")",
       R"("neighbors" alone)"},
      {R"({"command":"clear","what":"neighbors","interface":""})", "\"interface\" is empty", "\"eth0\""},
      {R"({"command":"clear","what":"drops","group":"239.1.1.1"})", R"("group" is no member of "clear")",
       "\"what\""},
      {R"({"command":"reload","what":"all"})", R"("what" is no member of "reload")", "none"},
      {R"({"command":"trace","level":1})", "\"handle\" is missing", "Pim::Bsr"},
      {R"({"command":"trace","handle":"","level":1})", "\"handle\" is empty", "Pim::Bsr"},
      {R"({"command":"trace","handle":"a"})", "\"level\" is missing", "0 to 9, or \"off\""},
      {R"({"command":"trace","handle":"a","level":10})", "\"level\" is 10", "0 to 9"},
      {R"({"command":"trace","handle":"a","level":-1})", "\"level\" is -1", "0 to 9"},
      {R"({"command":"trace","handle":"a","level":1.5})", "\"level\" is 1.5", "0 to 9"},
      {R"({"command":"trace","handle":"a","level":18446744073709551615})", "\"level\" is 1844", "0 to 9"},
      {R"({"command":"trace","handle":"a","level":"8"})", R"("level" is "8")", "0 to 9"},
      {R"({"command":"trace","handle":"a","level":true})", "\"level\" is true", "0 to 9"},
  };
  for (Invalid const& c : cases) {
    EXPECT_THAT(errorOf(c.line), AllOf(HasSubstr(c.read), HasSubstr(c.valid))) << c.line;
  }
}

TEST(ControlProtocolTest, ErrorsInPathsNameTheReadAndTheValidValues) {
  Invalid const cases[] = {
      {R"({"command":"get"})", "\"path\" is missing", "a path of the model"},
      {R"({"command":"get","path":""})", "\"path\" is empty", "a path of the model"},
      {R"({"command":"get","path":7})", "\"path\" is 7", "a path of the model"},
      {R"({"command":"get","path":"a","depth":1})", R"("depth" is no member of "get")", "\"path\""},
      {R"({"command":"watch","path":""})", "\"path\" is empty", "a path of the model"},
      {R"({"command":"show","what":"tree","path":null})", "\"path\" is null", "a path of the model"},
      {R"({"command":"show","what":"tree","from":""})", "\"from\" is empty", "a path of the model"},
      {R"({"command":"show","what":"tree","depth":25})", "\"depth\" is 25", "0 to 24"},
      {R"({"command":"show","what":"tree","depth":-1})", "\"depth\" is -1", "0 to 24"},
      {R"({"command":"show","what":"tree","depth":"1"})", "\"depth\" is \"1\"", "0 to 24"},
      {R"({"command":"show","what":"bsr","path":"a"})", R"("path" is given for "bsr")", "\"tree\" alone"},
      {R"({"command":"show","what":"rp","group":"239.1.1.1","depth":1})", R"("depth" is given for "rp")",
       "\"tree\" alone"},
  };
  for (Invalid const& c : cases) {
    EXPECT_THAT(errorOf(c.line), AllOf(HasSubstr(c.read), HasSubstr(c.valid))) << c.line;
  }
}

TEST(ControlProtocolTest, RepeatedAndNestedMembersAreRejected) {
  EXPECT_THAT(errorOf(R"({"command":"clear","what":"drops","what":"history"})"),
              HasSubstr("\"what\" is given twice"));
}

TEST(ControlProtocolTest, NothingNestedIsRead) {
  std::string const deep(2000, '[');
  for (std::string const& line :
       {std::string(R"({"command":{"command":"version"}})"), std::string(R"({"command":["version"]})"),
        std::string("[[]]"), R"({"command":)" + deep, deep + std::string(2000, ']')}) {
    EXPECT_THAT(errorOf(line), HasSubstr("nested")) << line;
  }
}

TEST(ControlProtocolTest, ErrorQuotesARequestShortAndInAscii) {
  std::string text = errorOf(R"({"command":"\u001b[2J)" + std::string(3000, 'x') + "\xc3\xa4\"}");
  EXPECT_LT(text.size(), 300u);
  EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) << text;
}

TEST(ControlProtocolTest, AnswersAreOneLineOfJson) {
  for (std::string const& line : {answerLine(Json::object()), errorLine("no")})
    test::keepAnswer("control-answer", Json::parse(line));
  EXPECT_EQ(answerLine({{"b", 1}, {"a", "x\ny"}}), "{\"ok\":true,\"result\":{\"b\":1,\"a\":\"x\\ny\"}}\n");
  EXPECT_EQ(errorLine("no \"such\" thing"), "{\"ok\":false,\"error\":\"no \\\"such\\\" thing\"}\n");
  EXPECT_EQ(errorLine("\xff"), "{\"ok\":false,\"error\":\"\xef\xbf\xbd\"}\n");
}

// Lines -----------------------------------------------------------------------------------------------

std::vector<std::string> takeAll(LineBuffer& buffer) {
  std::vector<std::string> lines;
  while (std::optional<std::string> line = buffer.next()) lines.push_back(*line);
  return lines;
}

TEST(LineBufferTest, LinesComeInPiecesAndSeveralAtOnce) {
  LineBuffer buffer;
  buffer.add("on");
  EXPECT_FALSE(buffer.isReady());
  EXPECT_EQ(buffer.next(), std::nullopt);
  buffer.add("e\n\ntwo\nthr");
  EXPECT_TRUE(buffer.isReady());
  EXPECT_THAT(takeAll(buffer), ElementsAre("one", "", "two"));
  EXPECT_FALSE(buffer.empty());
  buffer.add("ee\n");
  EXPECT_THAT(takeAll(buffer), ElementsAre("three"));
  EXPECT_TRUE(buffer.empty());
}

TEST(LineBufferTest, TheNewlineCountsForTheLongestLine) {
  LineBuffer buffer(4);
  buffer.add("abc\nabc");
  EXPECT_THAT(takeAll(buffer), ElementsAre("abc"));
  EXPECT_FALSE(buffer.isReady());
  buffer.add("d");
  EXPECT_TRUE(buffer.isReady());
  EXPECT_THROW(buffer.next(), RequestError);
  buffer.add("\nabc\n");
  EXPECT_THROW(buffer.next(), RequestError) << "where the next one begins is not guessed";
  buffer.clear();
  EXPECT_TRUE(buffer.empty());
}

TEST(LineBufferTest, TooLongLineAfterAValidOneIsRejectedInItsTurn) {
  LineBuffer buffer(4);
  buffer.add("abc\nabcd\n");
  EXPECT_EQ(buffer.next(), "abc");
  EXPECT_TRUE(buffer.isReady());
  EXPECT_THROW(buffer.next(), RequestError);
}

}  // namespace
}  // namespace pimbsr::agent
