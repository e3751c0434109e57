import assert from "node:assert/strict";
import test from "node:test";

import { FrameReader } from "../../web/frames.js";
import { corpus } from "./corpus.js";

const eol = "\r\n";
const show = (markup) => ({ kind: "show", markup });
const value = (id, text) => ({ kind: "value", id, text });
const valid = (id, text) => ({ kind: "valid", id, text });
const focus = (id) => ({ kind: "focus", id });
const reject = (id) => ({ kind: "reject", id });
const box = (text) => ({ kind: "box", text });
const text = (shown) => ({ kind: "text", text: shown });
const question = (asked) => ({ kind: "question", text: asked });
const handshake = { kind: "handshake" };
const terminal = { kind: "terminal" };
const end = { kind: "frameEnd" };

const read = (messages) => {
  const reader = new FrameReader();
  return { events: messages.flatMap((message) => reader.take(message)), reader };
};

test("messages become events", () => {
  const cases = [
    ["text outside frames", [":", "x</TX>" + eol], [text(":"), text("x</TX>" + eol)]],
    ["the handshake", ["<TX>OK</TX>" + eol], [handshake, end]],
    ["an empty frame", ["<TX>", "</TX>" + eol], [end]],
    [
      "a page is one word",
      ["<TX>IREPLACE|doc1=a^FOCUS|fx1</TX>b</TX>" + eol],
      [show("a^FOCUS|fx1</TX>b"), end],
    ],
    ["the menu", ["<TX>IREPLACE|doc1=<a></input>", "</TX>" + eol], [show("<a></input>"), end]],
    [
      "a form and its focus",
      ["<TX>", "IREPLACE|doc1=^VALID|fx1</input>^FOCUS|fx1", "</TX>" + eol],
      [show("^VALID|fx1</input>"), focus("fx1"), end],
    ],
    [
      "what a form left goes with the menu",
      ["<TX>", "VALID|fx1", "^IREPLACE|doc1=m</input>", "</TX>" + eol],
      [valid("fx1", null), show("m</input>"), end],
    ],
    [
      "words without text",
      ["<TX>", "^VALUE|fx4=^FOCUS|fx5=", "</TX>" + eol],
      [value("fx4", ""), focus("fx5"), end],
    ],
    ["VALUE without a text", ["<TX>", "VALUE|fx5", "</TX>" + eol], [value("fx5", null), end]],
    [
      "a box in pieces with words behind",
      ["<TX>", "MSGBOX|3 exported." + eol + "1 Errors.", "^VALUE|fx3=^FOCUS|fx3", "</TX>" + eol],
      [box("3 exported." + eol + "1 Errors."), value("fx3", ""), focus("fx3"), end],
    ],
    [
      "a box and words in one message",
      ["<TX>", "MSGBOX|Done ^ so.^VALUE|fx1=^FOCUS|fx1", "</TX>" + eol],
      [box("Done ^ so."), value("fx1", ""), focus("fx1"), end],
    ],
    [
      "a refusal",
      ["<TX>", "REJECT|fx3^MSGBOX|'x' is not valid.", "</TX>" + eol],
      [reject("fx3"), box("'x' is not valid."), end],
    ],
    [
      "a line end inside a frame",
      ["<TX>", "VALID|fx3^VALID|fx5=DEMO.x" + eol, "</TX>" + eol],
      [valid("fx3", null), valid("fx5", "DEMO.x"), end],
    ],
    [
      "a word behind VALID is text of it",
      ["<TX>", "VALID|fx4=x^FOCUS|fx1", "</TX>" + eol],
      [valid("fx4", "x^FOCUS|fx1"), end],
    ],
    [
      "a value with a word behind",
      ["<TX>", "VALUE|fx4=a^b^VALID|fx1", "</TX>" + eol],
      [value("fx4", "a^b"), valid("fx1", null), end],
    ],
    ["a frame told in one message", ["<TX>VALID|fx3=orders</TX>" + eol], [valid("fx3", "orders"), end]],
    [
      "a box that closes its frame",
      ["<TX>", "MSGBOX|Nothing there.</TX>", "<TX>"],
      [box("Nothing there."), end],
    ],
    ["a question acts in the open frame", ["<TX>", "MSGBOX|Change ?\\vbYesNo" + eol], [question("Change ?")]],
    [
      "what follows a question",
      ["<TX>", "MSGBOX|Change ?\\vbYesNo" + eol, "VALID|fx5=1", "</TX>" + eol],
      [question("Change ?"), valid("fx5", "1"), end],
    ],
    [
      "a question in a frame of its own",
      ["<TX>", "MSGBOX|Go on?\\vbYesNo", "</TX>", "<TX>"],
      [question("Go on?"), end],
    ],
    ["the terminal ends an open frame", ["<TX>", "<TERMINAL>" + eol, ":"], [terminal, text(":")]],
    [
      "an unfinished word is dropped by it",
      ["<TX>", "VALID|fx1", "<TERMINAL>" + eol, "no disk" + eol],
      [terminal, text("no disk" + eol)],
    ],
    ["progress", ["7 / 9    <AUTORX>" + eol], [{ kind: "progress", text: "7 / 9    " }]],
    [
      "a name in progress opens nothing",
      ["<TX>IREPLACE|doc1=x   <AUTORX>" + eol, ":"],
      [{ kind: "progress", text: "<TX>IREPLACE|doc1=x   " }, text(":")],
    ],
    ["a frame without a word", ["<TX>what</TX>" + eol], [{ kind: "stray", text: "what" }, end]],
  ];
  for (const [name, messages, want] of cases) assert.deepEqual(read(messages).events, want, name);
});

test("free text makes no word, closes no frame and asks nothing", () => {
  for (const { text: item } of corpus) {
    const kept = item.replace(/[\r\n]+$/, "");
    // The one text that can't be told from the words behind it.
    const [, head, wordsBehind = ""] = /^(.*?)(\^FOCUS\|fx1\^VALUE\|fx4=)?$/s.exec(kept);
    const acting = wordsBehind ? [focus("fx1"), value("fx4", "")] : [];
    const wants = [
      [`VALID|fx4=${item}`, [valid("fx4", kept), end]],
      [`VALUE|fx4=${item}^VALID|fx1`, [value("fx4", head), ...acting, valid("fx1", null), end]],
      [`MSGBOX|Item/Record '${item}' imported.`, [box(`Item/Record '${item}' imported.`), end]],
    ];
    for (const [message, want] of wants) {
      const { events, reader } = read(["<TX>", message, "</TX>" + eol]);
      assert.deepEqual(events, want, message);
      assert.equal(reader.isOpen, false, message);
    }
  }
});

test("a megabyte of words in a text costs little", () => {
  const item = "^FOCUS|fx1".repeat(100_000) + "x";
  const begin = performance.now();
  assert.deepEqual(read(["<TX>", `VALUE|fx4=${item}`, "</TX>" + eol]).events, [value("fx4", item), end]);
  assert.ok(performance.now() - begin < 1000);
});
