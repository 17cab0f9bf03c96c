"""What a manager writes: trap destinations by RowStatus, the clear-alarm scalar, and the errors of both."""

import json
import os
import random
import subprocess
import sys
import threading
import time
import unittest

from actors import Actor
from backend_client import BackendClient
from harness import AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V2C, V3, System, slowdown, values, wait_for

REACHABLE, PORT, STATUS, INDEX, VERSION, ADDRESS, TRAP_TYPE, USER = range(1, 9)  # columns
ACTIVE, NOT_IN_SERVICE, NOT_READY, CREATE_AND_GO, CREATE_AND_WAIT, DESTROY = range(1, 7)
LETTERS = {PORT: "u", STATUS: "i", VERSION: "i", ADDRESS: "s", TRAP_TYPE: "i", USER: "s", REACHABLE: "s", INDEX: "s"}

SYS_NAME = "1.3.6.1.2.1.1.5.0"
SYS_CONTACT = "1.3.6.1.2.1.1.4.0"
V1_WRITER = ["-v1", "-c", "writer"]
SECOND = 1000  # from the number of a pair's first row to that of its second
SECONDS_TO_ANSWER = 5.0  # from a start after kill -9 to the first answer
KILL_CYCLES = int(os.environ.get("TAMREL_KILL_CYCLES", "20"))


def row(number, **columns):
    """snmpset's arguments for columns of a row, in the order given: row(3, PORT=162, STATUS=CREATE_AND_GO)."""
    arguments = []
    for name, value in columns.items():
        column = globals()[name]
        arguments += ["%s.%d.%d" % (DESTINATIONS, column, number), LETTERS[column], str(value)]
    return arguments


class Writing(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = System(agent_config=AGENT_CONFIG + "rwcommunity writer 127.0.0.1\ntrapcommunity traps\n",
                            device={("TRAP", "DESTINATION_LIMIT"): 3})
        cls.system.__enter__()

    @classmethod
    def tearDownClass(cls):
        cls.system.close()

    def tearDown(self):
        for number in {name.rpartition(".")[2] for name in self.rows()}:
            self.system.set(*row(int(number), STATUS=DESTROY))

    def rows(self):
        """The whole table as a writer sees it: name without the table's root -> value."""
        done = self.system.run("snmpbulkwalk", DESTINATIONS, version=V3, check=False)
        return {name[len(DESTINATIONS) + 1:]: value for name, value in values(done.stdout) if "No Such" not in value}

    def refused(self, arguments, error, failed, version=V3):
        """The SET fails with the error at the variable, and nothing has changed."""
        before = self.rows()
        done = self.system.run("snmpset", *arguments, version=version, check=False)
        said = done.stdout + done.stderr
        self.assertEqual(done.returncode, 2, said)
        self.assertIn(error, said)
        self.assertIn("Failed object: ." + failed + "\n", said)
        self.assertEqual(self.rows(), before)

    def create(self, number, port=5162, address="127.0.0.1", **more):
        self.system.set(*row(number, ADDRESS=address, STATUS=CREATE_AND_GO, PORT=port, **more))

    # Trap destinations

    def test_a_created_row_stands_under_its_number_with_the_defaults(self):
        self.create(7)
        self.assertEqual(self.rows(), {
            "1.7": 'STRING: "127.0.0.1"', "2.7": "Gauge32: 5162", "3.7": "INTEGER: 1", "4.7": 'STRING: "7"',
            "5.7": "INTEGER: 2", "6.7": 'STRING: "127.0.0.1"', "7.7": "INTEGER: 1", "8.7": 'STRING: "--"'})

    def test_columns_come_in_any_order(self):
        self.system.set(*row(1, PORT=1001, STATUS=CREATE_AND_GO, ADDRESS="127.0.0.1"))
        self.system.set(*row(2, STATUS=CREATE_AND_GO, ADDRESS="127.0.0.1", USER="ops", PORT=1002))
        self.system.set(*row(65535, USER="admin", VERSION=3, ADDRESS="::1", PORT=1003, STATUS=CREATE_AND_GO))
        rows = self.rows()
        self.assertEqual((rows["2.1"], rows["2.2"], rows["8.2"]), ("Gauge32: 1001", "Gauge32: 1002", 'STRING: "ops"'))
        self.assertEqual((rows["5.65535"], rows["6.65535"]), ("INTEGER: 3", 'STRING: "::1"'))

    def test_setting_one_column_changes_that_column_only(self):
        self.create(5, VERSION=3, USER="admin", TRAP_TYPE=4)
        before = self.rows()
        self.system.set(*row(5, PORT=6000))
        self.assertEqual(self.rows(), dict(before, **{"2.5": "Gauge32: 6000"}))
        self.system.set(*row(5, TRAP_TYPE=3))
        self.assertEqual(self.rows(), dict(before, **{"2.5": "Gauge32: 6000", "7.5": "INTEGER: 3"}))

    def test_several_rows_in_one_request(self):
        self.system.set(*row(1, ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO),
                        *row(2, STATUS=CREATE_AND_GO, PORT=2, ADDRESS="127.0.0.1"))
        self.system.set(*row(1, STATUS=DESTROY), *row(2, PORT=3),
                        *row(3, ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO))
        rows = self.rows()
        self.assertEqual({name: value for name, value in rows.items() if name.startswith("2.")},
                         {"2.2": "Gauge32: 3", "2.3": "Gauge32: 1"})

    def test_several_rows_are_all_or_nothing(self):
        self.create(1, port=1)
        self.refused(row(2, ADDRESS="127.0.0.1", PORT=2, STATUS=CREATE_AND_GO) + row(1, STATUS=DESTROY) +
                     row(3, ADDRESS="127.0.0.1", PORT=2, STATUS=CREATE_AND_GO), "inconsistentValue",
                     DESTINATIONS + ".3.3")

    def test_a_row_that_exists_cannot_be_created(self):
        self.create(1)
        self.refused(row(1, ADDRESS="127.0.0.2", PORT=1, STATUS=CREATE_AND_GO), "inconsistentValue",
                     DESTINATIONS + ".3.1")

    def test_a_second_row_of_the_same_address_port_and_user_is_refused(self):
        self.create(1)
        self.refused(row(2, ADDRESS="127.0.0.1", PORT=5162, STATUS=CREATE_AND_GO), "inconsistentValue",
                     DESTINATIONS + ".3.2")
        self.create(2, USER="other")
        self.refused(row(2, USER="--"), "inconsistentValue", DESTINATIONS + ".8.2")

    def test_a_receiver_is_one_however_its_address_is_spelled(self):
        self.create(1)
        for address in ("::ffff:127.0.0.1", "::FFFF:7F00:1"):
            self.refused(row(2, ADDRESS=address, PORT=5162, STATUS=CREATE_AND_GO), "inconsistentValue",
                         DESTINATIONS + ".3.2")
        for address in ("0x7f000001", "0x0", "2130706433", "127.1", "127.0.0.0x1", "::ffff:0.0.0.0"):
            self.refused(row(2, ADDRESS=address, PORT=5162, STATUS=CREATE_AND_GO), "wrongValue", DESTINATIONS + ".6.2")

    def test_a_link_local_address_without_its_interface_is_not_ready(self):
        self.create(1, address="fe80::1")
        state = wait_for(lambda: self.state_of(1) not in (None, "unknown") and self.state_of(1), "its state")
        self.assertNotEqual(state, "ready")
        self.assertEqual(self.rows()["1.1"], 'STRING: "0.0.0.0"')
        self.assertIn("trap destination 1 (fe80::1 port 5162, SNMPv2c): sending fails: fe80::1 is link-local and names no "
                      "interface", self.system.agent.log())

    def state_of(self, number):
        rows = json.loads(self.system.vrxctl("status", "--json"))["destinations"]
        return next((row["state"] for row in rows if row["number"] == str(number)), None)

    def test_past_the_limit_there_is_no_resource(self):
        for number in (1, 2, 3):
            self.create(number, port=number)
        self.refused(row(4, ADDRESS="127.0.0.1", PORT=4, STATUS=CREATE_AND_GO), "resourceUnavailable",
                     DESTINATIONS + ".3.4")

    def test_a_row_needs_address_and_port(self):
        self.refused(row(1, ADDRESS="127.0.0.1", STATUS=CREATE_AND_GO), "inconsistentValue", DESTINATIONS + ".3.1")
        self.refused(row(1, PORT=1, STATUS=CREATE_AND_GO), "inconsistentValue", DESTINATIONS + ".3.1")

    def test_other_values_of_row_status_are_wrong(self):
        self.create(1)
        for status in (NOT_IN_SERVICE, NOT_READY, CREATE_AND_WAIT, 7, 0):
            self.refused(row(1, STATUS=status), "wrongValue", DESTINATIONS + ".3.1")
            self.refused(row(2, ADDRESS="127.0.0.1", PORT=2, STATUS=status), "wrongValue", DESTINATIONS + ".3.2")

    def test_active_stays_active(self):
        self.create(1)
        self.system.set(*row(1, STATUS=ACTIVE))
        self.system.set(*row(1, STATUS=ACTIVE, PORT=9))
        self.assertEqual(self.rows()["2.1"], "Gauge32: 9")
        self.refused(row(2, STATUS=ACTIVE), "inconsistentValue", DESTINATIONS + ".3.2")

    def test_destroying_a_row_that_is_gone_is_no_error(self):
        self.create(1)
        self.system.set(*row(1, STATUS=DESTROY))
        self.system.set(*row(1, STATUS=DESTROY))
        self.assertEqual(self.rows(), {})

    def test_a_row_that_does_not_exist_has_no_columns_to_set(self):
        self.refused(row(9, PORT=1), "inconsistentName", DESTINATIONS + ".2.9")

    def test_values_that_are_not_acceptable_are_named(self):
        good = dict(ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO)
        self.create(1)
        for column, value in (("ADDRESS", "127.0..1"), ("ADDRESS", "999.1.1.1"), ("PORT", 0), ("PORT", 65536),
                              ("VERSION", 4), ("VERSION", 0), ("TRAP_TYPE", 2), ("TRAP_TYPE", 9)):
            failed = "%s.%d." % (DESTINATIONS, globals()[column])
            self.refused(row(2, **dict(good, **{column: value})), "wrongValue", failed + "2")
            self.refused(row(1, **{column: value}), "wrongValue", failed + "1")
        self.refused(row(2, VERSION=3, USER="nobody", **good), "wrongValue", DESTINATIONS + ".8.2")
        self.refused(row(1, VERSION=3), "inconsistentValue", DESTINATIONS + ".5.1")

    def test_a_row_whose_user_is_gone_can_be_changed_but_for_its_user(self):
        self.system.vrxctl("user", "add", "leaver")
        self.create(1, VERSION=3, USER="leaver")
        self.system.vrxctl("user", "remove", "leaver")
        before = self.rows()
        self.system.set(*row(1, PORT=6000))
        self.system.set(*row(1, VERSION=3, USER="leaver", TRAP_TYPE=4))  # what it has already is no change
        self.assertEqual(self.rows(), dict(before, **{"2.1": "Gauge32: 6000", "7.1": "INTEGER: 4"}))
        self.refused(row(1, PORT=6001, USER="nobody"), "wrongValue", DESTINATIONS + ".8.1")
        self.refused(row(2, ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO, VERSION=3, USER="leaver"), "wrongValue",
                     DESTINATIONS + ".8.2")
        self.system.set(*row(1, VERSION=2))
        self.refused(row(1, PORT=6001, VERSION=3), "inconsistentValue", DESTINATIONS + ".5.1")
        self.system.set(*row(1, VERSION=3, USER="admin"))

    def test_a_refused_combination_names_its_column(self):
        self.create(1)
        self.create(2, port=5163)
        self.refused(row(2, TRAP_TYPE=3, STATUS=ACTIVE, PORT=5162), "inconsistentValue", DESTINATIONS + ".2.2")
        self.refused(row(2, TRAP_TYPE=3, VERSION=3), "inconsistentValue", DESTINATIONS + ".5.2")
        self.refused(row(3, ADDRESS="127.0.0.1", STATUS=CREATE_AND_GO, VERSION=3, PORT=9), "inconsistentValue",
                     DESTINATIONS + ".5.3")

    def test_wrong_types_and_lengths(self):
        self.create(1)
        self.refused([DESTINATIONS + ".2.1", "i", "5"], "wrongType", DESTINATIONS + ".2.1")
        self.refused([DESTINATIONS + ".6.1", "s", ""], "wrongLength", DESTINATIONS + ".6.1")
        self.refused([DESTINATIONS + ".6.1", "s", "a" * 256], "wrongLength", DESTINATIONS + ".6.1")
        self.refused([DESTINATIONS + ".8.1", "s", "a" * 33], "wrongLength", DESTINATIONS + ".8.1")
        self.refused([DESTINATIONS + ".6.1", "x", "61 00 62"], "wrongValue", DESTINATIONS + ".6.1")

    def test_what_cannot_be_written(self):
        self.create(1)
        self.refused(row(1, REACHABLE="x"), "notWritable", DESTINATIONS + ".1.1")
        self.refused(row(1, INDEX="x"), "notWritable", DESTINATIONS + ".4.1")
        self.refused([DESTINATIONS + ".20.1", "s", "x"], "notWritable", DESTINATIONS + ".20.1")
        self.refused([TOPOLOGY + ".5.1", "s", "x"], "notWritable", TOPOLOGY + ".5.1")
        self.refused([ALARMS + ".5.1", "i", "1"], "notWritable", ALARMS + ".5.1")
        for number in (0, 65536):
            self.refused(row(number, ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO), "noCreation",
                         "%s.6.%d" % (DESTINATIONS, number))
        self.refused([CLEAR_ALARM[:-1] + "1", "u", "1"], "noCreation", CLEAR_ALARM[:-1] + "1")

    def test_a_reader_may_not_write(self):
        self.refused(row(1, STATUS=DESTROY), "noAccess", DESTINATIONS + ".3.1", version=V2C)

    def test_snmpv1_managers_get_the_errors_they_know(self):
        self.create(1)
        for arguments, error in ((row(1, PORT=0), "badValue"), (row(1, STATUS=CREATE_AND_WAIT), "badValue"),
                                 (row(9, PORT=1), "noSuchName"), (row(1, INDEX="x"), "noSuchName"),
                                 ([CLEAR_ALARM, "u", "12345"], "genError")):
            self.refused(arguments, error, arguments[0], version=V1_WRITER)
        self.system.set(*row(1, PORT=77), version=V1_WRITER)
        self.assertEqual(self.rows()["2.1"], "Gauge32: 77")

    def test_ours_and_others_variables_are_not_set_as_one(self):
        self.create(1)
        self.refused(row(1, PORT=5) + [SYS_CONTACT, "s", "nobody"], "genError", SYS_CONTACT)
        self.system.set(SYS_CONTACT, "s", "somebody")
        self.assertIn("somebody", self.system.get(SYS_CONTACT))

    # Clearing alarms

    def test_a_clear_takes_the_alarm_out_of_the_table(self):
        with BackendClient(self.system.path("state", "backend.sock")) as client:
            client.raise_alarms(2)
        serials = [value for _, value in values(self.system.walk(ALARMS + ".9"))][-2:]
        first = serials[0].split()[-1]
        self.assertEqual(self.system.set(CLEAR_ALARM, "u", first), ".%s = Gauge32: %s" % (CLEAR_ALARM, first))
        self.assertNotIn(ALARMS + ".9." + first + " ", self.system.walk(ALARMS + ".9"))
        self.assertIn("Gauge32: 0", self.system.get(CLEAR_ALARM))
        self.refused([CLEAR_ALARM, "u", first], "genError", CLEAR_ALARM)

    def test_a_refused_clear_takes_the_rows_of_its_request_back(self):
        self.create(1)
        self.refused(row(1, PORT=6) + [CLEAR_ALARM, "u", "99999"], "genError", CLEAR_ALARM)
        self.refused(row(1, STATUS=DESTROY) + [CLEAR_ALARM, "u", "99999"], "genError", CLEAR_ALARM)

    def test_a_refused_clear_takes_nothing_back_of_what_another_manager_writes(self):
        self.create(1)
        refused = Actor("refused", lambda _: self.system.run(
            "snmpset", *row(1, PORT=6, TRAP_TYPE=4), CLEAR_ALARM, "u", "99999", version=V3, check=False).returncode == 2)
        refused.start()
        try:
            for port in range(1000, 1030):
                self.system.set(*row(1, PORT=port))
                self.assertEqual(values(self.system.get(*row(1, PORT=port, TRAP_TYPE=1)[::3])),
                                 [(DESTINATIONS + ".2.1", "Gauge32: %d" % port), (DESTINATIONS + ".7.1", "INTEGER: 1")])
        finally:
            refused.stop()
            refused.join()
        self.assertGreater(refused.turns, 10)
        self.assertEqual(refused.failures, 0)
        self.assertEqual(self.rows()["2.1"], "Gauge32: 1029")

    def test_the_clear_scalar_takes_unsigned_numbers_only(self):
        self.refused([CLEAR_ALARM, "i", "1"], "wrongType", CLEAR_ALARM)
        self.refused([CLEAR_ALARM, "s", "1"], "wrongType", CLEAR_ALARM)


class SlowSets(unittest.TestCase):
    def test_a_slow_set_delays_no_read_and_its_retry_does_nothing_more(self):
        with System(device={("BACKEND", "CALL_DEADLINE_MS"): 10_000}, backend_arguments=["--delay-ms", "2000"]) as system:
            # Two retries before the answer, and none when it comes.
            slow = subprocess.Popen(["snmpset", "-On", "-t", "0.8", "-r", "30"] + V3 +
                                    [system.address, CLEAR_ALARM, "u", "5"], stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, text=True, env=system.tool_environment())
            for _ in range(3):
                self.assertIn("vrx-under-test", system.get(SYS_NAME))
                system.set(*row(1, ADDRESS="127.0.0.1", PORT=1, STATUS=CREATE_AND_GO))
                system.set(*row(1, STATUS=DESTROY))
            self.assertIsNone(slow.poll(), "the slow SET ended before the fast requests: nothing was shown")
            self.assertIn("genError", slow.communicate()[0])
            self.assertEqual(system.agent.log().count("clear alarm of serial number:5,"), 1)


class Lasting(unittest.TestCase):
    """The agent's state over its restarts."""

    def boots(self, system):
        return int(values(system.get("1.3.6.1.6.3.10.2.1.2.0"))[0][1].split()[-1])

    def engine_id(self, system):
        return values(system.get("1.3.6.1.6.3.10.2.1.1.0"))[0][1]

    def test_engine_id_stays_and_boots_count_also_after_kill(self):
        with System() as system:
            engine, boots = self.engine_id(system), self.boots(system)
            for restart in range(1, 5):
                if restart % 2:
                    system.agent.kill()
                else:
                    self.assertEqual(system.agent.stop(), 0)
                system.agent.start()
                self.assertEqual((self.engine_id(system), self.boots(system)), (engine, boots + restart))
                self.assertIn("vrx-under-test", system.get(SYS_NAME, version=V3))

    def test_state_is_the_owners_alone(self):
        with System() as system:
            self.assertEqual(os.stat(system.path("state")).st_mode & 0o777, 0o700)
            for folder, _, files in os.walk(system.path("state")):
                for name in files:
                    if name.endswith(".sock"):
                        continue
                    mode = os.stat(os.path.join(folder, name)).st_mode & 0o777
                    self.assertEqual(mode & 0o077, 0, os.path.join(folder, name))

    def test_acknowledged_rows_survive_kill_during_sets(self):
        """Pairs of rows come, change and go while the agent is killed again and again: what was acknowledged is there,
        and of each SET both rows or none."""
        chance = random.Random(1)
        with System() as system:
            expected = {}  # port of both rows of a pair
            slowest = 0.0  # from the start of the program to its first answer, in seconds
            for _ in range(KILL_CYCLES):
                killer = threading.Timer(chance.uniform(0.02, 0.3), system.agent.process.kill)
                killer.start()
                answered = True
                while answered:
                    pair, port = chance.randint(1, 20), chance.randint(1, 60000)
                    if pair not in expected:
                        columns = dict(ADDRESS="127.0.0.1", PORT=port, USER="u%d" % pair, STATUS=CREATE_AND_GO)
                    elif chance.random() < 0.5:
                        columns = dict(PORT=port)
                    else:
                        columns, port = dict(STATUS=DESTROY), None
                    if "USER" in columns:
                        both = row(pair, **columns) + row(SECOND + pair, **dict(columns, USER="v%d" % pair))
                    else:
                        both = row(pair, **columns) + row(SECOND + pair, **columns)
                    done = system.run("snmpset", *both, version=V3, timeout=0.3, retries=0, check=False)
                    answered = done.returncode == 0
                    undecided = {expected.get(pair), port}  # where there was no answer: before, or after
                    expected[pair] = port
                    if port is None:
                        del expected[pair]
                killer.join()
                system.agent.process.wait()
                begin = time.monotonic()
                system.agent.start()
                system.get(SYS_NAME)
                slowest = max(slowest, time.monotonic() - begin)
                found = self.pairs(system)
                self.assertIn(found.get(pair), undecided)
                expected.pop(pair, None)
                self.assertEqual({key: value for key, value in found.items() if key != pair}, expected)
                expected = found
        print("%d cycles, slowest first answer after a start: %.2f s" % (KILL_CYCLES, slowest), file=sys.stderr)
        self.assertLess(slowest, SECONDS_TO_ANSWER * slowdown())

    def pairs(self, system):
        """{pair: port}; each has both of its rows, whole and of one SET."""
        rows = {}
        walked = system.run("snmpbulkwalk", DESTINATIONS, check=False, version=V3).stdout
        for name, value in values(walked):
            if "No Such" not in value:
                column, number = name[len(DESTINATIONS) + 1:].split(".")
                rows.setdefault(int(number), {})[int(column)] = value
        found = {}
        for number, columns in rows.items():
            self.assertEqual(len(columns), 8, "half a row")
            pair = number if number < SECOND else number - SECOND
            self.assertEqual(columns[USER], 'STRING: "%s%d"' % ("u" if number < SECOND else "v", pair))
            found.setdefault(pair, []).append(int(columns[PORT].split()[-1]))
        for pair, ports in found.items():
            self.assertEqual((len(ports), len(set(ports))), (2, 1), "half a SET in pair %d: %s" % (pair, ports))
        return {pair: ports[0] for pair, ports in found.items()}


if __name__ == "__main__":
    unittest.main()
