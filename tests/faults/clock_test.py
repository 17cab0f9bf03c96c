"""Clocks that jump by days: timers, ages and pauses go on, nothing hangs and nothing is lost.

faketime moves the wall clock alone, as an operator or a time server does; the monotonic clock stays the machine's. Its
library and a sanitizer's do not go together: this is a test of builds without.
"""

import os
import unittest

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import CONFIG
from harness import ALARMS, DESTINATIONS, TOPOLOGY, V3, System, values, wait_for
from trap_receiver import TrapReceiver

FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"
JUMPS = ("+3d", "-5d", "+400d", "-1d", "+0")


class ClockSystem(System):
    """The agent's, and the backend's, wall clock is where move() puts it."""

    def __init__(self, **more):
        super().__init__(agent_config=CONFIG + "vrxFreshSnapshotAge 200\nvrxQuietSnapshotAge 200\nvrxWalkSnapshotAge 2000\n",
                         start=False, **more)
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


def raise_one(system):
    cells = [uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b")]
    with BackendClient(system.path("state", "backend.sock")) as backend:
        return int.from_bytes(backend.call(record(RAISE_ALARM, *cells))[-4:], "little")


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


if __name__ == "__main__":
    unittest.main()
