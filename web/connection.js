// The WebSocket to the session: numbered lines out, numbered messages in, and the way back after a loss.
//
// (1) A line is kept until the session has taken it or the server says that it has it; after a loss the rest
//     goes out again, and the server drops what it knows.
// (2) Each A, E and K message counts one. When the server can't go on behind the last one counted, the page
//     is emptied first and everything comes again.
// (3) An X message is the end: nobody reconnects after it, except for "unknown", which begins a new session.

const kFirstDelayMs = 500;
const kLongestDelayMs = 15000;
const kTries = 3; // failures to get through before the log-in is looked at

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
  #oldLines = 0; // numbers up to this one are of an earlier load of the page
  #unsure = new Map(); // number -> line, in order
  #delayMs = kFirstDelayMs;
  #failures = 0;
  #timer = null;

  // `open` makes a socket. `on` has onOutput(kind, text), onTaken(number, isOwn), onReset(), onAccount(name),
  // onCursorWord(word), onState(word, reason) with "connecting", "ready", "lost", "over", onNew(linesLost) and onFailing().
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

  interrupt() {
    if (this.#isReady) this.#socket.send("I");
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
    socket.onopen = () => socket.send(this.#token ? `R${this.#token} ${this.#seen}` : "N");
    socket.onmessage = (event) => {
      if (socket === this.#socket) this.#take(event.data);
    };
    socket.onclose = () => {
      if (socket === this.#socket) this.#lose();
    };
  }

  #take(message) {
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
      case "X":
        return this.#end(rest);
      default:
        console.warn("A message of unknown kind was passed over:", message.slice(0, 80));
    }
  }

  #begin(rest) {
    const [, token, cursorWord, received, next, account] = /^(\S+) (\S+) (\d+) (\d+) ?(.*)$/s.exec(rest);
    const isNew = this.#token === "";
    const linesLost = isNew ? [...this.#unsure.values()] : [];
    if (isNew) {
      this.#oldLines = this.#lineNumber = 0;
      this.#unsure.clear();
    }
    this.#token = token;
    if (isNew || Number(next) !== this.#seen + 1) {
      this.#seen = Number(next) - 1;
      this.#on.onReset();
    }
    for (const number of this.#unsure.keys()) if (number <= Number(received)) this.#unsure.delete(number);
    this.#lineNumber = Math.max(this.#lineNumber, Number(received));
    this.#isReady = true;
    this.#failures = 0;
    this.#delayMs = kFirstDelayMs;
    this.#on.onCursorWord(cursorWord);
    this.#on.onAccount(account);
    this.#on.onState("ready");
    if (isNew) this.#on.onNew(linesLost);
    for (const [number, line] of this.#unsure) this.#sendNumbered(number, line);
  }

  #noteTaken(number) {
    const isUnsure = this.#unsure.delete(number);
    this.#on.onTaken(number, isUnsure && number > this.#oldLines);
  }

  #sendNumbered(number, line) {
    this.#socket.send(`L${number} ${line}`);
  }

  #end(reason) {
    this.#isReady = false;
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
    if (this.#isOver) return;
    if (++this.#failures % kTries === 0) this.#on.onFailing();
    this.#on.onState("lost");
    this.#timer = this.#wait(() => this.#connect(), this.#delayMs);
    this.#delayMs = Math.min(this.#delayMs * 2, kLongestDelayMs);
  }
}
