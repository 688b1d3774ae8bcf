// A canvas in the resolution of the display, and the colors of the scheme.

/** Fits a canvas to its element; returns {context, width, height} in CSS pixels. */
export function fit(canvas) {
  const ratio = window.devicePixelRatio || 1;
  const [width, height] = [canvas.clientWidth, canvas.clientHeight];
  const [pixelWidth, pixelHeight] = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== pixelWidth || canvas.height !== pixelHeight) {
    canvas.width = pixelWidth;
    canvas.height = pixelHeight;
  }
  const context = canvas.getContext("2d");
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return { context, width, height };
}

/** A text for a canvas, without characters that only change how others are shown, cut to a width. */
export function clipped(context, text, width) {
  const plain = text.replace(/[\p{Cc}\p{Cf}]/gu, "");
  if (context.measureText(plain).width <= width) return plain;
  let length = Math.min(plain.length, 60);
  while (length > 0 && context.measureText(`${plain.slice(0, length)}…`).width > width) --length;
  return `${plain.slice(0, length)}…`;
}

/** The colors that the style sheet sets for the scheme. */
export function schemeColors() {
  const style = getComputedStyle(document.documentElement);
  const color = (name) => style.getPropertyValue(`--${name}`).trim();
  return { ink: color("ink"), faint: color("faint"), line: color("line"), paper: color("paper"),
    warn: color("warn"), stopped: color("stopped"), accent: color("accent") };
}

/** A fill of thin diagonal lines. */
export function hatching(context, color, gap) {
  const tile = document.createElement("canvas");
  tile.width = tile.height = gap;
  const pen = tile.getContext("2d");
  pen.strokeStyle = color;
  pen.lineWidth = 1;
  pen.beginPath();
  for (const shift of [-gap, 0, gap]) {
    pen.moveTo(shift, gap);
    pen.lineTo(shift + gap, 0);
  }
  pen.stroke();
  return context.createPattern(tile, "repeat");
}
