#!/usr/bin/env python3
"""A client of the back server: read, write and lock items, pull query results, run sentences.

    with nvclient.connect("localhost", 7023, "ann", password, "DEMO") as session:
        print(session.read("COUNTRIES", "FR", 1))
        for row in session.rows("COUNTRIES", columns=["NAME"]):
            print(row)

Results are bytes of the code page Windows-1252 in which the marks are the bytes 254, 253 and 252. Arguments
may be bytes or str; str goes through `to_bytes`. Python 3.9 or later, nothing but the standard library.

How a reply's end is known: data frames are not escaped and some commands send no frame at all, so every
request is followed by a fence, a request with a keyword that never comes twice. The server answers it with an
error frame that quotes the keyword; all that comes before that frame is the reply to the request proper. Both
go out in one piece, so this costs no round trip. Inside a row transfer, where the server waits after each
frame, the fence is the pacing line.

A session belongs to one thread at a time. docs/backserver.md tells the protocol.
"""

from __future__ import annotations

import argparse
import codecs
import contextlib
import getpass
import os
import random
import re
import secrets
import socket
import ssl
import sys
import time
from collections.abc import Iterator, Sequence
from typing import NamedTuple, NoReturn, Optional, Union

AM, VM, SM = b"\xfe", b"\xfd", b"\xfc"  # attributes, values and subvalues of an item
MAX_BODY = 999_999  # characters that one write can carry

_PART_MARK = b"\xfa"  # parts of a column description
_ITEM_MARK = b"<&IM>"
_END_MARK = b"</TXB>"
_LINE_END = b"\r\n"
_OPEN, _CLOSE = b"<TXA>", b"</TXA>"
_ERROR = b"<ERROR>"
_COLUMNS_WORD = b"<&Q.COLS>"
_SPEC_LIST = b"LIST "

Text = Union[bytes, str]


# What can go wrong.


class NvError(Exception):
    """All that this module raises on purpose."""


class BadArgument(NvError, ValueError):
    """An argument that can't be sent; it names which and why. Nothing was sent."""


class TransferOpen(NvError):
    """A request while the rows of another are still coming; close those first. Nothing was sent."""


class LoginRefused(NvError):
    """The server refused the user, the password or the account, or has no room."""


class ConnectionLost(NvError):
    """The connection can't be used any more; the text says why. The last request may be done or not."""


class ReplyTimeout(ConnectionLost):
    """The server was silent for too long. The connection is closed: its answer may still be under way."""


class ProtocolError(ConnectionLost):
    """The server sent what no back server sends. The connection is closed."""


class EngineStopped(ConnectionLost):
    """A failure of the engine ended the back server; the text is what it said. The connection is closed."""


class SentenceFailed(NvError):
    """A captured sentence failed. `printed` is what it printed."""

    def __init__(self, sentence: bytes, printed: bytes):
        super().__init__(f"the sentence failed: {to_text(sentence)}")
        self.printed = printed


class RequestRefused(NvError):
    """An error frame. `code` is the number in its brackets or None, `text` the whole text."""

    code: Optional[int] = None

    def __init__(self, text: bytes):
        super().__init__(to_text(text))
        self.text = text


class EngineError(RequestRefused):
    """Any other text of the engine."""


class FileNotOpen(RequestRefused):
    code = 911


class ItemNotFound(RequestRefused):
    """A missing item, or one that could not be read: 912 of a read, 914 in the middle of rows."""

    def __init__(self, text: bytes):
        super().__init__(text)
        self.code = int(text[1:4])


class DictNotOpen(RequestRefused):
    code = 914


class UnknownKeyword(RequestRefused):
    code = 915


class LockRefused(RequestRefused):
    """Another session holds the lock."""

    code = 920


_REFUSALS = [
    (re.compile(pattern, re.DOTALL), kind)
    for pattern, kind in (
        (rb"\[911\] File '.*' fails to OPEN so may not exist\.", FileNotOpen),
        (rb"\[912\] READV? ERROR", ItemNotFound),
        (rb"\[914\] Open supporting LIST Dict Items fails for 'DICT .*'", DictNotOpen),
        (rb"\[914\] Item '.*' not found \(in main Rowset loop\)", ItemNotFound),
        (rb"\[915\] Keyword .* not recognised\.", UnknownKeyword),
        (rb"\[920\] Record locked", LockRefused),
    )
]


def _refusal(text: bytes) -> Optional[RequestRefused]:
    """The refusal that a frame's text is; None: it is something else."""
    if text.startswith(_ERROR):
        text = text[len(_ERROR) :]
        for pattern, kind in _REFUSALS:
            if pattern.fullmatch(text):
                return kind(text)
    return None


# Text and items.

# The five bytes that the code page leaves unassigned stand for the code points of the same number.
_CODE_PAGE = "".join(bytes([byte]).decode("cp1252", "replace") for byte in range(256))
_CODE_PAGE = "".join(chr(byte) if letter == "\ufffd" else letter for byte, letter in enumerate(_CODE_PAGE))
_CODE_PAGE_BYTES = codecs.charmap_build(_CODE_PAGE)


def to_bytes(text: Text) -> bytes:
    """The code page form. BadArgument names the first character that has no byte."""
    if not isinstance(text, str):
        return bytes(text)
    try:
        return codecs.charmap_encode(text, "strict", _CODE_PAGE_BYTES)[0]
    except UnicodeEncodeError as error:
        letter = text[error.start]
        place = f"U+{ord(letter):04X} at character {error.start + 1}"
        raise BadArgument(f"{place} is not in the code page Windows-1252") from None


def to_text(data: bytes) -> str:
    """One character a byte."""
    return codecs.charmap_decode(data, "strict", _CODE_PAGE)[0]


def split_item(item: bytes) -> list[bytes]:
    """The attributes; an empty item has none."""
    return item.split(AM) if item else []


def join_item(attributes: Sequence[Text]) -> bytes:
    return AM.join(to_bytes(attribute) for attribute in attributes)


class Column(NamedTuple):
    """A column as its dictionary item describes it; all are empty when the dictionary lacks it."""

    heading: bytes
    justification: bytes
    width: bytes
    conversion: bytes


# What a request can't carry: each has a meaning of its own there.
_LINE_ENDS = {b"\r": "a carriage return", b"\n": "a line feed"}
_END_MARKS = {_END_MARK: "the end mark </TXB>"}


def _must_not_hold(name: str, text: bytes, words: dict[bytes, str]) -> None:
    for word, spoken in words.items():
        # The server knows its end mark in any letter case.
        at = (text.upper() if word == _END_MARK else text).find(word)
        if at >= 0:
            raise BadArgument(f"{name} holds {spoken} at character {at + 1}, which can't be sent there")


def _argument(name: str, text: Text) -> bytes:
    text = to_bytes(text)
    _must_not_hold(name, text, {**_LINE_ENDS, **_END_MARKS, AM: "an attribute mark"})
    return text


def _head(name: str, text: Text) -> bytes:
    """An argument of a WRITE, which ends at the item mark."""
    text = _argument(name, text)
    _must_not_hold(name, text, {_ITEM_MARK: "the item mark <&IM>"})
    return text


def _word(name: str, text: Text) -> bytes:
    text = _argument(name, text)
    _must_not_hold(name, text, {b" ": "a blank"})
    return text


def _number(name: str, value: Optional[int], least: int) -> bytes:
    if value is None:
        return b""
    if not isinstance(value, int) or value < least:
        raise BadArgument(f"{name} is {value!r}; it must be a whole number from {least} on")
    return b"%d" % value


def _body(text: Text) -> bytes:
    text = to_bytes(text)
    _must_not_hold("body", text, {**_LINE_ENDS, **_END_MARKS})
    if len(text) > MAX_BODY:
        raise BadArgument(f"body has {len(text)} characters; one write carries {MAX_BODY} at most")
    return text


# The connection.


class _Wire:
    """A socket with what came over it and isn't used yet. Once closed, every use tells why."""

    def __init__(self, connection: socket.socket, timeout: float):
        self._socket = connection
        self._why_closed = ""
        self.received = bytearray()
        self.set_timeout(timeout)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def set_timeout(self, timeout: float) -> None:
        """The longest silence, in seconds."""
        self._timeout = timeout
        self._socket.settimeout(timeout)

    @property
    def is_open(self) -> bool:
        return not self._why_closed

    def require_open(self) -> None:
        if self._why_closed:
            raise ConnectionLost(f"the connection is closed: {self._why_closed}")

    def close(self, why: str) -> None:
        if self.is_open:
            self._why_closed = why
            self._socket.close()

    def fail(self, error: ConnectionLost) -> NoReturn:
        self.close(str(error))
        raise error

    def send(self, data: bytes) -> None:
        self.require_open()
        with self._closing_on_failure():
            self._socket.sendall(data)

    def receive(self) -> None:
        """Waits for more. An end of the stream is a ConnectionLost."""
        self.require_open()
        with self._closing_on_failure():
            piece = self._socket.recv(1 << 16)
        if not piece:
            self.fail(ConnectionLost("the server ended the connection"))
        self.received += piece

    def take(self, length: int, drop: int = 0) -> bytes:
        """The first bytes; those and `drop` behind them are used up."""
        taken = bytes(self.received[:length])
        del self.received[: length + drop]
        return taken

    @contextlib.contextmanager
    def _closing_on_failure(self) -> Iterator[None]:
        try:
            yield
        except socket.timeout:
            self.fail(ReplyTimeout(f"the server was silent for {self._timeout:g} s"))
        except OSError as error:
            self.fail(ConnectionLost(str(error)))
        except BaseException as error:  # an interrupt: what is on its way would pass for the next reply
            self.close(f"interrupted by {type(error).__name__}")
            raise


class Session:
    """One run of the back server; `connect` makes it. Use it as a context manager, or call `close`."""

    def __init__(self, wire: _Wire):
        self._wire = wire
        self._fence_stem = b"FENCE." + secrets.token_hex(8).encode() + b"."
        self._fences = 0
        self._transfer = ""  # whose rows are coming
        self._spellings: dict[str, bytes] = {}  # of each open file, the one that opened it

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends the session; its locks go with it. Twice is fine."""
        if self._wire.is_open and not self._transfer:
            with contextlib.suppress(ConnectionLost):
                self._wire.send(b"EXIT" + _END_MARK + _LINE_END + b"OFF" + _LINE_END)
                while b"<TXA><END></TXA>" not in self._wire.received:
                    self._wire.receive()
        self._wire.close("close() was called")

    # Items.

    def read(
        self, file: Text, id: Text, attribute: Optional[int] = None, length: Optional[int] = None
    ) -> bytes:
        """The item or one attribute, cut to `length` characters. ItemNotFound when it is missing.

        An item whose whole text is that of the refusal can't be told from it; `exists` can.
        """
        text = self._read(file, id, attribute, b"", length)
        # A plain read has no other refusals than these two, so anything else is an item.
        refusal = _refusal(text)
        if refusal and refusal.code in (911, 912):
            raise refusal
        return text

    def exists(self, file: Text, id: Text) -> bool:
        try:
            return self.read(file, id, length=0) == b""
        except ItemNotFound:
            return False

    def write(self, file: Text, id: Text, body: Text, attribute: Optional[int] = None) -> None:
        """Writes the item, or one attribute of it; a lock that this session has on it goes.

        Returns when the engine has it. What the engine refuses (another's lock, a text too long for its
        column) is no error here: the server's log tells it.
        """
        self._write(file, id, body, attribute, b"")

    def delete(self, file: Text, id: Text) -> None:
        """A missing item is fine; as with `write`, a refusal is told in the server's log alone."""
        self._expect_ok(self._on_file(b"DELETE", file, _argument("id", id)))

    @contextlib.contextmanager
    def lock(
        self, file: Text, id: Text, attribute: Optional[int] = None, wait: float = 0
    ) -> Iterator[LockedItem]:
        """Locks the item, which need not exist, for the block; gives what was read under the lock.

        LockRefused at once, or after trying again for `wait` seconds, when another session holds it. Locks
        aren't counted: the end of an inner lock of the same item releases it, and so does `write`.
        """
        text = self._read_locked(file, id, attribute, time.monotonic() + wait)
        try:
            yield LockedItem(self, file, id, attribute, text)
        except BaseException:
            with contextlib.suppress(NvError):
                self.release(file, id)
            raise
        self.release(file, id)

    def release(self, file: Optional[Text] = None, id: Optional[Text] = None) -> None:
        """Releases one lock, those of a file, or (without arguments) all of this session.

        For a file that this session hasn't used yet, the server releases all: nothing is sent then.
        """
        if file is None:
            self._expect_ok(self._text(b"RELEASE"))
        elif _fold(_argument("file", file)) in self._spellings:
            self._expect_ok(self._on_file(b"RELEASE", file, _argument("id", id or b"")))

    def open(self, file: Text) -> None:
        """Opens a file, to learn early that it is there. No other routine needs it."""
        self._expect_ok(self._on_file(b"OPEN", file))

    # Query results.

    def rows(
        self,
        file: Text,
        sentence: Optional[Text] = None,
        columns: Union[None, Text, Sequence[Text], Sequence[int]] = None,
        dictionary: Optional[Text] = None,
    ) -> Rows:
        """The items that a select sentence finds (without one: all), as an iterator of rows.

        A row is a list of texts: without `columns` the item ID and the item's attributes; for a sequence of
        words the ID and those columns of the dictionary (of `file`, or another), converted as it says; for
        one of whole numbers those attributes, 0 being the ID; for "0" the ID alone. Any other single text
        goes to the server as it is ("LIST CUSTOMERS": the columns 1, 2, 3 ... of the dictionary).

        No other request can run until the rows are at their end or closed.
        """
        file = _argument("file", file)
        shape = _RowShape(columns, _word("dictionary", dictionary or file))
        sentence = _argument("sentence", sentence or b"")
        return Rows(self, self._spelled(file), sentence, shape)

    def files(self) -> list[bytes]:
        """The files of the account."""
        pace = b"GO" + _LINE_END
        reply = self._exchange(b"ROWSET" + AM + b"XLISTF", pace + pace)
        frames = rb".*?<TXA>ROWSET START</TXA><TXA>(.*)</TXA><TXA>ROWSET EXIT</TXA>"
        dialogue = re.fullmatch(frames, reply, re.DOTALL)
        if not dialogue:
            self._wire.fail(ProtocolError(f"no list of files in {reply[:200]!r}"))
        return [row.split(AM)[0] for row in dialogue[1].split(_ITEM_MARK)] if dialogue[1] else []

    # Sentences.

    def capture(self, sentence: Text) -> bytes:
        """What a sentence returns: the text of its answer. SentenceFailed when it failed."""
        sentence = _argument("sentence", sentence)
        printed, text = self._frame(self._exchange(b"CAPTURING" + AM + sentence))
        if text == b"ERROR":
            raise SentenceFailed(sentence, printed)
        return text

    def tcl(self, sentence: Text) -> bytes:
        """What a sentence prints. Whether it failed isn't told."""
        reply = self._exchange(b"TCL" + AM + _argument("sentence", sentence))
        framed = re.fullmatch(rb"<TXC>(.*)</TXC>\r\n", reply, re.DOTALL)
        if not framed:
            self._wire.fail(ProtocolError(f"no TCL reply in {reply[:200]!r}"))
        return framed[1]

    def execute(self, sentence: Text) -> bytes:
        """As `tcl`; returns when the sentence is over, though the server sends no frame for it."""
        return self._exchange(b"EXECUTE" + AM + _argument("sentence", sentence))

    def execute_ps(self, sentence: Text) -> Optional[bytes]:
        """What an EXECUTEPS sentence prints, or the answer to one of its words; None without a frame."""
        reply = self._exchange(b"EXECUTEPS" + AM + _argument("sentence", sentence))
        return self._frame(reply)[1] if reply else None

    # The session's values.

    def account(self) -> bytes:
        return self.request("EXECUTEPS", "ACCOUNT")

    def who(self) -> bytes:
        """Port, account and user as they were at the start."""
        return self.request("EXECUTEPS", "WHO")

    def user_instance(self, value: Optional[Text] = None) -> bytes:
        """A text that the server keeps for the client; with a value it takes that."""
        return self._kept("SYSTEM USERINST", value)

    def lock_timeout(self, value: Optional[Text] = None) -> bytes:
        """Another such text. No lock waits by it."""
        return self._kept("SYSTEM LOCKTIMEOUT", value)

    def pick(self, value: Text = "1") -> None:
        """With a true value, full row frames go through the engine's own way to the client."""
        self._expect_ok(self._text(b"PICK", _argument("value", value)))

    def flavour(self, value: Text) -> None:
        self._expect_ok(self._text(b"FLAVOUR", _argument("value", value)))

    def ultplus(self, value: Text = "") -> None:
        self._expect_ok(self._text(b"ULTPLUS", _argument("value", value)))

    def request(self, keyword: Text, *arguments: Text) -> bytes:
        """Any request that has one frame as its reply; gives its text, and raises if that is a refusal."""
        text = self._text(*(_argument("argument", argument) for argument in (keyword, *arguments)))
        return self._checked(text)

    # How requests travel.

    def _exchange(self, request: bytes, pacing: bytes = b"") -> bytes:
        """Sends a request with its fence; all that the server sent before it answered the fence."""
        self._require_idle()
        fence = self._next_fence()
        self._wire.send(request + _END_MARK + _LINE_END + pacing + fence + _END_MARK + _LINE_END)
        return self._read_to_fence(fence)

    def _require_idle(self) -> None:
        self._wire.require_open()
        if self._transfer:
            raise TransferOpen(f"the rows of {self._transfer} are still coming: read them all or close them")

    def _next_fence(self) -> bytes:
        self._fences += 1
        return self._fence_stem + b"%d" % self._fences

    def _read_to_fence(self, fence: bytes) -> bytes:
        wire = self._wire
        at = self._find(fence)
        before, behind = _OPEN + b"<ERROR>[915] Keyword ", b" not recognised." + _CLOSE + _LINE_END
        if wire.received[max(0, at - len(before)) : at] != before:
            self._fail_outside_protocol(fence)
        end = at + len(fence) + len(behind)
        while len(wire.received) < end:
            wire.receive()
        return wire.take(at - len(before), drop=end - at + len(before))

    def _find(self, *words: bytes) -> int:
        """Receives until one of the words has come, and tells where it is."""
        received, searched = self._wire.received, 0
        longest = max(map(len, words))
        while True:
            places = [place for place in (received.find(word, searched) for word in words) if place >= 0]
            if places:
                return min(places)
            searched = max(0, len(received) - longest + 1)
            self._wire.receive()

    def _fail_outside_protocol(self, fence: bytes) -> NoReturn:
        """The TCL prompt took the fence for a sentence: the back server is over. Tells what it said."""
        said = bytes(self._wire.received)
        lines = [line.strip(b"\r:") for line in said.split(b"\n") if fence not in line]
        text = to_text(b" / ".join(line for line in lines if line))
        self._wire.fail(EngineStopped(f"the back server stopped: {text[-500:] or 'it said nothing'}"))

    def _frame(self, reply: bytes) -> tuple[bytes, bytes]:
        """The printed text before the frame, and the frame's text. The frame is the last thing of a reply."""
        start = re.search(rb"(?:\A|\n)<TXA>", reply) or re.search(_OPEN, reply)
        end = len(reply) - (len(_LINE_END) if reply.endswith(_LINE_END) else 0)
        if not start or not reply.endswith(_CLOSE, start.end(), end):
            self._wire.fail(ProtocolError(f"no frame in {reply[:200]!r}"))
        return reply[: start.end() - len(_OPEN)], reply[start.end() : end - len(_CLOSE)]

    def _text(self, *words: bytes, body: bytes = b"") -> bytes:
        return self._frame(self._exchange(AM.join(words) + body))[1]

    def _checked(self, text: bytes) -> bytes:
        """A text that is no data: whatever says that it is an error is one."""
        if text.startswith(_ERROR):
            raise _refusal(text) or EngineError(text[len(_ERROR) :])
        return text

    def _expect_ok(self, text: bytes) -> None:
        if self._checked(text) != b"OK":
            self._wire.fail(ProtocolError(f"no OK in {text[:200]!r}"))

    # The server knows an open file by the letters that opened it: RELEASE takes those alone for its name, all
    # other requests any letter case. So a file keeps the letters that it was opened with.

    def _spelled(self, name: bytes) -> bytes:
        return self._spellings.get(_fold(name), name)

    def _opened(self, name: bytes) -> None:
        self._spellings.setdefault(_fold(name), name)

    def _on_file(self, keyword: bytes, file: Text, *arguments: bytes, body: bytes = b"") -> bytes:
        name = self._spelled(_argument("file", file))
        text = self._text(keyword, name, *arguments, body=body)
        if not isinstance(_refusal(text), FileNotOpen):
            self._opened(name)
        return text

    def _kept(self, words: str, value: Optional[Text]) -> bytes:
        if value is None:
            return self.request("EXECUTEPS", words)
        value = _word("value", value)
        self.request("EXECUTEPS", to_bytes(words) + b" " + value)
        return value

    def _read(
        self, file: Text, id: Text, attribute: Optional[int], lock: bytes, length: Optional[int] = None
    ) -> bytes:
        number, cut = _number("attribute", attribute, 0), _number("length", length, 0)
        return self._on_file(b"READ", file, _argument("id", id), number, lock, cut)

    def _read_locked(self, file: Text, id: Text, attribute: Optional[int], deadline: float) -> bytes:
        pause = 0.001
        while True:
            text = self._read(file, id, attribute, b"LOCK")
            if not text.startswith(_ERROR):
                return text
            refusal = _refusal(text) or EngineError(text[len(_ERROR) :])
            if not isinstance(refusal, LockRefused) or time.monotonic() >= deadline:
                break
            time.sleep(min(pause * random.uniform(0.5, 1), max(0, deadline - time.monotonic())))
            pause = min(pause * 1.5, 0.1)
        # An item may read like an error. Then a plain read gives it too.
        if not isinstance(refusal, FileNotOpen) and self._read(file, id, attribute, b"") == text:
            return text
        raise refusal

    def _write(self, file: Text, id: Text, body: Text, attribute: Optional[int], lock: bytes) -> None:
        head = (_head("id", id), _number("attribute", attribute, 0), lock)
        self._expect_ok(self._on_file(b"WRITE", _head("file", file), *head, body=_ITEM_MARK + _body(body)))


def _fold(name: bytes) -> str:
    return to_text(name).upper()


class LockedItem:
    """An item under this session's lock. `text` is what was read: empty also for a missing item."""

    def __init__(self, session: Session, file: Text, id: Text, attribute: Optional[int], text: bytes):
        self.text = text
        self._session = session
        self._place = (file, id)
        self._attribute = attribute

    def write(self, body: Text, attribute: Optional[int] = None) -> None:
        """Writes and keeps the lock: the item, or the attribute that was read or is given."""
        chosen = self._attribute if attribute is None else attribute
        self._session._write(*self._place, body, chosen, b"LOCK")
        if chosen == self._attribute:
            self.text = to_bytes(body)


class _RowShape:
    """What a caller wants of each item, as the protocol says it, and how a row comes back."""

    def __init__(self, columns: Union[None, Text, Sequence[Text], Sequence[int]], dictionary: bytes):
        self.has_descriptions = False
        self.is_named = False
        self.drop_first = 0
        self.width = 0
        if columns is None:
            self.spec = b""
        elif isinstance(columns, (str, bytes)):
            self.spec = _argument("columns", columns)
            self.has_descriptions = self.spec.strip(b" ").startswith(_SPEC_LIST)
            self.is_named = len(self.spec.split()) > 2
        elif columns and all(isinstance(column, int) for column in columns):
            # A row without any text would leave no trace in its frame: the ID goes along.
            self.drop_first = int(0 not in columns)
            numbers = [0] * self.drop_first + list(columns)
            self.spec = VM.join(_number("column", number, 0) for number in numbers)
            self.width = len(numbers)
        elif columns:
            words = [_word("column", column) for column in columns]
            if not all(words):
                raise BadArgument("column: an empty name")
            self.spec = _SPEC_LIST + b" ".join([dictionary, *words])
            self.has_descriptions = self.is_named = True
            self.width = len(words) + 1
        else:
            raise BadArgument("columns is empty; None gives whole items")

    def columns(self, descriptions: bytes) -> list[Column]:
        """Reads a column frame. Named columns stand at the places of their row, behind the ID."""
        columns = []
        for description in descriptions.split(AM)[int(self.is_named) :]:
            heading, layout, conversion = (description.split(_PART_MARK) + [b"", b"", b""])[:3]
            columns.append(Column(heading, layout[:1], layout[1:], conversion))
        return columns

    def rows(self, text: bytes) -> list[list[bytes]]:
        rows = []
        for row in text.split(_ITEM_MARK):
            attributes = row.split(AM)
            attributes += [b""] * (self.width - len(attributes))
            rows.append(attributes[self.drop_first :])
        return rows


class Rows:
    """The rows of one query, an iterator; `columns` are the descriptions of dictionary columns.

    The next batch is asked for when the rows of the last are used up. Leaving early (close, the end of a
    `with` block, a loop left by break or an exception) stops the server and keeps the session usable.
    """

    def __init__(self, session: Session, file: bytes, sentence: bytes, shape: _RowShape):
        self.columns: list[Column] = []
        self._session = session
        self._wire = session._wire
        self._shape = shape
        self._batch: list[list[bytes]] = []
        self._at = 0
        self._is_over = True
        session._require_idle()
        session._transfer = to_text(file)
        self._is_over = False
        try:
            self._start(file, sentence)
        except BaseException:
            self._end()
            raise
        session._opened(file)

    def _start(self, file: bytes, sentence: bytes) -> None:
        # The fence is the first pacing line, which the server reads but doesn't look at. When it doesn't come
        # to that, the fence is answered like any other.
        request = AM.join((b"ROWSET", file, sentence, self._shape.spec)) + _END_MARK + _LINE_END
        fence = self._session._next_fence()
        self._wire.send(request + fence + _END_MARK + _LINE_END)
        start = b"<TXA>ROWSET START</TXA>" + _LINE_END
        at = self._session._find(start, fence)
        if not self._wire.received.startswith(start, at):
            reply = self._session._read_to_fence(fence)
            text = self._session._checked(self._session._frame(reply)[1])
            self._wire.fail(ProtocolError(f"no start of rows in {text[:200]!r}"))
        self._wire.take(0, drop=at + len(start))
        text = self._frame()
        if self._shape.has_descriptions and text.startswith(_COLUMNS_WORD):
            self.columns = self._shape.columns(text[len(_COLUMNS_WORD) :])
            self._shape.width = len(self.columns) + 1
        else:
            self._take_rows(text)

    def __iter__(self) -> Rows:
        return self

    def __next__(self) -> list[bytes]:
        while self._at == len(self._batch):
            if self._is_over:
                raise StopIteration
            self._wire.send(self._session._next_fence() + _LINE_END)
            self._take_rows(self._frame())
        row = self._batch[self._at]
        self._at += 1
        return row

    def __enter__(self) -> Rows:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        with contextlib.suppress(Exception):
            self.close()

    def close(self) -> None:
        """Stops the transfer. Rows that came already are dropped. Twice is fine."""
        self._batch, self._at = [], 0
        if self._is_over or not self._wire.is_open:
            self._end()
            return
        try:
            self._wire.send(b"QUIT" + _LINE_END)
            text = self._frame()
            if text != b"ROWSET EXIT":
                self._wire.fail(ProtocolError(f"no end of rows in {text[:200]!r}"))
        finally:
            self._end()

    def _end(self) -> None:
        if not self._is_over:
            self._is_over = True
            self._session._transfer = ""

    def _take_rows(self, text: bytes) -> None:
        self._batch, self._at = [], 0
        refusal = _refusal(text)
        if text == b"ROWSET EXIT" or refusal:
            self._end()
            if refusal:
                raise refusal
            return
        self._batch = self._shape.rows(text)

    def _frame(self) -> bytes:
        """The next frame's text. The server is silent behind it, so it ends where all ends that has come."""
        wire = self._wire
        end = _CLOSE + _LINE_END
        while not (wire.received.startswith(_OPEN) and wire.received.endswith(end)):
            if not _OPEN.startswith(wire.received[: len(_OPEN)]):
                self._session._find(b"\n")
                said = to_text(bytes(wire.received)).strip("\r\n:")
                wire.fail(EngineStopped(f"the transfer stopped: {said[:500]}"))
            wire.receive()
        text = wire.take(len(wire.received) - len(end), drop=len(end))
        return text[len(_OPEN) :]


# Entering.


def connect(
    host: str,
    port: int,
    user: Text,
    password: Text,
    account: Text,
    timeout: float = 30,
    connect_timeout: float = 10,
    login_timeout: float = 70,
    tls: Union[bool, ssl.SSLContext] = False,
) -> Session:
    """Connects, logs in and enters the back server.

    `timeout` is the longest silence of the server, in seconds, while a reply is awaited; `login_timeout` the
    same during the log-in, which the server delays when others failed before. `tls`: True for the system's
    certificate authorities, or a context of your own.
    """
    try:
        connection = socket.create_connection((host, port), connect_timeout)
        if tls:
            context = ssl.create_default_context() if tls is True else tls
            connection = context.wrap_socket(connection, server_hostname=host)
    except socket.timeout:
        raise ConnectionLost(f"no connection to {host}:{port} within {connect_timeout:g} s") from None
    except OSError as error:
        raise ConnectionLost(f"no connection to {host}:{port}: {error}") from error
    wire = _Wire(connection, login_timeout)
    try:
        _log_in(wire, {b"login: ": ("user", user), b"password: ": ("password", password),
                       b"account: ": ("account", account)})
        wire.set_timeout(timeout)
        _enter_back_server(wire)
    except BaseException:
        wire.close("it was never entered")
        raise
    return Session(wire)


def _open_line(received: bytearray) -> bytes:
    return bytes(received[received.rfind(b"\n") + 1 :])


def _log_in(wire: _Wire, answers: dict[bytes, tuple[str, Text]]) -> None:
    """Answers each prompt once, until the TCL prompt stands. A prompt that comes again is a refusal."""
    try:
        while _open_line(wire.received) != b":":
            question = _open_line(wire.received)
            if question not in (b"login: ", b"password: ", b"account: "):
                wire.receive()
                continue
            if question not in answers:
                raise LoginRefused(_last_words(wire.received[: -len(question)]))
            name, answer = answers.pop(question)
            answer = to_bytes(answer)
            _must_not_hold(name, answer, _LINE_ENDS)
            wire.received.clear()
            wire.send(answer + _LINE_END)
    except ReplyTimeout:
        raise
    except ConnectionLost as lost:
        if wire.received.strip():
            raise LoginRefused(_last_words(wire.received)) from lost
        raise


def _last_words(received: bytearray) -> str:
    lines = [line for line in to_text(bytes(received)).splitlines() if line.strip()]
    return lines[-1] if lines else "the server gave no reason"


def _enter_back_server(wire: _Wire) -> None:
    wire.received.clear()
    wire.send(b"NV.BACKSRV" + _LINE_END)
    start = b"<TXA><START></TXA>" + _LINE_END
    while not wire.received.endswith(start):
        if _open_line(wire.received) == b":":
            raise EngineStopped(f"NV.BACKSRV doesn't start: {_last_words(wire.received[:-1])}")
        wire.receive()
    wire.received.clear()


# The command line.

_USAGE = 2
_FAILED = 1
_NO_CONNECTION = 4

_SHOWN_MARKS = {0xFE: "^", 0xFD: "]", 0xFC: "\\"}


def _shown(data: bytes) -> str:
    """Text for a terminal: marks as signs, control characters escaped."""
    shown = []
    for byte, letter in zip(data, to_text(data)):
        shown.append(_SHOWN_MARKS.get(byte) or (letter if letter.isprintable() else f"\\x{byte:02x}"))
    return "".join(shown)


class _Output:
    def __init__(self, raw: bool):
        self._raw = raw

    def text(self, data: bytes) -> None:
        """What a sentence printed or returned: lines, or a list of attributes."""
        if self._raw:
            self._write(data)
        elif data:
            lines = data.replace(AM, b"\n").replace(b"\r\n", b"\n")
            self._lines(lines[:-1] if lines.endswith(b"\n") else lines)

    def item(self, data: bytes) -> None:
        if self._raw:
            self._write(data)
        else:
            self._lines(data.replace(b"\n", b"\\x0a").replace(AM, b"\n"))

    def row(self, row: list[bytes]) -> None:
        if self._raw:
            self._write(AM.join(row) + b"\n")
        else:
            self._write("\t".join(map(_shown, row)).encode() + b"\n")

    def _lines(self, data: bytes) -> None:
        self._write("".join(_shown(line) + "\n" for line in data.split(b"\n")).encode())

    @staticmethod
    def _write(data: bytes) -> None:
        sys.stdout.buffer.write(data)


def _body_of_input(raw: bool) -> bytes:
    """An item from standard input: its bytes, or UTF-8 text with an attribute a line."""
    data = sys.stdin.buffer.read()
    if raw:
        return data
    return join_item(data.decode().removesuffix("\n").split("\n"))


def _chosen_columns(words: str) -> Union[None, Text, list[str], list[int]]:
    names = words.replace(",", " ").split()
    if not names or words == "0" or words.upper().startswith("LIST "):
        return words or None
    return [int(name) for name in names] if all(map(str.isdigit, names)) else names


def _show_rows(session: Session, arguments: argparse.Namespace, output: _Output) -> None:
    with session.rows(arguments.file, arguments.sentence, _chosen_columns(arguments.columns)) as rows:
        if arguments.headings and rows.columns:
            output.row([b"", *(column.heading for column in rows.columns)])
        for row in rows:
            output.row(row)


# Each command: what it does, its arguments, the routine.
_COMMANDS = {
    "read": ("show an item, an attribute a line", ("file", "id", "--attribute"),
             lambda s, a, o: o.item(s.read(a.file, a.id, a.attribute))),
    "write": ("write an item from standard input, an attribute a line", ("file", "id", "--attribute"),
              lambda s, a, o: s.write(a.file, a.id, _body_of_input(a.raw), a.attribute)),
    "delete": ("delete an item", ("file", "id"), lambda s, a, o: s.delete(a.file, a.id)),
    "rows": ("show what a query finds, a row a line, cells parted by tabs",
             ("file", "--sentence", "--columns", "--headings"), _show_rows),
    "files": ("list the files", (), lambda s, a, o: [o.item(name) for name in s.files()]),
    "capture": ("show what a sentence returns", ("sentence",), lambda s, a, o: o.text(s.capture(a.sentence))),
    "tcl": ("show what a sentence prints", ("sentence",), lambda s, a, o: o.text(s.tcl(a.sentence))),
    "who": ("show port, account and user", (), lambda s, a, o: o.text(s.who())),
}

_ARGUMENTS: dict[str, dict] = {
    "--attribute": {"type": int, "metavar": "N", "help": "one attribute alone"},
    "--sentence": {"help": "the select sentence; all items without it"},
    "--columns": {"default": "", "help": "dictionary words or attribute numbers, parted by commas; 0: IDs"},
    "--headings": {"action": "store_true", "help": "the columns' headings first"},
}


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="nvclient",
        description="Work on an account through the back server. The password is read from the environment "
        "variable NVCLIENT_PASSWORD, the file of --password-file, or asked for.",
        epilog="Exit codes: 0 fine, 1 the request failed, 2 usage, 4 no connection or log-in.",
    )
    parser.add_argument("--host", default="localhost")
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--user", default=os.environ.get("USER", ""), help="default: %(default)s")
    parser.add_argument("--password-file", metavar="FILE", help="its first line is the password")
    parser.add_argument("--timeout", type=float, default=30, metavar="SECONDS", help="longest silence")
    parser.add_argument("--tls", action="store_true", help="encrypt, and check the server's certificate")
    parser.add_argument("--ca", metavar="FILE", help="with --tls: the authority to trust, not the system's")
    parser.add_argument("--raw", action="store_true", help="bytes as they are, marks and all")
    parser.add_argument("account")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    for name, (purpose, arguments, _) in _COMMANDS.items():
        command = commands.add_parser(name, help=purpose, description=purpose.capitalize() + ".")
        for argument in arguments:
            command.add_argument(argument, **_ARGUMENTS.get(argument, {}))
    return parser


def _password(arguments: argparse.Namespace) -> str:
    if arguments.password_file:
        with open(arguments.password_file, encoding="utf-8") as file:
            return file.readline().rstrip("\r\n")
    given = os.environ.get("NVCLIENT_PASSWORD")
    return getpass.getpass(f"password of {arguments.user}: ") if given is None else given


def _complain(text: object) -> None:
    print(f"nvclient: {text}", file=sys.stderr)


def main(words: Optional[Sequence[str]] = None) -> int:
    arguments = _parser().parse_args(words)
    try:
        password = _password(arguments)
        tls = ssl.create_default_context(cafile=arguments.ca) if arguments.tls else False
        session = connect(arguments.host, arguments.port, arguments.user, password, arguments.account,
                          timeout=arguments.timeout, tls=tls)
    except (NvError, OSError, EOFError, UnicodeDecodeError) as error:
        _complain(error)
        return _NO_CONNECTION
    with session:
        try:
            _COMMANDS[arguments.command][2](session, arguments, _Output(arguments.raw))
            sys.stdout.flush()
        except SentenceFailed as error:
            _Output(arguments.raw).text(error.printed)
            _complain(error)
            return _FAILED
        except ConnectionLost as error:
            _complain(error)
            return _NO_CONNECTION
        except BadArgument as error:
            _complain(error)
            return _USAGE
        except BrokenPipeError:  # who reads the output has enough
            os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
            return _FAILED
        except (NvError, OSError, UnicodeDecodeError) as error:
            _complain(error)
            return _FAILED
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
