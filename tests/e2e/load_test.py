"""Long hauls: reloads, kills and a steady load beside the full work of an agent. Every request is answered at its first
try, every event gives exactly its traps.

As run by default they are short. The long hauls:

    TAMREL_RELOADS=300         reloads beside walks, SETs and 200 events a second
    TAMREL_ENGINE_KILLS=50     kill -9 of an agent whose traps an SNMPv3 receiver has seen before
    TAMREL_SOAK_SECONDS=1800   500 events a second with walks beside them; from 600 s on memory is held to its bound, too
"""

import json
import os
import time
import unittest

from actors import Actor, Alarms, Crowd
from harness import AGENT_CONFIG, ALARMS, CLEAR_ALARM, DESTINATIONS, ENTERPRISE, TOPOLOGY, V3, System, values, wait_for
from reload_test import CONTACT, ENGINE_BOOTS, answer
from trap_receiver import COLD_START, TrapReceiver, decode
from traps_test import COMMON, NAMED, NAMED_TRAP, SnmpTrapd, TrapSystem

RELOADS = int(os.environ.get("TAMREL_RELOADS", "20"))
ENGINE_KILLS = int(os.environ.get("TAMREL_ENGINE_KILLS", "3"))
SOAK_SECONDS = int(os.environ.get("TAMREL_SOAK_SECONDS", "10"))

FAULTY_EVERY = 10            # reloads
SETTLED_AFTER = 300          # seconds: by then all that is kept is there
GROWTH_KB = 1024             # of resident memory after that
SETTLED_SOAK = 2 * SETTLED_AFTER
ONE_TRY = {"timeout": 30, "retries": 0}
CONFIG = AGENT_CONFIG + "trapcommunity traps\n"
SERIAL_BINDING = 9
CONFIG_ERROR = 78


class CountingReceiver(TrapReceiver):
    """Keeps of each trap of an alarm nothing but its serial number's count: one for the raise, one for the clear."""

    def __init__(self):
        super().__init__()
        self.traps_of = {}   # serial number -> traps
        self.others = 0
        self.total = 0
        self.highest = 0     # serial number
        self.late_raises = 0  # raises that came after one with a higher number

    def take(self, datagram):
        trap = decode(datagram)
        if trap.oid == COLD_START:
            self.others += 1
            return
        serial = trap.value(SERIAL_BINDING)
        seen = self.traps_of.get(serial, 0)
        if seen == 0:
            self.late_raises += serial < self.highest
            self.highest = max(self.highest, serial)
        self.traps_of[serial] = seen + 1
        self.total += 1


class Load(Crowd):
    """Walks, GETs, SETs and events, none of which may ever fail; `pause`: seconds between two requests of a kind."""

    def __init__(self, system, events_per_second, active, at_once=10, pause=0.0):
        self.system = system
        self.alarms = Alarms(system, at_once, active)
        # Each turn clears as many alarms as it raises: two events for one of `at_once`.
        self.actors = [
            Actor("alarms", self.alarms.act, pause=2 * at_once / events_per_second),
            Actor("walk of alarms", self._walk_alarms, pause),
            Actor("walk over v3", self._walk_v3, pause),
            Actor("get", self._get, pause),
            Actor("set", self._set, pause),
        ]

    def __enter__(self):
        self.alarms.fill()
        return super().__enter__()

    def _walk_alarms(self, _turn):
        rows = self.system.bulkwalk(ALARMS + ".4", repetitions=50, **ONE_TRY)
        numbers = [int(name.split(".")[-1]) for name, _ in values(rows)]
        return numbers == sorted(set(numbers))

    def _walk_v3(self, _turn):
        return ENTERPRISE in self.system.bulkwalk(DESTINATIONS, version=V3, **ONE_TRY)

    def _get(self, _turn):
        got = values(self.system.get(TOPOLOGY + ".5.1", CLEAR_ALARM, DESTINATIONS + ".6.1", **ONE_TRY))
        return len(got) == 3 and not any("No Such" in value for _, value in got)

    def _set(self, turn):
        row = DESTINATIONS + ".%d.3"
        if turn % 2:
            self.system.set(row % 3, "i", "6", **ONE_TRY)
        else:  # a destination for named traps where nobody listens
            self.system.set(row % 6, "s", "127.0.0.1", row % 2, "u", "9", row % 5, "i", "2", row % 7, "i", "4", row % 3,
                            "i", "4", **ONE_TRY)
        return True

    def check(self, test):
        for actor in self.actors:
            test.assertEqual((actor.name, actor.failures, actor.failure), (actor.name, 0, None))
            test.assertGreater(actor.turns, 0, actor.name)


def wait_for_traps(receiver, alarms):
    """All of them and not one more."""
    wanted = alarms.raised + alarms.cleared
    wait_for(lambda: receiver.total >= wanted, "%d traps" % wanted, seconds=120)
    time.sleep(0.2)  # one that should not be there could still come
    return wanted


def check_exact(test, receiver, alarms):
    wanted = wait_for_traps(receiver, alarms)
    test.assertEqual(receiver.total, wanted)
    test.assertEqual(len(receiver.traps_of), alarms.raised)
    test.assertEqual(sum(1 for count in receiver.traps_of.values() if count == 2), alarms.cleared)
    test.assertEqual(receiver.late_raises, 0)


class ReloadsUnderLoad(unittest.TestCase):
    def test_no_request_fails_no_event_is_lost_and_faults_change_nothing(self):
        with System(agent_config=CONFIG) as system, CountingReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            boots = answer(system, V3, ENGINE_BOOTS)
            taken = refused = 0
            with Load(system, events_per_second=200, active=100) as load:
                contact = ""
                for number in range(1, RELOADS + 1):
                    faulty = number % FAULTY_EVERY == 0
                    line = "sysKontact nobody\n" if faulty else "sysContact shift %d\n" % number
                    system.write("etc/vrx-agentd.conf", CONFIG + line)
                    done = system.vrxctl("reload", check=False)
                    if faulty:
                        refused += 1
                        self.assertEqual(done.returncode, CONFIG_ERROR, done.stdout + done.stderr)
                        self.assertIn("vrx-agentd.conf:%d: " % (CONFIG.count("\n") + 1), done.stdout + done.stderr)
                    else:
                        taken += 1
                        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                        contact = "shift %d" % number
                    self.assertEqual(answer(system, V3), contact)
            load.check(self)
            check_exact(self, receiver, load.alarms)
            self.assertEqual(answer(system, V3, ENGINE_BOOTS), boots)
            agent = json.loads(system.vrxctl("status", "--json"))["agent"]
            self.assertEqual((agent["reloads_taken"], agent["reloads_refused"]), (taken, refused))
            print("%d reloads taken, %d refused; turns: %s; %d alarms raised, %d cleared, %d traps"
                  % (taken, refused, load.told(), load.alarms.raised, load.alarms.cleared, receiver.total), flush=True)


class TrapsAfterKills(unittest.TestCase):
    def test_a_receiver_of_snmpv3_that_knows_the_agent_goes_on_taking_its_traps(self):
        with TrapSystem() as system, SnmpTrapd(system) as receiver:
            system.add_destination(1, receiver.port, version=3, trap_type=NAMED, user="sealed")
            system.raise_alarm(serial=1)
            self.wait_for_alarm(receiver, 1)
            for kill in range(1, ENGINE_KILLS + 1):
                system.agent.kill()
                system.agent.start()
                system.raise_alarm(serial=1 + kill)
                self.wait_for_alarm(receiver, 1 + kill)

    @staticmethod
    def wait_for_alarm(receiver, serial):
        value = ".9.0 = Gauge32: %d" % serial
        wait_for(lambda: any(NAMED_TRAP in line and value in line for line in receiver.traps()),
                 "the trap of alarm %d at snmptrapd" % serial)


class Soak(unittest.TestCase):
    RATE = 500

    def test_a_steady_load_grows_nothing(self):
        with System(agent_config=CONFIG) as system, CountingReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            samples = []
            with Load(system, events_per_second=self.RATE, active=1000, at_once=25, pause=0.2) as load:
                start = time.monotonic()
                while time.monotonic() < start + SOAK_SECONDS:
                    time.sleep(1)
                    samples.append((time.monotonic() - start,) + usage(system.agent.pid))
                seconds = time.monotonic() - start
            load.check(self)
            check_exact(self, receiver, load.alarms)
            settled_at = min(SETTLED_AFTER, SOAK_SECONDS / 2)
            before = [sample for sample in samples if sample[0] <= settled_at]
            after = [sample for sample in samples if sample[0] > settled_at]
            for column, what in ((2, "descriptors"), (3, "threads")):
                # One more comes and goes with a connection; what leaks is there in all of the last ones.
                last = [sample[column] for sample in after[-(len(after) + 1) // 2:]]
                self.assertLessEqual(min(last), max(s[column] for s in before), what)
            growth = after[-1][1] - before[-1][1]
            print("%.0f s, %.0f events a second, %d traps; turns: %s; memory %d kB, after %.0f s %+d kB, descriptors %d, "
                  "threads %d" % (seconds, (load.alarms.raised + load.alarms.cleared) / seconds, receiver.total,
                                  load.told(), after[-1][1], settled_at, growth, after[-1][2], after[-1][3]), flush=True)
            if SOAK_SECONDS >= SETTLED_SOAK:
                self.assertLess(growth, GROWTH_KB)


def usage(pid):
    """Resident memory in kB, open descriptors, threads."""
    with open("/proc/%d/status" % pid, encoding="ascii") as file:
        status = dict(line.split(":", 1) for line in file)
    return int(status["VmRSS"].split()[0]), len(os.listdir("/proc/%d/fd" % pid)), int(status["Threads"])


if __name__ == "__main__":
    unittest.main()
