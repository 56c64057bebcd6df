// The frames of a job as the sheet, the chart and the film see them: the form
// `page.cells`, maybe only those in chosen states.
import { ofLetter } from "./states.js";
import { duration } from "./text.js";

export class Cells {
  /** `chosen`: a set of letters, or null for all. */
  constructor(form, chosen = null) {
    this.form = form;
    this.frames = form?.frames ?? [];
    this.states = form?.states ?? "";
    this.files = form?.files ?? [];
    this.seconds = form?.seconds ?? [];
    this.shown = null;
    if (chosen) {
      const shown = [];
      for (let i = 0; i < this.states.length; ++i) {
        if (chosen.has(this.states[i])) {
          shown.push(i);
        }
      }
      this.shown = shown;
    }
    this.count = this.shown ? this.shown.length : this.states.length;
  }

  index(position) {
    return this.shown ? this.shown[position] : position;
  }

  /** The frame as the address has it. */
  name(position) {
    return this.form.hasFrames ? this.frames[this.index(position)] : "work";
  }

  label(position) {
    return this.form.hasFrames ? String(this.frames[this.index(position)]) : "all";
  }

  letter(position) {
    return this.states[this.index(position)];
  }

  file(position) {
    return this.files[this.index(position)] ?? 0;
  }

  time(position) {
    return this.seconds[this.index(position)] ?? 0;
  }

  /** "Frame 12, failed", for who hears it. */
  words(position) {
    const what = this.form.hasFrames ? `Frame ${this.label(position)}` : "The whole job";
    const time = this.time(position);
    return `${what}, ${ofLetter(this.letter(position)).word}${time > 0 ? `, ${duration(time)}` : ""}`;
  }

  /** Where a frame stands, or -1; frames ascend. */
  find(frame) {
    if (!this.form || (frame === "work") === this.form.hasFrames) {
      return -1;
    }
    if (frame === "work") {
      return this.count ? 0 : -1;
    }
    let low = 0;
    let high = this.count - 1;
    while (low <= high) {
      const middle = (low + high) >> 1;
      const at = this.frames[this.index(middle)];
      if (at === frame) {
        return middle;
      }
      if (at < frame) {
        low = middle + 1;
      } else {
        high = middle - 1;
      }
    }
    return -1;
  }

  /** At most so many letters for all: each the one that matters most of its share. */
  strip(most) {
    const count = this.states.length;
    if (count <= most) {
      return this.states;
    }
    const letters = [];
    for (let cell = 0; cell < most; ++cell) {
      const end = Math.floor(((cell + 1) * count) / most);
      let best = null;
      for (let i = Math.floor((cell * count) / most); i < end; ++i) {
        const state = ofLetter(this.states[i]);
        if (!best || state.rank > best.rank) {
          best = state;
        }
      }
      letters.push(best.letter);
    }
    return letters.join("");
  }
}
