"""Trap destinations that are refused, swallow everything, have no address or a dead name server: the others get their
traps all the same, requests go on, and the counters tell what became of each trap.
"""

import re
import socket
import unittest

import snmp
from backend_client import BackendClient
from faults import FaultySystem
from harness import DESTINATIONS, free_port, wait_for
from snmp import GET, NO_ERROR, SET, Manager
from trap_receiver import COLD_START, TrapReceiver

CREATE_AND_GO, BOTH = 4, 3
COUNT = 30  # alarms
TRAPS = 2 * COUNT

DEAD_SECONDS = 600  # far longer than the test: nothing may wait for it


class Names(unittest.TestCase):
    def setUp(self):
        self.system = FaultySystem(device={("TRAP", "UNRESOLVED_LIMIT"): 10})
        self.system.__enter__()
        self.addCleanup(self.system.close)
        self.manager = Manager(self.system.port)
        self.addCleanup(self.manager.__exit__)

    def add(self, row, address, port):
        answer = self.manager.ask(SET, [("%s.6.%d" % (DESTINATIONS, row), snmp.octets(address)),
                                        ("%s.2.%d" % (DESTINATIONS, row), snmp.unsigned(port)),
                                        ("%s.7.%d" % (DESTINATIONS, row), snmp.number(BOTH)),
                                        ("%s.3.%d" % (DESTINATIONS, row), snmp.number(CREATE_AND_GO))])
        self.assertEqual(answer.error, NO_ERROR)

    def raise_alarms(self):
        with BackendClient(self.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(COUNT)

    def counters(self):
        """By destination: what the agent says of each at its end."""
        self.assertEqual(self.system.agent.stop(), 0)
        lines = re.findall(r"trap destination (\d+): considered (\d+), sent (\d+) \(\d+ paced\), filtered (\d+), "
                           r"dropped (\d+)(.*), waiting (\d+)", self.system.agent.log())
        found = {}
        for row, considered, sent, filtered, dropped, reasons, waiting in lines:
            self.assertEqual(int(considered), int(sent) + int(filtered) + int(dropped) + int(waiting))
            found[int(row)] = (int(considered), int(sent), int(dropped), reasons.strip(" ()"), int(waiting))
        return found

    def changes(self, row):
        return [line.partition("): ")[2] for line in self.system.agent.log().splitlines()
                if "trap destination %d (" % row in line]

    def test_a_dead_name_server_delays_neither_other_traps_nor_requests(self):
        faults = self.system.agent_faults
        faults.hang_lookups(DEAD_SECONDS)
        with TrapReceiver() as receiver:
            self.add(1, "nobody.example", 162)
            self.add(2, "127.0.0.1", receiver.port)
            wait_for(faults.lookups, "a look-up that hangs")
            self.raise_alarms()
            receiver.wait_for(TRAPS)  # while the look-up hangs still
            self.assertEqual(self.manager.ask(GET, [DESTINATIONS + ".2.1"]).bindings[0][2], 162)
            self.assertEqual(len(receiver.datagrams()), TRAPS)
        self.assertEqual(self.changes(1), ["its name has no address yet"])
        counters = self.counters()  # the end does not wait for the look-up either
        self.assertEqual(counters[2], (TRAPS, TRAPS, 0, "", 0))
        considered, sent, dropped, reasons, waiting = counters[1]
        self.assertEqual((considered, sent, dropped + waiting), (TRAPS, 0, TRAPS))
        self.assertEqual(reasons, "unresolved %d" % dropped if dropped else "")

    def test_a_name_without_an_address_gets_its_traps_dropped_in_time(self):
        self.system.agent_faults.hang_lookups(0.01)
        with TrapReceiver() as receiver:
            self.add(1, "nobody.example", 162)
            self.add(2, "127.0.0.1", receiver.port)
            wait_for(lambda: self.system.agent_faults.lookups() > 1, "a second look-up")
            self.raise_alarms()
            receiver.wait_for(TRAPS)
        self.assertEqual(self.changes(1), ["its name has no address yet"])
        self.assertEqual(self.counters()[2], (TRAPS, TRAPS, 0, "", 0))

    def test_a_refused_port_and_a_silent_host_harm_nobody(self):
        silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)  # never reads: its buffer fills
        silent.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
        silent.bind(("127.0.0.1", 0))
        self.addCleanup(silent.close)
        with TrapReceiver() as receiver:
            self.add(1, "127.0.0.1", free_port())
            self.add(2, "127.0.0.1", silent.getsockname()[1])
            self.add(3, "127.255.255.254", free_port())
            self.add(4, "127.0.0.1", receiver.port)
            self.raise_alarms()
            receiver.wait_for(TRAPS)
            self.assertNotIn(COLD_START, [trap.oid for trap in receiver.traps()])
        counters = self.counters()
        self.assertEqual(counters[4], (TRAPS, TRAPS, 0, "", 0))
        for row in (1, 2, 3):
            considered, sent, dropped, _, waiting = counters[row]
            self.assertEqual((considered, sent + dropped, waiting), (TRAPS, TRAPS, 0))
            self.assertLessEqual(len(self.changes(row)), 2 + 2 * dropped)


if __name__ == "__main__":
    unittest.main()
