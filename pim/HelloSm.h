#pragma once

#include <map>
#include <memory>
#include <vector>

#include "model/CorrectionSwitch.h"
#include "model/Pim.h"
#include "pim/HelloOptions.h"
#include "pim/NeighborTable.h"
#include "pim/Port.h"
#include "pim/Timer.h"
#include "wire/Wire.h"

namespace pimbsr::pim {

/// PIM Hello on one interface (RFC 7761 sections 4.3.1 and 4.3.2), as far as a Bootstrap Router needs it.
///
/// It keeps the neighbors of an Intf, each until its holdtime expires, and its flags of the Designated
/// Router. Its Hello timer is drawn from the triggered delay at the start and is `period` from then on. A new
/// neighbor, or one with a new Generation ID, which has restarted, triggers a Hello; once that is sent,
/// triggeredHelloCount rises, which sends the RP set to the neighbor.
class PIMBSR_INTERNAL HelloSm {
 public:
  /// Speaks on the interface of `neighbors`. The port outlives this object. The first Hello leaves within the
  /// triggered delay.
  HelloSm(Zet::Ptr<LinkNeighbors> const& neighbors, Zet::Ptr<Kiv::TimerWheel> const& wheel, Port& port,
          HelloOptions const& options);
  ~HelloSm();
  HelloSm(HelloSm const&) = delete;
  HelloSm& operator=(HelloSm const&) = delete;

  /// Takes a Hello received on this interface; one of this router's own is ignored. Where the bound of
  /// `neighbors` has no room for its addresses, the neighbors that are silent for longest are removed for it
  /// (LinkNeighbors::displacedBy). It costs O(log n) of the addresses kept for each address that it lists or
  /// that its sender listed before.
  void receive(wire::HelloMessage const& hello);
  /// Forgets all neighbors, those of which no Hello was received too. A triggered Hello with a new Generation
  /// ID follows, so that the neighbors answer within their triggered delays (RFC 7761 section 4.3.1).
  void clearNeighbors();
  /// Sends the goodbye Hello, with holdtime 0. No Hello follows it.
  void sendGoodbye();
  /// Handles a change of the interface's address: a goodbye Hello leaves from the old one, Hellos from the
  /// new one begin as at a start, and the DR is elected.
  void handleAddressChange();
  /// Changes timers and DR priority; if they differ, a Hello follows within the triggered delay and the DR is
  /// elected.
  void optionsIs(HelloOptions const& options);

  /// Whether a neighbor with a new Generation ID counts as one that has left and come back, which may take
  /// the role of the DR from it for a moment. A new neighbor is answered at once then by the router that was
  /// the DR without it; no two triggered Hellos are nearer than the triggered delay, so that restarts of
  /// neighbors cost one RP set in that time. Null, as at first, for no; the switch outlives this object.
  void relearnIs(CorrectionSwitch* relearn) { relearn_ = relearn; }
  U32 generationId() const { return generationId_; }
  HelloOptions const& options() const { return options_; }
  Zet::Ptr<Routing::Pim::Intf> const& intf() const { return intf_; }
  /// When the next Hello is due.
  double nextHello() const { return helloTimer_->timeMin(); }

 private:
  void handleHelloTimer();
  void handleNeighborExpiry(Lanet::IpGenAddr const& address);
  void makeRoom(wire::HelloMessage const& hello);
  void update(Routing::Pim::Neighbor& neighbor, wire::HelloMessage const& hello);
  void takeSecondary(Routing::Pim::Neighbor& neighbor, Lanet::IpGenAddr const& address);
  void keepFor(Routing::Pim::Neighbor& neighbor, U16 holdtime);
  void drop(Lanet::IpGenAddr const& address);
  bool relearns() const { return relearn_ != nullptr && relearn_->isOn(); }
  void forget(Lanet::IpGenAddr const& restarted);
  void showRole();
  void triggerHello();
  void hastenHello();
  void answerAtOnce();
  void electDr();
  bool send(Lanet::IpGenAddr const& source, U16 holdtime);

  Zet::Ptr<LinkNeighbors> neighbors_;
  Zet::Ptr<Routing::Pim::Intf> intf_;
  Zet::Ptr<Kiv::TimerWheel> wheel_;
  Port& port_;
  HelloOptions options_;
  U32 generationId_;
  bool triggered_ = false;
  CorrectionSwitch* relearn_ = nullptr;
  bool wasDrMeanwhile_ = false;         ///< this router was DR while a neighbor counted as gone
  double lastTriggered_ = -Kiv::never;  ///< when the last triggered Hello was sent
  Lanet::IpGenAddr announced_;  ///< source of the last Hello; unset before the first and after a goodbye
  Zet::Ptr<Timer> helloTimer_;
  std::map<Lanet::IpGenAddr, Zet::Ptr<Timer>> expiryTimers_;
  std::vector<Lanet::IpGenAddr> listed_;  ///< addresses of the Hello at hand; a member to keep its capacity
  std::vector<U8> payload_;
  std::vector<U8> packet_;
};

}  // namespace pimbsr::pim
