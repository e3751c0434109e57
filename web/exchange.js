// The turn of forms and pages: one reply on its way at a time. Pure: it sends through the function that it is
// given and knows nothing of elements.
//
// (1) A reply is answered by the first frame that ends after the session has taken its line. Until then
//     further replies are held, in their order.
// (2) A question drops what is held: it was entered before the question was seen. A message box drops held
//     presses of buttons alone, because what they should act on may just have been refused.
// (3) The answer to a question goes out at once. Outside forms and pages nothing is sent.

export class Exchange {
  #send;
  #onDrop;
  #onFate;
  #awaited = null; // {reply, number, isTaken}
  #held = [];
  #isAsking = false;

  // `send` sends a line and returns its number. A reply is {line, isPress} and whatever its sender adds;
  // `onDrop` gets one that will never be sent, `onFate(reply, word)` one that was "sent", "held" or
  // "answered".
  constructor({ send, onDrop = () => {}, onFate = () => {} }) {
    this.#send = send;
    this.#onDrop = onDrop;
    this.#onFate = onFate;
  }

  get isWaiting() {
    return this.#awaited !== null;
  }

  reply(reply) {
    if (this.#isAsking) {
      this.#onDrop(reply);
    } else if (this.#awaited) {
      this.#held.push(reply);
      this.#onFate(reply, "held");
    } else {
      this.#sendNow(reply);
    }
  }

  // The answer to the question that is open.
  answer(line) {
    this.#isAsking = false;
    const asked = this.#awaited?.reply;
    this.#awaited = { reply: asked ?? { line }, number: this.#send(line), isTaken: false };
  }

  // The session has taken the line of this number.
  taken(number) {
    if (this.#awaited?.number === number) this.#awaited.isTaken = true;
  }

  frameEnded() {
    if (!this.#awaited?.isTaken || this.#isAsking) return;
    const answered = this.#awaited.reply;
    this.#awaited = null;
    this.#onFate(answered, "answered");
    if (this.#held.length > 0) this.#sendNow(this.#held.shift());
  }

  question() {
    this.#isAsking = true;
    this.#drop(() => true);
  }

  box() {
    this.#drop((reply) => reply.isPress);
  }

  // Forms and pages are over, or the session is another one.
  end() {
    this.#isAsking = false;
    this.#awaited = null;
    this.#drop(() => true);
  }

  #drop(isDropped) {
    const before = this.#held;
    this.#held = before.filter((reply) => !isDropped(reply));
    for (const reply of before) if (isDropped(reply)) this.#onDrop(reply);
  }

  #sendNow(reply) {
    this.#awaited = { reply, number: this.#send(reply.line), isTaken: false };
    this.#onFate(reply, "sent");
  }
}
