// The keyless forms of collections that a handler of the machine and nested reactors follow both.

#include <gmock/gmock.h>

#include <string>

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

class KeylessForm : public ConfigTest {
 protected:
  KeylessForm() {
    engine.rules("list", {"permit 239.1.0.0/16"});
    engine.address("eth0", "10.0.0.1");
    entry->groupRangeIs(prefix("239.9.0.0/16"), true);
    entry->aclIs("list", true);
    engine.start();
  }

  Zet::Ptr<Bsr::RpCandidateConfig> const entry = engine.rp("eth0");
};

TEST_F(KeylessForm, OfOptionsRunsTheHandlerOfEachKeyAndMakesItsReactor) {
  auto reactor = engine.machine->rpCandidateConfig(intf("eth0"));
  ASSERT_TRUE(reactor);
  reactor->isRegisteredNotifieeIs(false);
  entry->groupRangeOptionsIs(prefix("239.9.0.0/16"))->priorityIs(7);
  entry->aclOptionsIs("list")->priorityIs(8);
  std::string const before = "10.0.0.1 eth0 60: 239.1.0.0/16 239.9.0.0/16 | ";
  EXPECT_EQ(engine.crp(), before);

  reactor->onGroupRangeOptionsZetImmediate();
  EXPECT_EQ(engine.crp(), before + "239.9.0.0/16=7");
  EXPECT_TRUE(reactor->groupRangeOptions(prefix("239.9.0.0/16")));
  EXPECT_FALSE(reactor->aclOptions("list"));

  reactor->onAclOptionsZetImmediate();
  EXPECT_EQ(engine.crp(), before + "239.1.0.0/16=8 239.9.0.0/16=7");
  EXPECT_TRUE(reactor->aclOptions("list"));

  entry->groupRangeOptionsDel(prefix("239.9.0.0/16"));
  reactor->onGroupRangeOptionsZetImmediate();
  EXPECT_FALSE(reactor->groupRangeOptions(prefix("239.9.0.0/16"))) << "its key is gone";
}

TEST_F(KeylessForm, OfAccessListsRunsTheHandlerOfEachKeyAndMakesItsReactor) {
  entry->aclIs("late", true);
  auto reactor = engine.machine->zetIpAclConfig();
  reactor->isRegisteredNotifieeIs(false);
  std::string const before = engine.crp();
  engine.rules("late", {"permit 239.3.0.0/16"});
  EXPECT_EQ(engine.crp(), before);
  EXPECT_FALSE(engine.machine->acl("late"));

  reactor->onAclZetImmediate();
  EXPECT_THAT(engine.crp(), testing::HasSubstr(" 239.3.0.0/16 "));
  EXPECT_TRUE(engine.machine->acl("late"));

  engine.lists->aclDel("late");
  reactor->onAclZetImmediate();
  EXPECT_FALSE(engine.machine->acl("late")) << "its key is gone";
}

}  // namespace
}  // namespace test
