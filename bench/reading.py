"""What reading costs: walks, GETs and scrapes of our agent beside a stock Net-SNMP agent (tdata_agent) that serves the same
rows from memory, as CPU time of the agents' processes and as rows per second; growth; walks while alarms change."""

import http.client
import os
import socket
import subprocess
import threading
import time

from agents import (ALARM_TABLE, REPETITIONS, WITHOUT_BOUND, StockAgent, change_alarms, load_gets, load_walk,
                    raise_alarms, tool_walk)
from backend_client import BackendClient
from harness import BUILD_DIR, V2C, V3, System, wait_for
from processes import CpuTime, resident_megabytes, wait_idle
from report import Measured, Row

METRICS = "vrxMetrics unix:state/metrics.sock\n"
# Every walk reads the table anew, and goes on in what it read also where the machine is so busy that it takes minutes.
ALWAYS_FRESH = (WITHOUT_BOUND +
                "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\nvrxWalkSnapshotAge 600000\nvrxSnapshotsKept 1\n"
                "vrxRequestDeadline 60000\n")


class Cost:
    """Of one walk, per variable: CPU microseconds of our agent, of agent and backend, of the stock agent; seconds."""

    def __init__(self, system, stock, version, before=None):
        with CpuTime(system.agent, system.backend) as ours:
            if before:
                before()
            lines, self.seconds = tool_walk(system, system.address, version)
        with CpuTime(stock.agent) as other:
            other_lines, self.other_seconds = tool_walk(system, stock.address, version)
        if lines != other_lines or not lines:
            raise RuntimeError("the agents do not show the same rows")
        microseconds = 1e6 / len(lines)
        self.agent = ours.seconds[0] * microseconds
        self.both = sum(ours.seconds) * microseconds
        self.other = other.seconds[0] * microseconds


def compare_walks(system, stock, sizes):
    """Walks of rows that are in memory, as the stock agent's are; the same by SNMPv3; and walks right after a change of the
    alarms, whose cost is counted to them."""
    quiet, speed, secure, secure_to_plain, changed, changed_to_quiet = (Measured() for _ in range(6))
    for _ in range(sizes.rounds):
        of_change = Cost(system, stock, V2C, lambda: change_alarms(system))
        of_quiet = Cost(system, stock, V2C)
        of_secure = Cost(system, stock, V3)
        quiet.add(of_quiet.agent, of_quiet.other)
        speed.add(sizes.rows / of_quiet.seconds, sizes.rows / of_quiet.other_seconds)
        secure.add(of_secure.agent, of_secure.other)
        secure_to_plain.add(of_secure.agent, of_quiet.agent)
        changed.add(of_change.agent, of_change.other)
        changed_to_quiet.add(of_change.both, of_quiet.both)
    walk = "bulk walk of %d alarms" % sizes.rows
    return [
        Row.of(walk + ", agent's CPU per variable, us", quiet, at_most=0.25),
        Row.of(walk + ", rows per second", speed, at_least=1.8),
        Row.of(walk + " by SNMPv3 (authPriv), agent's CPU per variable, us", secure, at_most=0.18),
        Row.of(walk + " by SNMPv3, the same; our own by SNMPv2c", secure_to_plain, at_most=1.5),
        Row.of(walk + " after a change, agent's CPU per variable, us", changed),
        Row.of(walk + " after a change, backend included; without one", changed_to_quiet, at_most=1.1),
    ]


def compare_gets(system, stock, sizes):
    rows = []
    for name, version, targets in (("SNMPv2c", V2C, (0.45, 0.6)), ("SNMPv3", V3, (0.45, 0.35))):
        for under_way, target in zip((1, 8), targets):
            cpu = Measured()
            for _ in range(sizes.rounds):
                spent = []
                for asked in (system, stock):
                    with CpuTime(asked.agent) as used:
                        load_gets(asked, sizes.gets, under_way, version)
                    spent.append(used.seconds[0] * 1e6 / sizes.gets)
                cpu.add(*spent)
            what = "%s GET of a scalar, %d under way, agent's CPU, us" % (name, under_way)
            rows.append(Row.of(what, cpu, at_most=target))
    return rows


class Changes:
    """Alarms that are raised and end by turns, a hundred changes a second, while the block runs."""

    PERIOD = 0.01

    def __init__(self, system):
        self._path = system.path("state", "backend.sock")
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join()

    def _run(self):
        with BackendClient(self._path) as backend:
            due = time.monotonic()
            while not self._stop.wait(max(0.0, due - time.monotonic())):
                due += 2 * self.PERIOD
                serial = backend.raise_alarm()
                self._stop.wait(self.PERIOD)
                backend.clear_alarm(serial)


def walks_at_once(system, managers):
    """Agent's CPU milliseconds for each of them."""
    command = [os.path.join(BUILD_DIR, "bin", "snmp_load"), "walk", str(system.port), ALARM_TABLE, str(REPETITIONS)]
    with CpuTime(system.agent) as cpu:
        walking = [subprocess.Popen(command, stdout=subprocess.DEVNULL) for _ in range(managers)]
        if any([manager.wait() for manager in walking]):
            raise RuntimeError("a walk came to no end")
    return cpu.seconds[0] * 1e3 / managers


def many_managers(sizes):
    """Many managers walk at once while alarms change, against the same while nothing does."""
    cost = Measured()
    with System(extra_config=WITHOUT_BOUND) as system:
        raise_alarms(system, sizes.rows)
        for _ in range(sizes.churn_rounds):
            with Changes(system):
                changing = walks_at_once(system, sizes.managers)
            wait_idle(system.agent, system.backend)
            cost.add(changing, walks_at_once(system, sizes.managers))
    what = "%d managers walk %d alarms, 100 changes a second, agent's CPU a walk, ms; no change"
    return [Row.of(what % (sizes.managers, sizes.rows), cost, at_most=1.2)]


def beside_stock(sizes):
    with System(extra_config=WITHOUT_BOUND) as system:
        raise_alarms(system, sizes.rows)
        load_walk(system)
        walked = resident_megabytes(system.agent.pid)
        with StockAgent(system) as stock:
            rows = compare_walks(system, stock, sizes)
            changed = resident_megabytes(system.agent.pid)
            rows += compare_gets(system, stock, sizes)
    what = "resident memory of the agent with %d alarms, " % sizes.rows
    return rows + [Row(what + "walked, MB", walked, at_most=25),
                   Row(what + "walked again after each of some changes, MB", changed, at_most=60)]


def cost_of_walks(system, size, rows):
    """CPU microseconds of the agent per row, of as many walks as make at least that many rows."""
    walks = max(1, rows // size)
    with CpuTime(system.agent) as cpu:
        for _ in range(walks):
            load_walk(system)
    return cpu.seconds[0] * 1e6 / (walks * size)


def growth(sizes):
    """CPU per row, against that of the smallest table in a system of its own, by turns."""
    smallest, *larger = sizes.growth
    rows = []
    with System(extra_config=ALWAYS_FRESH) as system, System(extra_config=ALWAYS_FRESH) as small:
        raise_alarms(small, smallest)
        raised = 0
        for size in larger:
            raise_alarms(system, size - raised)
            raised = size
            load_walk(system)
            load_walk(small)
            cost = Measured()
            for _ in range(sizes.growth_rounds):
                ours = cost_of_walks(system, size, sizes.growth_rows)
                cost.add(ours, cost_of_walks(small, smallest, sizes.growth_rows))
            what = "bulk walk, agent's CPU per row, us: %d alarms against %d" % (size, smallest)
            rows.append(Row.of(what, cost, at_most=1.15))
    return rows


class LocalConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=60)
        self._path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.connect(self._path)


def scrape(system):
    connection = LocalConnection(system.path("state", "metrics.sock"))
    connection.request("GET", "/metrics")
    text = connection.getresponse().read()
    connection.close()
    return text


def scrapes(sizes):
    """Scrapes of metrics with all alarms among them against bulk walks of their table, both of rows that are read."""
    rows = []
    with System(extra_config=WITHOUT_BOUND + METRICS) as system:
        raise_alarms(system, sizes.scraped)
        wait_for(lambda: scrape(system).count(b"\nvrx_alarm{") == sizes.scraped, "all alarms among the metrics")
        cost = Measured()
        for _ in range(sizes.rounds):
            spent = []
            for ask in (lambda: scrape(system), lambda: load_walk(system)):
                with CpuTime(system.agent) as cpu:
                    for _ in range(sizes.scrapes):
                        ask()
                spent.append(cpu.seconds[0] * 1e3 / sizes.scrapes)
            cost.add(*spent)
        rows.append(Row.of("scrape with %d alarms, agent's CPU, ms; a bulk walk of them" % sizes.scraped, cost, at_most=1))
    return rows
