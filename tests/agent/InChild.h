#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>

namespace test {

/// Runs something in a forked process, for what can't be undone, and gives the text that it returned. It
/// must end by itself; an exception's text is given after "threw ".
inline std::string inChild(std::function<std::string()> const& act) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    std::string text;
    try {
      text = act();
    } catch (std::exception const& error) {
      text = std::string("threw ") + error.what();
    }
    bool written = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char part[4096];
  for (ssize_t got = 0; (got = read(ends[0], part, sizeof part)) > 0;) {
    text.append(part, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0) << "the process ended before its end";
  return text;
}

/// Whether the environment says that tests must run that need root and network namespaces, as for those in
/// Python (tests/support/needs.py).
inline bool isLabRequired() {
  char const* value = std::getenv("PIMBSR_LAB_REQUIRED");
  return value != nullptr && *value != '\0' && std::string_view(value) != "0";
}

/// Whether this process may do what needs root: if not, the test is to be skipped, unless the environment
/// says that it must run.
inline bool isRoot() { return geteuid() == 0 || isLabRequired(); }

}  // namespace test

/// At the head of a test that needs root.
#define NEEDS_ROOT() \
  if (!test::isRoot()) GTEST_SKIP() << "needs root"
