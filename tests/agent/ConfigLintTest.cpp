#include "agent/config/ConfigLint.h"

#include <gmock/gmock.h>

namespace test {
namespace {

using pimbsr::agent::ConfigFinding;
using pimbsr::agent::ConfigReading;
using pimbsr::agent::lint;
using pimbsr::agent::readConfig;
using pimbsr::agent::TextPlace;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<std::string> lints(std::string const& text) {
  ConfigReading reading = readConfig(text, "f");
  std::vector<std::string> texts;
  for (ConfigFinding const& error : reading.errors)
    ADD_FAILURE() << textOf("f", error.at) << ": " << error.text;
  for (ConfigFinding const& finding : lint(reading))
    texts.push_back(textOf("f", finding.at) + ": " + finding.text);
  return texts;
}

#define PIM "[interface.eth0]\n"
/// A candidate that nothing is to be said of; the next key is in line 5.
#define BSR PIM "[[candidate-bsr]]\ninterface = \"eth0\"\npriority = 100\n"
#define RP PIM "[[candidate-rp]]\ninterface = \"eth0\"\n"
#define LIST(name, rules) "[access-list." name "]\nrules = [" rules "]\n"
#define PERMIT(prefix) "{action = \"permit\", prefix = \"" prefix "\"}"

struct Unwise {
  char const* name;
  char const* text;
  std::vector<char const*> expected;
};

class ConfigLint : public testing::TestWithParam<Unwise> {};

TEST_P(ConfigLint, IsReportedWithItsPlaceAndReason) {
  EXPECT_THAT(lints(GetParam().text), ElementsAreArray(GetParam().expected));
}

Unwise const unwise[] = {
    {"Nothing", PIM, {}},
    {"Candidates", BSR "[[candidate-rp]]\ninterface = \"lo\"\n", {}},
    {"NoInterface",
     "",
     {"f: no interface speaks PIM, so that nothing is heard and nothing sent; [interface.NAME] makes one"}},
    {"BitsBeyondAPrefixLength",
     BSR "groups = [\"239.1.2.0/16\"]\n",
     {"f:5:11: candidate-bsr.groups: 239.1.2.0/16 has bits beyond its prefix length, and is read as "
      "239.1.0.0/16"}},

    {"PriorityOfEveryCandidate",
     PIM
     "[[candidate-bsr]]\ninterface = \"eth0\"\npriority = 64\ngroups = [\"239.1.0.0/16\", \"239.2.0.0/16\"]",
     {"f:4:12: candidate-bsr.priority: 64 is the default of every candidate, and between "
      "equal priorities the higher address decides; give each candidate its own"}},
    {"PriorityOfEveryCandidateUnsaid",
     PIM "[[candidate-bsr]]\ninterface = \"eth0\"\nlists = [\"a\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {"f:2:1: candidate-bsr.priority: 64 is the default of every candidate, and between "
      "equal priorities the higher address decides; give each candidate its own"}},
    {"HashMaskLengthZero",
     BSR "hash-mask-length = 0",
     {"f:5:20: candidate-bsr.hash-mask-length: with 0 all groups have one hash, so that of several RPs of "
      "equal "
      "priority one serves them all"}},
    {"BsTimeoutOfABsPeriod",
     BSR "bs-period = 130",
     {"f:5:13: candidate-bsr.bs-period: 130 is not below timers.bs-timeout, 130: the BSR would be given up "
      "between two "
      "of "
      "its messages"}},
    {"BsTimeoutThatNoLossMayMeet",
     BSR "bs-period = 61",
     {"f:5:13: candidate-bsr.bs-period: timers.bs-timeout, 130, is below two intervals of 61 s and 10 s (RFC "
      "5059 "
      "section "
      "5): one lost message ends the BSR"}},
    {"BsTimeoutBelowTheUsualBsPeriod",
     PIM "[timers]\nbs-timeout = 60",
     {"f:3:14: timers.bs-timeout: 60 is not above 60 s, the default BS_Period: the BSR "
      "would be given up between two messages"}},
    {"BsTimeoutAboveTheUsualBsPeriod", PIM "[timers]\nbs-timeout = 61", {}},
    {"SzTimeoutBelowTenBsTimeouts",
     PIM "[timers]\nbs-timeout = 130\nsz-timeout = 1299",
     {"f:4:14: timers.sz-timeout: 1299 is below 1300, ten times timers.bs-timeout, which is used in its "
      "place"}},
    {"BsTimeoutAboveATenthOfTheSzTimeout",
     PIM "[timers]\nbs-timeout = 131",
     {"f:3:14: timers.sz-timeout: 1300 is below 1310, ten times timers.bs-timeout, which is used in its "
      "place"}},

    {"ListThatIsNotThereYet",
     "[interface.eth0]\nborder-lists = [\"a\"]\n[[candidate-bsr]]\ninterface = \"eth0\"\npriority = 9\nlists "
     "= "
     "[\"b\"]\n[[candidate-rp]]\ninterface = \"eth0\"\nlists = [\"c\"]\n",
     {"f:2:17: interface.eth0.border-lists: a: there is no such list yet; until there is, it permits nothing",
      "f:6:10: candidate-bsr.lists: b: there is no such list yet; until there is, it permits "
      "nothing",
      "f:9:10: candidate-rp.lists: c: there is no such list yet; until there is, it permits "
      "nothing"}},
    {"ListOfSendersThatIsNotThereYet",
     PIM "[filter]\nsender-lists = [\"a\", \"b\"]\n" LIST("a", PERMIT("10.0.0.0/8")),
     {"f:3:22: filter.sender-lists: b: there is no such list yet; until there is, it permits nothing"}},
    {"ListsThatPermitNoSender",
     PIM "[filter]\nsender-lists = [\"a\"]\n" LIST("a", "{action = \"deny\"}"),
     {"f:3:17: filter.sender-lists: these lists permit no sender; while that is so, all senders are "
      "permitted"}},
    {"ListOfRpsThatIsNotThereYet",
     PIM "[filter]\nrp-lists = [\"a\", \"b\"]\n" LIST("a", PERMIT("10.0.0.0/8")),
     {"f:3:18: filter.rp-lists: b: there is no such list yet; until there is, it permits nothing"}},
    {"ListsThatPermitNoRp",
     PIM "[filter]\nrp-lists = [\"a\"]\n" LIST("a", "{action = \"deny\"}"),
     {"f:3:13: filter.rp-lists: these lists permit no RP, so that none is preferred"}},
    {"ListOfBsrsThatIsNotThereYet",
     PIM "[filter]\nbsr-lists = [\"a\", \"b\"]\n" LIST("a", PERMIT("10.0.0.0/8")),
     {"f:3:19: filter.bsr-lists: b: there is no such list yet; until there is, it permits nothing"}},
    {"ListsThatPermitNoBsr",
     PIM "[filter]\nbsr-lists = [\"a\"]\n" LIST("a", "{action = \"deny\"}"),
     {"f:3:14: filter.bsr-lists: these lists permit no BSR; while that is so, all BSRs are permitted"}},
    {"ListOfGroupsForBsrs",
     PIM "[filter]\nbsr-lists = [\"a\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {"f:3:14: filter.bsr-lists: these lists permit no unicast address, so that the messages of every BSR "
      "are "
      "dropped",
      "f:5:10: access-list.a.rules: seq 10: it permits no unicast address, as filter.bsr-lists needs"}},
    {"RuleOfGroupsForRps",
     PIM "[filter]\nrp-lists = [\"a\"]\n" LIST("a", PERMIT("10.0.0.0/8") ", " PERMIT("224.0.0.0/4")),
     {"f:5:54: access-list.a.rules: seq 20: it permits no unicast address, as filter.rp-lists needs"}},
    {"ListOfAllAddressesForBsrs",
     PIM "[filter]\nbsr-lists = [\"a\"]\n" LIST("a", "{action = \"permit\"}"),
     {}},
    {"EveryInterfaceIsClosed",
     "[interface.eth0]\nbsm = false\n",
     {"f:1:1: interface.eth0: bsm is false on every interface that speaks PIM, so that no BSR is learned and "
      "none announced"}},
    {"BorderOfAClosedInterface",
     "[interface.eth0]\nbsm = false\nborder = [\"239.0.0.0/8\"]\n[interface.eth1]\n",
     {"f:1:1: interface.eth0: no Bootstrap Message crosses an interface with bsm = false, so that its "
      "borders "
      "are of no use"}},
    {"ListThatPermitsNoGroups",
     "[interface.eth0]\nborder-lists = [\"a\"]\n" LIST("a", PERMIT("10.0.0.0/8")),
     {"f:2:17: interface.eth0.border-lists: a: it permits no groups, so that it has no effect"}},
    {"ListOfSendersForGroups",
     RP "lists = [\"a\"]\n[filter]\nsender-lists = [\"a\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {"f:4:10: candidate-rp.lists: a: it is one of filter.sender-lists, and so read over senders; "
      "it "
      "gives no group ranges here"}},
    {"ListThatIsNotReferenced",
     PIM LIST("a", PERMIT("239.1.0.0/16")),
     {"f:2:1: access-list.a: it is not referenced"}},
    {"MaskWithTooManyHoles",
     PIM "border-lists = [\"a\"]\n" LIST(
         "a",
         PERMIT("239.1.0.0/16") ",\n{action = \"permit\", address = \"239.0.0.0\", mask = \"255.0.0.1\"}"),
     {"f:5:1: access-list.a.rules: seq 20: its mask has so many holes that it stands for 8388608 ranges; "
      "above "
      "4096 it "
      "is left out"}},

    {"CandidateOfNothing",
     BSR "groups = []\n[[candidate-rp]]\ninterface = \"eth0\"\nlists = []",
     {"f:2:1: candidate-bsr: neither groups nor lists names any, so that it has no effect",
      "f:6:1: candidate-rp: neither groups nor lists names any, so that it has no effect"}},
    {"BorderOfNothing",
     "[interface.eth0]\nborder-lists = []\n[interface.\"eth0.1\"]\nborder = []\nborder-lists = []\n",
     {"f:2:16: interface.eth0: neither border nor border-lists names any, so that it has no effect",
      "f:4:10: interface.\"eth0.1\": neither border nor border-lists names any, so that it has no "
      "effect"}},
    {"CandidateOfAnInterfaceWithoutPim",
     PIM "[[candidate-bsr]]\ninterface = \"eth1\"\npriority = 1\n[[candidate-rp]]\ninterface = \"eth1.5\"",
     {"f:3:13: candidate-bsr.interface: eth1 speaks no PIM and is no loopback; it lends its address, and "
      "speaks "
      "PIM "
      "with an [interface.eth1]",
      "f:6:13: candidate-rp.interface: eth1.5 speaks no PIM and is no loopback; it lends its address, and "
      "speaks "
      "PIM "
      "with an [interface.\"eth1.5\"]"}},
    {"CandidateOfALoopback",
     PIM "[[candidate-bsr]]\ninterface = \"lo\"\npriority = 1\n[[candidate-rp]]\ninterface = \"dummy0\"",
     {}},
    {"BorderOfAnInterfaceWithoutPim",
     PIM "[interface.lo]\npim = false\nborder = [\"239.1.0.0/16\"]",
     {"f:2:1: interface.lo: nothing crosses an interface that speaks no PIM, so that its borders are of no "
      "use"}},

    {"ZoneOfTwoLists",
     BSR "lists = [\"a\"]\n[[candidate-bsr]]\ninterface = \"eth0\"\npriority = 9\nlists = [\"b\"]\n" LIST(
         "a", PERMIT("239.1.0.0/16")) LIST("b", PERMIT("239.1.0.0/16")),
     {"f:9:10: candidate-bsr.lists: b: it permits 239.1.0.0/16, for which eth0 is a candidate BSR "
      "with "
      "other terms; of both, those count that were applied last"}},
    {"ZoneTwiceWithTheSameTerms",
     BSR "lists = [\"a\"]\ngroups = [\"239.1.0.0/16\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {}},
    {"RangeOfTwoRpsOfOnePriority",
     RP "[[candidate-rp]]\ninterface = \"lo\"\ngroups = [\"224.0.0.0/4\"]",
     {"f:6:11: candidate-rp.groups: 224.0.0.0/4: eth0 is a candidate RP of 224.0.0.0/4 with the same "
      "priority "
      "192, so that the hash splits the groups between two addresses of this router"}},
    {"RangeOfTwoRpsByLists",
     RP "lists = [\"a\"]\n[[candidate-rp]]\ninterface = \"lo\"\nlists = [\"a\"]\n" LIST(
         "a", PERMIT("239.1.0.0/16")),
     {"f:7:10: candidate-rp.lists: a: eth0 is a candidate RP of 239.1.0.0/16 with the same priority "
      "192, "
      "so that the hash splits the groups between two addresses of this router"}},
    {"RangeOfAGroupAndAListWithTwoPriorities",
     RP "groups = [\"239.1.0.0/16\"]\n[[candidate-rp]]\ninterface = \"eth0\"\npriority = 7\nlists = "
        "[\"a\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {"f:8:10: candidate-rp.lists: a: eth0 offers 239.1.0.0/16 with priority 192 too, by another group range "
      "or "
      "list; of both priorities the one counts that was applied last"}},
    {"RangeOfAGroupAndAListWithOnePriority",
     RP "groups = [\"239.1.0.0/16\"]\nlists = [\"a\"]\n" LIST("a", PERMIT("239.1.0.0/16")),
     {}},
    {"RangeOfTwoRpsOfTwoPriorities", RP "[[candidate-rp]]\ninterface = \"lo\"\npriority = 1", {}},
    {"RangesOfTwoRps", RP "[[candidate-rp]]\ninterface = \"lo\"\ngroups = [\"239.1.0.0/16\"]", {}},
    {"LinkLocalGroups",
     BSR "groups = [\"224.0.0.13/32\"]\n",
     {"f:5:11: candidate-bsr.groups: 224.0.0.13/32: link-local groups, which are never routed, have no "
      "RP"}},
    {"GroupsOfOneSource",
     RP "groups = [\"232.1.0.0/16\"]\n",
     {"f:4:11: candidate-rp.groups: 232.1.0.0/16: groups of source-specific multicast have no RP (RFC "
      "4607)"}},

    {"ChecksThatAreOff",
     PIM "[checks]\nlink-local-ttl = false\non-subnet = false\nfrom-neighbors = false",
     {"f:3:18: checks.link-local-ttl: off, messages can be forged from farther away",
      "f:4:13: checks.on-subnet: off, messages can be forged from farther away",
      "f:5:18: checks.from-neighbors: off, messages can be forged from farther away"}},
    {"OwnBsrThatIsHeard",
     PIM "[checks]\nnot-own-bsr = false",
     {"f:3:15: checks.not-own-bsr: off, a candidate that starts anew can be deposed by its own messages, "
      "which "
      "neighbors send back"}},
    {"LimitsThatAreNone",
     PIM "[limits]\npackets-per-second = 0\nhellos-per-second = 0\nadvertisements-per-second = 0\n"
         "neighbors-per-interface = 0\nlearned-zones = 0\nfragment-rps = 0\nrps = 0\nranges-per-zone = 0\n"
         "rps-per-range = 0\nrps-per-sender = 0\nranges-per-sender = 0\nbsm-bytes = 0\n"
         "advertisement-senders = 0",
     {"f:3:22: limits.packets-per-second: 0 is no bound, so that a flood takes what time and memory there is",
      "f:4:21: limits.hellos-per-second: 0 is no bound, so that a flood takes what time and memory there is",
      "f:5:29: limits.advertisements-per-second: 0 is no bound, so that a flood takes what time and memory "
      "there is",
      "f:6:27: limits.neighbors-per-interface: 0 is no bound, so that a flood takes what time and memory "
      "there is",
      "f:7:17: limits.learned-zones: 0 is no bound, so that a flood takes what time and memory there is",
      "f:8:16: limits.fragment-rps: 0 is no bound, so that a flood takes what time and memory there is",
      "f:9:7: limits.rps: 0 is no bound, so that a flood takes what time and memory there is",
      "f:10:19: limits.ranges-per-zone: 0 is no bound, so that a flood takes what time and memory there is",
      "f:11:17: limits.rps-per-range: 0 is no bound, so that a range with 256 RPs is lost in the whole "
      "domain",
      "f:12:18: limits.rps-per-sender: 0 is no bound, so that a flood takes what time and memory there is",
      "f:13:21: limits.ranges-per-sender: 0 is no bound, so that a flood takes what time and memory there "
      "is",
      "f:14:13: limits.bsm-bytes: 0 is no bound, so that a flood takes what time and memory there is",
      "f:15:25: limits.advertisement-senders: 0 is no bound, so that a flood takes what time and memory "
      "there "
      "is"}},
    {"NeighborsThatTheKernelsFilterHolds", PIM "[limits]\nneighbors-per-interface = 256", {}},
    {"NeighborsBeyondTheKernelsFilter",
     PIM "[limits]\nneighbors-per-interface = 257",
     {"f:3:27: limits.neighbors-per-interface: 257 is above 256, the neighbors that the kernel's filter "
      "separates from others: a flood can displace the packets of those beyond"}},
};

INSTANTIATE_TEST_SUITE_P(Each, ConfigLint, testing::ValuesIn(unwise),
                         [](auto const& one) { return std::string(one.param.name); });

TEST(ConfigLintTest, ExampleIsWise) {
  EXPECT_THAT(lint(pimbsr::agent::readConfigFile(PIMBSR_SOURCE_DIR "/examples/pimbsr.toml")), IsEmpty());
}

// With errors -----------------------------------------------------------------------------------------

std::vector<TextPlace> placesOf(std::vector<ConfigFinding> const& findings) {
  std::vector<TextPlace> places;
  for (ConfigFinding const& finding : findings) places.push_back(finding.at);
  return places;
}

TEST(ConfigLintTest, InvalidValueHasNoLint) {
  ConfigReading reading =
      readConfig("[[candidate-bsr]]\ninterface = \"lo\"\npriority = \"high\"\nhash-mask-length = 0\n", "f");
  EXPECT_THAT(placesOf(reading.errors), ElementsAre(TextPlace{3, 12}));
  EXPECT_THAT(placesOf(lint(reading)), ElementsAre(TextPlace{4, 20}));
}

struct Invalid {
  char const* name;
  char const* text;
};

class ErrorAlone : public testing::TestWithParam<Invalid> {};

/// Each text would have a lint, too, if its invalid value were absent.
TEST_P(ErrorAlone, IsReportedWithoutALintThatItCauses) {
  ConfigReading reading = readConfig(GetParam().text, "f");
  EXPECT_EQ(reading.errors.size(), 1u);
  std::vector<std::string> texts;
  for (ConfigFinding const& finding : lint(reading)) texts.push_back(finding.text);
  EXPECT_THAT(texts, IsEmpty());
}

Invalid const invalidTexts[] = {
    {"BorderLists", "[interface.eth0]\nborder-lists = 5.5"},
    {"GroupsOfACandidate", BSR "groups = [7]"},
    {"Lists", RP "groups = [\"239.1.0.0/16\"]\nlists = \"a\"\n" LIST("a", PERMIT("239.1.0.0/16"))},
    {"PriorityOfABsr", PIM "[[candidate-bsr]]\ninterface = \"eth0\"\nprioritty = 5"},
    {"PriorityOfAnRp", RP "[[candidate-rp]]\ninterface = \"lo\"\npriority = -1"},
    {"BsTimeout", BSR "bs-period = 70\n[timers]\nbs-timeout = -1\nsz-timeout = 700"},
    {"RuleOfAList", "[interface.eth0]\nborder-lists = [\"a\"]\n" LIST("a", "{action = 1}")},
    {"RuleOfAListOfSenders", PIM "[filter]\nsender-lists = [\"a\"]\n" LIST("a", "{action = 1}")},
    {"TableOfLists", "[interface.eth0]\nborder-lists = [\"a\"]\n[acces-list.a]\n"},
    {"TableOfInterfaces", BSR "[[candidate-rp]]\ninterface = \"eth1\"\n[interfaces.eth1]\n"},
    {"Pim", "[interface.eth1]\npim = false\nborder = [\"239.1.0.0/16\"]\n[interfaces.eth1]\n"},
};

INSTANTIATE_TEST_SUITE_P(Each, ErrorAlone, testing::ValuesIn(invalidTexts),
                         [](auto const& one) { return std::string(one.param.name); });

TEST(ConfigLintTest, OfATextThatIsNoTomlNothingIsSaid) {
  EXPECT_THAT(lint(readConfig("[timers\n", "f")), IsEmpty());
}

}  // namespace
}  // namespace test
