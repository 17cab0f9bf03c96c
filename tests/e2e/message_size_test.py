"""SNMPv3 managers say how long a message they take. Whatever they say, and however long the values are that they ask
for, the agent answers at once, and with no more than that."""

import socket
import unittest

from backend_client import BackendClient
from direct_answer_test import GET, GETBULK, GETNEXT, element, integer, name_bytes
from harness import ALARMS, TOPOLOGY, System
from trap_receiver import Reader

USER = b"sized"
CONFIG = "createUser sized\nrouser sized noauth\n"
REPORTABLE, USM = b"\x04", 3
RESPONSE, REPORT = 0xA2, 0xA8
TOO_BIG = 1
SMALLEST = 484  # RFC 3412: each engine takes as much
SIZES = (SMALLEST, 500, 640, 896, 897, 1000, 1400, 1472, 1500, 1800, 2048, 2100, 2200, 2400, 2600, 3000, 3300, 4000, 4500,
         5000, 6000, 6500, 7000, 8192, 9000, 12000, 16384, 30000, 65507)
LONG_TEXT = 2000


def message(engine, largest, pdu):
    header = element(0x30, integer(7) + integer(largest) + element(0x04, REPORTABLE) + integer(USM))
    user = USER if engine else b""
    security = element(0x30, element(0x04, engine) + integer(0) + integer(0) + element(0x04, user) + element(0x04, b"") +
                       element(0x04, b""))
    scoped = element(0x30, element(0x04, engine) + element(0x04, b"") + pdu)
    return element(0x30, integer(3) + header + element(0x04, security) + scoped)


def request(kind, names, second=0, third=0):
    varbinds = b"".join(element(0x30, name_bytes(name) + b"\x05\x00") for name in names)
    return element(kind, integer(1) + integer(second) + integer(third) + element(0x30, varbinds))


def opened(datagram):
    """Of an answer: the engine's ID, the PDU's tag, its error, how many variables there are, octets of the longest."""
    whole = Reader(Reader(datagram).next(0x30)[1])
    whole.next(0x02)
    whole.next(0x30)
    security = Reader(Reader(whole.next(0x04)[1]).next(0x30)[1])
    engine = security.next(0x04)[1]
    scoped = Reader(whole.next(0x30)[1])
    scoped.next(0x04)
    scoped.next(0x04)
    tag, content = scoped.next()
    pdu = Reader(content)
    pdu.next(0x02)
    error = int.from_bytes(pdu.next(0x02)[1], "big")
    pdu.next(0x02)
    variables = Reader(pdu.next(0x30)[1])
    values = []
    while variables.data:
        variable = Reader(variables.next(0x30)[1])
        variable.next(0x06)
        values.append(variable.next()[1])
    return engine, tag, error, len(values), max(map(len, values), default=0)


class MessageSizes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = System(extra_config=CONFIG)
        cls.system.__enter__()
        cls.addClassCleanup(cls.system.close)
        with BackendClient(cls.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(20)
            backend.raise_alarms(2, parameters="x" * LONG_TEXT + ",once")
            backend.raise_alarms(20)
        cls.manager = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        cls.addClassCleanup(cls.manager.close)
        cls.manager.settimeout(20)
        cls.manager.connect(("127.0.0.1", cls.system.port))
        cls.engine = cls.ask(message(b"", 65507, request(GET, [])))[0]

    @classmethod
    def ask(cls, datagram):
        cls.manager.send(datagram)
        answer = cls.manager.recv(65536)
        cls.answer_size = len(answer)
        return opened(answer)

    def columns(self):
        return [ALARMS + ".%d" % column for column in range(1, 16)]

    def test_the_rows_have_long_texts(self):
        found = [self.ask(message(self.engine, 65507, request(GET, [column + ".21"])))[4] for column in self.columns()]
        self.assertGreater(max(found), LONG_TEXT)

    def test_every_bulk_request_is_answered_within_the_size(self):
        for size in SIZES:
            for names in ([name] for name in self.columns()):
                for repetitions in (1, 10, 50):
                    self.check(size, request(GETBULK, names, 0, repetitions), (size, names, repetitions))
            for single in (0, 3, 15):
                self.check(size, request(GETBULK, self.columns(), single, 5), (size, single))
            self.check(size, request(GETBULK, [TOPOLOGY, ALARMS + ".12.21"], 1, 50), size)

    def test_so_is_every_other_read(self):
        for size in SIZES:
            for kind in (GET, GETNEXT):
                self.check(size, request(kind, [column + ".20" for column in self.columns()]), (size, kind))
                self.check(size, request(kind, [column + ".21" for column in self.columns()]), (size, kind))

    def check(self, size, asked, about):
        _, tag, error, count, _ = self.ask(message(self.engine, size, asked))
        self.assertEqual(tag, RESPONSE, about)
        self.assertLessEqual(self.answer_size, size, about)
        self.assertIn(error, (0, TOO_BIG), about)
        self.assertTrue(count > 0 or error == TOO_BIG, about)


if __name__ == "__main__":
    unittest.main()
