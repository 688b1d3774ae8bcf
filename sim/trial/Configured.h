#pragma once

#include <map>
#include <set>
#include <vector>

#include "sim/Node.h"

namespace pimbsr::sim {

/// What a router must do by its configuration: access lists are read, and candidates have the addresses that
/// their interfaces have now; one without an address is left out. Nothing here comes from the machines, whose
/// state is compared with it.
struct Configured {
  std::map<Lanet::IpGenPrefix, host::BsrCandidacy> candidateBsrs;  ///< by zone
  std::map<RpKey, host::RpCandidacy> candidateRps;
  std::set<std::pair<Lanet::IpGenPrefix, U32>> borders;  ///< zone and number of the interface
  std::vector<Lanet::IpGenPrefix> permits;               ///< senders; empty for all

  explicit Configured(Node const& node);

  /// Whether the advertisements of a sender are taken.
  bool permitsSender(Lanet::IpGenAddr const& sender) const;
};

/// Whether an interface is a border of exactly that zone, named by itself or permitted by a list.
bool isBorder(Node const& node, Lanet::IpGenPrefix const& zone, U32 intf);
/// Whether a router lets no message of a zone pass an interface: a border of that zone, with covering-border
/// also of one that it lies within.
bool isClosed(Node const& node, Lanet::IpGenPrefix const& zone, U32 intf);

/// The fewest prefixes that hold what a list permits within `all`. The first rule that matches an address
/// decides on it; one that no rule matches is denied.
std::vector<Lanet::IpGenPrefix> permittedBy(host::AccessList const& list, Lanet::Prefix const& all);

}  // namespace pimbsr::sim
