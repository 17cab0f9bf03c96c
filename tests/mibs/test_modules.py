"""The modules as a whole: what the tools say about them."""

import os
import shutil
import tempfile
import unittest

import mib


class ModulesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vrx-mibs-")
        self.addCleanup(shutil.rmtree, self.folder)

    def copied_tree(self):
        """scripts/, mibs/ and share/ in a folder that a test may change."""
        for part in ("scripts", "mibs", "share"):
            shutil.copytree(mib.path(part), os.path.join(self.folder, part))
        return self.folder

    def change(self, file, old, new):
        with open(file, encoding="utf-8") as source:
            text = source.read()
        self.assertIn(old, text)
        with open(file, "w", encoding="utf-8") as target:
            target.write(text.replace(old, new))

    def test_smilint_prints_nothing(self):
        for name in ("VRX-TAMREL-MIB", "VRX-TAMREL-ALARM-MIB", "VRX-AGENT-MIB"):
            with self.subTest(name):
                code, output = mib.run("smilint", "-l", "6", "-s", "-m", mib.path("mibs", name),
                                       SMIPATH=mib.path("mibs") + ":" + mib.base_mibs())
                self.assertEqual((code, output), (0, ""))

    def test_lint_fails_on_any_message(self):
        tree = self.copied_tree()
        self.change(os.path.join(tree, "mibs", "VRX-TAMREL-MIB"), "vrxTopologyKind,\n                    vrx", "vrx")
        code, output = mib.run(os.path.join(tree, "scripts", "lint-mibs"))
        self.assertEqual(code, 1)
        self.assertIn("vrxTopologyKind", output)

    def test_no_import_reads_like_a_notification(self):
        """Converters that go by lines take NOTIFICATION-TYPE alone on one for a definition: its name is on the line before."""
        for name in ("VRX-TAMREL-MIB", "VRX-TAMREL-ALARM-MIB", "VRX-AGENT-MIB"):
            with open(mib.path("mibs", name), encoding="utf-8") as file:
                self.assertNotRegex(file.read(), r"(?m)^\s*NOTIFICATION-TYPE\s*$", name)

    def test_generated_files_are_fresh(self):
        code, output = mib.run(mib.path("scripts", "generate-mibs"), "--check")
        self.assertEqual((code, output), (0, ""))

    def test_changed_mib_makes_the_xml_stale(self):
        tree = self.copied_tree()
        self.change(os.path.join(tree, "mibs", "VRX-TAMREL-MIB"), "UDP port to which traps are sent.", "UDP port.")
        code, output = mib.run(os.path.join(tree, "scripts", "generate-mibs"), "--check")
        self.assertEqual(code, 1)
        self.assertIn("mibs/VRX-TAMREL-MIB.xml is stale", output)

    def test_changed_alarm_makes_the_alarm_module_stale(self):
        tree = self.copied_tree()
        self.change(os.path.join(tree, "share", "conf", "alarm_definitions.xml"), 'name="Disk Failed"',
                    'name="Disk Broken"')
        code, output = mib.run(os.path.join(tree, "scripts", "generate-mibs"), "--check")
        self.assertEqual(code, 1)
        self.assertIn("mibs/VRX-TAMREL-ALARM-MIB is stale", output)

    def test_net_snmp_resolves_names_of_both_modules(self):
        code, directories = mib.run(mib.path("scripts", "mib-path"))
        self.assertEqual(code, 0)
        for modules in ("+VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB:VRX-AGENT-MIB",
                        "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB:VRX-AGENT-MIB"):
            for name, oid in (("VRX-TAMREL-MIB::vrxAlarmNotification", mib.FIXED_TRAP),
                              ("VRX-TAMREL-MIB::vrxTrapDestAddress.3", mib.DESTINATIONS + ".1.6.3"),
                              ("VRX-AGENT-MIB::vrxAgentAlarmsActive.0", mib.AGENT_OBJECTS + ".1.1.0"),
                              ("VRX-TAMREL-ALARM-MIB::vrxDiskFailed", mib.NAMED_TRAPS + ".0.403")):
                with self.subTest(modules=modules, name=name):
                    options = ["snmptranslate", "-M", directories.strip(), "-m", modules]
                    code, output = mib.run(*options, "-On", name, SNMPCONFPATH=self.folder)
                    self.assertEqual((code, output.splitlines()[-1]), (0, "." + oid))
                    code, output = mib.run(*options, "." + oid, SNMPCONFPATH=self.folder)
                    self.assertEqual((code, output.splitlines()[-1]), (0, name))

    def test_net_snmp_loads_the_modules_without_a_word(self):
        code, directories = mib.run(mib.path("scripts", "mib-path"))
        self.assertEqual(code, 0)
        code, output = mib.run("snmptranslate", "-M", directories.strip(), "-m",
                               "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB:VRX-AGENT-MIB", "-Ln", "-On", ".1.3",
                               SNMPCONFPATH=self.folder)
        self.assertEqual((code, output), (0, ".1.3\n"))


if __name__ == "__main__":
    unittest.main()
