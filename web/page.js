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
import { allowStyleElements } from "./nonce.js";
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

const kStateTexts = { connecting: "connecting …", ready: "connected", lost: "reconnecting …", over: "ended" };
const kEndTexts = {
  moved: "This session goes on in another tab.",
  off: "The session has ended.",
};

const byId = (id) => document.getElementById(id);
const place = { form: byId("doc1"), terminal: byId("terminal"), status: byId("status"), over: byId("over") };

allowStyleElements(document);

// --- What outlives a reload of this tab ---

// Taken out at once, so that a copy of the tab doesn't find it; put back when the page goes.
const kept = JSON.parse(sessionStorage.getItem(kKeptKey) ?? "{}");
sessionStorage.removeItem(kKeptKey);
// Number -> {line, isTyped}: typed at the terminal, or a reply.
const sentLines = new Map(kept.sentLines ?? []);
const kMostSentLines = 500;

addEventListener("pagehide", () => {
  const state = {
    token: connection.token,
    unsureLines: connection.unsureLines,
    sentLines: [...sentLines],
    history: terminal.history,
  };
  sessionStorage.setItem(kKeptKey, JSON.stringify(state));
});

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

const terminal = new Terminal(place.terminal, kept.history ?? [], {
  onLine(line) {
    if (connection.isOver) return terminal.note("Not sent: the session has ended");
    echoed.add(sendLine(line, /*isTyped=*/ true));
  },
  onInterrupt: () => connection.interrupt(),
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
    onNew(linesLost) {
      sentLines.clear();
      echoed.clear();
      if (hadSession) terminal.note("The old session is gone. This is a new one");
      for (const line of linesLost) terminal.note(`Not sent: ${line}`);
      hadSession = true;
    },
    onFailing: askWhetherLoggedIn,
  },
});

function sendLine(line, isTyped) {
  const number = connection.sendLine(line);
  sentLines.set(number, { line, isTyped });
  sentLines.delete(number - kMostSentLines);
  return number;
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
    const value = valueOf(control);
    const foreign = foreignCharacter(value);
    if (foreign) {
      form?.setFate(control, "foreign", "not sent: a character is not in the code page");
      return tellStatus(foreignCharacterText(foreign));
    }
    const reply = { line: `${control.dataset.id}|${value}`, isPress, name };
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

place.form.addEventListener("keydown", (event) => {
  if (event.key !== "Escape" || !result || event.defaultPrevented) return;
  place.form.querySelector(".toolbar button")?.click();
});

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
  endPages();
  byId("over-text").textContent = kEndTexts[reason] ?? (reason || "The session has ended.");
  byId("again").focus();
}

// The server turns a socket away without saying why; its start page says whether the log-in still holds.
async function askWhetherLoggedIn() {
  const answer = await fetch("/", { cache: "no-store" }).catch(() => null);
  if (!answer || !(await answer.text()).includes('action="/login"')) return;
  tellStatus("You are logged out.");
  location.reload();
}

byId("again").addEventListener("click", () => {
  sentLines.clear();
  echoed.clear();
  terminal.clear();
  hadSession = false;
  connection.start();
  terminal.focus();
});
addEventListener("online", () => connection.retryNow());
document.addEventListener("visibilitychange", () => {
  if (!document.hidden) connection.retryNow();
});
if (byId("user").textContent.startsWith("{{")) byId("user").textContent = "";

showAccount("");
connection.start(kept.token ?? "", kept.unsureLines);
terminal.focus();
