// Borders of interfaces.

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

class Border : public ConfigTest {
 protected:
  Border() {
    engine.rules("list", {"permit 239.1.0.0/16"});
    engine.start();
  }
  Lanet::IpGenPrefix const range = prefix("239.1.0.0/16");
};

TEST_F(Border, TheSameGroupRangeOnTwoInterfacesIsOneEntryCountedOnEach) {
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  engine.border("eth1")->bsrBorderGrpIs(range, true);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0 eth1");
  EXPECT_EQ(engine.borderCount("eth0", "239.1.0.0/16"), 1u);
  EXPECT_EQ(engine.borderCount("eth1", "239.1.0.0/16"), 1u);
  EXPECT_TRUE(tracedOnce("Created group 239.1.0.0/16 BSR Border set"));
  EXPECT_TRUE(tracedOnce("Added interface eth1 into 239.1.0.0/16 BSR border set."));
  EXPECT_TRUE(tracedOnce("Created refcount object for interface eth1"));
  EXPECT_EQ(context.traced("PrefixCounter for prefix 239.1.0.0/16 is 1"), 2);
}

TEST_F(Border, TakenFromOneInterfaceItStaysOnTheOther) {
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  engine.border("eth1")->bsrBorderGrpIs(range, true);
  engine.border("eth0")->bsrBorderGrpDel(range);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth1");
  EXPECT_TRUE(tracedOnce("Deleted interface eth0 from 239.1.0.0/16 BSR border set."));
  engine.border("eth1")->bsrBorderGrpIs(range, false);  // false counts as none
  EXPECT_EQ(engine.borders(), "");
  EXPECT_TRUE(tracedOnce("Deleted group 239.1.0.0/16 BSR border set"));
}

TEST_F(Border, ARangeAndAListThatPermitsItCountTwoAndBothMustGo) {
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  engine.border("eth0")->bsrBorderAclIs("list", true);
  EXPECT_EQ(engine.borderCount("eth0", "239.1.0.0/16"), 2u);
  engine.border("eth0")->bsrBorderGrpDel(range);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0");
  engine.border("eth0")->bsrBorderAclDel("list");
  EXPECT_EQ(engine.borders(), "");
  EXPECT_EQ(engine.groups("list"), "none");
  EXPECT_TRUE(tracedOnce("Created BsrConfigAcl object for acl list"));
  EXPECT_TRUE(tracedOnce("Added interface eth0 to BsrConfigAcl object for acl list"));
  EXPECT_TRUE(tracedOnce("Deleted interface eth0from BsrConfigAcl object for acl list"));
  EXPECT_TRUE(tracedOnce("Deleted BsrConfigAcl object for acl list"));
}

TEST_F(Border, ARuleOfTheListAddsTheInterfaceAndTakesIt) {
  engine.border("eth0")->bsrBorderAclIs("list", true);
  engine.border("eth1")->bsrBorderGrpIs(prefix("239.2.0.0/16"), true);
  forget();
  engine.rule("list", 20, "permit 239.2.0.0/16");
  engine.rule("list", 30, "permit 239.4.0.0/16");
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0; 239.2.0.0/16: eth0 eth1; 239.4.0.0/16: eth0");
  EXPECT_TRUE(tracedOnce("Writing to Status for 239.4.0.0/16 and interface  eth0"));
  EXPECT_TRUE(tracedOnce("Created group 239.4.0.0/16 Bsr Border set"));
  EXPECT_TRUE(tracedOnce("Added interface eth0 into 239.4.0.0/16 BSR border."));
  engine.delRule("list", 30);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0; 239.2.0.0/16: eth0 eth1");
  EXPECT_TRUE(tracedOnce("Removing interface eth0 for prefix 239.4.0.0/16"));
  EXPECT_TRUE(tracedOnce("Deleted interfaceeth0 from 239.4.0.0/16 BSR border set."));
}

TEST_F(Border, AnInterfaceThatLeavesTheConfigurationLeavesAllEntries) {
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  engine.border("eth0")->bsrBorderGrpIs(prefix("239.2.0.0/16"), true);
  engine.border("eth0")->bsrBorderAclIs("list", true);
  engine.border("eth1")->bsrBorderGrpIs(range, true);
  engine.config->intfConfigDel("eth0");
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth1");
  EXPECT_EQ(engine.groups("list"), "none");
  EXPECT_EQ(engine.borderCount("eth0", "239.1.0.0/16"), 0u);
}

TEST_F(Border, NeedsNoAddressOfTheInterface) {
  engine.border("eth7")->bsrBorderGrpIs(range, true);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth7");
  EXPECT_FALSE(engine.sources->sourceIntf(intf("eth7")));
}

TEST_F(Border, ARangeHeldAsFalseFromTheBeginningWrapsItsCount) {
  engine.border("eth0")->bsrBorderGrpIs(range, false);
  EXPECT_EQ(engine.borderCount("eth0", "239.1.0.0/16"), 0xffffffffu);
  EXPECT_EQ(engine.borders(), "");
}

TEST_F(Border, AnEntryThatHasLeftStatusIsCountedDownAllTheSame) {
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  engine.status->bsBorderDel(range);
  engine.border("eth0")->bsrBorderGrpDel(range);
  EXPECT_EQ(engine.borderCount("eth0", "239.1.0.0/16"), 0u);
  engine.border("eth0")->bsrBorderGrpIs(range, true);
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0");
}

TEST_F(Border, ARemovedInterfaceComesBackWithItsListAsItIsThen) {
  engine.border("eth0")->bsrBorderAclIs("list", true);
  engine.config->intfConfigDel("eth0");
  engine.rules("list", {"permit 239.9.0.0/16"});
  EXPECT_EQ(engine.borders(), "");
  engine.border("eth0")->bsrBorderAclIs("list", true);
  EXPECT_EQ(engine.borders(), "239.9.0.0/16: eth0");
}

}  // namespace
}  // namespace test
