#pragma once

#include <map>
#include <vector>

#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// The records of one kept Bootstrap Message that name a part of their range's RPs, by range.
class KeptRecords {
 public:
  using Record = Routing::Pim::Packet::BootstrapGroupData;

  explicit KeptRecords(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);

  /// The indexed message; never null.
  Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message() const { return message_; }
  /// Calls `found(record)` for each record of the range; O(log n) of the message's records to find them.
  template <class Found>
  void find(Lanet::IpGenPrefix const& range, Found const& found) const {
    auto [at, end] = records_.equal_range(range);
    for (; at != end; ++at) found(*at->second);
  }

 private:
  Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> message_;
  std::multimap<Lanet::IpGenPrefix, Zet::Ptr<Record const>> records_;
};

/// Finds the fragments of a group range in the last messages that the machines keep, one for each zone.
///
/// A kept message is indexed when it is asked for first, and not again while it is kept: its records are
/// walked once, however many fragments follow under its tag.
class KeptFragments {
 public:
  /// The root machine is read for as long as this object is used.
  explicit KeptFragments(Routing::Pim::Bsr::PimBsrSm const& root) : root_(root) {}

  /// The kept messages of a fragment tag, of all zones; valid until the next call. Costs a comparison of tags
  /// for each zone.
  std::vector<KeptRecords const*> tagged(Zet::U16 tag);

 private:
  template <class MachineWalk>
  void addTagged(Zet::U16 tag, MachineWalk machines, std::vector<KeptRecords const*>& found);
  KeptRecords const& recordsOf(Lanet::IpGenPrefix const& zone,
                               Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void removeGoneZones();

  Routing::Pim::Bsr::PimBsrSm const& root_;
  std::map<Lanet::IpGenPrefix, KeptRecords> byZone_;  ///< of zones that were asked for; some may have gone
};

}  // namespace pimbsr::host
