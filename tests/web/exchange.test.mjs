import assert from "node:assert/strict";
import test from "node:test";

import { Exchange } from "../../web/exchange.js";

// Steps: "r:x" a change, "p:x" a press, "k" the session takes the line sent last, "f" a frame ends, "q" a
// question, "b" a box, "a:x" an answer, "e" the end. The outcome: lines sent, "-x" for one dropped.
function play(steps) {
  const out = [];
  let number = 0;
  const exchange = new Exchange({
    send: (line) => (out.push(line), ++number),
    onDrop: (reply) => out.push(`-${reply.line}`),
  });
  const acts = {
    r: (line) => exchange.reply({ line, isPress: false }),
    p: (line) => exchange.reply({ line, isPress: true }),
    a: (line) => exchange.answer(line),
    k: () => exchange.taken(number),
    f: () => exchange.frameEnded(),
    q: () => exchange.question(),
    b: () => exchange.box(),
    e: () => exchange.end(),
  };
  for (const step of steps.split(" ")) acts[step[0]](step.slice(2));
  return out.join(" ");
}

test("one reply at a time", () => {
  const cases = [
    ["the second waits for the frame", "r:a r:b", "a"],
    ["it goes when the frame has ended", "r:a r:b k f", "a b"],
    ["a frame from before the line was taken answers nothing", "r:a r:b f k", "a"],
    ["order is kept", "r:a p:b r:c k f k f", "a b c"],
    ["a question drops what is held", "r:a r:b p:c k q a:Y k f r:d", "a -b -c Y d"],
    ["the frame in which the question stands answers nothing", "r:a k q f r:b a:Y k f r:c", "a -b Y c"],
    ["a box drops presses alone", "r:a r:b p:c k b f", "a -c b"],
    ["the terminal drops everything", "p:a p:b e f", "a -b"],
    ["replies go again after the end", "p:a k e r:b", "a b"],
  ];
  for (const [name, steps, want] of cases) assert.equal(play(steps), want, name);
});
