// Search for routers by name or address, and for links by name or prefix.

import { element, fill } from "./dom.js";

const MAX_FOUND = 8;

/** Texts with the router that each selects; made once. */
function entriesOf(model) {
  const routers = model.routers.flatMap((router) => [
    { text: router.name, label: router.name, router },
    ...router.addresses.map((address) => ({ text: address, label: `${address} (${router.name})`, router })),
  ]);
  const links = model.links.filter((link) => link.ends.length).map((link) => ({
    text: link.name,
    label: `link ${link.name} ${link.prefix}`,
    router: model.routers[link.ends[0].router],
  }));
  return [...routers, ...links];
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

export function addSearch(input, list, model, pick) {
  const entries = entriesOf(model);
  const choose = (entry) => {
    list.hidden = true;
    input.value = "";
    input.blur();
    pick(entry.router);
  };
  const show = () => {
    const found = find(entries, input.value);
    list.hidden = found.length === 0;
    fill(list, found.map((entry) =>
      element("li", {}, element("button", { type: "button", click: () => choose(entry) }, entry.label))));
    return found;
  };
  input.addEventListener("input", show);
  input.addEventListener("keydown", (event) => {
    event.stopPropagation();
    if (event.key === "Enter") show().slice(0, 1).forEach(choose);
    if (event.key === "Escape") input.blur();
  });
  input.addEventListener("blur", () => setTimeout(() => (list.hidden = true), 200));
}
