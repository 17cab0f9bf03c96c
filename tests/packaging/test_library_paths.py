"""Where what ships looks for its libraries: beside itself, never in the folder in which somebody starts it."""

import re
import unittest

from elf_files import BUILD, LIBRARIES, PROGRAMS, readelf


class LibraryPaths(unittest.TestCase):
    def test_every_entry_is_a_folder_below_the_build(self):
        for file in PROGRAMS + LIBRARIES:
            paths = re.findall(r"\(R(?:UN)?PATH\).*\[(.*)\]", readelf(file, "--dynamic"))
            self.assertEqual(len(paths), 1, file.name)
            for entry in paths[0].split(":"):
                self.assertRegex(entry, r"^\$ORIGIN(/|$)", "%s: %s" % (file.name, paths[0]))
                folder = file.parent / entry.replace("$ORIGIN", ".")
                self.assertEqual(folder.resolve(), (BUILD / "lib").resolve(), file.name)


if __name__ == "__main__":
    unittest.main()
