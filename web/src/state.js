// What the page shows: {time, zone, router, range}. A change calls the listeners once per frame.

export class State {
  constructor(values) {
    this.values = values;
    this.listeners = [];
    this.changed = new Set();
  }

  get(name) {
    return this.values[name];
  }

  set(values) {
    for (const name of Object.keys(values)) {
      if (this.values[name] === values[name]) continue;
      this.values[name] = values[name];
      this.changed.add(name);
    }
    if (this.changed.size === 0 || this.pending) return;
    this.pending = true;
    requestAnimationFrame(() => this.flush());
  }

  /** Calls the listeners now if something changed. */
  flush() {
    this.pending = false;
    const changed = this.changed;
    this.changed = new Set();
    if (changed.size !== 0) for (const listener of this.listeners) listener(changed);
  }

  /** `listener` gets the set of the names of what changed. */
  onChange(listener) {
    this.listeners.push(listener);
  }
}

/** The values of a fragment such as #t=800&zone=239.1.0.0/16&router=r7; unknown names are left out. */
export function readFragment(fragment) {
  const read = new URLSearchParams(fragment.replace(/^#/, ""));
  const values = {};
  if (read.has("t") && Number.isFinite(Number(read.get("t")))) values.time = Number(read.get("t"));
  for (const name of ["zone", "router", "range"]) if (read.has(name)) values[name] = read.get(name);
  return values;
}

/** The fragment of what is shown, without the time of a live page; names are escaped, prefixes aren't. */
export function writeFragment(values, isLive) {
  const parts = isLive ? [] : [`t=${Math.round(values.time * 1000) / 1000}`];
  for (const name of ["zone", "range", "router"]) {
    if (values[name]) parts.push(`${name}=${encodeURIComponent(values[name]).replace(/%2F/g, "/")}`);
  }
  return parts.length ? "#" + parts.join("&") : location.pathname;
}
