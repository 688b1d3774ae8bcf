#include "runtime/Activity.h"

#include <functional>
#include <string>

#include "model/Status.h"
#include "runtime/TimerWheel.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Routing::Pim::Bsr::Status;
using Zet::Ptr;

class Watch : public Status::NotifieeConst {
 public:
  void onAf() override {
    heard += "af ";
    if (action) action();
  }
  void onBsTimeout() override { heard += "bsTimeout "; }
  void onSzTimeout() override { heard += "szTimeout "; }
  void onCbsr(Lanet::IpGenPrefix const&) override { heard += "cbsr(key) "; }
  void onCbsrZetImmediate() override { heard += "cbsr "; }
  void onCounters() override { heard += "counters "; }
  void onNotificationException(Zet::AttributeId id) override {
    heard += "rejected" + std::to_string(id) + " ";
  }

  std::string heard;
  std::function<void()> action;
};

class Activity : public ModelTest {
 protected:
  Activity() : sm(Zet::zetActivitySmFor(config)) { watch->notifierIs(status); }
  /// Hands on the notification of an attribute, as its onFoo does.
  void handOn(Zet::Reactor& reactor, Zet::AttributeId attribute) {
    Zet::Expect delivery(attribute);
    reactor.redispatch(sm.ptr());
  }
  /// What one round of service calls.
  std::string served() {
    watch->heard.clear();
    sm->serve(config.ptr());
    return watch->heard;
  }

  Ptr<Zet::ActivityConfig> config = Zet::make<Zet::ActivityConfig>();
  Ptr<Zet::ActivitySm> sm;
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<Watch> watch = Zet::make<Watch>();
};

TEST_F(Activity, EachConfigurationHasOneMachine) {
  EXPECT_EQ(Zet::zetActivitySmFor(config), sm);
  EXPECT_NE(Zet::zetActivitySmFor(Zet::ActivityConfig::standard()), sm);
  EXPECT_EQ(Zet::ActivityConfig::standard(), Zet::ActivityConfig::standard());
}

TEST_F(Activity, NothingIsPendingAtFirst) {
  EXPECT_EQ(watch->pendingAttribute(), Zet::noAttribute);
  watch->handleNotification(config.ptr());
  EXPECT_EQ(watch->heard, "");
}

TEST_F(Activity, ARedispatchedAttributeWaitsUntilItIsServed) {
  handOn(*watch, Status::attrSzTimeout);
  EXPECT_EQ(watch->heard, "");
  EXPECT_EQ(watch->pendingAttribute(), Status::attrSzTimeout);
  EXPECT_EQ(served(), "szTimeout ");
  EXPECT_EQ(watch->pendingAttribute(), Zet::noAttribute);
  EXPECT_EQ(served(), "");
}

TEST_F(Activity, AHandlerHandsOnTheNotificationThatItServes) {
  watch->action = [&] {
    if (watch->pendingAttribute() == Zet::noAttribute && status->bsTimeout() == 0) {
      status->bsTimeoutIs(1);
      watch->redispatch(sm.ptr());
    }
  };
  status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_EQ(watch->heard, "af bsTimeout ");
  EXPECT_EQ(watch->pendingAttribute(), Status::attrAf);
  EXPECT_EQ(served(), "af ");
}

TEST_F(Activity, OutsideOfANotificationAllAttributesAreHandedOn) {
  watch->redispatch(sm.ptr());
  EXPECT_EQ(served(), "af bsTimeout szTimeout cbsr counters ");
}

TEST_F(Activity, HandleNotificationTakesTheNumberAndClearsItBeforeItCalls) {
  handOn(*watch, Status::attrAf);
  Zet::AttributeId during = Status::attrAf;
  watch->action = [&] { during = watch->pendingAttribute(); };
  watch->handleNotification(config.ptr());
  EXPECT_EQ(watch->heard, "af ");
  EXPECT_EQ(during, Zet::noAttribute);
  watch->handleNotification(config.ptr());
  EXPECT_EQ(watch->heard, "af ");
}

TEST_F(Activity, ACollectionIsServedByItsKeylessForm) {
  handOn(*watch, Status::attrCbsr);
  EXPECT_EQ(served(), "cbsr ");
}

TEST_F(Activity, MinusOneMeansAllAttributes) {
  EXPECT_EQ(Zet::allAttributes, -1);
  handOn(*watch, Zet::allAttributes);
  EXPECT_EQ(served(), "af bsTimeout szTimeout cbsr counters ");
}

TEST_F(Activity, TwoAttributesThatWaitBecomeAll) {
  handOn(*watch, Status::attrAf);
  handOn(*watch, Status::attrAf);
  EXPECT_EQ(watch->pendingAttribute(), Status::attrAf);
  handOn(*watch, Status::attrCbsr);
  EXPECT_EQ(watch->pendingAttribute(), Zet::allAttributes);
  handOn(*watch, Status::attrCbsr);
  EXPECT_EQ(served(), "af bsTimeout szTimeout cbsr counters ");
}

TEST_F(Activity, AReactorIsServedOnceHoweverOftenItWasPutInLine) {
  handOn(*watch, Status::attrAf);
  handOn(*watch, Status::attrAf);
  EXPECT_EQ(sm->serve(config.ptr()), 1u);
  EXPECT_EQ(watch->heard, "af ");
}

TEST_F(Activity, ServesInOrderOfTheQueueAndNotWhatIsEnqueuedMeanwhile) {
  std::string order;
  Ptr<Watch> other = Zet::make<Watch>();
  other->action = [&] { order += "other "; };
  watch->action = [&] {
    order += "watch ";
    if (order.size() < 20) handOn(*watch, Status::attrAf);
  };
  handOn(*other, Status::attrAf);
  handOn(*watch, Status::attrAf);
  EXPECT_EQ(sm->serve(config.ptr()), 2u);
  EXPECT_EQ(order, "other watch ");
  EXPECT_EQ(sm->serve(config.ptr()), 1u);
  EXPECT_EQ(order, "other watch watch ");
}

TEST_F(Activity, HoldsAReactorThatWaits) {
  handOn(*watch, Status::attrAf);
  EXPECT_EQ(watch->references(), 2u);
  sm->serve(config.ptr());
  EXPECT_EQ(watch->references(), 1u);
}

TEST_F(Activity, AnExceptionIsReportedAsInASetterAndTheNextIsServed) {
  expectedExceptions = 1;
  Ptr<Watch> other = Zet::make<Watch>();
  watch->action = [] { Zet::throwRangeException("late"); };
  handOn(*watch, Status::attrAf);
  handOn(*other, Status::attrAf);
  EXPECT_EQ(served(), "af rejected1 ");
  EXPECT_EQ(other->heard, "af ");
}

TEST_F(Activity, ATimerIsServedByItsOnTime) {
  class Timer : public Kiv::TimerWheel::NotifieeConst {
   public:
    void onTime() override { ++calls; }
    int calls = 0;
  };
  Ptr<Timer> timer = Zet::make<Timer>();
  handOn(*timer, Kiv::TimerWheel::attrTime);
  sm->serve(config.ptr());
  handOn(*timer, Zet::allAttributes);
  sm->serve(config.ptr());
  EXPECT_EQ(timer->calls, 2);
  handOn(*timer, Kiv::TimerWheel::attrTime + 1);
  sm->serve(config.ptr());
  EXPECT_EQ(timer->calls, 2) << "it has no other attribute";
}

}  // namespace
}  // namespace test
