"""A path of some length between the agent and a receiver: a process that passes datagrams on after a delay and loses some,
by a plan that its seed determines: the same ones of each direction each time.

    with UdpRelay(receiver.port, delay=0.01, loss=0.01, seed=1) as relay:
        ...  # the agent sends to relay.port

One client at a time: answers go to whoever sent last. Constant delay, so datagrams keep their order.
"""

import collections
import os
import random
import select
import socket
import subprocess
import sys
import time

BUFFER = 4 << 20


class UdpRelay:
    """delay: seconds each way; loss: share of the datagrams of either direction."""

    def __init__(self, target, delay=0.0, loss=0.0, seed=1):
        self._near = bound_socket()
        self.port = self._near.getsockname()[1]
        self._arguments = [str(argument) for argument in (self._near.fileno(), target, delay, loss, seed)]
        self._process = None

    def __enter__(self):
        self._process = subprocess.Popen([sys.executable, os.path.abspath(__file__)] + self._arguments,
                                         pass_fds=[self._near.fileno()])
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._near.close()


def bound_socket():
    result = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    result.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, BUFFER)
    result.bind(("127.0.0.1", 0))
    return result


class Direction:
    """Datagrams on their way."""

    def __init__(self, source, delay, loss, seed):
        self.source = source
        self._delay, self._loss, self._random = delay, loss, random.Random(seed)
        self._waiting = collections.deque()

    def receive(self, size=65536):
        """All that is there; the last sender."""
        sender = None
        while True:
            try:
                datagram, sender = self.source.recvfrom(size)
            except BlockingIOError:
                return sender
            except ConnectionRefusedError:  # what was passed on found nobody
                continue
            if self._random.random() >= self._loss:
                self._waiting.append((time.monotonic() + self._delay, datagram))

    def pass_on(self, send):
        while self._waiting and self._waiting[0][0] <= time.monotonic():
            try:
                send(self._waiting.popleft()[1])
            except ConnectionRefusedError:
                pass

    def due(self):
        return self._waiting[0][0] if self._waiting else float("inf")


def relay(near, target, delay, loss, seed):
    far = bound_socket()
    far.connect(("127.0.0.1", target))
    for one in (near, far):
        one.setblocking(False)
    there, back = Direction(near, delay, loss, "%s there" % seed), Direction(far, delay, loss, "%s back" % seed)
    client = None
    while True:
        pause = min(there.due(), back.due()) - time.monotonic()
        select.select([near, far], [], [], None if pause == float("inf") else max(0, pause))
        client = there.receive() or client
        back.receive()
        there.pass_on(far.send)
        back.pass_on(lambda datagram: near.sendto(datagram, client))


if __name__ == "__main__":
    relay(socket.socket(fileno=int(sys.argv[1])), int(sys.argv[2]), float(sys.argv[3]), float(sys.argv[4]), sys.argv[5])
