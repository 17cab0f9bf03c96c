"""Where what ships looks for its libraries: beside itself, never in the folder in which somebody starts it."""

import unittest

from elf_files import BUILD, LIBRARIES, PROGRAMS, library_paths


class LibraryPaths(unittest.TestCase):
    def test_every_entry_is_a_folder_below_the_build(self):
        for file in PROGRAMS + LIBRARIES:
            entries = library_paths(file)
            self.assertTrue(entries, file.name)
            for entry in entries:
                self.assertRegex(entry, r"^\$ORIGIN(/|$)", file.name)
                folder = file.parent / entry.replace("$ORIGIN", ".")
                self.assertEqual(folder.resolve(), (BUILD / "lib").resolve(), file.name)


if __name__ == "__main__":
    unittest.main()
