#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Turn jep106.tsv into the table of manufacturers; refuse a list that is not what the look-up relies on."""

import sys

ROWS_OF_BANK = [(bank, 126) for bank in range(8)] + [(8, 109), (11, 1)]
SENTINEL_BANK = 9  # the look-up ends at the first row of this bank


def read_rows(path):
    with open(path, encoding="ascii") as source:
        for number, line in enumerate(source, 1):
            if line.startswith("#"):
                continue
            bank, code, name = line.rstrip("\n").split("\t")
            yield number, int(bank), int(code, 16), name


def check(rows):
    banks = [bank for bank, count in ROWS_OF_BANK for _ in range(count)]
    if [bank for _, bank, _, _ in rows] != banks:
        raise ValueError("the banks are not complete and in order")
    previous = (-1, 0)
    for number, bank, code, name in rows:
        if bin(code).count("1") % 2 == 0 or not 0 < code < 0xFF:
            raise ValueError(f"line {number}: 0x{code:02X} is no id with odd parity")
        if (bank, code & 0x7F) <= previous:
            raise ValueError(f"line {number}: 0x{code:02X} is out of order or twice in its bank")
        if not name or not name.isprintable() or name != name.strip():
            raise ValueError(f"line {number}: bad name {name!r}")
        previous = (bank, code & 0x7F)


def literal(name):
    # No trigraphs, and no way out of the string.
    return '"' + name.replace("\\", "\\\\").replace('"', '\\"').replace("?", "\\?") + '"'


def write_table(rows, path):
    with open(path, "w", encoding="ascii") as table:
        table.write('// Made from jep106.tsv.\n#include "orva_vpdd.h"\n\n')
        table.write(f"const Jep106Row jep_106[{len(rows) + 1}] = {{\n")
        for _, bank, code, name in rows:
            table.write(f"    {{{bank}, 0x{code:02X}, {literal(name)}}},\n")
        table.write(f'    {{{SENTINEL_BANK}, 0xFF, ""}},\n}};\n')


def main(source, target):
    rows = list(read_rows(source))
    try:
        check(rows)
    except ValueError as error:
        sys.exit(f"{source}: {error}")
    write_table(rows, target)


if __name__ == "__main__":
    main(*sys.argv[1:])
