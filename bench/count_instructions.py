#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Count the instructions of each operation of the library and compare them with the stored baseline.

Callgrind executes the program `operations`, which marks each operation. What counts against the baseline are the
instructions in liborva_vpdd.so alone, and its allocations: the C library chooses its copies by the processor, so that
its share differs between machines. The table also shows the sum over all objects, which is what the rows against other
programs are about.
"""

import argparse
import json
import pathlib
import platform
import re
import subprocess
import sys
import tempfile

LIBRARY = "liborva_vpdd.so"
ALLOWED_GROWTH = 0.05
ALLOCATORS = {"malloc", "calloc", "realloc", "strdup", "asprintf", "vasprintf", "reallocarray"}
NO_PRIVATE_ROOT = 77
BASELINE_MACHINE = "x86_64"

# Instructions of the first operation in those of the second, without what they share: (first, second, without, goal).
RATIOS = [
    ("freeipmi.fru.256", "fru.256", "read.fru.256", "at least 25"),
    ("freeipmi.fru.512", "fru.512", "read.fru.512", "at least 25"),
    ("freeipmi.fru.2048", "fru.2048", "read.fru.2048", "at least 25"),
    ("spd.ddr4", "touch.ddr4", None, "at most 10"),
    ("spd.ddr5", "touch.ddr5", None, "at most 10"),
    ("create.2048", "create.256", None, "at most 8.5"),
    ("status.256", "crc32.680 x 256", None, "at most 2"),
]

TOLD_NAME = re.compile(r"\((\d+)\)(?: (.*))?")


class Dump:
    """One dump of callgrind: what was executed between two marks."""

    def __init__(self, text):
        self.name = ""
        self.library = self.total = self.allocations = 0
        self._names = {}
        self._read(text.splitlines())

    def _told(self, kind, value):
        """Callgrind tells each name once and then only its number."""
        number, name = TOLD_NAME.match(value).groups()
        if name is not None:
            self._names[kind, number] = name
        return self._names[kind, number]

    def _read(self, lines):
        is_library = is_inclusive = False
        called = ""
        for line in lines:
            key, _, value = line.partition("=")
            if line.startswith("desc: Trigger: Client Request: "):
                self.name = line.rpartition(": ")[2]
            elif key == "ob":
                is_library = pathlib.PurePath(self._told("ob", value)).name == LIBRARY
            elif key in ("cob", "cfn", "fn"):
                name = self._told(key.removeprefix("c"), value)
                called = name if key == "cfn" else called
            elif key == "calls":
                is_inclusive = True  # the next line holds what the called function cost, which counts there
                if is_library and called in ALLOCATORS:
                    self.allocations += int(value.split()[0])
            elif line[:1].isdigit():
                cost = 0 if is_inclusive else int(line.split()[-1])
                is_inclusive = False
                self.total += cost
                self.library += cost if is_library else 0


def run(program, private_root):
    """All operations that this machine lets the program run, by name."""
    with tempfile.TemporaryDirectory(dir=program.parent) as folder:
        command = ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--compress-pos=no",
                   f"--callgrind-out-file={folder}/dump", str(program)]
        result = subprocess.run([private_root, *command], capture_output=True, text=True)
        if result.returncode == NO_PRIVATE_ROOT:
            result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            sys.exit(result.stdout + result.stderr)
        dumps = [Dump(path.read_text()) for path in pathlib.Path(folder).glob("dump.*")]
    return {dump.name: dump for dump in sorted(dumps, key=lambda dump: dump.name) if dump.name}


def is_ours(name):
    return not name.startswith(("freeipmi.", "touch."))


def print_table(counted):
    print(f"{'operation':20} {'in the library':>15} {'in all':>15} {'allocations':>12}")
    for name, dump in counted.items():
        print(f"{name:20} {dump.library:15,} {dump.total:15,} {dump.allocations:12,}")
    print()
    for first, second, without, goal in RATIOS:
        name, _, times = second.partition(" x ")
        if first in counted and name in counted:
            base = counted[name].total * int(times or 1) - (counted[without].total if without else 0)
            shown = f"{second} - {without}" if without else second
            print(f"{first:18} : {shown:28} {counted[first].total / base:8.2f}   goal: {goal}")


def grown(counted, baseline):
    """What is worse than the baseline allows, and what the baseline does not know."""
    for name, dump in counted.items():
        stored = baseline.get(name)
        if stored is None:
            yield f"{name}: not in the baseline"
        elif dump.library > stored["instructions"] * (1 + ALLOWED_GROWTH):
            growth = dump.library / stored["instructions"] - 1
            yield f"{name}: {dump.library:,} instructions, {growth:+.1%} on {stored['instructions']:,}"
        elif dump.allocations > stored["allocations"]:
            yield f"{name}: {dump.allocations:,} allocations instead of {stored['allocations']:,}"


def compare(counted, path):
    baseline = json.loads(path.read_text())
    worse = list(grown(counted, baseline))
    left_out = sorted(set(baseline) - set(counted))
    if left_out:
        print("not counted here:", ", ".join(left_out), file=sys.stderr)
    if worse:
        print("The library executes more than the baseline allows:", *worse, sep="\n  ", file=sys.stderr)
        print(f"Where that is meant: ./dev bench baseline writes {path.name}; commit it with the change.", file=sys.stderr)
        return 1
    print(f"{len(counted)} operations within {ALLOWED_GROWTH:.0%} of the baseline")
    return 0


def write(counted, path):
    rows = {name: {"instructions": dump.library, "allocations": dump.allocations} for name, dump in counted.items()}
    path.write_text(json.dumps(rows, indent=2) + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("action", choices=["show", "check", "write"])
    parser.add_argument("program", type=pathlib.Path, help="the program `operations`")
    arguments = parser.parse_args()
    if arguments.action != "show" and platform.machine() != BASELINE_MACHINE:
        print(f"the baseline is that of {BASELINE_MACHINE}: nothing is compared here", file=sys.stderr)
        return 0
    folder = pathlib.Path(__file__).resolve().parent
    baseline = folder / "baseline.json"

    counted = run(arguments.program.resolve(), str(folder.parent / "tests" / "in_private_root"))
    if arguments.action == "show":
        print_table(counted)
        return 0
    ours = {name: dump for name, dump in counted.items() if is_ours(name)}
    if arguments.action == "write":
        write(ours, baseline)
        return 0
    return compare(ours, baseline)


if __name__ == "__main__":
    sys.exit(main())
