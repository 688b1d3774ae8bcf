// Keys of the page. Fields for input keep theirs.

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

export function addKeys(actions) {
  document.addEventListener("keydown", (event) => {
    const isField = /^(INPUT|SELECT|BUTTON)$/.test(event.target.tagName);
    if (event.ctrlKey || event.altKey || event.metaKey || (isField && event.key !== "Escape")) return;
    const act = KEYS[event.key];
    if (!act) return;
    event.preventDefault();
    act(actions);
  });
}
