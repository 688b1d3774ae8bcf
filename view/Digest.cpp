#include "view/Digest.h"

#include <fmt/format.h>

#include <array>
#include <iterator>

#include "view/View.h"

namespace pimbsr::view {

/// The first line of the text; another form of it needs another number.
static constexpr char const* digestVersion = "pimbsr digest 1\n";

using Remainders = std::array<Zet::U32, 256>;

/// Of each byte, with the reflected polynomial of IEEE 802.3.
static constexpr Remainders remainders = [] {
  Remainders all{};
  for (Zet::U32 byte = 0; byte < all.size(); ++byte) {
    Zet::U32 rest = byte;
    for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0xedb88320U : 0);
    all[byte] = rest;
  }
  return all;
}();

static Zet::U32 crc32(std::string_view text) {
  Zet::U32 rest = ~Zet::U32{0};
  for (char one : text) rest = remainders[(rest ^ static_cast<unsigned char>(one)) & 0xff] ^ (rest >> 8);
  return ~rest;
}

/// RPs of a former BSR, or of none, stay in use; and an expired one does until its timer is served.
static char const* markOf(host::ZoneView const& zone, host::RpView const& rp, double now) {
  if (rp.expires <= now) return " stale";
  return rp.kept || !zone.bsr ? " kept" : "";
}

std::string digestTextOf(host::ZoneView const& zone, double now) {
  fmt::memory_buffer text;
  auto out = std::back_inserter(text);
  fmt::format_to(out, "{}zone {}\n", digestVersion, cellOf(zone.zone, "-"));
  if (zone.bsr) {
    fmt::format_to(out, "bsr {} priority {} hash-mask-length {}\n", cellOf(zone.bsr->address, "-"),
                   zone.bsr->priority, zone.bsr->hashMaskLen);
  } else {
    fmt::format_to(out, "bsr none\n");
  }
  for (host::RangeView const& range : zone.rpSet) {
    std::string name = cellOf(range.range, "-");
    for (host::RpView const& rp : range.rps) {
      if (rp.holdTime == 0) continue;
      fmt::format_to(out, "range {} rp {} priority {} holdtime {}{}\n", name, cellOf(rp.address, "-"),
                     rp.priority, rp.holdTime, markOf(zone, rp, now));
    }
  }
  return fmt::to_string(text);
}

std::string digestOf(host::ZoneView const& zone, double now) {
  return fmt::format("{:08x}", crc32(digestTextOf(zone, now)));
}

}  // namespace pimbsr::view
