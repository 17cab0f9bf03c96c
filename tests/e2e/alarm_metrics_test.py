"""Each active alarm as a series of the agent's metrics."""

import re
import time
import unittest

from backend_client import RAISE_ALARM, BackendClient, record, text, uint
from export_test import alarm
from harness import wait_for
from status_page_test import DISK_FAILED, HOSTILE, Page, raise_many
from status_test import parsed

LABEL = re.compile(r'([a-z_]+)="((?:[^"\\]|\\.)*)"')
ESCAPES = {"\\\\": "\\", '\\"': '"', "\\n": "\n"}


def labels_of(labels):
    """What a collector makes of them."""
    return {name: re.sub(r"\\.", lambda match: ESCAPES[match.group(0)], value) for name, value in LABEL.findall(labels)}


class Metrics(Page):
    def samples(self):
        status, _, body = self.ask("/metrics")
        assert status == 200, body
        return parsed(body.decode("utf-8"))[0]

    def value(self, name):
        return self.samples().get((name, ""))

    def series(self, name="vrx_alarm"):
        """Labels and value of each, in the order in which they stand."""
        return [(labels_of(labels), value) for (metric, labels), value in self.samples().items() if metric == name]

    def wait_series(self, count):
        """The labels of that many alarms, once that is what the table has."""
        def read():
            found = [labels for labels, _ in self.series()]
            return (found,) if len(found) == count and self.value("vrx_alarms_current") == 1 else None
        return wait_for(read, "%d alarms among the metrics" % count)[0]

    def raise_at(self, serial, raised):
        with BackendClient(self.path("state", "backend.sock")) as client:
            client.call(record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 5), uint(3, serial), uint(4, raised, 8),
                               text(8, "%d,CTE0,1" % serial)))


class AlarmMetrics(unittest.TestCase):
    def test_an_alarm_is_a_series_from_its_raise_to_its_end(self):
        with Metrics() as system:
            wait_for(lambda: system.value("vrx_alarms_current") == 1, "the alarm table")
            self.assertEqual((system.series(), system.value("vrx_alarms_left_out")), ([], 0))
            before = time.time()
            serial = system.raise_disk(7)
            alarms = system.wait_series(1)
            self.assertEqual(alarms, [{
                "node": "VRX-0001", "serial": str(serial), "alarm_id": str(DISK_FAILED), "number": str(DISK_FAILED & 0xFFFFFFFF),
                "name": "Disk Failed", "level": "major", "location": "Enclosure CTE0, slot 7.",
                "detail": "The disk in slot 7 of enclosure CTE0 cannot be used any more: it is not reachable.",
                "advice": "Replace the disk in slot 7 of enclosure CTE0."}])
            (labels, start), = system.series("vrx_alarm_start_time_seconds")
            self.assertEqual(labels, {"node": "VRX-0001", "serial": str(serial)})
            self.assertTrue(before - 2 < start < time.time() + 1, start)
            system.vrxctl("clear", str(serial))
            system.wait_series(0)
            self.assertEqual(system.series("vrx_alarm_start_time_seconds"), [])

    def test_the_newest_ones_are_there_and_the_others_counted(self):
        with Metrics("vrxMetricsAlarms 3\n") as system:
            for serial, raised in ((1, 1_763_000_005), (2, 1_763_000_001), (3, 1_763_000_004), (4, 1_763_000_002),
                                   (5, 1_763_000_004)):
                system.raise_at(serial, raised)
            wait_for(lambda: system.value("vrx_alarms_left_out") == 2, "what is left out")
            self.assertEqual([labels["serial"] for labels, _ in system.series()], ["1", "5", "3"])
            self.assertEqual([value for _, value in system.series("vrx_alarm_start_time_seconds")],
                             [1_763_000_005, 1_763_000_004, 1_763_000_004])
            config = system.path("etc", "vrx-agentd.conf")
            with open(config, encoding="utf-8") as file:
                lines = file.read()
            for most, shown in ((0, 0), (4, 4)):
                system.write("etc/vrx-agentd.conf", lines.replace("vrxMetricsAlarms 3", "vrxMetricsAlarms %d" % most))
                system.vrxctl("reload")
                wait_for(lambda shown=shown: len(system.series()) == shown, "%d alarms" % shown)
                self.assertEqual(any("vrx_alarm" == name or name in ("vrx_alarms_current", "vrx_alarms_left_out")
                                     for name, _ in system.samples()), shown > 0)

    def test_texts_are_escaped_whatever_they_are(self):
        with Metrics(start=False) as system:
            path = system.path("conf", "alarm_definitions.xml")
            with open(path, encoding="utf-8") as file:
                definitions = file.read()
            own = alarm(999999, HOSTILE[0], suggestion='a "b" \\n c \\', detail=HOSTILE[1] + " ##00 ##01.", location="##01.")
            system.write("conf/alarm_definitions.xml",
                         definitions.replace("</eventDefinition>", own + "</eventDefinition>", 1))
            system.backend.start()
            system.agent.start()
            parameters = ["a\nb,c", HOSTILE[2] + "," + HOSTILE[4], "\x01\x1b[31m\r,\\"]
            raise_many(system, [one.encode() for one in parameters] + [b"\xff\xfe\xc3,\xed\xa0\x80"], number=1 << 32 | 999999)
            alarms = sorted(system.wait_series(4), key=lambda labels: int(labels["serial"]))
            listed = sorted(system.alarms(4)["alarms"], key=lambda one: one["serial"])
            for labels, one in zip(alarms, listed):
                self.assertEqual((labels["name"], labels["location"], labels["detail"], labels["advice"]),
                                 (one["title"], one["location"], one["detail"], one["advice"]))
            self.assertEqual(alarms[0]["advice"], 'a "b" \\n c \\')
            self.assertIn("a\nb", alarms[0]["detail"])
            self.assertIn("\ufffd", alarms[3]["detail"])

    def test_while_the_backend_is_away_they_are_the_last_known_ones(self):
        with Metrics() as system:
            system.raise_disk(7)
            system.wait_series(1)
            system.backend.stop()
            wait_for(lambda: system.value("vrx_alarms_current") == 0, "alarms that are not current")
            self.assertEqual([labels["location"] for labels, _ in system.series()], ["Enclosure CTE0, slot 7."])
            system.agent.stop()
            system.agent.start()
            self.assertEqual((system.value("vrx_alarms_current"), system.series()), (0, []))
            system.backend.start()
            system.wait_series(1)

    def test_the_table_is_read_again_only_when_it_has_changed(self):
        with Metrics() as system:
            system.raise_disk(7)
            system.wait_series(1)

            def reads():
                return sum(value for (name, _), value in system.samples().items() if name == "vrx_object_reads_total")

            def settled():
                return system.value("vrx_alarms_current") == 1 and reads() == reads()

            wait_for(settled, "the last reading")
            before = reads()
            for _ in range(20):
                self.assertEqual(len(system.series()), 1)
            self.assertEqual(reads(), before)
            system.raise_disk(8)
            system.wait_series(2)
            self.assertGreater(reads(), before)


if __name__ == "__main__":
    unittest.main()
