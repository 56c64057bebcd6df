// The log of an attempt: what decided first, then the end of the log, which grows
// while the program runs. A log may have 64 MiB: pieces are asked for as they are
// wanted, and only so many are kept.
import { get } from "./api.js";
import { h, setAttribute, setText } from "./dom.js";
import { bytes, number, plain, visible, visibleLog } from "./text.js";

const piece = 65536;
const mostPieces = 24;
const pause = 1000;

export class LogView {
  constructor(host) {
    this.attempt = null;
    this.turn = 0;
    this.timer = 0;
    this.follows = true;
    this.deciding = h("div", { class: "log-deciding", hidden: true });
    this.find = h("input", { type: "search", placeholder: "Find in the log", "aria-label": "Find in the log" });
    this.found = h("span", { class: "count", role: "status" });
    this.nextFound = h("button", { type: "button", class: "quiet", "aria-label": "Next place", title: "Next place (Enter)" }, "↓");
    this.previousFound = h("button", { type: "button", class: "quiet", "aria-label": "Place before", title: "Place before (Shift+Enter)" }, "↑");
    this.follow = h("button", { type: "button", "aria-pressed": "true" }, "Follow");
    this.state = h("span", { class: "count" });
    this.earlier = h("button", { type: "button", class: "quiet log-earlier" }, "Show what was before");
    this.text = h("pre", { class: "log-text" });
    this.scroller = h("div", { class: "log-scroll", tabindex: "0", role: "log", "aria-label": "What the program said", "aria-live": "off" }, this.earlier, this.text);
    host.append(
      h("div", { class: "bar" }, h("h2", {}, "Log"), this.state, h("span", { class: "push" }), this.find, this.found, this.previousFound, this.nextFound, this.follow),
      this.deciding,
      this.scroller,
    );
    this.earlier.addEventListener("click", () => this.loadEarlier());
    this.follow.addEventListener("click", () => this.toggleFollow());
    this.find.addEventListener("input", () => this.search(0));
    this.find.addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        event.preventDefault();
        this.search(event.shiftKey ? -1 : 1);
      }
    });
    this.nextFound.addEventListener("click", () => this.search(1));
    this.previousFound.addEventListener("click", () => this.search(-1));
    this.scroller.addEventListener("scroll", () => {
      const atEnd = this.scroller.scrollHeight - this.scroller.scrollTop - this.scroller.clientHeight < 24;
      if (atEnd !== this.follows && !this.laying) {
        this.setFollow(atEnd);
      }
    });
  }

  close() {
    ++this.turn;
    clearTimeout(this.timer);
    CSS.highlights?.delete("found");
    CSS.highlights?.delete("found-now");
    CSS.highlights?.delete("deciding");
  }

  /** Shows the log of an attempt of the form `page.frame`. */
  show(attempt) {
    const same = attempt && this.attempt && attempt.id === this.attempt.id;
    const ended = same && this.attempt.running && !attempt.running;
    this.attempt = attempt;
    this.showDeciding();
    if (same) {
      if (ended) {
        this.poll(); // what it said last
      }
      return;
    }
    this.close();
    this.first = 0;
    this.next = 0;
    this.text.replaceChildren();
    this.earlier.hidden = true;
    setText(this.state, "");
    this.setFollow(true);
    if (attempt) {
      this.open(this.turn);
    }
  }

  showDeciding() {
    const attempt = this.attempt;
    const lines = attempt ? (attempt.lines ?? []).map(visible) : [];
    const deciding = visible(attempt?.deciding);
    const key = JSON.stringify([attempt?.id, lines, deciding]);
    if (this.deciding.dataset.of === key) {
      return;
    }
    this.deciding.dataset.of = key;
    this.deciding.hidden = !deciding && (lines.length === 0 || attempt.state === "good");
    if (!deciding && !lines.length) {
      this.deciding.replaceChildren();
      return;
    }
    const list = lines.includes(deciding) || !deciding ? lines : [deciding, ...lines];
    this.deciding.replaceChildren(
      h("h3", {}, deciding ? "What decided" : "What it said last"),
      h("pre", { class: "deciding" }, list.map((line) => (line === deciding ? h("mark", { textContent: `${line}\n` }) : `${line}\n`))),
    );
  }

  async open(turn) {
    try {
      const form = await get(`api/attempts/${this.attempt.id}/log?from=-${piece}`);
      if (turn !== this.turn) {
        return;
      }
      this.first = form.from;
      this.next = form.next;
      this.add(form, "end");
      this.after(form, turn);
    } catch (problem) {
      if (turn === this.turn) {
        this.refused(problem, turn);
      }
    }
  }

  async poll() {
    const turn = this.turn;
    clearTimeout(this.timer);
    if (document.hidden) {
      this.timer = setTimeout(() => this.poll(), pause);
      return;
    }
    try {
      const form = await get(`api/attempts/${this.attempt.id}/log?from=${this.next}`);
      if (turn !== this.turn) {
        return;
      }
      if (form.next > this.next) {
        this.next = form.next;
        this.add(form, "end");
      }
      this.after(form, turn);
    } catch (problem) {
      if (turn === this.turn) {
        this.refused(problem, turn);
      }
    }
  }

  after(form, turn) {
    setText(this.state, form.size ? `${bytes(form.size)}${form.running ? ", growing" : ""}` : form.running ? "nothing yet" : "it printed nothing");
    this.earlier.hidden = this.first <= 0;
    if (turn === this.turn && (form.running || form.next < form.size)) {
      this.timer = setTimeout(() => this.poll(), form.next < form.size ? 0 : pause);
    }
  }

  refused(problem, turn) {
    const none = problem.status === 404;
    setText(this.state, none ? "it printed nothing" : problem.message);
    if (!none && turn === this.turn) {
      this.timer = setTimeout(() => (this.next ? this.poll() : this.open(this.turn)), 3 * pause);
    }
  }

  async loadEarlier() {
    const turn = this.turn;
    const from = Math.max(0, this.first - piece);
    const form = await get(`api/attempts/${this.attempt.id}/log?from=${from}`).catch(() => null);
    if (!form || turn !== this.turn) {
      return false;
    }
    // The end of the answer may lie in what is here already.
    const text = new TextDecoder().decode(new TextEncoder().encode(plain(form.text)).slice(0, this.first - from));
    this.first = from;
    const height = this.scroller.scrollHeight;
    this.setFollow(false);
    this.add({ ...form, text }, "start");
    this.scroller.scrollTop += this.scroller.scrollHeight - height;
    this.earlier.hidden = from <= 0;
    return true;
  }

  add(form, where) {
    const text = visibleLog(form.text);
    if (!text) {
      return;
    }
    const span = h("span", { class: "log-piece", textContent: text });
    span.bytes = form.next - form.from;
    this.laying = true;
    if (where === "start") {
      this.text.prepend(span);
    } else {
      this.text.append(span);
      while (this.text.children.length > mostPieces && this.follows) {
        this.first += this.text.firstChild.bytes;
        this.text.firstChild.remove();
      }
    }
    if (this.follows) {
      this.scroller.scrollTop = this.scroller.scrollHeight;
    }
    requestAnimationFrame(() => (this.laying = false));
    this.markDeciding();
    if (this.find.value) {
      this.search(0, true);
    }
  }

  setFollow(value) {
    this.follows = value;
    setAttribute(this.follow, "aria-pressed", String(value));
  }

  toggleFollow() {
    this.setFollow(!this.follows);
    if (this.follows) {
      this.scroller.scrollTop = this.scroller.scrollHeight;
    }
  }

  focusFind() {
    this.find.focus();
    this.find.select();
  }

  ranges(text, most = 5000) {
    const ranges = [];
    const wanted = text.toLowerCase();
    for (const span of this.text.children) {
      const node = span.firstChild;
      const hay = node.data.toLowerCase();
      // Some letters change their length with their case: places would not fit.
      const same = hay.length === node.data.length ? hay : node.data;
      for (let at = same.indexOf(wanted); at >= 0 && ranges.length < most; at = same.indexOf(wanted, at + wanted.length)) {
        const range = new Range();
        range.setStart(node, at);
        range.setEnd(node, at + wanted.length);
        ranges.push(range);
      }
    }
    return ranges;
  }

  markDeciding() {
    const line = visible(this.attempt?.deciding);
    if (line && CSS.highlights) {
      CSS.highlights.set("deciding", new Highlight(...this.ranges(line, 50)));
    }
  }

  /** Marks all places; `by` goes to the next or the one before. */
  search(by, quietly = false) {
    const text = this.find.value;
    const places = text ? this.ranges(text) : [];
    if (by === 0 && !quietly) {
      this.place = places.length - 1; // the last words are the likeliest
    } else if (by) {
      this.place = places.length ? (this.place + by + places.length) % places.length : 0;
    }
    setText(this.found, text ? (places.length ? `${number(Math.min(this.place, places.length - 1) + 1)} of ${number(places.length)}` : this.first > 0 ? "not in what is shown" : "not found") : "");
    const now = places[Math.min(this.place ?? 0, places.length - 1)];
    if (CSS.highlights) {
      CSS.highlights.set("found", new Highlight(...places));
      CSS.highlights.set("found-now", new Highlight(...(now ? [now] : [])));
    }
    if (now && !quietly) {
      this.setFollow(false);
      const box = now.getBoundingClientRect();
      const view = this.scroller.getBoundingClientRect();
      if (box.top < view.top + 20 || box.bottom > view.bottom - 20) {
        this.scroller.scrollTop += box.top - view.top - view.height / 2;
      }
    }
  }
}
