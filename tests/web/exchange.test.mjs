import assert from "node:assert/strict";
import test from "node:test";

import { Exchange } from "../../web/exchange.js";

// Steps: "r:x" a change, "p:x" a press, "k" the session takes the line sent last, "f" a frame ends, "q" a
// question, "b" a box, "s" a new form, "a:x" an answer, "l" the line sent last is lost, "e" the end. The outcome:
// lines sent, "-x" for one dropped, "!" where a wait ends.
function play(steps) {
  const out = [];
  let number = 0;
  let wasWaiting = false;
  const exchange = new Exchange({
    send: (line) => (out.push(line), ++number),
    onDrop: (reply) => out.push(`-${reply.line}`),
    onWaiting(isWaiting) {
      if (wasWaiting && !isWaiting) out.push("!");
      wasWaiting = isWaiting;
    },
  });
  const acts = {
    r: (line) => exchange.reply({ line, isPress: false }),
    p: (line) => exchange.reply({ line, isPress: true }),
    a: (line) => exchange.answer(line),
    k: () => exchange.taken(number),
    f: () => exchange.frameEnded(),
    q: () => exchange.question(),
    b: () => exchange.box(),
    s: () => exchange.show(),
    l: () => exchange.lost(number),
    e: () => exchange.end(),
  };
  for (const step of steps.split(" ")) acts[step[0]](step.slice(2));
  return out.join(" ");
}

test("one reply at a time", () => {
  const cases = [
    ["the second waits for the frame", "r:a r:b", "a"],
    ["it goes when the frame has ended", "r:a r:b k f", "a ! b"],
    ["a frame from before the line was taken answers nothing", "r:a r:b f k", "a"],
    ["order is kept", "r:a p:b r:c k f k f", "a ! b ! c"],
    ["a question drops what is held", "r:a r:b p:c k q a:Y k f r:d", "a ! -b -c Y ! d"],
    ["the frame in which the question stands answers nothing", "r:a k q f r:b a:Y k f r:c", "a ! -b Y ! c"],
    ["a box drops presses alone", "r:a r:b p:c k b f", "a -c ! b"],
    ["a new form drops what was meant for the one before", "p:a p:a r:b k s f r:c", "a -a -b ! c"],
    ["the terminal drops everything", "p:a p:b e f", "a ! -b"],
    ["replies go again after the end", "p:a k e r:b", "a ! b"],
    ["a line that is lost is waited for no longer", "r:a r:b l r:c", "a ! -b -a c"],
  ];
  for (const [name, steps, want] of cases) assert.equal(play(steps), want, name);
});
