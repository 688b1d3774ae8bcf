#pragma once

#include <string>

#include "sim/trial/RandomNetwork.h"

namespace pimbsr::sim {

/// The faults of a random network, within one phase: packets are lost, doubled, overtaken and changed;
/// links and routers go and come, with what they knew or without; operators change candidacies, borders,
/// routes, permits, access lists, addresses and timers; and senders that are no router of the network claim
/// to be BSRs and RPs.
///
/// Faults that a domain of exact routers does not recover from are drawn for corrected ones alone.
class RandomFaults {
 public:
  /// Seconds at which the phase starts and ends, and until when the last of what it broke has come back.
  static constexpr U32 from = 200;
  static constexpr U32 until = 500;
  static constexpr U32 healedAt = until + 120;

  /// Both outlive it.
  RandomFaults(Rng& rng, RandomNetwork& network);

  /// The faults and their times; it ends with the clock at `until`.
  std::string const& text() const { return text_; }
  /// All links up and perfect, all routers running, and the mistakes of operators corrected.
  std::string const& healing() const { return healing_; }

 private:
  using Draw = void (RandomFaults::*)(U32 time);

  void draw(U32 time);
  U32 soonAfter(U32 time) { return time + 1 + rng_.below(healedAt - until); }

  // In every domain.
  void downLink(U32 time);
  void crash(U32 time);
  void stop(U32 time);
  void partition(U32 time);
  void changeBsr(U32 time);
  void addRp(U32 time);
  // In corrected domains.
  void restart(U32 time);
  void removeRange(U32 time);
  void removeBsr(U32 time);
  void moveList(U32 time);
  void changeList(U32 time);
  void moveAddress(U32 time);
  void changeTimers(U32 time);
  void changeTerms(U32 time);
  void changeRp(U32 time);
  void wrongBorder(U32 time);
  void leak(U32 time);
  void wrongRoute(U32 time);
  void rogueBsr(U32 time);
  void rogueRp(U32 time);
  void garbage(U32 time);
  void permit(U32 time);

  template <class Item>
  Item const& anyOf(std::vector<Item> const& items) {
    return items[rng_.below(static_cast<U32>(items.size()))];
  }

  Rng& rng_;
  RandomNetwork& network_;
  std::string text_;
  std::string healing_;
};

}  // namespace pimbsr::sim
