#include <string>
#include <vector>

#include "model/Counters.h"
#include "model/IO.h"
#include "model/Status.h"
#include "protocol/Fragments.h"
#include "tests/support/Engine.h"
#include "tests/support/RangeError.h"

/// Each kind of accessor that a declaration makes, on classes of the model. What Status alone notifies has
/// a test of its own.
namespace test {
namespace {

using Bsr::PimBsrCounters;
using Routing::Pim::IO::MessageInfo;
using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using testing_support::rangeError;
using Zet::Ptr;
using Zet::U32;

template <class T>
concept NameIsWritten = requires(T& object) {
  object.nameIs("other");
};
template <class T>
concept UnknownPriorityIsWritten = requires(T& object) {
  object.priorityUnknownIs(1);
};

Ptr<BootstrapMessage> message() { return test::make(Bsm()); }

class Accessor : public ModelTest {
 protected:
  Ptr<Bsr::Status> status = Bsr::statusFactory("bsr");
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
};

TEST_F(Accessor, AConstructorAttributeIsReadAlone) {
  EXPECT_EQ(status->name(), "bsr");
  static_assert(!NameIsWritten<Bsr::Status>);
}

TEST_F(Accessor, AConstantIsReadWithoutAnObject) {
  static_assert(Bsr::ElectedBsrStatus::priorityUnknown() == 256);
  static_assert(!UnknownPriorityIsWritten<Bsr::ElectedBsrStatus>);
}

TEST_F(Accessor, AKeyedEntityReportsItsKeyAndIsNamedByIt) {
  auto candidate = status->cbsrIs(zone);
  EXPECT_EQ(candidate->fwkKey(), zone);
  EXPECT_EQ(candidate->zone(), zone);
  EXPECT_EQ(candidate->name(), "239.0.0.0/8");
}

TEST_F(Accessor, AnEntityCarriesIsNondestructing) {
  EXPECT_FALSE(status->isNondestructing());
  status->isNondestructingIs(true);
  EXPECT_TRUE(status->isNondestructing());
}

// Plain values, counters, pointers --------------------------------------------------------------------

TEST_F(Accessor, ACounterAddsAndNotifiesEachRise) {
  class Watch : public PimBsrCounters::NotifieeConst {
   public:
    void onRx() override { heard.push_back(notifier()->rx()); }
    std::vector<U32> heard;
  };
  Ptr<PimBsrCounters> counters = Bsr::pimBsrCountersFactory("c");
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(counters);
  counters->rxInc(1);
  counters->rxInc(0);
  counters->rxInc(4);
  counters->rxIs(5);
  counters->rxIs(2);
  EXPECT_EQ(watch->heard, (std::vector<U32>{1, 5, 2}));
}

TEST_F(Accessor, APointerIsSetByValueAndNotifiesAnotherObjectOnly) {
  class Watch : public MessageInfo::NotifieeConst {
   public:
    void onMessage() override { ++heard; }
    int heard = 0;
  };
  Ptr<MessageInfo> info = Routing::Pim::IO::messageInfoFactory();
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(info);
  Ptr<BootstrapMessage> first = message();
  EXPECT_FALSE(info->message());
  info->messageDel();
  EXPECT_EQ(watch->heard, 0);
  info->messageIs(first);
  info->messageIs(first);
  EXPECT_EQ(watch->heard, 1);
  EXPECT_EQ(first->references(), 2u);
  info->messageIs(message());
  EXPECT_EQ(watch->heard, 2);
  EXPECT_EQ(first->references(), 1u);
  info->messageDel();
  EXPECT_EQ(watch->heard, 3);
  EXPECT_FALSE(info->message());
}

// Owned objects ---------------------------------------------------------------------------------------

TEST_F(Accessor, ASingleObjectIsMadeOnceOwnedAndNotified) {
  class Watch : public Bsr::Status::NotifieeConst {
   public:
    void onCounters() override { heard += notifier()->counters() ? "made " : "gone "; }
    std::string heard;
  };
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(status);
  status->countersDel();
  EXPECT_EQ(watch->heard, "");
  auto counters = status->countersIs("a");
  EXPECT_EQ(status->countersIs("a"), counters);
  EXPECT_EQ(counters->references(), 2u);
  EXPECT_EQ(watch->heard, "made ");
  status->countersDel();
  EXPECT_EQ(watch->heard, "made gone ");
  EXPECT_EQ(counters->references(), 1u);
  EXPECT_EQ(status->newCounters("b")->name(), "b");
  EXPECT_EQ(watch->heard, "made gone ");
}

TEST_F(Accessor, AMemberIsMadeByItsKeyOnceAndNewNotifiesNone) {
  class Watch : public Bsr::Status::NotifieeConst {
   public:
    void onCbsr(Lanet::IpGenPrefix const& key) override { heard.push_back(key); }
    std::vector<Lanet::IpGenPrefix> heard;
  };
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(status);
  auto made = status->newCbsr(zone);
  EXPECT_TRUE(watch->heard.empty());
  EXPECT_EQ(status->cbsr(zone), made);
  EXPECT_EQ(status->cbsrIs(zone), made);
  EXPECT_TRUE(watch->heard.empty());
  EXPECT_EQ(status->cbsrCount(), 1u);
  status->cbsrDel(zone);
  status->cbsrDel(zone);
  EXPECT_EQ(watch->heard.size(), 1u);
}

TEST_F(Accessor, AMemberNamedByItsKeyIsConstructedWithThatName) {
  EXPECT_EQ(status->bsBorderIs(zone)->name(), "239.0.0.0/8");
}

TEST_F(Accessor, TheEndOfAnEntityRemovesWhatItOwnsAndAWeakWatcherHearsOfEach) {
  class Watch : public Routing::Pim::RpCandidateSet::NotifieeConst {
   public:
    void onRp(Lanet::IpGenAddr const& key) override { heard += notifier()->rp(key) ? "made " : "gone "; }
    std::string heard;
  };
  auto set = Routing::Pim::rpCandidateSetFactory(zone);
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->isWeakReferenceIs(true);
  watch->notifierIs(set);
  auto rp = set->rpIs(addr("10.0.0.1"));
  set->rpIs(addr("10.0.0.2"));
  set = nullptr;
  EXPECT_EQ(watch->heard, "made made gone gone ");
  EXPECT_EQ(rp->references(), 1u);
  EXPECT_FALSE(watch->notifier());
}

// Collections of values and pointers ------------------------------------------------------------------

TEST_F(Accessor, AValueCollectionIsWalkedInTheOrderOfItsKeysFromTheStartOrFromAKey) {
  std::vector<Lanet::IpGenPrefix> keys{prefix("10.0.0.0/8"), prefix("11.0.0.0/8"), prefix("12.0.0.0/8")};
  for (auto const& key : keys) status->crpPermitIs(key, true);
  std::vector<Lanet::IpGenPrefix> walked;
  for (auto at = status->crpPermitIterator(); at; ++at) walked.push_back(at.key());
  ASSERT_EQ(walked.size(), 3u);
  for (std::size_t i = 1; i < 3; ++i) EXPECT_LT(rhash(walked[i - 1]), rhash(walked[i]));
  EXPECT_EQ(status->crpPermitIterator(walked[1]).key(), walked[1]);
}

TEST_F(Accessor, NewOfAValueLinksItAndNotifiesNone) {
  class Watch : public Bsr::Status::NotifieeConst {
   public:
    void onCrpPermit(Lanet::IpGenPrefix const&) override { ++heard; }
    int heard = 0;
  };
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(status);
  status->newCrpPermit(zone, true);
  EXPECT_EQ(watch->heard, 0);
  EXPECT_TRUE(status->crpPermit(zone));
  EXPECT_TRUE(status->crpPermitDel(zone));
  EXPECT_EQ(watch->heard, 1);
}

TEST_F(Accessor, APointerCollectionHoldsObjectsByKeyAndNullRemoves) {
  Engine engine;
  Ptr<BootstrapMessage> first = message();
  EXPECT_FALSE(engine.gate->lastBsm(zone));
  engine.gate->lastBsmIs(zone, first);
  EXPECT_EQ(engine.gate->lastBsm(zone), first);
  EXPECT_EQ(first->references(), 2u);
  EXPECT_EQ(engine.gate->lastBsmCount(), 1u);
  engine.gate->lastBsmIs(zone, nullptr);
  EXPECT_EQ(engine.gate->lastBsmCount(), 0u);
  EXPECT_EQ(first->references(), 1u);
  engine.gate->lastBsmIs(zone, first);
  EXPECT_EQ(engine.gate->lastBsmDel(zone), first);
  EXPECT_FALSE(engine.gate->lastBsmDel(zone));
}

TEST_F(Accessor, AQueueKeepsTheOrderOfEnqueuing) {
  auto data = Zet::make<BootstrapOptionalData>();
  EXPECT_FALSE(data->groupDataFirst());
  for (char const* text : {"239.0.0.0/8", "224.0.0.0/4", "232.0.0.0/8"}) {
    data->groupDataEnq(Zet::make<BootstrapGroupData>(prefix(text)));
  }
  std::string walked;
  for (auto at = data->groupDataIterator(); at; ++at) {
    walked += std::string(at->prefix().stringValue().view()) + " ";
  }
  EXPECT_EQ(walked, "239.0.0.0/8 224.0.0.0/4 232.0.0.0/8 ");
  EXPECT_EQ(data->groupDataCount(), 3u);
  EXPECT_EQ(data->groupDataFirst()->prefix(), prefix("239.0.0.0/8"));
}

TEST_F(Accessor, AnArrayIsIndexedFromZeroAndNullWhereItIsEmpty) {
  auto fragments = Zet::make<Bsr::PimBsrTxFragments>(1500u);
  auto third = Zet::make<Bsr::PimBsrTxFragment>();
  fragments->fragmentIs(2, third);
  EXPECT_EQ(fragments->fragmentCount(), 3u);
  EXPECT_FALSE(fragments->fragment(0));
  EXPECT_EQ(fragments->fragment(2), third);
  EXPECT_FALSE(fragments->fragment(3));
  fragments->fragmentDelAll();
  EXPECT_EQ(fragments->fragmentCount(), 0u);
}

// Constructor arguments -------------------------------------------------------------------------------

TEST_F(Accessor, ANullConstructorArgumentIsRejected) {
  auto wheel = Zet::make<Kiv::TimerWheel>();
  EXPECT_EQ(rangeError([&] { Bsr::bsrNonCandidateSmFactory(zone, nullptr, wheel, wheel, nullptr); }),
            "null ValidPtr");
}

TEST_F(Accessor, AMemberMadeWithAnotherArgumentIsRejected) {
  Engine engine;
  auto other = Zet::make<Kiv::TimerWheel>();
  auto made = engine.root->nonCandidateSmIs(zone, engine.status, engine.wheel, engine.wheel);
  EXPECT_EQ(engine.root->nonCandidateSmIs(zone, engine.status, engine.wheel, engine.wheel), made);
  try {
    engine.root->nonCandidateSmIs(zone, engine.status, other, engine.wheel);
    FAIL() << "no exception";
  } catch (Zet::NameInUseException const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Reinstantiating the pointer interface where constructor parameter attribute _bsTimer has a "
              "different value of Entity('Zet::PtrInterface', '')");
  }
  EXPECT_EQ(engine.root->nonCandidateSm(zone), made);
}

}  // namespace
}  // namespace test
