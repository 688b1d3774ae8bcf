#pragma once

#include "model/Lanet.h"

namespace pimbsr::host {

struct RpView;

/// Receives RPs of former BSRs that PIM reads no longer, inside the call into the router that removed them.
class KeptRpSink {
 public:
  /// An RP of a zone is kept no longer. `expired` says that its time is over; else it was removed or named.
  virtual void onKeptGone(Lanet::IpGenPrefix const& zone, RpView const& rp, bool expired) = 0;

 protected:
  ~KeptRpSink() = default;
};

/// RPs of former BSRs that PIM goes on using.
class KeptRps {
 public:
  /// Whether an RP of a group range is kept.
  virtual bool keeps(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const = 0;
  /// Sets who receives what is kept no longer; null, as at first, for none.
  virtual void sinkIs(KeptRpSink* sink) = 0;

 protected:
  ~KeptRps() = default;
};

}  // namespace pimbsr::host
