"""Plain reads over UDP are answered without Net-SNMP's engine, the same reads over TCP by it: both answers are to be
the same bytes, whatever is asked and whoever asks, and to be counted alike."""

import random
import socket
import struct
import unittest

from backend_client import BackendClient
from harness import AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, TOPOLOGY, System, free_port

# Views without counters and clocks of the engine: they change from one request to the next.
CONFIG = AGENT_CONFIG + """
view partial included .1.3.6.1.4.1.99871
view partial excluded .%s.4
view partial excluded .%s.5.1
view partial excluded .%s.10.7
rocommunity partial 127.0.0.1 -V partial
view none included .1.3.6.1.2.1.1.5
rocommunity system 127.0.0.1 -V none
view ours included .1.3.6.1.4.1.99871
view ours included .1.3.6.1.2.1.1.5
rocommunity ours 127.0.0.1 -V ours
[snmp] sendMessageMaxSize 2000
""" % (TOPOLOGY, TOPOLOGY, ALARMS)

SNMP_GROUP = "1.3.6.1.2.1.11"
GET, GETNEXT, GETBULK = 0xA0, 0xA1, 0xA5
SEED = 20240611
REQUESTS = 1500
ALARM_COUNT = 60


def element(tag, content):
    size = len(content)
    length = bytes([size]) if size < 0x80 else bytes([0x82]) + struct.pack(">H", size)
    return bytes([tag]) + length + content


def integer(number):
    return element(0x02, number.to_bytes(4, "big", signed=True))


def name_bytes(name):
    parts = [int(part) for part in name.split(".")]
    content = b""
    for part in [40 * parts[0] + parts[1]] + parts[2:]:
        octets = [part & 0x7F]
        while part > 0x7F:
            part >>= 7
            octets.append(0x80 | part & 0x7F)
        content += bytes(reversed(octets))
    return element(0x06, content)


def request(kind, names, number, version=1, community=b"ours", second=0, third=0):
    """second and third: a GETBULK's non-repeaters and repetitions."""
    varbinds = b"".join(element(0x30, name_bytes(name) + b"\x05\x00") for name in names)
    pdu = integer(number) + integer(second) + integer(third) + element(0x30, varbinds)
    return element(0x30, integer(version) + element(0x04, community) + element(kind, pdu))


class Both:
    """The same agent over UDP and over TCP."""

    def __init__(self, udp_port, tcp_port):
        self.udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.udp.connect(("127.0.0.1", udp_port))
        self.tcp = socket.create_connection(("127.0.0.1", tcp_port))
        for connection in (self.udp, self.tcp):
            connection.settimeout(60)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.udp.close()
        self.tcp.close()

    def ask_udp(self, message):
        self.udp.send(message)
        return self.udp.recv(65536)

    def ask_tcp(self, message):
        self.tcp.sendall(message)
        data = self._read(2)
        if data[1] >= 0x80:
            octets = data[1] & 0x7F
            data += self._read(octets)
            length = int.from_bytes(data[2:], "big")
        else:
            length = data[1]
        return data + self._read(length)

    def _read(self, size):
        data = b""
        while len(data) < size:
            piece = self.tcp.recv(size - len(data))
            if not piece:
                raise ConnectionError("the agent has closed the connection")
            data += piece
        return data


class DirectAnswers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        tcp_port = free_port(socket.SOCK_STREAM)
        # Values that are read once: a clock in them must not make a difference.
        cls.system = System(agent_config=CONFIG, extra_config="vrxFreshSnapshotAge 600000\nvrxWalkSnapshotAge 600000\n",
                            agent_arguments=["--listen", "tcp:127.0.0.1:%d" % tcp_port])
        cls.system.__enter__()
        with BackendClient(cls.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(ALARM_COUNT)
        cls.both = Both(cls.system.port, tcp_port)
        for name in (ALARMS + ".1", TOPOLOGY + ".1", CLEAR_ALARM, DESTINATIONS + ".1"):
            cls.both.ask_udp(request(GETNEXT, [name], 1))

    @classmethod
    def tearDownClass(cls):
        cls.both.__exit__()
        cls.system.close()

    def assert_same(self, *arguments, **more):
        message = request(*arguments, **more)
        self.assertEqual(self.both.ask_udp(message), self.both.ask_tcp(message), (arguments, more))

    def test_get_of_each_column(self):
        for version in (0, 1):
            for column in range(0, 15):
                self.assert_same(GET, [ALARMS + ".%d.5" % column], 7, version=version)
                self.assert_same(GET, [TOPOLOGY + ".%d.1" % column], 7, version=version)
            self.assert_same(GET, [CLEAR_ALARM], 7, version=version)

    def test_request_numbers_of_any_size_and_sign(self):
        for number in (0, 1, 127, 128, 255, 65535, 2147483647, -1, -2147483648):
            self.assert_same(GET, [CLEAR_ALARM], number)

    def test_bulk_requests_of_any_shape(self):
        for second in (-1, 0, 1, 2, 3):
            for third in (-1, 0, 1, 2, 7, 50, 99, 100, 101, 2147483647):
                self.assert_same(GETBULK, [ALARMS + ".4"], 3, second=second, third=third)
                self.assert_same(GETBULK, [ALARMS + ".4", ALARMS + ".6.3"], 3, second=second, third=third)
                self.assert_same(GETBULK, [ALARMS + ".12.50", TOPOLOGY], 3, second=second, third=third)

    def test_answers_around_the_longest_message(self):
        for repetitions in range(1, 60):
            self.assert_same(GETBULK, [ALARMS + ".10"], 3, third=repetitions)

    def test_requests_of_chance(self):
        chance = random.Random(SEED)
        for _ in range(REQUESTS):
            version = chance.choice((0, 1, 1))
            kind = chance.choice((GET, GETNEXT, GETBULK) if version else (GET, GETNEXT))
            community = chance.choice((b"ours", b"ours", b"partial", b"system"))
            names = [self.chance_name(chance) for _ in range(chance.choice((1, 1, 1, 2, 3, 12)))]
            second = chance.choice((0, 0, 0, 1, 2)) if kind == GETBULK else 0
            third = chance.choice((0, 1, 2, 5, 10, 50)) if kind == GETBULK else 0
            self.assert_same(kind, names, chance.randrange(1 << 31), version=version, community=community,
                             second=second, third=third)

    @staticmethod
    def chance_name(chance):
        table = chance.choice((ALARMS, ALARMS, ALARMS, TOPOLOGY, DESTINATIONS))
        whole = "%s.%d.%d" % (table, chance.randrange(0, 15), chance.choice((0, 1, 2, 5, 30, 59, 60, 61, 4294967295)))
        return chance.choice((whole, whole, whole, whole.rpartition(".")[0], table, table.rpartition(".")[0],
                              whole + ".1", CLEAR_ALARM, CLEAR_ALARM[:-2], "1.3.6.1.2.1.1.5.0"))

    def counted(self, ask, message):
        """What the counters of the snmp group rise by for one request, beside what asking for them costs."""
        def counters():
            names = [SNMP_GROUP + ".%d.0" % number for number in (1, 2, 13, 14, 15, 16, 17, 18, 24, 28)]
            output = self.system.get(*names)
            return [int(line.rpartition(" ")[2]) for line in output.splitlines()]

        before = counters()
        ask(message)
        between = counters()
        after = counters()
        return [(b - a) - (c - b) for a, b, c in zip(before, between, after)]

    def test_they_are_counted_alike(self):
        for message in (request(GET, [CLEAR_ALARM], 1), request(GET, [ALARMS + ".4.5", ALARMS + ".6.5"], 1),
                        request(GET, [ALARMS + ".4.5"], 1, version=0), request(GETNEXT, [ALARMS + ".4.5"], 1),
                        request(GETBULK, [ALARMS + ".4"], 1, third=10),
                        request(GETBULK, [ALARMS + ".4", ALARMS + ".1"], 1, third=10)):
            self.assertEqual(self.counted(self.both.ask_udp, message), self.counted(self.both.ask_tcp, message))


class SecureAnswers(unittest.TestCase):
    """The same of SNMPv3, whose answers the library encrypts: what its tools read of both."""

    USERS = """
createUser partial SHA-256 "partial-auth-pass" AES "partial-priv-pass"
createUser reader SHA-512 "reader-auth-pass" AES "reader-priv-pass"
view partial included .1.3.6.1.4.1.99871
view partial excluded .%s.10.7
view partial excluded .%s.4
rouser partial noauth -V partial
rouser reader noauth .1
""" % (ALARMS, ALARMS)
    REQUESTS = 60

    @classmethod
    def setUpClass(cls):
        tcp_port = free_port(socket.SOCK_STREAM)
        cls.system = System(extra_config=cls.USERS + "[snmp] sendMessageMaxSize 2000\nvrxFreshSnapshotAge 600000\nvrxWalkSnapshotAge 600000\n",
                            agent_arguments=["--listen", "tcp:127.0.0.1:%d" % tcp_port])
        cls.system.__enter__()
        cls.addClassCleanup(cls.system.close)
        with BackendClient(cls.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(ALARM_COUNT)
        cls.addresses = ("udp:127.0.0.1:%d" % cls.system.port, "tcp:127.0.0.1:%d" % tcp_port)

    @staticmethod
    def user(name="reader", level="authPriv", protocol="SHA-512"):
        return ["-v3", "-l", level, "-u", name, "-a", protocol, "-A", name + "-auth-pass", "-x", "AES", "-X",
                name + "-priv-pass"]

    def answers(self, tool, *arguments, version, options=()):
        done = [self.system.run(tool, *arguments, version=version, options=options, address=address, check=False)
                for address in self.addresses]
        return [(one.returncode, one.stdout, one.stderr.replace(address, "")) for one, address in
                zip(done, self.addresses)]

    def assert_same(self, *arguments, **more):
        direct, engine = self.answers(*arguments, **more)
        self.assertEqual(direct, engine, (arguments, more))
        return direct[1]

    def test_each_level(self):
        for level in ("noAuthNoPriv", "authNoPriv", "authPriv"):
            shown = self.assert_same("snmpget", CLEAR_ALARM, ALARMS + ".10.5", version=self.user(level=level))
            self.assertIn("after an unexpected stop", shown)
            walked = self.assert_same("snmpbulkwalk", ALARMS.rpartition(".")[0], version=self.user(level=level))
            self.assertEqual(len(walked.splitlines()), 12 * ALARM_COUNT)

    def test_requests_of_chance(self):
        chance = random.Random(SEED)
        users = (self.user(), self.user("partial", protocol="SHA-256"))
        for _ in range(self.REQUESTS):
            tool = chance.choice(("snmpget", "snmpgetnext", "snmpbulkget"))
            options = ["-Cr%d" % chance.choice((1, 5, 50))] if tool == "snmpbulkget" else []
            names = [DirectAnswers.chance_name(chance) for _ in range(chance.choice((1, 1, 3)))]
            self.assert_same(tool, *names, version=chance.choice(users), options=options)

    def test_answers_around_the_longest_message(self):
        for repetitions in range(1, 60, 4):
            self.assert_same("snmpbulkget", ALARMS + ".10", version=self.user(), options=["-Cr%d" % repetitions])

    def test_contexts_and_other_engines(self):
        for context in (["-n", "elsewhere"], ["-E", "0x8000000001020304"]):
            self.assert_same("snmpget", CLEAR_ALARM, version=self.user() + context)


if __name__ == "__main__":
    unittest.main()
