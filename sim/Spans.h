#pragma once

#include <map>
#include <vector>

#include "sim/Network.h"

namespace pimbsr::sim {

/// A time for which something had one value; seconds since the start of the run.
template <class Value>
struct Span {
  double start = 0;
  double end = 0;
  Value value{};
};

/// The values that one thing had in the course of time. No span is empty, none overlap, and of two that touch
/// the values differ.
template <class Value>
class Track {
 public:
  /// The value from now on. Times never decrease from call to call.
  void valueIs(double now, Value const& value) {
    if (isOpen_ && spans_.back().value == value) return;
    valueDel(now);
    bool goesOn = !spans_.empty() && spans_.back().end == now && spans_.back().value == value;
    if (!goesOn) spans_.push_back({now, now, value});
    isOpen_ = true;
  }
  /// No value from now on; nothing if it has none.
  void valueDel(double now) {
    if (!isOpen_) return;
    isOpen_ = false;
    spans_.back().end = now;
    if (spans_.back().start == now) spans_.pop_back();
  }
  /// The spans that have ended, in order of time.
  std::vector<Span<Value>> const& spans() const { return spans_; }

 private:
  std::vector<Span<Value>> spans_;
  bool isOpen_ = false;  ///< the last span has not ended
};

/// The BSR that a router follows in a zone.
struct FollowedBsr {
  Lanet::IpGenAddr address;
  bool own = false;  ///< it is that router

  bool operator==(FollowedBsr const&) const = default;
};

/// What a router was in one zone.
struct ZoneTracks {
  Track<FollowedBsr> bsr;
  Track<Routing::Pim::Bsr::BsrCandidateState> state;  ///< of its candidacy as BSR
};

struct NodeTracks {
  Track<bool> running;
  std::map<Lanet::IpGenPrefix, ZoneTracks> zones;
};

/// Records when routers and links were up, which BSR each router followed and in which state its candidacies
/// were. To be registered before the first statement, for `kinds`.
class SpanRecorder final : public Listener {
 public:
  static constexpr Kinds kinds = elections | states | availability;

  void onRunning(Node const& node, bool running) override;
  void onLink(Network const& network, U32 link, bool up) override;
  void onState(Node const& node, Lanet::IpGenPrefix const& zone,
               Routing::Pim::Bsr::BsrCandidateState state) override;
  void onStateEnd(Node const& node, Lanet::IpGenPrefix const& zone) override;
  void onChanges(Node const& node, std::span<host::Change const> changes) override;

  /// Ends all spans at the end of a run, to be called once before they are read.
  void end(double now);
  /// By number of the router.
  std::vector<NodeTracks> const& nodes() const { return nodes_; }
  /// By number of the link.
  std::vector<Track<bool>> const& links() const { return links_; }

 private:
  NodeTracks& tracksOf(Node const& node);
  ZoneTracks& tracksOf(Node const& node, Lanet::IpGenPrefix const& zone);

  std::vector<NodeTracks> nodes_;
  std::vector<Track<bool>> links_;
};

}  // namespace pimbsr::sim
