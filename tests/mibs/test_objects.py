"""Every object: name, syntax and access, tied to the numbers under which the module and the host serve it."""

import os
import re
import unittest

import mib

NO = "noaccess"
R = "readonly"
RW = "readwrite"

TOPOLOGY = [
    (1, "vrxTopologyNodeCode", "VrxText", R),
    (2, "vrxTopologyNodeType", "Unsigned32", R),
    (3, "vrxTopologyNodeLevel", "Integer32", R),
    (4, "vrxTopologyAddress", "VrxText", R),
    (5, "vrxTopologyKind", "VrxText", R),
    (6, "vrxTopologyParent", "VrxText", R),
    (7, "vrxTopologyPosition", "VrxText", R),
    (8, "vrxTopologyStatus", "Enumeration online(1) offline(2)", R),
    (9, "vrxTopologyIndex", "Unsigned32 1..1", NO),
]

ALARMS = [
    (1, "vrxAlarmNodeCode", "VrxText", R),
    (2, "vrxAlarmLocationInfo", "VrxText", R),
    (3, "vrxAlarmRestoreAdvice", "VrxText", R),
    (4, "vrxAlarmFaultTitle", "VrxText", R),
    (5, "vrxAlarmFaultType", "VrxFaultType", R),
    (6, "vrxAlarmFaultLevel", "VrxFaultLevel", R),
    (7, "vrxAlarmAlarmId", "Gauge32", R),
    (8, "vrxAlarmFaultTime", "DateAndTime", R),
    (9, "vrxAlarmSerialNo", "Gauge32", R),
    (10, "vrxAlarmAdditionInfo", "VrxText", R),
    (11, "vrxAlarmFaultCategory", "VrxFaultCategory", R),
    (12, "vrxAlarmLocationAlarmId", "Counter64", R),
    (13, "vrxAlarmIndex", "Unsigned32 1..4294967295", NO),
]

DESTINATIONS = [
    (1, "vrxTrapDestReachable", "VrxText", R),
    (2, "vrxTrapDestPort", "Unsigned32 1..65535", RW),
    (3, "vrxTrapDestStatus", "RowStatus", RW),
    (4, "vrxTrapDestIndexText", "VrxText", R),
    (5, "vrxTrapDestVersion", "Enumeration v1(1) v2c(2) v3(3)", RW),
    (6, "vrxTrapDestAddress", "VrxText 1..255", RW),
    (7, "vrxTrapDestTrapType", "Enumeration common(1) both(3) named(4)", RW),
    (8, "vrxTrapDestUser", "VrxText 0..32", RW),
    (9, "vrxTrapDestNumber", "Unsigned32 1..65535", NO),
]

TYPES = {
    "VrxText": ("OctetString", ["0..65535"]),
    "VrxFaultType": ("Enumeration", ["fault(2)", "event(3)"]),
    "VrxFaultLevel": ("Enumeration", ["critical(1)", "major(2)", "minor(3)", "warning(4)"]),
    "VrxFaultCategory": ("Enumeration", ["active(1)", "cleared(2)", "event(3)"]),
}

# Group, number, name, syntax; the type with which the agent answers.
AGENT = [
    (1, 1, "vrxAgentAlarmsActive", "Gauge32", "ASN_GAUGE"),
    (1, 2, "vrxAgentAlarmsCritical", "Gauge32", "ASN_GAUGE"),
    (1, 3, "vrxAgentAlarmsMajor", "Gauge32", "ASN_GAUGE"),
    (1, 4, "vrxAgentAlarmsMinor", "Gauge32", "ASN_GAUGE"),
    (1, 5, "vrxAgentAlarmsWarning", "Gauge32", "ASN_GAUGE"),
    (1, 6, "vrxAgentAlarmChanges", "Counter32", "ASN_COUNTER"),
    (1, 7, "vrxAgentAlarmLastChange", "TimeStamp", "ASN_TIMETICKS"),
    (1, 8, "vrxAgentAlarmLastChangeTime", "DateAndTime", "ASN_OCTET_STR"),
    (1, 9, "vrxAgentAlarmLastEvent", "Counter64", "ASN_COUNTER64"),
    (2, 1, "vrxAgentBackendState", "Enumeration connected(1) away(2)", "ASN_INTEGER"),
    (2, 2, "vrxAgentBackendSince", "TimeStamp", "ASN_TIMETICKS"),
    (2, 3, "vrxAgentBackendConnections", "Counter32", "ASN_COUNTER"),
    (3, 1, "vrxAgentTrapsSent", "Counter32", "ASN_COUNTER"),
    (3, 2, "vrxAgentTrapsDropped", "Counter32", "ASN_COUNTER"),
    (3, 3, "vrxAgentTrapsWaiting", "Gauge32", "ASN_GAUGE"),
]

REGISTERED = [mib.TOPOLOGY, mib.ALARMS, mib.CLEAR_ALARM, mib.DESTINATIONS]


class ObjectsTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.smi = mib.module("VRX-TAMREL-MIB")

    def table(self, oid):
        return next(table for table in self.smi.iter("table") if table.get("oid") == oid)

    def check_table(self, oid, expected, creatable):
        row = self.table(oid).find("row")
        self.assertEqual(row.get("oid"), oid + ".1")
        columns = [(int(column.get("oid").rpartition(".")[2]), column.get("name"), mib.syntax(column),
                    column.findtext("access")) for column in row.findall("column")]
        self.assertEqual(columns, expected)
        self.assertEqual([column.get("oid").rpartition(".")[0] for column in row.findall("column")],
                         [oid + ".1"] * len(expected))
        index = [index.get("name") for index in row.findall("linkage/index")]
        self.assertEqual(index, [name for _, name, _, access in expected if access == NO])
        self.assertEqual(row.get("create") == "true", creatable)

    def test_topology_table(self):
        self.check_table(mib.TOPOLOGY, TOPOLOGY, creatable=False)

    def test_alarm_table(self):
        self.check_table(mib.ALARMS, ALARMS, creatable=False)

    def test_trap_destination_table(self):
        self.check_table(mib.DESTINATIONS, DESTINATIONS, creatable=True)

    def test_clear_alarm_scalar(self):
        scalars = [(scalar.get("oid"), scalar.get("name"), mib.syntax(scalar), scalar.findtext("access"))
                   for scalar in self.smi.iter("scalar") if scalar.findtext("access") != "notifyonly"]
        self.assertEqual(scalars, [(mib.CLEAR_ALARM, "vrxClearAlarm", "Unsigned32", RW)])

    def test_objects_of_the_agent(self):
        scalars = [(scalar.get("oid"), scalar.get("name"), mib.syntax(scalar), scalar.findtext("access"))
                   for scalar in mib.module("VRX-AGENT-MIB").iter("scalar") if scalar.findtext("access") != "notifyonly"]
        self.assertEqual(scalars, [("%s.%d.%d" % (mib.AGENT_OBJECTS, group, number), name, syntax, R)
                                   for group, number, name, syntax, _ in AGENT])

    def test_the_agent_registers_the_objects_of_its_mib(self):
        with open(mib.path("host", "agent", "operator", "status_scalars.cpp"), encoding="utf-8") as source:
            text = source.read()
        self.assertIn('parseOid("%s")' % mib.AGENT_OBJECTS, text)
        groups = {name: int(number) for name, number in re.findall(r"constexpr oid (GROUP_\w+) = (\d+);", text)}
        rows = re.findall(r"^    \{(GROUP_\w+), +(\d+), (ASN_\w+),", text, re.MULTILINE)
        self.assertEqual([(groups[group], int(number), kind) for group, number, kind in rows],
                         [(group, number, kind) for group, number, _, _, kind in AGENT])

    def test_types(self):
        types = {}
        for definition in self.smi.findall("typedefs/typedef"):
            details = ["%s..%s" % (limit.get("min"), limit.get("max")) for limit in definition.findall("range")]
            details += ["%s(%s)" % (label.get("name"), label.get("number"))
                        for label in definition.findall("namednumber")]
            types[definition.get("name")] = (definition.get("basetype"), details)
        self.assertEqual(types, TYPES)

    def test_the_module_registers_the_objects_of_the_mib(self):
        literals = set()
        for folder in ("module",):
            for name in sorted(os.listdir(mib.path(folder))):
                with open(mib.path(folder, name), encoding="utf-8") as source:
                    literals |= set(re.findall(r'"(1\.3\.6\.1\.4\.1\.99871\.[0-9.]+)"', source.read()))
        self.assertEqual(sorted(literals), sorted(REGISTERED))
        served = [table.get("oid") for table in self.smi.iter("table")] + [mib.CLEAR_ALARM]
        self.assertEqual(sorted(served), sorted(REGISTERED))

    def test_nothing_else_stands_below_a_registered_oid(self):
        expected = {mib.CLEAR_ALARM}
        for oid, columns in ((mib.TOPOLOGY, TOPOLOGY), (mib.ALARMS, ALARMS), (mib.DESTINATIONS, DESTINATIONS)):
            expected |= {oid, oid + ".1"} | {"%s.1.%d" % (oid, number) for number, _, _, _ in columns}
        for name in ("VRX-TAMREL-MIB", "VRX-TAMREL-ALARM-MIB"):
            for element in mib.module(name).iter():
                oid = element.get("oid", "")
                if any((oid + ".").startswith(root + ".") for root in REGISTERED):
                    self.assertIn(oid, expected)


if __name__ == "__main__":
    unittest.main()
