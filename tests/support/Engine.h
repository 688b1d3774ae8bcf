#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/IO.h"
#include "model/Interface.h"
#include "model/MsgStatus.h"
#include "model/Pim.h"
#include "model/Rpf.h"
#include "model/Status.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/TimerWheel.h"
#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {

namespace Bsr = Routing::Pim::Bsr;

/// RPF neighbors from a table.
class RpfTable : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(Lanet::IpGenAddr const& address, Lanet::IpGenAddr const&) override;
  std::map<Lanet::IpGenAddr, Lanet::IpGenAddr> neighbors;
  int lookups = 0;
};

/// A message that left, as it was at that moment.
struct Sent {
  std::string intf;
  Zet::Ptr<Routing::Pim::Packet::Message> message;
  Lanet::IpGenAddr source;
  std::string text;  ///< show() of a Bootstrap Message; empty for another kind
};

/// Takes what the machines send, and counts it as sent unless it is set to fail.
class Outbox : public Routing::Pim::IO::MessageInfo::Notifiee {
 public:
  explicit Outbox(Zet::Ptr<Routing::Pim::IO::PamCounter> counter) : counter_(std::move(counter)) {}
  void onCount() override;

  std::vector<Sent> sent;
  bool fails = false;

 private:
  Zet::Ptr<Routing::Pim::IO::PamCounter> counter_;
};

/// One router's engine in the hand of a test: the entities that a host makes, the gate of Bootstrap Messages
/// and the root machine, with the clock, the network and the neighbors driven by hand. It must live inside a
/// context.
class Engine {
 public:
  enum class Family { ipv4, unset };

  /// Makes the entities; the machines too unless start() is left to the test.
  explicit Engine(Family family = Family::ipv4, bool started = true);
  ~Engine();

  /// Makes the gate, then the root machine.
  void start();
  /// Releases the machines, as a host does before it makes them anew over the same Status.
  void stop();

  /// An interface that speaks PIM, with so many neighbors.
  Zet::Ptr<Routing::Pim::Intf> addIntf(std::string const& name, int neighbors = 1, Zet::U32 mtu = 1500);
  void addBorder(std::string const& zone, std::string const& intfName, bool value = true);

  /// Hands a message to the gate as the I/O manager does. The RPF neighbor towards its BSR becomes its
  /// source unless the table knows one.
  Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> receive(Bsm const& given,
                                                           std::string const& intfName = "eth0");
  void receive(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message,
               std::string const& intfName = "eth0");

  /// Moves the clock on to `seconds` after the engine was made, from expiry to expiry.
  void runTo(double seconds);
  /// The clock in seconds after the engine was made.
  double elapsed() const { return Zet::now() - startTime_; }
  /// A time of the engine's clock as seconds after it was made.
  double since(double time) const { return time - startTime_; }

  /// The RPs that a zone's tree holds: "prefix: address/holdtime/priority ..." sorted, joined by "; ".
  std::string rpSet(std::string const& zone) const;
  /// The same of what PIM reads.
  std::string mirror() const;
  Zet::Ptr<Routing::Pim::RpCandidate> rp(std::string const& zone, std::string const& range,
                                         std::string const& address) const;
  Zet::Ptr<Bsr::ElectedBsrStatus> elected(std::string const& zone) const;
  Zet::Ptr<Bsr::BsrNonCandidateSm> follower(std::string const& zone) const;
  /// Makes a zone's machine as its first message does, but hands it none.
  Zet::Ptr<Bsr::BsrNonCandidateSm> makeFollower(std::string const& zone);
  Bsr::PimBsrErrorCounters errors() const { return status->counters()->errCounters(); }

  Zet::Ptr<Bsr::Status> status;
  Zet::Ptr<Routing::Pim::Status> pimStatus;
  Zet::Ptr<Bsr::PimBsmStatus> bsmStatus;
  Zet::Ptr<Bsr::PimCrpMsgStatus> crpMsgStatus;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus;
  Zet::Ptr<Kiv::TimerWheel> wheel;
  Zet::Ptr<Interface::AllIntfStatusDir> interfaces;
  Zet::Ptr<Routing::Pim::IO::PamManager> manager;
  Zet::Ptr<Routing::Pim::IO::MessageInfo> bsmInfo;
  Zet::Ptr<RpfTable> rpf;
  Zet::Ptr<Outbox> outbox;
  Zet::Ptr<Bsr::BootstrapMessageSm> gate;
  Zet::Ptr<Bsr::PimBsrSm> root;

 private:
  double startTime_;
};

/// Base of tests on a whole engine, made and running with IPv4.
class EngineTest : public ModelTest {
 protected:
  Engine engine;
};

}  // namespace test
