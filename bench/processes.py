#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compare `vpdctl spd FILE` with `decode-dimms -x FILE` on the same module, process against process, and count the
system calls of the activity log's operations."""

import json
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

RUNS = 200
MARK = re.compile(r"write\(-1, \"(?P<mark>[^\"]*)\"")


def hexdump(data):
    """As hexdump -C writes it."""
    lines = (f"{at:08x}  {data[at:at + 16].hex(' ')}" for at in range(0, len(data), 16))
    return "\n".join(lines) + "\n"


def compare_decoders(vpdctl, image):
    with tempfile.TemporaryDirectory() as folder:
        dump = pathlib.Path(folder) / "module.hex"
        dump.write_text(hexdump(image.read_bytes()))
        times = pathlib.Path(folder) / "times.json"
        programs = [shlex.join([vpdctl, "spd", str(image)]), shlex.join(["decode-dimms", "-x", str(dump)])]
        subprocess.run(["hyperfine", "--shell=none", "--style=none", "--warmup=10", f"--runs={RUNS}",
                        f"--export-json={times}", *programs], check=True, stderr=subprocess.DEVNULL)
        ours, other = (side["min"] for side in json.loads(times.read_text())["results"])
    print(f"{image.name:12} vpdctl {ours * 1000:6.2f} ms   decode-dimms {other * 1000:6.2f} ms   ratio "
          f"{other / ours:5.1f}   goal: at least 10")


def count_calls(program, private_root):
    """System calls between the marks, which are writes to no file."""
    with tempfile.TemporaryDirectory(dir=program.parent) as folder:
        trace = pathlib.Path(folder) / "trace"
        command = [private_root, "strace", "-o", str(trace), str(program), "--marks"]
        if subprocess.run(command, capture_output=True).returncode != 0:
            print("no system calls can be counted here", file=sys.stderr)
            return
        calls = {}
        mark = ""
        for line in trace.read_text().splitlines():
            found = MARK.match(line)
            if found:
                mark = found["mark"]
            elif mark:
                name = line.partition("(")[0]
                calls.setdefault(mark, {}).setdefault(name, 0)
                calls[mark][name] += 1
    for operation in "log.load", "log.update", "status.256":
        counted = calls.get(operation, {})
        listed = ", ".join(f"{count} {name}" for name, count in sorted(counted.items(), key=lambda item: -item[1]))
        print(f"{operation:12} {sum(counted.values()):4} system calls: {listed}")


def main(vpdctl, operations):
    with tempfile.TemporaryDirectory() as images:
        subprocess.run([operations, "--modules", images], check=True)
        for image in sorted(pathlib.Path(images).iterdir()):
            compare_decoders(vpdctl, image)
    folder = pathlib.Path(__file__).resolve().parent
    count_calls(pathlib.Path(operations).resolve(), str(folder.parent / "tests" / "in_private_root"))


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
