// Each BSR and each RP has a letter and a color, in the order in which routers first followed or used it. The
// letter alone identifies it: colors repeat after eight. Routers that are too small for letters have shapes.

// Colors that remain different with the common kinds of color blindness.
const PALETTE = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00", "#f0e442", "#7a5195"];

/** Signs of the shapes, for the legend. A color has another one each time that it repeats. */
export const SHAPES = ["●", "■", "◆", "▲"];

function letterOf(index, first) {
  const letter = String.fromCharCode(first.charCodeAt(0) + (index % 26));
  return index < 26 ? letter : letter + Math.floor(index / 26);
}

/** The relative luminance of a color such as #0072b2, from 0 to 1. */
function luminanceOf(color) {
  const [red, green, blue] = [1, 3, 5].map((at) => {
    const part = parseInt(color.slice(at, at + 2), 16) / 255;
    return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
}

/** Black or white, whichever has more contrast on a color; they have the same on a luminance of 0.179. */
function inkOn(color) {
  return luminanceOf(color) > 0.179 ? "#000000" : "#ffffff";
}

/** A map from address to {address, letter, color, ink, owner}; owner is the name of a router or "". */
function named(addresses, owners, first) {
  return new Map(addresses.map((address, index) => {
    const color = PALETTE[index % PALETTE.length];
    return [address, { address, letter: letterOf(index, first), color, ink: inkOn(color),
      shape: (index + Math.floor(index / PALETTE.length)) % SHAPES.length,
      owner: owners.get(address) || "" }];
  }));
}

function inOrderOfTime(firsts) {
  return [...firsts].sort((a, b) => a[1] - b[1]).map(([address]) => address);
}

function ownersOf(model) {
  const owners = new Map();
  for (const router of model.routers) {
    for (const address of router.addresses) owners.set(address, router.name);
  }
  return owners;
}

function note(firsts, address, time) {
  if (!firsts.has(address) || firsts.get(address) > time) firsts.set(address, time);
}

export function namesOf(model) {
  const bsrs = new Map();
  const rps = new Map();
  for (const router of model.routers) {
    for (const zone of router.zones.values()) for (const span of zone.bsr) note(bsrs, span.bsr, span.start);
    for (const change of router.changes) if (change.rp) note(rps, change.rp.address, change.time);
  }
  const owners = ownersOf(model);
  return { bsrs: named(inOrderOfTime(bsrs), owners, "A"), rps: named(inOrderOfTime(rps), owners, "a") };
}
