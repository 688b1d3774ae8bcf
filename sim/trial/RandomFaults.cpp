#include "sim/trial/RandomFaults.h"

#include <algorithm>
#include <span>

#include "host/Configuration.keys.h"

namespace pimbsr::sim {

/// An address that no router of a network has.
static constexpr char const* stranger = "198.51.100.7";

RandomFaults::RandomFaults(Rng& rng, RandomNetwork& network) : rng_(rng), network_(network) {
  bool isCorrected = network_.domain() == Domain::corrected;
  addLine(text_, "run until {}", from);
  std::string corruption = isCorrected && rng_.hits(0.5) ? fmt::format(" corrupt {}%", rng_.below(5)) : "";
  addLine(text_, "faults loss {}% duplicate {}% reorder {}%{}", rng_.below(20), rng_.below(10),
          rng_.below(20), corruption);
  for (U32 count = isCorrected ? 4 + rng_.below(12) : 2 + rng_.below(8); count > 0; --count)
    draw(from + rng_.below(until - from));
  addLine(text_, "run until {}", until);

  addLine(healing_, "faults none");
  addLine(healing_, "heal");
  for (U32 router = 0; router < network_.routers(); ++router) addLine(healing_, "start r{}", router);
}

void RandomFaults::draw(U32 time) {
  static constexpr Draw everywhere[] = {&RandomFaults::downLink,  &RandomFaults::crash,
                                        &RandomFaults::stop,      &RandomFaults::partition,
                                        &RandomFaults::changeBsr, &RandomFaults::addRp};
  static constexpr Draw corrected[] = {
      &RandomFaults::restart,     &RandomFaults::removeRange,  &RandomFaults::removeBsr,
      &RandomFaults::wrongBorder, &RandomFaults::leak,         &RandomFaults::wrongRoute,
      &RandomFaults::rogueBsr,    &RandomFaults::rogueRp,      &RandomFaults::garbage,
      &RandomFaults::permit,      &RandomFaults::moveList,     &RandomFaults::changeList,
      &RandomFaults::moveAddress, &RandomFaults::changeTimers, &RandomFaults::changeTerms,
      &RandomFaults::changeRp};
  bool isCommon = network_.domain() != Domain::corrected || rng_.hits(0.4);
  std::span<Draw const> draws = isCommon ? std::span<Draw const>(everywhere) : corrected;
  Draw chosen = draws[rng_.below(static_cast<U32>(draws.size()))];
  (this->*chosen)(time);
}

// In every domain -------------------------------------------------------------------------------------

void RandomFaults::downLink(U32 time) { addLine(text_, "at {} down l{}", time, network_.anyLink()); }

void RandomFaults::crash(U32 time) {
  U32 router = network_.anyRouter();
  addLine(text_, "at {} crash r{}", time, router);
  addLine(text_, "at {} start r{}", soonAfter(time), router);
}

void RandomFaults::stop(U32 time) {
  U32 router = network_.anyRouter();
  addLine(text_, "at {} stop r{}", time, router);
  addLine(text_, "at {} start r{}", soonAfter(time), router);
}

void RandomFaults::partition(U32 time) {
  addLine(text_, "at {} partition r{} r{}", time, network_.anyRouter(), network_.anyRouter());
  addLine(text_, "at {} heal", soonAfter(time));
}

void RandomFaults::changeBsr(U32 time) {
  RandomNetwork::Bsr const& bsr = network_.bsrs().back();
  addLine(text_, "at {} candidate-bsr r{} {} address {} priority {}", time, bsr.router, bsr.zone, bsr.address,
          10 * rng_.below(6));
}

void RandomFaults::addRp(U32 time) {
  U32 router = network_.anyRouter();
  addLine(text_, "at {} candidate-rp r{} 225.1.0.0/16 address {} c-rp-adv-period 20", time, router,
          RandomNetwork::loopback(router));
}

// In corrected domains --------------------------------------------------------------------------------

void RandomFaults::restart(U32 time) {
  static constexpr char const* kept[] = {"", " keeping state", " keeping state", " keeping zones"};
  addLine(text_, "at {} restart r{}{}", time, network_.anyRouter(), kept[rng_.below(std::size(kept))]);
}

void RandomFaults::removeRange(U32 time) {
  if (network_.rps().empty()) return addRp(time);
  text_ += fmt::format("at {} {}", time, network_.removalOfRange());
}

/// An operator takes what names a list away, and gives it back or not.
void RandomFaults::moveList(U32 time) {
  if (network_.lists().empty()) return changeTimers(time);
  RandomNetwork::List const& list = anyOf(network_.lists());
  if (list.use == RandomNetwork::Use::border) return leak(time);
  U32 again = rng_.hits(0.5) ? soonAfter(time) : 0;
  addLine(text_, "at {} no {}", time, list.removal);
  if (again != 0) addLine(text_, "at {} {}", again, list.statement);
}

/// A list has other rules, or is missing for some time.
void RandomFaults::changeList(U32 time) {
  if (network_.lists().empty()) return changeTerms(time);
  RandomNetwork::List const& list = anyOf(network_.lists());
  bool isGone = rng_.hits(0.4);
  if (isGone)
    addLine(text_, "at {} no access-list r{} {}", time, list.router, RandomNetwork::nameOf(list.use));
  text_ += fmt::format("at {} {}", isGone ? soonAfter(time) : time, network_.listLine(list));
}

/// An interface has no address for some time, or another one.
void RandomFaults::moveAddress(U32 time) {
  U32 link = network_.anyLink();
  RandomNetwork::Attached const& at = anyOf(network_.links()[link]);
  std::string other = rng_.hits(0.5) ? "none" : fmt::format("10.{}.{}.254", link / 250, link % 250);
  addLine(text_, "at {} address r{} l{} {}", time, at.router, link, other);
  addLine(text_, "at {} address r{} l{} {}", soonAfter(time), at.router, link, at.address);
}

/// A BS_Timeout that still covers two BS_Periods, and an SZ_Timeout that may be less than ten of those.
void RandomFaults::changeTimers(U32 time) {
  addLine(text_, "at {} timers r{} bs-timeout {} sz-timeout {}", time, network_.anyRouter(),
          125 + rng_.below(6), 1200 + rng_.below(200));
}

/// Other terms of a candidate BSR; the BS_Period is the usual one again in the end.
void RandomFaults::changeTerms(U32 time) {
  RandomNetwork::Bsr const& bsr = anyOf(network_.bsrs());
  std::string candidacy = fmt::format("candidate-bsr r{} {} address {} priority {} hash-mask-length {}",
                                      bsr.router, bsr.zone, bsr.address, 10 * rng_.below(4), rng_.below(33));
  addLine(text_, "at {} {} bs-period {}", time, candidacy, 20 + rng_.below(60));
  addLine(healing_, "{}", candidacy);
}

void RandomFaults::changeRp(U32 time) {
  if (network_.rps().empty()) return addRp(time);
  RandomNetwork::Rp const& rp = anyOf(network_.rps());
  addLine(text_, "at {} candidate-rp r{} {} address {} priority {} c-rp-adv-period {}", time, rp.router,
          rp.range, rp.address, rng_.below(5), 20 + 20 * rng_.below(3));
}

/// The first candidate of a zone stays, so that there is one to elect.
void RandomFaults::removeBsr(U32 time) {
  std::vector<RandomNetwork::Bsr> const& bsrs = network_.bsrs();
  RandomNetwork::Bsr const& bsr = anyOf(bsrs);
  auto isOfZone = [&](RandomNetwork::Bsr const& other) { return other.zone == bsr.zone; };
  if (&*std::find_if(bsrs.begin(), bsrs.end(), isOfZone) == &bsr) return removeRange(time);
  addLine(text_, "at {} no candidate-bsr r{} {}", time, bsr.router, bsr.zone);
}

/// A border of the scoped zone, of one that holds it, or of all groups, where none belongs.
void RandomFaults::wrongBorder(U32 time) {
  static constexpr char const* zones[] = {RandomNetwork::scopedZone, "239.0.0.0/8", RandomNetwork::global};
  U32 link = network_.anyLink();
  U32 router = anyOf(network_.links()[link]).router;
  bool isRight = router == network_.zoneTop() && link == network_.zoneTop() - 1;
  if (isRight) return leak(time);
  char const* zone = zones[rng_.below(std::size(zones))];
  addLine(text_, "at {} border r{} l{} {}", time, router, link, zone);
  addLine(healing_, "no border r{} l{} {}", router, link, zone);
}

/// The zone's border is forgotten for some time.
void RandomFaults::leak(U32 time) {
  U32 top = network_.zoneTop();
  if (top == 0) return wrongRoute(time);
  addLine(text_, "at {} no border r{} l{} {}", time, top, top - 1, network_.zoneBorder());
  addLine(text_, "at {} border r{} l{} {}", soonAfter(time), top, top - 1, network_.zoneBorder());
}

/// A static route to a candidate BSR, through a neighbor that may not be on the shortest way. It makes no
/// loop: a message goes round a loop of routes for as long as that lasts (RFC 5059 section 3.4 has it
/// forwarded each time), and any that is doubled there adds another.
void RandomFaults::wrongRoute(U32 time) {
  std::vector<RandomNetwork::Attached> const& attached = anyOf(network_.links());
  RandomNetwork::Attached const& router = anyOf(attached);
  RandomNetwork::Attached const& via = anyOf(attached);
  RandomNetwork::Bsr const& bsr = anyOf(network_.bsrs());
  U32 to = bsr.router;
  if (router.router == via.router || router.router == to) return restart(time);
  std::vector<U32> hops = network_.hopsTo(to);
  if (hops[via.router] > hops[router.router]) return restart(time);
  addLine(text_, "at {} route r{} {}/32 via {}", time, router.router, bsr.address, via.address);
  addLine(healing_, "no route r{} {}/32", router.router, bsr.address);
}

/// A message in the name of a router that is attached to a link, which others there take for the neighbor
/// towards the BSR that it names.
void RandomFaults::rogueBsr(U32 time) {
  static constexpr char const* zones[] = {"global", "239.255.0.0/16 scoped", "225.1.0.0/16"};
  U32 link = network_.anyLink();
  RandomNetwork::Attached const& speaker = anyOf(network_.links()[link]);
  static constexpr U64 weak = host::BsrTermsKeys::priority.least, strong = host::BsrTermsKeys::priority.most;
  std::string bsr = rng_.hits(0.5) ? RandomNetwork::loopback(speaker.router) : anyOf(network_.bsrs()).address;
  addLine(text_, "at {} inject l{} bsm from {} bsr {} priority {} tag {} group {}{} rp {} holdtime {}", time,
          link, speaker.address, bsr, rng_.hits(0.5) ? strong : weak, rng_.below(65536),
          zones[rng_.below(std::size(zones))], rng_.hits(0.3) ? " rp-count 3" : "", stranger,
          75 * rng_.below(3));
}

void RandomFaults::rogueRp(U32 time) {
  static constexpr char const* ranges[] = {"225.1.0.0/16", "239.0.0.0/9", "239.255.1.0/24 scoped"};
  U32 link = network_.anyLink();
  std::string const& bsr = anyOf(network_.bsrs()).address;
  addLine(text_, "at {} inject l{} crp-adv from {} to {} rp {} priority 0 holdtime {} group {}", time, link,
          anyOf(network_.links()[link]).address, bsr, stranger, 75 * rng_.below(3),
          ranges[rng_.below(std::size(ranges))]);
}

/// Bytes of no sense after the header of a Hello, a Bootstrap Message or an advertisement.
void RandomFaults::garbage(U32 time) {
  static constexpr char const* types[] = {"20000000", "24000000", "28000000"};
  U32 link = network_.anyLink();
  std::string bytes = types[rng_.below(std::size(types))];
  for (U32 count = rng_.below(60); count > 0; --count) bytes += fmt::format("{:02x}", rng_.below(256));
  addLine(text_, "at {} inject l{} raw from {} checksum {}", time, link,
          anyOf(network_.links()[link]).address, bytes);
}

void RandomFaults::permit(U32 time) {
  U32 router = anyOf(network_.bsrs()).router;
  U32 length = 24 + rng_.below(6);
  addLine(text_, "at {} permit r{} 172.16.0.0/{}", time, router, length);
  if (rng_.hits(0.5)) addLine(text_, "at {} no permit r{} 172.16.0.0/{}", soonAfter(time), router, length);
}

}  // namespace pimbsr::sim
