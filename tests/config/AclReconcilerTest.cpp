// Access lists in use: what their records hold, and what their users hear, as rules and lists come and go.

#include <string>
#include <vector>

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

/// Notes the group ranges of a record as they come and go.
class RecordWatch : public Bsr::BsrConfigAcl::NotifieeConst {
 public:
  void onGrpPrefix(Lanet::IpGenPrefix const& key) override {
    heard.push_back((notifier()->grpPrefix(key) ? "+" : "-") + std::string(key.stringValue().view()));
  }
  void onPrefix(Lanet::IpGenPrefix const& key) override {
    heard.push_back((notifier()->prefix(key) ? "+sender " : "-sender ") +
                    std::string(key.stringValue().view()));
  }
  Texts heard;
};

class Lists : public ConfigTest {
 protected:
  /// Makes a border use a list and begins to watch its record.
  void use(std::string const& list) {
    engine.start();
    engine.border("eth0")->bsrBorderAclIs(list.c_str(), true);
    watch->notifierIs(engine.machine->bsrConfigAcl(list.c_str()));
    forget();
  }
  Texts heard() { return std::exchange(watch->heard, {}); }

  Zet::Ptr<RecordWatch> watch = Zet::make<RecordWatch>();
};

TEST_F(Lists, AListThatIsNotReferencedHasNoRecord) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  engine.start();
  engine.rule("list", 20, "permit 239.2.0.0/16");
  EXPECT_EQ(engine.groups("list"), "none");
  EXPECT_TRUE(engine.machine->acl("list"));
}

TEST_F(Lists, TheFirstUserLoadsTheListAndTheLastLetsItGo) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  engine.start();
  engine.border("eth0")->bsrBorderAclIs("list", true);
  EXPECT_EQ(engine.groups("list"), "239.1.0.0/16");
  EXPECT_TRUE(tracedOnce("Acl name found in BSR config list"));
  EXPECT_TRUE(tracedOnce("Acl name found in ACL config"));
  EXPECT_TRUE(tracedOnce("Added prefix 239.1.0.0/16 to BsrConfigAcl object for acl list"));
  engine.border("eth1")->bsrBorderAclIs("list", true);
  engine.border("eth0")->bsrBorderAclDel("list");
  EXPECT_EQ(engine.groups("list"), "239.1.0.0/16");
  engine.border("eth1")->bsrBorderAclDel("list");
  EXPECT_EQ(engine.groups("list"), "none");
}

TEST_F(Lists, NamedBeforeItExistsAListIsTakenUpWhenItAppears) {
  use("list");
  EXPECT_EQ(engine.groups("list"), "");
  engine.rules("list", {"permit 239.1.0.0/16"});
  EXPECT_EQ(engine.groups("list"), "239.1.0.0/16");
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0");
  EXPECT_TRUE(engine.machine->bsrConfigAclSm("list")->initialize());
}

TEST_F(Lists, TheFirstAppearanceOfANamedListLoadsItAndLaterOnesDont) {
  use("list");
  engine.lists->aclIs("list");
  EXPECT_TRUE(tracedOnce("Acl name found in ACL config"));
  engine.lists->aclDel("list");
  engine.lists->aclIs("list");
  EXPECT_TRUE(tracedOnce("Acl name found in ACL config"));
}

TEST_F(Lists, ARemovedListTakesItsPrefixesFromItsUsersAndItsReturnBringsThemBack) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  engine.lists->aclDel("list");
  EXPECT_EQ(engine.groups("list"), "");
  EXPECT_EQ(engine.borders(), "");
  EXPECT_TRUE(engine.machine->bsrConfigAcl("list")->borderIntf(intf("eth0")));
  EXPECT_FALSE(engine.machine->acl("list"));
  engine.rules("list", {"permit 239.2.0.0/16"});
  EXPECT_EQ(engine.borders(), "239.2.0.0/16: eth0");
}

TEST_F(Lists, AChangedRuleReportsOnlyTheChange) {
  engine.rules("list", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
  use("list");
  engine.rule("list", 30, "permit 239.5.0.0/16");
  EXPECT_EQ(heard(), Texts{"+239.5.0.0/16"});
  engine.delRule("list", 10);
  EXPECT_EQ(heard(), Texts{"-239.1.0.0/16"});
  EXPECT_EQ(engine.groups("list"), "239.3.0.0/16 239.5.0.0/16");
}

TEST_F(Lists, AReplacedRuleBringsTheNewPrefixBeforeTheOldOneGoes) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  engine.rule("list", 10, "permit 239.2.0.0/16");
  EXPECT_EQ(heard(), (Texts{"+239.2.0.0/16", "-239.1.0.0/16"}));
  EXPECT_EQ(engine.borders(), "239.2.0.0/16: eth0");
  EXPECT_TRUE(tracedOnce("Adding group 239.1.0.0/16 to group list to be deleted."));
  EXPECT_TRUE(tracedOnce("Permit Rule Added to ACL list: Adding 239.2.0.0/16 to bsrConfigAcl"));
  EXPECT_TRUE(tracedOnce("Group added to BsrConfigAcl Map 239.2.0.0/16"));
  EXPECT_TRUE(tracedOnce("Deleting group 239.1.0.0/16 from acl list"));
  EXPECT_TRUE(tracedOnce("Group deleted from the BsrConfigAcl Map 239.1.0.0/16"));
}

TEST_F(Lists, ANewVersionIsTakenUpAsAWholeAndNoVersionLeavesTheRecordAlone) {
  engine.rules("list", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
  use("list");
  engine.rules("list", {"permit 239.5.0.0/16", "permit 239.3.0.0/16"});
  EXPECT_EQ(heard(), (Texts{"+239.5.0.0/16", "-239.1.0.0/16"}));
  engine.lists->acl("list")->currCfgDel();
  EXPECT_EQ(heard(), Texts());
  EXPECT_EQ(engine.groups("list"), "239.3.0.0/16 239.5.0.0/16");
}

TEST_F(Lists, AVersionThatWasReplacedIsHeardNoMore) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  auto former = engine.lists->acl("list")->currCfg();
  engine.rules("list", {"permit 239.3.0.0/16"});
  heard();
  forget();
  former->ruleBySequenceDelAll();
  EXPECT_EQ(context.tracedBy("ConfigSm"), Texts());
}

TEST_F(Lists, AListWithoutRulesPermitsNothing) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  engine.rules("list", {});
  EXPECT_EQ(heard(), Texts{"-239.1.0.0/16"});
  EXPECT_EQ(engine.borders(), "");
}

TEST_F(Lists, RulesActInTheOrderOfTheirNumbersHoweverTheyWereWritten) {
  engine.rules("list", {});
  engine.start();
  engine.rule("list", 300, "permit 239.0.0.0/8");
  engine.rule("list", 256, "deny 239.128.0.0/9");
  engine.rule("list", 7, "permit 239.192.0.0/16");
  engine.border("eth0")->bsrBorderAclIs("list", true);
  EXPECT_EQ(engine.groups("list"), "239.0.0.0/9 239.192.0.0/16");
}

TEST_F(Lists, ANumberThatNamesNoRuleDoesNothing) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  engine.lists->acl("list")->currCfg()->ruleBySequenceIs(5, Acl::UniqueId(999));
  EXPECT_EQ(heard(), Texts());
}

TEST_F(Lists, ARuleIsReadOnlyWhenANumberNamesItAnew) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  use("list");
  auto list = engine.lists->acl("list");
  list->ipRuleByIdIs(list->currCfg()->ruleBySequence(10), aclRule("permit 239.9.0.0/16"));
  EXPECT_EQ(engine.groups("list"), "239.1.0.0/16");
  engine.rule("list", 20, "permit 239.3.0.0/16");
  EXPECT_EQ(engine.groups("list"), "239.3.0.0/16 239.9.0.0/16");
}

TEST_F(Lists, AnExceptionFromAUserDoesntKeepTheOthersFromHearing) {
  class Raising : public Bsr::BsrConfigAcl::NotifieeConst {
   public:
    void onGrpPrefix(Lanet::IpGenPrefix const&) override { Zet::throwRangeException("raised"); }
  };
  use("list");
  auto raising = Zet::make<Raising>();
  raising->notifierIs(engine.machine->bsrConfigAcl("list"));
  engine.rules("list", {"permit 239.1.0.0/16"});
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0");
  expectedExceptions = 1;
}

// Roles together --------------------------------------------------------------------------------------

TEST_F(Lists, OneRuleReachesBordersThenCandidateBsrsThenCandidateRps) {
  engine.address("eth0", "10.0.0.1");
  engine.rules("list", {});
  engine.bsrList("eth0", "list");
  engine.rp("eth0")->aclIs("list", true);
  use("list");
  engine.rule("list", 10, "permit 239.1.0.0/16");
  Texts seen;
  for (std::string const& text : context.tracedBy("ConfigSm")) {
    if (text.starts_with("Writing to Status")) seen.push_back(text);
  }
  EXPECT_EQ(seen, (Texts{"Writing to Status for 239.1.0.0/16 and interface  eth0",
                         "Writing to Status for cbsr in zone 239.1.0.0/16 with key  239.1.0.0/16",
                         "Writing to Status for C-RP with key  239.1.0.0/16"}));
}

using ListsDeathTest = Lists;

TEST_F(ListsDeathTest, AnInterfaceThatUsesAListWithoutACandidateEndsTheProcess) {
  use("list");
  engine.machine->bsrConfigAcl("list")->cbsrIntfIs(intf("eth9"), true);
  EXPECT_DEATH(engine.rules("list", {"permit 239.1.0.0/16"}), "cbsrConfigSm");
}

TEST_F(Lists, AnInterfaceThatUsesAListInAnotherRoleWithoutAReactorIsPassedOver) {
  use("list");
  engine.machine->bsrConfigAcl("list")->borderIntfIs(intf("eth9"), true);
  engine.machine->bsrConfigAcl("list")->crpIntfIs(intf("eth9"), true);
  engine.rules("list", {"permit 239.1.0.0/16"});
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0");
  EXPECT_EQ(engine.crp(), "");
}

}  // namespace
}  // namespace test
