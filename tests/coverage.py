#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows the coverage of each folder of the library, and fails below its bounds.

usage: coverage.py SUMMARY, which gcovr --json-summary has written
"""

import json
import sys

DECODERS = (
    "ipmi/field_walk",
    "ipmi/fru_format",
    "ipmi/multirecord",
    "ipmi/psu_firmware",
    "property/property_list",
    "property/tlv",
    "smbios/",
    "spd/",
)

# Branches of the decoders that no input reaches, see docs/testing.md. All others must be reached.
UNREACHABLE = {"spd/geometry.cpp": 3, "spd/names.cpp": 1}

# Percent.
LEAST_LINES = 95
LEAST_BRANCHES = 90

KINDS = ("line", "branch")


class Row:
    """What is covered, and what there is, of some files."""

    def __init__(self, name, files):
        self.name = name
        self.covered = {kind: sum(file[kind + "_covered"] for file in files) for kind in KINDS}
        self.total = {kind: sum(file[kind + "_total"] for file in files) for kind in KINDS}

    def reaches(self, kind, percent):
        return self.covered[kind] * 100 >= self.total[kind] * percent

    def __str__(self):
        return f"{self.name:10}" + "".join(f"{self._figure(kind):>22}" for kind in KINDS)

    def _figure(self, kind):
        covered, total = self.covered[kind], self.total[kind]
        # Rounded down: nothing short of everything reads as 100 %.
        percent = covered * 1000 // total / 10 if total else 100.0
        return f"{covered}/{total} {percent:5.1f} %"


def complaints(library, decoder_files):
    for kind, percent in (("line", LEAST_LINES), ("branch", LEAST_BRANCHES)):
        if not library.reaches(kind, percent):
            yield f"less than {percent} % of the library: {kind}"
    for file in decoder_files:
        name, missed = file["filename"], file["branch_total"] - file["branch_covered"]
        if missed > UNREACHABLE.get(name, 0):
            yield f"branches of a decoder that no test reaches: {name}, {missed}"


def main():
    with open(sys.argv[1], encoding="utf-8") as summary:
        files = json.load(summary)["files"]
    folders = {}
    for file in files:
        folders.setdefault(file["filename"].split("/")[0], []).append(file)
    decoder_files = [file for file in files if file["filename"].startswith(DECODERS)]
    library = Row("library", files)

    print(f"{'':10}{'lines':>22}{'branches':>22}")
    for row in [*(Row(name, folders[name]) for name in sorted(folders)), Row("decoders", decoder_files), library]:
        print(row)
    failures = list(complaints(library, decoder_files))
    for failure in failures:
        print(failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
