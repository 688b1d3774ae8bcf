// Keys of the page.

const KEYS = {
  " ": (actions) => actions.play(),
  ArrowLeft: (actions) => actions.step(-1),
  ArrowRight: (actions) => actions.step(1),
  ArrowUp: (actions) => actions.neighborRow(-1),
  ArrowDown: (actions) => actions.neighborRow(1),
  Home: (actions) => actions.goTo(0),
  z: (actions) => actions.nextZone(),
  "+": (actions) => actions.zoom(0.6),
  "-": (actions) => actions.zoom(1 / 0.6),
  "/": (actions) => actions.search(),
  Escape: (actions) => actions.pick(null),
};

/** Whether a key belongs to what has the focus: all to a field, and those that press a button to it. */
function isOwn({ key, target }) {
  if (target.tagName === "BUTTON" || target.type === "checkbox") return key === " " || key === "Enter";
  return /^(INPUT|SELECT)$/.test(target.tagName) && key !== "Escape";
}

export function addKeys(actions) {
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || isOwn(event)) return;
    const act = KEYS[event.key];
    if (!act) return;
    event.preventDefault();
    act(actions);
  });
}
