"""Who may only read sees no communities; what is refused to a writer is told in the log."""

import unittest

from harness import AGENT_CONFIG, CLEAR_ALARM, DESTINATIONS, V1, V2C, V3, System, values
from writing_test import CREATE_AND_GO, SYS_CONTACT, SYS_NAME, V1_WRITER, row

V3_READER = ["-v3", "-l", "authPriv", "-u", "viewer", "-a", "SHA-256", "-A", "viewer-auth-pass", "-x", "AES", "-X",
             "viewer-priv-pass"]
READER_CONFIG = 'createUser viewer SHA-256 "viewer-auth-pass" AES "viewer-priv-pass"\nrouser viewer priv\n'


class Readers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = System(agent_config=AGENT_CONFIG + "rwcommunity writer 127.0.0.1\n" + READER_CONFIG)
        cls.system.__enter__()
        for number, user, version in ((1, "secret", 1), (2, "secret", 2), (3, "admin", 3), (4, "--", 2)):
            cls.system.set(*row(number, ADDRESS="127.0.0.1", PORT=5000 + number, USER=user, VERSION=version,
                                STATUS=CREATE_AND_GO))

    @classmethod
    def tearDownClass(cls):
        cls.system.close()

    def seen(self, tool, version):
        """The whole table: name without the table's root -> value."""
        return {name[len(DESTINATIONS) + 1:]: value
                for name, value in values(self.system.run(tool, DESTINATIONS, version=version))}

    def test_a_walk_shows_communities_to_writers_alone(self):
        whole = self.seen("snmpbulkwalk", V3)
        self.assertEqual([whole["8.%d" % number] for number in (1, 2, 3, 4)],
                         ['STRING: "secret"', 'STRING: "secret"', 'STRING: "admin"', 'STRING: "--"'])
        self.assertEqual(len(whole), 4 * 8)
        shown = dict(whole, **{"8.1": '""', "8.2": '""'})
        for tool in ("snmpwalk", "snmpbulkwalk"):
            self.assertEqual(self.seen(tool, V3), whole)
            for reader in (V2C, V3_READER):
                self.assertEqual(self.seen(tool, reader), shown, (tool, reader))
        self.assertEqual(self.seen("snmpwalk", V1), shown)
        self.assertEqual(self.seen("snmpwalk", V1_WRITER), whole)

    def test_each_way_of_reading_hides_them(self):
        name = DESTINATIONS + ".8.1"
        for version, shown in ((V1, '""'), (V2C, '""'), (V3_READER, '""'), (V1_WRITER, 'STRING: "secret"'),
                               (V3, 'STRING: "secret"')):
            self.assertEqual(values(self.system.get(name, version=version)), [(name, shown)])
            # Beside another object the engine answers.
            self.assertEqual(values(self.system.get(SYS_NAME, name, version=version))[1], (name, shown))
            self.assertEqual(values(self.system.getnext(DESTINATIONS + ".8", version=version)), [(name, shown)])
            self.assertEqual(values(self.system.getnext(SYS_NAME, DESTINATIONS + ".8", version=version))[1],
                             (name, shown))
            if version not in (V1, V1_WRITER):
                self.assertEqual(values(self.system.bulkget(DESTINATIONS + ".8", version=version))[0], (name, shown))
                self.assertEqual(values(self.system.bulkget(SYS_NAME, DESTINATIONS + ".8", non_repeaters=1,
                                                            version=version))[1], (name, shown))

    def test_a_community_stays_when_another_column_is_set(self):
        self.system.get(DESTINATIONS + ".8.1")
        self.system.set(*row(1, TRAP_TYPE=3))
        self.assertIn('"secret"', self.system.get(DESTINATIONS + ".8.1", version=V3))
        # What a reader sees is not written back by mistake.
        refused = self.system.run("snmpset", *row(1, USER=""), version=V3, check=False)
        self.assertIn("wrongValue", refused.stderr + refused.stdout)
        self.assertIn('"secret"', self.system.get(DESTINATIONS + ".8.1", version=V3))


class Refusals(unittest.TestCase):
    def test_each_refusal_is_a_line_that_names_the_object(self):
        with System() as system:
            system.add_destination(1, 5162)
            for arguments, line in (
                    (row(1, TRAP_TYPE=3, PORT=0), "at vrxTrapDestPort.1: wrongValue"),
                    (row(1, ADDRESS="0x0"), "at vrxTrapDestAddress.1: wrongValue"),
                    (row(1, VERSION=3), 'at vrxTrapDestVersion.1: inconsistentValue'),
                    (row(9, PORT=1), "at vrxTrapDestPort.9: inconsistentName"),
                    (row(1, STATUS=CREATE_AND_GO), "at vrxTrapDestStatus.1: inconsistentValue"),
                    (row(1, INDEX="x"), "at vrxTrapDestIndexText.1: notWritable"),
                    ([DESTINATIONS + ".2.1", "i", "5"], "at vrxTrapDestPort.1: wrongType"),
                    ([CLEAR_ALARM, "u", "99999"], "at vrxClearAlarm.0: (genError)"),
                    ([SYS_CONTACT, "s", "x"] + row(1, PORT=5), "at %s: (genError)" % SYS_CONTACT)):
                before = system.agent.log().count("a SET is refused " + line)
                self.assertEqual(system.run("snmpset", *arguments, version=V3, check=False).returncode, 2)
                self.assertEqual(system.agent.log().count("a SET is refused " + line), before + 1, line)


if __name__ == "__main__":
    unittest.main()
