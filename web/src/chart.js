// Above the lanes: the time axis, a mark for each statement that changed the network, and packets by kind.

import { axisName, GUTTER, ticksOf } from "./axis.js";
import { fit, schemeColors } from "./canvas.js";
import { WORDS } from "./words.js";

const AXIS_HEIGHT = 18;
const MARKS_HEIGHT = 16;
const ROW_HEIGHT = 22;

export class Chart {
  constructor(canvas, model, axis) {
    Object.assign(this, { canvas, model, axis });
    canvas.style.height = `${AXIS_HEIGHT + MARKS_HEIGHT + ROW_HEIGHT * model.load.series.length + 4}px`;
  }

  draw() {
    const { context, width } = fit(this.canvas);
    this.colors = schemeColors();
    this.x = this.axis.scale(width);
    context.font = "11px sans-serif";
    context.textBaseline = "middle";
    this.drawTicks(context);
    this.drawMarks(context);
    this.model.load.series.forEach((series, row) => {
      this.drawSeries(context, series, AXIS_HEIGHT + MARKS_HEIGHT + row * ROW_HEIGHT);
    });
  }

  label(context, text, y) {
    context.fillStyle = this.colors.ink;
    context.textAlign = "left";
    context.fillText(text, 6, y, GUTTER - 10);
  }

  drawTicks(context) {
    this.label(context, axisName(), AXIS_HEIGHT / 2);
    context.textAlign = "center";
    for (const { time, text } of ticksOf(this.x)) {
      context.fillStyle = this.colors.ink;
      context.fillText(text, this.x(time), AXIS_HEIGHT / 2);
      context.fillStyle = this.colors.line;
      context.fillRect(this.x(time), AXIS_HEIGHT - 3, 1, 3);
    }
  }

  drawMarks(context) {
    const y = AXIS_HEIGHT + MARKS_HEIGHT / 2;
    this.label(context, WORDS[this.model.kind].markRow, y);
    context.fillStyle = this.colors.accent;
    for (const mark of this.model.marks) {
      const x = this.x(mark.time);
      if (x < GUTTER - 1 || x > this.x.range()[1] + 1) continue;
      context.beginPath();
      context.moveTo(x, y + 6);
      context.lineTo(x - 5, y - 5);
      context.lineTo(x + 5, y - 5);
      context.fill();
    }
  }

  drawSeries(context, series, top) {
    const most = series.counts.reduce((a, b) => Math.max(a, b), 0);
    const { binLength } = this.model.load;
    this.label(context, `${series.label} ≤${most}`, top + ROW_HEIGHT / 2);
    context.fillStyle = this.colors.faint;
    series.counts.forEach((count, bin) => {
      const left = Math.max(GUTTER, this.x(bin * binLength));
      const right = Math.min(this.x.range()[1], this.x((bin + 1) * binLength));
      if (count === 0 || right <= left) return;
      const height = Math.max(1, (count / most) * (ROW_HEIGHT - 4));
      context.fillRect(left, top + ROW_HEIGHT - height, Math.max(1, right - left), height);
    });
    context.fillStyle = this.colors.line;
    context.fillRect(GUTTER, top + ROW_HEIGHT, this.x.range()[1] - GUTTER, 1);
  }

  /** The marks within a few pixels of a place. */
  marksAt(x) {
    return this.x ? this.model.marks.filter((mark) => Math.abs(this.x(mark.time) - x) <= 5) : [];
  }
}
