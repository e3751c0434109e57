// The WebSocket to the session: numbered lines out, numbered messages in, and the way back after a loss.
//
// (1) A line is kept until the session has taken it or the server says that it has it; after a loss the rest
//     goes out again, and the server drops what it knows.
// (2) Each A, E and K message counts one. When the server can't go on behind the last one counted, the page
//     is emptied first and everything comes again.
// (3) Lines that the server can't take (it closes with a code that says so) are dropped, as those of a session
//     that is gone; the page is told of both.
// (4) A server that has been silent for longer than it may be is taken for lost.
// (5) An X message is the end: nobody reconnects after it, except for "unknown", which begins a new session.

const kFirstDelayMs = 500;
const kLongestDelayMs = 15000;
const kSilenceMs = 60_000;
const kTries = 3; // failures in a row until the log-in is looked at, from then on with each
const kRefusals = [1002, 1003, 1007, 1009]; // closing codes

const utf8 = new TextEncoder();

export class Connection {
  #open;
  #on;
  #wait;
  #socket = null;
  #isReady = false;
  #isOver = false;
  #token = "";
  #seen = 0;
  #lineNumber = 0;
  #oldLines = 0; // what was sent up to this number answered what this page doesn't show any more
  #unsure = new Map(); // number -> line, in order
  #delayMs = kFirstDelayMs;
  #failures = 0;
  #timer = null;
  #silence = null;
  #limit = Infinity;
  #isRefused = false;

  // `open` makes a socket. `on` has onOutput(kind, text), onTaken(number, isOwn), onReset(), onAccount(name),
  // onCursorWord(word), onState(word, reason) with "connecting", "ready", "lost", "over", onNew(),
  // onDropped(lines), pairs of number and line, and onFailing().
  constructor({ open, on, wait = setTimeout.bind(globalThis) }) {
    this.#open = open;
    this.#on = on;
    this.#wait = wait;
  }

  get token() {
    return this.#token;
  }

  get isOver() {
    return this.#isOver;
  }

  // The most bytes that a line may have, in UTF-8.
  get limit() {
    return this.#limit;
  }

  fits(text) {
    return utf8.encode(text).length <= this.#limit;
  }

  // Lines that the server may not have, as pairs of number and line.
  get unsureLines() {
    return [...this.#unsure];
  }

  // Begins a session, or goes on with that of `token`, of which nothing has been seen, and with the lines that
  // an earlier load of the page wasn't sure of.
  start(token = "", unsureLines = []) {
    this.#token = token;
    this.#seen = 0;
    this.#unsure = new Map(unsureLines);
    this.#oldLines = this.#lineNumber = unsureLines.at(-1)?.[0] ?? 0;
    this.#isOver = false;
    this.#connect();
  }

  // Sends a line, at once or as soon as there is a connection, and returns its number.
  sendLine(text) {
    const number = ++this.#lineNumber;
    const line = text.replace(/[\r\n]+/g, " ");
    this.#unsure.set(number, line);
    if (this.#isReady) this.#sendNumbered(number, line);
    return number;
  }

  // False: nobody is there to be told.
  interrupt() {
    if (this.#isReady) this.#socket.send("I");
    return this.#isReady;
  }

  // Doesn't wait any longer for the next try.
  retryNow() {
    if (this.#timer === null || this.#isOver) return;
    clearTimeout(this.#timer);
    this.#connect();
  }

  #connect() {
    this.#timer = null;
    this.#on.onState("connecting");
    const socket = this.#open();
    this.#socket = socket;
    this.#noteLife();
    socket.onopen = () => socket.send(this.#token ? `R${this.#token} ${this.#seen}` : "N");
    socket.onmessage = (event) => {
      if (socket === this.#socket) this.#take(event.data);
    };
    socket.onclose = ({ code }) => {
      if (socket !== this.#socket) return;
      this.#isRefused ||= kRefusals.includes(code);
      this.#lose();
    };
  }

  #noteLife() {
    clearTimeout(this.#silence);
    const socket = this.#socket;
    this.#silence = this.#wait(() => {
      if (socket !== this.#socket) return;
      this.#lose();
      socket.close();
    }, kSilenceMs);
  }

  #take(message) {
    this.#noteLife();
    const rest = message.slice(1);
    switch (message[0]) {
      case "S":
        return this.#begin(rest);
      case "A":
      case "E":
        this.#seen++;
        return this.#on.onOutput(message[0], rest);
      case "K":
        this.#seen++;
        return this.#noteTaken(Number(rest));
      case "T":
        return this.#on.onAccount(rest);
      case "P":
        return;
      case "X":
        return this.#end(rest);
      default:
        console.warn("A message of unknown kind was passed over:", message.slice(0, 80));
    }
  }

  #begin(rest) {
    const [, token, cursorWord, limit, received, next, account] =
      /^(\S+) (\S+) (\d+) (\d+) (\d+) ?(.*)$/s.exec(rest);
    const isNew = this.#token === "";
    const linesDropped = this.#settleLines(Number(received), isNew || this.#isRefused);
    this.#isRefused = false;
    this.#token = token;
    this.#limit = Number(limit);
    if (this.#seen === 0 || Number(next) !== this.#seen + 1) {
      this.#seen = Number(next) - 1;
      this.#oldLines = this.#lineNumber;
      this.#on.onReset();
    }
    this.#isReady = true;
    this.#failures = 0;
    this.#delayMs = kFirstDelayMs;
    this.#on.onCursorWord(cursorWord);
    this.#on.onAccount(account);
    this.#on.onState("ready");
    if (isNew) this.#on.onNew();
    if (linesDropped.length > 0) this.#on.onDropped(linesDropped);
    for (const [number, line] of this.#unsure) this.#sendNumbered(number, line);
  }

  // The server has the lines up to `received`. The lines behind go again, or are dropped and returned.
  #settleLines(received, drops) {
    for (const number of this.#unsure.keys()) if (number <= received) this.#unsure.delete(number);
    this.#lineNumber = drops ? received : Math.max(this.#lineNumber, received);
    this.#oldLines = Math.min(this.#oldLines, this.#lineNumber);
    if (!drops) return [];
    const dropped = [...this.#unsure];
    this.#unsure.clear();
    return dropped;
  }

  #noteTaken(number) {
    this.#unsure.delete(number);
    this.#on.onTaken(number, number > this.#oldLines);
  }

  #sendNumbered(number, line) {
    this.#socket.send(`L${number} ${line}`);
  }

  #end(reason) {
    this.#isReady = false;
    clearTimeout(this.#silence);
    this.#socket.close();
    this.#socket = null;
    if (reason === "unknown") {
      this.#token = "";
      this.#seen = 0;
      return this.#connect();
    }
    this.#isOver = true;
    this.#token = "";
    this.#unsure.clear();
    this.#on.onState("over", reason);
  }

  #lose() {
    this.#isReady = false;
    this.#socket = null;
    clearTimeout(this.#silence);
    if (this.#isOver) return;
    if (++this.#failures >= kTries) this.#on.onFailing();
    this.#on.onState("lost");
    this.#timer = this.#wait(() => this.#connect(), this.#delayMs);
    this.#delayMs = Math.min(this.#delayMs * 2, kLongestDelayMs);
  }
}
