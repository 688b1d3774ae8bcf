#include "tests/support/TestContext.h"

#include "runtime/Trace.h"

namespace test {

static void enableTraces(bool on) {
  for (Zet::TraceHandle* handle : Zet::TraceHandle::handles()) {
    handle->enabledIs(on);
    handle->levelIs(9, !on);
  }
}

TestContext::TestContext() { enableTraces(true); }

TestContext::~TestContext() { enableTraces(false); }

int TestContext::rand() {
  if (randoms.empty()) return ++next_;
  int random = randoms.front();
  randoms.pop_front();
  return random;
}

int TestContext::traced(std::string const& text) const {
  int n = 0;
  for (Zet::TraceLine const& line : traces) n += line.text == text;
  return n;
}

int TestContext::tracedPrefix(std::string const& text) const {
  int n = 0;
  for (Zet::TraceLine const& line : traces) n += line.text.starts_with(text);
  return n;
}

std::string TestContext::tracedAs(std::string const& text) const {
  std::string as;
  for (Zet::TraceLine const& line : traces) {
    if (line.text != text) continue;
    as = line.handle + (" " + std::to_string(line.level)) + " " + line.sourceBlock;
  }
  return as;
}

std::vector<std::string> TestContext::tracedBy(std::string const& sourceBlock) const {
  std::vector<std::string> texts;
  for (Zet::TraceLine const& line : traces) {
    if (line.sourceBlock == sourceBlock) texts.push_back(line.text);
  }
  return texts;
}

}  // namespace test
