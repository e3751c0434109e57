"""What strangers send, how sessions end, and how the server ends."""

import os
import shutil
import signal
import socket
import ssl
import subprocess
import tempfile
import time
import unittest

import nvclient
from support import HOME, PASSWORD, PROGRAM, RawClient, Server, make_file, wait_for

# Runs for some seconds in the store, and longer when nobody stops it.
LONG = "SELECT count(*) FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < %d) SELECT i FROM n);"


def rest(client):
    """All that comes until the server hangs up."""
    client.socket.settimeout(20)
    data = b""
    try:
        while piece := client.socket.recv(1 << 16):
            data += piece
    except ConnectionResetError:
        pass
    return data


def log_in(client, user, password, account):
    for prompt, answer in zip((b"login: ", b"password: ", b"account: "), (user, password, account)):
        client.until(prompt)
        client.send(answer.encode() + b"\r\n")


class Strangers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server("--max-line", "2000", "--max-request", "5000", "--log-in", "3", "--idle", "2",
                            "--stall", "1")

    @classmethod
    def tearDownClass(cls):
        assert cls.server.stop() == 0, cls.server.log

    def test_greetings(self):
        table = [
            (b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"no web server\r\n"),
            (b"\x16\x03\x01\x02\x00\x01\x00", b"without TLS\r\n"),
            (b"x" * 5_000_000, b"a line is longer than 1024 bytes\r\n"),
            (b"ann\n" + b"p" * 1_000_000, b"a line is longer than 1024 bytes\r\n"),
            (b"", b"no line came in time\r\n"),
            (b"ann\n" + bytes(range(256)).replace(b"\n", b"") + b"\nDEMO\n", b"no line came in time\r\n"),
        ]
        for sent, end in table:
            with self.subTest(sent=sent[:20]), RawClient(self.server, enter=False) as client:
                try:
                    client.send(sent)
                except (BrokenPipeError, ConnectionResetError):
                    pass
                self.assertTrue(rest(client).endswith(end))

    def test_drip(self):
        with RawClient(self.server, enter=False) as client:
            started = time.monotonic()
            with self.assertRaises((BrokenPipeError, ConnectionResetError)):
                while time.monotonic() < started + 10:
                    client.send(b"x")
                    time.sleep(0.2)

    def test_log_ins_refused_alike(self):
        answers = set()
        for user, password, account in (("bob", "wrong word", "SHOP"), ("nobody", PASSWORD, "SHOP"),
                                        ("bob", PASSWORD, "DEMO")):
            with RawClient(self.server, enter=False) as client:
                log_in(client, user, password, account)
                answers.add(client.until(b"login: "))
        self.assertEqual(answers, {b"Log-in refused: user, password or account is wrong.\r\nlogin: "})

    def test_limits_of_a_session(self):
        table = [
            (b"x" * 2001 + b"\n", b"a line is longer than 2000 bytes\r\n"),
            (b"x" * 100_000, b"a line is longer than 2000 bytes\r\n"),
            ((b"x" * 1900 + b"\n") * 3, b"a request is longer than 5000 bytes\r\n"),
            (b"READ\xfe", b"no line came in time\r\n"),
        ]
        for sent, end in table:
            with self.subTest(sent=sent[:20]), RawClient(self.server) as client:
                client.send(sent)
                self.assertTrue(rest(client).endswith(end))

    def test_reader_that_stops(self):
        with RawClient(self.server, "DEMO", "ann", enter=False) as client:
            client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            log_in(client, "ann", PASSWORD, "DEMO")
            client.until(b":")
            client.send(b"HELP\n" * 5000)
            wait_for(lambda: any("took nothing" in line for line in self.server.log), self.server.log)

    def test_too_many(self):
        server = Server("--max-sessions", "30", "--max-sessions-per-address", "20")
        clients = [RawClient(server, enter=False) for _ in range(300)]
        refused = sum(b"one address may have" in rest(client) for client in clients[20:])
        self.assertEqual(refused, 280)
        others = [socket.create_connection(("127.0.0.1", server.port), 20, ("127.0.0.2", 0)) for _ in range(15)]
        answers = [other.recv(100) for other in others]
        self.assertEqual([answer[:10] for answer in answers], [b"login: "] * 10 + [b"the server"] * 5)
        for client in [client.socket for client in clients] + others:
            client.close()
        wait_for(lambda: sum(": ended: " in line for line in server.log) == 30, "the sessions end")
        with server.client() as session:
            self.assertTrue(session.who())
        self.assertEqual(server.stop(), 0)


class Ends(unittest.TestCase):
    def sessions(self, session):
        return session.capture("LISTU").count(b"127.0.0.1:")

    def test_hang_up_interrupts_and_releases(self):
        server = Server()
        with server.client() as session:
            make_file(session, "HELD", {"1": "x"})
            for how in ("close", "half"):
                client = RawClient(server)
                client.send(b"READ\xfeHELD\xfe1\xfe\xfeLOCK</TXB>\n")
                client.until(b"</TXA>\r\n")
                client.send(b"CAPTURING\xfe" + (LONG % 10**10).encode() + b"</TXB>\n")
                wait_for(lambda: self.sessions(session) == 2, "two sessions")
                client.socket.shutdown(socket.SHUT_WR) if how == "half" else client.socket.close()
                wait_for(lambda: self.sessions(session) == 1, "the session ends, its statement too")
                with session.lock("HELD", "1") as item:
                    self.assertEqual(item.text, b"x")
                client.socket.close()
        self.assertEqual(server.stop(), 0)

    def test_signals(self):
        server = Server()
        with RawClient(server) as waiting, RawClient(server) as running:
            running.send(b"CAPTURING\xfe" + (LONG % 1_000_000).encode() + b"</TXB>\n")
            time.sleep(0.2)
            self.assertEqual(server.stop(), 0)
            self.assertEqual(rest(waiting), b"the server ends\r\n")
            self.assertRegex(rest(running), rb"^<TXA>1\b.*</TXA>\r\nthe server ends\r\n$")
        server = Server()
        with RawClient(server) as running:
            running.send(b"CAPTURING\xfe" + (LONG % 10**10).encode() + b"</TXB>\n")
            time.sleep(0.2)
            started = time.monotonic()
            os.kill(server.process_id, signal.SIGTERM)
            time.sleep(0.3)
            self.assertEqual(server.stop(), 0)
            self.assertLess(time.monotonic() - started, 8, "it waits ten seconds for what runs")

    def test_what_is_refused_at_the_start(self):
        def failure(*options, home=HOME):
            done = subprocess.run([PROGRAM, "--home", home, "serve", *options], capture_output=True, text=True)
            return done.returncode, done.stderr

        server = Server()
        table = [
            (["--line", "0.0.0.0:0"], 4, "--insecure"),
            (["--line", f"127.0.0.1:{server.port}"], 4, f"127.0.0.1:{server.port}"),
            (["--line", "nowhere"], 2, "HOST:PORT"),
            (["--line", "127.0.0.1:0", "--tls-cert", "/nosuch"], 2, "--tls-key"),
            (["--line", "127.0.0.1:0", "--tls-cert", "/nosuch", "--tls-key", "/nosuch"], 4, "/nosuch"),
        ]
        for options, code, text in table:
            with self.subTest(options=options):
                self.assertEqual(failure(*options)[0], code)
                self.assertIn(text, failure(*options)[1])
        self.assertEqual(server.stop(), 0)

    def test_fresh_home_says_how_to_begin(self):
        with tempfile.TemporaryDirectory() as home:
            subprocess.run([PROGRAM, "--home", home, "account", "add", "NEW", "--datastore", "JET"], check=True)
            server = Server(home=home)
            with RawClient(server, enter=False) as client:
                self.assertIn(b"nvadmin user add NAME", rest(client))
            self.assertEqual(server.stop(), 0)
            self.assertTrue(any("nvadmin user add NAME" in line for line in server.log))

    @unittest.skipUnless(shutil.which("openssl"), "needs openssl to make a certificate")
    def test_tls(self):
        with tempfile.TemporaryDirectory() as folder:
            key, certificate = os.path.join(folder, "key.pem"), os.path.join(folder, "cert.pem")
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                            "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", key, "-out",
                            certificate], check=True, capture_output=True)
            server = Server("--tls-cert", certificate, "--tls-key", key)
            context = ssl.create_default_context(cafile=certificate)
            with nvclient.connect("localhost", server.port, "bob", PASSWORD, "SHOP", tls=context) as session:
                make_file(session, "SECRET", {"1": "x" * 900_000})
                self.assertEqual(len(session.read("SECRET", "1")), 900_000)
            with RawClient(server, enter=False) as client:
                client.send(b"bob\npass word\nSHOP\n")
                self.assertNotIn(b"login", rest(client))
            with RawClient(server, enter=False) as client:
                client.socket = context.wrap_socket(client.socket, server_hostname="localhost",
                                                    suppress_ragged_eofs=False)
                client.until(b"login: ")
                with RawClient(server, enter=False):  # no handshake yet
                    wait_for(lambda: sum(": connected" in line for line in server.log) == 4, server.log)
                    self.assertEqual(server.stop(), 0)
                self.assertEqual(rest(client), b"\r\nthe server ends\r\n")
            self.assertGreaterEqual(sum("ended: the server ends" in line for line in server.log), 2)
            self.assertEqual(sum("no TLS handshake: wrong version number" in line for line in server.log), 1)


if __name__ == "__main__":
    unittest.main()
