#include "cli/replay/Replay.h"

#include <optional>
#include <utility>

#include "cli/capture/PimFilter.h"
#include "cli/replay/ReplayWorld.h"
#include "wire/Wire.h"

namespace pimbsr::cli {

namespace Packet = Routing::Pim::Packet;
using host::Change;
using host::MessageKind;
using host::Reception;
using Lanet::IpGenPrefix;

// Changes ---------------------------------------------------------------------------------------------

/// Collects the changes of one event.
class Replay::Recorder final : public host::ChangeSink {
 public:
  void onChange(Change const& change) override { changes_.push_back(change); }

  std::vector<Change> take() {
    host::sortByAddress(changes_);
    return std::exchange(changes_, {});
  }

 private:
  std::vector<Change> changes_;
};

// The clock -------------------------------------------------------------------------------------------

Replay::Replay(ReplayOptions const& options, ReplayReport& report, std::ostream& traceOut)
    : options_(options),
      report_(report),
      world_(std::make_unique<ReplayWorld>(options, traceOut)),
      recorder_(std::make_unique<Recorder>()) {}

Replay::~Replay() = default;

double Replay::elapsed() const { return world_->context.now() - startTime_; }

/// The router starts at the time of the first packet: a gate takes No-Forward messages by its age.
void Replay::start(Frame const* first) {
  if (first != nullptr) first_ = first->time;
  startTime_ = first_.isReal() ? first_.value() : Zet::Context::firstTime;
  world_->context.startTimeIs(startTime_);
  host::RouterOptions router = options_.router;
  router.rpf = world_->rpf;
  router_ = std::make_unique<host::Router>(world_->context, world_->port, router);
  router_->interfaceIs(world_->intfId, 1500);
  observer_ = std::make_unique<host::Observer>(*router_, *recorder_);
  if (first != nullptr) report_.onStart(first_);
}

void Replay::runTo(double time) {
  for (double next = router_->nextExpiry(); next <= time; next = router_->nextExpiry()) {
    world_->context.nowIs(next);
    router_->advance();
    observer_->flush();
    std::vector<Change> changes = recorder_->take();
    if (!changes.empty()) report_.onTimers(elapsed(), changes);
  }
  world_->context.nowIs(time);
}

// Packets ---------------------------------------------------------------------------------------------

void Replay::playFrame(Frame const& frame) {
  if (!router_) start(&frame);
  double time = std::max(world_->context.now(), startTime_ + frame.time.since(first_));
  dropIncomplete(time);
  runTo(time);
  if (!isPim(frame.packet)) return;
  if (frame.packet.version == 4) return playIpv4(frame.packet.bytes);
  ++messages_.pim;
  ++messages_.other;
}

void Replay::playIpv4(wire::Bytes packet) {
  auto ip = wire::parseIpv4(packet);
  if (ip || ip.reason() != DropReason::ipFragment) return receive(packet);
  double now = world_->context.now();
  std::vector<Zet::U8> whole = reassembly_.add(now, packet);
  if (!whole.empty()) receive(whole);
  dropIncomplete(now);
}

/// Plays a fragment of each packet whose time to become complete is over: the router drops it.
void Replay::dropIncomplete(double time) {
  while (auto lost = reassembly_.takeLost(time)) {
    runTo(lost->time);
    receive(lost->fragment);
  }
}

/// The Bootstrap Message of a reception; null if it is of another kind.
static Packet::BootstrapMessage const* bsmOf(Reception const& reception) {
  if (reception.kind != MessageKind::bootstrap) return nullptr;
  return static_cast<Packet::BootstrapMessage const*>(reception.message.ptr());
}

void Replay::receive(wire::Bytes packet) {
  ++messages_.pim;
  if (auto ip = wire::parseIpv4(packet)) world_->rpf->sourceIs(ip->source);
  Zet::U32 before = router_->status()->counters()->rxBsm();
  observer_->messageInHand();
  Reception reception = router_->receive(world_->intfId, packet);
  observer_->flush();
  count(reception);
  bool reachedGate = router_->status()->counters()->rxBsm() != before;
  Packet::BootstrapMessage const* bsm = bsmOf(reception);
  // The gate looks up the RPF neighbor of most BSMs, but not of those that it drops for their destination.
  if (reachedGate && bsm->forward()) world_->rpf->heard(bsm->bsrAddress(), reception.source);
  std::vector<Change> changes = recorder_->take();
  PlayedMessage played = describe(reception);
  played.packet = packet;
  report_.onMessage(played, changes);
}

void Replay::count(Reception const& reception) {
  switch (reception.kind) {
    case MessageKind::bootstrap:
      ++messages_.bsm;
      break;
    case MessageKind::crpAdv:
      ++messages_.crpAdv;
      break;
    case MessageKind::hello:
      ++messages_.hello;
      break;
    case MessageKind::malformed:
      ++messages_.malformed;
      break;
    default:
      ++messages_.other;
  }
  if (reception.accepted()) return;
  messages_.dropped[reception.reason].add(reception);
}

static IpGenPrefix zoneOf(Packet::BootstrapMessage const& bsm, IpGenPrefix const& globalZone) {
  auto first = bsm.groupRpData()->groupDataFirst();
  return first && first->groupFlags().scoped() ? first->prefix() : globalZone;
}

PlayedMessage Replay::describe(Reception const& reception) const {
  PlayedMessage played{.time = elapsed(), .reception = reception};
  Packet::BootstrapMessage const* bsm = bsmOf(reception);
  if (bsm == nullptr) return played;
  played.rpfNeighbor = world_->rpf->neighbor(bsm->bsrAddress());
  played.zone = zoneOf(*bsm, router_->globalZone());
  auto elected = router_->status()->bootstrapRouter(played.zone);
  if (!elected || !reception.accepted()) return played;
  using Routing::Pim::Bsr::PimBsrWeight;
  PimBsrWeight received(bsm->bsrPriority(), bsm->bsrAddress());
  PimBsrWeight current(static_cast<Zet::U8>(elected->priority()), elected->ipAddr());
  if (received < current) played.betterBsr = host::viewOf(*elected);
  return played;
}

// The whole -------------------------------------------------------------------------------------------

void Replay::play(Capture& capture) {
  Frame frame;
  try {
    while (capture.next(frame)) playFrame(frame);
  } catch (CaptureError const&) {
    end(false, frame.number, 0);
    throw;
  }
  end(true, frame.number, options_.until);
}

void Replay::end(bool complete, U64 frames, double runOn) {
  if (!router_) start(nullptr);
  while (auto fragment = reassembly_.takeOldest()) receive(*fragment);
  ReplayResult result{.complete = complete, .frames = frames, .lastPacket = elapsed()};
  runTo(world_->context.now() + runOn);
  result.end = elapsed();
  result.now = world_->context.now();
  result.exceptions = world_->context.notificationExceptions();
  result.messages = messages_;
  result.zones = host::zonesOf(*router_);
  result.counters = host::countersOf(*router_->status()->counters());
  report_.onEnd(result);
}

}  // namespace pimbsr::cli
