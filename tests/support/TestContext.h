#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "runtime/Context.h"

namespace test {

/// A context driven by hand: it records what is traced and logged, and draws random numbers from a list.
class TestContext : public Zet::Context {
 public:
  /// Enables every trace handle made so far, at all levels but function entries.
  TestContext();
  ~TestContext() override;

  int rand() override;
  void srand(unsigned seed) override { seeds.push_back(seed); }
  void trace(Zet::TraceLine const& line) override { traces.push_back(line); }
  void log(Zet::LogHandle const&, std::string const& text) override { logs.push_back(text); }

  /// How many traces have exactly this text.
  int traced(std::string const& text) const;
  /// How many traces begin with this text.
  int tracedPrefix(std::string const& text) const;
  /// How the last trace with exactly this text was written: "handle level source-block"; empty if none was.
  std::string tracedAs(std::string const& text) const;
  /// The texts that a machine has traced, in order.
  std::vector<std::string> tracedBy(std::string const& sourceBlock) const;

  std::vector<Zet::TraceLine> traces;
  std::vector<std::string> logs;
  std::vector<unsigned> seeds;
  /// What rand() gives next; 1, 2, 3 ... once the list is used up.
  std::deque<int> randoms;

 private:
  int next_ = 0;
};

/// Base of tests on model objects: they run in a context of their own, and an exception that a notifiee let
/// out fails the test unless it was expected.
class ModelTest : public testing::Test {
 protected:
  ModelTest() : scope_(context) {}
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), expectedExceptions); }

  TestContext context;
  Zet::U64 expectedExceptions = 0;

 private:
  Zet::Context::Scope scope_;
};

}  // namespace test
