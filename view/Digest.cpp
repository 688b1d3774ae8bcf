#include "view/Digest.h"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <zlib.h>

#include <iterator>

#include "view/View.h"

namespace pimbsr::view {

/// The first line of the text; another form of it needs another number.
static constexpr char const* digestVersion = "pimbsr digest 1\n";

/// RPs of a former BSR, or of none, stay in use; and an expired one does until its timer is served.
static char const* markOf(host::ZoneView const& zone, host::RpView const& rp, double now) {
  if (rp.expires <= now) return " stale";
  return rp.kept || !zone.bsr ? " kept" : "";
}

std::string digestTextOf(host::ZoneView const& zone, double now) {
  std::string text;
  auto out = std::back_inserter(text);
  fmt::format_to(out, "{}zone {}\n", digestVersion, cellOf(zone.zone, "-"));
  if (zone.bsr) {
    fmt::format_to(out, "bsr {} priority {} hash-mask-length {}\n", cellOf(zone.bsr->address, "-"),
                   zone.bsr->priority, zone.bsr->hashMaskLen);
  } else {
    fmt::format_to(out, "bsr none\n");
  }
  for (host::RangeView const& range : zone.rpSet) {
    std::string const start = "range " + cellOf(range.range, "-");
    for (host::RpView const& rp : range.rps) {
      if (rp.holdTime == 0) continue;
      Zet::String8 const address = rp.address.stringValue();
      fmt::format_to(out, FMT_COMPILE("{} rp {} priority {} holdtime {}{}\n"), start, address.view(),
                     rp.priority, rp.holdTime, markOf(zone, rp, now));
    }
  }
  return text;
}

std::string digestOf(host::ZoneView const& zone, double now) {
  std::string const text = digestTextOf(zone, now);
  return fmt::format("{:08x}", crc32_z(0, reinterpret_cast<Bytef const*>(text.data()), text.size()));
}

}  // namespace pimbsr::view
