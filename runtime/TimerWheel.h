#pragma once

#include <limits>
#include <vector>

#include "runtime/Notifiee.h"

namespace Kiv {

/// The time of what doesn't happen, such as the expiry of a stopped timer.
inline constexpr double never = std::numeric_limits<double>::infinity();

/// Whether a time is that of a timer that is set: neither 0 nor above the largest finite double.
inline bool isTimeSet(double timeMin) {
  return timeMin != 0.0 && timeMin <= std::numeric_limits<double>::max();
}

/// The timers of one router. The wheel is passive: it knows when the next one is due, and the host moves it
/// on.
///
/// Refreshes with one holdtime arm timers in the order in which they will expire. So a timer that is not
/// before the last of a run is appended to it, and re-arming costs the same however many timers there are.
/// Runs are few, one for each usual holdtime; a timer that fits none goes into a heap.
class PIMBSR_API TimerWheel : public Zet::PtrInterface {
 public:
  /// Number of the only thing that a timer is notified of: its time.
  enum : Zet::AttributeId { attrTime = 0 };

  /// One timer: a reactor whose onTime() runs at its expiry.
  class PIMBSR_API NotifieeConst : public Zet::Reactor {
   public:
    /// Attaches to a wheel, stopped; detaches from a former one. Null detaches.
    void notifierIs(Zet::Ptr<TimerWheel const> const& wheel);
    /// The wheel that it is attached to; null if it is detached.
    Zet::Ptr<TimerWheel const> const& notifier() const { return wheel_; }

    /// Arms the timer for the absolute time `seconds` on the clock of Zet::now(), replacing what was set
    /// before. It always arms, for a time past and for the time it has too, and never fires within the call.
    /// Infinity, NaN and what is above the largest finite double stop it. On a detached timer it only stores.
    void timeMinIs(double seconds);
    /// The time last given, kept after firing; 0 at first, infinity for a stopped timer.
    double timeMin() const { return timeMin_; }
    /// Whether it will fire.
    bool isArmed() const { return armed_; }

    /// The timer has expired, and is armed no more unless this arms it again. An exception is reported as
    /// that of any notifiee.
    virtual void onTime() {}

   protected:
    NotifieeConst() = default;
    ~NotifieeConst() override;
    void zetDispatch(Zet::AttributeId attribute) override;

   private:
    friend class TimerWheel;
    static constexpr U32 outside = ~U32{0};
    static constexpr U8 noRun = 0xff;

    /// Whether it is due before another.
    bool before(NotifieeConst const& other) const {
      return timeMin_ < other.timeMin_ || (timeMin_ == other.timeMin_ && order_ < other.order_);
    }

    Zet::Ptr<TimerWheel const> wheel_;
    double timeMin_ = 0.0;
    U64 order_ = 0;                  ///< when it was armed, among all armings of the wheel
    NotifieeConst* next_ = nullptr;  ///< neighbors in its run
    NotifieeConst* previous_ = nullptr;
    U32 place_ = outside;  ///< index in the heap
    U8 run_ = noRun;       ///< index of its run
    bool armed_ = false;
  };

  TimerWheel() = default;

  /// When the next timer is due; `never` if none is armed. Not to be asked from onTime(), while timers wait
  /// for the end of advance().
  double nextExpiry() const;
  /// Calls the timers that are due at `now`, in order of time and then of arming. One that is armed meanwhile
  /// for a time not after `now` waits for the next call. Returns how many were called. Not to be called from
  /// onTime().
  U32 advance(double now);
  /// Number of armed timers.
  U32 armed() const { return armed_; }

 private:
  /// A timer in the heap, with what it is ordered by beside it.
  struct Entry {
    double time;
    U64 order;
    NotifieeConst* timer;
    bool before(Entry const& other) const {
      return time < other.time || (time == other.time && order < other.order);
    }
  };

  /// Armed timers in order of their expiry; each is in one run, or in the heap.
  struct Run {
    NotifieeConst* first = nullptr;
    NotifieeConst* last = nullptr;
  };
  static constexpr U8 runs = 8;

  void arm(NotifieeConst& timer) const;
  void stop(NotifieeConst& timer) const;
  void insert(NotifieeConst& timer) const;
  bool append(NotifieeConst& timer) const;
  void unlink(NotifieeConst& timer) const;
  void remove(NotifieeConst& timer) const;
  NotifieeConst* first() const;
  NotifieeConst* firstDue(double now) const;
  void place(U32 index, Entry const& entry) const;
  void siftUp(U32 index, Entry entry) const;
  void siftDown(U32 index, Entry entry) const;
  void removeAt(U32 index) const;
  void fire(NotifieeConst& timer);
  void putBack(NotifieeConst& timer);

  mutable Run runs_[runs];
  mutable std::vector<Entry> heap_;
  mutable U64 armings_ = 0;
  mutable U32 armed_ = 0;
  bool advancing_ = false;
};

}  // namespace Kiv
