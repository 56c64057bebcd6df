// A frame: its picture large, why it is as it is, its attempts, and the log.
import { isReadOnly, retry } from "./actions.js";
import { concernsJob, watch } from "./api.js";
import { Cells } from "./cells.js";
import { h, keyed, problemBox, setAttribute, setState, setText, stateChip } from "./dom.js";
import { nameOf } from "./jobs.js";
import { addKeys } from "./keys.js";
import { LogView } from "./log.js";
import { address, go, setQuery } from "./route.js";
import { ofLetter, ofName } from "./states.js";
import { bytes, duration, moment, plain, visible } from "./text.js";
import { Viewer } from "./viewer.js";

const attemptWords = (attempt) =>
  [attempt.seconds ? `took ${duration(attempt.seconds)}` : "", moment(attempt.started)].filter(Boolean).join(", ");

const holeWords = {
  waiting: "Its turn has not come yet.",
  running: "The program is at work; the picture appears here.",
  canceled: "It was canceled before it was rendered.",
};

export function showFrame(root, route) {
  const job = route.job;
  let frame = route.frame;
  let form = null; // of the job
  let cells = null;
  let now = null; // the form of the frame
  let attempt = null; // the chosen one's number in the queue
  let stopFrame = () => {};

  const chip = stateChip(ofName("waiting"));
  const title = h("h1");
  const back = h("a", { class: "button", href: address(`job/${job}`) }, "All frames");
  const previous = h("a", { class: "button", "aria-label": "Frame before", title: "Frame before (←)" }, "←");
  const next = h("a", { class: "button", "aria-label": "Next frame", title: "Next frame (→)" }, "→");
  const again = h("button", { type: "button", "data-action": "retry", hidden: true }, "Render this frame again");
  again.addEventListener("click", () => form && retry(form, frame === "work" ? "" : String(frame)));
  const head = h(
    "header",
    { class: "frame-head" },
    h("nav", { class: "bar", "aria-label": "Frames" }, back, previous, next),
    h("div", { class: "job-head-title" }, title, chip),
    h("div", { class: "bar push" }, again),
  );
  const trouble = h("div");
  const stage = h("section", { class: "viewer", "aria-label": "Picture" });
  const viewer = new Viewer(stage);
  // The queue knows what a file was when it was checked; the viewer what it is.
  viewer.onDamaged = () => now?.state === "good" && setState(chip, ofName("damaged"));
  const reason = h("div", { class: "frame-reason" });
  const file = h("section", { class: "panel", "aria-label": "File" });
  const attempts = h("ul", { class: "attempts" });
  const attemptsPanel = h("section", { class: "panel", "aria-label": "Attempts" }, h("h2", {}, "Attempts"), attempts);
  const command = h("details", { class: "panel", hidden: true }, h("summary", {}, "Command"), h("pre", { class: "deciding" }));
  const logHost = h("section", { class: "panel log-panel", "aria-label": "Log" });
  const log = new LogView(logHost);
  root.append(
    head,
    trouble,
    h("div", { class: "frame-body" }, h("div", { class: "frame-picture" }, stage, logHost), h("aside", { class: "frame-aside", "aria-label": "About the frame" }, reason, file, attemptsPanel, command)),
  );

  const pathOf = (name) => `job/${job}/frame/${name}`;

  function neighbour(by) {
    if (!cells || !cells.form.hasFrames) {
      return null;
    }
    const at = cells.find(frame);
    const to = at + by;
    return at >= 0 && to >= 0 && to < cells.count ? cells.name(to) : null;
  }

  function step(by) {
    const to = neighbour(by);
    if (to !== null) {
      // One step back leads to where the frames were come from, not through all.
      location.replace(address(pathOf(to)));
    }
  }

  function nextProblem(by) {
    if (!cells) {
      return;
    }
    const at = cells.find(frame);
    for (let i = 1; i <= cells.count; ++i) {
      const to = (at + by * i + cells.count * 2) % cells.count;
      if ("fdm".includes(cells.letter(to)) && to !== at) {
        location.replace(address(pathOf(cells.name(to))));
        return;
      }
    }
  }

  function drawNeighbours() {
    for (const [link, by] of [[previous, -1], [next, 1]]) {
      const to = neighbour(by);
      setAttribute(link, "href", to === null ? null : address(pathOf(to)));
      setAttribute(link, "aria-disabled", to === null ? "true" : null);
      setAttribute(link, "role", to === null ? "link" : null);
    }
    const show = frame !== "work";
    previous.hidden = !show;
    next.hidden = !show;
  }

  function drawHead() {
    const name = frame === "work" ? "" : `Frame ${frame}`;
    const jobName = form ? nameOf(form) : `Job ${job}`;
    setText(title, name ? `${name} · ${jobName}` : jobName);
    document.title = `${name ? `${name} · ` : ""}${jobName} · trovik`;
    again.hidden = isReadOnly() || !form || !now || now.state === "running" || now.state === "waiting";
    if (now) {
      setState(chip, ofName(now.state));
      if (viewer.damaged) {
        viewer.onDamaged();
      }
      again.className = now.state === "good" ? "" : "primary";
    }
  }

  function drawFrame() {
    drawHead();
    const letter = cells && cells.find(frame) >= 0 ? cells.letter(cells.find(frame)) : "";
    const files = now.files ?? [];
    const newest = files.find((other) => other.id === now.file) ?? files.at(-1) ?? null;
    const showable = newest && newest.size > 0 && now.state !== "missing";
    viewer.show(showable ? newest.id : 0, {
      fresh: letter === "R",
      alt: `Frame ${frame}`,
      hole: letter ? ofLetter(letter) : ofName(now.state),
      note: visible(now.note) || visible((now.attempts ?? []).at(-1)?.reason) || holeWords[now.state] || "",
    });
    drawReason(Boolean(showable));
    drawFile(newest, Boolean(showable));
    drawAttempts();
  }

  function drawReason(showable) {
    const list = now.attempts ?? [];
    const last = list.at(-1);
    const note = visible(now.note) || (last && last.state !== "good" ? visible(last.reason) : "");
    const key = JSON.stringify([now.state, note, showable]);
    if (reason.dataset.of === key) {
      return;
    }
    reason.dataset.of = key;
    reason.replaceChildren();
    // Where there is no picture its place tells the reason.
    reason.hidden = !note || now.state === "good" || !showable;
    if (!reason.hidden) {
      reason.append(h("div", { class: "panel why", "data-state": now.state }, h("h2", {}, `Why it is ${ofName(now.state).word}`), h("p", { class: "failure-reason", textContent: note })));
    }
  }

  function drawFile(newest, there) {
    file.hidden = !newest;
    if (!newest) {
      return;
    }
    const list = h("dl", { class: "facts" });
    const fact = (name, value) => value && list.append(h("dt", { textContent: name }), h("dd", { textContent: value }));
    fact("File", visible(newest.file));
    fact("Size", there || newest.size ? bytes(newest.size) : "");
    fact("Written", moment(newest.modified));
    fact("Problem", visible(newest.problem));
    if (there) {
      const pixels = h("dd", { textContent: viewer.pixels || "…" });
      list.append(h("dt", {}, "Preview"), pixels);
      viewer.onPixels = (words) => setText(pixels, words);
    }
    file.replaceChildren(
      h("h2", {}, "File"),
      list,
      !there ? "" : h("div", { class: "bar" }, h("a", { class: "button", href: `api/files/${newest.id}/original`, download: "" }, "Save the file")),
    );
  }

  function drawAttempts() {
    const list = [...(now.attempts ?? [])].reverse();
    attemptsPanel.hidden = list.length === 0;
    if (!list.some((other) => other.id === attempt)) {
      attempt = list[0]?.id ?? null;
    }
    keyed(
      attempts,
      list,
      (other) => other.id,
      (other) => {
        const button = h("button", { type: "button", class: "quiet attempt" }, stateChip(ofName(other.state)), h("span", { class: "attempt-words" }));
        button.addEventListener("click", () => {
          attempt = other.id;
          setQuery({ attempt: other.id });
          drawAttempts();
        });
        return h("li", {}, button);
      },
      (item, other) => {
        const button = item.firstChild;
        setAttribute(button, "aria-pressed", String(other.id === attempt));
        setState(button.firstChild, ofName(other.state));
        setText(button.lastChild, `Attempt ${other.attempt}${attemptWords(other) ? `, ${attemptWords(other)}` : ""}`);
      },
    );
    const chosen = list.find((other) => other.id === attempt);
    log.show(chosen ?? null);
    logHost.hidden = !chosen;
    command.hidden = !chosen?.command;
    if (chosen) {
      setText(command.lastChild, visible(plain(chosen.command)));
    }
  }

  function watchFrame() {
    stopFrame();
    now = null;
    attempt = Number(new URLSearchParams(location.hash.split("?")[1] ?? "").get("attempt")) || null;
    drawHead();
    drawNeighbours();
    showSoon();
    stopFrame = watch(
      `api/jobs/${job}/frames/${frame}`,
      concernsJob(job),
      (answer) => {
        now = answer;
        trouble.replaceChildren();
        drawFrame();
      },
      (problem, old) => {
        if (!old || problem.status === 404) {
          trouble.replaceChildren(problemBox(problem));
        }
      },
    );
  }

  /** What the sheet knows is shown at once, before the form has come. */
  function showSoon() {
    const at = cells ? cells.find(frame) : -1;
    if (at >= 0 && !now) {
      const letter = cells.letter(at);
      setState(chip, ofLetter(letter));
      viewer.show(letter === "m" ? 0 : cells.file(at), { fresh: letter === "R", alt: `Frame ${frame}`, hole: ofLetter(letter), note: "" });
    }
  }

  const stops = [
    watch(`api/jobs/${job}`, concernsJob(job), (answer) => {
      form = answer;
      drawHead();
    }),
    watch(`api/jobs/${job}/cells`, concernsJob(job), (answer) => {
      cells = new Cells(answer);
      drawNeighbours();
      showSoon();
    }),
    addKeys({
      group: "A frame",
      keys: [
        { keys: ["ArrowLeft"], show: ["←"], text: "Frame before", run: () => step(-1) },
        { keys: ["ArrowRight"], show: ["→"], text: "Next frame", run: () => step(1) },
        { keys: ["n"], text: "Next frame that needs a look", run: () => nextProblem(1) },
        { keys: ["N"], text: "The one before", run: () => nextProblem(-1) },
        { keys: ["+", "="], show: ["+"], text: "Larger", run: () => viewer.zoomBy(1.5) },
        { keys: ["-"], show: ["−"], text: "Smaller", run: () => viewer.zoomBy(1 / 1.5) },
        { keys: ["0"], text: "The whole picture", run: () => viewer.fit() },
        { keys: ["w"], text: "Up", run: () => viewer.pan(0, 1) },
        { keys: ["a"], text: "Left", run: () => viewer.pan(1, 0) },
        { keys: ["s"], text: "Down", run: () => viewer.pan(0, -1) },
        { keys: ["d"], text: "Right", run: () => viewer.pan(-1, 0) },
        { keys: ["/"], text: "Find in the log", run: () => log.focusFind() },
        { keys: ["f"], text: "Follow the log", run: () => log.toggleFollow() },
        { keys: ["r"], text: "Render this frame again", run: () => (again.hidden ? false : again.click()) },
        { keys: ["p"], text: "Play from here", run: () => frame !== "work" && go(`job/${job}/play`, new URLSearchParams({ at: frame })) },
      ],
    }),
  ];
  watchFrame();

  return {
    up: () => go(`job/${job}`),
    move(to) {
      if (to.frame !== frame) {
        frame = to.frame;
        watchFrame();
      }
    },
    close() {
      stopFrame();
      stops.forEach((stop) => stop());
      viewer.close();
      log.close();
    },
  };
}
