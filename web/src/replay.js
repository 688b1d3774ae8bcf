// The model of the page, made from the document of `pimbsr replay --json`: one router, the senders of the
// messages as its neighbors on one link, and the BSRs.

import { comparePrefixes } from "./addresses.js";
import { KINDS, rangesOf } from "./simulation.js";

const NAME = "router";

function changesOf(document) {
  return document.timeline.flatMap((event) =>
    (event.changes || []).map((change) => ({ ...change, time: event.time })));
}

function bsrSpansOf(changes, zone, end) {
  const spans = [];
  let open = null;
  const close = (time) => {
    if (open && time > open.start) spans.push({ ...open, end: time });
    open = null;
  };
  for (const change of changes) {
    if (change.zone !== zone) continue;
    const lost = change.event === "bsrLost" || change.event === "zoneForgotten";
    if (lost) close(change.time);
    if (lost || !change.bsr || !change.event.startsWith("bsr")) continue;
    if (open && open.bsr === change.bsr.address) continue;
    close(change.time);
    open = { start: change.time, bsr: change.bsr.address, own: false };
  }
  close(end);
  return spans;
}

/** Bins of equal length: a second, or a power of two of seconds so that there are at most 360. */
function loadOf(document, end) {
  let binLength = 1;
  while (end / binLength >= 360) binLength *= 2;
  const binCount = Math.floor(end / binLength) + 1;
  const series = KINDS.map(({ label, key }) => ({ label, key, counts: new Array(binCount).fill(0) }));
  for (const event of document.timeline) {
    if (!event.received) continue;
    const row = series.find((one) => one.key === event.received.message) || series[series.length - 1];
    row.counts[Math.floor(event.time / binLength)] += 1;
  }
  return { binLength, binCount, series: series.filter((row) => row.counts.some(Boolean)) };
}

function eventsOf(document) {
  const events = [];
  for (const event of document.timeline) {
    const received = event.received;
    if (received && received.message !== "hello") {
      events.push({
        time: event.time, event: received.verdict, message: received.message, sender: received.sender,
        reason: received.reason, zone: received.zone });
    }
    for (const change of event.changes || []) events.push({ ...change, time: event.time });
  }
  return events;
}

function neighborsOf(document, end) {
  const senders = new Map();
  for (const event of document.timeline) {
    const sender = event.received && event.received.sender;
    if (sender && !senders.has(sender)) senders.set(sender, event.time);
  }
  return [...senders].map(([address]) => ({
    name: address, loopback: null, addresses: [address], interfaces: [], candidateBsrs: [], candidateRps: [],
    up: [{ start: 0, end, up: true }], zones: new Map(), drops: [], atEnd: [], changes: [], events: [],
    isNeighbor: true,
  }));
}

function routerOf(document, changes, zones, end) {
  return {
    name: NAME, loopback: null, addresses: [], interfaces: [], candidateBsrs: [], candidateRps: [],
    up: [{ start: 0, end, up: true }],
    zones: new Map(zones.map((zone) => [zone, { zone, bsr: bsrSpansOf(changes, zone, end), states: [] }])),
    drops: document.drops, atEnd: document.zones, changes, events: eventsOf(document),
  };
}

export function replayModel(document) {
  const end = document.end;
  const changes = changesOf(document);
  const zones = [...new Set(changes.map((change) => change.zone))].sort(comparePrefixes);
  const routers = [routerOf(document, changes, zones, end), ...neighborsOf(document, end)];
  routers.forEach((router, index) => (router.index = index));
  const ends = routers.map((router) => ({ router: router.index, borders: [] }));
  const last = document.timeline.reduce((time, event) => (event.received ? event.time : time), 0);
  const marks = [{ time: last, text: "last message of the capture" }];
  return {
    kind: "replay",
    title: `Replay: ${document.messages.pim} PIM messages`,
    end,
    routers,
    links: [{ name: "capture", prefix: "", ends, up: [{ start: 0, end, up: true }] }],
    zones,
    ranges: rangesOf(changes),
    marks: last < end ? marks : [],
    load: loadOf(document, end),
    hasRpChanges: true,
  };
}
