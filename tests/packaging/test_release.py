"""What a release says of itself: one version everywhere, and a reason for each package that a build or an installation asks for."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from installation import SOURCE

DEBIAN = SOURCE / "packaging/debian"


def text(name):
    return (SOURCE / name).read_text(encoding="utf-8")


def paragraphs(control):
    """Fields of each paragraph of a control file, without its comments."""
    found = []
    for paragraph in re.sub(r"(?m)^#.*\n", "", control).strip().split("\n\n"):
        fields = re.findall(r"(?ms)^([A-Z][\w-]*):[ \n]*(.*?)(?=^[A-Z]|\Z)", paragraph + "\n")
        found.append({name: value.strip() for name, value in fields})
    return found


def names(relations):
    return [re.match(r"[a-z0-9.+-]+", item.strip()).group() for item in relations.split(",")
            if item.strip() and not item.strip().startswith("$")]


class Release(unittest.TestCase):
    def test_the_version_is_one(self):
        version = re.search(r"project\(.* VERSION (\S+) ", text("CMakeLists.txt")).group(1)
        versions = re.findall(r"(?m)^## (\d+\.\d+\.\d+) \(", text("CHANGELOG.md"))
        self.assertEqual(versions[0], version)
        packaged = re.findall(r"(?m)^vrx \((.*)\)", text("packaging/debian/changelog"))
        self.assertEqual(packaged, ["@VERSION@"] + versions[1:])

    def test_each_part_moved_out_of_the_one_package_replaces_it(self):
        for package in paragraphs(text("packaging/debian/control"))[1:]:
            if package["Package"] in ("vrx", "libvrx-dev"):
                continue
            for field in ("Breaks", "Replaces"):
                self.assertEqual(package.get(field), "vrx (<< 0.2.0~)", package["Package"])

    def test_the_whole_is_its_parts(self):
        packages = {package["Package"]: package for package in paragraphs(text("packaging/debian/control"))[1:]}

        def with_dependencies(name):
            found = {name}
            for other in names(packages[name].get("Depends", "")):
                if other in packages:
                    found |= with_dependencies(other)
            return found
        self.assertEqual(with_dependencies("vrx"), set(packages) - {"libvrx-dev"})
        self.assertNotIn("vrx-backend", with_dependencies("vrx-agent"))

    def test_each_package_on_a_list_has_its_reason(self):
        lists = sorted((SOURCE / "scripts").glob("packages*.txt"))
        self.assertGreater(len(lists), 5)
        for file in lists:
            for line in file.read_text(encoding="utf-8").splitlines():
                if line.strip() and not line.startswith("#"):
                    self.assertRegex(line, r"^\S+ +# \w+", "%s: no reason" % file.name)

    def test_each_package_that_a_build_needs_has_its_reason(self):
        field = re.search(r"(?ms)^Build-Depends:\n(.*?)^[A-Z]", text("packaging/debian/control")).group(1)
        blocks = re.split(r"(?m)^(#.*\n)", field)
        self.assertEqual(blocks[0], "", "packages before the first reason")
        built_with = set(names(re.sub(r"(?m)^#.*\n", "", field)))
        self.assertGreater(len(built_with), 10)
        # What is linked or compiled in is on the list that programs are built with, and the other way round.
        listed = set(re.findall(r"(?m)^(\S+-dev) ", text("scripts/packages.txt")))
        self.assertEqual({name for name in built_with if name.endswith("-dev")}, listed)


class PreviousVersion(unittest.TestCase):
    """A history of its own: 0.1.0 in two commits, 0.2.0 in two more."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vrx-history-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "scripts").mkdir()
        shutil.copy(SOURCE / "scripts/previous-version", self.folder / "scripts")
        self.git("init", "--quiet")

    def git(self, *words):
        return subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@vrx.invalid", *words], cwd=self.folder,
                              stdout=subprocess.PIPE, text=True, check=True).stdout.strip()

    def commit(self, version, line):
        (self.folder / "CMakeLists.txt").write_text("project(some VERSION %s LANGUAGES CXX)\n%s\n" % (version, line))
        self.git("add", "CMakeLists.txt")
        self.git("commit", "--quiet", "--message", line)
        return self.git("rev-parse", "HEAD")

    def found(self):
        return subprocess.run(["scripts/previous-version"], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False)

    def test_without_a_tag_it_is_the_last_commit_of_another_version(self):
        self.commit("0.1.0", "first")
        last = self.commit("0.1.0", "second")
        self.commit("0.2.0", "third")
        self.commit("0.2.0", "fourth")
        found = self.found()
        self.assertEqual(found.stdout.split(), [last])
        self.assertEqual(found.stderr, "previous-version: no tag of a version before 0.2.0: the last commit of 0.1.0, %s\n" % last[:12])

    def test_a_tag_of_another_version_comes_first(self):
        tagged = self.commit("0.1.0", "first")
        self.git("tag", "--annotate", "--message", "0.1.0", "v0.1.0")
        self.commit("0.1.0", "second")
        self.commit("0.2.0", "third")
        self.git("tag", "v0.2.0")
        found = self.found()
        self.assertEqual(found.stdout.split(), [tagged])
        self.assertEqual(found.stderr, "previous-version: v0.1.0, %s\n" % tagged[:12])

    def test_a_tag_of_a_candidate_is_no_version(self):
        last = self.commit("0.1.0", "first")
        self.git("tag", "v0.1.0-rc1")
        self.commit("0.2.0", "second")
        self.git("tag", "v0.2.0-rc1")
        self.commit("0.2.0", "third")
        self.assertEqual(self.found().stdout.split(), [last])

    def test_a_first_version_has_none(self):
        self.commit("0.1.0", "first")
        self.assertEqual(self.found().returncode, 1)


if __name__ == "__main__":
    unittest.main()
