#include "agent/config/ConfigFile.h"

#include <gmock/gmock.h>

#include "tests/support/Messages.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

using pimbsr::agent::ConfigFinding;
using pimbsr::agent::ConfigReading;
using pimbsr::agent::maxConfigTextLength;
using pimbsr::agent::needRestart;
using pimbsr::agent::readConfig;
using pimbsr::agent::readConfigFile;
using pimbsr::agent::renamedKeys;
using pimbsr::agent::Settings;
using pimbsr::agent::textOf;
using pimbsr::agent::TextPlace;
using pimbsr::host::ConfigPart;
using pimbsr::host::ConfigPlace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::string> textsOf(ConfigReading const& reading) {
  std::vector<std::string> texts;
  for (ConfigFinding const& error : reading.errors) {
    texts.push_back(textOf(reading.file, error.at) + ": " + error.text);
  }
  return texts;
}

Settings settingsOf(std::string const& text) {
  ConfigReading reading = readConfig(text, "file");
  EXPECT_THAT(textsOf(reading), IsEmpty()) << text;
  return reading.settings;
}

TEST(ConfigFileTest, NoReadOnlySocketIsMadeWhereItsPathWouldBeTooLong) {
  std::string path = "/" + std::string(100, 'x');
  EXPECT_EQ(settingsOf("[control]\nsocket = \"" + path + "\"").readOnlySocket, "");
  EXPECT_EQ(settingsOf("[control]\nsocket = \"/x\"").readOnlySocket, "/x-read-only.sock");
}

// Meaning of each key ---------------------------------------------------------------------------------

struct Meaning {
  char const* name;
  char const* text;
  void (*change)(Settings& settings);  ///< makes of the defaults what is read
};

class ConfigMeaning : public testing::TestWithParam<Meaning> {};

TEST_P(ConfigMeaning, IsReadIntoTheSettings) {
  Settings expected;
  GetParam().change(expected);
  EXPECT_EQ(settingsOf(GetParam().text), expected);
}

auto& bsr(Settings& s, char const* intf) { return s.router.candidateBsrs[intf]; }
auto& rp(Settings& s, char const* intf) { return s.router.candidateRps[intf]; }

Acl::IpRuleConfig rule(Acl::Action action, char const* source, char const* mask) {
  Acl::IpFilter filter;
  filter.source = Lanet::IpAddr::parse(source);
  filter.sourceMask = Lanet::IpAddr::parse(mask);
  return {action, filter};
}

constexpr auto permit = Acl::Action::permit;
constexpr auto deny = Acl::Action::deny;

Meaning const meanings[] = {
    {"Nothing", "", [](Settings&) {}},
    {"Interface", "[interface.eth0]", [](Settings& s) { s.interfaces["eth0"] = {}; }},
    {"InterfaceWithADot", "[interface.\"eth0.100\"]", [](Settings& s) { s.interfaces["eth0.100"] = {}; }},
    {"InterfaceInOneLine", "interface = {eth0 = {}, eth1 = {dr-priority = 2}}",
     [](Settings& s) {
       s.interfaces = {{"eth0", {}}, {"eth1", {.drPriority = 2}}};
     }},
    {"Pim", "[interface.eth0]\npim = true\n[interface.eth1]\npim = false\nborder = [\"239.1.0.0/16\"]",
     [](Settings& s) {
       s.interfaces["eth0"] = {};
       s.router.borders["eth1"].groups[prefix("239.1.0.0/16")] = {};
     }},
    {"Hello", "[interface.eth0]\nhello = false", [](Settings& s) { s.interfaces["eth0"].hello = false; }},
    {"DrPriority", "[interface.eth0]\ndr-priority = 4294967295",
     [](Settings& s) { s.interfaces["eth0"].drPriority = 4294967295; }},
    {"HelloInterval", "[interface.eth0]\nhello-interval = 18724",
     [](Settings& s) { s.interfaces["eth0"].helloInterval = 18724; }},
    {"Border", "[interface.eth0]\nborder = [\"239.1.0.0/16\", \"239.2.0.0/16\"]",
     [](Settings& s) {
       s.interfaces["eth0"] = {};
       s.router.borders["eth0"].groups = {{prefix("239.1.0.0/16"), {}}, {prefix("239.2.0.0/16"), {}}};
     }},
    {"BorderLists", "[interface.eth0]\nborder-lists = [\"inner\", \"a.b:c_d-9\"]",
     [](Settings& s) {
       s.interfaces["eth0"] = {};
       s.router.borders["eth0"].lists = {{"inner", {}}, {"a.b:c_d-9", {}}};
     }},
    {"CandidateBsr", "[[candidate-bsr]]\ninterface = \"lo\"",
     [](Settings& s) { bsr(s, "lo").groups[prefix("224.0.0.0/4")] = {}; }},
    {"CandidateBsrOfGroups",
     "[[candidate-bsr]]\ninterface = \"lo\"\ngroups = [\"239.1.0.0/16\"]\npriority = 0\nhash-mask-length = "
     "32\n"
     "bs-period = 10",
     [](Settings& s) {
       bsr(s, "lo").groups[prefix("239.1.0.0/16")] = {.priority = 0, .hashMaskLen = 32, .bsPeriod = 10};
     }},
    {"CandidateBsrOfLists", "[[candidate-bsr]]\ninterface = \"lo\"\nlists = [\"scopes\"]\npriority = 255",
     [](Settings& s) { bsr(s, "lo").lists["scopes"].priority = 255; }},
    {"CandidateBsrOfNothing", "[[candidate-bsr]]\ninterface = \"lo\"\ngroups = []",
     [](Settings& s) { bsr(s, "lo"); }},
    {"CandidateBsrInTwoTables",
     "[[candidate-bsr]]\ninterface = \"lo\"\npriority = 1\n[[candidate-bsr]]\ninterface = \"lo\"\n"
     "groups = [\"239.1.0.0/16\"]\npriority = 2",
     [](Settings& s) {
       bsr(s, "lo").groups = {{prefix("224.0.0.0/4"), {.priority = 1}},
                              {prefix("239.1.0.0/16"), {.priority = 2}}};
     }},
    {"CandidateRp", "[[candidate-rp]]\ninterface = \"lo\"",
     [](Settings& s) { rp(s, "lo").ranges.groups[prefix("224.0.0.0/4")] = 192; }},
    {"CandidateRpInTwoTables",
     "[[candidate-rp]]\ninterface = \"lo\"\ngroups = [\"239.1.0.0/16\"]\npriority = 0\nc-rp-adv-period = 90\n"
     "[[candidate-rp]]\ninterface = \"lo\"\nlists = [\"ranges\"]\npriority = 255",
     [](Settings& s) {
       rp(s, "lo").ranges.groups[prefix("239.1.0.0/16")] = 0;
       rp(s, "lo").ranges.lists["ranges"] = 255;
       rp(s, "lo").cRpAdvPeriod = 90;
     }},
    {"CandidateRpIntervalSaidTwice",
     "[[candidate-rp]]\ninterface = \"lo\"\nc-rp-adv-period = 90\n"
     "[[candidate-rp]]\ninterface = \"lo\"\nlists = [\"ranges\"]\nc-rp-adv-period = 90",
     [](Settings& s) {
       rp(s, "lo").ranges.groups[prefix("224.0.0.0/4")] = 192;
       rp(s, "lo").ranges.lists["ranges"] = 192;
       rp(s, "lo").cRpAdvPeriod = 90;
     }},
    {"SenderLists", "[filter]\nsender-lists = [\"a\", \"b\"]",
     [](Settings& s) {
       s.router.senderLists = {"a", "b"};
     }},
    {"RpLists", "[filter]\nrp-lists = [\"a\", \"b\"]",
     [](Settings& s) {
       s.router.rpLists = {"a", "b"};
     }},
    {"BsrLists", "[filter]\nbsr-lists = [\"a\", \"b\"]",
     [](Settings& s) {
       s.router.bsrLists = {"a", "b"};
     }},
    {"ClosedInterface", "[interface.eth0]\nbsm = false",
     [](Settings& s) { s.interfaces["eth0"] = {.bsm = false}; }},
    {"AccessList", "[access-list.a]", [](Settings& s) { s.router.accessLists["a"] = {}; }},
    {"AccessListByNumbers",
     "[access-list.a]\nrules = [{seq = 20, action = \"permit\", prefix = \"10.0.0.0/8\"},\n"
     "  {seq = 0, action = \"deny\", prefix = \"10.1.0.0/16\"}]",
     [](Settings& s) {
       s.router.accessLists["a"] = {{0, rule(deny, "10.1.0.0", "255.255.0.0")},
                                    {20, rule(permit, "10.0.0.0", "255.0.0.0")}};
     }},
    {"AccessListInOrder",
     "[access-list.a]\nrules = [{action = \"deny\", prefix = \"10.1.2.3/32\"},\n"
     "  {seq = 15, action = \"deny\", prefix = \"0.0.0.0/0\"}, {action = \"permit\"}]",
     [](Settings& s) {
       s.router.accessLists["a"] = {{10, rule(deny, "10.1.2.3", "255.255.255.255")},
                                    {15, rule(deny, "0.0.0.0", "0.0.0.0")},
                                    {25, rule(permit, "0.0.0.0", "0.0.0.0")}};
     }},
    {"AccessListWithTablesOfItsOwn",
     "[[access-list.a.rules]]\naction = \"permit\"\naddress = \"10.1.2.3\"\nmask = \"255.0.255.0\"",
     [](Settings& s) {
       s.router.accessLists["a"] = {{10, rule(permit, "10.0.2.0", "255.0.255.0")}};
     }},
    {"Timers", "[timers]\nbs-timeout = 12\nsz-timeout = 120",
     [](Settings& s) {
       s.router.bsTimeout = 12;
       s.router.szTimeout = 120;
     }},
    {"LinkLocalTtl", "[checks]\nlink-local-ttl = false", [](Settings& s) { s.ingress.linkLocalTtl = false; }},
    {"OnSubnet", "[checks]\non-subnet = false", [](Settings& s) { s.ingress.onSubnet = false; }},
    {"FromNeighbors", "[checks]\nfrom-neighbors = false",
     [](Settings& s) { s.ingress.fromNeighbors = false; }},
    {"NotOwnBsr", "[checks]\nnot-own-bsr = false", [](Settings& s) { s.ingress.notOwnBsr = false; }},
    {"PacketsPerSecond", "[limits]\npackets-per-second = 7",
     [](Settings& s) { s.ingress.packetsPerSecond = 7; }},
    {"HellosPerSecond", "[limits]\nhellos-per-second = 7",
     [](Settings& s) { s.ingress.hellosPerSecond = 7; }},
    {"AdvertisementsPerSecond", "[limits]\nadvertisements-per-second = 0",
     [](Settings& s) { s.ingress.advertisementsPerSecond = 0; }},
    {"NeighborsPerInterface", "[limits]\nneighbors-per-interface = 7",
     [](Settings& s) { s.ingress.neighborsPerInterface = 7; }},
    {"LearnedZones", "[limits]\nlearned-zones = 7", [](Settings& s) { s.ingress.learnedZones = 7; }},
    {"BsmBytes", "[limits]\nbsm-bytes = 7", [](Settings& s) { s.ingress.bsmBytes = 7; }},
    {"FragmentRps", "[limits]\nfragment-rps = 7", [](Settings& s) { s.ingress.fragmentRps = 7; }},
    {"Rps", "[limits]\nrps = 0", [](Settings& s) { s.ingress.rps = 0; }},
    {"RangesPerZone", "[limits]\nranges-per-zone = 7", [](Settings& s) { s.ingress.rangesPerZone = 7; }},
    {"RpsPerRange", "[limits]\nrps-per-range = 7", [](Settings& s) { s.ingress.rpsPerRange = 7; }},
    {"RpsPerSender", "[limits]\nrps-per-sender = 7", [](Settings& s) { s.ingress.rpsPerSender = 7; }},
    {"AdvertisementSenders", "[limits]\nadvertisement-senders = 7",
     [](Settings& s) { s.ingress.advertisementSenders = 7; }},
    {"RangesPerSender", "[limits]\nranges-per-sender = 7",
     [](Settings& s) { s.ingress.rangesPerSender = 7; }},
    {"Socket", "[control]\nsocket = \"/tmp/x.sock\"",
     [](Settings& s) {
       s.controlSocket = "/tmp/x.sock";
       s.readOnlySocket = "/tmp/x-read-only.sock";
     }},
    {"NoSocket", "[control]\nsocket = \"\"", [](Settings& s) { s.controlSocket = s.readOnlySocket = ""; }},
    {"ReadOnlySocket", "[control]\nread-only-socket = \"/tmp/y\"",
     [](Settings& s) { s.readOnlySocket = "/tmp/y"; }},
    {"ReadOnlyGroup", "[control]\nread-only-group = \"pimbsr-read\"",
     [](Settings& s) { s.readOnlyGroup = "pimbsr-read"; }},
    {"ControlClients", "[control]\nclients = 64\nwatches-per-user = 40",
     [](Settings& s) {
       s.controlClients = 64;
       s.userWatches = 40;
     }},
    {"Directory", "[state]\ndirectory = \"/tmp/x y\"", [](Settings& s) { s.stateDirectory = "/tmp/x y"; }},
    {"Trace", "[trace]\n\"Pim::Bsr::Sm\" = 0\n\"Pim::Bsr::Config\" = 9",
     [](Settings& s) {
       s.traces = {{"Pim::Bsr::Sm", 0}, {"Pim::Bsr::Config", 9}};
     }},
};

INSTANTIATE_TEST_SUITE_P(Each, ConfigMeaning, testing::ValuesIn(meanings),
                         [](auto const& one) { return std::string(one.param.name); });

// Errors ----------------------------------------------------------------------------------------------

struct Wrong {
  char const* name;
  std::string text;
  char const* expected;
};

class ConfigWrong : public testing::TestWithParam<Wrong> {};

TEST_P(ConfigWrong, IsReportedWithItsPlaceAndWhatWouldBeValid) {
  EXPECT_THAT(textsOf(readConfig(GetParam().text, "f")), ElementsAre(GetParam().expected));
}

#define BSR "[[candidate-bsr]]\ninterface = \"lo\"\n"
#define RP "[[candidate-rp]]\ninterface = \"lo\"\n"
#define RULES "[access-list.a]\nrules = "
#define RULE RULES "[{action = \"permit\", "

Wrong const wrongs[] = {
    {"NoToml", "[timers\n", "f:1:8: not TOML: Error while parsing table header: expected ']', saw '\\n'"},
    {"UnknownTable", "[timer]\nx = 1", "f:1:2: timer: no such key; did you mean timers?"},
    {"UnknownKey", "[[candidate-bsr]]\ninterface = \"lo\"\nprioritty = 1",
     "f:3:1: candidate-bsr.prioritty: no such key; did you mean priority?"},
    {"FormerKey", BSR "interval = 60",
     "f:3:1: candidate-bsr.interval: is now called bs-period; 'pimbsr check --rewrite' renames it in the "
     "file"},
    {"FormerKeyBesideItsNameOfNow", "[timers]\nbs-timeout = 60\nhold-time = 60",
     "f:3:1: timers.hold-time: is now called bs-timeout, which is there too"},
    {"FormerKeyOfAnotherTable", "[state]\ninterval = 60",
     "f:2:1: state.interval: no such key; valid here is directory"},
    {"UnknownKeyLikeNoOther", "[state]\n\"a b\" = 1",
     "f:2:1: state.\"a b\": no such key; valid here is directory"},
    {"NameWithADotWithoutQuotes", "[interface.eth0.100]",
     "f:1:17: interface.eth0.100: no such key; valid here are pim, hello, dr-priority, hello-interval, bsm, "
     "border, border-lists, exact-borders; a name with a dot must be in quotes: [interface.\"eth0.100\"]"},
    {"NoTable", "timers = 5", "f:1:10: timers: read 5; valid is a table"},
    {"NoTableOfInterfaces", "interface = \"eth0\"",
     "f:1:13: interface: read the text \"eth0\"; valid is a table"},
    {"NoInterfaceTable", "[interface]\neth0 = true", "f:2:8: interface.eth0: read true; valid is a table"},
    {"NoTableOfLists", "access-list = []", "f:1:15: access-list: read a list; valid is a table"},
    {"NoTableOfTraces", "trace = 1.5", "f:1:9: trace: read the decimal number 1.5; valid is a table"},
    {"OneBracket", "[candidate-bsr]\ninterface = \"lo\"",
     "f:1:1: candidate-bsr: read a table; valid are tables that begin with [[candidate-bsr]]"},
    {"ListOfNoTables", "candidate-rp = [7]", "f:1:17: candidate-rp: read 7; valid is a table"},
    {"InterfaceNameTooLong", "[interface.a234567890123456]",
     "f:1:12: interface.\"a234567890123456\": no interface can have this name; valid is an interface's name "
     "of 1 "
     "to 15 bytes, such as \"eth0\""},
    {"InterfaceNameWithAZero", "[interface.\"a\\u0000\"]",
     "f:1:12: interface.\"a\\u0000\": no interface can have this name; valid is an interface's name of 1 to "
     "15 "
     "bytes, such as \"eth0\""},
    {"NumberOutOfRange", "[timers]\nbs-timeout = 11",
     "f:2:14: timers.bs-timeout: read 11; valid is a whole number of seconds from 12 to 1073741823"},
    {"NumberOfAnotherType", "[interface.eth0]\ndr-priority = \"high\"",
     "f:2:15: interface.eth0.dr-priority: read the text \"high\"; valid is a whole number from 0 to "
     "4294967295"},
    {"FlagOfAnotherType", "[checks]\non-subnet = 1",
     "f:2:13: checks.on-subnet: read 1; valid is true or false"},
    {"TextOfAnotherType", "[state]\ndirectory = {}",
     "f:2:13: state.directory: read a table; valid is an absolute path without control characters, or \"\" "
     "for "
     "none"},
    {"PathThatIsRelative", "[state]\ndirectory = \"var\"",
     "f:2:13: state.directory: read the text \"var\"; valid is an absolute path without control characters, "
     "or "
     "\"\" for none"},
    {"SocketPathTooLong", "[control]\nsocket = \"/" + std::string(107, 'x') + "\"",
     "f:2:10: control.socket: read the text "
     "\"/xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"...; "
     "valid is an absolute path of at most 107 bytes without control characters, or \"\" for none"},
    {"BothSocketsAtOnePath", "[control]\nsocket = \"/run/x\"\nread-only-socket = \"/run/x\"",
     "f:3:20: control.read-only-socket: the path of control.socket; valid is a path of its own, or \"\" for "
     "none"},
    {"GroupNameThatNoneHas", "[control]\nread-only-group = \"a:b\"",
     "f:2:19: control.read-only-group: read the text \"a:b\"; valid is a group's name of 1 to 32 letters, "
     "digits, '-', '_' and '.', or \"\" for none"},
    {"ListOfAnotherType", BSR "groups = \"224.0.0.0/4\"",
     "f:3:10: candidate-bsr.groups: read the text \"224.0.0.0/4\"; valid is a list of group ranges, "
     "[\"239.1.0.0/16\"]"},
    {"ItemOfAnotherType", BSR "lists = [\"a\", 5]",
     "f:3:15: candidate-bsr.lists: read 5; valid is a name of 1 to 64 letters, digits, '-', '_', '.' and "
     "':'"},
    {"ListNameThatNoneHas", "[filter]\nsender-lists = [\"a b\"]",
     "f:2:17: filter.sender-lists: read the text \"a b\"; valid is a name of 1 to 64 letters, digits, '-', "
     "'_', "
     "'.' and ':'"},
    {"NoRange", BSR "groups = [\"239.1.0.0\"]",
     "f:3:11: candidate-bsr.groups: read the text \"239.1.0.0\"; valid is a group range such as "
     "\"239.1.0.0/16\""},
    {"EmptyRange", BSR "groups = [\"\"]",
     "f:3:11: candidate-bsr.groups: read the text \"\"; valid is a group range such as \"239.1.0.0/16\""},
    {"RangeWithAZeroByte", BSR "groups = [\"239.0.0.0/8\\u0000\"]",
     "f:3:11: candidate-bsr.groups: read the text \"239.0.0.0/8\\u0000\"; valid is a group range such as "
     "\"239.1.0.0/16\""},
    {"RangeOfUnicastAddresses", BSR "groups = [\"239.0.0.0/8\", \"10.0.0.0/8\"]",
     "f:3:26: candidate-bsr.groups: 10.0.0.0/8: no range of multicast groups; a part of 224.0.0.0/4 is "
     "valid"},
    {"RangeOfIp6", "[interface.eth0]\nborder = [\"ff00::/8\"]",
     "f:2:11: interface.eth0.border: ff00::/8: not of IPv4, which alone is served"},
    {"RangeTwice", BSR "groups = [\"239.1.0.0/16\", \"239.1.0.0/16\"]",
     "f:3:27: candidate-bsr.groups: 239.1.0.0/16 is in line 3, column 11 already"},
    {"RangeTwiceInTwoTables", RP RP "groups = [\"224.0.0.0/4\"]",
     "f:5:11: candidate-rp.groups: 224.0.0.0/4 is in line 1, column 1 already"},
    {"ListTwice", RP "lists = [\"a\", \"a\"]",
     "f:3:15: candidate-rp.lists: a is in line 3, column 10 already"},
    {"MoreRpsThanRpCountHolds", "[limits]\nrps-per-range = 256",
     "f:2:17: limits.rps-per-range: read 256; valid is a whole number from 0 to 255"},
    {"RpListTwice", "[filter]\nrp-lists = [\"a\",\n  \"a\"]",
     "f:3:3: filter.rp-lists: a is in line 2, column 13 already"},
    {"BsrListTwice", "[filter]\nbsr-lists = [\"a\",\n  \"a\"]",
     "f:3:3: filter.bsr-lists: a is in line 2, column 14 already"},
    {"SenderListTwice", "[filter]\nsender-lists = [\"a\",\n  \"a\"]",
     "f:3:3: filter.sender-lists: a is in line 2, column 17 already"},
    {"CandidateWithoutInterface", "[[candidate-bsr]]\npriority = 1",
     "f:1:1: candidate-bsr.interface: not there, and needed; valid is an interface's name of 1 to 15 bytes, "
     "such "
     "as \"eth0\""},
    {"CandidateOfANameThatNoInterfaceHas", "[[candidate-rp]]\ninterface = \"a/b\"",
     "f:2:13: candidate-rp.interface: read the text \"a/b\"; valid is an interface's name of 1 to 15 bytes, "
     "such "
     "as \"eth0\""},
    {"BsrPriorityOfNone", BSR "priority = 256",
     "f:3:12: candidate-bsr.priority: read 256; valid is a whole number from 0 to 255"},
    {"RangeOnTwoInterfaces", BSR "[[candidate-bsr]]\ninterface = \"m\"",
     "f:3:1: candidate-bsr.groups: 224.0.0.0/4: claimed by lo already; one interface may claim it"},
    {"ListOnTwoInterfaces", BSR "lists = [\"a\"]\n[[candidate-bsr]]\ninterface = \"m\"\nlists = [\"a\"]",
     "f:6:10: candidate-bsr.lists: a: claimed by lo already; one interface may claim it"},
    {"ZoneOfAGroupAndOfAListOnTwoInterfaces",
     BSR "[[candidate-bsr]]\ninterface = \"m\"\nlists = [\"a\"]\n" RULE "prefix = \"224.0.0.0/4\"}]",
     "f:5:10: candidate-bsr.lists: a: permits 224.0.0.0/4, which candidate-bsr lo, group 224.0.0.0/4 claims "
     "already; one interface may claim it"},
    {"TwoIntervalsOfOneRp", RP "c-rp-adv-period = 60\n" RP "lists = [\"a\"]\nc-rp-adv-period = 90",
     "f:7:19: candidate-rp.c-rp-adv-period: read 90; all that lo offers has one period, and that is 60 in "
     "line 3"},
    {"ListWithABlank", "[access-list.\"a b\"]",
     "f:1:14: access-list.\"a b\": no list can have this name; valid are 1 to 64 letters, digits, '-', '_', "
     "'.' "
     "and ':'"},
    {"RulesOfAnotherType", RULES "true",
     "f:2:9: access-list.a.rules: read true; valid is a list of rules, [{action = \"permit\", prefix = "
     "\"239.1.0.0/16\"}]"},
    {"RuleOfAnotherType", RULES "[true]", "f:2:10: access-list.a.rules: read true; valid is a table"},
    {"RuleWithoutAction", RULES "[{prefix = \"10.0.0.0/8\"}]",
     "f:2:10: access-list.a.rules.action: not there, and needed; valid is \"permit\" or \"deny\""},
    {"UnknownAction", RULES "[{action = \"allow\"}]",
     "f:2:20: access-list.a.rules.action: read the text \"allow\"; valid is \"permit\" or \"deny\""},
    {"UnknownKeyOfARule", RULE "port = 1}]",
     "f:2:30: access-list.a.rules.port: no such key; valid here are seq, action, prefix, address, mask"},
    {"PrefixOfARule", RULE "prefix = \"10.0.0.0/33\"}]",
     "f:2:39: access-list.a.rules.prefix: read the text \"10.0.0.0/33\"; valid is an IPv4 prefix such as "
     "\"10.1.0.0/16\""},
    {"PrefixOfIp6", RULE "prefix = \"2001:db8::/32\"}]",
     "f:2:39: access-list.a.rules.prefix: read the text \"2001:db8::/32\"; valid is an IPv4 prefix such as "
     "\"10.1.0.0/16\""},
    {"AddressWithoutMask", RULE "address = \"10.0.0.0\"}]",
     "f:2:40: access-list.a.rules.address: is there without mask; both are needed"},
    {"MaskWithoutAddress", RULE "mask = \"255.0.0.0\"}]",
     "f:2:37: access-list.a.rules.mask: is there without address; both are needed"},
    {"AddressOfIp6", RULE "mask = \"255.0.0.0\", address = \"::\"}]",
     "f:2:60: access-list.a.rules.address: read the text \"::\"; valid is an IPv4 address such as "
     "\"10.1.2.3\""},
    {"PrefixBesideAddress", RULE "mask = \"255.0.0.0\", address = \"10.0.0.0\", prefix = \"10.0.0.0/8\"}]",
     "f:2:81: access-list.a.rules.prefix: is there beside an address with its mask; one of both is valid"},
    {"SequenceTwice", RULE "prefix = \"10.0.0.0/8\"},\n  {seq = 10, action = \"deny\"}]",
     "f:3:10: access-list.a.rules.seq: 10 is in line 2, column 10 already"},
    {"SequenceTooHigh", RULE "seq = 4294967290},\n  {action = \"deny\"}]",
     "f:3:3: access-list.a.rules.seq: not there, and 4294967300 would be too much; valid is a whole number "
     "from "
     "0 to 4294967295"},
    {"UnknownHandle", "[trace]\n\"Pim::Bsr::SM\" = 1",
     "f:2:1: trace.\"Pim::Bsr::SM\": no such handle; did you mean Pim::Bsr::Sm?"},
    {"LevelOutOfRange", "[trace]\n\"Pim::Bsr::Sm\" = 10",
     "f:2:18: trace.\"Pim::Bsr::Sm\": read 10; valid is a whole number from 0 to 9"},
};

INSTANTIATE_TEST_SUITE_P(Each, ConfigWrong, testing::ValuesIn(wrongs),
                         [](auto const& one) { return std::string(one.param.name); });

TEST(ConfigFileTest, UnknownHandleLikeNoOtherIsAnsweredWithAll) {
  ConfigReading reading = readConfig("[trace]\nx = 1", "f");
  ASSERT_THAT(reading.errors, SizeIs(1));
  EXPECT_THAT(reading.errors[0].text, testing::StartsWith("trace.x: no such handle; valid are "));
  EXPECT_THAT(reading.errors[0].text, testing::HasSubstr("Pim::Bsr::CandidateSm"));
}

TEST(ConfigFileTest, ErrorsAreReportedInTheOrderOfTheFile) {
  ConfigReading reading = readConfig(
      "[timers]\nbs-timeout = 1\n[[candidate-bsr]]\ninterface = \"lo\"\ngroups = [\"10.0.0.0/8\", 7]\n"
      "priority = 1000\ninterval = false\n[[candidate-bsr]]\n[colour]\n[interface.eth0]\npim = 1\n",
      "f");
  std::vector<Zet::U32> lines;
  for (ConfigFinding const& error : reading.errors) lines.push_back(error.at.line);
  EXPECT_THAT(lines, ElementsAre(2, 5, 5, 6, 7, 8, 9, 11));
  EXPECT_FALSE(reading.isSound());
}

TEST(ConfigFileTest, BitsBeyondAPrefixLengthAreARemark) {
  ConfigReading reading =
      readConfig("[interface.eth0]\nborder = [\"239.1.2.3/16\", \"239.2.0.0/16\"]\n", "f");
  EXPECT_THAT(reading.errors, IsEmpty());
  EXPECT_THAT(reading.remarks,
              ElementsAre(ConfigFinding{
                  {2, 11},
                  "interface.eth0.border: 239.1.2.3/16 has bits beyond its prefix length, and is "
                  "read as 239.1.0.0/16"}));
  EXPECT_TRUE(reading.settings.router.borders["eth0"].groups.contains(prefix("239.1.0.0/16")));
}

TEST(ConfigFileTest, PlacesOfWhatIsNotWrittenAreThoseOfItsWhole) {
  ConfigReading reading =
      readConfig("[[candidate-bsr]]\ninterface = \"lo\"\npriority = 5\n[limits]\nrps = 1\n", "f");
  ConfigPlace const bsr{.part = ConfigPart::candidateBsr, .name = "lo"};
  ConfigPlace const limits{.part = ConfigPart::limits};
  ConfigPlace const timers{.part = ConfigPart::timers};
  EXPECT_EQ(reading.places.find(bsr.group(prefix("224.0.0.0/4")).at("priority")), (TextPlace{3, 12}));
  EXPECT_EQ(reading.places.find(bsr.group(prefix("224.0.0.0/4")).at("bs-period")), (TextPlace{1, 1}));
  EXPECT_EQ(reading.places.find(bsr.group(prefix("239.0.0.0/8")).at("bs-period")), (TextPlace{1, 1}));
  EXPECT_EQ(reading.places.find(limits.at("rps")), (TextPlace{5, 7}));
  EXPECT_EQ(reading.places.find(limits.at("learned-zones")), (TextPlace{4, 1}));
  EXPECT_EQ(reading.places.find(timers.at("bs-timeout")), TextPlace());
}

// Former names ----------------------------------------------------------------------------------------

TEST(ConfigFileTest, FormerKeysAreRenamedAtTheirPlacesAndAllElseStays) {
  std::string const former =
      "\xef\xbb\xbf# interval = 1 \xc3\xa4\n[[candidate-bsr]] # hold-time\ninterface = \"lo\"\n"
      "  interval=60# hold-time\r\npriority = 5\n[[candidate-rp]]\n\"interval\" = 90\ninterface = "
      "'interval'\n"
      "[timers]\n'hold-time' = 200\n\"\\u007aone-timeout\" = 2000\n";
  ConfigReading reading = readConfig(former, "f");
  EXPECT_THAT(reading.errors, SizeIs(4));
  std::string const renamed = renamedKeys(former, reading.renames);
  EXPECT_EQ(renamed,
            "\xef\xbb\xbf# interval = 1 \xc3\xa4\n[[candidate-bsr]] # hold-time\ninterface = \"lo\"\n"
            "  bs-period=60# hold-time\r\npriority = 5\n[[candidate-rp]]\n\"c-rp-adv-period\" = 90\n"
            "interface = 'interval'\n[timers]\n'bs-timeout' = 200\n\"\\u007aone-timeout\" = 2000\n");
  EXPECT_THAT(textsOf(readConfig(renamed, "f")),
              ElementsAre("f:11:1: timers.zone-timeout: is now called sz-timeout; 'pimbsr check --rewrite' "
                          "renames it in the file"));
}

TEST(ConfigFileTest, FormerKeysOfEveryFormAreRenamed) {
  std::pair<char const*, char const*> const texts[] = {
      {"timers.hold-time = 60", "timers.bs-timeout = 60"},
      {"timers . \"hold-time\" = 60", "timers . \"bs-timeout\" = 60"},
      {"timers = {hold-time = 60, zone-timeout = 600}", "timers = {bs-timeout = 60, sz-timeout = 600}"},
      {"candidate-rp = [{interface = \"lo\", interval = 5}]",
       "candidate-rp = [{interface = \"lo\", c-rp-adv-period = 5}]"},
  };
  for (auto const& [former, renamed] : texts) {
    EXPECT_EQ(renamedKeys(former, readConfig(former, "f").renames), renamed);
    EXPECT_TRUE(readConfig(renamed, "f").isSound()) << renamed;
  }
}

// Files -----------------------------------------------------------------------------------------------

TEST(ConfigFileTest, FileIsReadByItsName) {
  ScratchFolder folder;
  std::string file = folder.write("file.toml", "[timers]\nbs-timeout = 60\nzone = 1\n");
  ConfigReading reading = readConfigFile(file);
  EXPECT_EQ(reading.settings.router.bsTimeout, 60u);
  EXPECT_THAT(textsOf(reading),
              ElementsAre(file + ":3:1: timers.zone: no such key; valid here are bs-timeout, sz-timeout"));
}

TEST(ConfigFileTest, FileThatCannotBeReadIsAnErrorWithoutAPlace) {
  ScratchFolder folder;
  std::string missing = folder.file("none.toml");
  EXPECT_THAT(textsOf(readConfigFile(missing)),
              ElementsAre(missing + ": cannot be read: No such file or directory"));
  EXPECT_THAT(textsOf(readConfigFile(folder.path())),
              ElementsAre(folder.path() + ": cannot be read: no regular file"));
  EXPECT_THAT(textsOf(readConfigFile("/dev/zero")),
              ElementsAre("/dev/zero: cannot be read: no regular file"));
  std::string huge = folder.write("file.toml", std::string(maxConfigTextLength + 10, '\n'));
  EXPECT_THAT(textsOf(readConfigFile(huge)),
              ElementsAre(huge + ": longer than 1048576 bytes, which no configuration is"));
}

TEST(ConfigFileTest, LongestFileIsRead) {
  ScratchFolder folder;
  std::string text = "[timers]\nbs-timeout = 60\n";
  text.resize(maxConfigTextLength, '\n');
  EXPECT_TRUE(readConfigFile(folder.write("file.toml", text)).isSound());
}

TEST(ConfigFileTest, ExampleHasNoError) {
  ConfigReading reading = readConfigFile(PIMBSR_SOURCE_DIR "/examples/pimbsr.toml");
  EXPECT_THAT(textsOf(reading), IsEmpty());
  EXPECT_EQ(reading.settings.interfaces.size(), 1u);
  EXPECT_EQ(reading.settings.router.candidateBsrs.size(), 1u);
  EXPECT_EQ(reading.settings.router.candidateRps.size(), 1u);
}

// Restarts --------------------------------------------------------------------------------------------

TEST(ConfigFileTest, SocketAndFolderNeedARestart) {
  Settings from;
  Settings to;
  to.router.bsTimeout = 60;
  to.interfaces["eth0"] = {};
  EXPECT_THAT(needRestart(from, to), IsEmpty());
  to.controlSocket = "";
  EXPECT_THAT(needRestart(from, to), ElementsAre("control.socket"));
  to.stateDirectory = "/tmp";
  EXPECT_THAT(needRestart(from, to), ElementsAre("control.socket", "state.directory"));
  to.readOnlySocket = "";
  to.readOnlyGroup = "x";
  to.controlClients = 64;
  to.userWatches = 13;
  EXPECT_THAT(needRestart(from, to),
              ElementsAre("control.socket", "control.read-only-socket", "control.read-only-group",
                          "control.clients", "control.watches-per-user", "state.directory"));
}

}  // namespace
}  // namespace test
