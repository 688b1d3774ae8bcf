#pragma once

#include <compare>
#include <string>

#include "model/Lanet.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// The parts of a configuration.
enum class ConfigPart {
  timers,        ///< BS_Timeout and SZ_Timeout
  interface,     ///< named by its interface, as the next three are
  border,        ///< the borders of an interface
  candidateBsr,  ///< the candidate BSR with an interface's address
  candidateRp,   ///< the candidate RP with an interface's address
  filter,        ///< lists of addresses, named by the key that takes them: "sender-lists"
  accessList,    ///< named by itself
  checks,        ///< what a packet must fulfill
  limits,        ///< bounds of what other routers may cause
  corrections,   ///< departures of the machines from RFC 5059 that are corrected
};

/// One of several that a part has: a group range, an access list that gives ranges, or a rule.
struct ConfigItem {
  /// Which of them; none stands for the part as a whole.
  enum class Kind { none, group, list, rule };

  Kind kind = Kind::none;  ///< which of them
  std::string name;        ///< the range, the name of the list, or the sequence number

  auto operator<=>(ConfigItem const&) const = default;
};

/// Where something is in a configuration. An empty member narrows nothing down: a place without a key is
/// that of the whole item.
struct ConfigPlace {
  ConfigPart part = ConfigPart::timers;  ///< the part that it is in
  std::string name;                      ///< of the interface or access list, or of the key of the filter
  ConfigItem entry;                      ///< the item of the part, if the part has several
  std::string key;                       ///< as the configuration file calls it: "hash-mask-length"

  auto operator<=>(ConfigPlace const&) const = default;

  /// The place of a group range in this part.
  PIMBSR_API ConfigPlace group(Lanet::IpGenPrefix const& range) const;
  /// The place of an access list, by its name, that this part takes ranges from.
  PIMBSR_API ConfigPlace list(std::string const& list) const;
  /// The place of a rule of this access list.
  PIMBSR_API ConfigPlace rule(U32 sequence) const;
  /// The place of a key in this part or item.
  PIMBSR_API ConfigPlace at(std::string_view keyOfIt) const;
};

/// A description: "candidate-bsr eth0, group 239.1.0.0/16, priority".
PIMBSR_API std::string textOf(ConfigPlace const& place);

}  // namespace pimbsr::host
