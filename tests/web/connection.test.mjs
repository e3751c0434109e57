import assert from "node:assert/strict";
import test from "node:test";

import { Connection } from "../../web/connection.js";

class Server {
  sent = []; // by the page, on the socket of now
  events = [];
  waits = [];
  closed = 0;

  constructor() {
    this.connection = new Connection({
      open: () => (this.socket = { send: (text) => this.sent.push(text), close: () => this.closed++ }),
      wait: (act, delay) => {
        if (delay === 60_000) this.staySilent = act;
        else [this.goOn] = [act, this.waits.push(delay)];
      },
      on: {
        onOutput: (kind, text) => this.events.push(kind + text),
        onTaken: (number, isOwn) => this.events.push(`taken ${number} ${isOwn}`),
        onReset: () => this.events.push("reset"),
        onAccount: (name) => this.events.push(`account ${name}`),
        onCursorWord: (word) => this.events.push(word),
        onState: (word, reason = "") => this.events.push(`${word} ${reason}`.trim()),
        onNew: () => this.events.push("new"),
        onDropped: (lines) => this.events.push(`dropped ${lines.join(" ")}`),
        onFailing: () => this.events.push("failing"),
      },
    });
  }

  // What the page sends and notes while `act` runs.
  during(act) {
    this.sent = [];
    this.events = [];
    act();
    return { sent: this.sent, events: this.events };
  }

  tell = (...messages) => messages.forEach((data) => this.socket.onmessage({ data }));
  connect = () => this.socket.onopen();
  drop = (code = 1006) => this.socket.onclose({ code });

  start() {
    this.connection.start();
    this.connect();
    this.tell("Stoken w0 20 0 1 DEMO");
    return this;
  }
}

test("a new session", () => {
  const server = new Server();
  const { sent, events } = server.during(() => {
    server.connection.start();
    server.connection.sendLine("early");
    server.connection.sendLine("two\r\nlines");
    server.connect();
  });
  assert.deepEqual([sent, events], [["N"], ["connecting"]]);
  const after = server.start().during(() => {
    server.connection.sendLine("x");
    server.tell("A<TX>", "E:", "P", "K1", "TSALES");
    server.connection.interrupt();
  });
  assert.deepEqual(after.sent, ["L1 x", "I"]);
  assert.deepEqual(after.events, ["A<TX>", "E:", "taken 1 true", "account SALES"]);
});

test("after a loss it goes on where it was", () => {
  const server = new Server().start();
  server.tell("A1", "E2");
  for (const line of ["a", "b", "c"]) server.connection.sendLine(line);
  server.tell("K1");
  server.drop();
  server.connection.sendLine("d");
  server.goOn();
  const resumed = server.during(() => {
    server.connect();
    server.tell("Stoken w0 20 2 4 DEMO", "K2");
  });
  assert.deepEqual(resumed.sent, ["Rtoken 3", "L3 c", "L4 d"], "2 came through, though no K had said so");
  assert.deepEqual(resumed.events, ["w0", "account DEMO", "ready", "taken 2 true"]);

  server.drop();
  server.goOn();
  const emptied = server.during(() => {
    server.connect();
    server.tell("Stoken w0 20 4 2 DEMO", "E2", "K3");
  });
  assert.deepEqual(emptied.sent, ["Rtoken 4"]);
  assert.deepEqual(emptied.events, ["reset", "w0", "account DEMO", "ready", "E2", "taken 3 false"]);
  server.drop();
  server.goOn();
  assert.deepEqual(
    server.during(server.connect).sent,
    ["Rtoken 3"],
    "counted from where the numbering began",
  );
});

test("a reload counts lines on from what the server has", () => {
  const server = new Server();
  server.connection.start("old");
  server.connect();
  server.tell("Sold w0 20 7 1 DEMO");
  assert.deepEqual(server.during(() => server.connection.sendLine("x")).sent, ["L8 x"]);
  server.connection.start("old", server.connection.unsureLines);
  const { sent, events } = server.during(() => {
    server.connect();
    server.tell("Sold w0 20 7 1 DEMO");
    server.connection.sendLine("y");
    server.tell("K7", "K8", "K9");
  });
  assert.deepEqual(sent, ["Rold 0", "L8 x", "L9 y"], "what was on its way goes again");
  assert.deepEqual(events.slice(-3), ["taken 7 false", "taken 8 false", "taken 9 true"]);
});

test("ends", () => {
  const cases = [
    ["Xmoved", ["over moved"]],
    ["Xidle for too long", ["over idle for too long"]],
  ];
  for (const [message, want] of cases) {
    const server = new Server().start();
    const socket = server.socket;
    assert.deepEqual(server.during(() => server.tell(message)).events, want, message);
    assert.deepEqual(server.during(() => socket.onclose({})).events, [], "nobody reconnects");
  }
  const server = new Server().start();
  server.connection.sendLine("lost");
  server.drop();
  server.goOn();
  const { sent, events } = server.during(() => {
    server.connect();
    server.tell("Xunknown");
    server.connect();
    server.tell("Sother w1 20 0 1 DEMO");
    server.connection.sendLine("first");
  });
  assert.deepEqual(sent, ["Rtoken 0", "N", "L1 first"]);
  assert.deepEqual(events, ["connecting", "reset", "w1", "account DEMO", "ready", "new", "dropped 1,lost"]);
});

test("lines that the server can't take are dropped and named", () => {
  const server = new Server().start();
  assert.deepEqual(
    ["20 bytes of the text", "äöüäöüäöüäö"].map((text) => server.connection.fits(text)),
    [true, false],
  );
  for (const line of ["a", "b", "c"]) server.connection.sendLine(line);
  server.drop(1009);
  server.goOn();
  const { sent, events } = server.during(() => {
    server.connect();
    server.tell("Stoken w0 20 1 1 DEMO");
    server.connection.sendLine("d");
    server.tell("K1", "K2");
  });
  assert.deepEqual(sent, ["Rtoken 0", "L2 d"]);
  assert.deepEqual(events.slice(4), ["dropped 2,b 3,c", "taken 1 false", "taken 2 true"]);
});

test("a silent server is left", () => {
  const server = new Server().start();
  const { socket } = server;
  assert.deepEqual(server.during(server.staySilent).events, ["lost"]);
  assert.equal(server.closed, 1);
  assert.equal(server.connection.interrupt(), false);
  server.goOn();
  const { sent, events } = server.during(() => {
    socket.onmessage({ data: "Elate" });
    socket.onclose({ code: 1006 });
    server.connect();
  });
  assert.deepEqual([sent, events], [["Rtoken 0"], []], "the old one has no say");
});

test("it tries again, less and less often", () => {
  const server = new Server().start();
  for (let round = 0; round < 8; round++) {
    server.drop();
    server.goOn();
  }
  assert.deepEqual(server.waits, [500, 1000, 2000, 4000, 8000, 15000, 15000, 15000]);
  assert.equal(server.events.filter((event) => event === "failing").length, 6, "with each from the third on");
});
