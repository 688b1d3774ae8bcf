#include "view/Rows.h"

#include <gtest/gtest.h>

#include <limits>

#include "view/History.h"
#include "view/Interfaces.h"
#include "view/Json.h"

namespace pimbsr::view {
namespace {

constexpr char const* neighbor = R"({"interface":"eth0","address":"192.0.2.1","drPriority":null,"dr":false,)"
                                 R"("generationId":7,"expiresIn":100.5,"secondaryAddresses":["192.0.2.2"]})";

std::string with(std::string text, std::string const& from, std::string const& to) {
  std::size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from;
  return text.replace(at, from.size(), to);
}

template <class View>
std::string again(std::string const& text) {
  return jsonOf(readView<View>(Json::parse(text))).dump();
}

TEST(RowsTest, ViewIsReadBackAsItWasWritten) {
  EXPECT_EQ(again<Neighbor>(neighbor), neighbor);
  std::string traffic =
      R"({"interface":"eth0","state":"no address","address":null,"addresses":[],"mtu":null,"drPriority":1,)"
      R"("helloInterval":30,"dr":null,"ownDr":false,"neighbors":0,"nextHello":null,"generationId":null,)"
      R"("bsm":true,)"
      R"("traffic":{"hello":{"received":18446744073709551615,"dropped":0,"sent":0,"sendFailed":0}},)"
      R"("queues":[{"kind":"hello","queues":1,"received":2,"lost":3}],"lastSendError":"down",)"
      R"("duplicates":0})";
  EXPECT_EQ(again<Interface>(traffic), traffic);
}

TEST(RowsTest, MemberThatMayBeLeftOutIsThereIfItHasAValueAndNullIsOne) {
  std::string begin = R"({"time":1.0,"event":"candidateState","zone":"224.0.0.0/4",)";
  std::string end = R"("cause":{"kind":"timer"}})";
  for (char const* members : {"", R"("state":null,)", R"("state":"Pending-BSR","formerState":null,)",
                              R"("own":false,)", R"("firstRps":["10.0.0.1"],)"}) {
    EXPECT_EQ(again<Event>(begin + members + end), begin + members + end);
  }
}

TEST(RowsTest, MemberOfALaterVersionIsLeftAlone) {
  EXPECT_EQ(again<Neighbor>(with(neighbor, "{", R"({"mood":"good",)")), neighbor);
}

TEST(RowsTest, MemberThatAnEarlierVersionLacksIsReadAsEmpty) {
  auto unicast = readView<Unicast>(Json::object());
  EXPECT_TRUE(unicast.queues.empty());
  EXPECT_EQ(unicast.lastSendError, std::nullopt);
}

TEST(RowsTest, WhatHasNoValueOfItsFieldIsAnError) {
  std::vector<std::pair<std::string, std::string>> cases = {{R"("192.0.2.1")", R"("192.0.2.256")"},
                                                            {R"("192.0.2.1")", "null"},
                                                            {R"("192.0.2.1")", "7"},
                                                            {R"("eth0")", "null"},
                                                            {R"("dr":false)", R"("dr":0)"},
                                                            {R"("dr":false)", R"("dr":null)"},
                                                            {R"("generationId":7)", R"("g":7)"},
                                                            {"7", "-7"},
                                                            {"7", "7.5"},
                                                            {"7", "4294967296"},
                                                            {"7", R"("7")"},
                                                            {"100.5", R"("100.5")"},
                                                            {R"(["192.0.2.2"])", R"("192.0.2.2")"},
                                                            {R"(["192.0.2.2"])", "[2]"},
                                                            {R"(["192.0.2.2"])", "null"}};
  for (auto const& [from, to] : cases) {
    Json json = Json::parse(with(neighbor, from, to));
    try {
      readView<Neighbor>(json);
      ADD_FAILURE() << json << " was read";
    } catch (Json::exception const&) {
    } catch (ReadError const&) {
    }
  }
}

TEST(RowsTest, ViewIsAnObject) {
  for (char const* text : {"[]", "null", "7", "\"text\""}) {
    EXPECT_THROW(readView<Neighbor>(Json::parse(text)), Json::exception) << text;
  }
  EXPECT_THROW(readView<Interface>(Json::parse(R"({"interface":"eth0","traffic":[]})")), Json::exception);
}

TEST(RowsTest, TimesAreWrittenToTheMillisecondAndNeverIsNull) {
  std::vector<std::pair<double, std::string>> cases = {
      {0, "0.0"}, {12.3456, "12.346"}, {std::numeric_limits<double>::infinity(), "null"}};
  for (auto const& [seconds, text] : cases) {
    EXPECT_EQ(jsonOf(Neighbor{.expiresIn = seconds})["expiresIn"].dump(), text);
  }
}

TEST(RowsTest, UnsetAddressIsNull) { EXPECT_TRUE(jsonOf(Neighbor{})["address"].is_null()); }

// Tables ----------------------------------------------------------------------------------------------

TEST(RowsTest, ColumnsAreInTheirDeclaredOrder) {
  EXPECT_EQ(headOf<Interface>(), (Cells{"interface", "state", "address", "MTU", "DR", "own DR priority",
                                        "neighbors", "next Hello", "BSM", "duplicates"}));
  Interface view{.interface = "eth0", .state = "no address", .mtu = 1500, .drPriority = 7};
  EXPECT_EQ(cellsOf(view), (Cells{"eth0", "no address", "-", "1500", "-", "7", "0", "-", "off", "0"}));
}

TEST(RowsTest, CellOfNothingHasItsOwnText) {
  EXPECT_EQ(cellsOf(Neighbor{.interface = "eth0", .generationId = 7}),
            (Cells{"eth0", "-", "not sent", "no", "0x00000007", "never", "none"}));
}

// Choices ---------------------------------------------------------------------------------------------

TEST(RowsTest, EachValueOfAChoiceHasItsNameBothWays) {
  for (EventKind kind : eventKinds) EXPECT_EQ(eventKindOf(keyOf(kind)), kind);
  for (host::MessageKind kind : messageKinds) EXPECT_EQ(messageKindOf(keyOf(kind)), kind);
  EXPECT_EQ(keyOf(host::MessageKind::bootstrap), "bsm");
  EXPECT_THROW(messageKindOf("bootstrap"), ReadError);
}

TEST(RowsTest, NameOfALaterVersionIsShownAsItIs) {
  EXPECT_EQ(shownMessageKind("crpAdv"), "C-RP-Adv");
  EXPECT_EQ(shownMessageKind("graft"), "graft");
}

}  // namespace
}  // namespace pimbsr::view
