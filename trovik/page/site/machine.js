// This machine: engines and what they do, memory, disks, limits, the cluster.
import { concernsMachine, watch } from "./api.js";
import { onTick, now } from "./clock.js";
import { commandLine, h, meter, problemBox, setText } from "./dom.js";
import { addKeys } from "./keys.js";
import { address, go } from "./route.js";
import { age, bytes, duration, many, number, plain, runs, visible } from "./text.js";

function slot(work) {
  if (!work) {
    return h("li", { class: "slot free" }, h("span", { class: "count" }, "free"));
  }
  const frames = plain(work.frames);
  const first = runs(frames)[0]?.[0] ?? "work";
  const time = h("span", { class: "slot-time" });
  time.since = now() - (work.seconds ?? 0);
  setText(time, duration(Math.round(work.seconds ?? 0)));
  return h(
    "li",
    { class: "slot" },
    h("a", { href: address(`job/${work.job}/frame/${first}`) }, h("span", { class: "slot-name", textContent: visible(work.name) || `job ${work.job}` }), h("span", { class: "slot-frames", textContent: frames ? ` ${frames}` : "" })),
    time,
  );
}

function engine(form) {
  // The one that stands for the cluster has neither slots nor a process here.
  const free = form.cluster ? 0 : Math.max(0, form.slots - form.running.length);
  const title = form.cluster ? "At work on the cluster" : `Engine ${form.engine}`;
  const words = form.cluster
    ? many(form.running.length, "work")
    : `${form.running.length} of ${many(form.slots, "slot")} taken · process ${form.process} · at work for ${age(now() - form.since)}${form.alive === false ? " · it died" : ""}`;
  return h(
    "section",
    { class: "panel", "aria-label": title },
    h("h2", { textContent: title }),
    h("p", { class: "count", textContent: words }),
    h("ul", { class: "slots" }, form.running.slice(0, 64).map(slot), Array.from({ length: Math.min(free, 64) }, () => slot(null))),
  );
}

function share(name, part, whole, words, scarce = true) {
  const used = whole > 0 ? part / whole : 0;
  return h("div", { class: "share" }, h("span", { class: "share-name", textContent: name }), h("span", { class: "count", textContent: words }), meter(used, `${name}: ${words}`, scarce && used > 0.92 ? "high" : null));
}

function resources(form) {
  const list = [];
  if (form.memory?.total) {
    list.push(share("Memory", form.memory.total - form.memory.available, form.memory.total, `${bytes(form.memory.available)} of ${bytes(form.memory.total)} free`));
  }
  if (form.cpus) {
    list.push(share("Processors", form.load, form.cpus, `load ${Number(form.load).toFixed(1)} on ${many(form.cpus, "processor")}`, false));
  }
  for (const disk of form.disks ?? []) {
    if (disk.total === null) {
      list.push(h("div", { class: "share" }, h("span", { class: "share-name", textContent: visible(disk.directory) }), h("span", { class: "count", textContent: "does not answer" })));
      continue;
    }
    list.push(share(visible(disk.directory), disk.total - disk.free, disk.total, `${bytes(disk.free)} of ${bytes(disk.total)} free`));
  }
  return h("section", { class: "panel", "aria-label": "Memory and disks" }, h("h2", {}, "Memory and disks"), list);
}

function limits(form) {
  if (!form.limits?.length) {
    return null;
  }
  return h(
    "section",
    { class: "panel", "aria-label": "What is scarce" },
    h("h2", {}, "What is scarce"),
    form.limits.map((limit) => share(visible(limit.name), limit.taken, limit.amount, `${number(limit.taken)} of ${number(limit.amount)} taken`, false)),
  );
}

function cluster(form) {
  if (!form.cluster) {
    return null;
  }
  const { answered, problem, arrays } = form.cluster;
  const said = answered === null || answered === undefined ? "It has not answered yet" : `It answered ${age(answered)} ago`;
  return h(
    "section",
    { class: "panel wide", "aria-label": "Cluster" },
    h("h2", {}, "Cluster"),
    h("p", { class: "count", textContent: said }),
    problem ? h("p", { class: "failure-reason", textContent: visible(problem) }) : null,
    (arrays ?? []).length ? null : h("p", {}, "No tasks of this queue are there."),
    h(
      "ul",
      { class: "works" },
      (arrays ?? []).map((group) =>
        h(
          "li",
          { "data-stuck": group.stuck ? "true" : null },
          h("strong", { textContent: visible(group.text) || `${visible(group.state)} ${visible(group.reason)}` }),
          h("span", { class: "count", textContent: ` ${many(group.works ?? 0, "work")}${group.array ? ` · array ${group.array}` : ""}` }),
          group.job ? [" ", h("a", { href: address(`job/${group.job}`), textContent: `job ${group.job}` })] : null,
          group.hint ? h("p", { class: "hint", textContent: visible(group.hint) }) : null,
        ),
      ),
    ),
  );
}

export function showMachine(root) {
  document.title = "Machine · trovik";
  const title = h("h1", { class: "machine-title" }, "Machine");
  const body = h("div", { class: "machine" });
  const trouble = h("div");
  root.append(title, trouble, body);
  let last = "";

  function draw(form) {
    trouble.replaceChildren();
    // What only counts on is not drawn anew: a link that is focused stays.
    const key = JSON.stringify({ ...form, revision: 0, now: 0, engines: form.engines.map((one) => ({ ...one, running: one.running.map((work) => ({ ...work, seconds: 0 })) })) });
    if (key === last) {
      return;
    }
    const focused = document.activeElement?.getAttribute?.("href");
    last = key;
    const engines = form.engines.filter((one) => !one.cluster || one.running.length > 0);
    const idle = engines.length === 0;
    body.replaceChildren(
      ...[
        idle
          ? h("section", { class: "panel", "aria-label": "Engines" }, h("h2", {}, "No engine is at work"), h("p", {}, "Jobs wait until one is started:"), commandLine("trovik engine"))
          : null,
        ...engines.map(engine),
        resources(form),
        limits(form),
        cluster(form),
      ].filter(Boolean),
    );
    if (focused) {
      [...body.querySelectorAll("a")].find((link) => link.getAttribute("href") === focused)?.focus({ preventScroll: true });
    }
  }

  const stop = watch("api/machine", concernsMachine, draw, (problem, old) => {
    if (!old) {
      trouble.replaceChildren(problemBox(problem));
    }
  });
  // Memory, load and disks are no business of the queue: nobody tells of them.
  const slow = setInterval(() => document.hidden || stop.ask(), 5000);
  const tick = onTick(() => {
    for (const time of body.querySelectorAll(".slot-time")) {
      setText(time, duration(Math.round(now() - time.since)));
    }
  });
  const keys = addKeys({ group: "Machine", keys: [{ keys: ["j"], text: "Jobs", run: () => go("jobs") }] });

  return {
    up: () => go("jobs"),
    close() {
      stop();
      tick();
      keys();
      clearInterval(slow);
    },
  };
}
