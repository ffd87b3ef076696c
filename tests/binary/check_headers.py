#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Each header compiles alone, without a warning, as the C and C++ of its users.

usage: check_headers.py PROJECT C_COMPILER_ARRAY CPP_COMPILER_ARRAY  (each array joined by '|')
"""

import glob
import os
import shutil
import subprocess
import sys

WARNINGS = ['-Wall', '-Wextra', '-Wpedantic', '-Werror']
PUBLIC = 'orva_vpdd.h'

# The C library declares functions of the public header too (gettid).
SURROUNDINGS = [
    f'#include "{PUBLIC}"\n',
    f'#include "{PUBLIC}"\n#include "{PUBLIC}"\n',
    f'#define _GNU_SOURCE\n#include <unistd.h>\n#include "{PUBLIC}"\n',
    f'#define _GNU_SOURCE\n#include "{PUBLIC}"\n#include <unistd.h>\n',
    f'#include <unistd.h>\n#include "{PUBLIC}"\n',
]


def distinct(compilers):
    """Those that are installed, each once whatever its names."""
    found = {}
    for compiler in compilers:
        path = shutil.which(compiler[0])
        if path:
            found.setdefault((os.path.realpath(path), *compiler[1:]), compiler)
    return found.values()


def check(project, compiler, language, standard, source):
    command = [
        *compiler, '-x', language, f'-std={standard}', *WARNINGS, '-fsyntax-only',
        '-I', os.path.join(project, 'include'), '-I', project, '-',
    ]  # fmt: skip
    if '#define _GNU_SOURCE' in source and language == 'c++':
        command.insert(-1, '-U_GNU_SOURCE')  # g++ defines it by itself
    result = subprocess.run(command, input=source, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        print(f'--- {" ".join(command)}\n{source}{result.stderr}')
    return result.returncode == 0


def main():
    project = sys.argv[1]
    c_compilers = [sys.argv[2].split('|')] + [[name] for name in ('gcc', 'clang')]
    cpp_compilers = [sys.argv[3].split('|')] + [[name] for name in ('g++', 'clang++')]
    users = [(c, 'c', standard) for c in distinct(c_compilers) for standard in ('c11', 'c17')]
    users += [(cpp, 'c++', standard) for cpp in distinct(cpp_compilers) for standard in ('c++17', 'c++20')]

    platform = sorted(glob.glob(os.path.join(project, 'platform', '*.h')))
    alone = [f'#include "platform/{os.path.basename(header)}"\n' for header in platform]
    checked, good = 0, True
    for compiler, language, standard in users:
        for source in SURROUNDINGS + alone:
            good &= check(project, compiler, language, standard, source)
            checked += 1
    print(f'{checked} translation units')
    return 0 if good and checked and platform else 1


sys.exit(main())
