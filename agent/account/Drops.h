#pragma once

#include <compare>
#include <map>
#include <string>
#include <string_view>

#include "host/Reception.h"

namespace pimbsr::agent {

using Zet::U16;
using Zet::U64;
using Zet::U8;

/// What is counted together.
struct DropKey {
  std::string_view reason;  ///< the stable name of host::Reception
  host::MessageKind kind = host::MessageKind::notPim;
  std::string intf;
  Lanet::IpGenPrefix zone;  ///< zone of a Bootstrap Message; unset for what is none
  bool others = false;      ///< stands for all zones that have no row of their own

  friend auto operator<=>(DropKey const&, DropKey const&) = default;
};

/// What is kept of a refused message. It is put into words when it is shown: a flood must cost little.
struct DroppedMessage {
  double time = 0;  ///< on the agent's clock
  Lanet::IpGenAddr sender;
  Lanet::IpGenAddr destination;
  Lanet::IpGenAddr about;  ///< the BSR of a Bootstrap Message, the RP of an advertisement; else unset
  U8 priority = 0;         ///< of either
  U8 hashMaskLen = 0;      ///< of a Bootstrap Message
  U16 fragmentTag = 0;     ///< of a Bootstrap Message
  U16 holdTime = 0;        ///< of an advertisement, seconds
  bool forward = true;     ///< a Bootstrap Message without the No-Forward bit
  Zet::U32 groups = 0;     ///< group ranges of either
  Zet::U32 dropped = 0;    ///< those that were dropped or cut while the rest was accepted; 0 for all
};

/// Refused messages of one key.
struct DropRow {
  U64 count = 0;
  std::string_view sentence;  ///< the reason in words
  DroppedMessage last;
};

/// Counts refused messages by reason, kind, interface and zone, and keeps the last of each.
class Drops {
 public:
  /// Peers choose the zones, so from `mostRows` rows on a new zone counts in a row for others, of which there
  /// is one for each reason, kind and interface.
  explicit Drops(std::size_t mostRows = 256) : mostRows_(mostRows) {}

  /// Notes a message that was refused on an interface at a time on the agent's clock; an accepted one is
  /// ignored. An advertisement of this router to itself has no interface, "". Reason and sentence must live
  /// for ever.
  void note(std::string const& intf, host::Reception const& reception, double now);
  void clear() { rows_.clear(); }

  std::map<DropKey, DropRow> const& rows() const { return rows_; }

 private:
  std::size_t mostRows_;
  std::map<DropKey, DropRow> rows_;
};

/// A refused message in one line for people, such as "BSM of 10.0.0.1, priority 64, hash mask length 30, tag
/// 0x12ab, 3 group ranges".
std::string summaryOf(host::MessageKind kind, DroppedMessage const& message);

}  // namespace pimbsr::agent
