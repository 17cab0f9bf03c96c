"""What "cmake --install" puts where: everything that the units and the programs' built-in paths need, in one piece."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["TAMREL_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["TAMREL_BUILD_DIR"])


def cached(name):
    """A value of the build's configuration."""
    found = re.search(r"^%s:\w+=(.*)$" % name, (BUILD / "CMakeCache.txt").read_text(), re.M)
    return found.group(1) if found else None


class InstalledFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="vrx-install-")
        cls.addClassCleanup(folder.cleanup)
        cls.tree = pathlib.Path(folder.name)
        done = subprocess.run(["cmake", "--install", str(BUILD)], env=dict(os.environ, DESTDIR=folder.name), text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if done.returncode != 0:
            raise AssertionError(done.stdout)
        cls.prefix = cls.at(cached("CMAKE_INSTALL_PREFIX"))
        cls.root = cls.at(cached("TAMREL_PRODUCT_ROOT"))

    @classmethod
    def at(cls, path):
        """Where an installed path is during the test."""
        return cls.tree / path.lstrip("/")

    def unit(self, name):
        found = list(self.tree.rglob(name + ".service"))
        self.assertEqual(len(found), 1, name)
        return found[0].read_text(encoding="utf-8")

    def test_the_units_name_programs_and_a_module_that_are_there(self):
        for name in ("vrx-agentd", "vrx-backendd"):
            lines = re.findall(r"^Exec\w+=(.*)$", self.unit(name), re.M)
            self.assertTrue(lines, name)
            for line in lines:
                for word in line.split():
                    if word.startswith("/"):
                        self.assertTrue(self.at(word).is_file(), word)
            self.assertNotRegex(self.unit(name), "@[A-Z_]+@", "a path that CMake has not filled in")

    def test_the_product_root_leads_to_configuration_and_state(self):
        links = {name: os.readlink(self.root / name) for name in ("conf", "etc", "state")}
        self.assertEqual(links["conf"], links["etc"])
        shipped = {file.name for folder in ("conf", "etc") for file in (SOURCE / "share" / folder).iterdir()}
        self.assertEqual({file.name for file in self.at(links["conf"]).iterdir()}, shipped)
        state_folders = [line.split()[1] for file in self.tree.rglob("tmpfiles.d/vrx.conf")
                         for line in file.read_text().splitlines() if line.startswith("d ")]
        self.assertEqual(state_folders, [links["state"]])

    def test_the_mib_modules_are_there_as_texts_and_for_the_agent(self):
        texts = {file.name for file in (SOURCE / "mibs").glob("VRX-*") if not file.suffix}
        self.assertEqual({file.name for file in (self.prefix / "share/snmp/mibs").iterdir()}, texts)
        self.assertEqual({file.name for file in (self.root / "mibs").iterdir()},
                         {file.name for file in (SOURCE / "mibs").glob("*.xml")})

    def test_every_man_page_is_in_its_section(self):
        installed = {(file.parent.name, file.name) for file in self.prefix.rglob("man/man*/*")}
        self.assertEqual(installed, {("man" + file.suffix[1:], file.name) for file in (SOURCE / "docs/man").iterdir()})

    def test_programs_find_their_libraries_in_a_folder_of_their_own(self):
        private = next(self.tree.rglob("libvrx_core.so")).parent
        self.assertEqual({file.name for file in private.iterdir()},
                         {"libvrx_core.so", "libvrx_services.so", "libsnmp_tamrel.so"})
        programs = [*self.prefix.glob("sbin/*"), *self.prefix.glob("bin/*")]
        self.assertEqual({file.name for file in programs}, {"vrx-agentd", "vrx-backendd", "vrxctl"})
        for file in programs + list(private.iterdir()):
            said = subprocess.run(["readelf", "-d", str(file)], stdout=subprocess.PIPE, text=True, check=True).stdout
            paths = re.findall(r"\(R(?:UN)?PATH\).*\[(.*)\]", said)
            self.assertEqual(len(paths), 1, file.name)
            self.assertRegex(paths[0], r"^\$ORIGIN(/[^:]+)?$", file.name)
            folder = file.parent / paths[0].replace("$ORIGIN", ".")
            self.assertEqual(folder.resolve(), private.resolve(), file.name)


if __name__ == "__main__":
    unittest.main()
