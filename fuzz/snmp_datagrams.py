#!/usr/bin/env python3
"""Sends datagrams that no manager should send to the real agent and looks after it.

    python3 fuzz/snmp_datagrams.py --build-dir build/asan --seconds 600 [--seed 7] [--cases N]
    python3 fuzz/snmp_datagrams.py --build-dir build/asan --replay build/asan/findings/....hex

After every few datagrams a good request is to be answered; after every thousand all that the agent serves is to be what
it was, over v1, v2c and v3, and its counter is to show that the datagrams did arrive. Its memory is not to grow, and in
the end it has to stop as usual: a report of a sanitizer is a finding, too. The datagrams before a finding go to a file,
alone the one that repeats it where there is one. The last line tells the result; a finding makes the exit code 1.
"""

import argparse
import glob
import hashlib
import hmac
import itertools
import os
import random
import select
import socket
import sys
import threading
import time

if __name__ == "__main__":  # the harness looks for programs where the environment says
    def _options():
        parser = argparse.ArgumentParser(description="datagrams that no manager should send, for the running agent")
        parser.add_argument("--build-dir", required=True)
        parser.add_argument("--seconds", type=float, help="end after so long")
        parser.add_argument("--cases", type=int, help="end after so many datagrams")
        parser.add_argument("--seed", type=int, default=1)
        parser.add_argument("--replay", help="send the datagrams of this file instead")
        options = parser.parse_args()
        if options.seconds is None and options.cases is None and options.replay is None:
            parser.error("one of --seconds, --cases and --replay is needed")
        return options

    OPTIONS = _options()
    os.environ["TAMREL_BUILD_DIR"] = os.path.abspath(OPTIONS.build_dir)
    os.environ.pop("TAMREL_PROGRAM_DIR", None)

HERE = os.path.dirname(os.path.abspath(__file__))
E2E = os.path.join(HERE, "..", "tests", "e2e")
sys.path[:0] = [HERE, E2E]

# pylint: disable=wrong-import-position
import ber  # noqa: E402
import datagram_cases  # noqa: E402
from backend_client import BackendClient  # noqa: E402
from harness import (AGENT_CONFIG, ALARMS, BUILD_DIR, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V1, V2C, V3, Failure,  # noqa: E402
                     System, free_port, values)

FIXTURES = os.path.join(E2E, "datagrams")
BURST = 20              # datagrams, and
BURST_BYTES = 60_000    # bytes of them, before the agent has to show that it follows: its socket's buffer is finite
ROUND = 1000            # datagrams between two looks at everything
ANSWER_SECONDS = 20     # for a good request: generous, sanitizers on a busy machine are slow
WARM_ROUNDS = 10        # of which memory is still that of caches and pools being filled
GROWTH_LIMIT_KB = {False: 6 << 10, True: 24 << 10}  # after that, without and with a sanitizer's own book-keeping
SIGNER_PASSPHRASE = "signer-auth-pass"
SNMP_IN_PACKETS = "1.3.6.1.2.1.11.1.0"
SYS_NAME = "1.3.6.1.2.1.1.5.0"
CONFIG = AGENT_CONFIG + """
rwcommunity writer 127.0.0.1 .1.3.6.1.4.1.99871
createUser open
rouser open noauth
createUser writer
rwuser writer noauth .1.3.6.1.4.1.99871
createUser signer SHA-256 "%s"
rouser signer auth
""" % SIGNER_PASSPHRASE
OPEN = ["-v3", "-l", "noAuthNoPriv", "-u", "open"]
SANITIZER_WORDS = ("AddressSanitizer", "LeakSanitizer", "runtime error:", "ThreadSanitizer")


class Finding(Exception):
    """The agent did what it must not; `datagrams` were the last ones before."""

    def __init__(self, text, datagrams=()):
        super().__init__(text)
        self.datagrams = list(datagrams)


class Engine:
    """The agent as an SNMPv3 engine, and messages of a user of it who signs."""

    def __init__(self, identity, boots, seconds):
        self.id = identity
        self._boots = boots
        self._started = time.monotonic() - seconds
        key = hashlib.sha256((SIGNER_PASSPHRASE.encode() * (1 << 20))[:1 << 20]).digest()  # RFC 3414, A.2
        self._key = hashlib.sha256(key + identity + key).digest()

    def message(self, body, offset=0):
        return ber.message_v3(body, self.id, user=b"signer", flags=5, boots=self._boots,
                              time=int(time.monotonic() - self._started) + offset, authentication=b"\0" * 24)

    def sign(self, data):
        """HMAC-SHA-256 in 192 bits (RFC 7860) over the message with 24 zero octets in its place."""
        at = data.find(b"\0" * 24)
        if at < 0:
            return data
        return data[:at] + hmac.new(self._key, data, hashlib.sha256).digest()[:24] + data[at + 24:]


class Relay:
    """Passes datagrams on to the agent and back, and keeps those of the managers."""

    def __init__(self, port):
        self.captured = []
        self._front, self._back = (socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2))
        self._front.bind(("127.0.0.1", 0))
        self._back.connect(("127.0.0.1", port))
        self.address = "udp:127.0.0.1:%d" % self._front.getsockname()[1]
        self._stopping = False
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stopping = True
        self._thread.join()
        self._front.close()
        self._back.close()

    def _run(self):
        manager = None
        while not self._stopping:
            for ready in select.select([self._front, self._back], [], [], 0.1)[0]:
                if ready is self._front:
                    data, manager = self._front.recvfrom(65536)
                    self.captured.append(data)
                    self._back.send(data)
                elif manager:
                    self._front.sendto(self._back.recv(65536), manager)


def capture(system):
    """What Net-SNMP's tools send; the writes among them change nothing."""
    with Relay(system.port) as relay:
        there = {"address": relay.address, "timeout": ANSWER_SECONDS}
        for version in (V1, V2C, OPEN, V3):
            system.get(SYS_NAME, ALARMS + ".4.1", TOPOLOGY + ".5.1", version=version, **there)
            system.getnext(ALARMS, DESTINATIONS + ".6", version=version, **there)
            if version is not V1:
                system.bulkget(SYS_NAME, ALARMS + ".4", TOPOLOGY, non_repeaters=1, version=version, **there)
        port = "%s.2.1" % DESTINATIONS
        system.set(port, "u", values(system.get(port))[0][1].split(": ")[1], **there)
        for version in (V1, V2C):
            system.set(port, "u", "162", version=version, check=False, **there)
        system.set(CLEAR_ALARM, "u", "4000000000", check=False, **there)
        return relay.captured


def discover(port):
    """Asks the agent for its engine's name, as RFC 3414, 4 has it."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as link:
        link.settimeout(ANSWER_SECONDS)
        link.connect(("127.0.0.1", port))
        link.send(ber.message_v3(ber.pdu(ber.GET, []), b"", user=b"").encode())
        security = ber.parse(link.recv(65536)).content[2].content[0].content
    return Engine(security[0].content, *(int.from_bytes(node.content, "big") for node in security[1:3]))


class Watch:
    """One system under test: sends to it and knows how it was in the beginning."""

    def __init__(self):
        self.system = System(agent_config=CONFIG)
        # A small quarantine: memory that grows is to be told from memory that is kept aside.
        self.system.agent.environment = {
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "detect_leaks=1") + ":quarantine_size_mb=4"}
        self.link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        self.recent = []
        self.sent = 0
        self.memory = []
        self._numbers = itertools.count(0x40000000)
        self._counted = self._expected = 0  # packets by the agent's counter, and what it has to have risen by

    def __enter__(self):
        self.system.__enter__()
        try:
            self._begin()
        except BaseException:
            self.link.close()
            self.system.close()
            raise
        return self

    def __exit__(self, kind, *_):
        self.link.close()
        try:
            self.system.close()
        except Failure as failure:
            if kind is None:
                raise Finding("the agent did not end as it should: %s" % failure) from None

    def _begin(self):
        with BackendClient(self.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(20)
        # A destination that is not in use: it has no notifications to lose.
        self.system.add_destination(1, free_port())
        self.link.connect(("127.0.0.1", self.system.port))
        self.engine = discover(self.system.port)
        self.captures = capture(self.system)
        self.first = self._state()
        if len(self.first[2]) < 20:
            raise Finding("the alarms cannot be read")
        self._start_counting()

    def _start_counting(self):
        self._counted = self._packets()
        self._expected = 0

    def send(self, cases):
        """Sends (class, datagram) pairs and looks after the agent as the file's head tells."""
        left = ROUND
        burst = 0
        for case in cases:
            if burst + len(case[1]) > BURST_BYTES or len(self.recent) == BURST:
                self.answers()
                self.recent, burst = [], 0
            self.recent.append(case)
            try:
                self.link.send(case[1])
            except ConnectionRefusedError:  # of an earlier one, when nobody listens any more
                self.answers()
                self.link.send(case[1])
            burst += len(case[1])
            self.sent += 1
            self._expected += len(case[1]) > 0  # one without content is not even a packet to the engine
            left -= 1
            if left == 0:
                self.look()
                self.recent, burst, left = [], 0, ROUND
        self.look()

    def fail(self, text):
        if not self.system.agent.running():
            text += "\nthe agent has ended with %s" % self.system.agent.process.returncode
        log = self.system.agent.log()
        raise Finding("%s\n%s" % (text, log[-20_000:]), self.recent)

    def answers(self):
        """A good request is answered: then all before it have been taken from the socket, too."""
        return self._ask([SYS_NAME])

    def _ask(self, names):
        number = next(self._numbers)
        request = ber.message(ber.pdu(ber.GET, [ber.varbind(name) for name in names], request=number)).encode()
        self._expected += 1  # once: of copies the last may come in after the answer
        end = time.monotonic() + ANSWER_SECONDS
        while time.monotonic() < end and self.system.agent.running():
            try:
                self.link.send(request)
            except ConnectionRefusedError:
                continue
            again = time.monotonic() + 1
            while time.monotonic() < again:
                try:
                    if not select.select([self.link], [], [], 0.1)[0]:
                        if not self.system.agent.running():
                            break
                        continue
                    answer = self._read(self.link.recv(65536), number)
                except ConnectionRefusedError:
                    break
                if answer is not None:
                    return answer
        return self.fail("a good request was not answered")

    @staticmethod
    def _read(data, number):
        """The values of the answer to request `number`; None when it is another one's."""
        try:
            _, community, body = ber.parse(data).content
            if community.content != b"public" or body.tag != ber.RESPONSE:
                return None
            request, status, _, bindings = body.content
            if int.from_bytes(request.content, "big", signed=True) != number or status.content != b"\0":
                return None
            return [binding.content[1].content for binding in bindings.content]
        except (ValueError, IndexError, TypeError, AttributeError):
            return None

    def _packets(self):
        return int.from_bytes(self._ask([SNMP_IN_PACKETS])[0], "big")

    def _state(self):
        """All that is served and does not change by itself, by Net-SNMP's tools."""
        more = {"timeout": ANSWER_SECONDS}
        return [self.system.get(SYS_NAME, TOPOLOGY + ".5.1", CLEAR_ALARM, version=V1, **more),
                values(self.system.walk(DESTINATIONS, version=V3, **more)),
                values(self.system.bulkwalk(ALARMS + ".4", repetitions=50, version=V2C, **more)),
                values(self.system.bulkwalk(ALARMS + ".6", repetitions=50, version=OPEN, **more))]

    def look(self):
        """Everything is as it was in the beginning."""
        self._check_arrival()
        if self.answers() != [b"vrx-under-test"]:
            self.fail("a good request was answered wrongly")
        try:
            state = self._state()
        except Failure as failure:
            self.fail("a tool got no answer: %s" % failure)
        for before, now in zip(self.first, state):
            if before != now:
                self.fail("what the agent serves has changed:\n%r\nit was\n%r" % (now, before))
        if any(word in self.system.agent.log() for word in SANITIZER_WORDS):
            self.fail("a sanitizer has a report")
        if not self.system.backend.running():
            self.fail("the backend has ended")
        self._check_memory()
        self._start_counting()

    def _check_arrival(self):
        """All datagrams have come in: one that gets lost in a buffer tests nothing."""
        counted = (self._packets() - self._counted) % 2**32
        if counted < self._expected:
            self.fail("of %d datagrams the agent has counted %d" % (self._expected, counted))
        with open("/proc/net/udp", encoding="ascii") as sockets:
            drops = [line.split()[-1] for line in sockets if line.split()[1].endswith(":%04X" % self.system.port)]
        if drops != ["0"]:
            self.fail("the agent's socket has dropped datagrams: %s" % drops)

    def _check_memory(self):
        with open("/proc/%d/status" % self.system.agent.pid, encoding="ascii") as status:
            self.memory.append(next(int(line.split()[1]) for line in status if line.startswith("VmRSS:")))
        if len(self.memory) > WARM_ROUNDS:
            growth = self.memory[-1] - max(self.memory[:WARM_ROUNDS])
            if growth > GROWTH_LIMIT_KB[is_sanitized()]:
                self.fail("memory has grown by %d KB since round %d: %s" % (growth, WARM_ROUNDS, self.memory))


def is_sanitized():
    with open(os.path.join(BUILD_DIR, "CMakeCache.txt"), encoding="utf-8") as cache:
        return any(line.startswith("TAMREL_SANITIZE:") and line.rstrip().rpartition("=")[2] for line in cache)


def read_cases(path):
    """A file with one datagram in hexadecimal digits a line; lines with # tell what it is."""
    with open(path, encoding="ascii") as file:
        lines = [line.strip() for line in file]
    return [(os.path.basename(path), bytes.fromhex(line)) for line in lines if line and not line.startswith("#")]


def fixtures():
    """What was once found, in every run again."""
    return [case for path in sorted(glob.glob(os.path.join(FIXTURES, "*.hex"))) for case in read_cases(path)]


def all_cases(watch, seed):
    yield from fixtures()
    yield from datagram_cases.systematic(watch.captures, watch.engine)
    yield from datagram_cases.chance(watch.captures, watch.engine, random.Random(seed))


def until(cases, seconds):
    end = time.monotonic() + seconds
    return itertools.takewhile(lambda _: time.monotonic() < end, cases)


def run(seed=1, count=None, seconds=None, cases=None):
    """Sends so many cases, or for so long, or the cases given; returns how many, and the memory after each round."""
    with Watch() as watch:
        chosen = cases if cases is not None else all_cases(watch, seed)
        if count is not None:
            chosen = itertools.islice(chosen, count)
        if seconds is not None:
            chosen = until(chosen, seconds)
        watch.send(chosen)
        return watch.sent, watch.memory


def keep(finding, seed):
    """Writes the datagrams of a finding, alone the first that repeats it, and gives the file's name."""
    guilty = finding.datagrams
    for case in finding.datagrams:
        try:
            run(cases=[case])
        except Finding:
            guilty = [case]
            break
    folder = os.path.join(BUILD_DIR, "findings")
    os.makedirs(folder, exist_ok=True)
    digest = hashlib.sha256(b"".join(data for _, data in guilty)).hexdigest()[:16]
    path = os.path.join(folder, "snmp_datagrams-%s.hex" % digest)
    with open(path, "w", encoding="ascii") as file:
        file.write("# seed %d: %s\n" % (seed, str(finding).splitlines()[0]))
        for name, data in guilty:
            file.write("# %s\n%s\n" % (name, data.hex()))
    return path


def main(options):
    try:
        if options.replay:
            sent, memory = run(cases=read_cases(options.replay))
        else:
            sent, memory = run(options.seed, options.cases, options.seconds)
    except Finding as finding:
        print(finding)
        print("snmp_datagrams: FINDING, see above; %s" % keep(finding, options.seed))
        return 1
    print("%d cases; KB of memory after each %d: %s" % (sent, ROUND, " ".join(map(str, memory))))
    print("snmp_datagrams: %d datagrams, no finding" % sent)
    return 0


if __name__ == "__main__":
    sys.exit(main(OPTIONS))
