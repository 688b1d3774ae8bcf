// Elements made without markup: texts that come from messages are set as text only.

/** An element with attributes, a listener for clicks if `attributes.click` is set, and children or texts. */
export function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (key === "click") made.onclick = value;
    else if (value !== undefined && value !== false) made.setAttribute(key, value);
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined).map(
    (child) => (child instanceof Node ? child : document.createTextNode(String(child)))));
  return made;
}

/** Whether an element keeps its place and its attributes, so that only its children differ. */
function isAlike(shown, wanted) {
  return shown.nodeType === Node.ELEMENT_NODE && shown.cloneNode(false).isEqualNode(wanted.cloneNode(false));
}

/** Gives an element that is equal to another what a click does there, with all within it. */
function takeClicks(shown, wanted) {
  if (shown.nodeType !== Node.ELEMENT_NODE) return;
  const buttons = wanted.querySelectorAll("button");
  shown.querySelectorAll("button").forEach((button, index) => (button.onclick = buttons[index].onclick));
  shown.onclick = wanted.onclick;
}

/** Makes the children of an element equal to others, and leaves those alone that are, so that a selection of
 *  text, the focus, and a click that has begun last. */
function patch(parent, children) {
  children.forEach((wanted, index) => {
    const shown = parent.childNodes[index];
    if (!shown) parent.append(wanted);
    else if (shown.isEqualNode(wanted)) takeClicks(shown, wanted);
    else if (isAlike(shown, wanted)) {
      shown.onclick = wanted.onclick;
      patch(shown, [...wanted.childNodes]);
    } else parent.replaceChild(wanted, shown);
  });
  while (parent.childNodes.length > children.length) parent.lastChild.remove();
}

/** Replaces the children of an element by others, which are elements. */
export function fill(parent, ...children) {
  patch(parent, children.flat().filter(Boolean));
}

/** Whether a cell is not to be broken into lines. */
function isShort(cell) {
  return cell instanceof Node ? cell.textContent.length <= 20 : String(cell).length <= 16;
}

/** A table of texts or elements. */
export function table(head, rows) {
  const cellOf = (cell) => element("td", { class: isShort(cell) && "short" }, cell);
  return element("table", {},
    element("thead", {}, element("tr", {}, head.map((text) => element("th", {}, text)))),
    element("tbody", {}, rows.map((row) => element("tr", {}, row.map(cellOf)))));
}

/** A name that others have chosen: its direction of writing ends with it. */
export function name(text) {
  return element("bdi", {}, text);
}

/** A colored square with a letter. */
export function badge(item) {
  const made = element("span", { class: "badge" }, item.letter);
  made.style.backgroundColor = item.color;
  made.style.color = item.ink;
  return made;
}
