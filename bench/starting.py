"""Starts, and an agent that has nothing to do: beside Debian's snmpd, and with many alarms at the backend."""

import json
import os
import socket
import statistics
import time

from agents import Snmpd, raise_alarms
from backend_client import BackendClient
from harness import System, wait_for
from processes import cpu_seconds, proportional_megabytes, threads_of, wait_idle, wake_ups
from reading import METRICS
from report import Measured, Row

# A GET of sysUpTime.0 by SNMPv2c with the community "public".
ASK_UPTIME = bytes.fromhex("302602010104067075626c6963a019020101020100020100300e300c06082b060102010103000500")


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


DEFINITION = """<param eventID="%d" name="Disk fault %d" reason="A disk reported errors." suggestion="Replace disk ##00 in
 enclosure ##01." detail="Disk ##00 in enclosure ##01 failed." location="Enclosure ##01, slot ##00" alarmOid="0.%d"/>"""
FIRST_DEFINITION = 8589934593


def write_definitions(system, count):
    params = "\n".join(DEFINITION % (FIRST_DEFINITION + i, i, 1000 + i) for i in range(count))
    system.write("conf/alarm_definitions.xml", "<root><eventDefinition>%s</eventDefinition></root>\n" % params)


def start_full(sizes):
    """With its definitions and its backend's alarms, all of which it knows, against snmpd without a configuration."""
    with System(start=False) as system, Snmpd() as snmpd:
        write_definitions(system, sizes.definitions)
        system.backend.start()
        system.agent.start()
        with BackendClient(system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(sizes.rows, FIRST_DEFINITION, "1,2")
        wait_idle(system.agent, system.backend)
        taken = Measured()
        for _ in range(sizes.rounds):
            system.agent.stop()
            ours = milliseconds_to_answer(system.agent, system.port)
            wait_idle(system.agent, system.backend)
            if snmpd.agent.running():
                snmpd.agent.stop()
            taken.add(ours, milliseconds_to_answer(snmpd.agent, snmpd.port))
    what = "start to the first answer, %d definitions, %d alarms at the backend, ms; snmpd" % (sizes.definitions, sizes.rows)
    return [Row.of(what, taken, at_most=1.0)]
