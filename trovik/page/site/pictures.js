// Pictures of files. What is seen is asked for, four at a time (one connection of
// the browser's six is for events, one for forms); what is scrolled out of sight
// before its turn is not. What came is kept, within bounds, for the way back.

const sizes = [80, 160, 320, 640, 1280, 2560];
const atATime = 4;
const mostBytes = 96e6;
const mostPictures = 4000;
const mostTries = 60;

const waiting = [];
const kept = new Map(); // in the order of their last use
let keptBytes = 0;
let busy = 0;

/** The smallest picture that is sharp at so many CSS pixels. */
export function sizeFor(width) {
  const pixels = width * (window.devicePixelRatio || 1) * 0.9;
  return sizes.find((size) => size >= pixels) ?? sizes.at(-1);
}

export const smallerSizes = (size) => sizes.filter((other) => other < size).reverse();

function keep(key, value) {
  kept.set(key, value);
  keptBytes += value.bytes;
  for (const [old, other] of kept) {
    if (keptBytes <= mostBytes && kept.size <= mostPictures) {
      break;
    }
    if (other.uses === 0) {
      kept.delete(old);
      keptBytes -= other.bytes;
      if (other.url) {
        URL.revokeObjectURL(other.url);
      }
    }
  }
}

async function load(request) {
  const { file, size, aborter } = request;
  const response = await fetch(`api/files/${file}/picture?w=${size}`, {
    signal: aborter.signal,
    // A file that is being written changes under the same number.
    cache: request.fresh ? "no-cache" : "default",
    credentials: "same-origin",
  });
  if (response.ok) {
    const blob = await response.blob();
    return { blob, url: URL.createObjectURL(blob), bytes: blob.size, problem: "", uses: 0 };
  }
  let form = null;
  try {
    form = await response.json();
  } catch {
    // A refusal without words: its number has to do.
  }
  const problem = form?.problem || form?.message || (response.status === 404 ? "The file is gone" : "No picture");
  const again = response.status === 503 ? Math.min(10, Number(response.headers.get("Retry-After")) || 1) : 0;
  return { blob: null, url: "", bytes: 200, problem, uses: 0, again, gone: response.status === 404 };
}

async function run(request) {
  ++busy;
  try {
    const value = await load(request);
    // Half a file is no picture yet: it is looked for again while it is awaited.
    if (value.problem && request.fresh && !value.again && ++request.tries < mostTries) {
      value.again = 1;
    }
    if (value.again) {
      request.timer = setTimeout(() => {
        waiting.push(request);
        next();
      }, value.again * 1000);
    } else {
      if (!request.fresh && !(value.problem && value.gone)) {
        keep(request.key, value);
      }
      finish(request, value);
    }
  } catch (error) {
    if (error.name !== "AbortError") {
      finish(request, { blob: null, url: "", bytes: 0, problem: "The server does not answer", uses: 0, away: true });
    }
  }
  --busy;
  next();
}

function finish(request, value) {
  if (!request.over) {
    request.over = true;
    request.done(value);
  }
}

function next() {
  while (busy < atATime && waiting.length) {
    run(waiting.shift());
  }
}

/** Asks for a picture; `done` gets {url, blob, problem}, at once where it is kept.
    `fresh`: it may still change, so it is asked for anew and not kept. Gives a
    function that lets go of the request. */
export function want(file, size, done, { fresh = false, first = false } = {}) {
  const key = `${file}/${size}`;
  const value = fresh ? null : kept.get(key);
  if (value) {
    kept.delete(key);
    kept.set(key, value);
    done(value);
    return () => {};
  }
  const request = { file, size, key, fresh, done, over: false, tries: 0, aborter: new AbortController(), timer: 0 };
  if (first) {
    waiting.unshift(request);
  } else {
    waiting.push(request);
  }
  next();
  return () => {
    request.over = true;
    clearTimeout(request.timer);
    request.aborter.abort();
    const at = waiting.indexOf(request);
    if (at >= 0) {
      waiting.splice(at, 1);
    }
  };
}

/** Whether the file is an image that does not decode whole any more: the queue knows
    of what it was when it was checked, the picture of what it is. */
export const isDamaged = (value) => /^Truncated or damaged/.test(value.problem);

/** What is kept already of a file, the largest: to show until a larger one comes. */
export function keptOf(file) {
  for (const size of [...sizes].reverse()) {
    const value = kept.get(`${file}/${size}`);
    if (value?.url) {
      return value;
    }
  }
  return null;
}
