#pragma once

#include <vector>

#include "sim/Listener.h"
#include "sim/Node.h"

namespace pimbsr::sim {

/// Packets by bin of time, and by kind in each.
using LoadBins = std::vector<PacketCounts>;

/// What one link carried.
struct LinkLoad {
  PacketCounts total{};
  LoadBins bins;  ///< empty unless bins are kept for each link
};

/// Counts the packets that are put on links, over bins of equal length. Bins are one second long at first.
/// When a run grows beyond `maxBins` of them, two become one each, so that memory doesn't grow with the run.
class LoadMeter final : public Tap {
 public:
  static constexpr std::size_t maxBins = 360;

  /// `linkBins`: bins are kept for each link too.
  explicit LoadMeter(bool linkBins) : linkBins_(linkBins) {}

  /// Times never decrease from call to call.
  void onPacket(U32 link, double time, Bytes packet) override;
  /// Gives all bins their number at the end of a run of so many seconds, to be called once before they are
  /// read.
  void end(double time, U32 linkCount);

  /// Length of a bin in seconds, a power of two.
  double binLength() const { return binLength_; }
  /// Of all links together. Bin i starts at i * binLength(), and a packet at the end of one belongs to the
  /// next.
  LoadBins const& bins() const { return bins_; }
  /// By number of the link.
  std::vector<LinkLoad> const& links() const { return links_; }

 private:
  void growTo(double time);

  bool linkBins_;
  double binLength_ = 1;
  LoadBins bins_;
  std::vector<LinkLoad> links_;
};

}  // namespace pimbsr::sim
