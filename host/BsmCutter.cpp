#include "host/BsmCutter.h"

#include <algorithm>

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;
using Zet::U8;

/// RPs of a record that are encoded.
static U32 rpsOf(BootstrapGroupData const& group) {
  return std::min<U32>({group.rpCount(), group.fragRpCount(), group.rpListCount()});
}

static U32 sizeOf(BootstrapGroupData const& group) { return bsmGroupSize + bsmRpSize * rpsOf(group); }

U32 encodedSize(BootstrapMessage const& message) {
  U32 size = bsmHeaderSize;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) size += sizeOf(*group);
  return size;
}

Ptr<BootstrapMessage> headerOf(BootstrapMessage const& message) {
  auto copy = Zet::make<BootstrapMessage>();
  copy->forwardIs(message.forward());
  copy->fragmentTagIs(message.fragmentTag());
  copy->hashMaskLenIs(message.hashMaskLen());
  copy->bsrPriorityIs(message.bsrPriority());
  copy->bsrAddressIs(message.bsrAddress());
  copy->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  return copy;
}

namespace {

/// One message on its way into fragments, which are filled one after the other.
class Cutting {
 public:
  Cutting(BootstrapMessage const& message, U32 maxSize) : message_(message), maxSize_(maxSize) {
    Ptr<BootstrapGroupData> first = message.groupRpData()->groupDataFirst();
    if (first && first->groupFlags().scoped()) zone_ = first;
  }

  void add(Ptr<BootstrapGroupData> const& group) {
    U32 size = sizeOf(*group);
    if (!fits(*group, size) && !isEmpty()) open();
    if (fits(*group, size)) {
      place(*group, group);
    } else {
      split(*group);
    }
  }
  std::vector<Ptr<BootstrapMessage>> fragments() && { return std::move(fragments_); }

 private:
  bool isEmpty() const { return used_ == bsmHeaderSize; }
  void open() {
    fragments_.push_back(headerOf(message_));
    used_ = bsmHeaderSize;
  }
  /// Bytes for the zone's record, which begins each fragment that doesn't begin with it already.
  U32 zoneSize(BootstrapGroupData const& group) const {
    return zone_ && &group != zone_.ptr() && isEmpty() ? bsmGroupSize : 0;
  }
  U32 freeBytes() const { return maxSize_ > used_ ? maxSize_ - used_ : 0; }
  bool fits(BootstrapGroupData const& group, U32 size) const { return zoneSize(group) + size <= freeBytes(); }

  void place(BootstrapGroupData const& group, Ptr<BootstrapGroupData> const& record) {
    if (fragments_.empty()) open();
    if (zoneSize(group) != 0) enqueue(zoneRecord());
    enqueue(record);
  }
  void enqueue(Ptr<BootstrapGroupData> const& record) {
    fragments_.back()->groupRpData()->groupDataEnq(record);
    used_ += sizeOf(*record);
  }
  /// The zone's record without its RPs, of which there are as many as before.
  Ptr<BootstrapGroupData> zoneRecord() const {
    auto record = Zet::make<BootstrapGroupData>(zone_->prefix());
    record->groupFlagsIs(zone_->groupFlags());
    record->rpCountIs(zone_->rpCount());
    return record;
  }

  void split(BootstrapGroupData const& group) {
    U32 left = rpsOf(group);
    for (auto rp = group.rpListIterator(); rp && left != 0;) {
      if (!fits(group, bsmGroupSize + bsmRpSize)) open();
      U32 most = (freeBytes() - std::min(freeBytes(), zoneSize(group) + bsmGroupSize)) / bsmRpSize;
      U32 count = std::min(left, std::max<U32>(most, 1));
      auto record = Zet::make<BootstrapGroupData>(group.prefix());
      record->groupFlagsIs(group.groupFlags());
      record->rpCountIs(group.rpCount());
      record->fragRpCountIs(static_cast<U8>(count));
      for (U32 i = 0; i < count; ++i, ++rp) copyRp(*record, *rp);
      place(group, record);
      left -= count;
    }
  }
  static void copyRp(BootstrapGroupData& to, Packet::BootstrapRpData const& rp) {
    Ptr<Packet::BootstrapRpData> copy = to.rpListIs(rp.rpAddress());
    copy->rpHoldtimeIs(rp.rpHoldtime());
    copy->rpPriorityIs(rp.rpPriority());
  }

  BootstrapMessage const& message_;
  U32 maxSize_;
  Ptr<BootstrapGroupData> zone_;  ///< the record of a scoped zone; null for the global one
  std::vector<Ptr<BootstrapMessage>> fragments_;
  U32 used_ = bsmHeaderSize;  ///< bytes of the last fragment
};

}  // namespace

std::vector<Ptr<BootstrapMessage>> cut(BootstrapMessage const& message, U32 maxSize) {
  Cutting cutting(message, maxSize);
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) cutting.add(group.ptr());
  return std::move(cutting).fragments();
}

}  // namespace pimbsr::host
