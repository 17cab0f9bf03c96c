#!/usr/bin/env python3
"""Holds the source tree to layers.txt: which room may include which.

    layers_test.py           the tests
    layers_test.py --draw    the rooms by level, with their lines and the rooms that each includes
"""
import collections
import os
import pathlib
import re
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(os.environ.get("TAMREL_SOURCE_DIR") or pathlib.Path(__file__).resolve().parents[2])
TABLE = SOURCE / "tests" / "layers" / "layers.txt"
OUTSIDE = ("tests", "bench", "fuzz")  # proofs and measurements may include what they like
LARGEST_SHARE = 0.15                  # of the host's lines, for one room
LONGEST_README = 30                   # lines of a room's README
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


class Table:
    """Rows `room: room, room` and exceptions `file: file  # reason`."""

    def __init__(self, text):
        self.rows, self.exceptions, self.faults = {}, {}, []
        for number, line in enumerate(text.splitlines(), 1):
            entry, _, reason = line.partition("#")
            if not entry.strip():
                continue
            owner, colon, targets = entry.partition(":")
            owner = owner.strip()
            names = [name.strip() for name in targets.split(",") if name.strip()]
            if not colon or not owner:
                self.faults.append(f"line {number}: no row: {line}")
            elif any(name.endswith((".h", ".cpp")) for name in [owner, *names]):
                if not reason.strip():
                    self.faults.append(f"line {number}: an exception without its reason")
                self.exceptions.setdefault(owner, []).extend(names)
            elif owner in self.rows:
                self.faults.append(f"line {number}: a second row for {owner}")
            else:
                self.rows[owner] = names


class Tree:
    """Every source file outside the proofs, with its room and what it includes of ours."""

    def __init__(self, root):
        listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", "*.h", "*.cpp"],
                                cwd=root, check=True, capture_output=True, text=True).stdout.split("\n")
        files = [name for name in listed if name and name.split("/")[0] not in OUTSIDE and (root / name).is_file()]
        texts = {name: (root / name).read_text(encoding="utf-8") for name in files}
        self.lines = collections.Counter()
        for name, text in texts.items():
            self.lines[room_of(name)] += text.count("\n")
        self.includes = {name: [self._resolve(root, name, target) for target in INCLUDE.findall(text)]
                         for name, text in texts.items()}

    @staticmethod
    def _resolve(root, name, target):
        """Headers of the value types are included as those of installed libraries are: below compat/."""
        for candidate in (target, f"compat/{target}", f"{os.path.dirname(name)}/{target}"):
            if (root / candidate).is_file():
                return candidate
        return target


def room_of(name):
    room = os.path.dirname(name)
    return "compat" if room.split("/")[0] == "compat" else room


def allowance(table, name, target):
    """Which row lets `name` include `target`: (owner, entry), or None."""
    for owner in (room_of(name), name):
        if room_of(target) in table.rows.get(owner, []):
            return owner, room_of(target)
        for entry in (target, room_of(target)):
            if entry in table.exceptions.get(owner, []):
                return owner, entry
    return None


def cycle_in(edges):
    """A cycle as a list of its nodes, or None."""
    state = {}

    def visit(node, path):
        state[node] = "open"
        for target in edges.get(node, []):
            if state.get(target) == "open":
                return path[path.index(target):] + [target] if target in path else [node, target]
            if target not in state:
                found = visit(target, path + [target])
                if found:
                    return found
        state[node] = "done"
        return None

    for node in sorted(edges):
        if node not in state:
            found = visit(node, [node])
            if found:
                return found
    return None


def levels_of(rows):
    """Level 0 includes nothing of ours; each room is one above the highest that it includes."""
    levels = {}

    def level(room):
        if room not in levels:
            levels[room] = 1 + max((level(target) for target in rows.get(room, [])), default=-1)
        return levels[room]

    for room in rows:
        level(room)
    return levels


class LayersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.table = Table(TABLE.read_text(encoding="utf-8"))
        cls.tree = Tree(SOURCE)
        cls.crossing = [(name, target) for name, targets in cls.tree.includes.items() for target in targets
                        if room_of(target) != room_of(name)]

    def test_the_table_can_be_read(self):
        self.assertEqual(self.table.faults, [])
        self.assertGreater(len(self.tree.includes), 200)

    def test_every_room_has_a_row(self):
        self.assertEqual(sorted(self.tree.lines), sorted(self.table.rows))

    def test_every_include_is_allowed(self):
        self.assertEqual([f"{name} includes {target}" for name, target in self.crossing
                          if allowance(self.table, name, target) is None], [])

    def test_every_entry_is_used(self):
        used = {allowance(self.table, name, target) for name, target in self.crossing}
        entries = [(owner, entry) for table in (self.table.rows, self.table.exceptions)
                   for owner, names in table.items() for entry in names]
        self.assertEqual([f"{owner}: {entry}" for owner, entry in entries if (owner, entry) not in used], [])

    def test_rooms_have_no_cycle(self):
        self.assertIsNone(cycle_in(self.table.rows))

    def test_files_have_no_cycle(self):
        self.assertIsNone(cycle_in(self.tree.includes))

    def test_no_room_of_the_host_is_large(self):
        host = {room: lines for room, lines in self.tree.lines.items() if room.startswith("host/")}
        most = LARGEST_SHARE * sum(host.values())
        self.assertEqual([room for room, lines in host.items() if lines > most], [])

    def test_every_room_of_the_host_has_a_short_readme(self):
        for room in self.tree.lines:
            if not room.startswith("host/") or room == "host/agent":
                continue
            readme = SOURCE / room / "README.md"
            self.assertTrue(readme.is_file(), f"{room} has no README.md")
            self.assertLessEqual(readme.read_text(encoding="utf-8").count("\n"), LONGEST_README, room)


class ReadingTest(unittest.TestCase):
    """What the checks above stand on."""

    def test_exceptions_need_a_reason(self):
        self.assertEqual(Table("a: b/c.h").faults, ["line 1: an exception without its reason"])
        self.assertEqual(Table("a: b/c.h  # the base class").exceptions, {"a": ["b/c.h"]})

    def test_a_room_is_allowed_by_its_row_a_file_by_its_exception(self):
        table = Table("a: b\nc/d.h: e/f.h  # reason")
        self.assertEqual(allowance(table, "a/x.cpp", "b/y.h"), ("a", "b"))
        self.assertEqual(allowance(table, "c/d.h", "e/f.h"), ("c/d.h", "e/f.h"))
        self.assertIsNone(allowance(table, "c/d.cpp", "e/f.h"))
        self.assertIsNone(allowance(table, "b/y.h", "a/x.h"))

    def test_cycles_are_found(self):
        self.assertEqual(cycle_in({"a": ["b"], "b": ["c"], "c": ["a"]}), ["a", "b", "c", "a"])
        self.assertIsNone(cycle_in({"a": ["b", "c"], "b": ["c"], "c": []}))

    def test_levels_count_from_the_bottom(self):
        self.assertEqual(levels_of({"a": ["b"], "b": ["c"], "c": []}), {"a": 2, "b": 1, "c": 0})


def draw():
    table, tree = Table(TABLE.read_text(encoding="utf-8")), Tree(SOURCE)
    levels = levels_of(table.rows)
    arrows = sum(len(targets) for targets in table.rows.values())
    print(f"{len(table.rows)} rooms on {max(levels.values()) + 1} levels, {arrows} arrows, {sum(tree.lines.values())} lines")
    for level in range(max(levels.values()), -1, -1):
        for room in sorted(name for name in levels if levels[name] == level):
            print(f"{level:3}  {room:28} {tree.lines[room]:6}  -> {', '.join(sorted(table.rows[room])) or '-'}")
    host = {room: lines for room, lines in tree.lines.items() if room.startswith("host/")}
    largest = max(host, key=host.get)
    print(f"largest room of the host: {largest}, {host[largest]} of {sum(host.values())} lines, "
          f"{100 * host[largest] / sum(host.values()):.1f} %")
    exceptions = [(owner, name) for owner, names in table.exceptions.items() for name in names]
    upwards = [(owner, name) for owner, name in exceptions
               if levels[room_of(name)] > levels[owner if owner in levels else room_of(owner)]]
    print(f"{len(exceptions)} exceptions for single files, {len(upwards)} of them upwards: " +
          ", ".join(f"{owner} -> {name}" for owner, name in upwards))


if __name__ == "__main__":
    if "--draw" in sys.argv:
        draw()
    else:
        unittest.main()
