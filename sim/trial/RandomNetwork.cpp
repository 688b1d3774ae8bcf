#include "sim/trial/RandomNetwork.h"

#include <algorithm>

namespace pimbsr::sim {

RandomNetwork::RandomNetwork(Rng& rng, U32 routers, Domain domain)
    : rng_(rng), routers_(routers), domain_(domain), inZone_(routers) {
  drawRouters();
  drawTree();
  drawMtus();
  drawLinks();
  drawCandidates();
}

std::string RandomNetwork::loopback(U32 router) {
  return fmt::format("172.16.{}.{}", router / 250, router % 250 + 1);
}

// Routers and links -----------------------------------------------------------------------------------

/// In a mixed domain about a third of the routers use the engine as it is.
void RandomNetwork::drawRouters() {
  std::string exact;
  for (U32 router = 0; router < routers_; ++router) {
    std::string clock;
    if (isCorrected() && rng_.hits(0.3))
      clock = fmt::format(" skew {}s drift {:.2f}%", rng_.below(600), rng_.fraction() - 0.5);
    addLine(text_, "router r{} loopback {}{}", router, loopback(router), clock);
    if (domain_ == Domain::mixed && rng_.hits(0.3)) exact += fmt::format(" r{}", router);
  }
  if (exact.empty()) return;
  addLine(text_, "corrections none on{}", exact);
  addLine(text_, "checks none on{}", exact);
}

/// A tree that joins all. In half of the cases what hangs below one router is a scoped zone, and no further
/// link leads out of it: a zone must hold the shortest ways between its routers, or they would drop what
/// comes along another (RFC 5059 section 1.3).
void RandomNetwork::drawTree() {
  parents_.push_back(0);
  for (U32 router = 1; router < routers_; ++router) parents_.push_back(rng_.below(router));
  if (rng_.hits(0.5)) return;
  zoneTop_ = 1 + rng_.below(routers_ - 1);
  for (U32 router = zoneTop_; router < routers_; ++router)
    inZone_[router] = router == zoneTop_ || inZone_[parents_[router]];
}

/// One MTU for all links, or for each link one of three.
void RandomNetwork::drawMtus() {
  static constexpr U32 common[] = {1500, 1500, 576, 9000};
  mtus_ = {1500};
  if (!isCorrected()) return;
  mtus_ = {common[rng_.below(std::size(common))]};
  if (rng_.hits(0.3)) mtus_ = {576, 1000, 1500};
}

void RandomNetwork::drawLinks() {
  for (U32 router = 1; router < routers_; ++router) {
    addLink();
    attach(router);
    attach(parents_[router]);
    if (rng_.hits(0.2)) attachMore();
  }
  for (U32 more = routers_ / 2; more > 0; --more) {
    addLink();
    attach(anyRouter());
    attachMore();
  }
  if (zoneTop_ == 0) return;
  if (isCorrected() && rng_.hits(0.3)) {
    lists_.push_back({.router = zoneTop_, .use = Use::border});
    text_ += listLine(lists_.back());
  }
  addLine(text_, "border r{} l{} {}", zoneTop_, zoneTop_ - 1, zoneBorder());
}

void RandomNetwork::addLink() {
  U32 link = static_cast<U32>(links_.size());
  U32 mtu = mtus_.size() == 1 ? mtus_[0] : mtus_[rng_.below(static_cast<U32>(mtus_.size()))];
  addLine(text_, "link l{} prefix 10.{}.{}.0/24 mtu {} delay {}ms jitter {}ms", link, link / 250, link % 250,
          mtu, 1 + rng_.below(20), rng_.below(5));
  links_.emplace_back();
}

/// Attaches a router to the newest link, with a number of its own there while a subnet has so many.
void RandomNetwork::attach(U32 router) {
  std::vector<Attached>& attached = links_.back();
  auto isThis = [router](Attached const& at) { return at.router == router; };
  if (std::any_of(attached.begin(), attached.end(), isThis)) return;
  U32 link = static_cast<U32>(links_.size() - 1);
  std::size_t host = routers_ <= 250 ? router + 1 : attached.size() + 1;
  attached.push_back({router, fmt::format("10.{}.{}.{}", link / 250, link % 250, host)});
  addLine(text_, "interface r{} l{} {} dr-priority {}", router, link, attached.back().address, rng_.below(3));
}

/// Attaches one to three routers from the same side of the zone's border as the one attached last.
void RandomNetwork::attachMore() {
  bool inside = inZone_[links_.back().back().router];
  for (U32 more = 1 + rng_.below(3); more > 0; --more) {
    U32 router = anyRouter();
    if (inZone_[router] == inside) attach(router);
  }
}

std::vector<U32> RandomNetwork::hopsTo(U32 router) const {
  std::vector<std::vector<U32>> linksOf(routers_);
  for (U32 link = 0; link < links_.size(); ++link) {
    for (Attached const& at : links_[link]) linksOf[at.router].push_back(link);
  }
  std::vector<U32> hops(routers_, routers_);
  std::vector<U32> reached = {router};
  hops[router] = 0;
  for (std::size_t next = 0; next < reached.size(); ++next) {
    for (U32 link : linksOf[reached[next]]) {
      for (Attached const& at : links_[link]) {
        if (hops[at.router] != routers_) continue;
        hops[at.router] = hops[reached[next]] + 1;
        reached.push_back(at.router);
      }
    }
  }
  return hops;
}

// Candidates ------------------------------------------------------------------------------------------

void RandomNetwork::drawCandidates() {
  std::vector<U32> inside, outside, all;
  for (U32 router = 0; router < routers_; ++router) {
    (inZone_[router] ? inside : outside).push_back(router);
    all.push_back(router);
  }
  if (zoneTop_ != 0) drawBsrs(scopedZone, inside);
  if (zoneTop_ != 0 && rng_.hits(0.3)) drawBsrs(scopedZone, outside);
  drawBsrs(global, all);
  drawRps();
  if (!isCorrected()) return;
  if (rng_.hits(0.2)) drawManyRanges();
  if (rng_.hits(0.2)) drawManyRps();
  if (rng_.hits(0.15)) drawPermit();
  drawLists();
}

/// The loopback, which is up with any of its router's links, or the address of a link.
std::string RandomNetwork::drawAddress(U32 router) {
  if (!isCorrected() || !rng_.hits(0.25)) return loopback(router);
  std::vector<std::string> addresses;
  for (std::vector<Attached> const& link : links_) {
    for (Attached const& at : link) {
      if (at.router == router) addresses.push_back(at.address);
    }
  }
  return addresses[rng_.below(static_cast<U32>(addresses.size()))];
}

std::string RandomNetwork::bsrAddress(U32 router, std::string_view zone) const {
  auto isThis = [&](Bsr const& bsr) { return bsr.router == router && bsr.zone == zone; };
  auto at = std::find_if(bsrs_.begin(), bsrs_.end(), isThis);
  return at == bsrs_.end() ? loopback(router) : at->address;
}

/// With `elected-only` up to six routers become candidate BSRs of a zone. Without it, from three on a claim
/// of a weaker one that overtakes the answer of the BSR makes a third claim in its turn, and that can go
/// round for as long as the BSR's period lasts and longer.
void RandomNetwork::drawBsrs(char const* zone, std::vector<U32> const& among) {
  for (U32 count = 1 + rng_.below(isCorrected() ? 6 : 2); count > 0; --count) {
    U32 router = among[rng_.below(static_cast<U32>(among.size()))];
    auto isThis = [&](Bsr const& bsr) { return bsr.router == router && bsr.zone == zone; };
    if (std::any_of(bsrs_.begin(), bsrs_.end(), isThis)) continue;
    bsrs_.push_back({router, zone, drawAddress(router)});
    addLine(text_, "candidate-bsr r{} {} address {} priority {} hash-mask-length {}", router, zone,
            bsrs_.back().address, rng_.below(4) * 10, 28 + rng_.below(5));
  }
}

void RandomNetwork::drawRps() {
  static constexpr char const* ranges[] = {global, "232.1.0.0/16", "239.0.0.0/9", "239.255.1.0/24",
                                           "239.255.0.0/17"};
  for (U32 count = rng_.below(8); count > 0; --count) {
    U32 router = anyRouter();
    rps_.push_back({router, ranges[rng_.below(std::size(ranges))], drawAddress(router)});
    addLine(text_, "candidate-rp r{} {} address {} priority {} c-rp-adv-period {}", router, rps_.back().range,
            rps_.back().address, rng_.below(3), 20 + 20 * rng_.below(3));
  }
}

/// So many ranges of one router that the RP set needs fragments, and that advertisements are several where
/// the MTU of its links is that of the way to the BSR.
void RandomNetwork::drawManyRanges() {
  U32 most = mtus_.size() == 1 ? 300 : 60;
  U32 router = anyRouter();
  std::string ranges;
  for (U32 count = 20 + rng_.below(most - 20), i = 0; i < count; ++i) {
    rps_.push_back({router, fmt::format("239.{}.{}.0/24", 64 + i / 250, i % 250), loopback(router)});
    ranges += ' ' + rps_.back().range;
  }
  addLine(text_, "candidate-rp r{}{} address {} c-rp-adv-period 40", router, ranges, loopback(router));
}

/// So many RPs of one range that its record needs fragments where the MTU is small.
void RandomNetwork::drawManyRps() {
  for (U32 router = 0; router < std::min<U32>(routers_, 120); ++router) {
    rps_.push_back({router, "226.1.0.0/16", loopback(router)});
    addLine(text_, "candidate-rp r{} 226.1.0.0/16 address {} priority {} c-rp-adv-period {}", router,
            loopback(router), rng_.below(2), 20 + 20 * rng_.below(3));
  }
}

/// Permits the advertisements of some routers at one candidate BSR.
void RandomNetwork::drawPermit() {
  Bsr const& bsr = bsrs_[rng_.below(static_cast<U32>(bsrs_.size()))];
  addLine(text_, "permit r{} 172.16.0.0/{}", bsr.router, 26 + rng_.below(3));
}

std::string RandomNetwork::removalOfRange() {
  if (rps_.empty()) return "";
  Rp const& rp = rps_[rng_.below(static_cast<U32>(rps_.size()))];
  return fmt::format("no candidate-rp r{} {} address {}\n", rp.router, rp.range, rp.address);
}

// Access lists ----------------------------------------------------------------------------------------

char const* RandomNetwork::nameOf(Use use) {
  static constexpr char const* names[] = {"zones", "ranges", "senders", "border"};
  return names[static_cast<U32>(use)];
}

std::string RandomNetwork::zoneBorder() const {
  auto isOfBorder = [](List const& list) { return list.use == Use::border; };
  return std::any_of(lists_.begin(), lists_.end(), isOfBorder) ? "list border" : scopedZone;
}

/// Rules that permit parts of what others deny, adjacent prefixes that are one, and prefixes that rules
/// before have taken. Zones and ranges of lists are none of others; the list of a border always permits its
/// zone.
std::string RandomNetwork::listLine(List const& list) {
  std::string line = fmt::format("access-list r{} {}", list.router, nameOf(list.use));
  U32 drawn = rng_.below(4);
  switch (list.use) {
    case Use::zones:
      line += fmt::format(" deny 239.{}.0.0/16 permit 239.128.0.0/15 permit 239.{}.0.0/16", 129 + drawn / 2,
                          130 + drawn);
      break;
    case Use::ranges:
      line += fmt::format(" deny 228.1.{0}.0/24 permit 228.1.0.0/21 permit 228.{0}.0.0/16", drawn);
      line += " permit 228.9.2.0/24 permit 228.9.3.0/24 deny 228.0.0.0/8 permit 228.77.0.0/16";
      break;
    case Use::senders:
      line += fmt::format(" deny 172.16.0.{}/32 permit 172.16.0.0/{}", 1 + drawn, 24 + drawn);
      if (rng_.hits(0.7)) line += " permit 10.0.0.0/8 permit 172.16.0.128/25";
      break;
    case Use::border:
      line += fmt::format(" deny 239.254.{0}.0/24 permit {1} permit 239.192.{0}.0/24", drawn, scopedZone);
      break;
  }
  return line + '\n';
}

void RandomNetwork::drawList(List const& list) {
  auto isThere = [&](List const& other) { return other.router == list.router && other.use == list.use; };
  if (std::any_of(lists_.begin(), lists_.end(), isThere)) return;
  lists_.push_back(list);
  text_ += listLine(list);
  addLine(text_, "{}", list.statement);
}

void RandomNetwork::drawLists() {
  for (U32 count = rng_.hits(0.4) ? 1 + rng_.below(2) : 0; count > 0; --count) {
    U32 router = anyRouter();
    std::string removal = fmt::format("candidate-rp r{} list ranges address {}", router, loopback(router));
    std::string terms =
        fmt::format(" priority {} c-rp-adv-period {}", rng_.below(3), 20 + 20 * rng_.below(3));
    drawList({router, Use::ranges, removal + terms, removal});
  }
  for (U32 count = rng_.hits(0.3) ? 1 + rng_.below(2) : 0; count > 0; --count) {
    U32 router = anyRouter();
    std::string removal = fmt::format("candidate-bsr r{} list zones address {}", router, drawAddress(router));
    std::string terms =
        fmt::format(" priority {} hash-mask-length {}", 10 * rng_.below(4), 28 + rng_.below(5));
    drawList({router, Use::zones, removal + terms, removal});
  }
  if (!rng_.hits(0.2)) return;
  U32 router = bsrs_[rng_.below(static_cast<U32>(bsrs_.size()))].router;
  std::string permit = fmt::format("permit r{} list senders", router);
  drawList({router, Use::senders, permit, permit});
}

}  // namespace pimbsr::sim
