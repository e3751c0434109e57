// The turn of forms and pages: one reply on its way at a time. Pure: it sends through the function that it is
// given and knows nothing of elements.
//
// (1) A reply is answered by the first frame that ends after the session has taken its line. Until then
//     further replies are held, in their order.
// (2) A question drops what is held: it was entered before the question was seen. A message box drops held
//     presses of buttons alone, because what they should act on may just have been refused. A new form or page
//     drops what is held too: it was meant for the one before.
// (3) The answer to a question goes out at once. Outside forms and pages nothing is sent.

export class Exchange {
  #send;
  #onDrop;
  #onFate;
  #onWaiting;
  #awaited = null; // {reply, number, isTaken}
  #held = [];
  #isAsking = false;

  // `send` sends a line and returns its number. A reply is {line, isPress} and whatever its sender adds;
  // `onDrop` gets one that will never be sent, `onFate(reply, word)` one that was "sent", "held" or
  // "answered", and `onWaiting(isWaiting)` is told whenever a wait for the session begins or is over.
  constructor({ send, onDrop = () => {}, onFate = () => {}, onWaiting = () => {} }) {
    this.#send = send;
    this.#onDrop = onDrop;
    this.#onFate = onFate;
    this.#onWaiting = onWaiting;
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
    this.#await(this.#awaited?.reply ?? { line }, this.#send(line));
  }

  // The session has taken the line of this number.
  taken(number) {
    if (this.#awaited?.number === number) this.#awaited.isTaken = true;
  }

  frameEnded() {
    if (!this.#awaited?.isTaken || this.#isAsking) return;
    const answered = this.#awaited.reply;
    this.#awaitNothing();
    this.#onFate(answered, "answered");
    if (this.#held.length > 0) this.#sendNow(this.#held.shift());
  }

  question() {
    this.#isAsking = true;
    this.#onWaiting(false);
    this.#drop(() => true);
  }

  box() {
    this.#drop((reply) => reply.isPress);
  }

  // A new form or page is shown.
  show() {
    this.#drop(() => true);
  }

  // The line of this number will never be taken.
  lost(number) {
    if (this.#awaited?.number !== number) return;
    const { reply } = this.#awaited;
    this.end();
    this.#onDrop(reply);
  }

  // Forms and pages are over, or the session is another one.
  end() {
    this.#isAsking = false;
    this.#awaitNothing();
    this.#drop(() => true);
  }

  #drop(isDropped) {
    const before = this.#held;
    this.#held = before.filter((reply) => !isDropped(reply));
    for (const reply of before) if (isDropped(reply)) this.#onDrop(reply);
  }

  #sendNow(reply) {
    this.#await(reply, this.#send(reply.line));
    this.#onFate(reply, "sent");
  }

  #await(reply, number) {
    this.#awaited = { reply, number, isTaken: false };
    this.#onWaiting(true);
  }

  #awaitNothing() {
    this.#awaited = null;
    this.#onWaiting(false);
  }
}
