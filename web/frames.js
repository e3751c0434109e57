// Cuts what the add-in prints into terminal text, frames and their words. Pure: messages in, events out.
//
// One message is one piece of printed text, and that is what makes item text harmless:
// (1) A frame opens at a message that begins "<TX>" and closes at one that ends in "</TX>" and begins as
//     closing messages do; item text that ends in "</TX>" stands behind "VALID|" or "VALUE|" and closes
//     nothing.
// (2) The free text of a word runs to the end of its message; behind that of VALUE and MSGBOX words without
//     text may stand. So an item ID that holds "^MSGBOX|" stays an item ID.
// (3) A page that comes whole is one word.
// Words act when their frame closes; a question and what stands before it act at its line end.
//
// Events: {kind: "text", text}, {kind: "progress", text}, {kind: "terminal"}, {kind: "handshake"},
// {kind: "show", markup}, {kind: "value", id, text}, {kind: "valid", id, text}, {kind: "reject", id},
// {kind: "focus", id}, {kind: "box", text}, {kind: "question", text}, {kind: "stray", text},
// {kind: "frameEnd"}. The text of "value" and "valid" is null where the word has none.

const kOpen = "<TX>";
const kClose = /<\/TX>(?:\r\n)?$/;
const kClosingMessage = /^(?:<\/?TX>|MSGBOX\|)/;
const kTerminal = "<TERMINAL>";
const kProgress = /<AUTORX>(?:\r\n)?$/;
const kLineEnd = /\r\n$/;
const kFormEnd = "</input>";
const kQuestionEnd = "\\vbYesNo";

const kWord = /\^?(IREPLACE\|doc1=|(?:VALUE|VALID|REJECT|FOCUS|MSGBOX)\|)/y;
const kField = /([^=^|]*)(=?)/y;
// A word without text, at the end of a message: it ends the free text before it.
const kLastWord = /\^(?:VALID|REJECT|FOCUS|VALUE)\|[a-z]x\d=?$/;
const kLastWordLength = "^REJECT|fx1=".length;

function endOfFreeText(text, from) {
  const messageEnd = text.endsWith("\r\n") ? text.length - 2 : text.length;
  let end = messageEnd;
  for (;;) {
    const last = kLastWord.exec(text.slice(Math.max(from, end - kLastWordLength), end));
    if (!last) return end < messageEnd ? end : text.length;
    end -= last[0].length;
  }
}

function endOfMarkup(text, from) {
  const last = text.lastIndexOf(kFormEnd);
  return last < from ? text.length : last + kFormEnd.length;
}

// The words of one message of a frame: {words, rest}. `rest` is text before the first word.
export function cutWords(text) {
  const words = [];
  let at = 0;
  while (at < text.length) {
    kWord.lastIndex = at;
    const found = kWord.exec(text);
    if (!found) break;
    const name = found[1].slice(0, found[1].indexOf("|"));
    const from = kWord.lastIndex;
    let end;
    if (name === "IREPLACE") {
      end = endOfMarkup(text, from);
      words.push({ kind: "show", markup: text.slice(from, end) });
    } else if (name === "MSGBOX") {
      end = endOfFreeText(text, from);
      words.push({ kind: "box", text: text.slice(from, end) });
    } else {
      kField.lastIndex = from;
      const [whole, id, equals] = kField.exec(text);
      end = from + whole.length;
      const takesText = name === "VALUE" || name === "VALID";
      const word = { kind: name.toLowerCase(), id: id.trimEnd() };
      if (takesText) word.text = null;
      if (takesText && equals) {
        const textEnd = name === "VALID" ? text.length : endOfFreeText(text, end);
        word.text = text.slice(end, textEnd);
        end = textEnd;
      }
      words.push(word);
    }
    at = end;
  }
  return { words, rest: text.slice(at) };
}

export class FrameReader {
  #isOpen = false;
  #words = [];
  #stray = "";

  get isOpen() {
    return this.#isOpen;
  }

  // Forgets an open frame.
  reset() {
    this.#isOpen = false;
    this.#words = [];
    this.#stray = "";
  }

  // The events of one message.
  take(message) {
    if (message.startsWith(kTerminal)) return this.#endPages(message.slice(kTerminal.length));
    if (this.#isOpen) return this.#takeInFrame(message, message);
    if (kProgress.test(message)) return [{ kind: "progress", text: message.replace(kProgress, "") }];
    if (!message.startsWith(kOpen)) return [{ kind: "text", text: message }];
    this.#isOpen = true;
    const inside = message.slice(kOpen.length);
    if (inside.startsWith(kTerminal)) return this.#endPages(inside.slice(kTerminal.length));
    return this.#takeInFrame(inside, message);
  }

  #endPages(rest) {
    this.reset();
    const events = [{ kind: "terminal" }];
    if (rest.replace(kLineEnd, "") !== "") events.push({ kind: "text", text: rest });
    return events;
  }

  // `inside` is the part of `message` that belongs to the frame.
  #takeInFrame(inside, message) {
    const closes = kClosingMessage.test(message) && kClose.test(message);
    const text = closes ? inside.replace(kClose, "") : inside;
    const isWholePage = closes && /^\^?IREPLACE\|doc1=/.test(text) && message.startsWith(kOpen);
    if (isWholePage) {
      this.#words.push({ kind: "show", markup: text.slice(text.indexOf("=") + 1) });
    } else {
      this.#addWords(text);
    }
    if (closes) {
      this.#isOpen = false;
      return [...this.#flush(), { kind: "frameEnd" }];
    }
    const last = this.#words.at(-1);
    const asks = kLineEnd.test(message) && last?.kind === "box" && last.text.trimEnd().endsWith(kQuestionEnd);
    return asks ? this.#flush() : [];
  }

  #addWords(text) {
    const { words, rest } = cutWords(text);
    this.#words.push(...words);
    if (rest === "" || rest === "^") return;
    const last = this.#words.at(-1);
    if (typeof last?.text === "string") {
      last.text += rest;
    } else if (rest.trim() !== "") {
      this.#stray += rest;
    }
  }

  #flush() {
    const events = [];
    const stray = this.#stray.trim();
    if (stray === "OK" && this.#words.length === 0) {
      events.push({ kind: "handshake" });
    } else if (stray !== "") {
      events.push({ kind: "stray", text: stray });
    }
    for (const word of this.#words) events.push(finished(word));
    this.#words = [];
    this.#stray = "";
    return events;
  }
}

function withoutLineEnds(text) {
  let end = text.length;
  while (end > 0 && (text[end - 1] === "\n" || text[end - 1] === "\r")) end--;
  return text.slice(0, end);
}

function finished(word) {
  if (typeof word.text !== "string") return word;
  const text = withoutLineEnds(word.text);
  if (word.kind !== "box" || !text.endsWith(kQuestionEnd)) return { ...word, text };
  return { kind: "question", text: text.slice(0, -kQuestionEnd.length) };
}
