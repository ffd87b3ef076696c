#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The public header, the symbol map and the library show the same names, in every direction.

usage: check_exports.py LIBRARY MAP HEADER INCLUDE_FOLDER COMPILER...
"""

import re
import sys

from declarations import declared_in, dynamic_symbols

FUNCTION_KINDS = set('TWi')
DATA_KINDS = set('DBRGSV')


def mapped(path):
    text = re.sub(r'#.*|/\*.*?\*/', '', open(path, encoding='utf-8').read())
    names = re.search(r'global:(.*?)local:', text, re.DOTALL).group(1)
    return [name.strip() for name in names.split(';') if name.strip()]


def main():
    library, symbol_map, header, include_folder, *compiler = sys.argv[1:]
    declared = declared_in(compiler, header, [include_folder])
    names_in_map = mapped(symbol_map)
    exported = dynamic_symbols(library, '--defined-only')

    faults = []

    def compare(what, names, where, others):
        faults.extend(f'{name}: {what}, but not {where}' for name in sorted(names - others))

    in_header = declared.functions | declared.data
    in_map = set(names_in_map)
    in_library = {symbol.name for symbol in exported}
    compare('declared in the header', in_header, 'in the symbol map', in_map)
    compare('in the symbol map', in_map, 'declared in the header', in_header)
    compare('declared in the header', in_header, 'exported by the library', in_library)
    compare('exported by the library', in_library, 'declared in the header', in_header)
    faults.extend(f'{name}: twice in the symbol map' for name in sorted(in_map) if names_in_map.count(name) > 1)

    for symbol in exported:
        kinds = DATA_KINDS if symbol.name in declared.data else FUNCTION_KINDS
        if symbol.kind not in kinds:
            faults.append(f'{symbol.name}: exported as {symbol.kind}, expected one of {"".join(sorted(kinds))}')
        if symbol.version:
            faults.append(f'{symbol.name}: exported with the version {symbol.version}')

    if not declared.functions or not declared.data or not in_library:
        faults.append('found no declarations or no exports at all')
    print('\n'.join(faults) or f'{len(declared.functions)} functions and {len(declared.data)} data agree')
    return 1 if faults else 0


sys.exit(main())
