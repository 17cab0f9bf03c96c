"""Clocks that jump by days: timers, ages and pauses go on, nothing hangs and nothing is lost.

faketime moves the wall clock alone, as an operator or a time server does; the monotonic clock stays the machine's. Its
library and a sanitizer's do not go together: this is a test of builds without.
"""

import json
import os
import struct
import sysconfig
import time
import unittest
from datetime import datetime, timezone

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import CONFIG
from harness import ALARMS, DESTINATIONS, TOPOLOGY, V3, System, values, wait_for
from reload_test import TAKEN, reload
from trap_receiver import TrapReceiver

LIBRARY = "faketime/libfaketimeMT.so.1"
JUMPS = (3, -5, 400, -1, 0)  # days from the machine's own time
DAY = 86400
LOGGED_TIME = "%Y-%m-%dT%H:%M:%S.%f%z"
NEAR = 600  # seconds: what a slow machine needs between two looks at a clock is far less, a jump far more


def faketime():
    """Its library for the programs of this machine. Without it there is no test: the linker would go on with a word."""
    folders = ["/usr/lib/" + (sysconfig.get_config_var("MULTIARCH") or ""), "/usr/lib64", "/usr/lib", "/usr/local/lib"]
    for folder in folders:
        if os.path.exists(os.path.join(folder, LIBRARY)):
            return os.path.join(folder, LIBRARY)
    raise AssertionError("%s is in none of %s: install the package faketime" % (LIBRARY, ", ".join(folders)))


class ClockSystem(System):
    """The agent's, and the backend's, wall clock is where move() puts it."""

    def __init__(self, **more):
        super().__init__(agent_config=CONFIG + "vrxFreshSnapshotAge 200\nvrxQuietSnapshotAge 200\nvrxWalkSnapshotAge 2000\n",
                         start=False, **more)
        self.clock = self.path("clock")
        self.move(0)
        for program in (self.agent, self.backend):
            program.environment.update(LD_PRELOAD=faketime(), FAKETIME_TIMESTAMP_FILE=self.clock, FAKETIME_NO_CACHE="1",
                                       FAKETIME_DONT_FAKE_MONOTONIC="1", DONT_FAKE_MONOTONIC="1", TZ="UTC")

    def __enter__(self):
        self.backend.start()
        self.agent.start()
        return self

    def move(self, days):
        self.days = days
        with open(self.clock + ".new", "w", encoding="utf-8") as file:
            file.write("%+dd\n" % days)
        os.rename(self.clock + ".new", self.clock)

    def check(self, moment, what):
        """That a moment which a program has just noted is one of the clock as it was put."""
        expected = time.time() + self.days * DAY
        if abs(moment.timestamp() - expected) > NEAR:
            raise AssertionError("%s: %s, and not %s" % (what, moment, datetime.fromtimestamp(expected, timezone.utc)))

    def check_last_line(self, part):
        line = [line for line in self.agent.log().splitlines() if part in line][-1]
        self.check(datetime.strptime(line.split()[0], LOGGED_TIME), "the agent's log")

    def reload(self):
        """The agent's clock in a line of now."""
        reload(self)
        self.check_last_line(TAKEN)


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
                         ["Gauge32: %d" % serial for serial in serials], "the alarms after %d days" % jump)
                self.check_times(system, receiver, serials[-1])
            self.assertEqual([trap.value(9) for trap in receiver.traps()], serials)
            self.assertEqual(len(system.agent.log().split("subscribed at ")), 2, "one subscription, all the time")

    @staticmethod
    def check_times(system, receiver, serial):
        """Of an alarm that was raised without a time of its own: the backend's clock, and the agent's in its log."""
        trap = [trap for trap in receiver.traps() if trap.value(9) == serial][0]
        year, *rest = struct.unpack(">H5B", trap.value(8)[:7])
        system.check(datetime(year, *rest, tzinfo=timezone.utc), "the trap")
        octets = values(system.get("%s.8.%d" % (ALARMS, serial), options=["-Ox"]))[0][1].split()[1:]
        if bytes.fromhex("".join(octets)) != trap.value(8):
            raise AssertionError("column 8 is %s and the trap's time %s" % (octets, trap.value(8).hex()))
        entry = wait_for(lambda: json.loads(system.vrxctl("traps", "--json", "--serial", str(serial))), "its entry")[0]
        system.check(datetime.strptime(entry["time"], LOGGED_TIME), "the notification log")

    def test_a_manager_of_v3_keeps_its_session_over_jumps(self):
        """The engine's time is its uptime, not the time of day: what a manager knows of it stays right."""
        with ClockSystem() as system:
            def engine_time():
                return int(values(system.get("1.3.6.1.6.3.10.2.1.3.0", version=V3))[0][1].split()[1])

            before = engine_time()
            for jump in JUMPS:
                system.move(jump)
                self.assertLess(abs(engine_time() - before), 600, jump)
                system.reload()

    def test_the_agent_finds_a_returning_backend_after_a_jump_back(self):
        with ClockSystem() as system:
            wait_for(lambda: "] subscribed at " in system.agent.log(), "the subscription")
            system.backend.kill()
            wait_for(lambda: "no subscription" in system.agent.log(), "the loss")
            system.move(-30)
            system.backend.start()
            wait_for(lambda: system.agent.log().count("subscribed at ") == 2, "the subscription", 20)
            system.check_last_line("subscribed at ")
            serial = raise_one(system)
            wait_for(lambda: values(system.run("snmpget", "%s.9.%d" % (ALARMS, serial), check=False).stdout)[-1:] ==
                     [("%s.9.%d" % (ALARMS, serial), "Gauge32: %d" % serial)], "the alarm")


if __name__ == "__main__":
    unittest.main()
