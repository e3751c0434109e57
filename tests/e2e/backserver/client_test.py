"""nvclient.py against the server: every routine, every error, and texts that look like frames."""

import contextlib
import doctest
import os
import pathlib
import subprocess
import sys
import unittest

import nvclient
from nvclient import AM, VM
from support import PASSWORD, Server, make_file

SOURCES = pathlib.Path(nvclient.__file__).parent.parent
THINGS = {b"K%02d" % n: b"Thing %d" % n + AM + b"%d" % n + VM + b"250" for n in range(1, 46)}
NAME = [b"A", b"1", b"Name", b"", b"", b"", b"", b"", b"L", b"20"]
PRICE = [b"A", b"2", b"Price", b"", b"", b"", b"MD2", b"", b"R", b"9"]


def setUpModule():
    global server, sessions
    server = Server()
    sessions = [server.client(account) for account in ("SHOP", "NATIVE")]


def tearDownModule():
    for session in sessions:
        session.close()
    assert server.stop() == 0, server.log


class Client(unittest.TestCase):
    def accounts(self):
        """The session on each kind of account, with the file THINGS."""
        for session in sessions:
            make_file(session, "THINGS", THINGS)
            for id, item in ((b"NAME", NAME), (b"PRICE", PRICE), (b"1", NAME), (b"3", PRICE)):
                session.write("DICT THINGS", id, nvclient.join_item(item))
            with self.subTest(account=session.account()):
                yield session

    def test_items(self):
        for session in self.accounts():
            self.assertEqual(session.read("THINGS", "K07"), b"Thing 7\xfe7\xfd250")
            self.assertEqual(session.read("things", b"K07", 2, 4), b"7\xfd25")
            session.write("THINGS", "K07", "Café", 1)
            session.write("THINGS", "K99", nvclient.join_item(["a", "", "c"]))
            self.assertEqual(session.read("THINGS", "K07", 1), b"Caf\xe9")
            self.assertEqual(nvclient.split_item(session.read("THINGS", "K99")), [b"a", b"", b"c"])
            self.assertTrue(session.exists("THINGS", "K99"))
            session.delete("THINGS", "K99")
            self.assertFalse(session.exists("THINGS", "K99"))
            self.assertIn("THINGS", [name.decode().upper() for name in session.files()])

    def test_texts_that_look_like_frames(self):
        texts = [bytes(set(range(256)) - set(b"\r\n")), b"</TXA>", b"<TXA>OK</TXA>", b"<&IM>", b"ROWSET EXIT",
                 b" ", b"<ERROR>[912] READ ERROR!", b"<ERROR>[920] Record locked",
                 b"0123456789" * 99999 + b"012345678"]
        for session in self.accounts():
            session.capture("CREATE-FILE RAW")
            for text in texts:
                session.write("RAW", "1", text)
                self.assertEqual(session.read("RAW", "1"), text)
                with session.lock("RAW", "1") as item:
                    self.assertEqual(item.text, text)
                if b"<&IM>" not in text:
                    self.assertEqual([*session.rows("RAW")], [[b"1", *text.split(AM)]])
            session.tcl("DELETE-FILE RAW")
        # Line ends can't be written this way, but SQL knows them.
        session = sessions[0]
        session.capture("UPDATE things SET A1 = 'a</TXA>' || char(13, 10) || '<TXA>b' WHERE A0 = 'K01'")
        text = b"a</TXA>\r\n<TXA>b"
        self.assertEqual(session.read("THINGS", "K01", 1), text)
        self.assertIn(b"001 " + text, session.tcl("CT THINGS K01"))
        self.assertEqual(next(session.rows("THINGS", columns=[1])), [text])

    def test_rows(self):
        first = [b"K01", b"Thing 1", b"1\xfd250"]
        shown = [b"K01", b"Thing 1", b"0.01\xfd2.50"]
        table = [
            # columns, first row, headings
            (None, first, []),
            ("0", [b"K01"], []),
            ([2, 0], [first[2], b"K01"], []),
            ([5, 1], [b"", b"Thing 1"], []),
            ([5], [b""], []),
            (["NAME", "PRICE"], shown, [b"Name", b"Price"]),
            (["NONE", "NAME"], [b"K01", b"", b"Thing 1"], [b"", b"Name"]),
            ("LIST THINGS", shown, [b"Name", b"Price"]),
        ]
        for session in self.accounts():
            for columns, row, headings in table:
                with self.subTest(columns=columns):
                    rows = session.rows("THINGS", "SSELECT THINGS", columns)
                    self.assertEqual([column.heading for column in rows.columns], headings)
                    rows = [*rows]
                    self.assertEqual(rows[0], row)
                    self.assertEqual(len(rows), len(THINGS))
            self.assertEqual(session.rows("THINGS", columns=["PRICE"]).columns,
                             [nvclient.Column(b"Price", b"R", b"9", b"MD2")])
            self.assertEqual([*session.rows("THINGS", 'SELECT THINGS WITH NAME = "none"')], [])
            found = session.rows("THINGS", 'SELECT THINGS WITH NAME = "Thing 3"', ["1"], dictionary="THINGS")
            self.assertEqual([*found], [[b"K03", b"Thing 3"]])

    def test_leaving_rows_early(self):
        for session in self.accounts():
            for columns, batch in ((None, 10), (["NAME"], 20), ([1], 20), ("0", 100)):
                for taken in {0, 1, batch - 1, batch, batch + 1, 40, len(THINGS)}:
                    rows = session.rows("THINGS", "SSELECT THINGS", columns)
                    for _ in range(min(taken, len(THINGS))):
                        next(rows)
                    rows.close()
                    self.assertEqual([*rows], [])
                    self.assertTrue(session.who())
            for row in session.rows("THINGS"):
                break
            with self.assertRaises(KeyError):
                for row in session.rows("THINGS"):
                    {}[row[0]]
            generator = (row for row in session.rows("THINGS"))
            next(generator)
            generator.close()
            with session.rows("THINGS") as rows, self.assertRaisesRegex(nvclient.TransferOpen, "THINGS"):
                session.who()
            self.assertTrue(session.who())

    def test_locks(self):
        for session in self.accounts():
            with server.client(session.account()) as other:
                with session.lock("THINGS", "K01") as outer, session.lock("THINGS", "new", 2) as item:
                    self.assertEqual((outer.text, item.text), (THINGS[b"K01"], b""))
                    item.write("kept")
                    other.write("THINGS", "new", "of another")
                    self.assertEqual(session.read("THINGS", "new", 2), b"kept")
                    for id in ("K01", "new"):
                        with self.assertRaises(nvclient.LockRefused), other.lock("THINGS", id):
                            pass
                    # In other letters than those that opened the file: one lock goes, not all.
                    session.release("things", "new")
                    with other.lock("THINGS", "new"), self.assertRaises(nvclient.LockRefused):
                        other.lock("THINGS", "K01", wait=0.05).__enter__()
                with other.lock("THINGS", "K01") as item, other.lock("THINGS", "K02"):
                    other.release("THINGS")
                    with session.lock("THINGS", "K01"), session.lock("THINGS", "K02"):
                        pass
                with contextlib.suppress(KeyError), other.lock("THINGS", "K01"):
                    raise KeyError
                with session.lock("THINGS", "K01"):
                    pass

    def test_sentences_and_values(self):
        for session in self.accounts():
            account = session.account()
            self.assertIn(account, (b"SHOP", b"NATIVE"))
            self.assertRegex(session.who(), b"^[0-9]+ " + account + b" bob$")
            count = b"45 items counted"
            self.assertEqual(session.capture("COUNT THINGS"), count)
            self.assertEqual(session.tcl("COUNT THINGS"), count + b"\r\n")
            self.assertEqual(session.execute("COUNT THINGS"), count + b"\r\n")
            self.assertEqual(session.execute_ps("COUNT THINGS"), count + b"\r\n")
            self.assertEqual(session.execute_ps("SYSTEM ACCOUNT"), None)
            with self.assertRaisesRegex(nvclient.SentenceFailed, "COUNT NONE"):
                session.capture("COUNT NONE")
            self.assertEqual(session.lock_timeout(), b"")
            session.lock_timeout("30")
            session.user_instance("seat7")
            self.assertEqual((session.lock_timeout(), session.user_instance()), (b"30", b"seat7"))
            session.flavour("any")
            session.ultplus()
            session.pick()
            self.assertEqual(len([*session.rows("THINGS")]), len(THINGS))
            session.pick("0")

    def test_errors(self):
        missing = "[911] File 'NO' fails to OPEN so may not exist."
        table = [
            # kind, code, text, request
            (nvclient.FileNotOpen, 911, missing, lambda s: s.rows("NO")),
            (nvclient.FileNotOpen, 911, missing, lambda s: s.delete("NO", "1")),
            (nvclient.FileNotOpen, 911, missing, lambda s: s.write("NO", "1", "x")),
            (nvclient.ItemNotFound, 912, "[912] READ ERROR", lambda s: s.read("THINGS", "none")),
            (nvclient.ItemNotFound, 912, "[912] READV ERROR", lambda s: s.read("THINGS", "none", 1)),
            (nvclient.DictNotOpen, 914, "[914] Open supporting LIST Dict Items fails for 'DICT NO'",
             lambda s: s.rows("THINGS", columns=["NAME"], dictionary="NO")),
            (nvclient.UnknownKeyword, 915, "[915] Keyword FLY not recognised.", lambda s: s.request("FLY")),
            (nvclient.UnknownKeyword, 915, "[915] Keyword  not recognised.", lambda s: s.request("")),
            (nvclient.EngineError, None,
             "WRITE holds no <&IM> between its head and its body: nothing written",
             lambda s: s.request("WRITE", "THINGS", "1")),
        ]
        for session in self.accounts():
            for kind, code, text, request in table:
                with self.subTest(text=text), self.assertRaises(kind) as caught:
                    request(session)
                self.assertEqual((caught.exception.code, str(caught.exception)), (code, text))
            self.assertTrue(session.who())

    def test_what_can_not_be_sent(self):
        table = [
            ("file holds an attribute mark at character 2", lambda s: s.read("a\xfe", "1")),
            ("id holds a line feed", lambda s: s.delete("THINGS", "1\n")),
            ("id holds the item mark", lambda s: s.write("THINGS", "<&IM>", "x")),
            ("U.0142 at character 1", lambda s: s.read("THINGS", "ł")),
            ("body holds a carriage return", lambda s: s.write("THINGS", "1", "a\rb")),
            ("body holds the end mark", lambda s: s.write("THINGS", "1", "a</txB>b")),
            ("body has 1000000 characters", lambda s: s.write("THINGS", "1", b"x" * 1000000)),
            ("sentence holds the end mark", lambda s: s.tcl("COUNT </TXB>")),
            ("attribute is -1", lambda s: s.read("THINGS", "1", -1)),
            ("length is '3'", lambda s: s.read("THINGS", "1", length="3")),
            ("column holds a blank", lambda s: s.rows("THINGS", columns=["A B"])),
            ("columns is empty", lambda s: s.rows("THINGS", columns=[])),
            ("value holds a blank", lambda s: s.lock_timeout("3 s")),
        ]
        for text, request in table:
            with self.subTest(text=text), self.assertRaisesRegex(nvclient.BadArgument, text):
                request(sessions[0])
        self.assertTrue(sessions[0].who())

    def test_log_in(self):
        for user, password, account in (("bob", "wrong", "SHOP"), ("bob", PASSWORD, "DEMO")):
            with self.assertRaisesRegex(nvclient.LoginRefused, "user, password or account is wrong"):
                nvclient.connect("127.0.0.1", server.port, user, password, account)
        with self.assertRaises(nvclient.ConnectionLost):
            nvclient.connect("127.0.0.1", 1, "bob", PASSWORD, "SHOP")

    def test_silence_closes_the_connection(self):
        with server.client(timeout=0.2) as session:
            server.pause(True)
            try:
                with self.assertRaises(nvclient.ReplyTimeout):
                    session.who()
            finally:
                server.pause(False)
            with self.assertRaisesRegex(nvclient.ConnectionLost, "closed: the server was silent for 0.2 s"):
                session.who()


class Documents(unittest.TestCase):
    def test_examples(self):
        text = (SOURCES / "docs" / "backserver.md").read_text()
        examples = "\n".join(part.split("```")[0] for part in text.split("```python\n")[1:])
        names = {"port": server.port, "password": PASSWORD}
        test = doctest.DocTestParser().get_doctest(examples, names, "docs/backserver.md", None, 0)
        self.assertGreater(len(test.examples), 10)
        report = []
        doctest.DocTestRunner().run(test, out=report.append)
        self.assertEqual(report, [])


class CommandLine(unittest.TestCase):
    def test_commands_and_exit_codes(self):
        ann, bob = ("--user", "ann", "DEMO"), ("--user", "bob", "NATIVE")
        ivory = ("--sentence", "SELECT COUNTRIES 'CI'", "--columns", "NAME", "--headings")
        table = [
            # words, input, exit code, output
            ((*ann, "capture", "COUNT COUNTRIES"), "", 0, "249 items counted\n"),
            ((*ann, "capture", "COUNT NOWHERE"), "", 1, ""),
            ((*ann, "rows", "COUNTRIES", *ivory), "", 0, "\tCountry\nCI\tCôte d'Ivoire\n"),
            (("--user", "ann", "SHOP", "who"), "", 4, ""),
            (("--user", "ann"), "", 2, ""),
            ((*bob, "write", "THINGS", "1"), "Æ]\n\x1b[2J\n", 0, ""),
            ((*bob, "read", "THINGS", "1"), "", 0, "Æ]\n\\x1b[2J\n"),
            (("--raw", *bob, "read", "THINGS", "1"), "", 0, "\\xc6]\\xfe\x1b[2J"),
            ((*bob, "write", "THINGS", "2"), "ł\n", 2, ""),
        ]
        make_file(sessions[1], "THINGS", {})
        client = [sys.executable, nvclient.__file__, "--host", "127.0.0.1", "--port", str(server.port)]
        environment = {**os.environ, "NVCLIENT_PASSWORD": PASSWORD}
        for words, given, code, output in table:
            with self.subTest(words=words):
                done = subprocess.run([*client, *words], input=given.encode(), capture_output=True,
                                      env=environment)
                printed = done.stdout.decode("utf-8", "backslashreplace")
                got = (done.returncode, printed, bool(done.stderr))
                self.assertEqual(got, (code, output, code != 0), done.stderr)
