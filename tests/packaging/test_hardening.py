"""An optimised build is hardened, the one of the demo as the one of the package: what ships is read as it was linked."""

import json
import re
import unittest

from elf_files import BUILD, LIBRARIES, PROGRAMS, readelf


class Hardening(unittest.TestCase):
    def test_programs_are_loaded_anywhere(self):
        for file in PROGRAMS:
            self.assertRegex(readelf(file, "--file-header"), r"Type: +DYN", file.name)
            self.assertRegex(readelf(file, "--dynamic"), r"\(FLAGS_1\).*\bPIE\b", file.name)

    def test_all_symbols_are_bound_at_the_start_and_their_table_is_then_read_only(self):
        for file in PROGRAMS + LIBRARIES:
            self.assertRegex(readelf(file, "--dynamic"), r"\(FLAGS_1\).*\bNOW\b", file.name)
            self.assertIn("GNU_RELRO", readelf(file, "--program-headers"), file.name)

    def test_the_stack_is_not_executable(self):
        for file in PROGRAMS + LIBRARIES:
            self.assertRegex(readelf(file, "--program-headers"), r"GNU_STACK.* RW +0x", file.name)

    def test_stacks_are_guarded_and_copies_are_bounded(self):
        bounded = set()
        for file in PROGRAMS + LIBRARIES:
            imported = re.findall(r" UND (\w+)", readelf(file, "--dyn-syms"))
            self.assertIn("__stack_chk_fail", imported, file.name)
            if [name for name in imported if re.fullmatch(r"__\w+_chk", name)]:
                bounded.add(file.name)
        # Not all of them copy or format what the compiler cannot count.
        self.assertLessEqual({"vrx-agentd", "libvrx_core.so", "libvrx_services.so"}, bounded)

    def test_no_unit_of_what_ships_is_left_out(self):
        commands = json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8"))
        shipped = [entry["command"] for entry in commands
                   if re.search(r" -o (compat|vrxpub|alarm|notify|handlers|module|host|tools)/", entry["command"])]
        self.assertGreater(len(shipped), 50)
        for command in shipped:
            for option in ("-D_FORTIFY_SOURCE=3", "-fstack-protector-strong", "-fstack-clash-protection"):
                self.assertIn(option, command.split())


if __name__ == "__main__":
    unittest.main()
