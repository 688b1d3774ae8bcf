// What the colors show: the BSR that each router follows in a zone, or the RP that serves a group of a range.

import { GLOBAL_ZONE, sampleGroup } from "./addresses.js";
import { hashMasksOf, RangeTable, rpSpansOf, servingSpans } from "./rpset.js";
import { spanAt } from "./spans.js";

const NO_SPANS = [];
const NOTHING = { stopped: false, asked: false, unknown: false, item: null, own: false, kept: false };

export class Lens {
  constructor(model, names) {
    this.model = model;
    this.names = names;
    this.cache = new Map();
  }

  /** Selects a zone, and a range whose RPs are shown; "" for the BSR. */
  select(zone, range) {
    this.zone = zone;
    this.range = range;
    this.group = range ? sampleGroup(range) : "";
    this.key = `${zone} ${range}`;
    if (!this.cache.has(this.key)) this.cache.set(this.key, new Array(this.model.routers.length));
    this.current = this.cache.get(this.key);
    this.statusTime = undefined;
  }

  /** Forgets what it has made, once a live model has changed. */
  forget() {
    this.cache.clear();
    this.select(this.zone, this.range);
  }

  /** Spans {start, end, item, own, kept} of a router; only RPs are kept. */
  spansOf(router) {
    if (!this.current[router.index]) this.current[router.index] = this.make(router);
    return this.current[router.index];
  }

  make(router) {
    if (router.isNeighbor) return NO_SPANS;
    if (this.range) {
      return servingSpans(rpSetOf(router, this.model), router.changes, this.group, this.model.end)
        .map((span) => ({
          ...span, item: this.names.rps.get(span.rp), own: router.addresses.includes(span.rp) }));
    }
    const zone = router.zones.get(this.zone);
    return zone ? zone.bsr.map((span) => ({ ...span, item: this.names.bsrs.get(span.bsr) })) : NO_SPANS;
  }

  /** When a router first had the zone that is selected, Infinity for never. RPs are of all zones, and each
   *  router has the zone of all groups. */
  learnedAt(router) {
    if (this.range || router.isNeighbor || this.zone === GLOBAL_ZONE) return 0;
    const zone = router.zones.get(this.zone);
    if (!zone) return Infinity;
    if (zone.since !== undefined) return zone.since;
    return Math.min(...[zone.bsr, zone.states].map((spans) => (spans.length ? spans[0].start : Infinity)));
  }

  /** {stopped, asked, unknown, item, own, kept}; item is null without a BSR or RP, and `unknown` before the
   *  router has learned the zone. An agent that is asked for the first time is stopped too: nothing is known
   *  of it. */
  at(router, time) {
    if (router.isAsked) return { ...NOTHING, stopped: true, asked: true };
    const up = spanAt(router.up, time, this.model.end);
    if (!up || !up.up) return { ...NOTHING, stopped: true };
    const span = spanAt(this.spansOf(router), time, this.model.end);
    if (!span) return time < this.learnedAt(router) ? { ...NOTHING, unknown: true } : NOTHING;
    return { ...NOTHING, item: span.item, own: Boolean(span.own), kept: Boolean(span.kept) };
  }

  /** What at() returns for all routers at a time, by index; kept for the last time. */
  allAt(time) {
    if (this.statusTime !== time) {
      this.statuses = this.model.routers.map((router) => this.at(router, time));
      this.statusTime = time;
    }
    return this.statuses;
  }

  /** The spans of a router's candidacy as BSR of the zone. */
  statesOf(router) {
    const zone = router.zones.get(this.zone);
    return zone ? zone.states : NO_SPANS;
  }

  /** How many running routers have each item at a time, as a map; null is for those without one. With the
   *  numbers of those that are stopped, of those that are asked for the first time, of those that have not
   *  learned the zone, and of those with an RP that is kept. */
  countsAt(time) {
    const counts = new Map();
    let [stopped, asked, unknown, kept] = [0, 0, 0, 0];
    for (const router of this.model.routers) {
      if (router.isNeighbor) continue;
      const status = this.allAt(time)[router.index];
      if (status.kept) ++kept;
      if (status.asked) ++asked;
      else if (status.stopped) ++stopped;
      else if (status.unknown) ++unknown;
      else counts.set(status.item, (counts.get(status.item) || 0) + 1);
    }
    return { counts, stopped, asked, unknown, kept };
  }
}

/** The spans of a router's RP set; made once. */
export function rpSetOf(router, model) {
  if (!router.rpSpans) router.rpSpans = rpSpansOf(router.changes, model.end, router.up);
  return router.rpSpans;
}

/** The RPs of a router at a time, by range. */
export function rangesAt(router, model, time) {
  return new RangeTable(rpSetOf(router, model), hashMasksOf(router.changes), time, model.end);
}
