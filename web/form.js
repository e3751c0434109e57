// A form on screen: what the words do to its fields, and how the fields show what became of their last
// change.

const kFates = {
  changed: ["…", "changed, not sent yet"],
  sent: ["…", "on its way"],
  held: ["…", "waiting to be sent"],
  dropped: ["!", "not sent: press Enter in the field to send it"],
  refused: ["!", "not sent: the line at the bottom says why"],
  accepted: ["✓", "accepted"],
  rejected: ["✗", "not accepted"],
};

// The value that a field's reply carries.
export function valueOf(control) {
  if (control.type === "checkbox") return control.checked ? "1" : "0";
  return control.value;
}

function setValue(control, text) {
  if (control.type === "checkbox") {
    control.checked = text !== "" && text !== "0";
  } else if (control.tagName === "SELECT") {
    control.selectedIndex = [...control.options].findIndex((option) => option.value === text);
  } else {
    control.value = text;
  }
}

export class Form {
  #root;
  #fates = new Map(); // control -> the word of its last fate

  // `resend` sends the reply of a control once more.
  constructor(root, resend) {
    this.#root = root;
    root.addEventListener("input", (event) => this.#noteInput(event.target));
    root.addEventListener("keydown", (event) => {
      const mayResend = ["dropped", "refused", "rejected"].includes(this.#fates.get(event.target));
      if (event.key === "Enter" && mayResend && event.target.tagName === "INPUT") resend(event.target);
    });
  }

  control(id) {
    return this.#root.querySelector(`[data-id="${CSS.escape(id)}"]`);
  }

  // A change of `control` had this fate; "" means that nothing was said about it.
  setFate(control, word) {
    const line = document.getElementById(control.getAttribute("aria-describedby") ?? "");
    if (!line || !this.#root.contains(control)) return;
    this.#fates.set(control, word);
    const [sign, meaning] = kFates[word] ?? ["", ""];
    line.textContent = word ? `${sign} ${meaning}` : "";
    control.dataset.fate = word;
    control.setAttribute("aria-invalid", String(word === "rejected" || word === "refused"));
  }

  // The frame that answers the reply of `control` has ended.
  settle(control) {
    if (this.#fates.get(control) === "sent") this.setFate(control, "");
  }

  value(id, text) {
    const control = this.control(id);
    if (!control || text === null) return;
    setValue(control, text);
    this.setFate(control, "");
  }

  // A field that was changed again meanwhile keeps what the user typed.
  valid(id, text) {
    const control = this.control(id);
    if (!control) return;
    const fate = this.#fates.get(control);
    if (fate === "changed" || fate === "held") return;
    if (text !== null) setValue(control, text);
    this.setFate(control, "accepted");
  }

  reject(id) {
    const control = this.control(id);
    if (control) this.setFate(control, "rejected");
  }

  // Puts the value of an earlier reply into its field: the form is being drawn again as it was.
  restore(line) {
    const bar = line.indexOf("|");
    const control = bar > 0 ? this.control(line.slice(0, bar)) : null;
    if (!control?.hasAttribute("aria-describedby")) return;
    setValue(control, line.slice(bar + 1));
    this.setFate(control, "");
  }

  focus(id) {
    const control = this.control(id);
    if (!control) return;
    control.focus();
    if (control.tagName === "INPUT") control.select();
  }

  focusFirst() {
    const first =
      this.#root.querySelector(".customlink, .field :enabled") ?? this.#root.querySelector("button");
    first?.focus();
  }

  hasUnsentChange(control) {
    return this.#fates.get(control) === "changed";
  }

  #noteInput(control) {
    const isTyped = control.tagName !== "SELECT" && control.type !== "checkbox";
    if (isTyped && !this.hasUnsentChange(control)) this.setFate(control, "changed");
  }
}
