#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "model/Counters.h"
#include "model/IO.h"
#include "model/Interface.h"
#include "model/MsgStatus.h"
#include "model/Packet.h"
#include "model/Pim.h"
#include "model/RpSet.h"
#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

namespace Packet = Routing::Pim::Packet;
namespace Bsr = Routing::Pim::Bsr;
namespace IO = Routing::Pim::IO;
using Zet::Ptr;
using Texts = std::vector<std::string>;

// Packet records --------------------------------------------------------------------------------------

TEST(Records, ANewMessageHasNoAddresses) {
  auto message = Zet::make<Packet::Message>();
  EXPECT_TRUE(message->srcAddr().isEmpty());
  EXPECT_TRUE(message->dstAddr().isEmpty());
}

TEST(Records, ABootstrapMessageHoldsWhatItIsGiven) {
  auto groups = Zet::make<Packet::BootstrapOptionalData>();
  auto message = Zet::make<Packet::BootstrapMessage>();
  EXPECT_FALSE(message->groupRpData());
  message->srcAddrIs(addr("192.0.2.1"));
  message->dstAddrIs(addr("224.0.0.13"));
  message->forwardIs(false);
  message->fragmentTagIs(65535);
  message->hashMaskLenIs(255);
  message->bsrPriorityIs(254);
  message->bsrAddressIs(addr("10.0.0.1"));
  message->groupRpDataIs(groups);
  EXPECT_EQ(message->srcAddr(), addr("192.0.2.1"));
  EXPECT_EQ(message->dstAddr(), addr("224.0.0.13"));
  EXPECT_FALSE(message->forward());
  EXPECT_EQ(message->fragmentTag(), 65535);
  EXPECT_EQ(message->hashMaskLen(), 255);
  EXPECT_EQ(message->bsrPriority(), 254);
  EXPECT_EQ(message->bsrAddress(), addr("10.0.0.1"));
  EXPECT_EQ(message->groupRpData(), groups);
}

TEST(Records, GroupsAreWalkedInTheOrderInWhichTheyWereEnqueued) {
  Texts ranges{"239.9.0.0/16", "224.0.0.0/4", "239.1.0.0/16", "224.0.0.0/4"};
  auto groups = Zet::make<Packet::BootstrapOptionalData>();
  EXPECT_FALSE(groups->groupDataFirst());
  for (std::string const& range : ranges) {
    groups->groupDataEnq(Zet::make<Packet::BootstrapGroupData>(prefix(range)));
  }
  Texts walked;
  for (auto at = groups->groupDataIterator(); at; ++at)
    walked.emplace_back(at->prefix().stringValue().view());
  EXPECT_EQ(walked, ranges);
  EXPECT_EQ(groups->groupDataCount(), 4u);
  EXPECT_EQ(groups->groupDataFirst()->prefix(), prefix("239.9.0.0/16"));
}

TEST(Records, AGroupRecordKeepsItsOddities) {
  auto group = Zet::make<Packet::BootstrapGroupData>(prefix("239.0.0.0/8"));
  EXPECT_EQ(group->prefix(), prefix("239.0.0.0/8"));
  EXPECT_EQ(group->groupFlags(), Packet::GroupFlags());
  EXPECT_EQ(group->rpCount(), 0);
  EXPECT_EQ(group->fragRpCount(), 0);
  group->groupFlagsIs(Packet::GroupFlags(scopedFlag | bidirFlag));
  group->rpCountIs(3);
  group->fragRpCountIs(200);
  EXPECT_TRUE(group->groupFlags().scoped());
  EXPECT_TRUE(group->groupFlags().bidir());
  EXPECT_EQ(group->rpCount(), 3);
  EXPECT_EQ(group->fragRpCount(), 200);
  EXPECT_EQ(group->rpListCount(), 0u);
}

TEST(Records, AnRpIsMadeOnceAndThenFound) {
  auto group = Zet::make<Packet::BootstrapGroupData>(prefix("239.0.0.0/8"));
  auto rp = group->rpListIs(addr("203.0.113.1"));
  EXPECT_EQ(rp->rpAddress(), addr("203.0.113.1"));
  EXPECT_EQ(rp->rpHoldtime(), 0);
  EXPECT_EQ(rp->rpPriority(), 0);
  rp->rpHoldtimeIs(65535);
  rp->rpPriorityIs(255);
  EXPECT_EQ(group->rpListIs(addr("203.0.113.1")), rp);
  EXPECT_EQ(group->rpList(addr("203.0.113.1"))->rpHoldtime(), 65535);
  EXPECT_EQ(group->rpList(addr("203.0.113.1"))->rpPriority(), 255);
  EXPECT_FALSE(group->rpList(addr("203.0.113.2")));
  EXPECT_EQ(group->rpListCount(), 1u);
}

static Texts rpsOf(Texts const& addresses) {
  auto group = Zet::make<Packet::BootstrapGroupData>(prefix("239.0.0.0/8"));
  for (std::string const& address : addresses) group->rpListIs(addr(address));
  Texts walked;
  for (auto at = group->rpListIterator(); at; ++at) walked.emplace_back(at->rpAddress().stringValue().view());
  return walked;
}

TEST(Records, RpsAreWalkedInAnOrderThatTheirAddressesAloneDecide) {
  Texts addresses;
  for (int i = 1; i <= 40; ++i) addresses.push_back("203.0.113." + std::to_string(i));
  Texts walked = rpsOf(addresses);
  EXPECT_EQ(walked.size(), 40u);
  std::reverse(addresses.begin(), addresses.end());
  EXPECT_EQ(rpsOf(addresses), walked);
}

TEST(Records, AnAdvertisementHoldsWhatItIsGiven) {
  auto ranges = Zet::make<Packet::CrpGroupData>();
  auto message = Zet::make<Packet::CrpAdvMessage>();
  message->prefixCountIs(255);
  message->priorityIs(254);
  message->holdtimeIs(65535);
  message->rpAddressIs(addr("203.0.113.1"));
  message->groupDataIs(ranges);
  EXPECT_EQ(message->prefixCount(), 255);
  EXPECT_EQ(message->priority(), 254);
  EXPECT_EQ(message->holdtime(), 65535);
  EXPECT_EQ(message->rpAddress(), addr("203.0.113.1"));
  EXPECT_EQ(message->groupData(), ranges);
}

TEST(Records, AnAdvertisedRangeIsMadeOnceAndThenFound) {
  auto ranges = Zet::make<Packet::CrpGroupData>();
  auto range = ranges->groupInfoIs(prefix("239.0.0.0/8"));
  EXPECT_EQ(range->prefix(), prefix("239.0.0.0/8"));
  range->groupFlagsIs(Packet::GroupFlags(scopedFlag));
  EXPECT_EQ(ranges->groupInfoIs(prefix("239.0.0.0/8")), range);
  EXPECT_TRUE(ranges->groupInfo(prefix("239.0.0.0/8"))->groupFlags().scoped());
  EXPECT_FALSE(ranges->groupInfo(prefix("239.0.0.0/16")));
  EXPECT_EQ(ranges->groupInfoCount(), 1u);
}

// The I/O manager's exchange points -------------------------------------------------------------------

TEST(MessageInfo, GivesItsMessageOnlyAsTheKindItIs) {
  auto info = IO::messageInfoFactory();
  EXPECT_FALSE(info->bootstrapMessage());
  EXPECT_FALSE(info->crpAdvMessage());
  auto bootstrap = Zet::make<Packet::BootstrapMessage>();
  info->messageIs(bootstrap);
  EXPECT_EQ(info->bootstrapMessage(), bootstrap);
  EXPECT_FALSE(info->crpAdvMessage());
  auto advertisement = Zet::make<Packet::CrpAdvMessage>();
  info->messageIs(advertisement);
  EXPECT_FALSE(info->bootstrapMessage());
  EXPECT_EQ(info->crpAdvMessage(), advertisement);
  info->messageIs(Zet::make<Packet::Message>());
  EXPECT_FALSE(info->bootstrapMessage());
  EXPECT_FALSE(info->crpAdvMessage());
}

class InfoWatch : public IO::MessageInfo::NotifieeConst {
 public:
  void onCount() override { heard.emplace_back("count"); }
  void onIntfId() override { heard.emplace_back("intfId"); }
  void onMessage() override { heard.emplace_back("message"); }
  Texts heard;
};

TEST(MessageInfo, NotifiesEachRaiseAndAnotherMessageOnly) {
  auto info = IO::messageInfoFactory();
  auto watch = Zet::make<InfoWatch>();
  watch->notifierIs(info);
  EXPECT_EQ(info->count(), 0u);
  auto message = Zet::make<Packet::BootstrapMessage>();
  for (int i = 0; i < 2; ++i) {
    info->intfIdIs(intf("eth0"));
    info->messageIs(message);
    info->countInc(1);
  }
  EXPECT_EQ(watch->heard, (Texts{"intfId", "message", "count", "count"}));
  EXPECT_EQ(info->count(), 2u);
  EXPECT_EQ(info->intfId(), intf("eth0"));
}

TEST(MessageInfo, KeepsItsMessageAliveUntilTheNext) {
  auto info = IO::messageInfoFactory();
  auto message = Zet::make<Packet::BootstrapMessage>();
  info->messageIs(message);
  EXPECT_EQ(message->references(), 2u);
  info->messageIs(Zet::make<Packet::BootstrapMessage>());
  EXPECT_EQ(message->references(), 1u);
}

TEST(PamManager, HasNoExchangePointUntilItIsGivenOne) {
  auto manager = IO::pamManagerFactory();
  EXPECT_FALSE(manager->txMessageInfo());
  EXPECT_FALSE(manager->txPamCounter());
  auto info = IO::messageInfoFactory();
  auto counter = IO::pamCounterFactory();
  manager->txMessageInfoIs(info);
  manager->txPamCounterIs(counter);
  EXPECT_EQ(manager->txMessageInfo(), info);
  EXPECT_EQ(manager->txPamCounter(), counter);
  EXPECT_EQ(counter->txCount(), 0u);
}

// The machines' exchange points -----------------------------------------------------------------------

TEST(PimBsmStatus, StartsEmpty) {
  auto status = Bsr::pimBsmStatusFactory();
  EXPECT_TRUE(status->iifIntfId().isEmpty());
  EXPECT_FALSE(status->firstGroup());
  EXPECT_FALSE(status->rxBsm());
  EXPECT_FALSE(status->txBsm());
  EXPECT_TRUE(status->oifIntfId().isEmpty());
  EXPECT_EQ(status->writeCount(), 0u);
}

class BsmStatusWatch : public Bsr::PimBsmStatus::NotifieeConst {
 public:
  void onRxBsm() override { heard.emplace_back("rxBsm"); }
  void onTxBsm() override { heard.emplace_back("txBsm"); }
  void onWriteCount() override { heard.emplace_back("writeCount"); }
  Texts heard;
};

TEST(PimBsmStatus, TheSameMessageIsNoChangeButEveryRaiseIs) {
  auto status = Bsr::pimBsmStatusFactory();
  auto watch = Zet::make<BsmStatusWatch>();
  watch->notifierIs(status);
  auto message = Zet::make<Packet::BootstrapMessage>();
  for (int i = 0; i < 2; ++i) {
    status->rxBsmIs(message);
    status->txBsmIs(message);
    status->writeCountInc(1);
  }
  EXPECT_EQ(watch->heard, (Texts{"rxBsm", "txBsm", "writeCount", "writeCount"}));
  EXPECT_EQ(status->writeCount(), 2u);
}

TEST(PimCrpMsgStatus, StartsEmptyWithTheUnknownPriorityAndTheUsualHoldtime) {
  auto status = Bsr::pimCrpMsgStatusFactory();
  EXPECT_FALSE(status->groupInfo());
  EXPECT_TRUE(status->bsrIp().isEmpty());
  EXPECT_TRUE(status->rp().isEmpty());
  EXPECT_EQ(status->priority(), Routing::Pim::RpPriority(256));
  EXPECT_EQ(status->holdTime(), Routing::Pim::CrpHoldTime(150));
  EXPECT_EQ(status->readCount(), 0u);
  EXPECT_FALSE(status->rxCrpMsg());
  EXPECT_FALSE(status->txCrpMsg());
  EXPECT_EQ(status->writeCount(), 0u);
}

// Counters --------------------------------------------------------------------------------------------

TEST(Counters, AllStartAtZero) {
  auto counters = Bsr::pimBsrCountersFactory("bsr");
  EXPECT_EQ(counters->name(), "bsr");
  for (Zet::U32 n :
       {counters->rx(), counters->rxError(), counters->rxSuccess(), counters->rxBsm(),
        counters->rxBsmSuccess(), counters->rxBsmError(), counters->rxCrpAdv(), counters->rxCrpAdvSuccess(),
        counters->rxCrpAdvError(), counters->tx(), counters->txSuccess(), counters->txError()}) {
    EXPECT_EQ(n, 0u);
  }
  Bsr::PimBsrErrorCounters errors = counters->errCounters();
  for (Zet::U32 n : {errors.rxFilter, errors.rxNbrRpfCheck, errors.rxNoForwardBsm, errors.rxUnicastBsm,
                     errors.rxScopeMismatch, errors.rxInvalid}) {
    EXPECT_EQ(n, 0u);
  }
}

TEST(Counters, EachIsSetAndRaisedByItself) {
  auto counters = Bsr::pimBsrCountersFactory("bsr");
  counters->rxIs(10);
  counters->rxInc(2);
  counters->rxBsmErrorInc(1);
  EXPECT_EQ(counters->rx(), 12u);
  EXPECT_EQ(counters->rxBsmError(), 1u);
  EXPECT_EQ(counters->rxBsm(), 0u);
}

class CountersWatch : public Bsr::PimBsrCounters::NotifieeConst {
 public:
  void onErrCounters() override { ++heard; }
  int heard = 0;
};

TEST(Counters, DropsByReasonAreOneValueWhoseEqualWriteNotifiesNone) {
  auto counters = Bsr::pimBsrCountersFactory("bsr");
  auto watch = Zet::make<CountersWatch>();
  watch->notifierIs(counters);
  counters->errCountersIs(Bsr::PimBsrErrorCounters());
  EXPECT_EQ(watch->heard, 0);
  Bsr::PimBsrErrorCounters errors = counters->errCounters();
  errors.rxFilter += 1;
  errors.rxInvalid += 1;
  counters->errCountersIs(errors);
  EXPECT_EQ(watch->heard, 1);
  counters->errCountersIs(errors);
  EXPECT_EQ(watch->heard, 1);
}

TEST(Counters, DropsByReasonAreEqualOnlyIfAllSixAre) {
  Zet::U32 Bsr::PimBsrErrorCounters::*const members[] = {
      &Bsr::PimBsrErrorCounters::rxFilter,        &Bsr::PimBsrErrorCounters::rxNbrRpfCheck,
      &Bsr::PimBsrErrorCounters::rxNoForwardBsm,  &Bsr::PimBsrErrorCounters::rxUnicastBsm,
      &Bsr::PimBsrErrorCounters::rxScopeMismatch, &Bsr::PimBsrErrorCounters::rxInvalid};
  for (auto member : members) {
    Bsr::PimBsrErrorCounters errors;
    EXPECT_EQ(errors, Bsr::PimBsrErrorCounters());
    errors.*member = 1;
    EXPECT_NE(errors, Bsr::PimBsrErrorCounters());
  }
}

// Input and output of PIM -----------------------------------------------------------------------------

TEST(RpSet, IsMadeByRangeAndAddress) {
  auto rpSet = Routing::Pim::rpCandidateStatusFactory("agent");
  EXPECT_EQ(rpSet->name(), "agent");
  EXPECT_EQ(rpSet->rpSetType(), Routing::Pim::RpType::unset);
  auto set = rpSet->crpSetIs(prefix("239.0.0.0/8"));
  EXPECT_EQ(set->prefix(), prefix("239.0.0.0/8"));
  EXPECT_EQ(rpSet->crpSetIs(prefix("239.0.0.0/8")), set);
  auto rp = set->rpIs(addr("203.0.113.1"));
  EXPECT_EQ(rp->address(), addr("203.0.113.1"));
  EXPECT_EQ(set->rp(addr("203.0.113.1")), rp);
  set->rpDel(addr("203.0.113.1"));
  EXPECT_FALSE(set->rp(addr("203.0.113.1")));
  rpSet->crpSetDelAll();
  EXPECT_EQ(rpSet->crpSetCount(), 0u);
}

TEST(RpSet, ANewRpIsSparseWithdrawnAndOfUnknownPriorityAndMask) {
  auto rp = Routing::Pim::rpCandidateFactory(addr("203.0.113.1"));
  EXPECT_EQ(rp->priority(), Routing::Pim::RpPriority(256));
  EXPECT_EQ(rp->hashMaskLen(), Routing::Pim::RpHashMaskLen(128));
  EXPECT_EQ(rp->holdTime(), Routing::Pim::CrpHoldTime(0));
  EXPECT_EQ(rp->pimMode(), Routing::Pim::Mode::sparse);
  EXPECT_FALSE(rp->override());
  EXPECT_EQ(rp->setupTime(), 0.0);
  EXPECT_EQ(rp->expires(), 0.0);
  EXPECT_EQ(rp->upTime(), 0.0);
}

class PimWatch : public Routing::Pim::Status::NotifieeConst {
 public:
  void onPimIntf(Lanet::IntfId const& key) override { heard.emplace_back(key.stringValue().view()); }
  Texts heard;
};

TEST(PimStatus, NotifiesInterfacesThatComeAndGo) {
  auto status = Routing::Pim::statusFactory("pim");
  auto watch = Zet::make<PimWatch>();
  watch->notifierIs(status);
  auto made = status->pimIntfIs(intf("eth0"));
  EXPECT_FALSE(made->iAmDr());
  EXPECT_EQ(made->triggeredHelloCount(), 0u);
  EXPECT_EQ(made->neighborCount(), 0u);
  status->pimIntfIs(intf("eth0"));
  status->pimIntfDel(intf("eth0"));
  EXPECT_EQ(watch->heard, (Texts{"eth0", "eth0"}));
}

TEST(InterfaceStatus, AnUnknownInterfaceOrMtuHasTheUsualOne) {
  auto interfaces = Interface::allIntfStatusDirFactory("interfaces");
  EXPECT_EQ(interfaces->mtu(intf("eth0")), 1500u);
  interfaces->intfStatusIs(intf("eth0"))->mtuIs(9000);
  EXPECT_EQ(interfaces->mtu(intf("eth0")), 9000u);
  interfaces->intfStatus(intf("eth0"))->mtuIs(0);
  EXPECT_EQ(interfaces->mtu(intf("eth0")), 1500u);
}

}  // namespace
}  // namespace test
