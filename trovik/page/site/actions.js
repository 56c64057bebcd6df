// Steering. Every button first asks the server what the verb would do, shows the
// answer and the command line that does the same, and does it when that is wanted.
import { post } from "./api.js";
import { commandLine, h, problemBox, setText } from "./dom.js";
import { many, visible } from "./text.js";

let readOnly = false;

/** On a screen on the wall nothing can be changed; buttons go. */
export function setReadOnly(value) {
  readOnly = value;
  document.documentElement.classList.toggle("read-only", value);
}

export const isReadOnly = () => readOnly;

/** Says shortly what was done, also to who hears the page. */
export function toast(text) {
  const note = h("div", { class: "toast", textContent: text });
  document.getElementById("toasts").append(note);
  setTimeout(() => note.remove(), 6000);
}

const words = {
  retry: { title: "Render again", done: "Render again" },
  missing: { title: "Render the missing frames", done: "Render them" },
  cancel: { title: "Cancel", done: "Cancel the job", keep: "Let it go on" },
  hold: { title: "Hold", done: "Hold the job" },
  release: { title: "Release", done: "Let it go" },
  set: { title: "Priority", done: "Set the priority" },
  delete: { title: "Delete", done: "Delete the job" },
};

/** Asks and does. `body` is what the server gets beside `dryRun`; `field` may add
    a control that changes it. Ends with whether it was done. */
function ask(verb, job, body, field) {
  const text = words[verb];
  const said = h("div", { class: "body" });
  const yes = h("button", { type: "submit", class: "primary", disabled: true }, text.done);
  const no = h("button", { type: "button" }, text.keep ?? "Not now");
  const form = h("form", { method: "dialog" }, h("div", { class: "bar" }, no, yes));
  const dialog = h(
    "dialog",
    { class: "action", "aria-labelledby": "action-title", "data-verb": verb },
    h("h2", { id: "action-title", textContent: `${text.title}: job ${job.job}, ${visible(job.name) || "(no name)"}` }),
    field ?? null,
    said,
    form,
  );
  const path = `api/jobs/${job.job}/${verb}`;
  let asked = 0;

  async function preview() {
    const turn = ++asked;
    yes.disabled = true;
    if (!said.firstChild) {
      said.append(h("p", { class: "hint" }, "Asking the server …"));
    }
    try {
      const form = await post(path, { ...body, dryRun: true });
      if (turn === asked) {
        said.replaceChildren(
          h("p", { class: "count" }, "What will happen:"),
          h("p", { class: "said", textContent: visibleLines(form.text) }),
          h("p", { class: "count" }, "The command line does the same:"),
          commandLine(visible(form.command)),
        );
        yes.disabled = false;
      }
    } catch (problem) {
      if (turn === asked) {
        said.replaceChildren(problemBox(problem));
        setText(no, "Close");
      }
    }
  }

  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    yes.disabled = true;
    try {
      const done = await post(path, { ...body, dryRun: false });
      dialog.close("done");
      toast(visibleLines(done.text));
    } catch (problem) {
      said.replaceChildren(problemBox(problem));
      setText(no, "Close");
    }
  });
  no.addEventListener("click", () => dialog.close());
  document.body.append(dialog);
  dialog.showModal();
  (field?.querySelector("input") ?? no).focus();
  preview();
  const ended = new Promise((resolve) => {
    dialog.addEventListener("close", () => {
      dialog.remove();
      resolve(dialog.returnValue === "done");
    });
  });
  return { preview, ended };
}

const visibleLines = (text) => String(text ?? "").split("\n").map(visible).join("\n").trim();

/** Failed frames again, or those that are named. */
export const retry = (job, frames) => ask("retry", job, frames ? { frames } : {}).ended;
export const missing = (job) => ask("missing", job, {}).ended;
export const hold = (job) => ask("hold", job, {}).ended;
export const release = (job) => ask("release", job, {}).ended;
export const remove = (job) => ask("delete", job, {}).ended;

export function cancel(job) {
  const body = {};
  const followers = job.followers?.length ?? 0;
  if (!followers) {
    return ask("cancel", job, body).ended;
  }
  const box = h("input", { type: "checkbox", id: "with-followers" });
  const field = h(
    "div",
    { class: "body" },
    h("label", { class: "field", for: "with-followers" }, box, `Also ${many(followers, "job")} that ${followers === 1 ? "waits" : "wait"} for it`),
  );
  const asking = ask("cancel", job, body, field);
  box.addEventListener("change", () => {
    body.withFollowers = box.checked;
    asking.preview();
  });
  return asking.ended;
}

export function priority(job) {
  const body = { changes: { Priority: job.priority } };
  const value = h("input", { type: "number", id: "priority-value", step: "1", value: String(job.priority) });
  const field = h(
    "div",
    { class: "body" },
    h("label", { class: "field", for: "priority-value" }, "Works of a higher priority begin first", value),
  );
  const asking = ask("set", job, body, field);
  value.addEventListener("input", () => {
    // The server says what it does not take; a number goes as a number.
    body.changes.Priority = value.value !== "" && Number.isFinite(Number(value.value)) ? Number(value.value) : value.value;
    asking.preview();
  });
  return asking.ended;
}

/** The buttons that make sense for a job as it stands, the likeliest first. */
export function actionsOf(job) {
  const failed = job.counts.failed > 0;
  const gone = Boolean(job.gone);
  const open = ["running", "waiting", "stopped"].includes(job.state);
  const awaits = (job.after ?? []).some((other) => other.awaited);
  const list = [];
  const add = (name, text, run, key, primary = false) => list.push({ name, text, run, key, primary });
  if (job.state === "stopped" || awaits) {
    add("release", "Release", () => release(job), "e", job.state === "stopped");
  }
  if (failed) {
    add("retry", job.counts.failed === 1 ? "Render the failed frame again" : `Render ${job.counts.failed} failed again`, () => retry(job), "r", job.state !== "stopped");
  } else if (job.state === "canceled") {
    add("retry", "Render what is left", () => retry(job), "r", true);
  }
  if (job.counts.good > 0 || gone) {
    add("missing", "Render the missing", () => missing(job), "m", gone && !failed);
  }
  if (job.state === "running" || job.state === "waiting") {
    add("hold", "Hold", () => hold(job), "h");
  }
  if (open) {
    add("set", `Priority ${job.priority}`, () => priority(job), "y");
    add("cancel", "Cancel", () => cancel(job), "x");
  } else {
    add("delete", "Delete", () => remove(job), "D");
  }
  return list;
}
