"""Receivers of informs: one that acknowledges, or keeps silent, as a test wants it (SNMPv2c), and Net-SNMP's snmptrapd.

    with InformReceiver() as receiver:
        receiver.answering = False
        ...
        receiver.informs()  # all that came, as Trap objects of trap_receiver
"""

import os
import shutil
import signal
import subprocess
import tempfile
from collections import namedtuple

from harness import Failure, free_port, wait_for
from trap_receiver import INFORM, Reader, TrapReceiver, decode, integer

RESPONSE = 0xA2

Inform = namedtuple("Inform", "request_id trap acknowledged")


def pdu_at(datagram):
    """Where the PDU of a message stands in it: after version and community."""
    message = Reader(Reader(datagram).next(0x30)[1])
    message.next(0x02)
    message.next(0x04)
    return len(datagram) - len(message.data)


def request_id(datagram):
    return integer(Reader(Reader(datagram[pdu_at(datagram):]).next(INFORM)[1]).next(0x02)[1])


class InformReceiver(TrapReceiver):
    """answering: whether informs are acknowledged; error: the error-status of answers; lose: acknowledgements that are
    lost from here on."""

    def __init__(self):
        super().__init__()
        self.answering = True
        self.error = 0
        self.lose = 0
        self._answered = []

    def took(self, datagram, sender):
        answers = self.answering
        if answers and self.lose > 0:
            self.lose -= 1
            answers = False
        self._answered.append(answers)
        if answers:
            self._socket.sendto(self.answer(datagram), sender)

    def answer(self, datagram):
        """The inform itself as a response: the bindings are the same."""
        start = pdu_at(datagram)
        pdu = bytearray(datagram[start:])
        pdu[0] = RESPONSE
        if self.error:
            content = Reader(bytes(pdu)).next(RESPONSE)[1]
            head = len(pdu) - len(content)
            status = head + 2 + content[1]  # after the request ID: 02 01 STATUS
            pdu[status + 2] = self.error
        return datagram[:start] + bytes(pdu)

    def informs(self):
        return [Inform(request_id(datagram), decode(datagram), answered)
                for datagram, answered in zip(self.datagrams(), self._answered)]

    def serials(self, acknowledged=None):
        """Serial numbers of the alarms' common informs, in the order of their arrival."""
        return [inform.trap.value(9) for inform in self.informs()
                if inform.trap.bindings and acknowledged in (None, inform.acknowledged)]


class TrapDaemon:
    """snmptrapd on a loopback port; `lines` are what it printed of the notifications, without their time."""

    def __init__(self, config):
        self.folder = tempfile.mkdtemp(prefix="vrx-trapd-")
        self.port = free_port()
        self.config = config
        self.process = None
        self.log_path = os.path.join(self.folder, "log")

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.kill()
        shutil.rmtree(self.folder, ignore_errors=True)

    def state(self):
        return os.path.join(self.folder, "state")

    def start(self):
        os.makedirs(os.path.join(self.state(), "cert_indexes"), exist_ok=True)
        # Not with -c: then it would not read its state, which has engine ID and count of starts.
        with open(os.path.join(self.folder, "snmptrapd.conf"), "w", encoding="utf-8") as file:
            file.write(self.config)
        before = len(self.log())
        environment = dict(os.environ, MIBS="", SNMPCONFPATH=self.folder + ":" + self.state(),
                           SNMP_PERSISTENT_DIR=self.state())
        self.process = subprocess.Popen(
            ["snmptrapd", "-f", "-n", "-A", "-Lf", self.log_path, "-On", "-Oe", "-Ot",
             "-F", "> %v\n", "udp:127.0.0.1:%d" % self.port],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=environment)
        wait_for(lambda: self.started(before), "snmptrapd")

    def started(self, before):
        if self.process.poll() is not None:
            raise Failure("snmptrapd ended with %d: %s" % (self.process.returncode, self.log()))
        return "NET-SNMP version" in self.log()[before:]

    def log(self):
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def kill(self):
        if self.process is not None and self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def stop(self):
        """Lets it write its state."""
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()

    def lose_state(self):
        """It comes back as another engine."""
        shutil.rmtree(self.state())

    def lines(self):
        """[{name: value}] of each notification, names and values as printed."""
        notifications = []
        for line in self.log().splitlines():
            if line.startswith("> "):
                pairs = [pair.partition(" = ") for pair in line[2:].split("\t")]
                notifications.append({name.lstrip("."): value for name, _, value in pairs})
        return notifications

    def serials(self):
        """Serial numbers of the alarms' common notifications, in the order of their arrival."""
        return [int(value.split()[-1]) for line in self.lines() for name, value in line.items()
                if name.endswith(".91.10.3.1.1.9.0")]
