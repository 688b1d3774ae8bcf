// The live page: one model over the agents of a server, which reports their changes as a stream of events.
// Views that changed are asked for again, so that a lost event loses nothing.

import { comparePrefixes, covers, numberOf, prefixOf } from "./addresses.js";
import { KINDS, rangesOf } from "./simulation.js";
import { extend, follow, Tracker } from "./tracker.js";

const PAST = 600; // seconds of the history that the page shows at first
const GATHER = 250; // milliseconds for which changes are gathered before the views are asked for
const POLL = 10000; // milliseconds after which POLLED are asked for, of which the agent reports no change
const FULL_POLLS = 6; // after so many of these all are asked for, so that a lost event loses nothing
const COMPARE = 500; // milliseconds for which changes are gathered before the comparison is asked for
const RETRY = 5000; // milliseconds until a stream that was rejected is asked for again
const PATIENCE = 2000; // milliseconds for the first view of an agent
const MAX_MARKS = 500;
const POLLED = ["neighbors", "interfaces", "borders", "drops"];
const CHANGING = ["bsr", "rp-set", "neighbors", "borders"];
const VIEWS = ["bsr", "rp-set", ...POLLED];

/** The JSON of a path; fails if there is no answer after some milliseconds, unless they are 0. */
async function ask(path, patience = 0) {
  const control = new AbortController();
  const timer = patience && setTimeout(() => control.abort(), patience);
  const answer = await fetch(path, { signal: control.signal }).finally(() => clearTimeout(timer));
  if (!answer.ok) throw new Error(`${path}: ${answer.status}`);
  return answer.json();
}

/** The subnet of an address such as 10.0.1.1/24, as 10.0.1.0/24. */
function subnetOf(text) {
  const { base, length } = prefixOf(text);
  return `${[24, 16, 8, 0].map((shift) => (base >>> shift) & 255).join(".")}/${length}`;
}

function neighborNode(address) {
  const node = new Tracker(address);
  node.addresses = [address];
  node.isNeighbor = true;
  return node;
}

/** The packets that an agent has received, by kind. */
function receivedOf({ interfaces }) {
  const sumOf = (key) => interfaces.interfaces.reduce(
    (sum, { traffic }) => sum + ((traffic && traffic[key] && traffic[key].received) || 0), 0);
  return Object.fromEntries(KINDS.map(({ key }) => [key, sumOf(key)]));
}

export class Live {
  /** `onUpdate(isOther)` is called after each change of the model; isOther if routers or links are others. */
  constructor(agents, onUpdate) {
    this.onUpdate = onUpdate;
    this.base = Date.now() / 1000 - PAST;
    this.trackers = agents.map((name) => new Tracker(name));
    this.neighbors = new Map(agents.map((name) => [name, []]));
    this.links = new Map();
    this.others = new Map();
    this.jobs = new Map(agents.map((name) => [name, { wanted: new Set(), views: null, isBusy: false }]));
    this.gone = new Set();
    this.received = new Map(); // by agent, as in receivedOf
    this.shape = "";
    this.model = { kind: "live", title: `${agents.length} agent${agents.length === 1 ? "" : "s"}, live`,
      end: PAST, routers: this.trackers, links: [], zones: [], ranges: [], marks: [],
      load: { binLength: POLL / 1000, series: KINDS.map(({ key, label }) => ({ key, label, counts: [] })) },
      hasRpChanges: true, comparison: null };
    this.update();
  }

  now() {
    return Date.now() / 1000 - this.base;
  }

  /** Follows the stream and asks for all, as long as the page is seen: a browser has few connections. */
  start() {
    this.mark("this page was opened");
    document.addEventListener("visibilitychange", () => (document.hidden ? this.pause() : this.resume()));
    if (!document.hidden) this.resume();
  }

  resume() {
    this.connect();
    this.polls = 0;
    this.intervals = [setInterval(() => this.tick(), 1000), setInterval(() => this.poll(), POLL)];
    this.refreshAll(VIEWS);
  }

  pause() {
    this.source.close();
    clearTimeout(this.retry);
    this.intervals.forEach(clearInterval);
  }

  /** The browser connects again by itself unless the server has rejected the stream. */
  connect() {
    const source = (this.source = new EventSource("events"));
    source.addEventListener("agents", () => this.refreshAll(VIEWS));
    source.addEventListener("agent", (event) => this.onAgent(JSON.parse(event.data)));
    source.addEventListener("change", (event) => this.onChange(JSON.parse(event.data)));
    source.addEventListener("open", () => document.body.classList.remove("disconnected"));
    source.addEventListener("error", () => {
      document.body.classList.add("disconnected");
      if (source.readyState === EventSource.CLOSED) this.retry = setTimeout(() => this.connect(), RETRY);
    });
  }

  poll() {
    this.polls += 1;
    this.refreshAll(this.polls % FULL_POLLS === 0 ? VIEWS : POLLED);
  }

  refreshAll(views) {
    for (const { name } of this.trackers) this.refreshSoon(name, views);
  }

  mark(text) {
    this.model.marks.push({ time: this.now(), text });
    if (this.model.marks.length > MAX_MARKS) this.model.marks.splice(0, MAX_MARKS / 2);
  }

  find(name) {
    return this.trackers.find((one) => one.name === name);
  }

  onAgent({ agent, up }) {
    if (up) this.gone.delete(agent);
    else this.gone.add(agent);
    this.mark(`${agent} ${up ? "answers" : "does not answer"}`);
    this.refreshSoon(agent, VIEWS);
  }

  onChange({ agent, change }) {
    const tracker = this.find(agent);
    if (tracker) tracker.note(change, this.now());
    this.refreshSoon(agent, CHANGING);
  }

  /** Once for all changes within a short time, and never twice at a time. */
  refreshSoon(name, views) {
    const job = this.jobs.get(name);
    for (const view of views) job.wanted.add(view);
    if (job.isBusy) return;
    job.isBusy = true;
    setTimeout(() => this.refresh(name, job), GATHER);
  }

  async refresh(name, job) {
    const known = job.views || {};
    const wanted = job.views ? [...job.wanted] : [...VIEWS, "history"];
    job.wanted.clear();
    job.views = await this.viewsOf(name, wanted, known);
    job.isBusy = false;
    if (job.wanted.size) this.refreshSoon(name, []);
    if (job.views) this.find(name).take(job.views, this.now());
    else this.find(name).lose(this.now());
    if (wanted.includes("interfaces")) this.countPackets(name, job.views);
    this.neighbors.set(name, job.views ? job.views.neighbors.neighbors : []);
    this.update();
    this.compareSoon();
  }

  /** Adds what an agent has received since it was last asked; nothing after it began to count anew. */
  countPackets(name, views) {
    const { load } = this.model;
    const bin = Math.floor(this.now() / load.binLength);
    const former = this.received.get(name);
    this.received.set(name, views && receivedOf(views));
    for (const { key, counts } of load.series) {
      while (counts.length <= bin) counts.push(0);
      if (former && views) counts[bin] += Math.max(0, this.received.get(name)[key] - former[key]);
    }
  }

  /** Known views with those wanted; null if the agent does not answer. They are asked for one after the
   *  other, so that an agent that hangs has one of the few connections that the browser makes, and not for
   *  long. */
  async viewsOf(name, wanted, known) {
    if (this.gone.has(name)) return null;
    try {
      const views = { ...known };
      for (const view of wanted) {
        const patience = view === wanted[0] ? PATIENCE : 0;
        views[view] = await ask(`api/${encodeURIComponent(name)}/${view}`, patience);
      }
      return views;
    } catch {
      return null;
    }
  }

  /** Once for all agents that were asked within a short time. */
  compareSoon() {
    if (!this.comparing) this.comparing = setTimeout(() => this.compare(), COMPARE);
  }

  async compare() {
    try {
      this.model.comparison = await ask("api/compare");
    } catch {
      this.model.comparison = null;
    }
    this.comparing = 0;
    this.update();
  }

  tick() {
    this.extendAll();
    this.onUpdate(false);
  }

  extendAll() {
    this.model.end = this.now();
    for (const router of this.model.routers) router.extend(this.model.end);
    for (const link of this.links.values()) extend(link.up, this.model.end);
  }

  update() {
    this.linkRouters();
    const zones = new Set(this.trackers.flatMap((one) => [...one.zones.keys()]));
    this.model.zones = [...zones].sort(comparePrefixes);
    this.model.ranges = rangesOf(this.trackers.flatMap((one) => one.changes));
    this.extendAll();
    const shape = JSON.stringify([this.model.routers.map((one) => one.name),
      this.model.links.map((link) => [link.name, link.ends])]);
    const isOther = shape !== this.shape;
    this.shape = shape;
    this.onUpdate(isOther);
  }

  /** The agents with the neighbors that are no agents, and a link for each subnet with two of them. */
  linkRouters() {
    const owners = new Map();
    for (const tracker of this.trackers) for (const text of tracker.addresses) owners.set(text, tracker);
    const found = new Map();
    for (const tracker of this.trackers) {
      for (const intf of tracker.interfaces) {
        if (intf.addresses.length === 0) continue;
        const subnet = subnetOf(intf.addresses[0]);
        if (!found.has(subnet)) found.set(subnet, { ends: new Map(), isHeard: false });
        const link = found.get(subnet);
        link.ends.set(tracker, intf.borders);
        this.addNeighbors(link, tracker, intf, owners, subnet);
      }
    }
    const linked = [...found].filter(([, link]) => link.ends.size > 1);
    const linkedRouters = linked.flatMap(([, link]) => [...link.ends.keys()]);
    const others = new Set(linkedRouters.filter((one) => one.isNeighbor));
    this.model.routers = [...this.trackers, ...others];
    this.model.routers.forEach((router, index) => (router.index = index));
    this.model.links = linked.map(([subnet, link]) => this.linkOf(subnet, link));
  }

  addNeighbors(link, tracker, intf, owners, subnet) {
    for (const { interface: name, address } of this.neighbors.get(tracker.name)) {
      if (name !== intf.name || !covers(prefixOf(subnet), numberOf(address))) continue;
      link.isHeard = true;
      if (owners.has(address)) continue;
      if (!this.others.has(address)) this.others.set(address, neighborNode(address));
      follow(this.others.get(address).up, { up: true }, 0);
      link.ends.set(this.others.get(address), []);
    }
  }

  linkOf(subnet, { ends, isHeard }) {
    if (!this.links.has(subnet)) this.links.set(subnet, { name: subnet, prefix: subnet, up: [] });
    const link = this.links.get(subnet);
    follow(link.up, { up: isHeard }, link.up.length ? this.now() : 0);
    link.ends = [...ends].map(([router, borders]) => ({ router: router.index, borders }));
    return link;
  }
}

/** The names of the agents of the server. */
export async function agentsOf() {
  return (await ask("api")).agents;
}
