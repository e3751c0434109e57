// The line that is being typed: its text, the cursor, and the lines typed before. Pure.

const kMostLinesKept = 500;

export class LineEditor {
  text = "";
  cursor = 0;
  #history;
  #place; // in the history; its length: the new line
  #kept = ""; // the new line, while an old one is shown

  constructor(history = []) {
    this.#history = history;
    this.#place = history.length;
  }

  get history() {
    return this.#history;
  }

  insert(text) {
    this.text = this.text.slice(0, this.cursor) + text + this.text.slice(this.cursor);
    this.cursor += text.length;
  }

  // Ends the line: empties the editor and returns the text.
  enter() {
    const line = this.text;
    if (line.trim() !== "" && line !== this.#history.at(-1)) this.#history.push(line);
    if (this.#history.length > kMostLinesKept) this.#history.shift();
    this.#place = this.#history.length;
    this.clear();
    return line;
  }

  clear() {
    this.text = "";
    this.cursor = 0;
    this.#kept = "";
    this.#place = this.#history.length;
  }

  moveTo(cursor) {
    this.cursor = Math.max(0, Math.min(cursor, this.text.length));
  }

  // Takes away what stands from `from` to `to`.
  cut(from, to) {
    this.text = this.text.slice(0, from) + this.text.slice(to);
    this.cursor = from;
  }

  // Shows the line `step` places further in the history.
  recall(step) {
    const place = this.#place + step;
    if (place < 0 || place > this.#history.length) return;
    if (this.#place === this.#history.length) this.#kept = this.text;
    this.#place = place;
    this.text = place === this.#history.length ? this.#kept : this.#history[place];
    this.cursor = this.text.length;
  }

  wordStart() {
    return this.text.slice(0, this.cursor).search(/\S*\s*$/);
  }

  wordEnd() {
    return this.cursor + /^\s*\S*/.exec(this.text.slice(this.cursor))[0].length;
  }
}

// What a key does, by what a terminal sends for it.
export const kEditorKeys = {
  "\x7F": (line) => line.cursor > 0 && line.cut(line.cursor - 1, line.cursor),
  "\b": (line) => line.cursor > 0 && line.cut(line.cursor - 1, line.cursor),
  "\x1B[3~": (line) => line.cut(line.cursor, line.cursor + 1),
  "\x04": (line) => line.cut(line.cursor, line.cursor + 1),
  "\x1B[D": (line) => line.moveTo(line.cursor - 1),
  "\x02": (line) => line.moveTo(line.cursor - 1),
  "\x1B[C": (line) => line.moveTo(line.cursor + 1),
  "\x06": (line) => line.moveTo(line.cursor + 1),
  "\x1B[H": (line) => line.moveTo(0),
  "\x01": (line) => line.moveTo(0),
  "\x1B[F": (line) => line.moveTo(line.text.length),
  "\x05": (line) => line.moveTo(line.text.length),
  "\x1B[1;5D": (line) => line.moveTo(line.wordStart()),
  "\x1Bb": (line) => line.moveTo(line.wordStart()),
  "\x1B[1;5C": (line) => line.moveTo(line.wordEnd()),
  "\x1Bf": (line) => line.moveTo(line.wordEnd()),
  "\x0B": (line) => line.cut(line.cursor, line.text.length),
  "\x15": (line) => line.cut(0, line.cursor),
  "\x17": (line) => line.cut(line.wordStart(), line.cursor),
  "\x1B[A": (line) => line.recall(-1),
  "\x10": (line) => line.recall(-1),
  "\x1B[B": (line) => line.recall(1),
  "\x0E": (line) => line.recall(1),
};
