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
  if (zoneTop_ != 0) addLine(text_, "border r{} l{} {}", zoneTop_, zoneTop_ - 1, scopedZone);
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
}

/// With `elected-only` up to six routers become candidate BSRs of a zone. Without it, from three on a claim
/// of a weaker one that overtakes the answer of the BSR makes a third claim in its turn, and that can go
/// round for as long as the BSR's period lasts and longer.
void RandomNetwork::drawBsrs(char const* zone, std::vector<U32> const& among) {
  for (U32 count = 1 + rng_.below(isCorrected() ? 6 : 2); count > 0; --count) {
    U32 router = among[rng_.below(static_cast<U32>(among.size()))];
    auto isThis = [&](Bsr const& bsr) { return bsr.router == router && bsr.zone == zone; };
    if (std::any_of(bsrs_.begin(), bsrs_.end(), isThis)) continue;
    addLine(text_, "candidate-bsr r{} {} address {} priority {} hash-mask-length {}", router, zone,
            loopback(router), rng_.below(4) * 10, 28 + rng_.below(5));
    bsrs_.push_back({router, zone});
  }
}

void RandomNetwork::drawRps() {
  static constexpr char const* ranges[] = {global, "232.1.0.0/16", "239.0.0.0/9", "239.255.1.0/24",
                                           "239.255.0.0/17"};
  for (U32 count = rng_.below(8); count > 0; --count) {
    U32 router = anyRouter();
    rps_.push_back({router, ranges[rng_.below(std::size(ranges))]});
    addLine(text_, "candidate-rp r{} {} address {} priority {} c-rp-adv-period {}", router, rps_.back().range,
            loopback(router), rng_.below(3), 20 + 20 * rng_.below(3));
  }
}

/// So many ranges of one router that the RP set needs fragments, and that advertisements are several where
/// the MTU of its links is that of the way to the BSR.
void RandomNetwork::drawManyRanges() {
  U32 most = mtus_.size() == 1 ? 300 : 60;
  U32 router = anyRouter();
  std::string ranges;
  for (U32 count = 20 + rng_.below(most - 20), i = 0; i < count; ++i) {
    rps_.push_back({router, fmt::format("239.{}.{}.0/24", 64 + i / 250, i % 250)});
    ranges += ' ' + rps_.back().range;
  }
  addLine(text_, "candidate-rp r{}{} address {} c-rp-adv-period 40", router, ranges, loopback(router));
}

/// So many RPs of one range that its record needs fragments where the MTU is small.
void RandomNetwork::drawManyRps() {
  for (U32 router = 0; router < std::min<U32>(routers_, 120); ++router) {
    rps_.push_back({router, "226.1.0.0/16"});
    addLine(text_, "candidate-rp r{} 226.1.0.0/16 address {} priority {} c-rp-adv-period {}", router,
            loopback(router), rng_.below(2), 20 + 20 * rng_.below(3));
  }
}

/// Permits the advertisements of some routers at one candidate BSR.
void RandomNetwork::drawPermit() {
  Bsr const& bsr = bsrs_[rng_.below(static_cast<U32>(bsrs_.size()))];
  addLine(text_, "permit r{} 172.16.0.0/{}", bsr.router, 26 + rng_.below(3));
}

}  // namespace pimbsr::sim
