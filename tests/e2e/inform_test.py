"""Informs: each arrives until it is acknowledged and never again after that, in order, over receivers that are away and
over kill -9; what one receiver does touches no other. Receivers are our own and Net-SNMP's snmptrapd.

The long version: VRX_INFORM_AWAY (seconds, default 0) is how long the receiver is away while VRX_INFORM_ALARMS
(default 300) alarms are raised:

    VRX_INFORM_AWAY=120 VRX_INFORM_ALARMS=2000 python3 -m unittest -v inform_test.Away
"""

import json
import os
import shutil
import subprocess
import time
import unittest

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint
from harness import AGENT_CONFIG, PROGRAM_DIR, System, free_port, values, wait_for
from inform_receiver import InformReceiver, TrapDaemon
from reload_test import reload
from trap_receiver import COLD_START, TrapReceiver, decode
from traps_test import BOTH, COMMON_BASE, COMMON_TIME, COMMON_TRAP, NAMED_BASE, NAMED_TIME, NAMED_TRAP, TrapSystem
from traps_test import expected_bindings
from udp_relay import UdpRelay

DISK_FAILED = 4295229443  # its location is that of its first parameters
SERIAL, CATEGORY = COMMON_BASE + ".9.0", COMMON_BASE + ".11.0"

AWAY = float(os.environ.get("VRX_INFORM_AWAY", "0"))
ALARMS = int(os.environ.get("VRX_INFORM_ALARMS", "300"))

# A first wait that also a busy machine's answer is in time for, and one for tests in which there is none.
PATIENT = "vrxInformRetry 1000\nvrxInformBackoff 2000\n"
QUICK = "vrxInformRetry 100\nvrxInformBackoff 400\n"
USER = "-v3 -u informer -l authPriv -a SHA-256 -A informer-auth-pass -x AES -X informer-priv-pass"
DAEMON = """
createUser informer SHA-256 "informer-auth-pass" AES "informer-priv-pass"
createUser signer SHA "informer-auth-pass"
createUser plain
createUser strong SHA-512 "informer-auth-pass" AES-256 "informer-priv-pass"
authUser log informer priv
authUser log signer auth
authUser log plain noauth
authUser log strong priv
authCommunity log informs
"""


def sink(port):
    return "informsink 127.0.0.1 informs %d\n" % port


def session(port, arguments=USER):
    return "trapsess -Ci %s 127.0.0.1:%d\n" % (arguments, port)


class InformSystem(TrapSystem):
    def __init__(self, lines, config=AGENT_CONFIG + PATIENT, **more):
        super().__init__(config=config + lines, **more)

    def __enter__(self):
        super().__enter__()
        try:
            self.wait_log("subscribed at")  # what was raised before the first contact is no event
        except BaseException:
            self.close()
            raise
        return self

    def raise_alarms(self, number):
        with BackendClient(self.path("state", "backend.sock")) as backend:
            backend.raise_alarms(number)

    def informs(self):
        """Status of the receivers, by name."""
        status = json.loads(self.vrxctl("status", "--json"))
        return {inform["destination"]: inform for inform in status["informs"]}

    def inform(self, port):
        return self.informs()["127.0.0.1:%d" % port]

    def wait_inform(self, port, condition, what):
        return wait_for(lambda: (lambda status: status if condition(status) else None)(self.inform(port)), what)


def once(serials):
    """Without repetitions, which come directly after what they repeat: an answer may always be too late."""
    return [serial for place, serial in enumerate(serials) if place == 0 or serials[place - 1] != serial]


def is_balanced(inform):
    return inform["restored"] + inform["considered"] == (
        inform["filtered"] + inform["repeated"] + inform["acknowledged"] + inform["waiting"]
        + sum(inform["dropped"].values()))


class Content(unittest.TestCase):
    def test_informs_have_the_bindings_of_the_traps(self):
        with InformReceiver() as receiver, TrapReceiver() as traps, \
                InformSystem("vrxInformTraps 3\n" + sink(receiver.port)) as system:
            system.add_destination(1, traps.port, trap_type=BOTH, user="traps")
            system.raise_alarm()
            wait_for(lambda: len(receiver.informs()) >= 3, "the informs")
            received = [inform.trap for inform in receiver.informs()]
            self.assertEqual([trap.oid for trap in received], [COLD_START, COMMON_TRAP, NAMED_TRAP])
            self.assertEqual({(trap.version, trap.community) for trap in received}, {(1, "informs")})
            self.assertEqual([tuple(b) for b in received[1].bindings], expected_bindings(COMMON_BASE, COMMON_TIME))
            self.assertEqual([tuple(b) for b in received[2].bindings], expected_bindings(NAMED_BASE, NAMED_TIME))
            sent = [trap for trap in wait_for(lambda: traps.traps()[1:] and traps.traps(), "the traps")
                    if trap.oid != COLD_START]
            self.assertEqual([trap.bindings for trap in received[1:]], [trap.bindings for trap in sent])
            status = system.wait_inform(receiver.port, lambda inform: inform["acknowledged"] == 3, "the status")
            self.assertEqual((status["state"], status["sent"]), ("answers", 3))
            self.assertTrue(is_balanced(status), status)

    def test_each_receiver_gets_the_traps_of_its_type(self):
        with InformReceiver() as common, InformReceiver() as named, \
                InformSystem("vrxInformTraps 1\n" + sink(common.port) + "vrxInformTraps 4\n" + sink(named.port)) as system:
            system.raise_alarm()
            for receiver, oid in ((common, COMMON_TRAP), (named, NAMED_TRAP)):
                wait_for(lambda: len(receiver.informs()) == 2, "the informs")
                self.assertEqual([inform.trap.oid for inform in receiver.informs()], [COLD_START, oid])

    def test_an_inform_that_is_sent_again_is_the_same(self):
        with InformReceiver() as receiver:
            receiver.lose = 3
            with InformSystem(QUICK + sink(receiver.port)) as system:
                system.raise_alarm()
                status = system.wait_inform(receiver.port, lambda inform: inform["acknowledged"] == 2, "the informs")
                informs = receiver.informs()
                self.assertEqual(once([inform.trap.oid for inform in informs]), [COLD_START, COMMON_TRAP])
                self.assertEqual(len(set(receiver.datagrams())), 2)  # request ID and time included
                self.assertEqual(once([inform.request_id - informs[0].request_id for inform in informs]), [0, 1])
                self.assertGreaterEqual(status["resent"], 3)
                self.assertEqual((status["sent"], status["resent"]), (2, len(informs) - 2))

    def test_an_inform_that_is_refused_is_dropped_and_the_next_one_sent(self):
        with InformReceiver() as receiver:
            receiver.error = 1  # tooBig
            with InformSystem(sink(receiver.port)) as system:
                system.wait_inform(receiver.port, lambda inform: inform["dropped"]["refused"] == 1, "the refusal")
                receiver.error = 0
                system.raise_alarm()
                wait_for(lambda: len(receiver.informs()) == 2, "the alarm")
                self.assertIn("tooBig", system.inform(receiver.port)["last_failure"])


class Defaults(unittest.TestCase):
    def test_a_receiver_that_is_slow_to_acknowledge_gets_each_once(self):
        """snmptrapd acknowledges after its handler has ended, which in Perl takes more than a second now and then."""
        config = DAEMON.replace("log informs", "log,execute informs") + "traphandle default /bin/sleep 1.5\n"
        with TrapDaemon(config) as daemon, \
                InformSystem(session(daemon.port, "-v2c -c informs"), config=AGENT_CONFIG) as system:
            system.raise_alarms(2)
            status = system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 3, "the informs")
            self.assertEqual(daemon.serials(), [1, 2])
            self.assertEqual((status["sent"], status["resent"]), (3, 0))


class Levels(unittest.TestCase):
    def test_snmptrapd_gets_informs_of_all_versions_and_levels(self):
        users = {
            "v2c": "-v2c -c informs",
            "plain": "-v3 -u plain -l noAuthNoPriv",
            "signer": "-v3 -u signer -l authNoPriv -a SHA -A informer-auth-pass",
            "informer": USER,
            "strong": "-v 3 -u strong -l authPriv -a SHA-512 -A informer-auth-pass -x AES-256 -X informer-priv-pass",
        }
        daemons = {user: TrapDaemon(DAEMON) for user in users}
        lines = "".join(session(daemons[user].port, arguments) for user, arguments in users.items())
        try:
            for daemon in daemons.values():
                daemon.start()
            with InformSystem(lines) as system, TrapDaemon(DAEMON) as traps:
                system.add_destination(1, traps.port, user="informs")
                system.raise_alarm()
                expected = wait_for(lambda: [line for line in traps.lines() if len(line) > 2], "the trap")[0]
                for user, daemon in daemons.items():
                    with self.subTest(user=user):
                        wait_for(lambda: len(daemon.lines()) >= 2, "the informs")
                        line = daemon.lines()[1]
                        self.assertEqual(list(line)[1:], list(expected)[1:])
                        self.assertEqual(list(line.values())[1:], list(expected.values())[1:])
                        system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 2, "the status")
        finally:
            for daemon in daemons.values():
                daemon.__exit__()

    def test_a_receiver_that_comes_back_as_another_engine_is_met_anew(self):
        with TrapDaemon(DAEMON) as daemon, InformSystem(session(daemon.port)) as system:
            system.raise_alarms(1)
            wait_for(lambda: daemon.serials() == [1], "the first alarm")
            engine = system.inform(daemon.port)["engine"]
            daemon.kill()
            daemon.lose_state()
            daemon.start()
            system.raise_alarms(1)
            wait_for(lambda: daemon.serials() == [1, 2], "the second alarm")
            status = system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 3, "the status")
            self.assertNotEqual(status["engine"], engine)

    def test_a_receiver_that_comes_back_with_fewer_starts_is_met_anew(self):
        with TrapDaemon(DAEMON) as daemon, InformSystem(session(daemon.port)) as system:
            kept = os.path.join(daemon.folder, "kept")
            daemon.stop()
            shutil.copytree(daemon.state(), kept)
            daemon.start()
            for _ in range(3):
                daemon.stop()
                daemon.start()
            system.raise_alarms(1)
            wait_for(lambda: daemon.serials() == [1], "the first alarm")
            engine = system.inform(daemon.port)["engine"]
            daemon.stop()
            daemon.lose_state()
            shutil.copytree(kept, daemon.state())
            daemon.start()
            system.raise_alarms(1)
            wait_for(lambda: daemon.serials() == [1, 2], "the second alarm")
            self.assertEqual(system.inform(daemon.port)["engine"], engine)

    def test_wrong_passphrases_are_told_and_nothing_is_lost(self):
        wrong = USER.replace("informer-auth-pass", "another-auth-pass")
        with TrapDaemon(DAEMON) as daemon, InformSystem(session(daemon.port, wrong)) as system:
            system.raise_alarms(2)
            status = system.wait_inform(daemon.port, lambda inform: "reports" in inform["last_failure"], "the failure")
            self.assertEqual((status["state"], status["acknowledged"]), ("sending fails", 0))
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG + PATIENT + session(daemon.port))
            reload(system)
            wait_for(lambda: daemon.serials() == [1, 2], "the alarms")

    def test_the_informer_cannot_ask_the_agent_with_its_keys(self):
        """The user exists for the receiver's engine alone, although the agent's list of users has it."""
        with TrapDaemon(DAEMON) as daemon, InformSystem("rouser informer priv\n" + session(daemon.port)) as system:
            system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 1, "the coldStart")
            engine = system.inform(daemon.port)["engine"]
            for more in ([], ["-e", "0x" + engine]):
                done = system.run("snmpget", "1.3.6.1.2.1.1.5.0", version=USER.split() + more, check=False, timeout=1,
                                  retries=0)
                self.assertNotEqual(done.returncode, 0, done.stdout)
            self.assertEqual(len(values(system.get("1.3.6.1.2.1.1.5.0"))), 1)


class Away(unittest.TestCase):
    def check_away(self, daemon, system, line):
        with daemon, system:
            system.raise_alarms(3)
            wait_for(lambda: daemon.serials() == [1, 2, 3], "the first alarms")
            system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 4, "their acknowledgements")
            daemon.kill()
            end = time.monotonic() + AWAY
            left = ALARMS
            while left > 0:
                now = min(left, max(1, ALARMS // 20))
                system.raise_alarms(now)
                left -= now
                time.sleep(AWAY / 20)
            time.sleep(max(0, end - time.monotonic()))
            system.wait_inform(daemon.port, lambda inform: inform["waiting"] == ALARMS, "all to wait")
            before = time.monotonic()
            daemon.start()
            wait_for(lambda: 3 + ALARMS in daemon.serials(), "all alarms", 120)
            took = time.monotonic() - before
            status = system.wait_inform(daemon.port, lambda inform: inform["waiting"] == 0, "the status")
            self.assertEqual(once(daemon.serials()), list(range(1, 4 + ALARMS)))
            self.assertLessEqual(len(daemon.serials()) - 3 - ALARMS, status["resent"])
            self.assertEqual(status["acknowledged"], 4 + ALARMS)
            self.assertEqual(status["sent"], 4 + ALARMS)
            self.assertTrue(is_balanced(status), status)
            print("%s: away for %.0f s, %d alarms, all after %.1f s, %d times sent again"
                  % (line, AWAY, ALARMS, took, status["resent"]), flush=True)

    def test_all_arrive_once_when_the_receiver_is_back_v2c(self):
        daemon = TrapDaemon(DAEMON)
        self.check_away(daemon, InformSystem(session(daemon.port, "-v2c -c informs")), "SNMPv2c")

    def test_all_arrive_once_when_the_receiver_is_back_v3(self):
        daemon = TrapDaemon(DAEMON)
        self.check_away(daemon, InformSystem(session(daemon.port)), "SNMPv3 authPriv")

    def test_all_arrive_after_a_kill_of_the_agent(self):
        with TrapDaemon(DAEMON) as daemon, InformSystem(session(daemon.port)) as system:
            system.raise_alarms(5)
            wait_for(lambda: len(daemon.serials()) == 5, "the first alarms")
            system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 6, "their acknowledgements")
            daemon.kill()
            expected = 5
            for _ in range(3):
                system.raise_alarms(20)
                expected += 20
                system.wait_inform(daemon.port, lambda inform: inform["waiting"] >= expected - 5, "all to wait")
                system.agent.kill()
                system.agent.start()
            daemon.start()
            wait_for(lambda: expected in daemon.serials(), "all alarms")
            status = system.wait_inform(daemon.port, lambda inform: inform["waiting"] == 0, "the status")
            self.assertEqual(once(daemon.serials()), list(range(1, expected + 1)))
            self.assertTrue(is_balanced(status), status)

    def test_nothing_comes_again_after_its_acknowledgement(self):
        with InformReceiver() as receiver, InformSystem(sink(receiver.port)) as system:
            highest = 0
            for _ in range(3):
                system.raise_alarms(30)
                highest += 30
                wait_for(lambda: highest in receiver.serials(), "the alarms")
                # On disk: what came last is gone from the file.
                wait_for(lambda: self.on_disk(system) == 0, "the acknowledgements to be on disk")
                system.agent.kill()
                system.agent.start()
            system.raise_alarm(serial=500)
            wait_for(lambda: 500 in receiver.serials(), "the last alarm")
            self.assertEqual(receiver.serials(), list(range(1, highest + 1)) + [500])

    @staticmethod
    def on_disk(system):
        done = subprocess.run(["sqlite3", system.path("state", "informs.db"), "SELECT count(*) FROM inform"], check=True,
                              stdout=subprocess.PIPE, text=True)
        return int(done.stdout)

    def test_lost_acknowledgements_cost_a_repetition_and_nothing_else(self):
        with InformReceiver() as receiver, InformSystem(sink(receiver.port)) as system:
            wait_for(lambda: len(receiver.informs()) == 1, "the coldStart")
            receiver.lose = 2
            system.raise_alarms(10)
            wait_for(lambda: 10 in receiver.serials(), "the alarms")
            self.assertEqual(once(receiver.serials(acknowledged=True)), list(range(1, 11)))
            self.assertEqual(receiver.serials()[:3], [1, 1, 1])
            self.assertEqual(once(receiver.serials()), list(range(1, 11)))


class Window(unittest.TestCase):
    """Over a path of some length that loses datagrams."""

    SLOTS, CHANGES = 60, 5  # of each slot's alarm, raised and cleared by turns

    def change_alarms(self, system):
        """Raises and clears the alarm of each slot by turns: serial numbers by slot, in the order of their occurrences."""
        serials = [[] for _ in range(self.SLOTS)]
        with BackendClient(system.path("state", "backend.sock")) as backend:
            for change in range(self.CHANGES):
                for slot in range(self.SLOTS):
                    if change % 2:
                        backend.clear_alarm(serials[slot][-1])
                    else:
                        raised = backend.call(record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 3),
                                                     text(8, "%d,CTE0,1" % slot)))
                        serials[slot].append(int.from_bytes(raised[-4:], "little"))
        return serials

    def check(self, received, serials):
        """received: (serial number, category) in the order of the acknowledgements' arrival, repetitions left in."""
        for of_slot in serials:
            expected = [(serial, category) for serial in of_slot for category in (1, 2)][:self.CHANGES]
            came = [one for one in received if one[0] in of_slot]
            first = [one for place, one in enumerate(came) if one not in came[:place]]
            self.assertEqual(first, expected)
            self.assertEqual(came, sorted(came, key=expected.index), "none after a later one of its alarm")

    def run_through(self, port, lines, received):
        with InformSystem(lines, config=AGENT_CONFIG + "vrxInformRetry 1000\nvrxInformWindow 16\n") as system:
            serials = self.change_alarms(system)
            everything = 1 + self.SLOTS * self.CHANGES
            status = system.wait_inform(port, lambda inform: inform["acknowledged"] == everything, "all")
            self.check(received(), serials)
            self.assertEqual(status["sent"], everything)
            self.assertGreater(status["resent"], 0)
            self.assertTrue(is_balanced(status), status)

    def test_each_alarms_order_is_kept_where_datagrams_are_lost_v2c(self):
        with InformReceiver() as receiver, UdpRelay(receiver.port, delay=0.005, loss=0.05) as relay:
            self.run_through(relay.port, sink(relay.port), lambda: [
                (inform.trap.value(9), inform.trap.value(11)) for inform in receiver.informs() if inform.trap.bindings])

    def test_each_alarms_order_is_kept_where_datagrams_are_lost_v3(self):
        with TrapDaemon(DAEMON) as daemon, UdpRelay(daemon.port, delay=0.005, loss=0.05) as relay:
            def received():
                return [(int(line[SERIAL].split()[-1]), int(line[CATEGORY].split()[-1])) for line in daemon.lines()
                        if SERIAL in line]
            self.run_through(relay.port, session(relay.port), received)

    def test_an_inform_that_is_lost_again_is_noticed_again(self):
        class Forgetful(InformReceiver):
            """Loses the answers to the first three messages of one inform."""
            left = 3

            def took(self, datagram, sender):
                trap = decode(datagram)
                self.lose = 1 if self.left > 0 and trap.bindings and trap.value(9) == 40 else 0
                self.left -= self.lose
                super().took(datagram, sender)

        with Forgetful() as receiver, InformSystem(sink(receiver.port), config=AGENT_CONFIG +
                                                   "vrxInformRetry 600000\n") as system:
            with BackendClient(system.path("state", "backend.sock")) as backend:
                backend.call(*[record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 3), text(8, "%d,CTE0,1" % slot))
                               for slot in range(300)])
            status = system.wait_inform(receiver.port, lambda inform: inform["acknowledged"] == 301, "all")
            self.assertEqual((status["sent"], status["resent"]), (301, 3))
            self.assertEqual(receiver.serials().count(40), 4)

    def test_what_a_killed_agent_had_under_way_comes_again(self):
        with InformReceiver() as receiver, UdpRelay(receiver.port, delay=0.005) as relay, \
                InformSystem(sink(relay.port)) as system:
            serials = self.change_alarms(system)
            wait_for(lambda: len(receiver.informs()) > 50, "some informs")
            system.agent.kill()
            system.agent.start()

            def came():
                return {(inform.trap.value(9), inform.trap.value(11)) for inform in receiver.informs()
                        if inform.trap.bindings}
            wait_for(lambda: len(came()) == self.SLOTS * self.CHANGES, "all")
            system.wait_inform(relay.port, lambda inform: inform["waiting"] == 0, "all to be acknowledged")
            self.assertEqual({serial for serial, _ in came()}, {serial for of_slot in serials for serial in of_slot})


class Isolation(unittest.TestCase):
    def test_a_dead_receiver_delays_neither_another_nor_traps(self):
        with InformReceiver() as alive, InformReceiver() as dead, TrapReceiver() as traps:
            dead.answering = False
            lines = (sink(dead.port) + session(free_port()) + "trapsess -Ci %s no-such-host.invalid\n" % USER +
                     sink(alive.port))
            with InformSystem(lines) as system:
                system.add_destination(1, traps.port, trap_type=1, user="traps")
                for serial in range(1, 31):
                    system.raise_alarm(serial=serial)
                wait_for(lambda: 30 in alive.serials(), "the informs")
                wait_for(lambda: len(traps.traps()) == 30, "the traps")
                self.assertEqual(alive.serials(), list(range(1, 31)))
                self.assertEqual([trap.value(9) for trap in traps.traps()], list(range(1, 31)))
                states = {name: (inform["state"], inform["acknowledged"]) for name, inform in system.informs().items()}
                self.assertEqual(states["127.0.0.1:%d" % alive.port], ("answers", 31))
                self.assertEqual(states["no-such-host.invalid:162"], ("its name has no address yet", 0))
                self.assertEqual(states["127.0.0.1:%d" % dead.port][1], 0)
                self.assertEqual(system.inform(dead.port)["waiting"], 31)
                self.assertEqual(dead.serials(), [])  # the coldStart has no answer yet: what follows waits
                dead.answering = True
                wait_for(lambda: 30 in dead.serials(), "the informs")
                self.assertEqual(dead.serials(acknowledged=True), list(range(1, 31)))

    def test_a_full_queue_refuses_the_newest(self):
        with InformReceiver() as receiver:
            receiver.answering = False
            with InformSystem("vrxInformQueue 5\n" + sink(receiver.port)) as system:
                system.raise_alarms(8)
                status = system.wait_inform(receiver.port, lambda inform: inform["dropped"]["queue full"] == 4, "drops")
                self.assertEqual(status["waiting"], 5)
                self.assertEqual(len(system.wait_log("5 informs wait for it, more are dropped")), 1)
                receiver.answering = True
                wait_for(lambda: 4 in receiver.serials(acknowledged=True), "those that found a place")
                self.assertEqual(receiver.serials(acknowledged=True), [1, 2, 3, 4])
                system.raise_alarm(serial=100)
                wait_for(lambda: 100 in receiver.serials(), "another one")
                system.wait_log("its queue takes informs again")
                self.assertTrue(is_balanced(system.inform(receiver.port)))

    def test_after_so_many_retries_as_configured_an_inform_is_given_up(self):
        with InformReceiver() as receiver:
            receiver.answering = False
            with InformSystem(session(receiver.port, "-v2c -c informs -r 2 -t 0.1")) as system:
                status = system.wait_inform(receiver.port, lambda inform: inform["dropped"]["given up"] == 1, "the end")
                self.assertEqual((status["sent"], status["resent"]), (1, 2))


class Reloads(unittest.TestCase):
    def test_a_reload_adds_and_removes_receivers_while_others_go_on(self):
        with InformReceiver() as stays, InformReceiver() as goes, InformReceiver() as comes:
            goes.answering = False
            with InformSystem(sink(stays.port) + sink(goes.port)) as system:
                system.raise_alarms(3)
                wait_for(lambda: 3 in stays.serials(), "the alarms")
                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + PATIENT + sink(stays.port) + sink(comes.port))
                said = reload(system)
                self.assertIn("inform destination 127.0.0.1:%d is not configured any more: 4 informs that waited for it "
                              "are dropped" % goes.port, said)
                system.raise_alarms(3)
                wait_for(lambda: 6 in stays.serials() and 6 in comes.serials(), "the alarms")
                self.assertEqual(stays.serials(), [1, 2, 3, 4, 5, 6])
                self.assertEqual(comes.serials(), [4, 5, 6])
                status = json.loads(system.vrxctl("status", "--json"))
                self.assertEqual({inform["destination"] for inform in status["informs"]},
                                 {"127.0.0.1:%d" % stays.port, "127.0.0.1:%d" % comes.port})
                self.assertEqual(status["former_informs"]["dropped"]["destination removed"], 4)
                self.assertTrue(is_balanced(status["former_informs"]), status["former_informs"])

    def test_what_waits_goes_where_its_receiver_is_then(self):
        with InformReceiver() as receiver:
            receiver.answering = False
            with InformSystem(sink(receiver.port)) as system:
                system.raise_alarms(3)
                system.wait_inform(receiver.port, lambda inform: inform["waiting"] == 4, "all to wait")
                system.write("etc/vrx-agentd.conf",
                             AGENT_CONFIG + PATIENT + "informsink 127.0.0.1 another %d\n" % receiver.port)
                reload(system)
                receiver.answering = True
                wait_for(lambda: receiver.serials(acknowledged=True) == [1, 2, 3], "all")
                self.assertEqual(receiver.informs()[-1].trap.community, "another")

    def test_a_faulty_line_at_the_start_drops_no_queue(self):
        with InformReceiver() as receiver:
            receiver.answering = False
            with InformSystem(sink(receiver.port)) as system:
                system.raise_alarms(3)
                system.wait_inform(receiver.port, lambda inform: inform["waiting"] == 4, "all to wait")
                system.agent.stop()
                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + PATIENT + "informsink 127.0.0.1: informs\n")
                system.agent.start()
                self.assertEqual(system.informs(), {})
                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + PATIENT + sink(receiver.port))
                receiver.answering = True
                reload(system)
                wait_for(lambda: receiver.serials(acknowledged=True) == [1, 2, 3], "all")

    def test_faults_are_told_with_file_and_line(self):
        lines = [
            ("informsink", "Blank line following informsink token."),
            ("informsink 127.0.0.1", "informsink: it has no community, and no trapcommunity line stands before it"),
            ("informsink 127.0.0.1 informs 70000", "informsink: the port is no number from 1 to 65535: 70000"),
            ("informsink tcp:127.0.0.1 informs", "informsink: informs are sent over UDP only: tcp:127.0.0.1"),
            ("trapsess -Ci -v1 -c informs 127.0.0.1", "trapsess: informs exist in versions 2c and 3: -v 1"),
            ("trapsess -Ci -v2c -c informs", "trapsess: the receiver is missing"),
            ("trapsess -Ci -v2c -c informs -Y 127.0.0.1", "trapsess: "),
            ("trapsess -Ci -v3 -l authPriv 127.0.0.1", "trapsess: -u: a user has 1 to 32 printable characters"),
            ("trapsess -Ci -v3 -u x -l secret 127.0.0.1", "trapsess: -l is neither noAuthNoPriv nor authNoPriv nor "
             "authPriv: secret"),
            ("trapsess -Ci -v3 -u x -l authPriv 127.0.0.1", "trapsess: it needs -a and -A, or -e and a createUser line "
             "for that engine"),
            ("trapsess -Ci -v3 -u x -l authNoPriv -a ROT13 -A long-enough 127.0.0.1", "trapsess: -a is no authentication "
             "protocol: ROT13"),
            ("trapsess -Ci -v3 -u x -l authNoPriv -a SHA -A short 127.0.0.1", "trapsess: -A: a passphrase has at least 8 "
             "characters"),
            ("trapsess -Ci -v3 -u x -e 0x80 127.0.0.1", "trapsess: -e: an engine ID is 5 to 32 bytes in hexadecimal: 0x80"),
            ("trapsess -Ci -v2c -c informs -t soon 127.0.0.1", "trapsess: -t is no number of seconds up to an hour: soon"),
            ("informsink 127.0.0.1 informs 1999", None),
            ("trapsess -Ci -v2c -c informs udp:127.0.0.1:1999", "trapsess: another line has the same address and port: "
             "127.0.0.1:1999"),
            ("vrxInformTraps 2", "vrxInformTraps: it is none of 1, 3 and 4: 2"),
            ("vrxInformQueue 0", "vrxInformQueue: it is no number from 1 to 10000000: 0"),
            ("vrxInformWindow 0", "vrxInformWindow: it is no number from 1 to 256: 0"),
            ("vrxInformWindow 257", "vrxInformWindow: it is no number from 1 to 256: 257"),
            ("vrxInformRetry never", "vrxInformRetry: it is no number from 1 to 3600000: never"),
        ]
        with System(start=False) as system:
            system.write("etc/vrx-agentd.conf", "rocommunity public\n" + "".join(line + "\n" for line, _ in lines))
            done = subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd"), "--check-config", "--root", system.root,
                                   "--module", System.module_path()], stdout=subprocess.PIPE, text=True, check=False)
            self.assertEqual(done.returncode, 78)
            told = done.stdout.splitlines()
            for number, (line, fault) in enumerate(lines, 2):
                place = "%s:%d: " % (system.path("etc", "vrx-agentd.conf"), number)
                found = [text[len(place):] for text in told if text.startswith(place)]
                with self.subTest(line=line):
                    if fault is None:
                        self.assertEqual(found, [])
                    else:
                        self.assertEqual(len(found), 1, told)
                        self.assertTrue(found[0].startswith(fault), found)


if __name__ == "__main__":
    unittest.main()
