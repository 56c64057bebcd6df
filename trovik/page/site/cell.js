// One cell of the sheet: the frame's picture or what stands for it, and its number.
import { h, setAttribute, setText } from "./dom.js";
import { isDamaged, keptOf, want } from "./pictures.js";
import { colourOf, ofLetter } from "./states.js";
import { duration } from "./text.js";

// States whose file is worth a look.
const withPicture = new Set(["g", "R", "d", "f"]);

export class Cell {
  /** `bare`: only the frame of the keyboard around a drawn cell. */
  constructor(bare, learn) {
    this.position = -1;
    this.bare = bare;
    this.learn = learn;
    this.key = "";
    this.release = null;
    this.link = h("a", { class: "cell-link", tabindex: "-1", draggable: false });
    this.element = h("div", { class: bare ? "cell bare" : "cell", role: "gridcell" }, this.link);
    if (!bare) {
      this.picture = h("img", { alt: "", decoding: "async", draggable: false, hidden: true });
      this.glyph = h("span", { class: "cell-glyph" });
      this.word = h("span", { class: "cell-word" });
      this.label = h("span", { class: "cell-label" });
      this.time = h("span", { class: "cell-time" });
      this.hole = h("span", { class: "cell-hole" }, this.glyph, this.word);
      // The name for who hears it is made of what is seen: "Frame 12, failed".
      this.spoken = h("span", { class: "sr-only" });
      this.link.append(
        h("span", { class: "cell-line" }, h("span", { class: "sr-only", textContent: "Frame " }), this.label, this.spoken, this.time),
        h("span", { class: "cell-box", "aria-hidden": "true" }, this.picture, this.hole),
      );
      this.picture.addEventListener("load", () => this.learn(this.picture));
    }
  }

  show(cells, position, { column, href, size, left }) {
    const letter = cells.letter(position);
    const state = ofLetter(letter);
    this.position = position;
    setAttribute(this.element, "aria-colindex", column);
    setAttribute(this.link, "href", href);
    if (left !== null) {
      this.element.style.left = `${left}px`;
    }
    if (this.bare) {
      setAttribute(this.link, "aria-label", cells.words(position));
      return;
    }
    this.known = state;
    this.showState(state);
    setText(this.label, cells.label(position));
    const time = cells.time(position);
    setText(this.time, time > 0 && letter === "g" ? duration(time) : "");
    this.showPicture(cells.file(position), letter, size);
  }

  showState(state) {
    if (this.state !== state) {
      this.state = state;
      this.element.dataset.state = state.name;
      this.element.dataset.letter = state.letter;
      this.element.style.setProperty("--state", `var(--${colourOf(state)})`);
      this.element.style.setProperty("--state-text", `var(--${colourOf(state)}-text)`);
      setText(this.glyph, state.glyph);
      setText(this.word, state.word);
      setText(this.spoken, `, ${state.word}, `);
    }
  }

  showPicture(file, letter, size) {
    if (!file || !withPicture.has(letter)) {
      if (this.key) {
        this.clear();
      }
      return;
    }
    const fresh = letter === "R";
    const identity = `${file}/${fresh}`;
    if (this.identity !== identity) {
      // Never the picture of another frame, not for a moment.
      if (this.file !== file) {
        this.clear();
        const kept = keptOf(file);
        if (kept) {
          this.set(kept.url);
        }
      }
      this.file = file;
      this.identity = identity;
      this.damaged = false;
    }
    const key = `${identity}/${size}`;
    if (size === 0 || this.key === key) {
      if (this.damaged) {
        this.showState(ofLetter("d"));
      }
      return;
    }
    this.release?.();
    this.key = key;
    this.release = want(
      file,
      size,
      (value) => {
        this.release = null;
        if (value.url) {
          this.set(value.url);
          this.element.title = "";
        } else if (!fresh) {
          this.picture.hidden = true;
          this.element.dataset.picture = "none";
          this.element.title = value.problem;
          if (isDamaged(value) && this.known.letter === "g") {
            this.damaged = true;
            this.showState(ofLetter("d"));
          }
          if (value.away) {
            this.key = ""; // asked for again when the server is back
          }
        }
      },
      { fresh },
    );
  }

  set(url) {
    this.picture.src = url;
    this.picture.hidden = false;
    this.element.dataset.picture = "shown";
  }

  /** Out of sight: what was asked for is not wanted any more. */
  rest() {
    if (this.release) {
      this.release();
      this.release = null;
      this.key = "";
    }
  }

  clear() {
    this.rest();
    this.key = "";
    this.identity = "";
    this.file = 0;
    this.damaged = false;
    if (this.picture) {
      this.picture.hidden = true;
      this.picture.removeAttribute("src");
      delete this.element.dataset.picture;
      this.element.removeAttribute("title");
    }
  }
}
