"""The servers on an account whose files lie in a MariaDB database: locks, a load, a database server that dies."""

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import unittest

import nvclient
import transfer_test
from support import HOME, PATIENCE, PROGRAM, Server, make_file, wait_for

DATABASE = os.environ["NVADMIN_TEST_OWN_MARIADB"]
SCRIPT = pathlib.Path(__file__).parents[2] / "support/mariadb-server.sh"


def tcl(*sentences, home=HOME, account="SALES"):
    """Exit code and all that is printed."""
    command = [PROGRAM, "--home", home, "--account", account, "tcl"]
    for sentence in sentences:
        command += ["-c", sentence]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
    return done.returncode, (done.stdout + done.stderr).decode()


def database(action):
    options = ["--innodb-flush-log-at-trx-commit=1"] if action == "resume" else []
    subprocess.run(["bash", SCRIPT, action, DATABASE, *options], check=True)


class OnMariaDb(unittest.TestCase):
    begin, send, serve, load = (getattr(transfer_test.Load, name) for name in ("begin", "send", "serve", "load"))

    def server(self):
        server = Server()
        self.addCleanup(server.stop)
        return server

    def test_locks_of_another_home(self):
        """Another home on the same database is what another host is."""
        with tempfile.TemporaryDirectory() as other:
            store = f"mariadb://root@/sales?socket={DATABASE}/socket"
            subprocess.run([PROGRAM, "--home", other, "account", "add", "SALES", "--datastore", "MYSQL", "--store",
                            store], input=b"\n", check=True)
            with self.server().client("SALES") as session:
                make_file(session, "GUARDED", {"1": "a", "2": "b"})
                with session.lock("GUARDED", "1"):
                    code, printed = tcl("LIST-LOCKS", home=other)
                    self.assertEqual(code, 0, printed)
                    self.assertRegex(printed, rf"SALES +guarded +1 +bob at 127\.0\.0\.1:\d+ on {socket.gethostname()}")
                    start = time.monotonic()
                    for sentence in ("PUT GUARDED 1 1 x", "DELETE-ITEM GUARDED 1", "CLEAR-FILE GUARDED"):
                        code, printed = tcl(sentence, home=other)
                        self.assertEqual(code, 1, printed)
                        self.assertRegex(printed, r"\[920\] .* of guarded is locked by bob at 127\.0\.0\.1")
                    self.assertLess(time.monotonic() - start, 5)
                    self.assertEqual(tcl("PUT GUARDED 2 1 x", home=other)[0], 0)
                self.assertEqual(tcl("PUT GUARDED 1 1 x", home=other)[0], 0)
                self.assertEqual(session.read("GUARDED", "1"), b"x")

    def test_load(self):
        """The demo's files, saved, and loaded through the form, tell the same."""
        code, printed = tcl("BULK-SAVE GOODS CUSTOMERS", account="DEMO")
        self.assertEqual(code, 0, printed)
        self.assertRegex(self.load("SALES"), r"customers +200 +200 +0 ")
        for sentence in ("COUNT CUSTOMERS", "SORT CUSTOMERS", "SORT DICT CUSTOMERS"):
            self.assertEqual(tcl(sentence), tcl(sentence, account="DEMO"))
        shutil.rmtree(os.path.join(HOME, "TransferBulk"), ignore_errors=True)

    def test_database_server_dies_under_writes(self):
        """Whatever was answered is there; the writers go on without a restart of ours."""
        server = self.server()
        with server.client("SALES") as session:
            make_file(session, "KEPT", {})
        answered, errors = [[] for _ in range(3)], []
        is_back, over = threading.Event(), threading.Event()

        def write(writer):
            number, behind = 0, 0
            while behind < 20 and not over.is_set():
                try:
                    with server.client("SALES") as session:
                        while behind < 20 and not over.is_set():
                            number += 1
                            session.write("KEPT", f"{writer}-{number}", f"item {writer}-{number}")
                            if session.read("KEPT", f"{writer}-{number}") == b"item %d-%d" % (writer, number):
                                answered[writer].append(number)
                                behind += is_back.is_set()
                except nvclient.NvError as error:
                    errors.append(error)
                    time.sleep(0.2)

        threads = [threading.Thread(target=write, args=(writer,)) for writer in range(3)]
        for thread in threads:
            thread.start()
        wait_for(lambda: all(answered), errors)
        database("kill")
        time.sleep(1)
        database("resume")
        is_back.set()
        for thread in threads:
            thread.join(PATIENCE)
        over.set()
        for thread in threads:
            thread.join()
        self.assertTrue(errors, "the writers noticed")
        for writer in range(3):
            self.assertGreater(len(answered[writer]), 20, errors[-3:])
        with server.client("SALES") as session:
            lost = [(writer, number) for writer in range(3) for number in answered[writer]
                    if not session.exists("KEPT", f"{writer}-{number}")]
        self.assertEqual(lost, [])


# The tests of the module that is used here run elsewhere.
del transfer_test.Load.test_killed_in_the_middle
