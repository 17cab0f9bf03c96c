"""The ELF files of a build that ship, as readelf sees them."""

import os
import pathlib
import subprocess

BUILD = pathlib.Path(os.environ["TAMREL_BUILD_DIR"])
PROGRAMS = [BUILD / "bin" / name for name in ("vrx-agentd", "vrx-backendd", "vrxctl")]
LIBRARIES = [BUILD / "lib" / name for name in ("libsnmp_tamrel.so", "libvrx_core.so", "libvrx_services.so")]


def readelf(file, *options):
    return subprocess.run(["readelf", "--wide", *options, str(file)], stdout=subprocess.PIPE, text=True, check=True).stdout
