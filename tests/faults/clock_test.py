"""Clocks that jump by days and zones that change: timers, ages and pauses go on, nothing hangs and nothing is lost.

faketime moves the wall clock alone, as an operator or a time server does; the monotonic clock stays the machine's. Its
library and AddressSanitizer's do not go together: a build with the latter shows what changes of zone do, no jumps.
"""

import os
import subprocess
import unittest

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import CONFIG
from harness import ALARMS, BUILD_DIR, DESTINATIONS, TOPOLOGY, V3, System, values, wait_for
from trap_receiver import TrapReceiver

FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"
JUMPS = ("+3d", "-5d", "+400d", "-1d", "+0")

SUMMER, WINTER = 1751364000, 1735725600  # 2025-07-01 and 2025-01-01, 10:00 UTC


def has_sanitizer():
    libraries = subprocess.run(["ldd", os.path.join(BUILD_DIR, "bin", "vrx-agentd")], stdout=subprocess.PIPE, text=True,
                               check=True).stdout
    return "libasan" in libraries or "libtsan" in libraries


class ClockSystem(System):
    """The agent's, and the backend's, wall clock is where move() puts it."""

    def __init__(self, **more):
        super().__init__(agent_config=CONFIG + "vrxFreshSnapshotAge 200\nvrxWalkSnapshotAge 2000\n", start=False, **more)
        self.clock = self.path("clock")
        self.move("+0")
        for program in (self.agent, self.backend):
            program.environment.update(LD_PRELOAD=FAKETIME, FAKETIME_TIMESTAMP_FILE=self.clock, FAKETIME_NO_CACHE="1",
                                       FAKETIME_DONT_FAKE_MONOTONIC="1", DONT_FAKE_MONOTONIC="1", TZ="UTC")

    def __enter__(self):
        self.backend.start()
        self.agent.start()
        return self

    def move(self, offset):
        with open(self.clock + ".new", "w", encoding="utf-8") as file:
            file.write(offset + "\n")
        os.rename(self.clock + ".new", self.clock)


def raise_one(system, raised=None):
    cells = [uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b")]
    if raised:
        cells.append(uint(4, raised, 8))
    with BackendClient(system.path("state", "backend.sock")) as backend:
        return int.from_bytes(backend.call(record(RAISE_ALARM, *cells))[-4:], "little")


@unittest.skipIf(has_sanitizer(), "faketime and the sanitizer's runtime do not go together")
class Jumps(unittest.TestCase):
    def test_requests_traps_and_walks_go_on_over_every_jump(self):
        with ClockSystem() as system, TrapReceiver() as receiver:
            system.set("%s.6.1" % DESTINATIONS, "s", "127.0.0.1", "%s.2.1" % DESTINATIONS, "u", str(receiver.port),
                       "%s.3.1" % DESTINATIONS, "i", "4")
            serials = []
            for number, jump in enumerate(JUMPS, 1):
                system.move(jump)
                serials.append(raise_one(system))
                receiver.wait_for(number)
                # A manager that discovers the engine now; then one that reads by v2c.
                self.assertEqual(values(system.get(TOPOLOGY + ".8.1", version=V3))[0][1], "INTEGER: 1", jump)
                wait_for(lambda: [value for _, value in values(system.bulkwalk(ALARMS + ".9"))] ==
                         ["Gauge32: %d" % serial for serial in serials], "the alarms after " + jump)
            self.assertEqual([trap.value(9) for trap in receiver.traps()], serials)
            self.assertEqual(len(system.agent.log().split("subscribed at ")), 2, "one subscription, all the time")

    def test_a_manager_of_v3_keeps_its_session_over_jumps(self):
        """The engine's time is its uptime, not the time of day: what a manager knows of it stays right."""
        with ClockSystem() as system:
            def engine_time():
                return int(values(system.get("1.3.6.1.6.3.10.2.1.3.0", version=V3))[0][1].split()[1])

            before = engine_time()
            for jump in JUMPS:
                system.move(jump)
                self.assertLess(abs(engine_time() - before), 600, jump)

    def test_the_agent_finds_a_returning_backend_after_a_jump_back(self):
        with ClockSystem() as system:
            wait_for(lambda: "] subscribed at " in system.agent.log(), "the subscription")
            system.backend.kill()
            wait_for(lambda: "no subscription" in system.agent.log(), "the loss")
            system.move("-30d")
            system.backend.start()
            wait_for(lambda: system.agent.log().count("subscribed at ") == 2, "the subscription", 20)
            serial = raise_one(system)
            wait_for(lambda: values(system.run("snmpget", "%s.9.%d" % (ALARMS, serial), check=False).stdout)[-1:] ==
                     [("%s.9.%d" % (ALARMS, serial), "Gauge32: %d" % serial)], "the alarm")


class Zones(unittest.TestCase):
    def times(self, system, serials):
        return {serial: values(system.get("%s.8.%d" % (ALARMS, serial), options=["-Ox"]))[0][1] for serial in serials}

    def test_a_restart_in_another_zone_shows_times_there_summer_and_winter(self):
        with System(agent_config=CONFIG) as system:
            summer, winter = raise_one(system, SUMMER), raise_one(system, WINTER)
            for zone, in_summer, in_winter in (
                    ("UTC", "07 E9 07 01 0A 00 00 00 2B 00 00", "07 E9 01 01 0A 00 00 00 2B 00 00"),
                    ("Europe/Berlin", "07 E9 07 01 0C 00 00 00 2B 02 00", "07 E9 01 01 0B 00 00 00 2B 01 00"),
                    ("America/St_Johns", "07 E9 07 01 07 1E 00 00 2D 02 1E", "07 E9 01 01 06 1E 00 00 2D 03 1E")):
                system.agent.stop()
                system.agent.environment["TZ"] = zone
                system.agent.start()
                wait_for(lambda: "subscribed at " in system.agent.log(since_start=True), "the backend")
                self.assertEqual(self.times(system, (summer, winter)),
                                 {summer: "Hex-STRING: %s " % in_summer, winter: "Hex-STRING: %s " % in_winter}, zone)


if __name__ == "__main__":
    unittest.main()
