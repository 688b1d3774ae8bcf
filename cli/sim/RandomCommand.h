#pragma once

#include <iosfwd>
#include <string>

#include "cli/base/Errors.h"
#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "runtime/Types.h"

namespace pimbsr::cli {

/// What `pimbsr sim --random` is asked to do.
struct RandomOptions {
  Zet::U32 trials = 0;     ///< number of seeds; 0 if no random networks are wanted
  Zet::U32 fewest = 10;    ///< routers in the smallest network
  Zet::U32 most = 50;      ///< routers in the largest
  Zet::U64 firstSeed = 1;  ///< further ones count up from it
  host::IngressSettings ingress = host::standardIngress;        ///< of every router
  host::CorrectionSettings corrections = host::allCorrections;  ///< of every router
};

/// --random: a whole number from 1 to 1000000. Throws UsageError for anything else.
Zet::U32 parseTrials(std::string const& text);
/// --routers: a number or a span such as 10-50, from 2 to 2,000. Throws UsageError for anything else.
void parseRouters(std::string const& text, RandomOptions& options);

/// Plays random networks, one per seed: break, heal, settle, compare. Of the first one that is not as it must
/// be the seed, what is wrong, its scenario and its course are written; the last line sums up. exitFailed if
/// any is wrong.
ExitCode simulateRandom(RandomOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
