// The page: wires connection, frames, exchange, terminal, forms and result pages together, and keeps what a
// reload needs. What is on screen is either the terminal or, while forms and pages last, the element doc1.

import { Boxes } from "./boxes.js";
import { buildForm, buildResult } from "./build.js";
import { Connection } from "./connection.js";
import { csvFileName, csvOfTable } from "./csv.js";
import { Exchange } from "./exchange.js";
import { Form, valueOf } from "./form.js";
import { FrameReader } from "./frames.js";
import { cutMarkup } from "./markup.js";
import { allowStyles } from "./nonce.js";
import { foreignCharacter, foreignCharacterText } from "./screentext.js";
import { Terminal } from "./terminal.js";

const kHandshakeAnswer = "";
const kBoxClosed = "ax1|<ok>";
const kYes = "Y";
const kNo = "ax2|<no>";
const kFileReply = "fx1|<file>";
const kCounter = /^\s*\d+ \/ \d+\s*$/;
const kReplayMs = 2000; // after going on with a session: what comes may have been answered before
const kReplayAnswerMs = 500;
const kKeptKey = "nvadmin-session";
const kLogInPath = "/?ended";

const kStateTexts = { connecting: "connecting …", ready: "connected", lost: "reconnecting …", over: "ended" };
const kLoggedOut = "You have logged out.";
const kEndTexts = {
  moved: "This session goes on in another tab.",
  off: "The session has ended.",
  "the server ends":
    "The server has ended, and the session with it. Once the server runs again, you can log in again.",
  "no line came in time": "Nothing was entered for a long time, so the session has ended.",
  "the page didn't come back": "The page was away for too long, so the session has ended.",
};
const kStopMs = 2000; // of waiting until the page says so, and work can be stopped
const kNotConnected = "There is no connection at the moment, so nothing was stopped.";
const kNotedLength = 200; // of a line that is named

const byId = (id) => document.getElementById(id);
const place = {
  form: byId("doc1"),
  terminal: byId("terminal"),
  status: byId("status"),
  over: byId("over"),
  working: byId("working"),
  stop: byId("stop"),
};

allowStyles(document);

// --- What outlives a reload of this tab ---

const user = byId("user").textContent;
let isLeaving = false;
let isLoggedOut = false;

const kept = takeKept();
// Number -> {line, isTyped}: typed at the terminal, or a reply.
const sentLines = new Map(kept.sentLines ?? []);
const kMostSentLines = 500;

// Taken out at once, so that a copy of the tab doesn't find it; put back when the page goes, or while it isn't
// seen, since it may go without a word then. A copy of a tab that isn't seen is told by its not being loaded
// again.
function takeKept() {
  const state = JSON.parse(sessionStorage.getItem(kKeptKey) ?? "{}");
  sessionStorage.removeItem(kKeptKey);
  const isReload = performance.getEntriesByType("navigation")[0]?.type === "reload" || document.wasDiscarded;
  return state.user === user && (state.isLeaving || isReload) ? state : {};
}

// A browser keeps some megabytes for a tab. Where long lines are more than that, the session comes first.
function keep() {
  if (isLoggedOut) return;
  const session = { user, isLeaving, token: connection.token };
  const onItsWay = { ...session, unsureLines: connection.unsureLines };
  const all = { ...onItsWay, sentLines: [...sentLines], history: terminal.history };
  [all, onItsWay, session].some(isStored);
}

function isStored(state) {
  try {
    sessionStorage.setItem(kKeptKey, JSON.stringify(state));
    return true;
  } catch {
    return false;
  }
}

addEventListener("pagehide", () => {
  isLeaving = true;
  keep();
});

document.addEventListener("visibilitychange", () => {
  if (document.hidden) return keep();
  sessionStorage.removeItem(kKeptKey);
  connection.retryNow();
});

// What the user did here is nobody's after a log-out.
function forget() {
  isLoggedOut = true;
  sessionStorage.removeItem(kKeptKey);
}

byId("log-out").addEventListener("submit", forget);

addEventListener("pageshow", (event) => {
  if (event.persisted) location.reload();
});

// --- Parts ---

const frames = new FrameReader();
const boxes = new Boxes(byId("box"));
const echoed = new Set(); // numbers of lines that stand on the terminal already
let form = null;
let result = null;
let replayUntil = 0;
let replayTimer = null;
let hadSession = false;
let stopTimer = null;
let focusBeforeStop = null;

const terminal = new Terminal(place.terminal, kept.history ?? [], {
  onLine(line) {
    echoed.add(sendLine(line, /*isTyped=*/ true));
  },
  whyNot: (line) => (connection.isOver ? "Not sent: the session has ended." : whyNot(line)),
  onInterrupt: () => interrupt(),
  onRefusal: (text) => tellStatus(text),
  onPaste: (count, goOn) =>
    boxes.ask(`Enter the ${count} pasted ${count === 1 ? "line" : "lines"} now?`, (isYes) => {
      terminal.focus();
      if (isYes) goOn();
    }),
});

const connection = new Connection({
  open() {
    const scheme = location.protocol === "https:" ? "wss:" : "ws:";
    return new WebSocket(`${scheme}//${location.host}/session`);
  },
  on: {
    onOutput(kind, text) {
      const events = kind === "E" ? [{ kind: "text", text }] : frames.take(text);
      for (const event of events) act(event);
    },
    // A line that this page didn't send, or sent before a reload, comes with a replay: it answered what is shown.
    onTaken(number, isOwn) {
      exchange.taken(number);
      terminal.lineTaken();
      const sent = sentLines.get(number);
      if (sent?.isTyped && !echoed.has(number)) terminal.echo(sent.line);
      if (isOwn) return;
      clearTimeout(replayTimer);
      exchange.end();
      if (boxes.isOpen) boxes.discard();
      if (sent && !sent.isTyped) form?.restore(sent.line);
    },
    onReset() {
      frames.reset();
      echoed.clear();
      terminal.clear();
      endPages();
    },
    onAccount: showAccount,
    onCursorWord: (word) => (terminal.cursorStrings.word = word),
    onState: showState,
    onNew() {
      sentLines.clear();
      echoed.clear();
      if (hadSession) terminal.note("The old session is gone. This is a new one");
      hadSession = true;
    },
    onDropped(lines) {
      for (const [number, line] of lines) {
        sentLines.delete(number);
        echoed.delete(number);
        exchange.lost(number);
        terminal.note(`Not sent: ${line.length > kNotedLength ? `${line.slice(0, kNotedLength)} …` : line}`);
      }
    },
    onFailing: leaveIfLoggedOut,
  },
});

function sendLine(line, isTyped) {
  const number = connection.sendLine(line);
  sentLines.set(number, { line, isTyped });
  sentLines.delete(number - kMostSentLines);
  return number;
}

function interrupt() {
  const isSent = connection.interrupt();
  if (!isSent) tellStatus(kNotConnected);
  return isSent;
}

// Why a text can't be sent; empty where it can.
function whyNot(text) {
  const foreign = foreignCharacter(text);
  if (foreign) return foreignCharacterText(foreign);
  if (connection.fits(text)) return "";
  const most = `the ${connection.limit} bytes that the server takes in a line`;
  return `Not sent: “${text.slice(0, 20)} …” is longer than ${most}.`;
}

const exchange = new Exchange({
  send: (line) => sendLine(line, /*isTyped=*/ false),
  onDrop(reply) {
    if (reply.control) form?.setFate(reply.control, "dropped");
    if (reply.isPress) tellStatus(`“${reply.name}” was not sent: see the message, then press it again.`);
  },
  onFate(reply, word) {
    if (!reply.control) return;
    if (word === "answered") form?.settle(reply.control);
    else form?.setFate(reply.control, word);
  },
  onWaiting(isWaiting) {
    clearTimeout(stopTimer);
    if (isWaiting) stopTimer = setTimeout(() => (place.working.hidden = false), kStopMs);
    else hideStop();
  },
});

// --- What comes from the session ---

const kActs = {
  text: ({ text }) => showText(text),
  progress: ({ text }) => showProgress(text),
  terminal: () => endPages(),
  handshake: () => answerHandshake(),
  show: ({ markup }) => showMarkup(markup),
  value: ({ id, text }) => form?.value(id, text),
  valid: ({ id, text }) => form?.valid(id, text),
  reject: ({ id }) => form?.reject(id),
  focus: ({ id }) => boxes.whenClosed(() => form?.focus(id)),
  box: ({ text }) => showBox(text),
  question: ({ text }) => showQuestion(text),
  stray: ({ text }) => showStray(text),
  frameEnd: () => exchange.frameEnded(),
};

function act(event) {
  kActs[event.kind](event);
}

function showText(text) {
  terminal.show(text);
  const plain = terminal.cursorStrings.without(text).trim();
  if (plain !== "") tellStatus(place.form.hidden ? "" : plain);
}

// What has a place on the screen is seen there; a bare counter changes in the status line.
function showProgress(text) {
  const plain = terminal.cursorStrings.without(text);
  const isPlaced = plain !== text;
  if (isPlaced || !(kCounter.test(plain) || plain.trim() === "")) terminal.show(`${text}\r\n`);
  tellStatus(isPlaced && place.form.hidden ? "" : plain.trim());
}

function answerHandshake() {
  const isReplay = Date.now() < replayUntil;
  const answer = () => sendLine(kHandshakeAnswer, /*isTyped=*/ false);
  if (isReplay) replayTimer = setTimeout(answer, kReplayAnswerMs);
  else answer();
}

function showStray(text) {
  console.warn("A frame with no known word:", text);
  tellStatus(text);
}

function showBox(text) {
  exchange.box();
  boxes.tell(text, () => exchange.reply({ line: kBoxClosed, isPress: false }));
}

function showQuestion(text) {
  exchange.question();
  boxes.ask(text, (isYes) => exchange.answer(isYes ? kYes : kNo));
}

function showMarkup(markup) {
  exchange.show();
  const token = cutMarkup(markup);
  const isForm = token.kind === "form";
  result = isForm ? null : token;
  const root = isForm ? buildForm(token, actions) : buildResult(token, actions);
  place.form.replaceChildren(root);
  form = isForm ? new Form(root, (control) => actions.EProcess(control, /*isPress=*/ false)) : null;
  place.form.hidden = false;
  place.terminal.hidden = true;
  tellStatus("");
  place.form.scrollTo(0, 0);
  boxes.whenClosed(() => (isForm ? form?.focusFirst() : place.form.focus()));
}

function endPages() {
  boxes.discard();
  exchange.end();
  form = result = null;
  place.form.replaceChildren();
  place.form.hidden = true;
  place.terminal.hidden = false;
  tellStatus("");
  terminal.fit();
  terminal.focus();
}

// --- What the user does ---

const actions = {
  EProcess(control, isPress) {
    const name = control.textContent;
    const line = `${control.dataset.id}|${valueOf(control)}`;
    const reason = whyNot(line);
    if (reason) {
      form?.setFate(control, "refused");
      return tellStatus(reason);
    }
    const reply = { line, isPress, name };
    exchange.reply(isPress ? reply : { ...reply, control });
  },
  ExecuteA(argument) {
    if (argument === kFileReply && result?.table) saveTable(result);
    exchange.reply({ line: argument, isPress: true, name: "File dump" });
  },
  HighLink: (control) => control.classList.add("high"),
  NormalLink: (control) => control.classList.remove("high"),
  // A change still in a field goes out before the button can be pressed.
  XFocus(control) {
    if (form?.hasUnsentChange(document.activeElement)) control.focus();
  },
  "window.print": () => window.print(),
};

function saveTable({ table, sentence }) {
  const name = csvFileName(sentence, new Date());
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([csvOfTable(table)], { type: "text/csv;charset=utf-8" }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
  terminal.note(`Saved as ${name} in your browser's downloads`);
}

document.addEventListener("keydown", (event) => {
  if (event.key !== "Escape" || !result || event.defaultPrevented) return;
  place.form.querySelector(".toolbar button")?.click();
});

place.stop.addEventListener("focus", ({ relatedTarget }) => (focusBeforeStop = relatedTarget));
place.stop.addEventListener("click", () => interrupt());

function hideStop() {
  if (document.activeElement === place.stop) (focusBeforeStop ?? place.form).focus();
  place.working.hidden = true;
}

// --- Header and status ---

function tellStatus(text) {
  place.status.textContent = text;
}

function showAccount(name) {
  byId("account").textContent = name;
  document.title = name ? `${name} - NvAdmin` : "NvAdmin";
}

function showState(word, reason = "") {
  const state = byId("state");
  state.dataset.state = word;
  state.textContent = kStateTexts[word];
  place.over.hidden = word !== "over";
  if (word === "ready") replayUntil = Date.now() + (kept.token && !hadSession ? kReplayMs : 0);
  if (word === "ready") hadSession ||= Boolean(kept.token);
  if (word !== "over") return;
  if (reason === kLoggedOut) return leaveForLogIn();
  endPages();
  byId("over-text").textContent = kEndTexts[reason] ?? (reason || "The session has ended.");
  byId("again").focus();
}

// Somewhere the log-out was pressed; if here, the log-in page comes by itself.
function leaveForLogIn() {
  if (isLoggedOut) return;
  forget();
  location.replace(kLogInPath);
}

// The server turns a socket away without saying why; its start page says whether the log-in still holds. What was
// done is kept for the same user.
async function leaveIfLoggedOut() {
  const answer = fetch("/", { cache: "no-store" }).then((page) => page.text());
  const isLogIn = (await answer.catch(() => "")).includes('action="/login"');
  if (isLogIn) location.replace(kLogInPath);
  return isLogIn;
}

byId("again").addEventListener("click", async () => {
  if (await leaveIfLoggedOut()) return;
  sentLines.clear();
  echoed.clear();
  terminal.clear();
  hadSession = false;
  connection.start();
  terminal.focus();
});
addEventListener("online", () => connection.retryNow());
showAccount("");
connection.start(kept.token ?? "", kept.unsureLines);
terminal.focus();
