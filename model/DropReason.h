#pragma once

#include "model/DropReason.zet.h"

namespace pimbsr {

/// Receives the reasons for which the gates of the engine drop messages.
///
/// A gate reports a drop right after it has counted it. The listener is no attribute of the gate: it is
/// current for a thread, as a context is, so that counters, order of writes, traces and reflection are those
/// of a gate to which nothing listens.
class PIMBSR_API DropListener {
 public:
  /// Makes a listener the current one of the thread, and at the end the former one again.
  class PIMBSR_API Scope {
   public:
    /// The listener must outlive the scope. Scopes of a thread nest: the last one made ends first.
    explicit Scope(DropListener& listener);
    ~Scope();
    Scope(Scope const&) = delete;
    Scope& operator=(Scope const&) = delete;

   private:
    DropListener* former_;
  };

  /// A gate dropped the message in hand, or a group range of it.
  virtual void onDrop(DropReason reason) = 0;

 protected:
  ~DropListener() = default;
};

/// Reports a drop to the current listener of the thread; without one it has no effect.
PIMBSR_API void reportDrop(DropReason reason);

}  // namespace pimbsr
