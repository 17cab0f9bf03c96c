"""Disks that fail or are full while the SNMP engine keeps its ID, the count of starts and its users: a start whose number
cannot be kept does not happen, a failure is told, and what was kept before stays.
"""

import errno
import os
import socket
import unittest

from faults import FaultySystem
from harness import AGENT_CONFIG, V3, System, wait_for

LONGEST = 500  # changes of files for one start: far more than any makes
EX_OK, EX_UNAVAILABLE, EX_IOERR, EX_CONFIG = 0, 69, 74, 78  # sysexits.h
NOBODY = 65534
FILE = "net-snmp/vrx-agentd.conf cannot be written: "


class EngineState(unittest.TestCase):
    def setUp(self):
        self.system = FaultySystem(start=False)
        self.addCleanup(self.system.close)
        self.system.backend.start()
        self.agent, self.faults = self.system.agent, self.system.agent_faults
        self.state = self.system.path("state", "net-snmp")

    def kept_path(self):
        return os.path.join(self.state, "vrx-agentd.conf")

    def kept(self):
        """(count of starts, the users' lines without the last word, an empty text in one of two spellings)"""
        with open(self.kept_path(), encoding="utf-8") as file:
            lines = file.read().splitlines()
        starts = [int(line.split()[1]) for line in lines if line.startswith("engineBoots ")]
        self.assertEqual(len(starts), 1)
        return starts[0], [line.split()[:-1] for line in lines if line.startswith("usmUser ")]

    def log(self):
        return self.agent.log(since_start=True)

    def start(self):
        """Whether it got ready."""
        self.agent.start(wait=False)
        wait_for(lambda: self.is_ready() or not self.agent.running(), "the start or its end")
        return self.is_ready()

    def is_ready(self):
        return any(line.endswith(" ready") for line in self.log().splitlines())


    def test_a_start_keeps_its_number_or_is_refused_wherever_a_write_fails(self):
        self.assertTrue(self.start())
        self.agent.stop()
        refused = 0
        for number in range(1, LONGEST):
            before = self.kept()
            self.assertEqual(len(before[1]), 1)
            self.faults.fail_change(self.state, number, forever=True)
            ready = self.start()
            failed = self.faults.changes()[1]
            self.faults.stop()
            if ready:
                self.assertEqual(self.agent.stop(), EX_OK)
                self.assertEqual(self.kept(), (before[0] + 1, before[1]), number)
            else:
                self.assertEqual(self.agent.process.returncode, EX_UNAVAILABLE, self.log())
                self.assertIn("no start whose number cannot be kept: ", self.log())
                self.assertEqual(self.kept()[1], before[1])
                # Its own end stores once more, with the disk back or not.
                self.assertIn(self.kept()[0], (before[0], before[0] + 1))
                self.agent.process = None
                refused += 1
            if not failed:
                break
        else:
            self.fail("changes without end")
        self.assertGreater(refused, 3)

    def test_each_line_of_the_state_that_is_lost_is_noticed(self):
        """Only one write fails, and the library goes on after it."""
        self.assertTrue(self.start())
        self.agent.stop()
        refused = 0
        for number in range(1, LONGEST):
            before = self.kept()
            self.faults.fail_change(self.state, number)
            ready = self.start()
            failed = self.faults.changes()[1]
            self.faults.stop()
            if ready:
                self.assertEqual(self.agent.stop(), EX_OK)
            else:
                self.agent.process = None
                refused += 1
            after = self.kept()
            self.assertEqual(after[1], before[1], number)
            self.assertIn(after[0], (before[0] + 1,) if ready else (before[0], before[0] + 1), number)
            if not failed:
                break
        else:
            self.fail("changes without end")

    def test_a_start_syncs_the_file_and_its_folder_once(self):
        self.assertTrue(self.start())
        self.agent.stop()
        self.faults.fail_change(self.state, LONGEST)
        self.assertTrue(self.start())
        # Written, synced, in its place, the one before beside it, the folder synced.
        self.assertEqual(self.faults.changes(), (5, 0))

    def test_files_that_cannot_change_places_are_copied(self):
        """As on file systems that know no such renaming."""
        self.assertTrue(self.start())
        self.agent.stop()
        before = read(self.kept_path())
        self.faults.fail_change(self.state, 3, error=errno.EINVAL)
        self.assertTrue(self.start())
        self.assertEqual(self.faults.changes()[1], 1)
        self.faults.stop()
        self.assertEqual(read(self.kept_path() + ".last"), before)
        self.assertEqual(self.kept()[0], 2)
        self.agent.kill()
        self.assertTrue(self.start())
        self.assertEqual(self.kept()[0], 3)

    def test_a_start_that_has_answered_is_counted_whenever_it_is_killed(self):
        ask = bytes.fromhex("302602010104067075626c6963a019020101020100020100300e300c06082b060102010103000500")  # a GET
        for starts in range(1, 6):
            self.agent.start(wait=False)
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
                asking.settimeout(0.001)
                wait_for(lambda: self.answers(asking, ask), "an answer")
            self.agent.kill()
            self.assertEqual(self.kept()[0], starts)

    def answers(self, asking, message):
        try:
            asking.sendto(message, ("127.0.0.1", self.system.port))
            return asking.recv(2048)
        except OSError:  # nobody is there yet
            return None

    def test_an_end_that_cannot_store_says_so_and_leaves_what_was_kept(self):
        self.assertTrue(self.start())
        before = self.kept()
        self.faults.fail_change(self.state, forever=True)
        self.assertEqual(self.agent.stop(), EX_OK)
        self.assertEqual(self.log().count(FILE), 1)
        self.faults.stop()
        self.assertEqual(self.kept(), before)
        self.assertTrue(self.start())
        self.assertEqual(self.kept(), (before[0] + 1, before[1]))

    def test_a_user_who_cannot_be_kept_is_not_made(self):
        self.assertTrue(self.start())
        before = self.kept()
        self.faults.fail_change(self.state, forever=True)
        done = self.system.vrxctl("user", "add", "oncall", check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(FILE, done.stderr)
        self.faults.stop()
        self.assertEqual(self.kept(), before)
        self.system.vrxctl("user", "add", "oncall")
        self.assertEqual(len(self.kept()[1]), 2)
        self.assertEqual(self.log().count(FILE), 1)
        self.assertEqual(self.log().count("net-snmp/vrx-agentd.conf can be written again"), 1)

    def test_an_engine_id_that_cannot_be_kept_is_no_engine_id(self):
        engine = self.system.path("state", "engine")
        for number in range(1, LONGEST):
            self.faults.fail_change(engine, number, forever=True)
            ready = self.start()
            self.faults.stop()
            if ready:
                break
            self.assertEqual(self.agent.process.returncode, EX_UNAVAILABLE, self.log())
            self.assertIn("engine/vrx-agentd.conf cannot be written: ", self.log())
            self.agent.process = None
        self.assertGreater(number, 2)
        with open(os.path.join(engine, "vrx-agentd.conf"), encoding="utf-8") as file:
            self.assertRegex(file.read(), r"^exactEngineID 0x[0-9a-f]{26}\n$")


class DamagedFiles(unittest.TestCase):
    """After a restore, or a bad day of the disk: what is there and is not whole is never replaced by nothing."""

    def setUp(self):
        self.system = System(start=False)
        self.addCleanup(self.system.close)
        self.agent = self.system.agent
        self.agent.start()
        self.agent.stop()

    def refuses(self, path, text):
        """A start ends with the file's name, and the file, or what stands there, is as it was."""
        before = os.readlink(path) if os.path.islink(path) else read(path)
        self.agent.start(wait=False)
        code = self.agent.process.wait(60)
        self.assertEqual((code, self.agent.log(since_start=True).count(" ready\n")), (EX_IOERR, 0))
        self.assertIn("%s: %s" % (path, text), self.agent.log(since_start=True))
        self.assertEqual(os.readlink(path) if os.path.islink(path) else read(path), before)
        self.agent.process = None

    def test_each_cut_and_what_is_no_file_ends_the_start(self):
        for folder in ("net-snmp", "engine"):
            path = self.system.path("state", folder, "vrx-agentd.conf")
            whole = read(path)
            for size in (0, 10, len(whole) // 2, len(whole) - 4, len(whole) - 1):
                with self.subTest(file=path, size=size):
                    write(path, whole[:size])
                    self.refuses(path, "")
            os.unlink(path)
            os.symlink(path, path)  # even root cannot read that
            self.refuses(path, "Too many levels of symbolic links")
            os.unlink(path)
            write(path, whole)
        self.assert_boots_and_user(2)

    def assert_boots_and_user(self, boots):
        self.agent.start()
        self.assertIn("= INTEGER: %d" % boots, self.system.get("1.3.6.1.6.3.10.2.1.2.0", version=V3))
        self.agent.stop()

    def test_cuts_between_lines_are_noticed_too(self):
        path = self.system.path("state", "net-snmp", "vrx-agentd.conf")
        whole = read(path)
        lines = whole.splitlines(keepends=True)
        for count in (1, len(lines) - 3, len(lines) - 2, len(lines) - 1):
            write(path, b"".join(lines[:count]))
            self.refuses(path, "it is not whole: ")
        write(path, whole)
        path = self.system.path("state", "engine", "vrx-agentd.conf")
        write(path, read(path)[:-5] + b"\n")
        self.refuses(path, "its engine ID is cut off")

    def test_a_file_of_another_user_ends_the_start(self):
        """As a restore by root leaves it: the agent's own user may not read it."""
        if os.geteuid() == 0:
            self.agent.user = NOBODY
        os.chmod(self.system.root, 0o755)
        for folder, folders, files in os.walk(self.system.path("state")):
            for name in [folder] + [os.path.join(folder, file) for file in files]:
                os.chown(name, *(NOBODY, NOBODY) if os.geteuid() == 0 else (-1, -1))
        path = self.system.path("state", "net-snmp", "vrx-agentd.conf")
        os.chmod(path, 0)
        if os.geteuid() == 0:
            os.chown(path, 0, 0)
        self.refuses(path, "Permission denied")

    def test_the_file_before_is_kept_and_can_be_put_back(self):
        path = self.system.path("state", "net-snmp", "vrx-agentd.conf")
        self.assert_boots_and_user(2)
        before = read(path)
        self.agent.start()
        self.agent.kill()
        self.assertEqual(read(path + ".last"), before)
        os.replace(path + ".last", path)
        self.assert_boots_and_user(3)


class WordsOfTheState(unittest.TestCase):
    """The count of starts is the agent's: no line of the configuration keeps it from being read or counted."""

    def test_they_are_refused_and_starts_are_counted_all_the_same(self):
        for line in ("[snmp] persistentDir /tmp", "[snmp]\npersistentDir /tmp", "[snmp] noPersistentLoad yes",
                     "[snmp] noPersistentSave yes", "engineBoots 7", "oldEngineID 0x80001f8804"):
            with self.subTest(line=line), System(start=False, extra_config=line + "\n") as system:
                for boots in (1, 2, 3):
                    system.agent.start()
                    self.assertIn("= INTEGER: %d" % boots, system.get("1.3.6.1.6.3.10.2.1.2.0", version=V3))
                    self.assertIn("vrx-agentd.conf:%d: " % (AGENT_CONFIG.count("\n") + line.count("\n") + 1),
                                  system.agent.log(since_start=True))
                    system.agent.stop()


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


if __name__ == "__main__":
    unittest.main()
