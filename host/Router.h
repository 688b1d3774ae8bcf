#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "host/BsmPolicy.h"
#include "host/Candidacy.h"
#include "host/Corrections.h"
#include "host/Reception.h"
#include "host/RouterOptions.h"
#include "model/Pim.h"
#include "model/Status.h"
#include "pim/HelloOptions.h"
#include "pim/Port.h"
#include "runtime/Context.h"

namespace Routing::Pim::IO {
class MessageInfo;
}

namespace pimbsr::pim {
class HelloSm;
}

namespace pimbsr::host {

class LastMessages;
struct Arrival;
struct RouterParts;

/// One Bootstrap Router over a port: the status tree, the machines in the order in which they must be made,
/// and the path of a packet from its bytes to the gates.
///
/// The host sets the context's clock to the time of an event and then makes one call; each call enters the
/// context by itself. A watcher of the status tree hears of changes inside that call, and must not call
/// back in. Advertisements are taken from every sender as long as no sender has been permitted by name.
class PIMBSR_API Router final : private DropListener {
 public:
  /// The context and the port outlive the router.
  Router(Zet::Context& context, pim::Port& port, RouterOptions const& options = {});
  /// Takes the machines down; nothing is sent, as with a router that lost its power.
  ~Router();
  Router(Router const&) = delete;
  Router& operator=(Router const&) = delete;

  /// Adds an interface that takes PIM messages without a Hello of its own, or changes its MTU (bytes; 0
  /// counts as 1500).
  void interfaceIs(Lanet::IntfId const& intfId, U32 mtu);
  /// Adds an interface that speaks Hello too, or changes its MTU and options.
  void interfaceIs(Lanet::IntfId const& intfId, U32 mtu, pim::HelloOptions const& options);
  /// Takes an interface away with its neighbors; no Hello is sent. The port says
  /// which address it still has. An unknown one is left alone.
  void interfaceDel(Lanet::IntfId const& intfId);
  /// To be called when the port answers with another primary address of an interface. For an interface that
  /// speaks no PIM but lends its address to a candidate, such as a loopback, this is all that a host says.
  void handleAddressChange(Lanet::IntfId const& intfId);

  /// Adds or replaces a unicast route. An address of this router needs a route of type local, which is how an
  /// elected BSR finds that its own candidate RPs advertise to itself.
  void routeIs(Lanet::Prefix const& prefix, Slosh::Fib::Route const& route);
  /// Removes the unicast route to exactly this prefix, if there is one.
  void routeDel(Lanet::Prefix const& prefix);

  /// Makes this router a candidate BSR of a zone, or changes the candidacy.
  void candidateBsrIs(Lanet::IpGenPrefix const& zone, BsrCandidacy const& candidacy);
  /// Ends a candidacy; an elected BSR says so to its neighbors (RFC 5059 section 3.3).
  void candidateBsrDel(Lanet::IpGenPrefix const& zone);
  /// Makes this router a candidate RP for a group range, or changes the range's priority.
  void candidateRpIs(Lanet::IpGenPrefix const& range, RpCandidacy const& candidacy);
  /// Takes a group range from a candidate RP. The last one of a priority is withdrawn with an advertisement
  /// of holdtime 0; while others of its priority stay, it goes on being advertised until its zone changes.
  void candidateRpDel(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& address);
  /// Makes an interface a border of a scope zone, or makes it one no more (RFC 5059 section 3.1.3).
  void borderIs(Lanet::IpGenPrefix const& zone, Lanet::IntfId const& intfId, bool border);
  /// Permits advertisements of senders by their addresses. Once a prefix is given, those of all others are
  /// dropped; without any all are taken.
  void permitIs(Lanet::IpGenPrefix const& senders);
  /// Takes back what permitIs() permits by exactly this prefix.
  void permitDel(Lanet::IpGenPrefix const& senders);

  /// Checks packets by other settings from now on. Entries beyond a lowered bound stay until they end by
  /// themselves.
  void ingressSettingsIs(IngressSettings const& ingress);

  /// Uses these corrections from now on, and no others.
  void correctionsAre(CorrectionSettings const& settings);
  /// Which corrections are in use, and how often each has acted.
  CorrectionSwitches const& corrections() const;
  /// Replaces the interfaces whose borders close exactly their zones and none within; none at first.
  void exactBordersAre(std::set<Lanet::IntfId> const& interfaces);

  /// Replaces the RPs that are never displaced from a full group range; none at first.
  void preferredRpsIs(PreferredRps const& preferred);

  /// Admits other Bootstrap Messages from now on; all at first. A closed interface loses what was learned
  /// over it; the state of a BSR that is permitted no more stays until it expires.
  void bsmPolicyIs(BsmPolicy const& policy);
  /// Which Bootstrap Messages are admitted.
  BsmPolicy const& bsmPolicy() const;

  /// Forgets the BSR of a zone on an operator's command, as Clearing does. False, with nothing changed, where
  /// this router is the elected BSR of the zone.
  bool clearBsr(Lanet::IpGenPrefix const& zone);
  /// Forgets the RP set of a zone on an operator's command, as Clearing does.
  void clearRpSet(Lanet::IpGenPrefix const& zone);
  /// Forgets, after all zones were cleared, the RPs that zones forgotten before have left to PIM.
  void clearLeftoverRps();
  /// Forgets the neighbors of an interface, those without end too, as HelloSm::clearNeighbors() does; none
  /// where it speaks no Hello.
  void clearNeighbors(Lanet::IntfId const& intfId);
  /// How the last message of each zone's BSR reached this router.
  LastMessages const& lastMessages() const;

  /// Starts the engine's message counters from 0 again; not to be called while a message is handled.
  void clearCounters();

  /// Ends all candidacies with their last messages, and sends a goodbye Hello on every interface. To be
  /// called before an orderly end.
  void sendGoodbyes();

  /// Sends a Hello with holdtime 0 on an interface, after which its neighbors forget this router; nothing
  /// where it speaks no Hello. To be called before it is taken away in an orderly way.
  void sendGoodbye(Lanet::IntfId const& intfId);

  /// Takes one IPv4 packet, from its IP header on, that arrived on an interface. Its sender's budget is
  /// charged before more than the IP header is read. An advertisement for another router is reported and has
  /// no effect.
  Reception receive(Lanet::IntfId const& intfId, std::span<U8 const> packet);

  /// Up to `max` senders of accepted advertisements that keep within what each is granted, those that do so
  /// for longest first. A host receives their packets apart from those of others, so that a flood from others
  /// displaces none. None while IngressSettings::advertisementsPerSecond is 0.
  std::vector<Lanet::IpAddr> advertisers(std::size_t max) const;
  /// Whether they have changed since the last call. Costs O(1) while none has expired.
  bool takeAdvertisersChanged();

  /// When the next timer is due, on the context's clock; Kiv::never if none is.
  double nextExpiry() const;
  /// Runs the timers that are due at the context's time.
  void advance();

  /// The best unicast route to an address, and the neighbor from which messages of a BSR with this address
  /// must come (RFC 5059 section 3.1.3).
  struct RpfPath {
    Slosh::Fib::Route route;    ///< the best one; the default value if there is none
    Lanet::IpGenAddr neighbor;  ///< unset if there is none
  };
  /// The path to an address, as the machines see it now.
  RpfPath rpfPath(Lanet::IpGenAddr const& address) const;

  /// The context that the router was given.
  Zet::Context& context() const;
  /// Receives what the gates drop. A host that changes the configuration makes it the current listener of the
  /// thread, as it makes the context the current one; the calls above do both by themselves.
  DropListener& dropListener() { return *this; }
  /// What the router has learned: BSRs and RP sets of its zones; never null.
  Zet::Ptr<Routing::Pim::Bsr::Status> status() const;
  /// Interfaces, neighbors and paths that the machines read; never null.
  Zet::Ptr<Routing::Pim::Status> pimStatus() const;
  /// The RP set that PIM reads. An RP whose time is over is out of use, and is swept from it within a minute
  /// where no zone's set holds it any more.
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus() const;

  // Questions about the machines, which are no part of this face.

  /// The zone of all group ranges that no scope zone covers.
  Lanet::IpGenPrefix globalZone() const;
  /// The state of this router's candidacy in a zone (RFC 5059 section 3.1.1); unset if there is none.
  std::optional<Routing::Pim::Bsr::BsrCandidateState> candidateState(Lanet::IpGenPrefix const& zone) const;
  /// Calls `visit(zone, state)` for each zone in which this router is a candidate BSR.
  void eachCandidacy(std::function<void(Lanet::IpGenPrefix const&,
                                        Routing::Pim::Bsr::BsrCandidateState)> const& visit) const;
  /// Where a candidate RP advertises a group range.
  struct Advertising {
    Lanet::IpGenPrefix zone;     ///< whose BSR gets the advertisements
    std::optional<double> next;  ///< when the next is due, on the context's clock; unset while none is
  };
  /// Where a candidate RP of this router advertises a range; unset if no zone with a BSR covers the range.
  std::optional<Advertising> advertising(Routing::Pim::Bsr::CrpOptions const& candidate,
                                         Lanet::IpGenPrefix const& range) const;
  /// The zone whose former BSR's RPs of a group range PIM goes on using; unset if none are kept.
  std::optional<Lanet::IpGenPrefix> keptZone(Lanet::IpGenPrefix const& range) const;
  /// How many timers are armed.
  std::size_t armedTimers() const;
  /// The Hellos that this router sends on an interface (RFC 7761 section 4.3.1).
  struct HelloState {
    U32 generationId;           ///< another one after each start (RFC 7761 section 4.3.1)
    double next;                ///< when the next is due, on the context's clock
    pim::HelloOptions options;  ///< timers and DR priority in use
  };
  /// Unset for an interface that speaks no Hello.
  std::optional<HelloState> helloState(Lanet::IntfId const& intfId) const;

 private:
  friend RouterParts& partsOf(Router& router);
  friend RouterParts const& partsOf(Router const& router);

  /// Makes the router's context, and the router as the listener of its gates, the current ones of the thread.
  struct Call {
    explicit Call(Router& router);
    Zet::Context::Scope context;
    DropListener::Scope drops;
  };

  void onDrop(DropReason reason) override;
  template <class Message>
  DropReason admit(Message& message);
  DropReason throughGate(Routing::Pim::IO::MessageInfo& info, Lanet::IntfId const& intfId,
                         Zet::Ptr<Routing::Pim::Packet::Message> const& message);
  void configure(RouterOptions const& options);
  void writeSourceAddress(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address);
  void read(Lanet::IntfId const& intfId, wire::Ipv4Packet const& packet, Arrival const& arrival,
            Reception& reception);
  void handle(Lanet::IntfId const& intfId, wire::Outcome<wire::DecodedMessage> const& decoded,
              Reception& reception);
  pim::HelloSm* hello(Lanet::IntfId const& intfId);
  void hello(Lanet::IntfId const& intfId, wire::HelloMessage const& message, Reception& reception);
  static void malformed(DropReason reason, Reception& reception);
  void bootstrap(Lanet::IntfId const& intfId, Routing::Pim::Packet::BootstrapMessage& message,
                 Reception& reception);
  void crpAdv(Lanet::IntfId const& intfId, Routing::Pim::Packet::CrpAdvMessage& message,
              Reception& reception);

  std::unique_ptr<RouterParts> parts_;
};

}  // namespace pimbsr::host
