"""SIGHUP and --check-config: what is taken over while the agent runs, all of it or nothing, and what is said of faults."""

import os
import re
import resource
import signal
import subprocess
import unittest

from harness import AGENT_CONFIG, PROGRAM_DIR, TOPOLOGY, V2C, V3, System, slowdown, values, wait_for
from trap_receiver import TrapReceiver

ENGINE_BOOTS = "1.3.6.1.6.3.10.2.1.2.0"
CONTACT = "1.3.6.1.2.1.1.4.0"
ALARM_ID = "4295032833"  # a shipped alarm
ALARM_NAME = "System Restarted Unexpectedly"
TAKEN, REFUSED = "the configuration was reloaded", "the configuration was refused"
COMMON = 1
LIMIT = 2 << 30  # bytes of address space
DEFINITIONS = ("conf", "alarm_definitions.xml")
MIB = ("mibs", "VRX-TAMREL-MIB.xml")
CONFIG = AGENT_CONFIG + "trapcommunity traps\n"


def reload(system, expected=TAKEN):
    """Sends SIGHUP and waits for what the agent says of it: its log since then."""
    before = len(system.agent.log())
    os.kill(system.agent.pid, signal.SIGHUP)
    wait_for(lambda: TAKEN in system.agent.log()[before:] or REFUSED in system.agent.log()[before:], "the reload")
    said = system.agent.log()[before:]
    if expected not in said:
        raise AssertionError("expected %r, the log has:\n%s" % (expected, said))
    return said


def change(system, parts, old, new):
    """Replaces a text that stands in the file; gives the number of the first line with it."""
    with open(system.path(*parts), encoding="utf-8") as file:
        text = file.read()
    assert old in text, old
    system.write(os.path.join(*parts), text.replace(old, new))
    return text[:text.index(old)].count("\n") + 1


def answer(system, version, oid=CONTACT):
    """The value alone, or None when nobody answers."""
    done = system.run("snmpget", oid, version=version, timeout=1, retries=1, options=["-OQv"], check=False)
    return done.stdout.strip().strip('"') if done.returncode == 0 else None


def name_in_trap(system, receiver):
    """Raises an alarm and gives its name as the trap has it."""
    before = len(receiver.traps())
    system.vrxctl("raise", ALARM_ID, "07:55", "123")
    return wait_for(lambda: receiver.traps()[before:], "the trap")[0].value(4)


class Reloading(unittest.TestCase):
    def test_communities_users_and_texts_are_taken_and_the_count_of_starts_stays(self):
        with System() as system:
            boots = answer(system, V2C, ENGINE_BOOTS)
            second = ["-v3", "-l", "authPriv", "-u", "second", "-a", "SHA-256", "-A", "second-auth-pass", "-x", "AES",
                      "-X", "second-priv-pass"]
            self.assertIsNone(answer(system, second))
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG.replace("rocommunity public", "rocommunity other") +
                         'createUser second SHA-256 "second-auth-pass" AES "second-priv-pass"\n'
                         "rouser second priv\nsysContact Night shift\n")
            for _ in range(3):
                reload(system)
            other = ["-v2c", "-c", "other"]
            self.assertIsNone(answer(system, V2C))
            for version in (other, second, V3):
                self.assertEqual(answer(system, version), "Night shift")
            self.assertEqual(answer(system, other, ENGINE_BOOTS), boots)
            system.agent.kill()
            system.agent.start()
            self.assertEqual(answer(system, second), "Night shift")  # its keys are on disk
            self.assertEqual(int(answer(system, other, ENGINE_BOOTS)), int(boots) + 1)

    def test_definitions_and_shapes_are_taken(self):
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            self.assertEqual(name_in_trap(system, receiver), ALARM_NAME.encode())
            change(system, DEFINITIONS, ALARM_NAME, "System Restarted By Itself")
            self.assertEqual(name_in_trap(system, receiver), ALARM_NAME.encode())  # nobody said that it changed
            reload(system)
            self.assertEqual(name_in_trap(system, receiver), b"System Restarted By Itself")

            before = values(system.walk(TOPOLOGY))
            column = before[-1][0].split(".")[-2]
            self.hide_column(system, column)
            reload(system)
            hidden = values(system.walk(TOPOLOGY))
            self.assertEqual(hidden, before[:-1])

    def hide_column(self, system, number):
        """Makes a column of the topology table one that cannot be read."""
        with open(system.path(*MIB), encoding="utf-8") as file:
            text = file.read()
        start = text.index('oid="%s.%s"' % (TOPOLOGY, number))
        end = text.index("</column>", start)
        column = text[start:end].replace("<access>readonly</access>", "<access>noaccess</access>")
        self.assertNotEqual(column, text[start:end])
        system.write(os.path.join(*MIB), text[:start] + column + text[end:])

    def test_with_a_fault_in_any_file_everything_stays(self):
        faults = [
            (("etc", "vrx-agentd.conf"), "sysName", "sysNaem", "Unknown token: sysNaem."),
            (("conf", "device.xml"), "<section", "<sektion", ""),
            (DEFINITIONS, 'name="%s"' % ALARM_NAME, 'name="%s' % ALARM_NAME, ""),
            (MIB, "</column>", "</kolumn>", ""),
        ]
        with System(agent_config=CONFIG) as system, TrapReceiver() as receiver:
            system.add_destination(1, receiver.port, trap_type=COMMON)
            topology = values(system.walk(TOPOLOGY))
            for parts, old, new, text in faults:
                with open(system.path(*parts), encoding="utf-8") as file:
                    good = file.read()
                with self.subTest(file=parts[-1]):
                    change(system, ("etc", "vrx-agentd.conf"), "rocommunity public", "rocommunity other")
                    line = change(system, parts, old, new)
                    said = reload(system, REFUSED)
                    place = re.search(re.escape(system.path(*parts)) + r":([0-9]+): (.+)", said)
                    self.assertIsNotNone(place, said)
                    self.assertGreaterEqual(int(place.group(1)), line)
                    self.assertIn(text, place.group(2))
                    if parts[0] != "etc":
                        system.write(os.path.join(*parts), good)  # vrxctl reads it, too
                    self.assertEqual(values(system.walk(TOPOLOGY)), topology)
                    self.assertEqual(name_in_trap(system, receiver), ALARM_NAME.encode())
                    self.assertIsNone(answer(system, ["-v2c", "-c", "other"]))
                system.write(os.path.join(*parts), good)
                system.write("etc/vrx-agentd.conf", CONFIG)
            reload(system)


class OddFiles(unittest.TestCase):
    """What stands in the place of a file holds up nobody, and every reload ends with its result."""

    PLACES = [("etc", "vrx-agentd.conf"), ("conf", "device.xml"), DEFINITIONS, ("conf", "alarm_enumerations.xml"), MIB]

    def refused(self, system, *texts):
        done = system.vrxctl("reload", check=False)
        self.assertEqual(done.returncode, 78, done.stderr)
        for text in texts:
            self.assertIn(text, done.stderr)

    def test_pipes_devices_and_huge_files_are_refused_by_name(self):
        def pipe(path):
            os.mkfifo(path)

        def device(path):
            os.symlink("/dev/zero", path)

        def huge(path):
            with open(path, "wb") as file:
                file.truncate(3 << 30)

        with System() as system:
            # As a unit's memory limit: who reads one of them whole has none left.
            if slowdown() == 1:  # a sanitizer takes terabytes of addresses
                resource.prlimit(system.agent.pid, resource.RLIMIT_AS, (LIMIT, LIMIT))
            for parts in self.PLACES:
                path = system.path(*parts)
                os.rename(path, path + ".good")
                for make in (pipe, device, huge):
                    with self.subTest(file=parts[-1], kind=make.__name__):
                        make(path)
                        self.refused(system, path)
                        self.assertIsNotNone(answer(system, V3))
                        os.unlink(path)
                os.rename(path + ".good", path)
                self.assertEqual(system.vrxctl("reload"), "")

    def test_a_fault_that_is_no_text_is_told_all_the_same(self):
        with System() as system:
            with open(system.path("etc", "vrx-agentd.conf"), "ab") as file:
                file.write(b"sys\xff\xfename x\n")
            self.refused(system, "Unknown token: sys\ufffd\ufffdname.")


class Checking(unittest.TestCase):
    def check(self, system):
        return subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd"), "--check-config", "--root", system.root,
                               "--module", System.module_path()], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False)

    def test_nothing_is_said_of_a_configuration_in_order(self):
        with System(start=False) as system:
            done = self.check(system)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
            self.assertFalse(os.path.exists(system.path("state")))

    def test_it_runs_beside_an_agent(self):
        with System() as system:
            self.assertEqual(self.check(system).returncode, 0)
            self.assertIsNotNone(answer(system, V3))

    def test_every_fault_is_told_with_file_and_line(self):
        with System(start=False) as system:
            system.write("etc/vrx-agentd.conf", "rocommunity public\nrocomunity public\nvrxWaitingRequests -1\n"
                         "createUser x MD9 \"some-words\"\nrouser\nagentAddress udp:127.0.0.1:99999\n")
            system.set_device({("BACKEND", "CALL_DEADLINE_MS"): "soon"})
            done = self.check(system)
            conf = system.path("etc", "vrx-agentd.conf")
            self.assertEqual(done.returncode, 78)
            for line in ("%s:2: Unknown token: rocomunity." % conf,
                         "%s:3: vrxWaitingRequests: not a number from 1 to 3600000: -1" % conf,
                         "%s:4: createUser: no authentication protocol: MD9" % conf,
                         "%s:5: Blank line following rouser token." % conf,
                         '%s:6: agentAddress: "udp:127.0.0.1:99999": the port is no number from 1 to 65535' % conf):
                self.assertIn(line, done.stdout.splitlines())
            self.assertIn("CALL_DEADLINE_MS", done.stdout)


if __name__ == "__main__":
    unittest.main()
