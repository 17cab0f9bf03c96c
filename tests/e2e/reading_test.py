"""What a manager reads: the four objects by every kind of request, views, ends of tables, a slow and a dead backend."""

import contextlib
import json
import os
import random
import signal
import socket
import sqlite3
import subprocess
import threading
import time
import unittest

from backend_client import (GET_CURRENT_ALARM, GET_SYSTEM_WWN, BackendClient, CountingProxy)
from direct_answer_test import GET, GETBULK, request
from harness import (AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V1, V2C, V3, System, values, wait_for)
from trap_receiver import TrapReceiver

SYS_NAME = "1.3.6.1.2.1.1.5.0"
TOPOLOGY_TABLE = TOPOLOGY.rpartition(".")[0]
ALARM_TABLE = ALARMS.rpartition(".")[0]

TOPOLOGY_ROW = [
    (TOPOLOGY + ".1.1", 'STRING: "VRX-0001"'),
    (TOPOLOGY + ".2.1", "Gauge32: 1"),
    (TOPOLOGY + ".3.1", "INTEGER: 1"),
    (TOPOLOGY + ".4.1", 'STRING: "192.168.2.10"'),
    (TOPOLOGY + ".5.1", 'STRING: "Array"'),
    (TOPOLOGY + ".6.1", 'STRING: " "'),
    (TOPOLOGY + ".7.1", 'STRING: " "'),
    (TOPOLOGY + ".8.1", "INTEGER: 1"),
]
STATUS = TOPOLOGY + ".8.1"
SLOW_MS = 3000  # of a backend that is to be slow: more than all the tools of a test take together


class Reading(unittest.TestCase):
    """One running system, shared."""

    @classmethod
    def setUpClass(cls):
        cls.system = System()
        cls.system.__enter__()

    @classmethod
    def tearDownClass(cls):
        cls.system.close()

    def test_walk_shows_the_topology_row(self):
        for version in (V1, V2C, V3):
            self.assertEqual(values(self.system.walk(TOPOLOGY_TABLE, version=version)), TOPOLOGY_ROW)

    def test_bulk_walk_shows_the_same_whatever_the_repetitions(self):
        for repetitions in (1, 2, 7, 8, 9, 50):
            for version in (V2C, V3):
                walked = values(self.system.bulkwalk(TOPOLOGY_TABLE, repetitions=repetitions, version=version))
                self.assertEqual(walked, TOPOLOGY_ROW, repetitions)

    def test_get_of_many_variables_of_several_objects(self):
        got = values(self.system.get(SYS_NAME, STATUS, CLEAR_ALARM, TOPOLOGY + ".1.1"))
        self.assertEqual(got, [(SYS_NAME, 'STRING: "vrx-under-test"'), TOPOLOGY_ROW[7], (CLEAR_ALARM, "Gauge32: 0"),
                               TOPOLOGY_ROW[0]])

    def test_getnext_from_before_within_and_behind(self):
        for name, following in ((TOPOLOGY_TABLE, TOPOLOGY_ROW[0]), (TOPOLOGY, TOPOLOGY_ROW[0]),
                                (TOPOLOGY + ".2", TOPOLOGY_ROW[1]), (TOPOLOGY + ".2.0", TOPOLOGY_ROW[1]),
                                (TOPOLOGY + ".2.1", TOPOLOGY_ROW[2]), (TOPOLOGY + ".2.1.7", TOPOLOGY_ROW[2]),
                                ("1.3.6.1.4.1.99871", TOPOLOGY_ROW[0]), (STATUS, (CLEAR_ALARM, "Gauge32: 0"))):
            self.assertEqual(values(self.system.getnext(name)), [following], name)

    def test_bulkget_with_several_columns_and_a_non_repeater(self):
        got = values(self.system.bulkget(SYS_NAME.rpartition(".")[0], TOPOLOGY + ".1", TOPOLOGY + ".4",
                                         non_repeaters=1, repetitions=3))
        self.assertEqual(got[0], (SYS_NAME, 'STRING: "vrx-under-test"'))
        # Repetition by repetition: column 1 with its followers beside column 4 with its followers.
        self.assertEqual(got[1:], [TOPOLOGY_ROW[0], TOPOLOGY_ROW[3], TOPOLOGY_ROW[1], TOPOLOGY_ROW[4],
                                   TOPOLOGY_ROW[2], TOPOLOGY_ROW[5]])

    def test_unknown_columns_and_instances(self):
        got = dict(values(self.system.get(TOPOLOGY + ".9.1", TOPOLOGY + ".12.1", TOPOLOGY + ".1.2",
                                          TOPOLOGY + ".1.1.1", TOPOLOGY_TABLE, CLEAR_ALARM[:-2] + ".1",
                                          ALARMS + ".4.77", TOPOLOGY + ".1", TOPOLOGY + ".9", ALARMS + ".4",
                                          CLEAR_ALARM[:-2], CLEAR_ALARM + ".0")))
        no_object = "No Such Object available on this agent at this OID"
        no_instance = "No Such Instance currently exists at this OID"
        self.assertEqual(got, {TOPOLOGY + ".9.1": no_object,  # the index column
                               TOPOLOGY + ".12.1": no_object, TOPOLOGY_TABLE: no_object,
                               TOPOLOGY + ".1": no_instance, TOPOLOGY + ".9": no_object, ALARMS + ".4": no_instance,
                               CLEAR_ALARM[:-2]: no_instance, CLEAR_ALARM + ".0": no_instance,
                               TOPOLOGY + ".1.2": no_instance, TOPOLOGY + ".1.1.1": no_instance,
                               CLEAR_ALARM[:-2] + ".1": no_instance, ALARMS + ".4.77": no_instance})

    def test_a_getbulk_in_an_snmpv1_message_is_malformed(self):
        """SNMPv1 has none: no answer, counted as one that could not be read."""
        faults = "1.3.6.1.2.1.11.6.0"
        agent = "udp:127.0.0.1:%d" % self.system.port
        before = values(self.system.get(faults, address=agent))
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as manager:
            manager.connect(("127.0.0.1", self.system.port))
            manager.settimeout(60)
            for name in (SYS_NAME, TOPOLOGY + ".1", ALARMS + ".1"):
                manager.send(request(GETBULK, [name], 1, version=0, community=b"public", third=5))
            manager.send(request(GET, [SYS_NAME], 7, version=0, community=b"public"))
            self.assertIn(b"vrx-under-test", manager.recv(65536), "the first that is answered")
        after = values(self.system.get(faults, address=agent))
        self.assertEqual(int(after[0][1].split()[-1]) - int(before[0][1].split()[-1]), 3)

    def test_v1_managers_get_their_errors(self):
        done = self.system.run("snmpget", TOPOLOGY + ".1.2", version=V1, check=False)
        self.assertIn("noSuchName", done.stdout + done.stderr)

    def test_a_walk_ends_behind_the_last_object(self):
        names = [name for name, _ in values(self.system.walk("1.3.6.1.4.1.99871.2"))]
        self.assertEqual(names, [name for name, _ in TOPOLOGY_ROW] + [CLEAR_ALARM])
        done = self.system.run("snmpgetnext", "1.3.6.1.6.3.99", check=False)
        self.assertIn("No more variables left in this MIB View", done.stdout)

    def test_an_unknown_community_gets_no_answer(self):
        done = self.system.run("snmpget", SYS_NAME, version=["-v2c", "-c", "wrong"], timeout=0.3, retries=0, check=False)
        self.assertIn("Timeout", done.stderr)

    def test_the_table_tool_names_the_columns(self):
        shown = self.system.run("snmptable", "VRX-TAMREL-MIB::vrxTopologyTable", options=["-Cb", "-Cf", "|"],
                                named=True)
        self.assertIn("VRX-0001|1|", shown)
        self.assertIn("192.168.2.10|Array| | |", shown)


class Views(unittest.TestCase):
    CONFIG = AGENT_CONFIG + """
view partial included .1
view partial excluded .%s.4
view partial excluded .%s.5.1
rocommunity partial 127.0.0.1 -V partial
""" % (TOPOLOGY, TOPOLOGY)
    HIDDEN = {TOPOLOGY + ".4.1", TOPOLOGY + ".5.1"}
    PARTIAL = ["-v2c", "-c", "partial"]

    def test_what_a_view_excludes_is_hidden_from_every_request(self):
        visible = [row for row in TOPOLOGY_ROW if row[0] not in self.HIDDEN]
        with System(agent_config=self.CONFIG) as system:
            self.assertEqual(values(system.walk(TOPOLOGY_TABLE, version=self.PARTIAL)), visible)
            for repetitions in (1, 2, 3, 4, 5, 6, 10):
                self.assertEqual(values(system.bulkwalk(TOPOLOGY_TABLE, repetitions=repetitions,
                                                        version=self.PARTIAL)), visible, repetitions)
            got = values(system.bulkget(TOPOLOGY + ".1", TOPOLOGY + ".3", repetitions=6, version=self.PARTIAL))
            self.assertFalse(self.HIDDEN & {name for name, _ in got})
            got = values(system.get(TOPOLOGY + ".4.1", version=self.PARTIAL))
            self.assertEqual(got, [(TOPOLOGY + ".4.1", "No Such Object available on this agent at this OID")])


class SlowBackend(unittest.TestCase):
    def test_a_slow_call_delays_nobody_else(self):
        with System(device={("BACKEND", "CALL_DEADLINE_MS"): 2 * SLOW_MS},
                    backend_arguments=["--delay-ms", str(SLOW_MS)]) as system:
            slow = subprocess.Popen(["snmpget", "-On", "-t", "20", "-r", "0"] + V2C + [system.address, STATUS],
                                    stdout=subprocess.PIPE, text=True, env=system.tool_environment())
            for _ in range(3):
                self.assertIn("vrx-under-test", system.get(SYS_NAME))
                self.assertEqual(system.walk(DESTINATIONS, options=["-Ci"]).count("="), 1)
            self.assertIsNone(slow.poll(), "the slow request ended before the fast ones: nothing was shown")
            self.assertIn("INTEGER: 1", slow.communicate()[0])

    def test_a_retry_starts_no_second_call(self):
        system = System(device={("BACKEND", "CALL_DEADLINE_MS"): 2 * SLOW_MS,
                                ("BACKEND", "ADDRESS"): "unix:state/proxy.sock"},
                        backend_arguments=["--delay-ms", str(SLOW_MS), "--address", "unix:state/backend.sock"])
        with CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock")) as proxy:
            with system:
                for version in (V2C, V3):
                    before = proxy.calls[GET_SYSTEM_WWN]
                    # Asked again every 0.4 s; under SNMPv3 only an answer to the newest message counts.
                    self.assertIn("INTEGER: 1", system.get(STATUS, version=version, timeout=0.4, retries=30))
                    self.assertEqual(proxy.calls[GET_SYSTEM_WWN] - before, 1)

    def test_requests_for_the_same_values_share_a_call(self):
        system = System(device={("BACKEND", "CALL_DEADLINE_MS"): 2 * SLOW_MS,
                                ("BACKEND", "ADDRESS"): "unix:state/proxy.sock"},
                        backend_arguments=["--delay-ms", str(SLOW_MS), "--address", "unix:state/backend.sock"])
        with CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock")) as proxy:
            with system:
                command = ["snmpget", "-On", "-t", "30", "-r", "0"] + V2C + [system.address, STATUS]
                managers = [subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=system.tool_environment())
                            for _ in range(5)]
                for manager in managers:
                    self.assertIn("INTEGER: 1", manager.communicate()[0])
                self.assertLessEqual(proxy.calls[GET_SYSTEM_WWN], 2, "those that came while the first call ran")


class FailingBackend(unittest.TestCase):
    def lines(self, system, *words):
        return [line for line in system.agent.log().splitlines() if all(word in line for word in words)]

    def walks_to_the_error(self, system, tool):
        done = system.run(tool, TOPOLOGY_TABLE, retries=0, check=False)
        self.assertEqual(values(done.stdout.partition("Error")[0].rstrip("\n")),
                         TOPOLOGY_ROW[:7] + [(STATUS, "INTEGER: 2")])
        self.assertIn("genError", done.stdout + done.stderr)

    def test_a_stopped_backend_reads_as_status_2_and_comes_back(self):
        with System() as system:
            self.assertEqual(values(system.get(STATUS)), [(STATUS, "INTEGER: 1")])
            system.backend.stop()
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 2")], "status 2")
            # What comes next is an alarm, or none: nobody knows.
            self.walks_to_the_error(system, "snmpwalk")
            self.assertIn("vrx-under-test", system.get(SYS_NAME, retries=0))
            for tool, name in (("snmpwalk", ALARM_TABLE), ("snmpgetnext", ALARMS + ".1"), ("snmpget", ALARMS + ".4.1"),
                               ("snmpbulkget", ALARM_TABLE)):
                done = system.run(tool, name, retries=0, check=False)
                self.assertIn("genError", done.stdout + done.stderr, tool)
            system.backend.start()
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 1")], "status 1")
            wait_for(lambda: system.run("snmpwalk", ALARM_TABLE, check=False).returncode == 0, "the alarm table")
            self.assertEqual(len(self.lines(system, "[agent]", "vrxAlarmTable cannot be read")), 1)
            self.assertEqual(len(self.lines(system, "[agent]", "vrxAlarmTable can be read again")), 1)
            self.assertEqual(len(self.lines(system, "[transport]", "is not reachable")), 1)

    def test_no_walk_passes_by_alarms_that_cannot_be_read(self):
        """Whatever it begins with, it does not look as if there were none."""
        before = "1.3.6.1.4.1.99871.2.91.10"
        with System(extra_config=self.VIEWS) as system:
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(1)
            system.backend.stop()
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 2")], "status 2")
            for version in (V1, V2C, V3):
                tools = ["snmpgetnext", "snmpwalk"] + ([] if version is V1 else ["snmpbulkget", "snmpbulkwalk"])
                for tool in tools:
                    for name in (before, ALARM_TABLE, TOPOLOGY + ".9", STATUS + ".1"):
                        done = system.run(tool, name, version=version, check=False)
                        self.assertNotIn(CLEAR_ALARM, done.stdout, (tool, name))
                        self.assertIn("genError", done.stdout + done.stderr, (tool, name, version))
                        self.assertNotEqual(done.returncode, 0, (tool, name, version))
                # The variable that failed is named.
                done = system.run("snmpgetnext", SYS_NAME, before, TOPOLOGY + ".1", version=version, options=["-Cf"],
                                  check=False)
                self.assertIn("Failed object: ." + before, done.stdout + done.stderr, version)
            done = system.run("snmpbulkget", SYS_NAME, DESTINATIONS, before, check=False,
                              options=["-Cn1", "-Cr3"])
            self.assertIn("genError", done.stdout + done.stderr)
            # A GETBULK that comes to it after whole repetitions ends with these.
            self.walks_to_the_error(system, "snmpbulkwalk")
            got = values(system.bulkget(TOPOLOGY + ".6", repetitions=10))
            self.assertEqual(got, TOPOLOGY_ROW[5:7] + [(STATUS, "INTEGER: 2")])
            # Who may not see alarms does not meet them.
            got = values(system.getnext(STATUS, version=["-v2c", "-c", "blind"]))
            self.assertEqual(got, [(CLEAR_ALARM, "Gauge32: 0")])
            self.assertEqual(values(system.bulkget(STATUS, repetitions=1, version=["-v2c", "-c", "blind"])), got)

    VIEWS = """
view blind included .1.3.6.1.4.1.99871
view blind excluded .%s
rocommunity blind 127.0.0.1 -V blind
""" % ALARM_TABLE

    def test_before_the_first_contact_the_alarm_table_is_an_error_and_not_absent(self):
        with System(backend=False) as system:
            self.assertEqual(values(system.get(STATUS)), [(STATUS, "INTEGER: 2")])
            for tool in ("snmpget", "snmpgetnext"):
                done = system.run(tool, ALARMS + ".4.1", check=False)
                self.assertIn("genError", done.stdout + done.stderr)

    def test_a_hanging_backend_reads_as_status_2_within_the_deadline(self):
        with System() as system:
            os.kill(system.backend.pid, signal.SIGSTOP)
            try:
                # One attempt of 2 s: the agent's own deadline is below that.
                self.assertEqual(values(system.get(STATUS, retries=0)), [(STATUS, "INTEGER: 2")])
                self.assertIn("vrx-under-test", system.get(SYS_NAME, retries=0))
                self.assertEqual(system.run("snmpwalk", DESTINATIONS, retries=0, check=False).returncode, 0)
            finally:
                os.kill(system.backend.pid, signal.SIGCONT)
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 1")], "status 1")

    def test_a_backend_killed_in_the_middle_of_an_answer(self):
        with System(device={("BACKEND", "CALL_DEADLINE_MS"): 10 * SLOW_MS},
                    backend_arguments=["--delay-ms", str(SLOW_MS)]) as system:
            waiting = subprocess.Popen(["snmpget", "-On", "-t", "60", "-r", "0"] + V2C + [system.address, STATUS],
                                       stdout=subprocess.PIPE, text=True, env=system.tool_environment())
            wait_for(lambda: waiting.poll() is None and system.get(SYS_NAME), "the agent to have both requests")
            system.backend.kill()
            self.assertIn("INTEGER: 2", waiting.communicate()[0])
            system.backend.arguments = system.backend.arguments[:2]
            system.backend.start()
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 1")], "status 1")
            self.assertEqual(len(self.lines(system, "[transport]", "is not reachable")), 1)


class WalksWhileAlarmsComeAndGo(unittest.TestCase):
    """Each walk shows the backend's alarms as they were at one moment."""

    WALKS = int(os.environ.get("TAMREL_PROPERTY_WALKS", "30"))

    def setUp(self):
        self.history = []  # every set of active serial numbers, in order
        self.stop = threading.Event()
        self.longest_pause = 0.1

    def change_alarms(self, client, seed, most):
        chance = random.Random(seed)
        active = set(self.history[-1])
        highest = max(active, default=0)
        while not self.stop.is_set():
            if active and (len(active) >= most or chance.random() < 0.5):
                serial = chance.choice(sorted(active))
                self.history.append(frozenset(active - {serial}))  # before the fact: a walk may be faster than we are
                client.clear_alarm(serial)
                active.remove(serial)
            else:
                highest += 1
                self.history.append(frozenset(active | {highest}))
                client.raise_alarms(1)
                active.add(highest)
            self.stop.wait(chance.uniform(0, self.longest_pause))

    def check(self, alarms, seed):
        chance = random.Random(seed)
        with System(extra_config="vrxWalkSnapshotAge 600000\n") as system:
            with BackendClient(system.path("state", "backend.sock")) as client:
                client.raise_alarms(alarms)
                self.history.append(frozenset(range(1, alarms + 1)))
                # The agent reads a table that changes anew for a moment only: changes are as fast as readings are.
                begin = time.monotonic()
                system.bulkwalk(ALARM_TABLE, timeout=20)
                self.longest_pause = max(0.1, 2 * (time.monotonic() - begin))
                changer = threading.Thread(target=self.change_alarms, args=(client, seed, 2 * alarms))
                changer.start()
                try:
                    for walk in range(self.WALKS):
                        self.check_walk(system, chance, walk)
                finally:
                    self.stop.set()
                    changer.join()

    def check_walk(self, system, chance, walk):
        start = len(self.history) - 1
        repetitions, version = chance.randint(1, 100), chance.choice((V2C, V3))
        # The walk's end: the last change may be in it, or not yet.
        walked = values(system.bulkwalk(ALARM_TABLE, repetitions=repetitions, version=version, timeout=20))
        end = len(self.history)
        names = [tuple(int(part) for part in name.split(".")[-2:]) for name, _ in walked]
        self.assertEqual(names, sorted(set(names)), "strictly increasing")
        rows = {serial for _, serial in names}
        self.assertEqual(len(names), 12 * len(rows), "no torn row")
        seen = [moment for moment in self.history[max(start - 1, 0):end] if moment == rows]
        self.assertTrue(seen, "walk %d with %d repetitions shows no moment" % (walk, repetitions))

    def test_a_table_of_one_batch(self):
        self.check(20, seed=1)

    def test_a_table_of_several_batches(self):
        self.check(170, seed=2)


class QuietTimes(unittest.TestCase):
    """While the backend tells of every change, rows that were read answer until there is one."""

    ALARMS = 5
    CONFIG = "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 600000\nvrxWalkSnapshotAge 600000\n"

    def setUp(self):
        self.system = System(start=False, extra_config=self.CONFIG,
                             device={("BACKEND", "ADDRESS"): "unix:state/proxy.sock"},
                             backend_arguments=["--address", "unix:state/backend.sock"])
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.proxy = CountingProxy(self.system.path("state", "proxy.sock"), self.system.path("state", "backend.sock"))
        self.addCleanup(self.proxy.__exit__)
        self.alarms = BackendClient(self.system.path("state", "backend.sock"))
        self.addCleanup(self.alarms.__exit__)
        self.alarms.raise_alarms(self.ALARMS)

    def serials(self):
        return [int(value.split()[-1]) for _, value in values(self.system.bulkwalk(ALARMS + ".9"))]

    def calls(self, read):
        """How many calls for alarms a reading makes."""
        before = self.proxy.calls[GET_CURRENT_ALARM]
        read()
        return self.proxy.calls[GET_CURRENT_ALARM] - before

    def start_in_quiet(self):
        self.system.agent.start()
        wait_for(lambda: self.calls(self.serials) == 0, "a walk that asks the backend for nothing")

    def test_a_walk_reads_nothing_again_until_an_alarm_is_raised(self):
        self.start_in_quiet()
        self.alarms.raise_alarms(1)
        seen = wait_for(lambda: self.serials()[self.ALARMS:], "the new alarm")
        self.assertEqual(seen, [self.ALARMS + 1])
        self.assertEqual(self.calls(self.serials), 0)
        self.alarms.clear_alarm(1)
        wait_for(lambda: self.serials()[0] == 2, "the end of the first alarm")

    def test_a_get_after_the_trap_shows_the_alarm(self):
        with TrapReceiver() as receiver:
            self.start_in_quiet()
            self.system.add_destination(1, receiver.port, trap_type=1, user="public")
            new = ALARMS + ".9.%d" % (self.ALARMS + 1)
            self.assertIn("No Such Instance", values(self.system.get(new))[0][1])
            self.alarms.raise_alarms(1)
            receiver.wait_for(1)
            self.assertEqual(values(self.system.get(new)), [(new, "Gauge32: %d" % (self.ALARMS + 1))])

    def test_an_alarm_that_a_manager_clears_is_gone_from_the_next_request(self):
        self.start_in_quiet()
        for serial in range(1, self.ALARMS):
            self.system.set(CLEAR_ALARM, "u", str(serial))
            self.assertEqual(self.serials(), list(range(serial + 1, self.ALARMS + 1)))

    def status(self):
        return json.loads(self.system.vrxctl("status", "--json"))

    def differences(self):
        (table,) = [each for each in self.status()["objects"] if each["name"] == "vrxAlarmTable"]
        return table["differences"]

    def test_a_change_of_a_large_table_costs_a_call_for_its_row(self):
        self.alarms.raise_alarms(1000 - self.ALARMS)
        self.start_in_quiet()
        active = set(range(1, 1001))
        begin = self.status()["events"]["handled"]
        for turn in range(1, 11):
            self.alarms.raise_alarms(1)
            self.alarms.clear_alarm(7 * turn)
            active = active - {7 * turn} | {1000 + turn}
            wait_for(lambda: self.status()["events"]["handled"] == begin + 2 * turn, "both events")
            self.assertEqual(self.calls(lambda: self.assertEqual(self.serials(), sorted(active))), 2)
            self.assertEqual(self.calls(self.serials), 0)
        shown = self.system.bulkwalk(ALARM_TABLE)
        self.assertEqual(self.differences(), 0)
        self.system.agent.stop()
        self.system.agent.start()
        self.assertEqual(self.system.bulkwalk(ALARM_TABLE), shown)

    def test_a_change_without_an_event_is_found_and_counted(self):
        self.alarms.raise_alarms(1000 - self.ALARMS)
        self.system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 3000\n")
        self.start_in_quiet()
        for serial in range(500, 510):  # a slow machine may read all rows between the first two steps
            self.alarms.raise_alarms(1)
            wait_for(lambda: 501 + serial in self.serials(), "the alarm")
            with contextlib.closing(sqlite3.connect(self.system.path("state", "backend.db"))) as store, store:
                store.execute("DELETE FROM active_alarms WHERE serial = ?", (serial,))
            wait_for(lambda: serial not in self.serials(), "its end")
            if self.differences() > 0:
                break
        self.assertEqual(self.differences(), 1)

    def test_without_a_subscription_each_walk_reads(self):
        self.system.set_device({("COMMAND", "SUBSCRIBE_ALARM"): 2999})  # which the running backend does not know
        self.system.agent.start()
        wait_for(lambda: "no subscription" in self.system.agent.log(), "the refusal")
        for _ in range(3):
            self.assertGreater(self.calls(self.serials), 0)

    def test_a_backend_that_is_gone_is_an_error_at_once(self):
        self.start_in_quiet()
        self.system.backend.stop()
        wait_for(lambda: "no subscription" in self.system.agent.log(), "the loss")
        done = self.system.run("snmpgetnext", ALARMS + ".9", check=False)
        self.assertIn("genError", done.stdout + done.stderr)


class Alarms(unittest.TestCase):
    COLUMNS = 12

    def check_walk(self, walked, rows):
        """Every column complete and strictly increasing."""
        names = [tuple(map(int, name.split("."))) for name, _ in walked]
        self.assertEqual(names, sorted(set(names)))
        self.assertEqual(len(names), self.COLUMNS * rows)

    def test_ten_thousand_alarms_walk_completely_with_a_call_for_fifty(self):
        count = 10_000
        system = System(backend=False, device={("BACKEND", "ADDRESS"): "unix:state/proxy.sock"},
                        extra_config="vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\nvrxWalkSnapshotAge 600000\n"
                                     "vrxRequestDeadline 60000\n",
                        backend_arguments=["--address", "unix:state/backend.sock"])
        with CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock")) as proxy:
            system.backend.start()
            with BackendClient(system.path("state", "backend.sock")) as client:
                client.raise_alarms(count)
            with system:
                # The agent reads the serial numbers of all active alarms once, by the same command.
                wait_for(lambda: "repository of active alarms: 10000 added" in system.agent.log(), "the first comparison")
                for version in (V2C, V3):
                    before = proxy.calls[GET_CURRENT_ALARM]
                    walked = values(system.bulkwalk(ALARM_TABLE, repetitions=50, version=version, timeout=60))
                    self.check_walk(walked, count)
                    calls = proxy.calls[GET_CURRENT_ALARM] - before
                    self.assertGreaterEqual(calls, count // 50)
                    self.assertLessEqual(calls, count // 50 + 2, "one more tells the table's end")

    def test_a_get_of_one_alarm_asks_for_that_alarm(self):
        system = System(device={("BACKEND", "ADDRESS"): "unix:state/proxy.sock"},
                        backend_arguments=["--address", "unix:state/backend.sock"])
        with CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock")) as proxy:
            with system:
                # Before it subscribes the agent reads the serial numbers of all active alarms, by the same command.
                wait_for(lambda: "subscribed at" in system.agent.log(), "the subscription")
                with BackendClient(system.path("state", "backend.sock")) as client:
                    client.raise_alarms(500)
                before = proxy.calls[GET_CURRENT_ALARM]
                got = values(system.get(ALARMS + ".9.321", ALARMS + ".5.321", ALARMS + ".9.501"))
                self.assertEqual(got[0], (ALARMS + ".9.321", "Gauge32: 321"))
                self.assertEqual(got[1], (ALARMS + ".5.321", "INTEGER: 2"))
                self.assertEqual(got[2][1], "No Such Instance currently exists at this OID")
                self.assertLessEqual(proxy.calls[GET_CURRENT_ALARM] - before, 2)

    def test_snmpv1_sees_all_but_the_counter64_column(self):
        with System() as system:
            with BackendClient(system.path("state", "backend.sock")) as client:
                client.raise_alarms(3)
            names = [name[len(ALARMS) + 1:] for name, _ in values(system.walk(ALARM_TABLE, version=V1))]
            self.assertEqual(names, ["%d.%d" % (column, row) for column in range(1, 12) for row in (1, 2, 3)])
            self.assertIn("noSuchName", system.run("snmpget", ALARMS + ".12.1", version=V1, check=False).stderr)

    def test_a_cleared_alarm_is_gone_for_a_new_walk(self):
        with System() as system:
            with BackendClient(system.path("state", "backend.sock")) as client:
                client.raise_alarms(3)
                wait_for(lambda: len(values(system.walk(ALARMS + ".9"))) == 3, "three alarms")
                client.clear_alarm(2)
            wait_for(lambda: [name for name, _ in values(system.walk(ALARMS + ".9"))] ==
                     [ALARMS + ".9.1", ALARMS + ".9.3"], "two alarms")


if __name__ == "__main__":
    unittest.main()
