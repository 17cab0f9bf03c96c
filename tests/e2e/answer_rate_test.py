"""A peer that is not authenticated gets so many octets a second: its address may be another's, who would drown in answers
that he has not asked for."""

import json
import socket
import time
import unittest

from datagrams_test import ber, snmp_datagrams, snmp_engine
from direct_answer_test import Both
from harness import TOPOLOGY, System, free_port, wait_for

RATE = 5_000  # an agent on a slow machine makes more
AHEAD = 10 * RATE
CONFIG = """
rocommunity public 127.0.0.0/8
createUser open
rouser open noauth
createUser admin SHA-256 "admin-auth-pass" AES "admin-priv-pass"
rwuser admin priv
vrxFreshSnapshotAge 600000
vrxAnswerRate %d
""" % RATE + snmp_engine.CONFIG
SNMP_GROUP, SYS_NAME = "1.3.6.1.2.1.11", "1.3.6.1.2.1.1.5.0"
DIRECTLY = [TOPOLOGY + ".5"] * 300  # answered without the engine
BY_THE_ENGINE = [SNMP_GROUP, TOPOLOGY]


class AnswerRates(unittest.TestCase):
    def setUp(self):
        tcp_port = free_port(socket.SOCK_STREAM)
        self.system = System(agent_config=CONFIG, agent_arguments=["--listen", "tcp:127.0.0.1:%d" % tcp_port])
        self.system.__enter__()
        self.addCleanup(self.system.close)
        self.engine = snmp_datagrams.discover(self.system.port)
        self.system.getnext(TOPOLOGY)  # from now on its values are there: requests are answered in their order
        self.both = Both(self.system.port, tcp_port)
        self.addCleanup(self.both.__exit__)

    def peer(self, address):
        link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(link.close)
        link.bind((address, 0))
        link.connect(("127.0.0.1", self.system.port))
        return link

    def got(self, link, data):
        """Octets of the answer, 0 when there is none: an authenticated request after it is answered."""
        after = snmp_engine.known_message(snmp_engine.SEALER, ber.pdu(ber.GET, [ber.varbind(SYS_NAME)], request=7))
        link.settimeout(20)
        link.send(data)
        link.send(self.engine.fill(after.encode()))
        octets = 0
        while True:
            answer = link.recv(1 << 16)
            if self.engine.body(answer).content[0].content == b"\x07":
                return octets
            octets = len(answer)

    def until_none_comes(self, address, data):
        """To two ports together; they are what the rate allows, but for one answer."""
        links = [self.peer(address), self.peer(address)]
        start = time.monotonic()
        total, largest = 0, 0
        for turn in range(2000):
            octets = self.got(links[turn % 2], data)
            if octets == 0:
                self.assertGreater(total, AHEAD - largest)
                self.assertLess(total, AHEAD + RATE * (time.monotonic() - start) + largest)
                return None
            total, largest = total + octets, max(largest, octets)
        return self.fail("%d octets came" % total)

    @staticmethod
    def requests():
        body = ber.pdu(ber.GETBULK, [ber.varbind(name) for name in BY_THE_ENGINE], request=1, third=100)
        yield ber.message(body).encode()
        yield ber.message_v3(body, snmp_engine.ENGINE_ID).encode()
        yield ber.message(ber.pdu(ber.GETNEXT, [ber.varbind(name) for name in DIRECTLY], request=1),
                          version=0).encode()

    def test_each_address_has_its_own_whatever_its_ports_and_versions(self):
        for number, data in enumerate(self.requests(), start=2):
            address = "127.0.0.%d" % number
            self.until_none_comes(address, data)
        self.assertGreater(self.held_back(), 0)
        self.assertIn("requests from 127.0.0.2 are dropped: answers to it make more than %d octets a second "
                      "(vrxAnswerRate)" % RATE, self.system.agent.log())

    def held_back(self):
        rows = json.loads(self.system.vrxctl("status", "--json"))["requests"]
        return sum(row["results"]["held_back"] for row in rows)

    def test_after_a_while_answers_come_again(self):
        data = next(self.requests())
        self.until_none_comes("127.0.0.9", data)
        link = self.peer("127.0.0.9")
        wait_for(lambda: self.got(link, data), "an answer")

    def test_who_is_authenticated_or_connected_has_no_bound(self):
        body = ber.pdu(ber.GETBULK, [ber.varbind(name) for name in BY_THE_ENGINE], request=1, third=100)
        signed = snmp_engine.known_message(snmp_engine.SIGNER, body).encode()
        link, total = self.peer("127.0.0.1"), 0
        while total < 2 * AHEAD:
            octets = self.got(link, self.engine.fill(signed))
            self.assertGreater(octets, 0)
            total += octets
        total = 0
        while total < 2 * AHEAD:
            total += len(self.both.ask_tcp(ber.message(body).encode()))
        self.assertEqual(self.held_back(), 0)

    def test_a_reload_changes_the_bound(self):
        data = next(self.requests())
        self.until_none_comes("127.0.0.8", data)
        self.system.write("etc/vrx-agentd.conf", CONFIG.replace("Rate %d" % RATE, "Rate 0"))
        self.system.vrxctl("reload")
        self.system.getnext(TOPOLOGY)
        for _ in range(100):
            self.assertGreater(self.got(self.peer("127.0.0.8"), data), 0)


if __name__ == "__main__":
    unittest.main()
