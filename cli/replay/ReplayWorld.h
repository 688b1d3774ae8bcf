#pragma once

#include <iosfwd>
#include <map>

#include "cli/replay/ReplayOptions.h"
#include "model/Rpf.h"
#include "pim/Port.h"
#include "runtime/Context.h"

namespace pimbsr::cli {

/// The RPF neighbors of a replay: those given, and for other BSRs the first that sends a message of it.
class HeardRpfTable final : public Routing::Pim::PimRpfTable {
 public:
  explicit HeardRpfTable(std::map<Lanet::IpGenAddr, Lanet::IpGenAddr> const& given) : neighbors_(given) {}

  /// Notes that a message of a BSR came from a neighbor, unless a neighbor towards it is known.
  void heard(Lanet::IpGenAddr const& bsr, Lanet::IpGenAddr const& neighbor);
  /// The source of the packet that is played next.
  void sourceIs(Lanet::IpGenAddr const& source) { source_ = source; }
  /// The neighbor towards a BSR; unset if none is known.
  Lanet::IpGenAddr neighbor(Lanet::IpGenAddr const& bsr) const;

  /// Asked by the gate about the packet being played.
  Routing::Pim::RpfLookupResult doLookup(Lanet::IpGenAddr const& address,
                                         Lanet::IpGenAddr const& second) override;

 private:
  std::map<Lanet::IpGenAddr, Lanet::IpGenAddr> neighbors_;
  Lanet::IpGenAddr source_;
};

/// A port without a network: it has no address, and what the router sends is lost.
class SilentPort final : public pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<Zet::U8 const>) override { return false; }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return {}; }
  bool isOwnAddress(Lanet::IpGenAddr const&) const override { return false; }
};

/// The context of a replay: trace and log go to a stream, with the time after the first packet.
class ReplayContext final : public Zet::Context {
 public:
  explicit ReplayContext(std::ostream& out) : out_(out) {}
  void startTimeIs(double time);

  void trace(Zet::TraceLine const& line) override;
  void log(Zet::LogHandle const& handle, std::string const& text) override;

 private:
  std::ostream& out_;
  double startTime_ = firstTime;
};

/// What surrounds the router of a replay.
class ReplayWorld {
 public:
  ReplayWorld(ReplayOptions const& options, std::ostream& traceOut)
      : context(traceOut), rpf(Zet::make<HeardRpfTable>(options.rpf)), intfId("capture") {}

  ReplayContext context;
  SilentPort port;
  Zet::Ptr<HeardRpfTable> rpf;
  Lanet::IntfId intfId;  ///< the one interface, at which all packets arrive
};

}  // namespace pimbsr::cli
