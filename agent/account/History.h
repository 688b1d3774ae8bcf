#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/account/HistoryEntry.h"
#include "agent/account/HistoryStore.h"
#include "host/Router.h"

namespace pimbsr::agent {

/// Counts of events in one zone since the start.
struct ZoneTotals {
  U64 elections = 0;   ///< the zone had no BSR and got one, or this router became its BSR
  U64 bsrChanges = 0;  ///< another BSR, or other terms of the same
  U64 bsrLosses = 0;
  RpCounts rps;
};

/// Keeps the last changes of a router's learned state, with their causes.
///
/// Changes are gathered during an event. At its end takeNew() returns each of them, while the history keeps
/// one entry for all RPs of a zone that changed. A BSR that is lost and one that is elected in the same event
/// are a change of the BSR.
class History final : public host::ChangeSink {
 public:
  /// Keeps so many entries of each class (HistoryStore).
  explicit History(std::size_t maxEntries = 256) : store_(maxEntries) {}

  /// Begins an event with its cause, at a time on the agent's clock.
  void causeIs(Cause const& cause, double now);
  /// Sets the message of an event of kind CauseKind::message.
  void senderIs(host::Reception const& reception);
  void onChange(host::Change const& change) override { gathered_.push_back(change); }
  /// Ends the event: to be called after the observer's flush(). Also notes the new states of this router's
  /// candidacies.
  void noteStates(host::Router const& router);

  /// The changes of the last event, one entry for each; empty when called again.
  std::vector<HistoryEntry> takeNew() { return std::exchange(fresh_, {}); }

  /// The start and the end of the agent are entries of their own, which takeNew() doesn't have.
  void noteStart(double now);
  void noteStop(double now);

  /// In the order of their last changes.
  std::list<HistoryEntry> const& entries() const { return store_.entries(); }
  std::size_t maxEntries() const { return store_.maxEntries(); }
  /// The entries, and what of them is to be saved.
  HistoryStore& store() { return store_; }
  /// Removes all entries; totals and the present BSRs stay.
  void clear();
  /// Whether an operator has cleared the entries since the start.
  bool wasCleared() const { return wasCleared_; }

  /// When the zone's present BSR, by address, was learned, on the agent's clock; for this router itself, when
  /// it was elected. Nothing without a BSR, and in zones beyond the first `maxZones`.
  std::optional<double> bsrSince(Lanet::IpGenPrefix const& zone) const;

  /// Totals by zone. Peers choose the zones: a zone that is forgotten, and those beyond `maxZones`, are
  /// counted under the unset prefix.
  std::map<Lanet::IpGenPrefix, ZoneTotals> const& totals() const { return totals_; }
  static constexpr std::size_t maxZones = 256;

 private:
  HistoryEntry blank(HistoryKind kind, Lanet::IpGenPrefix const& zone) const;
  HistoryEntry entryOf(host::Router const& router, host::Change const& change) const;
  void followStates(host::Router const& router);
  void noteState(Lanet::IpGenPrefix const& zone, std::string_view former, std::string_view state);
  bool wasOwn(Lanet::IpGenPrefix const& zone) const;
  std::vector<HistoryEntry> entriesOf(host::Router const& router);
  void follow(HistoryEntry const& entry);
  void takeUp(Lanet::IpGenPrefix const& zone);
  void count(HistoryEntry const& entry);
  ZoneTotals& totalsOf(Lanet::IpGenPrefix const& zone);

  HistoryStore store_;
  bool wasCleared_ = false;
  std::map<Lanet::IpGenPrefix, ZoneTotals> totals_;
  std::map<Lanet::IpGenPrefix, double> bsrSince_;  ///< the zones that have a BSR
  // Of the event in hand.
  double now_ = 0;
  Cause cause_;
  std::vector<host::Change> gathered_;
  std::vector<HistoryEntry> fresh_;
  std::map<Lanet::IpGenPrefix, std::string_view> states_;  ///< of this router's candidacies
};

}  // namespace pimbsr::agent
