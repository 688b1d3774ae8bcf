// Bytes -> the reader of an attribute log -> a copy of the status tree. The process goes on, and a snapshot
// that follows makes the copy equal to its original.
//
// The first byte of the input is the size of the pieces in which the rest is fed. With its high bit the rest
// is the content of a snapshot, to which the header is added here, since it holds the fingerprint of the
// model.

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/Goal.h"
#include "model/Status.h"
#include "runtime/Assert.h"
#include "runtime/NboAttrLogDemuxer.h"

namespace {

using Routing::Pim::Bsr::Status;
using Zet::Ptr;
using Zet::U8;
using Bytes = std::vector<U8>;

constexpr Zet::U32 flow = 7;

fuzz::Goal changesApplied("changes that all apply");
fuzz::Goal snapshotApplied("a snapshot that applies");

class Tape : public Zet::MsgChannel {
 public:
  void send(std::span<U8 const> given) override { bytes.insert(bytes.end(), given.begin(), given.end()); }
  Bytes bytes;
};

Bytes snapshot(Ptr<Status> const& status) {
  auto tape = Zet::make<Tape>();
  auto out = Zet::make<Zet::NboAttrLog::FlowOut>(flow, tape);
  out->rootIs<Status>(status);
  out->flush();
  return tape->bytes;
}

Ptr<Status> original() {
  auto status = Routing::Pim::Bsr::statusFactory("bsr");
  auto const zone = Lanet::IpGenPrefix::parse("239.0.0.0/8");
  auto const address = Lanet::IpGenAddr::parse("10.0.0.1");
  status->afIs(Lanet::AddressFamily::ipv4);
  status->cbsrIs(zone)->priorityIs(5);
  status->zoneAclIs("acl", Lanet::IntfId("eth0"));
  status->crpStatusIs(zone)->statusIs("set")->crpSetIs(zone)->rpIs(address)->holdTimeIs(150);
  status->countersIs("counters")->rxInc(1);
  return status;
}

void feed(Zet::NboAttrLog::Demuxer& demuxer, std::span<U8 const> bytes, std::size_t piece) {
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(piece, bytes.size()))) {
    demuxer.bytes(bytes.first(std::min(piece, bytes.size())));
  }
}

/// A snapshot with any content.
Bytes snapshotOf(std::span<U8 const> content) {
  Zet::NboAttrLog::Out out;
  put(out, Zet::U32{0});
  put(out, flow);
  put(out, static_cast<U8>(Zet::NboAttrLog::Op::snapshot));
  put(out, Zet::NboAttrLog::rootId);
  put(out, Zet::AttributeId{0});
  put(out, Zet::NboAttrLog::modelFingerprint());
  put(out, Zet::String8(Status::_fwkType().name));
  std::copy(content.begin(), content.end(), out.add(content.size()));
  out.overwrite(0, static_cast<Zet::U32>(out.size() - 4));
  return Bytes(out.bytes().begin(), out.bytes().end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0) return 0;
  static Bytes const wanted = snapshot(original());
  auto copy = Routing::Pim::Bsr::statusFactory("bsr");
  auto demuxer = Zet::make<Zet::NboAttrLog::Demuxer>(1 << 20);
  demuxer->copyIs(flow, copy);
  // A tree that the messages of the input may name the objects of.
  demuxer->bytes(wanted);
  std::span<U8 const> const rest(data + 1, size - 1);
  bool const isSnapshot = data[0] >= 0x80;
  feed(*demuxer, isSnapshot ? snapshotOf(rest) : Bytes(rest.begin(), rest.end()), 1 + data[0] % 64u);
  bool const isApplied = demuxer->messages() > 1 && demuxer->rejected() == 0 && demuxer->outOfRange() == 0;
  (isSnapshot ? snapshotApplied : changesApplied).reachedIf(isApplied);
  demuxer->reset();
  demuxer->bytes(wanted);
  ZET_ASSERT(snapshot(copy) == wanted, "a snapshot makes any copy equal to its original");
  return 0;
}
