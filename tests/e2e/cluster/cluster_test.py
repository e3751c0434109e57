"""Accounts on a cluster: what was answered is there, whichever node goes; a node without its cluster answers nothing.

The tests build on one another, in the order of their names."""

import contextlib
import os
import subprocess
import threading
import time
import unittest

import nvclient
from support import PATIENCE, RawClient, Server, wait_for

FOLDER = os.environ["CLUSTER"]
CONFLICT = "another node of the cluster was written to at the same time"
UNKNOWN = "is not known: look before you write again"


def galera(action, *nodes):
    """What it prints."""
    command = ["bash", os.environ["GALERA"], action, FOLDER, *map(str, nodes)]
    return subprocess.run(command, check=True, timeout=PATIENCE, stdout=subprocess.PIPE, text=True).stdout


def ask(node, statement):
    """The rows that a node itself tells, in step with the others; cells as bytes."""
    shell = ["mariadb", "--no-defaults", "-uroot", "-N", "-B", "--default-character-set=latin1",
             "-S", f"{FOLDER}/n{node}.sock", "sales",
             "--init-command=SET SESSION wsrep_sync_wait = 1", "-e", statement]
    rows = subprocess.run(shell, check=True, capture_output=True, timeout=PATIENCE).stdout
    return [line.split(b"\t") for line in rows.splitlines()]


def users_of(node):
    [[count]] = ask(node, "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE USER = 'nvadmin'")
    return int(count)


def await_true(condition):
    wait_for(condition, "it never came to be so")


def setUpModule():
    global server, crossed
    server, crossed = Server(), Server()
    with client() as session:
        for file in ("ORDERS", "TALLY"):
            session.capture(f"CREATE-FILE {file} 3")


def tearDownModule():
    codes = [server.stop(), crossed.stop()]
    assert codes == [0, 0], server.log + crossed.log


def client(**settings):
    return server.client("SALES", "ann", timeout=PATIENCE, **settings)


def crossed_client():
    return crossed.client("CROSSED", "ann", timeout=PATIENCE)


class Writers:
    """Threads that write items, each a session of its own, and keep book of what was answered."""

    def __init__(self, count, go_on=True):
        self._go_on = go_on  # behind a failure
        self.answered, self.failed = {}, {}  # by item ID: when
        self.texts = set()  # of failures
        self._end = threading.Event()
        self._threads = [threading.Thread(target=self._run, args=[name]) for name in "abcdefgh"[:count]]
        self._faults = []
        for thread in self._threads:
            thread.start()

    @staticmethod
    def body(id):
        return nvclient.join_item([id, id * 40, f"{id} ends"])

    def _run(self, name):
        session, number = client(), 0
        try:
            while not self._end.is_set():
                number += 1
                id = f"{name}{number}"
                try:
                    session.write("ORDERS", id, self.body(id))
                    self.answered[id] = time.monotonic()
                except nvclient.EngineStopped as failure:
                    self.failed[id] = time.monotonic()
                    self.texts.add(str(failure))
                    if not self._go_on:
                        return
                    session = client()
        except Exception as fault:  # anything else is a fault of ours
            self._faults.append(fault)
        finally:
            session.close()

    def answered_since(self, moment):
        return [at for at in self.answered.copy().values() if at > moment]

    def stop(self):
        self._end.set()
        self.join()

    def join(self):
        for thread in self._threads:
            thread.join()
        if self._faults:
            raise self._faults[0]


class Cluster(unittest.TestCase):
    answered, failed = {}, {}  # of all tests

    def keep_book(self, writers):
        self.answered.update(writers.answered)
        self.failed.update(writers.failed)

    def check_items(self, *nodes):
        """Every answered item is there as written, any other whole or not at all: by our program, and on each node."""
        wanted = {id.encode(): Writers.body(id) for id in self.answered}
        allowed = wanted | {id.encode(): Writers.body(id) for id in self.failed}
        with client() as session:
            for id, item in wanted.items():
                self.assertEqual(session.read("ORDERS", id), item)
        for node in nodes:
            rows = ask(node, "SELECT A0, CONCAT_WS(x'FE', A1, A2, A3) FROM orders WHERE A0 <> 'HELD'")
            found = {id: item for id, item in rows}
            self.assertEqual(wanted.keys() - found.keys(), set(), f"answered, but not on node {node}")
            for id, item in found.items():
                self.assertEqual(item, allowed.get(id), f"{id} on node {node}")

    def write_while(self, action):
        """The writers write before, while and after it is done."""
        writers = Writers(4)
        try:
            await_true(lambda: len(writers.answered) > 100)
            began = time.monotonic()
            action()
            await_true(lambda: len(writers.answered_since(began)) > 100)
            done = time.monotonic()
            await_true(lambda: len(writers.answered_since(done)) > 100)
        finally:
            writers.stop()
        self.keep_book(writers)
        times = sorted(writers.answered.values())
        gap = max(later - earlier for earlier, later in zip(times, times[1:]))
        print(f"\n{len(writers.answered)} writes answered, {len(writers.failed)} failed, longest gap {gap:.2f} s")
        self.assertLess(gap, PATIENCE / 2)
        for text in writers.texts:
            self.assertRegex(text, f"Lost connection|gone away|shutdown|store is unavailable|{CONFLICT}")

    def test_1_the_node_in_use_is_killed(self):
        holder, other = client(), client()
        with holder, other:
            with holder.lock("ORDERS", "HELD") as held:
                self.assertGreater(users_of(1), 0)
                self.assertEqual((users_of(2), users_of(3)), (0, 0))
                self.write_while(lambda: galera("kill", 1))
                self.check_items(2, 3)

                # Locks are still held by who held them, and by nobody else.
                with self.assertRaises(nvclient.LockRefused):
                    with other.lock("ORDERS", "HELD"):
                        pass
                other.write("ORDERS", "HELD", "not the holder's")
                self.assertEqual(held.text, b"")
                held.write("the holder's")
            with other.lock("ORDERS", "HELD") as held:
                self.assertEqual(held.text, b"the holder's")
            # Files are made and known on the node that is in use now.
            holder.capture("CREATE-FILE LATER 2")
            other.write("LATER", "1", "known")
            self.assertEqual(holder.read("LATER", "1"), b"known")
        self.assertIn("[920] item 'HELD' of orders is locked by ann at", "".join(server.log))

    def test_2_it_comes_back(self):
        with client() as old:
            old.read("LATER", "1")
            self.write_while(lambda: galera("start", 1))
            self.check_items(1, 2, 3)
            self.write_while(lambda: (galera("halt", 1), galera("start", 1)))
            # Who comes now is on another node than who stayed, and sees at once what was answered there.
            with client() as fresh:
                fresh.read("LATER", "1")
                self.assertGreater(min(users_of(1), users_of(2)), 0)
                for number in range(100):
                    old.write("LATER", "1", str(number))
                    self.assertEqual(fresh.read("LATER", "1"), str(number).encode())

    def test_3_two_nodes_are_written_to(self):
        counted, unknown, conflicts, faults = [], [], [], []
        end = time.monotonic() + PATIENCE

        def count(connect, name):
            session, own = connect(), 0
            with contextlib.ExitStack() as stack:
                stack.callback(lambda: session.close())
                while (own < 40 or not conflicts) and time.monotonic() < end:
                    try:
                        session.write("TALLY", name, str(own))
                        with session.lock("TALLY", "COUNT", wait=PATIENCE) as tally:
                            tally.write(str(int(tally.text or 0) + 1))
                        own += 1
                        counted.append(1)
                    except nvclient.EngineStopped as failure:
                        (unknown if UNKNOWN in str(failure) else conflicts).append(str(failure))
                        session = connect()
                    except Exception as fault:
                        faults.append(fault)
                        return

        threads = [threading.Thread(target=count, args=[connect, name])
                   for connect, name in ((client, "a"), (client, "b"), (crossed_client, "c"), (crossed_client, "d"))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(faults, [])
        self.assertTrue(conflicts, "two nodes were never written to at the same time")
        for text in conflicts:
            self.assertIn(CONFLICT, text)
        print(f"\n{len(counted)} counted on two nodes, {len(conflicts)} conflicts, {len(unknown)} unknown")
        with client() as session:
            total = int(session.read("TALLY", "COUNT"))
        self.assertTrue(len(counted) <= total <= len(counted) + len(unknown), (len(counted), total))

    def test_4_two_of_three_are_gone(self):
        port = RawClient(server, "SALES", "ann", enter=False)
        for prompt, answer in ((b"login: ", "ann"), (b"password: ", "pass word"), (b"account: ", "SALES")):
            port.until(prompt)
            port.send(answer.encode() + b"\n")
        port.until(b":")

        def sentence(text):
            port.send(text.encode() + b"\n")
            return port.until(b"\r\n:").decode("cp1252")

        with port:
            port.socket.settimeout(PATIENCE)
            self.assertIn("known", sentence("PUT LATER 1 1 known") + sentence("CT LATER 1"))
            writers = Writers(4, go_on=False)
            await_true(lambda: len(writers.answered) > 100)
            galera("kill", 2, 3)  # the one that is in use stays
            began = time.monotonic()
            for text in ("PUT LATER 1 1 pretended", "PUT LATER 2 1 pretended", "CT LATER 1"):
                answer = sentence(text)
                self.assertIn("the store is unavailable", answer)
                self.assertNotIn(UNKNOWN, answer)
            print(f"\ntold that the store is unavailable within {time.monotonic() - began:.2f} s")
            self.assertLess(time.monotonic() - began, PATIENCE)
            writers.join()
            self.keep_book(writers)

            shell = ["mariadb", "--no-defaults", "-uroot", "-S", f"{FOLDER}/n1.sock"]
            subprocess.run([*shell, "-e", "SET GLOBAL wsrep_provider_options = 'pc.bootstrap=YES'"], check=True)
            await_true(lambda: "known" in sentence("CT LATER 1"))
            self.assertNotIn("pretended", sentence("CT LATER 1") + sentence("CT LATER 2"))
            sentence("PUT LATER 2 1 written")
            self.assertIn("written", sentence("CT LATER 2"))
            for node in (2, 3):
                galera("start", node)
            self.check_items(1, 2, 3)

    def test_5_all_three_are_gone(self):
        writers = Writers(4, go_on=False)
        await_true(lambda: len(writers.answered) > 100)
        galera("kill", 1, 2, 3)
        writers.join()
        self.keep_book(writers)
        positions = {node: int(galera("position", node).rpartition(":")[2]) for node in (1, 2, 3)}
        most, *others = sorted(positions, key=positions.get, reverse=True)
        galera("bootstrap", most)
        for node in others:
            galera("start", node)
        self.check_items(1, 2, 3)
