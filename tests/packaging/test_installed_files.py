"""What "cmake --install" puts where: everything that the units and the programs' built-in paths need, in one piece."""

import os
import re
import unittest

from elf_files import library_paths
from installation import SOURCE, Installation

# What the headers include of each other and of the value types; anything else is the system's or ACE's.
OURS = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<((?:snmp_pp|agent_pp)/[^>]+)>)', re.M)
EMBEDDING = ["platform/*.h", "vrxpub/*.h", "module/snmp_handler.h", "module/vrx_exception.h"]


class InstalledFiles(Installation):
    def unit(self, name):
        found = list(self.tree.rglob(name + ".service"))
        self.assertEqual(len(found), 1, name)
        return found[0].read_text(encoding="utf-8")

    def test_the_units_name_programs_and_a_module_that_are_there(self):
        for name in ("vrx-agentd", "vrx-backendd", "vrx-stream@"):
            lines = re.findall(r"^Exec\w+=(.*)$", self.unit(name), re.M)
            self.assertTrue(lines, name)
            for line in lines:
                for word in line.split():
                    if word.startswith("/"):
                        self.assertTrue(self.at(word).is_file(), word)
            self.assertNotRegex(self.unit(name), "@[A-Z_]+@", "a path that CMake has not filled in")

    def test_a_stream_keeps_its_place_in_the_state_folder(self):
        command = re.search(r"^ExecStart=(.*)$", self.unit("vrx-stream@"), re.M).group(1)
        cursor = re.search(r"--cursor=(\S+)", command).group(1)
        self.assertEqual(os.path.dirname(cursor), os.readlink(self.root / "state"))

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
        libraries = list(private.glob("*.so"))
        self.assertEqual({file.name for file in libraries}, {"libvrx_core.so", "libvrx_services.so", "libsnmp_tamrel.so"})
        self.assertEqual({file.name for file in private.iterdir() if file not in libraries}, {"libvrx_platform.a"})
        programs = [*self.prefix.glob("sbin/*"), *self.prefix.glob("bin/*")]
        self.assertEqual({file.name for file in programs}, {"vrx-agentd", "vrx-backendd", "vrxctl"})
        for file in programs + libraries:
            entries = library_paths(file)
            self.assertEqual(len(entries), 1, file.name)
            self.assertRegex(entries[0], r"^\$ORIGIN(/|$)", file.name)
            folder = file.parent / entries[0].replace("$ORIGIN", ".")
            self.assertEqual(folder.resolve(), private.resolve(), file.name)

    def test_the_headers_for_embedding_include_only_what_is_installed(self):
        include = self.prefix / "include/vrx"
        wanted = {str(file.relative_to(SOURCE)) for pattern in EMBEDDING for file in SOURCE.glob(pattern)}
        installed = {str(file.relative_to(include)) for file in include.rglob("*.h")}
        self.assertGreater(len(wanted), 15)
        value_types = {name for name in installed if name.startswith(("snmp_pp/", "agent_pp/"))}
        self.assertEqual(installed - value_types, wanted)
        self.assertIn("COMPAT" if value_types else "SYSTEM", self.pc("vrx"))
        for name in sorted(installed):
            for quoted, value_type in OURS.findall((include / name).read_text(encoding="utf-8")):
                if quoted or value_types:
                    self.assertIn(quoted or value_type, installed, name)

    def pc(self, name):
        found = list(self.prefix.rglob("pkgconfig/%s.pc" % name))
        self.assertEqual(len(found), 1, name)
        return found[0].read_text(encoding="utf-8")

    def test_what_is_said_to_embedders_names_files_that_are_there(self):
        variables = {}
        for name, value in re.findall(r"^(\w+)=(.*)$", self.pc("vrx"), re.M):
            variables[name] = re.sub(r"\$\{(\w+)\}", lambda match: variables[match.group(1)], value)
        for name in ("libdir", "includedir", "module", "product_root"):
            self.assertTrue(self.at(variables[name]).exists(), name)


class Documents(unittest.TestCase):
    """Pages of docs/ that the packages install."""

    def installed(self, package):
        names = (SOURCE / "packaging/debian" / (package + ".docs")).read_text(encoding="utf-8").split()
        return [SOURCE / name for name in names]

    def test_pages_that_a_page_leads_to_are_installed_too(self):
        pages = self.installed("vrx-common") + self.installed("libvrx-dev")
        for page in pages:
            links = re.findall(r"\]\(([a-z0-9-]+\.md)(?:#[^)]*)?\)", page.read_text(encoding="utf-8"))
            self.assertEqual(sorted(set(links) - {one.name for one in pages}), [], page.name)

    def test_pages_that_man_pages_name_are_installed_with_them(self):
        pages = {"/usr/share/doc/vrx/" + page.name for page in self.installed("vrx-common")}
        named = {path.replace("\\", "") for man in (SOURCE / "docs/man").iterdir()
                 for path in re.findall(r"/usr/share/doc/vrx/[\w\\.-]+", man.read_text(encoding="utf-8"))}
        self.assertIn("/usr/share/doc/vrx/receivers.md", named)
        self.assertLessEqual(named, pages)


if __name__ == "__main__":
    unittest.main()
