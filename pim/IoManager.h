#pragma once

#include <span>
#include <vector>

#include "model/IO.h"
#include "pim/Port.h"

namespace pimbsr::pim {

/// Decides what leaves in place of an outgoing Bootstrap Message.
class PIMBSR_INTERNAL BsmRewriter {
 public:
  using Message = Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>;

  /// The messages that leave along an interface in place of one; none if it is not to leave there. Valid
  /// until the next call.
  virtual std::span<Message const> messagesFor(Lanet::IntfId const& intfId, Message const& message) = 0;

 protected:
  ~BsmRewriter() = default;
};

/// The message I/O manager over a port: it takes what the machines put into txMessageInfo, encodes it and
/// sends it within that call, and raises txCount for each message that left.
///
/// A Bootstrap Message leaves from the primary address of its interface for 224.0.0.13 with TTL 1, whatever
/// the record says; an advertisement leaves from and for the addresses of its record (RFC 5059 sections 3.2
/// and 3.4).
class PIMBSR_INTERNAL IoManager : public Routing::Pim::IO::MessageInfo::Notifiee {
 public:
  /// Binds itself to the outgoing exchange point of a manager. The port outlives it.
  IoManager(Zet::Ptr<Routing::Pim::IO::PamManager> const& manager, Port& port);

  Zet::Ptr<Routing::Pim::IO::PamManager> const& manager() const { return manager_; }
  /// Whom to ask what leaves; null, as at first, for the messages as they are. It outlives this object or is
  /// taken away before.
  void rewriterIs(BsmRewriter* rewriter) { rewriter_ = rewriter; }
  void onCount() override;

 private:
  bool rewriteBootstrap(BsmRewriter::Message const& message);
  bool sendBootstrap(Routing::Pim::Packet::BootstrapMessage const& message);
  bool sendCrpAdv(Routing::Pim::Packet::CrpAdvMessage const& message);

  Zet::Ptr<Routing::Pim::IO::PamManager> manager_;
  Port& port_;
  BsmRewriter* rewriter_ = nullptr;
  // Kept from send to send, so that a steady state allocates nothing.
  std::vector<U8> payload_;
  std::vector<U8> packet_;
};

/// Makes a manager's entities: both exchange points empty, counts at 0.
PIMBSR_INTERNAL Zet::Ptr<Routing::Pim::IO::PamManager> makePamManager();

}  // namespace pimbsr::pim
