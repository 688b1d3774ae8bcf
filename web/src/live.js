// The live page: one model over the agents of a server, which reports their changes as a stream of events.
// What changed is asked for again, so that a lost event loses nothing.

import { comparePrefixes, covers, numberOf, prefixOf } from "./addresses.js";
import { rangesOf } from "./simulation.js";
import { extend, follow, Tracker } from "./tracker.js";

const PAST = 600; // seconds of the history that the page shows at first
const GATHER = 250; // milliseconds for which changes are gathered before the views are asked for
const POLL = 10000; // milliseconds after which they are asked for without a change, for drops and timers
const VIEWS = ["bsr", "rp-set", "neighbors", "interfaces", "borders", "drops", "history"];

async function ask(path) {
  const answer = await fetch(path);
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

export class Live {
  /** `onUpdate(isOther)` is called after each change of the model; isOther if routers or links are others. */
  constructor(agents, onUpdate) {
    this.onUpdate = onUpdate;
    this.base = Date.now() / 1000 - PAST;
    this.trackers = agents.map((name) => new Tracker(name));
    this.neighbors = new Map(agents.map((name) => [name, []]));
    this.links = new Map();
    this.others = new Map();
    this.timers = new Map();
    this.gone = new Set();
    this.shape = "";
    this.model = { kind: "live", title: `${agents.length} agent${agents.length === 1 ? "" : "s"}, live`,
      end: PAST, routers: this.trackers, links: [], zones: [], ranges: [], marks: [],
      load: { binLength: 1, binCount: 0, series: [] }, hasRpChanges: true, comparison: null };
    this.update();
  }

  now() {
    return Date.now() / 1000 - this.base;
  }

  /** Asks for all, then follows the stream. */
  async start() {
    await Promise.all(this.trackers.map((tracker) => this.refresh(tracker.name)));
    this.model.marks.push({ time: this.now(), text: "this page was opened" });
    const source = new EventSource("events");
    source.addEventListener("agents", () => this.trackers.forEach((one) => this.refreshSoon(one.name)));
    source.addEventListener("agent", (event) => this.onAgent(JSON.parse(event.data)));
    source.addEventListener("change", (event) => this.onChange(JSON.parse(event.data)));
    source.addEventListener("error", () => document.body.classList.add("disconnected"));
    source.addEventListener("open", () => document.body.classList.remove("disconnected"));
    setInterval(() => this.tick(), 1000);
    setInterval(() => this.trackers.forEach((one) => this.refreshSoon(one.name)), POLL);
  }

  find(name) {
    return this.trackers.find((one) => one.name === name);
  }

  onAgent({ agent, up }) {
    if (up) this.gone.delete(agent);
    else this.gone.add(agent);
    this.model.marks.push({ time: this.now(), text: `${agent} ${up ? "answers" : "does not answer"}` });
    this.refreshSoon(agent);
  }

  onChange({ agent, change }) {
    const tracker = this.find(agent);
    if (tracker) tracker.note(change, this.now());
    this.refreshSoon(agent);
  }

  /** Once for all changes within a short time. */
  refreshSoon(name) {
    if (this.timers.has(name)) return;
    this.timers.set(name, setTimeout(() => {
      this.timers.delete(name);
      this.refresh(name);
    }, GATHER));
  }

  /** The views of an agent by name; null if it does not answer. */
  async viewsOf(name) {
    if (this.gone.has(name)) return null;
    try {
      const answers = await Promise.all(VIEWS.map((view) => ask(`api/${encodeURIComponent(name)}/${view}`)));
      return Object.fromEntries(VIEWS.map((view, i) => [view, answers[i]]));
    } catch {
      return null;
    }
  }

  async refresh(name) {
    const views = await this.viewsOf(name);
    if (views) this.find(name).take(views, this.now());
    else this.find(name).lose(this.now());
    this.neighbors.set(name, views ? views.neighbors.neighbors : []);
    try {
      this.model.comparison = await ask("api/compare");
    } catch {
      this.model.comparison = null;
    }
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
