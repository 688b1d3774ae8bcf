#pragma once

#include <random>

#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// Spreads a number over 64 bits, one to one: neighboring seeds give different sequences.
constexpr U64 spread(U64 number) {
  number += 0x9e3779b97f4a7c15;
  number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9;
  number = (number ^ (number >> 27)) * 0x94d049bb133111eb;
  return number ^ (number >> 31);
}

/// The RNG of a network. A seed gives the same numbers on every platform, which the standard's distributions
/// don't guarantee.
class Rng {
 public:
  explicit Rng(U64 seed) : generator_(spread(seed)) {}

  /// A number from 0 up to but not including 1.
  double fraction() { return static_cast<double>(generator_() >> 11) * 0x1p-53; }
  /// True with a probability from 0 to 1. Nothing is drawn for what is certain.
  bool hits(double probability) { return probability >= 1 || (probability > 0 && fraction() < probability); }
  /// A number from 0 up to but not including `count`, which is not 0.
  U32 below(U32 count) { return static_cast<U32>(fraction() * count); }

 private:
  std::mt19937_64 generator_;
};

/// The RNG of one router, in place of srand() and rand(). Routers with equal seeds, because they start at the
/// same second, draw different sequences.
class RouterRng {
 public:
  RouterRng(U64 networkSeed, U32 node) : salt_(spread(networkSeed) + node) { seed(0); }

  void seed(unsigned number) { state_ = spread(salt_ ^ spread(number)); }
  /// A number from 0 to 2^31 - 1.
  int next() {
    state_ += 0x9e3779b97f4a7c15;
    return static_cast<int>(spread(state_) >> 33);
  }

 private:
  U64 salt_;
  U64 state_ = 0;
};

}  // namespace pimbsr::sim
