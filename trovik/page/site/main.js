// Starts the page, and puts the view that the address asks for into it.
import { changed, get } from "./api.js";
import { setServerTime } from "./clock.js";
import { h, setText } from "./dom.js";
import * as events from "./events.js";
import { addKeys, showKeys, startKeys } from "./keys.js";
import { repaintAll } from "./paint.js";
import { go, parse } from "./route.js";
import { setReadOnly } from "./actions.js";
import { visible } from "./text.js";
import { showFrame } from "./frame.js";
import { showJob } from "./job.js";
import { showJobs } from "./jobs.js";
import { showMachine } from "./machine.js";
import { showPlay } from "./play.js";

const main = document.getElementById("main");
const views = { jobs: showJobs, job: showJob, frame: showFrame, play: showPlay, machine: showMachine, unknown: showUnknown };
let current = null;

function showUnknown(root) {
  root.append(
    h(
      "div",
      { class: "empty" },
      h("h1", {}, "Nothing is here"),
      h("p", {}, "The address names no view of this page."),
      h("a", { class: "button", href: "#/jobs" }, "All jobs"),
    ),
  );
  document.title = "trovik";
  return { close() {} };
}

/** The view stays where only its query or its frame changes. */
function showRoute() {
  const route = parse();
  if (current && current.view === route.view && current.job === route.job && current.handle.move) {
    current.handle.move(route);
    return;
  }
  current?.handle.close();
  main.replaceChildren();
  main.className = `view-${route.view}`;
  document.documentElement.dataset.view = route.view;
  const first = current === null;
  current = { view: route.view, job: route.job, handle: views[route.view](main, route) };
  for (const link of document.querySelectorAll(".nav a")) {
    const here = link.dataset.view === route.view || (link.dataset.view === "jobs" && route.job !== undefined);
    if (here) {
      link.setAttribute("aria-current", link.dataset.view === route.view ? "page" : "true");
    } else {
      link.removeAttribute("aria-current");
    }
  }
  if (!first) {
    // Who came by keyboard goes on inside the view; the title tells where that is.
    main.focus({ preventScroll: true });
    scrollTo(0, current.handle.scroll ?? 0);
  }
}

function themeNow() {
  return document.documentElement.dataset.theme ?? "system";
}

const themes = { system: ["◐", "as the system has it"], light: ["☀", "light"], dark: ["☾", "dark"] };

function showTheme() {
  const button = document.getElementById("theme");
  const [glyph, words] = themes[themeNow()];
  setText(button, glyph);
  button.setAttribute("aria-label", `Colours: ${words}`);
  button.title = `Colours: ${words}`;
}

function nextTheme() {
  const names = Object.keys(themes);
  const next = names[(names.indexOf(themeNow()) + 1) % names.length];
  if (next === "system") {
    delete document.documentElement.dataset.theme;
  } else {
    document.documentElement.dataset.theme = next;
  }
  try {
    if (next === "system") {
      localStorage.removeItem("trovik-theme");
    } else {
      localStorage.setItem("trovik-theme", next);
    }
  } catch {
    // Without storage it holds until the page is closed.
  }
  showTheme();
  repaintAll();
}

const stateWords = { connecting: "Connecting", on: "Live", off: "Not connected" };
let bannerDue = 0;

function showState(state, hello) {
  const link = document.getElementById("link-state");
  link.dataset.state = state;
  setText(document.getElementById("link-word"), stateWords[state]);
  const banner = document.getElementById("banner");
  clearTimeout(bannerDue);
  if (state === "off") {
    // A server that is started anew is back within a moment: no word about that.
    bannerDue = setTimeout(() => {
      setText(
        banner,
        'The server is away. What you see is as it was; the page goes on by itself once "trovik page" is at work again.',
      );
      banner.hidden = false;
      about(); // or it is there, and does not know us any more
    }, 1200);
  } else if (state === "on") {
    banner.hidden = true;
  }
  if (hello) {
    setReadOnly(hello.readOnly === true);
  }
}

async function about() {
  try {
    const form = await get("api/about");
    setServerTime(form.now);
    setReadOnly(form.readOnly === true);
    const where = document.getElementById("where");
    setText(where, `${visible(form.name)} · ${visible(form.directory)}${form.readOnly ? " · read only" : ""}`);
    where.title = where.textContent;
  } catch (problem) {
    if (problem.status === 403) {
      const banner = document.getElementById("banner");
      setText(banner, `${problem.message}. ${problem.hint}`);
      banner.hidden = false;
    }
  }
}

startKeys();
addKeys({
  group: "Everywhere",
  keys: [
    { keys: ["?"], text: "Show the keys", run: showKeys },
    { keys: ["1"], text: "Jobs", run: () => go("jobs") },
    { keys: ["2"], text: "Machine", run: () => go("machine") },
    { keys: ["t"], text: "Light, dark, or as the system has it", run: nextTheme },
    { keys: ["Escape"], show: ["Esc"], text: "Back to what is around", run: () => current.handle.up?.() ?? false },
  ],
});
document.getElementById("theme").addEventListener("click", nextTheme);
document.getElementById("help").addEventListener("click", showKeys);
document.getElementById("skip").addEventListener("click", () => main.focus());
showTheme();
events.on("change", (change) => {
  if (change.all) {
    about();
  }
  changed(change);
});
events.on("state", showState);
addEventListener("hashchange", showRoute);
about();
showRoute();
events.start();
