"""Trap destinations that are refused, swallow everything, cannot be reached, have no address or a dead name server: the
others get their traps all the same, requests go on, and the counters tell what became of each trap.
"""

import errno
import json
import os
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

    def dropped(self, row):
        """Traps of that destination that could not be sent."""
        rows = json.loads(self.system.vrxctl("status", "--json"))["destinations"]
        return [one["dropped"]["send failed"] for one in rows if one["number"] == str(row)][0]

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
            self.add(3, "127.0.0.1", receiver.port)
            self.raise_alarms()
            receiver.wait_for(TRAPS)
            self.assertNotIn(COLD_START, [trap.oid for trap in receiver.traps()])
        # UDP tells the sender of neither.
        self.assertEqual(self.counters(), {row: (TRAPS, TRAPS, 0, "", 0) for row in (1, 2, 3)})
        self.assertEqual([self.changes(row) for row in (1, 2, 3)], [["ready"]] * 3)

    def test_a_host_without_a_route_costs_its_own_traps_and_two_lines_each_time(self):
        with TrapReceiver() as receiver, TrapReceiver() as other:
            self.add(1, "127.0.0.1", receiver.port)
            self.add(2, "127.0.0.1", other.port)
            told = ["ready"]  # until the first trap is to be sent
            for turn, error in enumerate((errno.EHOSTUNREACH, errno.ENETUNREACH), 1):
                first = 2 * (turn - 1) * COUNT + 1
                self.system.agent_faults.fail_sending(receiver.port, error)
                self.raise_alarms()
                other.wait_for((2 * turn - 1) * TRAPS)
                wait_for(lambda turn=turn: self.dropped(1) == turn * TRAPS, "drops")
                self.system.agent_faults.stop()
                self.raise_alarms()
                receiver.wait_for(turn * TRAPS)
                other.wait_for(2 * turn * TRAPS)
                told += ["sending fails: Failure in sendto (%s)" % os.strerror(error), "ready"]
                self.assertEqual([line.partition("; first lost: ")[0] for line in self.changes(1)], told)
                # Who looks into it wants to know of which alarm nobody was told.
                self.assertRegex(self.changes(1)[-2], r"; first lost: alarm event %d \(alarm \d+, serial number %d\)\Z"
                                 % ((first,) * 2))
            self.assertEqual(len(receiver.datagrams()), 2 * TRAPS)
        self.assertEqual(self.changes(2), ["ready"])
        self.assertEqual(self.counters(), {1: (4 * TRAPS, 2 * TRAPS, 2 * TRAPS, "send failed %d" % (2 * TRAPS), 0),
                                           2: (4 * TRAPS, 4 * TRAPS, 0, "", 0)})


if __name__ == "__main__":
    unittest.main()
