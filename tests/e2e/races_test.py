"""Everything at once, and an end in the midst of it: readers, writers, alarms and reloads beside each other; SIGTERM under
load, during the start and more than once; signals that are nobody's business.

TAMREL_SHUTDOWNS is how often each end under load is tried (10), each time at another moment. On the tsan build a race is
an exit code that is not 0.
"""

import os
import random
import signal
import socket
import subprocess
import threading
import time
import unittest

from actors import Actor, Alarms, Crowd
from backend_client import GET_CURRENT_ALARM, POWER_LOSS, BackendClient, record, uint
from harness import (AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, ENTERPRISE, TOPOLOGY, V2C, V3, System, free_port,
                     slowdown, wait_for)
from trap_receiver import TrapReceiver

SHUTDOWNS = int(os.environ.get("TAMREL_SHUTDOWNS", "10"))
TURNS = 15            # of each actor at least, when all go on beside each other
SECONDS_TO_END = 2.0  # from SIGTERM, idle or under load, on a machine that has time for it
BUSY = 4 * slowdown()  # it has a load of ours, other tests and a build; a call of the backend would be waited for 60 s
EVENTS_PER_SECOND = 200
AT_ONCE = 10          # alarms of one raise
ACTIVE_AT_MOST = 100  # alarms: walks are to come to an end on slow builds, too
SEED = 20240719
SYS_NAME = "1.3.6.1.2.1.1.5.0"
CONFIG = AGENT_CONFIG + "trapcommunity traps\n"


class Load(Crowd):
    """A system with a live and a dead destination, and all actors on it."""

    def __init__(self, system, receiver):
        self.system = system
        self.alarms = Alarms(system, AT_ONCE, ACTIVE_AT_MOST)
        self._hangups = threading.Lock()
        system.add_destination(1, receiver.port)
        system.add_destination(2, free_port(), version=3, user="admin")  # nobody there: its traps go nowhere
        self.actors = [
            Actor("walk of all", self._walk),
            Actor("walk of alarms", self._walk_alarms),
            Actor("walk over v3", self._walk_v3),
            Actor("get", self._get),
            Actor("set of a destination", self._set_destination),
            Actor("set that clears an alarm", self._clear),
            Actor("alarms", self.alarms.act, pause=AT_ONCE / EVENTS_PER_SECOND),
            Actor("alarms by vrxctl", self._vrxctl),
            Actor("reload", self._reload, pause=0.2),
        ]

    def start_again(self, program):
        """Before its own first line of code a program ends on a hangup: none is sent meanwhile."""
        with self._hangups:
            program.start()

    # A tool without an answer is no failure here: a program that ends answers nobody. Turns are what counts.

    def _succeeds(self, tool, *arguments, **more):
        return self.system.run(tool, *arguments, check=False, **more).returncode == 0

    def _walk(self, _turn):
        return self._succeeds("snmpbulkwalk", ENTERPRISE, options=["-Cc"])

    def _walk_alarms(self, _turn):
        return self._succeeds("snmpbulkwalk", ALARMS, options=["-Cc", "-Cr50"])

    def _walk_v3(self, _turn):
        return self._succeeds("snmpbulkwalk", ALARMS + ".4", version=V3, options=["-Cc"])

    def _get(self, _turn):
        return self._succeeds("snmpget", TOPOLOGY + ".5.1", CLEAR_ALARM, DESTINATIONS + ".6.1", SYS_NAME, version=V2C)

    def _set_destination(self, turn):
        row = DESTINATIONS + ".%d.3"
        if turn % 2:
            return self._succeeds("snmpset", row % 3, "i", "6", version=V3)
        return self._succeeds("snmpset", row % 6, "s", "127.0.0.1", row % 2, "u", "9", row % 5, "i", "2", row % 7, "i",
                              "3", row % 3, "i", "4", version=V3)

    def _clear(self, turn):
        # One that is there, or was: either way the backend is asked and an answer comes.
        self.system.run("snmpset", CLEAR_ALARM, "u", str(max(self.alarms.raised - turn % 50, 1)), version=V3, check=False)
        return True

    def _vrxctl(self, _turn):
        return self.system.vrxctl("list", check=False).returncode == 0

    def _reload(self, _turn):
        with self._hangups:
            os.kill(self.system.agent.pid, signal.SIGHUP)
        return True

    def wait_for_turns(self, count):
        wait_for(lambda: all(actor.turns >= count for actor in self.actors), "turns of every actor: %s" % self.told(),
                 seconds=300)


def seconds_to_end(program, number=signal.SIGTERM):
    """Sends the signal and gives (exit code, seconds until the end)."""
    start = time.monotonic()
    os.kill(program.pid, number)
    code = program.process.wait(60)
    return code, time.monotonic() - start


class Everything(unittest.TestCase):
    def test_all_actors_have_their_turns_beside_each_other(self):
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            with Load(system, receiver) as load:
                load.wait_for_turns(TURNS)
            self.assertTrue(system.agent.running())
            self.assertTrue(system.backend.running())
            self.assertEqual([a.failure for a in load.actors if a.failure], [], load.told())
            self.assertGreater(len(receiver.datagrams()), 0)
            self.assertIn("vrx-under-test", system.get(SYS_NAME, timeout=20))


class EndUnderLoad(unittest.TestCase):
    def setUp(self):
        self.chance = random.Random(SEED)

    def ends_in_time(self, program):
        code, seconds = seconds_to_end(program)
        self.assertEqual(code, 0, program.log()[-4000:])
        self.assertLess(seconds, SECONDS_TO_END * BUSY)

    def test_idle_programs_end_in_time(self):
        with System(agent_config=CONFIG) as system:
            for program in (system.agent, system.backend, system.agent):  # the last one without a backend
                self.ends_in_time(program)
                if program is system.agent:
                    program.start()

    def at_some_moment(self, load):
        """Waits until so and so many more alarms were raised."""
        until = load.alarms.raised + self.chance.randrange(AT_ONCE, EVENTS_PER_SECOND)
        wait_for(lambda: load.alarms.raised >= until, "alarms: " + load.told())

    def test_the_agent_ends_in_time(self):
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            with Load(system, receiver) as load:
                for _ in range(SHUTDOWNS):
                    self.at_some_moment(load)
                    self.ends_in_time(system.agent)
                    load.start_again(system.agent)

    def test_the_agent_ends_in_time_while_the_backend_hangs(self):
        with System(agent_config=CONFIG, device={("BACKEND", "CALL_DEADLINE_MS"): 60_000}) as system, \
                TrapReceiver() as receiver:
            with Load(system, receiver) as load:
                for _ in range(SHUTDOWNS):
                    self.at_some_moment(load)
                    os.kill(system.backend.pid, signal.SIGSTOP)
                    try:
                        self.ends_in_time(system.agent)
                    finally:
                        os.kill(system.backend.pid, signal.SIGCONT)
                    load.start_again(system.agent)

    def test_the_backend_ends_in_time(self):
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            with Load(system, receiver) as load:
                for _ in range(SHUTDOWNS):
                    self.at_some_moment(load)
                    self.ends_in_time(system.backend)
                    system.backend.start()
            self.assertTrue(system.agent.running())

    def test_a_client_that_says_nothing_or_half_of_it_does_not_hold_up_the_backend(self):
        with System() as system:
            with socket.socket(socket.AF_UNIX) as silent, socket.socket(socket.AF_UNIX) as half, \
                    BackendClient(system.path("state", "backend.sock")) as asked:
                for connection in (silent, half):
                    connection.connect(system.path("state", "backend.sock"))
                half.sendall(b"\x55" * 10)
                asked.call(record(GET_CURRENT_ALARM, uint(3, 0), uint(9, 1)))
                self.ends_in_time(system.backend)


class Signals(unittest.TestCase):
    """What the programs make of signals at any time."""

    def setUp(self):
        self.chance = random.Random(SEED)

    def test_an_end_during_the_start_is_a_clean_one(self):
        for name in ("agent", "backend"):
            with System() as system:
                program = getattr(system, name)
                program.stop()
                start = time.monotonic()
                program.start()
                whole = time.monotonic() - start
                program.stop()
                for _ in range(SHUTDOWNS):
                    program.start(wait=False)
                    try:
                        program.process.wait(self.chance.uniform(0, whole))  # some moment of the start
                    except subprocess.TimeoutExpired:
                        pass
                    code, _ = seconds_to_end(program)
                    # Before its first line of code the system ends it: it has begun nothing yet.
                    self.assertIn(code, (0, -signal.SIGTERM), program.log(since_start=True))
                    if program.log(since_start=True):
                        self.assertEqual(code, 0, program.log(since_start=True))
                program.start()
                self.assertIn("vrx-under-test", system.get(SYS_NAME, timeout=20))

    def test_ending_it_twice_is_as_good_as_once(self):
        for name in ("agent", "backend"):
            for number in (signal.SIGINT, signal.SIGTERM):
                with System() as system:
                    program = getattr(system, name)
                    os.kill(program.pid, number)
                    try:
                        for _ in range(3):
                            os.kill(program.pid, number)
                    except ProcessLookupError:
                        pass
                    self.assertEqual(program.process.wait(60), 0)

    def test_a_broken_pipe_and_a_hangup_end_nothing(self):
        with System() as system:
            for program in (system.agent, system.backend):
                for number in (signal.SIGPIPE, signal.SIGHUP):
                    os.kill(program.pid, number)
            self.assertEqual(system.vrxctl("raise", str(POWER_LOSS), "someone", "once").count("\n"), 1)
            self.assertIn("vrx-under-test", system.get(SYS_NAME, timeout=20))
            self.assertIn(ALARMS + ".1.1", system.walk(ALARMS, timeout=20))
            self.assertEqual((system.agent.running(), system.backend.running()), (True, True))

    def test_many_hangups_at_once_end_nothing(self):
        with System() as system:
            for _ in range(200):
                os.kill(system.agent.pid, signal.SIGHUP)
            self.assertIn("vrx-under-test", system.get(SYS_NAME, timeout=20))


if __name__ == "__main__":
    unittest.main()
