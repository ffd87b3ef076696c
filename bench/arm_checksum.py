#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Count the instructions of calc_crc() for each byte on armhf.

The emulator runs each instruction as a block of its own (-singlestep) and logs each block (-d exec). Start-up and end of
the program cost the same each time, so that they go out of the difference of two counts.
"""

import subprocess
import sys


def executed(program, size, times):
    command = ["qemu-arm", "-L", "/usr/arm-linux-gnueabihf", "-singlestep", "-d", "exec,nochain", "-D", "/dev/stdout",
               program, str(size), str(times)]
    with subprocess.Popen(command, stdout=subprocess.PIPE) as emulator:
        count = sum(line.startswith(b"Trace") for line in emulator.stdout)
    if emulator.returncode != 0:
        sys.exit(f"{' '.join(command)}: {emulator.returncode}")
    return count


def main(program):
    for size in 680, 37800:
        count = executed(program, size, 2) - executed(program, size, 1)
        print(f"calc_crc of {size:6,} bytes on armhf: {count:8,} instructions, {count / size:.2f} for each byte"
              "   goal: at most 4.5")


if __name__ == "__main__":
    main(sys.argv[1])
