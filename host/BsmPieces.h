#pragma once

#include <map>
#include <set>
#include <span>
#include <vector>

#include "host/IngressSettings.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Keeps all fragments of the message that a zone's machine keeps for new neighbors: the machine keeps the
/// last one alone. Fragments of one message have one tag and come within BS_Min_Interval, the least time
/// between two messages of a BSR (RFC 5059 section 5).
class PIMBSR_INTERNAL BsmPieces {
 public:
  using Message = Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>;

  /// Pieces of all zones beyond which what is kept of a zone is dropped, but for its last one: 20,000 RPs at
  /// the least MTU of IPv4, 576. A new neighbor is sent all of them at once, and a neighbor can be new again
  /// and again.
  static constexpr size_t maxPieces = 512;

  /// Both are read for as long as this object is. IngressSettings::rps bounds the RPs that are kept for all
  /// zones together.
  BsmPieces(Routing::Pim::Bsr::PimBsrSm const& root, IngressSettings const& settings)
      : root_(root), settings_(settings) {}

  /// To be called for a Bootstrap Message that the gate has accepted. O(log n) of the zone's pieces, for each
  /// record and RP in it.
  void handleAccepted(Message const& message);
  /// All fragments of a message that its zone's machine keeps, this one among them; none if it came whole.
  std::span<Message const> fragmentsOf(Message const& kept) const;
  /// Forgets what is kept of a zone.
  void forget(Lanet::IpGenPrefix const& zone);
  /// Forgets everything.
  void clear();

 private:
  /// Orders messages by the ranges and RPs that they name.
  struct ByContent {
    bool operator()(Message const& a, Message const& b) const;
  };
  using Pieces = std::set<Message, ByContent>;
  struct Kept {
    std::vector<Message> fragments;  ///< in the order of their arrival
    Pieces byContent;                ///< the same
    double lastAt = 0;
  };

  Message lastOf(Lanet::IpGenPrefix const& zone) const;
  void dropEnded();
  void removeAll(Kept& kept);
  void remove(Kept& kept, Message const& piece);
  void add(Kept& kept, Message const& piece);
  void recycle(Pieces::node_type node);
  static bool continues(Kept const& kept, Message const& message);

  Routing::Pim::Bsr::PimBsrSm const& root_;
  IngressSettings const& settings_;
  std::map<Lanet::IpGenPrefix, Kept> kept_;  ///< by zone
  Zet::U64 records_ = 0;                     ///< group records and RPs in them, of all zones
  size_t pieces_ = 0;                        ///< of all zones
  std::vector<Pieces::node_type> spare_;     ///< empty nodes, so that a repeated message allocates none
};

}  // namespace pimbsr::host
