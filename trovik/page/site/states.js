// The one table of states: of frames, of jobs and of attempts. `letter` is what
// the server's texts of cells have; `glyph` and the way a strip draws the state
// make it readable without colour; `rank` tells which state matters most where
// one mark stands for many frames.

const table = [
  { letter: "f", name: "failed", word: "failed", glyph: "✕", rank: 8 },
  { letter: "d", name: "damaged", word: "damaged", glyph: "≠", rank: 7 },
  { letter: "m", name: "missing", word: "missing", glyph: "?", rank: 6 },
  { letter: "r", name: "running", word: "running", glyph: "▸", rank: 5 },
  { letter: "R", name: "running", word: "just written", glyph: "▸", rank: 4 },
  { letter: "w", name: "waiting", word: "waiting", glyph: "·", rank: 3 },
  { letter: "c", name: "canceled", word: "canceled", glyph: "–", rank: 2 },
  { letter: "g", name: "good", word: "good", glyph: "✓", rank: 1 },
];

// States that only jobs and attempts have look like the nearest of a frame.
const others = [
  { name: "stopped", word: "held", glyph: "‖", like: "missing" },
  { name: "lost", word: "lost", glyph: "✕", like: "damaged" },
  { name: "ready", word: "waiting", glyph: "·", like: "waiting" },
];

const byLetter = new Map(table.map((state) => [state.letter, state]));
const byName = new Map(table.filter((state) => state.letter !== "R").map((state) => [state.name, state]));
for (const other of others) {
  byName.set(other.name, other);
}

/** The letters of frames, those that matter most first. */
export const letters = table.map((state) => state.letter);

/** What a letter of a cell means; unknown ones look like waiting. */
export const ofLetter = (letter) => byLetter.get(letter) ?? byLetter.get("w");

/** What the word of a state means. */
export const ofName = (name) => byName.get(name) ?? { name, word: name, glyph: "·", like: "waiting" };

/** The states by which frames can be chosen, with the letters that each stands for. */
export const choices = ["failed", "damaged", "missing", "running", "waiting", "canceled", "good"].map((name) => ({
  ...byName.get(name),
  letters: table.filter((state) => state.name === name).map((state) => state.letter),
}));

/** The name of the colours (`--NAME` for areas, `--NAME-text` for words). */
export const colourOf = (state) => state.like ?? state.name;

/** How many cells there are of each letter. */
export function countLetters(text) {
  const counts = new Map();
  for (const letter of text) {
    counts.set(letter, (counts.get(letter) ?? 0) + 1);
  }
  return counts;
}

/** "3 failed, 12 good" of a text of letters, those that matter most first. */
export function summary(counts) {
  const words = [];
  for (const choice of choices) {
    const count = choice.letters.reduce((sum, letter) => sum + (counts.get(letter) ?? 0), 0);
    if (count > 0) {
      words.push(`${count.toLocaleString("en")} ${choice.word}`);
    }
  }
  return words.join(", ");
}
