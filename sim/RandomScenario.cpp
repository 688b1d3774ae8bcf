#include "sim/RandomScenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "model/Lanet.h"

namespace pimbsr::sim {

static constexpr char const* scopedZone = "239.255.0.0/16";

static char const* globalZone() {
  static std::string const text(Lanet::allGroups().stringValue().view());
  return text.c_str();
}

/// Writes one line of a scenario.
template <class... Args>
static void line(std::string& text, fmt::format_string<Args...> form, Args&&... args) {
  fmt::format_to(std::back_inserter(text), form, std::forward<Args>(args)...);
  text += '\n';
}

static std::string loopback(U32 router) {
  return fmt::format("172.16.{}.{}", router / 250, router % 250 + 1);
}

RandomScenario::RandomScenario(U64 seed, U32 routers) : rng_(seed), routers_(routers), inZone_(routers) {
  for (U32 router = 0; router < routers_; ++router)
    line(network_, "router r{} loopback {}", router, loopback(router));
  drawTree();
  drawLinks();
  drawCandidates();
  drawFaults();
  restarted_ = anyRouter();
}

// The network -----------------------------------------------------------------------------------------

/// A tree that joins all. In half of the cases what hangs below one router is a scoped zone, and no further
/// link leads out of it: a zone must hold the shortest ways between its routers, or they would drop what
/// comes along another (RFC 5059 section 1.3).
void RandomScenario::drawTree() {
  parents_.push_back(0);
  for (U32 router = 1; router < routers_; ++router) parents_.push_back(rng_.below(router));
  if (rng_.hits(0.5)) return;
  zoneTop_ = 1 + rng_.below(routers_ - 1);
  for (U32 router = zoneTop_; router < routers_; ++router)
    inZone_[router] = router == zoneTop_ || inZone_[parents_[router]];
}

void RandomScenario::drawLinks() {
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
  if (zoneTop_ != 0) line(network_, "border r{} l{} {}", zoneTop_, zoneTop_ - 1, scopedZone);
}

void RandomScenario::addLink() {
  U32 link = static_cast<U32>(links_.size());
  line(network_, "link l{} prefix 10.{}.{}.0/24 delay {}ms jitter {}ms", link, link / 250, link % 250,
       1 + rng_.below(20), rng_.below(5));
  links_.emplace_back();
}

/// Attaches a router to the newest link.
void RandomScenario::attach(U32 router) {
  std::vector<U32>& attached = links_.back();
  if (std::find(attached.begin(), attached.end(), router) != attached.end()) return;
  attached.push_back(router);
  U32 link = static_cast<U32>(links_.size() - 1);
  // By the router's number, while a subnet has so many.
  std::size_t host = routers_ <= 250 ? router + 1 : attached.size();
  line(network_, "interface r{} l{} 10.{}.{}.{} dr-priority {}", router, link, link / 250, link % 250, host,
       rng_.below(3));
}

/// Attaches one to three routers from the same side of the zone's border as the one attached last.
void RandomScenario::attachMore() {
  bool inside = inZone_[links_.back().back()];
  for (U32 more = 1 + rng_.below(3); more > 0; --more) {
    U32 router = anyRouter();
    if (inZone_[router] == inside) attach(router);
  }
}

/// One or two routers become candidate BSRs of a zone. From three on, a claim of a weaker one that overtakes
/// the answer of the BSR sends a third to claim in its turn, and that can go round for as long as the BSR's
/// period lasts and longer: a candidate looks at any weaker message, not only at one of the elected BSR.
void RandomScenario::drawBsrs(char const* zone, std::vector<U32> const& among) {
  for (U32 count = 1 + rng_.below(2); count > 0; --count) {
    U32 router = among[rng_.below(static_cast<U32>(among.size()))];
    line(network_, "candidate-bsr r{} {} address {} priority {}", router, zone, loopback(router),
         rng_.below(4) * 10);
    bsr_ = router;
  }
}

void RandomScenario::drawCandidates() {
  std::vector<U32> inside, outside, all;
  for (U32 router = 0; router < routers_; ++router) {
    (inZone_[router] ? inside : outside).push_back(router);
    all.push_back(router);
  }
  if (zoneTop_ != 0) drawBsrs(scopedZone, inside);
  if (zoneTop_ != 0 && rng_.hits(0.3)) drawBsrs(scopedZone, outside);
  drawBsrs(globalZone(), all);
  static char const* const ranges[] = {globalZone(), "232.1.0.0/16", "239.0.0.0/9", "239.255.1.0/24",
                                       "239.255.0.0/17"};
  for (U32 count = rng_.below(8); count > 0; --count) {
    U32 router = anyRouter();
    line(network_, "candidate-rp r{} {} address {} priority {} c-rp-adv-period {}", router,
         ranges[rng_.below(std::size(ranges))], loopback(router), rng_.below(3), 20 + 20 * rng_.below(3));
  }
}

// Faults ----------------------------------------------------------------------------------------------

void RandomScenario::drawFaults() {
  line(faults_, "run until {}", faultsFrom);
  line(faults_, "faults loss {}% duplicate {}% reorder {}%", rng_.below(20), rng_.below(10), rng_.below(20));
  for (U32 count = 2 + rng_.below(8); count > 0; --count)
    drawFault(faultsFrom + rng_.below(faultsUntil - faultsFrom));
  line(faults_, "run until {}", faultsUntil);

  line(healing_, "faults none");
  line(healing_, "heal");
  for (U32 router = 0; router < routers_; ++router) line(healing_, "start r{}", router);
}

void RandomScenario::drawFault(U32 time) {
  U32 router = anyRouter();
  U32 later = time + 1 + rng_.below(healedAt - faultsUntil);
  switch (rng_.below(6)) {
    case 0:
      return line(faults_, "at {} down l{}", time, anyLink());
    case 1:
      line(faults_, "at {} crash r{}", time, router);
      return line(faults_, "at {} start r{}", later, router);
    case 2:
      line(faults_, "at {} stop r{}", time, router);
      return line(faults_, "at {} start r{}", later, router);
    case 3:
      line(faults_, "at {} partition r{} r{}", time, router, anyRouter());
      return line(faults_, "at {} heal", later);
    case 4:
      return line(faults_, "at {} candidate-bsr r{} {} address {} priority {}", time, bsr_, globalZone(),
                  loopback(bsr_), 10 * rng_.below(6));
    default:
      return line(faults_, "at {} candidate-rp r{} 225.1.0.0/16 address {} c-rp-adv-period 20", time, router,
                  loopback(router));
  }
}

}  // namespace pimbsr::sim
