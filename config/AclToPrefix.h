#pragma once

#include <memory>
#include <set>

#include "model/AclValues.h"

namespace Lanet {

/// Prefixes in ascending order.
using IpGenPrefixSet = std::set<IpGenPrefix>;

}  // namespace Lanet

namespace AclPrefix {

/// Reads one IP access list as the set of addresses that it permits, and writes that as the fewest prefixes.
/// One is made for each reading of a list.
///
/// Rules are handed over in ascending sequence, and the first that matches an address decides on it. A list
/// is read over the group addresses unless unicastModeIs() has been called.
class PIMBSR_API AclToPrefix {
 public:
  static constexpr Zet::S32 groupMode = 0;
  static constexpr Zet::S32 unicastMode = 1;
  /// A mask with holes matches several ranges; a rule that matches more than this is left out.
  static constexpr Zet::U32 maxRanges = 4096;

  AclToPrefix();
  ~AclToPrefix();

  Zet::S32 mode() const { return mode_; }
  /// Reads the list over all IPv4 addresses. To be called before the first rule.
  void unicastModeIs();

  /// Lets one rule act on the addresses that no rule before it has decided on. It is matched on the filter's
  /// source and sourceMask, as a standard list does: permit moves the addresses that it covers to those
  /// permitted, deny drops them, and a rule without an action does nothing. A rule that is limited to a
  /// protocol or a port says nothing of an address and is skipped, and so, with a trace, is one whose mask
  /// has so many holes that it matches more than maxRanges ranges.
  void handleRule(Acl::IpRuleConfig const& rule);

  /// Adds the prefixes of the permitted addresses to `set`. Neighboring ranges of several rules come out as
  /// one. Each range ends one before its upper bound, that of the last address included: a list of unicast
  /// addresses that permits 255.255.255.255 loses that address.
  void PermittedPrefixes(Lanet::IpGenPrefixSet& set) const;

  /// Adds the fewest prefixes that cover exactly the addresses from `first` to `last`, both included and in
  /// host byte order; none if `last` is below `first`.
  static void ip4RangeToPrefixes(Zet::U32 first, Zet::U32 last, Lanet::IpGenPrefixSet& set);

 private:
  struct Sets;
  std::unique_ptr<Sets> sets_;
  Zet::S32 mode_ = groupMode;
};

}  // namespace AclPrefix
