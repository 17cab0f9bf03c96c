#!/usr/bin/env python3
"""The build in TAMREL_BUILD_DIR, one by Clang, looks at the locks (thread_safety_test.py) while it compiles."""
import json
import os
import pathlib
import shlex
import unittest

from thread_safety_test import CHECKED, CHECKS, SOURCE

BUILD = pathlib.Path(os.environ["TAMREL_BUILD_DIR"])


class WarningsTest(unittest.TestCase):
    def test_each_source_is_compiled_with_the_checks(self):
        entries = json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))
        # Joined sources stand below the build, in a folder of the same name.
        commands = {entry["file"]: shlex.split(entry["command"]) for entry in entries
                    if any(os.path.relpath(entry["file"], root).startswith(CHECKED) for root in (SOURCE, BUILD))}
        self.assertGreater(len(commands), 20)
        for file, command in commands.items():
            self.assertEqual([word for word in CHECKS if word not in command], [], file)
            undone = [word for word in command if word.startswith(("-Wno-thread-safety", "-Wno-error")) or word == "-w"]
            self.assertEqual(undone, [], file)


if __name__ == "__main__":
    unittest.main()
