"""vrxctl export snmptt in a real snmptt: behind a real snmptrapd, and fed with hostile definitions."""

import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

from export_test import HOSTILE, OWN, alarm, definitions, documented_lines, hostile_definitions, type_lines
from harness import PROGRAM_DIR, SOURCE_DIR, free_port, mib_path, wait_for
from traps_test import BOTH, COMMON_TRAP, CONFIG, TrapSystem

DISK_FAILED = 4295229443
HEARTBEAT = "1.3.6.1.4.1.99871.3.1.0.1"
LINE = re.compile(r"\S+ \S+ \S+ \S+ \S+ \.([0-9.]+) (\w+) \"VRX\" \S+ - (.*)")  # date, OID, severity, sender, text


class Snmptt:
    """A configuration of snmptt in a folder of its own, and the lines that it logs."""

    def __init__(self, folder, *export):
        self.log, self.ini = os.path.join(folder, "log"), os.path.join(folder, "snmptt.ini")
        rules = os.path.join(folder, "vrx-snmptt.conf")
        subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "export", "snmptt",
                        "--output", rules, *export], check=True)
        with open("/etc/snmp/snmptt.ini", encoding="utf-8") as shipped:
            ini = shipped.read()
        for setting, value in (("log_file", self.log), ("syslog_enable", "0"), ("syslog_system_enable", "0"),
                               ("unknown_trap_log_enable", "1"), ("unknown_trap_log_file", self.log + ".unknown")):
            ini, changed = re.subn(r"(?m)^%s *=.*$" % setting, "%s = %s" % (setting, value), ini)
            assert changed == 1, setting
        ini = re.sub(r"(?ms)^snmptt_conf_files = <<END.*?^END$", "snmptt_conf_files = <<END\n%s\nEND" % rules, ini)
        with open(self.ini, "w", encoding="utf-8") as file:
            file.write(ini)

    def lines(self):
        """(OID, severity, text) of each, by OID and text: two at the same time come in any order."""
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8") as file:
            return sorted(LINE.fullmatch(line).groups() for line in file.read().splitlines())

    def feed(self, oid, *values):
        """A trap as snmptrapd hands it to a traphandle."""
        bindings = "".join('.1.3.6.1.4.1.99871.2.251.20.1.3.%d.0 %s\n' % (number, value)
                           for number, value in enumerate(values, 1))
        subprocess.run(["snmptt", "--ini=" + self.ini], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       input="host\nUDP: [192.0.2.7]:4000->[127.0.0.1]:162\n.1.3.6.1.2.1.1.3.0 0:0:02:03.45\n"
                       ".1.3.6.1.6.3.1.1.4.1.0 .%s\n%s" % (oid, bindings), text=True)


class Snmptrapd:
    """Runs snmptt for each trap; with MIB modules it writes names of enumerated values, without them numbers."""

    def __init__(self, folder, config, named):
        self.port = free_port()
        self._log = os.path.join(folder, "snmptrapd.log")
        environment = dict(os.environ, SNMP_PERSISTENT_DIR=folder, SNMPCONFPATH=folder, MIBDIRS=mib_path(),
                           MIBS="SNMPv2-MIB:VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB" if named else "")
        with open(self._log, "wb") as log:
            self._process = subprocess.Popen(["snmptrapd", "-f", "-C", "-c", config, "-Lo", "udp:127.0.0.1:%d" % self.port],
                                             stdout=log, stderr=log, env=environment)

    def __enter__(self):
        wait_for(self._is_listening, "snmptrapd to listen")
        return self

    def _is_listening(self):
        with open(self._log, encoding="utf-8", errors="replace") as log:
            return "NET-SNMP version" in log.read()

    def __exit__(self, *_):
        self._process.send_signal(signal.SIGTERM)
        self._process.wait()


class SnmpttTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vrx-snmptt-")
        self.addCleanup(shutil.rmtree, self.folder)

    def check_receiver(self, version, user, named, oids):
        snmptt, config = Snmptt(self.folder), os.path.join(self.folder, "snmptrapd.conf")
        with TrapSystem() as system:
            engine = system.get("1.3.6.1.6.3.10.2.1.1.0").partition(": ")[2].replace(" ", "").strip('"')
            with open(config, "w", encoding="utf-8") as file:
                file.write("outputOption n\nauthCommunity execute,log traps\nauthUser execute,log sealed priv\n"
                           "createUser -e 0x%s sealed SHA-256 sealed-auth-pass AES sealed-priv-pass\n"
                           "traphandle default /usr/sbin/snmptt --ini=%s\n" % (engine, snmptt.ini))
            self.raise_and_clear(system, snmptt, config, version, user, named, oids)

    def raise_and_clear(self, system, snmptt, config, version, user, named, oids):
        """One alarm, as the receiver logs it."""
        with Snmptrapd(self.folder, config, named) as receiver:
            system.add_destination(1, receiver.port, version, BOTH, user)
            system.raise_alarm(77, DISK_FAILED, "7,CTE0,1")
            wait_for(lambda: snmptt.lines()[len(oids) - 1:], "the lines of the raised alarm")
            system.clear_alarm(77)
            wait_for(lambda: snmptt.lines()[2 * len(oids) - 1:], "the lines of the cleared alarm")
        texts = (("Major", "Enclosure CTE0, slot 7. The disk in slot 7 of enclosure CTE0 cannot be used any more: it is not "
                  "reachable. Advice: Replace the disk in slot 7 of enclosure CTE0. (serial 77, alarm 262147, node VRX-0001)"),
                 ("Normal", "ended. Enclosure CTE0, slot 7. (serial 77, alarm 262147, node VRX-0001)"))
        self.assertEqual(snmptt.lines(), [(oid, severity, "Disk Failed: " + text) for oid in sorted(oids)
                                          for severity, text in texts])

    def test_v2c_without_mib_modules(self):
        self.check_receiver(2, None, False, [COMMON_TRAP, OWN + "0.403"])

    def test_v3_with_mib_modules(self):
        self.check_receiver(3, "sealed", True, [COMMON_TRAP, OWN + "0.403"])

    def test_v1_has_the_common_trap(self):
        self.check_receiver(1, None, False, [COMMON_TRAP])

    def test_the_documented_lines(self):
        etc, log = os.path.join(self.folder, "etc"), os.path.join(self.folder, "log")
        for made in (etc, log):
            os.mkdir(made)
        with open("/etc/snmp/snmptt.ini", encoding="utf-8") as shipped, \
             open(os.path.join(etc, "snmptt.ini"), "w", encoding="utf-8") as copy:
            copy.write(shipped.read().replace("/etc/snmp/", etc + "/").replace("/var/log/snmptt", log))
        lines = [line for line in documented_lines("snmptt") if line.split()[0] not in ("chown", "tail")]
        type_lines(lines, self.folder, {"/etc/snmp/": etc + "/", "COMMUNITY": "traps"})
        snmptt = Snmptt.__new__(Snmptt)
        snmptt.log = os.path.join(log, "snmptt.log")
        with TrapSystem() as system:
            self.raise_and_clear(system, snmptt, os.path.join(etc, "snmptrapd.conf"), 2, None, False,
                                 [COMMON_TRAP, OWN + "0.403"])

    def test_severity_is_the_level_whatever_form_it_has(self):
        snmptt = Snmptt(self.folder)
        expected = []
        for number, name in ((1, "critical"), (2, "major"), (3, "minor"), (4, "warning")):
            for level in (number, name):
                snmptt.feed(OWN + "0.403", "node", "here", "advice", "title", 2, level, 262147, "time", 9, "detail", "active")
                expected.append((OWN + "0.403", name.capitalize(), "Disk Failed: here detail Advice: advice (serial 9, alarm "
                                 "262147, node node)"))
        snmptt.feed(OWN + "0.403", "node", "here", "advice", "title", 3, 1, 262147, "time", 9, "detail", 3)
        expected.append(expected[0])
        snmptt.feed(OWN + "0.403", "node", "here", "advice", "title", 2, 1, 262147, "time", 9, "detail", "cleared")
        expected.append((OWN + "0.403", "Normal", "Disk Failed: ended. here (serial 9, alarm 262147, node node)"))
        self.assertEqual(snmptt.lines(), sorted(expected))

    def check_heartbeat(self, version):
        snmptt, config = Snmptt(self.folder), os.path.join(self.folder, "snmptrapd.conf")
        with open(config, "w", encoding="utf-8") as file:
            file.write("outputOption n\nauthCommunity execute,log traps\ntraphandle default /usr/sbin/snmptt --ini=%s\n"
                       % snmptt.ini)
        with TrapSystem(CONFIG + "vrxHeartbeatTrap 3600\n") as system, Snmptrapd(self.folder, config, False) as receiver:
            engine = json.loads(system.vrxctl("status", "--json"))["agent"]["engine_id"]
            system.add_destination(7, receiver.port, version, BOTH)
            wait_for(lambda: os.path.exists(snmptt.log) and os.path.getsize(snmptt.log), "the line of the heartbeat")
        with open(snmptt.log, encoding="utf-8") as file:
            line = file.readline()
        self.assertRegex(line, r"^\S+ \S+ \S+ \S+ \S+ \.%s Normal \"VRX heartbeat\" \S+ - Heartbeat 1 of trap destination 7: "
                         r"0 traps sent so far, next heartbeat in 3600 s \(0: none\) \(engine %s\)$"
                         % (re.escape(HEARTBEAT), engine))

    def test_a_heartbeat_has_its_count_and_is_of_another_category_than_alarms(self):
        self.check_heartbeat(2)

    def test_a_heartbeat_of_snmpv1_has_them_too(self):
        self.check_heartbeat(1)

    def test_hostile_definitions_are_texts(self):
        rules = os.path.join(self.folder, "definitions.xml")
        with open(rules, "w", encoding="utf-8") as file:
            file.write(hostile_definitions())
        snmptt = Snmptt(self.folder, "--definitions", rules)
        for number in range(1, len(HOSTILE) + 1):
            snmptt.feed(OWN + "0.%d" % number, "node", "here", "advice", "title", 2, 1, number, "time", 9, "detail", 1)
        for (oid, severity, text), number in zip(snmptt.lines(), range(1, len(HOSTILE) + 1)):
            title = " ".join(HOSTILE[number - 1].split())[:50]
            self.assertEqual((oid, severity), (OWN + "0.%d" % number, "Critical"))
            # A dollar is followed by a blank, so that it begins no variable.
            self.assertIn(re.sub(r"\$(?=[^ ])", "$ ", title), text)
            self.assertTrue(text.endswith(": here detail Advice: advice (serial 9, alarm %d, node node)" % number), text)
        self.assertEqual(len(snmptt.lines()), len(HOSTILE))
        self.assertFalse(os.path.exists("/pwned"))

    def test_an_alarm_that_is_not_in_the_definitions_is_no_other(self):
        rules = os.path.join(self.folder, "definitions.xml")
        with open(rules, "w", encoding="utf-8") as file:
            file.write(definitions(alarm(4)))
        snmptt = Snmptt(self.folder, "--definitions", rules)
        snmptt.feed(OWN + "0.40", "node", "here", "advice", "title", 2, 1, 40, "time", 9, "detail", 1)
        self.assertEqual(snmptt.lines(), [])


if __name__ == "__main__":
    unittest.main()
