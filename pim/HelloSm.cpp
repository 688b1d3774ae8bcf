#include "pim/HelloSm.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "runtime/Context.h"

namespace pimbsr::pim {

using Lanet::IpGenAddr;
using Routing::Pim::Neighbor;
using Zet::Ptr;

static constexpr U16 forEver = 0xffff;

/// A time drawn evenly from 0 to `most` seconds.
static double randomDelay(double most) { return most * Zet::Context::current().rand() / (RAND_MAX + 1.0); }

/// A new Generation ID: anything but the one before will do.
static U32 randomId() {
  auto high = static_cast<U32>(Zet::Context::current().rand());
  return high << 16 ^ static_cast<U32>(Zet::Context::current().rand());
}

// Construction and end --------------------------------------------------------------------------------

HelloSm::HelloSm(Ptr<LinkNeighbors> const& neighbors, Ptr<Kiv::TimerWheel> const& wheel, Port& port,
                 HelloOptions const& options)
    : neighbors_(neighbors),
      intf_(neighbors->notifier()),
      wheel_(wheel),
      port_(port),
      options_(options),
      generationId_(randomId()),
      helloTimer_(Zet::make<Timer>(wheel, [this] { handleHelloTimer(); })) {
  helloTimer_->timeMinIs(Zet::now() + randomDelay(options_.triggeredDelay));
  electDr();
}

HelloSm::~HelloSm() {
  helloTimer_->notifierIs(nullptr);
  for (auto& [address, timer] : expiryTimers_) timer->notifierIs(nullptr);
}

void HelloSm::sendGoodbye() {
  helloTimer_->notifierIs(nullptr);
  send(port_.primaryAddress(intf_->intfId()), 0);
}

// Neighbors -------------------------------------------------------------------------------------------

/// Whether an address can be a neighbor's.
static bool isNeighborAddress(IpGenAddr const& address) {
  Lanet::IpAddr v4 = address.v4Addr();
  return address.af() == Lanet::AddressFamily::ipv4 && v4.hostWord() != 0 && v4 < Lanet::firstGroup;
}

void HelloSm::receive(wire::HelloMessage const& hello) {
  if (!isNeighborAddress(hello.srcAddr) || port_.isOwnAddress(hello.srcAddr)) return;
  Ptr<Neighbor> neighbor = intf_->neighbor(hello.srcAddr);
  if (hello.holdtime == 0) {
    if (neighbor) drop(hello.srcAddr);
    return;
  }
  U32 generation = hello.generationId.value_or(0);
  bool hasRestarted = neighbor && neighbor->generationId() != generation;
  bool isNew = !neighbor || hasRestarted;
  bool wasDr = intf_->iAmDr();
  if (hasRestarted && relearns()) {
    forget(hello.srcAddr);
    neighbor = nullptr;
  }
  makeRoom(hello);
  if (!neighbor) neighbor = intf_->neighborIs(hello.srcAddr);
  update(*neighbor, hello);
  keepFor(*neighbor, hello.holdtime);
  electDr();
  if (!isNew) return;
  triggerHello();
  if (relearns() && (wasDr || wasDrMeanwhile_)) answerAtOnce();
}

/// Forged Hellos with endless holdtimes would otherwise keep all other routers out of a full table for ever.
void HelloSm::makeRoom(wire::HelloMessage const& hello) {
  auto displaced = neighbors_->displacedBy(hello);
  if (!displaced) return;
  for (IpGenAddr const& address : *displaced) drop(address);
}

void HelloSm::update(Neighbor& neighbor, wire::HelloMessage const& hello) {
  neighbor.hasDrPriorityIs(hello.drPriority.has_value());
  neighbor.drPriorityIs(hello.drPriority.value_or(1));
  neighbor.generationIdIs(hello.generationId.value_or(0));
  listed_.assign(hello.addressList.begin(), hello.addressList.end());
  std::sort(listed_.begin(), listed_.end());
  for (auto at = neighbor.secondaryIterator(); at; ++at) {
    IpGenAddr address = at.key();
    if (!std::binary_search(listed_.begin(), listed_.end(), address)) neighbor.secondaryDel(address);
  }
  for (IpGenAddr const& address : listed_) takeSecondary(neighbor, address);
}

/// An address belongs to the neighbor that listed it last, and none is the primary's own double (RFC 7761
/// section 4.3.4).
void HelloSm::takeSecondary(Neighbor& neighbor, IpGenAddr const& address) {
  if (address == neighbor.address()) return;
  for (IpGenAddr other = neighbors_->otherOwner(address, neighbor.address()); !other.isEmpty();
       other = neighbors_->otherOwner(address, neighbor.address())) {
    intf_->neighbor(other)->secondaryDel(address);
  }
  neighbor.secondaryIs(address, true);
}

void HelloSm::keepFor(Neighbor& neighbor, U16 holdtime) {
  IpGenAddr address = neighbor.address();
  neighbors_->noteHello(address);
  neighbor.expiryTimeIs(holdtime == forEver ? Kiv::never : Zet::now() + holdtime);
  Ptr<Timer>& timer = expiryTimers_[address];
  if (!timer) timer = Zet::make<Timer>(wheel_, [this, address] { handleNeighborExpiry(address); });
  timer->timeMinIs(neighbor.expiryTime());
}

void HelloSm::handleNeighborExpiry(IpGenAddr const& address) { drop(IpGenAddr(address)); }

void HelloSm::forget(IpGenAddr const& restarted) {
  bool wasDr = intf_->iAmDr();
  relearn_->noteAct();
  drop(restarted);
  if (!wasDr && intf_->iAmDr()) wasDrMeanwhile_ = true;
}

/// A message that was forwarded since then took the mark of the former DR, though the neighbor has dropped
/// it: it didn't know its sender yet.
void HelloSm::showRole() {
  if (!std::exchange(wasDrMeanwhile_, false) || intf_->iAmDr()) return;
  intf_->iAmDrIs(true);
  intf_->iAmDrIs(false);
}

/// A neighbor that the host had added before Hello was enabled has no timer.
void HelloSm::drop(IpGenAddr const& address) {
  if (auto at = expiryTimers_.find(address); at != expiryTimers_.end()) {
    Ptr<Timer> timer = at->second;
    expiryTimers_.erase(at);
    timer->notifierIs(nullptr);
  }
  intf_->neighborDel(address);
  electDr();
}

void HelloSm::clearNeighbors() {
  std::vector<IpGenAddr> addresses;
  for (auto at = intf_->neighborIterator(); at; ++at) addresses.push_back(at->address());
  for (IpGenAddr const& address : addresses) drop(address);
  generationId_ = randomId();
  triggerHello();
}

// The Designated Router -------------------------------------------------------------------------------

void HelloSm::electDr() {
  IpGenAddr own = port_.primaryAddress(intf_->intfId());
  IpGenAddr dr = neighbors_->electDr(own, options_.drPriority);
  intf_->drAddressIs(dr);
  intf_->iAmDrIs(!own.isEmpty() && dr == own);
}

void HelloSm::handleAddressChange() {
  IpGenAddr former = announced_;
  if (former == port_.primaryAddress(intf_->intfId())) former = {};
  send(former, 0);
  generationId_ = randomId();
  electDr();
  triggerHello();
}

// Hellos ----------------------------------------------------------------------------------------------

void HelloSm::optionsIs(HelloOptions const& options) {
  if (options == options_) return;
  options_ = options;
  electDr();
  hastenHello();
}

void HelloSm::triggerHello() {
  triggered_ = true;
  hastenHello();
}

void HelloSm::hastenHello() {
  double due = Zet::now() + randomDelay(options_.triggeredDelay);
  if (relearns()) due = std::max(due, lastTriggered_ + options_.triggeredDelay);
  helloTimer_->timeMinIs(std::min(helloTimer_->timeMin(), due));
}

/// Of a link's routers one alone was the DR without the neighbor, so that no others answer at that moment.
/// Its own delay would come on top of that of the neighbor's first Hello (RFC 7761 section 4.3.1).
void HelloSm::answerAtOnce() {
  double due = std::max(Zet::now(), lastTriggered_ + options_.triggeredDelay);
  helloTimer_->timeMinIs(std::min(helloTimer_->timeMin(), due));
}

void HelloSm::handleHelloTimer() {
  helloTimer_->timeMinIs(Zet::now() + options_.period);
  bool sent = options_.silent || send(port_.primaryAddress(intf_->intfId()), options_.holdtime);
  bool isTooSoon = relearns() && Zet::now() < lastTriggered_ + options_.triggeredDelay;
  if (!triggered_ || !sent || isTooSoon) return;
  triggered_ = false;
  lastTriggered_ = Zet::now();
  showRole();
  intf_->triggeredHelloCountInc(1);
}

bool HelloSm::send(IpGenAddr const& source, U16 holdtime) {
  if (source.isEmpty() || options_.silent) return false;
  announced_ = holdtime == 0 ? IpGenAddr() : source;
  wire::encodeHello({.holdtime = holdtime,
                     .drPriority = options_.drPriority,
                     .generationId = generationId_,
                     .addressList = port_.secondaryAddresses(intf_->intfId())},
                    payload_);
  wire::Ipv4Header header{.source = source.v4Addr(), .destination = Lanet::allPimRouters};
  return wire::encodeIpv4(header, payload_, packet_) && port_.send(intf_->intfId(), packet_);
}

}  // namespace pimbsr::pim
