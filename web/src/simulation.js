// The model of the page, made from the document of `pimbsr sim --json`.

import { comparePrefixes } from "./addresses.js";

/** Kinds of packets, in the order of the chart. */
export const KINDS = [
  { key: "hello", label: "Hello" },
  { key: "bsm", label: "BSM" },
  { key: "crpAdv", label: "C-RP-Adv" },
  { key: "other", label: "other" },
];

function routersOf(document) {
  const spans = new Map(document.spans.routers.map((router) => [router.router, router]));
  const learned = new Map(document.routers.map((router) => [router.name, router]));
  return document.topology.routers.map((router, index) => {
    const track = spans.get(router.name) || { up: [], zones: [] };
    return {
      ...router,
      index,
      addresses: [router.loopback, ...router.interfaces.map((intf) => intf.address)].filter(Boolean),
      up: track.up,
      zones: new Map(track.zones.map((zone) => [zone.zone, zone])),
      drops: learned.has(router.name) ? learned.get(router.name).drops : [],
      atEnd: learned.has(router.name) ? learned.get(router.name).zones : [],
      changes: [],
      events: [],
    };
  });
}

function linksOf(document, routers) {
  const up = new Map(document.spans.links.map((link) => [link.link, link.up]));
  const load = new Map(document.load.links.map((link) => [link.link, link.packets]));
  const links = document.topology.links.map((link) => ({
    ...link, ends: [], up: up.get(link.name) || [], packets: load.get(link.name) }));
  const byName = new Map(links.map((link) => [link.name, link]));
  for (const router of routers) {
    for (const intf of router.interfaces) {
      const link = byName.get(intf.link);
      if (link) link.ends.push({ router: router.index, borders: intf.borders });
    }
  }
  return links;
}

function zonesOf(routers) {
  const zones = new Set();
  for (const router of routers) {
    for (const zone of router.zones.keys()) zones.add(zone);
    for (const bsr of router.candidateBsrs) if (bsr.zone) zones.add(bsr.zone);
  }
  return [...zones].sort(comparePrefixes);
}

/** The ranges of each zone for which routers learned RPs, as {zone, range}. */
export function rangesOf(changes) {
  const ranges = new Map();
  for (const change of changes) {
    if (!change.rp) continue;
    const { zone, rp } = change;
    ranges.set(`${zone} ${rp.range}`, { zone, range: rp.range });
  }
  return [...ranges.values()].sort(
    (a, b) => comparePrefixes(a.zone, b.zone) || comparePrefixes(a.range, b.range));
}

function loadOf(load) {
  const series = KINDS.filter((kind) => load.bins[kind.key])
    .map((kind) => ({ label: kind.label, counts: load.bins[kind.key] }));
  return { binLength: load.binLength, binCount: load.binCount, series };
}

function addEvents(document, routers) {
  const byName = new Map(routers.map((router) => [router.name, router]));
  for (const event of document.timeline) {
    const router = byName.get(event.router);
    if (!router) continue;
    router.events.push(event);
    if (event.zone) router.changes.push(event);
  }
}

export function simulationModel(document) {
  const routers = routersOf(document);
  addEvents(document, routers);
  const changes = document.timeline.filter((event) => event.rp);
  return {
    kind: "simulation",
    title: `${routers.length} routers, seed ${document.seed}`,
    end: document.end,
    routers,
    links: linksOf(document, routers),
    zones: zonesOf(routers),
    ranges: rangesOf(changes),
    marks: document.timeline.filter((event) => event.event === "command")
      .map((event) => ({ time: event.time, text: event.statement })),
    load: loadOf(document.load),
    // A scenario may leave changes of RPs out of its report; then they are known at the end alone.
    hasRpChanges: changes.length > 0 ||
      !routers.some((router) => router.atEnd.some((zone) => zone.rpSet.length)),
  };
}
