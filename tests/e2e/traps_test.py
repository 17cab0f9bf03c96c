"""What arrives at trap receivers: both traps of an alarm in SNMPv1, SNMPv2c and SNMPv3, as our own reader, snmptrapd and
tshark see it."""

import os
import signal
import socket
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

from backend_client import CLEAR_ALARM, RAISE_ALARM, BackendClient, record, text, uint
from harness import AGENT_CONFIG, DESTINATIONS, System, free_port, mib_path, wait_for
from trap_receiver import COLD_START, TrapReceiver, decode, dump, write_pcap

GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")

CONFIG = AGENT_CONFIG + """
trapcommunity traps
createUser plain
createUser signed SHA-512 "signed-auth-pass"
createUser sealed SHA-256 "sealed-auth-pass" AES "sealed-priv-pass"
createUser strong SHA-512 "strong-auth-pass" AES-256 "strong-priv-pass"
"""

COMMON, BOTH, NAMED = 1, 3, 4  # which traps a destination gets
ALARM_ID = 4295032833  # a shipped alarm, 0.101
SERIAL = 77
RAISED = 1763712000  # 2025-11-21 08:00:00 UTC
COMMON_TRAP = "1.3.6.1.4.1.99871.2.91.10.2.1.0.1"
NAMED_TRAP = "1.3.6.1.4.1.99871.2.91.10.2.1.1.0.101"
COMMON_BASE = "1.3.6.1.4.1.99871.2.91.10.3.1.1"
NAMED_BASE = "1.3.6.1.4.1.99871.2.251.20.1.3"

ADVICE = ("Check the power supply of the site and the power modules. If power was steady, collect the system log and "
          "contact support.")
DETAIL = "The system started at 07:55 after an unexpected stop; it had run for 123 hours."
COMMON_TIME, NAMED_TIME = bytes.fromhex("07e90b15080000002b0000"), b"2025-11-21,08:00:00.0,+00:00"


def expected_bindings(base, time, serial=SERIAL):
    values = [
        ("OCTET STRING", b"VRX-0001"),
        ("OCTET STRING", b"Storage system."),
        ("OCTET STRING", ADVICE.encode()),
        ("OCTET STRING", b"System Restarted Unexpectedly"),
        ("INTEGER", 2),
        ("INTEGER", 2),
        ("Gauge32", ALARM_ID & 0xFFFFFFFF),
        ("OCTET STRING", time),
        ("Gauge32", serial),
        ("OCTET STRING", DETAIL.encode()),
        ("INTEGER", 1),
        ("Counter64", ALARM_ID),
        ("INTEGER", 100),
        ("OCTET STRING", b"VRX1000000001"),
        ("OCTET STRING", b"vrx-storage"),
    ]
    return [("%s.%d.0" % (base, number), kind, value) for number, (kind, value) in enumerate(values, 1)]


class TrapSystem(System):
    """A system whose configuration has a trap community and users of all levels; its clock zone is UTC."""

    def __init__(self, config=CONFIG, start_agent=True, **more):
        super().__init__(agent_config=config, start=False, **more)
        self._start_agent = start_agent
        self.agent.environment["TZ"] = "UTC"

    def __enter__(self):
        try:
            if self._start_backend:
                self.backend.start()
            if self._start_agent:
                self.agent.start()
        except BaseException:
            self.close()
            raise
        return self

    def raise_alarm(self, serial=SERIAL, alarm_id=ALARM_ID, parameters="07:55,123", raised=RAISED):
        with BackendClient(self.path("state", "backend.sock")) as backend:
            backend.call(record(RAISE_ALARM, uint(1, alarm_id, 8), uint(2, 5), uint(3, serial), uint(4, raised, 8),
                                text(8, parameters)))

    def clear_alarm(self, serial=SERIAL):
        with BackendClient(self.path("state", "backend.sock")) as backend:
            backend.call(record(CLEAR_ALARM, uint(3, serial), text(7, "test")))

    def wait_log(self, part, count=1):
        return wait_for(lambda: [line for line in self.agent.log().splitlines() if part in line][count - 1:],
                        "%d log lines with %r" % (count, part))


class SnmpTrapd:
    """Net-SNMP's receiver, which knows our users; prints every accepted trap, numerically or by our MIB."""

    def __init__(self, system, numeric=True):
        self.port = free_port()
        engine = system.get("1.3.6.1.6.3.10.2.1.1.0").partition(": ")[2].replace(" ", "").strip('"')
        self._folder = system.path("trapd-%d" % self.port)
        os.makedirs(self._folder)
        config = os.path.join(self._folder, "receiver.conf")
        with open(config, "w", encoding="utf-8") as file:
            file.write("authCommunity log traps\nauthUser log plain noauth\nauthUser log signed\n"
                       "authUser log sealed priv\nauthUser log strong priv\n"
                       "createUser -e 0x%s plain\n"
                       "createUser -e 0x%s signed SHA-512 signed-auth-pass\n"
                       "createUser -e 0x%s sealed SHA-256 sealed-auth-pass AES sealed-priv-pass\n"
                       "createUser -e 0x%s strong SHA-512 strong-auth-pass AES-256 strong-priv-pass\n"
                       "format1 TRAP\\t1\\t%%N\\t%%w\\t%%q\\t%%v\\n\nformat2 TRAP\\t2\\t%%v\\n\n"
                       "outputOption %s\n" % (engine, engine, engine, engine, "nte" if numeric else "te"))
        environment = dict(os.environ, SNMP_PERSISTENT_DIR=self._folder, MIBDIRS=mib_path(),
                           MIBS="" if numeric else "ALL")
        self._output = open(os.path.join(self._folder, "output"), "w+b")
        self._process = subprocess.Popen(
            ["snmptrapd", "-f", "-C", "-c", config, "-Lo", "-On" if numeric else "-OS",
             "udp:127.0.0.1:%d" % self.port], stdout=self._output, stderr=subprocess.STDOUT, env=environment)
        try:
            wait_for(self._is_listening, "snmptrapd to listen")
        except BaseException:
            self.__exit__()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.send_signal(signal.SIGTERM)
        self._process.wait()
        self._output.close()

    def _is_listening(self):
        if self._process.poll() is not None:
            raise AssertionError("snmptrapd ended: " + self.output())
        return "NET-SNMP version" in self.output()

    def output(self):
        with open(os.path.join(self._folder, "output"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def traps(self):
        return [line for line in self.output().split("\n") if line.startswith("TRAP\t")]

    def wait_for(self, count):
        return wait_for(lambda: self.traps()[count - 1:] and self.traps(), "%d traps at snmptrapd" % count)


def decoded_by_tshark(path, port):
    """Of each packet: the bindings as (name, kind, text) as tshark shows them."""
    users = [("signed", "SHA2-512", "signed-auth-pass", "AES", ""),
             ("sealed", "SHA2-256", "sealed-auth-pass", "AES", "sealed-priv-pass"),
             ("strong", "SHA2-512", "strong-auth-pass", "AES256", "strong-priv-pass")]
    command = ["tshark", "-n", "-r", path, "-T", "pdml", "-d", "udp.port==%d,snmp" % port]
    for user in users:  # of any engine; the last field tells how keys are lengthened, which theirs are not
        command += ["-o", 'uat:snmp_users:"","%s","%s","%s","%s","%s","AGENT++"' % user]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if done.returncode != 0:
        raise AssertionError(done.stderr.decode())
    packets = []
    for packet in ElementTree.fromstring(done.stdout).iter("packet"):
        if any(field.get("name") == "_ws.malformed" for field in packet.iter()):
            raise AssertionError("tshark calls a packet malformed")
        bindings = []
        for field in packet.iter("field"):
            name = field.get("name")
            if name == "snmp.name":
                bindings.append((field.get("show"), None, None))
            elif name.startswith("snmp.value.") and bindings:
                kind = field.get("showname").partition("(")[2].partition(")")[0]  # "Value (Gauge32): 7"
                bindings[-1] = (bindings[-1][0], kind, field.get("show"))
        packets.append(bindings)
    return packets


TSHARK_KINDS = {"OCTET STRING": "OctetString", "INTEGER": "Integer32", "Gauge32": "Gauge32", "Counter64": "Counter64"}


def as_tshark_shows(bindings):
    shown = []
    for name, kind, value in bindings:
        text_form = ":".join("%02x" % byte for byte in value) if isinstance(value, bytes) else str(value)
        shown.append((name, TSHARK_KINDS[kind], text_form))
    return shown


class AlarmTraps(unittest.TestCase):
    def setUp(self):
        self.maxDiff = None

    def receive(self, version, user=None, trap_type=BOTH, count=1):
        """The traps of one alarm, without the coldStart."""
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, version, trap_type, user)
            system.raise_alarm()
            receiver.wait_for(count)
            return receiver.traps()

    def test_v2c_destination_gets_both_traps_with_all_bindings(self):
        common, named = self.receive(2, count=2)
        self.assertEqual((common.version, common.community, common.oid), (1, "traps", COMMON_TRAP))
        self.assertEqual([tuple(b) for b in common.bindings], expected_bindings(COMMON_BASE, COMMON_TIME))
        self.assertEqual((named.version, named.community, named.oid), (1, "traps", NAMED_TRAP))
        self.assertEqual([tuple(b) for b in named.bindings], expected_bindings(NAMED_BASE, NAMED_TIME))

    def test_v1_destination_gets_the_common_trap_without_counter64(self):
        (trap,) = self.receive(1)
        self.assertEqual((trap.version, trap.community), (0, "traps"))
        self.assertEqual(trap.v1, ("1.3.6.1.4.1.99871.2.91.10.2.1", "127.0.0.1", 6, 1))
        expected = [b for b in expected_bindings(COMMON_BASE, COMMON_TIME) if b[1] != "Counter64"]
        self.assertEqual(len(expected), 14)
        self.assertEqual([tuple(b) for b in trap.bindings], expected)

    def test_traps_are_as_in_the_golden_dumps(self):
        dumps = {"alarm_trap_v1.txt": self.receive(1)[0]}
        dumps["alarm_trap_v2c_common.txt"], dumps["alarm_trap_v2c_named.txt"] = self.receive(2, count=2)
        for name, trap in dumps.items():
            with open(os.path.join(GOLDEN, name), encoding="utf-8") as file:
                self.assertEqual(dump(trap), file.read(), name)

    def test_a_cleared_alarm_gives_a_second_pair_with_category_2(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port)
            system.raise_alarm()
            system.clear_alarm()
            receiver.wait_for(4)
            traps = receiver.traps()
            self.assertEqual([trap.oid for trap in traps], [COMMON_TRAP, NAMED_TRAP] * 2)
            self.assertEqual([trap.value(11) for trap in traps], [1, 1, 2, 2])
            self.assertEqual([trap.value(9) for trap in traps], [SERIAL] * 4)
            self.assertGreater(traps[3].value(8), NAMED_TIME)  # the end time, as text

    def test_destinations_get_the_traps_of_their_type(self):
        with TrapSystem() as system, TrapReceiver() as common, TrapReceiver() as both, TrapReceiver() as named, \
                TrapReceiver() as v1, TrapReceiver() as v1_named:
            system.add_destination(1, common.port, trap_type=COMMON)
            system.add_destination(2, both.port, trap_type=BOTH)
            system.add_destination(3, named.port, trap_type=NAMED)
            system.add_destination(4, v1.port, version=1, trap_type=BOTH)
            system.add_destination(5, v1_named.port, version=1, trap_type=NAMED)
            system.raise_alarm()
            both.wait_for(2)
            named.wait_for(1)
            v1.wait_for(1)
            self.assertEqual([trap.oid for trap in common.traps()], [COMMON_TRAP])
            self.assertEqual([trap.oid for trap in both.traps()], [COMMON_TRAP, NAMED_TRAP])
            self.assertEqual([trap.oid for trap in named.traps()], [NAMED_TRAP])
            self.assertEqual(len(v1.datagrams()), 1)
            self.assertEqual(v1_named.datagrams(), [])

    def test_a_trap_with_a_long_text_is_sent_whole(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            system.raise_alarm(parameters="x" * 20000 + ",1")
            receiver.wait_for(1)
            self.assertIn(b"x" * 20000, receiver.traps()[0].value(10))

    def test_ipv6_and_names_are_reached(self):
        with TrapSystem() as system, TrapReceiver(socket.AF_INET6) as six, TrapReceiver() as named:
            system.add_destination(1, six.port, address="::1", trap_type=COMMON)
            system.add_destination(2, named.port, address="localhost", trap_type=COMMON)
            system.raise_alarm()
            six.wait_for(1)
            named.wait_for(1)
            self.assertEqual(six.traps()[0].oid, COMMON_TRAP)
            self.assertEqual(named.traps()[0].oid, COMMON_TRAP)

    def test_the_user_of_a_v2c_destination_is_its_community(self):
        (trap, _) = self.receive(2, user="own-community", count=2)
        self.assertEqual(trap.community, "own-community")

    def test_without_a_community_nothing_is_sent_and_the_log_says_so_once(self):
        with TrapSystem(config=AGENT_CONFIG) as system, TrapReceiver() as silent, TrapReceiver() as receiver:
            system.add_destination(1, silent.port)
            system.add_destination(2, receiver.port, user="own-community")
            for serial in (1, 2, 3):
                system.raise_alarm(serial)
            receiver.wait_for(6)
            self.assertEqual(silent.datagrams(), [])
            lines = [line for line in system.agent.log().splitlines() if "names no community" in line]
            self.assertEqual(len(lines), 1)
            self.assertIn("trap destination 1 (127.0.0.1 port %d, SNMPv2c): gets nothing: it names no community and "
                          "trapcommunity is not configured" % silent.port, lines[0])

    def test_an_unknown_alarm_gives_no_trap_and_the_next_one_does(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            system.raise_alarm(1, alarm_id=1)
            system.raise_alarm(2)
            receiver.wait_for(1)
            self.assertEqual([trap.value(9) for trap in receiver.traps()], [2])
            self.assertEqual(len(system.wait_log("alarm event 1 (alarm 1, serial 1) gives no trap, the notification "
                                                 "handler gives")), 1)

    def test_counters_at_the_end_add_up(self):
        with TrapSystem() as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            for serial in range(1, 11):
                system.raise_alarm(serial)
            receiver.wait_for(10)
            system.agent.stop()
            (line,) = system.wait_log("trap destination 1: considered")
            self.assertTrue(line.endswith("trap destination 1: considered 20, sent 10 (0 paced), filtered 10, "
                                          "dropped 0, waiting 0"), line)

    def test_cold_start_goes_to_every_destination_at_start(self):
        with TrapSystem() as system, TrapReceiver() as v1, TrapReceiver() as v2:
            system.add_destination(1, v1.port, version=1)
            system.add_destination(2, v2.port)
            system.agent.stop()
            system.agent.start()
            v1.wait_for(1)
            v2.wait_for(1)
            self.assertEqual(v1.traps()[0].v1, ("1.3.6.1.6.3.1.1.5", "127.0.0.1", 0, 0))
            self.assertEqual(v2.traps()[0].oid, COLD_START)
            self.assertEqual(v2.traps()[0].bindings, [])


class OtherReaders(unittest.TestCase):
    """The same traps as Net-SNMP's and Wireshark's programs read them."""

    # version and user of the destinations
    KINDS = [(1, None), (2, None), (3, "plain"), (3, "signed"), (3, "sealed"), (3, "strong")]

    def setUp(self):
        self.maxDiff = None

    @staticmethod
    def trapd_bindings(bindings, with_oid):
        """As snmptrapd prints them with numeric names, separated by tabs."""
        shown = []
        if with_oid:
            shown.append(".1.3.6.1.6.3.1.1.4.1.0 = OID: ." + with_oid)
        for name, kind, value in bindings:
            if kind == "OCTET STRING":
                printable = all(32 <= byte < 127 for byte in value)
                value = '"%s"' % value.decode() if printable else '"%s "' % " ".join("%02X" % b for b in value)
                kind = "STRING" if printable else "Hex-STRING"
                value = value if printable else value.strip('"')
            shown.append(".%s = %s: %s" % (name, kind, value))
        return shown

    def test_snmptrapd_and_tshark_see_every_binding(self):
        with TrapSystem() as system, SnmpTrapd(system) as trapd:
            for number, (version, user) in enumerate(self.KINDS, 1):
                with self.subTest(version=version, user=user), TrapReceiver(forward=trapd.port) as receiver:
                    before = len(trapd.traps())
                    system.add_destination(number, receiver.port, version, user=user)
                    serial = 1000 + number
                    system.raise_alarm(serial)
                    count = 1 if version == 1 else 2
                    receiver.wait_for(count)
                    lines = trapd.wait_for(before + count)[before:]
                    datagrams = receiver.datagrams()
                    self.assertEqual(len(datagrams), count)
                    self.check(version, serial, lines, datagrams, receiver.port, system)
                    if version == 3:
                        readable = ADVICE.encode() in datagrams[0]
                        self.assertEqual(readable, user not in ("sealed", "strong"))
                    system.set("%s.3.%d" % (DESTINATIONS, number), "i", "6")

    def check(self, version, serial, lines, datagrams, port, system):
        common = expected_bindings(COMMON_BASE, COMMON_TIME, serial)
        named = expected_bindings(NAMED_BASE, NAMED_TIME, serial)
        if version == 1:
            common = [binding for binding in common if binding[1] != "Counter64"]
            self.assertEqual(lines[0].split("\t")[1:5], ["1", ".1.3.6.1.4.1.99871.2.91.10.2.1", "6", ".1"])
            self.assertEqual(lines[0].split("\t")[5:], self.trapd_bindings(common, None))
        else:
            for line, oid, bindings in ((lines[0], COMMON_TRAP, common), (lines[1], NAMED_TRAP, named)):
                fields = line.split("\t")
                self.assertEqual(fields[1], "2")
                self.assertTrue(fields[2].startswith(".1.3.6.1.2.1.1.3.0 = "), fields[2])
                self.assertEqual(fields[3:], self.trapd_bindings(bindings, oid))
        pcap = system.path("traps.pcap")
        write_pcap(pcap, datagrams, port)
        packets = decoded_by_tshark(pcap, port)
        self.assertEqual(len(packets), len(datagrams))
        head = 0 if version == 1 else 2
        self.assertEqual(packets[0][head:], as_tshark_shows(common))
        if version != 1:
            self.assertEqual([b[0] for b in packets[0][:2]], ["1.3.6.1.2.1.1.3.0", "1.3.6.1.6.3.1.1.4.1.0"])
            self.assertEqual(packets[0][1][1:], ("OID", COMMON_TRAP))
            self.assertEqual(packets[1][1][1:], ("OID", NAMED_TRAP))
            self.assertEqual(packets[1][2:], as_tshark_shows(named))

    def test_snmptrapd_prints_both_traps_with_names_of_our_mib(self):
        with TrapSystem() as system, SnmpTrapd(system, numeric=False) as trapd:
            system.add_destination(1, trapd.port)
            system.raise_alarm()
            common, named = trapd.wait_for(2)
            self.assertIn("snmpTrapOID.0 = OID: VRX-TAMREL-MIB::", common)
            self.assertIn("snmpTrapOID.0 = OID: VRX-TAMREL-ALARM-MIB::", named)
            for line in (common, named):
                self.assertIn(DETAIL, line)
                self.assertIn("System Restarted Unexpectedly", line)

    def test_v3_traps_are_accepted_after_kill_9(self):
        with TrapSystem() as system, SnmpTrapd(system) as trapd:
            system.add_destination(1, trapd.port, version=3, user="sealed", trap_type=COMMON)
            boots = []
            for life in range(1, 5):
                system.raise_alarm(life)
                wait_for(lambda: any("Gauge32: %d\t" % life in line for line in trapd.traps()),
                         "the trap of life %d, not in:\n%s" % (life, trapd.output()), 10)
                boots.append(int(system.get("1.3.6.1.6.3.10.2.1.2.0").rpartition(" ")[2]))
                system.agent.kill()
                system.agent.start()
            self.assertEqual(boots, list(range(boots[0], boots[0] + 4)))


if __name__ == "__main__":
    unittest.main()
