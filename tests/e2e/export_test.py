"""vrxctl export: the shipped definitions and hostile ones in every format, as the tools of receivers read them."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import quoteattr

from harness import PROGRAM_DIR, SOURCE_DIR, slowdown

OWN = "1.3.6.1.4.1.99871.2.91.10.2.1.1."
USAGE, DATA_FAULT, CANNOT_CREATE = 64, 65, 73
FORMATS = ["json"]

# What each format has a meaning of its own for.
HOSTILE = ['<script>alert(1)</script> & "quoted" \'single\' --> ]]>', "$1 $$ $* costs $5, 100%s `id` $(id)",
           "line one\nEXEC /bin/touch /pwned\nEDESC\nEVENT x .1 \"y\" Normal", '=HYPERLINK("http://x"),"a";b\ttab',
           "größe 磁盘 \U0001f4a5 \u202egnorw", 'ends ::= { vrxTamrel 9 } -- END "quote\\ \'', "x" * 20000,
           "</style></title><img src=x onerror=alert(1)>", "{{ .Title }} ${jndi} %n %d %%"]


def alarm(number, name="Disk Failed", reason="R.", suggestion="S.", detail="D.", location="L.", **other):
    attributes = {"eventID": 1 << 32 | number, "alarmOid": "0.%d" % number, "name": name, "reason": reason,
                  "suggestion": suggestion, "detail": detail, "location": location, **other}
    return "<param %s/>" % " ".join("%s=%s" % (key, quoteattr(str(value), {"\n": "&#10;", "\t": "&#9;"}))
                                    for key, value in attributes.items())


def definitions(*alarms, revision="202411210000Z"):
    attribute = ' mibRevision="%s"' % revision if revision else ""
    return '<?xml version="1.0" encoding="UTF-8"?>\n<root><eventDefinition%s>\n%s\n</eventDefinition></root>\n' % (
        attribute, "\n".join(alarms))


def hostile_definitions():
    return definitions(*[alarm(number, "%s %d" % (text, number), text, text, text.replace("{", "("), text)
                         for number, text in enumerate(HOSTILE, 1)])


def many_definitions(count):
    return definitions(*[alarm(number, "Made Alarm Of The Series %d" % number, "Some part of unit %d does not work." % number,
                               "Replace part ##00 of unit ##01.", "Part ##00 of unit ##01 is ##02{1:broken;2:away}.",
                               "Unit ##01, part ##00.") for number in range(1, count + 1)])


class Exported(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vrx-export-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def run_export(self, *arguments, root=os.path.join(SOURCE_DIR, "share"), **options):
        return subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", root, "export", *arguments],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, **options)

    def export(self, *arguments, text=None, **options):
        """What goes to standard output, of definitions of that text or of the shipped ones."""
        if text is not None:
            arguments += ("--definitions", self.write("definitions.xml", text))
        done = self.run_export(*arguments, **options)
        self.assertEqual((done.returncode, done.stderr.decode()), (0, ""))
        return done.stdout.decode("utf-8")

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8", newline="") as file:
            return file.read()


class CommandTest(Exported):
    def test_the_same_definitions_give_the_same_octets_in_any_order(self):
        alarms = [alarm(number, "Alarm %s" % chr(64 + number)) for number in range(1, 20)]
        for name in FORMATS:
            with self.subTest(name):
                first = self.export(name, text=definitions(*alarms))
                self.assertEqual(self.export(name, text=definitions(*alarms)), first)
                self.assertEqual(self.export(name, text=definitions(*reversed(alarms))), first)
                self.assertEqual(self.export(name, "--definitions", self.path("definitions.xml"), cwd="/",
                                             env={"TZ": "Asia/Tokyo", "LC_ALL": "C"}), first)

    def test_what_goes_to_a_file_is_what_goes_to_standard_output(self):
        for name in FORMATS:
            with self.subTest(name):
                self.assertEqual(self.export(name, "--output", self.path(name)), "")
                self.assertEqual(self.read(name), self.export(name))

    def test_a_folder_gets_the_files_under_their_names_and_keeps_others(self):
        os.mkdir(self.path("out"))
        self.write("out/other", "stays")
        self.export("json", "--output", self.path("out"))
        self.assertEqual(sorted(os.listdir(self.path("out"))), ["other", "vrx-alarms.json", "vrx-alarms.schema.json"])
        self.export("json", "--output", self.path("new") + "/")
        self.assertEqual(sorted(os.listdir(self.path("new"))), ["vrx-alarms.json", "vrx-alarms.schema.json"])

    def test_others_may_read_a_new_file_and_an_old_one_keeps_its_mode(self):
        self.export("json", "--output", self.path("file"), umask=0o022)
        self.assertEqual(os.stat(self.path("file")).st_mode & 0o777, 0o644)
        os.chmod(self.path("file"), 0o640)
        self.export("json", "--output", self.path("file"))
        self.assertEqual(os.stat(self.path("file")).st_mode & 0o777, 0o640)

    def test_faults_of_lint_are_refused_with_its_message_and_code(self):
        file = self.write("faulty.xml", definitions(alarm(1), alarm(2, detail="D ##00 ##"), alarm(3, alarmOid="")))
        lint = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "lint",
                               file], stdout=subprocess.PIPE, check=False)
        errors = [line for line in lint.stdout.decode().splitlines() if ": error: " in line]
        self.assertEqual((lint.returncode, len(errors)), (DATA_FAULT, 2))
        self.write("before", "stays")
        for name in FORMATS:
            with self.subTest(name):
                done = self.run_export(name, "--definitions", file, "--output", self.path("before"))
                self.assertEqual((done.returncode, done.stderr.decode().splitlines()), (DATA_FAULT, errors))
                self.assertEqual(done.stdout, b"")
                self.assertEqual(self.read("before"), "stays")

    def test_a_fault_of_the_enumerations_is_refused(self):
        done = self.run_export("json", "--enumerations", self.path("absent.xml"))
        self.assertEqual(done.returncode, DATA_FAULT)
        self.assertIn(b"absent.xml:0: error: ", done.stderr)

    def test_an_unknown_format_is_a_usage_error_that_names_the_formats(self):
        done = self.run_export("yaml")
        self.assertEqual(done.returncode, USAGE)
        for name in FORMATS:
            self.assertIn(name, done.stderr.decode())

    def test_a_root_that_configures_no_definitions_is_said(self):
        os.mkdir(self.path("conf"))
        self.write("conf/device.xml", "<device/>")
        done = self.run_export("json", root=self.folder)
        self.assertEqual(done.returncode, DATA_FAULT)
        self.assertIn(b"no alarm definition file is configured", done.stderr)

    def test_output_that_cannot_be_written_leaves_what_was_there(self):
        self.write("file", "stays")
        for target, shell in ((self.path("absent", "file"), ""), (self.path("file"), "ulimit -f 1;"),
                              ("/dev/full", ""), ("/dev/null", "")):
            with self.subTest(target):
                done = subprocess.run(["bash", "-c", shell + 'trap "" XFSZ; exec "$@"', "-",
                                       os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"),
                                       "export", "json", "--output", target], stderr=subprocess.PIPE, check=False)
                self.assertEqual(done.returncode, CANNOT_CREATE, done.stderr)
        self.assertEqual(self.read("file"), "stays")
        self.assertTrue(os.path.exists("/dev/null") and not os.path.isfile("/dev/null"))

    def test_standard_output_that_cannot_be_written_is_said(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"),
                                   "export", "json"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual((done.returncode, done.stderr), (CANNOT_CREATE, b"vrxctl: standard output: Input/output error\n"))

    def test_five_thousand_definitions_fit_into_200_mb(self):
        file = self.write("many.xml", many_definitions(5000))
        for name in FORMATS:
            with self.subTest(name), open(os.devnull, "wb") as nowhere:
                started = subprocess.Popen([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"),
                                            "export", name, "--definitions", file], stdout=nowhere)
                _, status, usage = os.wait4(started.pid, 0)
                started.returncode = os.waitstatus_to_exitcode(status)
                self.assertEqual(started.returncode, 0)
                self.assertLess(usage.ru_maxrss, 200 * 1024 * slowdown(), "kilobytes")


class JsonTest(Exported):
    def test_every_shipped_alarm_with_its_texts(self):
        alarms = {one["identifier"]: one for one in json.loads(self.export("json"))["alarms"]}
        shipped = ElementTree.parse(os.path.join(SOURCE_DIR, "share/conf/alarm_definitions.xml")).iter("param")
        for param in shipped:
            one = alarms.pop(param.get("eventID"))
            self.assertEqual(one["number"], int(param.get("eventID")) & 0xFFFFFFFF)
            self.assertEqual(one["oid"], OWN + param.get("alarmOid"))
            self.assertEqual(one["notification"], "vrx" + param.get("name").replace(" ", ""))
            self.assertEqual((one["title"], one["cause"]), (param.get("name"), param.get("reason")))
            self.assertEqual(one["templates"], {"location": param.get("location"), "detail": param.get("detail"),
                                                "advice": param.get("suggestion")})
        self.assertEqual(alarms, {})

    def test_parameters_and_sample_of_the_worked_example(self):
        catalogue = json.loads(self.export("json"))
        (disk,) = [one for one in catalogue["alarms"] if one["identifier"] == "4295229443"]
        self.assertEqual(disk["parameters"], [
            {"position": 0}, {"position": 1},
            {"position": 2, "enumeration": "DiskState",
             "shown_as": [{"code": "offline", "text": "not reachable"}, {"code": "read-only", "text": "no longer writable"},
                          {"code": "foreign", "text": "part of another system"}]}])
        self.assertEqual(disk["sample"], {
            "location": "Enclosure [1], slot [0].",
            "detail": "The disk in slot [0] of enclosure [1] cannot be used any more: it is not reachable.",
            "advice": "Replace the disk in slot [0] of enclosure [1]."})
        self.assertEqual(catalogue["enumerations"]["DiskState"][:2],
                         [{"code": "1", "text": "offline"}, {"code": "2", "text": "read-only"}])

    def test_hostile_texts_come_back_as_they_are(self):
        alarms = json.loads(self.export("json", text=hostile_definitions()))["alarms"]
        self.assertEqual([one["cause"] for one in alarms], HOSTILE)

    def test_octets_that_are_no_text_are_replaced(self):
        with open(self.path("raw.xml"), "wb") as file:
            file.write(definitions(alarm(1, "AB")).encode().replace(b"AB", b"A\xff&#27;B"))
        (one,) = json.loads(self.export("json", "--definitions", self.path("raw.xml")))["alarms"]
        self.assertEqual(one["title"], "A\ufffd\ufffdB")

    def test_the_schema_holds_what_is_written_and_nothing_else(self):
        import jsonschema  # pylint: disable=import-outside-toplevel
        for text in (None, hostile_definitions(), definitions(alarm(5, alarmOid="5.7"))):
            with self.subTest(text=(text or "shipped")[:200]):
                self.export("json", "--output", self.folder + "/", text=text)
                catalogue, schema = json.loads(self.read("vrx-alarms.json")), json.loads(self.read("vrx-alarms.schema.json"))
                jsonschema.Draft202012Validator.check_schema(schema)
                jsonschema.validate(catalogue, schema, jsonschema.Draft202012Validator)
                self.assertEqual(catalogue["$schema"], "vrx-alarms.schema.json")
                del catalogue["alarms"][0]["cause"]
                with self.assertRaises(jsonschema.ValidationError):
                    jsonschema.validate(catalogue, schema, jsonschema.Draft202012Validator)


if __name__ == "__main__":
    unittest.main()
