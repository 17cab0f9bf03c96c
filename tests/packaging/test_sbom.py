"""The SBOM of this build, and what makes it fail: a library without a row, a row without a library, a licence that is
another one, a notice that is missing."""

import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from elf_files import BUILD, LIBRARIES, PROGRAMS, readelf
from installation import SOURCE

LICENCES = SOURCE / "packaging/licences.txt"
NOTICES = SOURCE / "packaging/debian/copyright"


class Sbom(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vrx-sbom-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def make(self, licences=LICENCES, notices=NOTICES, created="1", path=""):
        multiarch = subprocess.run(["g++", "-print-multiarch"], stdout=subprocess.PIPE, text=True,
                                   check=True).stdout.strip()
        return subprocess.run(
            [SOURCE / "packaging/sbom", "--objects", BUILD, "--version", "1.2.3", "--multiarch", multiarch, "--created", created,
             "--licences", licences, "--copyright", notices, *PROGRAMS, *LIBRARIES],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
            env=dict(os.environ, PATH=path + os.environ["PATH"]))

    def changed(self, file, pattern, replacement):
        text, changes = re.subn(pattern, replacement, file.read_text(encoding="utf-8"), flags=re.M)
        self.assertGreater(changes, 0, pattern)
        copy = self.folder / file.name
        copy.write_text(text, encoding="utf-8")
        return copy

    def test_each_library_that_is_linked_is_a_package_with_version_and_licence(self):
        done = self.make()
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        bill = json.loads(done.stdout)
        self.assertEqual(bill["spdxVersion"], "SPDX-2.3")
        packages = {package["SPDXID"]: package for package in bill["packages"]}
        links = {}
        for relation in bill["relationships"]:
            self.assertIn(relation["relatedSpdxElement"], packages)
            if relation["relationshipType"] == "DYNAMIC_LINK":
                links.setdefault(packages[relation["spdxElementId"]]["name"], set()).add(relation["relatedSpdxElement"])
        for file in PROGRAMS + LIBRARIES:
            needed = re.findall(r"\(NEEDED\).*\[(.*)\]", readelf(file, "--dynamic"))
            own = {library.name for library in LIBRARIES} & set(needed)
            names = {packages[element]["name"] for element in links[file.name]}
            self.assertLessEqual(own, names)
            # Fewer packages than libraries: some bring several.
            self.assertTrue(names - own and len(names - own) <= len(set(needed) - own), file.name)
        for package in packages.values():
            self.assertNotIn(package["licenseConcluded"], ("", "NOASSERTION"), package["name"])
            self.assertTrue(package["versionInfo"], package["name"])
        self.assertLessEqual({"libace-dev", "libcli11-dev", "libfmt-dev", "nlohmann-json3-dev", "libspdlog-dev"},
                             {packages[relation["relatedSpdxElement"]]["name"] for relation in bill["relationships"]
                              if relation["relationshipType"] == "CONTAINS"})

    def test_headers_of_a_cross_compiler_have_the_row_of_their_library(self):
        # A dpkg-query that takes the C library's headers for those that Debian has for its cross compilers.
        query = self.folder / "dpkg-query"
        query.write_text("""#!/bin/sh
case "$*" in
  --search*) /usr/bin/dpkg-query "$@" | sed 's/^libc6-dev[:a-z0-9]*: /libc6-dev-other-cross: /' ;;
  *-other-cross) echo 'libc6-dev-other-cross|1cross1|all|cross-toolchain-base|1' ;;
  *) exec /usr/bin/dpkg-query "$@" ;;
esac
""")
        query.chmod(0o755)
        done = self.make(path="%s:" % self.folder)
        # The row is known; the copyright file of a package that is not installed is not.
        self.assertEqual(done.stderr, 'sbom: libc6-dev-other-cross: its copyright file has no "GNU Lesser General Public"\n')

    def test_it_is_the_same_for_the_same_files(self):
        self.assertEqual(self.make().stdout, self.make().stdout)

    def test_a_library_without_a_row_is_a_fault(self):
        done = self.make(licences=self.changed(LICENCES, r"^curl .*\n", ""))
        self.assertEqual(done.returncode, 1)
        self.assertIn("libcurl4 (of source package curl) has no row", done.stderr)

    def test_a_row_without_a_library_is_a_fault(self):
        done = self.make(licences=self.changed(LICENCES, r"^(curl .*)$", r"\1\nzlib | linked | Zlib | License: Zlib"))
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "sbom: zlib has a row in licences.txt and is not used\n")

    def test_another_licence_than_that_of_the_row_is_a_fault(self):
        done = self.make(licences=self.changed(LICENCES, "License: curl", "License: another"))
        self.assertEqual(done.returncode, 1)
        self.assertIn('libcurl4: its copyright file has no "License: another"', done.stderr)

    def test_code_that_is_compiled_in_without_a_notice_is_a_fault(self):
        done = self.make(notices=self.changed(NOTICES, r"^  cli11 .*\n", ""))
        self.assertEqual(done.returncode, 1)
        self.assertIn('no notice "cli11 (BSD-3-Clause)"', done.stderr)

    def test_a_notice_of_what_is_not_compiled_in_is_a_fault(self):
        done = self.make(notices=self.changed(NOTICES, r"^(  cli11 .*)$", r"\1\n  zlib (Zlib)"))
        self.assertEqual(done.returncode, 1)
        self.assertIn("zlib has a notice", done.stderr)


if __name__ == "__main__":
    unittest.main()
