// IPv4 addresses as numbers of 32 bits.

export function numberOf(text) {
  return text.split(".").reduce((number, byte) => number * 256 + Number(byte), 0);
}

export function textOf(number) {
  return [24, 16, 8, 0].map((shift) => (number >>> shift) & 255).join(".");
}

/** {base, length, mask} of a prefix such as 239.1.0.0/16. */
export function prefixOf(text) {
  const [address, length] = text.split("/");
  const mask = Number(length) === 0 ? 0 : (0xffffffff << (32 - Number(length))) >>> 0;
  return { base: (numberOf(address) & mask) >>> 0, length: Number(length), mask };
}

export function covers(prefix, number) {
  return ((number & prefix.mask) >>> 0) === prefix.base;
}

/** Orders prefixes by address, then by length. */
export function comparePrefixes(a, b) {
  const [left, right] = [prefixOf(a), prefixOf(b)];
  return left.base - right.base || left.length - right.length;
}

/** The zone of all groups. */
export const GLOBAL_ZONE = "224.0.0.0/4";

/** A group of a range that hosts may use: 224.1.1.1 of 224.0.0.0/4, 239.1.1.1 of 239.1.0.0/16. */
export function sampleGroup(range) {
  const prefix = prefixOf(range);
  return textOf((prefix.base | (0x00010101 & ~prefix.mask)) >>> 0);
}
