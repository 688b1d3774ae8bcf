#include "cli/sim/SimViews.h"

#include <algorithm>

#include "host/Machines.h"

namespace pimbsr::cli {

using Zet::U32;
using Zet::U64;

static std::string nameOf(Lanet::IntfId const& intfId) { return std::string(intfId.stringValue().view()); }

// Topology --------------------------------------------------------------------------------------------

static view::TopologyLink linkOf(sim::LinkOptions const& link) {
  return {.name = link.name,
          .prefix = Lanet::IpGenPrefix(link.prefix),
          .mtu = link.mtu,
          .delay = link.delay,
          .jitter = link.jitter};
}

static view::TopologyInterface interfaceOf(sim::Node const& node, U32 number) {
  sim::NodeInterface const& intf = node.interfaces()[number];
  view::TopologyInterface made{.name = nameOf(intf.intfId),
                               .link = node.network().link(intf.link).options.name,
                               .address = intf.address,
                               .drPriority = intf.drPriority};
  for (auto const& [zone, border] : node.config().borders) {
    if (border == number) made.borders.push_back(zone);
  }
  for (auto const& [border, list] : node.config().borderLists) {
    if (border == made.name) made.borderLists.push_back(list);
  }
  return made;
}

static std::vector<view::TopologyCandidateBsr> candidateBsrsOf(sim::Node const& node) {
  std::vector<view::TopologyCandidateBsr> made;
  for (auto const& [zone, bsr] : node.config().candidateBsrs) {
    made.push_back({.zone = zone,
                    .interface = nameOf(bsr.intfId),
                    .address = node.primaryAddress(bsr.intfId),
                    .priority = bsr.priority,
                    .hashMaskLen = bsr.hashMaskLen,
                    .bsPeriod = bsr.bsPeriod});
  }
  for (auto const& [use, terms] : node.config().bsrLists) {
    made.push_back({.list = use.second,
                    .interface = use.first,
                    .address = node.primaryAddress(Lanet::IntfId(use.first.c_str())),
                    .priority = terms.priority,
                    .hashMaskLen = terms.hashMaskLen,
                    .bsPeriod = terms.bsPeriod});
  }
  return made;
}

static std::vector<view::TopologyCandidateRp> candidateRpsOf(sim::Node const& node) {
  std::vector<view::TopologyCandidateRp> made;
  for (auto const& [key, rp] : node.config().candidateRps) {
    made.push_back({.range = key.first,
                    .interface = nameOf(rp.intfId),
                    .address = node.primaryAddress(rp.intfId),
                    .priority = rp.priority,
                    .cRpAdvPeriod = rp.cRpAdvPeriod});
  }
  for (auto const& [use, rp] : node.config().rpLists) {
    made.push_back({.list = use.second,
                    .interface = use.first,
                    .address = node.primaryAddress(Lanet::IntfId(use.first.c_str())),
                    .priority = rp.priority,
                    .cRpAdvPeriod = rp.cRpAdvPeriod});
  }
  return made;
}

static view::TopologyRouter routerOf(sim::Node const& node) {
  view::TopologyRouter made{.name = node.name(),
                            .loopback = node.options().loopback,
                            .candidateBsrs = candidateBsrsOf(node),
                            .candidateRps = candidateRpsOf(node)};
  auto count = static_cast<U32>(node.interfaces().size());
  for (U32 intf = 0; intf < count; ++intf) made.interfaces.push_back(interfaceOf(node, intf));
  return made;
}

view::Topology topologyOf(sim::Network const& network) {
  view::Topology made;
  for (U32 link = 0; link < network.linkCount(); ++link)
    made.links.push_back(linkOf(network.link(link).options));
  for (U32 node = 0; node < network.nodeCount(); ++node) made.routers.push_back(routerOf(network.node(node)));
  return made;
}

// Spans -----------------------------------------------------------------------------------------------

static std::vector<view::UpSpan> upOf(sim::Track<bool> const& track) {
  std::vector<view::UpSpan> made;
  for (auto const& span : track.spans()) made.push_back({span.start, span.end, span.value});
  return made;
}

static view::ZoneSpans zoneOf(Lanet::IpGenPrefix const& zone, sim::ZoneTracks const& tracks) {
  view::ZoneSpans made{.zone = zone};
  for (auto const& span : tracks.bsr.spans())
    made.bsr.push_back({span.start, span.end, span.value.address, span.value.own});
  for (auto const& span : tracks.state.spans())
    made.states.push_back({span.start, span.end, std::string(host::nameOf(span.value))});
  return made;
}

view::Spans spansOf(sim::Network const& network, sim::SpanRecorder const& recorder) {
  view::Spans made;
  for (U32 node = 0; node < recorder.nodes().size(); ++node) {
    sim::NodeTracks const& tracks = recorder.nodes()[node];
    view::RouterSpans router{.router = network.node(node).name(), .up = upOf(tracks.running)};
    for (auto const& [zone, zoneTracks] : tracks.zones) router.zones.push_back(zoneOf(zone, zoneTracks));
    made.routers.push_back(std::move(router));
  }
  for (U32 link = 0; link < recorder.links().size(); ++link)
    made.links.push_back({network.link(link).options.name, upOf(recorder.links()[link])});
  return made;
}

// Load ------------------------------------------------------------------------------------------------

static U64 countOf(sim::PacketCounts const& counts, sim::PacketKind kind) {
  return counts[static_cast<std::size_t>(kind)];
}

/// The packets of one kind in each bin; empty if there is none.
static std::vector<U64> binsOf(sim::LoadBins const& bins, sim::PacketKind kind) {
  std::vector<U64> made;
  for (sim::PacketCounts const& bin : bins) made.push_back(countOf(bin, kind));
  bool isEmpty = std::all_of(made.begin(), made.end(), [](U64 count) { return count == 0; });
  return isEmpty ? std::vector<U64>() : made;
}

static view::PacketBins binsOf(sim::LoadBins const& bins) {
  return {.hello = binsOf(bins, sim::PacketKind::hello),
          .bsm = binsOf(bins, sim::PacketKind::bootstrap),
          .crpAdv = binsOf(bins, sim::PacketKind::crpAdv),
          .other = binsOf(bins, sim::PacketKind::other)};
}

static view::PacketTotals totalsOf(sim::PacketCounts const& counts) {
  return {.hello = countOf(counts, sim::PacketKind::hello),
          .bsm = countOf(counts, sim::PacketKind::bootstrap),
          .crpAdv = countOf(counts, sim::PacketKind::crpAdv),
          .other = countOf(counts, sim::PacketKind::other)};
}

view::Load loadOf(sim::Network const& network, sim::LoadMeter const& meter) {
  view::Load made{.binLength = meter.binLength(),
                  .binCount = static_cast<U32>(meter.bins().size()),
                  .bins = binsOf(meter.bins())};
  for (U32 number = 0; number < meter.links().size(); ++number) {
    sim::LinkLoad const& link = meter.links()[number];
    view::LinkLoad& load = made.links.emplace_back();
    load.link = network.link(number).options.name;
    load.packets = totalsOf(link.total);
    if (!link.bins.empty()) load.bins = binsOf(link.bins);
  }
  return made;
}

}  // namespace pimbsr::cli
