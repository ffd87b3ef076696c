#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The library's name, and what it needs: the C library's family, and the platform functions of the process.

usage: check_needs.py LIBRARY INCLUDE_FOLDER PROJECT COMPILER...
"""

import glob
import os
import re
import subprocess
import sys

from declarations import declared_in, dynamic_symbols

NEEDED = re.compile(r'lib(c|m|gcc_s|pthread|dl)\.so\.\d+|ld-linux.*\.so\.\d+')
VERSIONS = re.compile(r'(GLIBC|GCC)_[\d.]+')
# Weak references that the compiler's start files make.
OF_THE_START_FILES = {'__gmon_start__', '_ITM_deregisterTMCloneTable', '_ITM_registerTMCloneTable', '__cxa_finalize'}


def dynamic_entries(library, tag):
    listing = subprocess.run([os.environ.get('READELF', 'readelf'), '-dW', library], check=True, capture_output=True, text=True).stdout
    return re.findall(rf'\({tag}\).*\[(.*)\]', listing)


def main():
    library, include_folder, project, *compiler = sys.argv[1:]
    faults = []

    if dynamic_entries(library, 'SONAME') != ['liborva_vpdd.so']:
        faults.append(f'SONAME is {dynamic_entries(library, "SONAME")}')
    needed = dynamic_entries(library, 'NEEDED')
    faults.extend(f'needs {name}' for name in needed if not NEEDED.fullmatch(name))
    if not any(name.startswith('libc.') for name in needed):
        faults.append('does not need the C library')

    platform = set()
    for header in sorted(glob.glob(os.path.join(project, 'platform', '*.h'))):
        declared = declared_in(compiler, header, [include_folder, project])
        platform |= declared.functions
        faults.extend(f'{header}: declares data {name}' for name in declared.data)
    undefined = dynamic_symbols(library, '--undefined-only')
    for symbol in undefined:
        if symbol.version:
            if not VERSIONS.fullmatch(symbol.version):
                faults.append(f'{symbol.name}: of version {symbol.version}')
        elif symbol.name not in platform and not (symbol.kind in 'wv' and symbol.name in OF_THE_START_FILES):
            faults.append(f'{symbol.name}: neither a platform function nor of the C library')
    if not platform & {symbol.name for symbol in undefined}:
        faults.append('calls no platform function at all')

    print('\n'.join(faults) or f'needs {", ".join(needed)}')
    return 1 if faults else 0


sys.exit(main())
