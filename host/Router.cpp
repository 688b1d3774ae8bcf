#include "host/Router.h"

#include "host/Admission.h"
#include "pim/IoManager.h"
#include "wire/Wire.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace IO = Routing::Pim::IO;
namespace Packet = Routing::Pim::Packet;
using Lanet::IntfId;
using Zet::Ptr;

// Birth and end ---------------------------------------------------------------------------------------

/// The order is that of the engine's contract: Status with family, counters and timeouts, then the gate, then
/// the root machine, which reads all of it.
Router::Router(Zet::Context& context, pim::Port& port, Ptr<Routing::Pim::PimRpfTable> const& rpf,
               RouterOptions const& options)
    : context_(context),
      port_(port),
      status_(Bsr::statusFactory("bsr")),
      pimStatus_(Routing::Pim::statusFactory("pim")),
      bsmStatus_(Bsr::pimBsmStatusFactory()),
      crpMsgStatus_(Bsr::pimCrpMsgStatusFactory()),
      rpCandidateStatus_(Routing::Pim::rpCandidateStatusFactory("bsr")),
      wheel_(Zet::make<Kiv::TimerWheel>()),
      interfaces_(Interface::allIntfStatusDirFactory("interfaces")),
      io_(Zet::make<pim::IoManager>(pim::makePamManager(), port)),
      bsmInfo_(IO::messageInfoFactory()) {
  Zet::Context::Scope scope(context_);
  status_->afIs(Lanet::AddressFamily::ipv4);
  status_->countersIs("bsr");
  status_->bsTimeoutIs(options.holdTime);
  status_->szTimeoutIs(options.zoneTimeout);
  gate_ = Bsr::bootstrapMessageSmFactory(io_->manager(), status_, bsmStatus_, bsmInfo_, rpf);
  root_ = Bsr::pimBsrSmFactory(status_, pimStatus_, bsmStatus_, crpMsgStatus_, rpCandidateStatus_, wheel_,
                               interfaces_);
  admission_ = std::make_unique<Admission>(*root_, port_);
}

Router::~Router() {
  Zet::Context::Scope scope(context_);
  admission_ = nullptr;
  root_ = nullptr;
  gate_ = nullptr;
}

// Interfaces and time ---------------------------------------------------------------------------------

void Router::interfaceIs(IntfId const& intfId, U32 mtu) {
  Zet::Context::Scope scope(context_);
  interfaces_->intfStatusIs(intfId)->mtuIs(mtu);
  pimStatus_->pimIntfIs(intfId);
}

void Router::interfaceDel(IntfId const& intfId) {
  Zet::Context::Scope scope(context_);
  pimStatus_->pimIntfDel(intfId);
  interfaces_->intfStatusDel(intfId);
}

void Router::advance() {
  Zet::Context::Scope scope(context_);
  wheel_->advance(context_.now());
}

// A packet --------------------------------------------------------------------------------------------

/// Sorts a decoded message, or its fault, into a reception.
static void sortMessage(wire::Outcome<wire::DecodedMessage> const& decoded, Reception& reception) {
  if (!decoded) {
    reception.kind = MessageKind::malformed;
    reception.reason = wire::name(decoded.reason());
    reception.sentence = wire::sentence(decoded.reason());
  } else if (auto const* bsm = std::get_if<Ptr<Packet::BootstrapMessage>>(&*decoded)) {
    reception.kind = MessageKind::bootstrap;
    reception.message = *bsm;
  } else if (auto const* adv = std::get_if<Ptr<Packet::CrpAdvMessage>>(&*decoded)) {
    reception.kind = MessageKind::crpAdv;
    reception.message = *adv;
  } else {
    bool hello = std::holds_alternative<wire::HelloMessage>(*decoded);
    reception.kind = hello ? MessageKind::hello : MessageKind::other;
  }
}

Reception Router::receive(IntfId const& intfId, std::span<U8 const> packet) {
  Zet::Context::Scope scope(context_);
  Reception reception;
  wire::Outcome<wire::Ipv4Packet> ip = wire::parseIpv4(packet);
  if (!ip) {
    bool pim = ip.reason() != wire::DropReason::ipProtocol;
    if (pim) sortMessage(ip.reason(), reception);
    return reception;
  }
  reception.source = ip->source;
  reception.destination = ip->destination;
  sortMessage(wire::decodeMessage(ip->payload, ip->source, ip->destination), reception);
  if (reception.kind == MessageKind::bootstrap) bootstrap(intfId, reception);
  if (reception.kind == MessageKind::crpAdv) crpAdv(reception);
  return reception;
}

static void refuse(Reception& reception, Refusal refusal) {
  reception.reason = refusalName(refusal);
  reception.sentence = refusalSentence(refusal);
}

namespace {

/// The gate's own causes, by the counter that each raises.
struct GateCause {
  U32 Bsr::PimBsrErrorCounters::*counter;
  std::string_view name;
  std::string_view sentence;
};

constexpr GateCause gateCauses[] = {
    {&Bsr::PimBsrErrorCounters::rxFilter, "rxFilter", "It arrived on a border of its zone."},
    {&Bsr::PimBsrErrorCounters::rxNbrRpfCheck, "rxNbrRpfCheck",
     "It is not from the RPF neighbour towards its BSR."},
    {&Bsr::PimBsrErrorCounters::rxNoForwardBsm, "rxNoForwardBsm",
     "A No-Forward message is taken only as the first of its zone, soon after the start."},
    {&Bsr::PimBsrErrorCounters::rxUnicastBsm, "rxUnicastBsm", "It was sent to a unicast address."},
    {&Bsr::PimBsrErrorCounters::rxScopeMismatch, "rxScopeMismatch", "Its scope doesn't match."},
    {&Bsr::PimBsrErrorCounters::rxInvalid, "rxInvalid",
     "It was sent to a multicast address other than 224.0.0.13."},
};

}  // namespace

void Router::bootstrap(IntfId const& intfId, Reception& reception) {
  Ptr<Packet::BootstrapMessage> message = static_cast<Packet::BootstrapMessage*>(reception.message.ptr());
  if (Refusal refusal = admission_->judge(*message); refusal != Refusal::none)
    return refuse(reception, refusal);
  Bsr::PimBsrErrorCounters before = status_->counters()->errCounters();
  bsmInfo_->intfIdIs(intfId);
  bsmInfo_->messageIs(message);
  bsmInfo_->countInc(1);
  Bsr::PimBsrErrorCounters after = status_->counters()->errCounters();
  for (GateCause const& cause : gateCauses) {
    if (after.*cause.counter == before.*cause.counter) continue;
    reception.reason = cause.name;
    reception.sentence = cause.sentence;
  }
}

void Router::crpAdv(Reception& reception) {
  auto const& message = static_cast<Packet::CrpAdvMessage const&>(*reception.message);
  if (Refusal refusal = admission_->judge(message); refusal != Refusal::none) refuse(reception, refusal);
}

}  // namespace pimbsr::host
