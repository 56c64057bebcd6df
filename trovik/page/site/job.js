// A job: how it stands, what to do next, why frames failed, and all frames.
import { actionsOf, isReadOnly } from "./actions.js";
import { concernsJob, watch } from "./api.js";
import { Cells } from "./cells.js";
import { Chart } from "./chart.js";
import { onTick } from "./clock.js";
import { h, keyed, problemBox, setState, setText, setAttribute, stateChip } from "./dom.js";
import { fillAside } from "./aside.js";
import { nameOf, progressWords, timeWords } from "./jobs.js";
import { addKeys } from "./keys.js";
import { onRepaint, paintStrip } from "./paint.js";
import { address, go, setQuery } from "./route.js";
import { fittingZoom, Sheet, zoomWord, zooms } from "./sheet.js";
import { choices, countLetters, ofName, summary } from "./states.js";
import { number, visible } from "./text.js";

const places = new Map(); // where each job's sheet was left

/** The buttons of a job; kept while they are the same, so that focus stays. */
export function drawActions(host, job) {
  const list = isReadOnly() ? [] : actionsOf(job);
  keyed(
    host,
    list,
    (action) => action.name,
    (action) => {
      const button = h("button", { type: "button", "data-action": action.name });
      button.addEventListener("click", () => button.run());
      return button;
    },
    (button, action) => {
      setText(button, action.text);
      button.run = action.run;
      button.className = action.primary ? "primary" : "";
      button.title = `Key: ${action.key}`;
    },
  );
  return list;
}

export function showJob(root, route) {
  const job = route.job;
  let form = null;
  let cells = null;
  let chosen = new Set((route.query.get("show") ?? "").split(",").filter(Boolean));
  let spoken = "";

  const chip = stateChip(ofName("waiting"));
  const title = h("h1", { class: "job-heading", textContent: `Job ${job}` });
  const what = h("p", { class: "job-sub" });
  const how = h("p", { class: "job-how" });
  const buttons = h("div", { class: "bar job-actions" });
  const play = h("a", { class: "button", href: address(`job/${job}/play`), "data-action": "play", hidden: true }, "Play");
  const head = h(
    "header",
    { class: "job-head" },
    h("div", { class: "job-head-words" }, h("div", { class: "job-head-title" }, title, chip), what, how),
    h("div", { class: "bar job-head-buttons" }, buttons, play),
  );
  const trouble = h("div");
  const aside = h("aside", { class: "job-aside", "aria-label": "About the job" });
  const chartHost = h("div", { class: "panel", "data-part": "chart", hidden: true }, h("h2", {}, "Time by frame"));
  const more = h("button", { type: "button", class: "job-more", "aria-expanded": "false" }, "More about the job");
  more.addEventListener("click", () => {
    const all = aside.classList.toggle("all");
    setAttribute(more, "aria-expanded", String(all));
    setText(more, all ? "Less about the job" : "More about the job");
  });
  const map = h("canvas", { class: "strip job-map", role: "img", title: "All frames; click to go there" });
  const filter = h("div", { class: "bar sheet-states", role: "group", "aria-label": "Show only frames that are" });
  const zoom = h("input", { type: "range", min: "0", max: String(zooms - 1), step: "1", "aria-label": "Size of the frames" });
  const jump = h("input", { type: "text", inputMode: "numeric", size: 7, placeholder: "Frame", "aria-label": "Go to frame" });
  const tools = h("div", { class: "bar sheet-tools" }, filter, h("span", { class: "push" }), jump, h("label", { class: "field" }, "Size", zoom));
  const sheetHost = h("div", { class: "sheet-host" });
  const none = h("div", { class: "sheet-none", hidden: true });
  const frames = h("section", { class: "job-frames", "aria-label": "All frames" }, map, tools, none, sheetHost);
  const body = h("div", { class: "job-body" }, frames, aside);
  root.append(head, trouble, body);

  const wishedZoom = Number(route.query.get("zoom") ?? NaN);
  const sheet = new Sheet(sheetHost, job, Number.isInteger(wishedZoom) && wishedZoom >= 0 && wishedZoom < zooms ? wishedZoom : 2);
  const chart = new Chart(chartHost, job);
  showZoom();

  function showZoom() {
    zoom.value = String(sheet.zoom);
    zoom.setAttribute("aria-valuetext", zoomWord(sheet.zoom));
    sheetHost.dataset.zoom = sheet.zoom;
  }

  function setZoom(value, told = true) {
    if (value < 0 || value >= zooms || value === sheet.zoom) {
      return;
    }
    sheetHost.dataset.zoom = value;
    sheet.setZoom(value);
    showZoom();
    if (told) {
      setQuery({ zoom: value });
    }
  }

  zoom.addEventListener("input", () => setZoom(Number(zoom.value)));
  jump.addEventListener("keydown", (event) => {
    if (event.key === "Enter") {
      const at = shownCells().find(Number(jump.value));
      setAttribute(jump, "aria-invalid", at < 0 ? "true" : null);
      jump.title = at < 0 ? "There is no such frame here" : "";
      if (at >= 0) {
        sheet.focus(at);
      }
      event.preventDefault();
    }
  });
  map.addEventListener("click", (event) => {
    if (cells?.count) {
      const box = map.getBoundingClientRect();
      const width = Math.min(box.width, 28 * cells.count);
      const share = (event.clientX - box.left) / width;
      if (share <= 1) {
        sheet.reveal(Math.min(sheet.cells.count - 1, Math.floor(share * sheet.cells.count)));
      }
    }
  });

  for (const choice of choices) {
    const button = h("button", { type: "button", "data-choice": choice.name, "aria-pressed": "false", hidden: true }, stateChip(choice), h("span", { class: "count" }));
    button.addEventListener("click", () => {
      if (chosen.has(choice.name)) {
        chosen.delete(choice.name);
      } else {
        chosen.add(choice.name);
      }
      setQuery({ show: [...chosen].join(",") });
      drawCells();
    });
    filter.append(button);
  }

  const shownCells = () => sheet.cells;

  function drawCells() {
    if (!cells) {
      return;
    }
    const counts = countLetters(cells.states);
    for (const button of filter.children) {
      const choice = choices.find((other) => other.name === button.dataset.choice);
      const count = choice.letters.reduce((sum, letter) => sum + (counts.get(letter) ?? 0), 0);
      setText(button.lastChild, number(count));
      button.hidden = count === 0 && !chosen.has(choice.name);
      setAttribute(button, "aria-pressed", String(chosen.has(choice.name)));
    }
    const wanted = choices.filter((choice) => chosen.has(choice.name)).flatMap((choice) => choice.letters);
    sheet.show(wanted.length ? new Cells(cells.form, new Set(wanted)) : cells);
    none.hidden = sheet.cells.count > 0;
    setText(none, none.hidden ? "" : cells.count ? "No frame is like that just now." : "The job has no frames yet.");
    drawMap();
    chartHost.hidden = !chart.show(cells);
    const words = summary(counts);
    setAttribute(map, "aria-label", `All frames: ${words}`);
    if (spoken && spoken !== words && form && form.state !== "running") {
      setText(document.getElementById("live"), words);
    }
    spoken = words;
  }

  function drawMap() {
    if (cells && map.clientWidth) {
      map.hidden = cells.count < 2;
      paintStrip(map, cells.strip(Math.floor(map.clientWidth / 2)));
    }
  }

  function drawHead() {
    setText(title, nameOf(form));
    setState(chip, ofName(form.state));
    setText(what, `Job ${form.job} · ${visible(form.type)}${form.range ? ` · frames ${visible(form.range)}` : ""}`);
    setText(how, `${progressWords(form)} · ${timeWords(form)}`);
    drawActions(buttons, form);
    play.hidden = !(cells?.form.hasFrames && cells.count > 1);
    document.title = `${nameOf(form)}: ${ofName(form.state).word} · trovik`;
  }

  const sizes = new ResizeObserver(drawMap);
  sizes.observe(map);

  const act = (key) => () => {
    const action = form && !isReadOnly() ? actionsOf(form).find((other) => other.key === key) : null;
    return action ? void action.run() : false;
  };

  const stops = [
    watch(
      `api/jobs/${job}`,
      concernsJob(job),
      (next) => {
        form = next;
        trouble.replaceChildren();
        body.hidden = chip.hidden = false;
        drawHead();
        fillAside(aside, form, chartHost, more);
      },
      (problem, old) => {
        if (!old || problem.status === 404) {
          trouble.replaceChildren(problemBox(problem));
          body.hidden = problem.status === 404;
          chip.hidden = body.hidden;
        }
      },
    ),
    watch(`api/jobs/${job}/cells`, concernsJob(job), (next) => {
      if (!cells && !route.query.has("zoom")) {
        setZoom(fittingZoom(next.states.length, sheetHost.clientWidth, innerHeight - sheetHost.getBoundingClientRect().top - scrollY), false);
      }
      cells = new Cells(next);
      drawCells();
      if (form) {
        drawHead();
      }
      if (places.has(job)) {
        const place = places.get(job);
        places.delete(job);
        if (place.zoom === sheet.zoom) {
          requestAnimationFrame(() => scrollTo(0, place.scroll));
        }
      }
    }),
    onTick(() => form && setText(how, `${progressWords(form)} · ${timeWords(form)}`)),
    onRepaint(drawMap),
    addKeys({
      group: "A job",
      keys: [
        { keys: ["ArrowDown", "ArrowRight"], show: ["←", "→", "↑", "↓"], text: "Go through the frames", run: () => cells?.count && void sheet.focus(sheet.active) },
        { keys: ["Enter"], text: "Open the frame" },
        { keys: ["+", "="], show: ["+"], text: "Larger frames", run: () => setZoom(sheet.zoom + 1) },
        { keys: ["-"], show: ["−"], text: "Smaller frames", run: () => setZoom(sheet.zoom - 1) },
        { keys: ["n"], text: "Next frame that needs a look", run: () => nextProblem() },
        { keys: ["g"], text: "Go to a frame by its number", run: () => jump.focus() },
        { keys: ["p"], text: "Play the frames", run: () => go(`job/${job}/play`) },
        { keys: ["r"], text: "Render failed frames again", run: act("r") },
        { keys: ["m"], text: "Render missing frames", run: act("m") },
        { keys: ["h"], text: "Hold", run: act("h") },
        { keys: ["e"], text: "Release", run: act("e") },
        { keys: ["y"], text: "Priority", run: act("y") },
        { keys: ["x"], text: "Cancel", run: act("x") },
        { keys: ["D"], text: "Delete", run: act("D") },
      ],
    }),
  ];

  function nextProblem() {
    const count = sheet.cells.count;
    for (let i = 1; i <= count; ++i) {
      const at = (sheet.active + i) % count;
      if ("fdm".includes(sheet.cells.letter(at))) {
        sheet.focus(at);
        return;
      }
    }
  }

  return {
    up: () => go("jobs"),
    move(next) {
      chosen = new Set((next.query.get("show") ?? "").split(",").filter(Boolean));
      const value = Number(next.query.get("zoom") ?? sheet.zoom);
      if (Number.isInteger(value) && value >= 0 && value < zooms && value !== sheet.zoom) {
        sheet.setZoom(value);
        showZoom();
      }
      drawCells();
    },
    close() {
      places.set(job, { scroll: scrollY, zoom: sheet.zoom });
      stops.forEach((stop) => stop());
      sizes.disconnect();
      sheet.close();
      chart.close();
    },
  };
}
