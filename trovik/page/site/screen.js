// One picture of a film on a canvas, or the slate that stands for a hole.
import { h, setAttribute } from "./dom.js";
import { palette } from "./paint.js";
import { Cells } from "./cells.js";
import { Reel } from "./reel.js";
import { ofLetter } from "./states.js";

const withPicture = new Set(["g", "R", "d", "f"]);

export class Screen {
  constructor(name) {
    this.canvas = h("canvas", { class: `screen screen-${name}`, role: "img" });
    this.cells = new Cells(null);
    this.reel = new Reel();
    this.aspect = 16 / 9;
    this.drawn = "";
  }

  close() {
    this.reel.close();
  }

  /** {file, fresh} of a frame, or null where a hole is. */
  source(frame) {
    const at = this.cells.find(frame);
    if (at < 0) {
      return null;
    }
    const letter = this.cells.letter(at);
    const file = this.cells.file(at);
    return file && withPicture.has(letter) ? { file, fresh: letter === "R" } : null;
  }

  /** Whether the frame can be shown now. */
  ready(frame) {
    if (!this.cells.form) {
      return false;
    }
    const source = this.source(frame);
    // What a program is writing just now need not be whole: the film goes on without.
    return source === null || source.fresh || this.reel.get(source.file, source.fresh) !== undefined;
  }

  /** Shows a frame as it is known; gives whether that is all. */
  show(frame) {
    if (!this.cells.form) {
      return false; // what the frames are is not known yet
    }
    const source = this.source(frame);
    const held = source ? this.reel.get(source.file, source.fresh) : null;
    if (source && held === undefined && !source.fresh) {
      return false;
    }
    if (held?.bitmap) {
      this.picture(held.bitmap, frame, source);
    } else {
      this.slate(frame, held?.problem);
    }
    return true;
  }

  picture(bitmap, frame, source) {
    const key = `${frame}/${source.file}/${source.fresh}/${bitmap.width}`;
    if (this.drawn === key) {
      return;
    }
    this.drawn = key;
    if (this.canvas.width !== bitmap.width || this.canvas.height !== bitmap.height) {
      this.canvas.width = bitmap.width;
      this.canvas.height = bitmap.height;
    }
    this.aspect = bitmap.width / bitmap.height;
    const drawing = this.canvas.getContext("2d");
    drawing.clearRect(0, 0, bitmap.width, bitmap.height);
    drawing.drawImage(bitmap, 0, 0);
    setAttribute(this.canvas, "data-hole", null);
    this.words = `Frame ${frame}`;
  }

  slate(frame, problem) {
    const at = this.cells.find(frame);
    const state = at < 0 ? null : ofLetter(this.cells.letter(at));
    const word = problem || (state ? state.word : "no such frame");
    const key = `${frame}/${word}`;
    if (this.drawn === key) {
      return;
    }
    this.drawn = key;
    const height = Math.round(960 / this.aspect);
    if (this.canvas.width !== 960 || this.canvas.height !== height) {
      this.canvas.width = 960;
      this.canvas.height = height;
    }
    const colours = palette();
    const drawing = this.canvas.getContext("2d");
    drawing.fillStyle = "#17181b";
    drawing.fillRect(0, 0, 960, height);
    // A cross from corner to corner, as a missing picture has always been drawn.
    drawing.strokeStyle = state ? colours[state.name] : "#5c626c";
    drawing.globalAlpha = 0.5;
    drawing.lineWidth = 3;
    drawing.strokeRect(20, 20, 920, height - 40);
    drawing.beginPath();
    drawing.moveTo(20, 20);
    drawing.lineTo(940, height - 20);
    drawing.moveTo(940, 20);
    drawing.lineTo(20, height - 20);
    drawing.stroke();
    drawing.globalAlpha = 1;
    drawing.fillStyle = "#17181b";
    drawing.fillRect(240, height / 2 - 80, 480, 160);
    drawing.textAlign = "center";
    drawing.textBaseline = "middle";
    const font = getComputedStyle(document.body).fontFamily;
    drawing.fillStyle = "#eceef1";
    drawing.font = `600 54px ${font}`;
    drawing.fillText(String(frame), 480, height / 2 - 32, 440);
    drawing.font = `30px ${font}`;
    drawing.fillText(`${state && !problem ? `${state.glyph} ` : ""}${word}`, 480, height / 2 + 36, 440);
    setAttribute(this.canvas, "data-hole", state?.name ?? "none");
    this.words = `Frame ${frame}: ${word}`;
  }
}
