// Message boxes and questions, one after another. Enter and Space press the button in focus; Escape closes a
// message and says no to a question; Y and N answer a question.

export class Boxes {
  #dialog;
  #text;
  #buttons;
  #queue = []; // {text, asks, onClose}
  #current = null;
  #afterwards = null;

  constructor(dialog) {
    this.#dialog = dialog;
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
      this.#close(!this.#current?.asks);
    });
    dialog.addEventListener("keydown", (event) => {
      const key = event.key.toLowerCase();
      const isAnswer = this.#current?.asks && (key === "y" || key === "n");
      if (!isAnswer || event.ctrlKey || event.altKey || event.metaKey) return;
      event.preventDefault();
      this.#close(key === "y");
    });
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
    this.#dialog.close();
  }

  #add(box) {
    this.#queue.push(box);
    if (!this.isOpen) this.#showNext();
  }

  #showNext() {
    this.#current = this.#queue.shift() ?? null;
    if (!this.#current) {
      this.#dialog.close();
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
    (asks ? this.#buttons.yes : this.#buttons.ok).focus();
  }

  #close(isYes) {
    const box = this.#current;
    if (!box) return;
    this.#showNext();
    box.onClose(isYes);
  }
}
