#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>

#include "config/ConfigSm.h"
#include "crp/CrpMessageSm.h"
#include "host/Admission.h"
#include "host/BsmPolicy.h"
#include "host/Clearing.h"
#include "host/Correctors.h"
#include "host/IngressFilter.h"
#include "host/LastMessages.h"
#include "host/Mtus.h"
#include "host/RouterOptions.h"
#include "host/RpBounds.h"
#include "host/RpSweep.h"
#include "model/IO.h"
#include "model/Interface.h"
#include "model/MsgStatus.h"
#include "model/SourceIntf.h"
#include "pim/HelloSm.h"
#include "pim/IoManager.h"
#include "pim/NeighborTable.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

class Router;

/// What a router consists of, in the order in which it is made. It is apart from Router so that a program
/// over Router sees no machine, and for the sources and tests of this library alone: it isn't installed. Each
/// part is owned here, but for the context, the port and the receiver of own drops, which the host owns.
struct RouterParts {
  RouterParts(Zet::Context& hostContext, pim::Port& hostPort, RouterOptions const& options);

  Zet::Context& context;
  pim::Port& port;
  Zet::Ptr<Routing::Pim::Bsr::Status> status;
  Zet::Ptr<Routing::Pim::Status> pimStatus;
  Zet::Ptr<pim::NeighborTable> neighbors;
  Zet::Ptr<Routing::Pim::Bsr::PimBsmStatus> bsmStatus;
  Zet::Ptr<Routing::Pim::Bsr::PimCrpMsgStatus> crpMsgStatus;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus;
  Zet::Ptr<Routing::Pim::Slosh::MessageCounters> messageCounters;
  Zet::Ptr<Ip::SourceIntf::SourceIntfSm> sourceIntfSm;
  Zet::Ptr<Routing::Pim::PimUcastRouteStatus> routes;
  Zet::Ptr<Routing::Pim::PimRpfTable> rpf;
  Zet::Ptr<Kiv::TimerWheel> wheel;
  Zet::Ptr<Interface::AllIntfStatusDir> interfaces;
  Mtus mtus;
  CorrectionSwitches switches;
  BsmPolicy policy;
  Zet::Ptr<pim::IoManager> io;
  Zet::Ptr<Routing::Pim::IO::MessageInfo> bsmInfo;
  Zet::Ptr<Routing::Pim::IO::MessageInfo> crpMsgInfo;
  Zet::Ptr<Routing::Pim::Bsr::ConfigSm> configSm;
  Zet::Ptr<Routing::Pim::Bsr::BootstrapMessageSm> gate;
  Zet::Ptr<Routing::Pim::Bsr::CrpMessageSm> crpGate;
  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root;
  std::unique_ptr<Admission> admission;
  std::unique_ptr<IngressFilter> ingressFilter;
  std::unique_ptr<LastMessages> lastMessages;
  std::unique_ptr<Correctors> correctors;
  Zet::Ptr<RpBounds> bounds;
  std::map<Lanet::IntfId, pim::HelloSm> hellos;
  Zet::Ptr<RpSweep> sweep;
  std::unique_ptr<Clearing> clearing;
  std::set<Lanet::IpGenPrefix> permitted;
  OwnDropSink* ownDrops;             ///< null for none
  std::optional<DropReason> inHand;  ///< of the message that a gate handles now, if it came in a packet
};

/// The parts of a router, valid as long as the router.
PIMBSR_INTERNAL RouterParts& partsOf(Router& router);
PIMBSR_INTERNAL RouterParts const& partsOf(Router const& router);

}  // namespace pimbsr::host
