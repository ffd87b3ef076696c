#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Turn the boards' slot maps into the tables of GetMemSlot(); refuse what no board can have.

usage: slot_maps.py OUTPUT PLATFORMS MAP...
"""

import os
import re
import sys
from typing import NamedTuple

PLATFORM_COUNT = 30
LARGEST_SLOT_COUNT = 128
PLATFORM_COLUMNS = ["platform_id", "slots", "map"]
# Columns of a map and the largest value of each.
LIMITS = {"socket": 7, "controller": 15, "channel": 15, "dimm_in_channel": 1, "slot": LARGEST_SLOT_COUNT}


class BadTable(Exception):
    """What is wrong, with file and line."""

    def __init__(self, path, line, reason):
        super().__init__(f"{path}:{line}: {reason}")


class Platform(NamedTuple):
    line: int
    id: int
    slots: int
    map: str


class SlotMap(NamedTuple):
    path: str
    platforms: list  # ids that its comment names
    rows: list  # (line, {column: value})

    @property
    def last_line(self):
        return self.rows[-1][0]


def read_table(path, columns):
    """Comment lines, and the rows below the header line as texts; both with their line numbers."""
    comments, rows = [], []
    header = None
    number = 1
    with open(path, encoding="latin-1") as source:
        for number, line in enumerate(source, 1):
            line = line.rstrip("\n")
            if not line.isascii():
                raise BadTable(path, number, "not ASCII")
            if line.startswith("#"):
                comments.append((number, line))
            elif header is None:
                header = line.split(",")
                if header != columns:
                    raise BadTable(path, number, f"the header line is not {','.join(columns)}")
            elif len(line.split(",")) != len(columns):
                raise BadTable(path, number, f"not {len(columns)} values: {line!r}")
            else:
                rows.append((number, dict(zip(columns, line.split(",")))))
    if not rows:
        raise BadTable(path, number, "no rows")
    return comments, rows


def number_in(path, line, column, text, smallest, largest):
    if not re.fullmatch(r"0|[1-9][0-9]{0,8}", text):
        raise BadTable(path, line, f"{column} is no decimal number: {text!r}")
    if not smallest <= int(text) <= largest:
        raise BadTable(path, line, f"{column} is {text}, not {smallest} to {largest}")
    return int(text)


def read_platforms(path):
    _, rows = read_table(path, PLATFORM_COLUMNS)
    platforms = []
    for line, row in rows:
        if not re.fullmatch(r"0x[0-9A-F]{8}", row["platform_id"]):
            raise BadTable(path, line, f"platform_id is not 0x and eight upper-case digits: {row['platform_id']!r}")
        platform = int(row["platform_id"], 16)
        if any(platform == earlier.id for earlier in platforms):
            raise BadTable(path, line, f"{row['platform_id']} is there twice")
        slots = number_in(path, line, "slots", row["slots"], 1, LARGEST_SLOT_COUNT)
        platforms.append(Platform(line, platform, slots, row["map"]))
    if len(platforms) != PLATFORM_COUNT:
        raise BadTable(path, platforms[-1].line, f"{len(platforms)} platforms, not {PLATFORM_COUNT}")
    return platforms


def platforms_named_in(path, comments):
    for _, comment in comments:
        named = re.match(r"# Platforms? (0x[0-9A-F]{8}(?:, 0x[0-9A-F]{8})*): ", comment)
        if named:
            return [int(platform, 16) for platform in named.group(1).split(", ")]
    raise BadTable(path, 1, "no comment line that begins with '# Platform 0x........: '")


def read_map(path):
    comments, texts = read_table(path, list(LIMITS))
    rows = []
    for line, row in texts:
        smallest = {"slot": 1}
        values = {
            column: number_in(path, line, column, text, smallest.get(column, 0), LIMITS[column])
            for column, text in row.items()
        }
        rows.append((line, values))
    return SlotMap(path, platforms_named_in(path, comments), rows)


def check_rows(slot_map):
    lines, controllers = {}, {}
    for position, (line, row) in enumerate(slot_map.rows, 1):
        if row["slot"] != position:
            raise BadTable(slot_map.path, line, f"slot is {row['slot']}, but the row is number {position}")
        channel = (row["socket"], row["channel"])
        place = (*channel, row["dimm_in_channel"])
        if place in lines:
            raise BadTable(slot_map.path, line, f"the same socket, channel and position as in line {lines[place]}")
        lines[place] = line
        other, earlier = controllers.setdefault(channel, (row["controller"], line))
        if other != row["controller"]:
            raise BadTable(slot_map.path, line, f"the channel is of another controller than in line {earlier}")


def check_platforms(slot_map, platforms):
    users = [platform for platform in platforms if platform.map == name_of(slot_map)]
    if [user.id for user in users] != slot_map.platforms:
        listed = ", ".join(f"0x{user.id:08X}" for user in users) or "none"
        raise BadTable(slot_map.path, 1, f"the comment names other platforms than the list, which has {listed}")
    if name_of(slot_map) != f"{users[0].id:08x}":
        raise BadTable(slot_map.path, 1, f"the file's name is not that of its first platform, {users[0].id:08x}.csv")
    for user in users:
        if len(slot_map.rows) != user.slots:
            raise BadTable(
                slot_map.path, slot_map.last_line, f"{len(slot_map.rows)} slots, but 0x{user.id:08X} has {user.slots}"
            )


def check_maps_are_there(path, platforms, maps):
    names = {name_of(slot_map) for slot_map in maps}
    for platform in platforms:
        if platform.map not in names:
            raise BadTable(path, platform.line, f"there is no map {platform.map!r}")


def name_of(slot_map):
    return os.path.splitext(os.path.basename(slot_map.path))[0]


def write_tables(platforms, maps, path):
    with open(path, "w", encoding="ascii") as table:
        table.write('// Made from platforms.csv and slot_maps/*.csv.\n#include "orva_vpdd.h"\n')
        for slot_map in maps:
            table.write(f"\nconst DimmSlotMapRow mem_slots_{name_of(slot_map)}[{len(slot_map.rows)}] = {{\n")
            for _, row in slot_map.rows:
                table.write(f"    {{{', '.join(str(row[column]) for column in LIMITS)}}},\n")
            table.write("};\n")
        table.write(f"\nPlatMemSlot platMemSlots[{len(platforms)}] = {{\n")
        for platform in platforms:
            table.write(f"    {{0x{platform.id:08X}, {{mem_slots_{platform.map}, {platform.slots}}}}},\n")
        table.write("};\n")


def main(target, platform_list, *map_files):
    try:
        platforms = read_platforms(platform_list)
        maps = [read_map(path) for path in map_files]
        check_maps_are_there(platform_list, platforms, maps)
        for slot_map in maps:
            check_rows(slot_map)
            check_platforms(slot_map, platforms)
    except BadTable as error:
        sys.exit(str(error))
    write_tables(platforms, maps, target)


if __name__ == "__main__":
    main(*sys.argv[1:])
