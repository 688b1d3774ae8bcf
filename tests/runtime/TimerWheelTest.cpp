#include "runtime/TimerWheel.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "runtime/Exceptions.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Kiv::never;
using Kiv::TimerWheel;
using Zet::Ptr;
using Zet::U32;

double const nan = std::nan("");
double const largest = std::numeric_limits<double>::max();

class Timer : public TimerWheel::NotifieeConst {
 public:
  Timer(char name, std::string* heard) : name_(name), heard_(heard) {}
  void onTime() override {
    *heard_ += name_;
    if (action) action();
  }
  void onNotificationException(Zet::AttributeId id) override { rejected = id; }
  std::function<void()> action;
  Zet::AttributeId rejected = Zet::noAttribute;

 private:
  char name_;
  std::string* heard_;
};

class Wheel : public ModelTest {
 protected:
  Ptr<Timer> timer(char name) {
    Ptr<Timer> made = Zet::make<Timer>(name, &heard);
    made->notifierIs(wheel);
    return made;
  }
  Ptr<Timer> timer(char name, double time) {
    Ptr<Timer> made = timer(name);
    made->timeMinIs(time);
    return made;
  }
  /// Which timers are called.
  std::string advance(double now) {
    heard.clear();
    wheel->advance(now);
    return heard;
  }

  std::string heard;
  Ptr<TimerWheel> wheel = Zet::make<TimerWheel>();
};

// Arming ----------------------------------------------------------------------------------------------

TEST_F(Wheel, HasNothingToDoAtFirst) {
  EXPECT_EQ(wheel->nextExpiry(), never);
  EXPECT_EQ(wheel->armed(), 0u);
  EXPECT_EQ(wheel->advance(1e12), 0u);
}

TEST_F(Wheel, ATimerIsStoppedUntilItIsArmed) {
  Ptr<Timer> detached = Zet::make<Timer>('d', &heard);
  EXPECT_EQ(detached->timeMin(), 0.0);
  auto a = timer('a');
  EXPECT_EQ(a->timeMin(), never);
  EXPECT_FALSE(a->isArmed());
  EXPECT_EQ(advance(1e12), "");
}

TEST_F(Wheel, FiresAtItsTimeOnceAndNotBefore) {
  auto a = timer('a', 10);
  EXPECT_TRUE(a->isArmed());
  EXPECT_EQ(wheel->nextExpiry(), 10);
  EXPECT_EQ(advance(9.999), "");
  EXPECT_EQ(advance(10), "a");
  EXPECT_FALSE(a->isArmed());
  EXPECT_EQ(advance(1000), "");
}

TEST_F(Wheel, KeepsTheTimeOfAFiredTimer) {
  auto a = timer('a', 10);
  advance(25);
  EXPECT_EQ(a->timeMin(), 10);
  EXPECT_EQ(wheel->nextExpiry(), never);
}

TEST_F(Wheel, CallsInOrderOfTimeAndThenOfArming) {
  auto a = timer('a', 30), b = timer('b', 10), c = timer('c', 20), d = timer('d', 10), e = timer('e', 10);
  EXPECT_EQ(wheel->armed(), 5u);
  EXPECT_EQ(wheel->advance(30), 5u);
  EXPECT_EQ(heard, "bdeca");
}

TEST_F(Wheel, ASecondTimeReplacesTheFirst) {
  auto a = timer('a', 10);
  a->timeMinIs(20);
  EXPECT_EQ(a->timeMin(), 20);
  EXPECT_EQ(wheel->nextExpiry(), 20);
  EXPECT_EQ(advance(10), "");
  a->timeMinIs(15);
  EXPECT_EQ(wheel->nextExpiry(), 15);
  EXPECT_EQ(advance(15), "a");
  EXPECT_EQ(advance(20), "");
}

TEST_F(Wheel, ArmingAnewForTheSameTimeGoesAfterTheOthersOfThatTime) {
  auto a = timer('a', 10), b = timer('b', 10);
  a->timeMinIs(10);
  EXPECT_EQ(advance(10), "ba");
}

TEST_F(Wheel, ATimePastFiresAtTheNextAdvanceAndNotWithinTheCall) {
  auto a = timer('a', 10);
  advance(10);
  heard.clear();
  a->timeMinIs(3);
  EXPECT_EQ(heard, "");
  EXPECT_EQ(wheel->nextExpiry(), 3);
  EXPECT_EQ(advance(10), "a");
}

TEST_F(Wheel, TheTimeItHasArmsAFiredTimerToo) {
  auto a = timer('a', 10);
  EXPECT_EQ(advance(10), "a");
  a->timeMinIs(10);
  EXPECT_TRUE(a->isArmed());
  EXPECT_EQ(advance(10), "a");
}

TEST_F(Wheel, InfinityNanAndTooLargeStop) {
  struct Case {
    double time;
    bool stops;
  };
  for (Case c : {Case{never, true}, Case{nan, true}, Case{largest * 2, true}, Case{largest, false}}) {
    auto a = timer('a', 10);
    a->timeMinIs(c.time);
    EXPECT_EQ(a->isArmed(), !c.stops) << c.time;
    EXPECT_EQ(a->timeMin(), c.stops ? never : largest) << c.time;
    EXPECT_EQ(wheel->armed(), c.stops ? 0u : 1u) << c.time;
    EXPECT_EQ(wheel->nextExpiry(), c.stops ? never : largest) << c.time;
    EXPECT_EQ(advance(20), "") << c.time;
  }
}

TEST_F(Wheel, StoppingWhatIsStoppedIsNoChange) {
  auto a = timer('a');
  a->timeMinIs(never);
  a->timeMinIs(never);
  EXPECT_EQ(wheel->armed(), 0u);
}

TEST_F(Wheel, AStoppedTimerCanBeArmedEarlierAndLater) {
  for (double time : {5.0, 50.0}) {
    auto a = timer('a', 10);
    a->timeMinIs(never);
    a->timeMinIs(time);
    EXPECT_EQ(wheel->nextExpiry(), time);
    EXPECT_EQ(advance(time), "a");
  }
}

TEST_F(Wheel, ZeroAndWhatIsAboveTheLargestMeanNotSet) {
  EXPECT_FALSE(Kiv::isTimeSet(0.0));
  EXPECT_FALSE(Kiv::isTimeSet(never));
  EXPECT_FALSE(Kiv::isTimeSet(nan));
  EXPECT_TRUE(Kiv::isTimeSet(largest));
  EXPECT_TRUE(Kiv::isTimeSet(0.001));
}

// Attachment ------------------------------------------------------------------------------------------

TEST_F(Wheel, ADetachedTimerOnlyStoresItsTime) {
  Ptr<Timer> detached = Zet::make<Timer>('d', &heard);
  detached->timeMinIs(10);
  EXPECT_EQ(detached->timeMin(), 10);
  EXPECT_FALSE(detached->isArmed());
  detached->notifierIs(wheel);
  EXPECT_EQ(detached->timeMin(), never);
  EXPECT_EQ(advance(20), "");
}

TEST_F(Wheel, DetachingStopsAndAnotherWheelStartsAnew) {
  auto a = timer('a', 10), b = timer('b', 10);
  Ptr<TimerWheel> other = Zet::make<TimerWheel>();
  a->notifierIs(other);
  b->notifierIs(nullptr);
  EXPECT_FALSE(a->isArmed());
  EXPECT_EQ(wheel->armed(), 0u);
  EXPECT_EQ(advance(20), "");
  a->timeMinIs(30);
  EXPECT_EQ(other->nextExpiry(), 30);
  EXPECT_EQ(wheel->nextExpiry(), never);
}

TEST_F(Wheel, AttachingAgainToTheSameWheelKeepsTheTimerRunning) {
  auto a = timer('a', 10);
  a->notifierIs(wheel);
  EXPECT_EQ(advance(10), "a");
}

TEST_F(Wheel, ATimerThatGoesLeavesTheWheel) {
  auto a = timer('a', 10), b = timer('b', 20);
  a = nullptr;
  EXPECT_EQ(wheel->armed(), 1u);
  EXPECT_EQ(wheel->nextExpiry(), 20);
  EXPECT_EQ(advance(20), "b");
}

TEST_F(Wheel, ATimerKeepsItsWheelAlive) {
  auto a = timer('a', 10);
  wheel = nullptr;
  a->timeMinIs(20);
  EXPECT_EQ(a->notifier()->nextExpiry(), 20);
}

// Changes during an advance ---------------------------------------------------------------------------

TEST_F(Wheel, WhatIsArmedMeanwhileForATimeReachedWaitsForTheNextAdvance) {
  auto a = timer('a', 10), b = timer('b', 20);
  Ptr<Timer> late;
  a->action = [&] {
    late = timer('z', 5);
    a->timeMinIs(10);
    a->action = nullptr;
  };
  EXPECT_EQ(advance(20), "ab");
  EXPECT_EQ(wheel->armed(), 2u);
  EXPECT_EQ(wheel->nextExpiry(), 5);
  EXPECT_EQ(advance(20), "za");
}

TEST_F(Wheel, ATimerThatAlwaysArmsItselfForNowFiresOncePerAdvance) {
  auto a = timer('a', 10);
  a->action = [&] { a->timeMinIs(10); };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(advance(10), "a");
  EXPECT_EQ(wheel->nextExpiry(), 10);
}

TEST_F(Wheel, WhatIsArmedMeanwhileForLaterFiresThen) {
  auto a = timer('a', 10);
  a->action = [&] { a->timeMinIs(30); };
  EXPECT_EQ(advance(20), "a");
  EXPECT_EQ(wheel->nextExpiry(), 30);
}

TEST_F(Wheel, OneStoppedByAnEarlierOneIsNotCalled) {
  auto a = timer('a', 10), b = timer('b', 10), c = timer('c', 10);
  a->action = [&] { b->timeMinIs(never); };
  EXPECT_EQ(wheel->advance(10), 2u);
  EXPECT_EQ(heard, "ac");
}

TEST_F(Wheel, OneDestroyedByAnEarlierOneIsNotCalled) {
  auto a = timer('a', 10), b = timer('b', 10), c = timer('c', 10);
  a->action = [&] { b = nullptr; };
  EXPECT_EQ(advance(10), "ac");
}

TEST_F(Wheel, OneDetachedByAnEarlierOneIsNotCalledThoughItLives) {
  auto a = timer('a', 10), b = timer('b', 10);
  a->action = [&] { b->notifierIs(nullptr); };
  EXPECT_EQ(advance(10), "a");
}

TEST_F(Wheel, OneArmedAnewByAnEarlierOneWaitsForTheNextAdvance) {
  auto a = timer('a', 10), b = timer('b', 10), c = timer('c', 10);
  a->action = [&] { b->timeMinIs(10); };
  EXPECT_EQ(advance(10), "ac");
  EXPECT_EQ(advance(10), "b");
}

TEST_F(Wheel, OneArmedMeanwhileAndThenStoppedOrDestroyedStaysSilent) {
  auto a = timer('a', 10), b = timer('b', 11), c = timer('c', 12);
  Ptr<Timer> stopped, destroyed;
  a->action = [&] {
    stopped = timer('s', 1);
    destroyed = timer('d', 2);
  };
  c->action = [&] {
    stopped->timeMinIs(never);
    destroyed = nullptr;
  };
  EXPECT_EQ(advance(20), "abc");
  EXPECT_EQ(wheel->armed(), 0u);
  EXPECT_EQ(wheel->nextExpiry(), never);
}

TEST_F(Wheel, OneArmedMeanwhileTwiceFiresOnceAtTheLastTime) {
  auto a = timer('a', 10), b = timer('b', 11), c = timer('c', 12);
  a->action = [&] { a->timeMinIs(1); };
  b->action = [&] { a->timeMinIs(2); };
  c->action = [&] { a->timeMinIs(40); };
  EXPECT_EQ(advance(20), "abc");
  EXPECT_EQ(wheel->nextExpiry(), 40);
  EXPECT_EQ(wheel->armed(), 1u);
  a->action = nullptr;
  EXPECT_EQ(advance(40), "a");
}

TEST_F(Wheel, OneArmedMeanwhileAndThenMovedToAnotherWheelFiresThereAlone) {
  auto other = Zet::make<TimerWheel>();
  auto a = timer('a', 10), b = timer('b', 11);
  a->action = [&] { a->timeMinIs(1); };
  b->action = [&] {
    a->action = nullptr;
    a->notifierIs(other);
    a->timeMinIs(5);
  };
  EXPECT_EQ(advance(20), "ab");
  EXPECT_EQ(wheel->nextExpiry(), never);
  EXPECT_EQ(advance(20), "");
  EXPECT_EQ(other->advance(5), 1u);
  EXPECT_EQ(heard, "a");
}

TEST_F(Wheel, ATimerThatDestroysItselfFinishesItsCall) {
  auto a = timer('a', 10), b = timer('b', 10);
  a->action = [&] {
    a = nullptr;
    heard += '.';
  };
  EXPECT_EQ(advance(10), "a.b");
}

TEST_F(Wheel, WhatATimerThatDestroysItselfStopsAtItsEndIsNotCalled) {
  struct AtEnd {
    explicit AtEnd(std::function<void()> end) : run(std::move(end)) {}
    ~AtEnd() { run(); }
    std::function<void()> run;
  };
  auto a = timer('a', 10), b = timer('b', 10), c = timer('c', 10), d = timer('d', 10);
  auto end = std::make_shared<AtEnd>([&] {
    b->timeMinIs(never);
    c->timeMinIs(30);
  });
  a->action = [&a, end = std::move(end)] { a = nullptr; };
  EXPECT_EQ(advance(10), "ad");
  EXPECT_EQ(wheel->nextExpiry(), 30);
}

TEST_F(Wheel, AnExceptionIsReportedAndTheNextTimerIsCalled) {
  expectedExceptions = 1;
  auto a = timer('a', 10), b = timer('b', 10);
  a->action = [] { Zet::throwRangeException("too late"); };
  EXPECT_EQ(advance(10), "ab");
  EXPECT_EQ(a->rejected, TimerWheel::attrTime);
  EXPECT_EQ(b->rejected, Zet::noAttribute);
  EXPECT_EQ(context.tracedPrefix("Exception from the handler of attribute 0: too late"), 1);
  EXPECT_FALSE(a->isArmed());
}

using WheelDeathTest = Wheel;

TEST_F(WheelDeathTest, AnAdvanceWithinAnAdvanceIsABrokenInvariant) {
  auto a = timer('a', 10);
  a->action = [&] { wheel->advance(10); };
  EXPECT_DEATH(wheel->advance(10), "!advancing_");
}

// Against a plain list --------------------------------------------------------------------------------

/// The same timers kept in a list that is searched each time.
class Naive {
 public:
  explicit Naive(std::size_t count) : timers_(count) {}
  void arm(std::size_t i, double time) { timers_[i] = {time, ++armings_, time <= largest}; }
  double next() const {
    double least = never;
    for (Slot const& t : timers_) {
      if (t.armed) least = std::min(least, t.time);
    }
    return least;
  }
  /// The timers due at `now` that were armed before this call, in order; `fire` may arm and stop.
  template <class Fire>
  void advance(double now, Fire fire) {
    std::uint64_t const last = armings_;
    while (true) {
      Slot* due = nullptr;
      for (Slot& t : timers_) {
        if (!t.armed || t.time > now || t.order > last) continue;
        if (due == nullptr || std::pair(t.time, t.order) < std::pair(due->time, due->order)) due = &t;
      }
      if (due == nullptr) return;
      due->armed = false;
      fire(static_cast<std::size_t>(due - timers_.data()));
    }
  }

 private:
  struct Slot {
    double time = 0;
    std::uint64_t order = 0;
    bool armed = false;
  };
  std::vector<Slot> timers_;
  std::uint64_t armings_ = 0;
};

/// Random numbers that both sides draw alike, whichever asks first: what timer i does when it fires
/// for the nth time.
struct Script {
  struct Step {
    std::size_t timer;
    double time;
  };
  static Step after(std::size_t timer, int round, std::size_t count, double now) {
    std::mt19937 random(static_cast<unsigned>(timer * 7919 + static_cast<std::size_t>(round)));
    std::size_t other = random() % count;
    int kind = static_cast<int>(random() % 4);
    double delay = static_cast<double>(random() % 20);
    return {other, kind == 0 ? never : kind == 1 ? now - 5 : now + delay};
  }
};

/// How many timers there are, and over how many seconds their times spread. Many timers over a long time fill
/// every structure inside the wheel; few times make many ties.
struct Load {
  std::size_t count;
  unsigned spread;
};

class WheelAgainstNaive : public Wheel, public testing::WithParamInterface<Load> {
 protected:
  WheelAgainstNaive() {
    for (std::size_t i = 0; i < count; ++i) {
      timers.push_back(timer(static_cast<char>(i)));
      timers.back()->action = [this, i] {
        auto [other, time] = Script::after(i, round, count, now);
        timers[other]->timeMinIs(time);
      };
    }
  }
  void arm(std::size_t i, double time) {
    timers[i]->timeMinIs(time);
    naive.arm(i, time);
  }
  void advanceBoth() {
    std::string wanted;
    naive.advance(now, [&](std::size_t i) {
      wanted += static_cast<char>(i);
      auto [other, time] = Script::after(i, round, count, now);
      naive.arm(other, time);
    });
    ASSERT_EQ(advance(now), wanted) << "round " << round;
    ASSERT_EQ(wheel->nextExpiry(), naive.next()) << "round " << round;
  }

  std::size_t const count = GetParam().count;
  std::vector<Ptr<Timer>> timers;
  Naive naive{count};
  double now = 1000;
  int round = 0;
};

TEST_P(WheelAgainstNaive, RandomArmingsStopsAndAdvancesGiveTheSameCalls) {
  std::mt19937 random(4242);
  int fired = 0;
  for (; round < 1000; ++round) {
    for (U32 n = random() % 20; n > 0; --n) {
      double delay = static_cast<double>(random() % GetParam().spread) - 3;
      arm(random() % count, random() % 10 == 0 ? never : now + delay);
      ASSERT_EQ(wheel->nextExpiry(), naive.next());
    }
    now += static_cast<double>(random() % (GetParam().spread / 10));
    advanceBoth();
    if (HasFatalFailure()) return;
    fired += static_cast<int>(heard.size());
  }
  EXPECT_GT(fired, 500);
}

TEST_P(WheelAgainstNaive, TimersArmedEachBeforeTheLastAndThenMovedFireInOrder) {
  for (std::size_t i = 0; i < count; ++i) arm(i, now + 100.0 * static_cast<double>(count - i));
  for (std::size_t i = 0; i < count; i += 3) arm(i, now + 37.0 * static_cast<double>(count - i));
  for (std::size_t i = 1; i < count; i += 3) arm(i, now + 170.0 * static_cast<double>(count - i));
  for (std::size_t i = 2; i < count; i += 5) arm(i, never);
  while (naive.next() != never && round < 1000) {
    ++round;
    now = std::max(now, naive.next());
    advanceBoth();
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Loads, WheelAgainstNaive,
                         testing::Values(Load{5, 30}, Load{40, 30}, Load{40, 2000}, Load{250, 100},
                                         Load{250, 20000}));

}  // namespace
}  // namespace test
