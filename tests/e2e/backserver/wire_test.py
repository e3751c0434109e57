"""The protocol as bytes: the conversation of docs/backserver.md, and requests that come in pieces.

NVADMIN_REMAKE_DOCS=1 writes what the server says into the document; read the difference before you commit it.
"""

import os
import pathlib
import re
import socket
import unittest

import nvclient
from nvclient import AM
from support import RawClient, Server, make_file

DOCUMENT = pathlib.Path(nvclient.__file__).parent.parent / "docs" / "backserver.md"
FENCED = re.compile(r"(?<=```backserver\n).*?(?=```)", re.DOTALL)
# As the document writes the marks.
MARKS = str.maketrans("^]~", "\xfe\xfd\xfa")
SIGNS = str.maketrans("\xfe\xfd\xfa", "^]~")

# Requests of all kinds, with their pacing lines. They leave the file as it was, so they can be sent again.
CONVERSATION = b"".join(line.replace(b"^", AM) + b"\r\n" for line in (
    b"READ^THINGS^1</TXB>rest", b"read^things^1^^LOCK</txb>", b"WRITE^THINGS^3^^<&IM>three^3</TXB>",
    b"READ^NONE^1</TXB>", b"CAPTURING^COUNT", b" THINGS", b"</TXB>", b"EXECUTEPS^COUNT THINGS</TXB>",
    b"TCL^COUNT THINGS</TXB>", b"ROWSET^THINGS^SSELECT THINGS^1</TXB>", b"GO", b"GO",
    b"ROWSET^THINGS^^LIST THINGS NAME</TXB>", b"", b"QUIT", b"EXECUTE^COUNT THINGS</TXB>", b"RELEASE</TXB>",
    b"DELETE^THINGS^3</TXB>", b"FLY</TXB>"))
LAST_REPLY = b"<TXA><ERROR>[915] Keyword FLY not recognised.</TXA>\r\n"


def setUpModule():
    global server
    server = Server()
    with server.client() as session:
        make_file(session, "THINGS", {"1": "one\xfe1", "2": "two\xfe2"})


def tearDownModule():
    assert server.stop() == 0, server.log


def turns_of(block):
    """[[what the client sends, what the server says to it]]; the first sends nothing."""
    turns = [[b"", b""]]
    for line in block.splitlines():
        text = line[2:].translate(MARKS).encode("latin-1")
        if line.startswith("C"):
            turns.append([text + b"\r\n", b""])
        else:
            turns[-1][1] += text[:-1] if text.endswith(b"\\") else text + b"\r\n"
    return turns


def block_of(turns):
    lines = []
    for sent, said in turns:
        lines += ["C " + sent.decode("latin-1")[:-2]] if sent else []
        *whole, rest = said.decode("latin-1").split("\r\n")
        lines += ["S " + line for line in whole] + (["S " + rest + "\\"] if rest else [])
    return "".join(line.rstrip() + "\n" for line in lines).translate(SIGNS)


def said_until_silence(client):
    said = b""
    client.socket.settimeout(0.5)
    try:
        while piece := client.socket.recv(1 << 16):
            said += piece
    except socket.timeout:
        pass
    return said


class Document(unittest.TestCase):
    def test_conversation(self):
        text = DOCUMENT.read_text()
        wanted = FENCED.search(text)[0]
        got = turns_of(wanted)
        fresh = Server()  # so that its ports count from 1
        with RawClient(fresh, enter=False) as client:
            for turn in got:
                client.send(turn[0])
                if "NVADMIN_REMAKE_DOCS" in os.environ:
                    turn[1] = said_until_silence(client)
                else:
                    turn[1] = client.receive(len(turn[1]))
            self.assertEqual(client.socket.recv(1 << 16), b"")
        fresh.stop()
        if "NVADMIN_REMAKE_DOCS" in os.environ:
            DOCUMENT.write_text(text.replace(wanted, block_of(got)))
        else:
            self.assertEqual(block_of(got), wanted)
            self.assertGreater(len(got), 20)


class Pieces(unittest.TestCase):
    def test_cut_anywhere(self):
        with RawClient(server) as client:
            client.send(CONVERSATION)
            whole = client.until(LAST_REPLY)
            self.assertEqual(whole.count(b"<TXA>"), 17)
            for byte in CONVERSATION:
                client.send(bytes([byte]))
            self.assertEqual(client.until(LAST_REPLY), whole)
            for cut in range(1, len(CONVERSATION)):
                client.send(CONVERSATION[:cut])
                client.send(CONVERSATION[cut:])
                self.assertEqual(client.until(LAST_REPLY), whole, f"cut at {cut}")

    def test_hang_up_at_every_byte(self):
        lock = b"READ\xfeTHINGS\xfe1\xfe\xfeLOCK</TXB>\n"
        write = b"WRITE\xfeTHINGS\xfe1\xfe\xfe<&IM>none</TXB>"

        def send_part(length):
            with RawClient(server) as client:
                client.send(lock)
                client.until(b"</TXA>\r\n")
                client.send(write[:length])
                if length % 2:
                    client.socket.shutdown(socket.SHUT_WR)
                    while client.socket.recv(1 << 16):
                        pass

        with server.client() as session:
            for length in range(len(write) + 1):
                send_part(length)
                with session.lock("THINGS", "1", wait=5) as locked:
                    self.assertEqual(locked.text, b"one\xfe1", f"cut at {length}")
