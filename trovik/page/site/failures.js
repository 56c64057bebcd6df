// Why frames failed: those alike are one reason, whatever numbers their names have.
import { isReadOnly, retry } from "./actions.js";
import { h } from "./dom.js";
import { address } from "./route.js";
import { countFrames, framesText, many, plain, runs, visible } from "./text.js";

const mostLinks = 14;

/** Groups the form's failures: {reason, rule, line, frames: text, count, works}. */
export function groupFailures(failures) {
  const groups = new Map();
  for (const failure of failures ?? []) {
    const reason = plain(failure.reason);
    const key = reason.replace(/\d+/g, "0");
    const group = groups.get(key);
    if (group) {
      group.works += failure.works ?? 1;
      group.pieces.push(plain(failure.frames));
    } else {
      groups.set(key, {
        reason: visible(reason),
        rule: failure.rule,
        line: visible(failure.line),
        works: failure.works ?? 1,
        pieces: [plain(failure.frames)],
      });
    }
  }
  return [...groups.values()].map((group) => {
    const frames = group.pieces.filter(Boolean).join(",");
    return { ...group, frames, count: countFrames(frames) };
  });
}

/** The first frames of a text, as many as links are worth having. */
function firstFrames(text, most) {
  const frames = [];
  for (const [first, last] of runs(text)) {
    for (let frame = first; frame <= last && frames.length < most; ++frame) {
      frames.push(frame);
    }
  }
  return frames;
}

export function frameLinks(job, text, total) {
  const frames = firstFrames(text, mostLinks);
  const links = h("p", { class: "frame-links" });
  for (const frame of frames) {
    links.append(h("a", { href: address(`job/${job}/frame/${frame}`), "aria-label": `Frame ${frame}`, textContent: String(frame) }), " ");
  }
  if (total > frames.length) {
    links.append(h("span", { class: "count", textContent: `and ${many(total - frames.length, "more", "more")}` }));
  }
  return links;
}

export function failureBox(job, group) {
  const one = group.frames === "";
  const box = h(
    "li",
    { class: "failure" },
    h("p", { class: "failure-head" }, h("strong", { textContent: one ? "It failed" : `${many(group.count, "frame")} failed` })),
    h("p", { class: "failure-reason", textContent: group.reason }),
    group.line && !group.reason.includes(group.line) ? h("pre", { class: "deciding", textContent: group.line }) : null,
    one
      ? h("a", { href: address(`job/${job.job}/frame/work`) }, "See what the program said")
      : frameLinks(job.job, group.frames, group.count),
  );
  if (!isReadOnly()) {
    const again = h("button", { type: "button" }, group.count > 1 ? "Render these again" : "Render it again");
    again.addEventListener("click", () => retry(job, one ? "" : normal(group.frames)));
    box.append(h("div", { class: "bar" }, again));
  }
  return box;
}

/** "3,1-2" as "1-3"; texts too long to be worth it stay as they are. */
function normal(text) {
  const frames = [];
  for (const [first, last] of runs(text)) {
    if (last - first > 100_000) {
      return text;
    }
    for (let frame = first; frame <= last; ++frame) {
      frames.push(frame);
    }
  }
  return framesText([...new Set(frames)].sort((a, b) => a - b));
}
