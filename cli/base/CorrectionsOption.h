#pragma once

#include <string>

#include "host/Corrections.h"
#include "host/IngressSettings.h"

namespace pimbsr::cli {

/// --corrections: names as in the table corrections of the configuration file, with commas between them;
/// these are on and all others off. "all" and "none" are what they say. Throws UsageError, with the valid
/// names, for another text.
void parseCorrections(std::string const& text, host::CorrectionSettings& corrections);

/// --exact: the machines alone, without a correction and without a check of packets. Bounds stay.
void exactIs(host::IngressSettings& ingress, host::CorrectionSettings& corrections);

}  // namespace pimbsr::cli
