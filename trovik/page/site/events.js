// The server's events. A browser gives a site six connections: were each tab to
// hold one for events, the seventh would show nothing. So one tab listens, which
// has the lock, and tells the others; where there are no locks (a page that came
// over plain HTTP from elsewhere), each listens for itself.

const listeners = { change: new Set(), state: new Set() };
let source = null;
let state = "connecting";
let revision = null;
let hello = null;
let heard = 0; // when anything came last
let retry = 0;
const channel = typeof BroadcastChannel === "function" ? new BroadcastChannel("trovik-events") : null;
let leads = false;

/** `change` gets {all, revision, jobs, machine}, `state` "connecting", "on" or "off". */
export function on(event, listener) {
  listeners[event].add(listener);
  if (event === "state") {
    listener(state, hello);
  }
}

function tell(event, ...values) {
  for (const listener of listeners[event]) {
    listener(...values);
  }
}

function setState(next, form) {
  if (form) {
    hello = form;
  }
  if (next !== state || form) {
    state = next;
    tell("state", state, hello);
  }
}

function take(message) {
  heard = performance.now();
  if (message.what === "hello") {
    // What happened meanwhile was missed: everything is asked for again.
    const missed = state !== "on" || revision !== message.form.revision;
    revision = message.form.revision;
    setState("on", message.form);
    if (missed) {
      tell("change", { all: true, revision, jobs: new Set(), machine: true });
    }
  } else if (message.what === "change") {
    const form = message.form;
    revision = form.revision;
    setState("on");
    tell("change", { all: false, revision, jobs: new Set(form.jobs), machine: form.machine });
  } else if (message.what === "off") {
    setState("off");
  }
}

function say(message) {
  take(message);
  channel?.postMessage(message);
}

function listen() {
  clearTimeout(retry);
  source?.close();
  source = new EventSource("api/events");
  for (const what of ["hello", "change"]) {
    source.addEventListener(what, (event) => {
      try {
        say({ what, form: JSON.parse(event.data) });
      } catch {
        // Half an event of a server that died; the next connection tells all.
      }
    });
  }
  source.addEventListener("error", () => {
    say({ what: "off" });
    // A refused connection is given up by the browser: it is up to us then.
    if (source.readyState === EventSource.CLOSED) {
      clearTimeout(retry);
      retry = setTimeout(listen, 2000);
    }
  });
}

export function start() {
  if (!channel || !navigator.locks) {
    listen();
    return;
  }
  channel.addEventListener("message", (event) => {
    if (event.data.what === "asks") {
      if (leads && hello) {
        channel.postMessage(state === "on" ? { what: "hello", form: { ...hello, revision } } : { what: "off" });
      }
    } else if (!leads) {
      take(event.data);
    }
  });
  // Held until the tab closes or is put away; the next one in line takes over.
  navigator.locks.request("trovik-events", () => {
    leads = true;
    listen();
    return new Promise(() => {});
  });
  channel.postMessage({ what: "asks" });
  addEventListener("pageshow", (event) => {
    if (event.persisted) {
      location.reload();
    }
  });
}

/** For the tests and for a machine that slept: when anything came last. */
export const lastHeard = () => heard;
