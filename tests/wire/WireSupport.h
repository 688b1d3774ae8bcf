#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "model/Lanet.h"
#include "model/Packet.h"
#include "wire/Wire.h"

/// What the tests of wire/ share: packets written down in hex, and the two ends of the link they came over.
namespace pimbsr::wire::test {

using Buffer = std::vector<U8>;

/// The bytes that pairs of hex digits spell; spaces are for the eye.
Buffer hex(std::string_view digits);

/// A PIM message in hex with the right checksum written over its third and fourth byte.
Buffer message(std::string_view digits);

/// The same for bytes; what is too short to have a checksum stays as it is.
Buffer checksummed(Buffer bytes);

/// A copy of the first n bytes in an allocation of exactly that size, so that a read past its end is seen.
Buffer cut(Buffer const& bytes, std::size_t n);

/// Short for IpAddr::parse and IpGenPrefix::parse.
Lanet::IpAddr ip(char const* text);
Lanet::IpGenPrefix prefix(char const* text);

/// The ends of the link in all tests.
Lanet::IpAddr sender();
Lanet::IpAddr receiver();

/// Each reader with the ends above.
inline auto readBootstrap(Bytes pim) { return decodeBootstrap(pim, sender(), receiver()); }
inline auto readCrpAdv(Bytes pim) { return decodeCrpAdv(pim, sender(), receiver()); }
inline auto readHello(Bytes pim) { return decodeHello(pim, sender(), receiver()); }
inline auto readMessage(Bytes pim) { return decodeMessage(pim, sender(), receiver()); }

/// The drop reason, nothing if the packet was accepted.
template <class T>
std::optional<DropReason> dropReason(Outcome<T> const& outcome) {
  if (outcome) return {};
  return outcome.reason();
}

/// A drop reason as text, for messages of failed tests.
inline std::string_view nameOf(std::optional<DropReason> reason) {
  return reason ? name(*reason) : "accepted";
}

/// The bytes of a record; the test fails if it cannot be written.
Buffer written(Routing::Pim::Packet::BootstrapMessage const& message);
Buffer written(Routing::Pim::Packet::CrpAdvMessage const& message);
Buffer written(HelloMessage const& message);

/// Two whole messages as routers send them: one group range with two RPs, and the advertisement of one of
/// them.
extern char const* const twoRpBootstrap;
extern char const* const oneGroupAdvertisement;

}  // namespace pimbsr::wire::test
