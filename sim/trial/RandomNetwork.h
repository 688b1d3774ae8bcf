#pragma once

#include <fmt/format.h>

#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/Random.h"

namespace pimbsr::sim {

/// Which routers a random network has: those that correct the engine, those that use it as it is, or both.
enum class Domain : U8 { corrected, mixed, exact };

/// Adds one line to a scenario.
template <class... Args>
void addLine(std::string& text, fmt::format_string<Args...> form, Args&&... args) {
  fmt::format_to(std::back_inserter(text), form, std::forward<Args>(args)...);
  text += '\n';
}

/// A connected network that is drawn: links, routers, candidates and, in half of the cases, a scoped zone
/// within a border. It is text in the scenario language.
///
/// Networks of corrected routers have up to six candidate BSRs for a zone, clocks that drift, links of small
/// MTUs, RP sets that need fragments, BSRs that permit some senders alone, candidates with the address of a
/// link, and access lists in each place that can name one. With routers that use the
/// engine as it is, they have what such a domain comes through: two candidate BSRs, and small RP sets.
class RandomNetwork {
 public:
  static constexpr char const* scopedZone = "239.255.0.0/16";
  static constexpr char const* global = "global";

  struct Attached {
    U32 router = 0;
    std::string address;  ///< on the link
  };
  struct Bsr {
    U32 router = 0;
    std::string zone;
    std::string address;
  };
  struct Rp {
    U32 router = 0;
    std::string range;
    std::string address;
  };
  /// What an access list is for, which is its name too.
  enum class Use : U8 { zones, ranges, senders, border };
  struct List {
    U32 router = 0;
    Use use = Use::zones;
    std::string statement;  ///< that names the list, and what `no` takes of it
    std::string removal;
  };

  /// The RNG outlives it. `routers` is at least 2.
  RandomNetwork(Rng& rng, U32 routers, Domain domain);

  std::string const& text() const { return text_; }
  Domain domain() const { return domain_; }
  U32 routers() const { return routers_; }
  /// Those attached to each link, by its number; one at least.
  std::vector<std::vector<Attached>> const& links() const { return links_; }
  /// The candidacies as BSR; one for all groups at least, which is the last.
  std::vector<Bsr> const& bsrs() const { return bsrs_; }
  std::vector<Rp> const& rps() const { return rps_; }
  std::vector<List> const& lists() const { return lists_; }
  /// The router that all of the scoped zone hang below, whose border is to link `zoneTop() - 1`; 0 for no
  /// zone.
  U32 zoneTop() const { return zoneTop_; }
  /// How that border is named: the zone, or a list.
  std::string zoneBorder() const;

  /// The address of a router that doesn't depend on its links.
  static std::string loopback(U32 router);
  /// The address with which a router is a candidate BSR of a zone or, if it is none, would be.
  std::string bsrAddress(U32 router, std::string_view zone) const;
  /// The statement that takes a range from one of the candidate RPs; nothing where there are none.
  std::string removalOfRange();
  static char const* nameOf(Use use);
  /// The statement that gives a list rules that are drawn.
  std::string listLine(List const& list);
  /// The least number of links from each router to one of them, where all are up; by router.
  std::vector<U32> hopsTo(U32 router) const;
  U32 anyRouter() { return rng_.below(routers_); }
  U32 anyLink() { return rng_.below(static_cast<U32>(links_.size())); }

 private:
  void drawRouters();
  void drawTree();
  void drawMtus();
  void drawLinks();
  void addLink();
  void attach(U32 router);
  void attachMore();
  void drawCandidates();
  std::string drawAddress(U32 router);
  void drawBsrs(char const* zone, std::vector<U32> const& among);
  void drawRps();
  void drawManyRanges();
  void drawManyRps();
  void drawPermit();
  void drawList(List const& list);
  void drawLists();
  bool isCorrected() const { return domain_ == Domain::corrected; }

  Rng& rng_;
  U32 routers_;
  Domain domain_;
  std::vector<U32> parents_;  ///< in the tree, by router
  U32 zoneTop_ = 0;
  std::vector<bool> inZone_;  ///< by router
  std::vector<U32> mtus_;     ///< of which each link has one
  std::vector<std::vector<Attached>> links_;
  std::vector<Bsr> bsrs_;
  std::vector<Rp> rps_;
  std::vector<List> lists_;
  std::string text_;
};

}  // namespace pimbsr::sim
