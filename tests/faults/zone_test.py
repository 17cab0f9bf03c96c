"""Zones that change: times of alarms stand in the zone of the agent's start, summer and winter."""

import unittest

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import CONFIG
from harness import ALARMS, System, values, wait_for

SUMMER, WINTER = 1751364000, 1735725600  # 2025-07-01 and 2025-01-01, 10:00 UTC


def raise_one(system, raised):
    cells = [uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b"), uint(4, raised, 8)]
    with BackendClient(system.path("state", "backend.sock")) as backend:
        return int.from_bytes(backend.call(record(RAISE_ALARM, *cells))[-4:], "little")


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
