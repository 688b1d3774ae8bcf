#include <functional>
#include <string>

#include "model/Acl.h"
#include "model/Config.h"
#include "model/Status.h"
#include "tests/support/Messages.h"
#include "tests/support/Mirror.h"
#include "tests/support/TestContext.h"

/// An entity and its copy over the attribute log.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::Status;
using Zet::Ptr;

/// Runs a function for a change of Status.
class Watcher : public Status::Notifiee {
 public:
  void onBsTimeout() override {
    if (onTimeout) onTimeout();
  }
  void onCbsr(Lanet::IpGenPrefix const&) override {
    if (onCandidate) onCandidate();
  }
  std::function<void()> onTimeout, onCandidate;
};

class AttrLog : public ModelTest {
 protected:
  AttrLog() { mirror.sync(); }
  Ptr<Watcher> watch() {
    Ptr<Watcher> made = Zet::make<Watcher>();
    made->notifierIs(status);
    return made;
  }
  /// Puts the log's watcher after those that are there: a snapshot attaches it anew.
  void logLast() {
    mirror.out->snapshotIs();
    mirror.sync();
  }

  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  Ptr<Status> status = Bsr::statusFactory("bsr");
  Mirror<Status> mirror{status, Bsr::statusFactory("bsr")};
  Status& copy = *mirror.copy;
};

// Messages ----------------------------------------------------------------------------------------------

TEST_F(AttrLog, EntitiesHaveTheInterface) {
  static_assert(Status::zetHasAttrLogInterface() && Bsr::Config::zetHasAttrLogInterface());
  static_assert(Acl::AclTypeConfig::zetHasAttrLogInterface());
}

TEST_F(AttrLog, OneChangeIsOneMessage) {
  struct Case {
    char const* name;
    std::function<void()> change;
  };
  for (Case const& c : {Case{"value", [&] { status->bsTimeoutIs(130); }},
                        Case{"value under a key", [&] { status->zoneAclIs("acl", intf("eth0")); }},
                        Case{"another value there", [&] { status->zoneAclIs("acl", intf("eth1")); }},
                        Case{"value removed", [&] { status->zoneAclDel("acl"); }},
                        Case{"member", [&] { status->cbsrIs(zone); }},
                        Case{"value of a member", [&] { status->cbsr(zone)->priorityIs(9); }},
                        Case{"member removed", [&] { status->cbsrDel(zone); }},
                        Case{"single object", [&] { status->countersIs("c"); }},
                        Case{"counter", [&] { status->counters()->rxInc(2); }},
                        Case{"single object removed", [&] { status->countersDel(); }}}) {
    c.change();
    mirror.sync();
    EXPECT_EQ(mirror.messages(), 1u) << c.name;
    EXPECT_TRUE(mirror.isEqual()) << c.name << "\n" << logged(copy);
  }
  EXPECT_TRUE(mirror.demuxer->asked.empty());
}

TEST_F(AttrLog, AnEqualValueSendsNothing) {
  status->bsTimeoutIs(130);
  mirror.sync();
  status->bsTimeoutIs(130);
  status->zoneAclDel("none");
  mirror.sync();
  EXPECT_EQ(mirror.messages(), 0u);
  EXPECT_EQ(mirror.tape->sends, 2) << "an empty flush sends nothing";
}

TEST_F(AttrLog, ACopyHasWhatWasThereBefore) {
  status->cbsrIs(zone)->priorityIs(5);
  status->countersIs("c")->rxBsmInc(3);
  status->crpIs(addr("10.0.0.1"))->prefixOptionsIs(prefix("239.1.0.0/16"))->priorityIs(7);
  status->crpStatusIs(zone)->statusIs("set")->crpSetIs(zone)->rpIs(addr("10.0.0.2"))->holdTimeIs(40958);
  Mirror<Status> other(status, Bsr::statusFactory("bsr"));
  other.sync(1);
  EXPECT_TRUE(other.isEqual()) << logged(*other.copy);
  EXPECT_EQ(other.copy->crpStatus(zone)->status()->crpSet(zone)->rp(addr("10.0.0.2"))->holdTime(), 40958u);
}

TEST_F(AttrLog, ASnapshotRemovesWhatTheOriginalDoesNotHave) {
  copy.zoneAclIs("old", intf("eth0"));
  copy.cbsrIs(zone)->priorityIs(3);
  copy.countersIs("another name");
  status->countersIs("c");
  auto const kept = copy.crpIs(addr("10.0.0.1"));
  status->crpIs(addr("10.0.0.1"));
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual()) << logged(copy);
  EXPECT_EQ(copy.crp(addr("10.0.0.1")), kept) << "what is in both stays";
  EXPECT_EQ(copy.counters()->name(), "c");
}

TEST_F(AttrLog, APointerIsCopiedWithItsObject) {
  auto lists = Acl::aclTypeConfigFactory("ip");
  Mirror<Acl::AclTypeConfig> acls(lists, Acl::aclTypeConfigFactory("ip"));
  acls.sync();
  auto list = lists->aclIs("a");
  auto version = Zet::make<Acl::AclSubConfig>();
  version->ruleBySequenceIs(10, Acl::UniqueId(1));
  list->currCfgIs(version);
  list->ipRuleByIdIs(Acl::UniqueId(1), Acl::IpRuleConfig(Acl::Action::permit, {}));
  acls.sync(3);
  EXPECT_TRUE(acls.isEqual()) << logged(*acls.copy);
  version->ruleBySequenceIs(20, Acl::UniqueId(2));
  acls.sync();
  EXPECT_EQ(acls.copy->acl("a")->currCfg()->ruleBySequence(20), Acl::UniqueId(2));
  list->currCfgDel();
  acls.sync();
  EXPECT_FALSE(acls.copy->acl("a")->currCfg());
  EXPECT_TRUE(acls.demuxer->asked.empty());
}

TEST_F(AttrLog, TheObjectOfAPointerStaysInASnapshotAndIsMadeAnewWhenAnotherIsSet) {
  auto lists = Acl::aclTypeConfigFactory("ip");
  Mirror<Acl::AclTypeConfig> acls(lists, Acl::aclTypeConfigFactory("ip"));
  auto list = lists->aclIs("a");
  list->currCfgIs(Zet::make<Acl::AclSubConfig>());
  acls.sync();
  auto held = acls.copy->acl("a")->currCfg();
  acls.out->snapshotIs();
  acls.sync();
  EXPECT_EQ(acls.copy->acl("a")->currCfg(), held);
  list->currCfgIs(Zet::make<Acl::AclSubConfig>());
  acls.sync();
  EXPECT_NE(acls.copy->acl("a")->currCfg(), held);
  EXPECT_TRUE(acls.isEqual());
}

// Cases that decide whether a copy is right -------------------------------------------------------------

TEST_F(AttrLog, AMemberMadeAgainBeforeAFlushHasItsStartValues) {
  status->cbsrIs(zone)->priorityIs(9);
  mirror.sync();
  auto const former = copy.cbsr(zone);
  status->cbsrDel(zone);
  status->cbsrIs(zone);
  mirror.sync();
  EXPECT_EQ(copy.cbsr(zone)->priority(), Bsr::BsrCandidate::priorityUnknown());
  EXPECT_NE(copy.cbsr(zone), former);
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLog, AMemberMadeAgainByTheHandlerOfItsRemovalHasItsStartValues) {
  for (bool isLogLast : {false, true}) {
    status->cbsrIs(zone)->priorityIs(9);
    auto watcher = watch();
    if (isLogLast) logLast();
    watcher->onCandidate = [&] {
      if (!status->cbsr(zone)) status->cbsrIs(zone)->hashMaskLenIs(20);
    };
    mirror.sync();
    status->cbsrDel(zone);
    mirror.sync();
    EXPECT_EQ(copy.cbsr(zone)->priority(), Bsr::BsrCandidate::priorityUnknown());
    EXPECT_TRUE(mirror.isEqual()) << logged(copy);
    watcher->onCandidate = nullptr;
    status->cbsrDel(zone);
  }
}

TEST_F(AttrLog, AChangeInsideAnotherHandlerEndsEqual) {
  for (bool isLogLast : {false, true}) {
    auto watcher = watch();
    if (isLogLast) logLast();
    watcher->onTimeout = [&] {
      if (status->bsTimeout() < 100) status->bsTimeoutIs(status->bsTimeout() + 60);
    };
    status->bsTimeoutIs(isLogLast ? 1 : 2);
    mirror.sync();
    EXPECT_EQ(copy.bsTimeout(), status->bsTimeout());
    watcher->onTimeout = nullptr;
  }
}

TEST_F(AttrLog, ANewMemberIsSentWhole) {
  auto watcher = watch();
  logLast();
  watcher->onCandidate = [&] {
    if (auto candidate = status->cbsr(zone); candidate) candidate->priorityIs(33);
  };
  status->cbsrIs(zone);
  mirror.sync();
  EXPECT_EQ(copy.cbsr(zone)->priority(), 33u);
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLog, AMemberMadeByNewFooComesWithTheNextSnapshot) {
  status->newCbsr(zone)->priorityIs(4);
  mirror.sync();
  EXPECT_FALSE(copy.cbsr(zone));
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_EQ(copy.cbsr(zone)->priority(), 4u);
}

TEST_F(AttrLog, ARejectedValueThatStaysStoredComesWithTheNextSnapshotAndIsNoGap) {
  auto config = Bsr::configFactory("bsr");
  Mirror<Bsr::Config> configs(config, Bsr::configFactory("bsr"));
  configs.sync();
  EXPECT_THROW(config->holdTimeIs(5), Zet::RangeException);
  config->szTimeoutIs(500);
  configs.sync();
  EXPECT_EQ(configs.copy->holdTime(), 130u);
  for (int i = 0; i < 3; ++i) {
    configs.out->snapshotIs();
    configs.sync();
    EXPECT_TRUE(configs.isEqual());
  }
  EXPECT_TRUE(configs.demuxer->asked.empty());
  EXPECT_EQ(configs.demuxer->outOfRange(), 1u) << "only a changed value is set";
  EXPECT_EQ(configs.demuxer->lastError(), "Config::holdTime < 12 or > 1073741823 not allowed");
  EXPECT_EQ(configs.copy->szTimeout(), 500u) << "what follows in the snapshot is taken";
}

TEST_F(AttrLog, OfTwoRejectedValuesInOneSnapshotBothAreStoredAndTheFirstIsReported) {
  auto config = Bsr::configFactory("bsr");
  Mirror<Bsr::Config> configs(config, Bsr::configFactory("bsr"));
  EXPECT_THROW(config->holdTimeIs(5), Zet::RangeException);
  EXPECT_THROW(config->szTimeoutIs(7), Zet::RangeException);
  configs.sync();
  EXPECT_TRUE(configs.isEqual());
  EXPECT_EQ(configs.demuxer->outOfRange(), 1u) << "counted by messages";
  EXPECT_EQ(configs.demuxer->lastError(), "Config::holdTime < 12 or > 1073741823 not allowed");
}

TEST_F(AttrLog, IsNondestructingNotifiesNoOneAndComesWithTheNextSnapshot) {
  auto candidate = status->cbsrIs(zone);
  mirror.sync();
  status->isNondestructingIs(true);
  candidate->isNondestructingIs(true);
  mirror.sync();
  EXPECT_EQ(mirror.messages(), 0u);
  EXPECT_FALSE(copy.isNondestructing());
  for (int snapshot = 1; snapshot <= 2; ++snapshot) {
    mirror.out->snapshotIs();
    mirror.sync();
    EXPECT_TRUE(copy.isNondestructing()) << snapshot;
    EXPECT_TRUE(copy.cbsr(zone)->isNondestructing()) << snapshot;
  }
  status->isNondestructingIs(false);
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_FALSE(copy.isNondestructing());
  EXPECT_TRUE(copy.cbsr(zone)->isNondestructing());
}

TEST_F(AttrLog, IsNondestructingOfANewMemberComesWithIt) {
  auto watcher = watch();
  logLast();
  watcher->onCandidate = [&] { status->cbsr(zone)->isNondestructingIs(true); };
  status->cbsrIs(zone);
  mirror.sync();
  EXPECT_TRUE(copy.cbsr(zone)->isNondestructing());
}

TEST_F(AttrLog, TheLogOfAMemberThatHasGoneSendsNothing) {
  auto candidate = status->cbsrIs(zone);
  mirror.sync();
  status->cbsrDel(zone);
  candidate->priorityIs(8);
  mirror.sync();
  EXPECT_EQ(mirror.messages(), 1u);
}

TEST_F(AttrLog, AMemberIsNotKeptAliveByItsLog) {
  class Ending : public Bsr::BsrCandidate::NotifieeConst {
   public:
    void onZeroReferences() override { hasEnded = true; }
    bool hasEnded = false;
  };
  auto ending = Zet::make<Ending>();
  auto candidate = status->newCbsr(zone);
  ending->isWeakReferenceIs(true);
  ending->notifierIs(Ptr<Bsr::BsrCandidate const>(candidate));
  logLast();
  candidate = nullptr;
  status->cbsrDel(zone);
  EXPECT_TRUE(ending->hasEnded);
}

// Errors ------------------------------------------------------------------------------------------------

TEST_F(AttrLog, AChannelThatTakesNothingIsMadeGoodByASnapshot) {
  status->bsTimeoutIs(1);
  mirror.tape->fails = true;
  mirror.sync();
  status->szTimeoutIs(2);
  status->cbsrIs(zone);
  mirror.sync();
  EXPECT_EQ(copy.bsTimeout(), 0u);
  mirror.tape->fails = false;
  mirror.sync();
  EXPECT_EQ(mirror.messages(), 1u);
  EXPECT_TRUE(mirror.isEqual());
  EXPECT_EQ(mirror.out->failures(), 2u);
}

TEST_F(AttrLog, AFullBufferIsMadeGoodByASnapshotAndTheSetterHearsNothing) {
  mirror.out = Zet::make<Zet::NboAttrLog::FlowOut>(mirror.flow, mirror.tape, 600);
  mirror.out->rootIs<Status>(status);
  mirror.sync();
  auto watcher = watch();
  int heard = 0;
  watcher->onTimeout = [&] { ++heard; };
  for (Zet::U32 i = 1; i <= 100; ++i) status->bsTimeoutIs(i);
  EXPECT_EQ(heard, 100);
  EXPECT_EQ(Zet::Context::current().notificationExceptions(), 0u);
  EXPECT_LE(mirror.out->pending(), 600u);
  EXPECT_TRUE(mirror.out->needsSnapshot());
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual());
  EXPECT_EQ(mirror.out->failures(), 1u);
}

TEST_F(AttrLog, AHandlerInTheChannelMayChangeTheTreeAndFlush) {
  mirror.tape->onSend = [&] {
    if (status->szTimeout() < 3) status->szTimeoutIs(status->szTimeout() + 1);
    mirror.out->flush();
  };
  status->bsTimeoutIs(1);
  for (int i = 0; i < 4; ++i) mirror.sync();
  EXPECT_EQ(copy.szTimeout(), 3u);
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLog, AFlowWithoutARootSendsNothing) {
  auto flow = Zet::make<Zet::NboAttrLog::FlowOut>(8, mirror.tape);
  int const before = mirror.tape->sends;
  flow->flush();
  EXPECT_EQ(mirror.tape->sends, before);
  EXPECT_EQ(flow->failures(), 0u);
}

TEST_F(AttrLog, LostBytesAreAskedForOnceAndRepaired) {
  status->cbsrIs(zone);
  mirror.out->flush();  // to no reader
  mirror.tape->bytes.clear();
  for (Zet::U16 priority : {1, 2, 3}) {
    status->cbsr(zone)->priorityIs(priority);
    mirror.sync();
  }
  EXPECT_EQ(mirror.demuxer->asked, std::vector<Zet::U32>{mirror.flow});
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLog, ASnapshotWithAnErrorIsNotAskedForAgain) {
  Mirror<Bsr::Config> other(Bsr::configFactory("c"), Bsr::configFactory("c"));
  other.demuxer->copyIs(other.flow, status);  // of another type
  for (int i = 0; i < 3; ++i) {
    other.out->snapshotIs();
    other.sync();
  }
  EXPECT_TRUE(other.demuxer->asked.empty());
  EXPECT_EQ(other.demuxer->rejected(), 3u);
  EXPECT_EQ(other.demuxer->lastError(), "not an object of type Routing::Pim::Bsr::Status");
}

TEST_F(AttrLog, AFlowWhoseCopyHasEndedIsUnknown) {
  mirror.demuxer->copyIs(mirror.flow, nullptr);
  status->bsTimeoutIs(6);
  mirror.sync();
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_EQ(mirror.demuxer->rejected(), 2u);
  EXPECT_EQ(mirror.demuxer->lastError(), "unknown flow");
  EXPECT_TRUE(mirror.demuxer->asked.empty());
  EXPECT_EQ(copy.bsTimeout(), 0u);
}

TEST_F(AttrLog, AMessageThatIsTooLongBreaksTheChannelUntilItIsReset) {
  Zet::U8 const bytes[] = {0xff, 0xff, 0xff, 0xff, 0};
  mirror.demuxer->bytes(bytes);
  EXPECT_TRUE(mirror.demuxer->isBroken());
  status->bsTimeoutIs(6);
  mirror.sync();
  EXPECT_EQ(copy.bsTimeout(), 0u);
  mirror.demuxer->reset();
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_EQ(copy.bsTimeout(), 6u);
}

TEST_F(AttrLog, BytesThatAHandlerBringsAreLostWithAChannelThatBreaksAfterItsMessage) {
  auto watcher = Zet::make<Watcher>();
  watcher->notifierIs(mirror.copy);
  mirror.tape->bytes.clear();
  status->bsTimeoutIs(6);
  mirror.out->flush();
  std::vector<Zet::U8> const change = std::exchange(mirror.tape->bytes, {});
  status->szTimeoutIs(7);
  mirror.out->flush();
  std::vector<Zet::U8> const next = std::exchange(mirror.tape->bytes, {});
  watcher->onTimeout = [&] { mirror.demuxer->bytes(next); };
  std::vector<Zet::U8> bytes = change;
  bytes.insert(bytes.end(), 4, 0xff);  // the length of the next message
  mirror.demuxer->bytes(bytes);
  EXPECT_TRUE(mirror.demuxer->isBroken());
  EXPECT_EQ(copy.bsTimeout(), 6u);
  EXPECT_EQ(copy.szTimeout(), 0u);
  EXPECT_EQ(mirror.demuxer->messages(), 2u) << "the snapshot and the change";
}

// The copy ----------------------------------------------------------------------------------------------

TEST_F(AttrLog, AnUpdateThatArrivesAtAReadOnlyCopyRaisesItsTextAndChangesNothing) {
  mirror.demuxer->readOnlyIs(mirror.flow, status);
  Mirror<Status> back(mirror.copy, Bsr::statusFactory("unused"));
  back.demuxer->readOnlyIs(back.flow, status);
  copy.bsTimeoutIs(55);
  back.sync();
  EXPECT_EQ(back.demuxer->lastError(), "write-update from readonly proxy: Routing::Pim::Bsr::Status");
  copy.bsTimeoutIs(56);
  back.sync();
  EXPECT_EQ(back.demuxer->lastError(), "write-update from readonly proxy: bsTimeout");
  Zet::NboAttrLog::Objects objects;
  Zet::NboAttrLog::In const nothing{std::span<Zet::U8 const>()};
  Zet::NboAttrLog::Update const unknown{Zet::NboAttrLog::Op::value, 1000, nothing, objects};
  Status const& constant = *status;
  try {
    deserializeAttr(constant, unknown);
    ADD_FAILURE() << "no exception";
  } catch (Zet::InternalException const& e) {
    EXPECT_STREQ(e.what(), "write-update from readonly proxy: Routing::Pim::Bsr::Status");
  }
  EXPECT_EQ(status->bsTimeout(), 0u);
  EXPECT_TRUE(back.demuxer->asked.empty());
}

TEST_F(AttrLog, HandleAttrDeserializationOfEachClassAppliesOneAttribute) {
  Zet::NboAttrLog::Out out;
  put(out, Zet::U32{77});
  Zet::NboAttrLog::Objects objects;
  auto update = [&](Zet::AttributeId attribute) {
    return Zet::NboAttrLog::Update{Zet::NboAttrLog::Op::value, attribute, Zet::NboAttrLog::In(out.bytes()),
                                   objects};
  };
  auto first = update(Status::attrBsTimeout);
  Status::ZetNboAttrLogSa::handleAttrDeserialization(*status, first);
  EXPECT_EQ(status->bsTimeout(), 77u);
  Status const& constant = *status;
  auto second = update(Status::attrSzTimeout);
  try {
    Status::ZetNboAttrLogSa::handleAttrDeserialization(constant, second);
    ADD_FAILURE() << "no exception";
  } catch (Zet::InternalException const& e) {
    EXPECT_STREQ(e.what(), "write-update from readonly proxy: szTimeout");
  }
  auto third = update(Status::attrName);
  EXPECT_THROW(Status::ZetNboAttrLogSa::handleAttrDeserialization(*status, third), Zet::UnknownAttrException);
}

TEST_F(AttrLog, AValueOutOfItsRangeRaisesItsTextOnArrival) {
  Zet::NboAttrLog::Out out;
  put(out, Zet::U32{5});
  Zet::NboAttrLog::Objects objects;
  Zet::NboAttrLog::Update update{Zet::NboAttrLog::Op::value, Bsr::Config::attrHoldTime,
                                 Zet::NboAttrLog::In(out.bytes()), objects};
  auto config = Bsr::configFactory("bsr");
  try {
    Bsr::Config::ZetNboAttrLogSa::handleAttrDeserialization(*config, update);
    ADD_FAILURE() << "no exception";
  } catch (Zet::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Config::holdTime < 12 or > 1073741823 not allowed");
  }
}

TEST_F(AttrLog, TheAnchorClearsItsMarkAlsoWhenAnExceptionLeavesItsScope) {
  try {
    Zet::ClearIsActiveAnchor anchor(*mirror.out);
    EXPECT_TRUE(mirror.out->hasNotificationActive());
    throw 1;
  } catch (int) {
  }
  EXPECT_FALSE(mirror.out->hasNotificationActive());
}

TEST_F(AttrLog, FlowsOfOneChannelGoToTheirCopies) {
  auto config = Bsr::configFactory("bsr");
  auto copyOfConfig = Bsr::configFactory("bsr");
  auto flow = Zet::make<Zet::NboAttrLog::FlowOut>(8, mirror.tape);
  flow->rootIs<Bsr::Config>(config);
  mirror.demuxer->copyIs(8, copyOfConfig);
  config->holdTimeIs(200);
  status->bsTimeoutIs(9);
  mirror.tape->bytes.clear();
  flow->flush();
  mirror.out->flush();
  mirror.demuxer->bytes(mirror.tape->bytes);
  EXPECT_EQ(copyOfConfig->holdTime(), 200u);
  EXPECT_EQ(copy.bsTimeout(), 9u);
}

}  // namespace
}  // namespace test
