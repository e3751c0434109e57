// Message boxes and questions, one after another. Enter and Space press the button in focus; Escape closes a
// message and says no to a question; Y and N answer a question. What was typed or clicked before a box could be
// seen doesn't answer it: its buttons wait until the keys have rested for a moment.

const kRestMs = 400;

export class Boxes {
  #dialog;
  #bar;
  #text;
  #buttons;
  #queue = []; // {text, asks, onClose}
  #current = null;
  #afterwards = null;
  #rest = null; // runs while the buttons wait

  constructor(dialog) {
    this.#dialog = dialog;
    this.#bar = dialog.querySelector(".box-buttons");
    this.#text = dialog.querySelector(".box-text");
    this.#buttons = {
      ok: dialog.querySelector("[value=ok]"),
      yes: dialog.querySelector("[value=yes]"),
      no: dialog.querySelector("[value=no]"),
    };
    for (const button of Object.values(this.#buttons)) {
      button.addEventListener("click", () => this.#close(button.value !== "no"));
    }
    dialog.addEventListener("cancel", (event) => {
      event.preventDefault();
      if (!this.#bar.inert) this.#close(!this.#current?.asks);
    });
    dialog.addEventListener("keydown", (event) => this.#takeKey(event));
  }

  get isOpen() {
    return this.#current !== null;
  }

  tell(text, onClose = () => {}) {
    this.#add({ text, asks: false, onClose });
  }

  // `onClose` gets true for yes.
  ask(text, onClose) {
    this.#add({ text, asks: true, onClose });
  }

  // Runs `act` now, or behind the last box.
  whenClosed(act) {
    if (this.isOpen) this.#afterwards = act;
    else act();
  }

  // Takes the boxes away, unanswered.
  discard() {
    this.#queue = [];
    this.#current = null;
    this.#afterwards = null;
    this.#hide();
  }

  #hide() {
    clearTimeout(this.#rest);
    this.#dialog.close();
  }

  #add(box) {
    this.#queue.push(box);
    if (!this.isOpen) this.#showNext();
  }

  #showNext() {
    this.#current = this.#queue.shift() ?? null;
    if (!this.#current) {
      this.#hide();
      const act = this.#afterwards;
      this.#afterwards = null;
      act?.();
      return;
    }
    const { text, asks } = this.#current;
    this.#text.textContent = text;
    this.#buttons.ok.hidden = asks;
    this.#buttons.yes.hidden = this.#buttons.no.hidden = !asks;
    if (!this.#dialog.open) this.#dialog.showModal();
    this.#letRest();
  }

  #letRest() {
    clearTimeout(this.#rest);
    this.#bar.inert = true;
    this.#dialog.focus();
    this.#rest = setTimeout(() => {
      this.#bar.inert = false;
      (this.#current.asks ? this.#buttons.yes : this.#buttons.ok).focus();
    }, kRestMs);
  }

  #takeKey(event) {
    const answers = this.#current?.asks ? { y: true, n: false, escape: false } : { escape: true };
    const key = event.key.toLowerCase();
    const isAnswer = Object.hasOwn(answers, key) && !event.ctrlKey && !event.altKey && !event.metaKey;
    if (isAnswer || event.repeat || this.#bar.inert) event.preventDefault();
    if (this.#bar.inert) this.#letRest();
    else if (isAnswer && !event.repeat) this.#close(answers[key]);
  }

  #close(isYes) {
    const box = this.#current;
    if (!box) return;
    this.#showNext();
    box.onClose(isYes);
  }
}
