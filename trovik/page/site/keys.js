// The keyboard. A view says which keys it has, with words for the list that `?`
// opens. Keys with modifiers belong to the browser, and letters to whoever types.
import { h } from "./dom.js";

const layers = []; // the views' lists, the last one is asked first

/** `list`: {group, keys: [{keys: ["ArrowLeft"], show: ["←"], text, run(event)}]}; gives
    a function that takes it away. `run` that gives false leaves the key to others. */
export function addKeys(list) {
  layers.push(list);
  return () => {
    const at = layers.indexOf(list);
    if (at >= 0) {
      layers.splice(at, 1);
    }
  };
}

const types = (element) =>
  element instanceof HTMLElement &&
  (element.isContentEditable ||
    element.tagName === "TEXTAREA" ||
    element.tagName === "SELECT" ||
    (element.tagName === "INPUT" && !["checkbox", "radio", "button", "range"].includes(element.type)));

function pressed(event) {
  if (event.defaultPrevented || event.ctrlKey || event.altKey || event.metaKey) {
    return;
  }
  const target = event.target;
  if (types(target)) {
    if (event.key === "Escape") {
      target.blur();
      document.getElementById("main").focus({ preventScroll: true });
    }
    return;
  }
  if (document.querySelector("dialog[open]")) {
    return;
  }
  // Enter and blank do what the focused button says; arrows move a range.
  const onControl = target instanceof HTMLElement && target.closest("button, summary, a[href], input");
  if (onControl && (event.key === "Enter" || (event.key === " " && !target.closest("a[href]")))) {
    return;
  }
  if (target instanceof HTMLElement && target.matches("input[type=range]") && /^(Arrow|Home|End|Page)/.test(event.key)) {
    return;
  }
  for (let i = layers.length - 1; i >= 0; --i) {
    for (const key of layers[i].keys) {
      if (key.keys.includes(event.key) && key.run && key.run(event) !== false) {
        event.preventDefault();
        return;
      }
    }
  }
}

/** The list of all keys that work just now. */
export function showKeys() {
  const groups = [];
  for (const layer of [...layers].reverse()) {
    const list = h("dl", { class: "keys" });
    groups.push(h("h3", { textContent: layer.group }), list);
    for (const key of layer.keys) {
      const names = h("dt");
      (key.show ?? key.keys).forEach((name, i) => names.append(i ? " " : "", h("kbd", { textContent: name })));
      list.append(names, h("dd", { textContent: key.text }));
    }
  }
  const close = h("button", { type: "button", class: "primary", autofocus: true }, "Close");
  const dialog = h(
    "dialog",
    { "aria-labelledby": "keys-title" },
    h("h2", { id: "keys-title" }, "Keys"),
    h("div", { class: "body" }, groups),
    h("div", { class: "bar" }, close),
  );
  close.addEventListener("click", () => dialog.close());
  dialog.addEventListener("close", () => dialog.remove());
  dialog.addEventListener("keydown", (event) => {
    if (event.key === "?") {
      event.stopPropagation(); // else it would open them again
      dialog.close();
    }
  });
  document.body.append(dialog);
  dialog.showModal();
}

export function startKeys() {
  document.addEventListener("keydown", pressed);
}
