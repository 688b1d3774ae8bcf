#pragma once

#include <list>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "model/DropReason.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"
#include "wire/Wire.h"

namespace pimbsr::host {

/// Has the machines take of a message what they can where its other RPs can't be taken: holdtimes above their
/// range are set to its end, and an RP that reading left out is missing in its range alone.
///
/// A range that comes in fragments is complete when as many RPs have come as it announces. The machines would
/// wait for those that were left out, so the range is collected here as well: once an RP of it is left out,
/// the machines get no further fragment of it, and with the last one the whole range as one record.
/// IngressSettings::fragmentRps bounds the collected RPs, which are kept as long as the machines keep
/// fragments.
class PIMBSR_INTERNAL MessageFit {
 public:
  using Message = Routing::Pim::Packet::BootstrapMessage;
  struct Verdict {
    Zet::Ptr<Message> passed;              ///< what the gate is to get; null if the message is dropped
    DropReason reason = DropReason::none;  ///< why it is dropped
  };

  /// All are used for as long as this object is.
  MessageFit(Routing::Pim::Bsr::PimBsrSm& root, CorrectionSwitch& correction, IngressSettings const& settings)
      : root_(root), correction_(correction), settings_(settings) {}

  /// Where reading is to put the RPs that it leaves out; null to drop their messages.
  wire::LeftOutRps* leftOut();
  /// Sets holdtimes that are above their range to its end, in place; false if the correction is off. To be
  /// called where there are any: a message is not walked for it.
  bool clamp(Message& message);
  bool clamp(Routing::Pim::Packet::CrpAdvMessage& message);
  /// Whether a message that was read last has a record that names a part of its range.
  bool hasParts(Message const& message) const;
  /// To be called with a message that was read last, before the gate gets it. One with such a record must
  /// come from the RPF neighbor towards its BSR.
  Verdict prepare(Message& message);
  /// To be called once the gate has accepted it.
  void handleAccepted();
  /// To be called after the switch has changed.
  void handleSwitch();
  /// RPs that are collected.
  U32 count() const { return count_; }

 private:
  using Group = Routing::Pim::Packet::BootstrapGroupData;
  using Less = Zet::Meter::Less;
  using Key = std::tuple<Lanet::IpGenAddr, Zet::U16, Lanet::IpGenPrefix>;  ///< sender, fragment tag, range
  struct Terms {
    U16 holdtime = 0;
    U8 priority = 0;
  };
  struct Rps {
    std::map<Lanet::IpGenAddr, Terms, Less> taken;
    std::set<std::pair<Lanet::IpGenAddr, U32>, Less> leftOut;  ///< with how often its record named it before

    U32 size() const { return static_cast<U32>(taken.size() + leftOut.size()); }
  };
  /// What messages have named of a range.
  struct Range : Rps {
    U8 announced = 0;
    double startedAt = 0;
    std::list<Key>::iterator place;
  };
  /// What the message at hand names of a range: it costs what it names, however much is collected.
  struct Addition : Rps {
    U8 announced = 0;
    Range const* collected = nullptr;  ///< by former messages that announced as many; null for none
    U32 fresh = 0;                     ///< RPs that are not collected yet

    U32 total() const { return fresh + (collected == nullptr ? 0 : collected->size()); }
    bool isComplete() const { return total() == announced; }
    bool lacksRps() const {
      return !leftOut.empty() || (collected != nullptr && !collected->leftOut.empty());
    }
  };
  using LeftOutOfRecord = std::pair<wire::LeftOutRps::const_iterator, wire::LeftOutRps::const_iterator>;

  void dropOld();
  void drop(std::map<Key, Range, Less>::iterator at);
  Addition& additionOf(Key const& key, Group const& group);
  void add(Addition& addition, Group const& group, std::size_t record) const;
  LeftOutOfRecord leftOutOf(std::size_t record) const;
  bool isPart(Group const& group, std::size_t record) const;
  bool withhold();
  Zet::Ptr<Group> recordOf(Group const& group, Addition const& addition, bool wasComplete) const;
  void forgetFragments(Key const& key);
  void collect(Key const& key, Addition& addition);

  Routing::Pim::Bsr::PimBsrSm& root_;
  CorrectionSwitch& correction_;
  IngressSettings const& settings_;
  wire::LeftOutRps leftOut_;
  std::map<Key, Range, Less> ranges_;
  std::list<Key> byAge_;  ///< the keys, the oldest first
  U32 count_ = 0;
  std::map<Key, Addition, Less> pending_;  ///< of the message at hand
};

}  // namespace pimbsr::host
