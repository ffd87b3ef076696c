#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints what a library takes in memory, and what of it is largest; fails above a bound.

usage: footprint.py LIBRARY [BOUND]   (bytes of text, rodata and data; NM and READELF name the tools)
"""

import collections
import os
import re
import subprocess
import sys
from typing import NamedTuple

# What each section is for, in the order of the table.
KINDS = [
    ('code', r'\.(text|plt|init|fini)'),
    ('constant data', r'\.rodata'),
    ('initialized data', r'\.(data\.rel\.ro|data|got|init_array|fini_array|dynamic)'),
    ('names and look-up for the loader', r'\.(dynsym|dynstr|gnu\.\w+|hash|note\..*)'),
    ('relocations', r'\.rel(a)?\.\w+'),
    ('unwinding', r'\.(ARM\.ex\w+|eh_frame\w*)'),
    ('zeroed data (not in the file)', r'\.bss'),
]
BOUND_SECTIONS = {'.text', '.rodata', '.data', '.data.rel.ro'}


class Symbol(NamedTuple):
    size: int
    name: str
    kind: str


def output_of(tool, *arguments):
    command = [os.environ.get(tool.upper(), tool), *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def loaded_sections(library):
    """Sizes of what the loader maps, by name."""
    sections = {}
    for line in output_of('readelf', '-SW', library).splitlines():
        found = re.match(r'\s*\[\s*\d+\]\s+(\S+)\s+\S+\s+\w+\s+\w+\s+(\w+)\s+\w+\s+(\w+)', line)
        if found and 'A' in found.group(3):
            sections[found.group(1)] = int(found.group(2), 16)
    return sections


def largest_symbols(library, count):
    symbols = {}
    for line in output_of('nm', '-SC', library).splitlines():
        parts = line.split(None, 3)
        if len(parts) == 4 and parts[2] in 'tTrRdDbBVW':
            symbols.setdefault(parts[0], Symbol(int(parts[1], 16), parts[3], parts[2]))
    return sorted(symbols.values(), reverse=True)[:count]


def relocations(library):
    return collections.Counter(re.findall(r'\bR_\w+', output_of('readelf', '-rW', library)))


def main():
    library, *bound = sys.argv[1:]
    sections = loaded_sections(library)
    rest = dict(sections)
    for kind, pattern in KINDS:
        members = {name: rest.pop(name) for name in sections if name in rest and re.fullmatch(pattern, name)}
        if members:
            names = ', '.join(f'{name} {size}' for name, size in members.items())
            print(f'{sum(members.values()):7}  {kind}: {names}')
    for name, size in rest.items():
        print(f'{size:7}  {name}')

    print('\nrelocations: ' + ', '.join(f'{count} {kind}' for kind, count in relocations(library).most_common()))
    print('\nlargest symbols:')
    for symbol in largest_symbols(library, 12):
        print(f'{symbol.size:7}  {symbol.kind}  {symbol.name}')

    in_file = sum(size for name, size in sections.items() if name not in ('.bss', '.tbss'))
    bounded = sum(sections.get(name, 0) for name in BOUND_SECTIONS)
    print(f'\n{in_file:7}  mapped from the file\n{bounded:7}  text, rodata and data')
    if bound and bounded > int(bound[0]):
        print(f'above the bound of {bound[0]}')
        return 1
    return 0


sys.exit(main())
