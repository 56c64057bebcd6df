// How values become words. Every text of the server passes `plain` and, where a
// name or a log is shown, `visible`: nothing of it is ever markup.

const decoder = new TextDecoder("utf-8");

/** A text of the JSON forms: one that is no UTF-8 comes as the hex of its bytes. */
export function plain(text) {
  if (text === null || text === undefined) {
    return "";
  }
  if (typeof text === "object" && typeof text.hex === "string") {
    const bytes = new Uint8Array(text.hex.length >> 1);
    for (let i = 0; i < bytes.length; ++i) {
      bytes[i] = parseInt(text.hex.slice(2 * i, 2 * i + 2), 16);
    }
    return decoder.decode(bytes);
  }
  return String(text);
}

const hidden = /[\u0000-\u001f\u007f-\u009f\u061c\u200e\u200f\u2028\u2029\u202a-\u202e\u2066-\u2069\ufeff]/g;
const hiddenInLog = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]/g;

/** As programmers write it: fonts have no picture for most of them. */
function pictureOf(letter) {
  const code = letter.codePointAt(0);
  return code < 0x100 ? `\\x${code.toString(16).padStart(2, "0")}` : `\\u${code.toString(16).padStart(4, "0")}`;
}

/** One line of text: control characters and those that turn the reading
    direction are spelt out, so that a name cannot pose as another. */
export const visible = (text) => plain(text).replace(hidden, pictureOf);

// What terminals take as colours and moves of the cursor.
const sequences = /\u001b(?:\[[0-?]*[ -/]*[@-~]|\][^\u0007\u001b]*(?:\u0007|\u001b\\)|[@-Z\\-_])/g;

/** A log: as `visible`, but lines and tabs stay, and colours of terminals go. */
export const visibleLog = (text) =>
  plain(text).replace(/\r\n/g, "\n").replace(sequences, "").replace(hiddenInLog, pictureOf);

export const number = (value) => Math.round(value).toLocaleString("en");

export const many = (count, one, more = `${one}s`) => `${number(count)} ${count === 1 ? one : more}`;

/** "9.4 s", "46 s", "4 min 12 s", "3 h 5 min", "2 d 4 h". */
export function duration(seconds) {
  if (seconds === null || seconds === undefined || !Number.isFinite(seconds)) {
    return "";
  }
  const s = Math.max(0, seconds);
  if (s > 0 && s < 0.0995) {
    return `${(s * 1000).toFixed(s < 0.00995 ? 1 : 0)} ms`;
  }
  if (s < 9.95) {
    return `${s.toFixed(1)} s`;
  }
  const whole = Math.round(s);
  if (whole < 60) {
    return `${whole} s`;
  }
  if (whole < 3600) {
    const rest = whole % 60;
    return `${Math.floor(whole / 60)} min${rest ? ` ${rest} s` : ""}`;
  }
  if (whole < 86400) {
    const rest = Math.floor((whole % 3600) / 60);
    return `${Math.floor(whole / 3600)} h${rest ? ` ${rest} min` : ""}`;
  }
  const rest = Math.floor((whole % 86400) / 3600);
  return `${Math.floor(whole / 86400)} d${rest ? ` ${rest} h` : ""}`;
}

/** As `duration`, but no finer than a guess deserves: "about 4 min". */
export function roughly(seconds) {
  if (seconds < 60) {
    return seconds < 10 ? "a few seconds" : `about ${Math.round(seconds / 10) * 10} s`;
  }
  if (seconds < 3600) {
    return `about ${Math.round(seconds / 60)} min`;
  }
  return `about ${duration(Math.round(seconds / 600) * 600)}`;
}

/** The time between two moments in one unit: "9 s", "3 min", "2 h", "4 d". */
export function age(seconds) {
  const s = Math.max(0, seconds);
  if (s < 60) {
    return `${Math.floor(s)} s`;
  }
  if (s < 3600) {
    return `${Math.floor(s / 60)} min`;
  }
  return s < 172800 ? `${Math.floor(s / 3600)} h` : `${Math.floor(s / 86400)} d`;
}

/** A moment on this machine's clock, "2026-11-23 08:35:00". */
export function moment(seconds) {
  if (!seconds) {
    return "";
  }
  const date = new Date(seconds * 1000);
  const two = (value) => String(value).padStart(2, "0");
  return (
    `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ` +
    `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`
  );
}

/** Decimal units, as the program's own words have them. */
export function bytes(size) {
  if (size === null || size === undefined) {
    return "";
  }
  const units = ["bytes", "kB", "MB", "GB", "TB", "PB"];
  let value = size;
  let unit = 0;
  while (value >= 999.5 && unit < units.length - 1) {
    value /= 1000;
    ++unit;
  }
  return unit === 0 ? `${size} bytes` : `${value >= 100 ? Math.round(value) : value.toFixed(1)} ${units[unit]}`;
}

/** The runs of a text of frames: "1-4,7" gives [[1, 4], [7, 7]]. */
export function runs(text) {
  const found = [];
  for (const piece of plain(text).split(",")) {
    const match = /^\s*(-?\d+)(?:-(-?\d+))?/.exec(piece);
    if (match) {
      found.push([Number(match[1]), Number(match[2] ?? match[1])]);
    }
  }
  return found;
}

export const countFrames = (text) => runs(text).reduce((sum, [first, last]) => sum + last - first + 1, 0);

/** The text of ascending frames: [1, 2, 3, 7] gives "1-3,7". */
export function framesText(frames) {
  const pieces = [];
  for (let i = 0; i < frames.length; ) {
    let j = i;
    while (j + 1 < frames.length && frames[j + 1] === frames[j] + 1) {
      ++j;
    }
    pieces.push(i === j ? `${frames[i]}` : `${frames[i]}-${frames[j]}`);
    i = j + 1;
  }
  return pieces.join(",");
}
