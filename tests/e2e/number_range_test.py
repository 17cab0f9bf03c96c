"""A number that does not fit its type makes a message malformed, in every version: once the library cut it to 32 bits,
and a SET did something else than was asked for."""

import select
import socket
import unittest

from datagrams_test import ber, snmp_datagrams, snmp_engine
from backend_client import BackendClient
from harness import AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, System

OVER = 2**32
SYS_NAME = "1.3.6.1.2.1.1.5.0"
PARSE_ERRORS = "1.3.6.1.2.1.11.6.0"
CONFIG = AGENT_CONFIG + """
rwcommunity writer 127.0.0.1
createUser writer
rwuser writer noauth
""" + snmp_engine.CONFIG.replace("rouser", "rwuser")
GAUGE = ber.GAUGE32


class NumberRange(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = System(agent_config=CONFIG)
        cls.system.__enter__()
        cls.addClassCleanup(cls.system.close)
        with BackendClient(cls.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(3)
        cls.system.add_destination(1, 47162)
        cls.engine = snmp_datagrams.discover(cls.system.port)
        cls.link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        cls.addClassCleanup(cls.link.close)
        cls.link.connect(("127.0.0.1", cls.system.port))
        cls.link.settimeout(20)

    def messages(self, body):
        yield ber.message(body, version=0, community=b"writer")
        yield ber.message(body, community=b"writer")
        yield ber.message_v3(body, snmp_engine.ENGINE_ID, user=b"writer")
        yield snmp_engine.known_message(snmp_engine.SIGNER, body)
        yield snmp_engine.known_message(snmp_engine.SEALER, body)

    def refused(self, tree):
        """It gets no answer, which the answer to a request after it shows, and is counted."""
        before = self.counted(PARSE_ERRORS)
        self.link.send(self.engine.fill(tree.encode()))
        after = ber.pdu(ber.GET, [ber.varbind(SYS_NAME)], request=77)
        self.link.send(ber.message(after).encode())
        answer = self.engine.body(self.link.recv(65536))
        self.assertEqual(answer.content[0].content, bytes([77]))
        self.assertFalse(select.select([self.link], [], [], 0)[0])
        self.assertEqual(self.counted(PARSE_ERRORS), before + 1)

    def counted(self, name):
        return int(self.system.get(name, options=["-Oqv"]))

    def state(self):
        return self.system.walk(DESTINATIONS) + self.system.walk(ALARMS + ".4")

    def test_no_set_does_what_was_not_asked_for(self):
        before = self.state()
        for name, number, tag in ((CLEAR_ALARM, OVER + 2, GAUGE), (DESTINATIONS + ".2.1", OVER + 162, GAUGE),
                                  (DESTINATIONS + ".2.1", -1, GAUGE), (DESTINATIONS + ".2.1", 2**64 + 162, GAUGE),
                                  (DESTINATIONS + ".3.1", OVER + 6, ber.INTEGER),
                                  (DESTINATIONS + ".3.1", 6 - OVER, ber.INTEGER)):
            body = ber.pdu(ber.SET, [ber.varbind(name, ber.integer(number, tag))])
            for tree in self.messages(body):
                self.refused(tree)
        self.assertEqual(self.state(), before)

    def test_nor_has_a_request_such_fields(self):
        for fields in ((OVER + 1, 0, 0), (1, OVER, 1), (1, 0, OVER + 1), (-2**31 - 1, 0, 1)):
            for kind in (ber.GET, ber.GETNEXT, ber.GETBULK):
                for tree in self.messages(ber.pdu(kind, [ber.varbind(SYS_NAME)], *fields)):
                    self.refused(tree)

    def test_nor_has_what_is_around_it(self):
        body = ber.pdu(ber.GET, [ber.varbind(SYS_NAME)])
        self.refused(ber.sequence(ber.integer(OVER + 1), ber.octets(b"writer"), body))
        for field in ("number", "model", "most", "boots", "time"):
            self.refused(ber.message_v3(body, snmp_engine.ENGINE_ID, user=b"writer",
                                        **{field: OVER + (3 if field == "model" else 1000)}))

    def test_what_fits_is_answered_as_ever(self):
        """The largest and the smallest numbers, with and without octets that only repeat the sign."""
        bad_value, wrong_value = 3, 10
        for content in (b"\x7f\xff\xff\xff", b"\x80\0\0\0", b"\0\0\x7f\xff\xff\xff"):
            body = ber.pdu(ber.SET, [ber.varbind(DESTINATIONS + ".3.1", ber.Node(ber.INTEGER, content))])
            for position, tree in enumerate(self.messages(body)):
                self.assertEqual(self.error(tree), bad_value if position == 0 else wrong_value)
        for content in (b"\0\xff\xff\xff\xff", b"\xff\xff\xff\xff"):
            body = ber.pdu(ber.SET, [ber.varbind(DESTINATIONS + ".2.1", ber.Node(GAUGE, content))])
            for position, tree in enumerate(self.messages(body)):
                self.assertEqual(self.error(tree), bad_value if position == 0 else wrong_value)

    def error(self, tree):
        self.link.send(self.engine.fill(tree.encode()))
        return self.engine.body(self.link.recv(65536)).content[1].content[0]


if __name__ == "__main__":
    unittest.main()
