#include "cli/replay/ReplayOptions.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>

#include "cli/base/Errors.h"
#include "cli/base/Numbers.h"

namespace pimbsr::cli {

using Lanet::IpGenAddr;
using Zet::U32;
using Zet::U64;

static U32 parseSeconds(host::ConfigKey const& key, std::string const& text) {
  std::optional<U64> seconds = numberOf<U64>(text);
  if (seconds && *seconds >= key.least && *seconds <= key.most) return static_cast<U32>(*seconds);
  throw UsageError(fmt::format("--{}: '{}' is no whole number of seconds from {} to {}", key.name, text,
                               key.least, key.most));
}

U32 parseBsTimeout(std::string const& text) { return parseSeconds(host::TimeoutsKeys::bsTimeout, text); }

U32 parseSzTimeout(std::string const& text) { return parseSeconds(host::TimeoutsKeys::szTimeout, text); }

double parseUntil(std::string const& text) {
  std::optional<double> seconds = numberOf<double>(text);
  if (seconds && *seconds >= 0 && *seconds <= static_cast<double>(maxUntil)) return *seconds;
  throw UsageError(fmt::format("--until: '{}' is no number of seconds from 0 to {}", text, maxUntil));
}

static std::optional<IpGenAddr> unicastOf(std::string const& text) {
  try {
    Lanet::IpAddr address = Lanet::IpAddr::parse(text.c_str());
    if (!address.isMulticast() && address != Lanet::IpAddr()) return IpGenAddr(address);
  } catch (Zet::RangeException const&) {
  }
  return std::nullopt;
}

void parseRpf(std::string const& text, ReplayOptions& options) {
  std::size_t equals = text.find('=');
  std::optional<IpGenAddr> bsr = unicastOf(text.substr(0, equals));
  std::optional<IpGenAddr> neighbor;
  if (equals != text.npos) neighbor = unicastOf(text.substr(equals + 1));
  if (!bsr || !neighbor) {
    throw UsageError(fmt::format("--rpf: '{}' is no BSR=NEIGHBOR of two IPv4 unicast addresses", text));
  }
  if (!options.rpf.emplace(*bsr, *neighbor).second) {
    throw UsageError(fmt::format("--rpf: BSR {} has a neighbor already", text.substr(0, equals)));
  }
}

}  // namespace pimbsr::cli
