// Hello messages (RFC 7761 section 4.9.2). After the PIM header a list of options:
//
//     Option Type (2)   Option Length (2)   Option Value (Option Length)
#include <algorithm>
#include <limits>

#include "wire/Address.h"
#include "wire/Message.h"
#include "wire/Wire.h"

namespace pimbsr::wire {

namespace {

enum class Option : U16 { holdtime = 1, drPriority = 19, generationId = 20, addressList = 24 };

constexpr std::size_t optionHeaderSize = 4;
/// OptionLength has 16 bits (RFC 7761 section 4.9.2).
constexpr std::size_t maxAddresses = std::numeric_limits<U16>::max() / unicastSize;

bool isIpv4List(Bytes value) { return !value.empty() && value.front() == 1; }

ReadError readAddressList(Bytes value, std::vector<Lanet::IpGenAddr>& addresses) {
  if (!isIpv4List(value)) return {};
  Reader in(value);
  while (in.left() != 0) {
    Lanet::IpGenAddr address;
    if (readUnicast(in, DropReason::helloOption, address)) return DropReason::helloOption;
    addresses.push_back(address);
  }
  return {};
}

// Takes a value that must be one number of exactly the given size.
template <class T, class Target>
ReadError readNumber(Bytes value, T (Reader::*read)(), Target& target) {
  if (value.size() != sizeof(T)) return DropReason::helloOption;
  Reader in(value);
  target = (in.*read)();
  return {};
}

ReadError readOption(Reader& in, HelloMessage& hello) {
  auto option = static_cast<Option>(in.u16());
  U16 length = in.u16();
  Bytes value = in.bytes(length);
  if (!in.ok()) return DropReason::truncated;
  switch (option) {
    case Option::holdtime:
      return readNumber(value, &Reader::u16, hello.holdtime);
    case Option::drPriority:
      return readNumber(value, &Reader::u32, hello.drPriority);
    case Option::generationId:
      return readNumber(value, &Reader::u32, hello.generationId);
    case Option::addressList:
      return readAddressList(value, hello.addressList);
  }
  return {};
}

void writeOption(Writer& out, Option option, U16 length) {
  out.u16(static_cast<U16>(option));
  out.u16(length);
}

void writeAddressList(Writer& out, std::vector<Lanet::IpGenAddr> const& addresses) {
  auto writable = std::count_if(addresses.begin(), addresses.end(), isRouterAddress);
  auto left = std::min(static_cast<std::size_t>(writable), maxAddresses);
  if (left == 0) return;
  writeOption(out, Option::addressList, static_cast<U16>(left * unicastSize));
  for (auto address = addresses.begin(); left > 0; ++address) {
    if (!isRouterAddress(*address)) continue;
    writeUnicast(out, *address);
    --left;
  }
}

}  // namespace

Outcome<HelloMessage> decodeHello(Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination) {
  Reader in(pim);
  U8 flags = 0;
  if (ReadError error = readHeader(in, MessageType::hello, flags)) return *error;
  HelloMessage hello;
  hello.srcAddr = Lanet::IpGenAddr(source);
  hello.dstAddr = Lanet::IpGenAddr(destination);
  while (in.left() >= optionHeaderSize) {
    if (ReadError error = readOption(in, hello)) return *error;
  }
  return hello;
}

void encodeHello(HelloMessage const& message, std::vector<U8>& out) {
  writeHeader(out, MessageType::hello);
  Writer writer(out);
  writeOption(writer, Option::holdtime, sizeof(U16));
  writer.u16(message.holdtime);
  if (message.drPriority) {
    writeOption(writer, Option::drPriority, sizeof(U32));
    writer.u32(*message.drPriority);
  }
  if (message.generationId) {
    writeOption(writer, Option::generationId, sizeof(U32));
    writer.u32(*message.generationId);
  }
  writeAddressList(writer, message.addressList);
  writeChecksum(out);
}

}  // namespace pimbsr::wire
