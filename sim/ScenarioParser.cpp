#include "sim/ScenarioParser.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "host/Configuration.keys.h"
#include "host/Mtus.h"
#include "sim/ScenarioInject.h"
#include "sim/ScenarioLine.h"
#include "sim/ScenarioOutput.h"
#include "sim/ScenarioSwitches.h"
#include "wire/Wire.h"

namespace pimbsr::sim {

using host::BsrTermsKeys;
using host::RpAdvertisingKeys;
using host::RpRangeTermsKeys;
using host::TimeoutsKeys;
using Lanet::IpAddr;
using Lanet::IpGenAddr;

static std::string textOf(IpGenAddr const& address) { return std::string(address.stringValue().view()); }

static std::string textOf(Lanet::IntfId const& intfId) { return std::string(intfId.stringValue().view()); }

/// The name of an access list where the line has one in place of a range; else empty.
static std::string takeList(ScenarioLine& line) {
  return line.take("list") ? line.newName("a list's name") : std::string();
}

// Links, routers and interfaces -----------------------------------------------------------------------

static void checkIsNew(ScenarioLine const& line, bool isNew, std::string const& name) {
  if (!isNew) line.fail(fmt::format("'{}' has been made already", name));
}

/// Gives an address to a router; fails if a router of the scenario has it.
static void giveAddress(ScenarioLine& line, IpGenAddr const& address, U32 router) {
  auto [owner, isFree] = line.names().owners.try_emplace(address, router);
  if (isFree) return;
  line.fail(fmt::format("{} is an address of {} already", textOf(address),
                        line.names().routers[owner->second].name));
}

static Faults readFaults(ScenarioLine& line, std::string_view key, Faults faults) {
  if (key == "loss") faults.loss = line.probability(key);
  if (key == "duplicate") faults.duplicate = line.probability(key);
  if (key == "reorder") faults.reorder = line.probability(key);
  if (key == "corrupt") faults.corrupt = line.probability(key);
  return faults;
}

static Action readLink(ScenarioLine& line) {
  LinkOptions link{.name = line.newName("a link's name")};
  checkIsNew(line, !line.names().links.find(link.name), link.name);
  if (!line.take("prefix")) line.fail("'prefix PREFIX' must follow the link's name");
  link.prefix = line.prefix("prefix");
  while (!line.atEnd()) {
    std::string_view key = line.option({"mtu", "delay", "jitter", "loss", "duplicate", "reorder", "corrupt"});
    if (key == "mtu")
      link.mtu = static_cast<U32>(line.number(key, host::Mtus::minimum, wire::maxPacketLength));
    if (key == "delay") link.delay = line.seconds(key);
    if (key == "jitter") link.jitter = line.seconds(key);
    link.faults = readFaults(line, key, link.faults);
  }
  line.names().links.add({link.name, link.prefix});
  return AddLink{link};
}

/// Reads the number of an option if that is the key, with the range that it has in a configuration file.
template <class Number>
static void readTerm(ScenarioLine& line, std::string_view option, host::ConfigKey const& key, Number& into) {
  if (option == key.name) into = static_cast<Number>(line.number(option, key.least, key.most));
}

static Action readRouter(ScenarioLine& line) {
  AddRouter add{.options = {.name = line.newName("a router's name")}};
  NodeOptions& router = add.options;
  checkIsNew(line, !line.names().routers.find(router.name), router.name);
  while (!line.atEnd()) {
    std::string_view key = line.option(
        {"loopback", TimeoutsKeys::bsTimeout.name, TimeoutsKeys::szTimeout.name, "skew", "drift", "stopped"});
    if (key == "loopback") router.loopback = line.address(key);
    readTerm(line, key, TimeoutsKeys::bsTimeout, router.bsTimeout);
    readTerm(line, key, TimeoutsKeys::szTimeout, router.szTimeout);
    if (key == "skew") router.skew = line.signedSeconds(key);
    if (key == "drift") router.drift = line.share(key);
    if (key == "stopped") add.stopped = true;
  }
  if (router.drift <= -1 || router.drift > 1)
    line.fail("drift: a clock gains more than -100% and at most 100%");
  line.names().routers.add({router.name, router.loopback, {}});
  auto number = static_cast<U32>(line.names().routers.size() - 1);
  if (!router.loopback.isEmpty()) giveAddress(line, router.loopback, number);
  return add;
}

static Action readInterface(ScenarioLine& line) {
  AddInterface add{.router = line.router()};
  add.link = line.link();
  ScenarioNames::Router& router = line.names().routers[add.router];
  ScenarioNames::Link const& link = line.names().links[add.link];
  add.options.address = line.address("an address");
  add.options.name = fmt::format("eth{}", router.interfaces.size());
  while (!line.atEnd()) {
    std::string_view key = line.option({"name", "dr-priority"});
    if (key == "name") add.options.name = line.newName(key);
    if (key == "dr-priority") add.options.drPriority = static_cast<U32>(line.number(key, 0, 0xffffffff));
  }
  IpGenAddr address(add.options.address);
  if (!link.prefix.contains(add.options.address)) {
    line.fail(fmt::format("{} is not on link {}, whose prefix is {}", textOf(address), link.name,
                          link.prefix.stringValue().view()));
  }
  giveAddress(line, address, add.router);
  for (auto const& intf : router.interfaces) {
    checkIsNew(line, intf.name != add.options.name, intf.name);
    if (intf.link == add.link) line.fail(fmt::format("{} is on link {} already", router.name, link.name));
  }
  router.interfaces.push_back({add.options.name, add.link, address});
  return add;
}

// Candidacies -----------------------------------------------------------------------------------------

/// The address of a candidacy and the interface that has it: the one given, else the loopback, else the first
/// interface's.
template <class Candidacy>
static void settleAddress(ScenarioLine& line, U32 number, Candidacy& candidacy) {
  ScenarioNames::Router const& router = line.names().routers[number];
  std::vector<std::string> valid;
  auto offer = [&](IpGenAddr const& address, std::string const& intf) {
    if (candidacy.address.isEmpty()) candidacy.address = address;
    if (candidacy.address == address) candidacy.intfId = Lanet::IntfId(intf.c_str());
    valid.push_back(textOf(address));
  };
  if (!router.loopback.isEmpty()) offer(router.loopback, "loopback");
  for (auto const& intf : router.interfaces) offer(intf.address, intf.name);
  if (valid.empty()) line.fail(fmt::format("{} has no address yet; give it an interface first", router.name));
  if (!candidacy.intfId.isEmpty()) return;
  line.failUnknown(textOf(candidacy.address), fmt::format("address of {}", router.name), valid);
}

static Action readCandidateBsr(ScenarioLine& line) {
  SetCandidateBsr set{.router = line.router()};
  std::string list = takeList(line);
  if (list.empty()) set.zone = line.range("a zone");
  while (!line.atEnd()) {
    std::string_view key = line.option({"address", BsrTermsKeys::priority.name,
                                        BsrTermsKeys::hashMaskLen.name, BsrTermsKeys::bsPeriod.name});
    if (key == "address") set.candidacy.address = line.address(key);
    readTerm(line, key, BsrTermsKeys::priority, set.candidacy.priority);
    readTerm(line, key, BsrTermsKeys::hashMaskLen, set.candidacy.hashMaskLen);
    readTerm(line, key, BsrTermsKeys::bsPeriod, set.candidacy.bsPeriod);
  }
  settleAddress(line, set.router, set.candidacy);
  if (list.empty()) return set;
  return SetListUse{.router = set.router,
                    .role = ListRole::bsr,
                    .list = list,
                    .intf = textOf(set.candidacy.intfId),
                    .bsr = set.candidacy};
}

static std::vector<Lanet::IpGenPrefix> readRanges(ScenarioLine& line) {
  std::vector<Lanet::IpGenPrefix> ranges = {line.range("a range")};
  while (line.isRangeNext()) ranges.push_back(line.range("a range"));
  return ranges;
}

static Action readCandidateRp(ScenarioLine& line) {
  SetCandidateRp set{.router = line.router()};
  std::string list = takeList(line);
  if (list.empty()) set.ranges = readRanges(line);
  while (!line.atEnd()) {
    std::string_view key =
        line.option({"address", RpRangeTermsKeys::priority.name, RpAdvertisingKeys::cRpAdvPeriod.name});
    if (key == "address") set.candidacy.address = line.address(key);
    readTerm(line, key, RpRangeTermsKeys::priority, set.candidacy.priority);
    readTerm(line, key, RpAdvertisingKeys::cRpAdvPeriod, set.candidacy.cRpAdvPeriod);
  }
  settleAddress(line, set.router, set.candidacy);
  if (list.empty()) return set;
  return SetListUse{.router = set.router,
                    .role = ListRole::rp,
                    .list = list,
                    .intf = textOf(set.candidacy.intfId),
                    .rp = set.candidacy};
}

/// The interface whose address an option names, else the usual one.
static std::string addressedInterface(ScenarioLine& line, U32 router) {
  host::RpCandidacy candidacy;
  while (!line.atEnd()) candidacy.address = line.address(line.option({"address"}));
  settleAddress(line, router, candidacy);
  return textOf(candidacy.intfId);
}

static Action noList(ScenarioLine& line, U32 router, ListRole role, std::string const& list) {
  return SetListUse{
      .router = router, .role = role, .list = list, .on = false, .intf = addressedInterface(line, router)};
}

static Action readNoCandidateBsr(ScenarioLine& line) {
  EndCandidateBsr end{.router = line.router()};
  if (std::string list = takeList(line); !list.empty()) return noList(line, end.router, ListRole::bsr, list);
  end.zone = line.range("a zone");
  if (line.atEnd()) return end;
  host::BsrCandidacy candidacy{.address = line.address(line.option({"address"}))};
  settleAddress(line, end.router, candidacy);
  end.address = candidacy.address;
  return end;
}

static Action readNoCandidateRp(ScenarioLine& line) {
  EndCandidateRp end{.router = line.router()};
  if (std::string list = takeList(line); !list.empty()) return noList(line, end.router, ListRole::rp, list);
  end.ranges = readRanges(line);
  host::RpCandidacy candidacy;
  while (!line.atEnd()) candidacy.address = line.address(line.option({"address"}));
  settleAddress(line, end.router, candidacy);
  end.address = candidacy.address;
  return end;
}

static Action borderOf(ScenarioLine& line, bool border) {
  SetBorder set{.router = line.router(), .border = border};
  set.intf = line.interface(set.router);
  std::string list = takeList(line);
  if (!list.empty()) {
    return SetListUse{.router = set.router,
                      .role = ListRole::border,
                      .list = list,
                      .on = border,
                      .intf = line.names().routers[set.router].interfaces[set.intf].name};
  }
  set.zone = line.range("a zone");
  return set;
}
static Action readBorder(ScenarioLine& line) { return borderOf(line, true); }
static Action readNoBorder(ScenarioLine& line) { return borderOf(line, false); }

static Action permitOf(ScenarioLine& line, bool permit) {
  U32 router = line.router();
  if (std::string list = takeList(line); !list.empty())
    return SetListUse{.router = router, .role = ListRole::senders, .list = list, .on = permit};
  return SetPermit{router, Lanet::IpGenPrefix(line.prefix("a prefix of senders")), permit};
}
static Action readPermit(ScenarioLine& line) { return permitOf(line, true); }
static Action readNoPermit(ScenarioLine& line) { return permitOf(line, false); }

// Access lists, addresses and timers ------------------------------------------------------------------

static Action readAccessList(ScenarioLine& line) {
  static constexpr std::string_view actions[] = {"permit", "deny"};
  U32 router = line.router();
  SetAccessList set{.router = router, .name = line.newName("a list's name"), .list = host::AccessList()};
  while (!line.atEnd()) {
    bool denies = line.oneOf("action", actions) == 1;
    Acl::IpRuleConfig rule = permitting(line.prefix("a prefix"));
    if (denies) rule.action = Acl::Action::deny;
    (*set.list)[10 * static_cast<U32>(set.list->size() + 1)] = rule;
  }
  return set;
}

static Action readNoAccessList(ScenarioLine& line) {
  U32 router = line.router();
  return SetAccessList{.router = router, .name = line.newName("a list's name"), .list = std::nullopt};
}

static Action readAddress(ScenarioLine& line) {
  SetAddress set{.router = line.router()};
  set.intf = line.interface(set.router);
  auto& intf = line.names().routers[set.router].interfaces[set.intf];
  line.names().owners.erase(intf.address);
  intf.address = {};
  if (line.take("none")) return set;
  set.address = line.address("an address, or 'none'");
  giveAddress(line, IpGenAddr(*set.address), set.router);
  intf.address = IpGenAddr(*set.address);
  return set;
}

/// A value beyond the range of the file is taken: a scenario shows what the engine does with it.
static Action readTimers(ScenarioLine& line) {
  SetTimers set{.router = line.router()};
  do {
    std::string_view key = line.option({TimeoutsKeys::bsTimeout.name, TimeoutsKeys::szTimeout.name});
    U64 value = line.number(key, 0, std::numeric_limits<U32>::max());
    (key == TimeoutsKeys::bsTimeout.name ? set.bsTimeout : set.szTimeout) = value;
  } while (!line.atEnd());
  return set;
}

static Action readRoute(ScenarioLine& line) {
  SetRoute set{.router = line.router()};
  set.prefix = line.prefix("a prefix");
  if (!line.take("via")) line.fail("'via ADDRESS' must follow the prefix");
  set.via = line.address("via");
  auto const& names = line.names();
  auto leadsThere = [&](auto const& intf) { return names.links[intf.link].prefix.contains(*set.via); };
  auto const& interfaces = names.routers[set.router].interfaces;
  if (std::any_of(interfaces.begin(), interfaces.end(), leadsThere)) return set;
  line.fail(fmt::format("via: {} is on no link of {}", textOf(*set.via), names.routers[set.router].name));
}

static Action readNoRoute(ScenarioLine& line) {
  SetRoute set{.router = line.router()};
  set.prefix = line.prefix("a prefix");
  return set;
}

// Events ----------------------------------------------------------------------------------------------

static Action readDown(ScenarioLine& line) { return SetLink{line.link(), false}; }
static Action readUp(ScenarioLine& line) { return SetLink{line.link(), true}; }
static Action readStop(ScenarioLine& line) { return SetLife{line.router(), Life::stop}; }
static Action readCrash(ScenarioLine& line) { return SetLife{line.router(), Life::crash}; }
static Action readStart(ScenarioLine& line) { return SetLife{line.router(), Life::start}; }

static Action readRestart(ScenarioLine& line) {
  U32 router = line.router();
  if (line.atEnd()) return SetLife{router, Life::restart};
  bool isKeeping = line.take("keeping");
  if (isKeeping && line.take("state")) return SetLife{router, Life::restartKeeping};
  if (isKeeping && line.take("zones")) return SetLife{router, Life::restartKeepingZones};
  line.fail("'keeping state' or 'keeping zones' may follow the router");
}

static Action readPartition(ScenarioLine& line) {
  Partition partition{{line.router()}};
  while (!line.atEnd()) partition.routers.insert(line.router());
  return partition;
}

static Action readHeal(ScenarioLine&) { return Heal{}; }

static Action readSetFaults(ScenarioLine& line) {
  SetFaults set;
  bool none = line.take("none");
  if (line.atEnd() && !none) line.word("'none', 'loss', 'duplicate', 'reorder' or 'corrupt'");
  while (!line.atEnd()) {
    std::string_view key =
        none ? line.option({"on"}) : line.option({"loss", "duplicate", "reorder", "corrupt", "on"});
    if (key == "on") set.link = line.link();
    set.faults = readFaults(line, key, set.faults);
  }
  return set;
}

static Action readStormLimit(ScenarioLine& line) {
  return SetStormLimit{line.take("none") ? 0
                                         : static_cast<U32>(line.number("packets in a second", 1, 1000000))};
}

static Action readConverge(ScenarioLine& line) { return SetConvergence{line.seconds("a time")}; }

static Action readRun(ScenarioLine& line) {
  bool until = line.take("until");
  double seconds = line.seconds("a time");
  double& now = line.names().now;
  if (until && seconds < now) line.fail(fmt::format("until: the scenario is at {} s already", now));
  now = until ? seconds : now + seconds;
  return LetRun{now};
}

// Whole statements ------------------------------------------------------------------------------------

namespace {

struct Reader {
  StatementForm form;
  Action (*read)(ScenarioLine&);  ///< null for `at`, which is read apart
  bool canWait = true;            ///< may follow `at`
};

constexpr Reader readers[] = {
    {{"link",
      "link NAME prefix PREFIX [mtu N] [delay T] [jitter T] [loss P] [duplicate P] [reorder P] [corrupt P]",
      "makes a link; delay 1ms and MTU 1500 unless given"},
     readLink,
     false},
    {{"router", "router NAME [loopback A] [bs-timeout N] [sz-timeout N] [skew T] [drift P] [stopped]",
      "makes a router, which starts at once unless stopped"},
     readRouter,
     false},
    {{"interface", "interface ROUTER LINK A [name NAME] [dr-priority N]",
      "attaches a router to a link; names are eth0, eth1 ... unless given"},
     readInterface,
     false},
    {{"candidate-bsr",
      "candidate-bsr ROUTER ZONE|list NAME [address A] [priority N] [hash-mask-length N] [bs-period N]",
      "makes a router a candidate BSR, or changes that; priority 64 unless given, higher wins"},
     readCandidateBsr},
    {{"candidate-rp", "candidate-rp ROUTER RANGE...|list NAME [address A] [priority N] [c-rp-adv-period N]",
      "makes a router a candidate RP for group ranges, or changes that; priority 192 unless given, lower "
      "wins"},
     readCandidateRp},
    {{"border", "border ROUTER LINK ZONE|list NAME", "makes a router's interface a border of a scope zone"},
     readBorder},
    {{"permit", "permit ROUTER PREFIX|list NAME",
      "takes advertisements of these senders, and of no others that are not permitted too"},
     readPermit},
    {{"access-list", "access-list ROUTER NAME [permit|deny PREFIX]...",
      "makes an access list, or replaces it; the first rule that matches an address decides on it"},
     readAccessList},
    {{"address", "address ROUTER LINK A|none", "gives an interface another address, or none"}, readAddress},
    {{"timers", "timers ROUTER [bs-timeout N] [sz-timeout N]", "changes a router's timeouts"}, readTimers},
    {{"route", "route ROUTER PREFIX via A", "adds a static unicast route"}, readRoute},
    {{"no", "no candidate-bsr ROUTER ZONE|list NAME [address A]", "ends a candidacy; an elected BSR says so"},
     readNoCandidateBsr},
    {{"no", "no candidate-rp ROUTER RANGE...|list NAME [address A]",
      "takes group ranges from a candidate RP; the last one of a priority is withdrawn at once"},
     readNoCandidateRp},
    {{"no", "no border ROUTER LINK ZONE|list NAME", "makes it a border no more"}, readNoBorder},
    {{"no", "no permit ROUTER PREFIX|list NAME", "permits these senders no more; without any, all are taken"},
     readNoPermit},
    {{"no", "no access-list ROUTER NAME",
      "removes an access list; who names it waits until it is made again"},
     readNoAccessList},
    {{"no", "no route ROUTER PREFIX", "removes a static route"}, readNoRoute},
    {{"down", "down LINK", "takes a link down, and the interfaces to it"}, readDown},
    {{"up", "up LINK", "takes a link up again"}, readUp},
    {{"stop", "stop ROUTER", "ends a router in order: it sends a goodbye Hello"}, readStop},
    {{"crash", "crash ROUTER", "takes a router's power away"}, readCrash},
    {{"start", "start ROUTER", "starts a router afresh, with its configuration"}, readStart},
    {{"restart", "restart ROUTER [keeping state|zones]",
      "takes a router's power away for a moment; the new one may start with what the former knew"},
     readRestart},
    {{"partition", "partition ROUTER...", "takes down all links between these routers and the others"},
     readPartition},
    {{"heal", "heal", "takes all links up"}, readHeal},
    {{"faults", "faults none|[loss P] [duplicate P] [reorder P] [corrupt P] [on LINK]",
      "sets the faults of one link, or of all; those not named are none"},
     readSetFaults},
    {{"storm-limit", "storm-limit N|none",
      "ends the run with an error once more than N packets are put on one link within a second"},
     readStormLimit},
    {{"converge", "converge T", "time after which unicast routing notices a change; 1s at first"},
     readConverge},
    {{"corrections", "corrections all|none|NAME... [on ROUTER...]",
      "sets which corrections of the configuration file are on, of all routers or of some; the others are "
      "off"},
     readCorrections},
    {{"checks", "checks all|none|NAME... [on ROUTER...]",
      "sets which checks of the configuration file are on, of all routers or of some; the others are off"},
     readChecks},
    {{"limits", "limits none|KEY N... [on ROUTER...]",
      "sets limits of the configuration file, of all routers or of some; the others stay, and 0 is no bound"},
     readLimits},
    {{"inject",
      "inject LINK bsm from A [bsr A] [priority N] [hash-mask-length N] [tag N] [no-forward] [to A] "
      "[group RANGE [scoped] [bidir] [rp-count N] [rp A [priority N] [holdtime N]]...]...",
      "sends a Bootstrap Message by hand, as a made-up neighbor would"},
     readInject},
    {{"inject",
      "inject LINK crp-adv from A to A [rp A] [priority N] [holdtime N] [group RANGE [scoped] [bidir]]...",
      "sends an advertisement by hand; without a group it speaks for all groups"},
     readInject},
    {{"inject", "inject LINK hello from A [to A] [holdtime N] [dr-priority N] [generation N]",
      "sends a Hello by hand; holdtime 65535 is for ever"},
     readInject},
    {{"inject", "inject LINK raw from A [to A] [checksum] HEX...",
      "sends a PIM message byte by byte; its checksum may be filled in"},
     readInject},
    {{"at", "at T STATEMENT",
      "carries out a statement at a time: any but link, router, interface, at and run"},
     nullptr,
     false},
    {{"run", "run T", "lets time pass"}, readRun, false},
    {{"run", "run until T", "lets time pass until so long after the start"}, readRun, false},
    {{"show", "show [ROUTER...] [bsr|rp-set|neighbors|counters|states|packets]",
      "shows what routers have learned, or the packets sent since the last time"},
     readShow},
    {{"show", "show rp ROUTER GROUP", "shows which RP serves a group at a router, and why"}, readShow},
    {{"report", "report KIND...", "reports such events from now on"}, readReport},
    {{"quiet", "quiet KIND...", "reports such events no more"}, readQuiet},
};

}  // namespace

std::vector<StatementForm> statementForms() {
  std::vector<StatementForm> forms;
  for (Reader const& reader : readers) forms.push_back(reader.form);
  return forms;
}

/// The key of a reader's statement: its first word, and after `no` the second too.
static std::string_view keyOf(Reader const& reader) {
  std::string_view form = reader.form.form;
  std::size_t from = reader.form.word == "no" ? 3 : 0;
  return form.substr(0, form.find(' ', from));
}

static Reader const& readerOf(ScenarioLine& line) {
  bool isNo = line.take("no");
  std::string key = (isNo ? "no " : "") + std::string(line.word("a statement"));
  std::vector<std::string> valid;
  for (Reader const& reader : readers) {
    if (keyOf(reader) == key) return reader;
    bool isRepeated = !valid.empty() && valid.back() == keyOf(reader);
    if (!isRepeated && key.starts_with("no ") == (reader.form.word == "no")) {
      valid.emplace_back(keyOf(reader));
    }
  }
  line.failUnknown(key, "statement", valid);
}

static Statement readStatement(ScenarioLine& line) {
  Statement statement{.text = line.rest()};
  Reader const* reader = &readerOf(line);
  line.formIs(reader->form.form);
  if (reader->read == nullptr) {
    statement.at = line.seconds("a time");
    double now = line.names().now;
    if (*statement.at < now) line.fail(fmt::format("at: the scenario is at {} s already", now));
    statement.text = line.rest();
    reader = &readerOf(line);
    line.formIs(reader->form.form);
    if (!reader->canWait) line.fail(fmt::format("'{}' can't follow 'at'", keyOf(*reader)));
  }
  statement.action = reader->read(line);
  line.end();
  return statement;
}

ScenarioParser::ScenarioParser() : names_(std::make_unique<ScenarioNames>()) {}

ScenarioParser::~ScenarioParser() = default;

std::vector<Statement> ScenarioParser::parse(std::string_view text, std::string const& file) {
  std::vector<Statement> statements;
  auto names = std::make_unique<ScenarioNames>(*names_);
  for (U32 number = 1; !text.empty(); ++number) {
    std::size_t end = std::min(text.find('\n'), text.size());
    ScenarioLine line(text.substr(0, end), fmt::format("{}:{}", file, number), *names);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.atEnd()) continue;
    statements.push_back(readStatement(line));
    statements.back().line = number;
  }
  names_ = std::move(names);
  return statements;
}

}  // namespace pimbsr::sim
