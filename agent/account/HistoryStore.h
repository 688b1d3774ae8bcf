#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/account/HistoryEntry.h"

namespace pimbsr::agent {

/// What an entry of a history is about. Each has a bound of its own, so that many changes of one displace
/// none of another.
enum class HistoryClass : U8 {
  elections,  ///< BSRs, and the states of this router's candidacies
  rps,
  zones,
  runs  ///< starts and ends of the agent
};
inline constexpr std::size_t historyClasses = 4;

HistoryClass classOf(HistoryKind kind);

/// The entries of a history, bounded and folded.
///
/// A change that repeats one of the last `foldSpan` seconds adds to the count of its entry, which then is
/// the newest. In that time a zone has `foldBurst` entries of a class; further changes add to the last entry
/// of their kind, whatever they say. Of a class that is full, the zone with the most entries loses its
/// oldest: a zone that a stranger makes up, or lets flap, displaces no entry of the others. Each change costs
/// O(log n).
class HistoryStore {
 public:
  static constexpr double foldSpan = 300;
  static constexpr std::size_t foldBurst = 16;

  /// Keeps so many entries of each class.
  explicit HistoryStore(std::size_t maxEntries) : maxEntries_(maxEntries) {}
  HistoryStore(HistoryStore const&) = delete;
  HistoryStore& operator=(HistoryStore const&) = delete;

  /// Adds a change.
  void add(HistoryEntry const& change);
  /// Adds an entry of a former run, which keeps its id unless that is 0 or taken, and is folded with none.
  void restore(HistoryEntry entry);
  void clear();

  /// In the order of their last changes.
  std::list<HistoryEntry> const& entries() const { return entries_; }
  std::size_t maxEntries() const { return maxEntries_; }

  /// The entries to be saved at once: those that are new, and repeated elections; nothing the second time.
  std::vector<HistoryEntry> takeUnsaved() { return taken(unsaved_); }
  /// The other entries that were repeated since the last call; they may be saved later.
  std::vector<HistoryEntry> takeRepeated() { return taken(repeated_); }
  bool hasRepeated() const { return !repeated_.empty(); }

 private:
  using At = std::list<HistoryEntry>::iterator;
  /// A class in a zone.
  using Subject = std::pair<HistoryClass, Lanet::IpGenPrefix>;
  /// An entry by the number of its last change.
  struct Numbered {
    U64 change = 0;
    At entry;
  };
  using Entries = std::deque<Numbered>;  ///< the oldest first
  /// How many entries a zone has and, for the order among equals, how old the oldest of them is.
  using Size = std::tuple<std::size_t, U64, Lanet::IpGenPrefix>;

  Entries::iterator repeatedBy(HistoryEntry const& change, Entries& entries) const;
  void append(HistoryEntry const& entry);
  void repeat(Entries& entries, Entries::iterator former, HistoryEntry const& change);
  void bound(HistoryClass ofClass);
  void save(HistoryEntry const& entry);
  static Size sizeOf(Lanet::IpGenPrefix const& zone, Entries const& entries);
  /// Changes the entries of a subject, and keeps their size up to date.
  template <class Act>
  void update(Subject const& subject, Act const& act);
  std::vector<HistoryEntry> taken(std::set<U64>& ids);

  std::size_t maxEntries_;
  std::list<HistoryEntry> entries_;
  std::map<U64, At> byId_;
  std::map<Subject, Entries> bySubject_;
  std::array<std::set<Size>, historyClasses> sizes_;
  std::array<std::size_t, historyClasses> counts_{};
  U64 lastId_ = 0;
  U64 changes_ = 0;
  std::set<U64> unsaved_;
  std::set<U64> repeated_;
};

}  // namespace pimbsr::agent
