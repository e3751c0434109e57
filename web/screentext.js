// What may go to the terminal, and what may come from it. Pure.
//
// Only CR LF and the session's own cursor strings act on the screen. Every other control character shows as its
// picture, the unassigned characters of the code page (which a terminal would take for control strings) as
// U+FFFD, and the marks as ^ ] \.

const kMarks = { "\u00FE": "^", "\u00FD": "]", "\u00FC": "\\" };
const kUnassigned = "\u0081\u008D\u008F\u0090\u009D";
const kBeyondLatin1 = "€‚ƒ„…†‡ˆ‰Š‹ŒŽ‘’“”•–—˜™š›œžŸ";
const kControls = /\r\n|[\u0000-\u001F\u007F-\u009F\u00FC-\u00FE]/g;
const kDelete = "\u007F";
const kPictures = 0x2400;

export function safeScreenText(text) {
  return text.replace(kControls, (found) => {
    if (found === "\r\n") return found;
    if (found === kDelete) return "\u2421";
    return (
      kMarks[found] ?? (found > kDelete ? "\uFFFD" : String.fromCharCode(kPictures + found.charCodeAt(0)))
    );
  });
}

// Takes the cursor strings of a session out of its text, which all hold `word`; see docs/web.md. With
// `control`, what moves the cursor takes their place.
export class CursorStrings {
  #pattern = /(?!)/g;

  set word(word) {
    this.#pattern = new RegExp(`\u001B${word}:(-?\\d{1,9});(-?\\d{1,9});`, "g");
  }

  begins(text) {
    return text.search(this.#pattern) === 0;
  }

  without(text) {
    return text.replace(this.#pattern, "");
  }

  // The row, from 0, that a cursor string puts the open line on at the end of the text; -1 where none does.
  // `before`: the same before the text.
  rowAtEnd(text, before) {
    let row = before;
    let from = 0;
    for (const found of text.matchAll(this.#pattern)) {
      row = Number(found[1]) < 0 ? -1 : Number(found[2]);
      from = found.index + found[0].length;
    }
    return text.includes("\r\n", from) ? -1 : row;
  }

  // What to write to the screen for the text.
  obeyed(text) {
    let screen = "";
    let from = 0;
    for (const found of text.matchAll(this.#pattern)) {
      screen += safeScreenText(text.slice(from, found.index)) + controlFor(Number(found[1]), Number(found[2]));
      from = found.index + found[0].length;
    }
    return screen + safeScreenText(text.slice(from));
  }
}

function controlFor(column, row) {
  if (row >= 0 && column >= 0) return `\x1B[${row + 1};${column + 1}H`;
  return column === -1 ? "\x1B[H\x1B[2J" : "\x1B[J";
}

function isInCodePage(character) {
  const code = character.codePointAt(0);
  if (code < 0x80 || (code >= 0xa0 && code <= 0xff)) return true;
  return kUnassigned.includes(character) || kBeyondLatin1.includes(character);
}

// The first character that the session's code page (Windows-1252) doesn't have; empty when it has them all.
export function foreignCharacter(text) {
  for (const character of text) if (!isInCodePage(character)) return character;
  return "";
}

// A sentence that names the character and what can be done.
export function foreignCharacterText(character) {
  const code = character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0");
  const name = `${character} (U+${code})`;
  return `The character ${name} isn't in the code page Windows-1252 and can't be sent. Leave it out.`;
}
