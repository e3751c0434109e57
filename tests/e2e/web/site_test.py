"""Requests: who gets in, what goes with every answer, what strangers send."""

import re
import threading
import time
import unittest

from support import PASSWORD
from websupport import Page, Site, upgrade, wait_for

POLICY = ("default-src 'none'; script-src 'self'; style-src 'self' 'nonce-%s'; img-src 'self' data:; "
          "font-src 'self'; connect-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'")


class Requests(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = Site("--web-name", "Nv.Example", "--web-name", "https://Safe.example")

    @classmethod
    def tearDownClass(cls):
        assert cls.site.stop() == 0, cls.site.log

    def test_every_answer_is_fenced(self):
        table = [
            ("GET", "/", 200), ("HEAD", "/", 200), ("GET", "/page.js", 200), ("GET", "/xterm.mjs?v=1", 200),
            ("GET", "/styles.css", 200), ("GET", "/livez", 200), ("GET", "/readyz", 200), ("GET", "/login", 303),
            ("GET", "/index.html", 404), ("GET", "/login.html", 404), ("GET", "/package.json", 404),
            ("GET", "/../host/main.cpp", 404), ("GET", "/%2e%2e/run", 404), ("GET", "//", 404), ("GET", "/session", 404),
            ("POST", "/nowhere", 404), ("POST", "/", 405), ("PUT", "/page.js", 405), ("DELETE", "/nowhere", 405),
            ("GET", "/logout", 405), ("BREW", "/", 405), ("OPTIONS", "*", 405),
        ]
        nonces = set()
        for method, path, status in table:
            with self.subTest(method=method, path=path):
                answer = self.site.request(method, path)
                self.assertEqual(answer.status, status)
                policy = answer.getheader("Content-Security-Policy")
                nonce = re.search("nonce-([^']+)'", policy)[1]
                nonces.add(nonce)
                self.assertEqual(policy, POLICY % nonce)
                fences = [answer.getheader(name) for name in
                          ("X-Content-Type-Options", "Referrer-Policy", "Cache-Control")]
                self.assertEqual(fences, ["nosniff", "no-referrer", "no-store"])
                self.assertEqual(answer.getheader("Allow") is not None, status == 405)
                self.assertEqual(answer.body == "", method == "HEAD" or status == 303)
        self.assertEqual(len(nonces), len(table))

    def test_log_in_and_out(self):
        refusals = set()
        for form in (("ann", "wrong word"), ("nobody", PASSWORD), ("ann", PASSWORD, "SHOP"), ("\u0142", "\u0142"),
                     ("", ""), ("ann", PASSWORD + "x" * 9000)):
            answer = self.site.log_in(*form)
            self.assertEqual(answer.status, 403)
            refusals.add(re.sub(' value="[^"]*"', "", answer.body))
        self.assertEqual(len(refusals), 1)
        self.assertIn("Log-in refused", refusals.pop())
        again = self.site.log_in('x" onfocus="<b>', "wrong word", "D&MO").body
        self.assertIn('value="x&quot; onfocus=&quot;&lt;b&gt;"', again)
        self.assertIn('value="D&amp;MO"', again)
        self.assertNotIn("wrong word", again)
        answer = self.site.log_in("ANN")
        cookie, *flags = answer.getheader("Set-Cookie").split("; ")
        self.assertEqual((answer.status, answer.getheader("Location")), (303, "/"))
        self.assertEqual((flags, len(cookie)), (["HttpOnly", "SameSite=Strict", "Path=/"], len("nvadmin=") + 43))

        page = self.site.request("GET", "/", Cookie=f"other=1; nvadmin=old; {cookie}")
        nonce = re.search("nonce-([^']+)'", page.getheader("Content-Security-Policy"))[1]
        self.assertIn(f'<meta name="nonce" content="{nonce}">', page.body)
        self.assertIn(">ann<", page.body)
        self.assertNotIn("{{", page.body)
        with Page(self.site, cookie) as session, Page(self.site, self.site.cookie()) as other:
            answer = self.site.request("POST", "/logout", {}, Cookie=cookie, Origin="null")
            self.assertEqual((answer.status, answer.getheader("Location")), (303, "/"))
            self.assertIn("Max-Age=0", answer.getheader("Set-Cookie"))
            self.assertEqual(session.closes(), "You have logged out.")
            self.assertIn("DEMO", other.ask("WHO"))
        ended = "Your log-in has ended. Log in again."
        for path, message in (("/", ""), ("/?ended", ended), ("/?ended=1", "")):
            body = self.site.request("GET", path, Cookie=cookie).body
            self.assertIn('action="/login"', body)
            self.assertEqual(ended in body, message == ended)
        self.assertNotIn(ended, self.site.request("GET", "/?ended", Cookie=self.site.cookie()).body)

    def test_whom_it_trusts(self):
        site, cookie = self.site, self.site.cookie()
        other_port = site.host[:-1] + str((int(site.host[-1]) + 1) % 10)
        hosts = [(site.host, 200), (f"localhost:{site.web_port}", 200), (f"[::1]:{site.web_port}", 200),
                 ("NV.example", 200), ("nv.example:8443", 200), ("nv.example.evil.net", 421), ("", 421),
                 (other_port, 421), ("127.0.0.1", 421), ("a b", 421), ("[::1", 421)]
        for host, status in hosts:
            with self.subTest(host=host):
                self.assertEqual(site.request("GET", "/", Host=host).status, status)
        self.assertEqual(site.request("GET", "/livez", Host="probe").status, 200)

        # Host, origin, may log in, may have a session.
        origins = [(site.host, site.origin, 1, 1), (site.host, None, 1, 0), (site.host, "null", 0, 0),
                   (site.host, f"https://{site.host}", 0, 0), (site.host, f"http://{other_port}", 0, 0),
                   (site.host, "http://evil.net", 0, 0), (site.host, site.origin + "@evil.net", 0, 0), (site.host, "", 0, 0),
                   (site.host, f"http://localhost:{site.web_port}", 0, 0), ("nv.example", "https://nv.example", 1, 1),
                   ("nv.example", "http://nv.example:80", 1, 1), ("nv.example:80", "http://NV.example", 1, 1),
                   ("safe.example", "https://safe.example", 1, 1), ("safe.example", "http://safe.example", 0, 0),
                   ("evil.net", "http://evil.net", 0, 0)]
        for host, origin, logs_in, has_session in origins:
            with self.subTest(host=host, origin=origin):
                headers = {"Origin": origin} if origin is not None else {}
                answer = site.log_in(Host=host, **headers)
                self.assertEqual(answer.status == 303, bool(logs_in))
                with site.connect() as stream:
                    self.assertEqual(b" 101 " in upgrade(stream, host, cookie, origin), bool(has_session))
        self.assertIn("; Secure", site.log_in(Host="nv.example", Origin="https://nv.example").getheader("Set-Cookie"))
        form = site.request("GET", "/").getheader("Set-Cookie").split(";")[0]
        for sender, status in (("same-origin", 303), ("none", 303), ("same-site", 403), ("cross-site", 403), ("", 403)):
            with self.subTest(sender=sender):
                answer = site.log_in(Origin="null", Cookie=form, Sec_Fetch_Site=sender)
                self.assertEqual(answer.status, status)
        plain = site.log_in(Origin="null", Cookie=form)
        self.assertEqual((plain.status, "; Secure" in plain.getheader("Set-Cookie")), (303, False))
        # A proxy speaks TLS; the form of a page without a referrer has no origin.
        self.assertIn("; Secure", site.log_in(Host="safe.example", Origin="null", Cookie=form).getheader("Set-Cookie"))
        self.assertEqual(site.request("POST", "/logout", {}, Origin="http://evil.net", Cookie=cookie).status, 403)
        for wrong in (None, "nvadmin=", "nvadmin=" + "x" * 43, "x" + cookie, cookie[:-1]):
            with self.subTest(cookie=wrong), site.connect() as stream:
                self.assertIn(b" 403 ", upgrade(stream, site.host, wrong, site.origin))
        with site.connect() as stream:
            self.assertIn(b" 404 ", upgrade(stream, site.host, cookie, site.origin, "/other"))

    def test_what_strangers_send(self):
        head = f"POST /login HTTP/1.1\r\nHost: {self.site.host}\r\n"
        table = [
            (b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", b" 400 "),
            (b"GET / HTTP/1.1\r\nHost x\r\n\r\n", b" 400 "),
            (b"GET / HTTP/1.1\r\nX: " + b"x" * 20_000 + b"\r\n\r\n", b" 431 "),
            (f"{head}Content-Length: 20000\r\n\r\n".encode() + b"x" * 20_000, b" 413 "),
            (f"{head}Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd".encode(), b" 400 "),
            (f"{head}Content-Length: 3\r\n\r\nabc".encode(), b" 415 "),
            (f"GET / HTTP/1.1\r\nHost: {self.site.host}\r\nHost: evil\r\n\r\n".encode(), b" 421 "),
            (f"GET /livez HTTP/1.1\r\nHost: x\r\n\r\n{head}".encode(), b"\r\n\r\nok\n"),
        ]
        for sent, want in table:
            with self.subTest(sent=sent[:40]), self.site.connect() as stream:
                stream.sendall(sent)
                stream.settimeout(10)
                received = b""
                while want not in received:
                    piece = stream.recv(4096)
                    assert piece, received
                    received += piece
        for why in ("header is too long", "request is too long", "can be understood"):
            wait_for(lambda: any("refused: " in line and why in line for line in self.site.log), self.site.log)

    def test_too_many_connections(self):
        site = Site("--max-sessions-per-address", "1")
        streams = [site.connect() for _ in range(4)]
        self.assertIn("too many connections", site.request("GET", "/").body)
        wait_for(lambda: any("too many" in line for line in site.log), site.log)
        for stream in streams:
            stream.close()
        wait_for(lambda: site.request("GET", "/").status == 200, "a place that is free again")
        self.assertEqual(site.stop(), 0)

    def test_wrong_passwords_in_a_row(self):
        site = Site()
        started = time.monotonic()
        for _ in range(4):
            self.assertEqual(site.log_in("ann", "wrong word").status, 403)
        self.assertGreater(time.monotonic() - started, 1)
        waiting = threading.Thread(target=site.log_in, args=("ann", "wrong word"))
        waiting.start()
        self.assertEqual(site.request("GET", "/readyz").status, 200)
        self.assertTrue(waiting.is_alive(), "others are served while one waits")
        waiting.join()
        self.assertEqual(site.stop(), 0)


class Slow(unittest.TestCase):
    def test_silence(self):
        """Connections that don't say what they want, or not whole, are closed; the others don't notice. A page to
        which nothing goes out gets a sign of life."""
        site = Site()
        head = f"GET /session HTTP/1.1\r\nHost: {site.host}\r\n".encode()
        cookie = site.cookie()
        started = time.monotonic()
        streams = [site.connect() for _ in range(20)]
        for stream in streams[10:]:
            stream.sendall(head)
        silent = Page(site, cookie, first=None)
        with Page(site, cookie) as page:
            page.until(":")
            for _ in range(26):
                time.sleep(1)
                for stream in streams[15:]:
                    stream.sendall(b"X")
            self.assertEqual(page.message(), "P")
            self.assertIn("DEMO", page.ask("WHO"))
            for index, stream in enumerate(streams):
                stream.settimeout(15)
                self.assertEqual(stream.recv(13), b"" if index < 10 else b"HTTP/1.1 408 ")
                stream.close()
            with silent:
                self.assertEqual(silent.closes(), "the page asked for no session in time")
            self.assertTrue(29 < time.monotonic() - started < 40)
            self.assertIn("DEMO", page.ask("WHO"))
        self.assertEqual(site.stop(), 0)
