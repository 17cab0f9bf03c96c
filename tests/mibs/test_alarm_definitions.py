"""The alarm definitions and enumerations that ship."""

import collections
import re
import unittest

import mib

TEXTS = ("name", "reason", "suggestion", "detail", "location")
EXCLUDED = range(507010006, 507010011)  # alarm numbers that the alarm table never shows


def placeholders(text):
    return [int(index) for index in re.findall(r"##(\d\d)", text)]


def value_maps(detail):
    """(parameter index, text between the braces) of each value map."""
    return [(int(index), entries) for index, entries in re.findall(r"##(\d\d)\{([^{}]*)\}", detail)]


def parameter_types(alarm):
    """[(position, type)] of paramDesc."""
    entries = alarm.get("paramDesc")
    return [] if entries is None else [(int(position), kind) for position, kind in
                                       (entry.split("=") for entry in entries.split(","))]


class AlarmDefinitionsTest(unittest.TestCase):
    def setUp(self):
        self.alarms = mib.alarms()

    def each(self, check):
        for alarm in self.alarms:
            with self.subTest(alarm=alarm.get("name")):
                check(alarm)

    def test_there_are_enough_of_them(self):
        self.assertGreaterEqual(len(self.alarms), 80)

    def test_every_alarm_has_all_texts_and_nothing_unknown(self):
        def check(alarm):
            self.assertLessEqual(set(alarm.keys()), set(TEXTS) | {"eventID", "alarmOid", "paramDesc"})
            for text in TEXTS:
                self.assertTrue(alarm.get(text), text)
                self.assertEqual(alarm.get(text), alarm.get(text).strip())
                self.assertTrue(alarm.get(text).isascii(), text)
        self.each(check)

    def test_identifiers_numbers_oids_and_names_are_unique(self):
        identifiers = [int(alarm.get("eventID")) for alarm in self.alarms]
        for values in (identifiers, [identifier & 0xFFFFFFFF for identifier in identifiers],
                       [alarm.get("alarmOid") for alarm in self.alarms],
                       [alarm.get("name") for alarm in self.alarms]):
            repeated = [value for value, count in collections.Counter(values).items() if count > 1]
            self.assertEqual(repeated, [])

    def test_identifiers_are_64_bit_numbers_outside_the_excluded_block(self):
        def check(alarm):
            identifier = int(alarm.get("eventID"))
            self.assertGreater(identifier, 0xFFFFFFFF)
            self.assertLess(identifier, 1 << 63)
            self.assertNotIn(identifier & 0xFFFFFFFF, EXCLUDED)
        self.each(check)

    def test_identifier_and_oid_are_made_of_group_and_number(self):
        def check(alarm):
            group, number = divmod(int(alarm.get("eventID")) - (1 << 32), 65536)
            self.assertIn(number, range(1, 100))
            self.assertEqual(alarm.get("alarmOid"), "0.%d" % (group * 100 + number))
        self.each(check)

    def test_every_mark_is_followed_by_two_digits(self):
        self.each(lambda alarm: [self.assertEqual(alarm.get(text).count("##"), len(placeholders(alarm.get(text))), text)
                                 for text in TEXTS])

    def test_no_text_ends_in_a_placeholder(self):
        # A value that ends in a mark would then end the text, which cannot be rendered.
        self.each(lambda alarm: [self.assertRegex(alarm.get(text), r"\.$", text)
                                 for text in ("location", "detail", "suggestion")])

    def test_details_use_every_parameter_from_the_first_on(self):
        # Then each index lies below the number of placeholders, which is the bound that rendering applies.
        def check(alarm):
            used = placeholders(alarm.get("detail"))
            self.assertTrue(used)
            self.assertEqual(sorted(set(used)), list(range(len(set(used)))))
        self.each(check)

    def test_location_and_suggestion_use_parameters_of_the_detail_only(self):
        def check(alarm):
            known = set(placeholders(alarm.get("detail")))
            for text in ("location", "suggestion"):
                self.assertLessEqual(set(placeholders(alarm.get(text))), known, text)
        self.each(check)

    def test_name_and_reason_have_no_placeholders(self):
        self.each(lambda alarm: self.assertEqual(placeholders(alarm.get("name") + alarm.get("reason")), []))

    def test_braces_stand_only_right_behind_a_placeholder_of_the_detail(self):
        def check(alarm):
            detail = alarm.get("detail")
            self.assertEqual(detail.count("{"), len(value_maps(detail)))
            self.assertEqual(detail.count("}"), len(value_maps(detail)))
            for text in ("name", "reason", "suggestion", "location"):
                self.assertNotRegex(alarm.get(text), "[{}]")
        self.each(check)

    def test_value_maps_hold_pairs(self):
        def check(alarm):
            for _, entries in value_maps(alarm.get("detail")):
                pairs = [entry.split(":") for entry in entries.split(";")]
                self.assertEqual([len(pair) for pair in pairs], [2] * len(pairs))
                keys = [key for key, _ in pairs]
                self.assertEqual(len(keys), len(set(keys)))
                self.assertTrue(all(key and text for key, text in pairs))
        self.each(check)

    def test_no_other_brace_is_taken_for_a_value_map(self):
        # A "{" up to 7 characters after a mark belongs to that mark.
        def check(alarm):
            detail = alarm.get("detail")
            for mark in re.finditer("##", detail):
                brace = detail.find("{", mark.start())
                if 0 <= brace - mark.start() <= 7:
                    self.assertEqual(brace, mark.start() + 4)
        self.each(check)

    def test_parameter_types_are_defined_and_in_range(self):
        known = mib.enumerations()
        def check(alarm):
            count = len(set(placeholders(alarm.get("detail"))))
            for position, kind in parameter_types(alarm):
                self.assertIn(kind, known)
                self.assertLess(position, count)
        self.each(check)

    def test_value_maps_of_typed_parameters_use_texts_of_the_type(self):
        known = mib.enumerations()
        def check(alarm):
            types = dict(parameter_types(alarm))
            for index, entries in value_maps(alarm.get("detail")):
                if index in types:
                    keys = {entry.split(":")[0] for entry in entries.split(";")}
                    self.assertLessEqual(keys, set(known[types[index]].values()))
        self.each(check)

    def test_every_enumeration_is_used_and_complete(self):
        used = {kind for alarm in self.alarms for _, kind in parameter_types(alarm)}
        self.assertEqual(used, set(mib.enumerations()))
        for name, members in mib.enumerations().items():
            self.assertGreaterEqual(len(members), 2, name)
            self.assertTrue(all(members.values()), name)
            self.assertEqual(len(set(members.values())), len(members), name)

    def test_both_ways_of_naming_values_are_shown(self):
        self.assertGreaterEqual(sum(bool(value_maps(alarm.get("detail"))) for alarm in self.alarms), 5)
        self.assertGreaterEqual(sum(alarm.get("paramDesc") is not None for alarm in self.alarms), 5)


if __name__ == "__main__":
    unittest.main()
