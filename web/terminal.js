// The terminal: shows the session's text and edits the line that is typed.
//
// Nothing but this module and the session's cursor strings writes control sequences to the screen, since text
// goes through safeScreenText; so no text can ask the screen to report, and what it might report is not taken
// for typing. The line being typed stands behind the session's open line. Text that comes in meanwhile takes
// its place, and the line is drawn again behind it.

import { FitAddon } from "./addon-fit.mjs";
import { LineEditor, kEditorKeys } from "./lineeditor.js";
import { CursorStrings, foreignCharacter, foreignCharacterText, safeScreenText } from "./screentext.js";
import { Terminal as Screen } from "./xterm.mjs";

const kEnter = "\r";
const kInterrupt = "\x03";
const kClearScreen = "\x0C";
const kPageLines = 2; // kept in view when paging
const kOpenLineLength = 500; // of it is kept

function coloursOf(element) {
  const style = getComputedStyle(element);
  const colour = (name) => style.getPropertyValue(name).trim();
  return {
    background: colour("--terminal-background"),
    foreground: colour("--terminal-text"),
    cursor: colour("--accent"),
    cursorAccent: colour("--terminal-background"),
    selectionBackground: colour("--selection"),
  };
}

export class Terminal {
  #screen;
  #fit = new FitAddon();
  #place;
  #cursorStrings = new CursorStrings();
  #line;
  #on;
  #startColumn = 0; // where the typed line begins
  #drawnCursor = 0; // as on screen
  #openLine = ""; // the end of the session's text, while no line was taken behind it
  #placedRow = -1; // that a cursor string put the open line on
  #isBreakDue = false; // what is shown next begins a line, unless it has a place of its own
  #pending = 0; // writes that the screen has not finished
  #isDrawn = false;

  // `on` has onLine(text), whyNot(text), which tells why a line can't be entered or is empty, onInterrupt(),
  // which tells whether it could, onRefusal(text), and onPaste(count, goOn), which calls goOn if that many lines
  // are to be entered.
  constructor(place, history, on) {
    this.#place = place;
    this.#line = new LineEditor(history);
    this.#on = on;
    this.#screen = new Screen({
      cursorBlink: false,
      fontFamily: '"DejaVu Sans Mono", "Cascadia Mono", Menlo, Consolas, monospace',
      fontSize: 15,
      lineHeight: 1.15,
      scrollback: 20000,
      scrollOnEraseInDisplay: true, // a cleared screen can be scrolled back to
      screenReaderMode: true,
      theme: coloursOf(place),
    });
    this.#screen.loadAddon(this.#fit);
    this.#screen.open(place);
    this.#swallowReports();
    this.#screen.attachCustomKeyEventHandler((event) => this.#isForScreen(event));
    this.#screen.onData((data) => this.#take(data));
    place.addEventListener("paste", (event) => this.#paste(event), /*capture=*/ true);
    new ResizeObserver(() => this.fit()).observe(place);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      this.#screen.options.theme = coloursOf(place);
    });
    this.fit();
  }

  get history() {
    return this.#line.history;
  }

  get cursorStrings() {
    return this.#cursorStrings;
  }

  show(text) {
    const lineBreak = this.#lineBreakBefore(text);
    const lineStart = text.lastIndexOf("\n") + 1;
    const openLine = (lineStart > 0 ? "" : this.#openLine) + text.slice(lineStart);
    this.#openLine = this.#cursorStrings.without(openLine).slice(-kOpenLineLength);
    this.#placedRow = this.#cursorStrings.rowAtEnd(text, this.#placedRow);
    this.#write(this.#erasure() + lineBreak + this.#cursorStrings.obeyed(text));
  }

  // A line of the page's own, set off from the session's text; a prompt moves below it.
  note(text) {
    const isInLine = this.#screen.buffer.active.cursorX > 0 || this.#pending > 0 || this.#isBreakDue;
    this.#isBreakDue = false;
    const start = this.#openLine ? "\r\x1B[K" : isInLine ? "\r\n" : "";
    const note = `\x1B[2m-- ${safeScreenText(text)}\x1B[22m\r\n`;
    this.#write(this.#erasure() + start + note + safeScreenText(this.#openLine));
  }

  // The session has taken a line: it waits at what it printed no longer.
  lineTaken() {
    this.#openLine = "";
  }

  // The echo of a line that was entered before this page was loaded.
  echo(line) {
    const lineBreak = this.#lineBreakBefore(line);
    this.#write(`${this.#erasure()}${lineBreak}${safeScreenText(line)}${this.#lineEnd()}`);
  }

  clear() {
    this.#line.clear();
    this.#openLine = "";
    this.#placedRow = -1;
    this.#isDrawn = this.#isBreakDue = false;
    this.#screen.reset();
    this.#startColumn = 0;
  }

  focus() {
    this.#screen.focus();
  }

  fit() {
    if (this.#place.clientWidth === 0) return;
    const size = this.#fit.proposeDimensions();
    if (!size || Number.isNaN(size.cols)) return;
    if (size.cols === this.#screen.cols && size.rows === this.#screen.rows) return;
    this.#write(this.#erasure(), () => this.#fit.fit());
  }

  // --- The screen ---

  #write(text, then = () => {}) {
    this.#pending++;
    this.#screen.write(text, () => {
      then();
      if (--this.#pending > 0) return;
      this.#startColumn = this.#screen.buffer.active.cursorX;
      this.#drawnCursor = 0;
      if (this.#line.text !== "") this.#draw();
    });
  }

  #swallowReports() {
    const swallow = () => true;
    const parser = this.#screen.parser;
    for (const final of ["c", "n", "x", "t"]) {
      for (const prefix of [undefined, "?", ">", "="]) parser.registerCsiHandler({ prefix, final }, swallow);
    }
    parser.registerCsiHandler({ prefix: "?", intermediates: "$", final: "p" }, swallow);
    parser.registerDcsHandler({ intermediates: "$", final: "q" }, swallow);
    for (const command of [4, 10, 11, 12, 52]) parser.registerOscHandler(command, swallow);
  }

  // The control sequence from one place in the typed line to another.
  #movement(from, to) {
    const width = this.#screen.cols;
    const rowOf = (cursor) => Math.floor((this.#startColumn + cursor) / width);
    const columnOf = (cursor) => (this.#startColumn + cursor) % width;
    const rows = rowOf(to) - rowOf(from);
    const vertical = rows < 0 ? `\x1B[${-rows}A` : rows > 0 ? `\x1B[${rows}B` : "";
    return `${vertical}\r${columnOf(to) > 0 ? `\x1B[${columnOf(to)}C` : ""}`;
  }

  // Takes the typed line off the screen.
  #erasure() {
    if (!this.#isDrawn) return "";
    this.#isDrawn = false;
    return `${this.#movement(this.#drawnCursor, 0)}\x1B[J`;
  }

  #draw() {
    const { text, cursor } = this.#line;
    const isAtEdge = (this.#startColumn + text.length) % this.#screen.cols === 0 && text !== "";
    const toStart = this.#isDrawn ? this.#movement(this.#drawnCursor, 0) : "";
    const drawn = `${toStart}\x1B[J${safeScreenText(text)}${isAtEdge ? "\r\n" : ""}`;
    this.#screen.write(drawn + this.#movement(text.length, cursor));
    this.#drawnCursor = cursor;
    this.#isDrawn = true;
  }

  #redraw() {
    if (this.#pending === 0) this.#draw();
  }

  // --- The keys ---

  // False: the browser keeps the key. Tab leaves the terminal; Ctrl-C copies where something is selected.
  #isForScreen(event) {
    if (event.key === "Tab") return false;
    const control = event.ctrlKey || event.metaKey;
    const key = event.key.toLowerCase();
    if (control && key === "v") return false;
    if (control && key === "c" && (event.shiftKey || this.#screen.hasSelection())) {
      if (event.type === "keydown") this.#copy();
      event.preventDefault();
      return false;
    }
    if (event.type === "keydown" && (event.key === "PageUp" || event.key === "PageDown")) {
      const lines = Math.max(1, this.#screen.rows - kPageLines);
      this.#screen.scrollLines(event.key === "PageUp" ? -lines : lines);
      return false;
    }
    return true;
  }

  #copy() {
    document.execCommand("copy");
    this.#screen.clearSelection();
  }

  #take(data) {
    if (data === kEnter) return this.#enter();
    if (data === kInterrupt) return this.#interrupt();
    if (data === kClearScreen) return this.#screen.clear();
    const edit = Object.hasOwn(kEditorKeys, data) ? kEditorKeys[data] : null;
    if (edit) {
      edit(this.#line);
      return this.#redraw();
    }
    // The rest isn't typing: keys without a meaning here, and reports.
    if (!/[\u0000-\u001F\u007F-\u009F]/.test(data)) this.#insert(data);
  }

  #insert(text) {
    const foreign = foreignCharacter(text);
    if (foreign) return this.#on.onRefusal(foreignCharacterText(foreign));
    this.#line.insert(text);
    this.#redraw();
  }

  // A line that can't be entered stays, and false is returned.
  #enter() {
    const reason = this.#on.whyNot(this.#line.text);
    if (reason) {
      this.#on.onRefusal(reason);
      return false;
    }
    const erasure = this.#erasure();
    const line = this.#line.enter();
    this.#isBreakDue = false;
    this.#write(`${erasure}${safeScreenText(line)}${this.#lineEnd()}`);
    this.#on.onLine(line);
    return true;
  }

  // Ends the line that was entered. At the foot of a screen that is addressed by rows nothing scrolls before it
  // has to.
  #lineEnd() {
    this.#isBreakDue = this.#placedRow >= this.#screen.rows - 1;
    this.#placedRow = -1;
    return this.#isBreakDue ? "\r" : "\r\n";
  }

  #lineBreakBefore(text) {
    const isDue = this.#isBreakDue && !text.startsWith("\r\n") && !this.#cursorStrings.begins(text);
    this.#isBreakDue = false;
    return isDue ? "\r\n" : "";
  }

  #interrupt() {
    if (!this.#on.onInterrupt()) return;
    const erasure = this.#erasure();
    const line = this.#line.text;
    this.#line.clear();
    this.#isBreakDue = true;
    this.#write(`${erasure}${safeScreenText(line)}^C`);
  }

  // Several lines are entered one after another, once the user agrees; the last stays to be edited.
  #paste(event) {
    event.preventDefault();
    event.stopPropagation();
    const text = event.clipboardData?.getData("text/plain") ?? "";
    const lines = text.split(/\r\n|\r|\n/).map((line) => line.replace(/[\u0000-\u001F\u007F]/g, " "));
    const reason = lines.map((line) => this.#on.whyNot(line)).find(Boolean);
    if (reason) return this.#on.onRefusal(reason);
    const last = lines.pop();
    const enterAll = () => {
      for (const line of lines) {
        this.#insert(line);
        if (!this.#enter()) return;
      }
      this.#insert(last);
      this.focus();
    };
    if (lines.length === 0) enterAll();
    else this.#on.onPaste(lines.length, enterAll);
  }
}
