#pragma once

#include "model/DropReason.h"
#include "model/Packet.h"
#include "model/Values.h"
#include "runtime/Ptr.h"
#include "wire/Wire.h"

namespace pimbsr::host {

/// What a received packet turned out to be.
enum class MessageKind : U8 {
  notPim,     ///< no PIM packet at all
  bootstrap,  ///< Bootstrap Message
  crpAdv,     ///< Candidate-RP-Advertisement
  hello,      ///< Hello
  other,      ///< PIM of another type, or over IPv6
  malformed,  ///< PIM that can't be decoded
  unread      ///< nothing read but the IP header, since packets came too fast
};

/// What became of one received packet.
struct Reception {
  MessageKind kind = MessageKind::notPim;  ///< what it turned out to be
  /// Why it was dropped, a stable name such as "checksum", "holdtime" or "border"; empty if it was
  /// accepted. For a message that lost some of its group ranges, why the first of them was dropped.
  std::string_view reason;
  /// The description of the reason; empty if it was accepted.
  std::string_view sentence;
  Lanet::IpGenAddr source;       ///< unset where the IP header couldn't be read
  Lanet::IpGenAddr destination;  ///< unset where the IP header couldn't be read
  /// The decoded message, also where it was dropped after decoding; null for other kinds. A Bootstrap Message
  /// that was forwarded has lost its source by now.
  Zet::Ptr<Routing::Pim::Packet::Message> message;
  /// Group ranges that a bound dropped, or cut to the RPs that are known, while the rest of the message was
  /// accepted; 0 where all was or nothing was.
  U32 droppedRanges = 0;

  /// Whether nothing of it was dropped.
  bool accepted() const { return reason.empty(); }
  /// Whether nothing of it was accepted.
  bool dropped() const { return !accepted() && droppedRanges == 0; }
  /// Whether it was dropped since its sender's budget is used up; the reason says whose that is.
  bool overBudget() const { return kind == MessageKind::unread; }
};

/// How often messages were dropped for one reason.
struct DropCount {
  U64 count = 0;              ///< how often
  std::string_view sentence;  ///< the description of the reason; empty while the count is 0

  /// Counts a message that was dropped for that reason.
  void add(Reception const& reception) {
    ++count;
    sentence = reception.sentence;
  }
};

/// Receives drops of advertisements that a router, as BSR, sends to itself. They come in no packet, so
/// that no other Reception reports them.
class OwnDropSink {
 public:
  /// An advertisement was dropped; the reference is valid within the call.
  virtual void onOwnDrop(Reception const& reception) = 0;

 protected:
  ~OwnDropSink() = default;
};

}  // namespace pimbsr::host
