"""Holds what the sink was told to what happened: missed, false, how late."""

import collections
import dataclasses
import math

from plan import LEVELS

METRICS, SNMP = "metrics", "SNMPv3"


@dataclasses.dataclass
class Expected:
    kind: str
    way: str
    alert: str
    instance: str
    serial: str
    begin: float  # when it happened; for what happens while its agent is away: when that has come back
    end: float
    happened: tuple  # (begin, end) as they were: before them nothing may be told
    must_be_told: bool

    @property
    def key(self):
        return self.alert, self.instance, self.serial


class Happened:
    """What was done, and when: the runner notes it."""

    def __init__(self):
        self.raised, self.cleared = {}, {}  # by alarm
        self.killed, self.started = {}, {}  # by fault


def expectations(plan, arrays, happened, with_snmp):
    away = {fault.which: fault for fault in plan.faults if fault.what == "agent"}

    def reachable(array, when):
        fault = away.get(array)
        if fault and happened.killed[fault] <= when <= happened.started[fault]:
            return happened.started[fault]
        return when

    expected = []

    def add(kind, array, alert, serial, begin, end, must_be_told=True, snmp_alert=None, moved=True):
        ways = [(METRICS, arrays[array].metrics_target, alert)]
        if with_snmp and array in plan.by_snmp:
            ways.append((SNMP, arrays[array].snmp_target, snmp_alert or alert))
        for way, instance, name in ways:
            times = (reachable(array, begin), reachable(array, end)) if moved else (begin, end)
            expected.append(Expected(kind, way, name, instance, serial, *times, (begin, end), must_be_told))

    for alarm in plan.alarms:
        add(alarm.kind, alarm.array, LEVELS[alarm.level], str(alarm.serial), happened.raised[alarm], happened.cleared[alarm],
            alarm.must_be_told)
    beyond = [alarm for alarm in plan.alarms if alarm.array == plan.OVER_BOUND]
    add("VrxAlarmsLeftOut", plan.OVER_BOUND, "VrxAlarmsLeftOut", "", happened.raised[beyond[0]], happened.cleared[beyond[0]])
    for fault in plan.faults:
        if fault.what == "agent":
            add("VrxAgentMetricsGone, VrxAgentGone", fault.which, "VrxAgentMetricsGone", "", happened.killed[fault],
                happened.started[fault], snmp_alert="VrxAgentGone", moved=False)
        elif fault.what == "backend":
            add("VrxBackendAway", fault.which, "VrxBackendAway", "", happened.killed[fault], happened.started[fault])
    return expected


class Row:
    """One line of the table: what was expected of one kind by one way."""

    def __init__(self):
        self.planned = self.may_be_missed = 0
        self.begins, self.ends = [], []  # delays of what was told


def quantile(values, share):
    return sorted(values)[max(0, math.ceil(share * len(values)) - 1)]


class Verdict:
    def __init__(self, expected, told, allowance, unread=()):
        """allowance: how long after its end the begin of an alarm may be told (again), in seconds.
        unread: (begin, end) of times in which a Prometheus that was started again has not read all arrays yet: it may then
        tell of alarms that have ended meanwhile. They are counted.
        """
        self.rows = collections.OrderedDict()
        self.told_again = 0
        self._unread = unread
        self.missed, self.false = [], []
        events = collections.defaultdict(list)
        for one in sorted(told):
            events[one.alert, one.instance, one.serial].append(one)
        known = set()
        for one in expected:
            known.add(one.key)
            self._judge(one, events.get(one.key, []), allowance)
        self.false += ["%s: nothing of it was planned" % (key,) for key in events if key not in known]

    def _judge(self, one, events, allowance):
        row = self.rows.setdefault((one.kind, one.way), Row())
        row.planned += 1
        row.may_be_missed += not one.must_be_told
        name = "%s by %s %s, %.0f s long, told %s" % (
            one.kind, one.way, one.key, one.happened[1] - one.happened[0],
            ", ".join("%s after %.0f" % ("begin" if event.firing else "end", event.when - one.happened[0]) for event in events))
        fired = [event.when for event in events if event.firing]
        ended = [event.when for event in events if not event.firing]
        if not fired:
            if one.must_be_told:
                self.missed.append(name + ": its begin")
            return
        begin, end = one.happened
        if fired[0] < begin:
            self.false.append(name + ": its begin too early")
        late = [when for when in fired if when > one.end + allowance]
        if late and all(any(first <= when <= last for first, last in self._unread) for when in late):
            self.told_again += 1
        elif late:
            self.false.append(name + ": its begin long after its end")
        if ended and ended[0] < end:
            self.false.append(name + ": its end too early")
        row.begins.append(fired[0] - one.begin)
        if not ended or ended[-1] < end or events[-1].firing:
            self.missed.append(name + ": its end")
        else:
            row.ends.append(min(when for when in ended if when >= end) - one.end)

    @property
    def passed(self):
        return not self.missed and not self.false

    def table(self):
        def seconds(delays):
            return " / ".join("%.0f" % quantile(delays, share) for share in (0.5, 0.99, 1)) if delays else ""

        lines = ["| Alarms, or alert of the rules | Way | Planned | Begin told | End told | Begin after: p50 / p99 / worst, s | End after: the same |",
                 "|---|---|---:|---:|---:|---:|---:|"]
        for (kind, way), row in self.rows.items():
            planned = "{:,}".format(row.planned) + (" (%d may be missed)" % row.may_be_missed if row.may_be_missed else "")
            lines.append("| %s | %s | %s | %s | %s | %s | %s |" % (
                kind, way, planned, "{:,}".format(len(row.begins)), "{:,}".format(len(row.ends)), seconds(row.begins),
                seconds(row.ends)))
        return "\n".join(lines)
