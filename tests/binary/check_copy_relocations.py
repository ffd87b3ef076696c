#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A program shares the library's data through copy relocations, and it works.

usage: check_copy_relocations.py PROGRAM SYMBOL...
"""

import os
import re
import shlex
import subprocess
import sys


def main():
    program, *symbols = sys.argv[1:]
    listing = subprocess.run([os.environ.get('READELF', 'readelf'), '-rW', program], check=True, capture_output=True, text=True).stdout
    copied = set(re.findall(r'R_\w+_COPY\s+\S+\s+(\w+)', listing))
    missing = [name for name in symbols if name not in copied]
    if missing:
        print(f'no copy relocation for {", ".join(missing)}; copied: {", ".join(sorted(copied)) or "nothing"}')
        return 1
    wrapper = shlex.split(os.environ.get('MESON_EXE_WRAPPER', ''))
    return subprocess.run([*wrapper, program], check=False).returncode


sys.exit(main())
