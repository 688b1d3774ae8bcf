// Chart and lanes below each other, with one cursor for both; mouse and wheel.

import { Axis, GUTTER, timeText } from "./axis.js";
import { fit, schemeColors } from "./canvas.js";
import { Chart } from "./chart.js";
import { Lanes, READABLE } from "./lanes.js";
import { shortened } from "./sentences.js";

const FRAME = 2; // width of the frame; the chart ends so far above the first lane

export class Timeline {
  /** `parts`: the elements section, chart, pane, lanes, spacer, cursor and hint. `actions`: goTo, pick. */
  constructor(parts, model, lens, actions) {
    Object.assign(this, { parts, model, actions });
    this.axis = new Axis(model.end);
    this.chart = new Chart(parts.chart, model, this.axis);
    this.lanes = new Lanes(parts.pane, parts.lanes, parts.spacer, model, lens, this.axis);
    for (const canvas of [parts.chart, parts.lanes]) this.listen(canvas);
    parts.section.addEventListener("pointerleave", () => (parts.hint.hidden = true));
    parts.pane.addEventListener("scroll", () => this.drawCursor(this.time, this.selected));
  }

  /** The height at which all lanes are readable. */
  height() {
    return parseInt(this.parts.chart.style.height, 10) + this.lanes.rows.length * READABLE + 10;
  }

  listen(canvas) {
    canvas.addEventListener("pointerdown", (event) => this.press(canvas, event));
    canvas.addEventListener("pointermove", (event) => this.move(canvas, event));
    canvas.addEventListener("wheel", (event) => this.wheel(canvas, event), { passive: false });
  }

  timeAt(event) {
    return this.axis.timeAt(event.offsetX, this.parts.lanes.clientWidth);
  }

  press(canvas, event) {
    if (event.button !== 0) return;
    canvas.setPointerCapture(event.pointerId);
    const router = canvas === this.parts.lanes ? this.lanes.routerAt(event.offsetY) : null;
    if (router) this.actions.pick(router);
    if (event.offsetX >= GUTTER - 4) this.actions.goTo(this.timeAt(event));
  }

  move(canvas, event) {
    if (event.buttons & 1 && event.offsetX >= GUTTER - 4) this.actions.goTo(this.timeAt(event));
    const marks = canvas === this.parts.chart ? this.chart.marksAt(event.offsetX) : [];
    const textOf = (mark) => `${timeText(mark.time)}: ${shortened(mark.text)}`;
    const text = canvas === this.parts.chart ? marks.map(textOf).join("\n")
      : this.lanes.textAt(event.offsetX, event.offsetY);
    this.showHint(canvas, event, text);
  }

  showHint(canvas, event, text) {
    const { hint, section } = this.parts;
    hint.hidden = text === "";
    hint.textContent = text;
    hint.style.whiteSpace = "pre-line";
    const top = event.offsetY + (canvas === this.parts.lanes ? this.parts.chart.clientHeight : 0);
    const isRight = event.offsetX > section.clientWidth / 2;
    hint.style.left = isRight ? "auto" : `${event.offsetX + 14}px`;
    hint.style.right = isRight ? `${section.clientWidth - event.offsetX + 14}px` : "auto";
    hint.style.top = `${Math.min(top + 12, section.clientHeight - 24)}px`;
  }

  /** With Ctrl or Shift the wheel zooms the time; a plain one scrolls the lanes. */
  wheel(canvas, event) {
    const isZoom = event.ctrlKey || event.shiftKey || canvas === this.parts.chart;
    if (!isZoom) return;
    event.preventDefault();
    const delta = event.deltaY || event.deltaX;
    this.axis.zoom(Math.pow(1.002, delta), this.timeAt(event));
    this.drawAll(this.time, this.selected);
  }

  zoom(factor) {
    this.axis.zoom(factor, this.time);
    this.drawAll(this.time, this.selected);
  }

  drawAll(time, selected) {
    this.chart.draw();
    this.lanes.draw();
    this.drawCursor(time, selected);
  }

  /** The cursor, and a frame around the lane of the selected router. */
  drawCursor(time, selected) {
    this.time = time;
    this.selected = selected;
    const { context, height } = fit(this.parts.cursor);
    const width = this.parts.lanes.clientWidth;
    const colors = schemeColors();
    const scale = this.axis.scale(width);
    const x = scale(time);
    if (x >= GUTTER - 1 && x <= scale.range()[1] + 1) {
      context.fillStyle = colors.paper;
      context.fillRect(x - 2, 0, 4, height);
      context.fillStyle = colors.accent;
      context.fillRect(x - 1, 0, 2, height);
    }
    if (selected && !selected.isNeighbor) this.drawFrame(context, colors, selected, width);
  }

  drawFrame(context, colors, selected, width) {
    const place = this.lanes.placeOf(selected);
    const chartHeight = this.parts.chart.clientHeight;
    context.save();
    context.beginPath();
    context.rect(0, chartHeight - FRAME, width, this.parts.pane.clientHeight + FRAME);
    context.clip();
    context.strokeStyle = colors.accent;
    context.lineWidth = FRAME;
    const left = GUTTER - 3; // the names are left of it
    context.strokeRect(left, chartHeight + place.top - 1, width - left - 1, Math.max(4, place.height));
    context.restore();
  }
}
