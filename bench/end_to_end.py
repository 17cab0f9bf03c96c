"""Our agent beside a stock Net-SNMP agent (tdata_agent) that serves the same rows from memory: walks, GETs, growth, scrapes
and memory, as CPU time of the agents' processes and as rows per second; and at rest beside Debian's snmpd. Part of run.py.

Programs come from TAMREL_BUILD_DIR, as in tests/e2e, whose harness starts them.
"""

import http.client
import json
import os
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

from report import Measured, Row

SOURCE_DIR = os.environ.get("TAMREL_SOURCE_DIR") or os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tests", "e2e"))

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint  # noqa: E402
from inform_receiver import InformReceiver  # noqa: E402
from trap_receiver import TrapReceiver  # noqa: E402
from udp_relay import UdpRelay  # noqa: E402
from harness import ALARMS, BUILD_DIR, CLEAR_ALARM, V2C, Program, System, free_port, wait_for  # noqa: E402

ALARM_TABLE = ALARMS.rpartition(".")[0]
DISK_FAILED = 4295229443  # its location is that of its parameters: each is an alarm of its own
REPETITIONS = 50
EVENTS_SECONDS = 300  # for what many alarms raised at once are to the agent

STOCK_CONFIG = "rocommunity public 127.0.0.1\ndontLogTCPWrappersConnects yes\n"  # a line per packet otherwise
METRICS = "vrxMetrics unix:state/metrics.sock\n"
WITHOUT_BOUND = "vrxAnswerRate 0\n"  # one address asks as fast as it can
# Every walk reads the table anew, and goes on in what it read also where the machine is so busy that it takes minutes.
ALWAYS_FRESH = (WITHOUT_BOUND +
                "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\nvrxWalkSnapshotAge 600000\nvrxSnapshotsKept 1\n"
                "vrxRequestDeadline 60000\n")


class Sizes:
    def __init__(self, quick):
        self.rounds = 1 if quick else 7
        self.rows = 200 if quick else 10_000
        self.gets = 200 if quick else 10_000
        self.growth = (50, 100) if quick else (100, 1_000, 10_000, 100_000)
        self.growth_rows = 100 if quick else 20_000  # walked at least at each size, in each round
        self.growth_rounds = 1 if quick else 5
        self.informs = 50 if quick else 5_000
        self.connect = (100, 200) if quick else (5_000, 50_000)
        self.scraped, self.scrapes = (100, 2) if quick else (1_000, 20)
        self.rest_rounds, self.rest_seconds = (1, 1) if quick else (3, 10)


def cpu_seconds(pid):
    """CPU time of a process, nanoseconds exact, that of threads which have ended included."""
    clock = (~pid << 3) | 2  # what clock_getcpuclockid(3) gives for it
    return time.clock_gettime(clock)


def resident_megabytes(pid):
    with open("/proc/%d/status" % pid, encoding="ascii") as file:
        for line in file:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024
    raise RuntimeError("no resident size of %d" % pid)


def proportional_megabytes(pid):
    """Its own memory and its share of that which it has in common with others."""
    with open("/proc/%d/smaps_rollup" % pid, encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024


def threads_of(pid):
    return os.listdir("/proc/%d/task" % pid)


def wake_ups(pid):
    """How often its threads have waited for something and gone on."""
    total = 0
    for thread in threads_of(pid):
        with open("/proc/%d/task/%s/status" % (pid, thread), encoding="ascii") as file:
            total += next(int(line.split()[1]) for line in file if line.startswith("voluntary_ctxt_switches"))
    return total


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

    wait_for(idle, "programs without work", EVENTS_SECONDS)


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


def change_alarms(system):
    """Raises an alarm and ends it: the rows are as before, but the agent has to read them anew."""
    with BackendClient(system.path("state", "backend.sock")) as backend:
        raised = backend.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "someone,once")))
        backend.clear_alarm(int.from_bytes(raised[-4:], "little"))
    wait_idle(system.agent, system.backend)


class Walks:
    """Figures of one kind of walks."""

    def __init__(self, system, stock, sizes):
        self._system, self._stock, self._sizes = system, stock, sizes
        self.agent, self.both, self.speed = Measured(), Measured(), Measured()

    def take_turn(self):
        system, stock = self._system, self._stock
        with CpuTime(system.agent, system.backend) as ours:
            lines, seconds = tool_walk(system, system.address)
        with CpuTime(stock.agent) as other:
            other_lines, other_seconds = tool_walk(system, stock.address)
        if lines != other_lines or not lines:
            raise RuntimeError("the agents do not show the same rows")
        microseconds = 1e6 / len(lines)
        self.agent.add(ours.seconds[0] * microseconds, other.seconds[0] * microseconds)
        self.both.add(sum(ours.seconds) * microseconds, other.seconds[0] * microseconds)
        self.speed.add(self._sizes.rows / seconds, self._sizes.rows / other_seconds)


def compare_walks(system, stock, sizes):
    """Walks of rows that are in memory, as the stock agent's are, and walks right after a change of the alarms."""
    quiet, changed = Walks(system, stock, sizes), Walks(system, stock, sizes)
    for _ in range(sizes.rounds):
        change_alarms(system)
        changed.take_turn()
        quiet.take_turn()
    walk = "bulk walk of %d alarms" % sizes.rows
    return [
        Row.of(walk + ", agent's CPU per variable, us", quiet.agent, at_most=0.25),
        Row.of(walk + ", rows per second", quiet.speed, at_least=1.8),
        Row.of(walk + " after a change, agent's CPU per variable, us", changed.agent),
        Row.of(walk + " after a change, the same, backend included, us", changed.both),
        Row.of(walk + " after a change, rows per second", changed.speed),
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
        rows.append(Row.of("GET of a scalar, %d under way, agent's CPU, us" % under_way, cpu, at_most=0.6))
    return rows


def cost_of_walks(system, size, rows):
    """CPU microseconds of the agent per row, of as many walks as make at least that many rows."""
    walks = max(1, rows // size)
    with CpuTime(system.agent) as cpu:
        for _ in range(walks):
            load("walk", system.port, ALARM_TABLE, REPETITIONS)
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
            load("walk", system.port, ALARM_TABLE, REPETITIONS)
            load("walk", small.port, ALARM_TABLE, REPETITIONS)
            cost = Measured()
            for _ in range(sizes.growth_rounds):
                ours = cost_of_walks(system, size, sizes.growth_rows)
                cost.add(ours, cost_of_walks(small, smallest, sizes.growth_rows))
            what = "bulk walk, agent's CPU per row, us: %d alarms against %d" % (size, smallest)
            rows.append(Row.of(what, cost, at_most=1.15))
    return rows


def start_seconds(system):
    """Starts the agent, to which all alarms are new then: seconds until it has handled an event that came up meanwhile,
    and its CPU seconds until then."""
    system.agent.stop()
    with BackendClient(system.path("state", "backend.sock")) as backend:
        backend.raise_alarms(1)
    begin = time.monotonic()
    system.agent.start()
    wait_for(lambda: json.loads(system.vrxctl("status", "--json"))["events"]["handled"] == 1, "the event")
    return time.monotonic() - begin, cpu_seconds(system.agent.pid)


def connecting(sizes):
    """What a backend's list of active alarms costs an agent that connects, beyond a start beside an empty backend: ten
    times as many alarms against fewer, for each alarm."""
    with System() as empty, System() as few, System() as many:
        for system, alarms in zip((few, many), sizes.connect):
            raise_alarms(system, alarms)
        seconds, cost = [], Measured()
        for _ in range(sizes.growth_rounds):
            (base, base_cpu), (_, few_cpu), (many_seconds, many_cpu) = (start_seconds(s) for s in (empty, few, many))
            seconds.append(many_seconds - base)
            cost.add(*((cpu - base_cpu) * 1e6 / alarms for cpu, alarms in zip((many_cpu, few_cpu), sizes.connect[::-1])))
    few_alarms, many_alarms = sizes.connect
    what = "connecting to a backend with %d alarms" % many_alarms
    return [
        Row(what + " until events are handled, s", statistics.median(seconds), at_most=0.3),
        Row.of(what + ", agent's CPU per alarm, us: against %d" % few_alarms, cost, at_most=1.5),
    ]


class InformBench:
    """Informs to a receiver at the other end of a path of 20 ms, there and back, that loses 1 % of the datagrams of either
    direction; with as many plain datagrams under way as informs may be, and no loss, as the other one."""

    DELAY, LOSS, WINDOW = 0.01, 0.01, 32

    def __init__(self, count):
        self._count = count

    def informs_per_second(self, seed):
        with InformReceiver() as receiver, UdpRelay(receiver.port, self.DELAY, self.LOSS, seed) as relay, \
                System(extra_config="informsink 127.0.0.1 informs %d\n" % relay.port) as system:
            wait_for(lambda: json.loads(system.vrxctl("status", "--json"))["informs"][0]["waiting"] == 0, "the coldStart")
            with BackendClient(system.path("state", "backend.sock")) as backend:
                begin = time.monotonic()
                for first in range(0, self._count, 1000):
                    backend.call(*[record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 3), text(8, "%d,CTE0,1" % slot))
                                   for slot in range(first, min(first + 1000, self._count))])

            def acknowledged():
                return json.loads(system.vrxctl("status", "--json"))["informs"][0]["acknowledged"] > self._count

            wait_for(acknowledged, "all acknowledgements", EVENTS_SECONDS)
            return self._count / (time.monotonic() - begin)

    def datagrams_per_second(self):
        with Echo() as echo, UdpRelay(echo.port, self.DELAY) as relay, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as near:
            near.settimeout(10)
            near.connect(("127.0.0.1", relay.port))
            begin = time.monotonic()
            for number in range(self._count + self.WINDOW):
                if number >= self.WINDOW:
                    near.recv(2048)
                if number < self._count:
                    near.send(b"x" * 700)
            return self._count / (time.monotonic() - begin)


class Echo(TrapReceiver):
    def took(self, datagram, sender):
        self._socket.sendto(datagram, sender)


def informs(sizes):
    speed = Measured()
    bench = InformBench(sizes.informs)
    for round_ in range(sizes.growth_rounds):
        speed.add(bench.informs_per_second(round_), bench.datagrams_per_second())
    what = "informs per second to one receiver, 20 ms away, 1 % lost"
    return [
        Row(what, speed.ours, at_least=1000),
        Row.of(what + "; datagrams, %d under way, none lost" % bench.WINDOW, speed),
    ]


class Snmpd:
    """Debian's snmpd as it is without a configuration of its own."""

    def __init__(self):
        self._folder = tempfile.mkdtemp(prefix="snmpd-")
        self.port = free_port()
        config = os.path.join(self._folder, "given.conf")  # it writes its state to snmpd.conf of this folder
        with open(config, "w", encoding="ascii") as file:
            file.write(STOCK_CONFIG)
        environment = {"MIBS": "", "SNMPCONFPATH": self._folder, "SNMP_PERSISTENT_DIR": self._folder}
        self.agent = Program(shutil.which("snmpd", path=os.environ["PATH"] + ":/usr/sbin"),
                             ["-f", "-Lf", os.path.join(self._folder, "log"), "-C", "-c", config, "-p",
                              os.path.join(self._folder, "pid"), "udp:127.0.0.1:%d" % self.port],
                             os.path.join(self._folder, "output"), environment)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.agent.stop()
        shutil.rmtree(self._folder, ignore_errors=True)


# A GET of sysUpTime.0 by SNMPv2c with the community "public".
ASK_UPTIME = bytes.fromhex("302602010104067075626c6963a019020101020100020100300e300c06082b060102010103000500")


def milliseconds_to_answer(program, port):
    """From its start to its first answer."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
        asking.settimeout(0.001)
        begin = time.monotonic()
        program.start(wait=False)
        while time.monotonic() - begin < 60:
            asking.sendto(ASK_UPTIME, ("127.0.0.1", port))
            try:
                asking.recv(2048)
                return (time.monotonic() - begin) * 1000
            except OSError:  # nobody is there yet
                pass
    raise RuntimeError("no answer")


class Rest:
    """Figures of a program that has nothing to do."""

    def __init__(self):
        self.start, self.memory, self.threads, self.wake_ups = [], [], [], []

    def measure(self, program, port, seconds):
        if program.running():
            program.stop()
        self.start.append(milliseconds_to_answer(program, port))
        wait_idle(program)
        before = wake_ups(program.pid)
        time.sleep(seconds)
        self.wake_ups.append((wake_ups(program.pid) - before) / seconds)
        self.memory.append(proportional_megabytes(program.pid))
        self.threads.append(len(threads_of(program.pid)))


def at_rest(sizes):
    """An agent with its backend inside it and ten alarms, and metrics that nobody asks for; snmpd beside it."""
    ours, other = Rest(), Rest()
    with System(embedded=True, extra_config=METRICS) as system, Snmpd() as snmpd:
        with BackendClient(system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(10)
        for _ in range(sizes.rest_rounds):
            ours.measure(system.agent, system.port, sizes.rest_seconds)
            other.measure(snmpd.agent, snmpd.port, sizes.rest_seconds)
    rows = []
    for what, target in (("start", 100), ("memory", None), ("threads", 8), ("wake_ups", 2)):
        words = {"start": "from the start to the first answer, ms", "memory": "memory (PSS), MB", "threads": "threads",
                 "wake_ups": "wake-ups a second"}[what]
        rows.append(Row("agent with its backend at rest: " + words, statistics.median(getattr(ours, what)), at_most=target))
        rows.append(Row("snmpd at rest: " + words, statistics.median(getattr(other, what))))
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
            for ask in (lambda: scrape(system), lambda: load("walk", system.port, ALARM_TABLE, REPETITIONS)):
                with CpuTime(system.agent) as cpu:
                    for _ in range(sizes.scrapes):
                        ask()
                spent.append(cpu.seconds[0] * 1e3 / sizes.scrapes)
            cost.add(*spent)
        rows.append(Row.of("scrape with %d alarms, agent's CPU, ms; a bulk walk of them" % sizes.scraped, cost, at_most=1))
    return rows


def rows_of(quick):
    sizes = Sizes(quick)
    with System(extra_config=WITHOUT_BOUND) as system:
        raise_alarms(system, sizes.rows)
        with StockAgent(system) as stock:
            rows = compare_walks(system, stock, sizes)
            memory = resident_megabytes(system.agent.pid)
            rows += compare_gets(system, stock, sizes)
            rows.append(Row("resident memory of the agent with %d alarms, MB" % sizes.rows, memory, at_most=60))
    return rows + scrapes(sizes) + at_rest(sizes) + growth(sizes) + connecting(sizes) + informs(sizes)
