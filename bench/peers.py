"""What else could serve the same table: a subagent of snmpd (AgentX), a program that snmpd asks (pass_persist), snmpsim. Rows
without a target: what a user would pick instead."""

import contextlib
import os
import shutil
import sys
import tempfile

from agents import ALARM_TABLE, WITHOUT_BOUND, Snmpd, StockAgent, raise_alarms, tool_walk
from harness import CLEAR_ALARM, Program, System, free_port, wait_for
from processes import CpuTime
from report import Measured, Row

PASS_TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "pass_table.py")
SIMULATOR_TAGS = {"INTEGER": "2", "STRING": "4", "Hex-STRING": "4x", "Gauge32": "66", "Counter64": "70"}


def rows_of(system):
    return [line.decode("ascii") for line in tool_walk(system, system.address)[0]]


class SubAgent:
    """snmpd and a subagent with the rows."""

    def __init__(self, system):
        self._system = system

    def __enter__(self):
        with contextlib.ExitStack() as parts:
            snmpd = parts.enter_context(Snmpd("master agentx\nagentXSocket unix:FOLDER/agentx\n"))
            snmpd.agent.start(wait=False)
            wait_for(lambda: os.path.exists(snmpd.folder + "/agentx"), "snmpd's socket for subagents")
            subagent = parts.enter_context(StockAgent(self._system, "unix:%s/agentx" % snmpd.folder))
            self.address, self.programs = snmpd.address, (snmpd.agent, subagent.agent)
            self._parts = parts.pop_all()
        return self

    def __exit__(self, *_):
        self._parts.close()


class Child:
    """A program that another one has started."""

    def __init__(self, parent):
        with open("/proc/%d/task/%d/children" % (parent, parent), encoding="ascii") as file:
            (self.pid,) = (int(child) for child in file.read().split())


class PassedOn:
    """snmpd and a script in Python that answers for the table."""

    def __init__(self, system):
        self._rows = rows_of(system)

    def __enter__(self):
        rows = "FOLDER/rows"
        self._snmpd = Snmpd("pass_persist .%s %s %s %s\n" % (ALARM_TABLE, sys.executable, PASS_TABLE, rows))
        with open(rows.replace("FOLDER", self._snmpd.folder), "w", encoding="utf-8") as file:
            file.write("\n".join(self._rows) + "\n")
        self._snmpd.agent.start(wait=False)
        self.address = self._snmpd.address
        return self

    @property
    def programs(self):
        return self._snmpd.agent, Child(self._snmpd.agent.pid)  # which comes with the first request

    def __exit__(self, *_):
        self._snmpd.__exit__()


class Simulator:
    """snmpsim with the rows as a recording."""

    def __init__(self, system):
        self._rows = rows_of(system)
        self._folder = tempfile.mkdtemp(prefix="snmpsim-")
        port = free_port()
        self.address = "udp:127.0.0.1:%d" % port
        arguments = ["--data-dir=" + self._folder, "--cache-dir=" + self._folder + "/cache",
                     "--agent-udpv4-endpoint=127.0.0.1:%d" % port]
        if os.geteuid() == 0:
            arguments += ["--process-user=nobody", "--process-group=nogroup"]  # it refuses to be root
        self._program = Program(shutil.which("snmpsimd"), arguments, os.path.join(self._folder, "log"))
        self.programs = (self._program,)

    def __enter__(self):
        os.chmod(self._folder, 0o777)
        with open(self._folder + "/public.snmprec", "w", encoding="ascii") as file:
            for line in self._rows:
                name, kind, value = parts_of(line)
                file.write("%s|%s|%s\n" % (name.lstrip("."), SIMULATOR_TAGS[kind], value))
            file.write("%s|66|0\n" % CLEAR_ALARM)  # the tool wants an end that is not that of all there is
        self._program.start(wait=False)
        return self

    def __exit__(self, *_):
        self._program.stop()
        shutil.rmtree(self._folder, ignore_errors=True)


def parts_of(line):
    """Name, type and value of a line of snmpbulkwalk's."""
    name, _, rest = line.partition(" = ")
    kind, _, value = rest.partition(": ")
    return name, kind, value.replace(" ", "") if kind == "Hex-STRING" else value.strip('"')


def serves(system, peer):
    """Whether the peer shows the table's first instance."""
    done = system.run("snmpgetnext", ALARM_TABLE, address=peer.address, timeout=1, retries=0, check=False)
    return done.returncode == 0 and ("." + ALARM_TABLE) in done.stdout


def compare_peers(sizes):
    rows = []
    with System(extra_config=WITHOUT_BOUND) as system:
        raise_alarms(system, sizes.peer_rows)
        for name, peer_of in (("snmpd with a subagent (AgentX)", SubAgent), ("snmpd with pass_persist", PassedOn),
                              ("snmpsim", Simulator)):
            cpu = Measured()
            with peer_of(system) as peer:
                wait_for(lambda: serves(system, peer), name)
                for _ in range(sizes.peer_rounds):
                    with CpuTime(system.agent) as ours:
                        lines, _ = tool_walk(system, system.address)
                    with CpuTime(*peer.programs) as other:
                        other_lines, _ = tool_walk(system, peer.address)
                    if lines != other_lines:
                        raise RuntimeError("%s does not show the same rows" % name)
                    cpu.add(sum(ours.seconds) * 1e6 / len(lines), sum(other.seconds) * 1e6 / len(lines))
            what = "bulk walk of %d alarms, CPU per variable, us; %s" % (sizes.peer_rows, name)
            rows.append(Row.of(what, cpu))
    return rows
