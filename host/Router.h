#pragma once

#include <memory>
#include <span>

#include "host/Reception.h"
#include "model/IO.h"
#include "model/Interface.h"
#include "model/MsgStatus.h"
#include "model/Pim.h"
#include "model/Rpf.h"
#include "model/Status.h"
#include "pim/Port.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/Context.h"
#include "runtime/TimerWheel.h"

namespace pimbsr::pim {
class IoManager;
}

namespace pimbsr::host {

class Admission;

/// What a router without configuration machines is given by its host.
struct RouterOptions {
  U32 holdTime = 130;      ///< seconds without a message after which the BSR of a zone is given up
  U32 zoneTimeout = 1300;  ///< seconds without a BSR after which a scope zone is forgotten
};

/// One Bootstrap Router behind a port: the status tree, the machines in the order in which they must be made,
/// and the road of a packet from its bytes to the gate.
///
/// The host sets the context's clock to the time of an event and then makes one call; each call enters the
/// context by itself. Whoever watches the status tree hears of changes inside that call, and must not call
/// back in.
class PIMBSR_API Router {
 public:
  /// The context and the port outlive the router. `rpf` answers for the neighbours towards BSRs.
  Router(Zet::Context& context, pim::Port& port, Zet::Ptr<Routing::Pim::PimRpfTable> const& rpf,
         RouterOptions const& options = {});
  /// Takes the machines down; nothing is sent.
  ~Router();
  Router(Router const&) = delete;
  Router& operator=(Router const&) = delete;

  /// Adds an interface that speaks PIM, or changes its MTU (bytes).
  void interfaceIs(Lanet::IntfId const& intfId, U32 mtu);
  void interfaceDel(Lanet::IntfId const& intfId);

  /// Takes one IPv4 packet, from its IP header on, that arrived on an interface.
  Reception receive(Lanet::IntfId const& intfId, std::span<U8 const> packet);

  /// When the next timer is due, on the context's clock; Kiv::never if none is.
  double nextExpiry() const { return wheel_->nextExpiry(); }
  /// Runs the timers that are due at the context's time.
  void advance();

  Zet::Context& context() const { return context_; }
  Zet::Ptr<Routing::Pim::Bsr::Status> status() const { return status_; }
  Zet::Ptr<Routing::Pim::Status> pimStatus() const { return pimStatus_; }
  /// The RP set that PIM reads.
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus() const { return rpCandidateStatus_; }
  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root() const { return root_; }
  Zet::Ptr<Routing::Pim::Bsr::BootstrapMessageSm> gate() const { return gate_; }
  Zet::Ptr<Kiv::TimerWheel> timerWheel() const { return wheel_; }

 private:
  void bootstrap(Lanet::IntfId const& intfId, Reception& reception);
  void crpAdv(Reception& reception);

  Zet::Context& context_;
  pim::Port& port_;
  Zet::Ptr<Routing::Pim::Bsr::Status> status_;
  Zet::Ptr<Routing::Pim::Status> pimStatus_;
  Zet::Ptr<Routing::Pim::Bsr::PimBsmStatus> bsmStatus_;
  Zet::Ptr<Routing::Pim::Bsr::PimCrpMsgStatus> crpMsgStatus_;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus_;
  Zet::Ptr<Kiv::TimerWheel> wheel_;
  Zet::Ptr<Interface::AllIntfStatusDir> interfaces_;
  Zet::Ptr<pim::IoManager> io_;
  Zet::Ptr<Routing::Pim::IO::MessageInfo> bsmInfo_;
  Zet::Ptr<Routing::Pim::Bsr::BootstrapMessageSm> gate_;
  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  std::unique_ptr<Admission> admission_;
};

}  // namespace pimbsr::host
