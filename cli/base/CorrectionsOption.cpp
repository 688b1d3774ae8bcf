#include "cli/base/CorrectionsOption.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "agent/config/ConfigKeys.h"
#include "cli/base/Errors.h"
#include "host/Limits.h"

namespace pimbsr::cli {

static host::Correction const& correctionOf(std::string_view name) {
  auto matches = [name](host::Correction const& correction) { return correction.key->name == name; };
  auto found = std::find_if(host::corrections().begin(), host::corrections().end(), matches);
  if (found != host::corrections().end()) return *found;
  throw UsageError(fmt::format("--corrections: {}: {}", name, agent::unknownKeyText("corrections", name)));
}

void parseCorrections(std::string const& text, host::CorrectionSettings& corrections) {
  host::CorrectionSettings wanted;
  std::string_view rest = text;
  if (text == "all") wanted = host::allCorrections;
  for (bool more = text != "all" && text != "none"; more;) {
    std::size_t comma = rest.find(',');
    wanted.*correctionOf(rest.substr(0, comma)).isOn = true;
    more = comma != std::string_view::npos;
    if (more) rest.remove_prefix(comma + 1);
  }
  corrections = wanted;
}

void exactIs(host::IngressSettings& ingress, host::CorrectionSettings& corrections) {
  host::IngressSettings unchecked;
  host::copyLimits(ingress, unchecked);
  ingress = unchecked;
  corrections = {};
}

}  // namespace pimbsr::cli
