// Names the factories, handlers and other functions of the engine beside its attributes, nested reactors
// included, but for helpers that only these call: a program that links against what is installed reaches each
// of them. It prints how many there are.

#include <config/AclToPrefix.h>
#include <config/ConfigSm.h>
#include <crp/CrpMessageSm.h>
#include <crp/PimBsrCrpPermitTrieBuilderSm.h>
#include <crp/PimBsrTrieBuilder.h>
#include <crp/RpCandidateSm.h>
#include <host/Admission.h>
#include <host/KeptRps.h>
#include <model/MessageCounters.h>
#include <model/Values.h>
#include <protocol/BootstrapMessageSm.h>
#include <protocol/BsmFragmenting.h>
#include <protocol/BsmOrigination.h>
#include <protocol/BsrCandidateSm.h>
#include <protocol/BsrNonCandidateSm.h>
#include <protocol/PimBsrSm.h>
#include <runtime/Log.h>
#include <runtime/NboAttrLogDemuxer.h>
#include <runtime/Reflection.h>
#include <runtime/Trace.h>
#include <wire/Wire.h>

#include <cstdio>

using namespace Routing::Pim::Bsr;
using Zet::U32;

/// How many of the functions have an address.
template <class... Function>
static U32 named(Function... function) {
  return (U32{function != nullptr} + ...);
}

static U32 factories() {
  return named(&pimBsrSmFactory, &bootstrapMessageSmFactory, &crpMessageSmFactory, &configSmFactory,
               &bsrCandidateSmFactory, &bsrNonCandidateSmFactory, &rpCandidateSmFactory,
               &pimBsrTrieBuilderSmFactory, &pimBsrCrpPermitTrieBuilderSmFactory, &statusFactory,
               &configFactory, &intfConfigFactory, &clearConfigFactory, &rpCandidateConfigFactory,
               &pimCrpMsgStatusFactory, &pimBsmStatusFactory);
}

static U32 rootMachine() {
  using P = PimBsrSm;
  return named(&P::handleInitialized, &P::handleAf, &P::handleBsm, &P::handleCandidateSm,
               &P::maybeInitNonCandidateSm, &P::handleRpCandidate, &P::globalOrNonScopeZone,
               &P::nonCandidateSmDel, &P::storeRpSet, &P::refreshRpSet, &P::forwardBsm, &P::bsmRxFragmentsDel,
               &P::bsmRxFragments, &P::candidateSmIs, &P::nonCandidateSmIs, &P::rpCandidateSmIs,
               &P::candidateSmDel, &P::rpCandidateSmDel, &P::candidateSmDelAll, &P::nonCandidateSmDelAll,
               &P::rpCandidateSmDelAll, &P::bsmRxFragmentsIs, &P::bsmRxFragmentsDelAll,
               &P::handleFragmentTimerExpiry, &P::handleBsmRxFragments, &P::doComputeBsmLength,
               &P::fragmentAndSendBsm, &P::doSendTriggeredBsm, &P::handleCrpMsg) +
         named(static_cast<void (P::*)()>(&P::handleBsrCandidate),
               static_cast<void (P::*)(Lanet::IpGenPrefix const&)>(&P::handleBsrCandidate)) +
         named(&P::ZetPimIntf::handleDrChange, &P::ZetPimIntf::handleTriggeredHelloSent,
               &P::ZetPimIntf::doSendNoFwdBsm, &P::ZetPimIntf::wasDrIs, &P::ZetBsrStatus::onBootstrapRouter);
}

static U32 messageGate() {
  using G = BootstrapMessageSm;
  return named(&G::handleInitialize, &G::handleBootstrapMessage, &G::handleV4BSM, &G::handleV6BSM,
               &G::handleTransmission, &G::lastBsm, &G::lastBsmIs);
}

static U32 nonCandidate() {
  using N = BsrNonCandidateSm;
  return named(&N::bsmIs, &N::stateIs, &N::lastBsmIs, &N::lastBsmFragmentsIs, &N::handleInitialized,
               &N::handleBsm, &N::handlePreferredBsm, &N::handleBsrTimerExpiry, &N::handleSzTimerExpiry,
               &N::handleBsTimeout, &N::handleSzTimeout);
}

static U32 candidate() {
  using C = BsrCandidateSm;
  return named(&C::bsmIs, &C::handleInitialized, &C::handleBsm, &C::handlePreferredBsm,
               &C::handleNonPreferredBsm, &C::handleBsrTimerExpiry, &C::handleBsTimeout,
               &C::handleStateChange, &C::doUpdateElectedBsr, &C::doDelElectedBsr, &C::bs_rand_override,
               &C::doSendBsm, &C::doAddCrp) +
         named(static_cast<Zet::S32 (*)(Lanet::IpGenPrefix const&, Zet::U32, PimBsrTxFragments&, Zet::U32,
                                        Routing::Pim::Packet::BootstrapGroupData const&, bool)>(
             &doAddGroupData)) +
         named(static_cast<void (*)(Routing::Pim::Packet::BootstrapMessage&,
                                    Zet::Ptr<Routing::Pim::RpCandidateSet> const&, Lanet::IpGenPrefix const&,
                                    Zet::U8)>(&doAddGroupData));
}

static U32 advertisementGate() {
  using M = CrpMessageSm;
  return named(&M::handleInitialize, &M::handleCrpAdvMessage, &M::handleV4CRPAdv, &M::handleV6CRPAdv,
               &M::handleTransmission, &M::isLocalHost);
}

static U32 rpCandidate() {
  using R = RpCandidateSm;
  return named(&R::doUpdateCrpAdvSet, &R::doUpdateCrpAdvSetPrefix, &R::handleInitialized, &R::handleBsr,
               &R::handleCrpAdvTimerExpiry, &R::doSendCrpAdv, &R::ZetCrp::handleInterval,
               &R::ZetCrp::ZetPrefixOption::handlePriority);
}

static U32 trieBuilders() {
  using T = PimBsrTrieBuilderSm;
  using B = PimBsrCrpPermitTrieBuilderSm;
  return named(static_cast<void (T::*)()>(&T::handleBsr),
               static_cast<void (T::*)(Lanet::IpGenPrefix const&)>(&T::handleBsr), &T::ZetBsr::handleBsrIp,
               &T::ZetBsrStatus::onBootstrapRouter) +
         named(static_cast<void (B::*)()>(&B::handleCrpPermit),
               static_cast<void (B::*)(Lanet::IpGenPrefix const&)>(&B::handleCrpPermit),
               &B::ZetBsrStatus::onCrpPermit);
}

static U32 configMachine() {
  using S = ConfigSm;
  return named(&S::handleInitialized, &S::doBuildBsrConfigAcl, &S::doRemoveExtraStatusEntries,
               &S::handleBsrHoldTime, &S::handleSzTimeout, &S::handleClearCounters,
               static_cast<void (S::*)()>(&S::handleFilterAcl),
               static_cast<void (S::*)(Zet::String8 const&)>(&S::handleFilterAcl),
               static_cast<void (S::*)()>(&S::handleAclConfig),
               static_cast<void (S::*)(Zet::Name const&)>(&S::handleAclConfig), &S::bsrConfigAclIs,
               &S::bsrConfigAclDel) +
         named(
             &S::ZetActiveConfig::doAclPrefixActivate, &S::ZetActiveConfig::doAclPrefixDeactivate,
             &S::ZetBsrCandidateConfig::doAclPrefixActivate, &S::ZetBsrCandidateConfig::doAclPrefixDeactivate,
             &S::ZetRpCandidateConfig::doAclPrefixActivate, &S::ZetRpCandidateConfig::doAclPrefixDeactivate);
}

static U32 activeConfig() {
  using A = ConfigSm::ZetActiveConfig;
  return named(static_cast<void (A::*)()>(&A::handleBsrBorderGrp),
               static_cast<void (A::*)(Lanet::IpGenPrefix const&)>(&A::handleBsrBorderGrp),
               static_cast<void (A::*)()>(&A::handleBsrBorderAcl),
               static_cast<void (A::*)(Zet::String8 const&)>(&A::handleBsrBorderAcl)) +
         named(&A::doGroupAdd, &A::doGroupRemove, &A::doAclAdd, &A::doAclRemove);
}

static U32 bsrCandidateConfig() {
  using D = ConfigSm::ZetBsrCandidateConfig;
  return named(&D::onGroup, &D::onAcl, &D::groupIs, &D::groupDel, &D::aclIs, &D::aclDel,
               &D::ZetIntf::onIpAddr, &D::ZetGroup::onPriority, &D::ZetGroup::handlePriority,
               &D::ZetGroup::handleHashMaskLen, &D::ZetGroup::handleInterval, &D::ZetAcl::handlePriority,
               &D::ZetAcl::handleHashMaskLen, &D::ZetAcl::handleInterval, &D::handleIpAddress, &D::doGroupAdd,
               &D::doGroupRemove, &D::doAclAdd, &D::doAclRemove);
}

static U32 rpCandidateConfig() {
  using E = ConfigSm::ZetRpCandidateConfig;
  return named(&E::handleAdvInterval, &E::ZetGroupRangeOptions::handlePriority,
               &E::ZetAclOptions::handlePriority, &E::ZetIntf::onIpAddr, &E::handleIpAddress, &E::doGroupAdd,
               &E::doGroupRemove, &E::doAclAdd, &E::doAclRemove) +
         named(static_cast<void (E::*)(Lanet::IpGenPrefix const&)>(&E::handleGroupRange),
               static_cast<void (E::*)()>(&E::handleGroupRange),
               static_cast<void (E::*)(Zet::String8 const&)>(&E::handleAcl),
               static_cast<void (E::*)(Zet::String8 const&)>(&E::handleAclOptions),
               static_cast<void (E::*)(Lanet::IpGenPrefix const&)>(&E::handleGroupRangeOptions));
}

static U32 values() {
  return named(static_cast<Scope (*)(Zet::U32)>(&ScopeInstance),
               static_cast<BsrCandidateState (*)(Zet::String8 const&)>(&BsrCandidateStateInstance),
               static_cast<BsrNonCandidateState (*)(Zet::U32)>(&BsrNonCandidateStateInstance),
               static_cast<Zet::String8 (*)(Scope)>(&stringValue),
               static_cast<Zet::String8 (*)(Scope)>(&valueToStrep));
}

/// What a host asks between its sockets and the gates.
static U32 wayToTheGates() {
  using pimbsr::host::Admission;
  return named(&pimbsr::wire::decodeMessage,
               static_cast<pimbsr::DropReason (Admission::*)(Routing::Pim::Packet::BootstrapMessage const&)>(
                   &Admission::validate));
}

static U32 runtime() {
  return named(&Routing::Pim::IO::clearMessageCounters, &Zet::throwRangeException,
               &Zet::throwInternalException, &Zet::throwNameInUseException, &Zet::traceHelper,
               &Zet::Reactor::zetDoZombieReactors, &Zet::Reactor::hasNotificationActiveIs);
}

int main() {
  U32 count = factories() + rootMachine() + messageGate() + nonCandidate() + candidate() +
              advertisementGate() + rpCandidate() + trieBuilders() + configMachine() + activeConfig() +
              bsrCandidateConfig() + rpCandidateConfig() + values() + runtime() + wayToTheGates();
  std::printf("%u functions\n", count);
}
