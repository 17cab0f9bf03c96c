"""Memory that runs out: in a request of each object and in a notification of each kind every allocation fails once, then
all of them from one on; or no thread can be made. Nothing crashes or leaks, a SET is done whole or not at all, and the
next request is answered.

TAMREL_FAULT_STRIDE is the distance between the allocations that fail in notifications (default 9; 1: every one).
"""

import json
import os
import time
import unittest

import snmp
from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from faults import FaultySystem
from harness import ALARMS, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V3, slowdown, wait_for
from inform_receiver import InformReceiver
from snmp import GET, GETBULK, NO_ERROR, SET, Manager
from trap_receiver import TrapReceiver, decode

STORMS = "vrxStormChanges 2\nvrxStormWindow 3600\nvrxStormInterval 1\n"
COLD_TABLES = "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\n"  # each request reads anew

CREATE_AND_GO, DESTROY = 4, 6
UNKNOWN_ALARM = 77
ACTIVE, ENDED = 1, 2  # the category of a trap
STRIDE = int(os.environ.get("TAMREL_FAULT_STRIDE", "9"))

COUNT = 8  # alarms that are active


def column(number, row=1):
    return "%s.%d.%d" % (DESTINATIONS, number, row)


def create(row, port):
    return [(column(6, row), snmp.octets("127.0.0.1")), (column(2, row), snmp.unsigned(port)),
            (column(7, row), snmp.number(3)), (column(3, row), snmp.number(CREATE_AND_GO))]


# What the log says of an event that nobody is told of.
NO_TRAP = ("is skipped", "gives no trap")


class MemorySystem(FaultySystem):
    """With alarms, and a destination that takes both kinds of traps."""

    def __init__(self, words="", **more):
        super().__init__(extra_config=COLD_TABLES + words, device={("TRAP", "RATE"): 0}, **more)

    def __enter__(self):
        super().__enter__()
        self.receiver = TrapReceiver()
        self.receiver.__enter__()
        self.manager = Manager(self.port)
        self.alarms = BackendClient(self.path("state", "backend.sock"))
        self.alarms.raise_alarms(COUNT)
        if self.manager.ask(SET, create(1, self.receiver.port)).error != NO_ERROR:
            raise AssertionError("no destination")
        wait_for(lambda: self.wait_for_view(range(1, COUNT + 1)), "the alarms")
        return self

    def __exit__(self, *how):
        self.agent_faults.stop()
        self.alarms.__exit__()
        self.manager.__exit__()
        self.receiver.__exit__()
        super().__exit__(*how)

    def wait_for_view(self, serials):
        answer = self.manager.ask(GETBULK, [ALARMS + ".9"], second=COUNT + 5)
        names = [name for name, kind, _ in answer.bindings if name.startswith(ALARMS + ".9.")]
        return names == ["%s.9.%d" % (ALARMS, serial) for serial in serials]

    def log_size(self):
        return os.path.getsize(self.agent.log_path)

    def ask_while_failing(self, kind, bindings, number, forever, **more):
        """(answer or None, whether an allocation failed, whether the log tells of it)"""
        size = self.log_size()
        self.agent_faults.fail_allocation(number, forever)
        self.manager.send(kind, bindings, **more)
        answer = None
        end = time.monotonic() + (30 if not forever else 0.2)
        while answer is None and time.monotonic() < end and self.agent.running():
            answer = self.manager.receive(0.05)
            if answer is None and self.log_size() > size:
                answer = self.manager.receive(0.05)
                break
        failed = self.agent_faults.allocations()[1]
        self.agent_faults.stop()
        return answer, failed > 0, self.log_size() > size


class Requests(unittest.TestCase):
    LONGEST = 2000  # allocations of one request: far more than any has

    def sweep(self, kind, bindings, then=None, before=None, **more):
        """`then` sees, after each request, whether it was carried out: True, False, or None where nobody said. `before`
        is a SET that makes what the request needs."""
        with MemorySystem() as system:
            if before:
                self.assertEqual(system.manager.ask(SET, before).error, NO_ERROR)
            for forever in (False, True):
                self.sweep_one(system, kind, bindings, forever, then, more)

    @staticmethod
    def status(system):
        answer = system.manager.ask(GET, [TOPOLOGY + ".8.1"])
        return answer.error, answer.bindings[0][2]

    def sweep_one(self, system, kind, bindings, forever, then, more):
        failures = 0
        # With all after it failing, a few places of the failure tell as much as all: nothing gets far.
        for number in range(1, self.LONGEST, 7 if forever else 1):
            answer, failed, told = system.ask_while_failing(kind, bindings, number, forever, **more)
            where = "allocation %d%s" % (number, " and all after it" if forever else "")
            self.assertTrue(system.agent.running(), where)
            if answer is None and not forever:
                self.assertTrue(told, where + ": no answer and no word about it")
            # Soon: after a failure the agent may pause before it asks the backend again.
            wait_for(lambda: self.status(system) == (NO_ERROR, 1), where)
            if then:
                then(system, None if answer is None else answer.error == NO_ERROR, where)
            if not failed:
                wait_for(lambda: system.manager.ask(kind, bindings, **more).error == NO_ERROR, where)
                if then:
                    then(system, True, where)
                break
            failures += 1
        else:
            self.fail("allocations without end")
        self.assertGreater(failures, 1 if forever else 10)

    def test_reading_the_topology(self):
        self.sweep(GET, [TOPOLOGY + ".1.1", TOPOLOGY + ".8.1"])

    def test_reading_an_alarm(self):
        self.sweep(GET, [ALARMS + ".10.1"])

    def test_reading_all_alarms(self):
        self.sweep(GETBULK, [ALARMS], second=COUNT + 2)

    def test_reading_the_destinations(self):
        self.sweep(GETBULK, [DESTINATIONS], second=9)

    def test_reading_the_clear_scalar(self):
        self.sweep(GET, [CLEAR_ALARM])

    def test_clearing_an_alarm(self):
        def check(system, done, where):
            serial = system.serial
            def read():
                answer = system.manager.ask(GET, ["%s.9.%d" % (ALARMS, serial)])
                return None if answer.error != NO_ERROR else answer.bindings[0][1]

            gone = wait_for(read, "the table") == "noSuchInstance"
            if done is not None:
                # A clear that was done when memory ran out after it is told as a failure; never the other way.
                self.assertTrue(gone or not done, where)

            def is_back():  # a SET that nobody had an answer of may be carried out only now
                kind = read()
                if kind == "noSuchInstance":
                    system.alarms.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), uint(3, serial),
                                              text(8, "someone,once")))
                return kind == "Gauge32"

            wait_for(is_back, "the alarm again")

        MemorySystem.serial = 2
        self.sweep(SET, [(CLEAR_ALARM, snmp.unsigned(2))], check)

    def rows(self, system):
        answer = system.manager.ask(GETBULK, [DESTINATIONS + ".2"], second=3)
        return {name[len(DESTINATIONS) + 3:]: value for name, _, value in answer.bindings
                if name.startswith(DESTINATIONS + ".2.")}

    def test_creating_a_destination(self):
        def check(system, done, where):
            rows = self.rows(system)
            whole = {"1": system.receiver.port, "2": 9}
            before = {"1": system.receiver.port}
            self.assertIn(rows, [whole, before] if done is None else [whole] if done else [before], where)
            if rows == whole:
                self.assertEqual(system.manager.ask(SET, [(column(3, 2), snmp.number(DESTROY))]).error, NO_ERROR)

        self.sweep(SET, create(2, 9), check)

    def test_destroying_a_destination(self):
        def check(system, done, where):
            rows = self.rows(system)
            gone = {"1": system.receiver.port}
            there = dict(gone, **{"2": 9})
            self.assertIn(rows, [gone, there] if done is None else [gone] if done else [there], where)
            if rows == gone:
                self.assertEqual(system.manager.ask(SET, create(2, 9)).error, NO_ERROR)

        self.sweep(SET, [(column(3, 2), snmp.number(DESTROY))], check, before=create(2, 9))

    def test_changing_a_destination(self):
        def check(system, done, where):
            rows = self.rows(system)
            self.assertIn(rows["1"], [9, system.receiver.port] if done is None else [9 if done else
                                                                                     system.receiver.port], where)
            if rows["1"] == 9:
                self.assertEqual(system.manager.ask(SET, [(column(2), snmp.unsigned(system.receiver.port))]).error,
                                 NO_ERROR)

        self.sweep(SET, [(column(2), snmp.unsigned(9))], check)


class WithoutThreads(unittest.TestCase):
    """No thread can be made when one is needed: what would wait for memory waits, the rest is answered or told of."""

    def setUp(self):
        self.system = FaultySystem(device={("TRAP", "RATE"): 0})
        self.system.__enter__()
        self.addCleanup(self.system.close)
        self.manager = Manager(self.system.port)
        self.addCleanup(self.manager.__exit__)

    def test_a_reading_is_answered_or_told_of_and_the_next_one_is_served(self):
        size = os.path.getsize(self.system.agent.log_path)
        self.system.agent_faults.fail_threads()
        self.manager.send(GET, [TOPOLOGY + ".8.1"])
        answer = wait_for(lambda: self.manager.receive(0.05) or os.path.getsize(self.system.agent.log_path) > size,
                          "an answer or a line")
        self.assertTrue(answer is True or answer.error != NO_ERROR, answer)
        self.system.agent_faults.stop()
        self.assertEqual(self.manager.ask(GET, [TOPOLOGY + ".8.1"]).bindings[0][2], 1)

    def test_a_set_is_carried_out_once_there_is_a_thread(self):
        with TrapReceiver() as receiver:
            self.system.agent_faults.fail_threads()
            self.manager.send(SET, create(1, receiver.port))
            self.assertIsNone(self.manager.receive(0.3))
            self.system.agent_faults.stop()
            self.assertEqual(wait_for(lambda: self.manager.receive(0.05), "the answer").error, NO_ERROR)
            # An alarm's traps need no thread that is not there.
            self.system.agent_faults.fail_threads()
            with BackendClient(self.system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(1)
            wait_for(lambda: len([trap for trap in receiver.traps() if trap.value(9) == 1]) == 2, "both traps")


class RequestsOfUsers(unittest.TestCase):
    """SNMPv3, with authentication and privacy: discovery and request of Net-SNMP's own tool."""

    LONGEST = 2000
    SECONDS = 0.5 * slowdown()  # for an answer, which may have to be none
    STRIDE = 3                  # each allocation costs a run of the tool

    def test_reading_the_topology(self):
        with MemorySystem() as system:
            for forever in (False, True):
                self.sweep_one(system, forever)

    def sweep_one(self, system, forever):
        def ask(seconds):
            return system.run("snmpget", TOPOLOGY + ".8.1", version=V3, timeout=seconds, retries=0, check=False)

        failures = 0
        for number in range(1, self.LONGEST, self.STRIDE * (7 if forever else 1)):
            where = "allocation %d%s" % (number, " and all after it" if forever else "")
            size = system.log_size()
            system.agent_faults.fail_allocation(number, forever)
            done = ask(0.1 if forever else self.SECONDS)
            failed = system.agent_faults.allocations()[1]
            system.agent_faults.stop()
            self.assertTrue(system.agent.running(), where)
            if "Timeout" in done.stderr and not forever:
                self.assertGreater(system.log_size(), size, where + ": no answer and no word about it")
            wait_for(lambda: ask(10).stdout == ".%s.8.1 = INTEGER: 1\n" % TOPOLOGY, where)
            if not failed:
                break
            failures += 1
        else:
            self.fail("allocations without end")
        self.assertGreater(failures, 1 if forever else 10)


class Notifications(unittest.TestCase):
    """With all the memory back, each event has given its traps, or a line tells which it did not; the alarm table is the
    backend's, the list of destinations is what it was or what was asked for, and the next events give their traps.
    """

    LONGEST = 5000
    HELD_SECONDS = 0.2  # that memory stays away where all allocations fail
    ANSWER_SECONDS = 1  # for the answer of a SET, which may have none

    def sweep(self, happen, also=None, **more):
        """`also` adds another receiver to the system; gives it and the number of notifications that it gets of an event.
        """
        with MemorySystem(**more) as system:
            self.ports = [system.receiver.port]
            self.receivers = [(system.receiver, 2)]
            if also:
                self.receivers.append(also(system))
            self.active = list(range(1, COUNT + 1))
            self.raised = []  # beside these
            self.asked, self.added = False, None  # a second destination; the answer
            self.settle(system, "before all")
            for forever in (False, True):
                self.sweep_one(system, happen, forever)
            for datagram in system.receiver.datagrams():
                decode(datagram)
            self.skips = sum(system.agent.log().count(line) for line in NO_TRAP)
            # Each trap of each destination has come to its end.
            for one in self.destinations_status(system):
                self.assertEqual(one["considered"], one["sent"] + one["filtered"] + sum(one["dropped"].values()), one)
                self.assertGreater(one["sent"], sum(one["dropped"].values()))

    def sweep_one(self, system, happen, forever):
        seen = 0
        for number in range(1, self.LONGEST, STRIDE * (7 if forever else 1)):
            where = "allocation %d%s" % (number, " and all after it" if forever else "")
            size, before = system.log_size(), self.counts()
            system.agent_faults.fail_allocation(number, forever)
            happen(system)
            if forever:
                time.sleep(self.HELD_SECONDS)
                failed = system.agent_faults.allocations()[1]
                system.agent_faults.stop()
            wait_for(lambda: self.have_come(before) or self.skipped(system, size), where, 30)
            if not forever:
                failed = system.agent_faults.allocations()[1]
                system.agent_faults.stop()
            self.assertTrue(system.agent.running(), where)
            self.settle(system, where)
            if not failed:
                break
            seen += 1
        else:
            self.fail("allocations without end")
        self.assertGreater(seen, 2)

    def counts(self):
        return [len(receiver.datagrams()) for receiver, _ in self.receivers]

    def have_come(self, before):
        """Whether every receiver has got one event's notifications since then."""
        return all(now >= then + due for now, then, (_, due) in zip(self.counts(), before, self.receivers))

    def settle(self, system, where):
        """The alarms as at the beginning, and one more, whose traps come after all of before."""
        counts = self.counts()
        before = counts[0]
        for serial in self.active[COUNT:]:
            self.clear(system, serial)
        serial = self.raise_one(system)
        wait_for(lambda: [trap.value(9) for trap in system.receiver.traps(before)].count(serial) == 2,
                 where + ": the traps of the next alarm")
        wait_for(lambda: self.have_come(counts), where + ": the same of the other receiver")
        wait_for(lambda: system.wait_for_view(self.active), where + ": the alarms")
        self.check_destinations(system, where)

    def check_destinations(self, system, where):
        """As before; or with a second one that was asked for, which goes again."""
        there = self.destinations(system)
        if len(self.ports) > 1:
            self.assertEqual(there, self.ports, where)
            return
        if self.added is not None and self.added.error == NO_ERROR:
            self.assertEqual(there, [system.receiver.port, 9], where)
        elif self.added is not None or not self.asked:
            self.assertEqual(there, [system.receiver.port], where)
        if len(there) > 1:
            self.assertEqual(there, [system.receiver.port, 9], where)
            self.assertEqual(system.manager.ask(SET, [(column(3, 2), snmp.number(DESTROY))]).error, NO_ERROR, where)

    def raise_one(self, system, alarm=POWER_LOSS):
        """Its serial number; the newest alarm stands last in `active`."""
        body = system.alarms.call(record(RAISE_ALARM, uint(1, alarm, 8), uint(2, 3), text(8, "someone,once")))
        serial = int.from_bytes(body[-4:], "little")
        if alarm == POWER_LOSS:
            self.active.append(serial)
            self.raised.append(serial)
        return serial

    def clear(self, system, serial):
        system.alarms.clear_alarm(serial)
        self.active.remove(serial)

    @staticmethod
    def destinations(system):
        answer = system.manager.ask(GETBULK, [DESTINATIONS + ".2"], second=3)
        return [value for name, _, value in answer.bindings if name.startswith(DESTINATIONS + ".2.")]

    @staticmethod
    def skipped(system, size):
        with open(system.agent.log_path, encoding="utf-8", errors="replace") as log:
            log.seek(size)
            told = log.read()
        return any(line in told for line in NO_TRAP)

    def test_an_alarm_is_raised(self):
        self.sweep(self.raise_one)

    def test_an_alarm_ends(self):
        self.sweep(lambda system: self.clear(system, self.active[-1]))

    def test_an_alarm_is_raised_for_a_destination_of_a_user(self):
        def add(system):
            receiver = TrapReceiver()
            receiver.__enter__()
            self.addCleanup(receiver.__exit__)
            system.add_destination(2, receiver.port, version=3, user="admin")
            self.ports.append(receiver.port)
            return receiver, 2

        self.sweep(self.raise_one, also=add)

    def test_an_alarm_is_raised_for_a_receiver_of_informs(self):
        with InformReceiver() as receiver:
            self.sweep(self.raise_one, also=lambda system: (receiver, 1),
                       words="informsink 127.0.0.1 informs %d\nvrxInformRetry 100\nvrxInformBackoff 400\n" % receiver.port)
            missing = set(self.raised) - set(receiver.serials(acknowledged=True))
            self.assertLessEqual(len(missing), self.skips, missing)

    def test_an_alarm_flaps(self):
        """Held traps: in the end the last state is told, or a line tells that it could not be."""
        markers = set()
        with MemorySystem(words=STORMS) as system:
            for number in range(1, self.LONGEST, STRIDE * 7):
                where, size = "allocation %d" % number, system.log_size()
                system.agent_faults.fail_allocation(number)
                for _ in range(3):
                    flapping = self.raise_with(system, "on,off")
                    system.alarms.clear_alarm(flapping)
                marker = self.raise_with(system, "marker,%d" % number)

                def told():
                    return [(trap.value(9), trap.value(11)) for trap in system.receiver.traps()]

                def is_settled():
                    """After the marker all events were handled; then an interval ends."""
                    if self.skipped(system, size):
                        return True
                    changes = told()
                    ours = [change for change in changes if COUNT < change[0] < marker and change[0] not in markers]
                    return (marker, ACTIVE) in changes and ours[-1][1] == ENDED

                wait_for(is_settled, where, 30)
                markers.add(marker)
                failed = system.agent_faults.allocations()[1]
                system.agent_faults.stop()
                self.assertTrue(system.agent.running(), where)
                wait_for(lambda: self.held(system) == 0, where + ": nothing is held")
                if not failed:
                    break
            else:
                self.fail("allocations without end")
            self.assertGreater(len(markers), 2)

    @staticmethod
    def raise_with(system, parameters):
        body = system.alarms.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, parameters)))
        return int.from_bytes(body[-4:], "little")

    @staticmethod
    def destinations_status(system):
        return json.loads(system.vrxctl("status", "--json"))["destinations"]

    def held(self, system):
        return sum(one["held"] for one in self.destinations_status(system))

    def test_an_alarm_is_not_defined(self):
        def happen(system):  # it gives no trap: the next one tells that it is done
            self.raise_one(system, UNKNOWN_ALARM)
            self.raise_one(system)

        self.sweep(happen)

    def test_a_destination_is_added_meanwhile(self):
        def happen(system):
            self.raise_one(system)
            system.manager.send(SET, create(2, 9))
            self.asked = True
            self.added = system.manager.receive(self.ANSWER_SECONDS)

        self.sweep(happen)


if __name__ == "__main__":
    unittest.main()
