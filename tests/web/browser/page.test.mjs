// The page in a real browser on the real server. With SHOTS=folder it leaves the pictures of docs/browser.md
// there.

import assert from "node:assert/strict";
import { readFileSync, readdirSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import test, { after, afterEach, before } from "node:test";

import { corpus } from "../corpus.js";
import * as it from "./support.mjs";

const kWide = { width: 960, height: 600 };
const kNarrow = { width: 360, height: 640 };
const kLeastContrast = 4.5;

let home, server, gate, browser, context;
let tabs = [];
let ends = []; // what a test began beside them

before(async () => {
  home = it.makeHome();
  const names = corpus.filter(({ isName }) => isName).map(({ text }) => text);
  for (const name of ["A1", ...names]) writeFileSync(join(home, "TransferItem", name), "one\r\ntwo\r\n");
  const items = corpus.map(({ text }, index) => [`t${String(index).padStart(3, "0")}`, text]);
  const byText = corpus.filter(({ text }) => text.length <= 55).map(({ text }) => [text, "by its ID"]);
  it.writeBulkFile(join(home, "TransferBulk", "hostile"), "HOSTILE", [...items, ...byText]);
  server = await it.startServer(home);
  gate = await it.openGate(server.port);
  browser = await it.startBrowser();
  context = await browser.newContext({
    viewport: kWide,
    colorScheme: "light",
    permissions: ["clipboard-read", "clipboard-write"],
  });
});

after(async () => {
  await browser?.close();
  gate?.close();
  await server?.stop();
  it.removeHome(home);
});

afterEach(async () => {
  const all = tabs;
  tabs = [];
  for (const end of ends.splice(0).reverse()) await end();
  for (const { page, complaints } of all) {
    const harm = await page.evaluate(() => globalThis.harmed);
    await page.close();
    assert.deepEqual([harm, complaints], [undefined, []]);
  }
});

const showsPrompt = (page) =>
  page.waitForFunction(() => document.querySelector(".xterm-rows").textContent.includes(":"));

// A tab that is logged in and at the prompt. It may complain of what is `expected`.
async function open(expected) {
  const tab = await it.openTab(context, gate.url, expected);
  tabs.push(tab);
  const first = await Promise.race([it.isReady(tab.page), tab.page.waitForSelector("#password")]);
  if ((await first.getAttribute("id")) === "password") {
    await it.logIn(tab.page);
    await it.isReady(tab.page);
  }
  await showsPrompt(tab.page);
  return tab;
}

async function shoot(page, name) {
  if (process.env.SHOTS) await page.screenshot({ path: join(process.env.SHOTS, `${name}.png`) });
}

async function openForm(page, link) {
  if (!(await page.locator(".customlink").count())) await it.enter(page, "MENU");
  await it.field(page, link).click();
  await it.field(page, "bx1").waitFor();
}

async function closeForm(page) {
  await it.field(page, "bx2").click();
  await page.waitForSelector(".customlink");
}

async function closeForms(page) {
  await closeForm(page);
  await it.field(page, "bx2").click();
  await it.onTerminal(page);
}

const screenHolds = (page, text) => page.locator(".xterm-rows").filter({ hasText: text }).waitFor();

// The lines of the terminal, the empty ones at the end left out.
const screen = (page) =>
  page
    .locator(".xterm-rows > div")
    .evaluateAll((lines) => lines.map((line) => line.textContent.replaceAll("\u00a0", " ").trimEnd()))
    .then((lines) => lines.slice(0, lines.findLastIndex((line) => line !== "") + 1));

async function assertLegible(page, selectors) {
  for (const selector of selectors) {
    let contrast = 0;
    for (let tries = 0; contrast < kLeastContrast && tries < 20; tries++)
      contrast = await it.contrast(page, selector);
    assert.ok(contrast >= kLeastContrast, `${selector}: ${contrast}`);
  }
}

const cells = (page) =>
  page
    .locator("tbody tr")
    .evaluateAll((rows) => rows.map((row) => [...row.cells].map((cell) => cell.textContent)));

test("log-in, terminal, log-out", async () => {
  const refused = await it.openTab(context, gate.url, /403/);
  tabs.push(refused);
  await shoot(refused.page, "log-in");
  await it.logIn(refused.page, { user: 'a"<b>', password: "wrong", account: "DEMO" });
  await refused.page.locator(".message").filter({ hasText: /./ }).waitFor();
  assert.deepEqual(
    await refused.page.locator("input").evaluateAll((inputs) => inputs.map((input) => input.value)),
    ['a"<b>', "", "DEMO"],
  );
  await refused.page.emulateMedia({ colorScheme: "dark" });
  await assertLegible(refused.page, ["label", ".hint", ".message", "button", "input"]);
  await refused.page.setViewportSize(kNarrow);
  assert.equal(await it.overhang(refused.page, "html"), 0);
  const { page, sent } = await open();
  assert.equal(await page.title(), "DEMO - NvAdmin");
  await it.enter(page, "WHO");
  await screenHolds(page, "anna");
  await page.keyboard.type("TIMX");
  await page.keyboard.press("Backspace");
  await page.keyboard.type("E");
  await page.keyboard.press("Control+c");
  await page.waitForFunction(() => /:TIME\^C\s*:/.test(document.querySelector(".xterm-rows").innerText));
  await page.keyboard.press("ArrowUp");
  await page.keyboard.press("Enter");
  await page.waitForFunction(
    () => document.querySelector(".xterm-rows").textContent.split("anna").length > 2,
  );
  assert.deepEqual(sent.slice(1), ["L1 WHO", "I", "L2 WHO"]);
  await it.paste(page, "x中");
  assert.match(await page.locator("#status").textContent(), /U\+4E2D/);
  await it.paste(page, "TIME\nWH");
  await page.locator("dialog button[value=yes]").click();
  await page.keyboard.type("O");
  await page.keyboard.press("Enter");
  await page.waitForFunction(
    () => document.querySelector(".xterm-rows").textContent.split("anna").length > 3,
  );
  assert.deepEqual(sent.slice(4), ["L3 TIME", "L4 WHO"]);

  const word = page.locator(".xterm-rows > div").filter({ hasText: /^:WHO/ }).first();
  const place = await word.boundingBox();
  await page.mouse.dblclick(place.x + 14, place.y + 8);
  await page.keyboard.press("Control+c");
  assert.equal(await page.evaluate(() => navigator.clipboard.readText()), ":WHO");
  assert.equal(sent.length, 6, "copying interrupts nothing");
  await page.emulateMedia({ media: "print" });
  assert.ok(await word.isVisible(), "the screen can be printed");
  await page.emulateMedia({ media: null, colorScheme: "dark" });
  await assertLegible(page, [".xterm-rows", ".user", ".state", ".quiet"]);
  await page.setViewportSize(kNarrow);
  await page.waitForFunction(() => document.querySelector(".xterm-screen").clientWidth < 360);
  await it.paste(page, "x中");
  for (const whole of ["html", "#status"]) assert.equal(await it.overhang(page, whole), 0, whole);

  // A log-out takes what was done with it, in this tab and in others.
  const other = await open();
  await page.bringToFront();
  await page.click("text=Log out");
  await page.waitForSelector("#password");
  await other.page.locator(".message").filter({ hasText: "ended" }).waitFor();
  for (const tab of [page, other.page]) assert.equal(await tab.evaluate(() => sessionStorage.length), 0);
  await page.evaluate(() =>
    sessionStorage.setItem("nvadmin-session", '{"user": "ben", "isLeaving": true, "history": ["secret"]}'),
  );
  await it.logIn(page, { ...it.kUser, account: "" });
  await it.isReady(page);
  await showsPrompt(page);
  await page.keyboard.press("ArrowUp");
  await it.enter(page, "HO");
  await screenHolds(page, ":HO");
});

test("what was entered before a page was there does nothing to it", async () => {
  const { page, sent } = await open();
  const replies = () => sent.map((line) => line.replace(/^L\d+ /, ""));
  await page.keyboard.press("Control+c");
  await it.enter(page, "LIST ORDERS CUSTOMER AMOUNT");
  await page.waitForSelector("table");
  for (const cell of ["th", "tbody td:nth-child(3)"]) {
    const align = await page
      .locator(cell)
      .last()
      .evaluate((element) => getComputedStyle(element).textAlign);
    assert.equal(align, "right", cell);
  }
  await page.locator(".bar").click();
  await page.keyboard.press("Escape");
  await it.onTerminal(page);

  await openForm(page, "mx2");
  // The second half of a double click whose first brought the form.
  const exit = await it.field(page, "bx2").boundingBox();
  await page.mouse.move(exit.x + 5, exit.y + 5);
  await page.mouse.down({ clickCount: 2 });
  await page.mouse.up({ clickCount: 2 });
  gate.hold();
  await it.field(page, "bx2").click();
  await it.field(page, "bx2").click();
  gate.release();
  await page.waitForSelector(".customlink");
  await it.field(page, "mx3").dblclick();
  await it.field(page, "bx1").waitFor();
  assert.deepEqual(
    replies()
      .slice(-3)
      .map((line) => line.slice(0, 4)),
    ["mx2|", "bx2|", "mx3|"],
  );

  gate.hold();
  await it.fill(page, "fx3", "COUNTRIES");
  await page.waitForSelector("#working:not([hidden])");
  await shoot(page, "stop");
  await page.click("#stop");
  gate.release();
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  assert.deepEqual(replies().slice(-2), ["fx3|COUNTRIES", "I"]);
  assert.equal(await page.locator("#stop").isVisible(), false);

  await it.field(page, "bx1").click();
  await page.waitForSelector("dialog[open]");
  for (const key of ["n", "Enter", "Escape", "Space"]) await page.keyboard.press(key);
  for (const when of ["pressed", "held"]) {
    for (const key of ["n", "Enter"]) await page.keyboard.down(key);
    assert.match(await it.boxText(page), /^Number of Items = 249\./, when);
  }
  for (const key of ["n", "Enter"]) await page.keyboard.up(key);
  await page.keyboard.press("Escape");
  await page.locator(".box-text").filter({ hasText: "Export Cancelled" }).waitFor();
  assert.equal(replies().at(-1), "ax2|<no>");
  assert.equal(await it.boxText(page), "Export Cancelled");
  await page.keyboard.press("Escape");
  await closeForms(page);
});

test("a report: table, File dump, print, dark", async () => {
  const { page, sent } = await open();
  await it.enter(page, "LIST COUNTRIES NAME");
  await page.waitForSelector("table");
  assert.deepEqual(await page.locator("th").allTextContents(), ["ItemID", "Country"]);
  const rows = await cells(page);
  assert.equal(rows.length, 249);
  assert.ok(rows.some(([id, name]) => id === "SG" && name === "Singapore"));
  await shoot(page, "report");
  await page.emulateMedia({ colorScheme: "dark" });
  await shoot(page, "report-dark");
  await assertLegible(page, ["th", "tbody tr:nth-child(-n+6) td", ".buttons button", ".sentence"]);
  await page.setViewportSize(kNarrow);
  await page.locator("#doc1").evaluate((place) => {
    place.querySelector(".result").style.width = "2000px";
    place.scrollTo(1000, 0);
  });
  assert.ok((await page.locator(".buttons").boundingBox()).x >= 0, "the buttons stay in view");
  assert.equal(await it.overhang(page, "html"), 0);
  await page.locator(".result").evaluate((result) => (result.style.width = ""));
  await page.setViewportSize(kWide);
  await page.locator("#doc1").evaluate((place) => place.scrollTo(0, 2000));
  const top = await page
    .locator("thead th")
    .first()
    .evaluate((cell) => cell.getBoundingClientRect().top);
  assert.ok(top > 40 && top < 120, `the headings stay in view: ${top}`);
  await page.emulateMedia({ media: "print", colorScheme: "light" });
  for (const hidden of [".bar", ".toolbar", ".terminal-pane"])
    assert.equal(await page.locator(hidden).isVisible(), false, hidden);
  await page.emulateMedia({ media: null });
  const sheets = (await page.pdf({ format: "A4" })).toString("latin1").match(/\/Type \/Page\b/g).length;
  assert.ok(sheets > 4 && sheets < 12, `all rows are printed: ${sheets} sheets`);
  let downloads = 0;
  page.on("download", () => downloads++);
  gate.hold();
  const [download] = await Promise.all([page.waitForEvent("download"), page.dblclick("text=File dump")]);
  gate.release();
  const csv = readFileSync(await download.path(), "utf8");
  assert.match(download.suggestedFilename(), /^LIST-COUNTRIES-NAME-\d{8}-\d{4}\.csv$/);
  assert.match(csv, /^\uFEFFItemID,Country\r\n/);
  assert.equal(csv.trimEnd().split("\r\n").length, 250);
  await it.onTerminal(page);
  assert.equal(sent.at(-1), "L2 fx1|<file>");
  await page.waitForFunction(
    (name) => document.querySelector(".xterm-rows").textContent.replace(/\s/g, "").includes(name),
    download.suggestedFilename(),
  );
  assert.equal(downloads, 1);
});

test("an SQL page by keyboard alone", async () => {
  const { page, sent } = await open();
  await it.enter(page, "SELECT A0, A1 FROM countries WHERE A0 = 'SG';");
  await page.waitForSelector("table");
  const [row] = await cells(page);
  assert.ok(row.includes("SG"), String(row));
  await page.keyboard.press("Tab");
  await page.keyboard.press("Enter");
  await it.onTerminal(page);
  assert.equal(sent.at(-1), "L2 fx1|CLOSE");
  await it.enter(page, "SELECT x FROM nowhere;");
  await page.waitForSelector(".error");
  await assertLegible(page, [".error"]);
  await page.keyboard.press("Escape");
  await it.onTerminal(page);
});

test("import and export by the forms", async () => {
  const { page } = await open();
  await it.enter(page, "MENU");
  await page.waitForSelector(".customlink");
  await shoot(page, "menu");
  await openForm(page, "mx1");
  const names = await it.field(page, "fx1").locator("option").allTextContents();
  for (const { text, isName } of corpus) assert.ok(!isName || names.includes(text), text);
  for (const name of names
    .filter((text) => text !== "A1")
    .slice(0, 3)
    .concat("A1")) {
    await it.field(page, "fx1").selectOption(name);
    await it.fate(page, "fx1").filter({ hasText: "accepted" }).waitFor();
  }
  await page.getByText("File/Table", { exact: true }).click();
  await page.keyboard.type("NOSUCH");
  assert.match(await it.fate(page, "fx3").textContent(), /changed, not sent yet/);
  await page.keyboard.press("Enter");
  assert.match(await it.boxText(page), /'nosuch' is not a valid File\/Table\./);
  await page.keyboard.press("Escape");
  await it.fill(page, "fx3", "CUSTOMERS");
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  assert.equal(await it.field(page, "fx3").inputValue(), "customers");
  await it.fill(page, "fx4", "A1");
  await it.fate(page, "fx4").filter({ hasText: "accepted" }).waitFor();
  await shoot(page, "import");
  await it.field(page, "bx1").click();
  assert.equal(await it.boxText(page), "Item/Record 'A1' imported.");
  await page.keyboard.press("Enter");
  assert.equal(await it.field(page, "fx4").inputValue(), "");
  await closeForm(page);

  await openForm(page, "mx2");
  await it.fill(page, "fx3", "CUSTOMERS");
  await it.fill(page, "fx5", "copy");
  await it.fate(page, "fx5").filter({ hasText: "accepted" }).waitFor();
  await it.fill(page, "fx4", "A1");
  assert.equal(await it.boxText(page), "Change TransferItem file name to 'A1' ?");
  await shoot(page, "question");
  await page.keyboard.press("n");
  assert.equal(await it.field(page, "fx5").inputValue(), "copy");
  await it.field(page, "bx1").click();
  assert.equal(await it.boxText(page), "Item/Record 'A1' exported.");
  assert.match(readFileSync(join(home, "TransferItem", "copy"), "latin1"), /^one\r\ntwo\r\n/);
  await page.keyboard.press("Enter");
  await closeForm(page);

  await openForm(page, "mx3");
  await it.fill(page, "fx3", "nosuch");
  assert.match(await it.boxText(page), /'nosuch'/);
  await page.keyboard.press("Enter");
  assert.match(await it.fate(page, "fx3").textContent(), /not accepted/);
  assert.equal(await it.field(page, "fx3").getAttribute("aria-invalid"), "true");
  await it.fill(page, "fx3", "COUNTRIES");
  await it.fate(page, "fx5").filter({ hasText: "accepted" }).waitFor();
  const subfolder = await it.field(page, "fx5").inputValue();
  await it.field(page, "bx1").click();
  assert.match(await it.boxText(page), /^Number of Items = 249\./);
  await page.keyboard.press("y");
  await page.locator("dialog[open] .box-text").filter({ hasText: "249 Items/Records exported." }).waitFor();
  await it.boxText(page);
  assert.equal(readdirSync(join(home, "TransferItem", subfolder)).length, 249);
  await page.keyboard.press("Enter");
  await closeForms(page);
});

test("keyboard alone, in a form on a narrow screen", async () => {
  const { page, sent } = await open();
  await page.setViewportSize(kNarrow);
  await it.enter(page, "MENU");
  await page.waitForSelector(".customlink");
  assert.equal(await page.evaluate(() => document.activeElement.dataset.id), "mx1");
  await page.keyboard.press("Tab");
  await page.keyboard.press("Space");
  await it.field(page, "bx1").waitFor();
  await shoot(page, "narrow");
  const widths = await page.locator("#doc1").evaluate((place) => [place.scrollWidth, place.clientWidth]);
  assert.equal(widths[0], widths[1], "nothing to scroll sideways");
  await page.waitForFunction(() => document.activeElement.dataset.id === "fx2");
  for (const [id, label] of [
    ["fx2", "Account/Database"],
    ["fx3", "File/Table"],
    ["fx4", "Item/Record"],
    ["fx5", "To: TransferItem file name"],
  ]) {
    assert.equal(await page.getByLabel(label, { exact: true }).getAttribute("data-id"), id);
  }
  await page.keyboard.press("Tab");
  await page.keyboard.type("COUNTRIES");
  await page.keyboard.press("Tab");
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  await page.keyboard.type("SG");
  await page.keyboard.press("Enter");
  await page.waitForFunction(() => document.activeElement.dataset.id === "fx5");
  await page.keyboard.type("sg");
  await page.keyboard.press("Tab");
  await page.keyboard.press("Enter");
  assert.equal(await it.boxText(page), "Item/Record 'SG' exported.");
  await page.keyboard.press("Enter");
  await page.waitForFunction(() => document.activeElement.dataset.id === "fx5");
  await page.keyboard.press("Tab");
  await page.keyboard.press("Tab");
  await page.keyboard.press("Enter");
  await page.waitForSelector(".customlink");
  const replies = sent.map((line) => line.replace(/^L\d+ /, "")).slice(3);
  assert.deepEqual(replies, [
    "mx2|Export 1 Item/Record to TransferItem",
    "fx3|COUNTRIES",
    "fx4|SG",
    "fx5|sg",
    "bx1|File",
    "ax1|<ok>",
    "bx2|Exit",
  ]);
});

test("a load asks at the foot of a small terminal", async () => {
  const gone = ["P", "Q"].map((name) => `<FILE_DATA>${name}\r\n1\xFEx\r\n</FILE_DATA>\r\n`);
  writeFileSync(join(home, "TransferBulk", "gone"), Buffer.from(gone.join(""), "latin1"));
  const { page } = await open();
  const height = await page.evaluate(() => {
    const rows = [...document.querySelectorAll(".xterm-rows > div")];
    return innerHeight - (rows.length - 24) * rows[0].getBoundingClientRect().height;
  });
  await page.setViewportSize({ ...kWide, height: Math.ceil(height) });
  await page.waitForFunction(() => document.querySelectorAll(".xterm-rows > div").length === 24);
  const load = async () => {
    await openForm(page, "mx4");
    await it.field(page, "fx1").selectOption("gone");
    await it.field(page, "bx1").click();
    await screenHolds(page, "Cannot find target 'p' so skip");
  };
  const foot = (lines) => [lines[4], lines[6], lines[9], lines[23]];
  const kHead = " File properties analysed, now starting data load.";
  await load();
  await page.keyboard.press("Enter");
  await screenHolds(page, "Cannot find target 'q' so skip");
  const question = " Cannot find target 'q' so skip. (CR)=continue, X+(CR)=exit :";
  assert.deepEqual(foot(await screen(page)), [kHead, " Current File: q", " Counter     : 0 / 7", question]);
  await page.keyboard.press("Enter");
  await screenHolds(page, "PROCESS COMPLETE");
  await page.keyboard.press("Enter");
  await page.waitForSelector(".customlink");

  await load();
  await page.keyboard.type("X");
  await page.keyboard.press("Enter");
  await page.waitForSelector(".customlink");
  await it.field(page, "bx2").click();
  await it.onTerminal(page);
  await screenHolds(page, "exit :X");
  assert.deepEqual((await screen(page)).slice(-2), [question.replace("'q'", "'p'") + "X", ":"]);
});

test("hostile texts come by bulk load and are shown as text", async () => {
  const { page, sent, requests } = await open();
  requests.length = 0;
  await openForm(page, "mx4");
  await it.field(page, "fx1").selectOption("hostile");
  await it.field(page, "fx4").selectOption("1");
  await it.field(page, "bx1").click();
  await page.locator(".xterm-rows").filter({ hasText: "PROCESS COMPLETE" }).waitFor();
  const lines = await screen(page);
  const line = lines.findIndex((text) => text.startsWith(" File properties analysed"));
  assert.match(lines[line + 2], /^ Current File: \S+ *$/);
  assert.match(lines[line + 5], /^ Counter     : (\d+) \/ \d+$/, "in place");
  assert.equal(lines[line + 7], " PROCESS COMPLETE, press (CR) to return to Admin Menu :");
  await shoot(page, "bulk-load");
  await page.keyboard.press("Enter");
  await page.waitForSelector(".customlink");
  await it.field(page, "bx2").click();
  await it.onTerminal(page);

  sent.length = 0;
  await it.enter(page, "LIST HOSTILE TEXT");
  await page.waitForSelector("table");
  const rows = await cells(page);
  const shown = new Map(rows.map(([id, text]) => [id, text]));
  for (const [index, { text }] of corpus.entries()) {
    assert.equal(shown.get(`t${String(index).padStart(3, "0")}`), text, text);
    if (text.length <= 55) assert.equal(shown.get(text), "by its ID", text);
  }
  assert.deepEqual(await page.locator("#doc1 button").allTextContents(), ["CLOSE", "Print", "File dump"]);
  assert.equal(await page.locator("#doc1 :is(script, img, input, iframe, svg, style, a)").count(), 0);
  await page.keyboard.press("Escape");
  await it.onTerminal(page);

  await it.enter(page, "SELECT A0, A1 FROM hostile;");
  await page.waitForSelector("table");
  const byId = new Map(await cells(page));
  for (const [index, { text }] of corpus.entries()) {
    assert.equal(byId.get(`t${String(index).padStart(3, "0")}`), text, text);
  }
  await page.keyboard.press("Escape");
  await it.onTerminal(page);

  const controls = corpus.findIndex(({ text }) => text === "\x1b[6n");
  await it.enter(page, `CT HOSTILE t${controls}`);
  await screenHolds(page, "[6n");
  assert.deepEqual(
    sent.map((line) => line.replace(/^L\d+ /, "")),
    ["LIST HOSTILE TEXT", "fx1|CLOSE", "SELECT A0, A1 FROM hostile;", "fx1|CLOSE", `CT HOSTILE t${controls}`],
  );

  const typed = corpus.map(({ text }) => text).filter((text) => !/[\x00-\x1f\x7f-\x9f]/.test(text));
  for (const text of typed
    .filter((text) => /^<[^"']*$|\^/.test(text))
    .filter((_, index) => index % 12 === 0)) {
    await it.enter(page, `SELECT A0 FROM "${text}";`);
    await page.locator(".error").filter({ hasText: text }).waitFor();
    await page.keyboard.press("Escape");
    await it.onTerminal(page);
  }

  // The texts as answers of a form: each comes back as it went, or is refused with a message.
  await openForm(page, "mx1");
  for (const text of typed) {
    await it.fill(page, "fx4", text);
    await it.hasFate(page, "fx4", "accepted");
    assert.equal(await it.field(page, "fx4").inputValue(), text);
    assert.equal(await page.locator("dialog[open]").count(), 0, text);
  }
  for (const text of typed.filter((_, index) => index % 20 === 0)) {
    await it.fill(page, "fx2", text);
    assert.equal(await it.boxText(page), `'${text}' is not a valid account.`);
    await page.keyboard.press("Enter");
  }
  await closeForms(page);
  assert.deepEqual(requests, [], "nothing was asked for");
});

test("a connection that breaks in the middle of a form", async () => {
  const { page, sent } = await open(it.kCut);
  // The server is gone in the middle of a frame.
  gate.cutAfter(5000);
  await it.enter(page, "LIST COUNTRIES NAME");
  await page.waitForSelector("tbody tr:nth-child(249)");
  await page.keyboard.press("Escape");
  await it.onTerminal(page);
  await openForm(page, "mx2");
  await it.fill(page, "fx3", "COUNTRIES");
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  // The server took a line, but its answer was lost.
  gate.hold();
  await it.fill(page, "fx4", "MY");
  await it.field(page, "fx5").pressSequentially("typed on");
  await page.waitForTimeout(100);
  gate.cut();
  gate.release();
  await it.hasFate(page, "fx4", "");
  assert.equal(await it.field(page, "fx5").inputValue(), "typed on");
  gate.shut();
  await page.waitForSelector("[data-state=lost], [data-state=connecting]");
  await it.fill(page, "fx5", "kept");
  await it.fate(page, "fx5").filter({ hasText: "on its way" }).waitFor();
  gate.reopen();
  await it.fate(page, "fx5").filter({ hasText: "accepted" }).waitFor();
  assert.equal(await it.field(page, "fx3").inputValue(), "COUNTRIES");
  await it.fill(page, "fx4", "SG");
  assert.match(await it.boxText(page), /Change TransferItem/);
  gate.cut();
  await it.isReady(page);
  await page.keyboard.press("n");
  await it.field(page, "bx1").click();
  assert.equal(await it.boxText(page), "Item/Record 'SG' exported.");
  assert.equal(sent.filter((line) => line.endsWith("fx5|kept")).length, 1);
  await page.keyboard.press("Enter");

  // A reload shows the form again as it was, and what was typed at the terminal before; also when the tab was
  // gone without a word. A copy of the tab is another one.
  const state = await page.evaluate(() => {
    Object.defineProperty(document, "hidden", { value: true });
    document.dispatchEvent(new Event("visibilitychange"));
    Storage.prototype.setItem = () => {};
    return sessionStorage.getItem("nvadmin-session");
  });
  const copy = await it.openTab(context, "about:blank");
  tabs.push(copy);
  await copy.page.addInitScript((text) => globalThis.sessionStorage?.setItem("nvadmin-session", text), state);
  await copy.page.goto(gate.url);
  await it.isReady(copy.page);
  assert.deepEqual(copy.sent, ["N"]);
  await page.bringToFront();
  await page.reload();
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  assert.equal(await it.field(page, "fx3").inputValue(), "COUNTRIES");
  await page.waitForFunction(() => document.querySelector("[data-id=fx4]").value === "");
  await closeForms(page);
  await page.waitForFunction(() => document.querySelector(".xterm-rows").textContent.includes(":MENU"));
  await it.enter(page, "WHO");
  await screenHolds(page, "anna");
});

// A server of its own on a port, or any; it ends with the test.
async function startServer(options, port = 0) {
  const started = await it.startServer(home, options, port);
  const stop = () => (ends.splice(ends.indexOf(stop), 1), started.stop());
  ends.push(stop);
  return { ...started, stop };
}

test("long lines; a session that is gone; servers that are started anew", async () => {
  const first = await startServer(["--max-line", "1000", "--resume", "1"]);
  const way = await it.openGate(first.port);
  ends.push(way.close);
  const strangers = await browser.newContext({ viewport: kWide });
  const tab = await it.openTab(strangers, way.url, it.kCut);
  tabs.push(tab);
  const { page, sent } = tab;
  await it.logIn(page);
  await it.isReady(page);
  await it.paste(page, "x".repeat(1001));
  assert.match(await page.locator("#status").textContent(), /longer than the 1000 bytes/);
  await page.keyboard.type("WHO");
  await page.keyboard.press("Enter");
  await screenHolds(page, "anna");
  assert.deepEqual(sent, ["N", "L1 WHO"]);

  way.shut();
  await page.waitForSelector("[data-state=lost], [data-state=connecting]");
  await it.enter(page, "TIME");
  await page.waitForTimeout(2500);
  way.reopen();
  await screenHolds(page, "The old session is gone");
  await screenHolds(page, "Not sent: TIME");

  await first.stop();
  await page.locator("#over-text").filter({ hasText: "The server has ended" }).waitFor();
  const second = await startServer([], first.port);
  await page.click("#again");
  const ended = page.locator(".message").filter({ hasText: "ended" });
  await ended.waitFor();
  await shoot(page, "log-in-again");
  await it.logIn(page);
  await it.isReady(page);
  await page.locator(".xterm-helper-textarea").focus();
  await page.keyboard.press("ArrowUp");
  await page.keyboard.press("ArrowUp");
  await page.keyboard.press("Enter");
  await screenHolds(page, "anna");

  // More than a browser keeps for a tab: the session outlives a reload.
  await it.paste(page, "x".repeat(3_000_000));
  await page.keyboard.press("Enter");
  await it.enter(page, "TIME");
  const time = () => /^:?\d\d:\d\d:\d\d \d/m.test(document.querySelector(".xterm-rows").innerText);
  await page.waitForFunction(time);
  sent.length = 0;
  await page.reload();
  await page.waitForFunction(time);
  assert.match(sent[0], /^R/);

  // Killed: there was nobody to say so.
  way.shut();
  await second.stop();
  await startServer([], first.port);
  way.reopen();
  await ended.waitFor({ timeout: 20_000 }); // at the next try, 15 seconds later at most
});

test("under TLS", async () => {
  const encrypted = await it.startServer(home, it.makeCertificate(home));
  const strangers = await browser.newContext({ viewport: kWide, ignoreHTTPSErrors: true });
  try {
    const tab = await it.openTab(strangers, `https://localhost:${encrypted.port}/`);
    tabs.push(tab);
    await it.logIn(tab.page);
    await it.isReady(tab.page);
    assert.deepEqual(
      (await strangers.cookies()).filter(({ name }) => name === "nvadmin").map(({ secure }) => secure),
      [true],
    );
    await it.enter(tab.page, "LIST COUNTRIES NAME");
    await tab.page.waitForSelector("tbody tr");
    await tab.page.keyboard.press("Escape");
    await it.onTerminal(tab.page);
    await openForm(tab.page, "mx2");
    await closeForms(tab.page);
  } finally {
    await encrypted.stop();
  }
});

test("two tabs have sessions of their own", async () => {
  const one = await open();
  const two = await open();
  await openForm(one.page, "mx2");
  await it.enter(two.page, "WHO");
  await two.page.locator(".xterm-rows").filter({ hasText: "anna" }).waitFor();
  assert.equal(await one.page.locator(".form").count(), 1);
  await one.page.bringToFront();
  await closeForms(one.page);
  await two.page.bringToFront();
  await it.enter(two.page, "OFF");
  await two.page.locator("#again").click();
  await it.isReady(two.page);
  await it.enter(two.page, "WHO");
  await two.page.locator(".xterm-rows").filter({ hasText: "anna" }).waitFor();
});
