// The page: a graph, lanes, a chart and a panel over one model, of an embedded document or of live agents.

import { GLOBAL_ZONE } from "./addresses.js";
import { showWallClock, timeText } from "./axis.js";
import { embeddedDocument } from "./data.js";
import { element, fill } from "./dom.js";
import { Graph } from "./graph.js";
import { addKeys } from "./keys.js";
import { crossingsOf } from "./layout.js";
import { Lens, rangesAt } from "./lens.js";
import { agentsOf, Live } from "./live.js";
import { namesOf } from "./names.js";
import { Panel } from "./panel.js";
import { momentsOf, nextMoment, Player } from "./player.js";
import { replayModel } from "./replay.js";
import { addSearch } from "./search.js";
import { simulationModel } from "./simulation.js";
import { readFragment, State, writeFragment } from "./state.js";
import { Timeline } from "./timeline.js";

const byId = (id) => document.getElementById(id);

class App {
  constructor(model) {
    this.model = model;
    this.names = namesOf(this.model);
    this.lens = new Lens(this.model, this.names);
    this.routers = new Map(this.model.routers.map((router) => [router.name, router]));
    this.state = new State({ time: this.model.end, zone: this.model.zones[0] || "", router: "", range: "" });
    this.moments = new Map();
    this.actions = {
      goTo: (time) => this.goTo(time),
      pick: (router) => this.pick(router),
      pickZone: (zone) => this.state.set({ zone, range: "" }),
      pickRange: (zone, range) => this.state.set({ zone, range }),
      nextZone: () => this.nextZone(),
      step: (step) => this.step(step),
      neighborRow: (step) => this.neighborRow(step),
      play: () => this.player.toggle(),
      zoom: (factor) => this.timeline.zoom(factor),
      search: () => byId("search").focus(),
      hasShapes: () => this.graph.hasShapes(),
    };
  }

  start() {
    this.setScheme(matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light");
    this.linked = readFragment(location.hash);
    this.state.set(this.valid(this.linked));
    this.lens.select(this.state.get("zone"), this.state.get("range"));
    this.makeViews();
    this.makeControls();
    this.state.onChange((changed) => this.onChange(changed));
    this.state.flush();
    this.drawAll();
    addKeys(this.actions);
    addEventListener("hashchange", () => this.follow(readFragment(location.hash)));
    addEventListener("resize", () => this.drawAll());
  }

  makeViews() {
    const parts = { section: byId("timeline"), chart: byId("chart"), pane: byId("pane"), lanes: byId("lanes"),
      spacer: byId("spacer"), cursor: byId("cursor"), hint: byId("hint") };
    this.timeline = new Timeline(parts, this.model, this.lens, this.actions);
    this.timeline.lanes.sort(this.timeline.lanes.overview);
    document.documentElement.style.setProperty("--timeline", `${this.timeline.height()}px`);
    this.graph = new Graph(byId("graph"), this.model, this.lens, (router) => this.pick(router));
    this.panel = new Panel(byId("legend"), byId("panel"), this.model, this.lens, this.names, this.actions);
    this.player = new Player(this.model, this.state, this.actions.goTo, () => Number(byId("speed").value));
    this.player.onChange = (isPlaying) => (byId("play").textContent = isPlaying ? "❚❚ pause" : "▶ play");
  }

  makeControls() {
    byId("title").textContent = this.model.title;
    document.title = `pimbsr: ${this.model.title}`;
    byId("play").addEventListener("click", () => this.player.toggle());
    this.fillZones();
    byId("zone").addEventListener("change", () => this.actions.pickZone(byId("zone").value));
    byId("range").addEventListener("change", () => this.state.set({ range: byId("range").value }));
    addSearch(byId("search"), byId("found"), this.model, this.actions);
    byId("scheme").addEventListener("click", () => {
      this.setScheme(document.documentElement.dataset.scheme === "dark" ? "light" : "dark");
      this.drawAll();
    });
    this.makeLaneControls();
    this.fillRanges();
  }

  makeLaneControls() {
    const { lanes } = this.timeline;
    const hasFew = lanes.rows.length < 16;
    for (const [id, value, change] of [
      ["alike", lanes.overview, (checked) => lanes.sort(checked)],
      ["overview", lanes.overview, (checked) => (lanes.overview = checked)]]) {
      byId(id).checked = value;
      byId(id).parentElement.hidden = hasFew;
      byId(id).addEventListener("change", () => {
        change(byId(id).checked);
        this.drawAll();
      });
    }
  }

  fillZones() {
    const { zones } = this.model;
    if (this.filled === zones.join()) return;
    this.filled = zones.join();
    fill(byId("zone"), zones.map((zone) =>
      element("option", { value: zone }, zone === GLOBAL_ZONE ? `${zone} (global)` : zone)));
    byId("zone").value = this.state.get("zone");
  }

  fillRanges() {
    const ranges = this.model.ranges.filter((range) => range.zone === this.state.get("zone"));
    fill(byId("range"), element("option", { value: "" }, "BSR"),
      ranges.map(({ range }) => element("option", { value: range }, `RP for ${range}`)));
    for (const name of ["range", "zone"]) {
      if (byId(name).value !== this.state.get(name)) byId(name).value = this.state.get(name);
    }
  }

  setScheme(scheme) {
    document.documentElement.dataset.scheme = scheme;
  }

  /** The values of a deep link that the document has. */
  valid(values) {
    const made = {};
    if (values.time !== undefined) made.time = Math.max(0, Math.min(this.model.end, values.time));
    const zone = this.model.zones.includes(values.zone) ? values.zone : this.state.get("zone");
    if (values.zone !== undefined) made.zone = zone;
    const hasRange = this.model.ranges.some((one) => one.zone === zone && one.range === values.range);
    if (values.zone !== undefined || hasRange) made.range = hasRange ? values.range : "";
    if (values.router !== undefined) made.router = this.routers.has(values.router) ? values.router : "";
    return made;
  }

  selected() {
    return this.routers.get(this.state.get("router")) || null;
  }

  /** Moves the cursor, and the time axis with it where that shows another part of the run. */
  goTo(time) {
    if (this.timeline.axis.reveal(time)) this.timeline.drawAll(time, this.selected());
    this.state.set({ time });
  }

  /** Shows what a deep link names. */
  follow(values) {
    const { time, ...others } = this.valid(values);
    if (time !== undefined) this.goTo(time);
    this.state.set(others);
  }

  pick(router) {
    this.state.set({ router: router ? router.name : "" });
    if (!router) return;
    this.graph.reveal(router);
    if (!router.isNeighbor) this.timeline.lanes.reveal(router);
  }

  nextZone() {
    const { zones } = this.model;
    const next = (zones.indexOf(this.state.get("zone")) + 1) % zones.length;
    if (zones.length) this.actions.pickZone(zones[next]);
  }

  step(step) {
    const key = `${this.lens.key} ${this.state.get("router")}`;
    if (!this.moments.has(key)) this.moments.set(key, momentsOf(this.model, this.lens, this.selected()));
    this.goTo(nextMoment(this.moments.get(key), this.state.get("time"), step));
  }

  /** Selects the router in the lane above or below. */
  neighborRow(step) {
    const { rows } = this.timeline.lanes;
    const row = rows.indexOf(this.selected()) + step;
    this.pick(rows[Math.max(0, Math.min(rows.length - 1, row))]);
  }

  onChange(changed) {
    if (changed.has("zone") || changed.has("range")) {
      this.lens.select(this.state.get("zone"), this.state.get("range"));
      this.timeline.lanes.sort(byId("alike").checked);
      this.fillRanges();
      this.timeline.drawAll(this.state.get("time"), this.selected());
    }
    this.drawTime();
  }

  /** Shows a live model as it is now; the cursor stays at the end if it is there. */
  update(isOther) {
    const isAtEnd = this.state.get("time") >= this.timeline.axis.end;
    Object.assign(this.names, namesOf(this.model));
    this.routers = new Map(this.model.routers.map((router) => [router.name, router]));
    this.moments.clear();
    this.timeline.axis.extend(this.model.end);
    this.timeline.lanes.takeRows();
    this.lens.forget();
    if (isOther) this.graph.place();
    this.takeZone();
    this.timeline.lanes.sort(byId("alike").checked);
    this.fillZones();
    this.fillRanges();
    if (isAtEnd) this.state.set({ time: this.model.end });
    this.drawAll();
  }

  /** Live agents answer one after the other: selects the first zone, then that of a deep link. */
  takeZone() {
    const { zones } = this.model;
    const { zone } = this.linked;
    if (this.state.get("zone") && this.state.get("zone") !== this.first) return;
    if (zones.includes(zone)) this.state.set(this.valid(this.linked));
    else if (!this.state.get("zone") && zones.length) this.state.set({ zone: (this.first = zones[0]) });
  }

  drawAll() {
    this.timeline.drawAll(this.state.get("time"), this.selected());
    this.drawTime();
  }

  drawTime() {
    const time = this.state.get("time");
    byId("clock").textContent = this.clockText(time);
    this.timeline.drawCursor(time, this.selected());
    this.graph.draw(time, this.selected());
    this.panel.draw(time, this.selected());
    this.publish();
  }

  /** A live page counts back from now. */
  clockText(time) {
    if (this.model.kind !== "live") return timeText(time);
    const ago = Math.round(this.model.end - time);
    return ago <= 0 ? "now" : `${ago} s ago`;
  }

  /** The address and the attributes of the body follow what is shown. */
  publish() {
    const { values } = this.state;
    for (const name of ["time", "zone", "router", "range"]) document.body.dataset[name] = values[name];
    clearTimeout(this.addressTimer);
    const isLive = this.model.kind === "live";
    this.addressTimer = setTimeout(() => history.replaceState(null, "", writeFragment(values, isLive)), 200);
  }
}

function start(model) {
  const app = new App(model);
  app.start();
  document.body.dataset.ready = String(Math.round(performance.now()));
  // For tests: sets what is shown at once and returns it, with the number of links that cross.
  window.pimbsr = {
    show(values) {
      app.follow(values);
      app.state.flush();
      return { ...app.state.values };
    },
    crossings: () => crossingsOf(app.graph.graph),
    choices: (router, group, time) => rangesAt(app.routers.get(router), app.model, time).choices(group),
    app,
  };
  return app;
}

async function startLive() {
  let app = null;
  const live = new Live(await agentsOf(), (isOther) => app && app.update(isOther));
  document.body.dataset.live = "true";
  showWallClock(live.base);
  app = start(live.model);
  live.start();
}

const read = embeddedDocument();
if (read) start(read.topology ? simulationModel(read) : replayModel(read));
else startLive();
