#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "sim/ScenarioOutput.h"
#include "sim/ScenarioParser.h"
#include "wire/Wire.h"

namespace pimbsr::sim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// The statements before each line of the tables below.
constexpr char const* before =
    "link l1 prefix 10.1.0.0/24\n"
    "link l2 prefix 10.2.0.0/24 mtu 576 delay 5ms jitter 1ms loss 5% duplicate 0.01 reorder 1%\n"
    "router r1 loopback 10.0.0.1\n"
    "router r2 bs-timeout 60 sz-timeout 200 skew -2s drift 0.1% stopped\n"
    "router r3\n"
    "interface r1 l1 10.1.0.1\n"
    "interface r2 l1 10.1.0.2 name lan0 dr-priority 7\n"
    "run 100\n";

std::vector<Statement> parse(std::string const& text) { return ScenarioParser().parse(text, "file"); }

Statement parseAfter(std::string const& line) { return parse(before + line).back(); }

template <class Kind>
Kind parseAs(std::string const& line) {
  return std::get<Kind>(parseAfter(line).action);
}

TEST(ScenarioParserTest, EveryFormIsRead) {
  for (char const* line : {"candidate-bsr r1 global",
                           "candidate-bsr r2 239.1.0.0/16 address 10.1.0.2 priority 0 bs-period 10",
                           "candidate-rp r1 global",
                           "candidate-rp r1 239.1.0.0/16 239.2.0.0/16 priority 5 c-rp-adv-period 30",
                           "border r1 l1 239.1.0.0/16",
                           "permit r1 10.0.0.0/8",
                           "route r1 0.0.0.0/0 via 10.1.0.9",
                           "no candidate-bsr r1 global",
                           "no candidate-rp r1 global address 10.1.0.1",
                           "access-list r1 scopes deny 239.1.0.0/16 permit 239.0.0.0/8",
                           "access-list r1 empty",
                           "candidate-bsr r1 list scopes address 10.1.0.1 priority 9",
                           "candidate-rp r1 list scopes priority 9 c-rp-adv-period 30",
                           "border r1 l1 list scopes",
                           "permit r1 list scopes",
                           "no candidate-bsr r1 list scopes address 10.1.0.1",
                           "no candidate-rp r1 list scopes",
                           "no border r1 l1 list scopes",
                           "no permit r1 list scopes",
                           "no access-list r1 scopes",
                           "address r1 l1 10.1.0.99",
                           "address r1 l1 none",
                           "timers r1 bs-timeout 60 sz-timeout 600",
                           "no border r1 l1 global",
                           "no permit r1 10.0.0.0/8",
                           "no route r1 0.0.0.0/0",
                           "down l1",
                           "up l1",
                           "stop r1",
                           "crash r1",
                           "start r1",
                           "partition r1 r2",
                           "heal",
                           "faults none",
                           "faults none on l1",
                           "faults loss 1 on l1",
                           "converge 0",
                           "corrections all",
                           "corrections none on r1",
                           "corrections elected-only cut-by-size on r1 r2",
                           "checks not-own-bsr",
                           "checks all on r2",
                           "limits none",
                           "limits rps-per-range 0 rps 5 on r1 r2",
                           "inject l1 bsm from 10.1.0.9",
                           "inject l1 crp-adv from 10.1.0.9 to 10.0.0.1",
                           "inject l1 hello from 10.1.0.9 holdtime 0 dr-priority 0 generation 9",
                           "at 1m41s down l1",
                           "at 500 show r1",
                           "run 1h",
                           "run until 100",
                           "show",
                           "show r1 r2 rp-set",
                           "show packets",
                           "show rp r1 239.1.1.1",
                           "report sent repeats",
                           "quiet all",
                           "  heal  # and a comment"}) {
    EXPECT_NO_THROW(parseAfter(line)) << line;
  }
}

TEST(ScenarioParserTest, EmptyLinesAndCommentsAreNoStatements) {
  EXPECT_TRUE(parse("").empty());
  EXPECT_TRUE(parse("\n  \n# link\n\t# x\n\r\n").empty());
  EXPECT_EQ(parse("\n\nheal").front().line, 3u);
}

TEST(ScenarioParserTest, LinksAndRoutersHaveWhatWasGiven) {
  std::vector<Statement> all = parse(before);
  auto const& link = std::get<AddLink>(all[1].action).options;
  EXPECT_EQ(link.name, "l2");
  EXPECT_EQ(link.mtu, 576u);
  EXPECT_DOUBLE_EQ(link.delay, 0.005);
  EXPECT_DOUBLE_EQ(link.jitter, 0.001);
  EXPECT_EQ(link.faults, (Faults{.loss = 0.05, .duplicate = 0.01, .reorder = 0.01}));
  auto const& router = std::get<AddRouter>(all[3].action);
  EXPECT_TRUE(router.stopped);
  EXPECT_EQ(router.options.bsTimeout, 60u);
  EXPECT_EQ(router.options.szTimeout, 200u);
  EXPECT_EQ(router.options.skew, -2);
  EXPECT_DOUBLE_EQ(router.options.drift, 0.001);
  auto const& intf = std::get<AddInterface>(all[6].action);
  EXPECT_EQ(intf.options.name, "lan0");
  EXPECT_EQ(intf.options.drPriority, 7u);
}

TEST(ScenarioParserTest, DefaultsAreThoseOfTheManual) {
  LinkOptions link = std::get<AddLink>(parse(before)[0].action).options;
  EXPECT_EQ(link.mtu, 1500u);
  EXPECT_DOUBLE_EQ(link.delay, 0.001);
  EXPECT_EQ(link.faults, Faults());
  auto bsr = parseAs<SetCandidateBsr>("candidate-bsr r1 global").candidacy;
  EXPECT_EQ(bsr.priority, 64);
  EXPECT_EQ(bsr.hashMaskLen, 30u);
  EXPECT_EQ(bsr.bsPeriod, 60u);
  EXPECT_EQ(parseAs<SetCandidateRp>("candidate-rp r1 global").candidacy.priority, 192u);
}

TEST(ScenarioParserTest, ACandidacyTakesTheLoopbackOrElseTheFirstInterface) {
  auto first = parseAs<SetCandidateRp>("candidate-rp r1 global").candidacy;
  EXPECT_EQ(first.address, Lanet::IpGenAddr::parse("10.0.0.1"));
  EXPECT_EQ(first.intfId, Lanet::IntfId("loopback"));
  auto second = parseAs<SetCandidateRp>("candidate-rp r2 global").candidacy;
  EXPECT_EQ(second.address, Lanet::IpGenAddr::parse("10.1.0.2"));
  EXPECT_EQ(second.intfId, Lanet::IntfId("lan0"));
  auto given = parseAs<SetCandidateRp>("candidate-rp r1 global address 10.1.0.1").candidacy;
  EXPECT_EQ(given.intfId, Lanet::IntfId("eth0"));
}

TEST(ScenarioParserTest, AnAccessListHoldsItsRulesInOrder) {
  auto list = *parseAs<SetAccessList>("access-list r1 scopes deny 239.1.0.0/16 permit 0.0.0.0/0").list;
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list.at(10).action, Acl::Action::deny);
  EXPECT_EQ(list.at(10).filter.source, Lanet::IpAddr::fromHost(0xef010000));
  EXPECT_EQ(list.at(10).filter.sourceMask, Lanet::IpAddr::fromHost(0xffff0000));
  EXPECT_EQ(list.at(20).action, Acl::Action::permit);
  EXPECT_EQ(list.at(20).filter.sourceMask, Lanet::IpAddr());
}

TEST(ScenarioParserTest, AListIsReadInPlaceOfARange) {
  auto bsr = parseAs<SetListUse>("candidate-bsr r1 list scopes priority 9");
  EXPECT_EQ(bsr.role, ListRole::bsr);
  EXPECT_EQ(bsr.list, "scopes");
  EXPECT_EQ(bsr.intf, "loopback");
  EXPECT_EQ(bsr.bsr.priority, 9);
  auto rp = parseAs<SetListUse>("candidate-rp r1 list scopes address 10.1.0.1 c-rp-adv-period 30");
  EXPECT_EQ(rp.role, ListRole::rp);
  EXPECT_EQ(rp.intf, "eth0");
  EXPECT_EQ(rp.rp.cRpAdvPeriod, 30);
  auto border = parseAs<SetListUse>("no border r1 l1 list scopes");
  EXPECT_EQ(border.role, ListRole::border);
  EXPECT_EQ(border.intf, "eth0");
  EXPECT_FALSE(border.on);
  EXPECT_EQ(parseAs<SetListUse>("permit r1 list scopes").role, ListRole::senders);
}

TEST(ScenarioParserTest, TimesAreReadInSeveralUnits) {
  struct Case {
    char const* text;
    double seconds;
  };
  for (Case const& one :
       {Case{"90", 90}, {"0.5", 0.5}, {"1m30s", 90}, {"2h", 7200}, {"250ms", 0.25}, {"1h0.5s", 3600.5}}) {
    EXPECT_DOUBLE_EQ(parseAs<SetConvergence>(std::string("converge ") + one.text).seconds, one.seconds)
        << one.text;
  }
}

TEST(ScenarioParserTest, TheClockOfAScenarioIsKnownWhileItIsRead) {
  EXPECT_EQ(parseAs<LetRun>("run 50").until, 150);
  EXPECT_EQ(parseAs<LetRun>("run until 160").until, 160);
  Statement later = parseAfter("at 120 down l1");
  EXPECT_EQ(later.at, 120);
  EXPECT_EQ(later.text, "down l1");
}

TEST(ScenarioParserTest, TextMayComeInPieces) {
  ScenarioParser parser;
  parser.parse(before, "one");
  EXPECT_EQ(std::get<SetLink>(parser.parse("down l2", "two").front().action).link, 1u);
}

TEST(ScenarioParserTest, InjectedMessagesAreWhatTheySay) {
  auto inject = parseAs<Inject>(
      "inject l1 bsm from 10.1.0.9 bsr 10.7.7.7 priority 9 hash-mask-length 20 tag 77 no-forward "
      "group 239.1.0.0/16 scoped rp-count 3 rp 10.5.5.5 priority 3 holdtime 99 rp 10.5.5.6 group global "
      "bidir");
  auto ip = wire::parseIpv4(inject.packet);
  ASSERT_TRUE(ip);
  auto bsm = wire::decodeBootstrap(ip->payload, ip->source, ip->destination);
  ASSERT_TRUE(bsm);
  EXPECT_EQ((*bsm)->srcAddr(), Lanet::IpGenAddr::parse("10.1.0.9"));
  EXPECT_EQ((*bsm)->dstAddr(), Lanet::IpGenAddr::parse("224.0.0.13"));
  EXPECT_EQ((*bsm)->bsrAddress(), Lanet::IpGenAddr::parse("10.7.7.7"));
  EXPECT_EQ((*bsm)->bsrPriority(), 9);
  EXPECT_EQ((*bsm)->hashMaskLen(), 20);
  EXPECT_EQ((*bsm)->fragmentTag(), 77);
  EXPECT_FALSE((*bsm)->forward());
  auto groups = (*bsm)->groupRpData();
  EXPECT_EQ(groups->groupDataCount(), 2u);
  auto first = groups->groupDataFirst();
  EXPECT_TRUE(first->groupFlags().scoped());
  EXPECT_EQ(first->rpCount(), 3);
  EXPECT_EQ(first->fragRpCount(), 2);
  auto rp = first->rpList(Lanet::IpGenAddr::parse("10.5.5.5"));
  ASSERT_TRUE(rp);
  EXPECT_EQ(rp->rpPriority(), 3);
  EXPECT_EQ(rp->rpHoldtime(), 99);
}

struct InvalidLine {
  char const* line;
  char const* text;
};

InvalidLine const invalidLines[] = {
    {"interfce r1 l1 10.1.0.3", "there is no statement 'interfce'; valid are link, router, interface,"},
    {"no heal", "there is no statement 'no heal'; valid are no candidate-bsr, no candidate-rp,"},
    {"no", "a statement is missing"},
    {"down l9", "there is no link 'l9'; valid are l1, l2"},
    {"stop r9", "there is no router 'r9'; valid are r1, r2, r3"},
    {"down", "a link is missing; the statement is 'down LINK'"},
    {"down l1 l2", "'l2' is too much; the statement is 'down LINK'"},
    {"link l1 prefix 10.9.0.0/24", "'l1' has been made already"},
    {"link l9", "'prefix PREFIX' must follow"},
    {"link l9 prefix 10.9.0.0", "'10.9.0.0' is no IPv4 prefix such as 10.1.2.0/24"},
    {"link l9 prefix 10.9.0.0/24 mtu 67", "mtu: '67' is no whole number from 68 to 65535"},
    {"link l9 prefix 10.9.0.0/24 color red", "there is no option 'color'; valid are mtu, delay,"},
    {"link l9 prefix 10.9.0.0/24 mtu 99 mtu 99", "'mtu' is given twice"},
    {"link l9 prefix 10.9.0.0/24 delay soon", "delay: 'soon' is no time such as 90, 1m30s or 250ms"},
    {"link l9 prefix 10.9.0.0/24 delay -1", "delay: '-1' is no time"},
    {"link l9 prefix 10.9.0.0/24 delay 1m30", "delay: '1m30' is no time"},
    {"link l9 prefix 10.9.0.0/24 loss 101%", "loss: '101%' is no probability from 0 to 1"},
    {"link ../x prefix 10.9.0.0/24", "is no name of at most 15 letters"},
    {"router r1", "'r1' has been made already"},
    {"router r9 loopback 10.1.0.1", "10.1.0.1 is an address of r1 already"},
    {"router r9 bs-timeout 11", "bs-timeout: '11' is no whole number from 12 to 1073741823"},
    {"router r9 drift 200%", "drift: a clock gains"},
    {"interface r3 l1 10.2.0.1", "10.2.0.1 is not on link l1, whose prefix is 10.1.0.0/24"},
    {"interface r3 l1 10.1.0.1", "10.1.0.1 is an address of r1 already"},
    {"interface r1 l1 10.1.0.3", "r1 is on link l1 already"},
    {"interface r1 l2 10.2.0.3 name eth0", "'eth0' has been made already"},
    {"interface r3 l1 224.0.0.1", "'224.0.0.1' is no unicast address"},
    {"interface r3 l1 10.1.0", "'10.1.0' is no IPv4 address"},
    {"limits", "a limit is missing; the statement is 'limits none|KEY N... [on ROUTER...]'"},
    {"limits rps-per-rnge 3", "there is no limit 'rps-per-rnge'; valid are none, packets-per-second,"},
    {"limits rps-per-range 256", "rps-per-range: '256' is no whole number from 0 to 255"},
    {"limits none on r9", "there is no router 'r9'; valid are r1, r2, r3"},
    {"candidate-bsr r1 10.0.0.0/8", "is no range of multicast groups such as 239.1.0.0/16"},
    {"candidate-bsr r1 global priority 256", "priority: '256' is no whole number from 0 to 255"},
    {"candidate-bsr r1 global hash-mask-length 33", "no whole number from 0 to 32"},
    {"candidate-bsr r1 global bs-period 9", "no whole number from 10 to 13652"},
    {"candidate-bsr r1 global address 10.1.0.2",
     "there is no address of r1 '10.1.0.2'; valid are 10.0.0.1, 10.1.0.1"},
    {"candidate-rp r3 global", "r3 has no address yet; give it an interface first"},
    {"candidate-rp r1", "a range is missing"},
    {"candidate-rp r1 list", "a list's name is missing"},
    {"access-list r1 scopes allow 239.0.0.0/8", "there is no action 'allow'; valid are permit, deny"},
    {"access-list r1 scopes permit", "a prefix is missing"},
    {"address r1 l1 10.1.0.2", "10.1.0.2 is an address of r2 already"},
    {"timers r1", "an option is missing"},
    {"border r1 l2 global", "there is no interface of r1 to link 'l2'; valid are l1"},
    {"border r3 l2 global", "there is no interface of r3 to link 'l2'; none has been made yet"},
    {"route r1 0.0.0.0/0 10.1.0.2", "'via ADDRESS' must follow"},
    {"route r1 0.0.0.0/0 via 10.2.0.2", "10.2.0.2 is on no link of r1"},
    {"faults", "'none', 'loss', 'duplicate', 'reorder' or 'corrupt' is missing"},
    {"faults none loss 1", "there is no option 'loss'; valid are on"},
    {"inject l1 join from 10.1.0.9", "there is no kind of message 'join'; valid are bsm, crp-adv, hello"},
    {"inject l1 bsm", "'from ADDRESS' must follow"},
    {"inject l1 crp-adv from 10.1.0.9", "'to ADDRESS' must follow"},
    {"inject l1 bsm from 10.1.0.9 group global rp-count 1 rp 10.1.1.1 rp 10.1.1.2",
     "rp-count 1 is less than the 2 RPs that follow"},
    {"inject l1 bsm from 10.1.0.9 group global rp 10.1.1.1 rp 10.1.1.1", "RP 10.1.1.1 is given twice"},
    {"inject l1 bsm from 10.1.0.9 group global holdtime 3", "there is no option of a group 'holdtime'"},
    {"at 99 heal", "at: the scenario is at 100 s already"},
    {"at 200 run 5", "'run' can't follow 'at'"},
    {"at 200 at 300 heal", "'at' can't follow 'at'"},
    {"at 200 router r9", "'router' can't follow 'at'"},
    {"run until 99", "until: the scenario is at 100 s already"},
    {"show r9", "there is no router or view 'r9'; valid are bsr, rp-set,"},
    {"show bsr r1", "'r1' is too much"},
    {"show rp r1 10.1.1.1", "'10.1.1.1' is no multicast group"},
    {"report", "a kind of event is missing"},
    {"report everything", "there is no kind of event 'everything'; valid are all, elections,"},
};

TEST(ScenarioParserTest, AnErrorNamesFileLineAndWhatIsValid) {
  for (InvalidLine const& one : invalidLines) {
    try {
      parseAfter(one.line);
      ADD_FAILURE() << one.line << " was read";
    } catch (ScenarioError const& error) {
      EXPECT_THAT(error.what(), StartsWith("file:9: ")) << one.line;
      EXPECT_THAT(error.what(), HasSubstr(one.text)) << one.line;
    }
  }
}

std::string manual() {
  std::ifstream file(PIMBSR_SOURCE_DIR "/docs/scenarios.md");
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The rows of a table of the manual: those that begin with this.
std::vector<std::string> rowsOf(std::string const& start) {
  std::vector<std::string> rows;
  std::istringstream text(manual());
  bool inTable = false;
  for (std::string line; std::getline(text, line);) {
    if (line == start) {
      inTable = true;
      std::getline(text, line);
    } else if (inTable && line.empty()) {
      break;
    } else if (inTable) {
      rows.push_back(line);
    }
  }
  return rows;
}

TEST(ManualTest, StatementsAreThoseThatTheParserKnows) {
  std::vector<std::string> expected;
  for (StatementForm const& form : statementForms()) {
    std::string text(form.form);
    for (std::size_t at = 0; (at = text.find('|', at)) != text.npos; at += 2) text.insert(at, "\\");
    expected.push_back("| `" + text + "` | " + std::string(form.sentence) + " |");
  }
  EXPECT_EQ(rowsOf("| statement | what it does |"), expected);
}

TEST(ScenarioParserTest, NoStatementOfATextWithAnErrorHasAnEffect) {
  ScenarioParser parser;
  EXPECT_THROW(parser.parse("router r1\nrun 10\nrun fast\n", "file"), ScenarioError);
  EXPECT_EQ(parser.parse("router r1\nrun until 5\n", "file").size(), 2u);
}

TEST(ManualTest, KindsOfEventsAreThoseThatCanBeReported) {
  std::vector<std::string> expected;
  for (KindName const& kind : kindNames()) {
    bool usual = (usualKinds & kind.kind) != 0;
    expected.push_back("| `" + std::string(kind.name) + "` | " + (usual ? "yes" : "") + " | " +
                       std::string(kind.sentence) + " |");
  }
  EXPECT_EQ(rowsOf("| kind | at first | what |"), expected);
}

}  // namespace
}  // namespace pimbsr::sim
