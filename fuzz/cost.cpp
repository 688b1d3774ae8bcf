// The work of a packet, in visits of nodes, buckets and words as the meter counts them: whatever a peer
// sends, a packet costs what it names, times the logarithm of what the router keeps. A path whose cost grows
// with what is kept, or with the square of what a packet names, fails here long before it can be felt as
// time.
//
// Work that is due to many packets together, such as the resize of a table, may fall on one of them. So what
// a packet leaves of its credit is kept for later ones, but no more than a resize of all that is kept costs:
// a packet that walks over all of it uses that up soon.
//
// Each input is played to two routers with the checks, limits and corrections of an agent: one that follows,
// and one that leads a global and a scoped zone.
//
// The input is read as steps: one byte of control, then a packet. The control byte's low bits say how many
// seconds pass first, its high bit that what follows is a short form, whose keys are searched for here: a
// fuzzer finds no hash collisions by itself.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "agent/config/Settings.h"
#include "fuzz/Goal.h"
#include "fuzz/PlantedWork.h"
#include "host/Router.h"
#include "runtime/Assert.h"
#include "runtime/Bits.h"
#include "runtime/Meter.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::U32;
using Zet::U64;
using Zet::U8;

static_assert(Zet::Meter::isOn, "this target is built with the meter");

constexpr U32 neighbor = 0xc0000201;  // 192.0.2.1
constexpr U32 own = 0xc0000209;       // 192.0.2.9

/// Counts what is sent.
class Port : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const> packet) override {
    sentBytes_ += packet.size();
    return true;
  }
  IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return IpAddr::fromHost(own); }
  bool isOwnAddress(IpGenAddr const& address) const override {
    return address == IpGenAddr(IpAddr::fromHost(own));
  }
  std::size_t takeSentBytes() { return std::exchange(sentBytes_, 0); }

 private:
  std::size_t sentBytes_ = 0;
};

class Rpf : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(IpGenAddr const&, IpGenAddr const&) override {
    return {IpAddr::fromHost(neighbor)};
  }
};

/// Quiet, with random numbers that are the same for each input.
class Context : public Zet::Context {
 public:
  int rand() override { return static_cast<int>(random_() & RAND_MAX); }
  void srand(unsigned seed) override { random_.seed(seed); }
  void trace(Zet::TraceLine const&) override {}
  void log(Zet::LogHandle const&, std::string const&) override {}

 private:
  std::mt19937 random_{1};
};

// Packets ---------------------------------------------------------------------------------------------

/// A PIM message with its checksum corrected, in an IP packet. An advertisement is for the router itself.
std::vector<U8> packetOf(std::vector<U8> pim, U32 source = neighbor) {
  constexpr U8 crpAdvType = 8;
  if (pim.size() >= 4) {
    pim[2] = pim[3] = 0;
    Zet::U16 const sum = pimbsr::wire::checksum(pim);
    pim[2] = static_cast<U8>(sum >> 8);
    pim[3] = static_cast<U8>(sum);
  }
  bool const isAdv = !pim.empty() && (pim[0] & 0x0f) == crpAdvType;
  std::vector<U8> packet;
  pimbsr::wire::Ipv4Header const header{.source = IpAddr::fromHost(source),
                                        .destination = IpAddr::fromHost(isAdv ? own : 0xe000000d)};
  if (!pimbsr::wire::encodeIpv4(header, pim, packet)) packet.clear();
  return packet;
}

constexpr std::size_t chosenKeys = 2048;

/// Keys whose hash begins with the same 12 bits, made from the words that follow the first. The hash of a key
/// is that of its word, of which some bits are inverted; millions of words are tried, so that it is inlined.
template <class Key, class Make>
std::vector<Key> chosen(U32 firstWord, U32 inverted, Make const& make) {
  std::vector<Key> found;
  for (U32 word = firstWord; found.size() < chosenKeys; ++word) {
    if (Zet::bitReverse(Zet::mixHash(word ^ inverted)) >> 20 != 0xfff) continue;
    found.push_back(make(IpAddr::fromHost(word)));
    ZET_ASSERT(Lanet::rhash(found.back()) >> 20 == 0xfff, "a key's hash is that of its word");
  }
  return found;
}

// The search is made at the start, so that it does not count as the time of an input. A range's length is
// part of its hash.
auto const chosenAddresses =
    chosen<IpGenAddr>(0x0a000000, 0, [](IpAddr address) { return IpGenAddr(address); });
auto const chosenRanges =
    chosen<IpGenPrefix>(0xe1000000, 32, [](IpAddr address) { return IpGenPrefix(IpGenAddr(address), 32); });

IpGenAddr chosenAddress(U32 number) { return chosenAddresses[number % chosenKeys]; }

IpGenPrefix chosenRange(U32 number) { return chosenRanges[number % chosenKeys]; }

/// Five bytes that stand for messages with chosen keys. The highest bit of the first makes advertised ranges
/// bidirectional, and puts each key of a Bootstrap Message into a message of its own. The next two name the
/// kind, and the lowest three and the second byte are the number of the first key.
struct ShortForm {
  enum Kind : U8 { rps, ranges, advertisements, hello };

  explicit ShortForm(std::span<U8 const, 5> bytes)
      : flags(static_cast<U8>(bytes[0] & 0x80)),
        kind(static_cast<Kind>(bytes[0] >> 5 & 3)),
        first(static_cast<U32>((bytes[0] & 0x07) << 8 | bytes[1])),
        count(bytes[2]),
        number(bytes[3]),
        holdtime(bytes[4]) {}

  /// The same for one of its keys alone.
  ShortForm only(U32 key) const {
    ShortForm one = *this;
    one.first += key;
    one.count = 1;
    return one;
  }

  Packet::GroupFlags flags;  ///< of advertised ranges
  Kind kind;
  U32 first;
  U8 count;   ///< of keys
  U8 number;  ///< of the one range or RP that the keys share; of ranges in each advertisement; of a neighbor
  U8 holdtime;  ///< seconds
};

void add(Packet::BootstrapMessage& message, IpGenPrefix const& range, U32 first, U8 count, U8 holdtime) {
  auto group = Zet::make<Packet::BootstrapGroupData>(range);
  for (U32 i = 0; i < count; ++i) group->rpListIs(chosenAddress(first + i))->rpHoldtimeIs(holdtime);
  group->rpCountIs(count);
  group->fragRpCountIs(count);
  message.groupRpData()->groupDataEnq(group);
}

/// Chosen RPs of one range, or one RP of chosen ranges.
std::vector<U8> bootstrapOf(ShortForm const& form) {
  auto message = Zet::make<Packet::BootstrapMessage>();
  message->bsrAddressIs(IpAddr::fromHost(0xc6336401));
  message->bsrPriorityIs(10);
  message->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  if (form.kind == ShortForm::rps) {
    Lanet::Prefix const range(IpAddr::fromHost(0xe1000000 + (U32{form.number} << 8)), 24);
    add(*message, range, form.first, form.count, form.holdtime);
  } else {
    for (U32 i = 0; i < form.count; ++i)
      add(*message, chosenRange(form.first + i), form.number, 1, form.holdtime);
  }
  std::vector<U8> pim;
  if (!pimbsr::wire::encodeBootstrap(*message, pim)) pim.clear();
  return packetOf(pim);
}

/// An advertisement of one chosen RP, from itself, for the first chosen ranges.
std::vector<U8> advertisementOf(ShortForm const& form, U32 number) {
  auto message = Zet::make<Packet::CrpAdvMessage>();
  message->rpAddressIs(chosenAddress(form.first + number));
  message->priorityIs(static_cast<U8>(number));
  message->holdtimeIs(form.holdtime);
  message->prefixCountIs(form.number);
  message->groupDataIs(Zet::make<Packet::CrpGroupData>());
  for (U32 i = 0; i < form.number; ++i)
    message->groupData()->groupInfoIs(chosenRange(i))->groupFlagsIs(form.flags);
  std::vector<U8> pim;
  if (!pimbsr::wire::encodeCrpAdv(*message, pim)) pim.clear();
  return packetOf(pim, message->rpAddress().v4Addr().hostWord());
}

/// A neighbor with chosen secondary addresses.
std::vector<U8> helloOf(ShortForm const& form) {
  pimbsr::wire::HelloMessage message{.holdtime = form.holdtime, .generationId = form.first};
  for (U32 i = 0; i < form.count; ++i) message.addressList.push_back(chosenAddress(form.first + i));
  std::vector<U8> pim;
  pimbsr::wire::encodeHello(message, pim);
  return packetOf(pim, 0xc0000210 + form.number);
}

// Credit ----------------------------------------------------------------------------------------------

/// What a router has earned and not spent.
class Account {
 public:
  /// A packet: its records of 8 bytes at least, each of which is looked for, stored, mirrored and timed.
  void earnReceived(std::size_t bytes, U64 kept) {
    U64 const records = recordsOf(bytes);
    named_ += records;
    credit_ += fixed + records * (perRecord + perRecordAndLevel * levels(kept + records));
  }
  /// Packets that were sent, each record of which is written, and mirrored where it is this BSR's own.
  void earnSent(std::size_t bytes, U64 kept) {
    U64 const records = recordsOf(bytes);
    credit_ += fixed + records * (perSent + perSentAndLevel * levels(kept + records));
  }
  /// RPs and ranges that end, by a timer or since their BSR is another one.
  void earnEnded(U64 count, U64 kept) {
    credit_ += fixed + count * (perEnded + perEndedAndLevel * levels(kept));
  }
  /// Resizes of tables are paid by what is kept and never was before.
  void earnGrowth(U64 kept) {
    if (kept <= highest_) return;
    credit_ += perGrown * (kept - highest_);
    highest_ = kept;
  }
  /// Lets timers look at all that is kept once more, and remove it.
  void sweepIs(U64 kept) { sweep_ = perSwept * kept; }
  /// No router is charged for the work since the last call: messages were made.
  void skip() { settledAt_ = Zet::Meter::visited; }
  /// Charges what a packet spent since the last call.
  void settle(U64 kept) {
    U64 const spent = Zet::Meter::visited - std::exchange(settledAt_, Zet::Meter::visited);
    ZET_ASSERT(spent <= credit_, "the work of packets is within their credit");
    U64 const bank = bankedBase + bankedPerKept * kept + bankedPerRecord * std::min(named_, maxPieces);
    credit_ = std::min(credit_ - spent, bank);
  }
  U64 credit() const { return credit_; }
  /// Charges what a timer spent, beyond what it earned to the sweep first: the `banked` credit that it found
  /// is for the release of what packets named.
  void settleTimer(U64 kept, U64 banked) {
    U64 const spent = Zet::Meter::visited - settledAt_;
    U64 const swept = std::min(sweep_, spent - std::min(spent, credit_ - banked));
    sweep_ -= swept;
    settledAt_ += swept;
    settle(kept);
  }

 private:
  static constexpr std::size_t headerBytes = 34;  ///< of a packet before its first range
  static U64 recordsOf(std::size_t bytes) { return (bytes - std::min(bytes, headerBytes)) / 8 + 1; }
  static U64 levels(U64 count) { return static_cast<U64>(std::bit_width(count)); }

  static constexpr U64 fixed = 650;  ///< of a packet without records, its zone and its forwarding
  /// Of an advertised range: the checks, the zone's set and the set that PIM reads look for it and its RP.
  /// With chosen keys it costs most, once more where the RP is removed and added again since it becomes
  /// bidirectional, and no more with 16,000 RPs kept than with 4,000.
  static constexpr U64 perRecord = 300;
  static constexpr U64 perRecordAndLevel = 16;  ///< times the logarithm of what may be kept afterwards
  /// Of a record that is written, and looked for where the BSR repeats its own set.
  static constexpr U64 perSent = 40;
  static constexpr U64 perSentAndLevel = 10;
  /// Of what ends in the sets of its zone and of PIM. It costs most where a message of another BSR ends a set
  /// with chosen keys, and half of that by a timer.
  static constexpr U64 perEnded = 100;
  static constexpr U64 perEndedAndLevel = 12;
  static constexpr U64 perGrown = 40;   ///< in all tables that hold an RP, over all their sizes
  static constexpr U64 perSwept = 100;  ///< of an RP or range that is looked at and removed
  static constexpr U64 bankedBase = 2000;
  static constexpr U64 bankedPerKept = 20;  ///< nodes and buckets of all tables that hold an RP
  /// The last message of a zone is kept with the other pieces of its tag, all of which may be released with
  /// the next one.
  static constexpr U64 bankedPerRecord = 40;
  static constexpr U64 maxPieces = pimbsr::host::standardLimits.rps;  ///< records of them, of all zones

  U64 settledAt_ = Zet::Meter::visited;
  U64 credit_ = 20'000;  ///< of making the router
  U64 sweep_ = 0;
  U64 highest_ = 0;  ///< number of what was kept
  U64 named_ = 0;    ///< records of all packets received
};

fuzz::Goal followed("a follower accepts a Bootstrap Message");
fuzz::Goal withdrew("a follower loses RPs by a Bootstrap Message");
fuzz::Goal led("a leader is the elected BSR of both zones");
fuzz::Goal advertised("a leader accepts an advertisement");
fuzz::Goal filled("a leader drops an advertisement for a full range");
fuzz::Goal knewNeighbor("a neighbor is known by its Hello");

auto const planted = fuzz::PlantedWork::fromEnvironment();

enum class Role { follower, leader };

class Play {
 public:
  explicit Play(Role role) : role_(role) {
    router_.interfaceIs(eth0_, 1500, {});
    router_.pimStatus()->pimIntf(eth0_)->neighborIs(IpAddr::fromHost(neighbor));
    if (role_ == Role::leader) lead();
  }

  void step(double seconds, std::vector<U8> const& packet) {
    runTo(context_.now() + seconds);
    U64 const before = kept();
    peak_ = std::max(peak_, before);  // what the packet ends is swept, though no timer has seen it
    account_.earnReceived(packet.size(), before);
    auto const reception = router_.receive(eth0_, packet);
    if (reception.accepted()) planted.afterPacket(router_, packet);
    account_.earnGrowth(kept());
    // A new BSR ends the RP set of the former one.
    if (kept() < before) account_.earnEnded(before - kept(), before);
    settle(before);
    note(reception, before);
  }

  /// Plays no more messages and records than an input may have.
  void step(double seconds, ShortForm const& form) {
    if (form.kind == ShortForm::hello) return step(seconds, helloOf(form));
    if (form.kind != ShortForm::advertisements && form.flags == 0) return step(seconds, bootstrapOf(form));
    runTo(context_.now() + seconds);
    for (U32 i = 0; i < form.count; ++i) stepOfKey(form, i);
  }

  /// Long enough for all that a follower keeps to run out; a leader goes on for ever.
  void finish() { runTo(context_.now() + (role_ == Role::leader ? 400 : 3000)); }

 private:
  // Of an input, so that it ends in time.
  static constexpr U32 maxAdvertisedRanges = 1500;
  static constexpr U32 maxSingleKeys = 1500;  ///< Bootstrap Messages of one key each
  /// Seconds between two of them. All are within the budget of their sender, and each key has a timer that is
  /// due at a time of its own.
  static constexpr double singleKeyDelay = 0.004;

  /// The message of one key of a short form whose keys have a message each.
  void stepOfKey(ShortForm const& form, U32 key) {
    if (form.kind == ShortForm::advertisements) {
      if (advertisedRanges_ >= maxAdvertisedRanges) return;
      advertisedRanges_ += 1U + form.number;
      return step(0, advertisementOf(form, key));
    }
    if (singleKeys_ >= maxSingleKeys) return;
    ++singleKeys_;
    step(singleKeyDelay, bootstrapOf(form.only(key)));
  }

  void lead() {
    IpGenAddr const address = IpAddr::fromHost(own);
    router_.routeIs({address.v4Addr(), 32}, {.type = Slosh::Fib::RouteType::local});
    for (char const* zone : {"224.0.0.0/4", "239.192.0.0/14"}) {
      auto const range = IpGenPrefix::parse(zone);
      router_.candidateBsrIs(range, {.address = address, .intfId = eth0_});
      router_.candidateRpIs(range, {.address = address, .intfId = eth0_});
    }
    runTo(context_.now() + 200);  // both elections are over
    bool const isElected = router_.status()->cbsr(IpGenPrefix::parse("224.0.0.0/4"))->elected() &&
                           router_.status()->cbsr(IpGenPrefix::parse("239.192.0.0/14"))->elected();
    led.reachedIf(isElected);
  }

  void runTo(double end) {
    account_.skip();
    while (router_.nextExpiry() <= end) {
      context_.nowIs(router_.nextExpiry());
      U64 const before = kept(), banked = account_.credit();
      router_.advance();
      planted.afterTimers(router_);
      account_.earnEnded(before - std::min(before, kept()), before);
      allowSweep(before);
      if (std::size_t const sent = port_.takeSentBytes()) account_.earnSent(sent, before);
      account_.settleTimer(before, banked);
    }
    context_.nowIs(end);
  }

  /// Packets that a packet or a timer causes are paid for too: a candidate BSR answers a message of lower
  /// priority with its own (RFC 5059 section 3.1.1), and a new neighbor gets the RP set.
  void settle(U64 kept) {
    if (std::size_t const sent = port_.takeSentBytes()) account_.earnSent(sent, kept);
    account_.settle(kept);
  }

  /// In each minute timers may look once at all that is kept, or was a minute before: what has expired is
  /// swept from the RP set of PIM later than its timer.
  void allowSweep(U64 kept) {
    peak_ = std::max(peak_, kept);
    if (context_.now() < swept_ + 60) return;
    swept_ = context_.now();
    account_.sweepIs(std::max(peak_, std::exchange(formerPeak_, peak_)));
    peak_ = kept;
  }

  void note(pimbsr::host::Reception const& reception, U64 before) {
    using pimbsr::host::MessageKind;
    bool const isFollower = role_ == Role::follower;
    bool const isBsm = reception.kind == MessageKind::bootstrap && reception.accepted();
    followed.reachedIf(isFollower && isBsm && kept() > before);
    withdrew.reachedIf(isFollower && isBsm && kept() < before);
    bool const isAdv = !isFollower && reception.kind == MessageKind::crpAdv;
    advertised.reachedIf(isAdv && reception.accepted() && kept() > before);
    filled.reachedIf(isAdv && reception.reason == "range-full");
    bool const isHello = reception.kind == MessageKind::hello && reception.accepted();
    auto const intf = router_.pimStatus()->pimIntf(eth0_);
    knewNeighbor.reachedIf(isHello && intf->neighborCount() > 1);
  }

  /// Timers, of which each RP has one, and ranges, which may hold no RP: a measure that costs no walk.
  U64 kept() const { return router_.armedTimers() + router_.rpCandidateStatus()->crpSetCount(); }

  Role const role_;
  Context context_;
  Port port_;
  pimbsr::host::Router router_{context_,
                               port_,
                               {.rpf = Zet::make<Rpf>(),
                                .ingress = pimbsr::host::standardIngress,
                                .corrections = pimbsr::host::allCorrections}};
  Lanet::IntfId const eth0_{"eth0"};
  Account account_;
  double swept_ = 0;
  U64 peak_ = 0;        ///< of what is kept, since the last sweep was allowed
  U64 formerPeak_ = 0;  ///< in the minute before
  U32 advertisedRanges_ = 0;
  U32 singleKeys_ = 0;
};

void play(std::span<U8 const> rest, Role role) {
  Play play(role);
  for (int steps = 0; steps < 64 && !rest.empty(); ++steps) {
    U8 const control = rest[0];
    rest = rest.subspan(1);
    if ((control & 0x80) != 0) {
      if (rest.size() < 5) break;
      play.step(control & 0x7f, ShortForm(rest.first<5>()));
      rest = rest.subspan(5);
      continue;
    }
    if (rest.size() < 2) break;
    std::size_t const length = std::min<std::size_t>(rest[0] << 8 | rest[1], rest.size() - 2);
    auto const pim = rest.subspan(2, length);
    play.step(control, packetOf({pim.begin(), pim.end()}));
    rest = rest.subspan(2 + length);
  }
  play.finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  for (Role role : {Role::follower, Role::leader}) play({data, size}, role);
  return 0;
}
