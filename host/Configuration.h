#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/ConfigPlace.h"
#include "host/Configuration.zet.h"
#include "model/AclValues.h"
#include "model/Lanet.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// An access list as an operator writes it: rules by sequence number, the lowest acts first.
using AccessList = std::map<U32, Acl::IpRuleConfig>;

/// What is configured for group ranges: by the range itself, or by an access list that permits ranges.
template <class Terms>
struct ByRange {
  std::map<Lanet::IpGenPrefix, Terms> groups;  ///< by the range
  std::map<std::string, Terms> lists;          ///< by the list's name

  bool operator==(ByRange const&) const = default;
};

/// The candidate RP with one interface's address.
struct RpTerms : RpAdvertising {
  /// Priority by range, as in RpRangeTerms; a range without one, or with 256, is not advertised.
  ByRange<std::optional<Zet::U64>> ranges;

  bool operator==(RpTerms const&) const = default;
};

/// Nothing is said of a range but that it is there.
struct Present {
  bool operator==(Present const&) const = default;
};

/// All that an operator configures of one router, as data. Interfaces are known by their names. Numbers are
/// as they were read, in range or not.
struct Configuration : Timeouts, FilterLists {
  std::map<std::string, ByRange<BsrTerms>> candidateBsrs;  ///< by interface
  std::map<std::string, RpTerms> candidateRps;             ///< by interface
  std::map<std::string, ByRange<Present>> borders;         ///< by interface
  /// Interfaces whose borders close exactly their zones and none within. The engine knows nothing of them:
  /// who applies the configuration hands them to the router.
  std::set<std::string> exactBorders;
  std::map<std::string, AccessList> accessLists;  ///< by name

  bool operator==(Configuration const&) const = default;
};

/// One thing in a configuration that can't be applied.
struct ConfigError {
  ConfigPlace place;  ///< where it is
  std::string text;   ///< what was read, and what would be valid

  bool operator==(ConfigError const&) const = default;
};

/// Finds all that would be rejected by a setter, end the process or be of no use: values out of their range,
/// a range or list claimed by the candidate BSRs of two interfaces, a zone that a list of one interface
/// permits and another one claims, ranges that are not of IPv4 multicast groups, and periods that make
/// holdtimes which every receiver rejects. A list may be named before it exists: who names it waits for it.
/// Empty if the configuration may be applied. In the order of the configuration.
PIMBSR_API std::vector<ConfigError> check(Configuration const& configuration);

}  // namespace pimbsr::host
