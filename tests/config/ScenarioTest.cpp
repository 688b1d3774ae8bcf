// From what an operator writes to what the machines send: configuration over a whole engine.

#include <string>

#include "crp/RpCandidateSm.h"
#include "protocol/BsrCandidateSm.h"
#include "tests/support/ConfigEngine.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

class Scenario : public ModelTest {
 protected:
  Scenario() : machines(Engine::Family::ipv4, false) {
    config.status = machines.status;
    config.address("eth0", "10.0.0.1");
    machines.addIntf("eth0");
    config.start();
    machines.start();
  }
  std::string state(std::string const& zone) const {
    auto machine = machines.root->candidateSm(prefix(zone));
    return machine ? std::string(stringValue(machine->state()).view()) : "none";
  }
  int sent() const { return static_cast<int>(machines.outbox->sent.size()); }

  ConfigEngine config;
  Engine machines;
};

TEST_F(Scenario, AConfiguredCandidateIsElectedAndOriginatesAndItsRemovalIsAnnounced) {
  config.bsrGroup("eth0", "239.0.0.0/8");
  EXPECT_EQ(state("239.0.0.0/8"), "pBsr");
  machines.runTo(200);
  EXPECT_EQ(state("239.0.0.0/8"), "eBsr");
  EXPECT_EQ(machines.elected("239.0.0.0/8")->ipAddr(), addr("10.0.0.1"));
  int before = sent();
  EXPECT_GT(before, 0);
  config.config->bsrCandidateConfigDel(intf("eth0"));
  EXPECT_EQ(sent(), before + 1);
  EXPECT_FALSE(machines.root->candidateSm(prefix("239.0.0.0/8")));
}

TEST_F(Scenario, EachRangeThatAListPermitsHasAMachineAsLongAsItsRuleExists) {
  config.rules("scopes", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
  config.bsrList("eth0", "scopes");
  EXPECT_TRUE(machines.root->candidateSm(prefix("239.1.0.0/16")));
  EXPECT_TRUE(machines.root->candidateSm(prefix("239.3.0.0/16")));
  config.delRule("scopes", 10);
  EXPECT_FALSE(machines.root->candidateSm(prefix("239.1.0.0/16")));
  EXPECT_TRUE(machines.root->candidateSm(prefix("239.3.0.0/16")));
}

TEST_F(Scenario, ACandidateRpWithPriorityHasAMachineUnderItsAddressAndMovesWithIt) {
  auto entry = config.rp("eth0");
  entry->groupRangeIs(prefix("239.0.0.0/8"), true);
  entry->groupRangeOptionsIs(prefix("239.0.0.0/8"))->priorityIs(7);
  EXPECT_TRUE(machines.root->rpCandidateSm(Bsr::CrpOptions(addr("10.0.0.1"), 7)));
  config.address("eth0", "10.0.0.2");
  EXPECT_FALSE(machines.root->rpCandidateSm(Bsr::CrpOptions(addr("10.0.0.1"), 7)));
  EXPECT_TRUE(machines.root->rpCandidateSm(Bsr::CrpOptions(addr("10.0.0.2"), 7)));
}

TEST_F(Scenario, AMessageTurnsBackAtAConfiguredBorder) {
  machines.addIntf("eth1");
  Bsm given{.groups = {{.prefix = "239.0.0.0/8", .rps = {{"10.1.1.1"}}, .flags = scopedFlag}}};
  machines.receive(given);
  EXPECT_EQ(sent(), 2);
  config.border("eth1")->bsrBorderGrpIs(prefix("239.0.0.0/8"), true);
  machines.receive(given);
  EXPECT_EQ(sent(), 3);
}

TEST_F(Scenario, ALostAddressEndsTheCandidateAndTheNextOneElectsItAnew) {
  config.bsrGroup("eth0", "239.0.0.0/8");
  machines.runTo(200);
  config.address("eth0", "0.0.0.0");
  EXPECT_FALSE(machines.root->candidateSm(prefix("239.0.0.0/8")));
  config.address("eth0", "10.0.0.1");
  machines.runTo(400);
  EXPECT_EQ(state("239.0.0.0/8"), "eBsr");
}

TEST_F(Scenario, ANewConfigSmOverTheSameStatusKeepsWhatARangeExplainsElected) {
  config.bsrGroup("eth0", "239.0.0.0/8");
  machines.runTo(200);
  int before = sent();
  auto machine = machines.root->candidateSm(prefix("239.0.0.0/8"));
  config.stop();
  machines.status->zoneGroupDelAll();
  config.start();
  EXPECT_EQ(machines.root->candidateSm(prefix("239.0.0.0/8")), machine);
  EXPECT_EQ(state("239.0.0.0/8"), "eBsr");
  EXPECT_EQ(sent(), before);
}

}  // namespace
}  // namespace test
