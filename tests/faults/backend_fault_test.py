"""A backend that refuses, hangs, sends half packages, garbage, a byte at a time, closes in the middle and is killed:
requests end in a bounded time, the system's row says offline, and after each return the agent's alarms equal the
backend's within two seconds; each alarm gives its trap, each change of state its two lines and no other.

TAMREL_BACKEND_CYCLES is the number of faults in a row (default 60), half of them kills of the real process.
"""

import os
import random
import socket
import threading
import time
import unittest

from backend_client import HEAD, POWER_LOSS, RAISE_ALARM, BackendClient, receive_package, record, text, uint
from faults import CONFIG
from harness import ALARMS, TOPOLOGY, System, slowdown, wait_for
from snmp import GET, GETBULK, NO_ERROR, Manager
from trap_receiver import TrapReceiver

CYCLES = int(os.environ.get("TAMREL_BACKEND_CYCLES", "60"))
SEED = int(os.environ.get("TAMREL_BACKEND_SEED", "0")) or random.randrange(1, 1 << 31)
RETURN_SECONDS = 2.0 * slowdown()
DEADLINE_MS = 300
REQUESTS = 3  # while it is faulty: each may take the deadline
AWAY_SECONDS = 2  # until the agent's pauses between two attempts are at their longest

ONLINE, OFFLINE = 1, 2  # column 8 of the topology
ACTIVE = 1              # the category of a trap
COMMON = 1              # the traps of a destination

BACKEND_SOCKET = "state/backend.sock"
CLOSED = "the peer closed the connection"


class FaultyProxy:
    """Stands between the agent and the backend. `mode`: "good", or what it does to answers and pushed events."""

    def __init__(self, path, backend_path):
        self.mode = "good"
        self._path, self._backend_path = path, backend_path
        self._lock = threading.Lock()
        self._open = set()
        self._listener = None
        self._listen()

    def _listen(self):
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(self._path)
        self._listener.listen(32)
        threading.Thread(target=self._accept, args=(self._listener,), daemon=True).start()

    def set_mode(self, mode):
        """Connections of before end, so that both sides meet the new state of things."""
        if self._listener is not None and mode == "refuse":
            self._listener.shutdown(socket.SHUT_RDWR)
            self._listener.close()
            self._listener = None
            os.unlink(self._path)
        with self._lock:
            self.mode = mode
            for connection in self._open:
                try:
                    connection.shutdown(socket.SHUT_RDWR)
                except OSError:
                    pass
        if self._listener is None and mode != "refuse":
            self._listen()

    def close(self):
        self.set_mode("refuse")

    def _accept(self, listener):
        while True:
            try:
                client, _ = listener.accept()
            except OSError:
                return
            backend = socket.socket(socket.AF_UNIX)
            with self._lock:
                self._open |= {client, backend}
                mode = self.mode
            threading.Thread(target=self._serve, args=(client, backend, mode), daemon=True).start()

    def _serve(self, client, backend, mode):
        try:
            if mode == "hang":
                while client.recv(4096):
                    pass
                return
            backend.connect(self._backend_path)
            other = threading.Thread(target=self._forward, args=(client, backend), daemon=True)
            other.start()
            while True:
                head, body = receive_package(backend)
                self._answer(client, head, body, mode)
        except (OSError, ConnectionError):
            pass
        finally:
            with self._lock:
                self._open -= {client, backend}
            for end in (client, backend):
                try:
                    end.shutdown(socket.SHUT_RDWR)
                except OSError:
                    pass
                end.close()

    @staticmethod
    def _forward(client, backend):
        try:
            while True:
                data = client.recv(65536)
                if not data:
                    break
                backend.sendall(data)
        except OSError:
            pass
        try:
            backend.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass

    @staticmethod
    def _answer(client, head, body, mode):
        whole = head + body
        if mode == "good":
            client.sendall(whole)
        elif mode == "half":  # and then nothing
            client.sendall(whole[:max(1, len(whole) // 2)])
            while client.recv(4096):
                pass
        elif mode == "cut":
            client.sendall(whole[:HEAD.size + len(body) // 2])
            raise ConnectionError("cut")
        elif mode == "garbage":
            client.sendall(random.Random(len(whole)).randbytes(len(whole)))
        elif mode == "trickle":
            for at in range(len(whole)):
                client.sendall(whole[at:at + 1])
                time.sleep(1)


class BackendCase(unittest.TestCase):
    """A system whose agent looks for its backend at `agents_socket`, with a manager and a destination for traps."""

    agents_socket = BACKEND_SOCKET

    def setUp(self):
        self.chance = random.Random(SEED)
        self.system = System(agent_config=CONFIG + "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\n",
                             start=False,
                             device={("BACKEND", "ADDRESS"): "unix:" + self.agents_socket,
                                     ("BACKEND", "CALL_DEADLINE_MS"): DEADLINE_MS},
                             backend_arguments=["--address", "unix:" + BACKEND_SOCKET])
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.set_up_way()
        self.system.agent.start()
        self.manager = Manager(self.system.port)
        self.addCleanup(self.manager.__exit__)
        self.receiver = TrapReceiver()
        self.receiver.__enter__()
        self.addCleanup(self.receiver.__exit__)
        self.system.add_destination(1, self.receiver.port, trap_type=COMMON)
        wait_for(lambda: "] subscribed at " in self.system.agent.log(), "the subscription")
        self.expected = set()
        self.raised = []

    def set_up_way(self):
        """What is between agent and backend."""

    # Alarms

    def change(self):
        """Raises some alarms and ends some, at the backend itself."""
        with BackendClient(self.system.path(BACKEND_SOCKET)) as backend:
            for _ in range(self.chance.randint(1, 3)):
                body = backend.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b")))
                self.raised.append(int.from_bytes(body[-4:], "little"))
                self.expected.add(self.raised[-1])
            while len(self.expected) > 20 or (self.expected and self.chance.random() < 0.5):
                serial = self.chance.choice(sorted(self.expected))
                backend.clear_alarm(serial)
                self.expected.remove(serial)

    def view(self):
        answer = self.manager.ask(GETBULK, [ALARMS + ".9"], second=30, seconds=10)
        if answer is None or answer.error != NO_ERROR:
            return None
        return {value for name, _, value in answer.bindings if name.startswith(ALARMS + ".9.")}

    def seconds_until_equal(self, since, where):
        wait_for(lambda: self.view() == self.expected, where + ": the alarms", RETURN_SECONDS)
        seconds = time.monotonic() - since
        self.assertLessEqual(seconds, RETURN_SECONDS, where)
        self.assertTrue(self.system.agent.running(), where)
        return seconds

    def check_traps(self):
        """Every alarm that was raised has given its trap; one may come twice."""
        def arrived():
            return {trap.value(9) for trap in self.receiver.traps() if trap.value(11) == ACTIVE}

        wait_for(lambda: len(self.receiver.datagrams()) >= 2 * len(self.raised) - len(self.expected), "the traps")
        wait_for(lambda: arrived() >= set(self.raised), "the traps of all alarms")
        self.assertEqual(arrived(), set(self.raised))

    # State

    def status(self):
        answer = self.manager.ask(GET, [TOPOLOGY + ".8.1"], seconds=10)
        self.assertIsNotNone(answer)
        return answer.error, answer.bindings[0][2]

    def check_lines(self, go, come_back, transport, events):
        """What the agent's log tells of a fault, twice, with some requests meanwhile; `transport` and `events`: why the
        calls and the subscription fail."""
        wait_for(lambda: self.status() == (NO_ERROR, ONLINE), "the beginning")
        address = "unix:" + self.system.path(self.agents_socket)
        backend = "the management backend at " + address
        for _ in range(2):
            start = len(self.system.agent.log())

            def lines():
                return [line.partition(" ")[2] for line in self.system.agent.log()[start:].splitlines()]

            go()
            for _ in range(REQUESTS):
                self.assertEqual(self.status(), (NO_ERROR, OFFLINE))
            wait_for(lambda: any("no subscription at " in line for line in lines()), "the end of the subscription")
            gone = lines()
            come_back()
            wait_for(lambda: self.status() == (NO_ERROR, ONLINE), "the return")
            wait_for(lambda: any("] subscribed at " in line for line in lines()), "the subscription")
            # Calls and the subscription have threads of their own: their lines may change places.
            self.assertEqual(sorted(gone), ["warning [events] no subscription at %s: %s" % (address, events),
                                            "warning [transport] %s is not reachable: %s" % (backend, transport)])
            self.assertEqual(sorted(lines()[len(gone):]),
                             ["info [events] subscribed at %s after event 0, 0 active alarms" % address,
                              "info [transport] %s is reachable" % backend])


class FaultyBackend(BackendCase):
    agents_socket = "state/proxy.sock"

    # Why calls fail. The subscription of before always ends with its connection.
    FAULTS = {
        "refuse": "connect: No such file or directory",
        "hang": "no package in time",
        "half": "no package in time",
        "garbage": "bytes that do not begin a package",
        "trickle": "no package in time",
        "cut": CLOSED + " in the middle of a package",
    }

    def set_up_way(self):
        self.proxy = FaultyProxy(self.system.path(self.agents_socket), self.system.path(BACKEND_SOCKET))
        self.addCleanup(self.proxy.close)

    def test_the_agents_alarms_equal_the_backends_soon_after_each_return(self):
        longest = 0.0
        order = []
        for cycle in range(CYCLES - CYCLES // 2):
            if not order:
                order = list(self.FAULTS)
                self.chance.shuffle(order)
            fault = order.pop()
            where = "seed %d, cycle %d: %s" % (SEED, cycle, fault)
            self.proxy.set_mode(fault)
            self.assertEqual(self.status(), (NO_ERROR, OFFLINE), where)
            self.change()
            self.proxy.set_mode("good")
            longest = max(longest, self.seconds_until_equal(time.monotonic(), where))
        self.check_traps()
        print("seed %d: %d faults, longest until equal %.2f s" % (SEED, cycle + 1, longest), flush=True)

    def test_one_line_of_each_kind_when_it_goes_and_one_when_it_comes(self):
        for fault, reason in self.FAULTS.items():
            with self.subTest(fault):
                self.check_lines(lambda fault=fault: self.proxy.set_mode(fault), lambda: self.proxy.set_mode("good"),
                                 reason, CLOSED)


class KilledBackend(BackendCase):
    """Nothing stands between the two."""

    def test_the_agents_alarms_equal_the_backends_soon_after_each_start(self):
        longest = 0.0
        for cycle in range(CYCLES // 2):
            where = "seed %d, restart %d" % (SEED, cycle)
            self.change()  # some of it is on its way to the agent when the backend ends
            self.system.backend.kill()
            back = time.monotonic() + (AWAY_SECONDS if cycle % 15 == 0 else 0)
            while True:
                self.assertEqual(self.status(), (NO_ERROR, OFFLINE), where)
                if time.monotonic() >= back:
                    break
                time.sleep(0.01)
            self.system.backend.start()
            ready = time.monotonic()
            self.change()
            longest = max(longest, self.seconds_until_equal(ready, where))
        self.check_traps()
        print("seed %d: %d restarts, longest until equal %.2f s" % (SEED, cycle + 1, longest), flush=True)

    def test_one_line_of_each_kind_when_it_goes_and_one_when_it_comes(self):
        self.check_lines(self.system.backend.kill, self.system.backend.start,
                         "connect: Connection refused", CLOSED)


if __name__ == "__main__":
    unittest.main()
