// All jobs: live, each with a strip of its frames.
import { concernsAll, watch } from "./api.js";
import { now, onTick } from "./clock.js";
import { commandLine, h, keyed, problemBox, setAttribute, setState, setText, stateChip } from "./dom.js";
import { addKeys } from "./keys.js";
import { onRepaint, paintStrip } from "./paint.js";
import { address, setQuery } from "./route.js";
import { countLetters, ofName, summary } from "./states.js";
import { age, duration, many, number, plain, roughly, visible } from "./text.js";

const filters = [
  { name: "", word: "All", takes: () => true },
  { name: "running", word: "running", takes: (job) => job.state === "running" },
  { name: "waiting", word: "waiting", takes: (job) => job.state === "waiting" },
  { name: "failed", word: "failed", takes: (job) => job.state === "failed" || job.counts.failed > 0 },
  { name: "stopped", word: "held", takes: (job) => job.state === "stopped" },
  { name: "good", word: "good", takes: (job) => job.state === "good" },
  { name: "canceled", word: "canceled", takes: (job) => job.state === "canceled" },
];
const page = 100; // rows at a time; more come when the end is seen

/** The words beside a strip: how far the job is. */
export function progressWords(job) {
  const { total, good, failed, running } = job.counts;
  const words = [`${number(good)} of ${number(total)} good`];
  if (failed > 0) {
    words.push(`${number(failed)} failed`);
  }
  if (running > 0) {
    words.push(`${number(running)} running`);
  }
  return words.join(" · ");
}

/** How long the job will take from now on: the server's guess, else by what was done so far. */
export function timeLeft(job) {
  if (job.state !== "running") {
    return null;
  }
  if (typeof job.left === "number") {
    return job.left;
  }
  const done = job.counts.good + job.counts.failed;
  const elapsed = job.started ? now() - job.started : 0;
  return job.left === undefined && done > 0 && elapsed > 0 ? (elapsed * (job.counts.total - done)) / done : null;
}

/** "about 4 min left", "after 4", "3 h ago, took 46 s". */
export function timeWords(job) {
  if (job.state === "running") {
    const left = timeLeft(job);
    return left === null ? `for ${duration(Math.round(now() - (job.started ?? job.submitted)))}` : `${roughly(left)} left`;
  }
  if (job.ended) {
    return `${age(now() - job.ended)} ago, took ${duration(job.seconds)}`;
  }
  const awaited = (job.after ?? []).filter((other) => other.awaited);
  const since = `since ${age(now() - job.submitted)}`;
  return awaited.length ? `after ${awaited.map((other) => other.job).join(", ")}` : since;
}

const isOpen = (job) => job.state === "running" || job.state === "waiting" || job.state === "stopped";

export const nameOf = (job) => visible(job.name) || "(no name)";

export function stripLabel(job) {
  const counts = countLetters(plain(job.strip));
  const { total, good, failed, running, canceled } = job.counts;
  const waiting = total - good - failed - running - canceled;
  const exact = new Map([["g", good], ["f", failed], ["r", running], ["c", canceled], ["w", waiting]]);
  // What the counts of the queue do not tell: files that went since.
  for (const letter of ["d", "m"]) {
    if (counts.has(letter)) {
      exact.set(letter, counts.get(letter));
    }
  }
  return `Frames: ${summary(exact)}`;
}

const widths = new ResizeObserver((changes) => {
  for (const change of changes) {
    change.target.repaint?.();
  }
});
const seen = new IntersectionObserver(
  (changes) => {
    for (const change of changes) {
      change.target.seen = change.isIntersecting;
      change.target.repaint?.();
    }
  },
  { rootMargin: "200px" },
);

function makeRow(job) {
  const strip = h("canvas", { class: "strip", role: "img" });
  const row = h(
    "li",
    { class: "job" },
    h("div", { class: "job-state" }, stateChip(ofName(job.state))),
    h(
      "div",
      { class: "job-name" },
      h("a", { class: "job-link", href: address(`job/${job.job}`) }, h("span", { class: "job-title" })),
      h("span", { class: "job-what" }),
    ),
    h("div", { class: "job-strip" }, strip, h("p", { class: "job-note" })),
    h("div", { class: "job-progress" }),
    h("div", { class: "job-time" }),
  );
  row.parts = {
    chip: row.querySelector(".state"),
    title: row.querySelector(".job-title"),
    what: row.querySelector(".job-what"),
    strip,
    note: row.querySelector(".job-note"),
    progress: row.querySelector(".job-progress"),
    time: row.querySelector(".job-time"),
  };
  strip.repaint = () => {
    if (strip.seen) {
      paintStrip(strip, strip.letters ?? "");
    }
  };
  widths.observe(strip);
  seen.observe(strip);
  return row;
}

function updateRow(row, job) {
  const { chip, title, what, strip, note, progress, time } = row.parts;
  row.job = job;
  setState(chip, ofName(job.state));
  setAttribute(row, "data-state", job.state);
  setText(title, nameOf(job));
  setText(what, `${job.job} · ${visible(job.type)}${plain(job.range) ? ` · ${visible(job.range)}` : ""}`);
  const letters = plain(job.strip);
  if (strip.letters !== letters) {
    strip.letters = letters;
    setAttribute(strip, "aria-label", stripLabel(job));
    strip.repaint();
  }
  const wants = job.state === "failed" || job.state === "stopped" || job.counts.failed > 0;
  setText(note, wants ? visible(job.note) : "");
  note.hidden = !wants || !note.textContent;
  setText(progress, progressWords(job));
  setText(time, timeWords(job));
}

export function showJobs(root, route) {
  const query = route.query;
  let form = null;
  let shown = page;
  let spoken = "";

  const search = h("input", { type: "search", placeholder: "Name, type or number", "aria-label": "Find jobs by name, type or number" });
  const type = h("select", { "aria-label": "Type" }, h("option", { value: "", textContent: "All types" }));
  const chips = h("div", { class: "bar", role: "group", "aria-label": "State" });
  for (const filter of filters) {
    const button = h("button", { type: "button", "data-filter": filter.name, "aria-pressed": "false" });
    button.append(filter.name ? stateChip(ofName(filter.name)) : filter.word, h("span", { class: "count" }));
    button.addEventListener("click", () => {
      const next = query.get("state") === filter.name ? "" : filter.name;
      setQuery({ state: next });
      query.set("state", next);
      shown = page;
      draw();
    });
    chips.append(button);
  }
  const heading = h("h1", { class: "sr-only" }, "Jobs");
  const list = h("ol", { class: "jobs", "aria-label": "Jobs, those under way first" });
  const note = h("div", { class: "jobs-note" });
  const end = h("div", { class: "jobs-end" });
  const trouble = h("div");
  root.append(heading, h("div", { class: "bar jobs-bar" }, search, type, chips), trouble, list, note, end);

  search.value = query.get("text") ?? "";
  search.addEventListener("input", () => {
    query.set("text", search.value.trim());
    setQuery({ text: search.value.trim() });
    shown = page;
    draw();
  });
  type.addEventListener("change", () => {
    query.set("type", type.value);
    setQuery({ type: type.value });
    shown = page;
    draw();
  });

  function drawTypes(jobs) {
    const names = [...new Set(jobs.map((job) => visible(job.type)))].sort((a, b) => a.localeCompare(b));
    const chosen = query.get("type") ?? "";
    if (chosen && !names.includes(chosen)) {
      names.push(chosen);
    }
    keyed(type, ["", ...names], (name) => `type ${name}`, (name) => h("option", { value: name, textContent: name || "All types" }));
    type.value = chosen;
  }

  function draw() {
    if (!form) {
      return;
    }
    // What is under way stands above what is over, each the newest first.
    const jobs = [...form.jobs].reverse();
    const ordered = [...jobs.filter(isOpen), ...jobs.filter((job) => !isOpen(job))];
    drawTypes(jobs);
    const text = (query.get("text") ?? "").toLowerCase();
    const wanted = query.get("type") ?? "";
    const found = ordered.filter(
      (job) =>
        (!wanted || visible(job.type) === wanted) &&
        (!text || String(job.job) === text || `${visible(job.name)} ${visible(job.type)} ${visible(job.scene)}`.toLowerCase().includes(text)),
    );
    const state = query.get("state") ?? "";
    for (const button of chips.children) {
      const filter = filters.find((other) => other.name === button.dataset.filter);
      const count = found.filter(filter.takes).length;
      setAttribute(button, "aria-pressed", String(state === filter.name));
      setText(button.lastChild, number(count));
      button.hidden = count === 0 && filter.name !== "" && state !== filter.name && filter.name !== "running" && filter.name !== "failed";
    }
    const chosen = found.filter((filters.find((filter) => filter.name === state) ?? filters[0]).takes);
    keyed(list, chosen.slice(0, shown), (job) => job.job, makeRow, updateRow);
    let before = null;
    for (const row of list.children) {
      setAttribute(row, "data-over", before && isOpen(before) && !isOpen(row.job) ? "true" : null);
      before = row.job;
    }
    end.hidden = chosen.length <= shown;
    drawNote(jobs, chosen);
    const running = jobs.filter((job) => job.state === "running").length;
    const failed = jobs.filter((job) => job.state === "failed").length;
    document.title = `${running ? `${running} running · ` : ""}Jobs · trovik`;
    tellChange(`${many(running, "job")} running, ${number(failed)} failed`);
  }

  /** For who hears the page: only what changes the whole picture. */
  function tellChange(words) {
    if (spoken && spoken !== words) {
      setText(document.getElementById("live"), words);
    }
    spoken = words;
  }

  function drawNote(jobs, chosen) {
    const kind = jobs.length === 0 ? "none" : chosen.length === 0 ? "filtered" : "";
    if (note.dataset.kind === kind) {
      return;
    }
    note.dataset.kind = kind;
    note.replaceChildren();
    if (kind === "none") {
      note.append(
        h(
          "div",
          { class: "empty" },
          h("h2", {}, "No jobs yet"),
          h("p", {}, "Give trovik a scene, and its frames appear here as they are rendered:"),
          commandLine("trovik run povray shots/a_0001.pov --out images"),
          h("p", {}, "A job can also wait for an engine:"),
          commandLine("trovik submit povray shots/a_0001.pov --out images && trovik engine"),
        ),
      );
    } else if (kind === "filtered") {
      const all = h("button", { type: "button" }, "Show all jobs");
      all.addEventListener("click", () => {
        setQuery({ state: "", type: "", text: "" });
        ["state", "type", "text"].forEach((key) => query.delete(key));
        search.value = "";
        draw();
        search.focus();
      });
      note.append(h("div", { class: "empty" }, h("h2", {}, "No job is like that"), all));
    }
  }

  const more = new IntersectionObserver((changes) => {
    if (changes.some((change) => change.isIntersecting)) {
      shown += page;
      draw();
    }
  }, { rootMargin: "600px" });
  more.observe(end);

  function step(by) {
    const links = [...list.querySelectorAll(".job-link")];
    const at = links.indexOf(document.activeElement);
    const next = links[at < 0 ? (by > 0 ? 0 : links.length - 1) : Math.max(0, Math.min(links.length - 1, at + by))];
    next?.focus();
    next?.closest(".job").scrollIntoView({ block: "nearest" });
  }

  const stops = [
    watch(
      "api/jobs",
      concernsAll,
      (next) => {
        form = next;
        trouble.replaceChildren();
        draw();
      },
      (problem, old) => {
        if (!old) {
          trouble.replaceChildren(problemBox(problem));
        }
      },
    ),
    onTick(() => {
      for (const row of list.children) {
        setText(row.parts.time, timeWords(row.job));
      }
    }),
    onRepaint(() => {
      for (const row of list.children) {
        row.parts.strip.repaint();
      }
    }),
    addKeys({
      group: "Jobs",
      keys: [
        { keys: ["ArrowDown", "j"], show: ["↓", "j"], text: "Next job", run: () => step(1) },
        { keys: ["ArrowUp", "k"], show: ["↑", "k"], text: "Job before", run: () => step(-1) },
        { keys: ["Enter"], text: "Open the job" },
        { keys: ["/"], text: "Find", run: () => search.focus() },
      ],
    }),
    () => more.disconnect(),
  ];

  return {
    move(next) {
      for (const key of ["state", "type", "text"]) {
        query.set(key, next.query.get(key) ?? "");
      }
      search.value = query.get("text");
      draw();
    },
    close: () => stops.forEach((stop) => stop()),
  };
}
