"""Clients of a tcp: listener that say nothing, read nothing or come by the thousand: nobody else waits for them."""

import contextlib
import os
import resource
import select
import socket
import struct
import unittest

from backend_client import BackendClient
from direct_answer_test import GET, element, integer
from direct_answer_test import request as message
from harness import TOPOLOGY, V3, System, free_port, values, wait_for
from trap_receiver import COLD_START, TrapReceiver, decode

STATUS = TOPOLOGY + ".8.1"
SYS_NAME = "1.3.6.1.2.1.1.5.0"
MANY = 1000
USUAL_DESCRIPTORS = 1024


def request(names=(SYS_NAME,), number=1, community=b"public"):
    return message(GET, list(names), number, community=community)


QUESTION = request()


def discovery(number):
    """What an SNMPv3 manager without an engine ID begins with: a report answers it, credentials are not needed."""
    header = element(0x30, integer(number) + integer(65507) + element(0x04, b"\x04") + integer(3))
    security = element(0x30, element(0x04, b"") + integer(0) + integer(0) + element(0x04, b"") * 3)
    pdu = element(0xA0, integer(number) + integer(0) + integer(0) + element(0x30, b""))
    scoped = element(0x30, element(0x04, b"") * 2 + pdu)
    return element(0x30, integer(3) + header + element(0x04, security) + scoped)


DISCOVERIES = b"".join(discovery(number) for number in range(1, 201))


def hung_up(connection):
    """Whether the agent has ended this connection."""
    try:
        while select.select([connection], [], [], 0)[0]:
            if not connection.recv(65536):
                return True
    except ConnectionError:
        return True
    return False


def answered(connection):
    """Whether the agent answers on this connection."""
    try:
        connection.sendall(QUESTION)
        return b"vrx-under-test" in connection.recv(65536)
    except ConnectionError:
        return False


class Listening(System):
    """A System that listens over TCP, too."""

    def __init__(self, extra_config="", **more):
        self.tcp = free_port(socket.SOCK_STREAM)
        super().__init__(extra_config=extra_config, agent_arguments=["--listen", "tcp:127.0.0.1:%d" % self.tcp], **more)
        self._open = contextlib.ExitStack()

    def connect(self, receive_buffer=None):
        connection = self._open.enter_context(socket.socket())
        if receive_buffer:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        connection.settimeout(60)
        connection.connect(("127.0.0.1", self.tcp))
        return connection

    def close(self):
        self._open.close()
        super().close()

    def limit_descriptors(self, count):
        resource.prlimit(self.agent.pid, resource.RLIMIT_NOFILE, (count, resource.prlimit(
            self.agent.pid, resource.RLIMIT_NOFILE)[1]))

    def descriptors(self):
        return len(os.listdir("/proc/%d/fd" % self.agent.pid))

    def processor_time(self):
        with open("/proc/%d/stat" % self.agent.pid, encoding="ascii") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def answers(self):
        return values(self.get(SYS_NAME)) == [(SYS_NAME, 'STRING: "vrx-under-test"')]

    def answers_over_tcp(self):
        return "vrx-under-test" in self.get(SYS_NAME, address="tcp:127.0.0.1:%d" % self.tcp)


class Streams(unittest.TestCase):
    def assert_at_work(self, system, receiver, traps):
        """Everybody else is served: over UDP, by traps and through the control socket."""
        self.assertTrue(system.answers())
        with BackendClient(system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(1)
        receiver.wait_for(traps)
        system.vrxctl("status")

    def test_who_reads_no_answer_holds_nobody_up(self):
        with Listening("trapcommunity traps\n") as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=1)
            client = system.connect(receive_buffer=4096)
            client.setblocking(False)

            def flooded():
                """Sends as much as goes into the connection; true when it has been ended."""
                try:
                    while select.select([], [client], [], 0.1)[1]:
                        client.send(DISCOVERIES)
                        self.assertTrue(system.answers())
                    return False
                except ConnectionError:
                    return True

            wait_for(lambda: flooded() or not system.answers(), "the end of the connection")
            self.assert_at_work(system, receiver, 1)
            self.assertTrue(system.answers_over_tcp())

    def test_a_thousand_clients_that_say_nothing_or_half_a_message(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, MANY + 200), hard))
        with Listening("trapcommunity traps\n") as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=1)
            system.limit_descriptors(USUAL_DESCRIPTORS)
            clients = [system.connect() for _ in range(MANY)]
            for client in clients[::2]:
                with contextlib.suppress(ConnectionError):
                    client.sendall(discovery(1)[:20])
            self.assert_at_work(system, receiver, 1)
            self.assertTrue(system.answers_over_tcp())
            self.assertLess(system.descriptors(), USUAL_DESCRIPTORS // 4)
            # A backend that comes back is found.
            system.backend.stop()
            system.backend.start()
            wait_for(lambda: values(system.get(STATUS)) == [(STATUS, "INTEGER: 1")], "the backend")
            self.assert_at_work(system, receiver, 2)

    def test_a_thousand_clients_that_ask_who_the_agent_is_and_do_not_read(self):
        with Listening("trapcommunity traps\n") as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=1)
            for _ in range(MANY):
                with contextlib.suppress(ConnectionError):
                    system.connect(receive_buffer=4096).sendall(DISCOVERIES)
            self.assert_at_work(system, receiver, 1)
            self.assertTrue(system.answers_over_tcp())

    def test_who_asks_nothing_that_is_allowed_loses_its_connection(self):
        with Listening("vrxTcpIdle 5\n") as system:
            asking = system.connect()
            silent, half, unknown, asked_once = [system.connect() for _ in range(4)]
            self.assertTrue(answered(asking))
            half.sendall(QUESTION[:10])
            unknown.sendall(request(community=b"nobody"))
            self.assertTrue(answered(asked_once))
            for client in (silent, half, unknown, asked_once):
                wait_for(lambda client=client: answered(asking) and hung_up(client), "the end of the connection")
            self.assertTrue(answered(asking))

    def test_connections_have_a_limit_and_who_has_asked_stays(self):
        with Listening("vrxTcpConnections 4\n") as system:
            kept = []
            for _ in range(4):
                kept.append(system.connect())
                self.assertTrue(answered(kept[-1]))
            late = system.connect()
            wait_for(lambda: hung_up(late), "the end of the connection")
            for client in kept:
                self.assertTrue(answered(client))
            self.assertIn("4 connections are open", system.agent.log())
            kept.pop().close()
            wait_for(system.answers_over_tcp, "room for another connection")

    def test_of_those_that_have_not_asked_yet_the_oldest_makes_room(self):
        with Listening("vrxTcpConnections 8\n") as system:
            asked = system.connect()
            self.assertTrue(answered(asked))
            silent = [system.connect() for _ in range(3)]
            wait_for(lambda: hung_up(silent[0]), "the end of the oldest connection")
            self.assertTrue(answered(silent[2]))
            self.assertTrue(answered(asked))

    def test_a_message_longer_than_any_manager_sends_ends_its_connection(self):
        with Listening() as system:
            client = system.connect()
            client.sendall(b"\x30\x84" + struct.pack(">I", 0x7FFFFF00))
            wait_for(lambda: hung_up(client), "the end of the connection")
            self.assertTrue(system.answers())

    def test_a_long_request_in_pieces_is_answered(self):
        with Listening("maxGetbulkResponses -1\n") as system:
            client = system.connect()
            names = [SYS_NAME] * 2000
            question = request(names)
            for start in range(0, len(question), 1000):
                client.sendall(question[start:start + 1000])
            got = b""
            while got.count(b"vrx-under-test") < len(names):
                piece = client.recv(65536)
                self.assertTrue(piece, "the agent has closed the connection")
                got += piece

    def test_answers_that_wait_to_be_read_come_whole_and_in_order(self):
        with Listening() as system:
            client = system.connect(receive_buffer=4096)
            asked = [request([SYS_NAME] * 500, number) for number in range(1, 41)]
            for question in asked:
                client.sendall(question)
            got = b""
            while got.count(b"vrx-under-test") < 500 * len(asked):
                piece = client.recv(1024)
                self.assertTrue(piece, "the agent has closed the connection")
                got += piece
            numbers = [b"\x02\x01" + bytes([number]) + b"\x02\x01\x00" * 2 for number in range(1, 41)]
            places = [got.find(number) for number in numbers]
            self.assertEqual(places, sorted(places))
            self.assertNotIn(-1, places)

    def test_without_a_descriptor_left_the_agent_waits_for_one(self):
        with Listening() as system:
            self.assertTrue(system.answers_over_tcp())
            # Opened without a descriptor it would be an exception, whose type UBSan cannot look at without one.
            wait_for(lambda: os.path.exists(system.path("state", "notification_log.db-shm")), "the notification log")
            system.limit_descriptors(3)
            client = system.connect()
            failed = "cannot take a connection"
            wait_for(lambda: failed in system.agent.log(), "the first attempt")
            started, clock = system.processor_time(), os.times().elapsed
            wait_for(lambda: system.answers() and system.agent.log().count(failed) > 1, "the second attempt")
            self.assertLess(system.processor_time() - started, (os.times().elapsed - clock) / 2)
            system.limit_descriptors(USUAL_DESCRIPTORS)
            self.assertTrue(answered(client))

    def test_other_streams_are_listened_on_as_before(self):
        with Listening(start=False) as system:
            path = system.path("state", "snmp.sock")
            system.agent.arguments += ["--listen", "unix:" + path]
            system.agent.start()
            self.assertIn("vrx-under-test", system.get(SYS_NAME, version=V3, address="unix:" + path))


if __name__ == "__main__":
    unittest.main()
