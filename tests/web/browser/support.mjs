// A home with the demo account and a user, the real server on it, a gate before the server that can be cut,
// and a browser that keeps what it complains of. From the environment: NVADMIN, the program; CHROMIUM;
// MODULES, where playwright-core was installed.

import { spawn, spawnSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import net from "node:net";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";

const { chromium } = createRequire(resolve(process.env.MODULES, "x.js"))("playwright-core");

export const kUser = { user: "anna", password: "pass word", account: "DEMO" };
const kOffline = [
  "--disable-background-networking",
  "--disable-component-update",
  "--disable-sync",
  "--disable-quic",
];

function run(home, words, input) {
  const { status, stdout, stderr } = spawnSync(process.env.NVADMIN, ["--home", home, ...words], {
    input,
    encoding: "latin1",
  });
  if (status !== 0) throw new Error(`nvadmin ${words.join(" ")}: ${status}: ${stdout}${stderr}`);
  return stdout;
}

export function makeHome() {
  const home = mkdtempSync(join(tmpdir(), "nvadmin-browser-"));
  run(home, ["demo"], "");
  run(home, ["user", "add", kUser.user, "--account", "DEMO"], `${kUser.password}\n`);
  return home;
}

export const removeHome = (home) => rmSync(home, { recursive: true, force: true });

export async function startServer(home, options = [], wantedPort = 0) {
  const words = ["--home", home, "serve", "--web", `127.0.0.1:${wantedPort}`, "--web-name", "localhost"];
  const program = spawn(process.env.NVADMIN, [...words, ...options]);
  let log = "";
  const port = await new Promise((found, failed) => {
    const look = (data) => {
      log += data;
      const place = /127\.0\.0\.1:(\d+)/.exec(log);
      if (place) found(Number(place[1]));
    };
    program.stdout.on("data", look);
    program.stderr.on("data", look);
    program.on("exit", (code) => failed(new Error(`the server ended with ${code}: ${log}`)));
  });
  const stop = () =>
    new Promise(
      (done) => (program.removeAllListeners("exit"), program.on("exit", done), program.kill("SIGTERM")),
    );
  return { port, stop, log: () => log };
}

// Options of a server under TLS, with a certificate of its own.
export function makeCertificate(home) {
  const [key, certificate] = [join(home, "key.pem"), join(home, "certificate.pem")];
  const words = ["req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost"];
  const made = spawnSync("openssl", [...words, "-keyout", key, "-out", certificate], { encoding: "utf8" });
  if (made.status !== 0) throw new Error(`openssl: ${made.stderr}`);
  return ["--tls-cert", certificate, "--tls-key", key];
}

// A port that passes everything on to the server's, until it is cut. What the server says can be held back.
export async function openGate(port) {
  const pairs = new Set();
  let isShut = false;
  let held = null; // pairs of socket and data
  let bytesLeft = Infinity;
  const passBack = (inner, data) => {
    if (held) return held.push([inner, data]);
    inner.write(data.subarray(0, bytesLeft));
    bytesLeft -= data.length;
    if (bytesLeft > 0) return;
    bytesLeft = Infinity;
    inner.destroySoon();
  };
  const gate = net.createServer((inner) => {
    if (isShut) return inner.destroy();
    const outer = net.connect(port, "127.0.0.1");
    const pair = [inner, outer];
    pairs.add(pair);
    inner.on("data", (data) => outer.write(data));
    outer.on("data", (data) => passBack(inner, data));
    for (const [from, to] of [pair, [...pair].reverse()]) {
      from.on("close", () => (pairs.delete(pair), to.destroy()));
      from.on("error", () => to.destroy());
    }
  });
  await new Promise((done) => gate.listen(0, "127.0.0.1", done));
  const cut = () => pairs.forEach((pair) => pair.forEach((socket) => socket.destroy()));
  return {
    url: `http://localhost:${gate.address().port}/`,
    cut,
    shut: () => ((isShut = true), cut()),
    reopen: () => (isShut = false),
    hold: () => (held = []),
    release() {
      const all = held;
      held = null;
      for (const [inner, data] of all) if (!inner.destroyed) inner.write(data);
    },
    // Cuts once the server has said so much more.
    cutAfter: (bytes) => (bytesLeft = bytes),
    close: () => (cut(), gate.close()),
  };
}

export const startBrowser = () =>
  chromium.launch({
    executablePath: process.env.CHROMIUM,
    args: ["--no-sandbox", "--disable-gpu", "--no-first-run", ...kOffline],
  });

// What a browser says of connections that are cut.
export const kCut =
  /WebSocket connection to .* failed|ERR_CONNECTION|ERR_EMPTY_RESPONSE|ERR_SOCKET_NOT_CONNECTED/;

// A tab with the page in it: what it sent by its WebSocket stands in `sent`, what it asked for otherwise in
// `requests`, and what it complained of in `complaints`, but for what is `expected`.
export async function openTab(context, url, expected = /(?!)/) {
  const page = await context.newPage();
  page.setDefaultTimeout(10_000);
  const tab = { page, sent: [], requests: [], complaints: [] };
  page.on("console", (message) => {
    if (message.type() === "error" && !expected.test(message.text())) tab.complaints.push(message.text());
  });
  page.on("pageerror", (error) => tab.complaints.push(String(error)));
  page.on("request", (request) => tab.requests.push(`${request.method()} ${request.url()}`));
  page.on("websocket", (socket) => socket.on("framesent", ({ payload }) => tab.sent.push(String(payload))));
  await page.addInitScript(() => {
    addEventListener("securitypolicyviolation", (event) =>
      console.error(`policy: ${event.violatedDirective} ${event.blockedURI}`),
    );
  });
  await page.goto(url);
  return tab;
}

export async function logIn(page, { user, password, account } = kUser) {
  await page.fill("#user", user);
  await page.fill("#password", password);
  await page.fill("#login-account", account);
  await page.keyboard.press("Enter");
}

export const isReady = (page) => page.waitForSelector("[data-state=ready]");
export const onTerminal = (page) => page.waitForSelector("#doc1", { state: "hidden" });

// Types a sentence at the prompt.
export async function enter(page, sentence) {
  await page.locator(".xterm-helper-textarea").focus();
  await page.keyboard.type(sentence);
  await page.keyboard.press("Enter");
}

export const paste = (page, text) =>
  page.evaluate((pasted) => {
    const data = new DataTransfer();
    data.setData("text/plain", pasted);
    const event = new ClipboardEvent("paste", { clipboardData: data, bubbles: true, cancelable: true });
    document.activeElement.dispatchEvent(event);
  }, text);

export const field = (page, id) => page.locator(`[data-id=${id}]`);
export const fate = (page, id) => page.locator(`.field:has([data-id=${id}]) .fate`);
export const hasFate = (page, id, fate) =>
  page.waitForFunction(
    ([name, wanted]) => document.querySelector(`[data-id=${name}]`).dataset.fate === wanted,
    [id, fate],
  );

// The text of the box, once it takes keys.
export async function boxText(page) {
  await page.waitForFunction(() => document.querySelector("dialog[open] .box-buttons:not([inert])"));
  return page.locator(".box-text").textContent();
}

export async function fill(page, id, text) {
  await field(page, id).fill(text);
  await page.keyboard.press("Enter");
}

// The least contrast between text and what is behind it, of all elements that a selector finds: 1 to 21.
export const contrast = (page, selector) =>
  page.locator(selector).evaluateAll((elements) => {
    const channels = (colour) => colour.match(/[\d.]+/g).map(Number);
    const light = (colour) => {
      const [red, green, blue] = channels(colour)
        .map((channel) => channel / 255)
        .map((channel) => (channel <= 0.04045 ? channel / 12.92 : ((channel + 0.055) / 1.055) ** 2.4));
      return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
    };
    const backgroundOf = (element) => {
      const { backgroundColor } = getComputedStyle(element);
      return channels(backgroundColor)[3] === 0 ? backgroundOf(element.parentElement) : backgroundColor;
    };
    const ratios = elements.map((element) => {
      const [low, high] = [light(getComputedStyle(element).color), light(backgroundOf(element))].sort(
        (a, b) => a - b,
      );
      return (high + 0.05) / (low + 0.05);
    });
    return Math.min(...ratios);
  });

// By how many pixels what an element holds is wider than the element.
export const overhang = (page, selector) =>
  page.locator(selector).evaluate((element) => element.scrollWidth - element.clientWidth);

// Bytes of the code page.
const kBytes = { "€": 0x80, "–": 0x96, "“": 0x93, "”": 0x94 };
export const toCodePage = (text) =>
  Buffer.from([...text].map((letter) => kBytes[letter] ?? letter.charCodeAt(0)));

// A transfer file that brings a file with a dictionary and `items`, pairs of ID and text.
export function writeBulkFile(path, name, items) {
  const escapes = { "`": "``", "\r": "`C", "\n": "`L", "\0": "`0" };
  const escaped = (text) => text.replace(/[`\r\n\0]/g, (letter) => escapes[letter]);
  const lines = [
    `<FILE_DICT>${name}`,
    "TEXT\xFEA\xFE1\xFEText\xFE\xFE\xFE\xFE\xFE\xFEL\xFE20",
    "</FILE_DICT>",
    `<FILE_DATA>${name}`,
    ...items.map(([id, text]) => `${escaped(id)}\xFE${escaped(text)}`),
    "</FILE_DATA>",
    "<FILE_STATISTICS>",
    `${name}\xFE1\xFE0\xFE10\xFE\xFE\xFE10`,
    `${name}\xFE0\xFE0\xFE2\xFD2\xFD2\xFE200\xFD200\xFE\xFE60`,
    "</FILE_STATISTICS>",
  ];
  writeFileSync(path, Buffer.concat(lines.map((line) => toCodePage(`${line}\r\n`))));
}
