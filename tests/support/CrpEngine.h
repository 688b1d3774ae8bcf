#pragma once

#include <string>
#include <vector>

#include "crp/CrpMessageSm.h"
#include "crp/RpCandidateSm.h"
#include "tests/support/Engine.h"

namespace test {

/// One group range of an advertisement as a test writes it down.
struct Range {
  std::string prefix;
  Zet::U8 flags = 0;
};

/// A Candidate-RP-Advertisement as a test writes it down.
struct Adv {
  std::vector<Range> groups = {{"224.0.0.0/4"}};
  std::string rp = "203.0.113.1";
  Zet::U16 holdtime = 150;
  Zet::U8 priority = 0;
  std::string bsr = "10.0.0.1";
  std::string source = "203.0.113.1";
};

Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage> make(Adv const& given);

/// One line that shows an advertisement whole, its ranges sorted; "+1" after a range is its flags.
std::string show(Routing::Pim::Packet::CrpAdvMessage const& message);

/// An engine with the gate of advertisements, which openGate() makes; start() is left to the test too.
class CrpEngine : public Engine {
 public:
  explicit CrpEngine(Family family = Family::ipv4) : Engine(family, false) {}

  void openGate();
  void permit(std::string const& range, bool value = true) { status->crpPermitIs(prefix(range), value); }
  void addRoute(std::string const& range, Slosh::Fib::RouteType type);
  /// Hands an advertisement to the gate as the I/O manager does.
  void receive(Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage> const& message);
  Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage> receive(Adv const& given);

  /// Makes this router the elected BSR of a zone at once; its next message is due after `period`.
  Zet::Ptr<Bsr::BsrCandidateSm> electUs(std::string const& zone, std::string const& address = "10.0.0.1",
                                        Zet::U32 period = 60);
  /// Makes another router the elected BSR of a zone, or changes it, without a message.
  void electOther(std::string const& zone, std::string const& address);

  /// Makes this router a candidate RP with an address, or changes its interval.
  Zet::Ptr<Bsr::RpCandidate> addCrp(std::string const& address, Zet::U32 interval = 60);
  /// Adds a group range to a candidate RP, or changes its priority.
  void addRange(std::string const& address, std::string const& range, Zet::U32 priority = 10);
  void delRange(std::string const& address, std::string const& range);
  Zet::Ptr<Bsr::RpCandidateSm> advertiser(std::string const& address, Zet::U32 priority = 10) const;
  /// What the machine advertises: "zone: range range ..." sorted, joined by "; ".
  std::string advSets(std::string const& address, Zet::U32 priority = 10) const;
  /// The advertisements that left since the last call, sorted.
  std::vector<std::string> takeAdvs();
  /// The times at which an advertisement left up to `seconds`, the clock moved there. Nothing else may leave
  /// meanwhile, and only at whole seconds.
  std::vector<int> advTimes(int seconds);

  Zet::Ptr<Routing::Pim::IO::MessageInfo> crpMsgInfo = Routing::Pim::IO::messageInfoFactory();
  Zet::Ptr<Routing::Pim::PimUcastRouteStatus> routes = Zet::make<Routing::Pim::PimUcastRouteStatus>();
  Zet::Ptr<Bsr::CrpMessageSm> crpGate;
};

/// Base of tests on advertisements: gate and machines run, every sender is permitted, and what leaves over
/// eth0 can be seen.
class CrpTest : public ModelTest {
 protected:
  CrpTest();

  CrpEngine engine;
};

}  // namespace test
