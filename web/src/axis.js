// The time axis that chart and lanes share: the part of the run that is in view, and its place in pixels.

import { scaleLinear } from "d3-scale";

export const GUTTER = 96; // for names, left of the axis
const RIGHT = 20;
const STEPS = [1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 21600]; // seconds between labels

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

  /** Moves so that a time is in view; returns whether it has moved. */
  reveal(time) {
    if (time >= this.start && time <= this.stop) return false;
    const length = this.stop - this.start;
    this.moveTo(time - length / 2, length);
    return true;
  }
}

let wallClock = null; // of time 0, in seconds since 1970; null where times are those of a run

/** Shows times as those of the wall clock from now on. */
export function showWallClock(start) {
  wallClock = start;
}

/** Seconds with at most three decimals, as 300 s or 409.004 s; of a live page the time of day. */
export function timeText(time) {
  if (wallClock === null) return `${Math.round(time * 1000) / 1000} s`;
  const date = new Date((wallClock + time) * 1000);
  return [date.getHours(), date.getMinutes(), date.getSeconds()]
    .map((part) => String(part).padStart(2, "0")).join(":");
}

/** The name of the axis, and its labels {time, text} for a scale. */
export const axisName = () => (wallClock === null ? "seconds" : "time");

export function ticksOf(scale) {
  if (wallClock === null) {
    const format = scale.tickFormat(10);
    return scale.ticks(10).map((time) => ({ time, text: format(time) }));
  }
  const [start, stop] = scale.domain();
  const step = STEPS.find((one) => (stop - start) / one <= 10) || STEPS[STEPS.length - 1];
  const offset = (wallClock - 60 * new Date(wallClock * 1000).getTimezoneOffset()) % step;
  const ticks = [];
  for (let time = Math.ceil((start + offset) / step) * step - offset; time <= stop; time += step) {
    ticks.push({ time, text: timeText(Math.round(time * 1000) / 1000) });
  }
  return ticks;
}
