#include "host/PreferredRps.h"

#include "config/AclToPrefix.h"

namespace pimbsr::host {

static Lanet::IpGenPrefixSet permittedBy(AccessList const& list) {
  AclPrefix::AclToPrefix reading;
  reading.unicastModeIs();
  for (auto const& [sequence, rule] : list) reading.handleRule(rule);
  Lanet::IpGenPrefixSet prefixes;
  reading.PermittedPrefixes(prefixes);
  return prefixes;
}

PreferredRps::PreferredRps(Configuration const& configuration, std::set<std::string> const& lists) {
  for (std::string const& name : lists) {
    auto list = configuration.accessLists.find(name);
    if (list == configuration.accessLists.end()) continue;
    for (Lanet::IpGenPrefix const& prefix : permittedBy(list->second)) {
      Lanet::Prefix range = prefix.v4Prefix();
      prefixes_.insert({range.address().hostWord(), static_cast<U8>(range.length())});
    }
  }
}

bool PreferredRps::contains(Lanet::IpGenAddr const& address) const {
  if (address.isEmpty() || isEmpty()) return false;
  return prefixes_.longestMatch({address.v4Addr().hostWord(), 32}).found;
}

}  // namespace pimbsr::host
