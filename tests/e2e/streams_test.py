"""The examples of docs/streams.md: from the agent's log over the unit to real brokers, with kill -9 of agent, unit and broker
on the way. What the far end has is what the backend's journal has.

Run by scripts/try-receivers, which installs the brokers.
"""

import base64
import contextlib
import json
import os
import re
import secrets
import shlex
import signal
import socket
import sqlite3
import subprocess
import unittest

from backend_client import BackendClient
from harness import BUILD_DIR, PROGRAM_DIR, SOURCE_DIR, Failure, free_port, wait_for
from trap_receiver import TrapReceiver
from traps_test import COMMON, TrapSystem

EXAMPLES = os.path.join(SOURCE_DIR, "examples", "streams")
UNIT = os.path.join(BUILD_DIR, "packaging", "vrx-stream@.service")
ALARMS = 300  # at once


def substituted(text, **changes):
    """The text with other paths and addresses, each of which it must have; names are what they are in the test."""
    for name, (there, here) in changes.items():
        if there not in text:
            raise AssertionError("no %s %r in:\n%s" % (name, there, text))
        text = text.replace(there, here)
    return text


class Killable:
    """A program whose process group can be killed, as a service manager ends what is left of a unit."""

    def __init__(self, system, name, *command, **options):
        self._log = system.path(name + ".log")
        self._command, self._options, self._process = command, options, None

    def start(self):
        with open(self._log, "ab") as log:
            self._process = subprocess.Popen(self._command, stdout=log, stderr=log, start_new_session=True,
                                             **self._options)

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()

    def log(self):
        with open(self._log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, kind, *_):
        self.kill()
        if kind is not None:
            print("--- the end of %s\n%s" % (self._log, "\n".join(self.log().splitlines()[-20:])))


def unit(system, name, address, port):
    """The unit's command, with the example's configuration."""
    with open(UNIT, encoding="utf-8") as file:
        command = re.search(r"^ExecStart=(.*)$", file.read(), re.M).group(1)
    with open(os.path.join(EXAMPLES, name + ".conf"), encoding="utf-8") as file:
        settings = dict(re.findall(r'^(\w+)="(.*)"$', file.read(), re.M))
    settings["COMMAND"] = substituted(settings["COMMAND"], address=(address, "127.0.0.1"))
    settings["COMMAND"] = settings["COMMAND"].replace("/usr/local/bin", EXAMPLES)
    settings["COMMAND"] = re.sub(r"(127\.0\.0\.1:| -p )\d+", r"\g<1>%d" % port, settings["COMMAND"])
    words = []
    for word in command.split():
        if word == "$FORMAT":
            words += shlex.split(settings["FORMAT"])
        elif word == "${COMMAND}":
            words.append(settings["COMMAND"])
        else:
            words.append(re.sub(r"^(--cursor=).*/stream-%i$", r"\1" + system.path("stream-" + name), word))
    assert os.path.basename(words[0]) == "vrxctl" and not any("%i" in word for word in words), words
    words[:1] = [os.path.join(PROGRAM_DIR, "vrxctl"), "--root", system.path()]
    return Killable(system, "unit-" + name, *words)


def example(system, name, **changes):
    """A broker's configuration of the examples, for this test; gives its path."""
    with open(os.path.join(EXAMPLES, name), encoding="utf-8") as file:
        system.write(name, substituted(file.read(), **changes))
    return system.path(name)


def accepts(port):
    with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port)):
        return True
    return False


def journal(system):
    """Numbers of all events that the backend has told of."""
    with contextlib.closing(sqlite3.connect("file:%s?mode=ro" % system.path("state", "backend.db"), uri=True)) as database:
        return {number for number, in database.execute("SELECT sequence FROM events")}


class Nats:
    """As much of a client as asks JetStream."""

    def __init__(self, port):
        self._port = port

    def request(self, subject, **question):
        inbox, body = "_INBOX." + secrets.token_hex(11), json.dumps(question).encode() if question else b""
        with socket.create_connection(("127.0.0.1", self._port), timeout=30) as connection:
            connection.sendall(b"CONNECT {}\r\nSUB %s 1\r\nPUB %s %s %d\r\n%s\r\n" % (
                inbox.encode(), subject.encode(), inbox.encode(), len(body), body))
            with connection.makefile("rb") as answers:
                for line in answers:
                    if line.startswith(b"MSG "):
                        return json.loads(answers.read(int(line.split()[-1])))
        raise AssertionError("no answer to " + subject)


class Streams(unittest.TestCase):
    def setUp(self):
        self.system = self.enterContext(TrapSystem())
        receiver = self.enterContext(TrapReceiver())
        self.system.add_destination(1, receiver.port, trap_type=COMMON)
        self.port = free_port(kind=socket.SOCK_STREAM)

    def raise_alarms(self, count):
        with BackendClient(self.system.path("state", "backend.sock")) as backend:
            backend.raise_alarms(count)

    def over_kills(self, broker, feed, events, writes_first=True):
        """`events()` gives the numbers of events at the far end. A broker that acknowledges before it writes loses what is
        just on its way through it, and is killed between two messages.
        """
        def lacking():
            return len(journal(self.system) - set(events()))

        with feed:
            for victim in (self.system.agent, feed) + ((broker,) if writes_first else ()):
                known = len(events())
                self.raise_alarms(ALARMS)
                wait_for(lambda known=known: len(events()) > known, "the first events at the far end")
                victim.kill()
                self.raise_alarms(ALARMS)
                victim.start()
            wait_for(lambda: lacking() == 0, "all events at the far end")
            broker.kill()
            before = feed.log().count("trying again")
            self.raise_alarms(ALARMS)
            wait_for(lambda: feed.log().count("trying again") > before, "an attempt that fails")
            broker.start()
            with contextlib.suppress(Failure):
                wait_for(lambda: lacking() == 0, "all events at the far end")
            told = journal(self.system)
            self.assertEqual((len(told), lacking(), set(events()) - told), ((7 if writes_first else 5) * ALARMS, 0, set()))

    def test_mqtt(self):
        folder = self.system.path("mosquitto", "")
        os.mkdir(folder)
        path = example(self.system, "mosquitto.conf", port=("listener 1883", "listener %d 127.0.0.1" % self.port),
                       folder=("/var/lib/mosquitto/", folder))
        with open(path, "a", encoding="utf-8") as file:
            file.write("user root\n")
        arrived = self.system.path("arrived")
        with Killable(self.system, "broker", "mosquitto", "-c", path) as broker:
            wait_for(lambda: accepts(self.port), "mosquitto")
            with open(arrived, "wb") as output, subprocess.Popen(
                    ["stdbuf", "-oL", "mosquitto_sub", "-h", "127.0.0.1", "-p", str(self.port), "-i", "reader", "-c",
                     "-q", "1", "-t", "vrx/#"], stdout=output) as reader:
                self.addCleanup(reader.kill)

                def events():
                    with open(arrived, encoding="utf-8") as file:
                        return [json.loads(line)["data"]["event"] for line in file.read().split("\n")[:-1]]

                try:
                    wait_for(lambda: os.path.exists(os.path.join(folder, "mosquitto.db")), "the reader's session")
                    self.over_kills(broker, unit(self.system, "mqtt", "broker.example.net", self.port), events,
                                    writes_first=False)
                finally:
                    reader.kill()

    def test_nats_jetstream(self):
        path = example(self.system, "nats-server.conf", address=("0.0.0.0:4222", "127.0.0.1:%d" % self.port),
                       folder=("/var/lib/nats", self.system.path("nats")))
        client = Nats(self.port)
        with Killable(self.system, "broker", "nats-server", "-c", path) as broker:
            wait_for(lambda: accepts(self.port), "nats-server")
            wait_for(lambda: "error" not in client.request("$JS.API.STREAM.CREATE.VRX", name="VRX", subjects=["vrx.>"],
                                                           storage="file"), "a stream")

            numbers, found = [], []

            def events():
                with contextlib.suppress(OSError, AssertionError, KeyError):  # it is not there now
                    state = client.request("$JS.API.STREAM.INFO.VRX")["state"]
                    for sequence in range(len(found) + 1, state["last_seq"] + 1):
                        message = client.request("$JS.API.STREAM.MSG.GET.VRX", seq=sequence)["message"]
                        data = json.loads(base64.b64decode(message["data"]))["data"]
                        found.append(data["event"])
                        numbers.append(data["number"])
                return found

            self.over_kills(broker, unit(self.system, "nats", "broker.example.net", self.port), events)
            self.assertEqual(sorted(numbers), list(range(1, len(numbers) + 1)), "each entry once")

    def test_syslog(self):
        arrived, folder = self.system.path("arrived"), self.system.path("rsyslog")
        os.mkdir(folder)
        path = example(self.system, "rsyslog.conf", port=("2514", str(self.port)), address=("0.0.0.0", "127.0.0.1"),
                       folder=("/var/spool/rsyslog", folder), output=("/var/log/alarms.json", arrived))

        def events():
            with contextlib.suppress(FileNotFoundError), open(arrived, encoding="utf-8") as file:
                return [int(json.loads(line)["vrx@99871"]["event"]) for line in file.read().split("\n")[:-1]]
            return []

        with Killable(self.system, "broker", "rsyslogd", "-n", "-f", path, "-i", self.system.path("rsyslog.pid")) as broker:
            wait_for(lambda: accepts(self.port), "rsyslogd")
            self.over_kills(broker, unit(self.system, "syslog", "loghost.example.net", self.port), events)


if __name__ == "__main__":
    unittest.main()
