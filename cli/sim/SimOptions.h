#pragma once

#include <string>
#include <vector>

#include "cli/base/Tracing.h"
#include "cli/page/Page.h"
#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "runtime/Types.h"

namespace pimbsr::cli {

/// What `pimbsr sim` is asked to do.
struct SimOptions {
  std::string file;
  Delivery delivery;      ///< of the document; as text for none
  bool linkLoad = false;  ///< in the document: bins of the load for each link too
  Zet::U64 seed = 1;
  std::string pcapFolder;  ///< empty for no captures
  std::vector<TraceRequest> traces;
  host::IngressSettings ingress = host::standardIngress;        ///< checks and bounds of every router
  host::CorrectionSettings corrections = host::allCorrections;  ///< of every router
};

/// --seed: a whole number from 0 to 18446744073709551615. Throws UsageError for anything else.
Zet::U64 parseSeed(std::string const& text);

/// --load: "links". Throws UsageError for anything else.
bool parseLoad(std::string const& text);

}  // namespace pimbsr::cli
