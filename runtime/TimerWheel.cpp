#include "runtime/TimerWheel.h"

#include "runtime/Assert.h"

namespace Kiv {

/// Children of one heap entry: a wide node keeps the heap shallow and its children in two cache lines.
static constexpr U32 arity = 4;

void TimerWheel::NotifieeConst::notifierIs(Zet::Ptr<TimerWheel const> const& wheel) {
  if (wheel == wheel_) return;
  if (wheel_) wheel_->drop(*this);
  wheel_ = wheel;
  timeMin_ = wheel_ ? never : timeMin_;
}

TimerWheel::NotifieeConst::~NotifieeConst() {
  if (wheel_) wheel_->drop(*this);
}

void TimerWheel::NotifieeConst::timeMinIs(double seconds) {
  bool finite = seconds <= std::numeric_limits<double>::max();
  timeMin_ = finite ? seconds : never;
  if (!wheel_) return;
  if (finite) {
    wheel_->arm(*this, seconds);
  } else {
    wheel_->stop(*this);
  }
}

void TimerWheel::arm(NotifieeConst& timer, double seconds) const {
  if (!timer.armed_) ++armed_;
  timer.armed_ = true;
  timer.order_ = ++armings_;
  Entry entry{seconds, timer.order_, &timer};
  if (timer.place_ == NotifieeConst::outside) {
    heap_.emplace_back();
    siftUp(static_cast<U32>(heap_.size() - 1), entry);
  } else if (seconds < heap_[timer.place_].time) {
    siftUp(timer.place_, entry);
  }
}

void TimerWheel::stop(NotifieeConst& timer) const {
  if (timer.armed_) --armed_;
  timer.armed_ = false;
}

void TimerWheel::drop(NotifieeConst& timer) const {
  stop(timer);
  if (timer.place_ != NotifieeConst::outside) removeAt(timer.place_);
}

double TimerWheel::nextExpiry() const { return refreshTop() ? heap_.front().time : never; }

U32 TimerWheel::advance(double now) {
  ZET_ASSERT(!advancing_, "!advancing_");
  advancing_ = true;
  U64 const last = armings_;
  U32 fired = 0;
  std::vector<Zet::Ptr<NotifieeConst>> later;
  while (refreshTop() && heap_.front().time <= now) {
    Zet::Ptr<NotifieeConst> timer(heap_.front().timer);
    removeAt(0);
    if (timer->order_ > last) {
      later.push_back(timer);
      continue;
    }
    fire(*timer);
    ++fired;
  }
  for (auto const& timer : later) putBack(*timer);
  advancing_ = false;
  return fired;
}

void TimerWheel::fire(NotifieeConst& timer) {
  stop(timer);
  Zet::deliver(timer, 0, [&] { timer.onTime(); });
}

/// Returns a timer that was armed during the walk to the heap, unless it was stopped or dropped since.
void TimerWheel::putBack(NotifieeConst& timer) {
  if (!timer.armed_ || timer.wheel_ != this || timer.place_ != NotifieeConst::outside) return;
  heap_.emplace_back();
  siftUp(static_cast<U32>(heap_.size() - 1), {timer.timeMin_, timer.order_, &timer});
}

/// Brings the top of the heap up to date; false if no timer is armed.
bool TimerWheel::refreshTop() const {
  while (!heap_.empty()) {
    NotifieeConst& timer = *heap_.front().timer;
    if (!timer.armed_) {
      removeAt(0);
    } else if (heap_.front().order != timer.order_) {
      siftDown(0, {timer.timeMin_, timer.order_, &timer});
    } else {
      return true;
    }
  }
  return false;
}

void TimerWheel::place(U32 index, Entry const& entry) const {
  heap_[index] = entry;
  entry.timer->place_ = index;
}

void TimerWheel::siftUp(U32 index, Entry entry) const {
  while (index > 0) {
    U32 parent = (index - 1) / arity;
    if (!entry.before(heap_[parent])) break;
    place(index, heap_[parent]);
    index = parent;
  }
  place(index, entry);
}

void TimerWheel::siftDown(U32 index, Entry entry) const {
  U32 const size = static_cast<U32>(heap_.size());
  while (true) {
    U32 first = index * arity + 1;
    if (first >= size) break;
    U32 least = first;
    for (U32 child = first + 1; child < size && child < first + arity; ++child) {
      if (heap_[child].before(heap_[least])) least = child;
    }
    if (!heap_[least].before(entry)) break;
    place(index, heap_[least]);
    index = least;
  }
  place(index, entry);
}

void TimerWheel::removeAt(U32 index) const {
  heap_[index].timer->place_ = NotifieeConst::outside;
  Entry last = heap_.back();
  heap_.pop_back();
  if (index == heap_.size()) return;
  siftUp(index, last);
  if (last.timer->place_ == index) siftDown(index, last);
}

}  // namespace Kiv
