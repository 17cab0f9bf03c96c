"""Disks that fail or are full while the SNMP engine keeps its ID, the count of starts and its users: a start whose number
cannot be kept does not happen, a failure is told, and what was kept before stays.
"""

import os
import unittest

from faults import FaultySystem
from harness import wait_for

LONGEST = 500  # changes of files for one start: far more than any makes
EX_OK, EX_UNAVAILABLE = 0, 69  # sysexits.h
FILE = "net-snmp/vrx-agentd.conf cannot be written: "


class EngineState(unittest.TestCase):
    def setUp(self):
        self.system = FaultySystem(start=False)
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.agent, self.faults = self.system.agent, self.system.agent_faults
        self.state = self.system.path("state", "net-snmp")

    def kept(self):
        """(count of starts, the users' lines without the last word, an empty text in one of two spellings)"""
        with open(os.path.join(self.state, "vrx-agentd.conf"), encoding="utf-8") as file:
            lines = file.read().splitlines()
        starts = [int(line.split()[1]) for line in lines if line.startswith("engineBoots ")]
        self.assertEqual(len(starts), 1)
        return starts[0], [line.split()[:-1] for line in lines if line.startswith("usmUser ")]

    def log(self):
        return self.agent.log(since_start=True)

    def start(self):
        """Whether it got ready."""
        self.agent.start(wait=False)
        wait_for(lambda: self.is_ready() or not self.agent.running(), "the start or its end")
        return self.is_ready()

    def is_ready(self):
        return any(line.endswith(" ready") for line in self.log().splitlines())


    def test_a_start_keeps_its_number_or_is_refused_wherever_a_write_fails(self):
        self.assertTrue(self.start())
        self.agent.stop()
        refused = 0
        for number in range(1, LONGEST):
            before = self.kept()
            self.assertEqual(len(before[1]), 1)
            self.faults.fail_change(self.state, number, forever=True)
            ready = self.start()
            failed = self.faults.changes()[1]
            self.faults.stop()
            if ready:
                self.assertEqual(self.agent.stop(), EX_OK)
                self.assertEqual(self.kept(), (before[0] + 1, before[1]), number)
            else:
                self.assertEqual(self.agent.process.returncode, EX_UNAVAILABLE, self.log())
                self.assertIn("no start whose number cannot be kept: ", self.log())
                self.assertEqual(self.kept()[1], before[1])
                # Its own end stores once more, with the disk back or not.
                self.assertIn(self.kept()[0], (before[0], before[0] + 1))
                self.agent.process = None
                refused += 1
            if not failed:
                break
        else:
            self.fail("changes without end")
        self.assertGreater(refused, 3)

    def test_each_line_of_the_state_that_is_lost_is_noticed(self):
        """Only one write fails, and the library goes on behind it."""
        self.assertTrue(self.start())
        self.agent.stop()
        refused = 0
        for number in range(1, LONGEST):
            before = self.kept()
            self.faults.fail_change(self.state, number)
            ready = self.start()
            failed = self.faults.changes()[1]
            self.faults.stop()
            if ready:
                self.assertEqual(self.agent.stop(), EX_OK)
            else:
                self.agent.process = None
                refused += 1
            after = self.kept()
            self.assertEqual(after[1], before[1], number)
            self.assertIn(after[0], (before[0] + 1,) if ready else (before[0], before[0] + 1), number)
            if not failed:
                break
        else:
            self.fail("changes without end")

    def test_an_end_that_cannot_store_says_so_and_leaves_what_was_kept(self):
        self.assertTrue(self.start())
        before = self.kept()
        self.faults.fail_change(self.state, forever=True)
        self.assertEqual(self.agent.stop(), EX_OK)
        self.assertEqual(self.log().count(FILE), 1)
        self.faults.stop()
        self.assertEqual(self.kept(), before)
        self.assertTrue(self.start())
        self.assertEqual(self.kept(), (before[0] + 1, before[1]))

    def test_a_user_who_cannot_be_kept_is_not_made(self):
        self.assertTrue(self.start())
        before = self.kept()
        self.faults.fail_change(self.state, forever=True)
        done = self.system.vrxctl("user", "add", "oncall", check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(FILE, done.stderr)
        self.faults.stop()
        self.assertEqual(self.kept(), before)
        self.system.vrxctl("user", "add", "oncall")
        self.assertEqual(len(self.kept()[1]), 2)
        self.assertEqual(self.log().count(FILE), 1)
        self.assertEqual(self.log().count("net-snmp/vrx-agentd.conf can be written again"), 1)

    def test_an_engine_id_that_cannot_be_kept_is_no_engine_id(self):
        engine = self.system.path("state", "engine")
        for number in range(1, LONGEST):
            self.faults.fail_change(engine, number, forever=True)
            ready = self.start()
            self.faults.stop()
            if ready:
                break
            self.assertEqual(self.agent.process.returncode, EX_UNAVAILABLE, self.log())
            self.assertIn("engine/vrx-agentd.conf cannot be written: ", self.log())
            self.agent.process = None
        self.assertGreater(number, 2)
        with open(os.path.join(engine, "vrx-agentd.conf"), encoding="utf-8") as file:
            self.assertRegex(file.read(), r"^exactEngineID 0x[0-9a-f]{26}\n$")


if __name__ == "__main__":
    unittest.main()
