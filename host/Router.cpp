#include "host/Router.h"

#include "host/Admission.h"
#include "host/Clearing.h"
#include "host/Correctors.h"
#include "host/IngressFilter.h"
#include "host/LastMessages.h"
#include "host/RpBounds.h"
#include "host/RpSweep.h"
#include "pim/IoManager.h"
#include "pim/RpfTable.h"
#include "runtime/Assert.h"
#include "wire/Message.h"
#include "wire/Wire.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace IO = Routing::Pim::IO;
namespace Packet = Routing::Pim::Packet;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

// Birth and end ---------------------------------------------------------------------------------------

static IpGenPrefix everySender() { return IpGenPrefix(Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0)), 0); }

/// The order is that of the engine's contract: Status with its family and counters, then the configuration,
/// then the gates, then the root machine, which reads all of it.
Router::Router(Zet::Context& context, pim::Port& port, RouterOptions const& options)
    : context_(context),
      port_(port),
      status_(options.status ? options.status : Bsr::statusFactory("bsr")),
      pimStatus_(Routing::Pim::statusFactory("pim")),
      neighbors_(Zet::make<pim::NeighborTable>(pimStatus_)),
      bsmStatus_(Bsr::pimBsmStatusFactory()),
      crpMsgStatus_(Bsr::pimCrpMsgStatusFactory()),
      rpCandidateStatus_(options.rpCandidateStatus ? options.rpCandidateStatus
                                                   : Routing::Pim::rpCandidateStatusFactory("bsr")),
      messageCounters_(Routing::Pim::Slosh::messageCountersFactory("pim")),
      sourceIntfSm_(Ip::SourceIntf::sourceIntfSmFactory()),
      routes_(Zet::make<Routing::Pim::PimUcastRouteStatus>()),
      rpf_(options.rpf),
      wheel_(Zet::make<Kiv::TimerWheel>()),
      interfaces_(Interface::allIntfStatusDirFactory("interfaces")),
      mtus_(interfaces_),
      io_(Zet::make<pim::IoManager>(pim::makePamManager(), port)),
      bsmInfo_(IO::messageInfoFactory()),
      crpMsgInfo_(IO::messageInfoFactory()),
      ownDrops_(options.ownDrops) {
  Call call(*this);
  if (!rpf_) rpf_ = Zet::make<pim::RpfTable>(routes_, neighbors_, port_);
  status_->afIs(Lanet::AddressFamily::ipv4);
  if (!status_->counters()) status_->countersIs("bsr");
  configure(options);
  gate_ = Bsr::bootstrapMessageSmFactory(io_->manager(), status_, bsmStatus_, bsmInfo_, rpf_);
  crpGate_ = Bsr::crpMessageSmFactory(io_->manager(), status_, crpMsgStatus_, crpMsgInfo_, routes_);
  root_ = Bsr::pimBsrSmFactory(status_, pimStatus_, bsmStatus_, crpMsgStatus_, rpCandidateStatus_, wheel_,
                               interfaces_);
  admission_ = std::make_unique<Admission>(*root_, port_);
  ingressFilter_ = std::make_unique<IngressFilter>(*root_, *gate_, *neighbors_, port_, options.ingress);
  switches_.settingsAre(options.corrections);
  lastMessages_ = std::make_unique<LastMessages>(*root_);
  correctors_ =
      std::make_unique<Correctors>(Correctors::Machines{root_, gate_, crpGate_, *io_, port_, mtus_, switches_,
                                                        ingressFilter_->settings(), *lastMessages_, policy_});
  ingressFilter_->holdOverIs(&correctors_->holdOver());
  bounds_ = Zet::make<RpBounds>(root_, crpGate_, ingressFilter_->settings());
  sweep_ = Zet::make<RpSweep>(rpCandidateStatus_, status_, wheel_);
  clearing_ = std::make_unique<Clearing>(*root_, *correctors_, *lastMessages_, *sweep_);
  resumeKept(*status_, switches_.of(&CorrectionSettings::keptStatus));
}

/// Claims of a former run are no part of what is kept: a range may have moved to another interface meanwhile.
void Router::configure(RouterOptions const& options) {
  if (options.config) {
    status_->zoneGroupDelAll();
    status_->zoneAclDelAll();
    configSm_ = Bsr::configSmFactory(options.config, options.clearConfig, status_, messageCounters_,
                                     sourceIntfSm_, options.accessLists);
  } else {
    status_->bsTimeoutIs(options.bsTimeout);
    status_->szTimeoutIs(options.szTimeout);
    status_->crpPermitIs(everySender(), true);
  }
}

/// The gates outlive the root machine, but have nowhere to send what it would say: its own end says nothing.
Router::~Router() {
  Call call(*this);
  clearing_ = nullptr;
  hellos_.clear();
  sweep_->stop();
  bounds_->stop();
  bounds_ = nullptr;
  correctors_ = nullptr;
  lastMessages_ = nullptr;
  ingressFilter_ = nullptr;
  admission_ = nullptr;
  root_ = nullptr;
  crpGate_ = nullptr;
  gate_ = nullptr;
  configSm_ = nullptr;
}

/// The gates take up the present counters of the status tree.
void Router::clearCounters() {
  Call call(*this);
  status_->countersDel();
  status_->countersIs("bsr");
}

void Router::bsmPolicyIs(BsmPolicy const& policy) {
  Call call(*this);
  policy_ = policy;
  std::vector<IpGenPrefix> zones;
  for (auto const& [zone, last] : lastMessages_->byZone()) {
    if (policy_.closed.contains(last.intfId)) zones.push_back(zone);
  }
  for (IpGenPrefix const& zone : zones) clearing_->clearBsr(zone);
}

Router::RpfPath Router::rpfPath(IpGenAddr const& address) const {
  Zet::Context::Scope scope(context_);
  return {pim::routeTo(address, *routes_, port_), rpf_->doLookup(address, IpGenAddr()).rpfNeighbor};
}

bool Router::clearBsr(IpGenPrefix const& zone) {
  Call call(*this);
  return clearing_->clearBsr(zone);
}

void Router::clearRpSet(IpGenPrefix const& zone) {
  Call call(*this);
  clearing_->clearRpSet(zone);
}

void Router::clearLeftoverRps() {
  Call call(*this);
  clearing_->clearLeftovers();
}

void Router::clearNeighbors(IntfId const& intfId) {
  Call call(*this);
  if (pim::HelloSm* machine = hello(intfId)) machine->clearNeighbors();
}

void Router::sendGoodbyes() {
  Call call(*this);
  for (auto at = status_->crpIterator(); at; ++at) status_->crpDel(IpGenAddr(at->address()));
  for (auto at = status_->cbsrIterator(); at; ++at) status_->cbsrDel(IpGenPrefix(at->zone()));
  for (auto& [intfId, hello] : hellos_) hello.sendGoodbye();
}

// Interfaces, routes and time -------------------------------------------------------------------------

void Router::interfaceIs(IntfId const& intfId, U32 mtu) {
  Call call(*this);
  mtus_.mtuIs(intfId, mtu);
  pimStatus_->pimIntfIs(intfId);
  writeSourceAddress(intfId, port_.primaryAddress(intfId));
}

void Router::interfaceIs(IntfId const& intfId, U32 mtu, pim::HelloOptions const& options) {
  Call call(*this);
  interfaceIs(intfId, mtu);
  auto [at, isNew] = hellos_.try_emplace(intfId, neighbors_->link(intfId), wheel_, port_, options);
  if (!isNew) return at->second.optionsIs(options);
  at->second.relearnIs(&switches_.of(&CorrectionSettings::quickRelearn));
}

void Router::interfaceDel(IntfId const& intfId) {
  Call call(*this);
  hellos_.erase(intfId);
  ingressFilter_->forget(intfId);
  pimStatus_->pimIntfDel(intfId);
  mtus_.del(intfId);
  writeSourceAddress(intfId, port_.primaryAddress(intfId));
}

void Router::handleAddressChange(IntfId const& intfId) {
  Call call(*this);
  if (pim::HelloSm* machine = hello(intfId)) machine->handleAddressChange();
  writeSourceAddress(intfId, port_.primaryAddress(intfId));
}

/// 0.0.0.0 for an interface without an address.
void Router::writeSourceAddress(IntfId const& intfId, IpGenAddr const& address) {
  sourceIntfSm_->sourceIntfIs(intfId)->ipAddrIs(address.isEmpty() ? Lanet::IpAddr() : address.v4Addr());
}

pim::HelloSm* Router::hello(IntfId const& intfId) {
  auto at = hellos_.find(intfId);
  return at == hellos_.end() ? nullptr : &at->second;
}

pim::HelloSm const* Router::hello(IntfId const& intfId) const {
  auto at = hellos_.find(intfId);
  return at == hellos_.end() ? nullptr : &at->second;
}

void Router::routeIs(Lanet::Prefix const& prefix, Slosh::Fib::Route const& route) {
  Call call(*this);
  routes_->routeIs(prefix, route);
}

void Router::routeDel(Lanet::Prefix const& prefix) {
  Call call(*this);
  routes_->routeDel(prefix);
}

void Router::advance() {
  Call call(*this);
  wheel_->advance(context_.now());
}

// Candidacies -----------------------------------------------------------------------------------------

/// The address comes first: the machine that is made with the entry waits for it.
void Router::candidateBsrIs(IpGenPrefix const& zone, BsrCandidacy const& candidacy) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  Ptr<Bsr::BsrCandidate> entry = status_->cbsrIs(zone);
  entry->addressIs(candidacy.address);
  entry->intfIdIs(candidacy.intfId);
  entry->priorityIs(candidacy.priority);
  entry->hashMaskLenIs(candidacy.hashMaskLen);
  entry->bsPeriodIs(candidacy.interval);
}

void Router::candidateBsrDel(IpGenPrefix const& zone) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  status_->cbsrDel(zone);
}

void Router::candidateRpIs(IpGenPrefix const& range, RpCandidacy const& candidacy) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  Ptr<Bsr::RpCandidate> entry = status_->crpIs(candidacy.address);
  entry->intfIdIs(candidacy.intfId);
  entry->intervalIs(candidacy.interval);
  entry->prefixSetIs(range, true);
  entry->prefixOptionsIs(range)->priorityIs(candidacy.priority);
}

void Router::candidateRpDel(IpGenPrefix const& range, IpGenAddr const& address) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  Ptr<Bsr::RpCandidate> entry = status_->crp(address);
  if (!entry) return;
  entry->prefixSetDel(range);
  entry->prefixOptionsDel(range);
  if (entry->prefixSetCount() == 0) status_->crpDel(address);
}

void Router::borderIs(IpGenPrefix const& zone, IntfId const& intfId, bool border) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  if (border) {
    status_->bsBorderIs(zone)->intfIdIs(intfId, true);
  } else if (Ptr<Bsr::PimBsrBorder> entry = status_->bsBorder(zone)) {
    entry->intfIdDel(intfId);
    if (entry->intfIdCount() == 0) status_->bsBorderDel(zone);
  }
}

void Router::permitIs(IpGenPrefix const& senders) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  permitted_.insert(senders);
  status_->crpPermitIs(senders, true);
  if (!permitted_.contains(everySender())) status_->crpPermitDel(everySender());
}

void Router::permitDel(IpGenPrefix const& senders) {
  ZET_ASSERT(!configSm_, "!configSm_");
  Call call(*this);
  permitted_.erase(senders);
  if (permitted_.empty()) status_->crpPermitIs(everySender(), true);
  if (!permitted_.empty() || senders != everySender()) status_->crpPermitDel(senders);
}

// A packet --------------------------------------------------------------------------------------------

void Router::ingressSettingsIs(IngressSettings const& ingress) { ingressFilter_->settingsIs(ingress); }

void Router::correctionsAre(CorrectionSettings const& settings) {
  Call call(*this);
  switches_.settingsAre(settings);
  correctors_->handleSwitches();
}

HoldOver& Router::holdOver() { return correctors_->holdOver(); }
HoldOver const& Router::holdOver() const { return correctors_->holdOver(); }

MessageFit const& Router::fit() const { return correctors_->fit(); }

void Router::exactBordersAre(std::set<IntfId> const& interfaces) {
  correctors_->borders().exactAre(interfaces);
}

void Router::preferredRpsIs(PreferredRps const& preferred) { bounds_->preferredIs(preferred); }

/// Names the reason, if it is one, and returns whether it is.
static bool dropped(DropReason reason, Reception& reception) {
  if (reason == DropReason::none) return false;
  reception.reason = name(reason);
  reception.sentence = sentence(reason);
  return true;
}

Reception Router::receive(IntfId const& intfId, std::span<U8 const> packet) {
  Call call(*this);
  Reception reception;
  wire::Outcome<wire::Ipv4Packet> ip = wire::parseIpv4(packet);
  Arrival arrival = ip ? ingressFilter_->arrival(intfId, *ip) : Arrival();
  if (ip) {
    reception.source = ip->source;
    reception.destination = ip->destination;
  }
  if (dropped(ingressFilter_->charge(intfId, arrival), reception)) {
    reception.kind = MessageKind::unread;
  } else if (ip) {
    read(intfId, *ip, arrival, reception);
  } else if (ip.reason() != DropReason::ipProtocol) {
    malformed(ip.reason(), reception);
  }
  return reception;
}

std::vector<Lanet::IpAddr> Router::advertisers(std::size_t max) const {
  std::vector<Lanet::IpAddr> addresses;
  for (IpGenAddr const& sender : ingressFilter_->budgets().steadyAdvertisers(max))
    addresses.push_back(sender.v4Addr());
  return addresses;
}

bool Router::takeAdvertisersChanged() {
  Zet::Context::Scope scope(context_);
  return ingressFilter_->takeAdvertisersChanged();
}

/// What a message says it is, before more of it is read.
static MessageKind kindOf(wire::Bytes pim) {
  wire::Reader in(pim);
  wire::MessageHeader header;
  if (wire::readHeader(in, header)) return MessageKind::malformed;
  switch (static_cast<wire::MessageType>(header.type)) {
    case wire::MessageType::hello:
      return MessageKind::hello;
    case wire::MessageType::bootstrap:
      return MessageKind::bootstrap;
    case wire::MessageType::crpAdv:
      return MessageKind::crpAdv;
  }
  return MessageKind::other;
}

void Router::read(IntfId const& intfId, wire::Ipv4Packet const& packet, Arrival const& arrival,
                  Reception& reception) {
  if (dropped(arrival.header, reception) ||
      dropped(ingressFilter_->validateLength(packet.payload), reception)) {
    reception.kind = kindOf(packet.payload);
    return;
  }
  handle(intfId,
         wire::decodeMessage(packet.payload, packet.source, packet.destination, correctors_->fit().leftOut()),
         reception);
  if (reception.kind == MessageKind::malformed) ingressFilter_->handleMalformed(intfId, arrival);
}

void Router::handle(IntfId const& intfId, wire::Outcome<wire::DecodedMessage> const& decoded,
                    Reception& reception) {
  if (!decoded) return malformed(decoded.reason(), reception);
  if (auto const* bsm = std::get_if<Ptr<Packet::BootstrapMessage>>(&*decoded)) {
    reception.kind = MessageKind::bootstrap;
    reception.message = *bsm;
    bootstrap(intfId, **bsm, reception);
  } else if (auto const* adv = std::get_if<Ptr<Packet::CrpAdvMessage>>(&*decoded)) {
    reception.kind = MessageKind::crpAdv;
    reception.message = *adv;
    crpAdv(intfId, **adv, reception);
  } else if (auto const* hello = std::get_if<wire::HelloMessage>(&*decoded)) {
    reception.kind = MessageKind::hello;
    this->hello(intfId, *hello, reception);
  } else {
    reception.kind = MessageKind::other;
  }
}

void Router::hello(IntfId const& intfId, wire::HelloMessage const& message, Reception& reception) {
  pim::HelloSm* machine = hello(intfId);
  if (machine == nullptr || dropped(ingressFilter_->validateHello(intfId, message), reception)) return;
  machine->receive(message);
}

void Router::malformed(DropReason reason, Reception& reception) {
  reception.kind = MessageKind::malformed;
  reception.reason = name(reason);
  reception.sentence = sentence(reason);
}

/// Hands a message to the gate that watches `info`; returns why the gate drops it or, of an advertisement,
/// one of its group ranges.
DropReason Router::throughGate(IO::MessageInfo& info, IntfId const& intfId,
                               Ptr<Packet::Message> const& message) {
  inHand_ = DropReason::none;
  info.intfIdIs(intfId);
  info.messageIs(message);
  info.countInc(1);
  return *std::exchange(inHand_, std::nullopt);
}

/// Outside of a packet the gates drop only what this router advertises to itself.
void Router::onDrop(DropReason reason) {
  if (inHand_) {
    if (inHand_ == DropReason::none) inHand_ = reason;
    return;
  }
  if (ownDrops_ == nullptr) return;
  Ptr<Packet::CrpAdvMessage> message = crpMsgStatus_->txCrpMsg();
  Reception reception{.kind = MessageKind::crpAdv, .message = message};
  if (message) reception.source = message->srcAddr();
  if (message) reception.destination = message->dstAddr();
  dropped(reason, reception);
  ownDrops_->onOwnDrop(reception);
}

void Router::bootstrap(IntfId const& intfId, Packet::BootstrapMessage& message, Reception& reception) {
  if (dropped(ingressFilter_->validateSender(intfId, message), reception)) return;
  if (dropped(policy_.validate(intfId, message), reception)) return;
  correctors_->fit().clamp(message);
  if (dropped(admission_->validate(message), reception)) return;
  if (dropped(correctors_->ingress().validate(intfId, message), reception)) return;
  MessageFit::Verdict fitting = correctors_->fit(message);
  if (dropped(fitting.reason, reception)) return;
  Quotas::Verdict verdict = ingressFilter_->validateCost(*fitting.passed);
  dropped(verdict.reason, reception);
  if (!verdict.passed) return;
  correctors_->prepare(*verdict.passed);
  bool isDropped = dropped(throughGate(*bsmInfo_, intfId, verdict.passed), reception);
  reception.droppedRanges = isDropped ? 0 : verdict.dropped;
  if (isDropped) return;
  lastMessages_->note(intfId, reception.source, *verdict.passed);
  correctors_->handleAccepted(verdict.passed);
}

void Router::crpAdv(IntfId const& intfId, Packet::CrpAdvMessage& message, Reception& reception) {
  correctors_->fit().clamp(message);
  if (dropped(admission_->validate(message), reception)) return;
  if (!port_.isOwnAddress(message.dstAddr())) return;
  if (dropped(ingressFilter_->validateCost(message, bounds_->places().preferred()), reception)) return;
  RpBounds::Verdict verdict = bounds_->check(message);
  dropped(verdict.reason, reception);
  if (!verdict.passed) return;
  correctors_->ingress().prepare(*verdict.passed);
  if (dropped(throughGate(*crpMsgInfo_, intfId, verdict.passed), reception)) return;
  reception.droppedRanges = verdict.dropped;
  correctors_->handleAccepted(*verdict.passed);
  ingressFilter_->noteAdvertisement(message);
}

}  // namespace pimbsr::host
