"""Both daemons under a service manager: what they tell it at the start, at reloads, while they run and at the end."""

import os
import re
import signal
import socket
import unittest

from harness import AGENT_CONFIG, Failure, System, wait_for

WATCHDOG_SECONDS = 0.2
SERVING = "READY=1\nSTATUS=answers requests"
NOT_TAKEN = SERVING + "; the last reload was refused, see the log"
RELOADING = re.compile(r"RELOADING=1\nMONOTONIC_USEC=[0-9]+")
PING = "WATCHDOG=1"


class FakeManager:
    """A service manager's end of NOTIFY_SOCKET."""

    def __init__(self, address):
        self.address = address
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind("\0" + address[1:] if address.startswith("@") else address)
        self.socket.settimeout(0.02)
        self.messages = []

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        self.socket.close()

    def environment(self, watchdog=True):
        variables = {"NOTIFY_SOCKET": self.address}
        if watchdog:
            variables["WATCHDOG_USEC"] = str(int(WATCHDOG_SECONDS * 1e6))
        return variables

    def receive(self):
        try:
            while True:
                self.messages.append(self.socket.recv(4096).decode("utf-8"))
        except socket.timeout:
            pass
        return self.messages

    def wait(self, count, what):
        """The first messages but for pings."""
        return wait_for(lambda: self.receive() and len(self.states()) >= count and self.states()[:count], what)

    def states(self):
        return [message for message in self.messages if message != PING]

    def pings(self):
        return self.messages.count(PING)


class ServiceManager(unittest.TestCase):
    def test_the_agent_tells_start_reloads_and_end(self):
        system = System()
        with FakeManager(system.path("notify")) as manager:
            system.agent.environment = manager.environment()
            with system:
                self.assertEqual(manager.wait(1, "READY"), [SERVING])
                before = manager.pings()
                wait_for(lambda: manager.receive() and manager.pings() >= before + 3, "pings")

                os.kill(system.agent.pid, signal.SIGHUP)
                states = manager.wait(3, "the end of a reload")
                self.assertTrue(RELOADING.fullmatch(states[1]), states)
                self.assertEqual(states[2], SERVING)

                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "sysNaem x\n")
                os.kill(system.agent.pid, signal.SIGHUP)
                states = manager.wait(5, "the end of a refused reload")
                self.assertTrue(RELOADING.fullmatch(states[3]), states)
                self.assertEqual(states[4], NOT_TAKEN)
                before = manager.pings()
                wait_for(lambda: manager.receive() and manager.pings() >= before + 2, "pings after reloads")

                self.assertEqual(system.agent.stop(), 0)
                self.assertEqual(manager.wait(6, "STOPPING")[5], "STOPPING=1")
                self.assertEqual(manager.receive()[-1], "STOPPING=1")

    def test_ready_is_told_when_vrxctl_can_reach_the_agent(self):
        system = System()
        with FakeManager("@vrx-e2e-%d" % os.getpid()) as manager:
            system.agent.environment = manager.environment(watchdog=False)
            system.backend.start()
            system.agent.start(wait=False)
            try:
                self.assertEqual(manager.wait(1, "READY"), [SERVING])
                self.assertEqual(system.vrxctl("reload"), "")
                self.assertEqual(manager.wait(3, "the reload")[2], SERVING)
                self.assertEqual(manager.pings(), 0)
            finally:
                system.close()

    def test_a_start_that_fails_is_never_ready(self):
        system = System(start=False)
        with FakeManager(system.path("notify")) as manager, system:
            system.agent.environment = manager.environment()
            system.agent.arguments += ["--module", "/no/such/module.so"]
            with self.assertRaises(Failure):
                system.agent.start()
            self.assertEqual(manager.receive(), [])
            system.agent.process = None  # its exit code was not that of a clean end

    def test_the_backend_tells_start_and_end_and_that_its_store_answers(self):
        system = System(start=False)
        with FakeManager(system.path("notify")) as manager, system:
            system.backend.environment = manager.environment()
            system.backend.start()
            self.assertEqual(manager.wait(1, "READY"), ["READY=1\nSTATUS=serves clients"])
            wait_for(lambda: manager.receive() and manager.pings() >= 3, "pings")
            self.assertEqual(system.backend.stop(), 0)
            self.assertEqual(manager.wait(2, "STOPPING")[1], "STOPPING=1")


if __name__ == "__main__":
    unittest.main()
