"""Many clients at once, and what goes wrong: contention, deaths, a killed server, a reader that stops."""

import os
import resource
import signal
import subprocess
import threading
import unittest

import nvclient
from nvclient import AM
from support import HOME, RawClient, Server, in_threads, make_file

CLIENTS = 100
COUNTING = 50
ROUNDS = 200
WRITERS = 8


class Many(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server()
        some = range(CLIENTS // 4)  # a log-in takes the server a while, so not all at once
        logged_in = in_threads(lambda _: [cls.server.client(timeout=60) for _ in some], range(4))
        cls.sessions = sum(logged_in, [])

    @classmethod
    def tearDownClass(cls):
        in_threads(lambda session: session.close(), cls.sessions)
        assert cls.server.stop() == 0, cls.server.log

    def test_one_counter(self):
        make_file(self.sessions[0], "COUNTERS", {"sum": "0"})

        def count(session):
            for _ in range(ROUNDS):
                with session.lock("COUNTERS", "sum", wait=60) as counter:
                    session.write("COUNTERS", "sum", b"%d" % (int(counter.text) + 1))

        in_threads(count, self.sessions[:COUNTING])
        self.assertEqual(int(self.sessions[0].read("COUNTERS", "sum")), COUNTING * ROUNDS)

    def test_one_query_for_each(self):
        items = {b"%d" % number: b"name %d" % number + AM + b"x" * 100 for number in range(500)}
        make_file(self.sessions[0], "WIDE", items)
        wanted = [[id, *item.split(AM)] for id, item in sorted(items.items())]
        for rows in in_threads(lambda session: [*session.rows("WIDE", "SSELECT WIDE")], self.sessions):
            self.assertEqual(rows, wanted)

    def test_death_releases(self):
        make_file(self.sessions[0], "LOCKED", {"1": "x"})
        with RawClient(self.server) as dying:
            dying.send(b"READ\xfeLOCKED\xfe1\xfe\xfeLOCK</TXB>\n")
            dying.until(b"</TXA>\r\n")
            with self.assertRaisesRegex(nvclient.LockRefused, r"^\[920\] Record locked$"):
                self.sessions[0].lock("LOCKED", "1").__enter__()
        with self.sessions[0].lock("LOCKED", "1", wait=5) as item:
            self.assertEqual(item.text, b"x")

    def test_rows_that_vanish(self):
        session, other = self.sessions[:2]
        make_file(session, "GOING", {b"%02d" % number: "x" for number in range(30)})
        rows = session.rows("GOING", "SSELECT GOING")
        self.assertEqual(next(rows)[0], b"00")
        other.delete("GOING", "25")
        with self.assertRaises(nvclient.ItemNotFound) as caught:
            for row in rows:
                last = row[0]
        self.assertEqual((last, caught.exception.code), (b"19", 914))
        self.assertIn("'25'", str(caught.exception))
        self.assertEqual(session.read("GOING", "24"), b"x")

    def test_a_reader_that_stops(self):
        items = {b"%d" % number: b"y" * 20000 for number in range(300)}
        make_file(self.sessions[0], "HEAVY", items, columns=1)
        with RawClient(self.server) as stopped:
            stopped.send(b"ROWSET\xfeHEAVY</TXB>\n" + b"GO\n" * 29)
            for session in self.sessions[:10]:
                self.assertEqual(len(session.read("HEAVY", "7")), 20000)
                session.write("HEAVY", "7", b"y" * 20000)
            stopped.send(b"GO\n" * 2)
            self.assertEqual(stopped.until(b"<TXA>ROWSET EXIT</TXA>\r\n").count(b"<&IM>"), 270)


class Kept(unittest.TestCase):
    """What was answered is there, whatever happens to the server."""

    def test_killed(self):
        server = Server()
        sessions = in_threads(lambda _: server.client(), range(WRITERS))
        make_file(sessions[0], "KEPT", {})
        answered = [0] * WRITERS
        many = threading.Event()

        def write(writer):
            try:
                while True:
                    id = b"%d-%d" % (writer, answered[writer])
                    sessions[writer].write("KEPT", id, id + AM + b"z" * 500)
                    answered[writer] += 1
                    if sum(answered) > 500:
                        many.set()
            except nvclient.ConnectionLost:
                many.set()

        writing = threading.Thread(target=in_threads, args=(write, range(WRITERS)))
        writing.start()
        many.wait(60)
        server.stop(signal.SIGKILL)
        writing.join()
        self.assertGreater(sum(answered), 500)

        store = os.path.join(HOME, "accounts", "SHOP.sqlite")
        check = subprocess.run(["sqlite3", store, "PRAGMA integrity_check"], capture_output=True, text=True)
        self.assertEqual(check.stdout, "ok\n", check.stderr)
        server = Server()
        with server.client() as session:
            found = dict(session.rows("KEPT", columns=[0, 2]))
        server.stop()
        wanted = {b"%d-%d" % (writer, n) for writer, count in enumerate(answered) for n in range(count)}
        self.assertLessEqual(wanted, found.keys())
        # One write more of each at the most, and no half one.
        self.assertLessEqual(len(found), len(wanted) + WRITERS)
        self.assertEqual(set(found.values()), {b"z" * 500})

    def test_full_disk(self):
        server = Server()
        answered = []
        with server.client() as session:
            make_file(session, "FULL", {}, columns=1)
            resource.prlimit(server.process_id, resource.RLIMIT_FSIZE, (1 << 20, resource.RLIM_INFINITY))
            with self.assertRaisesRegex(nvclient.EngineStopped, "SHOP.sqlite.*disk is full"):
                while len(answered) < 10000:
                    session.write("FULL", str(len(answered)), "z" * 5000)
                    answered.append(str(len(answered)).encode())
        resource.prlimit(server.process_id, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY,) * 2)
        with server.client() as session:
            self.assertEqual(sorted(session.rows("FULL", columns="0")), sorted([id] for id in answered))
            session.write("FULL", "1", "room again")
        server.stop()
