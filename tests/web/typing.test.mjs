import assert from "node:assert/strict";
import test from "node:test";

import { LineEditor, kEditorKeys } from "../../web/lineeditor.js";
import { CursorStrings, foreignCharacter, safeScreenText } from "../../web/screentext.js";
import { corpus } from "./corpus.js";

test("nothing in shown text acts on the screen but CR LF", () => {
  for (const { text } of corpus) {
    const shown = safeScreenText(`${text}\r\n`);
    assert.doesNotMatch(shown.replaceAll("\r\n", ""), /[\u0000-\u001f\u007f-\u009f]/, text);
  }
  assert.equal(safeScreenText("\x1b[2J\x9b6n\n\x7f"), "\u241b[2J\ufffd6n\u240a\u2421");
  assert.equal(safeScreenText("A\u00feB\u00fdC\u00fcD\r\n"), "A^B]C\\D\r\n");
});

test("only the session's own cursor strings move the cursor", () => {
  const strings = new CursorStrings();
  assert.equal(strings.obeyed("\x1b:1;2;"), "\u241b:1;2;", "none before the word is known");
  strings.word = "0123456789abcdef";
  const own = (place) => `\x1b0123456789abcdef:${place};`;
  const cases = [
    [`${own("-1;-1")}${own("1;24")}x`, "\x1b[H\x1b[2J\x1b[25;2Hx", "x"],
    [`a\x1b${own("0;0")}\r\n${own("-3;-1")}`, "a\u241b\x1b[1;1H\r\n\x1b[J", "a\x1b\r\n"],
    ["\x1bfedcba9876543210:1;2;", "\u241bfedcba9876543210:1;2;", "\x1bfedcba9876543210:1;2;"],
    [own("1"), `\u241b${own("1").slice(1)}`, own("1")],
    [own("1;9999999999"), `\u241b${own("1;9999999999").slice(1)}`, own("1;9999999999")],
  ];
  for (const [text, screen, plain] of cases) {
    assert.equal(strings.obeyed(text), screen);
    assert.equal(strings.without(text), plain);
  }

  const rows = [
    ["x", 7],
    ["x\r\n", -1],
    [`${own("-1;-1")}${own("1;24")}x`, 24],
    [`${own("1;24")}x\r\n`, -1],
    [`\r\n${own("0;3")}`, 3],
    [`${own("1;24")}${own("-1;-1")}`, -1],
  ];
  for (const [text, row] of rows) assert.equal(strings.rowAtEnd(text, /*before=*/ 7), row, text);
});

test("characters that the code page lacks are found", () => {
  const cases = [
    ["Müller 50 € – “ok” \u0081", ""],
    ["a中b", "中"],
    ["x\u{1F600}", "\u{1F600}"],
    ["\u0080", "\u0080"],
    ["ā", "ā"],
  ];
  for (const [text, want] of cases) assert.equal(foreignCharacter(text), want, text);
});

test("editing a line", () => {
  const keys = {
    left: "\x1b[D",
    right: "\x1b[C",
    up: "\x1b[A",
    down: "\x1b[B",
    home: "\x01",
    end: "\x05",
    back: "\x7f",
    del: "\x1b[3~",
    word: "\x17",
    start: "\x15",
    rest: "\x0b",
    wordLeft: "\x1bb",
    wordRight: "\x1bf",
  };
  const cases = [
    ["abc left left X", "aX|bc"],
    ["abc back back", "a|"],
    ["back del left", "|"],
    ["abc home del X end Y", "XbcY|"],
    ["ab cd word", "ab |"],
    ["ab cd wordLeft wordLeft wordRight X", "abX| cd"],
    ["abcd left start", "|d"],
    ["abcd left left rest", "ab|"],
    ["new up", "two|"],
    ["new up up up X", "oneX|"],
    ["new up up down down down", "new|"],
  ];
  for (const [steps, want] of cases) {
    const line = new LineEditor(["one", "two"]);
    for (const step of steps.replace(" cd", "_cd").split(" ")) {
      if (keys[step]) kEditorKeys[keys[step]](line);
      else line.insert(step.replace("_", " "));
    }
    assert.equal(`${line.text.slice(0, line.cursor)}|${line.text.slice(line.cursor)}`, want, steps);
  }
  const line = new LineEditor(["one"]);
  for (const text of ["two", " ", "two"]) {
    line.insert(text);
    assert.equal(line.enter(), text);
  }
  assert.deepEqual(line.history, ["one", "two"], "neither blank lines nor one twice");
});
