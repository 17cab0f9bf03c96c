"""vrxctl watch: on a pseudo terminal with a screen, and in a pipe."""

import os
import re
import signal
import subprocess
import unittest

from harness import PROGRAM_DIR, System, free_port, wait_for
from terminal import DOWN, END, ENTER, ESCAPE, PAGE_DOWN, TAB, Terminal

ALARM = "4295229443"  # Disk Failed, of a slot
UNDEFINED = "4295229999"
CRITICAL, MAJOR, WARNING = "6", "5", "1"
CONFIG = "trapcommunity public\n"
ENTERS_ALTERNATE_SCREEN = b"\x1b[?47h"
LEAVES_ALTERNATE_SCREEN = b"\x1b[?47l"
# What ncurses sends to this terminal: cursor, erasing, attributes, modes, scrolling, character sets.
SEQUENCES = re.compile(rb"\x1b(?:\[[?]?[0-9;]*[A-Za-z]|[78=>M]|[()][B0])")


def command(system, *options):
    return [os.path.join(PROGRAM_DIR, "vrxctl"), "--root", system.root, "watch", "--interval", "1", *options]


def raise_alarm(system, slot, level=MAJOR, count=1, alarm=ALARM):
    return system.vrxctl("raise", alarm, str(slot), "CTE0", "1", "--level", level, "--count", str(count)).split()


class ScreenTest(unittest.TestCase):
    def setUp(self):
        self.system = System(extra_config=CONFIG)
        self.addCleanup(self.system.__exit__, None, None, None)
        self.system.__enter__()

    def watch(self, *options, **more):
        terminal = Terminal(command(self.system, *options), **more)
        self.addCleanup(terminal.__exit__, None, None, None)
        return terminal

    def test_shows_agent_backend_alarms_destinations_and_notifications(self):
        terminal = self.watch()
        terminal.wait_for("all is well", "backend   connected", "ALARMS none", "DESTINATIONS none",
                          "NOTIFICATIONS none", "alarms    0 active: critical 0, major 0, minor 0, warning 0")
        port = free_port()
        self.system.add_destination(1, port)
        serial = raise_alarm(self.system, 7, CRITICAL)[0]
        raise_alarm(self.system, 8, WARNING)
        screen = terminal.wait_for("2 active: critical 1, major 0, minor 0, warning 1", "4 sent, 0 waiting, 0 dropped",
                                   "slot 7.", "slot 8.", "SET 1, 99 % within")
        lines = screen.splitlines()
        self.assertRegex(screen, r"1 127.0.0.1 %d v2 +ready, 4 sent" % port)
        at = lines.index("ALARMS 1-2 of 2, newest first")
        self.assertRegex(lines[at + 1], r">[-0-9]{10} [0-9:]{8} warning  Disk Failed: Enclosure CTE0, slot 8\.")
        self.assertRegex(lines[at + 2], r" [-0-9]{10} [0-9:]{8} critical Disk Failed: Enclosure CTE0, slot 7\.")
        self.assertRegex(screen, r"NOTIFICATIONS 1-3 of 4, newest first\n [0-9:]{8} raise warning  own +to 1 The disk")

        terminal.press("s")
        terminal.wait_for("ALARMS 1-2 of 2, by level")
        self.assertIn("critical Disk", terminal.lines()[at + 1])
        terminal.press(ENTER)
        details = terminal.wait_for("alarm %s, serial number %s" % (ALARM, serial), "location  Enclosure CTE0, slot 7.")
        self.assertIn("advice    Replace the disk in slot 7 of enclosure CTE0.", details)
        terminal.press(ENTER)
        terminal.press("/SLOT 8" + ENTER)
        terminal.wait_for('ALARMS 1-1 of 1, by level, with "SLOT 8" (2 in all)')
        terminal.press(ESCAPE)
        terminal.wait_for("ALARMS 1-2 of 2, by level")
        terminal.press("l")
        terminal.wait_for("ALARMS 1-1 of 1, by level, critical only (2 in all)")
        self.system.vrxctl("clear", serial)
        terminal.wait_for("1 active: critical 0", "ALARMS none", " clear critical ")

    def test_agent_and_backend_that_are_away_and_come_back(self):
        terminal = self.watch()
        raise_alarm(self.system, 7)
        terminal.wait_for("slot 7.")
        self.system.backend.stop()
        terminal.wait_for("trouble: the backend is away", "backend   away for", "slot 7.")
        self.system.backend.start()
        terminal.wait_for("all is well", "backend   connected")
        self.system.agent.kill()
        screen = terminal.wait_for("vrx-agentd away since 20", "no agent can be reached at", "what follows is of 20")
        self.assertIn("slot 7.", screen)
        self.system.agent.start()
        raise_alarm(self.system, 8)
        self.assertNotIn("away", terminal.wait_for("all is well", "slot 8."))
        terminal.press("q")
        self.assertEqual(terminal.wait_end(), 0)

    def test_no_agent_at_the_start(self):
        self.system.agent.stop()
        terminal = self.watch()
        terminal.wait_for("vrx-agentd away since 20", "ALARMS none")
        self.system.agent.start()
        terminal.wait_for("all is well", "backend   connected")

    def test_keys_are_answered_while_the_agent_hangs(self):
        terminal = self.watch()
        terminal.wait_for("all is well")
        os.kill(self.system.agent.pid, signal.SIGSTOP)
        self.addCleanup(os.kill, self.system.agent.pid, signal.SIGCONT)
        terminal.press("?")
        terminal.wait_for("Esc back")
        terminal.press("q")
        self.assertEqual(terminal.wait_end(), 0)
        self.assertEqual(terminal.settings(), terminal.before)

    def test_narrow_resized_and_tiny_screens(self):
        for slot in range(12):
            raise_alarm(self.system, slot)
        self.system.add_destination(1, free_port())
        terminal = self.watch(columns=40)
        screen = terminal.wait_for("alarms    12 active: critical 0, major\n12, minor", "Disk Failed: Encl>")
        self.assertIn("DESTINATIONS 1-1 of 1", screen)
        keys = "q quit  Tab list  Enter texts  / search  l level  s sort  ? help"
        for rows, columns in ((50, 132), (24, 80), (10, 30), (4, 10), (2, 5), (1, 1), (24, 80)):
            before = len(terminal.output)
            terminal.resize(rows, columns)
            last = keys if len(keys) <= columns else keys[:columns - 1] + ">"
            # Of the smallest ones there is no line for keys.
            wait_for(lambda: terminal.lines()[-1] == last or (rows < 3 and len(terminal.output) > before),
                     "%dx%d" % (columns, rows))
            terminal.press(DOWN + PAGE_DOWN)
        terminal.wait_for("all is well", "alarms    12 active: critical 0, major 12", "ALARMS 1-", ">20",
                          "DESTINATIONS 1-1 of 1", "NOTIFICATIONS none")

    def test_ten_thousand_alarms(self):
        raise_alarm(self.system, 1)
        raise_alarm(self.system, 2, count=9998)
        raise_alarm(self.system, 3)
        terminal = self.watch()
        terminal.wait_for("alarms    10000 active", "of 10000, newest first", "slot 3.")
        terminal.press(END)
        terminal.wait_for("-10000 of 10000", "slot 1.")
        calls = self.calls()
        terminal.press("/slot 1." + ENTER)
        terminal.wait_for("ALARMS 1-1 of 1", "(10000 in all)")
        # Nothing has changed: after more looks the backend has not been asked for the list again.
        clock = terminal.lines()[0].split()[-1]
        wait_for(lambda: terminal.lines()[0].split()[-1] > clock, "another look")
        self.assertEqual(self.calls(), calls)
        terminal.press(ESCAPE)
        raise_alarm(self.system, 4)
        terminal.wait_for("alarms    10001 active")
        terminal.wait_for("of 10001, newest first")

    def calls(self):
        """Octets that the backend has written, to anybody."""
        with open("/proc/%d/io" % self.system.backend.pid, encoding="ascii") as file:
            return int(re.search(r"wchar: (\d+)", file.read()).group(1))

    def test_texts_cannot_reach_the_terminal_raw(self):
        hostile = ["\x1b]0;owned\x07\x1b[2J\x1b[31m", "\x9b2J\x90q\x9c", "a\rb\nc\td\x08\x7f", "\u202Eevil\u2066",
                   "\udcff\udcc3", "\u7aef\u53e3\u7aef\u53e3" * 20, "e\u0301" * 200 + "\u0301" * 500, "\u2028\ufeff\U000e0001"]
        for text in hostile:
            self.system.vrxctl("raise", ALARM, text, text, "1")
        self.system.vrxctl("raise", UNDEFINED, *hostile[:2])
        for columns, locale in ((80, "C.UTF-8"), (40, "C.UTF-8"), (41, "C.UTF-8"), (80, "C")):
            with Terminal(command(self.system), columns=columns, environment={"LC_ALL": locale}) as terminal:
                terminal.wait_for("alarms    9 active", "alarm %s " % UNDEFINED)
                for _ in range(9):
                    terminal.press(ENTER)
                    terminal.wait_for("Esc back")
                    terminal.press(ENTER)
                    terminal.wait_for("q quit")
                    terminal.press(DOWN)
                terminal.press(TAB + TAB + PAGE_DOWN + PAGE_DOWN)
                terminal.wait_for("NOTIFICATIONS")
                terminal.press("q")
                self.assertEqual(terminal.wait_end(), 0)
                rest = SEQUENCES.sub(b"", terminal.output)
                text = rest.decode("utf-8" if locale == "C.UTF-8" else "ascii")  # or it fails
                self.assertEqual(re.findall(".{,9}[\x00-\x07\x0b\x0c\x0e\x10-\x1f\x7f-\x9f\u2028-\u202e\u2066-\u2069].{,9}", text), [])
                self.assertNotIn(b"]0;owned", terminal.output.replace(b"\\x1B]0;owned", b""))
                self.assertNotIn(b"\x1b[31mDisk", terminal.output)

    def test_wide_characters_take_two_columns(self):
        self.system.vrxctl("raise", ALARM, "7", "\u7aef" * 40, "1")
        for columns, end in ((80, "\u7aef>"), (81, "\u7aef >")):  # an odd or an even rest
            with Terminal(command(self.system), columns=columns) as terminal:
                terminal.wait_for("Disk Failed", "\u7aef")
                lines = terminal.lines()
                row = lines.index("ALARMS 1-1 of 1, newest first") + 1
                self.assertTrue(lines[row].endswith(end), lines[row])
                self.assertEqual(terminal.cell(row, columns - 1).data, ">")
                self.assertEqual(lines[row + 1], "")

    def test_no_colour_carries_information(self):
        raise_alarm(self.system, 7, CRITICAL)
        for environment, coloured in (({}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "vt220"}, False)):
            with Terminal(command(self.system), environment=environment) as terminal:
                lines = terminal.wait_for("critical Disk Failed", "q quit").splitlines()
                row = lines.index("ALARMS 1-1 of 1, newest first") + 1
                cells = [terminal.cell(y, x) for y in range(24) for x in range(80)]
                self.assertEqual(any(cell.fg != "default" for cell in cells), coloured, environment)
                self.assertTrue(lines[row].startswith(">"))

    def test_the_terminal_is_as_it_was_whatever_ends_it(self):
        endings = {"q": lambda terminal: terminal.press("q"), "Ctrl-C": lambda terminal: terminal.press("\x03"),
                   "SIGTERM": lambda terminal: terminal.process.send_signal(signal.SIGTERM),
                   "SIGHUP": lambda terminal: terminal.process.send_signal(signal.SIGHUP),
                   "Ctrl-\\": lambda terminal: terminal.press("\x1c")}
        codes = {"q": 0, "Ctrl-C": -signal.SIGINT, "SIGTERM": -signal.SIGTERM, "SIGHUP": -signal.SIGHUP,
                 "Ctrl-\\": -signal.SIGQUIT}
        for name, end in endings.items():
            with self.subTest(name), Terminal(command(self.system)) as terminal:
                terminal.wait_for("all is well")
                self.assertNotEqual(terminal.settings(), terminal.before)
                end(terminal)
                self.assertEqual(terminal.wait_end(), codes[name])
                self.assertEqual(terminal.settings(), terminal.before)
                self.assertGreater(terminal.output.rfind(LEAVES_ALTERNATE_SCREEN),
                                   terminal.output.rfind(ENTERS_ALTERNATE_SCREEN))
                self.assertNotIn(b"\x1b[?25l", terminal.output[terminal.output.rfind(b"\x1b[?25h"):])

    def test_a_terminal_that_goes_ends_it(self):
        terminal = self.watch()
        terminal.wait_for("all is well")
        os.close(terminal._main)  # as sshd does
        terminal.process.wait(30)
        terminal._main, terminal._side = os.openpty()

    def test_stopped_and_gone_on_with(self):
        with Terminal(["bash", "--norc", "-i"], environment={"PS1": "prompt:"}) as terminal:
            terminal.wait_for("prompt:")
            before = terminal.settings()
            terminal.press(" ".join(command(self.system)) + "\n")
            terminal.wait_for("all is well")
            terminal.wipe()
            terminal.press("\x1a")
            terminal.wait_for("Stopped", "prompt:")
            self.assertEqual(terminal.settings()[3], before[3])
            terminal.wipe()
            terminal.press("fg\n")
            terminal.wait_for("all is well", "q quit")
            raise_alarm(self.system, 7)
            terminal.wait_for("slot 7.")
            terminal.resize(24, 60)
            terminal.wait_for("q quit  Tab list  Enter texts  / search  l level  s sort  ?>")
            terminal.press("q")
            terminal.wait_for("prompt:")
            terminal.press("exit\n")
            self.assertEqual(terminal.wait_end(), 0)

    def test_terminals_that_are_not_known(self):
        for kind in ("no-such-terminal", "", "dumb"):
            with Terminal(command(self.system), environment={"TERM": kind}) as terminal:
                self.assertEqual(terminal.wait_end(), os.EX_DATAERR)
                self.assertIn("--lines", terminal.text())
        with Terminal(command(self.system, "--lines"), environment={"TERM": "dumb"}, columns=132) as terminal:
            terminal.wait_for("agent: vrx-agentd")
            terminal.press("\x03")
            self.assertEqual(terminal.wait_end(), -signal.SIGINT)


class LinesTest(unittest.TestCase):
    def start(self, system, *options):
        process = subprocess.Popen(command(system, *options), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   stdin=subprocess.DEVNULL, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def line(self, process):
        line = process.stdout.readline()
        self.assertRegex(line, r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d ")
        return line[20:-1]

    def test_a_line_for_each_change(self):
        with System(extra_config=CONFIG) as system:
            process = self.start(system)
            self.assertRegex(self.line(process), r"^agent: vrx-agentd [0-9.]+, up \d+ s; backend connected, 0 alarms active$")
            serial = raise_alarm(system, 7, CRITICAL)[0]
            self.assertEqual(self.line(process), "raised %s critical Disk Failed: Enclosure CTE0, slot 7." % serial)
            system.vrxctl("clear", serial)
            self.assertEqual(self.line(process), "cleared %s critical Disk Failed: Enclosure CTE0, slot 7." % serial)
            other = system.vrxctl("raise", UNDEFINED, "\x1b[2J").strip()
            self.assertEqual(self.line(process), "raised %s major alarm %s (not defined)" % (other, UNDEFINED))
            system.backend.stop()
            self.assertEqual(self.line(process), "trouble: the backend is away")
            system.backend.start()
            self.assertEqual(self.line(process), "trouble over: the backend is away")
            system.add_destination(3, 9, address="no-such-host.invalid")
            trouble = self.line(process)
            self.assertIn("trouble: trap destination 3 ", trouble)
            system.agent.stop()
            self.assertIn("agent away: no agent can be reached at ", self.line(process))
            system.agent.start()
            self.assertRegex(self.line(process), r"^agent restarted: vrx-agentd .*")
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(), -signal.SIGTERM)
            self.assertEqual(process.stderr.read(), "")

    def test_dropped_traps(self):
        with System() as system:  # without trapcommunity this destination gets nothing
            system.add_destination(1, free_port())
            process = self.start(system)
            self.line(process)
            self.assertRegex(self.line(process), "^trouble: trap destination 1 gets nothing")
            raise_alarm(system, 7)
            lines = [self.line(process), self.line(process)]
            self.assertRegex(lines[0], "^raised 1 major")
            self.assertEqual(lines[1], "dropped 2 (no community 2) traps to trap destination 1")

    def test_filters(self):
        with System(extra_config=CONFIG) as system:
            process = self.start(system, "--level", "major", "--text", "SLOT 8")
            self.line(process)
            raise_alarm(system, 7, CRITICAL)
            raise_alarm(system, 8, WARNING)
            serial = raise_alarm(system, 8, MAJOR)[0]
            self.assertRegex(self.line(process), "^raised %s major .* slot 8.$" % serial)

    def test_ends_with_its_reader(self):
        with System(extra_config=CONFIG) as system:
            process = self.start(system)
            self.line(process)
            process.stdout.close()
            self.assertIn(process.wait(30), (0, -signal.SIGPIPE))

    def test_an_output_that_takes_nothing(self):
        with System(extra_config=CONFIG) as system, open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run(command(system), stdin=subprocess.DEVNULL, stdout=full, stderr=subprocess.PIPE,
                                  text=True, check=False, timeout=60)
            self.assertEqual((done.returncode, done.stderr), (os.EX_DATAERR, "vrxctl: standard output cannot be written\n"))


if __name__ == "__main__":
    unittest.main()
