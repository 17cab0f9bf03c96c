"""The plan and the verdict of scripts/fleet, and a run of seconds without Prometheus and Alertmanager."""

import collections
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import arrays  # noqa: E402, F401: finds the harness
from harness import PROGRAM_DIR, SOURCE_DIR  # noqa: E402
from plan import FULL, QUICK, QUICK_WITHOUT_RECEIVERS, Plan  # noqa: E402
from sink import Told  # noqa: E402
from verdict import Expected, Verdict  # noqa: E402

ALLOWANCE = 10
LONG, SHORT = "VrxAlarmMajor", "VrxAlarmMinor"


def verdict(*told, unread=()):
    """Of two alarms: one from 100 to 200, and one from 100 to 101, which may be missed."""
    expected = [Expected("long", "metrics", LONG, "array", "1", 100, 200, (100, 200), True),
                Expected("short", "metrics", SHORT, "array", "2", 100, 101, (100, 101), False)]
    return Verdict(expected, [Told(when, firing, alert, "array", serial) for when, firing, alert, serial in told],
                   ALLOWANCE, unread)


BEGIN, END = (130, True, LONG, "1"), (205, False, LONG, "1")


class VerdictTest(unittest.TestCase):
    def check(self, found, missed, false):
        self.assertEqual((len(found.missed), len(found.false), found.passed), (missed, false, not missed and not false),
                         (found.missed, found.false))

    def test_what_is_told_passes_with_its_delays(self):
        found = verdict(END, BEGIN)
        self.check(found, 0, 0)
        row = found.rows["long", "metrics"]
        self.assertEqual((row.begins, row.ends), ([30], [5]))

    def test_what_is_told_of_again_while_it_lasts_counts_once(self):
        found = verdict(BEGIN, (150, True, LONG, "1"), END, (206, True, LONG, "1"), (208, False, LONG, "1"))
        self.check(found, 0, 0)
        self.assertEqual(found.rows["long", "metrics"].ends, [5])

    def test_nothing_is_told(self):
        self.check(verdict(), 1, 0)

    def test_its_end_is_not_told(self):
        self.check(verdict(BEGIN), 1, 0)
        self.check(verdict(BEGIN, END, (206, True, LONG, "1")), 1, 0)

    def test_what_may_be_missed_is_to_end_if_it_was_told(self):
        self.check(verdict(BEGIN, END, (103, True, SHORT, "2")), 1, 0)
        self.check(verdict(BEGIN, END, (103, True, SHORT, "2"), (110, False, SHORT, "2")), 0, 0)

    def test_what_nobody_planned_is_false(self):
        self.check(verdict(BEGIN, END, (150, True, LONG, "3")), 0, 1)
        self.check(verdict(BEGIN, END, (150, True, "VrxAgentGone", "")), 0, 1)

    def test_what_is_told_before_it_happens_is_false(self):
        self.check(verdict((99, True, LONG, "1"), END), 0, 1)
        self.check(verdict(BEGIN, (199, False, LONG, "1"), END), 0, 1)

    def test_a_begin_long_after_the_end_is_false(self):
        again = (211, True, LONG, "1"), (212, False, LONG, "1")
        self.check(verdict(BEGIN, END, *again), 0, 1)
        self.check(verdict(BEGIN, END, *again, unread=[(100, 210), (212, 230)]), 0, 1)

    def test_unless_a_prometheus_has_just_been_started_again(self):
        found = verdict(BEGIN, END, (211, True, LONG, "1"), (212, False, LONG, "1"), unread=[(209, 215)])
        self.check(found, 0, 0)
        self.assertEqual(found.told_again, 1)
        self.check(verdict(BEGIN, END, (211, True, LONG, "1"), unread=[(209, 215)]), 1, 0)


class PlanTest(unittest.TestCase):
    def test_a_seed_gives_one_plan(self):
        first, again, other = (Plan(FULL, 50, seed).steps() for seed in (1, 1, 2))
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)

    def test_each_alarm_is_raised_before_it_is_cleared_and_once(self):
        for profile in (FULL, QUICK, QUICK_WITHOUT_RECEIVERS):
            plan = Plan(profile, 20, 1)
            verbs = collections.defaultdict(list)
            for _, verb, subject in plan.steps():
                for one in subject if isinstance(subject, list) else [subject]:
                    verbs[one].append(verb)
            self.assertEqual(len(verbs), len(plan.alarms) + len(plan.faults))
            self.assertEqual({tuple(two) for two in verbs.values()}, {("raise", "clear"), ("kill", "start")})
            self.assertEqual(len({(alarm.array, alarm.serial) for alarm in plan.alarms}), len(plan.alarms))

    def test_what_must_be_told_lasts_long_enough_beside_what_is_away(self):
        for profile in (FULL, QUICK, QUICK_WITHOUT_RECEIVERS):
            plan = Plan(profile, 20, 1)
            away = {fault.which: fault for fault in plan.faults if fault.what in ("agent", "backend")}
            for alarm in plan.alarms:
                if alarm.must_be_told:
                    fault = away.get(alarm.array)
                    seen = alarm.end - alarm.begin if not fault else max(fault.begin - alarm.begin, alarm.end - fault.end)
                    self.assertGreaterEqual(round(seen, 6), profile.seen_within, alarm)


class DocumentedTest(unittest.TestCase):
    def test_what_the_page_keeps_is_all_that_the_rules_need(self):
        page = pathlib.Path(SOURCE_DIR, "docs", "fleet.md").read_text(encoding="utf-8")
        kept = re.compile(re.search(r"action: keep, regex: \"(.*?)\"", page).group(1))
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "export", "prometheus",
                            "--output", os.path.join(folder, "")], check=True)
            rules = pathlib.Path(folder, "vrx-rules.yml").read_text(encoding="utf-8")
        needed = set(re.findall(r"\bvrx_\w+", rules)) - {"vrx_alarm_definition_info"}  # which a rule records
        self.assertGreater(len(needed), 5)
        self.assertEqual({name for name in needed if not kept.fullmatch(name)}, set())


class RunTest(unittest.TestCase):
    def test_ten_agents_by_their_metrics(self):
        done = subprocess.run([sys.executable, "-B", os.path.join(HERE, "fleet.py"), "--quick", "--without-receivers"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("\nmissed: 0\nfalse: 0\n", done.stdout)


if __name__ == "__main__":
    unittest.main()
