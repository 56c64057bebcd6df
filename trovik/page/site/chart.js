// How long each frame took. Where there are more frames than pixels a column has
// the longest of its share, with the median inside, so that no slow one hides.
import { h, setAttribute, setText } from "./dom.js";
import { context, onRepaint, palette } from "./paint.js";
import { address } from "./route.js";
import { duration, number } from "./text.js";

const height = 132;
const left = 46;

function median(sorted) {
  const middle = sorted.length >> 1;
  return sorted.length % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

/** A scale that ends at a round number of seconds, minutes or hours. */
export function ceiling(seconds) {
  const steps = [0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1200, 1800, 3600, 7200, 18000, 36000, 86400];
  return steps.find((step) => step >= seconds) ?? Math.ceil(seconds / 86400) * 86400;
}

export class Chart {
  constructor(host, job) {
    this.job = job;
    this.cells = null;
    this.canvas = h("canvas", { class: "chart", role: "img" });
    this.summary = h("p", { class: "chart-summary" });
    this.slowest = h("ol", { class: "chart-slowest", "aria-label": "The slowest frames" });
    host.append(this.canvas, this.summary, this.slowest);
    this.canvas.addEventListener("click", (event) => {
      const position = this.positionAt(event);
      if (position >= 0) {
        location.hash = address(`job/${job}/frame/${this.cells.name(position)}`);
      }
    });
    this.canvas.addEventListener("pointermove", (event) => {
      const position = this.positionAt(event);
      this.canvas.title = position >= 0 ? this.cells.words(position) : "";
    });
    this.sizes = new ResizeObserver(() => this.draw());
    this.sizes.observe(this.canvas);
    this.unpaint = onRepaint(() => this.draw());
  }

  close() {
    this.sizes.disconnect();
    this.unpaint();
  }

  /** Gives whether there is anything to draw. */
  show(cells) {
    this.cells = cells;
    const times = [];
    for (let i = 0; i < cells.count; ++i) {
      if (cells.time(i) > 0) {
        times.push(i);
      }
    }
    this.count = times.length;
    if (this.count) {
      const byTime = [...times].sort((a, b) => cells.time(a) - cells.time(b));
      const slow = byTime.slice(-Math.min(5, byTime.length)).reverse();
      this.median = median(byTime.map((i) => cells.time(i)));
      this.most = cells.time(byTime.at(-1));
      const words = `${number(this.count)} frames: median ${duration(this.median)}, fastest ${duration(cells.time(byTime[0]))}, slowest ${duration(this.most)}`;
      setText(this.summary, words);
      setAttribute(this.canvas, "aria-label", `Time by frame. ${words}`);
      this.slowest.replaceChildren(
        ...(this.count > 2 && cells.form.hasFrames ? slow : []).map((i) =>
          h("li", {}, h("a", { href: address(`job/${this.job}/frame/${cells.name(i)}`), textContent: `${cells.label(i)}: ${duration(cells.time(i))}` })),
        ),
      );
    }
    this.draw();
    return this.count > 0;
  }

  positionAt(event) {
    const box = this.canvas.getBoundingClientRect();
    const share = (event.clientX - box.left - left) / (box.width - left);
    return share < 0 || share >= 1 || !this.cells ? -1 : Math.floor(share * this.cells.count);
  }

  draw() {
    const width = this.canvas.clientWidth;
    if (!width || !this.cells || !this.count) {
      return;
    }
    const drawing = context(this.canvas, width, height);
    const colours = palette();
    const top = ceiling(this.most);
    const ground = height - 16;
    const scale = (ground - 6) / top;
    drawing.font = `11px ${getComputedStyle(document.body).fontFamily}`;
    drawing.textBaseline = "middle";
    drawing.lineWidth = 1;
    for (const share of [0, 0.5, 1]) {
      const y = Math.round(ground - share * top * scale) + 0.5;
      drawing.strokeStyle = colours.line;
      drawing.beginPath();
      drawing.moveTo(left, y);
      drawing.lineTo(width, y);
      drawing.stroke();
      drawing.fillStyle = colours["ink-3"];
      drawing.textAlign = "right";
      drawing.fillText(share ? duration(share * top) : "0", left - 6, Math.max(7, y));
    }
    const room = width - left;
    const columns = Math.min(this.cells.count, Math.floor(room));
    const step = room / columns;
    for (let column = 0; column < columns; ++column) {
      const begin = Math.floor((column * this.cells.count) / columns);
      const end = Math.max(begin + 1, Math.floor(((column + 1) * this.cells.count) / columns));
      let most = 0;
      const share = [];
      let bad = false;
      for (let i = begin; i < end; ++i) {
        const time = this.cells.time(i);
        most = Math.max(most, time);
        if (time > 0) {
          share.push(time);
        }
        bad ||= "fdm".includes(this.cells.letter(i));
      }
      const x = left + column * step;
      const wide = Math.max(1, Math.min(18, step - (step > 3 ? 1 : 0)));
      if (most > 0) {
        drawing.fillStyle = colours["line-strong"];
        drawing.fillRect(x, ground - most * scale, wide, most * scale);
        if (share.length > 1) {
          const inner = median(share.sort((a, b) => a - b)) * scale;
          drawing.fillStyle = colours["ink-2"];
          drawing.fillRect(x, ground - inner, wide, inner);
        }
      }
      if (bad) {
        drawing.fillStyle = colours.failed;
        drawing.fillRect(x, ground + 1, Math.max(2, wide), 5);
      }
    }
    const y = Math.round(ground - this.median * scale) + 0.5;
    drawing.strokeStyle = colours.ink;
    drawing.setLineDash([4, 4]);
    drawing.beginPath();
    drawing.moveTo(left, y);
    drawing.lineTo(width, y);
    drawing.stroke();
    drawing.setLineDash([]);
    if (this.cells.form.hasFrames) {
      drawing.fillStyle = colours["ink-3"];
      drawing.textAlign = "left";
      drawing.fillText(this.cells.label(0), left, height - 5);
      drawing.textAlign = "right";
      drawing.fillText(this.cells.label(this.cells.count - 1), width, height - 5);
    }
  }
}
