#include "runtime/TimerWheel.h"

#include "runtime/Assert.h"
#include "runtime/Meter.h"

namespace Kiv {

/// Children of one heap entry: a wide node keeps the heap shallow and its children in two cache lines.
static constexpr U32 arity = 4;

void TimerWheel::NotifieeConst::notifierIs(Zet::Ptr<TimerWheel const> const& wheel) {
  if (wheel == wheel_) return;
  if (wheel_) wheel_->stop(*this);
  wheel_ = wheel;
  timeMin_ = wheel_ ? never : timeMin_;
}

TimerWheel::NotifieeConst::~NotifieeConst() {
  if (wheel_) wheel_->stop(*this);
}

void TimerWheel::NotifieeConst::zetDispatch(Zet::AttributeId attribute) {
  if (attribute == Zet::allAttributes || attribute == attrTime) onTime();
}

void TimerWheel::NotifieeConst::timeMinIs(double seconds) {
  bool finite = seconds <= std::numeric_limits<double>::max();
  timeMin_ = finite ? seconds : never;
  if (!wheel_) return;
  if (finite) {
    wheel_->arm(*this);
  } else {
    wheel_->stop(*this);
  }
}

void TimerWheel::arm(NotifieeConst& timer) const {
  if (!timer.armed_) ++armed_;
  timer.armed_ = true;
  // Timers of equal time fire in the order of their arming, and advance() knows by it which were armed since.
  timer.order_ = ++armings_;
  remove(timer);
  insert(timer);
}

void TimerWheel::stop(NotifieeConst& timer) const {
  if (timer.armed_) --armed_;
  timer.armed_ = false;
  remove(timer);
}

double TimerWheel::nextExpiry() const {
  NotifieeConst* next = first();
  return next != nullptr ? next->timeMin_ : never;
}

U32 TimerWheel::advance(double now) {
  ZET_ASSERT(!advancing_, "!advancing_");
  advancing_ = true;
  U64 const last = armings_;
  U32 fired = 0;
  std::vector<Zet::Ptr<NotifieeConst>> later;
  // Held over its call, and let go before the next is sought: its end may arm and stop others.
  while (Zet::Ptr<NotifieeConst> timer = firstDue(now)) {
    // A timer armed by a handler for a time that has passed would fire in this walk again and again.
    if (timer->order_ > last) {
      remove(*timer);
      later.push_back(timer);
    } else {
      fire(*timer);
      ++fired;
    }
  }
  for (auto const& timer : later) putBack(*timer);
  advancing_ = false;
  return fired;
}

// The timer is stopped first, so that its handler can arm it again.
void TimerWheel::fire(NotifieeConst& timer) {
  stop(timer);
  Zet::deliver(timer, attrTime, [&] { timer.onTime(); });
}

/// Puts back a timer that was armed during the walk, unless it was stopped, detached or armed again since.
void TimerWheel::putBack(NotifieeConst& timer) {
  bool const isInside = timer.place_ != NotifieeConst::outside || timer.run_ != NotifieeConst::noRun;
  if (timer.armed_ && timer.wheel_ == this && !isInside) insert(timer);
}

/// Puts an armed timer that is outside into a run or the heap.
void TimerWheel::insert(NotifieeConst& timer) const {
  if (append(timer)) return;
  heap_.emplace_back();
  siftUp(static_cast<U32>(heap_.size() - 1), {timer.timeMin_, timer.order_, &timer});
}

/// Takes a timer out of its run or the heap, if it is in one.
void TimerWheel::remove(NotifieeConst& timer) const {
  unlink(timer);
  if (timer.place_ != NotifieeConst::outside) removeAt(timer.place_);
}

/// The timer that is due first; null if none is armed.
TimerWheel::NotifieeConst* TimerWheel::first() const {
  Zet::Meter::visit(runs);
  NotifieeConst* first = heap_.empty() ? nullptr : heap_.front().timer;
  for (Run const& run : runs_) {
    if (run.first != nullptr && (first == nullptr || run.first->before(*first))) first = run.first;
  }
  return first;
}

TimerWheel::NotifieeConst* TimerWheel::firstDue(double now) const {
  NotifieeConst* due = first();
  return due != nullptr && due->timeMin_ <= now ? due : nullptr;
}

// Runs ------------------------------------------------------------------------------------------------

/// Appends a timer to the run that ends closest before it, else into an empty run; false if all go on beyond
/// it.
bool TimerWheel::append(NotifieeConst& timer) const {
  Zet::Meter::visit(runs);
  Run* best = nullptr;
  for (Run& run : runs_) {
    if (run.last == nullptr) {
      if (best == nullptr) best = &run;
    } else if (!timer.before(*run.last)) {
      if (best == nullptr || best->last == nullptr || best->last->before(*run.last)) best = &run;
    }
  }
  if (best == nullptr) return false;
  timer.run_ = static_cast<U8>(best - runs_);
  timer.previous_ = best->last;
  (best->last != nullptr ? best->last->next_ : best->first) = &timer;
  best->last = &timer;
  return true;
}

void TimerWheel::unlink(NotifieeConst& timer) const {
  if (timer.run_ == NotifieeConst::noRun) return;
  Run& run = runs_[timer.run_];
  (timer.previous_ != nullptr ? timer.previous_->next_ : run.first) = timer.next_;
  (timer.next_ != nullptr ? timer.next_->previous_ : run.last) = timer.previous_;
  timer.next_ = timer.previous_ = nullptr;
  timer.run_ = NotifieeConst::noRun;
}

// Heap ------------------------------------------------------------------------------------------------

void TimerWheel::place(U32 index, Entry const& entry) const {
  Zet::Meter::visit();
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
  // The last entry may be earlier than the parent of the gap or later than its children, never both.
  siftUp(index, last);
  if (last.timer->place_ == index) siftDown(index, last);
}

}  // namespace Kiv
