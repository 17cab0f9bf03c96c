"""Zones that change: times of alarms stand in the zone of the agent's start, summer and winter."""

import os
import shutil
import unittest

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import CONFIG
from harness import ALARMS, System, values, wait_for
from reload_test import reload

ZONES = "/usr/share/zoneinfo"
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

    def test_a_zone_that_changes_meanwhile_counts_from_the_next_start_on(self):
        with System(agent_config=CONFIG, start=False) as system:
            zone = system.path("zone")
            shutil.copy(os.path.join(ZONES, "Europe/Berlin"), zone)
            system.backend.start()
            system.agent.environment["TZ"] = ":" + zone
            system.agent.start()
            summer = raise_one(system, SUMMER)
            berlin, utc = "07 E9 07 01 0C 00 00 00 2B 02 00", "07 E9 07 01 0A 00 00 00 2B 00 00"
            self.assertEqual(self.times(system, (summer,)), {summer: "Hex-STRING: %s " % berlin})
            shutil.copy(os.path.join(ZONES, "UTC"), zone + ".new")
            os.rename(zone + ".new", zone)
            reload(system)
            system.vrxctl("status")  # has times of its own
            later = raise_one(system, SUMMER)
            self.assertEqual(self.times(system, (later,)), {later: "Hex-STRING: %s " % berlin})
            system.agent.stop()
            system.agent.start()
            self.assertEqual(self.times(system, (summer, later)),
                             {serial: "Hex-STRING: %s " % utc for serial in (summer, later)})


if __name__ == "__main__":
    unittest.main()
