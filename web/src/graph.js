// The graph of routers and links, on a canvas.

import { select } from "d3-selection";
import { zoom, zoomIdentity, zoomTransform } from "d3-zoom";

import { clipped, fit, schemeColors } from "./canvas.js";
import { graphOf, layOut } from "./layout.js";
import { spanAt } from "./spans.js";

const MARGIN = 40;
const NAME = 160; // the greatest width of a name, in pixels
const LETTERS = 5; // the smallest radius at which a router has a letter
const BORDER_AT = 7; // of the mark of a border, in pixels from the circle of the router

/** Corners of square, diamond and triangle, of about the area of a circle with radius 1. */
const CORNERS = [
  [[-0.9, -0.9], [0.9, -0.9], [0.9, 0.9], [-0.9, 0.9]],
  [[0, -1.35], [1.35, 0], [0, 1.35], [-1.35, 0]],
  [[0, -1.35], [1.35, 1], [-1.35, 1]],
];

/** Adds a shape around a node to the path; 0 is a circle, the others are in CORNERS. */
function trace(context, { px, py }, shape, radius) {
  if (shape === 0) {
    context.moveTo(px + radius, py);
    context.arc(px, py, radius, 0, 2 * Math.PI);
    return;
  }
  CORNERS[shape - 1].forEach(([x, y], i) => {
    if (i === 0) context.moveTo(px + x * radius, py + y * radius);
    else context.lineTo(px + x * radius, py + y * radius);
  });
  context.closePath();
}

/** What a circle has in it. */
function letterOf(router, { asked, stopped, unknown, item }) {
  if (asked) return "…";
  if (stopped) return "×";
  return item ? item.letter : router.isNeighbor || unknown ? "" : "–";
}

export class Graph {
  constructor(canvas, model, lens, onPick) {
    Object.assign(this, { canvas, model, lens });
    this.zoom = zoom().scaleExtent([0.02, 12]).on("zoom", () => this.redraw());
    select(canvas).call(this.zoom).on("dblclick.zoom", null);
    canvas.addEventListener("click", (event) => onPick(this.routerAt(event.offsetX, event.offsetY)));
    this.place();
  }

  /** Places the routers and links of the model. */
  place() {
    this.graph = graphOf(this.model);
    layOut(this.graph, Math.max(1, Math.min(1.8, this.canvas.clientWidth / this.canvas.clientHeight)));
    this.fitAll();
  }

  /** Shows all of the network. */
  fitAll() {
    const { nodes } = this.graph;
    if (nodes.length === 0) return;
    const [width, height] = [this.canvas.clientWidth, this.canvas.clientHeight];
    const [xs, ys] = [nodes.map((node) => node.x), nodes.map((node) => node.y)];
    const [left, right, top, bottom] = [Math.min(...xs), Math.max(...xs), Math.min(...ys), Math.max(...ys)];
    const scale = Math.min(2.2, (width - 2 * MARGIN) / Math.max(1, right - left),
      (height - 2 * MARGIN) / Math.max(1, bottom - top));
    this.zoom.transform(select(this.canvas), zoomIdentity
      .translate(width / 2 - scale * (left + right) / 2, height / 2 - scale * (top + bottom) / 2)
      .scale(Math.max(0.02, scale)));
  }

  /** Moves a router to the middle unless it is in view. */
  reveal(router) {
    const node = this.graph.nodes[router.index];
    const [x, y] = zoomTransform(this.canvas).apply([node.x, node.y]);
    if (x > 0 && y > 0 && x < this.canvas.clientWidth && y < this.canvas.clientHeight) return;
    this.zoom.translateTo(select(this.canvas), node.x, node.y);
  }

  routerAt(x, y) {
    const transform = zoomTransform(this.canvas);
    let [best, nearest] = [null, Math.max(14, this.radius + 4)];
    for (const node of this.graph.nodes) {
      if (!node.router) continue;
      const [nodeX, nodeY] = transform.apply([node.x, node.y]);
      const distance = Math.hypot(nodeX - x, nodeY - y);
      if (distance < nearest) [best, nearest] = [node.router, distance];
    }
    return best;
  }

  draw(time, selected) {
    this.time = time;
    this.selected = selected;
    this.redraw();
  }

  redraw() {
    if (this.time === undefined) return;
    const { context, width, height } = fit(this.canvas);
    const transform = zoomTransform(this.canvas);
    this.colors = schemeColors();
    this.radius = Math.max(this.graph.nodes.length > 400 ? 2.2 : 4, Math.min(13, 9 * transform.k));
    for (const node of this.graph.nodes) {
      node.px = node.x * transform.k + transform.x;
      node.py = node.y * transform.k + transform.y;
      node.seen = node.px > -30 && node.py > -30 && node.px < width + 30 && node.py < height + 30;
    }
    this.drawEdges(context);
    this.drawHubs(context);
    this.drawRouters(context);
    if (this.radius >= 8) this.drawNames(context);
    if (this.selected) this.drawSelected(context);
  }

  strokeEdges(context, edges) {
    context.beginPath();
    for (const { source, target } of edges) {
      const [a, b] = [this.graph.nodes[source], this.graph.nodes[target]];
      if (!a.seen && !b.seen && this.graph.nodes.length > 500) continue;
      context.moveTo(a.px, a.py);
      context.lineTo(b.px, b.py);
    }
    context.stroke();
  }

  drawEdges(context) {
    const isUp = (edge) => (spanAt(edge.link.up, this.time, this.model.end) || {}).up;
    context.strokeStyle = this.colors.line;
    context.lineWidth = 1.2;
    this.strokeEdges(context, this.graph.edges.filter(isUp));
    context.strokeStyle = this.colors.warn;
    context.lineWidth = 1.6;
    context.setLineDash([3, 4]);
    const down = this.graph.edges.filter((edge) => !isUp(edge));
    this.strokeEdges(context, down);
    context.setLineDash([]);
    if (this.radius >= 4) this.drawBorders(context);
  }

  /** A bar across a link at each router that has a border of the zone there. */
  drawBorders(context) {
    context.strokeStyle = this.colors.ink;
    context.lineWidth = 2.5;
    context.beginPath();
    for (const edge of this.graph.edges) {
      for (const end of edge.ends) {
        if (!end.borders.includes(this.lens.zone)) continue;
        const from = this.graph.nodes[end.router];
        const to = this.graph.nodes[edge.source === end.router ? edge.target : edge.source];
        const length = Math.hypot(to.px - from.px, to.py - from.py) || 1;
        const [dx, dy] = [(to.px - from.px) / length, (to.py - from.py) / length];
        const away = this.radius + BORDER_AT;
        const [x, y] = [from.px + dx * away, from.py + dy * away];
        context.moveTo(x - dy * 6, y + dx * 6);
        context.lineTo(x + dy * 6, y - dx * 6);
      }
    }
    context.stroke();
  }

  /** Whether routers are too small for letters. */
  hasShapes() {
    return this.radius < LETTERS;
  }

  drawHubs(context) {
    const half = Math.max(1.5, this.radius * 0.45);
    context.fillStyle = this.colors.faint;
    for (const node of this.graph.nodes) {
      if (node.link && node.seen) context.fillRect(node.px - half, node.py - half, 2 * half, 2 * half);
    }
  }

  drawRouters(context) {
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.font = `bold ${Math.round(this.radius * 1.25)}px sans-serif`;
    if (this.hasShapes()) this.drawSmall(context);
    const statuses = this.lens.allAt(this.time);
    for (const node of this.graph.nodes) {
      if (!node.router || !node.seen) continue;
      const isDrawn = this.hasShapes() && !statuses[node.router.index].own;
      if (!isDrawn) this.drawRouter(context, node);
    }
  }

  /** Routers without letters, all of one color and shape at a time. */
  drawSmall(context) {
    const statuses = this.lens.allAt(this.time);
    const groups = new Map();
    for (const node of this.graph.nodes) {
      if (!node.router || !node.seen) continue;
      const status = statuses[node.router.index];
      const group = status.stopped ? "stopped" : status.unknown ? "unknown" : status.item;
      if (!groups.has(group)) groups.set(group, []);
      groups.get(group).push(node);
    }
    for (const [group, nodes] of groups) this.drawGroup(context, group, nodes);
  }

  drawGroup(context, group, nodes) {
    const isEmpty = group === null;
    const isUnknown = group === "unknown";
    const fills = { null: this.colors.paper, unknown: this.colors.paper, stopped: this.colors.stopped };
    const fill = fills[group];
    context.beginPath();
    for (const node of nodes) trace(context, node, fill ? 0 : group.shape, this.radius);
    context.fillStyle = fill || group.color;
    context.fill();
    context.strokeStyle = isEmpty ? this.colors.warn : isUnknown ? this.colors.line : this.colors.ink;
    context.lineWidth = isEmpty ? 1.6 : 0.6;
    if (isEmpty || isUnknown || this.radius > 2.5) context.stroke();
  }

  drawRouter(context, node) {
    const status = this.lens.allAt(this.time)[node.router.index];
    const radius = status.own ? this.radius * 1.3 : this.radius;
    context.beginPath();
    context.arc(node.px, node.py, radius, 0, 2 * Math.PI);
    context.fillStyle = status.item ? status.item.color : this.colors.paper;
    if (status.stopped && !status.asked) context.fillStyle = this.colors.stopped;
    context.fill();
    const isEmpty = !status.item && !status.stopped && !status.unknown && !node.router.isNeighbor;
    context.strokeStyle = isEmpty ? this.colors.warn : status.unknown ? this.colors.line : this.colors.ink;
    context.lineWidth = status.own ? Math.max(2, radius * 0.28) : isEmpty ? 2 : 0.8;
    if (this.radius > 2.5 || status.own || isEmpty || status.unknown) context.stroke();
    if (this.radius >= LETTERS) this.drawLetter(context, node, status);
  }

  drawLetter(context, node, status) {
    context.fillStyle = status.item ? status.item.ink : this.colors.ink;
    context.fillText(letterOf(node.router, status), node.px, node.py + 0.5);
  }

  drawNames(context) {
    context.font = "11px sans-serif";
    context.fillStyle = this.colors.ink;
    const shift = this.radius * 1.3 + 8;
    for (const node of this.graph.nodes) {
      if (!node.seen) continue;
      const below = node.router && node.router === this.selected ? shift + 6 : shift;
      const [name, y] = node.router ? [node.router.name, below] : [node.link.name, shift - 4];
      context.fillText(clipped(context, name, NAME), node.px, node.py + y);
    }
  }

  drawSelected(context) {
    const node = this.graph.nodes[this.selected.index];
    context.beginPath();
    context.arc(node.px, node.py, this.radius * 1.3 + 5, 0, 2 * Math.PI);
    context.strokeStyle = this.colors.accent;
    context.lineWidth = 3;
    context.stroke();
    if (this.radius >= 8) return;
    context.font = "bold 12px sans-serif";
    context.fillStyle = this.colors.ink;
    const name = clipped(context, node.router.name, NAME);
    context.strokeStyle = this.colors.paper;
    context.strokeText(name, node.px, node.py + this.radius + 16);
    context.fillText(name, node.px, node.py + this.radius + 16);
  }
}
