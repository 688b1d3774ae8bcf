// What one agent of the live page has learned in the course of time, from its views and its history. Times
// are seconds on the axis of the page; a span without an end yet has `open`, and ends where the page does.

const BSR_EVENTS = new Set(["bsrElected", "bsrChanged", "bsrLost", "zoneForgotten"]);
const MAX_EVENTS = 5000;
const MAX_CHANGES = 20000; // of RPs, after which the older half is reduced

/** Ends the open span of a list and begins one with these values, unless it has them; null for none. */
export function follow(spans, values, time) {
  const last = spans[spans.length - 1];
  const open = last && last.open ? last : null;
  const isSame = open && values && Object.keys(values).every((key) => open[key] === values[key]);
  if (isSame) return false;
  if (open) Object.assign(open, { end: time, open: false });
  if (open && open.end <= open.start) spans.pop();
  if (values) spans.push({ start: time, end: time, open: true, ...values });
  return Boolean(open || values);
}

/** Moves the ends of open spans to the end of the page. */
export function extend(spans, end) {
  const last = spans[spans.length - 1];
  if (last && last.open) last.end = end;
}

function keysOf(rpSet) {
  const found = new Map();
  for (const zone of rpSet.zones) {
    for (const { range, rps } of zone.rpSet) {
      for (const { address, priority, holdtime, bidirectional, kept = false } of rps) {
        if (holdtime === 0) continue;
        found.set(`${zone.zone} ${range} ${address}`,
          { zone: zone.zone, rp: { address, range, priority, holdtime, bidirectional, kept } });
      }
    }
  }
  return found;
}

function sameTerms(a, b) {
  return ["priority", "holdtime", "bidirectional", "kept"].every((key) => a[key] === b[key]);
}

/** The changes with the first `count` of them reduced to what was in effect after them. */
export function reduced(changes, count) {
  const effective = new Map();
  for (const change of changes.slice(0, count)) {
    const key = change.rp ? `${change.zone} ${change.rp.range} ${change.rp.address}` : change.zone;
    effective.delete(key);
    if (change.event !== "rpRemoved") effective.set(key, change);
  }
  return [...effective.values(), ...changes.slice(count)];
}

export class Tracker {
  constructor(name) {
    Object.assign(this, { name, loopback: null, addresses: [], interfaces: [], candidateBsrs: [],
      candidateRps: [], up: [], zones: new Map(), drops: [], atEnd: [], changes: [], events: [],
      rps: new Map(), masks: new Map(), isKnown: false });
  }

  /** Whether the agent is asked for the first time, and neither answered nor failed to. */
  get isAsked() {
    return this.up.length === 0;
  }

  /** What is known of a zone; `since` is when it was first seen. */
  zoneOf(zone, since) {
    if (!this.zones.has(zone)) this.zones.set(zone, { zone, since, bsr: [], states: [], digest: "" });
    return this.zones.get(zone);
  }

  /** Takes the views {bsr, rp-set, interfaces, borders, drops, history} as they are at a time. */
  take(views, time) {
    if (!this.isKnown) this.recall(views, time);
    this.isKnown = true;
    follow(this.up, { up: true }, time);
    this.takeZones(views.bsr, time);
    this.takeRps(views["rp-set"], time);
    this.takeInterfaces(views);
    if (this.changes.length > MAX_CHANGES) this.changes = reduced(this.changes, MAX_CHANGES / 2);
    this.drops = views.drops.drops.map(({ reason, sentence, count }) => ({ reason, sentence, count }));
  }

  /** An agent that is gone, or can't be reached. */
  lose(time) {
    follow(this.up, { up: false }, time);
  }

  note(event, time) {
    this.events.push({ ...event, time });
    if (this.events.length > MAX_EVENTS) this.events.splice(0, MAX_EVENTS / 2);
  }

  /** The spans before the page was opened, as the history has them. */
  recall(views, time) {
    const entries = views.history.entries.filter((entry) => entry.ago !== undefined)
      .map((entry) => ({ ...entry, time: time - entry.ago })).filter((entry) => entry.time >= 0);
    this.events = entries.sort((a, b) => a.time - b.time);
    const starts = entries.filter((entry) => entry.event === "agentStarted");
    const start = starts.length ? starts[starts.length - 1].time : 0;
    follow(this.up, { up: true }, start);
    for (const zone of views.bsr.zones) this.recallZone(zone, entries, start);
    this.takeRps(views["rp-set"], start);
  }

  recallZone(zone, entries, start) {
    const { bsr } = this.zoneOf(zone.zone, start);
    const own = entries.filter((entry) => entry.zone === zone.zone && BSR_EVENTS.has(entry.event));
    const before = own.length ? own[0] : null;
    const first = !before ? zone.bsr && { bsr: zone.bsr.address, own: zone.bsr.own }
      : before.event === "bsrLost" ? { bsr: before.bsr.address, own: Boolean(before.own) }
        : before.formerBsr ? { bsr: before.formerBsr.address, own: Boolean(before.formerOwn) } : null;
    follow(bsr, first, start);
    for (const entry of own) {
      const isLoss = entry.event === "bsrLost" || entry.event === "zoneForgotten";
      if (entry.time < start) continue;
      follow(bsr, isLoss ? null : { bsr: entry.bsr.address, own: Boolean(entry.own) }, entry.time);
    }
  }

  takeZones({ zones }, time) {
    const seen = new Set(zones.map((zone) => zone.zone));
    for (const zone of zones) {
      const track = this.zoneOf(zone.zone, time);
      track.digest = zone.digest || "";
      follow(track.bsr, zone.bsr && { bsr: zone.bsr.address, own: zone.bsr.own }, time);
      follow(track.states, zone.candidate && zone.state ? { state: zone.state } : null, time);
      this.noteMask(zone, time);
    }
    for (const track of this.zones.values()) {
      if (seen.has(track.zone)) continue;
      track.digest = "";
      follow(track.bsr, null, time);
      follow(track.states, null, time);
    }
  }

  /** The hash of RPs needs the hash mask length of each BSR. */
  noteMask({ zone, bsr }, time) {
    if (!bsr || this.masks.get(zone) === bsr.hashMaskLen) return;
    this.masks.set(zone, bsr.hashMaskLen);
    this.changes.push({ time, event: "bsrChanged", zone, bsr });
  }

  takeRps(rpSet, time) {
    const now = keysOf(rpSet);
    for (const [key, { zone, rp }] of this.rps) {
      if (!now.has(key)) this.changes.push({ time, event: "rpRemoved", zone, rp });
    }
    for (const [key, { zone, rp }] of now) {
      const former = this.rps.get(key);
      if (former && sameTerms(former.rp, rp)) continue;
      this.changes.push({ time, event: former ? "rpUpdated" : "rpAdded", zone, rp });
    }
    this.rps = now;
  }

  takeInterfaces({ interfaces, borders, bsr }) {
    const blocked = new Map(borders.borders.map((border) => [border.interface, border.blocked]));
    this.interfaces = interfaces.interfaces.map((one) => ({
      name: one.interface, link: one.interface, addresses: one.addresses,
      borders: blocked.get(one.interface) || [] }));
    const own = bsr.zones.filter((zone) => zone.bsr && zone.bsr.own).map((zone) => zone.bsr.address);
    this.addresses = [...new Set([
      ...this.interfaces.flatMap((one) => one.addresses.map((text) => text.split("/")[0])), ...own])];
  }

  /** Moves the ends of all that lasts. */
  extend(end) {
    extend(this.up, end);
    for (const zone of this.zones.values()) {
      extend(zone.bsr, end);
      extend(zone.states, end);
    }
    this.rpSpans = null;
  }
}
