// The time axis that chart and lanes share: the part of the run that is in view, and its place in pixels.

import { scaleLinear } from "d3-scale";

export const GUTTER = 96; // for names, left of the axis
const RIGHT = 20;

export class Axis {
  constructor(end) {
    this.end = end;
    this.start = 0;
    this.stop = Math.max(end, 1e-3);
  }

  scale(width) {
    return scaleLinear().domain([this.start, this.stop]).range([GUTTER, width - RIGHT]);
  }

  /** The time at a place, within the run. */
  timeAt(x, width) {
    return Math.max(0, Math.min(this.end, this.scale(width).invert(x)));
  }

  /** Zooms by a factor, below 1 to come closer, and keeps a time in its place. */
  zoom(factor, time) {
    const length = Math.max(0.5, Math.min(this.end, (this.stop - this.start) * factor));
    const share = (time - this.start) / (this.stop - this.start);
    this.moveTo(time - share * length, length);
  }

  /** Moves the end of the run; what shows the end goes on to do so. */
  extend(end) {
    const shift = this.stop >= this.end ? end - this.end : 0;
    this.end = end;
    const length = this.stop - this.start;
    if (this.start === 0) this.moveTo(0, length + shift);
    else this.moveTo(this.start + shift, length);
  }

  moveTo(start, length) {
    this.start = Math.max(0, Math.min(this.end - length, start));
    this.stop = this.start + length;
  }

  /** Moves so that a time is in view. */
  reveal(time) {
    const length = this.stop - this.start;
    if (time < this.start || time > this.stop) this.moveTo(time - length / 2, length);
  }
}

/** Seconds with at most three decimals, as 300 s or 409.004 s. */
export function timeText(time) {
  return `${Math.round(time * 1000) / 1000} s`;
}
