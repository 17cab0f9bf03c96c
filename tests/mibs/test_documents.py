"""docs/mib.md and docs/alarm-definitions.md say what the modules and the shipped files say."""

import re
import subprocess
import unittest

import mib


def text_of(*parts):
    with open(mib.path(*parts), encoding="utf-8") as source:
        return source.read()


def cells(line):
    return [cell.strip().replace("`", "") for cell in line.strip().strip("|").split("|")]


class DocumentsTest(unittest.TestCase):
    maxDiff = None

    def names(self):
        found = {}
        for name in ("VRX-TAMREL-MIB", "VRX-TAMREL-ALARM-MIB", "VRX-AGENT-MIB"):
            for element in mib.module(name).iter():
                if element.get("oid") is not None:
                    found[element.get("name")] = element.get("oid")
        return found

    def test_every_name_on_the_mib_page_exists(self):
        known = set(self.names())
        page = text_of("docs", "mib.md")
        used = set(re.findall(r"\bvrx[A-Z]\w*", page)) - {"vrxAlarmTrap", "vrxNamedAlarm"}  # these two are prefixes
        self.assertTrue(used)
        self.assertEqual(sorted(used - known), [])

    def test_tables_of_the_mib_page_are_complete_and_numbered_right(self):
        known = self.names()
        rows = {}
        for line in text_of("docs", "mib.md").splitlines():
            row = cells(line)
            if re.match(r"\| \d", line) and row[1].startswith("vrx"):
                for number, name in zip(row[0].split(", "), row[1].split(", ")):
                    rows[name] = int(number)
        readable = [column for column in mib.module("VRX-TAMREL-MIB").iter("column")
                    if column.findtext("access") != "noaccess"]
        self.assertEqual(rows, {column.get("name"): int(known[column.get("name")].rpartition(".")[2])
                                for column in readable})

    def test_bindings_of_the_mib_page_are_those_of_the_notification(self):
        listed = [name[1:] for name in re.findall(r"^\| \d+ \| `(X\w+)`", text_of("docs", "mib.md"), re.MULTILINE)]
        notification = mib.module("VRX-TAMREL-MIB").find(".//notification")
        self.assertEqual(["vrxAlarmTrap" + name for name in listed],
                         [one.get("name") for one in notification.findall("objects/object")])

    def test_oids_of_the_tree_on_the_mib_page(self):
        known = self.names()
        rows = re.findall(r"^\| `(\.[0-9.]+)` \| `(vrx\w+)", text_of("docs", "mib.md"), re.MULTILINE)
        self.assertGreaterEqual(len(rows), 5)
        for oid, name in rows:
            self.assertEqual(mib.ROOT + oid.removesuffix(".0"), known[name])

    def test_the_agents_own_objects_on_the_mib_page(self):
        rows = re.findall(r"^\| `(vrxAgent\w+)` \| `(\.[0-9.]+)\.0` \| (\w+)", text_of("docs", "mib.md"), re.MULTILINE)
        root = mib.AGENT_OBJECTS.rpartition(".")[0]
        listed = [(name, root + oid, syntax) for name, oid, syntax in rows]
        objects = [(scalar.get("name"), scalar.get("oid"), mib.syntax(scalar).split()[0].replace("Enumeration", "INTEGER"))
                   for scalar in mib.module("VRX-AGENT-MIB").iter("scalar")]
        self.assertEqual(listed, objects)

    def test_example_of_the_mib_page_prints_what_the_page_says(self):
        page = text_of("docs", "mib.md")
        commands = re.search(r"```sh\n(export.*?)```", page, re.DOTALL).group(1)
        expected = re.search(r"prints `([^`]*)`", page).group(1)
        done = subprocess.run(["sh", "-ec", commands], cwd=mib.SOURCE_DIR, stdout=subprocess.PIPE, text=True, check=True)
        self.assertEqual(done.stdout.strip(), expected)

    def test_worked_example_of_the_definition_page_is_the_shipped_alarm(self):
        page = text_of("docs", "alarm-definitions.md")
        alarm = next(alarm for alarm in mib.alarms() if alarm.get("eventID") == "4295229443")
        for attribute in ("detail", "location", "suggestion", "paramDesc"):
            self.assertIn("| `%s` | %s |" % (attribute, alarm.get(attribute)), page)


if __name__ == "__main__":
    unittest.main()
