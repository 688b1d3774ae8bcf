#include "runtime/Notifiee.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/Interface.h"
#include "runtime/Exceptions.h"
#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Interface::AllIntfStatusDir;
using Interface::IntfStatus;
using Zet::Ptr;

/// Writes its letter when it hears of a changed MTU, and then does what the test gave it.
class Watch : public IntfStatus::NotifieeConst {
 public:
  Watch(char name, std::string* heard) : name_(name), heard_(heard) {}
  void onMtu() override {
    *heard_ += name_;
    if (action) action();
  }
  void onNotificationException(Zet::AttributeId attribute) override {
    rejected.push_back(attribute);
    if (onRejected) onRejected();
  }
  void onZeroReferences() override {
    *heard_ += name_;
    *heard_ += '!';
    if (action) action();
  }

  std::function<void()> action;
  std::function<void()> onRejected;
  std::vector<Zet::AttributeId> rejected;

 private:
  char name_;
  std::string* heard_;
};

class Notification : public ModelTest {
 protected:
  Ptr<Watch> watch(char name) {
    Ptr<Watch> made = Zet::make<Watch>(name, &heard);
    made->notifierIs(intf);
    return made;
  }
  /// What is heard when the MTU changes.
  std::string change() {
    heard.clear();
    intf->mtuIs(intf->mtu() + 1);
    return heard;
  }

  std::string heard;
  Ptr<IntfStatus> intf = Interface::intfStatusFactory(test::intf("eth0"));
};

// Attachment ------------------------------------------------------------------------------------------

TEST_F(Notification, HearsBeforeTheSetterReturnsInOrderOfAttachment) {
  auto a = watch('a'), b = watch('b'), c = watch('c');
  EXPECT_EQ(change(), "abc");
}

TEST_F(Notification, AttachingAgainIsNoChange) {
  auto a = watch('a'), b = watch('b');
  a->notifierIs(intf);
  EXPECT_EQ(change(), "ab");
}

TEST_F(Notification, AttachingDetachesFromTheFormerNotifier) {
  auto a = watch('a');
  Ptr<IntfStatus> other = Interface::intfStatusFactory(test::intf("eth1"));
  a->notifierIs(other);
  EXPECT_EQ(change(), "");
  EXPECT_EQ(a->notifier(), other);
  EXPECT_TRUE(intf->zetNotifiees().empty());
  other->mtuIs(9000);
  EXPECT_EQ(heard, "a");
  a->notifierIs(nullptr);
  other->mtuIs(9001);
  EXPECT_EQ(heard, "a");
  EXPECT_FALSE(a->notifier());
  EXPECT_FALSE(a->isRegisteredNotifiee());
}

TEST_F(Notification, ANotifieeThatGoesLeavesTheList) {
  auto a = watch('a'), b = watch('b');
  a = nullptr;
  EXPECT_EQ(intf->zetNotifiees().size(), 1u);
  EXPECT_EQ(change(), "b");
}

TEST_F(Notification, IsInTheListOnlyWhileItIsRegistered) {
  auto a = watch('a'), b = watch('b');
  EXPECT_TRUE(a->isRegisteredNotifiee());
  a->isRegisteredNotifieeIs(false);
  EXPECT_FALSE(a->isRegisteredNotifiee());
  EXPECT_EQ(a->notifier(), intf);
  EXPECT_EQ(change(), "b");
  a->isRegisteredNotifieeIs(false);
  a->isRegisteredNotifieeIs(true);
  a->isRegisteredNotifieeIs(true);
  EXPECT_EQ(change(), "ba");
}

TEST_F(Notification, ADetachedNotifieeCannotBeRegistered) {
  Ptr<Watch> a = Zet::make<Watch>('a', &heard);
  a->isRegisteredNotifieeIs(true);
  EXPECT_FALSE(a->isRegisteredNotifiee());
}

TEST_F(Notification, AnUnregisteredNotifieeCanBeDetached) {
  auto a = watch('a');
  a->isRegisteredNotifieeIs(false);
  a->notifierIs(nullptr);
  EXPECT_FALSE(a->notifier());
  EXPECT_EQ(intf->references(), 1u);
}

// References ------------------------------------------------------------------------------------------

TEST_F(Notification, ANotifieeCountsItsNotifierAndNotTheOtherWay) {
  auto a = watch('a');
  EXPECT_EQ(intf->references(), 2u);
  EXPECT_EQ(a->references(), 1u);
  a->notifierIs(nullptr);
  EXPECT_EQ(intf->references(), 1u);
}

TEST_F(Notification, AWeakReferenceDoesNotCount) {
  auto a = watch('a');
  a->isWeakReferenceIs(true);
  EXPECT_TRUE(a->isWeakReference());
  EXPECT_EQ(intf->references(), 1u);
  a->isWeakReferenceIs(true);
  EXPECT_EQ(intf->references(), 1u);
  EXPECT_EQ(change(), "a");
  a->isWeakReferenceIs(false);
  EXPECT_EQ(intf->references(), 2u);
}

TEST_F(Notification, AReferenceMadeWeakBeforeAttachmentIsWeakFromTheFirst) {
  Ptr<Watch> a = Zet::make<Watch>('a', &heard);
  a->isWeakReferenceIs(true);
  a->notifierIs(intf);
  EXPECT_EQ(intf->references(), 1u);
  a->notifierIs(nullptr);
  EXPECT_EQ(intf->references(), 1u);
}

TEST_F(Notification, ANotifieeKeepsItsNotifierAlive) {
  auto a = watch('a');
  intf = nullptr;
  ASSERT_TRUE(a->notifier());
  EXPECT_EQ(a->notifier()->mtu(), 1500u);
}

TEST_F(Notification, WeakNotifieesHearOfTheEndAndAreDetachedByIt) {
  auto a = watch('a'), b = watch('b');
  a->isWeakReferenceIs(true);
  b->isWeakReferenceIs(true);
  Zet::U32 mtu = 0;
  b->action = [&] { mtu = b->notifier()->mtu(); };
  heard.clear();
  intf = nullptr;
  EXPECT_EQ(heard, "a!b!");
  EXPECT_EQ(mtu, 1500u) << "the notifier could not be read";
  EXPECT_FALSE(a->notifier());
  EXPECT_FALSE(b->isRegisteredNotifiee());
}

TEST_F(Notification, MakingTheLastReferenceWeakReleasesTheNotifier) {
  auto a = watch('a');
  intf = nullptr;
  a->isWeakReferenceIs(true);
  EXPECT_EQ(heard, "a!");
  EXPECT_FALSE(a->notifier());
}

TEST_F(Notification, OneDetachedDuringTheEndDoesNotHearOfIt) {
  auto a = watch('a'), b = watch('b');
  a->isWeakReferenceIs(true);
  b->isWeakReferenceIs(true);
  a->action = [&] { b->notifierIs(nullptr); };
  intf = nullptr;
  EXPECT_EQ(heard, "a!");
}

TEST_F(Notification, AnExceptionDuringTheEndDoesNotKeepTheNextFromHearing) {
  expectedExceptions = 1;
  auto a = watch('a'), b = watch('b');
  a->isWeakReferenceIs(true);
  b->isWeakReferenceIs(true);
  a->action = [] { Zet::throwInternalException("at the end"); };
  intf = nullptr;
  EXPECT_EQ(heard, "a!b!");
  EXPECT_EQ(a->rejected, std::vector<Zet::AttributeId>{Zet::allAttributes});
}

// Changes during a walk -------------------------------------------------------------------------------

TEST_F(Notification, OneDroppedByAnEarlierOneIsNotCalled) {
  auto a = watch('a'), b = watch('b'), c = watch('c');
  a->action = [&] { b = nullptr; };
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notification, OneDeregisteredByAnEarlierOneIsNotCalledThoughItLives) {
  auto a = watch('a'), b = watch('b'), c = watch('c');
  a->action = [&] { b->isRegisteredNotifieeIs(false); };
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notification, OneDetachedByAnEarlierOneIsNotCalledThoughItLives) {
  auto a = watch('a'), b = watch('b'), c = watch('c');
  a->action = [&] { b->notifierIs(nullptr); };
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notification, OneAttachedElsewhereByAnEarlierOneIsNotCalled) {
  Ptr<IntfStatus> other = Interface::intfStatusFactory(test::intf("eth1"));
  auto a = watch('a'), b = watch('b'), c = watch('c');
  a->action = [&] { b->notifierIs(other); };
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notification, OneAddedDuringTheWalkIsNotCalled) {
  auto a = watch('a');
  Ptr<Watch> late;
  a->action = [&] {
    if (!late) late = watch('z');
  };
  EXPECT_EQ(change(), "a");
  EXPECT_EQ(change(), "az");
}

TEST_F(Notification, OneThatDropsItselfFinishesItsCall) {
  auto a = watch('a'), b = watch('b');
  a->action = [&] {
    a = nullptr;
    heard += '.';
  };
  EXPECT_EQ(change(), "a.b");
  EXPECT_EQ(change(), "b");
}

TEST_F(Notification, AChangeDuringTheWalkIsHeardByAllBeforeTheWalkGoesOn) {
  auto a = watch('a'), b = watch('b');
  a->action = [&] {
    if (intf->mtu() < 1505) intf->mtuIs(9000);
  };
  EXPECT_EQ(change(), "aabb");
}

// Exceptions ------------------------------------------------------------------------------------------

TEST_F(Notification, AnExceptionIsReportedToItsNotifieeAndTheNextOneIsCalled) {
  expectedExceptions = 1;
  auto a = watch('a'), b = watch('b'), c = watch('c');
  b->action = [] { Zet::throwRangeException("too wide"); };
  EXPECT_EQ(change(), "abc");
  EXPECT_TRUE(a->rejected.empty());
  EXPECT_EQ(b->rejected, std::vector<Zet::AttributeId>{IntfStatus::attrMtu});
  EXPECT_TRUE(c->rejected.empty());
  EXPECT_EQ(context.traced("Exception from the handler of attribute 1: too wide"), 1);
  EXPECT_EQ(context.tracedAs("Exception from the handler of attribute 1: too wide"), "Zet 1 Notifiee");
}

TEST_F(Notification, AnExceptionOfAnyTypeIsCaught) {
  expectedExceptions = 2;
  auto a = watch('a'), b = watch('b'), c = watch('c');
  a->action = [] { throw std::runtime_error("the host's own"); };
  b->action = [] { throw 7; };
  EXPECT_EQ(change(), "abc");
  EXPECT_EQ(context.traced("Exception from the handler of attribute 1: the host's own"), 1);
  EXPECT_EQ(context.traced("Exception from the handler of attribute 1: an exception of unknown type"), 1);
}

TEST_F(Notification, AnExceptionFromItsReportIsCaughtAndCountedToo) {
  expectedExceptions = 2;
  auto a = watch('a'), b = watch('b');
  a->action = [] { Zet::throwRangeException("first"); };
  a->onRejected = [] { Zet::throwRangeException("second"); };
  EXPECT_EQ(change(), "ab");
  EXPECT_EQ(context.traced("Exception from the onNotificationException of attribute 1: second"), 1);
}

TEST_F(Notification, EachCallIsInAnExpectScopeOfItsAttribute) {
  EXPECT_EQ(Zet::Expect::innermost(), nullptr);
  auto a = watch('a');
  Zet::AttributeId outer = Zet::noAttribute, inner = Zet::noAttribute;
  a->action = [&] {
    outer = Zet::Expect::innermost()->id();
    Zet::Expect expected(42);
    inner = Zet::Expect::innermost()->id();
    EXPECT_EQ(Zet::Expect::innermost()->outer()->id(), outer);
  };
  change();
  EXPECT_EQ(outer, IntfStatus::attrMtu);
  EXPECT_EQ(inner, 42);
  EXPECT_EQ(Zet::Expect::innermost(), nullptr);
}

TEST_F(Notification, TheExpectScopeIsLeftByAnExceptionToo) {
  expectedExceptions = 1;
  auto a = watch('a');
  a->action = [] { Zet::throwRangeException("out"); };
  change();
  EXPECT_EQ(Zet::Expect::innermost(), nullptr);
}

// Kinds of notifiees ----------------------------------------------------------------------------------

TEST_F(Notification, AWatcherOfAWritableObjectMayWriteIt) {
  class Doubles : public IntfStatus::Notifiee {
   public:
    void onMtu() override {
      if (notifier()->mtu() < 1000) notifier()->mtuIs(notifier()->mtu() * 2);
    }
  };
  Ptr<Doubles> doubles = Zet::make<Doubles>();
  doubles->notifierIs(intf);
  static_assert(std::is_same_v<decltype(doubles->notifier()), Ptr<IntfStatus>>);
  static_assert(std::is_base_of_v<IntfStatus::NotifieeConst, IntfStatus::Notifiee>);
  intf->mtuIs(300);
  EXPECT_EQ(intf->mtu(), 1200u);
}

TEST_F(Notification, AWatcherOfAConstantObjectReadsIt) {
  auto a = watch('a');
  static_assert(std::is_same_v<decltype(a->notifier()), Ptr<IntfStatus const>>);
  Ptr<IntfStatus const> constant = intf;
  a->notifierIs(constant);
  EXPECT_EQ(a->notifier()->mtu(), 1500u);
}

TEST_F(Notification, CallsAreEmptyByDefault) {
  Ptr<IntfStatus::NotifieeConst> deaf = Zet::make<IntfStatus::Notifiee>();
  deaf->notifierIs(intf);
  EXPECT_EQ(change(), "");
  Ptr<AllIntfStatusDir> dir = Interface::allIntfStatusDirFactory("all");
  Ptr<AllIntfStatusDir::NotifieeConst> keyless = Zet::make<AllIntfStatusDir::Notifiee>();
  keyless->notifierIs(dir);
  dir->intfStatusIs(test::intf("eth0"));
  keyless->onIntfStatusZetImmediate();
  EXPECT_EQ(dir->intfStatusCount(), 1u);
}

}  // namespace
}  // namespace test
