"""Faults for the real programs: a System whose agent or backend runs with fault_shim.cpp preloaded.

    with FaultySystem() as system:
        system.agent_faults.fail_allocation(17)
        answer = system.ask(snmp.get(OID))
        system.agent_faults.stop()

The shim's file of numbers is mapped by both sides: what is set here holds at once.
"""

import errno
import mmap
import os
import struct

from harness import BUILD_DIR, AGENT_CONFIG, System

SHIM = os.path.join(BUILD_DIR, "lib", "libvrx_fault_shim.so")

# Communities of the systems under test: requests of these tests are plain datagrams.
CONFIG = AGENT_CONFIG + "rwcommunity writer 127.0.0.1\ntrapcommunity trap-test\n"

# Of TinyXML: it forgets what it has parsed when memory runs out, which happens at a start that then fails.
LEAKS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "leaks.txt")
SANITIZER = "allocator_may_return_null=1:detect_leaks=1:verify_asan_link_order=0"


class Faults:
    """What the shim makes fail in one program; see tControl in fault_shim.cpp."""

    ALLOCATIONS, FILES = 0, 32  # each: failAt, forever, count, failed
    FILE_ERROR, LOOKUP_DELAY, LOOKUPS, DEAD_PORT, SEND_ERROR, NO_THREADS = 64, 72, 80, 88, 96, 104
    FOLDER, SIZE = 112, 112 + 256

    def __init__(self, path):
        self.path = path
        with open(path, "wb") as file:
            file.write(bytes(self.SIZE))
        with open(path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), self.SIZE)

    def _put(self, at, number):
        struct.pack_into("<Q", self._map, at, number)

    def _get(self, at):
        return struct.unpack_from("<Q", self._map, at)[0]

    def _arm(self, at, number, forever):
        self._put(at, 0)
        self._put(at + 8, int(forever))
        self._put(at + 16, 0)
        self._put(at + 24, 0)
        self._put(at, number)

    def fail_allocation(self, number, forever=False):
        """The allocation of that number from now on fails, 1 is the next one; `forever`: all after it, too."""
        self._arm(self.ALLOCATIONS, number, forever)

    def fail_change(self, folder, number=1, error=errno.ENOSPC, forever=False):
        """That write, opening for writing, sync, truncation or renaming of a file below the folder fails."""
        self._put(self.FILE_ERROR, error)
        self._map[self.FOLDER:self.FOLDER + 256] = os.path.realpath(folder).encode().ljust(256, b"\0")
        self._arm(self.FILES, number, forever)

    def hang_lookups(self, seconds):
        """Every look-up of a name takes that long and gives nothing; 0: names are looked up as ever."""
        self._put(self.LOOKUP_DELAY, int(seconds * 1000))

    def lookups(self):
        return self._get(self.LOOKUPS)

    def fail_sending(self, port, error=errno.EHOSTUNREACH):
        """Datagrams to the port are not sent."""
        self._put(self.SEND_ERROR, error)
        self._put(self.DEAD_PORT, port)

    def fail_threads(self):
        """No thread can be made."""
        self._put(self.NO_THREADS, 1)

    def stop(self):
        self._put(self.NO_THREADS, 0)
        self._put(self.ALLOCATIONS, 0)
        self._put(self.FILES, 0)
        self._put(self.LOOKUP_DELAY, 0)
        self._put(self.DEAD_PORT, 0)

    def allocations(self):
        """Of allocations since the last call of fail_allocation: (counted, failed)."""
        return self._get(self.ALLOCATIONS + 16), self._get(self.ALLOCATIONS + 24)

    def changes(self):
        """The same for changes of files."""
        return self._get(self.FILES + 16), self._get(self.FILES + 24)

    def environment(self):
        return {"LD_PRELOAD": SHIM, "VRX_FAULTS": self.path,
                "ASAN_OPTIONS": ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), SANITIZER])),
                "LSAN_OPTIONS": "print_suppressions=0:suppressions=" + LEAKS}


class FaultySystem(System):
    """A System with both programs under the shim: agent_faults and backend_faults."""

    def __init__(self, agent_config=CONFIG, start=True, **more):
        super().__init__(agent_config=agent_config, start=start, **more)
        self.agent_faults = Faults(self.path("agent.faults"))
        self.backend_faults = Faults(self.path("backend.faults"))
        self.agent.environment.update(self.agent_faults.environment(), TZ="UTC")
        self.backend.environment.update(self.backend_faults.environment())

    def close(self):
        self.agent_faults.stop()
        self.backend_faults.stop()
        super().close()
