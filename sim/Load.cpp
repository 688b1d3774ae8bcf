#include "sim/Load.h"

namespace pimbsr::sim {

static void count(LoadBins& bins, std::size_t bin, std::size_t kind) {
  if (bin >= bins.size()) bins.resize(bin + 1);
  ++bins[bin][kind];
}

/// Joins the bins two by two.
static void halve(LoadBins& bins) {
  std::size_t half = (bins.size() + 1) / 2;
  bins.resize(2 * half);
  for (std::size_t bin = 0; bin < half; ++bin) {
    for (std::size_t kind = 0; kind < packetKinds; ++kind) {
      bins[bin][kind] = bins[2 * bin][kind] + bins[2 * bin + 1][kind];
    }
  }
  bins.resize(half);
}

void LoadMeter::growTo(double time) {
  while (time >= binLength_ * maxBins) {
    binLength_ *= 2;
    halve(bins_);
    for (LinkLoad& link : links_) halve(link.bins);
  }
}

void LoadMeter::onPacket(U32 link, double time, Bytes packet) {
  growTo(time);
  if (link >= links_.size()) links_.resize(link + 1);
  auto bin = static_cast<std::size_t>(time / binLength_);
  auto kind = static_cast<std::size_t>(kindOf(packet));
  ++links_[link].total[kind];
  count(bins_, bin, kind);
  if (linkBins_) count(links_[link].bins, bin, kind);
}

void LoadMeter::end(double time, U32 linkCount) {
  growTo(time);
  std::size_t size = static_cast<std::size_t>(time / binLength_) + 1;
  bins_.resize(size);
  links_.resize(linkCount);
  if (!linkBins_) return;
  for (LinkLoad& link : links_) link.bins.resize(size);
}

}  // namespace pimbsr::sim
