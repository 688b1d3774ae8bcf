#include "cli/replay/ReplayWorld.h"

#include <fmt/format.h>

#include <ostream>

#include "runtime/Log.h"

namespace pimbsr::cli {

using Lanet::IpGenAddr;

void HeardRpfTable::heard(IpGenAddr const& bsr, IpGenAddr const& neighbor) {
  neighbors_.try_emplace(bsr, neighbor);
}

IpGenAddr HeardRpfTable::neighbor(IpGenAddr const& bsr) const {
  auto at = neighbors_.find(bsr);
  return at == neighbors_.end() ? IpGenAddr() : at->second;
}

Routing::Pim::RpfLookupResult HeardRpfTable::doLookup(IpGenAddr const& address, IpGenAddr const&) {
  heard(address, source_);
  return {neighbor(address)};
}

void ReplayContext::startTimeIs(double time) {
  nowIs(time);
  startTime_ = time;
}

void ReplayContext::trace(Zet::TraceLine const& line) {
  out_ << fmt::format("{:10.3f}  {}:{} {}: {}\n", now() - startTime_, line.handle, line.level,
                      line.sourceBlock, line.text);
}

void ReplayContext::log(Zet::LogHandle const& handle, std::string const& text) {
  out_ << fmt::format("{:10.3f}  {}: {}\n", now() - startTime_, handle.name(), text);
}

}  // namespace pimbsr::cli
