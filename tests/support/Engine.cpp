#include "tests/support/Engine.h"

#include <algorithm>
#include <sstream>

namespace test {

using Routing::Pim::RpCandidateStatus;
using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;

Routing::Pim::RpfLookupResult RpfTable::doLookup(Lanet::IpGenAddr const& address, Lanet::IpGenAddr const&) {
  ++lookups;
  auto at = neighbors.find(address);
  return {at == neighbors.end() ? Lanet::IpGenAddr() : at->second};
}

void Outbox::onCount() {
  auto info = notifier();
  Sent one{std::string(info->intfId().stringValue().view()), info->message(), {}, {}};
  if (one.message) one.source = one.message->srcAddr();
  if (auto bsm = info->bootstrapMessage()) one.text = show(*bsm);
  sent.push_back(one);
  if (!fails) counter_->txCountInc(1);
}

Engine::Engine(Family family, bool started)
    : status(Bsr::statusFactory("bsr")),
      pimStatus(Routing::Pim::statusFactory("pim")),
      bsmStatus(Bsr::pimBsmStatusFactory()),
      crpMsgStatus(Bsr::pimCrpMsgStatusFactory()),
      rpCandidateStatus(Routing::Pim::rpCandidateStatusFactory("agent")),
      wheel(Zet::make<Kiv::TimerWheel>()),
      interfaces(Interface::allIntfStatusDirFactory("interfaces")),
      manager(Routing::Pim::IO::pamManagerFactory()),
      bsmInfo(Routing::Pim::IO::messageInfoFactory()),
      rpf(Zet::make<RpfTable>()),
      startTime_(Zet::now()) {
  manager->txMessageInfoIs(Routing::Pim::IO::messageInfoFactory());
  manager->txPamCounterIs(Routing::Pim::IO::pamCounterFactory());
  outbox = Zet::make<Outbox>(manager->txPamCounter());
  outbox->notifierIs(manager->txMessageInfo());
  if (family == Family::ipv4) status->afIs(Lanet::AddressFamily::ipv4);
  status->countersIs("bsr");
  status->bsTimeoutIs(130);
  status->szTimeoutIs(1300);
  if (started) start();
}

Engine::~Engine() { stop(); }

void Engine::start() {
  gate = Bsr::bootstrapMessageSmFactory(manager, status, bsmStatus, bsmInfo, rpf);
  root =
      Bsr::pimBsrSmFactory(status, pimStatus, bsmStatus, crpMsgStatus, rpCandidateStatus, wheel, interfaces);
}

void Engine::stop() {
  root = nullptr;
  gate = nullptr;
}

Ptr<Routing::Pim::Intf> Engine::addIntf(std::string const& name, int neighbors, Zet::U32 mtu) {
  interfaces->intfStatusIs(intf(name))->mtuIs(mtu);
  auto made = pimStatus->pimIntfIs(intf(name));
  for (int i = 1; i <= neighbors; ++i) made->neighborIs(addr("192.0.2." + std::to_string(i)));
  return made;
}

void Engine::addBorder(std::string const& zone, std::string const& intfName, bool value) {
  status->bsBorderIs(prefix(zone))->intfIdIs(intf(intfName), value);
}

Ptr<BootstrapMessage> Engine::receive(Bsm const& given, std::string const& intfName) {
  rpf->neighbors.try_emplace(addr(given.bsr), addr(given.source));
  Ptr<BootstrapMessage> message = make(given);
  receive(message, intfName);
  return message;
}

void Engine::receive(Ptr<BootstrapMessage> const& message, std::string const& intfName) {
  bsmInfo->intfIdIs(intf(intfName));
  bsmInfo->messageIs(message);
  bsmInfo->countInc(1);
}

void Engine::runTo(double seconds) {
  double end = startTime_ + seconds;
  for (double next = wheel->nextExpiry(); next <= end; next = wheel->nextExpiry()) {
    Zet::Context::current().nowIs(next);
    wheel->advance(Zet::now());
  }
  Zet::Context::current().nowIs(end);
}

static std::string show(RpCandidateStatus const& rpSet) {
  std::vector<std::string> sets;
  for (auto set = rpSet.crpSetIterator(); set; ++set) {
    std::vector<std::string> rps;
    for (auto rp = set->rpIterator(); rp; ++rp) {
      std::ostringstream out;
      out << rp->address() << '/' << rp->holdTime() << '/' << rp->priority();
      rps.push_back(out.str());
    }
    std::sort(rps.begin(), rps.end());
    std::ostringstream out;
    out << set->prefix() << ':';
    for (std::string const& rp : rps) out << ' ' << rp;
    sets.push_back(out.str());
  }
  std::sort(sets.begin(), sets.end());
  std::string all;
  for (std::string const& set : sets) all += (all.empty() ? "" : "; ") + set;
  return all;
}

std::string Engine::rpSet(std::string const& zone) const {
  auto zoneStatus = status->crpStatus(prefix(zone));
  return zoneStatus && zoneStatus->status() ? show(*zoneStatus->status()) : "";
}

std::string Engine::mirror() const { return show(*rpCandidateStatus); }

Ptr<Routing::Pim::RpCandidate> Engine::rp(std::string const& zone, std::string const& range,
                                          std::string const& address) const {
  auto zoneStatus = status->crpStatus(prefix(zone));
  auto set = zoneStatus && zoneStatus->status() ? zoneStatus->status()->crpSet(prefix(range)) : nullptr;
  return set ? set->rp(addr(address)) : nullptr;
}

Ptr<Bsr::ElectedBsrStatus> Engine::elected(std::string const& zone) const {
  return status->bootstrapRouter(prefix(zone));
}

Ptr<Bsr::BsrNonCandidateSm> Engine::follower(std::string const& zone) const {
  return root->nonCandidateSm(prefix(zone));
}

Ptr<Bsr::BsrNonCandidateSm> Engine::makeFollower(std::string const& zone) {
  return root->nonCandidateSmIs(prefix(zone), status, wheel, wheel);
}

}  // namespace test
