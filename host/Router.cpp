#include "host/Router.h"

#include "crp/RpCandidateSm.h"
#include "host/RouterParts.h"
#include "pim/RpfTable.h"
#include "protocol/BsrCandidateSm.h"
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

// Construction and end --------------------------------------------------------------------------------

static IpGenPrefix everySender() { return IpGenPrefix(Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0)), 0); }

/// The order is that of the engine's contract: Status with its family and counters, then the configuration,
/// then the gates, then the root machine, which reads all of it.
RouterParts::RouterParts(Zet::Context& hostContext, pim::Port& hostPort, RouterOptions const& options)
    : context(hostContext),
      port(hostPort),
      status(options.status ? options.status : Bsr::statusFactory("bsr")),
      pimStatus(Routing::Pim::statusFactory("pim")),
      neighbors(Zet::make<pim::NeighborTable>(pimStatus)),
      bsmStatus(Bsr::pimBsmStatusFactory()),
      crpMsgStatus(Bsr::pimCrpMsgStatusFactory()),
      rpCandidateStatus(options.rpCandidateStatus ? options.rpCandidateStatus
                                                  : Routing::Pim::rpCandidateStatusFactory("bsr")),
      messageCounters(Routing::Pim::Slosh::messageCountersFactory("pim")),
      sourceIntfSm(Ip::SourceIntf::sourceIntfSmFactory()),
      routes(Zet::make<Routing::Pim::PimUcastRouteStatus>()),
      rpf(options.rpf),
      wheel(Zet::make<Kiv::TimerWheel>()),
      interfaces(Interface::allIntfStatusDirFactory("interfaces")),
      mtus(interfaces),
      io(Zet::make<pim::IoManager>(pim::makePamManager(), hostPort)),
      bsmInfo(IO::messageInfoFactory()),
      crpMsgInfo(IO::messageInfoFactory()),
      ownDrops(options.ownDrops) {}

RouterParts& partsOf(Router& router) { return *router.parts_; }
RouterParts const& partsOf(Router const& router) { return *router.parts_; }

Router::Router(Zet::Context& context, pim::Port& port, RouterOptions const& options)
    : parts_(std::make_unique<RouterParts>(context, port, options)) {
  Call call(*this);
  if (!parts_->rpf) parts_->rpf = Zet::make<pim::RpfTable>(parts_->routes, parts_->neighbors, parts_->port);
  parts_->status->afIs(Lanet::AddressFamily::ipv4);
  if (!parts_->status->counters()) parts_->status->countersIs("bsr");
  configure(options);
  parts_->gate = Bsr::bootstrapMessageSmFactory(parts_->io->manager(), parts_->status, parts_->bsmStatus,
                                                parts_->bsmInfo, parts_->rpf);
  parts_->crpGate = Bsr::crpMessageSmFactory(parts_->io->manager(), parts_->status, parts_->crpMsgStatus,
                                             parts_->crpMsgInfo, parts_->routes);
  parts_->root =
      Bsr::pimBsrSmFactory(parts_->status, parts_->pimStatus, parts_->bsmStatus, parts_->crpMsgStatus,
                           parts_->rpCandidateStatus, parts_->wheel, parts_->interfaces);
  parts_->admission = std::make_unique<Admission>(*parts_->root, parts_->port);
  parts_->ingressFilter = std::make_unique<IngressFilter>(*parts_->root, *parts_->gate, *parts_->neighbors,
                                                          parts_->port, options.ingress);
  parts_->switches.settingsAre(options.corrections);
  parts_->lastMessages = std::make_unique<LastMessages>(*parts_->root);
  parts_->correctors = std::make_unique<Correctors>(Correctors::Machines{
      parts_->root, parts_->gate, parts_->crpGate, *parts_->io, parts_->port, parts_->mtus, parts_->switches,
      parts_->ingressFilter->settings(), *parts_->lastMessages, parts_->policy});
  parts_->ingressFilter->holdOverIs(&parts_->correctors->holdOver());
  parts_->bounds = Zet::make<RpBounds>(parts_->root, parts_->crpGate, parts_->ingressFilter->settings());
  parts_->sweep = Zet::make<RpSweep>(parts_->rpCandidateStatus, parts_->status, parts_->wheel);
  parts_->clearing =
      std::make_unique<Clearing>(*parts_->root, *parts_->correctors, *parts_->lastMessages, *parts_->sweep);
  resumeKept(*parts_->status, parts_->switches.of(&CorrectionSettings::keptStatus));
  parts_->correctors->holdOver().takeUp();
}

/// Claims of a former run are no part of what is kept: a range may have moved to another interface meanwhile.
void Router::configure(RouterOptions const& options) {
  if (options.config) {
    parts_->status->zoneGroupDelAll();
    parts_->status->zoneAclDelAll();
    parts_->configSm =
        Bsr::configSmFactory(options.config, options.clearConfig, parts_->status, parts_->messageCounters,
                             parts_->sourceIntfSm, options.accessLists);
  } else {
    parts_->status->bsTimeoutIs(options.bsTimeout);
    parts_->status->szTimeoutIs(options.szTimeout);
    parts_->status->crpPermitIs(everySender(), true);
  }
}

/// The gates outlive the root machine, but have nowhere to send what it would say: its own end says nothing.
Router::~Router() {
  Call call(*this);
  parts_->clearing = nullptr;
  parts_->hellos.clear();
  parts_->sweep->stop();
  parts_->bounds->stop();
  parts_->bounds = nullptr;
  parts_->correctors = nullptr;
  parts_->lastMessages = nullptr;
  parts_->ingressFilter = nullptr;
  parts_->admission = nullptr;
  parts_->root = nullptr;
  parts_->crpGate = nullptr;
  parts_->gate = nullptr;
  parts_->configSm = nullptr;
}

/// The gates take up the present counters of the status tree.
void Router::clearCounters() {
  Call call(*this);
  parts_->status->countersDel();
  parts_->status->countersIs("bsr");
}

void Router::bsmPolicyIs(BsmPolicy const& policy) {
  Call call(*this);
  parts_->policy = policy;
  std::vector<IpGenPrefix> zones;
  for (auto const& [zone, last] : parts_->lastMessages->byZone()) {
    if (parts_->policy.closed.contains(last.intfId)) zones.push_back(zone);
  }
  for (IpGenPrefix const& zone : zones) parts_->clearing->clearBsr(zone);
}

Router::RpfPath Router::rpfPath(IpGenAddr const& address) const {
  Zet::Context::Scope scope(parts_->context);
  return {pim::routeTo(address, *parts_->routes, parts_->port),
          parts_->rpf->doLookup(address, IpGenAddr()).rpfNeighbor};
}

bool Router::clearBsr(IpGenPrefix const& zone) {
  Call call(*this);
  return parts_->clearing->clearBsr(zone);
}

void Router::clearRpSet(IpGenPrefix const& zone) {
  Call call(*this);
  parts_->clearing->clearRpSet(zone);
}

void Router::clearLeftoverRps() {
  Call call(*this);
  parts_->clearing->clearLeftovers();
}

void Router::clearNeighbors(IntfId const& intfId) {
  Call call(*this);
  if (pim::HelloSm* machine = hello(intfId)) machine->clearNeighbors();
}

void Router::sendGoodbyes() {
  Call call(*this);
  for (auto at = parts_->status->crpIterator(); at; ++at) parts_->status->crpDel(IpGenAddr(at->address()));
  for (auto at = parts_->status->cbsrIterator(); at; ++at) parts_->status->cbsrDel(IpGenPrefix(at->zone()));
  for (auto& [intfId, hello] : parts_->hellos) hello.sendGoodbye();
}

// Interfaces, routes and time -------------------------------------------------------------------------

void Router::interfaceIs(IntfId const& intfId, U32 mtu) {
  Call call(*this);
  parts_->mtus.mtuIs(intfId, mtu);
  parts_->pimStatus->pimIntfIs(intfId);
  writeSourceAddress(intfId, parts_->port.primaryAddress(intfId));
}

void Router::interfaceIs(IntfId const& intfId, U32 mtu, pim::HelloOptions const& options) {
  Call call(*this);
  interfaceIs(intfId, mtu);
  auto [at, isNew] = parts_->hellos.try_emplace(intfId, parts_->neighbors->link(intfId), parts_->wheel,
                                                parts_->port, options);
  if (!isNew) return at->second.optionsIs(options);
  at->second.relearnIs(&parts_->switches.of(&CorrectionSettings::quickRelearn));
}

void Router::interfaceDel(IntfId const& intfId) {
  Call call(*this);
  parts_->hellos.erase(intfId);
  parts_->ingressFilter->forget(intfId);
  parts_->pimStatus->pimIntfDel(intfId);
  parts_->mtus.del(intfId);
  writeSourceAddress(intfId, parts_->port.primaryAddress(intfId));
}

void Router::handleAddressChange(IntfId const& intfId) {
  Call call(*this);
  if (pim::HelloSm* machine = hello(intfId)) machine->handleAddressChange();
  writeSourceAddress(intfId, parts_->port.primaryAddress(intfId));
}

/// 0.0.0.0 for an interface without an address.
void Router::writeSourceAddress(IntfId const& intfId, IpGenAddr const& address) {
  parts_->sourceIntfSm->sourceIntfIs(intfId)->ipAddrIs(address.isEmpty() ? Lanet::IpAddr()
                                                                         : address.v4Addr());
}

pim::HelloSm* Router::hello(IntfId const& intfId) {
  auto at = parts_->hellos.find(intfId);
  return at == parts_->hellos.end() ? nullptr : &at->second;
}

void Router::routeIs(Lanet::Prefix const& prefix, Slosh::Fib::Route const& route) {
  Call call(*this);
  parts_->routes->routeIs(prefix, route);
}

void Router::routeDel(Lanet::Prefix const& prefix) {
  Call call(*this);
  parts_->routes->routeDel(prefix);
}

void Router::advance() {
  Call call(*this);
  parts_->wheel->advance(parts_->context.now());
}

// Candidacies -----------------------------------------------------------------------------------------

/// The address comes first: the machine that is made with the entry waits for it.
void Router::candidateBsrIs(IpGenPrefix const& zone, BsrCandidacy const& candidacy) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  Ptr<Bsr::BsrCandidate> entry = parts_->status->cbsrIs(zone);
  entry->addressIs(candidacy.address);
  entry->intfIdIs(candidacy.intfId);
  entry->priorityIs(candidacy.priority);
  entry->hashMaskLenIs(candidacy.hashMaskLen);
  entry->bsPeriodIs(candidacy.bsPeriod);
}

void Router::candidateBsrDel(IpGenPrefix const& zone) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  parts_->status->cbsrDel(zone);
}

void Router::candidateRpIs(IpGenPrefix const& range, RpCandidacy const& candidacy) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  Ptr<Bsr::RpCandidate> entry = parts_->status->crpIs(candidacy.address);
  entry->intfIdIs(candidacy.intfId);
  entry->intervalIs(candidacy.cRpAdvPeriod);
  entry->prefixSetIs(range, true);
  entry->prefixOptionsIs(range)->priorityIs(candidacy.priority);
}

void Router::candidateRpDel(IpGenPrefix const& range, IpGenAddr const& address) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  Ptr<Bsr::RpCandidate> entry = parts_->status->crp(address);
  if (!entry) return;
  entry->prefixSetDel(range);
  entry->prefixOptionsDel(range);
  if (entry->prefixSetCount() == 0) parts_->status->crpDel(address);
}

void Router::borderIs(IpGenPrefix const& zone, IntfId const& intfId, bool border) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  if (border) {
    parts_->status->bsBorderIs(zone)->intfIdIs(intfId, true);
  } else if (Ptr<Bsr::PimBsrBorder> entry = parts_->status->bsBorder(zone)) {
    entry->intfIdDel(intfId);
    if (entry->intfIdCount() == 0) parts_->status->bsBorderDel(zone);
  }
}

void Router::permitIs(IpGenPrefix const& senders) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  parts_->permitted.insert(senders);
  parts_->status->crpPermitIs(senders, true);
  if (!parts_->permitted.contains(everySender())) parts_->status->crpPermitDel(everySender());
}

void Router::permitDel(IpGenPrefix const& senders) {
  ZET_ASSERT(!parts_->configSm, "!parts_->configSm");
  Call call(*this);
  parts_->permitted.erase(senders);
  if (parts_->permitted.empty()) parts_->status->crpPermitIs(everySender(), true);
  if (!parts_->permitted.empty() || senders != everySender()) parts_->status->crpPermitDel(senders);
}

// A packet --------------------------------------------------------------------------------------------

void Router::ingressSettingsIs(IngressSettings const& ingress) { parts_->ingressFilter->settingsIs(ingress); }

void Router::correctionsAre(CorrectionSettings const& settings) {
  Call call(*this);
  parts_->switches.settingsAre(settings);
  parts_->correctors->handleSwitches();
}

void Router::exactBordersAre(std::set<IntfId> const& interfaces) {
  parts_->correctors->borders().exactAre(interfaces);
}

void Router::preferredRpsIs(PreferredRps const& preferred) { parts_->bounds->preferredIs(preferred); }

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
  Arrival arrival = ip ? parts_->ingressFilter->arrival(intfId, *ip) : Arrival();
  if (ip) {
    reception.source = ip->source;
    reception.destination = ip->destination;
  }
  if (dropped(parts_->ingressFilter->charge(intfId, arrival), reception)) {
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
  for (IpGenAddr const& sender : parts_->ingressFilter->budgets().steadyAdvertisers(max))
    addresses.push_back(sender.v4Addr());
  return addresses;
}

bool Router::takeAdvertisersChanged() {
  Zet::Context::Scope scope(parts_->context);
  return parts_->ingressFilter->takeAdvertisersChanged();
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
      dropped(parts_->ingressFilter->validateLength(packet.payload), reception)) {
    reception.kind = kindOf(packet.payload);
    return;
  }
  handle(intfId,
         wire::decodeMessage(packet.payload, packet.source, packet.destination,
                             parts_->correctors->fit().leftOut()),
         reception);
  if (reception.kind == MessageKind::malformed) parts_->ingressFilter->handleMalformed(intfId, arrival);
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
  if (machine == nullptr || dropped(parts_->ingressFilter->validateHello(intfId, message), reception)) return;
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
  parts_->inHand = DropReason::none;
  info.intfIdIs(intfId);
  info.messageIs(message);
  info.countInc(1);
  return *std::exchange(parts_->inHand, std::nullopt);
}

/// Outside of a packet the gates drop only what this router advertises to itself.
void Router::onDrop(DropReason reason) {
  if (parts_->inHand) {
    if (parts_->inHand == DropReason::none) parts_->inHand = reason;
    return;
  }
  if (parts_->ownDrops == nullptr) return;
  Ptr<Packet::CrpAdvMessage> message = parts_->crpMsgStatus->txCrpMsg();
  Reception reception{.kind = MessageKind::crpAdv, .message = message};
  if (message) reception.source = message->srcAddr();
  if (message) reception.destination = message->dstAddr();
  dropped(reason, reception);
  parts_->ownDrops->onOwnDrop(reception);
}

/// Admission comes upon the holdtimes that are to be clamped: what has none is walked once.
template <class Message>
DropReason Router::admit(Message& message) {
  DropReason reason = parts_->admission->validate(message);
  bool isClamped = reason == DropReason::holdtime && parts_->correctors->fit().clamp(message);
  return isClamped ? parts_->admission->validate(message) : reason;
}

void Router::bootstrap(IntfId const& intfId, Packet::BootstrapMessage& message, Reception& reception) {
  if (dropped(parts_->ingressFilter->validateSender(intfId, message), reception)) return;
  if (dropped(parts_->policy.validate(intfId, message), reception)) return;
  if (dropped(admit(message), reception)) return;
  if (dropped(parts_->correctors->ingress().validate(intfId, message), reception)) return;
  MessageFit::Verdict fitting = parts_->correctors->fit(message);
  if (dropped(fitting.reason, reception)) return;
  Quotas::Verdict verdict = parts_->ingressFilter->validateCost(*fitting.passed);
  dropped(verdict.reason, reception);
  if (!verdict.passed) return;
  parts_->correctors->prepare(*verdict.passed);
  bool isDropped = dropped(throughGate(*parts_->bsmInfo, intfId, verdict.passed), reception);
  reception.droppedRanges = isDropped ? 0 : verdict.dropped;
  if (isDropped) return parts_->correctors->ingress().handleDropped();
  parts_->lastMessages->note(intfId, reception.source, *verdict.passed);
  parts_->correctors->handleAccepted(verdict.passed);
}

void Router::crpAdv(IntfId const& intfId, Packet::CrpAdvMessage& message, Reception& reception) {
  if (dropped(admit(message), reception)) return;
  if (!parts_->port.isOwnAddress(message.dstAddr())) return;
  if (dropped(parts_->ingressFilter->validateCost(message, parts_->bounds->places().preferred()), reception))
    return;
  RpBounds::Verdict verdict = parts_->bounds->check(message);
  dropped(verdict.reason, reception);
  if (!verdict.passed) return;
  parts_->correctors->ingress().prepare(*verdict.passed);
  if (dropped(throughGate(*parts_->crpMsgInfo, intfId, verdict.passed), reception)) return;
  reception.droppedRanges = verdict.dropped;
  parts_->correctors->handleAccepted(*verdict.passed);
  parts_->ingressFilter->noteAdvertisement(message);
}

Router::Call::Call(Router& router) : context(router.parts_->context), drops(router) {}

CorrectionSwitches const& Router::corrections() const { return parts_->switches; }
BsmPolicy const& Router::bsmPolicy() const { return parts_->policy; }
LastMessages const& Router::lastMessages() const { return *parts_->lastMessages; }
double Router::nextExpiry() const { return parts_->wheel->nextExpiry(); }
Zet::Context& Router::context() const { return parts_->context; }
Ptr<Bsr::Status> Router::status() const { return parts_->status; }
Ptr<Routing::Pim::Status> Router::pimStatus() const { return parts_->pimStatus; }
Ptr<Routing::Pim::RpCandidateStatus> Router::rpCandidateStatus() const { return parts_->rpCandidateStatus; }

std::optional<IpGenPrefix> Router::keptZone(IpGenPrefix const& range) const {
  return partsOf(*this).correctors->holdOver().keptZone(range);
}

std::size_t Router::armedTimers() const { return parts_->wheel->armed(); }
IpGenPrefix Router::globalZone() const { return parts_->root->globalOrNonScopeZone(); }

std::optional<Bsr::BsrCandidateState> Router::candidateState(IpGenPrefix const& zone) const {
  auto machine = parts_->root->candidateSm(zone);
  return machine ? std::optional(machine->state()) : std::nullopt;
}

void Router::eachCandidacy(
    std::function<void(IpGenPrefix const&, Bsr::BsrCandidateState)> const& visit) const {
  for (auto at = parts_->root->candidateSmIterator(); at; ++at) visit(at.key(), at->state());
}

std::optional<Router::Advertising> Router::advertising(Bsr::CrpOptions const& candidate,
                                                       IpGenPrefix const& range) const {
  auto machine = parts_->root->rpCandidateSm(candidate);
  if (!machine) return std::nullopt;
  for (auto set = machine->crpAdvSetIterator(); set; ++set) {
    if (!set->prefixSet(range)) continue;
    auto const* timer = machine->zetCrpAdvTimer();
    bool isArmed = timer != nullptr && timer->isArmed();
    return Advertising{set->zone(), isArmed ? std::optional(timer->timeMin()) : std::nullopt};
  }
  return std::nullopt;
}

std::optional<Router::HelloState> Router::helloState(IntfId const& intfId) const {
  auto at = parts_->hellos.find(intfId);
  if (at == parts_->hellos.end()) return std::nullopt;
  return HelloState{at->second.generationId(), at->second.nextHello(), at->second.options()};
}

void Router::sendGoodbye(IntfId const& intfId) {
  Call call(*this);
  if (pim::HelloSm* machine = hello(intfId)) machine->sendGoodbye();
}

}  // namespace pimbsr::host
