// Spans are objects with start and end in seconds, in order of time; none overlap.

/** The index of the span at a time, -1 for none. The last instant of the run belongs to the last span. */
export function indexAt(spans, time, end) {
  let low = 0;
  let high = spans.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (spans[middle].start <= time) low = middle + 1;
    else high = middle;
  }
  if (low === 0) return -1;
  const span = spans[low - 1];
  return time < span.end || (time === end && span.end === end) ? low - 1 : -1;
}

/** The span at a time, null for none. */
export function spanAt(spans, time, end) {
  const index = indexAt(spans, time, end);
  return index < 0 ? null : spans[index];
}

/** The number of items whose time is at or before a time; the items are in order of time. */
export function countUntil(items, time) {
  let low = 0;
  let high = items.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (items[middle].time <= time) low = middle + 1;
    else high = middle;
  }
  return low;
}
