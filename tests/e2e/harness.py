"""The real programs, started in a root of their own, and Net-SNMP's tools to ask them with.

    class TopologyTest(unittest.TestCase):
        def test_answers(self):
            with System() as system:
                self.assertIn("Array", system.get("1.3.6.1.4.1.99871.2.91.9.1.1.5.1"))

A System copies share/ and the generated MIB files into a temporary root, starts vrx-backendd and vrx-agentd on free
loopback ports, waits until both say "ready" and, at the end, stops what it started by its process id.

Where programs and sources are comes from TAMREL_BUILD_DIR and TAMREL_SOURCE_DIR (CTest sets both). TAMREL_PROGRAM_DIR
is another place of the programs alone: in a cross build, scripts that run them under an emulator.
"""

import errno
import glob
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import xml.etree.ElementTree as ElementTree

SOURCE_DIR = os.environ.get("TAMREL_SOURCE_DIR") or os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
BUILD_DIR = os.environ.get("TAMREL_BUILD_DIR") or os.path.join(SOURCE_DIR, "build", "release")
PROGRAM_DIR = os.environ.get("TAMREL_PROGRAM_DIR") or os.path.join(BUILD_DIR, "bin")

ENTERPRISE = "1.3.6.1.4.1.99871.2"
TOPOLOGY = ENTERPRISE + ".91.9.1.1"  # .COLUMN.1
ALARMS = ENTERPRISE + ".91.10.1.1.1"  # .COLUMN.SERIAL
CLEAR_ALARM = ENTERPRISE + ".91.10.1.2.0"
DESTINATIONS = ENTERPRISE + ".91.10.4.1.1"  # .COLUMN.NUMBER

# Who may ask a system under test: a reader and a writer, who see everything.
AGENT_CONFIG = """
rocommunity public 127.0.0.1 .1
createUser admin SHA-256 "admin-auth-pass" AES "admin-priv-pass"
rwuser admin priv .1
sysName vrx-under-test
"""
V2C = ["-v2c", "-c", "public"]
V1 = ["-v1", "-c", "public"]
V3 = ["-v3", "-l", "authPriv", "-u", "admin", "-a", "SHA-256", "-A", "admin-auth-pass", "-x", "AES", "-X",
      "admin-priv-pass"]

START_SECONDS = 60  # until "ready": generous, sanitizers on a busy machine are slow
STOP_SECONDS = 30


class Failure(Exception):
    """A program of the system did not do what the test needs before it can begin."""


_ports_taken = []  # each port's name, as a socket of that name: it goes with this process


def free_port(kind=socket.SOCK_DGRAM):
    """A loopback port that nobody uses, and no test is given again while this process lives.

    It is none that the kernel gives to clients: one of those could be a manager's before the program under test has it.
    """
    for port in random.sample(range(10000, 32768), 1000):
        name = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        try:
            name.bind("\0vrx-test-port-%d" % port)
            with socket.socket(socket.AF_INET, kind) as probe:
                probe.bind(("127.0.0.1", port))
        except OSError as failure:
            name.close()
            if failure.errno != errno.EADDRINUSE:
                raise
        else:
            _ports_taken.append(name)
            return port
    raise Failure("1,000 ports are in use")


def wait_for(condition, what, seconds=START_SECONDS):
    """Polls until condition() is true and returns what it gave."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise Failure("waited %d s in vain for: %s" % (seconds, what))
        time.sleep(0.02)


def slowdown():
    """How many times as long as others the programs of this build may take: with sanitizers, or emulated."""
    with open(os.path.join(BUILD_DIR, "CMakeCache.txt"), encoding="utf-8") as cache:
        return 5 if re.search(r"^(TAMREL_SANITIZE|CMAKE_TOOLCHAIN_FILE):\w+=.", cache.read(), re.MULTILINE) else 1


def mib_path():
    """The directories in which Net-SNMP's tools find our MIB and the base modules, as MIBDIRS takes them."""
    return subprocess.run([os.path.join(SOURCE_DIR, "scripts", "mib-path")], check=True, stdout=subprocess.PIPE,
                          text=True).stdout.strip()


class Program:
    """One started daemon, its log in a file."""

    def __init__(self, name, arguments, log_path, environment=None):
        self.name = name
        self.arguments = arguments
        self.log_path = log_path
        self.environment = environment or {}
        self.user = None  # number of another user than this one
        self.process = None
        self._log_start = 0

    def start(self, wait=True):
        self._log_start = os.path.getsize(self.log_path) if os.path.exists(self.log_path) else 0
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen([os.path.join(PROGRAM_DIR, self.name)] + self.arguments, stdout=log,
                                            stderr=log, env=dict(os.environ, **self.environment), user=self.user)
        if wait:
            self.wait_ready()

    def wait_ready(self):
        wait_for(self._is_ready, self.name + " to be ready")

    def _is_ready(self):
        if self.process.poll() is not None:
            raise Failure("%s ended with %d before it was ready:\n%s" % (self.name, self.process.returncode, self.log()))
        return re.search(r"(?<!:) ready$", self.log(since_start=True), re.MULTILINE) is not None

    def log(self, since_start=False):
        with open(self.log_path, "rb") as log:
            log.seek(self._log_start if since_start else 0)
            return log.read().decode("utf-8", "replace")

    @property
    def pid(self):
        return self.process.pid

    def running(self):
        return self.process is not None and self.process.poll() is None

    def stop(self):
        """Ends the program as an operator would and returns its exit code."""
        if self.process is None:
            return None
        if self.running():
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self.kill()
            raise Failure("%s did not end on SIGTERM:\n%s" % (self.name, self.log())) from None

    def kill(self):
        """kill -9."""
        self.process.kill()
        self.process.wait()


class System:
    """Backend and agent in a temporary root.

    backend: start vrx-backendd (False: nobody listens at the backend's address)
    embedded: the backend runs inside the agent instead
    agent_config: the whole etc/vrx-agentd.conf; None keeps AGENT_CONFIG
    extra_config: lines after it
    device: {(section, key): value}, changes to conf/device.xml
    agent_arguments, backend_arguments: more of the command lines
    """

    # Makes what stands before the agent in every System: front(folder, agent_port, configuration), an object with
    # start(), stop() and port, which managers then ask; and the lines of the agent's configuration that let it in.
    front = None
    front_config = ""

    def __init__(self, backend=True, embedded=False, agent_config=None, extra_config="", device=None,
                 agent_arguments=(), backend_arguments=(), start=True):
        self.root = tempfile.mkdtemp(prefix="vrx-e2e-")
        self.port = free_port()
        self.embedded = embedded
        self._start_backend = backend and not embedded
        self._start = start
        config = agent_config if agent_config is not None else AGENT_CONFIG
        self._make_root(config, extra_config + self.front_config, device or {})
        self._front = self.front and type(self).front(self.path("front"), self.port, config + extra_config)
        self.backend = Program("vrx-backendd", ["--root", self.root] + list(backend_arguments),
                               os.path.join(self.root, "backend.log"))
        arguments = ["--root", self.root, "--module", self.module_path(), "--listen", "udp:127.0.0.1:%d" % self.port]
        if embedded:
            arguments.append("--embedded-backend")
        self.agent = Program("vrx-agentd", arguments + list(agent_arguments), os.path.join(self.root, "agent.log"))

    # Life

    def __enter__(self):
        try:
            if self._start:
                if self._start_backend:
                    self.backend.start()
                self.agent.start()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, kind, value, trace):
        if kind is not None:
            print("--- agent log\n" + (self.agent.log() if os.path.exists(self.agent.log_path) else ""))
            print("--- backend log\n" + (self.backend.log() if os.path.exists(self.backend.log_path) else ""))
        self.close()

    def close(self):
        """Stops both programs and removes the root; complains about a sanitizer's or an unclean end."""
        codes, problems = {}, []
        if self._front:
            self._front.stop()
        for program in (self.agent, self.backend):
            killed = program.process is not None and program.process.poll() == -signal.SIGKILL
            try:
                code = program.stop()
            except Failure as failure:  # the other one is stopped all the same
                problems.append(str(failure))
                continue
            if code is not None and not killed:
                codes[program.name] = (code, program)
        problems += ["%s ended with %d:\n%s" % (name, code, program.log())
                     for name, (code, program) in codes.items() if code != 0]
        shutil.rmtree(self.root, ignore_errors=True)
        if problems:
            raise Failure("\n".join(problems))

    # Root

    @staticmethod
    def module_path():
        return os.path.join(BUILD_DIR, "lib", "libsnmp_tamrel.so")

    def path(self, *parts):
        return os.path.join(self.root, *parts)

    def _make_root(self, agent_config, extra_config, device):
        shutil.copytree(os.path.join(SOURCE_DIR, "share"), self.root, dirs_exist_ok=True)
        os.chmod(self.root, 0o700)  # it has communities and passphrases, and got the mode of share/
        os.makedirs(self.path("etc"), exist_ok=True)
        os.makedirs(self.path("mibs"), exist_ok=True)
        os.makedirs(self.path("tools", "cert_indexes"), exist_ok=True)  # of Net-SNMP's tools, which would tell of it
        for mib in glob.glob(os.path.join(SOURCE_DIR, "mibs", "*.xml")):
            shutil.copy(mib, self.path("mibs"))
        self.write("etc/vrx-agentd.conf", agent_config + extra_config)
        if device:
            self.set_device(device)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def set_device(self, changes):
        """Changes items of conf/device.xml; effective at the next start."""
        path = self.path("conf", "device.xml")
        tree = ElementTree.parse(path)
        for (section_name, key), value in changes.items():
            section = tree.getroot().find("section[@name='%s']" % section_name)
            if section is None:
                section = ElementTree.SubElement(tree.getroot(), "section", name=section_name)
            item = section.find("item[@key='%s']" % key)
            if item is None:
                item = ElementTree.SubElement(section, "item", key=key)
            item.set("value", str(value))
        tree.write(path, encoding="utf-8", xml_declaration=True)

    # Asking

    @property
    def address(self):
        """Where managers ask."""
        if self._front:
            self._front.start()  # unless it runs already
        return "udp:127.0.0.1:%d" % (self._front.port if self._front else self.port)

    def tool_environment(self, named=False):
        """For Net-SNMP's tools: nothing of this machine's configuration, and MIB files only where names are wanted."""
        environment = dict(os.environ, MIBS="", SNMPCONFPATH=self.path("no-such-folder"),
                           SNMP_PERSISTENT_DIR=self.path("tools"))
        if named:
            environment.update(MIBDIRS=mib_path(), MIBS="ALL")
        return environment

    def run(self, tool, *arguments, version=None, options=(), check=True, timeout=2, retries=2, address=None,
            named=False):
        """Runs one of Net-SNMP's tools against the agent: its standard output, without the last newline.

        Names and values come numerically unless `options` say otherwise; `named` lets the tool read our MIB files.
        check=False returns the CompletedProcess.
        """
        command = [tool] + ([] if named else ["-On", "-Oe", "-Ot"]) + ["-t", str(timeout), "-r", str(retries)]
        command += list(version or V2C)
        command += list(options) + [address or self.address] + list(arguments)
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
                              env=self.tool_environment(named), errors="replace")
        if not check:
            return done
        if done.returncode != 0:
            raise Failure("%s\nended with %d: %s%s" % (" ".join(command), done.returncode, done.stdout, done.stderr))
        return done.stdout.rstrip("\n")

    def get(self, *oids, **more):
        return self.run("snmpget", *oids, **more)

    def getnext(self, *oids, **more):
        return self.run("snmpgetnext", *oids, **more)

    def bulkget(self, *oids, non_repeaters=0, repetitions=10, options=(), **more):
        bulk = ["-Cn%d" % non_repeaters, "-Cr%d" % repetitions]
        return self.run("snmpbulkget", *oids, options=bulk + list(options), **more)

    def walk(self, oid, **more):
        return self.run("snmpwalk", oid, **more)

    def bulkwalk(self, oid, repetitions=10, options=(), **more):
        return self.run("snmpbulkwalk", oid, options=["-Cr%d" % repetitions] + list(options), **more)

    def set(self, *assignments, version=None, **more):
        """assignments: name, type letter, value, name, ...; as user admin with authPriv unless `version` says else."""
        return self.run("snmpset", *assignments, version=version or V3, **more)

    def add_destination(self, number, port, version=2, trap_type=3, user=None, address="127.0.0.1"):
        """A row of the trap destination table; trap_type 1: common traps, 4: named ones, 3: both."""
        row = [(6, "s", address), (2, "u", port), (5, "i", version), (7, "i", trap_type), (3, "i", 4)]
        if user:
            row.append((8, "s", user))
        self.set(*[word for column, kind, value in row
                   for word in ("%s.%d.%d" % (DESTINATIONS, column, number), kind, str(value))])

    def vrxctl(self, *arguments, check=True):
        done = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", self.root] + list(arguments),
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        if check and done.returncode != 0:
            raise Failure("vrxctl %s ended with %d: %s%s" % (" ".join(arguments), done.returncode, done.stdout,
                                                             done.stderr))
        return done.stdout if check else done


def values(output):
    """"name = TYPE: value" lines as a list of (name without the leading dot, value with its type)."""
    pairs = []
    for line in output.splitlines():
        name, separator, value = line.partition(" = ")
        if separator:
            pairs.append((name.lstrip("."), value))
        elif pairs:  # a text value over several lines
            pairs[-1] = (pairs[-1][0], pairs[-1][1] + "\n" + line)
    return pairs
