# SPDX-License-Identifier: Apache-2.0
"""What a C header declares, and what a shared library shows."""

import os
import re
import subprocess
from typing import NamedTuple


class Declarations(NamedTuple):
    functions: set
    data: set


def _own_text(compiler, header, include_folders):
    """The header's own text after preprocessing, without what it includes."""
    folders = [argument for folder in include_folders for argument in ('-I', folder)]
    preprocessed = subprocess.run(
        [*compiler, '-x', 'c', '-std=c11', '-E', *folders, header], check=True, capture_output=True, text=True
    ).stdout
    own = []
    inside = False
    for line in preprocessed.splitlines():
        marker = re.match(r'#\s*(?:line\s+)?\d+ "(.*?)"', line)
        if marker:
            inside = marker.group(1) == header
        elif inside and not line.startswith('#'):
            own.append(line)
    return '\n'.join(own)


def _without(text, opening, closing):
    """The text without anything between outermost pairs of these."""
    kept, depth = [], 0
    for character in text:
        if character == opening:
            depth += 1
        if depth == 0:
            kept.append(character)
        if character == closing:
            depth -= 1
    return ''.join(kept)


def declared_in(compiler, header, include_folders):
    text = _without(_own_text(compiler, header, include_folders), '{', '}')
    functions, data = set(), set()
    for statement in text.split(';'):
        statement = re.sub(r'__attribute__\s*\(\(.*\)\)', '', statement, flags=re.DOTALL).strip()
        if not statement or statement.startswith('typedef') or re.fullmatch(r'(struct|union|enum)\s+\w+', statement):
            continue
        function = re.search(r'(\w+)\s*\(', statement)
        if function:
            functions.add(function.group(1))
            continue
        for declarator in _without(statement, '[', ']').split(','):
            data.add(re.search(r'(\w+)\s*$', declarator).group(1))
    return Declarations(functions, data)


class Symbol(NamedTuple):
    name: str
    kind: str  # the letter that nm prints
    version: str


def dynamic_symbols(library, which):
    listing = subprocess.run([os.environ.get('NM', 'nm'), '-D', which, library], check=True, capture_output=True, text=True).stdout
    symbols = []
    for line in listing.splitlines():
        *_, kind, name = line.split()
        name, _, version = name.partition('@')
        symbols.append(Symbol(name, kind, version.lstrip('@')))
    return symbols
