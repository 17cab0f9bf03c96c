"""What scripts/reproduce tells: whether packages are the same, and where they are not."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from installation import SOURCE


class SamePackages(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vrx-same-packages-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def package(self, place, name="some", text="a\nb\nc\n", mode=0o644, when=86400):
        tree = self.folder / (place + "-" + name)
        (tree / "DEBIAN").mkdir(parents=True)
        (tree / "DEBIAN/control").write_text("Package: %s\nVersion: 1\nArchitecture: all\nMaintainer: A <a@vrx.invalid>\n"
                                             "Description: some\n" % name)
        file = tree / "usr/share/some"
        file.parent.mkdir(parents=True)
        file.write_text(text)
        file.chmod(mode)
        for path in [tree, *tree.rglob("*")]:
            os.utime(path, (when, when))
        (self.folder / place).mkdir(exist_ok=True)
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "-b", tree, self.folder / place / (name + ".deb")], check=True,
                       stdout=subprocess.DEVNULL, env=dict(os.environ, SOURCE_DATE_EPOCH="86400"))

    def compare(self):
        done = subprocess.run([SOURCE / "packaging/same-packages", self.folder / "one", self.folder / "other"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, done.stdout

    def test_the_same_are_counted(self):
        for place in ("one", "other"):
            self.package(place)
            self.package(place, "more")
        self.assertEqual(self.compare(), (0, "2 packages are the same, byte for byte\n"))

    def test_the_first_byte_that_differs_is_named(self):
        self.package("one")
        self.package("one", "more")
        self.package("other", text="a\nB\nc\n")
        self.package("other", "more")
        status, said = self.compare()
        self.assertEqual(status, 1)
        self.assertIn("the first difference is in some.deb:\n", said)
        self.assertRegex(said, r"usr/share/some.*differ: byte 3, line 2\n")
        self.assertIn("1 of 2 packages differ\n", said)

    def test_another_mode_or_time_is_a_difference(self):
        for other, line in (({"mode": 0o600}, r"> -rw------- .* \./usr/share/some\n"),
                            ({"when": 3600}, r"> drwxr-xr-x .* 1970-01-01 \d\d:00:00 \./\n")):
            with self.subTest(other):
                self.package("one")
                self.package("other", **other)
                status, said = self.compare()
                self.assertEqual(status, 1)
                self.assertRegex(said, line)
                for path in self.folder.iterdir():
                    shutil.rmtree(path)

    def test_a_package_that_is_missing_is_a_difference(self):
        self.package("one")
        self.package("one", "more")
        self.package("other")
        status, said = self.compare()
        self.assertEqual(status, 1)
        self.assertIn("more.deb", said)


if __name__ == "__main__":
    unittest.main()
