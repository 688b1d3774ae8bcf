// Elements made without markup: texts that come from messages are set as text only.

/** An element with attributes, a listener for clicks if `attributes.click` is set, and children or texts. */
export function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (key === "click") made.addEventListener("click", value);
    else if (value !== undefined && value !== false) made.setAttribute(key, value);
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined).map(
    (child) => (child instanceof Node ? child : document.createTextNode(String(child)))));
  return made;
}

/** Replaces the children of an element. */
export function fill(parent, ...children) {
  parent.replaceChildren(...children.flat().filter(Boolean));
}

/** Whether a cell is not to be broken into lines. */
function isShort(cell) {
  return cell instanceof Node ? cell.textContent.length <= 30 : String(cell).length <= 16;
}

/** A table of texts or elements. */
export function table(head, rows) {
  const cellOf = (cell) => element("td", { class: isShort(cell) && "short" }, cell);
  return element("table", {},
    element("thead", {}, element("tr", {}, head.map((text) => element("th", {}, text)))),
    element("tbody", {}, rows.map((row) => element("tr", {}, row.map(cellOf)))));
}

/** A colored square with a letter. */
export function badge(item) {
  const made = element("span", { class: "badge" }, item.letter);
  made.style.backgroundColor = item.color;
  made.style.color = item.ink;
  return made;
}
