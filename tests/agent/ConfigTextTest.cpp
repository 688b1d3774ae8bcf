#include "agent/config/ConfigText.h"

#include <gmock/gmock.h>

namespace test {
namespace {

using pimbsr::agent::ConfigValue;
using pimbsr::agent::describe;
using pimbsr::agent::inQuotes;
using pimbsr::agent::maxConfigTextDepth;
using pimbsr::agent::maxConfigTextLength;
using pimbsr::agent::parseConfigText;
using pimbsr::agent::ParsedText;
using pimbsr::agent::TextPlace;
using pimbsr::agent::tomlKey;
using pimbsr::agent::tomlText;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Sort = ConfigValue::Sort;

std::string repeated(std::string const& text, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += text;
  return out;
}

TEST(ConfigTextTest, ValuesComeInTheOrderOfTheTextWithPlacesThatCountCharactersFromOne) {
  ParsedText parsed = parseConfigText("z = 5\n[b]\n  \"\xc3\xa4\xc3\xa4\" = true\na = [\"x\", 1.5]\n");
  ASSERT_THAT(parsed.errors, IsEmpty());
  auto const& entries = parsed.root.entries;
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].key, "z");
  EXPECT_EQ(entries[0].at, (TextPlace{1, 1}));
  EXPECT_EQ(entries[0].value.sort, Sort::integer);
  EXPECT_EQ(entries[0].value.number, 5);
  EXPECT_EQ(entries[0].value.at, (TextPlace{1, 5}));
  EXPECT_EQ(entries[1].value.at, (TextPlace{2, 1}));
  auto const& table = entries[1].value.entries;
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table[0].key, "\xc3\xa4\xc3\xa4");
  EXPECT_EQ(table[0].value.at, (TextPlace{3, 10}));
  EXPECT_TRUE(table[0].value.flag);
  ASSERT_EQ(table[1].value.items.size(), 2u);
  EXPECT_EQ(table[1].value.items[0].text, "x");
  EXPECT_EQ(table[1].value.items[1].at, (TextPlace{4, 11}));
  EXPECT_EQ(table[1].value.items[1].sort, Sort::other);
}

// Texts that are no TOML ------------------------------------------------------------------------------

struct BadText {
  char const* name;
  std::string text;
  TextPlace at;
  char const* expected;
};

class ConfigTextError : public testing::TestWithParam<BadText> {};

TEST_P(ConfigTextError, IsReportedOnceWithItsPlace) {
  ParsedText parsed = parseConfigText(GetParam().text);
  ASSERT_EQ(parsed.errors.size(), 1u);
  EXPECT_EQ(parsed.errors[0].at, GetParam().at);
  EXPECT_THAT(parsed.errors[0].text, HasSubstr(GetParam().expected));
  EXPECT_THAT(parsed.root.entries, IsEmpty());
}

char const* const tooDeep = "nested more than 16 deep";

/// As deep as the parser takes it: as many dots in each line as may be, and tables in lists.
std::string deepest() {
  std::string const keys = repeated("a.", 512) + "a";
  std::string text = "[" + keys + "]\n" + keys + " = ";
  for (int i = 0; i < 7; ++i) text += "[\n{" + keys + " = ";
  return text + "1";
}

BadText const badTexts[] = {
    {"NoValue", "a = 1\nb =\n", {2, 4}, "not TOML: "},
    {"OpenBracket", "[a\n", {1, 3}, "not TOML: "},
    {"SecondKey", "a = 1\nb = 2\na = 3\n", {3, 5}, "cannot redefine existing integer 'a'"},
    {"SecondTable", "[a]\n[b]\n[a]\n", {3, 1}, "cannot redefine existing table 'a'"},
    {"HugeNumber", "a = 99999999999999999999\n", {1, 25}, "not TOML: "},
    {"BytesOfNoCharacter", "a = \"\xff\xfe\"\n", {1, 6}, "byte 0xFF is not UTF-8"},
    {"Utf16",
     std::string("\xff\xfe"
                 "a\0=\0",
                 6),
     {1, 1},
     "byte 0xFF is not UTF-8"},
    {"ByteOfLatin1", "a = 1\n# \xc3\xa4\xe4 x\n", {2, 4}, "byte 0xE4 is not UTF-8"},
    {"CharacterThatIsCutOff", "# \xe2\x82", {1, 3}, "byte 0xE2 is not UTF-8"},
    {"CharacterThatIsTooLong", "# \xc0\xaf", {1, 3}, "byte 0xC0 is not UTF-8"},
    {"Surrogate", "# \xed\xa0\x80", {1, 3}, "byte 0xED is not UTF-8"},
    {"BeyondUnicode", "# \xf4\x90\x80\x80", {1, 3}, "byte 0xF4 is not UTF-8"},
    {"TextThatIsNotClosed", "b = 1\na = \"x\nb = \"\xce\x97\n", {2, 7}, "no closing quotes"},
    {"TextThatIsNotClosedAtTheEnd", "a = 'x", {1, 7}, "no closing quotes"},
    {"TextThatIsNotClosedAfterAByteOrderMark",
     "\xef\xbb\xbf"
     "a = 'x\n",
     {1, 7},
     "no closing quotes"},
    {"TextWhoseQuoteIsEscaped", "a = \"c:\\\"\nb = 1\n", {1, 10}, "no closing quotes"},
    {"TextThatEndsInABackslash", "a = \"c:\\\nb = \"\"\n", {1, 9}, "no closing quotes"},
    {"TextThatEndsInABackslashAtTheEnd", "a = \"c:\\", {1, 9}, "no closing quotes"},
    {"TextOfLinesThatIsNotClosed", "a = \"\"\"x\n\"\"\n", {2, 4}, "no closing quotes"},
    {"ErrorBeforeATextThatIsNotClosed", "[a\nb = 'x\n", {1, 3}, "not TOML: Error while parsing table header"},
    {"QuoteAfterANumber", "a = 1\"\xce\x97\"\n", {1, 6}, "expected digit"},
    {"QuoteAfterANumberAndABracket", "a = [ 1{\"\xce\x97\" = 2}]\n", {1, 8}, "expected digit"},
    {"QuoteAfterADot", "a.\"\xce\x97\" = [1.\"\xce\x97\"]\n", {1, 12}, "expected decimal digit"},
    {"QuoteAfterADotInATable",
     "a = {b.\"\xce\x97\" = 1, c.\"d\" = 1.\"\xce\x97\"}\n",
     {1, 27},
     "expected decimal digit"},
    {"QuoteAfterABareKey", "[a.\"\xce\x97\"]\nb\"\xce\x97\" = 1\n", {2, 2}, "expected '='"},
    {"ControlCharacter", std::string("a = \"\0\"\n", 8), {1, 6}, "control characters"},
    {"HeaderThatIsNoKey", "a = 1\n[=]\nb = 1\n", {2, 2}, "expected bare key starting character"},
    {"LetterBeyondAscii", "a = 1\n b\xc3\xa4 = 1\n", {2, 3}, "expected '='"},
    {"BlankBeyondAscii", "a =\xc2\xa0\n", {1, 4}, "expected space or tab"},
    {"LetterAfterABackslash", "a = \"\"\"\xc3\xa4\\\xce\x97\"\"\"\n", {1, 10}, "unknown escape sequence"},
    {"TooLong", std::string(maxConfigTextLength + 1, '\n'), {0, 0}, "longer than 1048576 bytes"},
    {"DeepLists", "a = " + repeated("[", 100000), {1, 21}, tooDeep},
    {"DeepTables", "a = " + repeated("{a = ", 100000), {1, 85}, tooDeep},
    {"DeepKeys", repeated("a.", 100000) + "a = 1", {1, 1026}, "more than 512 dots in a line"},
    {"DeepKeysOfALineThatMayBe", repeated("a.", 512) + "a = 1", {1, 33}, tooDeep},
    {"DeepHeader", "[" + repeated("a.", 17) + "a]", {1, 1}, tooDeep},
    {"DeepKeysInListsInListsInDeepKeys", deepest() + repeated("}]", 7), {1, 1}, tooDeep},
    {"DeepKeysInListsThatAreCutOff", deepest(), {9, 1031}, "not TOML: "},
    {"DeepKeysInQuotes", repeated("\"\xc3\xa4\" . ", 17) + "a = 1", {1, 97}, tooDeep},
    {"DeepAfterTexts",
     "a = '#' # '\nb = \"\\\"\" # \"\nc = '''\n''''' # '\n" + repeated("d.", 17) + "d = 1",
     {5, 33},
     tooDeep},
};

INSTANTIATE_TEST_SUITE_P(Each, ConfigTextError, testing::ValuesIn(badTexts),
                         [](auto const& one) { return std::string(one.param.name); });

TEST(ConfigTextTest, BracketsInTextsAndCommentsNestNothing) {
  std::string deep = repeated("[{a.", 200);
  std::string text = "a = \"" + deep + "\" # " + deep + "\nb = '''\n" + deep + "'''\nc = \"\"\"\n" + deep +
                     "\\\"\"\"\" # " + deep + "\n\"" + deep + "\" = 1\n";
  EXPECT_THAT(parseConfigText(text).errors, IsEmpty());
}

TEST(ConfigTextTest, CharactersBeyondAsciiAreValidInTextsAndComments) {
  std::string text =
      "\xef\xbb\xbf# \xce\x97\xe2\x82\xac\xf0\x9f\x98\x80\n\"\xce\x97\" = '\xce\x97' # \xce\x97\n"
      "b = \"\"\"\\\n  x\xce\x97 \\\" \xce\x97\n\xce\x97\"\"\"\n";
  ParsedText parsed = parseConfigText(text);
  ASSERT_THAT(parsed.errors, IsEmpty());
  EXPECT_EQ(parsed.root.entries.at(1).value.text, "x\xce\x97 \" \xce\x97\n\xce\x97");
}

TEST(ConfigTextTest, LettersBeyondAsciiAfterABrokenLineAreRead) {
  ParsedText parsed = parseConfigText("a = \"\"\"x\\ \n\n \xce\x97\"\"\"\n");
  ASSERT_THAT(parsed.errors, IsEmpty());
  EXPECT_EQ(parsed.root.entries.at(0).value.text, "x\xce\x97");
}

TEST(ConfigTextTest, ListsOfManyItemsAreNotDeep) {
  std::string text = "a = [" + repeated("1.5, [{b.c = 1}], \n", 1000) + "]\n";
  EXPECT_THAT(parseConfigText(text).errors, IsEmpty());
}

TEST(ConfigTextTest, LongestAndDeepestAreRead) {
  std::string nested =
      "a = " + std::string(maxConfigTextDepth, '[') + std::string(maxConfigTextDepth, ']') + "\n#";
  nested.resize(maxConfigTextLength, ' ');
  EXPECT_THAT(parseConfigText(nested).errors, IsEmpty());
}

// Words -----------------------------------------------------------------------------------------------

TEST(ConfigTextTest, ValuesAreDescribedInAFewWords) {
  ParsedText parsed = parseConfigText(
      "\xef\xbb\xbf"
      "a = [5, -1, false, \"x\\n\\\"\xc3\xa4\", [1], {b = 1}, 1_0.5 , -1e3# \xc3\xa4\n"
      ", inf, 2026-01-01, 07:00:00,\r\n2026-01-01 07:00:00 , 2026-01-01T07:00:00Z,\n"
      "1." +
      repeated("0", 70) + "]");
  std::vector<std::string> words;
  for (ConfigValue const& item : parsed.root.entries.at(0).value.items) words.push_back(describe(item));
  EXPECT_THAT(words,
              ElementsAre("5", "-1", "false", "the text \"x\\u000A\\\"\xc3\xa4\"", "a list", "a table",
                          "the decimal number 1_0.5", "the decimal number -1e3", "the decimal number inf",
                          "the date 2026-01-01", "the time 07:00:00", "the date and time 2026-01-01 07:00:00",
                          "the date and time 2026-01-01T07:00:00Z",
                          "the decimal number 1." + repeated("0", 58) + "..."));
}

TEST(ConfigTextTest, ValueAtTheEndOfTheTextIsDescribedAsItIsWritten) {
  EXPECT_EQ(describe(parseConfigText("a = 1\nb = 1.5").root.entries.at(1).value), "the decimal number 1.5");
}

TEST(ConfigTextTest, LongTextsAreCutBetweenCharacters) {
  EXPECT_EQ(inQuotes(repeated("\xc3\xa4", 60)), '"' + repeated("\xc3\xa4", 60) + '"');
  EXPECT_EQ(inQuotes(repeated("\xc3\xa4", 61)), '"' + repeated("\xc3\xa4", 60) + "\"...");
}

TEST(ConfigTextTest, KeysAndTextsAreWrittenAsTheyAreRead) {
  EXPECT_EQ(tomlKey("eth0-1_A"), "eth0-1_A");
  for (std::string const& text : {std::string(), std::string("eth0.100"), std::string("a\"\\b\x7f\n\t\0c", 9),
                                  std::string("\xc3\xa4")}) {
    ParsedText parsed = parseConfigText(tomlKey(text) + " = " + tomlText(text));
    ASSERT_THAT(parsed.errors, IsEmpty()) << tomlKey(text);
    EXPECT_EQ(parsed.root.entries.at(0).key, text);
    EXPECT_EQ(parsed.root.entries.at(0).value.text, text);
  }
}

}  // namespace
}  // namespace test
