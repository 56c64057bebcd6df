// Colours and patterns on a canvas. Every state has a shape of its own, so that a
// strip tells the same in grey: good fills its cell, running half of it with a
// bright edge, waiting is a low line, canceled a line through the middle; what
// needs a look rises above the others: failed with a full mark, damaged with two,
// missing as an empty frame.
import { choices, colourOf, ofLetter } from "./states.js";

let colours = null;
const repaints = new Set();

/** The colours of the theme, as a canvas wants them. */
export function palette() {
  if (!colours) {
    // `light-dark()` is only resolved where it is a colour of something.
    const probe = document.createElement("span");
    probe.hidden = true;
    document.body.append(probe);
    const read = (name) => {
      probe.style.color = `var(--${name})`;
      return getComputedStyle(probe).color;
    };
    colours = {};
    for (const name of ["ink", "ink-2", "ink-3", "line", "line-strong", "card", "paper", "sunk", "focus"]) {
      colours[name] = read(name);
    }
    for (const choice of choices) {
      colours[choice.name] = read(colourOf(choice));
      colours[`${choice.name}-text`] = read(`${colourOf(choice)}-text`);
    }
    probe.remove();
  }
  return colours;
}

/** Called when the theme has changed; whoever draws asks to be told. */
export function repaintAll() {
  colours = null;
  for (const repaint of repaints) {
    repaint();
  }
}

export function onRepaint(repaint) {
  repaints.add(repaint);
  return () => repaints.delete(repaint);
}

matchMedia("(prefers-color-scheme: dark)").addEventListener("change", repaintAll);

/** Makes a canvas as fine as the screen; gives its context in CSS pixels. */
export function context(canvas, width, height) {
  const scale = window.devicePixelRatio || 1;
  const w = Math.max(1, Math.round(width * scale));
  const h = Math.max(1, Math.round(height * scale));
  if (canvas.width !== w || canvas.height !== h) {
    canvas.width = w;
    canvas.height = h;
  }
  const drawing = canvas.getContext("2d");
  drawing.setTransform(scale, 0, 0, scale, 0, 0);
  drawing.clearRect(0, 0, width, height);
  return drawing;
}

/** One cell of a strip. */
export function paintCell(drawing, letter, x, y, width, height) {
  const state = ofLetter(letter);
  const rise = Math.max(2, Math.round(height * 0.25));
  const body = height - rise;
  const top = y + rise;
  drawing.fillStyle = palette()[state.name];
  switch (letter) {
    case "g":
      drawing.fillRect(x, top, width, body);
      break;
    case "f":
      drawing.fillRect(x, y, width, height);
      break;
    case "d": {
      drawing.fillRect(x, y, width, height);
      drawing.clearRect(x, top, width, Math.max(1.5, height * 0.12));
      break;
    }
    case "m": {
      const edge = Math.max(1, Math.min(2, width / 4));
      drawing.fillRect(x, y, width, 2);
      drawing.fillRect(x, y + height - 2, width, 2);
      if (width >= 3) {
        drawing.fillRect(x, y, edge, height);
        drawing.fillRect(x + width - edge, y, edge, height);
      }
      break;
    }
    case "r": {
      drawing.fillRect(x, y + height - body / 2, width, body / 2);
      break;
    }
    case "R": {
      drawing.fillRect(x, top, width, 2);
      drawing.fillRect(x, y + height - body / 2, width, body / 2);
      break;
    }
    case "c":
      drawing.fillRect(x, top + body / 2 - 1, width, 2);
      break;
    default:
      drawing.fillRect(x, y + height - 3, width, 3);
  }
}

/** A strip of letters; cells of a short job need not be as wide as the page. */
export function paintStrip(canvas, letters, widest = 28) {
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  if (width === 0 || height === 0) {
    return;
  }
  const drawing = context(canvas, width, height);
  const count = letters.length;
  if (count === 0) {
    return;
  }
  const cell = Math.min(widest, width / count);
  const gap = cell >= 4 ? 1 : 0;
  for (let i = 0; i < count; ) {
    // Where cells are finer than pixels, neighbours alike are one area.
    let j = i + 1;
    while (gap === 0 && j < count && letters[j] === letters[i]) {
      ++j;
    }
    paintCell(drawing, letters[i], i * cell, 0, Math.max(0.75, (j - i) * cell - gap), height);
    i = j;
  }
}
