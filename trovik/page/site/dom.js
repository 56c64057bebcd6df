// Elements without markup: texts are only ever set as text.
import { colourOf } from "./states.js";

/** An element with properties and children; `class`, `data-…`, `aria-…` and other
    names with a dash are attributes, names with `on` are listeners, the rest are
    properties. A child that is null or false is left out. */
export function h(name, properties = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) {
      continue;
    }
    if (key === "class") {
      element.className = value;
    } else if (key.startsWith("on")) {
      element.addEventListener(key.slice(2), value);
    } else if (["role", "for", "href", "tabindex"].includes(key) || key.includes("-")) {
      element.setAttribute(key, value);
    } else {
      element[key] = value;
    }
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

/** Sets a text only where it differs, so that what is selected stays selected. */
export function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

export function setAttribute(element, name, value) {
  if (value === null || value === undefined) {
    element.removeAttribute(name);
  } else if (element.getAttribute(name) !== String(value)) {
    element.setAttribute(name, value);
  }
}

/** Makes the children of a list those of the items, in their order: elements of
    known keys stay (and with them focus and pictures), others come and go. */
export function keyed(parent, items, keyOf, make, update) {
  const known = new Map();
  for (const child of parent.children) {
    known.set(child.dataset.key, child);
  }
  let next = parent.firstElementChild;
  for (const item of items) {
    const key = String(keyOf(item));
    let element = known.get(key);
    if (element) {
      known.delete(key);
    } else {
      element = make(item);
      element.dataset.key = key;
    }
    update?.(element, item);
    if (element === next) {
      next = next.nextElementSibling;
    } else {
      parent.insertBefore(element, next);
    }
  }
  for (const element of known.values()) {
    element.remove();
  }
}

/** A state as glyph and word. */
export function stateChip(state) {
  const chip = h("span", { class: "state" }, h("span", { class: "glyph", "aria-hidden": "true" }), h("span"));
  setState(chip, state);
  return chip;
}

export function setState(chip, state) {
  if (chip.dataset.state === state.name && chip.lastChild.textContent === state.word) {
    return;
  }
  chip.dataset.state = state.name;
  chip.style.setProperty("--state", `var(--${colourOf(state)})`);
  chip.style.setProperty("--state-text", `var(--${colourOf(state)}-text)`);
  setText(chip.firstChild, state.glyph);
  setText(chip.lastChild, state.word);
}

/** A command line that can be copied. */
export function commandLine(text) {
  const copy = h("button", { class: "quiet", type: "button", "aria-label": "Copy the command" }, "Copy");
  copy.addEventListener("click", async () => {
    try {
      await navigator.clipboard.writeText(text);
      copy.textContent = "Copied";
    } catch {
      getSelection().selectAllChildren(copy.previousElementSibling);
    }
  });
  return h("div", { class: "command" }, h("code", { textContent: text }), copy);
}

/** What went wrong, in the server's words. */
export function problemBox(problem) {
  return h(
    "div",
    { class: "problem", role: "alert" },
    h("strong", { textContent: problem.message }),
    problem.hint ? h("span", { class: "hint", textContent: problem.hint }) : null,
  );
}

/** A share of something, with words for who does not see it. */
export function meter(share, label, level) {
  const bar = h("span");
  const box = h(
    "div",
    { class: "meter", role: "meter", "aria-label": label, "aria-valuemin": "0", "aria-valuemax": "100" },
    bar,
  );
  setMeter(box, share, level);
  return box;
}

export function setMeter(box, share, level) {
  const percent = Math.max(0, Math.min(100, share * 100));
  setAttribute(box, "aria-valuenow", Math.round(percent));
  box.style.setProperty("--share", percent.toFixed(1));
  setAttribute(box, "data-level", level);
}
