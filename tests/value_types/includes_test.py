"""Sources use the value types by header names that an installed SNMP++ and AGENT++ have, too."""

import os
import re
import unittest

SOURCE_DIR = os.environ["TAMREL_SOURCE_DIR"]
FOLDERS = ("alarm", "bench", "fuzz", "handlers", "host", "module", "notify", "platform", "tests", "tools", "vrxpub")

# What the releases 3.2 to 3.4 of SNMP++ and 3.5 to 4.5 of AGENT++ install, as far as compat/ has it.
SHARED = {"snmp_pp/" + name + ".h"
          for name in ("address", "config_snmp_pp", "counter", "ctr64", "gauge", "integer", "octet", "oid", "smi", "smival",
                       "snmp_pp", "snmperrs", "timetick", "vb")} | {"agent_pp/snmp_pp_ext.h"}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]*)[>"]', re.MULTILINE)


def included():
    """(source, what it includes) of every source outside compat/."""
    for folder in FOLDERS:
        for directory, _, names in os.walk(os.path.join(SOURCE_DIR, folder)):
            for name in names:
                if name.endswith((".h", ".cpp")):
                    path = os.path.join(directory, name)
                    with open(path, encoding="utf-8") as file:
                        for header in INCLUDE.findall(file.read()):
                            yield os.path.relpath(path, SOURCE_DIR), header


class Includes(unittest.TestCase):
    def test_only_headers_that_installed_libraries_have(self):
        of_values = [(path, header) for path, header in included() if re.match(r"(snmp|agent)_pp/", header)]
        self.assertGreater(len(of_values), 10)
        self.assertEqual([use for use in of_values if use[1] not in SHARED], [])

    def test_nothing_is_included_by_its_place_in_compat(self):
        names = {os.path.basename(header) for header in SHARED} | {"compat_print_cache.h"}
        self.assertEqual([(path, header) for path, header in included()
                          if "compat" in header.split("/") or header in names], [])

    def test_the_layer_has_no_other_header_than_the_shared_ones_and_its_own(self):
        found = {folder + "/" + name for folder in ("snmp_pp", "agent_pp")
                 for name in os.listdir(os.path.join(SOURCE_DIR, "compat", folder))}
        self.assertEqual(found, SHARED | {"snmp_pp/compat_print_cache.h"})

    def test_only_tests_of_the_layer_name_what_only_the_layer_promises(self):
        with open(os.path.join(SOURCE_DIR, "tests", "compat", "CMakeLists.txt"), encoding="utf-8") as file:
            text = file.read()
        compat, _, system = text.partition("else()")
        self.assertIn("layer_only_test.cpp LIBRARIES snmp_compat", compat)
        self.assertNotIn("layer_only_test.cpp", system)


if __name__ == "__main__":
    unittest.main()
