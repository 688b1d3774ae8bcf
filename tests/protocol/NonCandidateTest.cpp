#include "tests/support/Engine.h"

namespace test {
namespace {

class NonCandidate : public EngineTest {};

TEST_F(NonCandidate, FirstMessageOfTheGlobalZoneMakesTheEntryAndStoresTheRpSet) {
  engine.receive({.groups = {{"224.0.0.0/4", {{"203.0.113.1"}, {"203.0.113.2", 100, 5}}}}});
  ASSERT_TRUE(engine.elected("224.0.0.0/4"));
  EXPECT_EQ(engine.elected("224.0.0.0/4")->ipAddr(), addr("10.0.0.1"));
  EXPECT_EQ(engine.rpSet("224.0.0.0/4"), "224.0.0.0/4: 203.0.113.1/150/0 203.0.113.2/100/5");
  EXPECT_EQ(engine.mirror(), engine.rpSet("224.0.0.0/4"));
  engine.runTo(99);
  EXPECT_EQ(engine.rpSet("224.0.0.0/4"), "224.0.0.0/4: 203.0.113.1/150/0 203.0.113.2/100/5");
  engine.runTo(100);
  EXPECT_EQ(engine.rpSet("224.0.0.0/4"), "224.0.0.0/4: 203.0.113.1/150/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet("224.0.0.0/4"));
  engine.runTo(130);
  EXPECT_FALSE(engine.elected("224.0.0.0/4"));
  EXPECT_EQ(engine.rpSet("224.0.0.0/4"), "224.0.0.0/4: 203.0.113.1/150/0");
  engine.runTo(280);
  EXPECT_EQ(engine.rpSet("224.0.0.0/4"), "");
}

}  // namespace
}  // namespace test
