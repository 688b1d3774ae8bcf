#include "tests/wire/WireSupport.h"

#include <gtest/gtest.h>

#include <charconv>
#include <stdexcept>

#include "wire/Checksum.h"

namespace pimbsr::wire::test {

Buffer hex(std::string_view digits) {
  Buffer bytes;
  while (!digits.empty()) {
    if (digits.front() == ' ') {
      digits.remove_prefix(1);
      continue;
    }
    U8 byte = 0;
    auto pair = digits.substr(0, 2);
    auto read = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
    if (pair.size() < 2 || read.ptr != pair.data() + 2) throw std::invalid_argument("bad hex in a test");
    bytes.push_back(byte);
    digits.remove_prefix(2);
  }
  return cut(bytes, bytes.size());
}

Buffer checksummed(Buffer bytes) {
  if (bytes.size() < 4) return bytes;
  bytes[2] = bytes[3] = 0;
  U16 sum = checksum(bytes);
  bytes[2] = static_cast<U8>(sum >> 8);
  bytes[3] = static_cast<U8>(sum);
  return bytes;
}

Buffer message(std::string_view digits) { return checksummed(hex(digits)); }

Buffer cut(Buffer const& bytes, std::size_t n) {
  auto exact = Buffer(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
  EXPECT_EQ(exact.size(), exact.capacity());
  return exact;
}

Lanet::IpAddr ip(char const* text) { return Lanet::IpAddr::parse(text); }

Lanet::IpGenPrefix prefix(char const* text) { return Lanet::IpGenPrefix::parse(text); }

Lanet::IpAddr sender() { return Lanet::IpAddr::fromHost(0x0a000005); }

Lanet::IpAddr receiver() { return Lanet::allPimRouters; }

Buffer written(Routing::Pim::Packet::BootstrapMessage const& message) {
  Buffer out;
  EXPECT_TRUE(encodeBootstrap(message, out));
  return out;
}

Buffer written(Routing::Pim::Packet::CrpAdvMessage const& message) {
  Buffer out;
  EXPECT_TRUE(encodeCrpAdv(message, out));
  return out;
}

Buffer written(HelloMessage const& message) {
  Buffer out;
  encodeHello(message, out);
  return out;
}

char const* const twoRpBootstrap =
    "24 00 e410 04b0 00 00 0100 01010101"
    " 0100 00 04 e0000000 02 02 0000"
    " 0100 02020202 0096 00 00"
    " 0100 03030303 0096 00 00";

char const* const oneGroupAdvertisement =
    "28 00 ee5e 01 00 0096 0100 03030303"
    " 0100 00 04 e0000000";

}  // namespace pimbsr::wire::test
