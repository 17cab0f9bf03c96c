"""The example host, built in a folder of its own with what is installed: with the CMake package and with pkg-config."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from installation import SOURCE, Installation, cached

EXAMPLE = SOURCE / "examples/minimal-host"
ENVIRONMENT = {name: value for name, value in os.environ.items() if not name.startswith("PKG_CONFIG")}


def run(*command, **more):
    words = [str(word) for word in command]
    done = subprocess.run(words, text=True, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          **{"env": ENVIRONMENT, **more})
    if done.returncode != 0:
        raise AssertionError("%s\n%s" % (" ".join(words), done.stdout))
    return done.stdout


class Embedding(Installation):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vrx-example-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name in ("CMakeLists.txt", "minimal_host.cpp"):
            (self.folder / name).write_bytes((EXAMPLE / name).read_bytes())

    def assert_it_runs(self, program, module):
        shipped = self.folder / "share"  # the links of an installed product root lead out of the test's tree
        shipped.symlink_to(SOURCE / "share")
        said = run(program, module, env=dict(ENVIRONMENT, VRX_ROOT=str(shipped), TZ="UTC0"))
        self.assertEqual(said, (EXAMPLE / "transcript.txt").read_text(encoding="utf-8"))

    def test_with_the_cmake_package(self):
        build = self.folder / "build"
        said = run("cmake", "-S", self.folder, "-B", build, "-G", "Ninja", "-DCMAKE_PREFIX_PATH=%s" % self.prefix,
                   "-DCMAKE_CXX_COMPILER=" + cached("CMAKE_CXX_COMPILER"), "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        module = re.search(r"vrx: module (\S+), value types (COMPAT|SYSTEM)$", said, re.M)
        self.assertIsNotNone(module, said)
        run("cmake", "--build", build)
        self.assert_it_runs(build / "minimal-host", module.group(1))

    def test_with_pkg_config(self):
        folder = next(self.prefix.rglob("pkgconfig/vrx.pc")).parent
        environment = dict(ENVIRONMENT, PKG_CONFIG_PATH=str(folder))

        def asked(*what):
            return run("pkg-config", "--define-variable=prefix=%s" % self.prefix, *what, env=environment).split()

        program = self.folder / "minimal-host"
        run(cached("CMAKE_CXX_COMPILER"), "-std=c++17", "-Wall", "-Wextra", "-Werror", "-rdynamic", "-o", program,
            self.folder / "minimal_host.cpp", *asked("--cflags", "--libs", "vrx-platform"))
        self.assert_it_runs(program, *asked("--variable=module", "vrx"))


if __name__ == "__main__":
    unittest.main()
