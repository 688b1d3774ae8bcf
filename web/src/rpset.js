// The RP set of one router in the course of time, and the RP that serves a group (RFC 7761 section 4.7).

import { covers, numberOf, prefixOf } from "./addresses.js";
import { countUntil } from "./spans.js";

const ADDED = new Set(["rpAdded", "rpUpdated", "rpKept"]); // after which an RP is in the set
const REMOVED = new Set(["rpRemoved", "rpExpired"]);
const BSR = new Set(["bsrElected", "bsrChanged"]);

/** The hash of RFC 7761 section 4.7.2; the higher one wins. All are numbers of 32 bits. */
export function rpHash(group, maskLength, rp) {
  const mask = maskLength === 0 ? 0 : (0xffffffff << (32 - Math.min(maskLength, 32))) >>> 0;
  const inner = (Math.imul(1103515245, group & mask) + 12345) & 0x7fffffff;
  return ((Math.imul(1103515245, inner ^ rp) + 12345) & 0x7fffffff) >>> 0;
}

/** When the router stops that runs at a time; `end` for one whose spans are not known. */
function stopAfter(upSpans, time, end) {
  const span = upSpans && upSpans.find((one) => one.up && one.start <= time && time < one.end);
  return span ? span.end : end;
}

/**
 * Spans {start, end, zone, range, rp, priority, holdtime, bidirectional, kept} from the changes of one
 * router, in order of time. An RP of a former BSR is `kept` until the present one names its range, when it
 * is added again. A router that stops loses its RP set; `upSpans` is null for one that always runs.
 */
export function rpSpansOf(changes, end, upSpans) {
  const open = new Map();
  const spans = [];
  const close = (key, time) => {
    const span = open.get(key);
    if (!span) return;
    open.delete(key);
    span.end = Math.min(time, stopAfter(upSpans, span.start, end));
    if (span.end > span.start || span.end === end) spans.push(span);
  };
  for (const change of changes) {
    if (!change.rp) continue;
    const { address, range, priority, holdtime, bidirectional } = change.rp;
    const key = `${change.zone} ${range} ${address}`;
    if (ADDED.has(change.event) || REMOVED.has(change.event)) close(key, change.time);
    if (!ADDED.has(change.event)) continue;
    const kept = change.event === "rpKept" || Boolean(change.rp.kept);
    const terms = { zone: change.zone, range, rp: address, priority, holdtime, bidirectional, kept };
    open.set(key, { start: change.time, ...terms });
  }
  for (const key of [...open.keys()]) close(key, end);
  return spans.sort((a, b) => a.start - b.start);
}

/** The hash mask lengths that the BSRs of each zone announced, as {time, length} in order of time. */
export function hashMasksOf(changes) {
  const masks = new Map();
  for (const { event, zone, time, bsr } of changes) {
    if (!BSR.has(event)) continue;
    if (!masks.has(zone)) masks.set(zone, []);
    masks.get(zone).push({ time, length: bsr.hashMaskLen });
  }
  return masks;
}

/** The last length that the BSR of a zone announced until a time; 30 if none did. */
function hashMaskAt(masks, zone, time) {
  const announced = masks.get(zone) || [];
  const count = countUntil(announced, time);
  return count === 0 ? 30 : announced[count - 1].length;
}

function isBetter(a, b) {
  return a.priority - b.priority || b.hash - a.hash || b.number - a.number;
}

function keyOf(number, length) {
  return `${length === 0 ? 0 : (number & (0xffffffff << (32 - length))) >>> 0}/${length}`;
}

/** The RPs of a router at one time by range, so that each range is read once for all groups. */
export class RangeTable {
  /** `rpSpans` and `masks` (of hashMasksOf) are those of the router, `end` is that of the run. */
  constructor(rpSpans, masks, time, end) {
    Object.assign(this, { time, masks, ranges: new Map() });
    for (const span of rpSpans) {
      const isLive = span.start <= time && (time < span.end || (time === end && span.end === end));
      if (!isLive) continue;
      if (!this.ranges.has(span.range)) this.ranges.set(span.range, []);
      this.ranges.get(span.range).push(span);
    }
    const prefixes = [...this.ranges].map(([range, spans]) => [prefixOf(range), spans]);
    this.byPrefix = new Map(prefixes.map(([prefix, spans]) => [keyOf(prefix.base, prefix.length), spans]));
    this.lengths = [...new Set(prefixes.map(([prefix]) => prefix.length))].sort((a, b) => b - a);
  }

  /** The RPs of the longest range that has a group, the best first; empty for none. */
  choices(group) {
    const number = numberOf(group);
    const length = this.lengths.find((one) => this.byPrefix.has(keyOf(number, one)));
    if (length === undefined) return [];
    return this.byPrefix.get(keyOf(number, length)).map((span) => ({
      ...span,
      number: numberOf(span.rp),
      hash: rpHash(number, hashMaskAt(this.masks, span.zone, this.time), numberOf(span.rp)),
    })).sort(isBetter);
  }
}

/** Spans {start, end, rp, kept} of the RP that serves a group; a time without one has no span. */
export function servingSpans(rpSpans, changes, group, end) {
  const number = numberOf(group);
  const covering = rpSpans.filter((span) => covers(prefixOf(span.range), number));
  const times = new Set(covering.flatMap((span) => [span.start, span.end]));
  for (const change of changes) if (BSR.has(change.event)) times.add(change.time);
  const masks = hashMasksOf(changes);
  const bounds = [...times].sort((a, b) => a - b);
  const spans = [];
  for (let i = 0; i + 1 < bounds.length; ++i) {
    const best = new RangeTable(covering, masks, bounds[i], end).choices(group)[0];
    if (!best) continue;
    const last = spans[spans.length - 1];
    const { rp, kept } = best;
    const isSame = last && last.rp === rp && last.kept === kept && last.end === bounds[i];
    if (isSame) last.end = bounds[i + 1];
    else spans.push({ start: bounds[i], end: bounds[i + 1], rp, kept });
  }
  return spans;
}
