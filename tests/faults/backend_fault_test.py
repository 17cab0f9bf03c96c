"""A backend that refuses, hangs, sends half packages, garbage, a byte at a time, closes in the middle and is killed under
load: requests end in a bounded time, and after each return the agent's alarms equal the backend's within two seconds.

TAMREL_BACKEND_CYCLES is the number of faults in a row (default 60).
"""

import os
import random
import socket
import threading
import time
import unittest

from backend_client import HEAD, POWER_LOSS, RAISE_ALARM, BackendClient, receive_package, record, text, uint
from faults import CONFIG
from harness import ALARMS, TOPOLOGY, System, wait_for
from snmp import GET, GETBULK, NO_ERROR, Manager

CYCLES = int(os.environ.get("TAMREL_BACKEND_CYCLES", "60"))
SEED = int(os.environ.get("TAMREL_BACKEND_SEED", "0")) or random.randrange(1, 1 << 31)
RETURN_SECONDS = 2
DEADLINE_MS = 300

FAULTS = ("refuse", "hang", "half", "garbage", "trickle", "cut", "kill")


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
        self.mode = mode
        with self._lock:
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
            threading.Thread(target=self._serve, args=(client, self.mode), daemon=True).start()

    def _serve(self, client, mode):
        backend = socket.socket(socket.AF_UNIX)
        with self._lock:
            self._open |= {client, backend}
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
        if mode in ("good", "kill"):
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


class FaultyBackend(unittest.TestCase):
    def setUp(self):
        self.system = System(agent_config=CONFIG + "vrxFreshSnapshotAge 0\nvrxQuietSnapshotAge 0\n",
                             start=False,
                             device={("BACKEND", "ADDRESS"): "unix:state/proxy.sock",
                                     ("BACKEND", "CALL_DEADLINE_MS"): DEADLINE_MS},
                             backend_arguments=["--address", "unix:state/backend.sock"])
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.proxy = FaultyProxy(self.system.path("state", "proxy.sock"), self.system.path("state", "backend.sock"))
        self.addCleanup(self.proxy.close)
        self.system.agent.start()
        self.manager = Manager(self.system.port)
        self.addCleanup(self.manager.__exit__)
        self.expected = set()

    def change(self, chance):
        """Raises some alarms and ends some, at the backend itself."""
        with BackendClient(self.system.path("state", "backend.sock")) as backend:
            for _ in range(chance.randint(1, 3)):
                body = backend.call(record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "a,b")))
                self.expected.add(int.from_bytes(body[-4:], "little"))
            while len(self.expected) > 20 or (self.expected and chance.random() < 0.5):
                serial = chance.choice(sorted(self.expected))
                backend.clear_alarm(serial)
                self.expected.remove(serial)

    def view(self):
        answer = self.manager.ask(GETBULK, [ALARMS + ".9"], second=30, seconds=10)
        if answer is None or answer.error != NO_ERROR:
            return None
        return {value for name, _, value in answer.bindings if name.startswith(ALARMS + ".9.")}

    def test_the_agents_alarms_equal_the_backends_soon_after_each_return(self):
        chance = random.Random(SEED)
        longest = 0.0
        order = []
        for cycle in range(CYCLES):
            if not order:
                order = list(FAULTS)
                chance.shuffle(order)
            fault = order.pop()
            where = "seed %d, cycle %d: %s" % (SEED, cycle, fault)
            if fault == "kill":
                self.system.backend.kill()
            self.proxy.set_mode(fault)
            asked = self.manager.ask(GET, [TOPOLOGY + ".1.1"], seconds=10)  # ends, as it may
            self.assertIsNotNone(asked, where)
            if fault == "kill":
                self.system.backend.start()
            self.change(chance)
            self.proxy.set_mode("good")
            back = time.monotonic()
            patience = RETURN_SECONDS * max(1.0, os.getloadavg()[0] / os.cpu_count())  # of a busy machine
            wait_for(lambda: self.view() == self.expected, where + ": the alarms", patience)
            longest = max(longest, time.monotonic() - back)
            self.assertTrue(self.system.agent.running(), where)
        print("seed %d: %d cycles, longest until equal %.2f s" % (SEED, CYCLES, longest), flush=True)

    def test_one_line_when_the_backend_goes_and_one_when_it_comes(self):
        wait_for(lambda: self.view() == set() and self.lines("] subscribed at "), "the beginning")
        for number in (1, 2):
            self.proxy.set_mode("refuse")
            for _ in range(20):
                self.assertIsNotNone(self.manager.ask(GET, [TOPOLOGY + ".1.1"], seconds=10))
            wait_for(lambda: self.lines("no subscription at ") >= number, "the end of the subscription")
            self.proxy.set_mode("good")
            wait_for(lambda: self.view() == set() and self.lines("] subscribed at ") > number, "the return")
            self.assertEqual(self.lines(" is not reachable: "), number)
            self.assertEqual(self.lines(" is reachable"), number + 1)
            self.assertEqual(self.lines("no subscription at "), number)
            self.assertEqual(self.lines("] subscribed at "), number + 1)

    def lines(self, part):
        return sum(part in line for line in self.system.agent.log().splitlines())


if __name__ == "__main__":
    unittest.main()
