#!/usr/bin/env python3
"""Sends datagrams that no manager should send to the real agent and looks after it.

    python3 fuzz/snmp_datagrams.py --build-dir build/asan --seconds 600 [--seed 7] [--cases N]
    python3 fuzz/snmp_datagrams.py --build-dir build/asan --replay build/asan/findings/....hex

After every few datagrams a good request is to be answered; after every thousand all that the agent serves is to be what
it was, over v1, v2c and v3, and its counter is to show that the datagrams did arrive. Its memory is not to grow, and in
the end it has to stop as usual: a report of a sanitizer is a finding, too. The datagrams before a finding go to a file,
alone the one that repeats it where there is one. The same seed gives the same datagrams in the same order. The last
line tells seed and result; a finding makes the exit code 1.
"""

import argparse
import collections
import glob
import hashlib
import itertools
import os
import select
import socket
import sys
import time


def options(what, replay=False):
    """Of the command line; the harness looks for programs where the environment says, so it comes before that."""
    parser = argparse.ArgumentParser(description=what)
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--seconds", type=float, help="end after so long")
    parser.add_argument("--cases", type=int, help="end after so many datagrams")
    parser.add_argument("--seed", type=int, default=1)
    if replay:
        parser.add_argument("--replay", help="send the datagrams of this file instead")
    chosen = parser.parse_args()
    if chosen.seconds is None and chosen.cases is None and not (replay and chosen.replay):
        parser.error("one of --seconds, --cases%s is needed" % (" and --replay" if replay else ""))
    os.environ["TAMREL_BUILD_DIR"] = os.path.abspath(chosen.build_dir)
    os.environ.pop("TAMREL_PROGRAM_DIR", None)
    return chosen


if __name__ == "__main__":
    OPTIONS = options("datagrams that no manager should send, for the running agent", replay=True)

HERE = os.path.dirname(os.path.abspath(__file__))
E2E = os.path.join(HERE, "..", "tests", "e2e")
sys.path[:0] = [HERE, E2E]

# pylint: disable=wrong-import-position
import ber  # noqa: E402
import datagram_cases  # noqa: E402
import snmp_engine  # noqa: E402
from backend_client import BackendClient  # noqa: E402
from harness import (  # noqa: E402
    AGENT_CONFIG, ALARMS, BUILD_DIR, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, V1, V2C, V3, Failure, System, values)

FIXTURES = os.path.join(E2E, "datagrams")
BURST = 20              # datagrams, and
BURST_BYTES = 60_000    # bytes of them, before the agent has to show that it follows: its socket's buffer is finite
ROUND = 1000            # datagrams between two looks at everything
ANSWER_SECONDS = 20     # for a good request: generous, sanitizers on a busy machine are slow
WARM_ROUNDS = 10        # of which memory is still that of caches and pools being filled
GROWTH_LIMIT_KB = {False: 6 << 10, True: 24 << 10}  # after that, without and with a sanitizer's own book-keeping
SNMP_IN_PACKETS = "1.3.6.1.2.1.11.1.0"
SYS_NAME = "1.3.6.1.2.1.1.5.0"
CONFIG = AGENT_CONFIG + """
rwcommunity writer 127.0.0.1 .1.3.6.1.4.1.99871
createUser open
rouser open noauth
createUser writer
rwuser writer noauth .1.3.6.1.4.1.99871
""" + snmp_engine.CONFIG
OPEN = ["-v3", "-l", "noAuthNoPriv", "-u", "open"]
SANITIZER_WORDS = ("AddressSanitizer", "LeakSanitizer", "runtime error:", "ThreadSanitizer")


class Finding(Exception):
    """The agent did what it must not; `datagrams` were the last ones before."""

    def __init__(self, text, datagrams=()):
        super().__init__(text)
        self.datagrams = list(datagrams)


def checking_environment():
    """Net-SNMP's library knows no sanitizer: without one the C library looks at each block when it is freed."""
    if is_sanitized():
        # A small quarantine: memory that grows is to be told from memory that is kept aside.
        return {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "detect_leaks=1") + ":quarantine_size_mb=4"}
    return {} if os.environ.get("TAMREL_PROGRAM_DIR") else {"LD_PRELOAD": "libc_malloc_debug.so.0",
                                                           "GLIBC_TUNABLES": "glibc.malloc.check=3"}


def discover(port):
    """Asks the agent for its engine's clock, as RFC 3414, 4 has it."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as link:
        link.settimeout(ANSWER_SECONDS)
        link.connect(("127.0.0.1", port))
        link.send(ber.message_v3(ber.pdu(ber.GET, []), b"", user=b"").encode())
        security = ber.parse(link.recv(65536)).content[2].content[0].content
    if security[0].content != snmp_engine.ENGINE_ID:
        raise Finding("the agent has another engine ID than the configured one: %s" % security[0].content.hex())
    return snmp_engine.Engine(*(int.from_bytes(node.content, "big") for node in security[1:3]))


class Watch:
    """One system under test: sends to it and knows how it was in the beginning."""

    def __init__(self):
        self.system = System(agent_config=CONFIG)
        self.system.agent.environment = checking_environment()
        self.link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        self.recent = []
        self.sent = 0
        self.classes = collections.Counter()  # of what was sent
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
        self.system.add_destination(1, datagram_cases.PORT)
        self.link.connect(("127.0.0.1", self.system.port))
        self.engine = discover(self.system.port)
        self.first = self._state()
        if len(self.first[2]) < 20:
            raise Finding("the alarms cannot be read")
        self._start_counting()

    def _start_counting(self):
        self._counted = self._packets()
        self._expected = 0

    def send(self, cases):
        """Sends (kind, datagram) pairs and looks after the agent as the file's head tells."""
        left = ROUND
        burst = 0
        for case in cases:
            if burst + len(case[1]) > BURST_BYTES or len(self.recent) == BURST:
                self.answers()
                self.recent, burst = [], 0
            self.recent.append(case)
            datagram = self.engine.fill(case[1])
            try:
                self.link.send(datagram)
            except ConnectionRefusedError:  # of an earlier one, when nobody listens any more
                self.answers()
                self.link.send(datagram)
            burst += len(datagram)
            self.sent += 1
            self.classes[case[0].partition(":")[0]] += 1
            self._expected += len(datagram) > 0  # one without content is not even a packet to the engine
            left -= 1
            if left == 0:
                self.look()
                self.recent, burst, left = [], 0, ROUND
        self.look()

    def ask(self, case):
        """Sends one to which there is to be an answer: gives it in clear text, and its size."""
        self.recent = [case]
        self.sent += 1
        self._expected += 1
        self.classes[case[0]] += 1
        self.link.settimeout(ANSWER_SECONDS)
        try:
            self.link.send(self.engine.fill(case[1]))
            data = self.link.recv(1 << 16)
            return self.engine.body(data), len(data)
        except OSError as error:
            return self.fail("no answer: %s" % error)
        except (ValueError, IndexError, AttributeError) as error:
            return self.fail("an answer that cannot be read: %s: %s" % (error, data.hex()))

    def fail(self, text):
        if not self.system.agent.running():
            text += "\nthe agent has ended with %s" % self.system.agent.process.returncode
        log = self.system.agent.log()
        raise Finding("after %d datagrams: %s\n%s" % (self.sent, text, log[-20_000:]), self.recent)

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


    def summary(self):
        return "%d cases: %s\nKB of memory after each %d: %s" % (
            self.sent, ", ".join("%s %d" % pair for pair in self.classes.most_common()), ROUND,
            " ".join(map(str, self.memory)))


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
    found = [case for path in sorted(glob.glob(os.path.join(FIXTURES, "*.hex"))) for case in read_cases(path)]
    if not found:
        raise RuntimeError("there are no datagrams in %s" % FIXTURES)
    return found


def all_cases(seed):
    return itertools.chain(fixtures(), datagram_cases.all_cases(seed))


def until(cases, seconds):
    end = time.monotonic() + seconds
    return itertools.takewhile(lambda _: time.monotonic() < end, cases)


def run(seed=1, count=None, seconds=None, cases=None):
    """Sends so many cases, or for so long, or the cases given; returns the Watch, which has counted them."""
    with Watch() as watch:
        chosen = cases if cases is not None else all_cases(seed)
        if count is not None:
            chosen = itertools.islice(chosen, count)
        if seconds is not None:
            chosen = until(chosen, seconds)
        watch.send(chosen)
        return watch


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
            watch = run(cases=read_cases(options.replay))
        else:
            watch = run(options.seed, options.cases, options.seconds)
    except Finding as finding:
        print(finding)
        print("snmp_datagrams: seed %d, FINDING, see above; %s" % (options.seed, keep(finding, options.seed)))
        return 1
    print(watch.summary())
    print("snmp_datagrams: seed %d, %d datagrams, no finding" % (options.seed, watch.sent))
    return 0


if __name__ == "__main__":
    sys.exit(main(OPTIONS))
