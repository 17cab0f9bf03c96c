"""The build, installed below a temporary folder."""

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


class Installation(unittest.TestCase):
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
