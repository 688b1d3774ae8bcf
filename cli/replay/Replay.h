#pragma once

#include <iosfwd>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/capture/Capture.h"
#include "cli/replay/Reassembly.h"
#include "cli/replay/ReplayOptions.h"
#include "host/Observer.h"
#include "host/Reception.h"
#include "host/Views.h"

namespace pimbsr::cli {

/// The PIM messages of a capture: `pim` is the sum of the others. A malformed message counts as that alone,
/// and a packet that came in fragments as one.
struct MessageCounts {
  U64 pim = 0;
  U64 bsm = 0;
  U64 crpAdv = 0;
  U64 hello = 0;
  U64 other = 0;  ///< of other types, and all over IPv6
  U64 malformed = 0;
  std::map<std::string_view, host::DropCount> dropped;  ///< by the reason's name
};

/// A PIM message over IPv4 as it was played. Times are seconds after the first packet.
struct PlayedMessage {
  double time = 0;
  std::span<Zet::U8 const> packet;  ///< its IPv4 packet; valid during the call that reports it
  host::Reception reception;
  Lanet::IpGenAddr rpfNeighbor;  ///< towards the BSR of a BSM, as far as known
  /// The BSR that remains elected, where an accepted BSM is from a weaker one.
  std::optional<host::BsrView> betterBsr;
  Lanet::IpGenPrefix zone;  ///< of a BSM
};

/// The learned state at the end of a replay, and counts.
struct ReplayResult {
  bool complete = true;  ///< the capture was read to its end
  U64 frames = 0;
  double lastPacket = 0;  ///< seconds after the first packet
  double end = 0;         ///< seconds after the first packet
  double now = 0;         ///< the end on the router's clock, for which expiry times are
  U64 exceptions = 0;     ///< caught inside the engine; 0 unless it has a defect
  MessageCounts messages;
  std::vector<host::ZoneView> zones;
  std::vector<host::CounterView> counters;
};

/// Receives the events of a replay.
class ReplayReport {
 public:
  virtual ~ReplayReport() = default;
  /// The first packet, before it is played; not called for a capture without one.
  virtual void onStart(CaptureTime const&) {}
  /// A message, and the changes that it caused.
  virtual void onMessage(PlayedMessage const&, std::span<host::Change const>) {}
  /// The changes that timers caused at one time.
  virtual void onTimers(double, std::span<host::Change const>) {}
  virtual void onEnd(ReplayResult const& result) = 0;
};

class ReplayWorld;

/// Plays a capture through a router that is no candidate anywhere, in virtual time.
///
/// The clock follows the packets' stamps: it starts at the first packet's time if that is a real date, else
/// at a time of its own, and never runs back. Before each packet the timers run from expiry to expiry.
/// Nothing is ever sent. A fragmented IPv4 packet is played when the last of its fragments arrives; one that
/// doesn't become complete is dropped as ip-fragment when its time is over or the capture ends (see
/// Reassembly). The RPF neighbor towards a BSR is the one that the options name, else the source of the first
/// message from that BSR with the No-Forward bit clear that reaches the gate.
class Replay {
 public:
  /// All outlive the replay. Lines of trace go to `traceOut`.
  Replay(ReplayOptions const& options, ReplayReport& report, std::ostream& traceOut);
  ~Replay();
  Replay(Replay const&) = delete;
  Replay& operator=(Replay const&) = delete;

  /// Plays the whole capture; to be called once. Where the capture can't be read to its end, the state
  /// at that time is reported as not complete, and CaptureError is thrown.
  void play(Capture& capture);

 private:
  class Recorder;

  void start(Frame const* first);
  void playFrame(Frame const& frame);
  void playIpv4(wire::Bytes packet);
  void receive(wire::Bytes packet);
  void dropIncomplete(double time);
  void count(host::Reception const& reception);
  PlayedMessage describe(host::Reception const& reception) const;
  void runTo(double time);
  void end(bool complete, U64 frames, double runOn);
  double elapsed() const;

  ReplayOptions const& options_;
  ReplayReport& report_;
  std::unique_ptr<ReplayWorld> world_;
  std::unique_ptr<Recorder> recorder_;
  std::unique_ptr<host::Router> router_;
  std::unique_ptr<host::Observer> observer_;
  CaptureTime first_;
  double startTime_ = 0;
  MessageCounts messages_;
  Reassembly reassembly_;
};

}  // namespace pimbsr::cli
