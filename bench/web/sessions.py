"""Sessions of the web server, for bench/compare. Account BENCH, user bench, password "bench pass".
  NVADMIN=PROGRAM NVADMIN_HOME=HOME python3 bench/web/sessions.py idle COUNT [CERTIFICATE KEY]
  NVADMIN=PROGRAM NVADMIN_HOME=HOME python3 bench/web/sessions.py prompt

idle prints the KiB resident that a session takes after its log-in; prompt, in ms, the median, the 95th hundredth and
the longest time of a session's WHO, quiet and while another session prints 100 MB and its page takes them."""

import multiprocessing
import pathlib
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).parents[2]
sys.path += [str(ROOT / "client"), str(ROOT / "tests/e2e/backserver"), str(ROOT / "tests/e2e/web")]

from websupport import Page, Site  # noqa: E402

ITEM_BYTES = 10_000_000
PRINTED_BYTES = 100_000_000
QUIET_SECONDS = 3


def log_in(site):
    return site.cookie("bench", "bench pass", "BENCH")


def resident_kib(process):
    for line in pathlib.Path(f"/proc/{process}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    raise RuntimeError(f"no process {process}")


def open_page(site, cookie):
    page = Page(site, cookie)
    page.until(":")
    return page


def idle(count, *certificate_and_key):
    tls = [word for pair in zip(("--tls-cert", "--tls-key"), certificate_and_key) for word in pair]
    site = Site("--max-sessions-per-address", "1000", *tls)
    cookie = log_in(site)
    before = resident_kib(site.process_id)
    pages = [open_page(site, cookie) for _ in range(int(count))]
    print((resident_kib(site.process_id) - before) // len(pages))
    for page in pages:
        page.stream.close()
    site.stop()


def take_all(site, cookie, begun):
    """A page whose session prints: takes the bytes as they come, and is gone."""
    page = open_page(site, cookie)
    page.line("PUT ITEMS LARGE 1 " + "x" * ITEM_BYTES)
    page.until(":")
    for _ in range(PRINTED_BYTES // ITEM_BYTES):
        page.line("CT ITEMS LARGE")
    begun.set()
    taken = 0
    while taken < PRINTED_BYTES:
        taken += len(page.stream.recv(1 << 20))


def time_prompt(page, goes_on):
    times = []
    while goes_on():
        start = time.perf_counter()
        page.ask("WHO")
        times.append((time.perf_counter() - start) * 1000)
    times.sort()
    return f"{statistics.median(times):.2f} {times[len(times) * 95 // 100]:.2f} {times[-1]:.2f}"


def prompt():
    site = Site()
    cookie = log_in(site)
    page = open_page(site, cookie)
    until = time.monotonic() + QUIET_SECONDS
    print(time_prompt(page, lambda: time.monotonic() < until))
    begun = multiprocessing.Event()
    other = multiprocessing.Process(target=take_all, args=(site, cookie, begun))
    other.start()
    begun.wait()
    print(time_prompt(page, other.is_alive))
    page.stream.close()
    site.stop()


if __name__ == "__main__":
    {"idle": idle, "prompt": prompt}[sys.argv[1]](*sys.argv[2:])
