"""The ELF files of a build that ship, as readelf sees them."""

import os
import pathlib
import re
import subprocess

BUILD = pathlib.Path(os.environ["TAMREL_BUILD_DIR"])
PROGRAMS = [BUILD / "bin" / name for name in ("vrx-agentd", "vrx-backendd", "vrxctl")]
LIBRARIES = [BUILD / "lib" / name for name in ("libsnmp_tamrel.so", "libvrx_core.so", "libvrx_services.so")]


def readelf(file, *options):
    return subprocess.run(["readelf", "--wide", *options, str(file)], stdout=subprocess.PIPE, text=True, check=True).stdout


def value_type_folders():
    """Where the libraries of the SNMP value types are that the build was configured with. Empty with the own ones, which
    are compiled in."""
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
    return {str(pathlib.Path(library).parent)
            for library in re.findall(r"^(?:SNMPPP|AGENTPP)_LIBRARY:\w+=(/.*)$", cache, re.M)}


def library_paths(file):
    """Where a file looks for its libraries first: the entries of its one path, without those of the value types, whose
    place is not ours to choose."""
    paths = re.findall(r"\(R(?:UN)?PATH\).*\[(.*)\]", readelf(file, "--dynamic"))
    if len(paths) != 1:
        raise AssertionError("%s has %d library paths" % (file.name, len(paths)))
    return [entry for entry in paths[0].split(":") if entry not in value_type_folders()]
