#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A browser shows the page of `vpdctl report` and has nothing to say about it.

usage: report_in_browser.py VPDCTL SERVER

Exits with 77 where there is no Chromium.
"""
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile

SKIPPED = 77
TIMEOUT = 60  # seconds
INCOMPLETE = 1  # vpdctl: something could not be read, the rest is shown

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--virtual-time-budget=2000", "--enable-logging=stderr"]

HOSTILE = "<script>title=1</script>"  # as long as the record has room for
HOSTILE_SERVER = {
    "name": "hostile",
    "machine": {"vpd_id": "0x0050", "pos_id": "0x0073"},
    "frus": [
        {"fru_id": 1, "name": "</title><b>1", "entity": "fan", "instance": 1,
         "content": {"areas": {"board": {"manufacturer": "<img src=x onerror=alert(1)>", "serial_number": HOSTILE,
                                         "part_number": "--></style>&lt;"}}}},
        {"fru_id": 2, "name": "<svg/onload=2", "entity": "memory device", "instance": 2,
         "fault": {"read_completion_code": "0xC3"},
         "content": {"dimm": {"generation": "DDR4", "module": "RDIMM", "size_gib": 16, "ranks": 1, "device_width": 4,
                              "speed": 3200, "maker": "Samsung", "part_number": "<u>", "serial_number": "00000011",
                              "year": 2023, "week": 5}}},
    ],
}


class Browser:
    def __init__(self, program, folder):
        self.program = program
        self.folder = folder
        self.profiles = 0

    def open(self, page):
        """The document as the browser has it in the end, and what it said on its console."""
        self.profiles += 1
        profile = self.folder / f"profile{self.profiles}"
        command = [self.program, *FLAGS, f"--user-data-dir={profile}", "--dump-dom", page.as_uri()]
        environment = dict(os.environ, HOME=str(self.folder))
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL,
                              env=environment, start_new_session=True) as browser:
            try:
                document, log = browser.communicate(timeout=TIMEOUT)
            except subprocess.TimeoutExpired:
                os.killpg(browser.pid, signal.SIGKILL)
                raise
        if browser.returncode != 0:
            sys.exit(f"{self.program} exits with {browser.returncode}:\n{log.decode(errors='replace')}")
        console = [line for line in log.decode(errors="replace").splitlines() if "CONSOLE" in line]
        return document.decode(), console


def report(vpdctl, server, page):
    outcome = subprocess.run([vpdctl, "report", "--server", server, "--html", page], timeout=TIMEOUT, check=False)
    assert outcome.returncode in (0, INCOMPLETE), f"vpdctl exits with {outcome.returncode}"


def check_server(browser, vpdctl, server):
    page = browser.folder / "server.html"
    report(vpdctl, server, page)
    document, console = browser.open(page)
    assert not console, console
    for expected in ["<h2>Machine</h2>", "<h2>DIMM slots</h2>", "<svg ", "empty slot (1)", "<h2>Memory (31)</h2>",
                     "8BDB5EBA", "<h2>Firmware</h2>", "HFW204B"]:
        assert expected in document, f"{expected} is not shown"
    # The browser has mended nothing: its document has the elements that were written.
    written = page.read_text(encoding="utf-8")
    for element in ["<section", "<table", "<tr", "<td", "<th ", "<rect", "<text", "<path", "<title"]:
        assert document.count(element) == written.count(element), f"{element} differs"


def check_hostile_server(browser, vpdctl):
    server = browser.folder / "hostile.json"
    server.write_text(json.dumps(HOSTILE_SERVER), encoding="utf-8")
    page = browser.folder / "hostile.html"
    report(vpdctl, server, page)
    document, console = browser.open(page)
    assert not console, console
    assert "&lt;script&gt;title=1&lt;/script&gt;" in document, "the serial number is not shown"
    for element in ["<script", "<img", "<b>", "<u>", "<svg/", "</style>&lt;"]:
        assert element not in document, f"{element} has come into the document"


def check_that_faults_are_noticed(browser):
    """A page with a script in it, which its policy forbids, makes the browser complain."""
    page = browser.folder / "faulty.html"
    text = (browser.folder / "server.html").read_text(encoding="utf-8")
    page.write_text(text.replace("<body>", "<body><script>document.title='owned'</script>"), encoding="utf-8")
    document, console = browser.open(page)
    assert console, "the browser has let a script pass in silence"
    assert "<title>owned" not in document, "the script has run"


def main():
    vpdctl, server = sys.argv[1:]
    program = shutil.which("chromium") or shutil.which("chromium-browser")
    if program is None:
        print("there is no Chromium on this machine")
        sys.exit(SKIPPED)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        browser = Browser(program, pathlib.Path(folder))
        check_server(browser, vpdctl, server)
        check_hostile_server(browser, vpdctl)
        check_that_faults_are_noticed(browser)


if __name__ == "__main__":
    main()
