"""Sessions over connections that come and go: numbered lines and messages, limits, ends, TLS."""

import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from support import PASSWORD
from websupport import BINARY, TEXT, Page, Site, wait_for

# Runs for some seconds in the store, and longer when nobody stops it.
LONG = "SELECT count(*) FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 900000000) SELECT i FROM n)"


class Sessions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = Site("--max-line", "100000")
        cls.cookie = cls.site.cookie()
        cls.bobs = cls.site.cookie("bob", PASSWORD, "SHOP")

    @classmethod
    def tearDownClass(cls):
        assert cls.site.stop() == 0, cls.site.log

    def page(self, first="N", **settings):
        return Page(self.site, self.cookie, first, **settings)

    def test_prompt_and_text(self):
        with self.page() as page:
            self.assertEqual((page.start.split(" ", 2)[2], len(page.token)), ("100000 0 1 DEMO", 43))
            page.until(":")
            page.line("CREATE-FILE ODD 2")
            self.assertEqual(page.output(), "K1")
            page.until(":")
            page.ask("PUT ODD x 1 \u20ac<b>\x01\x1b[2J\x9d")
            shown = page.ask("CT ODD x")
            self.assertIn("<b>\u2401\u241b[2J\ufffd", shown)
            self.assertIn("\u20ac<b>", shown)
            self.assertFalse({"\x01", "\x1b", "\x9b", "\x9d"} & set(shown))
            self.assertRegex(page.ask("PUT ODD y 1 \u0142"), r"U\+0142 '\u0142' at character 13 is not in the code page")
            page.ask("DELETE-FILE ODD")
            page.line("SORT COUNTRIES BY NAME NAME")
            while not (message := page.output()).startswith("A<TX>IREPLACE"):
                self.assertIn(message[0], "AEK")
            self.assertTrue(message.rstrip().endswith("</TX>"))
            page.line("ax1|<end>")
            page.until(":")

    def test_account_and_off(self):
        with Page(self.site, self.bobs) as page:
            page.until(":")
            page.line("LOGTO NATIVE")
            while page.output() != "TNATIVE":
                pass
            page.until(":")
        with Page(self.site, self.bobs, f"R{page.token} 0") as again:
            self.assertEqual(again.account, "NATIVE")
            again.line("OFF")
            self.assertEqual(again.closes(), "off")
        wait_for(lambda: any("the user ended it" in line for line in self.site.log), self.site.log)
        with Page(self.site, self.bobs, f"R{page.token} 0") as late:
            self.assertEqual(late.start, "Xunknown")

    def test_resume_at_every_place(self):
        """Connections that break at any moment: no line is lost or taken twice, and the text comes whole."""
        with self.page() as page:
            page.until(":")
            page.ask("CREATE-FILE COUNTED 300")
        text, seen, lines = page.text, page.seen, page.lines
        sentences = [f"PUT COUNTED x {number} {number * 7}" for number in range(1, 101)]
        for number in range(100):
            with self.page(f"R{page.token} {seen}") as next_page:
                self.assertEqual(next_page.seen, seen, "it goes on where it was")
                # A page sends again what it doesn't know to be taken.
                for unsure in range(max(next_page.lines, lines) - min(3, number), lines + number + 1):
                    next_page.send(f"L{unsure + 1} {sentences[unsure - lines]}")
                for _ in range(number % 3):
                    next_page.output()
                text, seen = text + next_page.text, next_page.seen
                received = next_page.lines
                self.assertGreaterEqual(received, lines)
        with self.page(f"R{page.token} {seen}") as last:
            for sentence in sentences[last.lines - lines:] + ["CT COUNTED x"]:
                last.line(sentence)
            while f"K{lines + 101}" != (message := last.output()):
                self.assertIn(message[0], "EK")
            shown = last.until(":")
            self.assertIn("100 700", " ".join(shown.split()))
            self.assertIn("050 350", " ".join(shown.split()))
            text += last.text
        with self.page(f"R{page.token} 0") as fresh:
            fresh.line("OFF")
            fresh.closes()
            self.assertEqual(fresh.text, text)

    def test_take_over_and_tabs(self):
        with self.page() as first, self.page() as second:
            for page in (first, second):
                page.until(":")
            with self.page(f"R{first.token} {first.seen}") as taker:
                self.assertEqual(first.closes(), "moved")
                self.assertIn("DEMO", taker.ask("WHO"))
                self.assertIn("DEMO", second.ask("WHO"))
            for stranger, first_message in ((self.bobs, f"R{first.token} 0"), (self.cookie, f"R{'x' * 43} 0")):
                with Page(self.site, stranger, first_message) as page:
                    self.assertEqual(page.start, "Xunknown")

    def test_pages_are_kept(self):
        with self.page() as page:
            page.until(":")
            page.line("MENU")
            while not page.output().startswith("A<TX>OK"):
                pass
        with self.page(f"R{page.token} 0") as again:
            while not again.output().startswith("A<TX>OK"):
                pass
            again.line("")
            while "IREPLACE|" not in (message := again.output()):
                pass
            again.rest_of_frame(message)
        with self.page(f"R{page.token} 1") as third:
            self.assertNotEqual(third.seen, 1)
            while "IREPLACE|" not in (replayed := third.output()):
                self.assertNotIn("<TX>OK", replayed)
            self.assertEqual(replayed, message)
            third.rest_of_frame(replayed)
            third.send("I")
            third.line("mx3|")
            while "IREPLACE|" not in (form := third.output()):
                self.assertNotIn("<TERMINAL>", form, "an interrupt answers no form")
            third.line("bx2|")
            third.line("bx2|")
            self.assertIn("<TERMINAL>", third.until(":"))

    def test_interrupted_statement(self):
        with self.page() as page:
            page.until(":")
            page.line(LONG)
            page.output()
            time.sleep(0.3)
            page.send("I")
            self.assertIn("interrupt", page.until(":"))
            page.send("I")
            self.assertEqual(page.output(), "E\r\n:")
            page.line("LIST COUNTRIES NAME")
            while not page.output().rstrip().endswith("</TX>"):
                pass
            page.send("I")
            page.stream.settimeout(0.5)
            self.assertRaises(TimeoutError, page.message)
            page.stream.settimeout(20)
            page.line("ax1|<end>")
            page.until(":")

    def test_interrupted_form(self):
        """Its work stops; the session is at the prompt."""
        with self.page() as page:
            page.until(":")
            page.line("MENU")
            for reply in ("", "mx3|", "fx3|ORDERS", f"fx4|{LONG}", "bx1|"):
                page.line(reply)
            while page.output() != "K6":
                pass
            time.sleep(0.5)
            page.send("I")
            self.assertRegex(page.until("\r\n:"), r"(?s)<TERMINAL>.*interrupted")
            self.assertIn("DEMO", page.ask("WHO"))

    def test_what_no_page_sends(self):
        table = [
            (TEXT, b"", 1002), (TEXT, b"N ", 1002), (TEXT, b"Rx", 1002), (TEXT, b"Rx y", 1002), (TEXT, b"L1 WHO", 1002),
            (BINARY, b"N", 1003), (TEXT, b"\xff\xfe", 1007), (TEXT, b"N" * 100_033, 1009),
        ]
        for kind, data, code in table:
            with self.subTest(first=data[:10]), self.page(None) as page:
                page.frame(kind, data)
                self.assertIn(page.closes(), (code, "gone") if code == 1009 else (code,))
        later = [(TEXT, b"L2 WHO", 1002), (TEXT, b"L1WHO", 1002), (TEXT, b"Lx WHO", 1002), (TEXT, b"L1 a\nb", 1002),
                 (TEXT, b"N", 1002), (TEXT, b"I ", 1002), (TEXT, b"", 1002), (BINARY, b"L1 WHO", 1003),
                 (TEXT, b"L1 \xc0\x80", 1007), (TEXT, b"L1 " + b"x" * 100_030, 1009)]
        with self.page() as page:
            page.until(":")
        for kind, data, code in later:
            with self.subTest(sent=data[:10]), self.page(f"R{page.token} {page.seen}") as broken:
                broken.frame(kind, data)
                self.assertIn(broken.closes(), (code, "gone") if code == 1009 else (code,))
        with self.page(f"R{page.token} {page.seen}") as page:
            self.assertEqual(page.lines, 0)
            page.frame(TEXT, b"L1 ", fin=False)
            page.frame(0, b"WHO")
            self.assertIn("DEMO", page.until(":"))
            page.lines = 1
            page.line("x" * page.limit)
            self.assertEqual(page.output(), "K2")
            page.until(":")
        wait_for(lambda: any("its line is longer than 100000 bytes" in line for line in self.site.log), self.site.log)

    def test_more_lines_than_it_can_hold(self):
        with self.page() as page:
            page.until(":")
            page.line(LONG)
            page.output()
            for _ in range(3):
                page.line("x" * 60_000)
            self.assertEqual(page.closes(), 1013)
        with self.page(f"R{page.token} {page.seen}") as again:
            self.assertEqual(again.lines, 2)
            again.send("I")
            again.until(":")


class Limits(unittest.TestCase):
    def test_sessions_and_time(self):
        site = Site("--max-sessions-per-address", "2", "--idle", "3", "--resume", "1", "--stall", "1")
        cookie = site.cookie()
        with Page(site, cookie) as first, Page(site, cookie) as lost:
            with Page(site, cookie) as third:
                self.assertIn("as many sessions as one address may have", third.start)
            lost.until(":")
            lost.line(LONG)
            lost.output()
            lost.stream.close()
            # Its statement is stopped, and its place is free.
            wait_for(lambda: any("page didn't come back" in line for line in site.log), site.log)
            with Page(site, cookie, "N", receive_buffer=4096) as slow:
                slow.until(":")
                for _ in range(3000):
                    slow.line("HELP")
                wait_for(lambda: any("took nothing" in line for line in site.log), site.log)
            self.assertEqual(first.closes(), "no line came in time")
        self.assertEqual(site.stop(), 0)

    def test_log_in_of_hours_ago(self):
        """A new password, or fewer accounts, count for cookies given before."""
        site = Site()
        cookie = site.cookie("bob", PASSWORD, "SHOP")
        program = [os.environ["NVADMIN"], "--home", os.environ["NVADMIN_HOME"], "user", "accounts", "bob", "--account"]
        subprocess.run([*program, "NATIVE"], check=True)
        with Page(site, cookie) as page:
            self.assertIn("have changed", page.closes())
        subprocess.run([*program, "SHOP,NATIVE"], check=True)
        with Page(site, cookie) as page:
            page.until(":")
        self.assertEqual(site.stop(), 0)


class Ends(unittest.TestCase):
    def test_signals(self):
        for busy, seconds in ((False, 5), (True, 16)):
            site = Site()
            cookie = site.cookie()
            with Page(site, cookie) as page, Page(site, cookie) as away:
                page.until(":")
                away.until(":")
                away.stream.close()
                if busy:
                    page.line(LONG)
                    page.output()
                started = time.monotonic()
                code = site.stop(signal.SIGTERM)
                self.assertEqual(code, 0, site.log)
                self.assertLess(time.monotonic() - started, seconds)
                self.assertEqual(page.closes(), "the server ends")


class Tls(unittest.TestCase):
    def test_session(self):
        if not shutil.which("openssl"):
            self.skipTest("no openssl program")
        with tempfile.TemporaryDirectory() as folder:
            key, certificate = os.path.join(folder, "key.pem"), os.path.join(folder, "certificate.pem")
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                            "/CN=localhost", "-keyout", key, "-out", certificate], check=True, capture_output=True)
            site = Site("--tls-cert", certificate, "--tls-key", key)
            answer = site.log_in(Origin=site.origin)
            self.assertTrue(answer.getheader("Set-Cookie").endswith("; Secure"))
            cookie = answer.getheader("Set-Cookie").split(";")[0]
            self.assertEqual(site.log_in(Origin=f"http://{site.host}").status, 403)
            with Page(site, cookie) as page:
                page.until(":")
                self.assertIn("page.js", site.request("GET", "/", Cookie=cookie).body)
                self.assertGreater(len(site.request("GET", "/xterm.mjs").body), 300_000)
            with Page(site, cookie, f"R{page.token} {page.seen}") as page:
                self.assertIn("DEMO", page.ask("WHO"))
            self.assertEqual(site.stop(), 0)
