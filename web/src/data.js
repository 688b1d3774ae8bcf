// Reads the document of the page. Lists of objects are stored as rows: each row starts with the number of its
// shape, the list of its keys. A text in a row is the number, in base 36, of an entry of the table of values.

/** Returns the document that cli/page/Pack.cpp packed as {values, root}. */
export function unpack(packed) {
  const entries = new Array(packed.values.length);

  function entry(text) {
    const index = parseInt(text, 36);
    if (entries[index] === undefined) entries[index] = value(packed.values[index]);
    return entries[index];
  }

  function rowOf(shapes, row) {
    const keys = shapes[row[0]];
    const object = {};
    for (let i = 0; i < keys.length; ++i) {
      const cell = row[i + 1];
      object[keys[i]] = typeof cell === "string" ? entry(cell) : cell;
    }
    return object;
  }

  function value(item) {
    if (item === null || typeof item !== "object") return item;
    if (Array.isArray(item)) return item.map(value);
    if (item.$shapes) return item.$rows.map((row) => rowOf(item.$shapes, row));
    const object = {};
    for (const key of Object.keys(item)) object[key] = value(item[key]);
    return object;
  }

  return value(packed.root);
}

/** Reads the document that is embedded in the page; null if there is none. */
export function embeddedDocument() {
  const text = document.getElementById("data").textContent.trim();
  return text ? unpack(JSON.parse(text)) : null;
}
