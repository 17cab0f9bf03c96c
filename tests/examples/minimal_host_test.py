"""The example host: what it prints, and that it stays an example."""

import os
import pathlib
import subprocess
import unittest

SOURCE = pathlib.Path(os.environ["TAMREL_SOURCE_DIR"])
EXAMPLE = SOURCE / "examples/minimal-host"
MODULE = os.environ["TAMREL_MODULE"]
LONGEST = 250  # lines of all its sources


def run(*arguments, root=SOURCE / "share"):
    return subprocess.run([os.environ["TAMREL_MINIMAL_HOST"], *arguments], text=True, check=False, capture_output=True,
                          env=dict(os.environ, VRX_ROOT=str(root), TZ="UTC0"))


class MinimalHost(unittest.TestCase):
    maxDiff = None

    def test_it_prints_its_transcript(self):
        done = run(MODULE)
        self.assertEqual(done.stdout, (EXAMPLE / "transcript.txt").read_text(encoding="utf-8"))
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_without_the_module_it_says_what_is_missing(self):
        done = run("/nonexistent/module.so")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("minimal-host: /nonexistent/module.so: cannot open", done.stderr)

    def test_without_definitions_it_ends_with_the_modules_reason(self):
        done = run(MODULE, root="/nonexistent")
        self.assertEqual(done.returncode, 1)
        self.assertIn("/nonexistent/conf/alarm_definitions.xml", done.stderr)
        self.assertIn("minimal-host: no trap: -1", done.stderr)
        self.assertNotIn("trap 1.3.6.1", done.stdout)

    def test_its_sources_are_few_enough_to_be_read(self):
        sources = [file for file in EXAMPLE.iterdir() if file.suffix in (".h", ".cpp") or file.name == "CMakeLists.txt"]
        self.assertLessEqual(sum(file.read_text(encoding="utf-8").count("\n") for file in sources), LONGEST)


if __name__ == "__main__":
    unittest.main()
