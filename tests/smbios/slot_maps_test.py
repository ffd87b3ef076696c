#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What slot_maps.py makes of the boards' maps, and what it refuses.

usage: slot_maps_test.py SCRIPT PLATFORMS
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SCRIPT, PLATFORMS = sys.argv[1:3]
HEADER = "socket,controller,channel,dimm_in_channel,slot\n"
TWO_SLOTS = "# Platform 0x00500088: two slots\n" + HEADER + "0,0,1,0,1\n0,1,2,0,2\n"


class SlotMaps(unittest.TestCase):
    """Each test changes a copy of the good files."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.platforms = shutil.copy(PLATFORMS, folder.name)
        maps = os.path.join(folder.name, "slot_maps")
        shutil.copytree(os.path.join(os.path.dirname(PLATFORMS), "slot_maps"), maps)
        self.maps = sorted(os.path.join(maps, name) for name in os.listdir(maps))
        self.map = os.path.join(maps, "00500088.csv")
        self.table = os.path.join(folder.name, "slot_maps.cpp")

    def make(self):
        command = [sys.executable, SCRIPT, self.table, self.platforms, *self.maps]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def write_map(self, text):
        with open(self.map, "w", encoding="ascii") as file:
            file.write(text)

    def change_platforms(self, old, new):
        with open(self.platforms, encoding="ascii") as file:
            text = file.read()
        self.assertIn(old, text)
        with open(self.platforms, "w", encoding="ascii") as file:
            file.write(text.replace(old, new, 1))

    def assert_refused(self, path, line, reason):
        result = self.make()
        self.assertEqual(result.stderr, f"{path}:{line}: {reason}\n")
        self.assertNotEqual(result.returncode, 0)
        self.assertFalse(os.path.exists(self.table))

    def assert_row_refused(self, row, reason):
        self.write_map(TWO_SLOTS.replace("0,1,2,0,2", row))
        self.assert_refused(self.map, 4, reason)

    def test_makes_a_table_of_the_rows(self):
        result = self.make()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        with open(self.table, encoding="ascii") as file:
            table = file.read()
        self.assertIn("mem_slots_00500088[2] = {\n    {0, 0, 1, 0, 1},\n    {0, 1, 2, 0, 2},\n};", table)
        self.assertIn("    {0x0050007E, {mem_slots_0050007c, 12}},\n", table)
        self.assertEqual(table.count("const DimmSlotMapRow "), 28)

    def test_two_runs_make_the_same(self):
        self.make()
        with open(self.table, "rb") as file:
            first = file.read()
        self.make()
        with open(self.table, "rb") as file:
            self.assertEqual(file.read(), first)

    def test_refuses_fewer_rows_than_the_platform_has_slots(self):
        self.write_map(TWO_SLOTS.replace("0,1,2,0,2\n", ""))
        self.assert_refused(self.map, 3, "1 slots, but 0x00500088 has 2")

    def test_refuses_more_rows_than_the_platform_has_slots(self):
        self.write_map(TWO_SLOTS + "0,1,3,0,3\n")
        self.assert_refused(self.map, 5, "3 slots, but 0x00500088 has 2")

    def test_refuses_a_slot_out_of_order(self):
        self.assert_row_refused("0,1,2,0,3", "slot is 3, but the row is number 2")

    def test_refuses_a_slot_twice(self):
        self.assert_row_refused("0,1,2,0,1", "slot is 1, but the row is number 2")

    def test_refuses_two_slots_in_one_place(self):
        self.assert_row_refused("0,0,1,0,2", "the same socket, channel and position as in line 3")

    def test_refuses_two_slots_in_one_place_of_two_controllers(self):
        self.assert_row_refused("0,1,1,0,2", "the same socket, channel and position as in line 3")

    def test_accepts_the_same_channel_on_another_socket(self):
        self.write_map(TWO_SLOTS.replace("0,1,2,0,2", "1,1,1,0,2"))
        self.assertEqual(self.make().stderr, "")

    def test_refuses_a_channel_of_two_controllers(self):
        self.assert_row_refused("0,1,1,1,2", "the channel is of another controller than in line 3")

    def test_refuses_fields_out_of_range(self):
        self.assert_row_refused("8,1,2,0,2", "socket is 8, not 0 to 7")
        self.assert_row_refused("0,16,2,0,2", "controller is 16, not 0 to 15")
        self.assert_row_refused("0,1,16,0,2", "channel is 16, not 0 to 15")
        self.assert_row_refused("0,1,2,2,2", "dimm_in_channel is 2, not 0 to 1")
        self.assert_row_refused("0,1,2,0,0", "slot is 0, not 1 to 128")
        self.assert_row_refused("0,1,2,0,129", "slot is 129, not 1 to 128")

    def test_refuses_what_is_no_number(self):
        self.assert_row_refused("0,1,-2,0,2", "channel is no decimal number: '-2'")
        self.assert_row_refused("0,1,,0,2", "channel is no decimal number: ''")
        self.assert_row_refused("0,1,02,0,2", "channel is no decimal number: '02'")
        self.assert_row_refused("0, 1,2,0,2", "controller is no decimal number: ' 1'")
        self.assert_row_refused("0,1,0x2,0,2", "channel is no decimal number: '0x2'")

    def test_refuses_a_row_of_another_length(self):
        self.assert_row_refused("0,1,2,0", "not 5 values: '0,1,2,0'")
        self.assert_row_refused("0,1,2,0,2,0", "not 5 values: '0,1,2,0,2,0'")
        self.assert_row_refused("", "not 5 values: ''")

    def test_refuses_another_header_line(self):
        self.write_map(TWO_SLOTS.replace(HEADER, "socket,channel,controller,dimm_in_channel,slot\n"))
        self.assert_refused(self.map, 2, f"the header line is not {HEADER.strip()}")

    def test_refuses_a_map_without_a_header_line(self):
        self.write_map(TWO_SLOTS.replace(HEADER, ""))
        self.assert_refused(self.map, 2, f"the header line is not {HEADER.strip()}")

    def test_refuses_a_map_without_rows(self):
        self.write_map(TWO_SLOTS.splitlines()[0] + "\n" + HEADER)
        self.assert_refused(self.map, 2, "no rows")
        self.write_map("")
        self.assert_refused(self.map, 1, "no rows")

    def test_refuses_a_map_whose_comment_names_no_platform(self):
        self.write_map(TWO_SLOTS.replace("# Platform 0x00500088:", "# Edge server:"))
        self.assert_refused(self.map, 1, "no comment line that begins with '# Platform 0x........: '")

    def test_refuses_a_map_whose_comment_names_another_platform(self):
        self.write_map(TWO_SLOTS.replace("0x00500088", "0x00500089"))
        self.assert_refused(self.map, 1, "the comment names other platforms than the list, which has 0x00500088")

    def test_refuses_a_map_that_no_platform_has(self):
        self.map = self.map.replace("00500088", "00500089")
        self.maps.append(self.map)
        self.write_map(TWO_SLOTS.replace("0x00500088", "0x00500089"))
        self.assert_refused(self.map, 1, "the comment names other platforms than the list, which has none")

    def test_refuses_a_map_under_another_name(self):
        renamed = self.map.replace("00500088", "two")
        os.rename(self.map, renamed)
        self.maps[self.maps.index(self.map)] = renamed
        self.change_platforms("2,00500088", "2,two")
        self.assert_refused(renamed, 1, "the file's name is not that of its first platform, 00500088.csv")

    def test_refuses_a_platform_whose_map_is_not_there(self):
        self.maps.remove(self.map)
        self.assert_refused(self.platforms, 32, "there is no map '00500088'")

    def test_refuses_a_platform_twice(self):
        self.change_platforms("0x00500085,32", "0x00500088,32")
        self.assert_refused(self.platforms, 33, "0x00500088 is there twice")

    def test_refuses_a_platform_too_many_or_too_few(self):
        self.change_platforms("0x0050008B,32,0050008b\n", "")
        self.assert_refused(self.platforms, 33, "29 platforms, not 30")
        self.change_platforms("0x00500085,32,00500085\n", "0x00500085,32,00500085\n0x00500001,2,a\n0x00500002,2,b\n")
        self.assert_refused(self.platforms, 35, "31 platforms, not 30")

    def test_refuses_a_platform_id_of_another_form(self):
        self.change_platforms("0x0050008B", "50008B")
        self.assert_refused(self.platforms, 34, "platform_id is not 0x and eight upper-case digits: '50008B'")

    def test_refuses_a_number_of_slots_out_of_range(self):
        self.change_platforms("0x0050008B,32", "0x0050008B,129")
        self.assert_refused(self.platforms, 34, "slots is 129, not 1 to 128")

    def test_refuses_what_is_no_ascii(self):
        with open(self.map, "ab") as file:
            file.write(b"\xff\n")
        self.assert_refused(self.map, 6, "not ASCII")


unittest.main(argv=sys.argv[:1])
