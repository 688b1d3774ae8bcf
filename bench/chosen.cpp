// What RPs and ranges cost whose addresses a peer has chosen with full knowledge of the hash, beside random
// ones: the packet path from bytes in to the RP set of PIM, with all corrections and without any bound on
// what is kept.
//
// Each benchmark learns `count` RPs in Bootstrap Messages and then hears each of them once more. The ratio
// of a chosen kind to the random one is what a choice of keys gains an attacker.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "bench/Messages.h"

namespace {

using namespace bench;

/// How the keys of a benchmark are chosen.
enum class Choice {
  random,
  oneBucket,   ///< the hash of all begins with the same bits, as many as pick a bucket in a table of all
  lastBucket,  ///< the same, and these bits are all set: a walk has the whole table before it
  alike,       ///< as many of one bucket share all 32 bits of their hash as there are; ranges only
};

constexpr U32 tableBits = 14;  ///< a table of 16,000 members has 2 to the power of 14 buckets

bool isWanted(U32 hash, Choice choice) {
  U32 const bucket = hash >> (32 - tableBits);
  if (choice == Choice::oneBucket) return bucket == 0x1234 % (1u << tableBits);
  return choice == Choice::random || bucket == (1u << tableBits) - 1;
}

/// Addresses whose hash is as wanted, in the order of a fixed shuffle. The hash of an address is one to one,
/// so a search finds one in every 2^14.
std::vector<U32> addresses(U32 count, Choice choice) {
  std::mt19937 random(1);
  std::set<U32> found;
  while (found.size() < count) {
    U32 const word = 0x0a000000 + random() % 0x50000000;
    if (isWanted(Lanet::rhash(IpGenAddr(IpAddr::fromHost(word))), choice)) found.insert(word);
  }
  std::vector<U32> words(found.begin(), found.end());
  std::shuffle(words.begin(), words.end(), random);
  return words;
}

IpGenPrefix rangeOf(U32 word, U32 length) { return Lanet::Prefix(IpAddr::fromHost(word), length); }

/// A random range of 224.0.0.0/4 outside 239.0.0.0/8. Lengths from 27 on are those whose addresses can be as
/// close as their lengths, and so share a hash.
IpGenPrefix randomRange(std::mt19937& random) {
  U32 const word = 0xe0000000 + random() % 0x0f000000;
  return rangeOf(word, 24 + random() % 9);
}

std::vector<IpGenPrefix> ranges(U32 count, Choice choice) {
  std::mt19937 random(2);
  std::set<IpGenPrefix> found;
  while (found.size() < count) {
    IpGenPrefix const range = randomRange(random);
    if (!isWanted(Lanet::rhash(range), choice)) continue;
    found.insert(range);
    if (choice != Choice::alike) continue;
    // The hash mixes the address with the length, so each length has one address of that hash, if any.
    U32 const mixed = range.address().v4Addr().hostWord() ^ range.length();
    for (U32 length = 24; length <= 32; ++length) {
      IpGenPrefix const other = rangeOf(mixed ^ length, length);
      if (Lanet::rhash(other) == Lanet::rhash(range)) found.insert(other);
    }
  }
  std::vector<IpGenPrefix> all(found.begin(), found.end());
  all.resize(count);
  std::shuffle(all.begin(), all.end(), random);
  return all;
}

/// Learns what the packets name, and hears it once more. Per RP.
void learn(benchmark::State& state, std::vector<std::vector<U8>> const& packets, U32 rps) {
  while (state.KeepRunningBatch(2 * rps)) {
    Station station(1);
    station.router.correctionsAre(pimbsr::host::allCorrections);
    station.receiveAll(packets);
    station.receiveAll(packets);
    state.PauseTiming();
    if (station.rps() != rps) state.SkipWithError("not all stored");
    state.ResumeTiming();
  }
}

constexpr U32 rpsPerPacket = 100;

/// All in one range: one map of its RPs in each place where they are kept. A set has at most 255 RPs in one
/// message, and gathers any number from many.
void rpsOfOneRange(benchmark::State& state, Choice choice) {
  auto const words = addresses(static_cast<U32>(state.range(0)), choice);
  std::vector<std::vector<U8>> packets;
  for (std::size_t at = 0; at < words.size(); at += rpsPerPacket) {
    std::size_t const end = std::min(words.size(), at + rpsPerPacket);
    packets.push_back(packetOf({{rangeNumber(0),
                                 {words.begin() + static_cast<std::ptrdiff_t>(at),
                                  words.begin() + static_cast<std::ptrdiff_t>(end)}}}));
  }
  learn(state, packets, static_cast<U32>(words.size()));
}

/// The same addresses spread over many ranges, 250 in each.
void rpsOfManyRanges(benchmark::State& state, Choice choice) {
  constexpr U32 rpsPerRange = 250;
  auto const words = addresses(static_cast<U32>(state.range(0)), choice);
  std::vector<std::vector<U8>> packets;
  for (std::size_t at = 0; at < words.size(); at += rpsPerRange) {
    std::size_t const end = std::min(words.size(), at + rpsPerRange);
    packets.push_back(packetOf({{rangeNumber(static_cast<U32>(at / rpsPerRange)),
                                 {words.begin() + static_cast<std::ptrdiff_t>(at),
                                  words.begin() + static_cast<std::ptrdiff_t>(end)}}}));
  }
  learn(state, packets, static_cast<U32>(words.size()));
}

/// Each range has one RP, the same in all.
void rangesOfOneRp(benchmark::State& state, Choice choice) {
  std::vector<std::vector<U8>> packets;
  std::vector<NamedRange> named;
  for (IpGenPrefix const& range : ranges(static_cast<U32>(state.range(0)), choice)) {
    named.push_back({range, {0x0a000001}});
    if (named.size() == rpsPerPacket) packets.push_back(packetOf(std::exchange(named, {})));
  }
  learn(state, packets, static_cast<U32>(state.range(0)));
}

/// Hears, as the elected BSR, what the packets advertise, and hears it once more. Per RP.
void hear(benchmark::State& state, std::vector<std::vector<U8>> const& packets, U32 rps) {
  while (state.KeepRunningBatch(2 * rps)) {
    Station station(1);
    station.router.correctionsAre(pimbsr::host::allCorrections);
    station.becomeBsr();
    for (int round = 0; round < 2; ++round) {
      for (auto const& packet : packets) station.hear(packet);
    }
    state.PauseTiming();
    if (station.rps() != rps) state.SkipWithError("not all stored");
    state.ResumeTiming();
  }
}

/// Each address advertises itself, 250 for each range.
void advertisedRps(benchmark::State& state, Choice choice) {
  constexpr U32 rpsPerRange = 250;
  std::vector<std::vector<U8>> packets;
  for (U32 word : addresses(static_cast<U32>(state.range(0)), choice)) {
    IpGenPrefix const range = rangeNumber(static_cast<U32>(packets.size()) / rpsPerRange);
    packets.push_back(advertisementOf(std::span(&range, 1), word));
  }
  hear(state, packets, static_cast<U32>(packets.size()));
}

/// One address advertises all ranges.
void advertisedRanges(benchmark::State& state, Choice choice) {
  auto const all = ranges(static_cast<U32>(state.range(0)), choice);
  std::vector<std::vector<U8>> packets;
  for (std::size_t at = 0; at < all.size(); at += rpsPerPacket) {
    std::size_t const count = std::min<std::size_t>(rpsPerPacket, all.size() - at);
    packets.push_back(advertisementOf(std::span(all).subspan(at, count), 0x0a000001));
  }
  hear(state, packets, static_cast<U32>(all.size()));
}

[[maybe_unused]] bool const added = [] {
  auto add = [](char const* name, void (*run)(benchmark::State&, Choice), Choice choice) {
    benchmark::RegisterBenchmark(name, run, choice)->Arg(1000)->Arg(16'000)->Unit(benchmark::kMicrosecond);
  };
  add("one-range/random", rpsOfOneRange, Choice::random);
  add("one-range/one-bucket", rpsOfOneRange, Choice::oneBucket);
  add("one-range/last-bucket", rpsOfOneRange, Choice::lastBucket);
  add("many-ranges/random", rpsOfManyRanges, Choice::random);
  add("many-ranges/one-bucket", rpsOfManyRanges, Choice::oneBucket);
  add("many-ranges/last-bucket", rpsOfManyRanges, Choice::lastBucket);
  add("ranges/random", rangesOfOneRp, Choice::random);
  add("ranges/one-bucket", rangesOfOneRp, Choice::oneBucket);
  add("ranges/last-bucket", rangesOfOneRp, Choice::lastBucket);
  add("ranges/alike", rangesOfOneRp, Choice::alike);
  add("advertised-rps/random", advertisedRps, Choice::random);
  add("advertised-rps/one-bucket", advertisedRps, Choice::oneBucket);
  add("advertised-rps/last-bucket", advertisedRps, Choice::lastBucket);
  add("advertised-ranges/random", advertisedRanges, Choice::random);
  add("advertised-ranges/one-bucket", advertisedRanges, Choice::oneBucket);
  add("advertised-ranges/last-bucket", advertisedRanges, Choice::lastBucket);
  add("advertised-ranges/alike", advertisedRanges, Choice::alike);
  return true;
}();

}  // namespace
