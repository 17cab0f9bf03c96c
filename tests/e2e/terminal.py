"""A program on a pseudo terminal, as on one over ssh, with pyte as the screen that it draws on.

    with Terminal(["top"], rows=24, columns=80) as terminal:
        terminal.wait_for("load average")
        terminal.press("q")
        terminal.wait_end()
"""

import fcntl
import os
import select
import signal
import struct
import subprocess
import termios

import pyte

from harness import wait_for

# Keys as the terminal of TERM sends them.
UP, DOWN, PAGE_DOWN, HOME, END, ESCAPE, ENTER, TAB = "\x1bOA", "\x1bOB", "\x1b[6~", "\x1b[1~", "\x1b[4~", "\x1b", "\r", "\t"


class Terminal:
    TERM = "xterm-color"  # asks for nothing that pyte does not know

    def __init__(self, command, rows=24, columns=80, environment=None, shell=False):
        self.output = b""  # all of it
        self._screen = pyte.Screen(columns, rows)
        self._stream = pyte.ByteStream(self._screen)
        self._main, side = os.openpty()
        self._set_size(rows, columns)
        self.before = termios.tcgetattr(side)
        keep = dict(os.environ, TERM=self.TERM, LC_ALL="C.UTF-8")
        keep.pop("NO_COLOR", None)
        keep.update(environment or {})

        def take_terminal():
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)
        self.process = subprocess.Popen(command, stdin=side, stdout=side, stderr=side, env=keep, shell=shell,
                                        start_new_session=True, preexec_fn=take_terminal)
        self._side = side

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self._main)
        if self._side is not None:
            os.close(self._side)

    def _set_size(self, rows, columns):
        fcntl.ioctl(self._main, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def resize(self, rows, columns):
        self.read()
        self._screen.resize(rows, columns)
        self._set_size(rows, columns)

    def read(self):
        """Takes what has been written."""
        while select.select([self._main], [], [], 0.01)[0]:
            try:
                octets = os.read(self._main, 65536)
            except OSError:  # nobody has the other end
                return
            self.output += octets
            self._stream.feed(octets)

    def lines(self):
        self.read()
        return [line.rstrip() for line in self._screen.display]

    def text(self):
        return "\n".join(self.lines())

    def cell(self, row, column):
        """A character with its colours and attributes."""
        return self._screen.buffer[row][column]

    def wait_for(self, *texts):
        """Until all of them are on the screen, which is returned."""
        try:
            return wait_for(lambda: all(text in self.text() for text in texts) and self.text(), texts)
        except Exception as failure:
            raise AssertionError("%s\nthe screen is\n%s" % (failure, self.text())) from None

    def wait_gone(self, text):
        wait_for(lambda: text not in self.text(), "without " + text)
        return self.text()

    def wipe(self):
        """What is on the screen by now is no answer to what comes next."""
        self.read()
        self._screen.erase_in_display(2)

    def press(self, keys):
        os.write(self._main, keys.encode())

    def wait_end(self):
        """How it ended, as subprocess says it."""
        wait_for(lambda: self.read() or self.process.poll() is not None, "the end")
        self.read()
        return self.process.returncode

    def settings(self):
        return termios.tcgetattr(self._side)

    def hang_up(self):
        os.close(self._side)
        self._side = None
        self.process.send_signal(signal.SIGHUP)
