#include "pim/HelloSm.h"

#include <algorithm>
#include <cstdlib>

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

// Birth and end ---------------------------------------------------------------------------------------

HelloSm::HelloSm(Ptr<Routing::Pim::Intf> const& intf, Ptr<Kiv::TimerWheel> const& wheel, Port& port,
                 HelloOptions const& options)
    : intf_(intf),
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

void HelloSm::sayFarewell() {
  helloTimer_->notifierIs(nullptr);
  send(port_.primaryAddress(intf_->intfId()), 0);
}

// Neighbours ------------------------------------------------------------------------------------------

/// Whether an address can be a neighbour's.
static bool isNeighborAddress(IpGenAddr const& address) {
  Lanet::IpAddr v4 = address.v4Addr();
  return address.af() == Lanet::AddressFamily::ipv4 && v4.hostWord() != 0 && v4.hostWord() < 0xe0000000;
}

void HelloSm::receive(wire::HelloMessage const& hello) {
  if (!isNeighborAddress(hello.srcAddr) || port_.isOwnAddress(hello.srcAddr)) return;
  Ptr<Neighbor> neighbor = intf_->neighbor(hello.srcAddr);
  if (hello.holdtime == 0) {
    if (neighbor) drop(hello.srcAddr);
    return;
  }
  U32 generation = hello.generationId.value_or(0);
  bool isNew = !neighbor || neighbor->generationId() != generation;
  if (!neighbor) neighbor = intf_->neighborIs(hello.srcAddr);
  update(*neighbor, hello);
  keepFor(*neighbor, hello.holdtime);
  electDr();
  if (isNew) triggerHello();
}

void HelloSm::update(Neighbor& neighbor, wire::HelloMessage const& hello) {
  neighbor.hasDrPriorityIs(hello.drPriority.has_value());
  neighbor.drPriorityIs(hello.drPriority.value_or(1));
  neighbor.generationIdIs(hello.generationId.value_or(0));
  for (auto at = neighbor.secondaryIterator(); at; ++at) {
    IpGenAddr address = at.key();
    auto const& told = hello.addressList;
    if (std::find(told.begin(), told.end(), address) == told.end()) neighbor.secondaryDel(address);
  }
  for (IpGenAddr const& address : hello.addressList) takeSecondary(neighbor, address);
}

/// An address belongs to the neighbour that told it last, and none is the primary's own double (RFC 7761
/// section 4.3.4).
void HelloSm::takeSecondary(Neighbor& neighbor, IpGenAddr const& address) {
  if (address == neighbor.address()) return;
  for (auto at = intf_->neighborIterator(); at; ++at) {
    if (at->address() != neighbor.address()) at->secondaryDel(address);
  }
  neighbor.secondaryIs(address, true);
}

void HelloSm::keepFor(Neighbor& neighbor, U16 holdtime) {
  IpGenAddr address = neighbor.address();
  neighbor.expiryTimeIs(holdtime == forEver ? Kiv::never : Zet::now() + holdtime);
  Ptr<Timer>& timer = expiryTimers_[address];
  if (!timer) timer = Zet::make<Timer>(wheel_, [this, address] { handleNeighborExpiry(address); });
  timer->timeMinIs(neighbor.expiryTime());
}

void HelloSm::handleNeighborExpiry(IpGenAddr const& address) { drop(IpGenAddr(address)); }

/// A neighbour that the host had put there before Hello was spoken has no timer.
void HelloSm::drop(IpGenAddr const& address) {
  if (auto at = expiryTimers_.find(address); at != expiryTimers_.end()) {
    Ptr<Timer> timer = at->second;
    expiryTimers_.erase(at);
    timer->notifierIs(nullptr);
  }
  intf_->neighborDel(address);
  electDr();
}

// The Designated Router -------------------------------------------------------------------------------

namespace {

/// One router of the link as the election sees it.
struct Standing {
  bool hasPriority;
  U32 priority;
  IpGenAddr address;
};

/// The winner, unset among none: by priority and then address, or by address alone where any router tells no
/// priority.
IpGenAddr winner(std::vector<Standing> const& routers) {
  if (routers.empty()) return {};
  bool byPriority =
      std::all_of(routers.begin(), routers.end(), [](Standing const& r) { return r.hasPriority; });
  auto less = [byPriority](Standing const& a, Standing const& b) {
    if (byPriority && a.priority != b.priority) return a.priority < b.priority;
    return a.address < b.address;
  };
  return std::max_element(routers.begin(), routers.end(), less)->address;
}

}  // namespace

void HelloSm::electDr() {
  IpGenAddr own = port_.primaryAddress(intf_->intfId());
  std::vector<Standing> routers;
  if (!own.isEmpty()) routers.push_back({true, options_.drPriority, own});
  for (auto at = intf_->neighborIterator(); at; ++at) {
    routers.push_back({at->hasDrPriority(), at->drPriority(), at->address()});
  }
  IpGenAddr dr = winner(routers);
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
  helloTimer_->timeMinIs(std::min(helloTimer_->timeMin(), Zet::now() + randomDelay(options_.triggeredDelay)));
}

void HelloSm::handleHelloTimer() {
  helloTimer_->timeMinIs(Zet::now() + options_.period);
  bool sent = options_.silent || send(port_.primaryAddress(intf_->intfId()), options_.holdtime);
  if (!triggered_ || !sent) return;
  triggered_ = false;
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
  wire::Ipv4Header header{.source = source.v4Addr(), .destination = Lanet::IpAddr::fromHost(0xe000000d)};
  return wire::encodeIpv4(header, payload_, packet_) && port_.send(intf_->intfId(), packet_);
}

}  // namespace pimbsr::pim
