"""Heartbeat traps of a real agent, a relay on the way that loses what it is told to, snmptrapd's log, and vrxctl gaps on
that: what was lost is missing, exactly."""

import json
import os
import random
import re
import select
import signal
import socket
import subprocess
import threading
import unittest

from harness import DESTINATIONS, PROGRAM_DIR, free_port, mib_path, wait_for
from trap_receiver import decode
from traps_test import CONFIG, TrapSystem

ALARM = "4295229443"
HEARTBEAT = "1.3.6.1.4.1.99871.3.1.0.1"
IS_HEARTBEAT = re.compile(r"99871\.3\.1\.1\.4\.5\.0 |vrxAgentHeartbeatNumber\.0 ")
HEADER = re.compile(r"^(?=\d{4}-\d\d-\d\d \d\d:\d\d:\d\d .*->\[)", re.MULTILINE)


class Trapd:
    """snmptrapd as docs/traps.md has it: its default text, in a file."""

    def __init__(self, system, *options, mibs=""):
        self.port = free_port()
        folder = system.path("gaps-%d" % self.port)
        os.makedirs(folder)
        engine = json.loads(system.vrxctl("status", "--json"))["agent"]["engine_id"]
        config = os.path.join(folder, "receiver.conf")
        with open(config, "w", encoding="utf-8") as file:
            file.write("authCommunity log traps\nauthUser log sealed priv\n"
                       "createUser -e 0x%s sealed SHA-256 sealed-auth-pass AES sealed-priv-pass\n" % engine)
        self.log = os.path.join(folder, "log")
        self._process = subprocess.Popen(
            ["snmptrapd", "-f", "-C", "-c", config, "-Lf", self.log, *options, "udp:127.0.0.1:%d" % self.port],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env=dict(os.environ, SNMP_PERSISTENT_DIR=folder, MIBDIRS=mib_path(), MIBS=mibs))

    def __enter__(self):
        wait_for(lambda: "NET-SNMP version" in self.text(), "snmptrapd to listen")
        return self

    def __exit__(self, *_):
        self._process.send_signal(signal.SIGTERM)
        self._process.wait()

    def text(self):
        if not os.path.exists(self.log):
            return ""
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return file.read()

    def records(self):
        return HEADER.split(self.text())[1:]

    def wait_for(self, count):
        wait_for(lambda: len(self.records()) >= count, "%d notifications in the log" % count)
        return self.records()


class Relay:
    """Passes datagrams on in their order, those of each sender from a port of its own, as a translator of addresses does.
    Remembers all: (number of the port that it came to, sender, octets)."""

    def __init__(self, ports, receiver):
        self._sockets = []
        for _ in range(ports):
            one = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
            one.bind(("127.0.0.1", 0))
            self._sockets.append(one)
        self.ports = [one.getsockname()[1] for one in self._sockets]
        self.datagrams = []
        self._senders = Senders(receiver)
        self._stopping = False
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stopping = True
        self._thread.join()
        self._senders.close()
        for one in self._sockets:
            one.close()

    def _run(self):
        while not self._stopping:
            for one in select.select(self._sockets, [], [], 0.1)[0]:
                octets, sender = one.recvfrom(65536)
                self.datagrams.append((self._sockets.index(one), sender, octets))
                self._senders.send(sender, octets)


class Senders:
    """A socket for each sender that datagrams came from."""

    def __init__(self, receiver):
        self._receiver = receiver
        self._sockets = {}

    def send(self, sender, octets):
        if sender not in self._sockets:
            self._sockets[sender] = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._sockets[sender].sendto(octets, ("127.0.0.1", self._receiver))

    def close(self):
        for one in self._sockets.values():
            one.close()


def field(record, number):
    return re.search(r"99871\.3\.1\.1\.4\.%d\.0 = \w+: \"?([^\"\t\n]*)" % number, record).group(1)


class GapsTest(unittest.TestCase):
    """One story of an agent for all cases: three destinations (SNMPv2c, v1, v3) to one receiver; bursts of alarms, a
    restart, a destination that is deleted and comes again, a crash."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.system = TrapSystem(config=CONFIG + "vrxHeartbeatTrap 1\n")
        cls.addClassCleanup(cls.system.__exit__, None, None, None)
        cls.system.__enter__()
        with Trapd(cls.system) as trapd, Relay(3, trapd.port) as relay:
            cls.tell_story(cls.system, relay)
            cls.datagrams = list(relay.datagrams)
            cls.records = trapd.wait_for(len(cls.datagrams))[:len(cls.datagrams)]

    @classmethod
    def tell_story(cls, system, relay):
        cls.add(system, relay, 1, 2)
        system.add_destination(2, relay.ports[1], version=1, trap_type=1)
        system.add_destination(3, relay.ports[2], version=3, trap_type=3, user="sealed")
        cls.wait_heartbeats(relay)
        for _ in range(2):
            cls.burst(system, relay)
        system.vrxctl("reload")
        cls.burst(system, relay)
        system.agent.stop()
        system.agent.start()
        cls.burst(system, relay)
        cls.burst(system, relay)
        system.set("%s.3.1" % DESTINATIONS, "i", "6")
        cls.wait_heartbeats(relay, ports=(1, 2))
        cls.add(system, relay, 1, 2)
        cls.burst(system, relay)
        cls.burst(system, relay)
        system.agent.kill()
        system.agent.start()
        cls.burst(system, relay)
        system.agent.stop()
        system.agent.start()
        cls.wait_heartbeats(relay)

    @classmethod
    def add(cls, system, relay, number, version):
        before = len(relay.datagrams)
        system.add_destination(number, relay.ports[number - 1], version=version)
        wait_for(lambda: any(port == number - 1 for port, _, _ in relay.datagrams[before:]), "its first heartbeat")

    @classmethod
    def burst(cls, system, relay):
        """Ten alarms, and a heartbeat to each destination after them."""
        before = [sum(port == wanted for port, _, _ in relay.datagrams) for wanted in range(3)]
        system.vrxctl("raise", ALARM, "7", "CTE0", "1", "--count", "10")
        wait_for(lambda: all(sum(port == wanted for port, _, _ in relay.datagrams) >= before[wanted] + traps
                             for wanted, traps in enumerate((20, 10, 20))), "traps of ten alarms")
        cls.wait_heartbeats(relay)

    @staticmethod
    def wait_heartbeats(relay, ports=(0, 1, 2)):
        """Two more at each: the second of them, at least, was made after all that came before."""
        start = len(relay.datagrams)

        def short(port):  # heartbeats are shorter than any alarm's trap
            return sum(at == port and len(octets) < 500 for at, _, octets in relay.datagrams[start:])
        wait_for(lambda: all(short(port) >= 2 for port in ports), "heartbeats")

    def gaps(self, records, *options):
        """Exit code and what --json says of a log with these records."""
        path = self.system.path("made.log")
        with open(path, "w", encoding="utf-8") as file:
            file.write("NET-SNMP version 5.9.3\n" + "".join(records))
        done = self.system.vrxctl("gaps", "--json", *options, path, check=False)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        return done.returncode, json.loads(done.stdout)

    def is_heartbeat(self, number):
        return bool(IS_HEARTBEAT.search(self.records[number]))

    def bounds(self):
        """Numbers of the first and the last heartbeats of each series."""
        series = {}
        for number, record in enumerate(self.records):
            if self.is_heartbeat(number):
                series.setdefault((field(record, 2), field(record, 4)), []).append(number)
        return {numbers[at] for numbers in series.values() for at in (0, -1)}

    def choose_lost(self, chance, share):
        """Numbers of datagrams to lose: of each series the ends arrive, and from each port a heartbeat."""
        kept = self.bounds()
        lost = {number for number in range(len(self.records)) if chance.random() < share and number not in kept}
        by_port = {}
        for number, (_, sender, _) in enumerate(self.datagrams):
            if self.is_heartbeat(number):
                by_port.setdefault(sender, []).append(number)
        for numbers in by_port.values():
            if lost.issuperset(numbers):
                lost.discard(chance.choice(numbers))
        return lost

    def test_the_story_is_what_it_is_meant_to_be(self):
        alarms = [decode(octets) for port, _, octets in self.datagrams if port == 0]
        self.assertEqual({len(trap.bindings) for trap in alarms if trap.oid.startswith("1.3.6.1.4.1.99871.2")}, {15})
        self.assertEqual({len(trap.bindings) for trap in alarms if trap.oid == HEARTBEAT}, {9})
        heartbeats = [record for number, record in enumerate(self.records) if self.is_heartbeat(number)]
        series = {}
        for record in heartbeats:
            series.setdefault((field(record, 2), field(record, 4)), []).append(record)
        # A crash ends all, deleting a destination its own; a restart none.
        self.assertEqual(sorted(int(destination) for destination, _ in series), [1, 1, 1, 2, 2, 3, 3])
        self.assertEqual({len({field(record, 3) for record in records}) for records in series.values()}, {1, 2})
        # The last of a deleted destination says so, as do those before a restart.
        self.assertEqual(sum(field(record, 8) == "0" for record in heartbeats), 3 + 1 + 3)
        for records in series.values():
            self.assertEqual([int(field(record, 5)) for record in records], list(range(1, len(records) + 1)))

    def test_nothing_is_missing_when_nothing_was_lost(self):
        code, report = self.gaps(self.records)
        self.assertEqual((code, report["gaps"], report["missing"]), (0, [], 0))
        traps = sum(not self.is_heartbeat(number) for number in range(len(self.records)))
        self.assertEqual(report["sent"], traps - len(self.uncovered()))
        self.assertEqual(self.system.vrxctl("gaps", self.system.path("made.log")),
                         "none of %d traps is missing\n" % report["sent"])

    def test_exactly_what_was_lost_is_missing_200_times(self):
        chance = random.Random(20261122)
        uncovered = set(self.uncovered())
        for attempt in range(200):
            lost = self.choose_lost(chance, chance.choice((0.01, 0.1, 0.4, 0.8)))
            arrived = [record for number, record in enumerate(self.records) if number not in lost]
            expected = sum(not self.is_heartbeat(number) and number not in uncovered for number in lost)
            if attempt % 2:  # other orders, and doubles
                order = sorted(range(len(arrived)), key=lambda at: at + chance.uniform(0, 12))
                arrived = [arrived[at] for at in order]
                arrived += chance.sample(arrived, len(arrived) // 10)
            code, report = self.gaps(arrived)
            with self.subTest(attempt=attempt):
                self.assertEqual(report["missing"], expected)
                self.assertEqual(sum(gap["missing"] for gap in report["gaps"]), expected)
                self.assertEqual(code, 1 if expected else 0)

    def uncovered(self):
        """Traps after the last heartbeat of their series: no count has them yet."""
        of_sender, last = {}, {}
        for number, (_, sender, _) in enumerate(self.datagrams):
            if self.is_heartbeat(number):
                of_sender[sender] = (field(self.records[number], 2), field(self.records[number], 4))
                last[of_sender[sender]] = number
        return [number for number, (_, sender, _) in enumerate(self.datagrams)
                if not self.is_heartbeat(number) and number > last[of_sender[sender]]]

    def test_a_receiver_that_was_there_for_some_of_them_says_the_same(self):
        chance = random.Random(7)
        ours = "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB:VRX-AGENT-MIB"
        for options, mibs in (((), ""), (("-On", "-OQ"), ""), ((), ours), (("-Of", "-Ot"), ours)):
            lost = self.choose_lost(chance, 0.2)
            # SNMPv3 messages of earlier runs are too old by now.
            passed = [number for number, (port, _, _) in enumerate(self.datagrams) if port != 2 and number not in lost]
            uncovered = set(self.uncovered())
            expected = sum(not self.is_heartbeat(number) and number not in uncovered for number in lost
                           if self.datagrams[number][0] != 2)
            with Trapd(self.system, *options, mibs=mibs) as trapd:
                senders = Senders(trapd.port)
                self.addCleanup(senders.close)
                for count, number in enumerate(passed, 1):
                    senders.send(self.datagrams[number][1], self.datagrams[number][2])
                    if count % 20 == 0:  # a receiver's buffer loses what comes all at once
                        trapd.wait_for(count)
                trapd.wait_for(len(passed))
                done = self.system.vrxctl("gaps", "--json", trapd.log, check=False)
            self.assertEqual(json.loads(done.stdout)["missing"], expected, options)

    def test_a_log_in_parts_or_from_its_middle(self):
        half = len(self.records) // 2
        for start in range(0, len(self.records), max(1, len(self.records) // 20)):
            self.assertEqual(self.gaps(self.records[start:])[1]["missing"], 0, start)
        parts = [self.system.path("log.1"), self.system.path("log")]
        for path, records in zip(parts, (self.records[:half], self.records[half:])):
            with open(path, "w", encoding="utf-8") as file:
                file.write("".join(records))
        self.assertIn("none of", self.system.vrxctl("gaps", *parts))

    def test_lines_and_exit_codes(self):
        lost = [number for number, (port, _, _) in enumerate(self.datagrams)
                if port == 0 and not self.is_heartbeat(number)][1:4]
        path = self.system.path("three.log")
        with open(path, "w", encoding="utf-8") as file:
            file.write("".join(record for number, record in enumerate(self.records) if number not in lost))
        done = self.system.vrxctl("gaps", path, check=False)
        self.assertEqual(done.returncode, 1)
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0].split(), ["FROM", "TO", "AGENT", "DESTINATION", "MISSING", "OF"])
        self.assertRegex(lines[-1], r"^3 of \d+ traps are missing$")
        time = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d"
        for line in lines[1:-1]:
            self.assertRegex(line, r"^%s  %s  127\.0\.0\.1 +1 +\d  \d+$" % (time, time))
        vrxctl = [os.path.join(PROGRAM_DIR, "vrxctl"), "gaps"]  # no product root is needed
        with open(path, "rb") as log:
            piped = subprocess.run(vrxctl, stdin=log, stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual((piped.returncode, piped.stdout), (1, done.stdout))
        rubbish = self.system.path("rubbish")
        with open(rubbish, "wb") as file:
            file.write(random.Random(1).randbytes(100000) + b"\n" + b"x" * 2000000)
        for log, said in ((self.system.path("no-such-file"), "No such file"), (self.system.root, "cannot be read"),
                          (rubbish, "no heartbeat"), (os.devnull, "no heartbeat")):
            failed = subprocess.run(vrxctl + [log], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual((failed.returncode, failed.stdout), (2, ""), log)
            self.assertIn(said, failed.stderr)
        failed = self.system.vrxctl("gaps", "--by-address", path, check=False)
        self.assertEqual((failed.returncode, failed.stdout), (2, ""))
        self.assertIn("traps of several destinations come from 127.0.0.1:", failed.stderr)


class SettingTest(unittest.TestCase):
    def test_off_as_shipped_and_turned_on_and_off_by_a_reload(self):
        with TrapSystem() as system:
            with Trapd(system) as trapd:
                system.add_destination(1, trapd.port)
                system.vrxctl("raise", ALARM, "7", "CTE0", "1")
                trapd.wait_for(2)
                system.write("etc/vrx-agentd.conf", CONFIG + "vrxHeartbeatTrap 3600\n")
                system.vrxctl("reload")
                self.assertTrue(IS_HEARTBEAT.search(trapd.wait_for(3)[2]))
                row = json.loads(system.vrxctl("status", "--json"))["destinations"][0]
                self.assertEqual((row["sent"], row["considered"], row["heartbeats"]), (2, 2, 1))
                system.write("etc/vrx-agentd.conf", CONFIG)
                system.vrxctl("reload")
                last = trapd.wait_for(4)[3]
                self.assertEqual([field(last, number) for number in (2, 5, 6, 8)], ["1", "2", "0", "0"])
                system.agent.stop()
                system.agent.start()
                system.vrxctl("raise", ALARM, "7", "CTE0", "1")
                self.assertEqual([bool(IS_HEARTBEAT.search(record)) for record in trapd.wait_for(7)],
                                 [False, False, True, True, False, False, False])


if __name__ == "__main__":
    unittest.main()
