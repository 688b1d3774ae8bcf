// Reads any bytes as an IPv4 packet and as a PIM message, as they come and with the checksum put right, since
// no fuzzer finds one. An accepted one must be written, read again and equal, and then be written alike.
#include <cstdint>
#include <variant>
#include <vector>

#include "runtime/Assert.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace {

using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::CrpAdvMessage;
using namespace pimbsr::wire;

using Buffer = std::vector<Zet::U8>;

Lanet::IpAddr const source = Lanet::IpAddr::fromHost(0x0a000005);
Lanet::IpAddr const destination = Lanet::allPimRouters;

template <class T>
auto const& get(DecodedMessage const& message) {
  auto const* value = std::get_if<T>(&message);
  ZET_ASSERT(value != nullptr, "a message is read as what it was written as");
  return *value;
}

Outcome<DecodedMessage> read(Bytes bytes) { return decodeMessage(bytes, source, destination); }

DecodedMessage readBack(Buffer const& bytes) {
  auto outcome = read(bytes);
  ZET_ASSERT(outcome, "what was written is accepted");
  return *outcome;
}

template <class Record>
void roundTrip(Zet::Ptr<Record> const& record, bool (*encode)(Record const&, Buffer&)) {
  Buffer first;
  ZET_ASSERT(encode(*record, first), "what was read can be written");
  DecodedMessage const message = readBack(first);
  auto const& again = get<Zet::Ptr<Record>>(message);
  ZET_ASSERT(equal(*record, *again), "what was written reads as it was");
  Buffer second;
  ZET_ASSERT(encode(*again, second) && first == second, "equal records are written alike");
}

void roundTrip(HelloMessage const& hello) {
  Buffer first;
  encodeHello(hello, first);
  DecodedMessage const message = readBack(first);
  ZET_ASSERT(get<HelloMessage>(message) == hello, "what was written reads as it was");
}

void check(Bytes bytes) {
  auto outcome = read(bytes);
  if (!outcome) {
    ZET_ASSERT(!name(outcome.reason()).empty(), "a drop reason has a name");
    return;
  }
  if (auto const* bootstrap = std::get_if<Zet::Ptr<BootstrapMessage>>(&*outcome)) {
    roundTrip(*bootstrap, encodeBootstrap);
  } else if (auto const* crpAdv = std::get_if<Zet::Ptr<CrpAdvMessage>>(&*outcome)) {
    roundTrip(*crpAdv, encodeCrpAdv);
  } else if (auto const* hello = std::get_if<HelloMessage>(&*outcome)) {
    roundTrip(*hello);
  }
}

Buffer checksummed(Bytes bytes) {
  Buffer corrected(bytes.begin(), bytes.end());
  if (corrected.size() < 4) return corrected;
  corrected[2] = corrected[3] = 0;
  Zet::U16 sum = checksum(corrected);
  corrected[2] = static_cast<Zet::U8>(sum >> 8);
  corrected[3] = static_cast<Zet::U8>(sum);
  return corrected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Bytes const bytes(data, size);
  check(bytes);
  check(checksummed(bytes));
  if (auto packet = parseIpv4(bytes)) check(packet->payload);
  return 0;
}
