#include "cli/base/Color.h"

#include <gtest/gtest.h>

#include <sstream>

namespace pimbsr::cli {
namespace {

TEST(ColorTest, OnlyATerminalTakesColorAndOnlyIfItIsNotForbidden) {
  EXPECT_TRUE(takesColor(true, nullptr, nullptr));
  EXPECT_TRUE(takesColor(true, "", "xterm"));
  EXPECT_FALSE(takesColor(false, nullptr, "xterm"));
  EXPECT_FALSE(takesColor(true, "1", "xterm"));
  EXPECT_FALSE(takesColor(true, "0", "xterm")) << "any value forbids it";
  EXPECT_FALSE(takesColor(true, nullptr, "dumb"));
  std::ostringstream file;
  EXPECT_FALSE(takesColor(file));
}

TEST(ColorTest, HeadingsAreBoldAndTroublesRed) {
  EXPECT_EQ(colored("Zone 224.0.0.0/4, global\n  BSR  none: no route to the BSR\n\n"),
            "\x1b[1mZone 224.0.0.0/4, global\x1b[0m\n"
            "  BSR  none: \x1b[31mno route\x1b[0m to the BSR\n\n");
  EXPECT_EQ(colored("  a (not there), b"), "  a (\x1b[31mnot there\x1b[0m), b");
  EXPECT_EQ(colored("  eth0-down  countdown  downs  down"),
            "  eth0-down  countdown  downs  \x1b[31mdown\x1b[0m");
  EXPECT_EQ(colored(""), "");
}

TEST(ColorTest, NothingButEscapeSequencesIsAdded) {
  std::string const text = "Head\n  eth7       missing  -\n  down\nno newline at the end";
  std::string plain = colored(text);
  for (char const* sequence : {"\x1b[1m", "\x1b[31m", "\x1b[0m"}) {
    std::string const escape = sequence;
    for (std::size_t at = plain.find(escape); at != std::string::npos; at = plain.find(escape))
      plain.erase(at, escape.size());
  }
  EXPECT_EQ(plain, text);
}

}  // namespace
}  // namespace pimbsr::cli
