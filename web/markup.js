// Takes the add-in's markup apart. Pure: text in, tokens out; nothing here makes an element.
//
// (1) The grammar is closed: it knows the tags, attributes and handlers exactly as they are written, and only
//     in the places where they are written. Everything else is text.
// (2) Item text stands in the markup as it is, so what ends it is never one tag alone but a tag that is
//     followed by what can follow it there.
// (3) Buttons of a result page stand at its head: one in a cell is text.
// Costs are in line with the length of the markup.
//
// A form: {kind: "form", elements}, in the order of drawing. An element is
//   {type: "input" | "link" | "area" | "label" | "select", id, place: {top, left, width, height}, styleClass}
//   with value (input, link, area), inputType and focusesOnHover (input), isDisabled (input, area),
//   rows (area), text (label), options: [{value, text, isSelected}] (select);
//   or {type: "unknown", text}.
// A result: {kind: "result", buttons: [{id, value, handler, argument}], sentence, heading, error, table,
//   unknown}. The table is null or {style: "report" | "query", headings: [{text, width}],
//   rows: [{tone, cells: [{text, isRight, span}]}]}; the values of one cell are parted by LF.
//   `unknown` is text where a tag was due.

// --- Forms ---

const kNumber = String.raw`(-?\d+(?:\.\d+)?)`;
const kTopLeft = String.raw` style="top:${kNumber}px; left:${kNumber}px`;
const kId = String.raw`(?:id=([\w-]+) )?`;
const kProcess = String.raw`"JSCRIPT:EProcess\(this\);"`;
const kExtra = String.raw`(?: (onmouseover=JSCRIPT:XFocus\(this\);|disabled|DISABLED))?`;
// Where an element may have a value, it is read in two parts: the value ends at the first place that looks like
// the second part.
const kValue = 'value="';
const kValueEnd = '" ';

const kInputStart = String.raw`<input type=(text|button|password) ${kId}${kTopLeft}; width:${kNumber}px" class="([\w-]+)" `;
const kInputEnd = String.raw`on(?:Click|Change)=${kProcess}${kExtra}></input>`;
const kCheckbox = new RegExp(
  String.raw`<input type=checkbox ${kId}${kTopLeft}; width:${kNumber}px" class="([\w-]+)" ` +
    String.raw`(?:checked=(\S+) )?onClick=${kProcess}${kExtra}></input>`,
  "y",
);
const kAreaStart = String.raw`<textarea ${kId}cols="${kNumber}" rows="${kNumber}" wrap="physical" ${kTopLeft}" class="([\w-]+)" `;
const kAreaEnd = String.raw`onChange=${kProcess}${kExtra}></textarea>`;
const kLinkStart = String.raw`<input ${kId}${kTopLeft}; width:${kNumber}px" class="customlink" `;
const kLinkEnd =
  String.raw`onClick=${kProcess} onMouseover="JSCRIPT:HighLink\(this\);" ` +
  String.raw`onMouseout="JSCRIPT:NormalLink\(this\);"></input>`;
const kLabelStart = new RegExp(
  String.raw`<div (?:id="([\w-]+)" )?class="([\w-]+)" ${kTopLeft}; height:${kNumber}px; width:${kNumber}px">`,
  "y",
);
const kLabelEnd = /<\/div>(?=<div |<input |<textarea |$)/g;
const kLabelEndHere = new RegExp(kLabelEnd.source, "y");
const kSelectStart = /<select id=([\w-]+) size=1 class=(\w+) onchange="JSCRIPT:EProcess\(this\);">/y;
const kSelectEnd = "</select>";
// A file name comes twice, and so ends where its second copy does, whatever it holds.
const kOptions = [
  /<option value="([^]{0,400}?)"( selected)?>\1<\/option>/y,
  /<option value=(\d+)( selected)?>([^<]*)<\/option>/y,
  /<option value=([^]{0,400}?)( SELECTED)?>\1(?=<option value=|<\/select>)/y,
];

function match(pattern, text, at) {
  pattern.lastIndex = at;
  return pattern.exec(text);
}

// Looks for patterns in one text. What was found last is kept, so that looking for the same from many places
// passes over the text once.
class Finder {
  #text;
  #found = new Map();

  constructor(text) {
    this.#text = text;
  }

  // The first match at or behind `at`; null where there is none.
  next(pattern, at) {
    const last = this.#found.get(pattern);
    if (last && last.from <= at && (!last.match || last.match.index >= at)) return last.match;
    const found = match(pattern, this.#text, at);
    this.#found.set(pattern, { from: at, match: found });
    return found;
  }
}

function place(top, left, width, height) {
  return { top: Number(top), left: Number(left), width: Number(width ?? 0), height: Number(height ?? 0) };
}

function inputToken([inputType, id, top, left, width, styleClass], value, extra = "") {
  return {
    type: "input",
    inputType,
    id: id ?? "",
    place: place(top, left, width),
    styleClass,
    value,
    isDisabled: extra.toLowerCase() === "disabled",
    focusesOnHover: extra.startsWith("onmouseover"),
  };
}

function checkboxToken([id, top, left, width, styleClass, checked, extra]) {
  const token = inputToken(["checkbox", id, top, left, width, styleClass], "", extra);
  return { ...token, isChecked: checked !== undefined && checked !== "0" };
}

function areaToken([id, columns, rows, top, left, styleClass], value, extra = "") {
  const isDisabled = extra.toLowerCase() === "disabled";
  const size = place(top, left, Number(columns) * 9, Number(rows) * 22);
  return { type: "area", id: id ?? "", place: size, styleClass, value, rows: Number(rows), isDisabled };
}

function linkToken([id, top, left, width], value) {
  return { type: "link", id: id ?? "", place: place(top, left, width), styleClass: "customlink", value };
}

const kValued = [
  [kInputStart, kInputEnd, inputToken],
  [kLinkStart, kLinkEnd, linkToken],
  [kAreaStart, kAreaEnd, areaToken],
].map(([start, end, makeToken]) => ({
  start: new RegExp(start, "y"),
  end: new RegExp(end, "y"),
  valueEnd: new RegExp(kValueEnd + end, "g"),
  makeToken,
}));

// An element that may have a value: {token, end}; null where there is none.
function cutValued({ start, end, valueEnd, makeToken }, finder, text, at) {
  const head = match(start, text, at);
  if (!head) return null;
  const from = start.lastIndex;
  const hasValue = text.startsWith(kValue, from);
  const tail = hasValue ? finder.next(valueEnd, from + kValue.length) : match(end, text, from);
  if (!tail) return null;
  const value = hasValue ? text.slice(from + kValue.length, tail.index) : "";
  return { token: makeToken(head.slice(1), value, tail[1]), end: tail.index + tail[0].length };
}

// The select at `at`: {token, end}; null where there is none that is whole.
function cutSelect(text, at, area) {
  const start = match(kSelectStart, text, at);
  if (!start) return null;
  const options = [];
  let end = kSelectStart.lastIndex;
  while (!text.startsWith(kSelectEnd, end)) {
    let found = null;
    for (const pattern of kOptions) found ??= match(pattern, text, end);
    if (!found) return null;
    const [whole, value, selected, label = value] = found;
    options.push({ value, text: label, isSelected: selected !== undefined });
    end += whole.length;
  }
  const token = { type: "select", id: start[1], place: area, styleClass: start[2], options };
  return { token, end: end + kSelectEnd.length };
}

// The label at `at`, or the select that it holds: {token, end}; null where there is none.
function cutLabel(finder, text, at) {
  const start = match(kLabelStart, text, at);
  if (!start) return null;
  const [, id = "", styleClass, top, left, height, width] = start;
  const area = place(top, left, width, height);
  const inside = kLabelStart.lastIndex;
  const select = cutSelect(text, inside, area);
  if (select && match(kLabelEndHere, text, select.end)) {
    return { token: select.token, end: kLabelEndHere.lastIndex };
  }
  const end = finder.next(kLabelEnd, inside);
  if (!end) return null;
  const token = { type: "label", id, place: area, styleClass, text: text.slice(inside, end.index) };
  return { token, end: end.index + end[0].length };
}

function cutElement(finder, text, at) {
  const label = cutLabel(finder, text, at);
  if (label) return label;
  const checkbox = match(kCheckbox, text, at);
  if (checkbox) return { token: checkboxToken(checkbox.slice(1)), end: kCheckbox.lastIndex };
  for (const kind of kValued) {
    const element = cutValued(kind, finder, text, at);
    if (element) return element;
  }
  return null;
}

function cutForm(text) {
  const finder = new Finder(text);
  const elements = [];
  let at = 0;
  let unknownFrom = 0;
  const closeUnknown = () => {
    const unknown = text.slice(unknownFrom, at).trim();
    if (unknown !== "") elements.push({ type: "unknown", text: unknown });
  };
  while (at < text.length) {
    const element = cutElement(finder, text, at);
    if (element) {
      closeUnknown();
      elements.push(element.token);
      at = unknownFrom = element.end;
    } else {
      const next = text.indexOf("<", at + 1);
      at = next < 0 ? text.length : next;
    }
  }
  closeUnknown();
  return { kind: "form", elements };
}

// --- Result pages ---

const kReportHead = '<div style="background-Color:white;font-family:courier new;font-size:12pt">';
const kButton =
  /<input type=button (?:id=(\w+) )?value=(?:"([^"]*)"|(\w+)) onClick=("?)JSCRIPT:(?:(EProcess)\(this\)|(window\.print)\(\)|(ExecuteA)\('([^']*)'\));\4 {1,2}style=font-Weight:bold>(?: ?&nbsp;)?/y;
const kErrorStart = "<h3>ERROR: ";
const kHeadingEnd = "</h3>";
const kSpace = /&nbsp;/g;
// The sentence and what is said of it: of a query that found all of its rows, and of one cut off at a limit.
const kRowsFound = /^"([^]*)"<br>(Rows found = \d+)$/;
const kRowsLimited = /^Your query: "([^]*)" is very general and so [^"]*$/;

const kTables = {
  report:
    '<table border=1 bordercolor="#f0f0f0" cellspacing=0 cellpadding=1 ' +
    'style="background-Color:white;font-family:arial;font-size:12px">\r\n',
  query: "<table border=1 bordercolor=#f0f0f0 valign=top>",
};
const kTableEnd = "</table>";
const kRowStarts = [
  ["<tr>", "plain"],
  ['<tr style="background-color:#ffffa0">', "tinted"],
  ["<tr style=background-Color:#ffffff>", "plain"],
  ["<tr style=background-Color:#ffff80>", "tinted"],
  ["<tr style=font-weight:bold>", "total"],
  ['<tr style="background-color:navy;color:white;font-weight:bold">', "heading"],
  ["<tr style=background-Color:lightgrey>", "heading"],
];
const kRowEnd = "</tr>";
const kCellStart =
  /<td(?: align=(right)| colspan=(\d+)| width=(15%)| valign=top style="width:(-?\d+%)")?>|<th>/y;
const kCellEnd = { td: "</td>", th: "</th>" };
const kCellValueEnd = "<BR>";

// Where the text of a cell ends: at an end tag that a cell, a row or a row's end follows.
function endOfCell(text, from, endTag) {
  for (let at = text.indexOf(endTag, from); at >= 0; at = text.indexOf(endTag, at + 1)) {
    let next = at + endTag.length;
    if (text.startsWith("\r\n", next)) next += 2;
    if (text.startsWith("<td", next) || text.startsWith("<th>", next)) return at;
    if (text.startsWith("<tr", next) || text.startsWith(kRowEnd, next)) return at;
  }
  return -1;
}

class TableReader {
  #text;
  #at;
  #style;

  constructor(text, at, style) {
    this.#text = text;
    this.#at = at;
    this.#style = style;
  }

  // {table, end}
  read() {
    const table = { style: this.#style, headings: [], rows: [] };
    for (let tone = this.#rowStart(); tone !== null; tone = this.#rowStart()) {
      const cells = this.#cells();
      if (tone === "heading" && table.headings.length === 0) {
        table.headings = cells.map(({ text, width }) => ({ text, width }));
      } else {
        table.rows.push({ tone, cells });
      }
      if (this.#passes(kRowEnd)) this.#passes("\r\n");
    }
    this.#passes(kTableEnd);
    return { table, end: this.#at };
  }

  #passes(literal) {
    if (!this.#text.startsWith(literal, this.#at)) return false;
    this.#at += literal.length;
    return true;
  }

  // Passes the start of a row and tells its tone; null where there is no row.
  #rowStart() {
    this.#passes("\r\n");
    for (const [start, tone] of kRowStarts) if (this.#passes(start)) return tone;
    return null;
  }

  #cells() {
    const cells = [];
    for (;;) {
      this.#passes("\r\n");
      kCellStart.lastIndex = this.#at;
      const start = kCellStart.exec(this.#text);
      if (!start) return cells;
      const from = kCellStart.lastIndex;
      const endTag = start[0] === "<th>" ? kCellEnd.th : kCellEnd.td;
      const end = endOfCell(this.#text, from, endTag);
      if (end < 0) return cells;
      cells.push({
        text: this.#cellText(from, end),
        isRight: start[1] !== undefined,
        span: Number(start[2] ?? 1),
        width: start[3] ?? start[4] ?? "",
      });
      this.#at = end + endTag.length;
    }
  }

  #cellText(from, end) {
    const text = this.#text.slice(from, end);
    if (text === "&nbsp;") return "";
    return this.#style === "query" ? text.replaceAll(kCellValueEnd, "\n") : text;
  }
}

function cutButtons(text, at) {
  const buttons = [];
  let end = at;
  for (let found = match(kButton, text, at); found; found = match(kButton, text, end)) {
    const [, id = "", quoted, bare, , process, print, execute, argument = ""] = found;
    buttons.push({ id, value: quoted ?? bare, handler: process ?? print ?? execute, argument });
    end = kButton.lastIndex;
  }
  return { buttons, end };
}

// What stands before the table: {sentence, heading, error}.
function cutReportHead(head) {
  const text = head.replace(/^<br>/, "");
  const errorAt = text.endsWith(kHeadingEnd) ? text.indexOf(kErrorStart) : -1;
  const sentence = (errorAt < 0 ? text : text.slice(0, errorAt)).replace(kSpace, " ");
  const error = errorAt < 0 ? "" : text.slice(errorAt + kErrorStart.length, -kHeadingEnd.length);
  return { sentence, heading: "", error };
}

function cutQueryHead(head) {
  const text = head.trim();
  const errorAt = text.indexOf(kHeadingEnd + kErrorStart);
  const headingEnd = errorAt < 0 ? text.length - kHeadingEnd.length : errorAt;
  const error =
    errorAt < 0 ? "" : text.slice(errorAt + (kHeadingEnd + kErrorStart).length, -kHeadingEnd.length);
  const heading = text.slice("<h3>".length, headingEnd);
  const found = kRowsFound.exec(heading);
  if (found) return { sentence: found[1], heading: found[2], error };
  const limited = kRowsLimited.exec(heading);
  return { sentence: limited?.[1] ?? "", heading, error };
}

function cutResult(text, isReport) {
  const { buttons, end: headAt } = cutButtons(text, isReport ? kReportHead.length : 0);
  const style = isReport ? "report" : "query";
  const headEnd = isReport ? "</div>" : kHeadingEnd;
  const tableAt = text.indexOf(headEnd + kTables[style], headAt);
  const endOfHead = tableAt >= 0 ? tableAt : text.lastIndexOf(headEnd);
  const bodyAt = endOfHead + headEnd.length;
  const head = isReport
    ? cutReportHead(text.slice(headAt, endOfHead))
    : cutQueryHead(text.slice(headAt, bodyAt));
  const result = { kind: "result", buttons, ...head, table: null, unknown: text.slice(bodyAt) };
  if (tableAt < 0) return result;
  const { table, end } = new TableReader(text, bodyAt + kTables[style].length, style).read();
  return { ...result, table, unknown: text.slice(end).trim() };
}

export function cutMarkup(text) {
  if (text.startsWith(kReportHead)) return cutResult(text, /*isReport=*/ true);
  const isQuery = match(kButton, text, 0)?.[1] === "fx1";
  return isQuery ? cutResult(text, /*isReport=*/ false) : cutForm(text);
}
