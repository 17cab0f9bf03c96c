"""No alarm is lost: alarms are raised while the agent is killed again and again, and each gives its traps all the same.

The number of alarms and of restarts come from VRX_RESTART_ALARMS (default 2000) and VRX_RESTART_KILLS (5):

    VRX_RESTART_ALARMS=10000 python3 -m unittest -v notification_restart_test
"""

import os
import random
import re
import threading
import time
import unittest

from backend_client import GET_CURRENT_ALARM, BackendClient, CountingProxy
from harness import ALARMS as ALARM_TABLE
from harness import wait_for
from trap_receiver import COLD_START, TrapReceiver
from traps_test import COMMON_TRAP, TrapSystem

ALARMS = int(os.environ.get("VRX_RESTART_ALARMS", "2000"))
KILLS = int(os.environ.get("VRX_RESTART_KILLS", "5"))
SEED = int(os.environ.get("VRX_RESTART_SEED", "0")) or random.randrange(1, 1 << 31)

KINDS = ("common", "named")  # the two traps of an alarm


def lives_of(traps):
    """The serial numbers that each life of the agent sent, by kind; a life begins with its coldStart."""
    lives = [{kind: [] for kind in KINDS}]  # before the first one
    for trap in traps:
        if trap.oid == COLD_START:
            lives.append({kind: [] for kind in KINDS})
        else:
            lives[-1]["common" if trap.oid == COMMON_TRAP else "named"].append(trap.value(9))
    return lives


class Restarts(unittest.TestCase):
    def test_every_alarm_gives_its_traps_in_order_over_kill_9(self):
        chance = random.Random(SEED)
        # A slow start of each burst: the receiver's socket buffer is not what this test is about.
        with TrapSystem(device={("TRAP", "BURST"): 20}) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            started = time.monotonic()
            raiser = threading.Thread(target=self.raise_alarms, args=(system, random.Random(SEED)))
            raiser.start()
            for _ in range(KILLS):
                time.sleep(chance.uniform(0.05, 2.0))
                system.agent.kill()
                time.sleep(chance.uniform(0, 0.5))
                system.agent.start()
            raiser.join()
            self.wait_for_all(receiver)
            took = time.monotonic() - started
            system.agent.stop()
            traps = receiver.traps()
            lives = lives_of(traps)
            self.check_order(lives)
            self.check_counters(system, lives)
            sent = sum(len(life[kind]) for life in lives for kind in KINDS)
            print("seed %d: %d alarms, %d kills, %d lives that sent, %d traps received, %d of them again, %.1f s"
                  % (SEED, ALARMS, KILLS, len(lives), sent, sent - 2 * ALARMS, took), flush=True)

    @staticmethod
    def raise_alarms(system, chance):
        left = ALARMS
        with BackendClient(system.path("state", "backend.sock")) as backend:
            while left > 0:
                now = min(left, chance.randint(1, 100))
                backend.raise_alarms(now)
                left -= now
                time.sleep(chance.uniform(0, 0.01) * ALARMS / 2000)

    @staticmethod
    def wait_for_all(receiver):
        seen = {kind: set() for kind in KINDS}
        checked = 0

        def complete():
            nonlocal checked
            traps = receiver.traps(checked)
            checked += len(traps)
            for life in lives_of(traps):
                for kind in KINDS:
                    seen[kind].update(life[kind])
            return all(len(seen[kind]) == ALARMS for kind in KINDS)

        try:
            wait_for(complete, "all traps", 300)
        except Exception as failure:
            missing = {kind: sorted(set(range(1, ALARMS + 1)) - seen[kind])[:10] for kind in KINDS}
            raise AssertionError("seed %d: missing %r" % (SEED, missing)) from failure

    def check_order(self, lives):
        for kind in KINDS:
            highest = 0
            for number, life in enumerate(lives):
                serials = life[kind]
                if not serials:
                    continue
                where = "seed %d, life %d, %s trap" % (SEED, number, kind)
                self.assertLessEqual(serials[0], highest + 1, where)
                self.assertEqual(serials, list(range(serials[0], serials[0] + len(serials))), where)
                highest = max(highest, serials[-1])
            self.assertEqual(highest, ALARMS)

    def check_counters(self, system, lives):
        (line,) = system.wait_log("trap destination 1: considered")
        numbers = re.search(r"considered (\d+), sent (\d+) \((\d+) paced\), filtered (\d+), dropped (\d+), "
                            r"waiting (\d+)$", line)
        self.assertIsNotNone(numbers, line)
        considered, sent, paced, filtered, dropped, waiting = map(int, numbers.groups())
        self.assertEqual(considered, sent + filtered + dropped + waiting, line)
        self.assertEqual((filtered, dropped, waiting), (0, 0, 0), line)
        self.assertLessEqual(paced, sent, line)
        self.assertEqual(sent, 1 + sum(len(lives[-1][kind]) for kind in KINDS), line)
        (line,) = system.wait_log("alarm events:", 1)[-1:]
        self.assertIn("alarm events: %d handled" % ((sent - 1) // 2), line)


class Connecting(unittest.TestCase):
    def test_alarms_that_come_up_while_the_agent_connects_are_no_errors(self):
        raised, cleared = 40, 10

        def meanwhile(code):
            """Between the number of the last event and the list of active alarms."""
            if code == GET_CURRENT_ALARM and not done:
                done.append(code)
                with BackendClient(system.path("state", "backend.sock")) as backend:
                    backend.raise_alarms(raised)
                    for serial in range(1, cleared + 1):
                        backend.clear_alarm(serial)

        done = [None]  # nothing before the agent starts
        device = {("BACKEND", "ADDRESS"): "unix:state/proxy.sock"}
        arguments = ["--address", "unix:state/backend.sock"]
        with TrapSystem(device=device, backend_arguments=arguments, start_agent=False) as system, \
                TrapReceiver() as receiver, \
                CountingProxy(system.path("state", "proxy.sock"), system.path("state", "backend.sock"), meanwhile):
            system.agent.start()
            system.add_destination(1, receiver.port)
            system.agent.stop()
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(cleared)
            done.clear()
            system.agent.start()
            common = lambda: [trap for trap in receiver.traps() if trap.oid == COMMON_TRAP]
            wait_for(lambda: len(common()) == raised + 2 * cleared, "the traps")
            log = system.agent.log()
            self.assertNotIn("repository failed", log)
            self.assertNotIn("clear type alarm", log)
            self.assertEqual(len(system.walk(ALARM_TABLE + ".9").splitlines()), raised)
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.clear_alarm(raised)
            wait_for(lambda: len(common()) == raised + 2 * cleared + 1, "the trap of a later event")
            self.assertNotIn("clear type alarm", system.agent.log())  # the list of active alarms is right


class AnotherStore(unittest.TestCase):
    """The backend's file is exchanged for one that has had more events than the agent has handled."""

    def exchange(self, system, raised):
        system.backend.stop()
        for name in os.listdir(system.path("state")):
            if name.startswith("backend.db"):
                os.remove(system.path("state", name))
        system.backend.start()
        with BackendClient(system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(raised)

    def serials(self, receiver):
        return [trap.value(9) for trap in receiver.traps() if trap.oid == COMMON_TRAP]

    def test_all_of_its_alarms_are_told(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(10)
            wait_for(lambda: len(self.serials(receiver)) == 10, "the first traps")
            system.agent.stop()
            self.exchange(system, 26)
            system.agent.start()
            wait_for(lambda: len(self.serials(receiver)) >= 36, "the traps of the other store")
            self.assertEqual(self.serials(receiver)[10:], list(range(1, 27)))
            self.assertEqual(len([line for line in system.agent.log().splitlines() if "is another one" in line]), 1)
            system.agent.stop()
            system.agent.start()  # it is the same one from here on
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.raise_alarms(1)
            wait_for(lambda: 27 in self.serials(receiver), "the trap of a further alarm")
            self.assertEqual(self.serials(receiver)[36:], [27])


if __name__ == "__main__":
    unittest.main()
