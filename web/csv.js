// A result table as CSV (RFC 4180), in UTF-8 with the mark by which spreadsheets know it. A spreadsheet would
// take a text that begins with = + - or @ for a formula, so such a text, unless it is a plain number, gets an
// apostrophe before it.

const kByteOrderMark = "\uFEFF";
const kFormulaStart = /^[=+\-@\t\r]/;
const kNumber = /^[+-][\d,]*(?:\.\d*)?$/;

export function csvField(text) {
  const safe = kFormulaStart.test(text) && !kNumber.test(text) ? `'${text}` : text;
  return /[",\r\n]/.test(safe) || safe !== safe.trim() ? `"${safe.replaceAll('"', '""')}"` : safe;
}

// A cell that spans columns is followed by empty ones.
function csvCell({ text, span }) {
  return csvField(text) + ",".repeat(span - 1);
}

// `table` as markup.js gives it. Values of one cell stand on lines of their own within the field.
export function csvOfTable(table) {
  const lines = [table.headings.map((heading) => csvField(heading.text)).join(",")];
  for (const row of table.rows) lines.push(row.cells.map(csvCell).join(","));
  return kByteOrderMark + lines.join("\r\n") + "\r\n";
}

// A file name made of the sentence and the time: LIST-COUNTRIES-NAME-20250131-0930.csv.
export function csvFileName(sentence, now) {
  const words = sentence
    .replace(/[^A-Za-z0-9]+/g, "-")
    .replace(/^-|-$/g, "")
    .slice(0, 60);
  const two = (number) => String(number).padStart(2, "0");
  const day = `${now.getFullYear()}${two(now.getMonth() + 1)}${two(now.getDate())}`;
  return `${words || "table"}-${day}-${two(now.getHours())}${two(now.getMinutes())}.csv`;
}
