#pragma once

#include <atomic>
#include <ext/atomicity.h>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

struct ZetType;

/// Base of every counted object. One 32-bit word holds the reference count and the marks of a reactor's life:
///
///   bits 0..28  the reference count
///   bit  29     notification active
///   bit  30     counts as a reference for the test against zero, and never for the count
///   bit  31     marked for deletion: the reactor is a zombie and hears nothing any more
///
/// A word whose top byte is exactly 0x1f is immortal: counting leaves it alone, and the object is never
/// released. Counting is atomic once the process has more than one thread, since a last reference may be
/// dropped elsewhere.
class PIMBSR_API PtrInterface {
 public:
  static constexpr U32 countMask = 0x1fffffff;     ///< the reference count
  static constexpr U32 zeroTestMask = 0x5fffffff;  ///< what is 0 when the object may go: count and held bit
  static constexpr U32 notificationActiveBit = 1u << 29;  ///< set by hasNotificationActiveIs()
  static constexpr U32 heldBit = 1u << 30;                ///< counts as a reference for the test against zero
  static constexpr U32 zombieBit = 1u << 31;              ///< set by zetMarkedForDeletionIs()
  static constexpr U32 immortalWord = 0x1f000000;         ///< the word of an immortal object

  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  /// Takes one reference.
  void newRef() const {
    if (!isImmortal()) add(1);
  }

  /// Drops one reference; the last one releases the object through handleZeroRef().
  void deleteRef() const {
    U32 word = isImmortal() ? word_.load(std::memory_order_relaxed) : add(-1);
    if ((word & zeroTestMask) == 0) const_cast<PtrInterface*>(this)->handleZeroRef();
  }

  /// The word with count and marks.
  U32 countWord() const { return word_.load(std::memory_order_relaxed); }
  /// The reference count; without meaning for an immortal object.
  U32 references() const { return countWord() & countMask; }
  /// Whether counting leaves the object alone.
  bool isImmortal() const { return (countWord() >> 24) == (immortalWord >> 24); }
  /// Makes the object immortal, for objects of static life. It can't be taken back.
  void immortalIs() { word_.store(immortalWord, std::memory_order_relaxed); }

  /// The descriptor of the object's own type; one without attributes unless the model declares the class.
  virtual ZetType const& fwkType() const;

  /// Whether the object is marked as at work, as ClearIsActiveAnchor does; counting ignores it.
  bool hasNotificationActive() const { return (countWord() & notificationActiveBit) != 0; }
  /// Sets or clears that mark.
  virtual void hasNotificationActiveIs(bool on) { mark(notificationActiveBit, on); }

  bool zetMarkedForDeletion() const { return (countWord() & zombieBit) != 0; }
  void zetMarkedForDeletionIs(bool on) { mark(zombieBit, on); }

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface() = default;

  /// Runs when the last reference has gone; deletes the object. Pointers made and dropped meanwhile do no
  /// harm, since the held bit is set.
  virtual void handleZeroRef();

  /// Keeps a half-made object alive while its constructor hands out references to it.
  class ConstructionGuard {
   public:
    /// Sets the object's held bit, until the guard ends.
    explicit ConstructionGuard(PtrInterface& object) : object_(object) { object_.mark(heldBit, true); }
    ~ConstructionGuard() { object_.mark(heldBit, false); }
    ConstructionGuard(ConstructionGuard const&) = delete;
    ConstructionGuard& operator=(ConstructionGuard const&) = delete;

   private:
    PtrInterface& object_;
  };

  /// Sets or clears bits of the word above the count. An immortal object with such a bit is counted.
  void mark(U32 bit, bool on) const {
    if (on) {
      word_.fetch_or(bit, std::memory_order_relaxed);
    } else {
      word_.fetch_and(~bit, std::memory_order_relaxed);
    }
  }

 private:
  U32 add(int n) const {
    if (__gnu_cxx::__is_single_threaded()) {
      U32 word = word_.load(std::memory_order_relaxed) + static_cast<U32>(n);
      word_.store(word, std::memory_order_relaxed);
      return word;
    }
    return word_.fetch_add(static_cast<U32>(n), std::memory_order_acq_rel) + static_cast<U32>(n);
  }

  mutable std::atomic<U32> word_{0};
};

}  // namespace Zet
