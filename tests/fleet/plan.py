"""What happens to the fleet, and when: alarms and faults by a seeded plan. Times are seconds after the plan's start."""

import dataclasses
import random

LEVELS = {3: "VrxAlarmWarning", 4: "VrxAlarmMinor", 5: "VrxAlarmMajor", 6: "VrxAlarmCritical"}  # the backend's, their alerts
ORDINARY_BOUND = 1000  # vrxMetricsAlarms as shipped


@dataclasses.dataclass(frozen=True)
class Alarm:
    kind: str
    array: int
    serial: int
    level: int
    begin: float
    end: float
    must_be_told: bool = True  # False: so short, or so far beyond the bound, that it may be missed


@dataclasses.dataclass(frozen=True)
class Fault:
    """`what` is killed with kill -9 at `begin` and started again at `end`."""
    what: str  # agent, backend, prometheus, alertmanager
    which: int
    begin: float
    end: float


@dataclasses.dataclass(frozen=True)
class Profile:
    """How long things take: FULL keeps the intervals of the exported files, the others have short ones."""
    seconds: int
    interval: int  # between scrapes, and between evaluations
    group_wait: int
    group_interval: int
    # So long the second Alertmanager of a cluster waits whether the first one tells, and then tells what it knew before. It must
    # be shorter than group_interval: else it is always behind, and alerts that it tells of late are never resolved.
    peer_timeout: int
    left_out_for: int  # `for` of VrxAlarmsLeftOut
    gone_for: int  # of VrxAgentGone and VrxAgentMetricsGone
    away_for: int  # of VrxBackendAway
    storm: int
    over_bound: int  # alarms beyond ORDINARY_BOUND on one array
    flaps: int
    flap_seconds: float  # between two changes

    @property
    def seen_within(self):
        """A scrape, an evaluation and a notification, on a machine with other work: what lasts as long is told."""
        return 2 * self.interval + self.told_within

    @property
    def told_within(self):
        """After a Prometheus was started again: the first scrape, and a notification of what it believed before that."""
        return self.interval + self.group_wait + self.group_interval + self.peer_timeout


FULL = Profile(seconds=600, interval=30, group_wait=5, group_interval=30, peer_timeout=15, left_out_for=300, gone_for=120,
               away_for=60, storm=5000, over_bound=200, flaps=40, flap_seconds=4)
QUICK = Profile(seconds=50, interval=2, group_wait=1, group_interval=2, peer_timeout=1, left_out_for=1, gone_for=1, away_for=1,
                storm=300, over_bound=50, flaps=5, flap_seconds=0.4)
QUICK_WITHOUT_RECEIVERS = dataclasses.replace(QUICK, seconds=24, interval=1, group_interval=1, peer_timeout=1)


class Plan:
    """The roles of single arrays, the alarms and the faults."""

    STORM, OVER_BOUND, FLAPPING, KILLED, BACKEND_AWAY = range(5)  # arrays
    SMALLEST_FLEET = 10

    def __init__(self, profile, arrays, seed):
        self.profile = profile
        self.arrays = arrays
        self._random = random.Random(seed)
        self._serials = {}
        self.alarms = []
        self.faults = []
        # Read by SNMPv3 as well as by metrics: a quarter, with those whose agent or backend goes, without the storms.
        self.by_snmp = sorted({self.KILLED, self.BACKEND_AWAY} | set(range(8, arrays, 4)))
        self._faults()
        self._storms()
        self._flapping()
        self._beside_faults()
        self._single()

    def bound(self, array):
        """vrxMetricsAlarms: the array of the storm gives all of its alarms."""
        return self.profile.storm + ORDINARY_BOUND if array == self.STORM else ORDINARY_BOUND

    def _add(self, kind, array, begin, end, **more):
        self._serials[array] = self._serials.get(array, 0) + 1
        self.alarms.append(Alarm(kind, array, self._serials[array], self._random.choice(list(LEVELS)), begin, end, **more))

    def _part(self, share):
        return self.profile.seconds * share

    def _fault(self, what, which, begin, seconds):
        self.faults.append(Fault(what, which, begin, begin + seconds))

    def _faults(self):
        seen = self.profile.seen_within
        self._fault("agent", self.KILLED, self._part(0.25), self.profile.gone_for + seen)
        self._fault("backend", self.BACKEND_AWAY, self._part(0.35), self.profile.away_for + seen)
        self._fault("prometheus", 0, self._part(0.5), 3 * self.profile.interval)
        self._fault("alertmanager", 0, self._part(0.8), 3 * self.profile.interval)

    def _storms(self):
        begin = self._part(0.15)
        for _ in range(self.profile.storm):
            self._add("storm", self.STORM, begin, begin + 2 * self.profile.seen_within)
        begin = self._part(0.05)
        for i in range(ORDINARY_BOUND + self.profile.over_bound):
            self._add("newest of too many", self.OVER_BOUND, begin, begin + self.profile.left_out_for + self.profile.seen_within,
                      must_be_told=i >= self.profile.over_bound)

    def _flapping(self):
        begin, pause = self._part(0.1), self.profile.flap_seconds
        for i in range(self.profile.flaps):
            self._add("flapping, its short ones", self.FLAPPING, begin + 2 * i * pause, begin + (2 * i + 1) * pause,
                      must_be_told=False)
        begin += 2 * self.profile.flaps * pause
        self._add("flapping, the last one", self.FLAPPING, begin, begin + self.profile.seen_within)

    def _beside_faults(self):
        """Alarms of the array whose agent, or backend, is away."""
        agent, backend = (next(fault for fault in self.faults if fault.what == what) for what in ("agent", "backend"))
        seen = self.profile.seen_within
        early, late = max(0, agent.begin - seen), agent.end + seen
        middle = (agent.begin + agent.end) / 2
        for _ in range(3):
            self._add("agent killed: active before and after", self.KILLED, early, late)
            self._add("agent killed: ended meanwhile", self.KILLED, early, middle)
            self._add("agent killed: raised meanwhile", self.KILLED, middle, late)
            self._add("backend away: active before and after", self.BACKEND_AWAY, max(0, backend.begin - seen), backend.end + seen)

    def _single(self):
        """One for each of the others, and so many more that there are two for each array."""
        others = [array for array in range(self.arrays) if array > self.BACKEND_AWAY]
        shortest = self.profile.seen_within
        latest = max(shortest / 4, self.profile.seconds - 1.5 * shortest)
        for array in others + self._random.choices(others, k=2 * self.arrays - len(others)):
            begin = self._random.uniform(0, latest)
            self._add("single", array, begin, begin + self._random.uniform(shortest, 1.5 * shortest))

    def steps(self):
        """(when, verb, subject): what to raise or clear at once on one array, as a list; which fault begins or ends."""
        steps = {}
        for alarm in self.alarms:
            steps.setdefault((alarm.begin, "raise", alarm.array), []).append(alarm)
            steps.setdefault((alarm.end, "clear", alarm.array), []).append(alarm)
        for fault in self.faults:
            steps[fault.begin, "kill", fault.what] = fault
            steps[fault.end, "start", fault.what] = fault
        return [(when, verb, subject) for (when, verb, _), subject in sorted(steps.items(), key=lambda step: step[0][:1])]
