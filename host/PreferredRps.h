#pragma once

#include <set>
#include <string>

#include "host/Configuration.h"
#include "model/PrefixTrie.h"

namespace pimbsr::host {

/// The addresses that some access lists permit, read as lists of senders are: over all IPv4 addresses, the
/// first matching rule of a list decides, and one list that permits an address is enough.
class PIMBSR_API PreferredRps {
 public:
  /// No address.
  PreferredRps() = default;
  /// Reads the lists of `configuration` with these names; one that doesn't exist permits nothing.
  PreferredRps(Configuration const& configuration, std::set<std::string> const& lists);

  /// Whether one of the lists permits the address.
  bool contains(Lanet::IpGenAddr const& address) const;
  /// Whether no address is permitted.
  bool isEmpty() const { return prefixes_.size() == 0; }

 private:
  Routing::PrefixTrie prefixes_;
};

/// Lists of other addresses than those of RPs are read in the same way.
using AddressLists = PreferredRps;

}  // namespace pimbsr::host
