#pragma once

#include <string>
#include <vector>

#include "host/Configuration.h"
#include "tests/support/Messages.h"

namespace test {

/// An access list that permits these prefixes, in that order.
inline pimbsr::host::AccessList permitting(std::vector<std::string> const& prefixes) {
  pimbsr::host::AccessList list;
  for (std::string const& text : prefixes) {
    Lanet::Prefix range = prefix(text).v4Prefix();
    Acl::IpFilter filter;
    filter.source = range.address();
    filter.sourceMask = Lanet::IpAddr::fromHost(range.length() == 0 ? 0 : ~0u << (32 - range.length()));
    list[10 * static_cast<Zet::U32>(list.size() + 1)] = {Acl::Action::permit, filter};
  }
  return list;
}

}  // namespace test
