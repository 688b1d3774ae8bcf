#pragma once

#include <compare>
#include <string>

#include "model/Lanet.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// The parts of a configuration.
enum class ConfigPart {
  timers,
  interface,     ///< named by its interface, as the next three are
  border,        ///< the borders of an interface
  candidateBsr,  ///< the candidate BSR with an interface's address
  candidateRp,
  filter,      ///< lists of addresses, named by the key that takes them: "sender-lists"
  accessList,  ///< named by itself
  checks,
  limits,
  corrections,
};

/// One of several that a part has: a group range, an access list that gives ranges, or a rule.
struct ConfigItem {
  enum class Kind { none, group, list, rule };

  Kind kind = Kind::none;
  std::string name;  ///< the range, the name of the list, or the sequence number

  auto operator<=>(ConfigItem const&) const = default;
};

/// Where something is in a configuration. An empty member narrows nothing down: a place without a key is
/// that of the whole item.
struct ConfigPlace {
  ConfigPart part = ConfigPart::timers;
  std::string name;  ///< of the interface or access list, or of the key of the filter
  ConfigItem entry;
  std::string key;  ///< as the configuration file calls it: "hash-mask-length"

  auto operator<=>(ConfigPlace const&) const = default;

  /// Places in this one.
  PIMBSR_API ConfigPlace group(Lanet::IpGenPrefix const& range) const;
  PIMBSR_API ConfigPlace list(std::string const& list) const;
  PIMBSR_API ConfigPlace rule(U32 sequence) const;
  PIMBSR_API ConfigPlace at(std::string_view keyOfIt) const;
};

/// A description: "candidate-bsr eth0, group 239.1.0.0/16, priority".
PIMBSR_API std::string textOf(ConfigPlace const& place);

}  // namespace pimbsr::host
