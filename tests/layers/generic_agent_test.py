"""What the host knows of the one module by name stands in the rooms that are for it: a second module needs no edits elsewhere."""

import os
import pathlib
import re
import subprocess
import unittest

SOURCE = pathlib.Path(os.environ.get("TAMREL_SOURCE_DIR") or pathlib.Path(__file__).resolve().parents[2])
HOMES = ("host/agent/tamrel/", "host/notification_log/tamrel_notifications.h", "tools/export/snmp_objects.h")
OBJECTS = re.compile(r"99871(\.|, *)2(\.|, *)(91|251)")  # the module's OIDs, as text or as numbers
SYMBOLS = re.compile(r'"_Z')                            # its operations


def facts(pattern):
    """The files of host and tools outside the homes whose code, comments aside, has the pattern."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", "host", "tools"],
                            cwd=SOURCE, check=True, capture_output=True, text=True).stdout.split()
    sources = [name for name in listed if name.endswith((".h", ".cpp")) and (SOURCE / name).is_file()]
    found = {name for name in sources
             if pattern.search(re.sub(r"//.*", "", (SOURCE / name).read_text(encoding="utf-8")))}
    return {name for name in found if not name.startswith(HOMES)}, found


class GenericAgent(unittest.TestCase):
    def test_object_identifiers_of_the_module_stand_in_their_homes(self):
        elsewhere, found = facts(OBJECTS)
        self.assertEqual(sorted(elsewhere), [])
        self.assertEqual(len(found), 5, found)  # a pattern that finds nothing would hold nothing

    def test_its_mangled_names_stand_in_their_home(self):
        elsewhere, found = facts(SYMBOLS)
        self.assertEqual(sorted(elsewhere), [])
        self.assertEqual(len(found), 1, found)


if __name__ == "__main__":
    unittest.main()
