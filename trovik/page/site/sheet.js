// The sheet: every frame of a job, of which only those in sight exist. Rows are
// laid over a box as high as all of them would be, and used again as they leave
// the sight. Where cells are too small for pictures they are drawn, and only the
// cell of the keyboard is an element. Browsers bound the height of a box: above
// that bound one pixel of scrolling stands for several of the sheet.
import { h, setAttribute } from "./dom.js";
import { context, onRepaint, paintCell, palette } from "./paint.js";
import { sizeFor } from "./pictures.js";
import { address } from "./route.js";
import { Cells } from "./cells.js";
import { Cell } from "./cell.js";

const levels = [
  { word: "dots", width: 12, height: 14, gap: 3, drawn: true },
  { word: "numbers", width: 52, height: 30, gap: 4, drawn: true },
  { word: "small", width: 112, gap: 8 },
  { word: "medium", width: 176, gap: 10 },
  { word: "large", width: 270, gap: 12 },
  { word: "largest", width: 430, gap: 14 },
];
export const zooms = levels.length;
export const zoomWord = (zoom) => levels[zoom].word;
const highest = 8_000_000;
const caption = 26;

/** The largest size at which so many frames fit into what is seen of the page, as
    long as pictures are worth it; many frames get small ones. */
export function fittingZoom(count, width, height) {
  for (let zoom = levels.length - 1; zoom > 2; --zoom) {
    const { width: least, gap } = levels[zoom];
    const columns = Math.max(1, Math.floor((width + gap) / (least + gap)));
    if (Math.ceil(count / columns) * ((width / columns) * (9 / 16) + caption + gap) <= height) {
      return zoom;
    }
  }
  return count <= 120 && width > 600 ? 3 : 2;
}

export class Sheet {
  /** `job`: its number. The sheet scrolls with the page. */
  constructor(host, job, zoom) {
    this.host = host;
    this.job = job;
    this.cells = new Cells(null);
    this.zoom = zoom;
    this.aspect = 16 / 9;
    this.active = 0; // position among the shown cells
    this.rows = new Map(); // number of the row -> its element
    this.spare = [];
    this.due = 0;
    this.lastTop = 0;
    this.hurried = 0;
    this.canvas = h("canvas", { "aria-hidden": "true", class: "sheet-drawn" });
    this.grid = h("div", { class: "sheet", role: "grid", "aria-label": "Frames" }, this.canvas);
    this.tip = h("div", { class: "sheet-tip", "aria-hidden": "true", hidden: true });
    host.append(this.grid, this.tip);
    this.grid.addEventListener("keydown", (event) => this.pressed(event));
    this.canvas.addEventListener("click", (event) => this.clicked(event));
    this.canvas.addEventListener("pointermove", (event) => this.hovered(event));
    this.canvas.addEventListener("pointerleave", () => (this.tip.hidden = true));
    this.onScroll = () => this.soon();
    addEventListener("scroll", this.onScroll, { passive: true });
    this.sizes = new ResizeObserver(() => {
      // The height is the sheet's own doing.
      if (host.clientWidth !== this.laidOut) {
        this.layout();
      }
    });
    this.sizes.observe(host);
    this.unpaint = onRepaint(() => this.draw());
  }

  close() {
    removeEventListener("scroll", this.onScroll);
    this.sizes.disconnect();
    this.unpaint();
    cancelAnimationFrame(this.due);
    clearTimeout(this.hurried);
    for (const row of [...this.rows.values(), ...this.spare]) {
      row.cells.forEach((cell) => cell.clear());
    }
  }

  /** New states of the same job. */
  show(cells) {
    const had = this.cells.count;
    this.cells = cells;
    if (had !== cells.count) {
      this.active = Math.min(this.active, Math.max(0, cells.count - 1));
      this.layout();
    } else {
      this.draw();
    }
  }

  setZoom(zoom) {
    const middle = this.cells.count ? this.positionInSight() : 0;
    this.zoom = zoom;
    this.forget();
    this.layout();
    this.reveal(middle);
  }

  get level() {
    return levels[this.zoom];
  }

  layout() {
    const width = this.host.clientWidth;
    if (!width) {
      return;
    }
    this.laidOut = width;
    const { width: least, gap, drawn } = this.level;
    this.columns = Math.max(1, Math.floor((width + gap) / (least + gap)));
    if (!drawn) {
      // Few frames are not blown up beyond one step of the zoom.
      this.cellWidth = Math.min((width - gap * (this.columns - 1)) / this.columns, least * 1.6);
      this.rowHeight = Math.round(this.cellWidth / this.aspect + caption + gap);
    } else {
      this.cellWidth = least;
      this.rowHeight = this.level.height + gap;
    }
    this.rowCount = Math.ceil(this.cells.count / this.columns);
    this.whole = this.rowCount * this.rowHeight;
    this.height = Math.min(this.whole, highest);
    this.grid.style.height = `${this.height}px`;
    this.grid.style.setProperty("--cell", `${this.cellWidth}px`);
    this.grid.style.setProperty("--picture", `${Math.round(this.cellWidth / this.aspect)}px`);
    this.grid.style.setProperty("--gap", `${gap}px`);
    setAttribute(this.grid, "aria-rowcount", this.rowCount);
    setAttribute(this.grid, "aria-colcount", this.columns);
    this.grid.hidden = this.cells.count === 0;
    this.canvas.hidden = !drawn;
    this.forget();
    this.draw();
  }

  /** Takes all rows away, since they are of another shape. */
  forget() {
    const focused = this.grid.contains(document.activeElement);
    for (const row of this.rows.values()) {
      row.cells.forEach((cell) => cell.clear());
      row.remove();
    }
    this.spare.forEach((row) => row.remove());
    this.rows.clear();
    this.spare = [];
    this.refocus ||= focused;
  }

  soon() {
    if (!this.due) {
      this.due = requestAnimationFrame(() => {
        this.due = 0;
        this.draw();
      });
    }
  }

  /** The part in sight: its top on the page's box, and on the whole sheet. */
  sight() {
    const box = this.grid.getBoundingClientRect();
    const top = Math.max(0, Math.min(this.height, -box.top));
    const bottom = Math.max(top, Math.min(this.height, innerHeight - box.top));
    const seen = bottom - top;
    const stretch = this.whole > this.height ? (this.whole - innerHeight) / (this.height - innerHeight) : 1;
    return { top, seen, from: Math.min(top * stretch, Math.max(0, this.whole - seen)), stretch };
  }

  positionInSight() {
    const { from, seen } = this.sight();
    if (this.grid.contains(document.activeElement)) {
      return this.active;
    }
    return Math.min(this.cells.count - 1, Math.floor((from + (from > 0 ? seen / 2 : 0)) / this.rowHeight) * this.columns);
  }

  draw() {
    if (!this.columns || this.cells.count === 0) {
      this.rows.forEach((row) => row.remove());
      this.rows.clear();
      return;
    }
    const sight = this.sight();
    const first = Math.max(0, Math.floor(sight.from / this.rowHeight) - 1);
    const last = Math.min(this.rowCount - 1, Math.ceil((sight.from + sight.seen) / this.rowHeight));
    this.hurry(sight);
    const activeRow = Math.floor(this.active / this.columns);
    const pinned = this.grid.contains(document.activeElement) || this.refocus ? activeRow : -1;
    if (this.level.drawn) {
      this.paint(sight, first, last);
      this.layRows(sight, activeRow, activeRow, pinned);
    } else {
      this.layRows(sight, first, last, pinned);
      // One cell always takes the focus, also where its row is out of sight.
      const holder = activeRow >= first && activeRow <= last ? this.active : first * this.columns;
      this.hold(holder);
    }
    if (this.refocus) {
      this.refocus = false;
      this.cellAt(this.active)?.link.focus({ preventScroll: true });
    }
  }

  /** While the sheet flies by no picture is asked for. */
  hurry(sight) {
    this.flies = Math.abs(sight.from - this.lastTop) > sight.seen * 0.75 && this.lastTop !== 0;
    this.lastTop = sight.from;
    if (this.flies) {
      clearTimeout(this.hurried);
      this.hurried = setTimeout(() => this.draw(), 90);
    }
  }

  layRows(sight, first, last, pinned) {
    for (const [number, row] of this.rows) {
      if ((number < first || number > last) && number !== pinned) {
        this.rows.delete(number);
        row.cells.forEach((cell) => cell.rest());
        row.hidden = true;
        this.spare.push(row);
      }
    }
    const size = sizeFor(this.cellWidth);
    const shown = [];
    for (let number = first; number <= last; ++number) {
      shown.push(number);
    }
    if (pinned >= 0 && (pinned < first || pinned > last)) {
      shown.push(pinned);
    }
    for (const number of shown) {
      let row = this.rows.get(number);
      if (!row) {
        row = this.spare.pop() ?? this.makeRow();
        row.hidden = false;
        this.rows.set(number, row);
        setAttribute(row, "aria-rowindex", number + 1);
      }
      row.style.transform = `translateY(${Math.round(number * this.rowHeight - sight.from + sight.top)}px)`;
      this.fillRow(row, number, size);
    }
  }

  makeRow() {
    const row = h("div", { role: "row", class: "sheet-row" });
    row.cells = [];
    this.grid.append(row);
    return row;
  }

  fillRow(row, number, size) {
    const begin = number * this.columns;
    const end = Math.min(this.cells.count, begin + this.columns);
    const drawn = this.level.drawn;
    const from = drawn ? this.active : begin;
    const to = drawn ? this.active + 1 : end;
    while (row.cells.length < to - from) {
      const cell = new Cell(drawn, (picture) => this.learnAspect(picture));
      cell.link.addEventListener("focus", () => this.hold(cell.position));
      row.cells.push(cell);
      row.append(cell.element);
    }
    row.cells.forEach((cell, i) => {
      const position = from + i;
      cell.element.hidden = position >= to;
      if (position >= to) {
        cell.rest();
        return;
      }
      cell.show(this.cells, position, {
        column: position - begin + 1,
        href: address(`job/${this.job}/frame/${this.cells.name(position)}`),
        size: this.flies ? 0 : size,
        left: drawn ? (position - begin) * (this.cellWidth + this.level.gap) : null,
      });
    });
  }

  cellAt(position) {
    for (const row of this.rows.values()) {
      const cell = row.cells.find((other) => other.position === position && !other.element.hidden);
      if (cell) {
        return cell;
      }
    }
    return null;
  }

  /** The one cell that takes the focus when the sheet is entered. */
  hold(position) {
    if (this.refocus) {
      // It is where the keyboard goes to just now.
    } else if (this.grid.contains(document.activeElement)) {
      this.active = this.cellOf(document.activeElement)?.position ?? position;
    } else {
      this.active = position;
    }
    for (const row of this.rows.values()) {
      for (const cell of row.cells) {
        setAttribute(cell.link, "tabindex", cell.position === this.active ? 0 : -1);
      }
    }
  }

  cellOf(element) {
    for (const row of this.rows.values()) {
      const cell = row.cells.find((other) => other.element.contains(element));
      if (cell) {
        return cell;
      }
    }
    return null;
  }

  /** The first picture tells how wide all of them are. */
  learnAspect(picture) {
    const aspect = Math.max(0.4, Math.min(4, picture.naturalWidth / picture.naturalHeight));
    if (!this.learned && Number.isFinite(aspect)) {
      this.learned = true;
      if (Math.abs(aspect - this.aspect) > 0.02) {
        this.aspect = aspect;
        this.layout();
      }
    }
  }

  paint(sight, first, last) {
    const width = this.host.clientWidth;
    this.canvas.style.transform = `translateY(${sight.top}px)`;
    this.canvas.style.width = `${width}px`;
    this.canvas.style.height = `${sight.seen}px`;
    const drawing = context(this.canvas, width, sight.seen);
    const { height, gap, width: cell } = this.level;
    const numbers = this.zoom === 1;
    const colours = palette();
    drawing.font = `12px ${getComputedStyle(document.body).fontFamily}`;
    drawing.textBaseline = "middle";
    for (let number = first; number <= last; ++number) {
      const y = Math.round(number * this.rowHeight - sight.from);
      const end = Math.min(this.cells.count, (number + 1) * this.columns);
      for (let position = number * this.columns; position < end; ++position) {
        const x = (position % this.columns) * (cell + gap);
        const letter = this.cells.letter(position);
        if (numbers) {
          drawing.fillStyle = colours.card;
          drawing.fillRect(x, y, cell, height);
          paintCell(drawing, letter, x, y, 10, height);
          drawing.fillStyle = colours.ink;
          drawing.fillText(this.cells.label(position), x + 15, y + height / 2, cell - 16);
        } else {
          paintCell(drawing, letter, x, y, cell, height);
        }
      }
    }
  }

  positionAt(event) {
    const box = this.canvas.getBoundingClientRect();
    const step = this.cellWidth + this.level.gap;
    const column = Math.floor((event.clientX - box.left) / step);
    const row = Math.floor((event.clientY - box.top + this.sight().from) / this.rowHeight);
    const position = row * this.columns + column;
    return column >= 0 && column < this.columns && position >= 0 && position < this.cells.count ? position : -1;
  }

  clicked(event) {
    const position = this.positionAt(event);
    if (position >= 0) {
      location.hash = address(`job/${this.job}/frame/${this.cells.name(position)}`);
    }
  }

  hovered(event) {
    const position = this.positionAt(event);
    this.tip.hidden = position < 0;
    if (position >= 0) {
      this.tip.textContent = this.cells.words(position);
      const room = innerWidth - event.clientX > 240;
      this.tip.style.left = room ? `${event.clientX + 14}px` : "auto";
      this.tip.style.right = room ? "auto" : `${innerWidth - event.clientX + 10}px`;
      this.tip.style.top = `${event.clientY + 16}px`;
    }
  }

  /** Scrolls so that a position is in sight. */
  reveal(position) {
    if (!this.columns || position < 0 || position >= this.cells.count) {
      return;
    }
    const sight = this.sight();
    const y = Math.floor(position / this.columns) * this.rowHeight;
    const box = this.grid.getBoundingClientRect();
    const margin = parseFloat(getComputedStyle(this.grid).scrollMarginTop) || 0;
    const { stretch } = sight;
    const seenFrom = box.top < 0 ? -box.top * stretch : -box.top;
    let from = seenFrom;
    if (y < seenFrom + margin) {
      from = y - margin;
    } else if (y + this.rowHeight > seenFrom + innerHeight) {
      from = y + this.rowHeight - innerHeight + 8 + stretch;
    }
    if (from !== seenFrom) {
      scrollTo(scrollX, box.top + scrollY + (from > 0 ? from / stretch : from));
    }
    this.draw();
  }

  /** Puts the keyboard on a position. */
  focus(position) {
    this.active = position;
    this.refocus = true;
    this.reveal(position);
    this.draw();
  }

  pressed(event) {
    const columns = this.columns;
    const onePage = Math.max(1, Math.floor((innerHeight * 0.8) / this.rowHeight)) * columns;
    const row = this.active - (this.active % columns);
    const whole = event.ctrlKey || event.metaKey;
    const last = this.cells.count - 1;
    const to = {
      ArrowRight: this.active + 1,
      ArrowLeft: this.active - 1,
      ArrowDown: this.active + columns > last ? this.active : this.active + columns,
      ArrowUp: this.active - columns < 0 ? this.active : this.active - columns,
      PageDown: Math.min(last, this.active + onePage),
      PageUp: Math.max(0, this.active - onePage),
      Home: whole ? 0 : row,
      End: whole ? last : Math.min(last, row + columns - 1),
    }[event.key];
    if (to === undefined || event.altKey || event.shiftKey) {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
    this.focus(Math.max(0, Math.min(last, to)));
  }
}
