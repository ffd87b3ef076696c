#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The library is bound whole, its relocated data read-only, its stack guarded and not executable.

usage: check_hardening.py LIBRARY OPTIMIZATION
"""

import os
import re
import subprocess
import sys

from declarations import dynamic_symbols


def readelf(option, library):
    return subprocess.run([os.environ.get('READELF', 'readelf'), option, library], check=True, capture_output=True, text=True).stdout


def main():
    library, optimization = sys.argv[1:]
    segments = readelf('-lW', library)
    dynamic = readelf('-dW', library)
    undefined = {symbol.name for symbol in dynamic_symbols(library, '--undefined-only')}
    stack = re.search(r'GNU_STACK.*', segments)
    # Without optimization the C library has no checked functions.
    is_fortified = any(re.fullmatch(r'__\w+_chk', name) for name in undefined - {'__stack_chk_fail'})
    properties = {
        'relocated data is read-only (RELRO)': 'GNU_RELRO' in segments,
        'bound when it is loaded (BIND_NOW)': bool(re.search(r'\((FLAGS|FLAGS_1)\).*\b(BIND_)?NOW\b', dynamic)),
        'the stack is not executable': stack is not None and 'E' not in stack.group().split()[-2],
        'no relocation in the code (TEXTREL)': 'TEXTREL' not in dynamic,
        'guarded stack frames': '__stack_chk_fail' in undefined,
        'checked C library functions': is_fortified or optimization in ('0', 'g', 'plain'),
    }
    missing = [what for what, holds in properties.items() if not holds]
    print('\n'.join(f'missing: {what}' for what in missing) or 'hardened')
    return 1 if missing else 0


sys.exit(main())
