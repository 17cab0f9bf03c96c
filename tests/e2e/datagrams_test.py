"""Datagrams that no manager should send, to the running agent: fuzz/snmp_datagrams.py with its default seed.

TAMREL_DATAGRAMS is how many are sent.
"""

import os
import sys
import unittest

from harness import SOURCE_DIR

sys.path.append(os.path.join(SOURCE_DIR, "fuzz"))

# pylint: disable=wrong-import-position
import ber  # noqa: E402
import snmp_datagrams  # noqa: E402

COUNT = int(os.environ.get("TAMREL_DATAGRAMS", "60000"))


class Datagrams(unittest.TestCase):
    def test_none_of_them_harms_the_agent(self):
        try:
            sent, memory = snmp_datagrams.run(seed=1, count=COUNT)
        except snmp_datagrams.Finding as finding:
            self.fail("%s\nthe datagrams: %s" % (finding, snmp_datagrams.keep(finding, 1)))
        self.assertEqual(sent, COUNT)
        print("KB of memory after each %d: %s" % (snmp_datagrams.ROUND, memory))


class ItsOwnChecks(unittest.TestCase):
    """The look after the agent sees what it is to see."""

    def test_a_signed_message_is_accepted(self):
        with snmp_datagrams.Watch() as watch:
            body = ber.pdu(ber.GET, [ber.varbind(snmp_datagrams.SYS_NAME)])
            watch.link.settimeout(snmp_datagrams.ANSWER_SECONDS)
            watch.link.send(watch.engine.sign(watch.engine.message(body).encode()))
            answer = ber.parse(watch.link.recv(65536))
            self.assertEqual(answer.content[3].content[2].tag, ber.RESPONSE)

    def test_captures_have_all_versions_and_kinds(self):
        with snmp_datagrams.Watch() as watch:
            messages = [ber.parse(data).content for data in watch.captures]
            self.assertEqual({message[0].content[0] for message in messages}, {0, 1, 3})
            kinds = {message[2].tag for message in messages if message[0].content != b"\x03"}
            self.assertEqual(kinds, {ber.GET, ber.GETNEXT, ber.GETBULK, ber.SET})

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
