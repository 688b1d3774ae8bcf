#include "wire/Message.h"

#include <utility>

#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace pimbsr::wire {

namespace {

constexpr U8 pimVersion = 2;
constexpr std::size_t checksumAt = 2;

// The same outcome, as one of the kinds that a message can be.
template <class T>
Outcome<DecodedMessage> widened(Outcome<T> outcome) {
  if (!outcome) return outcome.reason();
  return DecodedMessage(*outcome);
}

}  // namespace

ReadError readHeader(Reader& in, MessageHeader& header) {
  U8 versionAndType = in.u8();
  header.type = versionAndType & 0x0f;
  header.flags = in.u8();
  in.u16();
  if (!in.ok()) return DropReason::truncated;
  if (versionAndType >> 4 != pimVersion) return DropReason::version;
  return {};
}

ReadError readHeader(Reader& in, MessageType type, U8& flags) {
  Bytes whole = in.rest();
  MessageHeader header;
  if (ReadError error = readHeader(in, header)) return error;
  if (header.type != static_cast<U8>(type)) return DropReason::type;
  if (checksum(whole) != 0) return DropReason::checksum;
  flags = header.flags;
  return {};
}

void writeHeader(std::vector<U8>& out, MessageType type, U8 flags) {
  out.clear();
  Writer writer(out);
  writer.u8(static_cast<U8>(pimVersion << 4 | static_cast<U8>(type)));
  writer.u8(flags);
  writer.u16(0);
}

void writeChecksum(std::vector<U8>& out) { Writer(out).u16At(checksumAt, checksum(out)); }

Outcome<DecodedMessage> decodeMessage(Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination,
                                      LeftOutRps* leftOut) {
  Reader in(pim);
  MessageHeader header;
  if (ReadError error = readHeader(in, header)) return *error;
  switch (static_cast<MessageType>(header.type)) {
    case MessageType::hello:
      return widened(decodeHello(pim, source, destination));
    case MessageType::bootstrap:
      return widened(decodeBootstrap(pim, source, destination, leftOut));
    case MessageType::crpAdv:
      return widened(decodeCrpAdv(pim, source, destination));
  }
  return DecodedMessage(OtherMessage{header.type});
}

}  // namespace pimbsr::wire
