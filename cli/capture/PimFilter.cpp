#include "cli/capture/PimFilter.h"

#include <algorithm>
#include <iterator>

#include "wire/Reader.h"

namespace pimbsr::cli {

using wire::Reader;

static constexpr U8 protocolPim = 103;
static constexpr U8 protocolFragment = 44;
static constexpr U8 protocolAuthentication = 51;
static constexpr U8 protocolNone = 59;

static bool isIpv4Pim(Reader in) {
  in.bytes(9);
  return in.u8() == protocolPim;
}

/// Extension headers of RFC 8200 section 4 and the numbers of RFC 7045 that have the same form.
static bool isExtension(U8 protocol) {
  static constexpr U8 extensions[] = {0, 43, protocolFragment, protocolAuthentication, 60, 135, 139, 140};
  return std::find(std::begin(extensions), std::end(extensions), protocol) != std::end(extensions);
}

/// Steps over an extension header and gives what is next. The later parts of a fragmented packet hold
/// none.
static U8 skipExtension(U8 protocol, Reader& in) {
  U8 next = in.u8();
  U8 length = in.u8();
  if (protocol == protocolFragment) {
    bool isFirst = in.u16() >> 3 == 0;
    in.bytes(4);
    return isFirst ? next : protocolNone;
  }
  // Counted in units of 4 bytes without two of them, or in units of 8 without the first.
  in.bytes(protocol == protocolAuthentication ? std::size_t{4} * length + 6 : std::size_t{8} * length + 6);
  return next;
}

static bool isIpv6Pim(Reader in) {
  in.bytes(6);
  U8 protocol = in.u8();
  in.bytes(33);
  while (in.ok() && isExtension(protocol)) protocol = skipExtension(protocol, in);
  return in.ok() && protocol == protocolPim;
}

bool isPim(IpPacket const& packet) {
  if (packet.version == 4) return isIpv4Pim(Reader(packet.bytes));
  return packet.version == 6 && isIpv6Pim(Reader(packet.bytes));
}

}  // namespace pimbsr::cli
