// Candidate-RP-Advertisements (RFC 5059 section 4.2). After the PIM header:
//
//     Prefix Count (1)   Priority (1)   Holdtime (2)   RP Address (6)   then each Group Address (8)
#include "wire/Address.h"
#include "wire/Message.h"
#include "wire/Wire.h"

namespace pimbsr::wire {

using Routing::Pim::Packet::CrpAdvMessage;
using Routing::Pim::Packet::CrpGroupData;
using Routing::Pim::Packet::GroupFlags;

namespace {

ReadError readPrefix(Reader& in, CrpGroupData& data) {
  if (in.left() < groupSize) return DropReason::prefixCount;
  Lanet::IpGenPrefix prefix;
  GroupFlags flags;
  if (ReadError error = readGroup(in, prefix, flags)) return error;
  if (data.groupInfo(prefix)) return DropReason::prefixTwice;
  data.groupInfoIs(prefix)->groupFlagsIs(flags);
  return {};
}

// Writes at most that many prefixes and returns how many it wrote.
U8 writePrefixes(Writer& out, CrpGroupData const& data, U8 limit) {
  U8 written = 0;
  for (auto info = data.groupInfoIterator(); info && written < limit; ++info) {
    if (!isGroupRange(info->prefix())) continue;
    writeGroup(out, info->prefix(), info->groupFlags());
    ++written;
  }
  return written;
}

}  // namespace

Outcome<Zet::Ptr<CrpAdvMessage>> decodeCrpAdv(Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination) {
  Reader in(pim);
  U8 flags = 0;
  if (ReadError error = readHeader(in, MessageType::crpAdv, flags)) return *error;
  auto message = Zet::make<CrpAdvMessage>();
  message->srcAddrIs(Lanet::IpGenAddr(source));
  message->dstAddrIs(Lanet::IpGenAddr(destination));
  message->prefixCountIs(in.u8());
  message->priorityIs(in.u8());
  message->holdtimeIs(in.u16());
  Lanet::IpGenAddr rp;
  if (ReadError error = readUnicast(in, DropReason::rpNotUnicast, rp)) return *error;
  message->rpAddressIs(rp);
  auto data = Zet::make<CrpGroupData>();
  for (U8 i = 0; i < message->prefixCount(); ++i) {
    if (ReadError error = readPrefix(in, *data)) return *error;
  }
  message->groupDataIs(data);
  return message;
}

bool encodeCrpAdv(CrpAdvMessage const& message, std::vector<U8>& out) {
  out.clear();
  if (!isRouterAddress(message.rpAddress())) return false;
  writeHeader(out, MessageType::crpAdv);
  Writer writer(out);
  std::size_t prefixCountAt = writer.position();
  writer.u8(0);
  writer.u8(message.priority());
  writer.u16(message.holdtime());
  writeUnicast(writer, message.rpAddress());
  U8 written = 0;
  if (auto data = message.groupData()) written = writePrefixes(writer, *data, message.prefixCount());
  if (written == 0 && message.prefixCount() != 0) {
    out.clear();
    return false;
  }
  writer.u8At(prefixCountAt, written);
  writeChecksum(out);
  return true;
}

}  // namespace pimbsr::wire
