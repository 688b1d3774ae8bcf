#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/base/Tracing.h"
#include "cli/page/Page.h"
#include "host/Configuration.keys.h"
#include "host/Router.h"
#include "model/Lanet.h"

namespace pimbsr::cli {

/// The bounds and checks of a replay unless its operator says otherwise.
inline constexpr host::IngressSettings replayIngress = [] {
  host::IngressSettings ingress = host::standardIngress;
  ingress.fromNeighbors = false;
  return ingress;
}();

/// What `pimbsr replay` is asked to do.
struct ReplayOptions {
  std::string file;
  Delivery delivery;  ///< of the document; as text for none
  double until = 0;   ///< seconds for which the clock runs on after the last packet
  /// What the agent has, but for one check: a capture needn't hold the Hellos of its senders.
  host::RouterOptions router = {.ingress = replayIngress, .corrections = host::allCorrections};
  std::vector<TraceRequest> traces;
  /// RPF neighbors by address of the BSR, for those that the capture doesn't have to show.
  std::map<Lanet::IpGenAddr, Lanet::IpGenAddr> rpf;
};

/// The longest --until in seconds: whatever was learned expires within the longest SZ_Timeout.
inline constexpr Zet::U64 maxUntil = host::TimeoutsKeys::szTimeout.most;

// Each reads the value of one option and throws UsageError, with what would be valid, for another one.

/// --until: a number of seconds, with a fraction if need be, from 0 to `maxUntil`.
double parseUntil(std::string const& text);
/// --bs-timeout: whole seconds in the range of TimeoutsKeys::bsTimeout.
Zet::U32 parseBsTimeout(std::string const& text);
/// --sz-timeout: whole seconds in the range of TimeoutsKeys::szTimeout.
Zet::U32 parseSzTimeout(std::string const& text);
/// --rpf: "BSR=NEIGHBOR", two IPv4 unicast addresses. A second one for the same BSR is rejected.
void parseRpf(std::string const& text, ReplayOptions& options);

}  // namespace pimbsr::cli
