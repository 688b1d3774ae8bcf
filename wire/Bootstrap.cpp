// Bootstrap messages (RFC 5059 section 4.1). After the PIM header:
//
//     Fragment Tag (2)   Hash Mask Len (1)   BSR Priority (1)   BSR Address (6)
//     for each group:    Group Address (8)   RP Count (1)   Frag RP Count (1)   Reserved (2)
//         for each RP:   RP Address (6)   RP Holdtime (2)   RP Priority (1)   Reserved (1)
#include <algorithm>
#include <map>
#include <utility>

#include "wire/Address.h"
#include "wire/Message.h"
#include "wire/Wire.h"

namespace pimbsr::wire {

using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using Routing::Pim::Packet::BootstrapRpData;
using Routing::Pim::Packet::GroupFlags;

namespace {

// A group record without RPs.
constexpr std::size_t minRecordSize = groupSize + 4;

// True if no group record can begin here.
bool isTrailer(Bytes rest) {
  if (rest.size() < minRecordSize) return true;
  return std::all_of(rest.begin(), rest.end(), [](U8 byte) { return byte == 0; });
}

/// Keeps account of the RPs of a message that can't be taken.
class LeftOut {
 public:
  explicit LeftOut(LeftOutRps* rps) : rps_(rps) {}

  /// Leaves an RP of the record at hand out; what is wrong with the message if none may be.
  ReadError add(Lanet::IpGenAddr const& address, DropReason reason) {
    if (rps_ == nullptr) return reason;
    bool isNamed = reason == DropReason::rpTwice;
    rps_->push_back({record_, address, ++named_[address] - (isNamed ? 0 : 1)});
    ++count_;
    return {};
  }
  /// RPs of the record at hand; the next one is at hand then.
  U8 takeCount() {
    ++record_;
    named_.clear();
    return std::exchange(count_, U8{0});
  }

 private:
  LeftOutRps* rps_;
  std::size_t record_ = 0;
  U8 count_ = 0;
  std::map<Lanet::IpGenAddr, U32> named_;  ///< how often the record at hand names each RP that was left out
};

ReadError readRp(Reader& in, BootstrapGroupData& group, LeftOut& leftOut) {
  Lanet::IpGenAddr address;
  ReadError error = readUnicast(in, DropReason::rpNotUnicast, address);
  if (error == DropReason::rpNotUnicast) error = leftOut.add(address, *error);
  if (error) return error;
  U16 holdtime = in.u16();
  U8 priority = in.u8();
  in.u8();
  if (!in.ok()) return DropReason::truncated;
  if (!isRouterAddress(address)) return {};
  if (group.rpList(address)) return leftOut.add(address, DropReason::rpTwice);
  Zet::Ptr<BootstrapRpData> rp = group.rpListIs(address);
  rp->rpHoldtimeIs(holdtime);
  rp->rpPriorityIs(priority);
  return {};
}

ReadError readGroupRecord(Reader& in, BootstrapOptionalData& data, LeftOut& leftOut) {
  Lanet::IpGenPrefix range;
  GroupFlags flags;
  if (ReadError error = readGroup(in, range, flags)) return error;
  U8 rpCount = in.u8();
  U8 fragRpCount = in.u8();
  in.u16();
  if (!in.ok()) return DropReason::truncated;
  if (fragRpCount > rpCount) return DropReason::fragRpCount;
  auto group = Zet::make<BootstrapGroupData>(range);
  group->groupFlagsIs(flags);
  for (U8 i = 0; i < fragRpCount; ++i) {
    if (ReadError error = readRp(in, *group, leftOut)) return error;
  }
  U8 missing = leftOut.takeCount();
  group->rpCountIs(static_cast<U8>(fragRpCount == rpCount ? rpCount - missing : rpCount));
  group->fragRpCountIs(static_cast<U8>(fragRpCount - missing));
  data.groupDataEnq(group);
  return {};
}

void writeRp(Writer& out, BootstrapRpData const& rp) {
  writeUnicast(out, rp.rpAddress());
  out.u16(rp.rpHoldtime());
  out.u8(rp.rpPriority());
  out.u8(0);
}

// A record's RP Count is cut to 8 bits, so that it may lie below the RPs held (300 RPs count as 44), and a
// record that was cut out of a partial one may announce more RPs than it was given. RP Count is sent
// unchanged, since the receivers add fragments up to it and the sender has sized its packet by it; so no more
// RPs than that may follow.
void writeGroupRecord(Writer& out, BootstrapGroupData const& group) {
  writeGroup(out, group.prefix(), group.groupFlags());
  out.u8(group.rpCount());
  std::size_t fragRpCountAt = out.position();
  out.u8(0);
  out.u16(0);
  U8 limit = std::min(group.rpCount(), group.fragRpCount());
  U8 written = 0;
  for (auto rp = group.rpListIterator(); rp && written < limit; ++rp) {
    if (!isRouterAddress(rp->rpAddress())) continue;
    writeRp(out, *rp);
    ++written;
  }
  out.u8At(fragRpCountAt, written);
}

}  // namespace

Outcome<Zet::Ptr<BootstrapMessage>> decodeBootstrap(Bytes pim, Lanet::IpAddr source,
                                                    Lanet::IpAddr destination, LeftOutRps* leftOutRps) {
  Reader in(pim);
  U8 flags = 0;
  if (ReadError error = readHeader(in, MessageType::bootstrap, flags)) return *error;
  auto message = Zet::make<BootstrapMessage>();
  message->srcAddrIs(Lanet::IpGenAddr(source));
  message->dstAddrIs(Lanet::IpGenAddr(destination));
  message->forwardIs((flags & noForwardFlag) == 0);
  message->fragmentTagIs(in.u16());
  message->hashMaskLenIs(in.u8());
  message->bsrPriorityIs(in.u8());
  Lanet::IpGenAddr bsr;
  if (ReadError error = readUnicast(in, DropReason::bsrNotUnicast, bsr)) return *error;
  message->bsrAddressIs(bsr);
  auto data = Zet::make<BootstrapOptionalData>();
  LeftOut leftOut(leftOutRps);
  while (!isTrailer(in.rest())) {
    if (ReadError error = readGroupRecord(in, *data, leftOut)) return *error;
  }
  message->groupRpDataIs(data);
  return message;
}

bool encodeBootstrap(BootstrapMessage const& message, std::vector<U8>& out) {
  out.clear();
  if (!isRouterAddress(message.bsrAddress())) return false;
  writeHeader(out, MessageType::bootstrap, message.forward() ? 0 : noForwardFlag);
  Writer writer(out);
  writer.u16(message.fragmentTag());
  writer.u8(message.hashMaskLen());
  writer.u8(message.bsrPriority());
  writeUnicast(writer, message.bsrAddress());
  if (auto data = message.groupRpData()) {
    for (auto group = data->groupDataIterator(); group; ++group) {
      if (isGroupRange(group->prefix())) writeGroupRecord(writer, *group);
    }
  }
  writeChecksum(out);
  return true;
}

}  // namespace pimbsr::wire
