"""What the tests of the web server share: a server of their own, requests, and a page of raw messages."""

import base64
import hashlib
import http.client
import os
import socket
import ssl
import struct
import urllib.parse

from support import PASSWORD, Server, wait_for

ACCEPT_KEY = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"
TEXT, BINARY, CLOSE, PING, PONG = 1, 2, 8, 9, 10


class Site(Server):
    """A running `nvadmin serve` with both servers; `host` is the web server's HOST:PORT."""

    def __init__(self, *options):
        super().__init__("--web", "127.0.0.1:0", *options)
        wait_for(lambda: self._line(), self.log)
        url = urllib.parse.urlsplit(self._line().split()[-1])
        self.host, self.web_port = url.netloc, url.port
        self.tls = ssl._create_unverified_context() if url.scheme == "https" else None
        self.origin = f"{url.scheme}://{url.netloc}"

    def _line(self):
        return next((line for line in self.log if "web server listens" in line), "")

    def connect(self):
        plain = socket.create_connection(("127.0.0.1", self.web_port), 20)
        return self.tls.wrap_socket(plain) if self.tls else plain

    def request(self, method, path, form=None, **headers):
        """The answer, with its `body` read."""
        connection = http.client.HTTPConnection("127.0.0.1", self.web_port, timeout=90)
        connection.sock = self.connect()
        body = urllib.parse.urlencode(form) if form is not None else None
        if body is not None:
            headers.setdefault("Content_Type", "application/x-www-form-urlencoded")
        headers.setdefault("Host", self.host)
        connection.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
        answer = connection.getresponse()
        answer.body = answer.read().decode()
        connection.close()
        return answer

    def log_in(self, user="ann", password=PASSWORD, account="", **headers):
        return self.request("POST", "/login", {"user": user, "password": password, "account": account}, **headers)

    def cookie(self, *log_in):
        return self.log_in(*log_in).getheader("Set-Cookie").split(";")[0]


class Page:
    """A connection to a session. `first` is its first message; what comes is counted in `seen`."""

    def __init__(self, site, cookie, first="N", receive_buffer=None):
        self.seen = 0
        self.lines = 0
        self.text = ""
        self.end = None
        self.stream = site.connect()
        if receive_buffer:
            self.stream.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.answer = upgrade(self.stream, site.host, cookie, site.origin)
        assert b" 101 " in self.answer, self.answer
        if first:
            self.send(first)
            self.start = self.message()
            if self.start[0] == "S":
                self.token, self.word, limit, received, following, self.account = self.start[1:].split(" ", 5)
                self.limit, self.lines, self.seen = int(limit), int(received), int(following) - 1

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stream.close()

    def frame(self, kind, data, fin=True):
        length = len(data)
        head = bytes([kind | (0x80 if fin else 0)])
        if length < 126:
            head += bytes([0x80 | length])
        elif length < 1 << 16:
            head += b"\xfe" + struct.pack(">H", length)
        else:
            head += b"\xff" + struct.pack(">Q", length)
        self.stream.sendall(head + b"\0\0\0\0" + data)

    def send(self, text):
        self.frame(TEXT, text.encode())

    def line(self, text):
        self.lines += 1
        self.send(f"L{self.lines} {text}")

    def _exactly(self, length):
        data = bytearray()
        while len(data) < length:
            piece = self.stream.recv(min(1 << 20, length - len(data)))
            if not piece:
                raise ConnectionError("the server hung up")
            data += piece
        return bytes(data)

    def _frame(self):
        first, length = self._exactly(2)
        if length == 126:
            length = struct.unpack(">H", self._exactly(2))[0]
        elif length == 127:
            length = struct.unpack(">Q", self._exactly(8))[0]
        return first & 15, bool(first & 0x80), self._exactly(length)

    def message(self):
        """The next message; None, with the code in `end`, when the server closes."""
        data = bytearray()
        while True:
            kind, whole, part = self._frame()
            if kind == CLOSE:
                self.end = struct.unpack(">H", part[:2])[0] if part else 0
                return None
            if kind == PING:
                self.frame(PONG, part)
            elif kind != PONG:
                data += part
                if whole:
                    return data.decode()

    def output(self):
        """The next message, counted; its text is added to `text`."""
        message = self.message()
        if message and message[0] in "AEK":
            self.seen += 1
        if message and message[0] in "AE":
            self.text += message[1:]
        return message

    def until(self, end):
        """What comes until the text ends so."""
        start = len(self.text)
        while not self.text[start:].endswith(end):
            message = self.output()
            assert message is not None and message[0] != "X", (message, self.text[start:][-2000:])
        return self.text[start:]

    def rest_of_frame(self, message):
        """What comes behind the message, until its frame ends."""
        while not message.rstrip().endswith("</TX>"):
            message = self.output()

    def closes(self):
        """The reason that the server gives at the end, or the closing code."""
        try:
            while (message := self.output()) is not None:
                if message[0] == "X":
                    return message[1:]
        except OSError:
            return "gone"
        return self.end

    def ask(self, sentence):
        self.line(sentence)
        return self.until(":")


def upgrade(stream, host, cookie, origin, path="/session"):
    """Asks for a WebSocket; the head of the answer."""
    key = base64.b64encode(os.urandom(16)).decode()
    lines = [f"GET {path} HTTP/1.1", f"Host: {host}", "Upgrade: websocket", "Connection: Upgrade",
             f"Sec-WebSocket-Key: {key}", "Sec-WebSocket-Version: 13"]
    lines += [f"Cookie: {cookie}"] * (cookie is not None) + [f"Origin: {origin}"] * (origin is not None)
    stream.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        piece = stream.recv(1)
        assert piece, head
        head += piece
    if b" 101 " in head:
        assert base64.b64encode(hashlib.sha1((key + ACCEPT_KEY).encode()).digest()) in head
    return head
