// The bar below the film: the states of all frames, the part that is played, and
// the playhead, which follows the pointer.
import { h, setAttribute } from "./dom.js";
import { onRepaint, paintStrip, palette } from "./paint.js";

export class Scrub {
  /** `seek(position)` is called while the playhead is dragged, `done` after it. */
  constructor(begin, seek, done) {
    this.track = h("canvas", { "aria-hidden": "true" });
    this.element = h("div", { class: "scrub", role: "slider", tabindex: "0", "aria-label": "Frame", "aria-valuenow": "0" }, this.track);
    this.cells = null;
    const to = (event) => {
      const box = this.track.getBoundingClientRect();
      const share = Math.max(0, Math.min(0.99999, (event.clientX - box.left) / box.width));
      seek(Math.floor(share * (this.cells?.count ?? 0)));
    };
    this.element.addEventListener("pointerdown", (event) => {
      begin();
      this.element.setPointerCapture(event.pointerId);
      to(event);
    });
    this.element.addEventListener("pointermove", (event) => this.element.hasPointerCapture(event.pointerId) && to(event));
    this.element.addEventListener("pointerup", done);
    this.sizes = new ResizeObserver(() => this.paint());
    this.sizes.observe(this.track);
    this.unpaint = onRepaint(() => this.paint());
  }

  close() {
    this.sizes.disconnect();
    this.unpaint();
  }

  /** `told`: whether who hears the page is told; not while the film runs. */
  show(cells, { at, first, last }, told) {
    this.cells = cells;
    this.place = { at, first, last };
    this.paint();
    setAttribute(this.element, "aria-valuemin", cells.name(0));
    setAttribute(this.element, "aria-valuemax", cells.name(cells.count - 1));
    if (told) {
      setAttribute(this.element, "aria-valuenow", cells.name(at));
      setAttribute(this.element, "aria-valuetext", cells.words(at));
    }
  }

  paint() {
    const width = this.track.clientWidth;
    const height = this.track.clientHeight;
    if (!width || !this.cells?.count) {
      return;
    }
    const { at, first, last } = this.place;
    paintStrip(this.track, this.cells.strip(Math.max(1, Math.floor(width / 2))), width);
    const drawing = this.track.getContext("2d");
    const colours = palette();
    const x = (position) => (position / this.cells.count) * width;
    // What is left out of the film steps back, and the film's ends get a bracket.
    drawing.fillStyle = colours.paper;
    drawing.globalAlpha = 0.75;
    drawing.fillRect(0, 0, x(first), height);
    drawing.fillRect(x(last + 1), 0, width - x(last + 1), height);
    drawing.globalAlpha = 1;
    drawing.fillStyle = colours.ink;
    if (first > 0) {
      drawing.fillRect(x(first), 0, 2, height);
    }
    if (last < this.cells.count - 1) {
      drawing.fillRect(x(last + 1) - 2, 0, 2, height);
    }
    const middle = Math.max(2, Math.min(width - 2, (x(at) + x(at + 1)) / 2));
    drawing.fillRect(middle - 1.5, 0, 3, height);
    drawing.beginPath();
    drawing.moveTo(middle - 6, 0);
    drawing.lineTo(middle + 6, 0);
    drawing.lineTo(middle, 7);
    drawing.fill();
  }
}
