// Lanes: a row for each router, time across. A lane has the color and the letter of the BSR, or of the RP.

import { GUTTER, timeText } from "./axis.js";
import { clipped, fit, hatching, schemeColors } from "./canvas.js";
import { indexAt, spanAt } from "./spans.js";
import { KEPT, UNKNOWN, WORDS } from "./words.js";

export const READABLE = 18; // height of a row with its name
const AROUND = [[0, 0], [-6, -7], [6, -7], [-6, 7], [6, 7]]; // places that a letter covers, in pixels
const STATE_DASHES = { "Elected-BSR": [], "Pending-BSR": [4, 3], "Candidate-BSR": [1, 3] };

/** What stands for the state of a router in its course. */
function letterOf({ stopped, unknown, item }) {
  return stopped ? "~" : unknown ? " " : item ? item.letter : "}";
}

export class Lanes {
  /** `pane` scrolls; `canvas` stays at its top; `spacer` is as high as all rows. */
  constructor(pane, canvas, spacer, model, lens, axis) {
    Object.assign(this, { pane, canvas, spacer, model, lens, axis });
    this.takeRows();
    this.overview = this.rows.length > 40;
    pane.addEventListener("scroll", () => this.draw());
  }

  takeRows() {
    this.rows = this.model.routers.filter((router) => !router.isNeighbor);
  }

  rowHeight() {
    return this.overview ? Math.min(READABLE, (this.pane.clientHeight - 2) / this.rows.length) : READABLE;
  }

  /** Puts the routers with the same course of spans next to each other; or in the order of the document. */
  sort(alike) {
    this.rows.sort((a, b) => a.index - b.index);
    if (!alike) return;
    const course = new Map(this.rows.map((router) => [router, this.courseOf(router)]));
    this.rows.sort((a, b) => {
      const [left, right] = [course.get(a), course.get(b)];
      return left < right ? -1 : left > right ? 1 : a.index - b.index;
    });
  }

  /** The items at 48 times, as a text; routers of a region that lost its BSR have the same one. */
  courseOf(router) {
    let course = "";
    for (let step = 48; step >= 1; --step) {
      const status = this.lens.at(router, (this.model.end * step) / 48);
      course += letterOf(status);
    }
    return course;
  }

  draw() {
    const height = this.rowHeight();
    this.spacer.style.height = `${Math.max(0, height * this.rows.length - this.canvas.clientHeight)}px`;
    const { context, width, height: seen } = fit(this.canvas);
    this.colors = schemeColors();
    this.empty = hatching(context, this.colors.warn, 6);
    this.keptFills = new Map();
    this.x = this.axis.scale(width);
    const first = Math.floor(this.pane.scrollTop / height);
    const last = Math.min(this.rows.length, Math.ceil((this.pane.scrollTop + seen) / height));
    context.save();
    context.beginPath();
    context.rect(GUTTER, 0, this.x.range()[1] - GUTTER, seen);
    context.clip();
    // Several rows on one pixel: one of them is drawn.
    const stride = Math.max(1, Math.floor(1 / height));
    for (let row = first; row < last; row += stride) this.drawRow(context, row, height, stride);
    if (height < 9) this.drawLetters(context, height, seen);
    context.restore();
    if (height >= 9) this.drawNames(context, first, last, height);
    else this.drawScale(context, first, last, height);
  }

  /** The top of a row, on a whole pixel so that rows neither overlap nor leave gaps. */
  top(row, height) {
    return Math.round(row * height) - Math.round(this.pane.scrollTop);
  }

  drawRow(context, row, height, stride) {
    const router = this.rows[row];
    if (router.isAsked) return;
    const top = this.top(row, height);
    const gap = height >= 9 ? 2 : 0;
    const size = Math.max(1, this.top(row + stride, height) - top - gap);
    const learned = this.lens.learnedAt(router);
    context.fillStyle = this.empty;
    this.fillSpan(context, Math.max(this.axis.start, learned), this.axis.stop, top, size);
    context.fillStyle = this.colors.line;
    if (learned > 0) this.fillSpan(context, 0, Math.min(learned, this.axis.stop), top + size / 2, 1);
    for (const span of this.lens.spansOf(router)) {
      if (span.end < this.axis.start || span.start > this.axis.stop) continue;
      context.fillStyle = span.item.color;
      this.fillSpan(context, span.start, span.end, top, size);
      if (span.kept) this.markKept(context, span, top, size);
      if (height >= 9) this.drawSpanLetters(context, span, top + size / 2);
    }
    context.fillStyle = this.colors.stopped;
    for (const span of router.up) {
      if (!span.up) this.fillSpan(context, span.start, span.end, top, size);
    }
    if (router.up.length && router.up[0].start > 0) this.fillSpan(context, 0, router.up[0].start, top, size);
    if (height >= 9) this.drawDetails(context, router, top, size);
  }

  fillSpan(context, start, end, top, size) {
    if (end < this.axis.start || start > this.axis.stop) return;
    const left = Math.max(this.x(start), GUTTER);
    context.fillRect(left, top, Math.max(0.7, this.x(end) - left), size);
  }

  /** Thin lines across the color of an RP that is a former BSR's. */
  markKept(context, span, top, size) {
    const { ink } = span.item;
    if (!this.keptFills.has(ink)) this.keptFills.set(ink, hatching(context, ink, 8));
    context.fillStyle = this.keptFills.get(ink);
    this.fillSpan(context, span.start, span.end, top, size);
  }

  drawSpanLetters(context, span, middle) {
    const left = Math.max(this.x(span.start), GUTTER);
    const right = Math.min(this.x(span.end), this.x.range()[1]);
    if (right - left < 9) return;
    context.font = "bold 11px sans-serif";
    context.textAlign = "left";
    context.textBaseline = "middle";
    for (let x = left + 3; x < right - 8; x += 160) {
      context.fillStyle = span.item.color;
      if (span.kept) context.fillRect(x - 2, middle - 6, context.measureText(span.item.letter).width + 4, 12);
      context.fillStyle = span.item.ink;
      context.fillText(span.item.letter, x, middle + 0.5);
    }
  }

  /** States of the candidacy as a line at the foot of the lane, drops as ticks at its top. */
  drawDetails(context, router, top, size) {
    if (!this.lens.range) {
      context.strokeStyle = this.colors.ink;
      context.lineWidth = 3;
      for (const span of this.lens.statesOf(router)) {
        context.setLineDash(STATE_DASHES[span.state] || [1, 5]);
        context.beginPath();
        context.moveTo(this.x(span.start), top + size - 1.5);
        context.lineTo(this.x(span.end), top + size - 1.5);
        context.stroke();
      }
      context.setLineDash([]);
    }
    for (const event of router.events) {
      if (event.event !== "dropped" && event.event !== "partlyAccepted") continue;
      const x = this.x(event.time);
      context.fillStyle = this.colors.paper;
      context.fillRect(x - 2, top, 4, 6);
      context.fillStyle = this.colors.warn;
      context.fillRect(x - 1, top, 2, 6);
    }
  }

  /** Letters on a grid, where all rows around are of one item. */
  drawLetters(context, height, seen) {
    context.font = "bold 12px sans-serif";
    context.textAlign = "center";
    context.textBaseline = "middle";
    for (let y = 12; y < seen - 6; y += 26) {
      for (let x = GUTTER + 20; x < this.x.range()[1] - 10; x += 64) {
        const items = AROUND.map(([dx, dy]) => this.itemAt(x + dx, y + dy, height));
        if (!items[0] || items.some((item) => item !== items[0])) continue;
        context.fillStyle = items[0].ink;
        context.fillText(items[0].letter, x, y);
      }
    }
  }

  itemAt(x, y, height) {
    const router = this.rows[Math.floor((y + this.pane.scrollTop) / height)];
    return router ? this.lens.at(router, this.x.invert(x)).item : null;
  }

  drawNames(context, first, last, height) {
    context.font = "11px sans-serif";
    context.textAlign = "left";
    context.textBaseline = "middle";
    for (let row = first; row < last; ++row) {
      const router = this.rows[row];
      context.fillStyle = this.colors.ink;
      context.fillText(clipped(context, router.name, GUTTER - 10), 6, this.top(row, height) + height / 2);
    }
  }

  drawScale(context, first, last, height) {
    context.font = "11px sans-serif";
    context.fillStyle = this.colors.ink;
    context.textAlign = "left";
    context.textBaseline = "middle";
    const step = Math.max(1, Math.ceil(40 / height));
    for (let row = first; row < last; row += step) {
      const y = this.top(row, height) + 7;
      if (y + 5 > this.canvas.clientHeight) break;
      context.fillText(clipped(context, this.rows[row].name, GUTTER - 10), 6, y);
    }
  }

  /** The router of a row at a height of the canvas, null for none. */
  routerAt(y) {
    return this.rows[Math.floor((y + this.pane.scrollTop) / this.rowHeight())] || null;
  }

  /** {top, height} of a router's row on the canvas. */
  placeOf(router) {
    const height = this.rowHeight();
    return { top: this.top(this.rows.indexOf(router), height), height };
  }

  /** Scrolls so that a router's row is in view. */
  reveal(router) {
    const { top, height } = this.placeOf(router);
    if (top < 0 || top + height > this.canvas.clientHeight) {
      this.pane.scrollTop += top - this.canvas.clientHeight / 2;
    }
  }

  /** A sentence on a place: router, its item, and from when to when. */
  textAt(x, y) {
    const router = this.routerAt(y);
    if (!router || !this.x || x < GUTTER) return router ? router.name : "";
    const time = this.x.invert(x);
    const status = this.lens.at(router, time);
    const words = WORDS[this.model.kind];
    if (status.stopped) return `${router.name}: ${status.asked ? words.asked : words.stopped}`;
    if (status.unknown) return `${router.name}: ${UNKNOWN}`;
    const spans = this.lens.spansOf(router);
    const index = indexAt(spans, time, this.model.end);
    if (index < 0) return `${router.name}: no ${this.lens.range ? "RP" : "BSR"}`;
    const { item, start, end, kept } = spans[index];
    const state = !this.lens.range && spanAt(this.lens.statesOf(router), time, this.model.end);
    const span = `${timeText(start)} to ${timeText(end)}`;
    return `${router.name}: ${item.letter} ${item.address}${item.owner ? ` (${item.owner})` : ""}, ${span}` +
      (kept ? `; ${KEPT}` : "") + (state ? `; ${state.state}` : "");
  }
}
