// What stands beside a job's frames: failures, what runs, times, parameters, and
// the jobs around it. A part is drawn anew only where its form changed, so that
// what is read or focused stays.
import { isReadOnly, missing } from "./actions.js";
import { commandLine, h } from "./dom.js";
import { failureBox, frameLinks, groupFailures } from "./failures.js";
import { stateChip } from "./dom.js";
import { address } from "./route.js";
import { ofName } from "./states.js";
import { bytes, countFrames, duration, many, moment, number, plain, runs, visible } from "./text.js";

const mostRunning = 12;

function panel(name, title, ...children) {
  return h("section", { class: "panel", "data-part": name, "aria-label": title }, h("h2", { textContent: title }), ...children);
}

function failures(form) {
  const groups = groupFailures(form.failures);
  if (!groups.length) {
    return null;
  }
  return panel("failures", groups.length === 1 ? "Why frames failed" : `${groups.length} reasons of failures`, h("ul", { class: "failures" }, groups.map((group) => failureBox(form, group))));
}

function gone(form) {
  const text = plain(form.gone);
  if (!text) {
    return null;
  }
  const count = countFrames(text);
  const again = h("button", { type: "button" }, "Render the missing frames");
  again.addEventListener("click", () => missing(form));
  return panel(
    "gone",
    "Files that are gone",
    h("p", { textContent: `${many(count, "frame")} ${count === 1 ? "was" : "were"} good, and ${count === 1 ? "its file is" : "their files are"} missing, damaged or changed now.` }),
    frameLinks(form.job, text, count),
    isReadOnly() ? null : h("div", { class: "bar" }, again),
  );
}

function waits(form) {
  if (form.state === "stopped") {
    return panel("held", "It is held", h("p", { class: "said", textContent: visible(form.note) || "Nothing new of it begins until it is released." }));
  }
  const open = form.state === "waiting" || form.state === "running";
  if (open && form.engine === false && !form.cluster) {
    return panel("idle", "No engine is at work", h("p", {}, "Its frames begin when an engine is started:"), commandLine("trovik engine"));
  }
  return null;
}

function runningWork(form, work) {
  const frames = plain(work.frames);
  const count = countFrames(frames);
  const first = runs(frames)[0]?.[0];
  const place = work.node ? `on ${visible(work.node)}` : "";
  const facts = [
    work.attempt > 1 ? `attempt ${work.attempt}` : "",
    place,
    work.seconds !== null && work.seconds !== undefined ? `for ${duration(Math.round(work.seconds))}` : "",
    work.stage && work.stage !== "running" ? work.stage : "",
    work.silent > 60 ? `silent for ${duration(Math.round(work.silent))}` : "",
  ].filter(Boolean);
  const files = Array.isArray(work.files) ? work.files.length : Number(work.files ?? 0);
  return h(
    "li",
    {},
    h("a", { href: address(`job/${form.job}/frame/${first ?? "work"}`), textContent: frames ? (count > 1 ? `Frames ${frames}` : `Frame ${frames}`) : "The whole job" }),
    h("span", { class: "count", textContent: ` ${facts.join(", ")}` }),
    count > 1 ? h("span", { class: "packet", textContent: `${Math.min(files, count)} of ${count} written` }) : null,
  );
}

function running(form) {
  const works = form.running ?? [];
  if (!works.length) {
    return null;
  }
  const rest = works.length - mostRunning;
  return panel(
    "running",
    `${many(works.length, "program")} at work`,
    h("ul", { class: "works" }, works.slice(0, mostRunning).map((work) => runningWork(form, work))),
    rest > 0 ? h("p", { class: "count", textContent: `and ${number(rest)} more` }) : null,
  );
}

function cluster(form) {
  if (!form.cluster) {
    return null;
  }
  const list = h("ul", { class: "works" });
  for (const group of form.cluster.arrays ?? []) {
    list.append(
      h(
        "li",
        { "data-stuck": group.stuck ? "true" : null },
        h("strong", { textContent: visible(group.text) || visible(group.state) }),
        h("span", { class: "count", textContent: ` ${many(group.works ?? 0, "work")}` }),
        group.hint ? h("p", { class: "hint", textContent: visible(group.hint) }) : null,
      ),
    );
  }
  return panel(
    "cluster",
    "On the cluster",
    form.cluster.problem ? h("p", { class: "failure-reason", textContent: visible(form.cluster.problem) }) : null,
    list,
    form.cluster.unplaced ? h("p", { class: "count", textContent: `${many(form.cluster.unplaced, "work")} not handed over yet` }) : null,
  );
}

function jobLink(other, path = "") {
  return h(
    "li",
    {},
    h("a", { href: address(`job/${other.job}${path}`), textContent: `Job ${other.job}` }),
    " ",
    // Of followers only the number is known; a forerunner without a state was deleted.
    other.state ? stateChip(ofName(other.state)) : other.state === null ? h("span", { class: "count" }, "deleted") : null,
  );
}

function around(form) {
  const after = form.after ?? [];
  const followers = form.followers ?? [];
  const versions = (form.versions ?? []).filter((other) => other.job !== form.job);
  if (!after.length && !followers.length && !versions.length) {
    return null;
  }
  const list = (title, others) => (others.length ? [h("h3", {}, title), h("ul", { class: "relations" }, others)] : []);
  return panel(
    "around",
    "Jobs around it",
    ...list("Waits for", after.map((other) => {
      const item = jobLink(other);
      item.append(h("span", { class: "count", textContent: other.released ? " released" : other.byFrame ? " frame by frame" : "" }));
      return item;
    })),
    ...list("Waited for by", followers.map((other) => jobLink(typeof other === "number" ? { job: other } : other))),
    ...list("Versions of the same", versions.map((other) => {
      const item = jobLink(other);
      item.append(h("span", { class: "count", textContent: ` ${moment(other.submitted).slice(0, 16)} ` }), h("a", { href: `#/job/${form.job}/play?with=${other.job}`, textContent: "compare" }));
      return item;
    })),
  );
}

function fact(list, name, value) {
  if (value) {
    list.append(h("dt", { textContent: name }), h("dd", { textContent: value }));
  }
}

function parameters(form) {
  if (!form.parameters?.length) {
    return null;
  }
  const list = h("dl", { class: "facts" });
  for (const parameter of form.parameters) {
    fact(list, visible(parameter.name), visible(parameter.value) || "(empty)");
  }
  return h("details", { class: "panel", "data-part": "parameters", open: true }, h("summary", {}, "Parameters"), list);
}

function details(form) {
  const list = h("dl", { class: "facts" });
  fact(list, "Scene", visible(form.scene));
  fact(list, "Output", visible(form.output));
  fact(list, "Logs", visible(form.logs));
  fact(list, "Submitted", moment(form.submitted));
  fact(list, "Started", moment(form.started));
  fact(list, "Ended", moment(form.ended));
  fact(list, "Priority", String(form.priority));
  fact(list, "At most", form.slotsAtMost ? many(form.slotsAtMost, "work") + " at a time" : "");
  for (const limit of form.limits ?? []) {
    const of = limit.amount === null || limit.amount === undefined ? "no limit here" : `${limit.taken} of ${limit.amount} taken`;
    fact(list, "Limit", `${visible(limit.name)}: takes ${limit.takes} (${of})`);
  }
  if (form.usage) {
    fact(list, "Processors", duration((form.usage.user ?? 0) + (form.usage.system ?? 0)));
    fact(list, "Memory", form.usage.memory ? `${bytes(form.usage.memory)} at most` : "");
  }
  for (const program of form.programs ?? []) {
    fact(list, "Program", visible(program.program) + (program.frames ? ` (frames ${plain(program.frames)})` : ""));
  }
  for (const images of form.images ?? []) {
    fact(list, "Images", `${number(images.count)} in ${visible(images.directory)}`);
  }
  return h("details", { class: "panel", "data-part": "details" }, h("summary", {}, "Details"), list);
}

/** The parts, what each depends on, and who draws it; the chart stands between. */
const parts = [
  ["waits", (form) => [form.state, form.engine, form.note, Boolean(form.cluster)], waits],
  ["failures", (form) => [form.failures, form.name, isReadOnly()], failures],
  ["gone", (form) => [form.gone, isReadOnly()], gone],
  ["running", (form) => form.running, running],
  ["cluster", (form) => form.cluster, cluster],
  ["chart", () => 0, null],
  ["around", (form) => [form.after, form.followers, form.versions], around],
  ["parameters", (form) => form.parameters, parameters],
  ["details", (form) => [form.scene, form.output, form.logs, form.started, form.ended, form.priority, form.limits, form.usage, form.programs, form.images, form.slotsAtMost], details],
];

export function fillAside(aside, form, chartHost, more) {
  aside.drawn ??= new Map();
  let before = null;
  for (const [name, depends, draw] of parts) {
    if (!draw) {
      if (!chartHost.isConnected) {
        aside.append(chartHost, more);
      }
      before = chartHost;
      continue;
    }
    const key = JSON.stringify(depends(form) ?? null);
    const old = aside.drawn.get(name);
    if (old?.key === key) {
      before = old.element ?? before;
      continue;
    }
    const element = draw(form);
    if (element && old?.element instanceof HTMLDetailsElement) {
      element.open = old.element.open;
    }
    if (old?.element) {
      old.element.remove();
    }
    if (element) {
      if (before) {
        before.after(element);
      } else {
        aside.prepend(element);
      }
      before = element;
    }
    aside.drawn.set(name, { key, element });
  }
}
