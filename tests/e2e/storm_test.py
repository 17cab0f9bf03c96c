"""Alarms that flap: few traps, the first raise at once, the last state right, also over kill -9 and reloads.

VRX_STORM_CHANGES (default 120) is how often the alarm changes, 50 times a second.
"""

import contextlib
import json
import os
import sqlite3
import threading
import time
import unittest

from backend_client import CLEAR_ALARM, RAISE_ALARM, BackendClient, record, text, uint
from harness import wait_for
from trap_receiver import COLD_START, TrapReceiver
from traps_test import ALARM_ID, COMMON, CONFIG, TrapSystem

CHANGES = int(os.environ.get("VRX_STORM_CHANGES", "120"))
PAUSE = 0.02

WORDS = "vrxStormChanges 4\nvrxStormWindow 60\nvrxStormInterval 1\n"
HELD_FOR_LONG = WORDS.replace("vrxStormInterval 1", "vrxStormInterval 3600")
RAISED, ENDED = 1, 2  # the traps' category


def changes_of(receiver):
    """What a destination was told: (serial number, category), by turns."""
    return [(trap.value(9), trap.value(11)) for trap in receiver.traps() if trap.oid != COLD_START]


def destination(system, number="1"):
    status = json.loads(system.vrxctl("status", "--json"))
    return next(d for d in status["destinations"] if d["number"] == number)


class Flapping:
    """One alarm, raised with a new serial number and cleared by turns."""

    def __init__(self, system, parameters="07:55,123"):
        self._backend = BackendClient(system.path("state", "backend.sock"))
        self._parameters = parameters
        self.serial = 0
        self.changes = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._backend.__exit__()

    def change(self, first_serial=0):
        self.changes += 1
        if self.changes % 2 == 1:
            self.serial = max(self.serial + 1, first_serial)
            self._backend.call(record(RAISE_ALARM, uint(1, ALARM_ID, 8), uint(2, 5), uint(3, self.serial),
                                      text(8, self._parameters)))
        else:
            self._backend.call(record(CLEAR_ALARM, uint(3, self.serial), text(7, "test")))

    def last(self):
        return (self.serial, RAISED if self.changes % 2 == 1 else ENDED)


def last_done(system):
    return json.loads(system.vrxctl("status", "--json"))["events"]["last_done"]


def remembered(system):
    """What the agent would go on after if it were killed now."""
    database = sqlite3.connect("file:%s?mode=ro" % system.path("state", "notifications.db"), uri=True)
    with contextlib.closing(database):
        return database.execute("SELECT done FROM ledger").fetchone()[0]


class Storms(unittest.TestCase):
    def check_told(self, told):
        """Each raise that was told of is followed by its own end."""
        self.assertEqual(told[0][1], RAISED)
        for before, after in zip(told, told[1:]):
            if before[1] == RAISED:
                self.assertEqual(after, (before[0], ENDED), told)
            else:
                self.assertEqual(after[1], RAISED, told)
                self.assertGreater(after[0], before[0], told)

    def test_a_flapping_alarm_gives_few_traps_its_first_raise_at_once_and_its_last_state(self):
        with TrapSystem(extra_config=WORDS) as system, TrapReceiver() as receiver, Flapping(system) as alarm:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            alarm.change()
            receiver.wait_for(1)  # before anything else happens
            self.assertEqual(changes_of(receiver), [(1, RAISED)])
            started = time.monotonic()
            while alarm.changes < CHANGES + 1:
                alarm.change()
                time.sleep(PAUSE)
            took = time.monotonic() - started
            wait_for(lambda: changes_of(receiver)[-1] == alarm.last(), "the last state")
            told = changes_of(receiver)
            self.check_told(told)
            self.assertLessEqual(len(told), 4 + 1 + took + 2)  # until it flaps, and one a second
            counters = wait_for(lambda: (lambda d: d if d["held"] == 0 else None)(destination(system)), "nothing held")
            self.assertEqual(counters["sent"], len(told))
            self.assertEqual(counters["sent"] + counters["suppressed"], alarm.changes)
            self.assertEqual(counters["considered"], counters["sent"] + counters["filtered"])
            log = json.loads(system.vrxctl("traps", "--json"))
            self.assertEqual([(e["serial"], RAISED if e["kind"] == "raise" else ENDED) for e in log], told)
            self.assertTrue(any(e["held"] for e in log))

    def test_other_alarms_and_objects_are_told_of_at_once(self):
        with TrapSystem(extra_config=HELD_FOR_LONG) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            with Flapping(system) as alarm, Flapping(system, "08:00,5") as other:
                for _ in range(20):
                    alarm.change()
                other.change(first_serial=1000)
                wait_for(lambda: (1000, RAISED) in changes_of(receiver), "the other object's alarm")
            self.assertEqual(changes_of(receiver)[-1], (1000, RAISED))
            self.assertLess(len(changes_of(receiver)), 8)

    def test_without_the_words_every_change_is_told(self):
        with TrapSystem() as system, TrapReceiver() as receiver, Flapping(system) as alarm:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            for _ in range(40):
                alarm.change()
            receiver.wait_for(40)
            self.assertEqual(len(changes_of(receiver)), 40)
            self.assertEqual(destination(system)["suppressed"], 0)

    def test_what_is_held_comes_when_the_agent_was_killed(self):
        with TrapSystem(extra_config=HELD_FOR_LONG) as system, TrapReceiver() as receiver, Flapping(system) as alarm:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            for _ in range(7):
                alarm.change()
            wait_for(lambda: destination(system)["held"] == 1 or destination(system)["held"] == 2, "a held trap")
            self.assertNotEqual(changes_of(receiver)[-1], alarm.last())
            for end in (system.agent.kill, system.agent.stop):
                # What is done with is remembered: else all changes come again, and are held again.
                wait_for(lambda: remembered(system) == last_done(system), "the number of the last event done")
                seen = len(receiver.datagrams())
                end()
                system.agent.start()
                wait_for(lambda: changes_of(receiver)[-1:] == [alarm.last()] and len(receiver.datagrams()) > seen,
                         "the last state")
                for _ in range(8):  # until the next one is held
                    alarm.change()
                wait_for(lambda: destination(system)["held"] > 0, "a held trap")

    def test_a_reload_turns_it_off_and_on(self):
        with TrapSystem(extra_config=HELD_FOR_LONG) as system, TrapReceiver() as receiver, Flapping(system) as alarm:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            for _ in range(11):
                alarm.change()
            wait_for(lambda: destination(system)["held"] > 0, "a held trap")
            system.write("etc/vrx-agentd.conf", CONFIG)
            system.vrxctl("reload")
            wait_for(lambda: changes_of(receiver)[-1] == alarm.last(), "what was held")
            self.check_told(changes_of(receiver))
            self.assertEqual(destination(system)["held"], 0)
            system.write("etc/vrx-agentd.conf", CONFIG + HELD_FOR_LONG)
            system.vrxctl("reload")
            for _ in range(10):
                alarm.change()
            wait_for(lambda: destination(system)["held"] > 0, "a held trap")

    def test_a_storm_of_many_alarms_beside_a_quiet_one(self):
        """Ten objects flap at once; another one is raised in between and never ends."""
        with TrapSystem(extra_config=WORDS) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)

            def flap(number):
                with Flapping(system, "07:55,%d" % number) as alarm:
                    for _ in range(41):
                        alarm.change(first_serial=1000 * number)
                        time.sleep(PAUSE)
                    last.append(alarm.last())

            last = []
            threads = [threading.Thread(target=flap, args=(number,)) for number in range(1, 11)]
            for thread in threads:
                thread.start()
            system.raise_alarm(7, parameters="quiet,1")
            for thread in threads:
                thread.join()
            wait_for(lambda: {(7, RAISED)} | set(last) <= set(changes_of(receiver)), "all last states")
            wait_for(lambda: destination(system)["held"] == 0, "nothing held")
            told = changes_of(receiver)
            self.assertLess(len(told), 41 * 10 // 2)
            for number in range(1, 11):
                own = [change for change in told if change[0] // 1000 == number]
                self.check_told(own)
                self.assertIn(own[-1], last)


if __name__ == "__main__":
    unittest.main()
