"""vrxctl traps --follow: each notification as a line, over ends of the agent, of the reader and of vrxctl itself."""

import array
import fcntl
import glob
import json
import os
import queue
import signal
import subprocess
import termios
import threading
import unittest

from backend_client import BackendClient
from harness import PROGRAM_DIR, wait_for
from trap_receiver import TrapReceiver
from traps_test import COMMON, TrapSystem

EX_DATAERR = 65
PIPE_OCTETS = 65536
WAL_PAGES = 1000  # after so many SQLite writes the log of changes back; a page has 4096 octets


class Follower:
    """vrxctl traps --follow, whose lines are collected."""

    def __init__(self, system, *arguments, read=True):
        self.process = subprocess.Popen(
            [os.path.join(PROGRAM_DIR, "vrxctl"), "--root", system.path(), "traps", "--follow", *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self._lines = queue.Queue()
        self.numbers = []
        if read:
            self.collect()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        for stream in (self.process.stdout, self.process.stderr):
            stream.close()

    def _collect(self):
        try:
            for line in self.process.stdout:
                self._lines.put(line)
        except ValueError:  # closed meanwhile
            pass

    def line(self):
        return self._lines.get(timeout=60)

    def unread(self):
        waiting = array.array("i", [0])
        fcntl.ioctl(self.process.stdout, termios.FIONREAD, waiting)
        return waiting[0]

    def collect(self):
        threading.Thread(target=self._collect, daemon=True).start()

    def read_to(self, number):
        while not self.numbers or self.numbers[-1] < number:
            line = json.loads(self.line())
            assert (line["schema"], line["type"]) == ("vrx-traps/1", "notification"), line
            self.numbers.append(line["number"])


def raise_alarms(system, count):
    with BackendClient(system.path("state", "backend.sock")) as backend:
        backend.raise_alarms(count)


def newest_entry(system):
    return (json.loads(system.vrxctl("traps", "--json", "--last", "1")) or [{"number": 0}])[0]


def newest(system):
    return newest_entry(system)["number"]


class TrapStream(unittest.TestCase):
    def setUp(self):
        self.system = self.enterContext(TrapSystem())
        receiver = self.enterContext(TrapReceiver())
        self.system.add_destination(1, receiver.port, trap_type=COMMON)

    def test_each_number_comes_once_over_kills_of_agent_and_reader(self):
        numbers = []
        for stop in ("agent", "follower", "both"):
            with Follower(self.system, "--json", "--after", str(len(numbers))) as follower:
                raise_alarms(self.system, 20)
                follower.read_to(len(numbers) + 20)
                if stop != "follower":
                    self.system.agent.kill()
                if stop == "agent":
                    self.system.agent.start()
                    raise_alarms(self.system, 5)
                    follower.read_to(len(numbers) + len(follower.numbers) + 5)
            if stop == "both":
                self.system.agent.start()
            numbers += follower.numbers
            raise_alarms(self.system, 5)  # that nobody follows
        wait_for(lambda: newest(self.system) >= 80, "80 entries")
        last = newest(self.system)
        with Follower(self.system, "--json", "--after", str(len(numbers))) as follower:
            follower.read_to(last)
            numbers += follower.numbers
        self.assertEqual(numbers, list(range(1, last + 1)))

    def test_a_line_has_what_the_list_has(self):
        with Follower(self.system, "--json", "--after", "0") as follower:
            self.system.raise_alarm()
            line = json.loads(follower.line())
        entry = json.loads(self.system.vrxctl("traps", "--json"))[0]
        self.assertEqual(line, dict(entry, schema="vrx-traps/1", type="notification"))

    def test_a_cloud_event_has_it_as_its_data(self):
        with Follower(self.system, "--cloudevents", "urn:array:7", "--after", "0") as follower:
            self.system.raise_alarm()
            event = json.loads(follower.line())
        self.assertEqual((event["specversion"], event["source"], event["type"], event["subject"], event["datacontenttype"]),
                         ("1.0", "urn:array:7", "vrx.notification.raise", str(event["data"]["serial"]), "application/json"))
        self.assertEqual(event["time"], event["data"]["time"])

    def test_it_ends_when_nobody_reads_any_more(self):
        with Follower(self.system, "--json", read=False) as follower:
            follower.process.stdout.close()
            self.assertEqual(follower.process.wait(timeout=60), 0)
            self.assertEqual(follower.process.stderr.read(), "")

    def test_a_reader_that_stops_keeps_the_agents_file_from_nothing(self):
        with Follower(self.system, "--json", "--after", "0", read=False) as follower:
            raise_alarms(self.system, 100)
            wait_for(lambda: newest(self.system) >= 100, "more entries than a pipe takes")
            # Full or soon: a piece of less than a page takes a page of its own.
            wait_for(lambda: follower.unread() > PIPE_OCTETS // 4, "a pipe that fills")
            for _ in range(20):
                raise_alarms(self.system, 200)
            wait_for(lambda: newest(self.system) >= 4100, "all entries")
            size = sum(map(os.path.getsize, glob.glob(self.system.path("state", "notification_log.db-wal"))))
            self.assertLess(size, 2 * WAL_PAGES * 4096)
            follower.collect()
            follower.read_to(4100)
        self.assertEqual(follower.numbers, list(range(1, 4101)))

    def test_a_log_that_was_deleted_is_followed_from_its_beginning(self):
        with Follower(self.system, "--json", "--after", "0") as follower:
            raise_alarms(self.system, 3)
            follower.read_to(3)
            for path in glob.glob(self.system.path("state", "notification_log.db*")):
                os.unlink(path)
            raise_alarms(self.system, 2)
            after = [json.loads(follower.line()) for _ in range(3)]
        self.assertEqual([(line["type"], line.get("number", line.get("after"))) for line in after],
                         [("new-log", 3), ("notification", 1), ("notification", 2)])

    def test_a_person_sees_the_table_grow(self):
        with Follower(self.system) as follower:
            self.assertEqual(follower.line().split()[0], "NUMBER")
            self.system.raise_alarm()
            self.assertEqual(follower.line().split()[0], "1")
            follower.process.send_signal(signal.SIGINT)
            self.assertEqual(follower.process.wait(timeout=60), -signal.SIGINT)

    def test_what_does_not_go_together_is_refused(self):
        feed = ["--feed", "cat", "--cursor", self.system.path("cursor")]
        for arguments in (["--after", "1"], ["--cloudevents", "urn:x"], ["--syslog", "x"], ["--json", *feed],
                          ["--follow", "--until", "1h"], ["--follow", "--after", "1", "--last", "1"],
                          ["--follow", "--json", "--syslog", "x"], ["--follow", "--syslog", "two words"],
                          ["--follow", "--json", "--feed", "cat"], ["--follow", "--json", *feed[2:]],
                          ["--follow", *feed], ["--follow", "--json", "--last", "1", *feed]):
            done = self.system.vrxctl("traps", *arguments, check=False)
            self.assertEqual((done.returncode, done.stdout), (EX_DATAERR, ""), arguments)
            self.assertTrue(done.stderr.startswith("vrxctl: "), done.stderr)


class Feed(unittest.TestCase):
    """vrxctl traps --follow --feed: to a command, which may refuse."""

    def setUp(self):
        self.system = self.enterContext(TrapSystem())
        receiver = self.enterContext(TrapReceiver())
        self.system.add_destination(1, receiver.port, trap_type=COMMON)
        self.taken, self.cursor = self.system.path("taken"), self.system.path("cursor")

    def feed(self, command, *more, kind="--json"):
        return Follower(self.system, kind, "--cursor", self.cursor, "--feed", command, *more)

    def lines(self):
        try:
            with open(self.taken, encoding="utf-8") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def numbers(self):
        return [json.loads(line)["number"] for line in self.lines()]

    def kept(self):
        try:
            with open(self.cursor, encoding="utf-8") as file:
                return int(file.read())
        except FileNotFoundError:
            return None

    def wait_kept(self, number):
        wait_for(lambda: self.kept() == number, "the number %d in the cursor" % number)

    def test_the_command_gets_each_line_over_kills_of_agent_and_vrxctl(self):
        raise_alarms(self.system, 5)  # before the first start
        wait_for(lambda: newest(self.system) >= 5, "5 entries")
        for _ in range(3):
            with self.feed("cat >>" + self.taken):  # killed at the end of the block
                raise_alarms(self.system, 20)
                wait_for(lambda known=len(self.lines()): len(self.lines()) > known, "another line")
            self.system.agent.kill()
            self.system.agent.start()
            raise_alarms(self.system, 5)
        with self.feed("cat >>" + self.taken):
            wait_for(lambda: newest(self.system) >= 80, "80 entries")
            serial = 990_001  # comes after all that the agent still has to send of the time before its last end
            self.system.raise_alarm(serial=serial)
            wait_for(lambda: newest_entry(self.system)["serial"] == serial, "the last alarm's entry")
            last = newest(self.system)
            self.wait_kept(last)
            before = self.numbers()
            self.assertEqual(set(before), set(range(1, last + 1)))
        with self.feed("cat >>" + self.taken):
            raise_alarms(self.system, 1)
            self.wait_kept(last + 1)
            self.assertEqual(self.numbers(), before + [last + 1], "what was taken does not come again")

    def test_what_the_command_refuses_it_gets_again(self):
        ready, refused = self.system.path("ready"), self.system.path("refused")
        with self.feed("if [ -e %s ]; then cat >>%s; else cat >>%s; exit 3; fi" % (ready, self.taken, refused)) as feed:
            raise_alarms(self.system, 3)
            self.assertEqual(feed.process.stderr.readline(), "vrxctl: the command ended with 3; trying again\n")
            self.assertEqual((self.kept(), self.lines()), (0, []))
            with open(ready, "wb"):
                pass
            self.wait_kept(3)
            self.assertEqual(self.numbers(), [1, 2, 3])

    def test_a_command_that_outlives_vrxctl_has_whole_lines(self):
        raise_alarms(self.system, 200)
        wait_for(lambda: newest(self.system) >= 200, "200 entries")
        with self.feed("kill -9 $PPID; cat >%s; mv %s %s" % (self.taken + ".part", self.taken + ".part", self.taken)) as feed:
            self.assertEqual(feed.process.wait(timeout=60), -signal.SIGKILL)
        wait_for(self.lines, "the command's end")
        self.assertGreater(os.path.getsize(self.taken), PIPE_OCTETS)
        self.assertEqual(self.numbers(), list(range(1, len(self.numbers()) + 1)))
        self.assertEqual(self.kept(), 0)

    def test_a_cursor_that_cannot_be_written_holds_nothing_up(self):
        self.cursor = self.system.path("folder", "cursor")
        os.mkdir(os.path.dirname(self.cursor))
        with self.feed("cat >>" + self.taken) as feed:
            wait_for(lambda: os.path.exists(self.cursor), "the cursor")
            os.unlink(self.cursor)
            os.rmdir(os.path.dirname(self.cursor))
            raise_alarms(self.system, 1)
            line = feed.process.stderr.readline()
            self.assertIn(self.cursor, line)
            self.assertTrue(line.endswith("; trying again\n"), line)
            raise_alarms(self.system, 1)
            wait_for(lambda: self.numbers() == [1, 2], "both lines")
            os.mkdir(os.path.dirname(self.cursor))
            wait_for(lambda: os.path.exists(self.cursor), "the cursor again")
            self.wait_kept(2)

    def test_a_cursor_that_is_none_is_refused(self):
        for content in ("", "12", "12 \n", "-1\n", "x\n", "99999999999999999999\n"):
            with open(self.cursor, "w", encoding="utf-8") as file:
                file.write(content)
            done = self.system.vrxctl("traps", "--follow", "--json", "--cursor", self.cursor, "--feed", "cat", check=False)
            self.assertEqual((done.returncode, done.stdout), (EX_DATAERR, ""), content)
            self.assertIn(self.cursor, done.stderr)

    def test_a_line_may_be_a_syslog_message(self):
        with self.feed("cat >>" + self.taken, kind="--syslog=array7"):
            self.system.raise_alarm()
            self.wait_kept(1)
        entry = json.loads(self.system.vrxctl("traps", "--json"))[0]
        self.assertRegex(self.lines()[0], r'^<131>1 %s array7 vrx - raise \[vrx@99871 .*\] %s$' % (entry["time"], entry["text"]))


if __name__ == "__main__":
    unittest.main()
