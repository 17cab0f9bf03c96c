"""Datagrams that no manager should send, to the running agent: fuzz/snmp_datagrams.py with its default seed.

TAMREL_DATAGRAMS is how many are sent.
"""

import hashlib
import itertools
import os
import subprocess
import sys
import unittest

from harness import SOURCE_DIR

FUZZ = os.path.join(SOURCE_DIR, "fuzz")
sys.path.append(FUZZ)

# pylint: disable=wrong-import-position
import ber  # noqa: E402
import datagram_cases  # noqa: E402
import snmp_datagrams  # noqa: E402
import snmp_engine  # noqa: E402

USUAL_COUNT = 60000
COUNT = int(os.environ.get("TAMREL_DATAGRAMS", USUAL_COUNT))
# Of the usual count, at least so many of each class.
AT_LEAST = {
    "wrong length": 4000, "indefinite length": 300, "over-long length": 2000, "tag": 4000, "content": 3000, "cut": 3000,
    "too long a name": 140, "huge number": 600, "negative number": 500, "format string": 400, "oversized string": 190,
    "PDU tag": 850, "bulk": 2000, "short message": 600, "write": 3000, "clock": 28, "nested": 20,
    "mutated v1": 3000, "mutated v2c": 3000, "mutated v3": 3000, "mutated signed v3": 3000, "mutated sealed v3": 3000,
    "mutated after a signature": 3000, "mutated after encryption": 3000, "mutated request": 3000,
}
NO_SUCH_NAME, NO_ACCESS = 2, 6  # for a SET


class Datagrams(unittest.TestCase):
    def test_none_of_them_harms_the_agent(self):
        try:
            watch = snmp_datagrams.run(seed=1, count=COUNT)
        except snmp_datagrams.Finding as finding:
            self.fail("seed 1: %s\nthe datagrams: %s" % (finding, snmp_datagrams.keep(finding, 1)))
        self.assertEqual(watch.sent, COUNT)
        print("seed 1: " + watch.summary())
        for name, least in AT_LEAST.items():
            self.assertGreaterEqual(watch.classes[name], least * min(COUNT, USUAL_COUNT) // USUAL_COUNT, name)


class Cases(unittest.TestCase):
    """What is sent is what it is said to be."""

    COUNT = 6000

    @classmethod
    def digest(cls, seed):
        cases = itertools.islice(datagram_cases.all_cases(seed), cls.COUNT)
        return hashlib.sha256(repr(list(cases)).encode()).hexdigest()

    def test_the_same_seed_gives_the_same_in_every_run(self):
        code = "import datagrams_test; print(datagrams_test.Cases.digest(%d))"
        others = [subprocess.run([sys.executable, "-c", code % seed], env=dict(os.environ, PYTHONHASHSEED=str(seed)),
                                 cwd=os.path.dirname(os.path.abspath(__file__)), stdout=subprocess.PIPE, check=True,
                                 text=True).stdout.strip() for seed in (1, 2)]
        self.assertEqual([self.digest(1)], others[:1])
        self.assertNotEqual(others[0], others[1])

    def test_what_was_found_is_sent_first(self):
        found = snmp_datagrams.fixtures()
        self.assertEqual(len(found), len(os.listdir(snmp_datagrams.FIXTURES)))
        self.assertEqual(list(itertools.islice(snmp_datagrams.all_cases(1), len(found))), found)

    def test_good_messages_are_of_all_versions_and_kinds(self):
        kinds = {ber.GET, ber.GETNEXT, ber.SET}
        for version in datagram_cases.VERSIONS:
            bodies = [self.body(data) for data in datagram_cases.good_messages(version)]
            self.assertEqual({body.tag for body in bodies}, kinds if version == "v1" else kinds | {ber.GETBULK})

    def test_encryption_is_that_of_the_standard(self):
        key = bytes.fromhex("2b7e151628aed2a6abf7158809cf4f3c")  # NIST SP 800-38A, F.3.13
        plain = bytes.fromhex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51")
        self.assertEqual(snmp_engine.encrypt(key, bytes(range(16)), plain).hex(),
                         "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b")

    @staticmethod
    def body(data):
        """The PDU of a message that is not encrypted yet."""
        last = ber.parse(data).content[-1]
        if last.tag == ber.OCTETS:
            last = last.content[0]
        return last.content[-1] if last.tag == ber.SEQUENCE else last


class ItsOwnChecks(unittest.TestCase):
    """The look after the agent sees what it is to see."""

    def test_good_messages_are_taken_for_good(self):
        """Those that are changed: with what is filled in, each has an answer; a SET is one that may not be."""
        with snmp_datagrams.Watch() as watch:
            watch.link.settimeout(snmp_datagrams.ANSWER_SECONDS)
            for version in datagram_cases.VERSIONS:
                for data in datagram_cases.good_messages(version):
                    asked = Cases.body(data)
                    watch.link.send(watch.engine.fill(data))
                    answer = ber.parse(watch.link.recv(65536)).content
                    if version == "sealed v3":
                        self.assertEqual(answer[3].tag, ber.OCTETS)  # a report is not encrypted
                        continue
                    answer = Cases.body(ber.sequence(*answer).encode())
                    discovery = not asked.content[3].content
                    self.assertEqual(answer.tag, ber.REPORT if discovery else ber.RESPONSE, version)
                    refusal = NO_SUCH_NAME if version == "v1" else NO_ACCESS
                    self.assertEqual(answer.content[1].content[0], refusal if asked.tag == ber.SET else 0, version)

    def test_a_change_of_state_is_a_finding(self):
        with snmp_datagrams.Watch() as watch:
            watch.system.set(snmp_datagrams.DESTINATIONS + ".2.1", "u", "7")
            with self.assertRaisesRegex(snmp_datagrams.Finding, "what the agent serves has changed"):
                watch.look()

    def test_an_agent_that_ended_is_a_finding_with_its_datagrams(self):
        with snmp_datagrams.Watch() as watch:
            watch.system.agent.kill()
            with self.assertRaises(snmp_datagrams.Finding) as caught:
                watch.send([("a", b"\x30")] * 50)
            self.assertIn("the agent has ended with -9", str(caught.exception))
            self.assertEqual(caught.exception.datagrams, [("a", b"\x30")] * len(caught.exception.datagrams))


if __name__ == "__main__":
    unittest.main()
