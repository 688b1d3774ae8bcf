#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/base/Tracing.h"
#include "host/Router.h"
#include "model/Lanet.h"

namespace pimbsr::cli {

/// What `pimbsr replay` is asked to do.
struct ReplayOptions {
  std::string file;
  bool json = false;
  double until = 0;  ///< seconds for which the clock runs on behind the last packet
  host::RouterOptions router = {.ingress = host::standardLimits};  ///< the standard limits, and no checks
  std::vector<TraceWish> traces;
  /// RPF neighbours by address of the BSR, for those that are not to be found out.
  std::map<Lanet::IpGenAddr, Lanet::IpGenAddr> rpf;
};

// Each reads the value of one option and throws UsageError, with what would be valid, for another one.

/// --until: a number of seconds, with a fraction if need be, from 0 to 4294967295.
double parseUntil(std::string const& text);
/// --bs-timeout: whole seconds from 12 to 1073741823.
Zet::U32 parseBsTimeout(std::string const& text);
/// --sz-timeout: whole seconds from 120 to 4294967295.
Zet::U32 parseSzTimeout(std::string const& text);
/// --rpf: "BSR=NEIGHBOUR", two IPv4 unicast addresses. A second one for the same BSR is refused.
void parseRpf(std::string const& text, ReplayOptions& options);

}  // namespace pimbsr::cli
