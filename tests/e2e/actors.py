"""What goes on beside a test: somebody who does the same thing again and again, and alarms that come and go.

    class Load(Crowd):
        def __init__(self, system):
            self.alarms = Alarms(system, at_once=10, active_at_most=100)
            self.actors = [Actor("alarms", self.alarms.act, pause=0.1), ...]

    with Load(system) as load: ...
    load.told()
"""

import struct
import threading
import time

from backend_client import POWER_LOSS, RAISE_ALARM, BackendClient, record, text, uint

RAISE_ANSWER = 18         # bytes of one record of the answer: the one cell of its serial number
SERIAL_IN_ANSWER = 14     # 10 bytes of the record's head and 4 of the cell's


class Actor(threading.Thread):
    """Does the same thing again and again, each time with the number of its turn, every `pause` seconds at most.

    `turns` counts what has succeeded; `failure` is the last exception, `failures` how often it did not succeed.
    """

    def __init__(self, name, act, pause=0.0):
        super().__init__(name=name, daemon=True)
        self.turns = 0
        self.failures = 0
        self.failure = None
        self._act = act
        self._pause = pause
        self._stopping = threading.Event()

    def run(self):
        turn = 0
        due = time.monotonic()
        while not self._stopping.is_set():
            try:
                succeeded = self._act(turn)
            except Exception as failure:  # pylint: disable=broad-except
                succeeded, self.failure = False, failure
            if succeeded:
                self.turns += 1
            else:
                self.failures += 1
            turn += 1
            due = max(due + self._pause, time.monotonic() - self._pause)  # a late turn does not shift the others
            self._stopping.wait(max(due - time.monotonic(), 0))

    def stop(self):
        self._stopping.set()


class Alarms:
    """Raises `at_once` alarms a turn over a connection of its own and clears the oldest above `active_at_most`."""

    def __init__(self, system, at_once, active_at_most):
        self._path = system.path("state", "backend.sock")
        self._client = None
        self._serials = []
        self._at_once = at_once
        self._active_at_most = active_at_most
        self.raised = 0
        self.cleared = 0

    def act(self, _turn):
        if self._client is None:
            self._client = BackendClient(self._path)
        try:
            one = record(RAISE_ALARM, uint(1, POWER_LOSS, 8), uint(2, 3), text(8, "someone,once"))
            body = self._client.call(*[one] * self._at_once)
            self._serials += [struct.unpack_from("<I", body, at + SERIAL_IN_ANSWER)[0]
                              for at in range(0, len(body), RAISE_ANSWER)]
            self.raised += self._at_once
            self.clear_all_but(self._active_at_most)
        except (OSError, ConnectionError):
            self.close()
            raise
        return True

    def fill(self):
        """Raises as many as may be active."""
        while self.raised < self._active_at_most:
            self.act(0)

    def clear_all_but(self, count):
        while len(self._serials) > count:
            try:
                self._client.clear_alarm(self._serials.pop(0))
                self.cleared += 1
            except AssertionError:
                pass  # somebody else has cleared it

    def close(self):
        if self._client is not None:
            self._client.__exit__()
            self._client = None


class Crowd:
    """Actors that begin together and end together; use as a context. Classes of it fill `actors`, and `alarms`."""

    actors = ()
    alarms = None

    def __enter__(self):
        for actor in self.actors:
            actor.start()
        return self

    def __exit__(self, *_):
        for actor in self.actors:
            actor.stop()
        for actor in self.actors:
            actor.join()
        self.alarms.close()

    def told(self):
        return ", ".join("%s %d%s" % (actor.name, actor.turns, " (%r)" % actor.failure if actor.failure else "")
                         for actor in self.actors)
