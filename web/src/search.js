// Search for routers by name or address, and for links by name or prefix.

import { element, fill } from "./dom.js";

const MAX_FOUND = 8;

/** Addresses of BSRs and RPs that no router of the page has, with the zone or range that each selects. */
function strangersOf(model, actions) {
  const owned = new Set(model.routers.flatMap((router) => router.addresses));
  const found = new Map();
  const add = (address, what, act) => {
    const key = `${address} ${what}`;
    if (owned.has(address) || found.has(key)) return;
    found.set(key, { text: address, label: `${address} (${what})`, act });
  };
  for (const router of model.routers) {
    for (const { zone, bsr } of router.zones.values()) {
      for (const span of bsr) add(span.bsr, `BSR of ${zone}`, () => actions.pickZone(zone));
    }
    for (const { zone, rp } of router.changes) {
      if (rp) add(rp.address, `RP for ${rp.range}`, () => actions.pickRange(zone, rp.range));
    }
  }
  return [...found.values()];
}

/** Texts with what each selects, as the model is now. */
function entriesOf(model, actions) {
  const routers = model.routers.flatMap((router) => [router.name, ...router.addresses].map((text, index) => ({
    text, label: index === 0 ? text : `${text} (${router.name})`, act: () => actions.pick(router) })));
  const links = model.links.filter((link) => link.ends.length).map((link) => ({
    text: link.name,
    label: `link ${link.name} ${link.prefix}`,
    act: () => actions.pick(model.routers[link.ends[0].router]),
  }));
  return [...routers, ...links, ...strangersOf(model, actions)];
}

function rank(text, wish) {
  return text === wish ? 0 : text.startsWith(wish) ? 1 : 2;
}

/** The entries that contain a text, exact ones first. */
export function find(entries, wish) {
  const wanted = wish.trim().toLowerCase();
  if (!wanted) return [];
  return entries.filter((entry) => entry.text.toLowerCase().includes(wanted))
    .sort((a, b) => rank(a.text.toLowerCase(), wanted) - rank(b.text.toLowerCase(), wanted))
    .slice(0, MAX_FOUND);
}

export function addSearch(input, list, model, actions) {
  let entries = [];
  const choose = (entry) => {
    list.hidden = true;
    input.value = "";
    input.blur();
    entry.act();
  };
  const show = () => {
    const found = find(entries, input.value);
    list.hidden = found.length === 0;
    fill(list, found.map((entry) =>
      element("li", {}, element("button", { type: "button", click: () => choose(entry) }, entry.label))));
    return found;
  };
  input.addEventListener("focus", () => (entries = entriesOf(model, actions)));
  input.addEventListener("input", show);
  input.addEventListener("keydown", (event) => {
    event.stopPropagation();
    if (event.key === "Enter") show().slice(0, 1).forEach(choose);
    if (event.key === "Escape") input.blur();
  });
  input.addEventListener("blur", () => setTimeout(() => (list.hidden = true), 200));
}
