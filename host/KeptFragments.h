#pragma once

#include <map>
#include <utility>
#include <vector>

#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// What one record of a kept message names, in a record that names a part of its range's RPs.
struct KeptRecord {
  Lanet::IpGenPrefix range;
  Zet::U8 announced = 0;  ///< its RP Count
  std::vector<Lanet::IpGenAddr> rps;
};

/// What the kept messages of one fragment tag name of a group range.
class KeptRange {
 public:
  bool names(Lanet::IpGenAddr const& rp) const { return rps_.contains(rp); }
  /// How many different RPs are named.
  size_t rpCount() const { return rps_.size(); }
  /// The least RP Count of a record.
  Zet::U8 announced() const { return announced_.begin()->first; }
  bool isEmpty() const { return announced_.empty(); }

  void add(KeptRecord const& record);
  /// Takes a record back that was added.
  void remove(KeptRecord const& record);

 private:
  std::map<Lanet::IpGenAddr, Zet::U32> rps_;  ///< how many records name each
  std::map<Zet::U8, Zet::U32> announced_;     ///< how many records announce each RP Count
};

/// Finds the fragments of a group range in the last messages that the machines keep, one for each zone.
///
/// The records of a kept message are walked once as it is kept and once as it is replaced, however many
/// fragments follow under its tag and however often it repeats a range or an RP.
class KeptFragments {
 public:
  /// The root machine is read for as long as this object is used.
  explicit KeptFragments(Routing::Pim::Bsr::PimBsrSm const& root) : root_(root) {}

  /// Takes over which messages the machines keep now: a comparison for each zone, and O(log n) for each
  /// record and RP of the messages that changed.
  void update();
  /// What the messages of a tag name of a range, of all zones, as of the last update; null if nothing. Valid
  /// until the next update. O(log n) of the ranges.
  KeptRange const* find(Zet::U16 tag, Lanet::IpGenPrefix const& range) const;

 private:
  using Message = Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>;
  /// The message of one zone, and what was added of it.
  struct Kept {
    Message message;
    Zet::U16 tag = 0;
    std::vector<KeptRecord> records;
  };

  template <class MachineWalk>
  void updateFrom(MachineWalk machines);
  void replace(Kept& kept, Message const& message);
  void add(Kept& kept);
  void remove(Kept& kept);
  void removeGoneZones();

  Routing::Pim::Bsr::PimBsrSm const& root_;
  std::map<Lanet::IpGenPrefix, Kept> byZone_;                            ///< of which some may have gone
  std::map<std::pair<Zet::U16, Lanet::IpGenPrefix>, KeptRange> ranges_;  ///< by tag and range; none is empty
};

}  // namespace pimbsr::host
