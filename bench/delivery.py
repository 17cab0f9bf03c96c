"""How soon and how fast notifications go: from the backend's commit to the datagram; informs over a lossy path."""

import json
import socket
import struct
import time

from backend_client import RAISE_ALARM, BackendClient, record, text, uint
from harness import System, wait_for
from inform_receiver import InformReceiver
from processes import EVENTS_SECONDS
from report import Measured, Row
from trap_receiver import TrapReceiver
from udp_relay import UdpRelay

DISK_FAILED = 4295229443  # its location is that of its parameters: each is an alarm of its own


class StampingReceiver:
    """A trap receiver whose datagrams bear the time at which the kernel took them."""

    SO_TIMESTAMPNS = 35  # not in Python's socket module

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 64 << 20)
        self._socket.setsockopt(socket.SOL_SOCKET, self.SO_TIMESTAMPNS, 1)
        self._socket.bind(("127.0.0.1", 0))
        self._socket.settimeout(EVENTS_SECONDS)
        self.port = self._socket.getsockname()[1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def next_stamp(self):
        """Of the next datagram: nanoseconds since 1970."""
        _, ancillary, _, _ = self._socket.recvmsg(65536, 64)
        seconds, nanoseconds = struct.unpack("@qq", ancillary[0][2])
        return seconds * 1_000_000_000 + nanoseconds


def raise_stamped(backend, slot):
    """Raises an alarm: the times before the call and after its answer, which comes after the commit."""
    asked = record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 3), text(8, "%d,CTE0,1" % slot))
    before = time.time_ns()
    backend.call(asked)
    return before, time.time_ns()


def delays(system, receiver, alarms, period):
    """Milliseconds from the backend's answer to each alarm's trap, and from the call, ascending. Without a period each alarm
    waits for the last one's trap."""
    stamps, traps = [], []
    with BackendClient(system.path("state", "backend.sock")) as backend:
        begin = time.monotonic()
        for slot in range(alarms):
            stamps.append(raise_stamped(backend, slot))
            if period is None:
                traps.append(receiver.next_stamp())
            else:
                time.sleep(max(0.0, begin + (slot + 1) * period - time.monotonic()))
        traps += [receiver.next_stamp() for _ in range(alarms - len(traps))]
    return [sorted((trap - stamp[which]) / 1e6 for trap, stamp in zip(traps, stamps)) for which in (1, 0)]


def latency(sizes):
    """From the commit to the datagram, one alarm at a time and a thousand of them a second."""
    rows = []
    for what, alarms, period, target in (("one alarm at a time", sizes.single_alarms, None, 1),
                                         ("1,000 alarms a second", sizes.stream_alarms, 0.001, 5)):
        with StampingReceiver() as receiver, System(device={("TRAP", "RATE_PER_SECOND"): 1_000_000}) as system:
            system.add_destination(1, receiver.port, trap_type=1, user="traps")
            from_commit, from_call = delays(system, receiver, alarms, period)
        for since, sorted_delays, limit in (("commit", from_commit, target), ("call that raises", from_call, None)):
            for percentile, at_most in ((50, None), (99, limit)):
                rows.append(Row("backend's %s to the datagram, %s, p%d, ms" % (since, what, percentile),
                                sorted_delays[len(sorted_delays) * percentile // 100], at_most=at_most))
    return rows


class InformBench:
    """Informs to a receiver at the other end of a path of 20 ms, there and back, that loses 1 % of the datagrams of either
    direction; with as many plain datagrams under way as informs may be, and no loss, as the other one."""

    DELAY, LOSS, WINDOW = 0.01, 0.01, 32

    def __init__(self, count):
        self._count = count

    def informs_per_second(self, seed):
        with InformReceiver() as receiver, UdpRelay(receiver.port, self.DELAY, self.LOSS, seed) as relay, \
                System(extra_config="informsink 127.0.0.1 informs %d\n" % relay.port) as system:
            wait_for(lambda: json.loads(system.vrxctl("status", "--json"))["informs"][0]["waiting"] == 0, "the coldStart")
            with BackendClient(system.path("state", "backend.sock")) as backend:
                begin = time.monotonic()
                for first in range(0, self._count, 1000):
                    backend.call(*[record(RAISE_ALARM, uint(1, DISK_FAILED, 8), uint(2, 3), text(8, "%d,CTE0,1" % slot))
                                   for slot in range(first, min(first + 1000, self._count))])

            def acknowledged():
                return json.loads(system.vrxctl("status", "--json"))["informs"][0]["acknowledged"] > self._count

            wait_for(acknowledged, "all acknowledgements", EVENTS_SECONDS)
            return self._count / (time.monotonic() - begin)

    def datagrams_per_second(self):
        with Echo() as echo, UdpRelay(echo.port, self.DELAY) as relay, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as near:
            near.settimeout(10)
            near.connect(("127.0.0.1", relay.port))
            begin = time.monotonic()
            for number in range(self._count + self.WINDOW):
                if number >= self.WINDOW:
                    near.recv(2048)
                if number < self._count:
                    near.send(b"x" * 700)
            return self._count / (time.monotonic() - begin)


class Echo(TrapReceiver):
    def took(self, datagram, sender):
        self._socket.sendto(datagram, sender)


def informs(sizes):
    speed = Measured()
    bench = InformBench(sizes.informs)
    for round_ in range(sizes.growth_rounds):
        speed.add(bench.informs_per_second(round_), bench.datagrams_per_second())
    what = "informs per second to one receiver, 20 ms away, 1 % lost"
    return [
        Row(what, speed.ours, at_least=1000),
        Row.of(what + "; datagrams, %d under way, none lost" % bench.WINDOW, speed),
    ]
