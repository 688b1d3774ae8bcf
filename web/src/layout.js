// Places routers and LANs. The same network is always placed the same: distances to a few pivots give the
// rough shape (pivot multidimensional scaling), and a force simulation refines it. Nothing is random.

import { forceCollide, forceLink, forceManyBody, forceSimulation, forceX, forceY } from "d3-force";

const PIVOTS = 24;

/** Nodes {router} or {link}, and edges {source, target, link, end}. A link of two routers is one edge. */
export function graphOf(model) {
  const nodes = model.routers.map((router) => ({ router, degree: 0 }));
  const edges = [];
  for (const link of model.links) {
    if (link.ends.length === 2) {
      edges.push({ source: link.ends[0].router, target: link.ends[1].router, link, ends: link.ends });
    } else if (link.ends.length !== 0) {
      const hub = nodes.push({ link, degree: 0 }) - 1;
      for (const end of link.ends) edges.push({ source: end.router, target: hub, link, ends: [end] });
    }
  }
  for (const edge of edges) {
    ++nodes[edge.source].degree;
    ++nodes[edge.target].degree;
  }
  return { nodes, edges };
}

function adjacencyOf(graph) {
  const adjacent = graph.nodes.map(() => []);
  for (const edge of graph.edges) {
    adjacent[edge.source].push(edge.target);
    adjacent[edge.target].push(edge.source);
  }
  return adjacent;
}

/** Hops from one node to all; nodes that it does not reach are a little further than the farthest. */
function hopsFrom(start, adjacent) {
  const hops = new Float64Array(adjacent.length).fill(-1);
  const queue = [start];
  hops[start] = 0;
  for (let i = 0; i < queue.length; ++i) {
    for (const next of adjacent[queue[i]]) {
      if (hops[next] >= 0) continue;
      hops[next] = hops[queue[i]] + 1;
      queue.push(next);
    }
  }
  const far = hops[queue[queue.length - 1]] + 3;
  return hops.map((value) => (value < 0 ? far : value));
}

/** Each pivot is the node that is farthest from those before it. */
function pivotHops(adjacent) {
  const nearest = new Float64Array(adjacent.length).fill(Infinity);
  const all = [];
  let pivot = 0;
  while (all.length < Math.min(PIVOTS, adjacent.length)) {
    const hops = hopsFrom(pivot, adjacent);
    all.push(hops);
    hops.forEach((value, node) => (nearest[node] = Math.min(nearest[node], value)));
    pivot = nearest.indexOf(Math.max(...nearest));
  }
  return all;
}

/** Squared distances, centered in both directions. */
function centered(columns) {
  const squares = columns.map((column) => column.map((value) => value * value));
  const meanOf = (row) => squares.reduce((sum, column) => sum + column[row], 0) / squares.length;
  const rows = squares[0].map((_, row) => meanOf(row));
  const all = rows.reduce((sum, value) => sum + value, 0) / rows.length;
  return squares.map((column) => {
    const mean = column.reduce((sum, value) => sum + value, 0) / column.length;
    return column.map((value, row) => -0.5 * (value - mean - rows[row] + all));
  });
}

function dot(a, b) {
  let sum = 0;
  for (let i = 0; i < a.length; ++i) sum += a[i] * b[i];
  return sum;
}

function normalized(vector) {
  const length = Math.sqrt(dot(vector, vector)) || 1;
  return vector.map((value) => value / length);
}

/** The main direction of a symmetric matrix, orthogonal to another one. */
function mainDirection(matrix, other) {
  let vector = normalized(matrix.map((_, i) => 1 + (i % 7) / 7));
  for (let round = 0; round < 60; ++round) {
    const along = other ? dot(vector, other) : 0;
    if (other) vector = vector.map((value, i) => value - along * other[i]);
    vector = normalized(matrix.map((row) => dot(row, vector)));
  }
  return vector;
}

function projected(columns, direction) {
  return columns[0].map((_, row) => columns.reduce((sum, column, i) => sum + column[row] * direction[i], 0));
}

/** Sets x and y of all nodes to their rough places, about `unit` between neighbors. */
function placeRoughly(graph, adjacent, unit) {
  const columns = centered(pivotHops(adjacent));
  const matrix = columns.map((a) => columns.map((b) => dot(a, b)));
  const first = mainDirection(matrix, null);
  const second = mainDirection(matrix, first);
  const [xs, ys] = [projected(columns, first), projected(columns, second)];
  const size = unit * Math.sqrt(graph.nodes.length);
  const scale = (values) => size / (Math.sqrt(dot(values, values) / values.length) || 1) / 1.4;
  const [scaleX, scaleY] = [scale(xs), scale(ys)];
  graph.nodes.forEach((node, i) => {
    // Nodes with equal distances are spread on a small spiral, so that no two are at the same place.
    node.x = xs[i] * scaleX + Math.cos(i * 2.4) * unit * (0.2 + (i % 13) / 13);
    node.y = ys[i] * scaleY + Math.sin(i * 2.4) * unit * (0.2 + (i % 13) / 13);
  });
}

function forcesOn(graph, unit) {
  const edges = graph.edges.map((edge) => ({ source: edge.source, target: edge.target }));
  return forceSimulation(graph.nodes)
    .stop()
    .force("link", forceLink(edges).distance(unit).iterations(2))
    .force("charge", forceManyBody().strength(-unit * 12).theta(1.1).distanceMax(unit * 30))
    .force("x", forceX().strength(0.015))
    .force("y", forceY().strength(0.02))
    .velocityDecay(0.45);
}

/** Places all nodes of a graph, `stretch` times as wide as they would be in a square. */
export function layOut(graph, stretch) {
  if (graph.nodes.length === 0) return;
  const unit = 40;
  placeRoughly(graph, adjacencyOf(graph), unit);
  const simulation = forcesOn(graph, unit);
  const ticks = Math.max(70, Math.min(400, Math.round(60000 / graph.nodes.length)));
  simulation.alpha(0.9).alphaDecay(1 - Math.pow(0.005, 1 / ticks));
  for (let tick = 0; tick < ticks; ++tick) {
    if (tick === Math.round(ticks * 0.7)) simulation.force("collide", forceCollide(unit * 0.4));
    simulation.tick();
  }
  for (const node of graph.nodes) node.x *= stretch;
}

function side(a, b, c) {
  return Math.sign((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x));
}

/** How many pairs of edges cross, for tests of the layout. */
export function crossingsOf(graph) {
  const lines = graph.edges.map((edge) => [graph.nodes[edge.source], graph.nodes[edge.target]]);
  let count = 0;
  for (let i = 0; i < lines.length; ++i) {
    for (let j = i + 1; j < lines.length; ++j) {
      const [[a, b], [c, d]] = [lines[i], lines[j]];
      if (a === c || a === d || b === c || b === d) continue;
      if (side(a, b, c) * side(a, b, d) < 0 && side(c, d, a) * side(c, d, b) < 0) ++count;
    }
  }
  return count;
}
