"""Disks that fail or are full: what was acknowledged stays, what cannot be kept is refused, one line tells of each change
of state, and everything goes on when there is space again.
"""

import errno
import json
import os
import resource
import sqlite3
import subprocess
import unittest

import snmp
from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import FaultySystem
from harness import BUILD_DIR, CLEAR_ALARM, DESTINATIONS, values, wait_for
from inform_receiver import InformReceiver
from snmp import GET, GETBULK, NO_ERROR, RESOURCE_UNAVAILABLE, SET, Manager
from trap_receiver import TrapReceiver

CREATE_AND_GO, DESTROY = 4, 6
ERRORS = (errno.EIO, errno.ENOSPC)
LONGEST = 200  # changes of files for one request: far more than any makes
EX_IOERR = 74  # sysexits.h
SECONDS = 60   # for the end of a program that cannot start


def create(row, port):
    return [("%s.6.%d" % (DESTINATIONS, row), snmp.octets("127.0.0.1")),
            ("%s.2.%d" % (DESTINATIONS, row), snmp.unsigned(port)),
            ("%s.3.%d" % (DESTINATIONS, row), snmp.number(CREATE_AND_GO))]


def destroy(row):
    return [("%s.3.%d" % (DESTINATIONS, row), snmp.number(DESTROY))]


class Storage(unittest.TestCase):
    def setUp(self):
        self.system = FaultySystem()
        self.system.__enter__()
        self.addCleanup(self.system.close)
        self.manager = Manager(self.system.port)
        self.addCleanup(self.manager.__exit__)
        self.state = self.system.path("state")

    def rows(self):
        answer = self.manager.ask(GETBULK, [DESTINATIONS + ".2"], second=4)
        return {int(name.rpartition(".")[2]): value for name, _, value in answer.bindings
                if name.startswith(DESTINATIONS + ".2.")}

    def lines(self, program, part):
        return [line for line in program.log().splitlines() if part in line]

    def raise_one(self, parameters="a,b"):
        """The serial number, or None when the backend refuses."""
        with BackendClient(self.system.path("state", "backend.sock")) as backend:
            try:
                body = backend.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, parameters)))
            except AssertionError:
                return None
        return int.from_bytes(body[-4:], "little")

    def each_change_failing(self, faults, database, error, act):
        """Does it again and again, while one change of the file after the other fails, until none does. Gives the number
        of the change and what came of it, when the disk is well again."""
        for number in range(1, LONGEST):
            faults.fail_change("%s/%s" % (self.state, database), number, error)
            result = act(number)
            failed = faults.changes()[1]
            faults.stop()
            yield number, result
            if not failed:
                self.assertGreater(number, 1)
                return
        self.fail("changes without end")

    # The list of destinations

    def test_a_set_is_kept_whole_or_refused_wherever_a_write_fails(self):
        for error in ERRORS:
            for number, answer in self.each_change_failing(self.system.agent_faults, "trap_destinations.db", error,
                                                           lambda _: self.manager.ask(SET, create(2, 9))):
                self.assertIn(answer.error, (NO_ERROR, RESOURCE_UNAVAILABLE), number)
                self.assertEqual(self.rows(), {2: 9} if answer.error == NO_ERROR else {}, number)
                if answer.error == NO_ERROR:
                    self.assertEqual(self.manager.ask(SET, destroy(2)).error, NO_ERROR)
            self.assertGreater(number, 4)

    def test_a_full_disk_refuses_sets_with_one_line_until_there_is_space(self):
        self.assertEqual(self.manager.ask(SET, create(1, 9)).error, NO_ERROR)
        self.system.agent_faults.fail_change(self.state + "/trap_destinations.db", forever=True)
        for _ in range(5):
            self.assertEqual(self.manager.ask(SET, create(2, 10)).error, RESOURCE_UNAVAILABLE)
        self.assertEqual(self.rows(), {1: 9})
        self.system.agent_faults.stop()
        self.assertEqual(self.manager.ask(SET, create(2, 10)).error, NO_ERROR)
        self.assertEqual(len(self.lines(self.system.agent, "trap_destinations.db cannot be written: ")), 1)
        self.assertEqual(len(self.lines(self.system.agent, "trap_destinations.db can be written again")), 1)
        self.system.agent.kill()
        self.system.agent.start()
        self.assertEqual(self.rows(), {1: 9, 2: 10})

    # The backend's alarms

    def test_an_alarm_is_kept_or_refused_wherever_a_write_fails(self):
        acknowledged, refused = {}, 0
        for error in ERRORS:
            def parameters_of(number, error=error):
                return "%s,%d" % (errno.errorcode[error], number)

            for number, serial in self.each_change_failing(self.system.backend_faults, "backend.db", error,
                                                           lambda number: self.raise_one(parameters_of(number))):
                parameters = parameters_of(number)
                if serial is None:  # it does not come up after a crash either
                    refused += 1
                    self.system.backend.kill()
                    self.system.backend.start()
                else:
                    acknowledged[serial] = parameters
                self.assertEqual(self.kept(), acknowledged, parameters)
            self.system.backend.kill()
            self.system.backend.start()
            self.assertEqual(self.kept(), acknowledged)
            self.assertEqual(self.view(acknowledged), list(acknowledged))
        self.assertGreater(refused, 1)

    def kept(self):
        """The backend's alarms: their parameters by serial number."""
        return {alarm["serial"]: alarm["parameters"] for alarm in json.loads(self.system.vrxctl("list", "--json"))}

    def view(self, serials):
        """Those of the serial numbers that the agent's table has."""
        def read():
            answers = [self.manager.ask(GET, ["1.3.6.1.4.1.99871.2.91.10.1.1.1.9.%d" % serial]) for serial in serials]
            return answers if all(answer.error == NO_ERROR for answer in answers) else None

        return [answer.bindings[0][2] for answer in wait_for(read, "the alarm table")]

    def test_a_full_disk_refuses_alarms_and_clears_with_one_line(self):
        first = self.raise_one()
        self.system.backend_faults.fail_change(self.state + "/backend.db", forever=True)
        for _ in range(5):
            self.assertIsNone(self.raise_one())
            self.assertNotEqual(self.manager.ask(SET, [(CLEAR_ALARM, snmp.unsigned(first))]).error, NO_ERROR)
        self.assertEqual(self.view([first]), [first])
        self.system.backend_faults.stop()
        self.assertIsNotNone(self.raise_one())
        self.assertEqual(len(self.lines(self.system.backend, "alarm store: ")), 2)
        self.assertEqual(len(self.lines(self.system.backend, "alarm store: can be written again")), 1)

    # What the agent remembers

    def test_the_agent_goes_on_when_it_cannot_remember_and_catches_up(self):
        with TrapReceiver() as receiver:
            self.assertEqual(self.manager.ask(SET, create(1, receiver.port)).error, NO_ERROR)
            self.system.agent_faults.fail_change(self.state + "/notifications.db", error=errno.EIO, forever=True)
            for _ in range(5):
                self.assertIsNotNone(self.raise_one())
            receiver.wait_for(5)
            wait_for(lambda: self.lines(self.system.agent, "handled cannot be stored, trying again"), "the line")
            self.system.agent_faults.stop()
            wait_for(lambda: self.lines(self.system.agent, "handled can be stored again"), "the second line")
            self.assertEqual(len(self.lines(self.system.agent, "handled cannot be stored")), 1)
            self.system.agent.kill()
            seen = len(receiver.datagrams())
            self.assertIsNotNone(self.raise_one())
            self.system.agent.start()
            receiver.wait_for(seen + 1)  # the one that came meanwhile

    def test_what_is_done_with_is_remembered_wherever_a_write_fails(self):
        with TrapReceiver() as receiver:
            self.assertEqual(self.manager.ask(SET, create(1, receiver.port)).error, NO_ERROR)
            serials = []

            def act(_):
                serials.append(self.raise_one())
                wait_for(lambda: self.remembered() == len(serials), "event %d" % len(serials))

            for error in ERRORS:
                list(self.each_change_failing(self.system.agent_faults, "notifications.db", error, act))
                self.system.agent.kill()
                self.system.agent.start()
                serials.append(self.raise_one())  # it comes after what would come again
                wait_for(lambda: [trap.value(9) for trap in receiver.traps() if trap.bindings][-1:] == serials[-1:],
                         "the trap after the restart")
                self.assertEqual([trap.value(9) for trap in receiver.traps() if trap.bindings], serials)
        lines = [self.lines(self.system.agent, "handled can" + rest) for rest in ("not be stored", " be stored again")]
        self.assertGreater(len(lines[0]), 1)
        self.assertEqual(len(lines[0]), len(lines[1]))

    def remembered(self):
        """The number of the last event that is done with, on disk. The row comes with the first."""
        database = sqlite3.connect("file:%s/notifications.db?mode=ro" % self.state, uri=True)
        try:
            row = database.execute("SELECT done FROM ledger").fetchone()
            return row[0] if row else 0
        finally:
            database.close()

    def test_a_full_disk_costs_no_trap_and_the_notification_log_catches_up(self):
        def log_status():
            return json.loads(self.system.vrxctl("status", "--json"))["notification_log"]

        with TrapReceiver() as receiver:
            self.assertEqual(self.manager.ask(SET, create(1, receiver.port)).error, NO_ERROR)
            self.system.agent_faults.fail_change(self.state + "/notification_log.db", forever=True)
            serials = [self.raise_one() for _ in range(5)]
            receiver.wait_for(5)
            wait_for(lambda: self.lines(self.system.agent, "the notification log cannot be written, trying again: "),
                     "the line")
            wait_for(lambda: log_status()["waiting"] >= 5, "entries that wait")
            self.assertEqual(log_status()["written"], 0)
            self.assertNotEqual(log_status()["fault"], "")
            self.system.agent_faults.stop()
            wait_for(lambda: self.lines(self.system.agent, "the notification log can be written again"),
                     "the second line")
            self.assertEqual(len(self.lines(self.system.agent, "the notification log cannot be written")), 1)
            self.assertEqual((log_status()["waiting"], log_status()["not_written"], log_status()["fault"]), (0, 0, ""))
            logged = [entry["serial"] for entry in json.loads(self.system.vrxctl("traps", "--json"))]
            self.assertEqual(sorted(set(logged)), serials)
            self.assertEqual(len(logged), len(receiver.datagrams()))

    def test_an_entry_is_whole_or_waits_wherever_a_write_fails(self):
        with TrapReceiver() as receiver:
            self.assertEqual(self.manager.ask(SET, create(1, receiver.port)).error, NO_ERROR)

            def act(_):
                serial = self.raise_one()
                wait_for(lambda: self.system.vrxctl("traps", "--json", "--serial", str(serial),
                                                    check=False).stdout.count("number") > 0, "the entry")

            for error in ERRORS:
                list(self.each_change_failing(self.system.agent_faults, "notification_log.db", error, act))
            numbers = [entry["number"] for entry in json.loads(self.system.vrxctl("traps", "--json"))]
            self.assertEqual(numbers, list(range(1, len(numbers) + 1)))

    def test_files_at_their_size_limit_are_failing_writes(self):
        """The whole of Net-SNMP's own files, too, which no shim reaches: a limit on the size of every file."""
        with open(self.system.agent.log_path, "ab") as file:
            log = subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=file)
        self.addCleanup(log.wait)
        self.addCleanup(log.stdin.close)
        self.addCleanup(self.system.agent.stop)  # the log's other end
        self.system.agent.stop()
        self.system.agent._log_start = os.path.getsize(self.system.agent.log_path)
        agent = self.restart_into(log.stdin)
        soft, hard = resource.prlimit(agent.pid, resource.RLIMIT_FSIZE)
        resource.prlimit(agent.pid, resource.RLIMIT_FSIZE, (0, hard))
        self.assertEqual(self.manager.ask(SET, create(3, 11)).error, RESOURCE_UNAVAILABLE)
        self.assertIsNotNone(self.raise_one())
        self.assertEqual(self.rows(), {})
        self.assertIsNone(agent.poll())
        resource.prlimit(agent.pid, resource.RLIMIT_FSIZE, (soft, hard))
        self.assertEqual(self.manager.ask(SET, create(3, 11)).error, NO_ERROR)
        self.assertEqual(self.rows(), {3: 11})

    def restart_into(self, log):
        """The agent with its log in a pipe, which has no size."""
        program = self.system.agent
        program.process = subprocess.Popen([os.path.join(BUILD_DIR, "bin", program.name)] + program.arguments,
                                           stdout=log, stderr=log, env=dict(os.environ, **program.environment))
        program.wait_ready()
        return program.process


class Start(unittest.TestCase):
    """Disks that fail when a program opens its stores: it ends and names the file, or goes on and catches up."""

    # By store: what is told, and the exit code, or None for a program that goes on.
    FIRST = {
        "backend.db": ("alarm store: %s: ", EX_IOERR),
        "informs.db": ("error [agent] %s: ", EX_IOERR),
        "notifications.db": ("error [agent] %s: ", EX_IOERR),
        "notification_log.db": ("the notification log cannot be written, trying again: ", None),
        "trap_destinations.db": ("the store of trap destinations cannot be opened: %s: ", None),
    }
    LATER = dict(FIRST, **{"trap_destinations.db": ("info [agent] ready", None)})  # it is only read

    def start(self, system, store, expected):
        """With a disk that fails for this store alone, and then, unless it goes on, with one that does not."""
        line, code = expected
        path = os.path.realpath(system.path("state")) + "/" + store
        program, faults = ((system.backend, system.backend_faults) if store == "backend.db" else
                           (system.agent, system.agent_faults))
        faults.fail_change(path, forever=True)
        program.start(wait=False)
        if code is None:
            program.wait_ready()
        else:
            self.assertEqual(program.process.wait(SECONDS), code, program.log(since_start=True))
            program.process = None
        told = line % path if "%s" in line else line
        wait_for(lambda: told in program.log(since_start=True), told)
        self.assertEqual(program.log(since_start=True).count(told), 1)
        faults.stop()
        if code is not None:
            program.start()

    @staticmethod
    def raise_one(system):
        with BackendClient(system.path("state", "backend.sock")) as backend:
            body = backend.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b")))
        return int.from_bytes(body[-4:], "little")

    @staticmethod
    def serials(receiver):
        return {trap.value(9) for trap in receiver.traps() if trap.bindings}

    def test_a_first_start_ends_with_a_word_or_waits_for_the_disk(self):
        for store, expected in self.FIRST.items():
            with self.subTest(store), FaultySystem(start=False) as system, TrapReceiver() as receiver:
                if store != "backend.db":
                    system.backend.start()
                self.start(system, store, expected)
                if store == "backend.db":
                    system.agent.start()
                wait_for(lambda: "subscribed at " in system.agent.log(), "the subscription")
                system.add_destination(1, receiver.port)
                serial = self.raise_one(system)
                wait_for(lambda: self.serials(receiver) == {serial}, "its trap")
                wait_for(lambda: system.vrxctl("traps", "--json", "--serial", str(serial), check=False).stdout.count(
                    "number"), "its entry")

    def test_a_start_behind_kill_loses_nothing(self):
        with InformReceiver() as informs, TrapReceiver() as receiver, \
                FaultySystem(extra_config="informsink 127.0.0.1 informs %d\n" % informs.port) as system:
            informs.answering = False  # what it gets waits on disk
            wait_for(lambda: "subscribed at " in system.agent.log(), "the subscription")
            system.add_destination(1, receiver.port)
            serials = [self.raise_one(system)]
            for store, expected in self.LATER.items():
                wait_for(lambda: self.serials(receiver) == set(serials), "traps before " + store)
                system.agent.kill()
                serials.append(self.raise_one(system))  # while the agent is away
                if store == "backend.db":
                    system.backend.kill()
                    self.start(system, store, expected)
                    system.agent.start()
                else:
                    self.start(system, store, expected)
                self.assertEqual(values(system.get(DESTINATIONS + ".2.1"))[0][1], "Gauge32: %d" % receiver.port, store)
            wait_for(lambda: self.serials(receiver) == set(serials), "all traps")
            self.assertEqual([alarm["serial"] for alarm in json.loads(system.vrxctl("list", "--json"))], serials)
            informs.answering = True
            wait_for(lambda: set(informs.serials(acknowledged=True)) == set(serials), "all informs")


if __name__ == "__main__":
    unittest.main()
