// One picture, as large as there is room, with zoom and pan by wheel, pointer and keys.
import { h, setAttribute, setText } from "./dom.js";
import { isDamaged, keptOf, sizeFor, want } from "./pictures.js";
import { colourOf, ofLetter } from "./states.js";

const most = 16;

export class Viewer {
  constructor(stage) {
    this.stage = stage;
    this.image = h("img", { class: "viewer-image", draggable: false, hidden: true });
    this.hole = h("div", { class: "viewer-hole", hidden: true }, h("span", { class: "viewer-glyph", "aria-hidden": "true" }), h("strong"), h("span"));
    const button = (text, label, run) => {
      const made = h("button", { type: "button", "aria-label": label, title: label }, text);
      made.addEventListener("click", run);
      return made;
    };
    this.scaleWord = h("span", { class: "viewer-scale", role: "status" });
    this.tools = h(
      "div",
      { class: "viewer-tools", hidden: true },
      button("−", "Smaller (-)", () => this.zoomBy(1 / 1.5)),
      this.scaleWord,
      button("+", "Larger (+)", () => this.zoomBy(1.5)),
      button("Fit", "Fit: the whole picture (0)", () => this.fit()),
    );
    stage.append(this.image, this.hole, this.tools);
    this.scale = 1;
    this.x = 0;
    this.y = 0;
    this.pointers = new Map();
    this.pixels = "";
    this.onPixels = () => {};
    this.onDamaged = () => {};
    this.problem = null;
    this.damaged = false;
    this.image.addEventListener("load", () => {
      if (this.image.naturalWidth) {
        this.pixels = `${this.image.naturalWidth} × ${this.image.naturalHeight}`;
        this.onPixels(this.pixels);
        stage.style.setProperty("--aspect", this.image.naturalWidth / this.image.naturalHeight);
      }
    });
    stage.addEventListener("wheel", (event) => this.wheeled(event), { passive: false });
    stage.addEventListener("pointerdown", (event) => this.down(event));
    stage.addEventListener("pointermove", (event) => this.moved(event));
    for (const name of ["pointerup", "pointercancel"]) {
      stage.addEventListener(name, (event) => this.pointers.delete(event.pointerId));
    }
    stage.addEventListener("dblclick", (event) => {
      if (!event.target.closest("button")) {
        this.scale > 1 ? this.fit() : this.zoomBy(3, event.clientX, event.clientY);
      }
    });
  }

  close() {
    this.release?.();
  }

  /** Shows a file (0 for none) or the hole in its place. */
  show(file, { fresh, alt, hole, note }) {
    this.image.alt = alt;
    const key = `${file}/${fresh}`;
    const same = this.key === key;
    if (!same || !this.problem) {
      this.say(hole, hole.word, note);
    }
    if (same) {
      return;
    }
    this.key = key;
    this.problem = null;
    this.damaged = false;
    this.release?.();
    this.wanted = 0;
    this.file = file;
    this.fresh = fresh;
    if (!file) {
      this.none();
      return;
    }
    const kept = keptOf(file);
    if (kept) {
      this.set(kept.url);
    }
    this.load();
  }

  say(state, word, note) {
    setText(this.hole.children[0], state.glyph);
    setText(this.hole.children[1], word);
    setText(this.hole.children[2], note);
    this.hole.style.setProperty("--state", `var(--${colourOf(state)})`);
    this.hole.style.setProperty("--state-text", `var(--${colourOf(state)}-text)`);
  }

  /** A hole; `value` is the answer in place of a picture. */
  none(value) {
    this.image.hidden = true;
    this.tools.hidden = true;
    this.hole.hidden = false;
    setAttribute(this.stage, "data-hole", "true");
    if (value) {
      this.problem = value.problem;
      this.damaged = isDamaged(value);
      this.say(ofLetter(this.damaged ? "d" : "w"), this.damaged ? "damaged" : "No picture", value.problem);
      if (this.damaged) {
        this.onDamaged();
      }
    }
  }

  set(url) {
    this.image.src = url;
    this.image.hidden = false;
    this.tools.hidden = false;
    this.hole.hidden = true;
    setAttribute(this.stage, "data-hole", null);
    this.place();
  }

  /** Asks for as many pixels as are seen. */
  load() {
    const size = sizeFor(Math.min(2560, this.stage.clientWidth * Math.min(this.scale, 4)));
    if (size <= this.wanted) {
      return;
    }
    this.wanted = size;
    this.release?.();
    this.release = want(
      this.file,
      size,
      (value) => {
        this.release = null;
        if (value.url) {
          this.set(value.url);
        } else if (this.image.hidden) {
          this.none(value);
        }
      },
      { fresh: this.fresh, first: true },
    );
  }

  /** Where the picture lies at scale 1. */
  box() {
    const aspect = (this.image.naturalWidth || 16) / (this.image.naturalHeight || 9);
    const width = Math.min(this.stage.clientWidth, this.stage.clientHeight * aspect);
    return { width, height: width / aspect };
  }

  place() {
    const { width, height } = this.box();
    const roomX = Math.max(0, (width * this.scale - this.stage.clientWidth) / 2);
    const roomY = Math.max(0, (height * this.scale - this.stage.clientHeight) / 2);
    this.x = Math.max(-roomX, Math.min(roomX, this.x));
    this.y = Math.max(-roomY, Math.min(roomY, this.y));
    this.image.style.transform = `translate(${this.x}px, ${this.y}px) scale(${this.scale})`;
    this.image.classList.toggle("close", this.scale > 4);
    setAttribute(this.stage, "data-zoomed", this.scale > 1 ? "true" : null);
    setText(this.scaleWord, `${Math.round(this.scale * 100)} %`);
  }

  zoomBy(factor, clientX, clientY) {
    if (this.image.hidden) {
      return;
    }
    const next = Math.max(1, Math.min(most, this.scale * factor));
    const box = this.stage.getBoundingClientRect();
    const px = (clientX ?? box.left + box.width / 2) - box.left - box.width / 2;
    const py = (clientY ?? box.top + box.height / 2) - box.top - box.height / 2;
    this.x = px - ((px - this.x) * next) / this.scale;
    this.y = py - ((py - this.y) * next) / this.scale;
    this.scale = next;
    this.place();
    this.load();
  }

  fit() {
    this.scale = 1;
    this.x = 0;
    this.y = 0;
    this.place();
  }

  /** By a sixth of what is seen. */
  pan(x, y) {
    if (this.scale === 1) {
      return false;
    }
    this.x += (x * this.stage.clientWidth) / 6;
    this.y += (y * this.stage.clientHeight) / 6;
    this.place();
    return true;
  }

  wheeled(event) {
    // The page scrolls as ever until the picture is zoomed: then the wheel is its.
    if (this.image.hidden || (!event.ctrlKey && this.scale === 1)) {
      return;
    }
    event.preventDefault();
    this.zoomBy(Math.exp(-event.deltaY * 0.002), event.clientX, event.clientY);
  }

  down(event) {
    if (event.button !== 0 || event.target.closest("button")) {
      return;
    }
    this.pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
    if (this.scale > 1) {
      this.stage.setPointerCapture(event.pointerId);
    }
  }

  moved(event) {
    const old = this.pointers.get(event.pointerId);
    if (!old) {
      return;
    }
    const now = { x: event.clientX, y: event.clientY };
    const others = [...this.pointers].filter(([id]) => id !== event.pointerId).map(([, point]) => point);
    if (others.length) {
      const other = others[0];
      const before = Math.hypot(old.x - other.x, old.y - other.y);
      const after = Math.hypot(now.x - other.x, now.y - other.y);
      if (before > 0) {
        this.zoomBy(after / before, (now.x + other.x) / 2, (now.y + other.y) / 2);
      }
    } else if (this.scale > 1) {
      this.x += now.x - old.x;
      this.y += now.y - old.y;
      this.place();
    }
    this.pointers.set(event.pointerId, now);
  }
}
