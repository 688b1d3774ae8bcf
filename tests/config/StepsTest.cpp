// Steps of the reactors that find nothing to do: on what isn't there, done before, or without access lists.

#include <functional>
#include <string>

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

class Steps : public ConfigTest {
 protected:
  Steps() {
    engine.rules("list", {"permit 239.1.0.0/16"});
    engine.address("eth0", "10.0.0.1");
  }
  void configureAll() {
    engine.start();
    engine.bsrList("eth0", "list");
    engine.bsrList("eth0", "absent");
    engine.rp("eth0");
    engine.border("eth0");
    engine.lists->aclIs("empty");
    engine.bsrList("eth0", "empty");
  }
  Zet::Ptr<Bsr::ConfigSm::ZetBsrCandidateConfig> bsr() {
    return engine.machine->bsrCandidateConfig(intf("eth0"));
  }
  Zet::Ptr<Bsr::ConfigSm::ZetRpCandidateConfig> rp() {
    return engine.machine->rpCandidateConfig(intf("eth0"));
  }
};

TEST_F(Steps, OnWhatIsNotThereOrDoneChangesNothing) {
  configureAll();
  std::string const before = engine.all();
  struct Case {
    char const* name;
    std::function<void()> step;
  };
  Case const cases[] = {
      {"release of an unknown list", [&] { engine.machine->doReleaseAcl("unknown"); }},
      {"end of an unknown filter", [&] { engine.machine->doFilterAclRemove("unknown"); }},
      {"an unknown list of a border", [&] { engine.machine->activeConfig("eth0")->doAclRemove("unknown"); }},
      {"an unknown list of a BSR", [&] { bsr()->doAclRemove("unknown"); }},
      {"an unknown list of an RP", [&] { rp()->doAclRemove("unknown"); }},
      {"a BSR that is initialized", [&] { bsr()->handleInitialized(); }},
      {"an RP that is initialized", [&] { rp()->handleInitialized(); }},
      {"an RP without ranges", [&] { rp()->doDelIfEmpty(); }},
      {"a priority of an RP without ranges",
       [&] { rp()->doGroupOptionsAdd(prefix("239.1.0.0/16"), Routing::Pim::RpPriority(1)); }},
      {"all lists again", [&] { engine.machine->handleAclConfig(); }},
      {"an absent list", [&] { engine.machine->bsrConfigAclSm("absent")->handleInitialize(); }},
      {"a list without rules", [&] { engine.machine->acl("empty")->handleRule(); }},
  };
  for (Case const& c : cases) {
    c.step();
    EXPECT_EQ(engine.all(), before) << c.name;
  }
}

TEST_F(Steps, AListThatInitializesAgainOnItsInterfaceCountsOnceMore) {
  configureAll();
  bsr()->acl("list")->handleInitialize();
  EXPECT_TRUE(tracedOnce("Interface eth0 already BSR for zone. Asserting..."));
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 2u);
}

TEST_F(Steps, AListThatGoesWithoutCountsLeavesTheCandidate) {
  configureAll();
  std::string const before = engine.cbsr();
  engine.machine->cbsrPfxRefCountDel(intf("eth0"));
  bsr()->doAclRemove("list");
  EXPECT_EQ(engine.cbsr(), before);
}

TEST_F(Steps, WithoutAccessListsTheirNamesHaveNoRanges) {
  engine.machine = Bsr::configSmFactory(engine.config, engine.clear, engine.status, engine.counters,
                                        engine.sources, nullptr);
  engine.bsrList("eth0", "list");
  engine.machine->handleAclConfig("list");
  EXPECT_EQ(engine.groups("list"), "");
  EXPECT_EQ(engine.cbsr(), "");
}

/// What a former run may have left, each by itself.
struct Left {
  char const* name;
  void (*leave)(Bsr::Status& status);
};

class StepsAfter : public Steps, public testing::WithParamInterface<Left> {};

TEST_P(StepsAfter, OneEntryOfAFormerRunIsRemoved) {
  GetParam().leave(*engine.status);
  engine.start();
  EXPECT_EQ(engine.borders() + engine.cbsr() + engine.crp(), "");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
}

INSTANTIATE_TEST_SUITE_P(
    Entries, StepsAfter,
    testing::Values(Left{"Border", [](Bsr::Status& s) { s.bsBorderIs(prefix("239.9.0.0/16")); }},
                    Left{"Bsr", [](Bsr::Status& s) { s.cbsrIs(prefix("239.9.0.0/16")); }},
                    Left{"Rp", [](Bsr::Status& s) { s.crpIs(addr("10.0.0.1")); }},
                    Left{"Permit", [](Bsr::Status& s) { s.crpPermitIs(prefix("10.0.0.0/8"), true); }}),
    [](auto const& left) { return left.param.name; });

}  // namespace
}  // namespace test
