#pragma once

#include <compare>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/Reception.h"

namespace pimbsr::agent {

using Zet::U16;
using Zet::U64;
using Zet::U8;

/// Drops are counted by this.
struct DropKey {
  std::string_view reason;  ///< the stable name of host::Reception
  host::MessageKind kind = host::MessageKind::notPim;
  std::string intf;
  Lanet::IpGenPrefix zone;  ///< zone of a Bootstrap message; unset for other messages
  bool others = false;      ///< all zones without a row of their own

  friend auto operator<=>(DropKey const&, DropKey const&) = default;
};

/// What is kept of a dropped message. Its text is made when it is shown, since a flood must cost little.
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

/// The senders of most of the messages of a row, within bounded memory. Of more senders than are kept, a new
/// one takes the place of the one with the fewest messages, and its count: so a count is an upper estimate,
/// exact while there are no more than `max`, and a sender of more than a quarter of all is among them.
class TopSenders {
 public:
  static constexpr std::size_t max = 4;

  struct Sender {
    Lanet::IpGenAddr address;
    U64 count = 0;  ///< messages, at most
  };

  /// Counts a message; one without a readable source is ignored.
  void note(Lanet::IpGenAddr const& sender);
  /// The most frequent first.
  std::vector<Sender> const& list() const { return senders_; }

 private:
  std::vector<Sender> senders_;
};

/// Dropped messages of one key.
struct DropRow {
  U64 count = 0;
  TopSenders senders;
  std::string_view sentence;  ///< the reason, human-readable
  DroppedMessage last;
};

/// Counts dropped messages by reason, kind, interface and zone, and keeps the last of each.
class Drops {
 public:
  /// Peers choose the zones, so from `maxRows` rows on all new zones are counted in one row for each reason,
  /// kind and interface (DropKey::others).
  explicit Drops(std::size_t maxRows = 256) : maxRows_(maxRows) {}

  /// Counts a message dropped on an interface at a time on the agent's clock; an accepted one is ignored. An
  /// advertisement of this router to itself has no interface, "". Reason and sentence are literals.
  void note(std::string const& intf, host::Reception const& reception, double now);
  void clear() { rows_.clear(); }

  std::map<DropKey, DropRow> const& rows() const { return rows_; }

 private:
  std::size_t maxRows_;
  std::map<DropKey, DropRow> rows_;
};

/// A dropped message in one human-readable line, such as "BSM of 10.0.0.1, priority 64, hash mask length 30,
/// tag 0x12ab, 3 group ranges".
std::string summaryOf(host::MessageKind kind, DroppedMessage const& message);

}  // namespace pimbsr::agent
