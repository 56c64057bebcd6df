// Asks the server. A form is kept while somebody watches it, and asked for again
// when an event says that it changed; never more often than it can be read, so
// that a job of a million frames does not keep the page busy with itself.

/** What the server refused, or that it did not answer (`status` 0). */
export class Problem extends Error {
  constructor(message, hint = "", status = 0) {
    super(message);
    this.hint = hint;
    this.status = status;
  }
}

async function answer(path, options) {
  let response;
  try {
    response = await fetch(path, { cache: "no-store", credentials: "same-origin", ...options });
  } catch (error) {
    if (error.name === "AbortError") {
      throw error;
    }
    throw new Problem("The server does not answer", 'Is "trovik page" still at work?');
  }
  let form = null;
  try {
    form = await response.json();
  } catch (error) {
    if (error.name === "AbortError") {
      throw error;
    }
  }
  if (!response.ok) {
    throw new Problem(
      form?.message ?? `The server answered ${response.status}`,
      form?.hint ?? (response.status === 403 ? 'Open the address that "trovik page" printed' : ""),
      response.status,
    );
  }
  if (form === null) {
    throw new Problem("The answer of the server was cut short", "", response.status);
  }
  return form;
}

export const get = (path, options) => answer(path, options);

export const post = (path, body) =>
  answer(path, { method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(body) });

const entries = new Map();
const leastPause = 250;
const mostPause = 3000;
const hiddenPause = 5000;
const busyPause = 10000; // after an answer that asks for patience

class Entry {
  constructor(path, concerns) {
    this.path = path;
    this.concerns = concerns;
    this.listeners = new Set();
    this.form = null;
    this.timer = 0;
    this.loading = false;
    this.again = false;
    this.cost = 0;
    this.ended = 0;
  }

  /** Loads as soon as it may. */
  ask() {
    if (this.loading) {
      this.again = true;
      return;
    }
    if (this.timer) {
      return;
    }
    const pause = document.hidden ? hiddenPause : Math.min(mostPause, Math.max(leastPause, 2 * this.cost));
    const wait = this.ended ? this.ended + pause - performance.now() : 0;
    this.timer = setTimeout(() => this.load(), Math.max(0, wait));
  }

  async load() {
    this.timer = 0;
    if (this.listeners.size === 0) {
      return;
    }
    this.loading = true;
    const begun = performance.now();
    let form = null;
    let problem = null;
    try {
      form = await get(this.path);
    } catch (error) {
      problem = error;
    }
    this.loading = false;
    if (form) {
      this.form = form;
      for (const listener of [...this.listeners]) {
        listener.show(form);
      }
    } else {
      for (const listener of [...this.listeners]) {
        listener.fail?.(problem, this.form);
      }
    }
    this.ended = performance.now();
    this.cost = this.ended - begun;
    if (this.again) {
      this.again = false;
      this.ask();
    } else if (problem?.status === 503) {
      this.timer = setTimeout(() => this.load(), busyPause);
    }
  }
}

/** Shows a form now and whenever it changes; `concerns(change)` says whether a
    change matters. Gives a function that ends it, with `ask` to load anew. */
export function watch(path, concerns, show, fail) {
  let entry = entries.get(path);
  if (!entry) {
    entry = new Entry(path, concerns);
    entries.set(path, entry);
  }
  const listener = { show, fail };
  entry.listeners.add(listener);
  if (entry.form) {
    show(entry.form);
  }
  entry.ask();
  const stop = () => {
    entry.listeners.delete(listener);
    // The last forms stay for the way back; a page that is open all day must not
    // keep every job that was ever looked at.
    if (entry.listeners.size === 0) {
      entries.delete(path);
      entries.set(path, entry);
      for (const [key, other] of entries) {
        if (entries.size <= 24) {
          break;
        }
        if (other.listeners.size === 0) {
          entries.delete(key);
        }
      }
    }
  };
  stop.ask = () => entry.ask();
  return stop;
}

/** Everything that is watched and that the change concerns is asked for again. */
export function changed(change) {
  for (const entry of entries.values()) {
    if (change.all || entry.concerns(change)) {
      if (entry.listeners.size > 0) {
        entry.ask();
      } else {
        entries.delete(entry.path); // it would be shown for a moment as it was
      }
    }
  }
}

export const concernsAll = () => true;
export const concernsJob = (job) => (change) => change.jobs.has(job);
export const concernsMachine = (change) => change.machine || change.jobs.size > 0;
