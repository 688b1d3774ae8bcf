#include "cli/base/LimitOption.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "agent/config/ConfigKeys.h"
#include "cli/base/Errors.h"
#include "cli/base/Numbers.h"
#include "host/Limits.h"

namespace pimbsr::cli {

using host::Limit;
using Zet::U32;
using Zet::U64;

static Limit const& limitOf(std::string_view name) {
  auto matches = [name](Limit const& limit) { return limit.name == name; };
  auto limit = std::find_if(host::limits().begin(), host::limits().end(), matches);
  if (limit != host::limits().end()) return *limit;
  throw UsageError(fmt::format("--limit: {}: {}", name, agent::unknownKeyText("limits", name)));
}

void parseLimit(std::string const& text, host::IngressSettings& limits) {
  if (text == "none") return host::copyLimits({}, limits);
  std::size_t equals = text.find('=');
  if (equals == std::string::npos)
    throw UsageError(fmt::format("--limit: '{}' is neither KEY=N nor none", text));
  Limit const& limit = limitOf(std::string_view(text).substr(0, equals));
  host::ConfigKey const& key = *limit.key;
  std::optional<U64> number = numberOf<U64>(std::string_view(text).substr(equals + 1));
  if (!number || *number < key.least || *number > key.most) {
    throw UsageError(fmt::format("--limit: {}: '{}' is not valid; valid is {}", limit.name,
                                 text.substr(equals + 1), agent::validText(key)));
  }
  limits.*limit.value = static_cast<U32>(*number);
}

}  // namespace pimbsr::cli
