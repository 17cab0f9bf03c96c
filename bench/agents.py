"""The agents that are compared, and what asks them. Programs come from TAMREL_BUILD_DIR, as in tests/e2e, whose harness
starts them."""

import os
import shutil
import subprocess
import tempfile
import time

from backend_client import BackendClient
from harness import ALARMS, BUILD_DIR, CLEAR_ALARM, V2C, Program, free_port
from processes import wait_idle

ALARM_TABLE = ALARMS.rpartition(".")[0]
REPETITIONS = 50

STOCK_CONFIG = """rocommunity public 127.0.0.1
createUser admin SHA-256 "admin-auth-pass" AES "admin-priv-pass"
rouser admin priv
dontLogTCPWrappersConnects yes
"""  # the last one: a line per packet otherwise
WITHOUT_BOUND = "vrxAnswerRate 0\n"  # one address asks as fast as it can


class StockAgent:
    """tdata_agent with the rows of a running system: an agent, or the subagent of the snmpd at `master`."""

    def __init__(self, system, master=None):
        self.folder = tempfile.mkdtemp(prefix="tdata-")
        self.port = free_port()
        with open(os.path.join(self.folder, "tdata-agent.conf"), "w", encoding="ascii") as file:
            file.write("" if master else STOCK_CONFIG)
        where = ["--agentx", master] if master else ["--listen", self.address]
        self.agent = Program("tdata_agent", ["--copy", system.address, "--table", ALARM_TABLE, "--scalar", CLEAR_ALARM,
                                             "--state", self.folder] + where, os.path.join(self.folder, "log"))

    @property
    def address(self):
        return "udp:127.0.0.1:%d" % self.port

    def __enter__(self):
        self.agent.start()
        return self

    def __exit__(self, *_):
        self.agent.stop()
        shutil.rmtree(self.folder, ignore_errors=True)


class Snmpd:
    """Debian's snmpd, with nothing of a configuration of its own but who may ask and the lines in `more`."""

    def __init__(self, more=""):
        self.folder = tempfile.mkdtemp(prefix="snmpd-")
        self.port = free_port()
        config = os.path.join(self.folder, "given.conf")  # it writes its state to snmpd.conf of this folder
        with open(config, "w", encoding="ascii") as file:
            file.write(STOCK_CONFIG + more.replace("FOLDER", self.folder))
        environment = {"MIBS": "", "SNMPCONFPATH": self.folder, "SNMP_PERSISTENT_DIR": self.folder}
        self.agent = Program(shutil.which("snmpd", path=os.environ["PATH"] + ":/usr/sbin"),
                             ["-f", "-Lf", os.path.join(self.folder, "log"), "-C", "-c", config, "-p",
                              os.path.join(self.folder, "pid"), self.address],
                             os.path.join(self.folder, "output"), environment)

    @property
    def address(self):
        return "udp:127.0.0.1:%d" % self.port

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.agent.stop()
        shutil.rmtree(self.folder, ignore_errors=True)


def raise_alarms(system, count):
    with BackendClient(system.path("state", "backend.sock")) as backend:
        backend.raise_alarms(count)
    wait_idle(system.agent, system.backend)


def change_alarms(system):
    """Raises an alarm and ends it: the rows are as before, but the agent has to read them anew."""
    with BackendClient(system.path("state", "backend.sock")) as backend:
        backend.clear_alarm(backend.raise_alarm())
    wait_idle(system.agent, system.backend)


def run_load(program, *arguments):
    """snmp_load or secure_load: how many variables came."""
    done = subprocess.run([os.path.join(BUILD_DIR, "bin", program)] + [str(a) for a in arguments], check=True,
                          stdout=subprocess.PIPE, text=True)
    return int(done.stdout.split()[0])


def load_walk(system):
    return run_load("snmp_load", "walk", system.port, ALARM_TABLE, REPETITIONS)


def load_gets(agent, count, under_way, version):
    """`count` GETs of a scalar."""
    asked = [agent.port, CLEAR_ALARM, count, under_way]
    if version == V2C:
        return run_load("snmp_load", "get", *asked)
    return run_load("secure_load", *asked, "admin", "admin-auth-pass", "admin-priv-pass")


def tool_walk(system, address, version=None):
    """snmpbulkwalk of the alarm table: its output's lines, seconds."""
    begin = time.monotonic()
    done = subprocess.run(["snmpbulkwalk", "-On", "-Oe", "-Ot", "-t", "60", "-r", "0"] + (version or V2C) +
                          ["-Cr%d" % REPETITIONS, address, ALARM_TABLE], check=True, stdout=subprocess.PIPE,
                          env=system.tool_environment())
    return done.stdout.splitlines(), time.monotonic() - begin
