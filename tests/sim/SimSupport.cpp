#include "tests/sim/SimSupport.h"

#include <algorithm>
#include <map>
#include <set>

namespace test {

using namespace pimbsr;

template <class Value>
static std::string textOf(Value const& value) {
  return std::string(value.stringValue().view());
}

void Diary::add(sim::Network const& network, std::string const& who, std::string const& what) {
  lines.push_back(fmt::format("{:.3f} {} {}", network.now(), who, what));
}

void Diary::onChanges(sim::Node const& node, std::span<host::Change const> changes) {
  constexpr char const* names[] = {"elected", "changed", "lost",    "added",    "updated",
                                   "kept",    "removed", "expired", "forgotten"};
  for (host::Change const& change : changes) {
    auto const& who = change.rp.address.isEmpty() ? change.bsr.address : change.rp.address;
    add(node.network(), node.name(), fmt::format("{} {}", names[static_cast<int>(change.kind)], textOf(who)));
  }
}

void Diary::onReception(sim::Node const& node, sim::NodeInterface const&, host::Reception const& reception) {
  constexpr char const* kinds[] = {"notPim", "bsm", "adv", "hello", "other", "malformed", "unread"};
  add(node.network(), node.name(),
      fmt::format("{} from {} {}", kinds[static_cast<int>(reception.kind)], textOf(reception.source),
                  reception.accepted() ? "accepted" : reception.reason));
}

void Diary::onNeighbor(sim::Node const& node, sim::NodeInterface const&, Lanet::IpGenAddr const& neighbor,
                       bool up) {
  add(node.network(), node.name(), fmt::format("neighbor {} {}", textOf(neighbor), up ? "up" : "down"));
}

void Diary::onDr(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& dr) {
  add(node.network(), node.name(), fmt::format("dr {} on {}", textOf(dr), textOf(intf.intfId)));
}

void Diary::onState(sim::Node const& node, Lanet::IpGenPrefix const&,
                    Routing::Pim::Bsr::BsrCandidateState state) {
  add(node.network(), node.name(), fmt::format("state {}", static_cast<int>(state)));
}

void Diary::onLoss(sim::Network const& network, sim::Link const* link, sim::Node const* node, sim::Loss loss,
                   sim::Bytes) {
  std::string where = link != nullptr ? link->options.name : node->name();
  add(network, where, fmt::format("loss: {}", sim::textOf(loss)));
}

void Diary::onCommand(sim::Network const& network, sim::Statement const& statement) {
  add(network, "-", statement.text);
}

void Diary::onShow(sim::Network const& network, sim::Show const& show) {
  add(network, "-", fmt::format("show {} of {} routers", static_cast<int>(show.view), show.routers.size()));
}

int Diary::count(std::string_view text) const {
  return static_cast<int>(std::count_if(
      lines.begin(), lines.end(), [&](std::string const& line) { return line.find(text) != line.npos; }));
}

std::string Script::bsr(Zet::U32 router, std::string const& zone) const {
  auto entry = node(router).router()->status()->bootstrapRouter(Lanet::IpGenPrefix::parse(zone.c_str()));
  return entry ? textOf(entry->ipAddr()) : "";
}

std::string Script::rpSet(Zet::U32 router) const {
  std::map<Lanet::IpGenPrefix, std::set<Lanet::IpGenAddr>> sorted;
  for (auto set = node(router).router()->rpCandidateStatus()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) sorted[set->prefix()].insert(rp->address());
  }
  std::string text;
  for (auto const& [range, rps] : sorted) {
    text += (text.empty() ? "" : "; ") + textOf(range);
    for (auto const& rp : rps) text += " " + textOf(rp);
  }
  return text;
}

Zet::U32 Script::neighbors(Zet::U32 router, Zet::U32 intf) const {
  auto status = node(router).router()->pimStatus()->pimIntf(node(router).interfaces()[intf].intfId);
  return status ? status->neighborCount() : 0;
}

std::string row(int count, std::string const& linkOptions) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += fmt::format("router r{0} loopback 10.0.0.{0}\n", i);
  for (int i = 1; i < count; ++i) {
    text += fmt::format("link l{0} prefix 10.{0}.0.0/24 {1}\n", i, linkOptions);
    text += fmt::format("interface r{0} l{0} 10.{0}.0.{0}\ninterface r{1} l{0} 10.{0}.0.{1}\n", i, i + 1);
  }
  return text;
}

}  // namespace test
