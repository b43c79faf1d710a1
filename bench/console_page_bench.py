#!/usr/bin/python3
"""The console's terminals page in headless Chromium on a site of many terminals.

Times, over several fresh loads, how long a browser takes from the navigation to the terminals
table drawn (the page's own "terminals-rendered" mark), with the parts of it: the page's files
loaded (DOMContentLoaded), the session asked, and GET /api/v1/terminals. The site is a folder
made by the built `clockcomm init` with N poll-list locations, each with a call in the event log.
Usage: bench/console_page_bench.py --build build [--terminals 1000] [--loads 10]
"""
import argparse
import os
import re
import shutil
import signal
import sqlite3
import statistics
import subprocess
import sys
import tempfile
from datetime import datetime, timedelta

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "browser"))
from console_browser_test import Console  # noqa: E402  the same browser set-up as the test

USER, PASSWORD = "bench", "bench-password"


def make_site(clockcomm, home, terminals):
    subprocess.run([clockcomm, "--home", home, "init"], check=True, capture_output=True)
    subprocess.run([clockcomm, "--home", home, "user", "add", USER], input=PASSWORD + "\n",
                   text=True, check=True, capture_output=True)
    now = datetime.now().replace(microsecond=0)
    with sqlite3.connect(os.path.join(home, "data", "Clockwyn.db")) as product:
        product.executemany("INSERT INTO PollT (LocationName, LocationPhone, DialTime) VALUES (?, ?, '06:00')",
                            [(f"LOC{i:04d}", f"555-{i:04d}") for i in range(terminals)])
    with sqlite3.connect(os.path.join(home, "data", "TCLOG.db")) as events:
        # Every other location called within the day; the rest two days ago (offline).
        events.executemany(
            "INSERT INTO LogTable ([DateTime], ClockName, ClockNumber, EventType, EventDes) "
            "VALUES (?, ?, ?, 'End of call', '10 punches')",
            [((now - timedelta(days=2 * (i % 2))).strftime("%Y-%m-%d %H:%M:%S"), f"LOC{i:04d}", i)
             for i in range(terminals)])


def one_load(console):
    driver = console.driver
    driver.get("about:blank")
    driver.get(console.url + "#/terminals")
    console.find("#terminals-table[data-rendered]")
    return driver.execute_script("""
        const nav = performance.getEntriesByType('navigation')[0];
        const api = (p) => performance.getEntriesByType('resource').find((r) => r.name.endsWith(p));
        const span = (r) => (r ? r.responseEnd - r.startTime : null);
        return {rendered: performance.getEntriesByName('terminals-rendered')[0].startTime,
                dom: nav.domContentLoadedEventEnd,
                session: span(api('/api/v1/session')),
                terminals: span(api('/api/v1/terminals')),
                rows: document.querySelectorAll('#terminals-table tbody tr').length};""")


def floor_load(console):
    """The floor in the same run: this browser loading the server's smallest file (no script)."""
    console.driver.get("about:blank")
    console.driver.get(console.url + "favicon.svg")
    return console.driver.execute_script(
        "return performance.getEntriesByType('navigation')[0].loadEventEnd;")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build")
    parser.add_argument("--terminals", type=int, default=1000)
    parser.add_argument("--loads", type=int, default=10)
    args = parser.parse_args()
    clockcomm = os.path.join(args.build, "clockcomm")
    folder = tempfile.mkdtemp(prefix="clockcomm-page-bench-")
    server = console = None
    try:
        make_site(clockcomm, folder, args.terminals)
        server = subprocess.Popen([clockcomm, "--home", folder, "serve", "--listen", "127.0.0.1:0"],
                                  stdout=subprocess.PIPE, text=True)
        url = re.search(r"(http://127\.0\.0\.1:\d+/)", server.stdout.readline()).group(1)
        console = Console(url, folder)
        console.driver.get(url)
        console.fill("#login-name", USER)
        console.fill("#login-password", PASSWORD)
        console.find("#login-submit").click()
        console.find("#terminals-table[data-rendered]")
        loads = [one_load(console) for _ in range(args.loads)]
        floors = [floor_load(console) for _ in range(args.loads)]
        rows = loads[0]["rows"]
        print(f"Terminals page, {rows} terminals, {args.loads} fresh loads in headless Chromium "
              f"(ms, median [min-max]):")
        for key, label in (("rendered", "navigation to table drawn"),
                           ("dom", "  page files loaded (DOMContentLoaded)"),
                           ("session", "  GET /api/v1/session"),
                           ("terminals", "  GET /api/v1/terminals")):
            values = [load[key] for load in loads if load[key] is not None]
            print(f"{label:40s} {statistics.median(values):8.1f} [{min(values):.1f}-{max(values):.1f}]")
        floor = statistics.median(floors)
        print(f"{'floor: favicon.svg as a page':40s} {floor:8.1f} [{min(floors):.1f}-{max(floors):.1f}]")
        rendered = statistics.median([load["rendered"] for load in loads])
        print(f"table drawn / floor: {rendered / floor:.1f}")
    finally:
        if console:
            console.quit()
        if server:
            server.send_signal(signal.SIGTERM)
            server.wait(timeout=20)
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
