"""What the tests of the back server share: a server of their own on the temporary home, a client of raw bytes
and the files that they work on."""

import os
import signal
import socket
import subprocess
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import nvclient

PROGRAM, HOME = os.environ["NVADMIN"], os.environ["NVADMIN_HOME"]
PASSWORD = "pass word"
PATIENCE = 60  # seconds; a busy machine may need them


def wait_for(condition, what):
    """`what` is told when it never comes to be so."""
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, what
        time.sleep(0.02)


class Server:
    """A running `nvadmin serve`. Its log is kept in `log`."""

    def __init__(self, *options, home=HOME):
        command = [PROGRAM, "--home", home, "serve", "--line", "127.0.0.1:0", *options]
        self._process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.log = [self._process.stdout.readline()]
        self.process_id = self._process.pid
        self.port = int(self.log[0].split(" under TLS")[0].rsplit(":", 1)[1])
        self._reader = threading.Thread(target=lambda: self.log.extend(self._process.stdout))
        self._reader.start()

    def stop(self, how=signal.SIGTERM):
        self._process.send_signal(how)
        code = self._process.wait(20)
        self._reader.join()
        self._process.stdout.close()
        return code

    def pause(self, paused):
        self._process.send_signal(signal.SIGSTOP if paused else signal.SIGCONT)
        if paused:
            os.waitpid(self.process_id, os.WUNTRACED)  # until it stands still

    def client(self, account="SHOP", user="bob", **settings):
        return nvclient.connect("127.0.0.1", self.port, user, PASSWORD, account, **settings)


class RawClient:
    """Bytes to the server and bytes from it, logged in and in the back server unless told otherwise."""

    def __init__(self, server, account="SHOP", user="bob", enter=True):
        self.socket = socket.create_connection(("127.0.0.1", server.port), 20)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if enter:
            for prompt, answer in zip((b"login: ", b"password: ", b"account: ", b":"),
                                      (user, PASSWORD, account, "NV.BACKSRV")):
                self.until(prompt)
                self.send(answer.encode() + b"\n")
            self.until(b"<TXA><START></TXA>\r\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)

    def receive(self, length):
        return self._gather(lambda data: length - len(data))

    def until(self, end):
        return self._gather(lambda data: 0 if data.endswith(end) else 1 << 16)

    def _gather(self, wanted):
        """Receives for as long as `wanted`, asked with what has come, tells how many bytes more."""
        data = bytearray()
        while most := wanted(data):
            piece = self.socket.recv(most)
            assert piece, f"the server hung up behind {bytes(data)!r}"
            data += piece
        return bytes(data)


def make_file(session, name, items, columns=5):
    """A new file with these items, an old one of the name gone."""
    session.tcl(f"DELETE-FILE {name}")
    session.capture(f"CREATE-FILE {name} {columns}")
    for id, item in items.items():
        session.write(name, id, item)


def in_threads(routine, arguments):
    """Runs the routine for all arguments at once; the answers, or the first failure."""
    with ThreadPoolExecutor(len(arguments)) as pool:
        return [*pool.map(routine, arguments)]
