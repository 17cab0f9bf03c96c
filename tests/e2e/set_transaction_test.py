"""A SET of trap destinations and the clear-alarm scalar is one: nobody sees, loses or misses anything of it until it is
decided. The backend's answer to the clear is kept back, which holds the SET open for as long as a test needs."""

import json
import os
import pathlib
import resource
import subprocess
import threading
import unittest

from backend_client import CLEAR_ALARM as CLEAR_COMMAND
from backend_client import BackendClient, CountingProxy
from harness import AGENT_CONFIG, CLEAR_ALARM, DESTINATIONS, PROGRAM_DIR, V3, System, values, wait_for
from trap_receiver import TrapReceiver
from writing_test import CREATE_AND_GO, DESTROY, row

NOT_ACTIVE = 99999  # no alarm has that serial number
COMMON_TRAP = "1.3.6.1.4.1.99871.2.91.10.2.1.0.1"
LONG_MS = 60_000
SHORT_MS = 300


class Gate:
    """Keeps the calls of one command back on their way to the backend: hold(), wait_held() for one, release()."""

    def __init__(self, command):
        self._command = command
        self._held = threading.Event()
        self._open = threading.Event()
        self._open.set()

    def pass_through(self, command):
        if command == self._command and not self._open.is_set():
            self._held.set()
            self._open.wait()

    def hold(self):
        self._held.clear()
        self._open.clear()

    def wait_held(self):
        if not self._held.wait(60):
            raise AssertionError("no call came")

    def release(self):
        self._open.set()


class OpenSet(unittest.TestCase):
    """Each test holds a SET open between its rows and the end of its clear."""

    def begin(self, call_deadline=LONG_MS, request_deadline=LONG_MS, config="", device=None):
        deadline = "vrxRequestDeadline %d\n" % request_deadline
        self.system = System(start=False, agent_config=AGENT_CONFIG + "trapcommunity traps\n" + deadline + config,
                             device={("BACKEND", "ADDRESS"): "unix:state/proxy.sock",
                                     ("BACKEND", "CALL_DEADLINE_MS"): call_deadline, **(device or {})},
                             backend_arguments=["--address", "unix:state/backend.sock"])
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.clears = Gate(CLEAR_COMMAND)
        proxy = CountingProxy(self.system.path("state", "proxy.sock"), self.system.path("state", "backend.sock"),
                              on_call=self.clears.pass_through)
        self.addCleanup(proxy.__exit__)
        self.addCleanup(self.clears.release)
        self.system.agent.start()
        self.alarms = BackendClient(self.system.path("state", "backend.sock"))
        self.addCleanup(self.alarms.__exit__)

    def set_in_background(self, *arguments):
        """A manager that waits for its answer for as long as it takes."""
        manager = subprocess.Popen(["snmpset", "-On", "-Oe", "-t", "60", "-r", "0"] + V3 + [self.system.address] +
                                   list(arguments), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                   env=self.system.tool_environment())
        self.addCleanup(manager.stdout.close)
        return manager

    def hold_open(self, *rows, serial=NOT_ACTIVE):
        """A SET of the rows and a clear that has come to its clear."""
        self.clears.hold()
        manager = self.set_in_background(*rows, CLEAR_ALARM, "u", str(serial))
        self.clears.wait_held()
        return manager

    def succeeds(self, manager):
        said = manager.communicate()[0]
        self.assertEqual(manager.returncode, 0, said)

    def fails(self, manager, error, failed):
        said = manager.communicate()[0]
        self.assertEqual(manager.returncode, 2, said)
        self.assertIn(error, said)
        if failed:
            self.assertIn("Failed object: ." + failed + "\n", said)

    def rows(self):
        done = self.system.run("snmpbulkwalk", DESTINATIONS, version=V3, check=False)
        return {name[len(DESTINATIONS) + 1:]: value for name, value in values(done.stdout) if "No Such" not in value}

    def active(self):
        return json.loads(self.system.vrxctl("list", "--json"))

    def told_destinations(self):
        rows = json.loads(self.system.vrxctl("status", "--json"))["destinations"]
        return [(row["number"], row["address"], row["port"], row["version"]) for row in rows]

    # Others meanwhile

    def test_what_another_manager_was_acknowledged_stays_when_the_set_is_refused(self):
        self.begin()
        self.system.add_destination(1, 5162)
        before = self.rows()
        refused = self.hold_open(*row(1, PORT=6162))
        other = self.set_in_background(*row(1, USER="ops"))
        self.assertEqual(self.rows(), before)  # both are read as undecided
        self.clears.release()
        self.fails(refused, "genError", CLEAR_ALARM)
        self.succeeds(other)
        self.assertEqual(self.rows(), dict(before, **{"8.1": 'STRING: "ops"'}))

    def test_nobody_sees_a_set_before_it_is_decided(self):
        self.begin()
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        self.system.add_destination(2, 5163)
        before, told = self.rows(), self.told_destinations()
        manager = self.hold_open(*row(1, PORT=6162), *row(2, STATUS=DESTROY),
                                 *row(3, ADDRESS="127.0.0.1", PORT=5164, STATUS=CREATE_AND_GO), serial=1)
        self.assertEqual(self.rows(), before)
        self.assertEqual(self.system.get(DESTINATIONS + ".2.2").split()[-1], "5163")
        self.assertEqual(self.told_destinations(), told)
        self.assertIsNone(manager.poll())
        self.clears.release()
        self.succeeds(manager)
        after = self.rows()
        self.assertEqual({name: value.split()[-1] for name, value in after.items() if name.startswith("2.")},
                         {"2.1": "6162", "2.3": "5164"})

    def test_an_alarm_raised_meanwhile_is_told_to_the_destinations_as_acknowledged(self):
        self.begin()
        with TrapReceiver() as receiver:
            self.system.add_destination(1, receiver.port, trap_type=1)
            refused = self.hold_open(*row(1, STATUS=DESTROY))
            self.alarms.raise_alarms(1)
            wait_for(lambda: [trap for trap in receiver.traps() if trap.oid == COMMON_TRAP], "the alarm's trap")
            self.assertIsNone(refused.poll())
            self.clears.release()
            self.fails(refused, "genError", CLEAR_ALARM)

    def test_a_row_to_be_destroyed_is_there_when_the_clear_is_refused_whatever_else_has_changed(self):
        self.begin(device={("TRAP", "DESTINATION_LIMIT"): 2})
        self.system.vrxctl("user", "add", "leaver")
        self.system.add_destination(1, 5162, version=3, user="leaver")
        self.system.add_destination(2, 5163)
        before = self.rows()
        refused = self.hold_open(*row(1, STATUS=DESTROY))
        taker = self.set_in_background(*row(1, ADDRESS="127.0.0.1", PORT=5199, STATUS=CREATE_AND_GO))
        removal = self.remove_user("leaver")
        self.clears.release()
        self.fails(refused, "genError", CLEAR_ALARM)
        self.fails(taker, "inconsistentValue", DESTINATIONS + ".3.1")
        self.assertEqual(removal.wait(), 0)
        self.assertEqual(self.rows(), before)
        self.assertEqual(self.system.agent.stop(), 0)
        self.system.set_device({("TRAP", "DESTINATION_LIMIT"): 1})
        self.system.agent.start()
        refused = self.hold_open(*row(1, STATUS=DESTROY))
        self.clears.release()
        self.fails(refused, "genError", CLEAR_ALARM)
        self.assertEqual(self.rows(), before)

    def remove_user(self, name):
        """Begins to, until it waits for the handlers: the agent has checked its configuration by then."""
        children = "/proc/%d/task/%d/children" % (self.system.agent.pid, self.system.agent.pid)
        removal = subprocess.Popen([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", self.system.root, "user", "remove",
                                    name], stdout=subprocess.DEVNULL)
        for checks in (True, False):
            wait_for(lambda: bool(pathlib.Path(children).read_text()) is checks, "the check of the configuration")
        return removal

    def test_a_set_that_waits_for_another_ones_end_has_its_own_deadline(self):
        self.begin(request_deadline=400)
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        before = self.rows()
        manager = self.hold_open(*row(1, PORT=6162), serial=1)
        for _ in range(2):  # one that was given up leaves nothing behind
            self.fails(self.set_in_background(*row(1, USER="late")), "genError", None)
        self.assertEqual(self.rows(), before)
        self.assertIn("it came to its deadline before its turn", self.system.agent.log())
        self.clears.release()
        self.succeeds(manager)
        self.assertEqual(self.rows(), dict(before, **{"2.1": "Gauge32: 6162"}))
        self.system.set(*row(1, PORT=7162))

    def test_a_clear_alone_waits_for_no_rows(self):
        self.begin()
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        self.clears.hold()
        clear = self.set_in_background(CLEAR_ALARM, "u", "1")
        self.clears.wait_held()
        self.system.set(*row(1, PORT=6162))
        self.assertIsNone(clear.poll())
        self.clears.release()
        self.succeeds(clear)

    # The end of the agent

    def test_after_a_kill_nothing_of_an_undecided_set_is_there(self):
        self.begin()
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        self.system.add_destination(2, 5163)
        before = self.rows()
        manager = self.hold_open(*row(1, PORT=6162), *row(2, STATUS=DESTROY), serial=1)
        self.system.agent.kill()
        manager.kill()
        manager.wait()
        self.system.agent.start()
        self.assertEqual(self.rows(), before)
        self.system.set(*row(2, STATUS=DESTROY))

    def test_an_end_with_a_set_open_is_a_clean_one(self):
        self.begin()
        self.system.add_destination(1, 5162)
        before = self.rows()
        manager = self.hold_open(*row(1, PORT=6162))
        waiting = self.set_in_background(*row(1, USER="late"))
        self.assertEqual(self.system.agent.stop(), 0)
        for program in (manager, waiting):
            program.kill()
            program.wait()
        self.clears.release()
        self.system.agent.start()
        self.assertEqual(self.rows(), before)

    # What cannot be taken back

    def test_a_clear_without_an_answer_in_time_is_refused_and_may_be_done_all_the_same(self):
        self.begin(call_deadline=SHORT_MS)
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        before = self.rows()
        self.fails(self.hold_open(*row(1, PORT=6162), serial=1), "resourceUnavailable", CLEAR_ALARM)
        self.assertEqual(self.rows(), before)
        self.assertIn("whether the backend has carried it out is not known", self.system.agent.log())
        self.clears.release()
        wait_for(lambda: not self.active(), "the backend to clear the alarm all the same")

    def test_rows_that_cannot_be_kept_after_the_clear_are_told_as_undo_failed(self):
        self.begin()
        self.alarms.raise_alarms(1)
        self.system.add_destination(1, 5162)
        before = self.rows()
        manager = self.hold_open(*row(1, PORT=6162, USER="ops"), serial=1)
        # No file of the agent grows beyond that now: its log has room, the index of the store (its third page) has none.
        _, hard = resource.prlimit(self.system.agent.pid, resource.RLIMIT_FSIZE)
        self.assertLess(os.path.getsize(self.system.agent.log_path), 4096)
        resource.prlimit(self.system.agent.pid, resource.RLIMIT_FSIZE, (2 * 4096 + 100, hard))
        self.clears.release()
        self.fails(manager, "undoFailed", None)
        resource.prlimit(self.system.agent.pid, resource.RLIMIT_FSIZE, (hard, hard))
        self.assertEqual(self.rows(), before)
        self.assertIn("a SET has changed vrxClearAlarm for good, and its other values could not be kept: ", self.system.agent.log())
        self.system.set(*row(1, PORT=6162))


if __name__ == "__main__":
    unittest.main()
