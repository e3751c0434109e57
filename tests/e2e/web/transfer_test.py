"""Loads of transfer files through the web server, as a browser works the form."""

import os
import re
import signal
import sqlite3
import unittest

from support import HOME
from websupport import Page, Site

ITEMS = 30_000
RECORDS = [f"GOODS\xfe{ITEMS}\xfe{ITEMS}\xfe3\xfd3\xfd3\xfe20\xfd9\xfd3\xfe\xfdY\xfe6", "NOTES\xfe0\xfe0\xfe0\xfe\xfe\xfe6"]


def write_file(name):
    lines = []
    for section, items in (("GOODS", ITEMS), ("NOTES", ITEMS)):
        lines.append(f"<FILE_DATA>{section}")
        lines += [f"{number}\xfename {number}\xfe{number % 7}\xfd{number % 5}\xfeé" for number in range(items)]
        lines.append("</FILE_DATA>")
    lines += ["<FILE_STATISTICS>", *RECORDS, "</FILE_STATISTICS>", ""]
    with open(os.path.join(HOME, "TransferBulk", name), "wb") as file:
        file.write("\r\n".join(lines).encode("latin-1"))


def tables(account):
    """Schema and rows of the account's file, which must be sound."""
    with sqlite3.connect(os.path.join(HOME, "accounts", f"{account}.sqlite")) as database:
        assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        schema = database.execute("SELECT name, sql FROM sqlite_schema ORDER BY name").fetchall()
        return {name: (sql, database.execute(f'SELECT * FROM "{name}" ORDER BY 1, 2').fetchall())
                for name, sql in schema if sql and sql.startswith("CREATE TABLE")}


class Load(unittest.TestCase):
    def begin(self, page):
        page.until(":")
        for line, answer in (("MENU", "OK</TX>"), ("", "</TX>"), ("mx4|", "</TX>"), ("fx1|GOODS", "fx1</TX>")):
            self.send(page, line, answer)
        page.line("bx1|")

    def send(self, page, line, answer):
        """Waits until the answer has come."""
        start = len(page.text)
        page.line(line)
        while answer not in page.text[start:]:
            page.output()

    def serve(self):
        site = Site()
        self.addCleanup(lambda: site._process.poll() is None and site.stop(signal.SIGKILL))
        return site

    def load(self, account):
        """A whole one; what LOAD-REPORT tells of it."""
        site = self.serve()
        with Page(site, site.cookie("bob", "pass word", account)) as page:
            self.begin(page)
            while "PROCESS COMPLETE" not in page.text[-200:]:
                page.output()
            self.send(page, "", "</TX>")
            self.send(page, "bx2|", ":")
            report = page.ask("LOAD-REPORT")
        self.assertEqual(site.stop(), 0)
        return report

    def kill(self, account, line):
        """Kills the server once the counter has gone so far."""
        site = self.serve()
        with Page(site, site.cookie("bob", "pass word", account)) as page:
            self.begin(page)
            counted = 0
            while counted < line:
                page.output()
                counted = int((re.findall(r"(\d+) / \d+ ", page.text[-200:]) or [0])[-1])
            site.stop(signal.SIGKILL)
        self.assertLess(counted, 2 * ITEMS, "the load was still under way")

    def test_killed_in_the_middle(self):
        write_file("GOODS")
        for kind in ("", ".MV"):
            self.assertRegex(self.load("WHOLE" + kind), rf"Total +{2 * ITEMS} +{2 * ITEMS} +0 ")
            whole = tables("WHOLE" + kind)
            before = 0
            for line in (20, ITEMS // 2, ITEMS + ITEMS // 2):
                self.kill("BROKEN" + kind, line)
                broken = tables("BROKEN" + kind)
                self.assertEqual(broken.keys(), whole.keys())
                for name, (_, rows) in broken.items():
                    self.assertLessEqual(set(rows), set(whole[name][1]), "items are there whole or not at all")
                written = sum(len(rows) for _, rows in broken.values())
                self.assertGreaterEqual(written, before)
                before = written
            self.assertGreater(before, ITEMS // 2, "what was written before a kill stays")
            self.load("BROKEN" + kind)
            self.assertEqual(tables("BROKEN" + kind), whole)
