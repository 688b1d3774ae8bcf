#pragma once

#include <limits>
#include <vector>

#include "runtime/Export.h"
#include "runtime/Ptr.h"

namespace Zet {

class Reactor;
class ActivitySm;

/// Stable number of an attribute within its class; -1 means all attributes.
using AttributeId = S32;
/// Stands for all attributes of an object.
inline constexpr AttributeId allAttributes = -1;
/// Stands for no attribute; 0 is a number like others.
inline constexpr AttributeId noAttribute = std::numeric_limits<AttributeId>::min();

/// The context on which a reactor runs. Every machine is given one; all machines of one router share it.
class PIMBSR_API ActivityConfig : public PtrInterface {
 public:
  ActivityConfig() = default;

  /// The activity that a machine gets when its maker names none.
  static Ptr<ActivityConfig> const& standard();
};

/// Serves notifications that were handed on instead of being delivered in the setter.
class PIMBSR_API ActivitySm : public PtrInterface {
 public:
  ActivitySm();
  ~ActivitySm() override;
  /// Appends a reactor to the queue; serve() serves it once, in order of the queue.
  void enqueue(Ptr<Reactor> const& reactor);
  /// Serves what waits now, and not what is enqueued meanwhile. Returns how many were served.
  U32 serve(ActivityConfig* config);

 private:
  std::vector<Ptr<Reactor>> waiting_;
};

/// The activity machine that serves a configuration; one for each, made on first use.
PIMBSR_API Ptr<ActivitySm> zetActivitySmFor(Ptr<ActivityConfig> const& config);

}  // namespace Zet
