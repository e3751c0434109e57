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

let home, server, gate, browser, context;
let tabs = [];

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
  context = await browser.newContext({ viewport: kWide, colorScheme: "light" });
});

after(async () => {
  await browser?.close();
  gate?.close();
  await server?.stop();
  it.removeHome(home);
});

afterEach(async () => {
  for (const { page, complaints } of tabs) {
    assert.equal(await page.evaluate(() => globalThis.harmed), undefined);
    await page.close();
    assert.deepEqual(complaints, []);
  }
  tabs = [];
});

// A tab that is logged in and at the prompt.
async function open() {
  const tab = await it.openTab(context, gate.url);
  tabs.push(tab);
  const first = await Promise.race([it.isReady(tab.page), tab.page.waitForSelector("#password")]);
  if ((await first.getAttribute("id")) === "password") {
    await it.logIn(tab.page);
    await it.isReady(tab.page);
  }
  await tab.page.waitForFunction(() => document.querySelector(".xterm-rows").textContent.includes(":"));
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

const cells = (page) =>
  page
    .locator("tbody tr")
    .evaluateAll((rows) => rows.map((row) => [...row.cells].map((cell) => cell.textContent)));

test("log-in, terminal, log-out", async () => {
  const refused = await it.openTab(context, gate.url);
  tabs.push(refused);
  await shoot(refused.page, "log-in");
  await it.logIn(refused.page, { ...it.kUser, password: "wrong" });
  await refused.page.locator(".message").filter({ hasText: /./ }).waitFor();
  const { page, sent } = await open();
  assert.equal(await page.title(), "DEMO - NvAdmin");
  await it.enter(page, "WHO");
  await page.locator(".xterm-rows").filter({ hasText: "anna" }).waitFor();
  await page.keyboard.type("TIMX");
  await page.keyboard.press("Backspace");
  await page.keyboard.type("E");
  await page.keyboard.press("Control+c");
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
  await page.click("text=Log out");
  await page.waitForSelector("#password");
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
  const [download] = await Promise.all([page.waitForEvent("download"), page.click("text=File dump")]);
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
  await it.fill(page, "fx3", "NOSUCH");
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
  await it.fate(page, "fx3").filter({ hasText: "not accepted" }).waitFor();
  await page.keyboard.press("Enter");
  assert.equal(await it.field(page, "fx3").getAttribute("aria-invalid"), "true");
  await it.fill(page, "fx3", "COUNTRIES");
  await it.fate(page, "fx5").filter({ hasText: "accepted" }).waitFor();
  const subfolder = await it.field(page, "fx5").inputValue();
  await it.field(page, "bx1").click();
  assert.match(await it.boxText(page), /^Number of Items = 249\./);
  await page.keyboard.press("y");
  await page.locator("dialog[open] .box-text").filter({ hasText: "249 Items/Records exported." }).waitFor();
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

test("hostile texts come by bulk load and are shown as text", async () => {
  const { page, sent } = await open();
  await openForm(page, "mx4");
  await it.field(page, "fx1").selectOption("hostile");
  await it.field(page, "fx4").selectOption("1");
  await it.field(page, "bx1").click();
  await page.locator(".xterm-rows").filter({ hasText: "PROCESS COMPLETE" }).waitFor();
  const screen = await page
    .locator(".xterm-rows > div")
    .evaluateAll((lines) => lines.map((line) => line.textContent.replaceAll("\u00a0", " ").trimEnd()));
  const line = screen.findIndex((text) => text.startsWith(" File properties analysed"));
  assert.match(screen[line + 2], /^ Current File: \S+ *$/);
  assert.match(screen[line + 5], /^ Counter     : (\d+) \/ \d+$/, "in place");
  assert.equal(screen[line + 7], " PROCESS COMPLETE, press (CR) to return to Admin Menu :");
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
  await page.locator(".xterm-rows").filter({ hasText: "[6n" }).waitFor();
  assert.deepEqual(
    sent.map((line) => line.replace(/^L\d+ /, "")),
    ["LIST HOSTILE TEXT", "fx1|CLOSE", "SELECT A0, A1 FROM hostile;", "fx1|CLOSE", `CT HOSTILE t${controls}`],
  );

  // The texts as answers of a form: each comes back as it went, or is refused with a message.
  await openForm(page, "mx1");
  for (const { text } of corpus.filter((entry) => !/[\x00-\x1f\x7f-\x9f]/.test(entry.text)).slice(60, 135)) {
    await it.fill(page, "fx4", text);
    await it.fate(page, "fx4").filter({ hasText: "accepted" }).waitFor();
    assert.equal(await it.field(page, "fx4").inputValue(), text);
    assert.equal(await page.locator("dialog[open]").count(), 0, text);
    await it.field(page, "fx4").fill("");
    await page.keyboard.press("Enter");
    await it.fate(page, "fx4").filter({ hasText: "accepted" }).waitFor();
  }
  await closeForms(page);
});

test("a connection that breaks in the middle of a form", async () => {
  const { page, sent } = await open();
  await openForm(page, "mx2");
  await it.fill(page, "fx3", "COUNTRIES");
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
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

  // A reload shows the form again as it was, and what was typed at the terminal before.
  await page.reload();
  await it.fate(page, "fx3").filter({ hasText: "accepted" }).waitFor();
  assert.equal(await it.field(page, "fx3").inputValue(), "COUNTRIES");
  await page.waitForFunction(() => document.querySelector("[data-id=fx4]").value === "");
  await closeForms(page);
  await page.waitForFunction(() => document.querySelector(".xterm-rows").textContent.includes(":MENU"));
  await it.enter(page, "WHO");
  await page.locator(".xterm-rows").filter({ hasText: "anna" }).waitFor();
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
  await closeForms(one.page);
  await it.enter(two.page, "OFF");
  await two.page.locator("#again").click();
  await it.isReady(two.page);
  await it.enter(two.page, "WHO");
  await two.page.locator(".xterm-rows").filter({ hasText: "anna" }).waitFor();
});
