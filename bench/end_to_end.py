"""Our agent beside a stock Net-SNMP agent (tdata_agent) that serves the same rows from memory: walks, GETs, growth and
memory, as CPU time of the agents' processes and as rows per second. Part of run.py.

Programs come from TAMREL_BUILD_DIR, as in tests/e2e, whose harness starts them.
"""

import glob
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from report import Row

SOURCE_DIR = os.environ.get("TAMREL_SOURCE_DIR") or os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tests", "e2e"))

from backend_client import BackendClient  # noqa: E402
from harness import ALARMS, BUILD_DIR, CLEAR_ALARM, V2C, Program, System, free_port, wait_for  # noqa: E402

ALARM_TABLE = ALARMS.rpartition(".")[0]
REPETITIONS = 50

STOCK_CONFIG = "rocommunity public 127.0.0.1\ndontLogTCPWrappersConnects yes\n"  # a line per packet otherwise
FRESH_SECONDS = 1.1  # after that long a walk reads the table anew: every walk measured pays for its reading
ALWAYS_FRESH = "vrxFreshSnapshotAge 0\n"


class Sizes:
    def __init__(self, quick):
        self.rounds = 1 if quick else 7
        self.rows = 200 if quick else 10_000
        self.gets = 200 if quick else 10_000
        self.growth = (50, 100) if quick else (100, 1_000, 10_000, 100_000)
        self.growth_rows = 100 if quick else 30_000  # walked at least at each size, in each round
        self.growth_rounds = 1 if quick else 3
        self.fresh_seconds = 0 if quick else FRESH_SECONDS


def cpu_seconds(pid):
    """CPU time of all threads of a process, from the scheduler's nanoseconds."""
    total = 0
    for path in glob.glob("/proc/%d/task/*/schedstat" % pid):
        with open(path, encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total / 1e9


def resident_megabytes(pid):
    with open("/proc/%d/status" % pid, encoding="ascii") as file:
        for line in file:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024
    raise RuntimeError("no resident size of %d" % pid)


class CpuTime:
    """CPU seconds that processes take while the block runs, one figure for each."""

    def __init__(self, *programs):
        self._pids = [program.pid for program in programs]
        self._before = []
        self.seconds = []

    def __enter__(self):
        self._before = [cpu_seconds(pid) for pid in self._pids]
        return self

    def __exit__(self, *_):
        self.seconds = [cpu_seconds(pid) - before for pid, before in zip(self._pids, self._before)]


def wait_idle(*programs):
    """Until what was raised has gone its way."""
    def idle():
        with CpuTime(*programs) as cpu:
            time.sleep(0.2)
        return sum(cpu.seconds) < 0.004

    wait_for(idle, "programs without work")


class StockAgent:
    """tdata_agent with the rows of a running system."""

    def __init__(self, system):
        self.folder = tempfile.mkdtemp(prefix="tdata-")
        self.port = free_port()
        with open(os.path.join(self.folder, "tdata-agent.conf"), "w", encoding="ascii") as file:
            file.write(STOCK_CONFIG)
        self.agent = Program("tdata_agent", ["--copy", system.address, "--table", ALARM_TABLE, "--scalar", CLEAR_ALARM,
                                             "--listen", self.address, "--state", self.folder],
                             os.path.join(self.folder, "log"))

    @property
    def address(self):
        return "udp:127.0.0.1:%d" % self.port

    def __enter__(self):
        self.agent.start()
        return self

    def __exit__(self, *_):
        self.agent.stop()
        shutil.rmtree(self.folder, ignore_errors=True)


def raise_alarms(system, count):
    with BackendClient(system.path("state", "backend.sock")) as backend:
        backend.raise_alarms(count)
    wait_idle(system.agent, system.backend)


def load(*arguments):
    """snmp_load: how many variables came."""
    done = subprocess.run([os.path.join(BUILD_DIR, "bin", "snmp_load")] + [str(a) for a in arguments], check=True,
                          stdout=subprocess.PIPE, text=True)
    return int(done.stdout.split()[0])


def tool_walk(system, address):
    """snmpbulkwalk of the alarm table: its output's lines, seconds."""
    begin = time.monotonic()
    done = subprocess.run(["snmpbulkwalk", "-On", "-Oe", "-Ot", "-t", "30", "-r", "0"] + V2C +
                          ["-Cr%d" % REPETITIONS, address, ALARM_TABLE], check=True, stdout=subprocess.PIPE,
                          env=system.tool_environment())
    return done.stdout.splitlines(), time.monotonic() - begin


class Measured:
    """Medians of one figure of ours and of the other's, taken in turns."""

    def __init__(self):
        self._ours = []
        self._other = []

    def add(self, ours, other):
        self._ours.append(ours)
        self._other.append(other)

    ours = property(lambda self: statistics.median(self._ours))
    other = property(lambda self: statistics.median(self._other))
    ratio = property(lambda self: self.ours / self.other)


def compare_walks(system, stock, sizes):
    agent, both, speed = Measured(), Measured(), Measured()
    for _ in range(sizes.rounds):
        time.sleep(sizes.fresh_seconds)
        with CpuTime(system.agent, system.backend) as ours:
            lines, seconds = tool_walk(system, system.address)
        with CpuTime(stock.agent) as other:
            other_lines, other_seconds = tool_walk(system, stock.address)
        if lines != other_lines or not lines:
            raise RuntimeError("the agents do not show the same rows")
        microseconds = 1e6 / len(lines)
        agent.add(ours.seconds[0] * microseconds, other.seconds[0] * microseconds)
        both.add(sum(ours.seconds) * microseconds, other.seconds[0] * microseconds)
        speed.add(sizes.rows / seconds, sizes.rows / other_seconds)
    walk = "bulk walk of %d alarms, " % sizes.rows
    return [
        Row(walk + "agent's CPU per variable, us", agent.ours, agent.other, at_most=0.25),
        Row(walk + "the same, backend included, us", both.ours, both.other),
        Row(walk + "rows per second", speed.ours, speed.other, at_least=1.8),
    ]


def compare_gets(system, stock, sizes):
    rows = []
    for under_way in (1, 8):
        cpu = Measured()
        for _ in range(sizes.rounds):
            spent = []
            for port, program in ((system.port, system.agent), (stock.port, stock.agent)):
                with CpuTime(program) as used:
                    load("get", port, CLEAR_ALARM, sizes.gets, under_way)
                spent.append(used.seconds[0] * 1e6 / sizes.gets)
            cpu.add(*spent)
        rows.append(Row("GET of a scalar, %d under way, agent's CPU, us" % under_way, cpu.ours, cpu.other,
                        at_most=0.6))
    return rows


def growth(sizes):
    """CPU per row, against that of the smallest table."""
    rows = []
    with System(extra_config=ALWAYS_FRESH) as system:
        raised, smallest = 0, None
        for size in sizes.growth:
            raise_alarms(system, size - raised)
            raised = size
            walks = max(1, sizes.growth_rows // size)
            load("walk", system.port, ALARM_TABLE, REPETITIONS)
            costs = []
            for _ in range(sizes.growth_rounds):
                with CpuTime(system.agent) as cpu:
                    for _ in range(walks):
                        load("walk", system.port, ALARM_TABLE, REPETITIONS)
                costs.append(cpu.seconds[0] * 1e6 / (walks * size))
            cost = statistics.median(costs)
            smallest = smallest or cost
            what = "bulk walk, agent's CPU per row, us: %d alarms against %d" % (size, sizes.growth[0])
            if size != sizes.growth[0]:
                rows.append(Row(what, cost, smallest, at_most=1.15))
    return rows


def rows_of(quick):
    sizes = Sizes(quick)
    with System() as system:
        raise_alarms(system, sizes.rows)
        with StockAgent(system) as stock:
            rows = compare_walks(system, stock, sizes)
            memory = resident_megabytes(system.agent.pid)
            rows += compare_gets(system, stock, sizes)
            rows.append(Row("resident memory of the agent with %d alarms, MB" % sizes.rows, memory, None, at_most=60))
    return rows + growth(sizes)
