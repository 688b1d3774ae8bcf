// The panel: who is followed by how many routers at the cursor's time, and the selected router.

import { comparePrefixes, GLOBAL_ZONE, sampleGroup } from "./addresses.js";
import { timeText } from "./axis.js";
import { badge, element, fill, name, table } from "./dom.js";
import { rangesAt } from "./lens.js";
import { SHAPES } from "./names.js";
import { sentenceOf, shortened } from "./sentences.js";
import { countUntil, spanAt } from "./spans.js";
import { KEPT, UNKNOWN, WORDS } from "./words.js";

const LAST_CHANGES = 12;
const MAX_RPS = 100; // rows

/** The address of a BSR or RP, with the router that has it. */
function nameOf(item) {
  const owner = item.owner ? [" (", name(item.owner), ")"] : [];
  return element("span", { class: "name", title: item.owner }, item.address, owner);
}

/** The holdtime of an RP, and whether it is kept. */
function termOf({ holdtime, kept }) {
  return kept ? element("span", { title: KEPT }, `${holdtime} s, kept`) : `${holdtime} s`;
}

export class Panel {
  constructor(legend, details, model, lens, names, actions) {
    Object.assign(this, { legend, details, model, lens, names, actions, words: WORDS[model.kind] });
  }

  draw(time, router) {
    this.time = time;
    this.drawLegend();
    fill(this.details, router ? this.routerParts(router) : this.hintParts());
  }

  drawLegend() {
    const { counts, stopped, asked, unknown, kept } = this.lens.countsAt(this.time);
    const items = this.lens.range ? this.names.rps : this.names.bsrs;
    const what = this.lens.range ? `RP for ${this.lens.group}` : "BSR";
    const used = [...items.values()].filter((item) => counts.has(item));
    fill(this.legend,
      used.map((item) => element("span", { class: "entry" }, badge(item), this.shapeOf(item), " ",
        nameOf(item), `: ${counts.get(item)}`)),
      counts.has(null) && element("span", { class: "entry" }, element("span", { class: "badge none" }, "–"),
        ` no ${what}: ${counts.get(null)}`),
      unknown !== 0 && element("span", { class: "entry" },
        element("span", { class: "badge unknown" }, "\u00a0"), ` ${UNKNOWN}: ${unknown}`),
      kept !== 0 && element("span", { class: "entry" }, element("span", { class: "badge kept" }, "\u00a0"),
        ` ${KEPT}: ${kept}`),
      stopped !== 0 && element("span", { class: "entry" }, element("span", { class: "badge stopped" }, "×"),
        ` ${this.words.stopped}: ${stopped}`),
      asked !== 0 && element("span", { class: "entry" }, element("span", { class: "badge" }, "…"),
        ` ${this.words.asked}: ${asked}`));
  }

  /** The shape of routers with an item, where the graph is too dense for letters. */
  shapeOf(item) {
    return this.actions.hasShapes() ? ` ${SHAPES[item.shape]}` : "";
  }

  hintParts() {
    const parts = [element("h2", {}, "No router selected"),
      element("p", {}, "Click a router, a lane, or search. Keys: space plays, ← → go to the change before " +
        "or after, ↑ ↓ select a router, z the next zone, + − zoom the time, / searches, Esc deselects.")];
    if (this.model.kind === "live") parts.push(...this.comparisonParts());
    if (this.model.marks.length) {
      parts.push(element("h3", {}, this.words.marks));
      parts.push(this.timeTable(this.model.marks.map((mark) => [mark.time, shortened(mark.text)])));
    }
    return parts;
  }

  /** Whether an agent has ceased to answer; a comparison is some seconds old. */
  isGone(agent) {
    const router = this.model.routers.find((one) => one.name === agent);
    return Boolean(router) && this.lens.at(router, this.model.end).stopped;
  }

  /** Which agents agree on the zone, as they are now. */
  comparisonParts() {
    const { comparison } = this.model;
    const zone = comparison && comparison.zones.find((one) => one.zone === this.lens.zone);
    if (!zone) return [];
    const isGone = zone.routers.map((one) => this.isGone(one.router));
    const agree = zone.agree && comparison.silent.length === 0 && !isGone.includes(true);
    const rows = [...zone.routers.map((one, index) => (isGone[index]
      ? [name(one.router), "–", "–", this.words.stopped]
      : [name(one.router), one.digest || "–", one.group, one.why])),
      ...comparison.silent.map((one) => [name(one.router), "–", "–", `does not answer: ${one.error}`])];
    const heading = `${agree ? "All agree" : "Not all agree"} on ${zone.zone} now`;
    return [element("h3", { id: "comparison" }, heading),
      table(["router", "digest", "agrees", "why not"], rows)];
  }

  timeTable(rows) {
    return table(["time", "event"], rows.map(([time, text]) => [
      element("button", { class: "time", click: () => this.actions.goTo(time) }, timeText(time)),
      name(text)]));
  }

  routerParts(router) {
    const status = this.lens.at(router, this.time);
    const state = this.stateOf(status);
    return [
      element("h2", {}, name(router.name), ` at ${timeText(this.time)}`),
      element("p", {}, router.isNeighbor ? this.words.neighbor :
        `${state}${router.addresses.length ? "; " : ""}${router.addresses.join(", ")}`),
      !router.isNeighbor && !status.stopped && this.zoneParts(router),
      !router.isNeighbor && !status.stopped && this.rpSetParts(router),
      this.roleParts(router),
      this.dropParts(router),
      this.changeParts(router),
    ].flat();
  }

  stateOf({ asked, stopped }) {
    return asked ? this.words.asked : stopped ? this.words.stopped : this.words.running;
  }

  zoneParts(router) {
    const isLive = this.model.kind === "live";
    const rows = [...router.zones.values()].map((zone) => {
      const bsr = spanAt(zone.bsr, this.time, this.model.end);
      const state = spanAt(zone.states, this.time, this.model.end);
      const item = bsr && this.names.bsrs.get(bsr.bsr);
      const pick = { class: "link", click: () => this.actions.pickZone(zone.zone) };
      return [element("button", pick, zone.zone),
        item ? element("span", {}, badge(item), " ", nameOf(item)) : "no BSR",
        bsr ? timeText(bsr.start) : "", ...(isLive ? [zone.digest] : []), state ? state.state : ""];
    });
    const head = ["zone", "BSR", "since", ...(isLive ? ["digest"] : []), "candidacy"];
    return [element("h3", {}, "Zones"), rows.length ? table(head, rows) : element("p", {}, "none")];
  }

  rpSetParts(router) {
    const heading = element("h3", {}, "RP set");
    if (!this.model.hasRpChanges) return [heading, this.finalRpSet(router)];
    const shown = rangesAt(router, this.model, this.time);
    if (shown.ranges.size === 0) return [heading, element("p", {}, "no RPs")];
    const ranges = [...shown.ranges].sort(([a], [b]) => comparePrefixes(a, b));
    const count = ranges.reduce((sum, [, spans]) => sum + spans.length, 0);
    const rows = [];
    for (const [range, spans] of ranges) {
      if (rows.length >= MAX_RPS) break;
      rows.push(...this.rangeRows(range, spans, shown));
    }
    const parts = [heading, table(["range", "RP", "priority", "holdtime", "serves"], rows.slice(0, MAX_RPS))];
    if (count > MAX_RPS) parts.push(element("p", {}, `and ${count - MAX_RPS} more RPs`));
    return parts;
  }

  /** A row for each RP of a range, with the group that it serves. */
  rangeRows(range, spans, shown) {
    const group = sampleGroup(range);
    const best = shown.choices(group)[0];
    return [...spans].sort((a, b) => a.priority - b.priority).map((span) => {
      const item = this.names.rps.get(span.rp);
      const pick = { class: "link", click: () => this.actions.pickRange(span.zone, range) };
      const zone = span.zone === range ? " scoped" : ` in\u00a0${span.zone}`;
      const scope = span.zone === GLOBAL_ZONE ? "" : zone;
      return [element("span", {}, element("button", pick, range), scope),
        element("span", {}, badge(item), ` ${span.rp}`), span.priority, termOf(span),
        best && best.range === range && best.rp === span.rp ? group : ""];
    });
  }

  finalRpSet(router) {
    const rows = router.atEnd.flatMap((zone) => zone.rpSet.flatMap((range) =>
      range.rps.map((rp) => [range.range, rp.address, rp.priority, termOf(rp)])));
    return element("div", {},
      element("p", {}, "The scenario doesn't report changes of RPs (quiet rps); this is the set at the end."),
      table(["range", "RP", "priority", "holdtime"], rows));
  }

  roleParts(router) {
    const rows = [
      ...router.candidateBsrs.map((bsr) => ["candidate BSR", bsr.zone || `list ${bsr.list}`, bsr.priority]),
      ...router.candidateRps.map((rp) => ["candidate RP", rp.range || `list ${rp.list}`, rp.priority]),
      ...router.interfaces.flatMap((intf) =>
        [...intf.borders, ...(intf.borderLists || [])].map(
          (zone) => [["border on ", name(intf.link)], zone, ""])),
    ];
    if (rows.length === 0) return [];
    return [element("h3", {}, "Configured"), table(["role", "zone or range", "priority"], rows)];
  }

  dropParts(router) {
    if (router.drops.length === 0) return [];
    return [element("h3", {}, this.words.drops),
      table(["count", "reason"], router.drops.map((drop) => [
        drop.count, element("span", { title: drop.reason }, drop.sentence)]))];
  }

  changeParts(router) {
    const until = countUntil(router.events, this.time);
    const last = router.events.slice(Math.max(0, until - LAST_CHANGES), until).reverse();
    if (last.length === 0) return [];
    const textOf = (event) => `${event.zone ? event.zone + ": " : ""}${sentenceOf(event)}`;
    return [element("h3", {}, "Last events"),
      this.timeTable(last.map((event) => [event.time, textOf(event)]))];
  }
}
