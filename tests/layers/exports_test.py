"""What the host's library exports into whatever module is loaded: what platform/ promises, all else in namespace vrx."""

import os
import re
import subprocess
import unittest

SOURCE_DIR = os.environ["TAMREL_SOURCE_DIR"]
LIBRARY = os.path.join(os.environ["TAMREL_BUILD_DIR"], "lib", "libvrx_services.so")

LIBRARIES = {"vrx", "std", "fmt", "spdlog"}  # namespaces; two underscores begin what the sanitizers add


def exported():
    """The functions and objects that a module's own of the same name would clash with; weak ones are of libraries."""
    lines = subprocess.run(["nm", "-DC", "--defined-only", LIBRARY], capture_output=True, text=True, check=True).stdout
    return [line.split(" ", 2)[2] for line in lines.splitlines() if line.split(" ", 2)[1] in "TBDR"]


def promised():
    """All words of platform/, the names that it declares among them."""
    words = set()
    for name in os.listdir(os.path.join(SOURCE_DIR, "platform")):
        if name.endswith(".h"):
            with open(os.path.join(SOURCE_DIR, "platform", name), encoding="utf-8") as header:
                words.update(re.findall(r"\w+", re.sub(r"//.*", "", header.read())))
    return words


class Exports(unittest.TestCase):
    def test_a_name_without_namespace_is_one_that_platform_declares(self):
        words, symbols = promised(), exported()
        self.assertIn("CSNMP_Configuration::instance()", symbols)
        self.assertTrue(any(symbol.startswith("vrx::") for symbol in symbols))
        names = {re.match(r"(?:.* for )?([\w.]+)", symbol).group(1) for symbol in symbols}
        self.assertEqual(sorted(name for name in names - words - LIBRARIES if not name.startswith("__")), [])

    def test_the_agent_has_functions_in_place_of_libraries_own(self):
        """Of libcrypto's and Net-SNMP's: host/agent/engine/kept_digests.h, engine_state.h."""
        agent = os.path.join(os.environ["TAMREL_BUILD_DIR"], "bin", "vrx-agentd")
        symbols = subprocess.run(["nm", "-D", "--defined-only", agent], capture_output=True, text=True, check=True).stdout
        self.assertIn(" T HMAC\n", symbols)
        self.assertIn(" T read_config_store\n", symbols)


if __name__ == "__main__":
    unittest.main()
