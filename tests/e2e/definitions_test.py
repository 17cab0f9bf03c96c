"""Alarms while the definition files cannot be loaded: nothing is lost, and nobody is told that there are no alarms."""

import fcntl
import os
import signal
import unittest

from backend_client import BackendClient
from harness import ALARMS, wait_for
from trap_receiver import TrapReceiver
from traps_test import COMMON_TRAP, TrapSystem

DEFINITIONS, ENUMERATIONS = ("conf", "alarm_definitions.xml"), ("conf", "alarm_enumerations.xml")
AWAY, BACK = "the alarm definitions cannot be loaded", "the alarm definitions are loaded again"
MANY = 2000


def take_away(system, parts=DEFINITIONS):
    os.rename(system.path(*parts), system.path(*parts) + ".away")


def put_back(system, parts=DEFINITIONS):
    os.rename(system.path(*parts) + ".away", system.path(*parts))


def lines_with(system, text):
    return [line for line in system.agent.log(since_start=True).splitlines() if text in line]


def told(receiver):
    """Serial numbers of both kinds of traps, each in the order of their arrival."""
    common, named = [], []
    for trap in receiver.traps():
        if trap.bindings and trap.bindings[-1].name.endswith(".15.0"):
            (common if trap.oid == COMMON_TRAP else named).append(trap.value(9))
    return common, named


class WithoutDefinitions(unittest.TestCase):
    def raise_while_away(self, system, receiver, parts=DEFINITIONS):
        """The agent is started without the file, then three alarms are raised."""
        system.add_destination(1, receiver.port)
        system.agent.stop()
        take_away(system, parts)
        system.agent.start()
        (line,) = lines_with(system, AWAY)
        self.assertIn(" error [agent] ", line)
        self.assertIn(parts[-1], line)
        with BackendClient(system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(3)

    def check_all_told_once(self, system, receiver, alarms=3):
        wait_for(lambda: all(len(kind) >= alarms for kind in told(receiver)), "the traps")
        system.agent.stop()  # nothing comes after this
        self.assertEqual(told(receiver), (list(range(1, alarms + 1)),) * 2)
        self.assertEqual(len(lines_with(system, AWAY)), 1)
        self.assertEqual(len(lines_with(system, BACK)), 1)

    def test_alarms_are_told_after_a_reload(self):
        for parts in (DEFINITIONS, ENUMERATIONS):
            with self.subTest(file=parts[-1]), TrapSystem() as system, TrapReceiver() as receiver:
                self.raise_while_away(system, receiver, parts)
                put_back(system, parts)
                system.vrxctl("reload")
                self.check_all_told_once(system, receiver)

    def test_alarms_are_told_without_a_reload(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            self.raise_while_away(system, receiver)
            put_back(system)
            self.check_all_told_once(system, receiver)

    def test_alarms_wait_over_a_kill_and_further_ones_come_after_them(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            self.raise_while_away(system, receiver)
            wait_for(lambda: '"definitions_loaded": false' in system.vrxctl("status", "--json"), "the status")
            system.agent.kill()
            system.agent.start()
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(2)
            put_back(system)
            self.check_all_told_once(system, receiver, 5)

    def test_the_agent_ends_while_events_wait(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            self.raise_while_away(system, receiver)
            self.assertEqual(system.agent.stop(), 0)
            put_back(system)
            system.agent.start()
            wait_for(lambda: all(len(kind) >= 3 for kind in told(receiver)), "the traps")
            self.assertEqual(lines_with(system, AWAY), [])

    def test_the_alarm_table_is_an_error_then_and_few_lines_say_so(self):
        with TrapSystem() as system:
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(MANY)
            system.agent.stop()
            take_away(system)
            system.agent.start()
            for _ in range(3):
                done = system.run("snmpbulkwalk", ALARMS, check=False)
                self.assertIn("genError", done.stdout + done.stderr)
                done = system.run("snmpget", ALARMS + ".4.7", check=False)
                self.assertIn("genError", done.stdout + done.stderr)
            self.assertLess(len(system.agent.log(since_start=True).splitlines()), 50)
            put_back(system)
            system.vrxctl("reload")
            self.assertEqual(len(system.walk(ALARMS + ".9").splitlines()), MANY)


class SlowDefinitions(unittest.TestCase):
    """Whoever opens the file waits for as long as the test holds its lease."""

    def setUp(self):
        self.addCleanup(signal.signal, signal.SIGIO, signal.signal(signal.SIGIO, signal.SIG_IGN))  # somebody waits

    def test_what_needs_no_definitions_is_answered_before_they_are_there(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            system.agent.stop()
            with open(system.path(*DEFINITIONS), "r+", encoding="utf-8") as held:
                fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_WRLCK)
                system.agent.start(wait=False)
                wait_for(lambda: "vrx-under-test" in system.run("snmpget", "1.3.6.1.2.1.1.5.0", check=False).stdout, "it")
                with BackendClient(system.path("state", "backend.sock")) as backend:
                    backend.raise_alarms(1)
                self.assertEqual((lines_with(system, "[agent] ready"), told(receiver)), ([], ([], [])))
                fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_UNLCK)
            system.agent.wait_ready()
            wait_for(lambda: all(told(receiver)), "both traps")
            self.assertEqual(len(system.walk(ALARMS + ".9").splitlines()), 1)

    def test_the_agent_ends_when_they_are_there(self):
        with TrapSystem() as system:
            system.agent.stop()
            with open(system.path(*DEFINITIONS), "r+", encoding="utf-8") as held:
                fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_WRLCK)
                system.agent.start(wait=False)
                wait_for(lambda: "vrx-under-test" in system.run("snmpget", "1.3.6.1.2.1.1.5.0", check=False).stdout, "it")
                system.agent.process.terminate()
                fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_UNLCK)
            self.assertEqual(system.agent.process.wait(60), 0)
            self.assertEqual(lines_with(system, "]")[-1:], lines_with(system, "[agent] alarm events: "))
            system.agent.start()


class Lines(unittest.TestCase):
    UNKNOWN = 4295032999  # no definition has it

    def test_an_alarm_without_a_definition_is_named_with_what_to_do(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            system.raise_alarm(serial=70, alarm_id=self.UNKNOWN)
            lines = wait_for(lambda: lines_with(system, "alarm event 1 (alarm %d, serial 70)" % self.UNKNOWN), "lines")
            self.assertIn("correct or add the alarm's definition", lines[0])

    def test_a_definition_with_thousands_of_unknown_placeholders_makes_few_lines(self):
        system = TrapSystem()
        with open(system.path(*DEFINITIONS), encoding="utf-8") as file:
            definitions = file.read()
        many = '<param eventID="%d" name="Many" reason="-" suggestion="-" detail="##00" location="%s" alarmOid="9.9"/>'
        end = "</eventDefinition>"
        system.write(os.path.join(*DEFINITIONS), definitions.replace(end, many % (self.UNKNOWN, "##77 " * 9000) + end))
        with system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            system.raise_alarm(serial=70, alarm_id=self.UNKNOWN)
            wait_for(lambda: all(told(receiver)), "both traps")
            lines = lines_with(system, "is out of range")
            self.assertEqual(len(lines), 2 * 10, "ten of each trap")
            self.assertEqual(len(lines_with(system, " 8990 more lines like this one are left out")), 2)
            self.assertIn("70", system.walk(ALARMS + ".9"))
            self.assertLess(len(lines_with(system, "is out of range")), 200)


if __name__ == "__main__":
    unittest.main()
