"""reading_test and writing_test once more, through Debian's snmpd before the agent: over SNMPv3 and SNMPv2c proxy lines.

TAMREL_PROXY_ALL=1 runs every case over both; otherwise LONG ones, and most of SNMPv2c's, are left to such a run.
"""

import os
import unittest

import reading_test
import writing_test
from harness import AGENT_CONFIG, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V2C, V3, System, values, wait_for
from snmpd_front import LET_IN, V2C_LINK, V3_LINK, SnmpdFront

ALL = os.environ.get("TAMREL_PROXY_ALL") == "1"

# Cases that say something that cannot hold through a proxy, each with the reason (docs/beside-snmpd.md).
DIFFERENT = {
    ("SlowBackend", "test_a_retry_starts_no_second_call"):
        "the snmpd hands each copy of a request on as one of its own, and SNMPv3 managers take an answer to the newest only",
    ("SlowSets", "test_a_slow_set_delays_no_read_and_its_retry_does_nothing_more"):
        "a SET holds every other request of the snmpd",
    ("FailingBackend", "test_no_walk_passes_by_alarms_that_cannot_be_read"):
        "the snmpd asks for each repetition of a GETBULK by itself, and one that fails makes all of it an error",
    ("Writing", "test_ours_and_others_variables_are_not_set_as_one"):
        "the snmpd sets its own variables itself and hands ours on: it makes two SETs of one",
    ("Lasting", "test_engine_id_stays_and_boots_count_also_after_kill"):
        "managers meet the snmpd's engine",
    ("Lasting", "test_acknowledged_rows_survive_kill_during_sets"):
        "an unanswered SET holds every request of the snmpd until it is given up",
}
# What takes longer than a default run has time for; the same behaviour is seen there without a proxy.
LONG = {"SlowBackend", "FailingBackend", "WalksWhileAlarmsComeAndGo", "Alarms", "QuietTimes"}
SHORT_OVER_V2C = {"Reading", "Views"}


class RefusedWhole:
    """A SET of several variables that is refused reads undoFailed at the first: the snmpd takes all back that it handed on.

    What the manager wrote is refused as a whole all the same. A SET of one variable is told the agent's own error.
    """

    def refused(self, arguments, error, failed, **more):
        if len(arguments) > 3:
            error, failed = "undoFailed", arguments[0]
        super().refused(arguments, error, failed, **more)


def through(case, link, name):
    """The test class, with an snmpd before each agent that it starts; without the cases that are DIFFERENT."""

    def set_up(cls):
        cls.addClassCleanup(lambda: setattr(System, "front", None))
        cls.addClassCleanup(lambda: setattr(System, "front_config", ""))
        System.front = staticmethod(lambda folder, port, config: SnmpdFront(folder, port, config, link))
        System.front_config = LET_IN
        case.setUpClass.__func__(cls)

    members = {"setUpClass": classmethod(set_up), "__module__": __name__}
    members.update({test: None for (of, test) in DIFFERENT if of == case.__name__})
    return type(name, (RefusedWhole, case) if case is writing_test.Writing else (case,), members)


def cases_of(module):
    return [value for value in vars(module).values()
            if isinstance(value, type) and issubclass(value, unittest.TestCase) and value.__module__ == module.__name__]


def wanted(case, link):
    return ALL or (case.__name__ not in LONG and (link is V3_LINK or case.__name__ in SHORT_OVER_V2C))


def load_tests(loader, standard_tests, pattern):
    suite = unittest.TestSuite(standard_tests)
    for case in cases_of(reading_test) + cases_of(writing_test):
        for link, suffix in ((V3_LINK, "OverV3"), (V2C_LINK, "OverV2c")):
            if wanted(case, link):
                suite.addTests(loader.loadTestsFromTestCase(through(case, link, case.__name__ + suffix)))
    return suite


class Table(unittest.TestCase):
    def test_each_case_that_is_different_exists(self):
        for of, test in DIFFERENT:
            case = getattr(reading_test, of, None) or getattr(writing_test, of, None)
            self.assertTrue(callable(getattr(case, test, None)), (of, test))


class Link(unittest.TestCase):
    """The proxy line itself, as docs/beside-snmpd.md has it."""

    STATUS = TOPOLOGY + ".8.1"
    SYS_NAME = "1.3.6.1.2.1.1.5.0"

    def system(self, link, seconds=60, **more):
        System.front = staticmethod(lambda folder, port, config: SnmpdFront(folder, port, config, link, seconds))
        System.front_config = LET_IN
        self.addCleanup(setattr, System, "front", None)
        self.addCleanup(setattr, System, "front_config", "")
        return System(**more)

    def test_it_is_found_again_after_a_restart_of_the_agent(self):
        for link in (V3_LINK, V2C_LINK):
            with self.subTest(link=link), self.system(link) as system:
                for end in (system.agent.kill, system.agent.stop):
                    self.assertEqual(values(system.get(self.STATUS)), [(self.STATUS, "INTEGER: 1")])
                    end()
                    system.agent.start()
                self.assertEqual(values(system.get(self.STATUS, version=V3)), [(self.STATUS, "INTEGER: 1")])

    def test_while_the_agent_is_away_the_machines_own_objects_are_answered(self):
        for link in (V3_LINK, V2C_LINK):
            with self.subTest(link=link), self.system(link, seconds=1) as system:
                system.agent.stop()
                self.assertIn("vrx-under-test", system.get(self.SYS_NAME))
                for version in (V2C, V3):
                    # Over an SNMPv3 line the snmpd says nothing, over an SNMPv2c line genErr.
                    done = system.run("snmpget", self.STATUS, version=version, timeout=2, retries=0, check=False)
                    self.assertIn("Timeout" if link is V3_LINK else "genError", done.stdout + done.stderr)
                self.assertIn("vrx-under-test", system.get(self.SYS_NAME))
                system.agent.start()
                wait_for(lambda: "INTEGER: 1" in system.run("snmpget", self.STATUS, check=False).stdout,
                         "the agent behind the snmpd")

    def test_an_agent_may_stand_in_a_context_of_its_own(self):
        managers = AGENT_CONFIG.replace("rwuser admin priv .1", "view all included .1\nrwuser admin priv -V all array1")
        with self.system("-Cn array1 " + V3_LINK, agent_config=managers) as system:
            got = values(system.get(self.STATUS, version=V3 + ["-n", "array1"]))
            self.assertEqual(got, [(self.STATUS, "INTEGER: 1")])
            done = system.run("snmpget", self.STATUS, version=V3, check=False)
            self.assertIn("authorizationError", done.stdout + done.stderr)

    def test_the_snmpd_decides_who_may_write(self):
        with self.system(V3_LINK) as system:
            done = system.run("snmpset", CLEAR_ALARM, "u", "1", version=V2C, check=False)
            self.assertIn("noAccess", done.stderr)
            self.assertEqual(system.agent.log().count("clear alarm"), 0)
            done = system.run("snmpset", DESTINATIONS + ".2.7", "u", "0", version=V3, check=False)
            self.assertIn("wrongValue", done.stderr)


if __name__ == "__main__":
    unittest.main()
