// The frames as a film while they arrive, beside an earlier version of the shot.
import { concernsJob, watch } from "./api.js";
import { Cells } from "./cells.js";
import { commandLine, h, keyed, problemBox, setAttribute, setText } from "./dom.js";
import { nameOf } from "./jobs.js";
import { addKeys } from "./keys.js";
import { sizeFor } from "./pictures.js";
import { address, go, setQuery } from "./route.js";
import { Screen } from "./screen.js";
import { Scrub } from "./scrub.js";
import { countLetters, ofName, summary } from "./states.js";
import { moment } from "./text.js";

const speeds = [1, 2, 6, 12, 15, 23.976, 24, 25, 30, 48, 50, 60];
const ahead = 16;
const modes = [
  ["side", "Side by side"],
  ["wipe", "Wipe"],
  ["difference", "Difference"],
];

export function showPlay(root, route) {
  const job = route.job;
  const query = route.query;
  let form = null;
  let cells = new Cells(null);
  let at = 0; // position of the playhead
  let first = 0;
  let last = 0;
  let playing = false;
  let loops = query.get("loop") !== "no";
  let speed = speeds.includes(Number(query.get("fps"))) ? Number(query.get("fps")) : 24;
  let other = Number(query.get("with")) || 0;
  let mode = modes.some(([name]) => name === query.get("how")) ? query.get("how") : "wipe";
  let due = 0;
  let animation = 0;
  let stopOther = () => {};

  const title = h("h1", { textContent: `Job ${job}` });
  const words = h("span", { class: "count" });
  const here = new Screen("here");
  const there = new Screen("there");
  const edge = h("div", { class: "wipe-edge", "aria-hidden": "true", hidden: true });
  const labelHere = h("span", { class: "screen-label here" });
  const labelThere = h("span", { class: "screen-label there", hidden: true });
  const loading = h("span", { class: "screen-loading", hidden: true }, "waiting for pictures");
  const stage = h("section", { class: "stage", "aria-label": "Film" }, here.canvas, there.canvas, edge, labelHere, labelThere, loading);
  const none = h("div", { hidden: true });
  const trouble = h("div");
  const scrub = new Scrub(() => setPlaying(false), seek, () => setQuery({ at: frame() }));
  const counter = h("output", { class: "counter" });

  const button = (text, label, run, name) => {
    const made = h("button", { type: "button", "aria-label": label, title: label, "data-name": name }, text);
    made.addEventListener("click", run);
    return made;
  };
  const playButton = button("Play", "Play (space)", () => setPlaying(!playing), "play");
  playButton.classList.add("primary");
  const loopButton = button("Loop", "Loop (l)", () => setLoops(!loops), "loop");
  const speedChoice = h("select", { "aria-label": "Frames a second" }, speeds.map((value) => h("option", { value: String(value), textContent: `${value} fps` })));
  const inButton = button("In", "In: the film begins here (i)", () => setIn(at), "in");
  const outButton = button("Out", "Out: the film ends here (o)", () => setOut(at), "out");
  const allButton = button("All", "All: the whole film (c)", clearRange, "all");
  const withChoice = h("select", { "aria-label": "Compare with" });
  const modeChoice = h("div", { class: "bar", role: "group", "aria-label": "How to compare" });
  for (const [name, text] of modes) {
    modeChoice.append(button(text, text, () => setMode(name), name));
  }
  const wipe = h("input", { type: "range", min: "0", max: "100", value: "50", step: "1", "aria-label": "Place of the wipe" });
  const boost = button("Brighter", "Make differences brighter (b)", () => setBoost(boost.getAttribute("aria-pressed") !== "true"), "boost");
  boost.setAttribute("aria-pressed", "false");

  root.append(
    h("header", { class: "frame-head" }, h("a", { class: "button", href: address(`job/${job}`) }, "All frames"), title, words),
    trouble,
    none,
    stage,
    scrub.element,
    h(
      "div",
      { class: "bar play-bar" },
      playButton,
      button("◂", "Frame before (←)", () => step(-1), "before"),
      button("▸", "Next frame (→)", () => step(1), "next"),
      counter,
      speedChoice,
      loopButton,
      inButton,
      outButton,
      allButton,
      h("span", { class: "push" }),
      h("label", { class: "field" }, "Beside", withChoice),
      modeChoice,
      wipe,
      boost,
    ),
  );
  speedChoice.value = String(speed);

  const frame = () => (cells.count ? cells.name(at) : 0);
  const inRange = (position) => Math.max(first, Math.min(last, position));

  function setPlaying(value) {
    if (value && !cells.count) {
      return;
    }
    playing = value;
    setText(playButton, playing ? "Pause" : "Play");
    setAttribute(playButton, "aria-label", playing ? "Pause (space)" : "Play (space)");
    if (playing) {
      if (at >= last && !loops) {
        at = first;
      }
      at = inRange(at);
      due = performance.now() + 1000 / speed;
      cancelAnimationFrame(animation);
      animation = requestAnimationFrame(turn);
    } else {
      loading.hidden = true;
      setQuery({ at: cells.count ? frame() : "" });
    }
    drawScrub();
  }

  /** Shows the next frame when its time has come and it is there. */
  function turn(time) {
    if (!playing) {
      return;
    }
    if (time >= due) {
      let next = at + 1;
      if (next > last) {
        if (!loops) {
          setPlaying(false);
          return;
        }
        next = first;
      }
      const name = cells.name(next);
      if (here.ready(name) && (!other || there.ready(name))) {
        at = next;
        loading.hidden = true;
        // A film that fell behind goes on from now instead of racing.
        due = time - due > 250 ? time + 1000 / speed : due + 1000 / speed;
        draw();
      } else {
        loading.hidden = time - due < 300;
      }
      fetchAhead();
    }
    animation = requestAnimationFrame(turn);
  }

  function fetchAhead() {
    if (!cells.count) {
      return;
    }
    const positions = [at];
    for (let i = 1; i <= Math.min(ahead, last - first); ++i) {
      const next = at + i;
      positions.push(next > last ? first + ((next - last - 1) % (last - first + 1)) : next);
    }
    for (const screen of other ? [here, there] : [here]) {
      screen.reel.fetch(positions.map((position) => screen.source(cells.name(position))).filter(Boolean));
    }
  }

  function draw() {
    if (!cells.count) {
      return;
    }
    const name = frame();
    here.show(name);
    setAttribute(here.canvas, "aria-label", here.words ?? `Frame ${name}`);
    if (other) {
      there.show(name);
      setAttribute(there.canvas, "aria-label", `Job ${other}, ${there.words ?? `frame ${name}`}`);
    }
    stage.style.setProperty("--aspect", here.aspect.toFixed(4));
    setText(counter, `${name}`);
    setAttribute(counter, "aria-label", `Frame ${name}`);
    drawScrub();
  }

  function drawScrub() {
    if (cells.count) {
      scrub.show(cells, { at, first, last }, !playing);
    }
  }

  function seek(position) {
    at = Math.max(0, Math.min(cells.count - 1, position));
    draw();
    fetchAhead();
  }

  function step(by) {
    if (!cells.count) {
      return;
    }
    setPlaying(false);
    const span = last - first + 1;
    seek(at < first || at > last ? inRange(at + by) : first + ((((at + by - first) % span) + span) % span));
    setQuery({ at: frame() });
  }

  function drawRange() {
    setAttribute(inButton, "aria-pressed", String(first > 0));
    setAttribute(outButton, "aria-pressed", String(last < cells.count - 1));
    setQuery({ in: first > 0 ? cells.name(first) : "", out: last < cells.count - 1 ? cells.name(last) : "" });
    drawScrub();
  }

  function setIn(position) {
    first = position;
    last = Math.max(last, first);
    drawRange();
  }

  function setOut(position) {
    last = position;
    first = Math.min(first, last);
    drawRange();
  }

  function clearRange() {
    first = 0;
    last = cells.count - 1;
    drawRange();
  }

  function setLoops(value) {
    loops = value;
    setAttribute(loopButton, "aria-pressed", String(loops));
    setQuery({ loop: loops ? "" : "no" });
  }

  function setSpeed(value) {
    speed = value;
    speedChoice.value = String(speed);
    setQuery({ fps: speed === 24 ? "" : speed });
  }

  const faster = (by) => setSpeed(speeds[Math.max(0, Math.min(speeds.length - 1, speeds.indexOf(speed) + by))]);

  function setMode(value) {
    mode = value;
    setQuery({ how: other && mode !== "wipe" ? mode : "" });
    drawCompare();
  }

  function setBoost(value) {
    boost.setAttribute("aria-pressed", String(value));
    stage.classList.toggle("boosted", value);
  }

  function drawCompare() {
    stage.dataset.mode = other ? mode : "single";
    there.canvas.hidden = !other;
    labelThere.hidden = !other;
    edge.hidden = !other || mode !== "wipe";
    modeChoice.hidden = !other;
    wipe.hidden = !other || mode !== "wipe";
    boost.hidden = !other || mode !== "difference";
    setText(labelThere, other ? `Job ${other}` : "");
    setText(labelHere, `Job ${job}`);
    labelHere.hidden = !other;
    for (const made of modeChoice.children) {
      setAttribute(made, "aria-pressed", String(made.dataset.name === mode));
    }
    stage.style.setProperty("--wipe", wipe.value);
    fitSize();
  }

  function setOther(value) {
    other = value;
    stopOther();
    stopOther = () => {};
    there.close();
    there.drawn = "";
    setQuery({ with: other || "" });
    if (other) {
      stopOther = watch(
        `api/jobs/${other}/cells`,
        concernsJob(other),
        (next) => {
          there.cells = new Cells(next);
          fetchAhead();
          draw();
        },
        (problem) => problem.status === 404 && setOther(0),
      );
    }
    drawCompare();
    draw();
  }

  function fitSize() {
    const wide = stage.clientWidth / (other && mode === "side" ? 2 : 1);
    const size = Math.min(1280, Math.max(160, sizeFor(wide)));
    here.reel.setSize(size);
    there.reel.setSize(size);
    fetchAhead();
  }

  function drawVersions() {
    const versions = [...(form?.versions ?? [])].filter((version) => version.job !== job).sort((a, b) => b.job - a.job);
    if (other && !versions.some((version) => version.job === other)) {
      versions.push({ job: other });
    }
    keyed(
      withChoice,
      [{ job: 0 }, ...versions],
      (version) => version.job,
      (version) => h("option", { value: String(version.job) }),
      (option, version) =>
        setText(option, version.job === 0 ? "nothing" : `job ${version.job}${version.state ? `, ${ofName(version.state).word}` : ""}${version.submitted ? `, ${moment(version.submitted).slice(5, 16)}` : ""}`),
    );
    withChoice.value = String(other);
    withChoice.parentElement.hidden = versions.length === 0;
  }

  function take(next) {
    const known = cells.count;
    const shown = known ? frame() : Number(query.get("at") ?? NaN);
    const from = known ? cells.name(first) : Number(query.get("in") ?? NaN);
    const to = known ? cells.name(last) : Number(query.get("out") ?? NaN);
    const all = known ? first === 0 && last === known - 1 : false;
    cells = new Cells(next);
    here.cells = cells;
    const useful = cells.form.hasFrames && cells.count > 0;
    none.hidden = useful;
    stage.hidden = scrub.element.hidden = !useful;
    root.querySelector(".play-bar").hidden = !useful;
    if (!useful) {
      none.replaceChildren(
        h("div", { class: "empty" }, h("h2", {}, "There is nothing to play"), h("p", {}, "This job has no frames. A job of a numbered sequence has:"), commandLine("trovik run povray shots/a_0001.pov")),
      );
      return;
    }
    const place = (name, otherwise) => (cells.find(name) >= 0 ? cells.find(name) : otherwise);
    first = all ? 0 : place(from, 0);
    last = all ? cells.count - 1 : Math.max(first, place(to, cells.count - 1));
    at = place(shown, first);
    setText(words, summary(countLetters(cells.states)));
    if (!known) {
      drawRange();
      fitSize();
    }
    fetchAhead();
    draw();
  }

  const sizes = new ResizeObserver(fitSize);
  sizes.observe(stage);
  for (const screen of [here, there]) {
    screen.reel.onReady = () => {
      if (!playing) {
        draw();
      }
      fetchAhead();
    };
  }
  speedChoice.addEventListener("change", () => setSpeed(Number(speedChoice.value)));
  withChoice.addEventListener("change", () => setOther(Number(withChoice.value)));
  wipe.addEventListener("input", () => stage.style.setProperty("--wipe", wipe.value));

  const wipeTo = (event) => {
    const box = stage.getBoundingClientRect();
    wipe.value = String(Math.round(((event.clientX - box.left) / box.width) * 100));
    stage.style.setProperty("--wipe", wipe.value);
  };
  stage.addEventListener("pointerdown", (event) => {
    if (other && mode === "wipe") {
      stage.setPointerCapture(event.pointerId);
      wipeTo(event);
    }
  });
  stage.addEventListener("pointermove", (event) => stage.hasPointerCapture(event.pointerId) && wipeTo(event));

  const toggleOther = () => {
    const versions = [...(form?.versions ?? [])].filter((version) => version.job !== job).sort((a, b) => b.job - a.job);
    const before = versions.find((version) => version.job < job) ?? versions[0];
    setOther(other ? 0 : (before?.job ?? 0));
    drawVersions();
  };
  const compare = (name) => () => {
    if (!other) {
      toggleOther();
    }
    setMode(name);
  };

  const stops = [
    watch(
      `api/jobs/${job}`,
      concernsJob(job),
      (next) => {
        form = next;
        setText(title, nameOf(form));
        document.title = `Play ${nameOf(form)} · trovik`;
        trouble.replaceChildren();
        drawVersions();
      },
      (problem, old) => {
        if (!old || problem.status === 404) {
          trouble.replaceChildren(problemBox(problem));
        }
      },
    ),
    watch(`api/jobs/${job}/cells`, concernsJob(job), take),
    addKeys({
      group: "Play",
      keys: [
        { keys: [" "], show: ["space"], text: "Play and pause", run: () => setPlaying(!playing) },
        { keys: ["ArrowLeft"], show: ["←"], text: "Frame before", run: () => step(-1) },
        { keys: ["ArrowRight"], show: ["→"], text: "Next frame", run: () => step(1) },
        { keys: ["Home"], text: "First frame", run: () => seek(first) },
        { keys: ["End"], text: "Last frame", run: () => seek(last) },
        { keys: ["i"], text: "In: the film begins here", run: () => setIn(at) },
        { keys: ["o"], text: "Out: the film ends here", run: () => setOut(at) },
        { keys: ["c"], text: "The whole film", run: clearRange },
        { keys: ["l"], text: "Loop", run: () => setLoops(!loops) },
        { keys: ["]"], text: "Faster", run: () => faster(1) },
        { keys: ["["], text: "Slower", run: () => faster(-1) },
        { keys: ["v"], text: "An earlier version beside it", run: toggleOther },
        { keys: ["s"], text: "Side by side", run: compare("side") },
        { keys: ["w"], text: "Wipe", run: compare("wipe") },
        { keys: ["d"], text: "Difference", run: compare("difference") },
        { keys: ["b"], text: "Brighter differences", run: () => setBoost(!stage.classList.contains("boosted")) },
        { keys: ["Enter"], text: "Open the frame", run: () => cells.count && go(`job/${job}/frame/${frame()}`) },
      ],
    }),
  ];
  setLoops(loops);
  setOther(other);
  drawVersions();

  return {
    up: () => go(`job/${job}`),
    close() {
      playing = false;
      cancelAnimationFrame(animation);
      stopOther();
      stops.forEach((stop) => stop());
      sizes.disconnect();
      scrub.close();
      here.close();
      there.close();
    },
  };
}
