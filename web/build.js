// Makes elements of the tokens of markup.js. Text goes in as text and styles as properties; nothing is parsed
// as markup, and an element does only what `actions` offers.
//
// `actions`, by the names that the markup uses: EProcess(element, isPress), HighLink(element),
// NormalLink(element), XFocus(element), ExecuteA(argument), "window.print"().

import { labelsOfFields } from "./labels.js";

function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

function makeUnknown(text) {
  console.warn("Markup that isn't known is shown as text:", text.slice(0, 200));
  return make("pre", "unknown", text);
}

// A double click presses once: by the second one another form may stand there.
function makePressed(className, text, act) {
  const button = make("button", className, text);
  button.type = "button";
  button.value = text;
  button.addEventListener("click", (event) => {
    if (event.detail < 2) act(button);
  });
  return button;
}

// --- Forms ---

const kLetterPixels = 7.5; // about as wide as a letter of a label is

function putOnGrid(element, { top, left, width, height }) {
  element.classList.add("placed");
  element.style.setProperty("--top", `${top}px`);
  element.style.setProperty("--left", `${left}px`);
  element.style.setProperty("--width", `${width}px`);
  if (height) element.style.setProperty("--height", `${height}px`);
}

function makeButton(token, actions) {
  const button = makePressed(token.styleClass, token.value, (pressed) => actions.EProcess(pressed, true));
  button.disabled = token.isDisabled ?? false;
  if (token.focusesOnHover) button.addEventListener("mouseover", () => actions.XFocus(button));
  return button;
}

function makeLink(token, actions) {
  const link = makeButton(token, actions);
  link.addEventListener("mouseover", () => actions.HighLink(link));
  link.addEventListener("mouseout", () => actions.NormalLink(link));
  return link;
}

function makeControl(token) {
  if (token.type === "area") {
    const area = make("textarea");
    area.rows = token.rows;
    area.value = token.value;
    return area;
  }
  if (token.type === "select") {
    const select = make("select");
    for (const { value, text, isSelected } of token.options) {
      const option = make("option", "", text);
      option.value = value;
      option.selected = isSelected;
      select.append(option);
    }
    return select;
  }
  const input = make("input");
  input.type = token.inputType;
  input.value = token.value;
  if (token.inputType === "checkbox") input.checked = token.isChecked;
  input.autocomplete = "off";
  input.spellcheck = false;
  return input;
}

// A field stands in a box with the line that tells how its last change fared.
function makeField(token, label, actions) {
  const box = make("div", "field");
  const control = makeControl(token);
  control.classList.add(token.styleClass);
  control.disabled = token.isDisabled ?? false;
  const fate = make("span", "fate");
  fate.id = `fate-${token.id}`;
  fate.setAttribute("aria-live", "polite");
  control.id = `field-${token.id}`;
  control.setAttribute("aria-describedby", fate.id);
  if (label) label.htmlFor = control.id;
  else control.setAttribute("aria-label", token.id);
  control.addEventListener("change", () => actions.EProcess(control, /*isPress=*/ false));
  box.append(control, fate);
  return box;
}

function makeLabel(tag, token) {
  return make(tag, token.text.trim() === ":" ? `${token.styleClass} colon` : token.styleClass, token.text);
}

// The texts of a form as elements: labels of fields, one heading, others.
function makeTexts(elements, boundTexts) {
  const texts = elements.filter(({ type }) => type === "label");
  const titles = texts.filter(({ styleClass }) => styleClass === "title1");
  const width = Math.max(...titles.map(({ place }) => place.width));
  const heading = titles.find(({ place }) => place.width === width);
  const tagOf = (token) => (token === heading ? "h2" : boundTexts.has(token) ? "label" : "div");
  return new Map(texts.map((token) => [token, makeLabel(tagOf(token), token)]));
}

function isPressed(token) {
  return token.type === "link" || token.inputType === "button";
}

export function buildForm({ elements }, actions) {
  const root = make("div", "form");
  const labels = labelsOfFields(elements);
  const made = makeTexts(elements, new Set(labels.values()));
  for (const token of elements) {
    if (token.type === "unknown") {
      root.append(makeUnknown(token.text));
      continue;
    }
    let element = made.get(token);
    if (token.type === "link") element = makeLink(token, actions);
    else if (isPressed(token)) element = makeButton(token, actions);
    else if (!element) element = makeField(token, made.get(labels.get(token)), actions);
    const acting = element.querySelector("input, select, textarea") ?? element;
    if (token.type !== "label") acting.dataset.id = token.id;
    putOnGrid(element, token.place);
    root.append(element);
  }
  const placed = elements.filter((token) => token.place);
  const ends = placed.map(
    ({ place, text }) => place.left + (text ? text.length * kLetterPixels : place.width),
  );
  root.style.setProperty("--rows-end", `${Math.max(0, ...placed.map(({ place }) => place.top))}px`);
  root.style.setProperty("--columns-end", `${Math.max(0, ...ends)}px`);
  return root;
}

// --- Result pages ---

function makeToolbar(buttons, actions) {
  const bar = make("div", "buttons");
  bar.setAttribute("role", "toolbar");
  bar.setAttribute("aria-label", "What to do with this page");
  for (const { id, value, handler, argument } of buttons) {
    const acts = {
      EProcess: (button) => actions.EProcess(button, true),
      ExecuteA: () => actions.ExecuteA(argument),
      "window.print": () => actions["window.print"](),
    };
    const button = makePressed("button1", value, acts[handler]);
    button.dataset.id = id;
    bar.append(button);
  }
  const band = make("div", "toolbar");
  band.append(bar);
  return band;
}

// A heading stands as the cells of the first row do.
function makeHeadings(headings, firstRow) {
  const head = make("thead");
  const row = make("tr");
  headings.forEach(({ text, width }, column) => {
    const cell = make("th", firstRow?.cells[column]?.isRight ? "right" : "", text);
    cell.scope = "col";
    if (width) cell.style.width = width;
    row.append(cell);
  });
  head.append(row);
  return head;
}

const kToneClasses = { tinted: "tinted", total: "total" };

export function buildTable({ style, headings, rows }) {
  const table = make("table", style);
  table.append(makeHeadings(headings, rows[0]));
  const body = make("tbody");
  for (const { tone, cells } of rows) {
    const row = make("tr", kToneClasses[tone]);
    for (const { text, isRight, span } of cells) {
      const cell = document.createElement("td");
      if (text !== "") cell.textContent = text;
      if (isRight) cell.className = "right";
      if (span > 1) cell.colSpan = span;
      row.append(cell);
    }
    body.append(row);
  }
  table.append(body);
  return table;
}

export function buildResult(result, actions) {
  const root = make("div", "result");
  const head = make("header", "result-head");
  if (result.sentence) head.append(make("h2", "sentence", result.sentence));
  if (result.heading) head.append(make("p", "heading", result.heading));
  if (result.error) head.append(make("p", "error", `ERROR: ${result.error}`));
  root.append(makeToolbar(result.buttons, actions), head);
  if (result.table) {
    root.append(buildTable(result.table));
    if (result.table.rows.length === 0) root.append(make("p", "heading", "No rows."));
  }
  if (result.unknown) root.append(result.table ? makeUnknown(result.unknown) : make("p", "", result.unknown));
  return root;
}
