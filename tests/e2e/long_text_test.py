"""A long alarm is told to everybody: where its message would exceed what a datagram, or the configuration, takes, its
longest texts are shortened, and the alarms after it follow. Receivers are our own and Net-SNMP's snmptrapd."""

import json
import os
import subprocess
import unittest

from direct_answer_test import element, integer, name_bytes
from harness import AGENT_CONFIG, PROGRAM_DIR, System, wait_for
from inform_receiver import InformReceiver, TrapDaemon
from inform_test import DAEMON, PATIENT, QUICK, USER, InformSystem, is_balanced, session, sink
from message_size_test import REPORT, RESPONSE, USM
from reload_test import reload
from trap_receiver import Reader, TrapReceiver
from traps_test import COMMON, COMMON_BASE, CONFIG, SnmpTrapd, TrapSystem

DISK_FAILED = 4295229443  # its first parameter is in the location, the advice and the detail
LONG, NEXT = 7, 8  # serial numbers
SLOT = "ü" * 20000  # two octets each: three times as many do not fit into a datagram
PLAIN_SLOT = "x" * 40000  # of which snmptrapd makes one line
LOCATION = "Enclosure CTE0, slot " + SLOT + "."
LONGEST = 65507  # octets of a datagram
MARK = "..."
DETAIL, MODEL = 10, 13  # bindings
SHORT_PATH = 1400  # octets
USERS = ("", "traps", "traps", "sealed")  # of destinations, by version


def raise_long_and_next(system, slot=SLOT):
    system.raise_alarm(serial=LONG, alarm_id=DISK_FAILED, parameters=slot + ",CTE0,offline")
    system.raise_alarm(serial=NEXT)


def check_shortened(test, value, whole):
    """The value is the beginning of the whole, with a mark after a whole character."""
    text = value.decode("utf-8")
    test.assertTrue(text.endswith(MARK), text[-20:])
    test.assertTrue(whole.startswith(text[:-len(MARK)]))


class Traps(unittest.TestCase):
    def test_every_version_gets_both_alarms(self):
        """snmptrapd gets the same traps as our receivers, which see how long the messages are."""
        with TrapSystem() as system, SnmpTrapd(system) as daemon:
            receivers = {}
            try:
                for version in (1, 2, 3):
                    receivers[version] = TrapReceiver(forward=daemon.port)
                    receivers[version].__enter__()
                    system.add_destination(version, receivers[version].port, version, COMMON, USERS[version])
                raise_long_and_next(system)
                for version, receiver in receivers.items():
                    receiver.wait_for(2)
                    self.assertEqual(len(receiver.datagrams()), 2)
                    longest = max(map(len, receiver.datagrams()))
                    self.assertLessEqual(longest, LONGEST)
                    self.assertGreater(longest, LONGEST - 200)  # no more is cut than has to be
                for version in (1, 2):
                    long, following = receivers[version].traps()
                    self.assertEqual((long.value(9), following.value(9)), (LONG, NEXT))
                    check_shortened(self, long.value(2), LOCATION)
                    self.assertEqual(long.value(1), b"VRX-0001")
                    self.assertEqual(long.value(MODEL), 100)
                for serial in (LONG, NEXT):
                    name = ".%s.9.0 = Gauge32: %d\t" % (COMMON_BASE, serial)
                    wait_for(lambda: daemon.output().count(name) == 3, "snmptrapd's lines")
                status = json.loads(system.vrxctl("status", "--json"))
                self.assertEqual([(row["sent"], row["shortened"], sum(row["dropped"].values()))
                                  for row in status["destinations"]], [(2, 1, 0)] * 3)
                lines = system.wait_log("shortened", 3)
                self.assertIn("alarm %d, serial number %d" % (DISK_FAILED, LONG), lines[-1])
            finally:
                for receiver in receivers.values():
                    receiver.__exit__()

    def test_the_log_of_what_was_sent_has_the_whole_texts(self):
        with TrapReceiver() as receiver, TrapSystem() as system:
            system.add_destination(1, receiver.port, trap_type=COMMON, user="traps")
            raise_long_and_next(system)
            receiver.wait_for(2)
            entry = wait_for(lambda: json.loads(system.vrxctl("traps", "--json")), "the log")[0]
            self.assertEqual(entry["serial"], LONG)
            values = {binding["name"]: binding["value"] for binding in entry["bindings"]}
            self.assertEqual(values[COMMON_BASE + ".2.0"], LOCATION)
            # What is sent again is shortened again.
            system.vrxctl("traps", "resend", str(entry["number"]))
            receiver.wait_for(3)
            self.assertEqual(receiver.traps()[2].bindings, receiver.traps()[0].bindings)
            system.wait_log(": alarm %d, serial number %d is sent" % (DISK_FAILED, LONG))

    def test_a_limit_of_the_configuration_holds_for_all_and_over_a_reload(self):
        config = "vrxNotificationSize %d\n" % SHORT_PATH
        with TrapReceiver() as traps, InformReceiver() as informs, \
                InformSystem(sink(informs.port) + config, config=CONFIG + PATIENT) as system:
            for version in (1, 2, 3):
                system.add_destination(version, traps.port, version, COMMON, "sealed" if version == 3 else "v%d" % version)
            raise_long_and_next(system)
            traps.wait_for(6)
            wait_for(lambda: informs.serials() == [LONG, NEXT], "the informs")
            sizes = sorted(map(len, traps.datagrams() + informs.datagrams()))
            self.assertLessEqual(sizes[-1], SHORT_PATH)
            self.assertGreater(sizes[-4], SHORT_PATH - 200)
            check_shortened(self, informs.informs()[1].trap.value(DETAIL),
                            "The disk in slot %s of enclosure CTE0 cannot" % SLOT)
            system.write("etc/vrx-agentd.conf", CONFIG + PATIENT + sink(informs.port))
            reload(system)
            system.raise_alarm(serial=LONG + 10, alarm_id=DISK_FAILED, parameters=SLOT + ",CTE0,offline")
            wait_for(lambda: informs.serials()[2:] == [LONG + 10], "the inform")
            self.assertGreater(len(informs.datagrams()[-1]), LONGEST - 200)

    def test_a_limit_that_is_none_is_told(self):
        with System(start=False) as system:
            for text, fault in (("483", True), ("65508", True), ("-1", True), ("1472 octets", True), ("many", True),
                                ("484", False), ("65507", False)):
                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "vrxNotificationSize %s\n" % text)
                done = subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd"), "--check-config", "--root", system.root,
                                       "--module", System.module_path()], stdout=subprocess.PIPE, text=True, check=False)
                with self.subTest(text=text):
                    self.assertEqual(done.returncode, 78 if fault else 0, done.stdout)
                    line = "vrxNotificationSize: not a number from 484 to 65507: " + text
                    self.assertEqual(line in done.stdout, fault, done.stdout)


class Informs(unittest.TestCase):
    def check_arrival(self, arguments):
        """Also of what an earlier life of the agent left on disk."""
        with TrapDaemon(DAEMON) as daemon, InformSystem(session(daemon.port, arguments)) as system:
            system.wait_inform(daemon.port, lambda inform: inform["acknowledged"] == 1, "the coldStart")
            daemon.kill()
            raise_long_and_next(system, PLAIN_SLOT)
            system.wait_inform(daemon.port, lambda inform: inform["waiting"] == 2, "both to wait")
            system.agent.kill()
            daemon.start()
            system.agent.start()
            wait_for(lambda: {LONG, NEXT} <= set(daemon.serials()), "the alarms")
            self.assertEqual(sorted(set(daemon.serials())), [LONG, NEXT])
            status = system.wait_inform(daemon.port, lambda inform: inform["waiting"] == 0, "the status")
            self.assertEqual((status["shortened"], sum(status["dropped"].values())), (1, 0))
            self.assertTrue(is_balanced(status), status)
            system.wait_log("127.0.0.1:%d: alarm %d, serial number %d is sent with 3 texts shortened"
                            % (daemon.port, DISK_FAILED, LONG))

    def test_snmptrapd_gets_both_alarms_v2c(self):
        self.check_arrival("-v2c -c informs")

    def test_snmptrapd_gets_both_alarms_v3(self):
        self.check_arrival(USER)

    def test_a_path_that_drops_fragments_holds_up_nobody(self):
        with PathWithoutFragments() as receiver, InformSystem(QUICK + sink(receiver.port)) as system:
            system.raise_alarm(serial=LONG, alarm_id=DISK_FAILED, parameters="ü" * 1000 + ",CTE0,offline")
            system.raise_alarm(serial=NEXT)
            wait_for(lambda: NEXT in receiver.serials(), "the alarm after it")
            wait_for(lambda: LONG in receiver.serials(), "the alarm itself, in one packet")
            self.assertEqual(sorted(set(receiver.serials())), [LONG, NEXT])
            status = system.wait_inform(receiver.port, lambda inform: inform["waiting"] == 0, "the status")
            self.assertEqual(status["shortened"], 1)


    def test_an_engine_that_takes_less_gets_less(self):
        with SmallEngine() as receiver, \
                InformSystem(session(receiver.port, "-v3 -u plain -l noAuthNoPriv")) as system:
            raise_long_and_next(system)
            status = system.wait_inform(receiver.port, lambda inform: inform["acknowledged"] == 3, "the informs")
            self.assertEqual((status["shortened"], status["resent"]), (1, 0))
            longest = max(map(len, receiver.datagrams()))
            self.assertLessEqual(longest, SmallEngine.TAKES)
            self.assertGreater(longest, SmallEngine.TAKES - 200)


class SmallEngine(TrapReceiver):
    """Receiver of SNMPv3, without authentication, that acknowledges all and says that it takes no long messages."""

    TAKES = 1000
    ID = bytes.fromhex("80001f8804736d616c6c")
    UNKNOWN_ENGINES = "1.3.6.1.6.3.15.1.1.4.0"

    def took(self, datagram, sender):
        message = Reader(Reader(datagram).next(0x30)[1])
        message.next(0x02)
        number = Reader(message.next(0x30)[1]).next(0x02)[1]
        security = Reader(Reader(message.next(0x04)[1]).next(0x30)[1])
        engine = security.next(0x04)[1]
        scoped = Reader(message.next(0x30)[1])
        context = scoped.next(0x04)[1] or self.ID
        scoped.next(0x04)
        pdu = Reader(scoped.next()[1])
        request = element(0x02, pdu.next(0x02)[1])
        pdu.next(0x02)
        pdu.next(0x02)
        if engine:
            kind, user, bindings = RESPONSE, b"plain", element(0x30, pdu.next(0x30)[1])
        else:
            kind, user = REPORT, b""
            bindings = element(0x30, element(0x30, name_bytes(self.UNKNOWN_ENGINES) + element(0x41, b"\x01")))
        security = element(0x30, element(0x04, self.ID) + integer(1) + integer(1) + element(0x04, user)
                           + element(0x04, b"") + element(0x04, b""))
        header = element(0x30, element(0x02, number) + integer(self.TAKES) + element(0x04, b"\x00") + integer(USM))
        scoped = element(0x30, element(0x04, context) + element(0x04, b"")
                         + element(kind, request + integer(0) + integer(0) + bindings))
        self._socket.sendto(element(0x30, integer(3) + header + element(0x04, security) + scoped), sender)


class PathWithoutFragments(InformReceiver):
    """What is longer than a packet of an Ethernet never comes."""

    def take(self, datagram):
        if len(datagram) <= 1472:
            super().take(datagram)

    def took(self, datagram, sender):
        if len(datagram) <= 1472:
            super().took(datagram, sender)


if __name__ == "__main__":
    unittest.main()
