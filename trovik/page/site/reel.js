// The pictures of a film: those ahead of the playhead are asked for and decoded,
// so that a frame is there when its time comes; those longest unused are let go.
import { want } from "./pictures.js";

const mostBytes = 320e6;
const pending = 6;

export class Reel {
  constructor() {
    this.size = 640;
    this.held = new Map(); // key -> {bitmap, problem, release}
    this.bytes = 0;
    this.onReady = () => {};
  }

  close() {
    for (const key of [...this.held.keys()]) {
      this.drop(key);
    }
  }

  drop(key) {
    const held = this.held.get(key);
    held.release?.();
    held.gone = true;
    if (held.bitmap) {
      this.bytes -= held.bitmap.width * held.bitmap.height * 4;
      held.bitmap.close();
    }
    this.held.delete(key);
  }

  setSize(size) {
    if (size !== this.size) {
      this.size = size;
      this.close();
    }
  }

  key(file, fresh) {
    return `${file}/${fresh ? "fresh" : ""}`;
  }

  /** What is there of a file: undefined while it is awaited. */
  get(file, fresh) {
    const key = this.key(file, fresh);
    const held = this.held.get(key);
    if (held && (held.bitmap || held.problem)) {
      this.held.delete(key);
      this.held.set(key, held);
      return held;
    }
    return undefined;
  }

  /** Asks for the files in the order in which they are needed. */
  fetch(list) {
    const wanted = new Set(list.map(({ file, fresh }) => this.key(file, fresh)));
    let open = 0;
    for (const [key, held] of this.held) {
      if (!held.bitmap && !held.problem) {
        if (wanted.has(key)) {
          ++open;
        } else {
          this.drop(key);
        }
      }
    }
    for (const { file, fresh } of list) {
      if (open >= pending) {
        break;
      }
      const key = this.key(file, fresh);
      if (!this.held.has(key)) {
        ++open;
        this.ask(key, file, fresh);
      }
    }
    // The oldest go first, but never what is wanted just now.
    for (const key of [...this.held.keys()]) {
      if (this.bytes <= mostBytes) {
        break;
      }
      if (!wanted.has(key)) {
        this.drop(key);
      }
    }
  }

  ask(key, file, fresh) {
    const held = { bitmap: null, problem: "", release: null, gone: false };
    this.held.set(key, held);
    held.release = want(
      file,
      this.size,
      async (value) => {
        held.release = null;
        let bitmap = null;
        if (value.blob) {
          bitmap = await createImageBitmap(value.blob).catch(() => null);
        }
        if (held.gone) {
          bitmap?.close();
          return;
        }
        if (bitmap) {
          held.bitmap = bitmap;
          this.bytes += bitmap.width * bitmap.height * 4;
        } else if (value.away) {
          this.held.delete(key);
          return;
        } else {
          held.problem = value.problem || "No picture";
        }
        this.onReady();
      },
      { fresh },
    );
  }
}
