#include "sim/trial/Trial.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "sim/trial/ChangeWatches.h"
#include "sim/trial/RandomScenario.h"
#include "sim/trial/StatusChecks.h"
#include "sim/trial/TrialReport.h"

namespace pimbsr::sim {

using Lanet::IpAddr;
using Lanet::IpGenPrefix;

/// Seconds within which a restarted router has sent its Hellos, and has got the No-Forward BSM of the DR (RFC
/// 5059 section 3.5).
static constexpr U32 learningTime = 12;
/// Packets on one link within a second that no random network needs.
static constexpr U32 maxPackets = 500;
static constexpr U32 bsTimeout = 130;
/// Seconds from a change until all routers follow the new BSR: BS_Timeout, the longest override delay, and a
/// BS_Period each for the advertisements to the new BSR and for its message.
static constexpr U32 changeTime = bsTimeout + 24 + 60 + 60 + 30;
/// Seconds without a BSR where its power is lost: the longest override delay (RFC 5059 section 5), and the
/// flooding.
static constexpr U32 overrideTime = 25;
static constexpr U32 bsPeriod = 60;
static constexpr U32 bsMinInterval = 10;
/// The longest C_RP_Adv_Period of random networks.
static constexpr U32 crpAdvPeriod = 60;
/// The least holdtime that a BSR announces: three BS_Periods.
static constexpr U32 holdtime = 3 * bsPeriod;
/// Seconds from a BSR's first message until it names the RPs: they advertise within 3 s, and the next message
/// comes BS_Min_Interval later.
static constexpr U32 namesRps = 3 + bsMinInterval;
/// Seconds without an RP where the BSR is silent. After its last message the next BSR names the RPs before
/// they end, but for those of one kind: where the router was the way to the BSR of a scoped zone, those cut
/// off give the zone up after BS_Timeout, and their RPs are advertised to the BSR of the wider zone within a
/// C_RP_Adv_Period.
static constexpr U32 learnedAgain = bsTimeout + crpAdvPeriod + 2 * bsMinInterval - holdtime;
static_assert(bsTimeout + overrideTime + namesRps < holdtime);
/// Seconds for which RPs of a BSR last at least: their last advertisement may be a C_RP_Adv_Period old.
static constexpr U32 rpsLast = holdtime - crpAdvPeriod;

/// Seconds for which a new BSR may use other RPs than its followers: it uses what is advertised to it at
/// once, they use it from its next message on. That comes after a BS_Period where the BSR changes its terms.
static constexpr U32 announcedAfter = namesRps + 1;
/// The same where a scoped zone ends: the router whose candidacy ended has forgotten it and keeps its RPs,
/// which are advertised to the BSR of the wider zone within a C_RP_Adv_Period.
static constexpr U32 announcedWider = crpAdvPeriod + 2 * bsMinInterval;

/// Groups of all ranges that random networks have.
static std::vector<IpAddr> const& sampledGroups() {
  static std::vector<IpAddr> const groups = [] {
    std::vector<IpAddr> parsed;
    for (char const* text :
         {"224.1.1.1", "225.1.1.1", "226.1.1.1", "226.1.2.200", "232.1.1.1", "239.1.1.1", "239.64.3.1",
          "239.255.1.1", "239.255.130.1", "228.1.2.3", "228.77.1.1", "239.128.1.1"})
      parsed.push_back(IpAddr::parse(text));
    return parsed;
  }();
  return groups;
}

/// Where a BSR ends in order its last message, of priority 0, has the next one elected, and RPs stay in use.
/// One of priority 0 can't lower it: the others elect the next one after BS_Timeout; until then the former
/// BSR knows none, and its RPs are not renewed.
static OutageWatch::Bounds orderlyEnd(host::BsrCandidacy const& ends) {
  if (ends.priority != 0) return {.bsr = overrideTime};
  return {.bsr = bsTimeout + overrideTime, .rp = bsTimeout + overrideTime + namesRps - rpsLast};
}

static void append(Findings& findings, Findings const& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

static void append(Findings& findings, Findings const& more, char const* when) {
  for (std::string const& finding : more) findings.push_back(fmt::format("{}: {}", when, finding));
}

/// What a restarted router does not know that its neighbors do.
static Findings missed(Network const& network, U32 router, std::vector<IpGenPrefix> const& zones) {
  Findings findings;
  Node const& node = network.node(router);
  for (IpGenPrefix const& zone : zones) {
    if (node.router()->status()->bootstrapRouter(zone)) continue;
    findings.push_back(fmt::format("{} knows no BSR of zone {} {} s after its restart", node.name(),
                                   std::string(zone.stringValue().view()), learningTime));
  }
  return findings;
}

namespace {

/// One change of a settled network, and how long routers that keep running may be without BSR.
struct Change {
  std::string text;
  OutageWatch::Bounds bounds;
  std::optional<U32> stopped;    ///< the router that does not keep running
  U32 differs = announcedAfter;  ///< seconds for which routers may use different RPs that stay
};

/// Plays one seed.
class Trial {
 public:
  Trial(U64 seed, U32 routers, Domain domain, TrialSettings const& settings, Report* report)
      : random_(seed, routers, domain),
        domain_(domain),
        routers_(routers),
        watch_(report),
        simulation_(seed, watch_, usualKinds | repeats | sent | received | losses | availability) {
    watch_.networkIs(network());
    simulation_.network().ingressIs(settings.ingress);
    simulation_.network().correctionsAre(settings.corrections);
  }

  TrialResult run() {
    try {
      play();
    } catch (ScenarioError const& storm) {
      result_.findings.emplace_back(storm.what());
    }
    append(result_.findings, watch_.findings());
    if (network().exceptions() != 0)
      result_.findings.push_back(
          fmt::format("{} exceptions were caught in the engine", network().exceptions()));
    simulation_.end();
    result_.events = network().events();
    return result_;
  }

 private:
  Network const& network() const { return simulation_.network(); }
  void play(std::string const& text) {
    result_.scenario += text;
    simulation_.execute(text, "random");
  }
  void play();
  void compareEarly();
  void compareConfigured();
  void compare(char const* when);
  char const* drawZone(Expectation const& expected);
  Change drawChange();
  void playChange();
  void playRestart();

  RandomScenario random_;
  Domain domain_;
  U32 routers_;
  TrialReport watch_;
  Simulation simulation_;
  TrialResult result_;
};

}  // namespace

void Trial::play() {
  play(fmt::format("storm-limit {}\n", maxPackets) + random_.network() +
       fmt::format("run until {}\n", RandomScenario::faultsFrom));
  if (domain_ == Domain::corrected) compareEarly();
  play(random_.faults());
  compareConfigured();
  play(random_.healing());
  play(fmt::format("run until {}\n", RandomScenario::healedAt + settling));
  compare("healed");
  if (domain_ == Domain::corrected) playChange();
  playRestart();
}

/// A range that is advertised before its scoped zone is known is served by the BSR of a wider one until its
/// holdtime ends, so that groups of scoped zones are left out.
void Trial::compareEarly() {
  Expectation expected(network());
  std::vector<IpAddr> groups = sampledGroups();
  for (ZoneParts const& zone : expected.zones()) {
    if (zone.zone() == Lanet::allGroups()) continue;
    std::erase_if(groups, [&](IpAddr group) { return zone.zone().contains(Lanet::IpGenAddr(group)); });
  }
  append(result_.findings, expected.checkServed(groups), "before the faults");
}

static bool hasAllLinks(Network const& network, Node const& node) {
  return std::ranges::all_of(node.interfaces(),
                             [&](NodeInterface const& intf) { return network.link(intf.link).up; });
}

/// Routers follow their operators at any time. One that starts while a link is down takes the link's address
/// up with the link.
void Trial::compareConfigured() {
  for (U32 number = 0; number < routers_; ++number) {
    Node const& node = network().node(number);
    if (node.isRunning() && hasAllLinks(network(), node))
      append(result_.findings, checkConfigured(node, Configured(node)), "among the faults");
  }
}

void Trial::compare(char const* when) {
  Expectation expected(network());
  append(result_.findings, expected.check(), when);
  append(result_.findings, expected.checkServed(sampledGroups()), when);
  if (domain_ == Domain::corrected) append(result_.findings, expected.checkRanges(), when);
}

// One change ------------------------------------------------------------------------------------------

/// The zone whose BSR is changed: the scoped zone where the network has one, or all groups.
char const* Trial::drawZone(Expectation const& expected) {
  bool hasScoped = expected.partsOf(IpGenPrefix::parse(RandomNetwork::scopedZone)) != nullptr;
  return random_.rng().hits(0.3) && hasScoped ? RandomNetwork::scopedZone : RandomNetwork::global;
}

/// One of a zone's elected BSR, of a candidate beside it, or of an RP.
Change Trial::drawChange() {
  Expectation expected(network());
  std::string const zone = drawZone(expected);
  bool isGlobal = zone == RandomNetwork::global;
  ZoneParts const& parts =
      *expected.partsOf(isGlobal ? IpGenPrefix(Lanet::allGroups()) : IpGenPrefix::parse(zone.c_str()));
  Rng& rng = random_.rng();
  U32 router = rng.below(routers_);
  OutageWatch::Bounds lost{.bsr = overrideTime, .rp = learnedAgain};
  if (parts.bsrOf(router) == nullptr) return {fmt::format("crash r{}\n", router), lost, router};
  U32 elected = parts.bsrNodeOf(router);
  OutageWatch::Bounds orderly = orderlyEnd(*parts.bsrOf(router));
  std::string bsr = network().node(elected).name();
  switch (rng.below(7)) {
    case 0:
      return {fmt::format("crash {}\n", bsr), lost, elected};
    case 1:
      return {fmt::format("stop {}\n", bsr), orderly, elected};
    case 2:
      return {fmt::format("no candidate-bsr {} {}\n", bsr, zone),
              orderly,
              {},
              isGlobal ? announcedAfter : announcedWider};
    case 3:
      return {fmt::format("crash {0}\nstart {0}\n", bsr), {}, elected};
    case 4:
      return {fmt::format("restart {} keeping state\n", bsr), {.rp = learnedAgain}, elected};
    case 5:
      return {random_.removalOfRange(), {}, {}};
    default:
      return {fmt::format("candidate-bsr r{} {} address {} priority 200\n", router, zone,
                          random_.bsrAddress(router, zone)),
              {},
              {},
              router == elected ? bsPeriod + 1 : announcedAfter};
  }
}

void Trial::playChange() {
  Change change = drawChange();
  OutageWatch outages(network(), sampledGroups());
  play(change.text);
  Expectation const after(network());
  outages.expect(after);
  AgreementWatch agreement(network(), after, sampledGroups());
  if (change.stopped) {
    outages.leaveOut(*change.stopped);
    agreement.leaveOut(*change.stopped);
  }
  result_.scenario += fmt::format("run {}\n", changeTime);
  for (U32 second = 0; second < changeTime; ++second) {
    simulation_.execute("run 1\n", "random");
    outages.sample();
    agreement.sample();
  }
  append(result_.findings, outages.longerThan(change.bounds), "during one change");
  append(result_.findings, agreement.longerThan({.lasting = change.differs, .ending = holdtime}),
         "during one change");
  play(fmt::format("run {}\n", settling - changeTime));
  compare("after the change");
}

void Trial::playRestart() {
  U32 router = random_.rng().below(routers_);
  bool wasRunning = network().node(router).isRunning();
  play(fmt::format("start r{}\nrun 12\n", router));
  std::vector<IpGenPrefix> zones = zonesToLearn(Expectation(network()), network(), router);
  play(fmt::format("crash r{0}\nstart r{0}\nrun {1}\n", router, learningTime));
  append(result_.findings, missed(network(), router, zones));
  // One that joins parts of the network by its start has neighbors that have yet to learn themselves.
  if (domain_ == Domain::corrected && wasRunning)
    append(result_.findings, Expectation(network()).checkLearned(router, zones), "after the restart");
}

/// A fifth of the networks of corrected routers are mixed ones.
static Domain domainOf(U64 seed, TrialSettings const& settings) {
  if (!(settings.corrections == host::allCorrections)) return Domain::exact;
  return spread(~seed) % 5 == 0 ? Domain::mixed : Domain::corrected;
}

TrialResult runTrial(U64 seed, U32 routers, TrialSettings const& settings, Report* report) {
  return Trial(seed, routers, domainOf(seed, settings), settings, report).run();
}

}  // namespace pimbsr::sim
