"""Requests whose answers do not fit, of all kinds and levels, to the running agent: fuzz/answer_sizes.py.

TAMREL_ANSWER_SIZES is how many are sent.
"""

import os
import socket
import sys
import unittest

from direct_answer_test import Both
from harness import AGENT_CONFIG, ALARMS, DESTINATIONS, SOURCE_DIR, System, free_port, slowdown
from backend_client import BackendClient

sys.path.append(os.path.join(SOURCE_DIR, "fuzz"))

# pylint: disable=wrong-import-position
import answer_sizes  # noqa: E402
import ber  # noqa: E402
import snmp_datagrams  # noqa: E402
import snmp_engine  # noqa: E402

COUNT = int(os.environ.get("TAMREL_ANSWER_SIZES", 600 // slowdown()))
SYS_CONTACT, SYS_LOCATION = "1.3.6.1.2.1.1.4.0", "1.3.6.1.2.1.1.6.0"
SILENT_DROPS, TOO_BIGS = "1.3.6.1.2.1.11.31.0", "1.3.6.1.2.1.11.20.0"
NO_ERROR, TOO_BIG = 0, 1
CONFIG = AGENT_CONFIG + """
rwcommunity writer 127.0.0.1
createUser writer
rwuser writer noauth
""" + snmp_engine.CONFIG


class AnswerSizes(unittest.TestCase):
    def test_each_is_answered_within_what_is_taken(self):
        try:
            watch, seen = answer_sizes.run(seed=1, count=COUNT)
        except snmp_datagrams.Finding as finding:
            self.fail("seed 1: %s" % finding)
        print("seed 1: " + watch.summary())
        for kind in (ber.GET, ber.GETNEXT, ber.SET):
            self.assertGreater(seen[kind, TOO_BIG], 0)
            self.assertGreater(sum(seen.values()), seen[kind, TOO_BIG])
        self.assertGreater(seen[ber.GETBULK, NO_ERROR], 0)


class TooBig(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tcp_port = free_port(socket.SOCK_STREAM)
        cls.system = System(agent_config=CONFIG, agent_arguments=["--listen", "tcp:127.0.0.1:%d" % cls.tcp_port])
        cls.system.agent.environment = snmp_datagrams.checking_environment()
        cls.system.__enter__()
        cls.addClassCleanup(cls.system.close)
        with BackendClient(cls.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(120, parameters="x" * 1500 + ",once")
        cls.engine = snmp_datagrams.discover(cls.system.port)
        cls.both = Both(cls.system.port, cls.tcp_port)
        cls.addClassCleanup(cls.both.__exit__)

    def ask(self, data, stream=False):
        """The answer's error, its variables' names and its size."""
        answer = (self.both.ask_tcp if stream else self.both.ask_udp)(self.engine.fill(data))
        _, error, index, bindings = (node.content for node in self.engine.body(answer).content)
        self.assertTrue(error == b"\0" or index == b"\0")
        return error[0], [binding.content[0].content for binding in bindings], len(answer)

    def bulk(self, names, repetitions):
        return ber.pdu(ber.GETBULK, [ber.varbind(name) for name in names], third=repetitions)

    def test_a_bulk_answer_is_as_long_as_it_may_be(self):
        """What is left out is what does not fit: the next variable would not have."""
        body = self.bulk([ALARMS + ".4"], 60)
        _, whole, _ = self.ask(ber.message_v3(body, snmp_engine.ENGINE_ID, user=b"writer").encode())
        self.assertEqual(len(whole), 60)
        for most in (484, 700, 1472):
            for data in (ber.message_v3(body, snmp_engine.ENGINE_ID, user=b"writer", most=most),
                         snmp_engine.known_message(snmp_engine.SIGNER, body, most=most),
                         snmp_engine.known_message(snmp_engine.SEALER, body, most=most)):
                error, names, size = self.ask(data.encode())
                self.assertEqual((error, names), (NO_ERROR, whole[:len(names)]))
                self.assertLessEqual(size, most)
                self.assertGreater(size, most - 60)

    def test_v1_and_v2c_datagrams_are_bounded_by_the_transport(self):
        """100 texts of 1,500 octets: once no answer at all came."""
        columns = [name for name in (ALARMS + ".%d" % column for column in range(1, 16))
                   if self.ask(ber.message(self.bulk([name], 1)).encode())[2] > 1500]
        self.assertTrue(columns)
        error, names, size = self.ask(ber.message(self.bulk(columns[:1], 100)).encode())
        self.assertEqual(error, NO_ERROR)
        self.assertLess(len(names), 100)
        self.assertGreater(size, 60000)
        rows = ["%s.%d" % (columns[0], serial) for serial in range(1, 101)]
        for version, left in ((0, 100), (1, 0)):  # SNMPv1 names the request's variables, later versions none
            body = ber.pdu(ber.GET, [ber.varbind(name) for name in rows])
            error, names, _ = self.ask(ber.message(body, version=version).encode())
            self.assertEqual((error, len(names)), (TOO_BIG, left), version)
        error, names, size = self.ask(ber.message(body).encode(), stream=True)
        self.assertEqual((error, len(names)), (NO_ERROR, 100))
        self.assertGreater(size, 1 << 16)

    def test_a_set_whose_answer_does_not_fit_changes_nothing(self):
        text = ber.octets(b"c" * 250)
        engines = [ber.varbind(SYS_CONTACT, text), ber.varbind(SYS_LOCATION, text)]
        ours = [ber.varbind(DESTINATIONS + ".%d.%d" % (column, row), value) for row in range(1, 9)
                for column, value in ((6, ber.octets(b"127.0.0.1")), (2, ber.integer(162, ber.GAUGE32)),
                                      (3, ber.integer(4)))]
        for bindings in (engines, ours):
            data = ber.message_v3(ber.pdu(ber.SET, bindings), snmp_engine.ENGINE_ID, user=b"writer", most=484).encode()
            for stream in (False, True):
                self.assertEqual(self.ask(data, stream)[:2], (TOO_BIG, []))
        self.assertNotIn("c" * 250, self.system.get(SYS_CONTACT, SYS_LOCATION))
        self.assertIn("No Such", self.system.get(DESTINATIONS + ".2.1"))

    def test_more_variables_than_the_engine_repeats(self):
        """Without one repetition a walk would end there."""
        error, names, _ = self.ask(ber.message(self.bulk(["1.3"] * 150, 5)).encode())
        self.assertEqual((error, len(names)), (NO_ERROR, 150))

    def test_it_is_counted(self):
        before = self.counted(TOO_BIGS)
        body = ber.pdu(ber.GETNEXT, [ber.varbind(ALARMS)] * 60)
        self.ask(ber.message_v3(body, snmp_engine.ENGINE_ID, user=b"writer", most=700).encode())
        self.assertEqual(self.counted(TOO_BIGS), before + 1)
        self.assertEqual(self.counted(SILENT_DROPS), 0)

    def counted(self, name):
        return int(self.system.get(name, options=["-Oqv"]))


class ForwardEncoding(unittest.TestCase):
    def test_the_word_that_asks_for_it_is_without_effect(self):
        """The library's forward encoder writes beyond its buffer."""
        with System(agent_config=CONFIG, extra_config="[snmp] reverseEncodeBER 0\n") as system:
            self.assertIn("Unknown token: reverseEncodeBER", system.agent.log())
            for version in (["-v3", "-l", "noAuthNoPriv", "-u", "writer"], ["-v2c", "-c", "public"]):
                answer = system.bulkget("1.3.6.1.2.1.11", repetitions=100, version=version)
                self.assertGreater(len(answer.splitlines()), 20)


if __name__ == "__main__":
    unittest.main()
