// Moves the cursor by itself, and from change to change.

import { indexAt } from "./spans.js";

const WHOLE_RUN = 24; // seconds for which a run is played at speed 1

export class Player {
  /** `goTo` moves the cursor; `onChange` is called when it begins or ends to play. */
  constructor(model, state, goTo, speed) {
    Object.assign(this, { model, state, goTo, speed, onChange: () => {}, isPlaying: false });
  }

  toggle() {
    this.isPlaying = !this.isPlaying;
    if (this.isPlaying && this.state.get("time") >= this.model.end) this.goTo(0);
    this.last = undefined;
    this.onChange(this.isPlaying);
    if (this.isPlaying) requestAnimationFrame((now) => this.step(now));
  }

  step(now) {
    if (!this.isPlaying) return;
    const passed = this.last === undefined ? 0 : (now - this.last) / 1000;
    this.last = now;
    const time = this.state.get("time") + (passed * this.speed() * this.model.end) / WHOLE_RUN;
    this.goTo(Math.min(this.model.end, time));
    if (time >= this.model.end) this.toggle();
    else requestAnimationFrame((next) => this.step(next));
  }
}

/** The times at which a router, or any router, changes its BSR or RP or stops, and those of the marks. */
export function momentsOf(model, lens, router) {
  const times = new Set([0, model.end, ...model.marks.map((mark) => mark.time)]);
  for (const one of router ? [router] : model.routers) {
    for (const span of lens.spansOf(one)) times.add(span.start).add(span.end);
    for (const span of one.up) times.add(span.start);
  }
  return [...times].sort((a, b) => a - b);
}

/** The moment after a time, or before it if `step` is -1. */
export function nextMoment(moments, time, step) {
  const spans = moments.map((start, i) => ({ start, end: moments[i + 1] ?? Infinity }));
  const index = indexAt(spans, time, Infinity);
  if (step > 0) return moments[Math.min(moments.length - 1, index + 1)];
  return moments[Math.max(0, moments[index] < time ? index : index - 1)];
}
