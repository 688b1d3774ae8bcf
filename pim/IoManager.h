#pragma once

#include <vector>

#include "model/IO.h"
#include "pim/Port.h"

namespace pimbsr::pim {

/// The message I/O manager over a port: it takes what the machines put into txMessageInfo, encodes it and
/// sends it within that call, and raises txCount for each message that left.
///
/// A Bootstrap Message leaves from the primary address of its interface for 224.0.0.13 with TTL 1, whatever
/// the record says; an advertisement leaves from and for the addresses of its record (RFC 5059 sections 3.2
/// and 3.4).
class PIMBSR_API IoManager : public Routing::Pim::IO::MessageInfo::Notifiee {
 public:
  /// Binds itself to the outgoing exchange point of a manager. The port outlives it.
  IoManager(Zet::Ptr<Routing::Pim::IO::PamManager> const& manager, Port& port);

  Zet::Ptr<Routing::Pim::IO::PamManager> const& manager() const { return manager_; }
  void onCount() override;

 private:
  bool sendBootstrap(Routing::Pim::Packet::BootstrapMessage const& message);
  bool sendCrpAdv(Routing::Pim::Packet::CrpAdvMessage const& message);

  Zet::Ptr<Routing::Pim::IO::PamManager> manager_;
  Port& port_;
  // Kept from send to send, so that a steady state allocates nothing.
  std::vector<U8> payload_;
  std::vector<U8> packet_;
};

/// Makes a manager's entities: both exchange points empty, counts at 0.
PIMBSR_API Zet::Ptr<Routing::Pim::IO::PamManager> makePamManager();

}  // namespace pimbsr::pim
