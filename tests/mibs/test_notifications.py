"""The notifications and what they carry, tied to the OIDs that the module's notification handlers use."""

import unittest

import mib

# Suffix of the name, and the syntax, of the 15 bindings in their order.
BINDINGS = [
    ("NodeCode", "VrxText"),
    ("LocationInfo", "VrxText"),
    ("RestoreAdvice", "VrxText"),
    ("FaultTitle", "VrxText"),
    ("FaultType", "VrxFaultType"),
    ("FaultLevel", "VrxFaultLevel"),
    ("AlarmId", "Gauge32"),
    ("FaultTime", None),  # the two kinds of traps differ here
    ("SerialNo", "Gauge32"),
    ("AdditionInfo", "VrxText"),
    ("FaultCategory", "VrxFaultCategory"),
    ("LocationAlarmId", "Counter64"),
    ("ProductModel", "Integer32"),
    ("ProductSn", "VrxText"),
    ("ProductSystemName", "VrxText"),
]


# Of a heartbeat, as host/notification_log/heartbeat_notification.h numbers them.
HEARTBEAT_BINDINGS = [
    ("ENGINE", "EngineId", "VrxText"),
    ("DESTINATION", "Destination", "Unsigned32 1..65535"),
    ("BOOTS", "Boots", "Unsigned32"),
    ("SERIES", "Series", "VrxText"),
    ("NUMBER", "Number", "Counter32"),
    ("TRAPS", "Traps", "Counter32"),
    ("AGE", "Age", "Gauge32"),
    ("NEXT", "Next", "Gauge32"),
    ("LAST_TRAP", "LastTrap", "DateAndTime"),
]


def notifications(name):
    """(oid, name, names of the objects) of a module's notifications."""
    return [(one.get("oid"), one.get("name"), [o.get("name") for o in one.findall("objects/object")])
            for one in mib.module(name).iter("notification")]


class NotificationsTest(unittest.TestCase):
    maxDiff = None

    def check_variables(self, base, prefix, time_syntax):
        found = [(scalar.get("oid"), scalar.get("name"), mib.syntax(scalar), scalar.findtext("access"))
                 for scalar in mib.module("VRX-TAMREL-MIB").iter("scalar")
                 if scalar.get("oid").startswith(base + ".")]
        self.assertEqual(found, [("%s.%d" % (base, number), prefix + suffix, syntax or time_syntax, "notifyonly")
                                 for number, (suffix, syntax) in enumerate(BINDINGS, 1)])

    def test_variables_of_the_fixed_notification(self):
        self.check_variables(mib.FIXED_TRAP_VARIABLES, "vrxAlarmTrap", "DateAndTime")

    def test_variables_of_the_named_notifications(self):
        self.check_variables(mib.NAMED_TRAP_VARIABLES, "vrxNamedAlarm", "VrxText")

    def test_fixed_notification(self):
        self.assertEqual(notifications("VRX-TAMREL-MIB"),
                         [(mib.FIXED_TRAP, "vrxAlarmNotification", ["vrxAlarmTrap" + s for s, _ in BINDINGS])])

    def test_heartbeat(self):
        self.assertEqual(notifications("VRX-AGENT-MIB"), [
            (mib.HEARTBEAT, "vrxAgentHeartbeat", ["vrxAgentHeartbeat" + name for _, name, _ in HEARTBEAT_BINDINGS])])
        variables = [(scalar.get("oid"), scalar.get("name"), mib.syntax(scalar))
                     for scalar in mib.module("VRX-AGENT-MIB").iter("scalar") if scalar.findtext("access") == "notifyonly"]
        self.assertEqual(variables, [("%s.%d" % (mib.HEARTBEAT_VARIABLES, number), "vrxAgentHeartbeat" + name, syntax)
                                     for number, (_, name, syntax) in enumerate(HEARTBEAT_BINDINGS, 1)])

    def test_the_agent_and_vrxctl_number_the_heartbeat_as_its_mib_does(self):
        with open(mib.path("host", "notification_log", "heartbeat_notification.h"), encoding="utf-8") as source:
            text = source.read()
        self.assertIn("NOTIFICATION = {%s}" % mib.HEARTBEAT.replace(".", ", "), text)
        self.assertIn("OBJECTS = {%s}" % mib.HEARTBEAT_VARIABLES.replace(".", ", "), text)
        self.assertIn("{ %s = 1, %s }" % (HEARTBEAT_BINDINGS[0][0], ", ".join(row[0] for row in HEARTBEAT_BINDINGS[1:])),
                      text)

    def test_each_alarm_has_a_notification_of_its_name_and_oid(self):
        expected = sorted((mib.NAMED_TRAPS + "." + alarm.get("alarmOid"), "vrx" + alarm.get("name").replace(" ", ""))
                          for alarm in mib.alarms())
        found = sorted((oid, name) for oid, name, _ in notifications("VRX-TAMREL-ALARM-MIB"))
        self.assertEqual(found, expected)

    def test_named_notifications_carry_the_15_variables_in_order(self):
        for _, name, objects in notifications("VRX-TAMREL-ALARM-MIB"):
            self.assertEqual(objects, ["vrxNamedAlarm" + s for s, _ in BINDINGS], name)


if __name__ == "__main__":
    unittest.main()
