"""What the agent has sent, as its notification log tells later: with vrxctl, while the agent runs or not, after kill -9 too.

The number of alarms over kills comes from VRX_LOG_ALARMS (default 300).
"""

import contextlib
import json
import os
import re
import sqlite3
import stat
import threading
import time
import unittest

from backend_client import BackendClient
from harness import DESTINATIONS, wait_for
from trap_receiver import COLD_START, TrapReceiver
from traps_test import (ALARM_ID, COMMON, COMMON_TRAP, CONFIG, DETAIL, NAMED, NAMED_BASE, NAMED_TRAP, SERIAL, SnmpTrapd,
                        TrapSystem)

ALARMS = int(os.environ.get("VRX_LOG_ALARMS", "300"))

EX_USAGE, EX_DATAERR, EX_UNAVAILABLE = 64, 65, 69


def entries(system, *arguments):
    return json.loads(system.vrxctl("traps", "--json", *arguments))


def wait_entries(system, count, *arguments):
    """At least that many: the log is written a moment after the trap."""
    return wait_for(lambda: (lambda found: found if len(found) >= count else None)(entries(system, *arguments)),
                    "%d entries of the notification log" % count)


def status(system):
    return json.loads(system.vrxctl("status", "--json"))["notification_log"]


def shown(value):
    """A binding's value of the receiver as the log shows it."""
    if not isinstance(value, bytes):
        return value
    try:
        text = value.decode()
    except UnicodeDecodeError:
        return "0x" + value.hex()
    return text if all(c >= " " or c in "\n\r\t" for c in text) and "\x7f" not in text else "0x" + value.hex()


def as_logged(trap):
    names = {"OCTET STRING": "STRING", "OBJECT IDENTIFIER": "OID"}
    return trap.oid, [(b.name, names.get(b.type, b.type), shown(b.value)) for b in trap.bindings]


def of_entry(entry):
    return entry["trapOid"], [(b["name"], b["type"], b["value"]) for b in entry["bindings"]]


def alarm_traps(receiver):
    return [trap for trap in receiver.traps() if trap.oid != COLD_START]


class Content(unittest.TestCase):
    """Of one alarm that was raised and cleared, with three destinations."""

    @classmethod
    def setUpClass(cls):
        cls.parts = contextlib.ExitStack()
        cls.addClassCleanup(cls.parts.close)
        cls.system = cls.parts.enter_context(TrapSystem())
        cls.daemon = cls.parts.enter_context(SnmpTrapd(cls.system))
        cls.receiver = cls.parts.enter_context(TrapReceiver())
        cls.other = cls.parts.enter_context(TrapReceiver())
        cls.system.add_destination(1, cls.receiver.port)
        cls.system.add_destination(2, cls.other.port, trap_type=COMMON)
        cls.system.add_destination(3, cls.daemon.port)
        cls.system.raise_alarm()
        cls.system.clear_alarm()
        cls.receiver.wait_for(4)
        cls.other.wait_for(2)
        cls.log = wait_entries(cls.system, 4)

    def test_entries_equal_what_arrived(self):
        self.assertEqual([of_entry(entry) for entry in self.log],
                         [as_logged(trap) for trap in alarm_traps(self.receiver)])
        self.assertEqual([of_entry(entry) for entry in self.log if "2" in entry["destinations"]],
                         [as_logged(trap) for trap in alarm_traps(self.other)])
        self.assertEqual([(e["number"], e["kind"], e["destinations"], e["alarmId"], e["serial"], e["level"])
                          for e in self.log],
                         [(1, "raise", ["1", "2", "3"], ALARM_ID, SERIAL, 5),
                          (2, "raise", ["1", "3"], ALARM_ID, SERIAL, 5),
                          (3, "clear", ["1", "2", "3"], ALARM_ID, SERIAL, 5),
                          (4, "clear", ["1", "3"], ALARM_ID, SERIAL, 5)])
        self.assertEqual({e["text"] for e in self.log}, {DETAIL})
        self.assertEqual([e["event"] for e in self.log], [1, 1, 2, 2])

    def test_entries_equal_what_snmptrapd_received(self):
        lines = self.daemon.wait_for(4)
        self.assertEqual(len(lines), 4)
        for entry, line in zip(self.log, lines):
            oid, bindings = of_entry(entry)
            pairs = [field.lstrip(".").partition(" = ")[::2] for field in line.split("\t")[2:]]
            self.assertEqual([name for name, _ in pairs[2:]], [name for name, _, _ in bindings])
            self.assertTrue(pairs[1][1].endswith(oid), pairs[1])
            for (_, text), (name, kind, value) in zip(pairs[2:], bindings):
                if kind == "STRING" and not value.startswith("0x"):
                    self.assertEqual(text, 'STRING: "%s"' % value, name)
                elif kind != "STRING":
                    self.assertEqual(text, "%s: %s" % (kind, value), name)

    def test_the_table_and_one_entry_are_readable(self):
        lines = self.system.vrxctl("traps").splitlines()
        self.assertEqual(lines[0].split(), ["NUMBER", "TIME", "ALARM", "ID", "KIND", "LEVEL", "TRAP", "DESTINATIONS", "TEXT"])
        self.assertRegex(lines[1], r"^ +1  \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +%d  raise  major +common  1,2,3 +%s$"
                         % (ALARM_ID, re.escape(DETAIL)))
        self.assertEqual(len(lines), 5)
        text = self.system.vrxctl("traps", "show", "2")
        self.assertRegex(lines[2], r"  raise  major +own +\S")
        self.assertIn("trap          %s (own)\n" % NAMED_TRAP, text)
        self.assertIn("%s.10.0 = STRING: %s\n" % (NAMED_BASE, DETAIL), text)
        self.assertEqual(json.loads(self.system.vrxctl("traps", "show", "2", "--json")), self.log[1])

    def test_filters(self):
        def numbers(*arguments):
            return [entry["number"] for entry in entries(self.system, *arguments)]

        self.assertEqual(numbers("--last", "3"), [2, 3, 4])
        self.assertEqual(numbers("--serial", str(SERIAL)), [1, 2, 3, 4])
        self.assertEqual(numbers("--serial", "1"), [])
        self.assertEqual(numbers("--kind", "clear"), [3, 4])
        self.assertEqual(numbers("--destination", "2"), [1, 3])
        self.assertEqual(numbers("--kind", "raise", "--destination", "3", "--last", "1"), [2])
        self.assertEqual(numbers("--alarm", str(ALARM_ID)), [1, 2, 3, 4])
        self.assertEqual(numbers("--alarm", "1"), [])
        self.assertEqual(numbers("--since", "1h"), [1, 2, 3, 4])
        self.assertEqual(numbers("--until", "1h"), [])
        self.assertEqual(numbers("--since", self.log[-1]["time"][:19] + "Z", "--until", "2100-01-01")[-1], 4)
        for arguments in (("--kind", "both"), ("--last", "x")):
            self.assertEqual(self.system.vrxctl("traps", *arguments, check=False).returncode, EX_USAGE)
        done = self.system.vrxctl("traps", "--since", "soon", check=False)
        self.assertEqual(done.returncode, EX_DATAERR)
        self.assertIn('"soon" is no time', done.stderr)


class Keeping(unittest.TestCase):
    def test_the_log_is_read_without_an_agent_and_goes_on_with_the_next(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            system.raise_alarm(1)
            receiver.wait_for(1)
            system.agent.stop()
            self.assertEqual([entry["serial"] for entry in entries(system)], [1])
            path = system.path("state", "notification_log.db")
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            system.agent.start()
            reader = sqlite3.connect("file:%s?mode=ro" % path, uri=True)
            self.addCleanup(reader.close)
            rows = reader.execute("SELECT number FROM notifications")  # held open: it keeps nobody from writing
            self.assertEqual(rows.fetchone(), (1,))
            system.raise_alarm(2)
            self.assertEqual([(e["number"], e["serial"]) for e in wait_entries(system, 2)], [(1, 1), (2, 2)])

    def test_kill_9_loses_nothing_that_was_logged(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            seen = {}
            for _ in range(3):
                raiser = threading.Thread(target=self.raise_slowly, args=(system, ALARMS // 3))
                raiser.start()
                logged = {entry["number"]: entry for entry in wait_entries(system, len(seen) + 1)}
                system.agent.kill()
                seen = {entry["number"]: entry for entry in entries(system)}
                self.assertEqual({number: seen.get(number) for number in logged}, logged)
                raiser.join()
                system.agent.start()
            wait_for(lambda: {e["serial"] for e in entries(system)} == set(range(1, ALARMS // 3 * 3 + 1)), "all alarms")
            numbers = [entry["number"] for entry in entries(system)]
            self.assertEqual(numbers, list(range(1, len(numbers) + 1)))

    @staticmethod
    def raise_slowly(system, count):
        with BackendClient(system.path("state", "backend.sock")) as backend:
            for _ in range(count // 10):
                backend.raise_alarms(10)
                time.sleep(0.02)

    def test_the_oldest_entries_go_first_and_a_reload_changes_how_many_stay(self):
        with TrapSystem(extra_config="vrxNotificationLog 5\n") as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            for serial in range(1, 9):
                system.raise_alarm(serial)
            wait_for(lambda: status(system)["written"] == 8, "eight entries")
            self.assertEqual([e["number"] for e in entries(system)], [4, 5, 6, 7, 8])
            self.configure(system, "vrxNotificationLog 2\n")
            system.raise_alarm(9)
            wait_for(lambda: [e["number"] for e in entries(system)] == [8, 9], "two entries")
            self.configure(system, "vrxNotificationLog 0\n")
            system.raise_alarm(10)
            receiver.wait_for(10)
            system.agent.stop()
            self.assertEqual([e["number"] for e in entries(system)], [8, 9])

    @staticmethod
    def configure(system, lines):
        system.write("etc/vrx-agentd.conf", CONFIG + lines)
        system.vrxctl("reload")

    def test_words_that_are_wrong_are_told(self):
        with TrapSystem() as system:
            for word in ("vrxNotificationLog -1", "vrxNotificationLog many", "vrxNotificationSize 483",
                         "vrxStormChanges 1001", "vrxStormWindow 0", "vrxStormInterval 0"):
                system.write("etc/vrx-agentd.conf", CONFIG + word + "\n")
                done = system.vrxctl("reload", check=False)
                line = CONFIG.count("\n") + 1
                self.assertIn("%s:%d: " % (system.path("etc/vrx-agentd.conf"), line), done.stderr)
                self.assertIn(word.split()[0] + ": not a number from ", done.stderr)

    def test_without_a_log_the_path_is_told(self):
        with TrapSystem() as system:
            system.agent.stop()
            for name in os.listdir(system.path("state")):
                if name.startswith("notification_log"):
                    os.remove(system.path("state", name))
            done = system.vrxctl("traps", check=False)
            self.assertEqual(done.returncode, EX_DATAERR)
            self.assertIn(system.path("state", "notification_log.db"), done.stderr)

    def test_a_file_that_is_damaged_costs_the_log_only(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            system.agent.stop()
            path = system.path("state", "notification_log.db")
            with open(path, "wb") as file:
                file.write(b"damaged" * 1000)
            system.agent.start()
            system.raise_alarm(1)
            receiver.wait_for(2)  # coldStart of the second start
            system.wait_log("the notification log cannot be written, trying again: ")
            self.assertEqual((status(system)["written"], status(system)["waiting"]), (0, 1))
            os.remove(path)
            self.assertEqual([e["serial"] for e in self.found(system)], [1])
            self.assertEqual(len(system.wait_log("the notification log can be written again")), 1)
            self.assertEqual(status(system)["not_written"], 0)

    @staticmethod
    def found(system):
        return wait_for(lambda: status(system)["written"] == 1 and entries(system), "the entry")


class Resending(unittest.TestCase):
    def test_a_trap_is_sent_again_to_where_it_went(self):
        with TrapSystem() as system, TrapReceiver() as receiver, TrapReceiver() as other:
            system.add_destination(1, receiver.port)
            system.add_destination(2, other.port, trap_type=NAMED)
            system.raise_alarm()
            receiver.wait_for(2)
            wait_entries(system, 2)
            self.assertEqual(system.vrxctl("traps", "resend", "1"), "sent again to 1\n")
            receiver.wait_for(3)
            first, _, again = alarm_traps(receiver)
            self.assertEqual((again.oid, again.bindings), (COMMON_TRAP, first.bindings))
            self.assertEqual(system.vrxctl("traps", "resend", "1", "--to", "2"), "sent again to 2\n")
            other.wait_for(2)
            self.assertEqual(alarm_traps(other)[1].bindings, first.bindings)
            log = wait_entries(system, 4)
            self.assertEqual([(e["again"], e["destinations"], e["serial"]) for e in log[2:]],
                             [(1, ["1"], SERIAL), (1, ["2"], SERIAL)])
            self.assertEqual(of_entry(log[2]), of_entry(log[0]))
            self.assertEqual(status(system)["sent_again"], 2)
            self.assertIn("(entry 1 again)", system.vrxctl("traps", "--last", "1"))

    def test_what_cannot_be_is_told(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            system.raise_alarm()
            wait_entries(system, 1)

            def refusal(*arguments):
                done = system.vrxctl("traps", *arguments, check=False)
                return done.returncode, done.stderr

            self.assertEqual(refusal("resend", "7"), (EX_UNAVAILABLE, "vrxctl: the notification log has no entry 7\n"))
            self.assertEqual(refusal("resend", "1", "--to", "9"),
                             (EX_UNAVAILABLE, "vrxctl: there is no trap destination 9\n"))
            self.assertEqual(refusal("show", "7"), (EX_DATAERR, "vrxctl: the notification log has no entry 7\n"))
            system.set("%s.3.1" % DESTINATIONS, "i", "6")
            self.assertEqual(refusal("resend", "1"),
                             (EX_UNAVAILABLE, "vrxctl: the destinations of entry 1 are gone: 1\n"))
            system.agent.stop()
            self.assertEqual(refusal("resend", "1"),
                             (EX_UNAVAILABLE, "vrxctl: no agent can be reached at %s\n"
                              % system.path("state", "agent.sock")))


if __name__ == "__main__":
    unittest.main()
