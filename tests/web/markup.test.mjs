import assert from "node:assert/strict";
import { readFileSync, readdirSync } from "node:fs";
import test from "node:test";

import { csvField, csvFileName, csvOfTable } from "../../web/csv.js";
import { labelsOfFields } from "../../web/labels.js";
import { cutMarkup } from "../../web/markup.js";
import { corpus } from "./corpus.js";

const here = new URL(".", import.meta.url);

// The pages in the transcripts of the add-in's own tests: what it writes is what the page must know.
function transcriptPages(name) {
  const text = readFileSync(new URL(`../${name}`, here), "latin1").replaceAll("{CRLF}\n", "\r\n");
  const frames = text.match(/<TX>\^?IREPLACE\|doc1=[^]*?<\/TX>/g) ?? [];
  return frames
    .map((frame) => frame.replace(/^<TX>\^?IREPLACE\|doc1=|<\/TX>$/g, "").replace(/\^FOCUS\|fx\d$/, ""))
    .filter((markup) => markup.startsWith("<"));
}

test("the forms that the add-in draws hold nothing unknown", () => {
  const names = ["forms/golden/drawn.txt", "bulk/golden/form-JET.txt", "bulk/golden/form-MYSQL.txt"];
  const outlines = names.flatMap(transcriptPages).map((markup) => {
    const { kind, elements } = cutMarkup(markup);
    assert.equal(kind, "form");
    const acting = elements.filter((element) => element.type !== "label");
    return acting.map((element) => `${element.inputType ?? element.type} ${element.id}`).join(", ");
  });
  assert.deepEqual(outlines, [
    "button bx2, link mx1, link mx2, link mx3, link mx4",
    "select fx1, text fx2, text fx3, text fx4, button bx1, button bx2",
    "text fx2, text fx3, text fx4, text fx5, button bx1, button bx2",
    "text fx2, text fx3, text fx4, text fx5, button bx1, button bx2",
    "select fx1, text fx2, select fx3, select fx4, button bx1, button bx2",
    "select fx1, text fx2, select fx3, select fx4, button bx1, button bx2",
  ]);
});

test("elements keep what was written of them", () => {
  const style = ' style="top:33px; left:19.8px; width:63px"';
  const process = 'onClick="JSCRIPT:EProcess(this);"';
  const place = { top: 33, left: 19.8, width: 63, height: 0 };
  const field = {
    type: "input",
    id: "fx5",
    place,
    styleClass: "field1",
    isDisabled: false,
    focusesOnHover: false,
  };
  const cases = [
    [
      `<input type=text id=fx5 ${style} class="field1" value="A "B" > c" onChange="JSCRIPT:EProcess(this);" disabled></input>`,
      { ...field, inputType: "text", value: 'A "B" > c', isDisabled: true },
    ],
    [
      `<input type=button id=fx5 ${style} class="button1" value="File" ${process} onmouseover=JSCRIPT:XFocus(this);></input>`,
      { ...field, inputType: "button", styleClass: "button1", value: "File", focusesOnHover: true },
    ],
    [
      `<input type=checkbox id=fx5 ${style} class="field1" checked=1 ${process}></input>`,
      { ...field, inputType: "checkbox", value: "", isChecked: true },
    ],
    [
      '<textarea id=fx5 cols="4" rows="3" wrap="physical"  style="top:33px; left:19.8px" class="field1" value="x" onChange="JSCRIPT:EProcess(this);"></textarea>',
      {
        type: "area",
        id: "fx5",
        place: { top: 33, left: 19.8, width: 36, height: 66 },
        styleClass: "field1",
        value: "x",
        rows: 3,
        isDisabled: false,
      },
    ],
  ];
  for (const [markup, want] of cases) assert.deepEqual(cutMarkup(markup).elements, [want], markup);
});

test("what isn't known is text", () => {
  const style = ' style="top:0px; left:0px; width:9px"';
  const cases = [
    "<b>x</b>",
    `<input type=text id=a ${style} class="field1" onChange="JSCRIPT:Other(this);"></input>`,
    `<input type=text id=a ${style} class="field1" onChange="JSCRIPT:EProcess(this);" onfocus=x></input>`,
    `<input type=image id=a ${style} class="field1" onChange="JSCRIPT:EProcess(this);"></input>`,
    `<input type=button id=a ${style} class="button1" onClick="JSCRIPT:EProcess(this);alert(1)"></input>`,
  ];
  for (const text of cases) assert.deepEqual(cutMarkup(text).elements, [{ type: "unknown", text }], text);
});

test("names in selects come back whole", () => {
  const select = (options) =>
    `<div class="label1"  style="top:0px; left:0px; height:9px; width:9px"><select id=fx1 size=1 class=field1 onchange="JSCRIPT:EProcess(this);">${options}</select></div>`;
  const kinds = [
    (name, first) => `<option value=${name}${first ? " SELECTED" : ""}>${name}`,
    (name, first) => `<option value="${name}"${first ? " selected" : ""}>${name}</option>`,
  ];
  const names = corpus.filter(({ isName }) => isName).map(({ text }) => text);
  assert.ok(names.length > 60);
  for (const [index, option] of kinds.entries()) {
    for (const name of names) {
      const markup = select(option("first", true) + option(name, false) + option("last", false));
      const { elements } = cutMarkup(markup);
      const values = elements[0].options?.map(({ value, text }) => (assert.equal(value, text), value));
      assert.deepEqual(values, ["first", name, "last"], `${index}: ${name}`);
      const alone = cutMarkup(select(option(name, true))).elements[0].options;
      assert.deepEqual(alone, [{ value: name, text: name, isSelected: true }], `${index}: ${name}`);
    }
  }
});

const kReportHead = transcriptPages("reports/golden/html.txt")[0].split("LIST&nbsp;")[0];
const kReportTable = /<table[^]*?\r\n/.exec(transcriptPages("reports/golden/html.txt")[0])[0];
const kReportColumns =
  '<tr style="background-color:navy;color:white;font-weight:bold">\r\n<td width=15%>ItemID</td>\r\n';

test("a report", () => {
  const result = cutMarkup(transcriptPages("reports/golden/html.txt")[0]);
  assert.deepEqual(
    result.buttons.map(({ id, value, handler, argument }) => [id, value, handler, argument].join(" ")),
    ["fx1 CLOSE EProcess ", " Print window.print ", "fx1 File dump ExecuteA fx1|<file>"],
  );
  assert.equal(result.sentence, "LIST orders");
  assert.equal(result.error, "ERROR [914] Item '9' not found in table/file 'orders'");
  assert.equal(result.unknown, "");
  const { headings, rows } = result.table;
  assert.deepEqual(
    headings.map(({ text, width }) => `${text} ${width}`),
    ["ItemID 15%", "Name 6%", "Qty 10%", "Amount 9%", "ERROR(NOSUCH) 10%"],
  );
  assert.deepEqual(
    rows.map(
      ({ tone, cells }) => `${tone}: ${cells.map((cell) => cell.text + (cell.isRight ? ">" : "")).join("|")}`,
    ),
    [
      "tinted: 1|Ada|5>|12.50>|",
      "tinted: ||6>|>|",
      "total: SubTotal(s)||11>|>|",
      "plain: 2||7>|n/a>|",
      "total: SubTotal(s)||7>|>|",
      "total: Total(s)",
      "total: ||18>|>|",
    ],
  );
  assert.equal(rows[5].cells[0].span, 5);
});

test("an SQL page, and one that failed", () => {
  const [page, failed] = transcriptPages("queries/golden/page.txt").map(cutMarkup);
  assert.deepEqual(
    [page.sentence, page.heading, page.error, page.unknown],
    ["select a, b from t;", "Rows found = 2", "", ""],
  );
  assert.deepEqual(
    page.table.headings.map(({ text }) => text),
    ["A0", "A1"],
  );
  assert.deepEqual(
    page.table.rows.map(({ cells }) => cells.map(({ text }) => text)),
    [
      ["1", "x\ny\n<b>"],
      ["2", ""],
    ],
  );
  assert.deepEqual(
    [failed.table, failed.heading, failed.error],
    [null, 'Query as processed = "SELECT TOP 500 no from no;"', "no such table: no"],
  );
  assert.equal(page.buttons.length + failed.buttons.length, 6);
  const note = 'Your query: "select a, b from t;" is very general and so it ends here.';
  const limited = cutMarkup(
    transcriptPages("queries/golden/page.txt")[0].replace(/"select.*?<\/h3>/, `${note}</h3>`),
  );
  assert.deepEqual([limited.sentence, limited.heading], ["select a, b from t;", note]);
});

test("whatever a cell, an ID or an error holds is shown as it is, and makes no button", () => {
  for (const { text } of corpus) {
    const cells = `<td>${text}</td><td>${text}</td><td align=right>${text}</td></tr>\r\n`;
    const columns = `<td valign=top style="width:10%">${text}</td><td valign=top style="width:5%">Qty</td></tr>\r\n`;
    const error = `<h3>ERROR: ${text}</h3></div>`;
    const page = cutMarkup(
      `${kReportHead}LIST&nbsp;x${error}${kReportTable}${kReportColumns}${columns}` +
        `<tr style="background-color:#ffffa0">${cells}<tr>${cells}</table>`,
    );
    const shown = text === "&nbsp;" ? "" : text;
    assert.deepEqual(
      page.table.rows.map((row) => row.cells.map((cell) => cell.text)),
      [
        [shown, shown, shown],
        [shown, shown, shown],
      ],
      text,
    );
    assert.deepEqual(
      [page.table.headings[1].text, page.error, page.unknown, page.buttons.length],
      [text, text, "", 3],
      text,
    );
  }
});

test("markup of a size costs in line with it", () => {
  const style = ' style="top:0px; left:0px; width:9px" class="a" value="';
  const hostile = [
    "<td",
    "</td>",
    '<input type=text  style="',
    `<input type=text ${style}`,
    `<input ${style.replace('"a"', '"customlink"')}`,
    `<textarea cols="4" rows="3" wrap="physical" ${style.replace("; width:9px", "")}`,
    '<div class="a"  style="top:0px; left:0px; height:9px; width:9px">',
    '<div class="a"  style="top:0px; left:0px; height:9px; width:9px"><select id=a size=1 class=a onchange="JSCRIPT:EProcess(this);"></select>',
    "<tr>",
    "\r\n",
  ];
  const time = (text) => {
    const begin = performance.now();
    cutMarkup(text);
    cutMarkup(
      `${kReportHead}</div>${kReportTable}${kReportColumns}</tr>\r\n<tr><td>${text}</td></tr></table>`,
    );
    return performance.now() - begin;
  };
  for (const piece of hostile) assert.ok(time(piece.repeat(2_000_000 / piece.length)) < 2000, piece);
});

test("labels of fields by their place", () => {
  const pages = transcriptPages("forms/golden/drawn.txt").concat(transcriptPages("bulk/golden/form-JET.txt"));
  const labels = pages.map((markup) =>
    [...labelsOfFields(cutMarkup(markup).elements)]
      .map(([field, label]) => `${field.id} ${label.text}`)
      .join("; "),
  );
  assert.deepEqual(labels, [
    "",
    "fx1 From  TransferItem:; fx2 Account/Database; fx3 File/Table; fx4 Item/Record",
    "fx2 Account/Database; fx3 File/Table; fx4 Item/Record; fx5 To: TransferItem file name",
    "fx2 Account/Database; fx3 File/Table; fx4 * = Export-all-items OR Enter a SELECT query  :; fx5 To: TransferItem subfolder",
    "fx1 From TransferBulk (PseudoTape) File:; fx2 To Account/Database: (to change, exit and use 'logto'); " +
      "fx3 Table(s)/File(s), Reuse vs Replace Options:; fx4 Table(s)/File(s), Automatic vs Manual:",
  ]);
});

test("CSV", () => {
  const cases = [
    ["plain", "plain"],
    ["a,b", '"a,b"'],
    ['say "x"', '"say ""x"""'],
    ["one\ntwo", '"one\ntwo"'],
    [" x", '" x"'],
    ["-5.00", "-5.00"],
    ["+1,234.5", '"+1,234.5"'],
    ["=1+1", "'=1+1"],
    ["-1+cmd", "'-1+cmd"],
    ["@SUM(A1)", "'@SUM(A1)"],
  ];
  for (const [text, want] of cases) assert.equal(csvField(text), want);
  const { table } = cutMarkup(transcriptPages("queries/golden/page.txt")[0]);
  assert.equal(csvOfTable(table), '\uFEFFA0,A1\r\n1,"x\ny\n<b>"\r\n2,\r\n');
  const totals = cutMarkup(transcriptPages("reports/golden/html.txt")[0]).table;
  const columns = csvOfTable(totals)
    .trimEnd()
    .split("\r\n")
    .map((line) => line.split(",").length);
  assert.deepEqual(new Set(columns), new Set([totals.headings.length]), "a cell over all columns takes all");
  assert.equal(
    csvFileName("LIST COUNTRIES 'x/..\\y'", new Date(2025, 0, 31, 9, 5)),
    "LIST-COUNTRIES-x-y-20250131-0905.csv",
  );
});

test("no source of the page parses text as markup or runs it", () => {
  const parsing =
    /innerHTML|outerHTML|insertAdjacentHTML|document\.write|DOMParser|createContextualFragment|\beval\(|new Function/;
  const attributes = /setAttribute\("(?:style|on)|\son\w+=|\sstyle=/;
  const web = new URL("../../web/", here);
  const names = readdirSync(web).filter((name) => /\.(?:js|html)$/.test(name));
  assert.ok(names.includes("page.js") && names.includes("index.html"));
  for (const name of names) {
    const text = readFileSync(new URL(name, web), "utf8");
    assert.doesNotMatch(text, parsing, name);
    // The patterns of markup.js spell the attributes that it reads.
    if (name !== "markup.js") assert.doesNotMatch(text, attributes, name);
  }
});
