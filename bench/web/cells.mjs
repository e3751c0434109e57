// How long a result page of 20,000 cells takes to take apart and build, beside the browser's own innerHTML
// for the same markup. Both begin with the text and end with the elements laid out in the document.
//   CHROMIUM=PROGRAM node bench/web/cells.mjs MODULES [row]
// MODULES is the folder in which playwright-core was installed; `row` prints the four times in ms alone.
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { resolve } from "node:path";

const kRows = 2000;
const kColumns = 10;
const kRounds = 15;

const modules = resolve(process.argv[2] ?? ".", "x.js");
const { chromium } = createRequire(modules)("playwright-core");
const web = new URL("../../web/", import.meta.url);

const kHead =
  '<div style="background-Color:white;font-family:courier new;font-size:12pt"><br>LIST&nbsp;BIG</div>' +
  '<table border=1 bordercolor="#f0f0f0" cellspacing=0 cellpadding=1 style="background-Color:white;font-family:arial;font-size:12px">\r\n' +
  '<tr style="background-color:navy;color:white;font-weight:bold">\r\n<td width=15%>ItemID</td>\r\n';

function bigReport() {
  let markup = kHead;
  for (let column = 1; column < kColumns; column++)
    markup += `<td valign=top style="width:9%">Column ${column}</td>`;
  markup += "</tr>\r\n";
  for (let row = 1; row <= kRows; row++) {
    markup += row % 2 ? '<tr style="background-color:#ffffa0">' : "<tr>";
    for (let column = 0; column < kColumns; column++) {
      const text = `${row}.${column}${column % 3 ? "" : " of some length"}`;
      markup += column % 2 ? `<td align=right>${text}</td>` : `<td>${text}</td>`;
    }
    markup += "</tr>\r\n";
  }
  return `${markup}</table>`;
}

// Runs in the browser.
async function measure({ markup, rounds }) {
  const { cutMarkup } = await import("/markup.js");
  const { buildResult } = await import("/build.js");
  const place = document.getElementById("doc1");
  const ours = () => place.replaceChildren(buildResult(cutMarkup(markup), {}));
  const browsers = () => (place.innerHTML = markup);
  const time = (build, isLaidOut) => {
    place.replaceChildren();
    void place.offsetHeight;
    const begin = performance.now();
    build();
    if (isLaidOut) void place.offsetHeight;
    return performance.now() - begin;
  };
  const median = (numbers) => numbers.sort((a, b) => a - b)[Math.floor(numbers.length / 2)];
  const figures = {};
  for (const isLaidOut of [false, true]) {
    const times = { ours: [], browsers: [] };
    for (let round = 0; round < rounds; round++) {
      times.ours.push(time(ours, isLaidOut));
      times.browsers.push(time(browsers, isLaidOut));
    }
    figures[isLaidOut ? "with layout" : "built"] = [median(times.ours), median(times.browsers)];
  }
  return { figures, cells: (ours(), place.querySelectorAll("td").length) };
}

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: [
    "--no-sandbox",
    "--disable-gpu",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
  ],
});
const page = await browser.newPage();
await page.route("http://page.test/**", (route) => {
  const name = new URL(route.request().url()).pathname.slice(1);
  if (name === "")
    return route.fulfill({
      contentType: "text/html",
      body: '<link rel="stylesheet" href="/styles.css"><section id="doc1"></section>',
    });
  return route.fulfill({
    contentType: name.endsWith(".css") ? "text/css" : "text/javascript",
    body: readFileSync(new URL(name, web)),
  });
});
await page.goto("http://page.test/");
const { figures, cells } = await page.evaluate(measure, { markup: bigReport(), rounds: kRounds });
await browser.close();

if (process.argv[3] === "row") {
  console.log(Object.values(figures).flat().map((time) => time.toFixed(1)).join(" "));
  process.exit();
}
console.log(`${cells} cells, median of ${kRounds}`);
for (const [name, [ours, browsers]] of Object.entries(figures)) {
  console.log(
    `${name}: page ${ours.toFixed(1)} ms, innerHTML ${browsers.toFixed(1)} ms, ratio ${(ours / browsers).toFixed(2)}`,
  );
}
