"""vrxctl export: the shipped definitions and hostile ones in every format, as the tools of receivers read them."""

import base64
import csv
import hashlib
import html
import html.parser
import io
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import quoteattr

import yaml

from harness import PROGRAM_DIR, SOURCE_DIR, System, mib_path, slowdown, wait_for

OWN = "1.3.6.1.4.1.99871.2.91.10.2.1.1."
USAGE, DATA_FAULT, CANNOT_CREATE = 64, 65, 73
FOLDER_FORMATS = ["prometheus"]  # several files, of no use alone
FORMATS = ["mib", "snmptt", "zabbix", "opennms", "grafana", "catalogue", "json", "csv"] + FOLDER_FORMATS
NAMING_FORMATS = ["mib", "snmptt", "opennms"]

# What each format has a meaning of its own for.
HOSTILE = ['<script>alert(1)</script> & "quoted" \'single\' --> ]]>', "$1 $$ $* costs $5, 100%s `id` $(id)",
           "line one\nEXEC /bin/touch /pwned\nEDESC\nEVENT x .1 \"y\" Normal" + " EXEC EDESC MATCH" * 30, '=HYPERLINK("http://x"),"a";b\ttab',
           "größe 磁盘 \U0001f4a5 \u202egnorw", 'ends ::= ::::= { vrxTamrel 9 } -- END "quote\\ \'', "x" * 20000,
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


def documented_lines(section):
    """The lines to type of a section of docs/receivers.md."""
    with open(os.path.join(SOURCE_DIR, "docs", "receivers.md"), encoding="utf-8") as file:
        body = re.search(r"^## %s\n(.*?)(?=^## |\Z)" % section, file.read(), re.MULTILINE | re.DOTALL).group(1)
    first_block = re.search(r"(?:^    .*\n)+", body, re.MULTILINE).group(0)
    return [line[4:] for line in first_block.splitlines()]


def type_lines(lines, folder, moved):
    """Types documented lines with paths of the machine moved to those of a test; packages must be installed already, and
    units that are started be theirs."""
    for line in lines:
        if line.startswith("apt install "):
            subprocess.run(["dpkg-query", "-W", *line.split()[2:]], check=True, stdout=subprocess.DEVNULL)
        for unit in line.split()[2:] if line.startswith("systemctl ") else ():
            subprocess.run(["dpkg-query", "-S", "/lib/systemd/system/%s.service" % unit], check=True, stdout=subprocess.DEVNULL)
    script = "\n".join(line for line in lines if not line.startswith(("apt ", "systemctl ")))
    for there, here in moved.items():
        script = script.replace(there, here)
    return subprocess.run(["sh", "-ec", script], cwd=folder, check=True, stdout=subprocess.PIPE, text=True,
                          env=dict(os.environ, PATH=PROGRAM_DIR + ":" + os.environ["PATH"], SNMPCONFPATH=folder,
                                   VRX_ROOT=os.path.join(SOURCE_DIR, "share"))).stdout


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
        """What goes to standard output (formats of several files: all of them), of definitions of that text or of the
        shipped ones."""
        if text is not None:
            arguments += ("--definitions", self.write("definitions.xml", text))
        several = arguments[0] in FOLDER_FORMATS and "--output" not in arguments
        if several:
            arguments += ("--output", self.path("several") + "/")
        done = self.run_export(*arguments, **options)
        self.assertEqual((done.returncode, done.stderr.decode()), (0, ""))
        if several:
            return "".join(name + "\n" + self.read(os.path.join("several", name))
                           for name in sorted(os.listdir(self.path("several"))))
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
            if name in FOLDER_FORMATS:
                continue
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

    def test_a_format_of_several_files_needs_a_folder(self):
        for name in FOLDER_FORMATS:
            for output in ((), ("--output", self.path("file"))):
                done = self.run_export(name, *output)
                self.assertEqual((done.returncode, done.stdout), (USAGE, b""))
                self.assertIn(b"--output must name a folder", done.stderr)
        self.assertEqual(os.listdir(self.folder), [])

    def test_faults_of_lint_are_refused_with_its_message_and_code(self):
        file = self.write("faulty.xml", definitions(alarm(1), alarm(2, detail="D ##00 ##"), alarm(3, alarmOid="")))
        lint = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "lint",
                               file], stdout=subprocess.PIPE, check=False)
        errors = [line for line in lint.stdout.decode().splitlines() if ": error: " in line]
        self.assertEqual((lint.returncode, len(errors)), (DATA_FAULT, 2))
        self.write("before", "stays")
        for name in FORMATS:
            with self.subTest(name):
                output = self.path("folder") + "/" if name in FOLDER_FORMATS else self.path("before")
                done = self.run_export(name, "--definitions", file, "--output", output)
                self.assertEqual((done.returncode, done.stderr.decode().splitlines()), (DATA_FAULT, errors))
                self.assertEqual(done.stdout, b"")
                self.assertEqual(self.read("before"), "stays")
                self.assertFalse(os.path.exists(self.path("folder")))

    def test_formats_that_name_notifications_refuse_alarms_that_can_have_none(self):
        for oid, rule in (("5.7", "oid-form"), ("0.07", "oid-form"), ("0.1", "repeated-oid")):
            file = self.write("definitions.xml", definitions(alarm(1), alarm(2, alarmOid=oid)))
            for name in FORMATS:
                with self.subTest(name, oid=oid):
                    done = self.run_export(name, "--definitions", file, "--output", self.path("out") + "/")
                    refused = re.findall(r"\[([a-z-]+)\]$", done.stderr.decode(), re.MULTILINE)
                    self.assertEqual((done.returncode, refused),
                                     (DATA_FAULT, [rule]) if name in NAMING_FORMATS else (0, []))

    def test_lint_tells_what_a_mib_module_lacks(self):
        file = self.write("definitions.xml", definitions(alarm(1), alarm(2), alarm(3, "größe"), revision="soon"))
        lint = [os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"), "lint", file]
        done = subprocess.run(lint, stdout=subprocess.PIPE, text=True, check=True)
        self.assertEqual([line.removeprefix(file) for line in done.stdout.splitlines()], [
            ':2: warning: mibRevision "soon" is no date YYYYMMDDHHMMZ; the MIB module has 200001010000Z [mib-revision]',
            ":3: warning: another alarm's notification is vrxDiskFailed, too; this one is vrxAlarm1 [notification-name]",
            ":4: warning: another alarm's notification is vrxDiskFailed, too; this one is vrxAlarm2 [notification-name]",
            ':5: warning: name "größe" cannot be that of a notification; it is vrxAlarm3 [notification-name]'])
        self.assertEqual(subprocess.run([*lint, "--strict"], stdout=subprocess.DEVNULL, check=False).returncode, DATA_FAULT)

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
        self.assertEqual(os.listdir(self.folder), ["file"])
        self.assertTrue(os.path.exists("/dev/null") and not os.path.isfile("/dev/null"))

    def test_standard_output_that_cannot_be_written_is_said(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"),
                                   "export", "json"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual((done.returncode, done.stderr), (CANNOT_CREATE, b"vrxctl: standard output: Input/output error\n"))

    def test_five_thousand_definitions_fit_into_200_mb(self):
        # A sanitizer's programs take five times as much of time and memory: they get a fifth.
        file = self.write("many.xml", many_definitions(5000 // slowdown()))
        for name in FORMATS:
            output = ["--output", self.path("several") + "/"] if name in FOLDER_FORMATS else []
            with self.subTest(name), open(os.devnull, "wb") as nowhere:
                started = subprocess.Popen([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", os.path.join(SOURCE_DIR, "share"),
                                            "export", name, "--definitions", file, *output], stdout=nowhere)
                _, status, usage = os.wait4(started.pid, 0)
                started.returncode = os.waitstatus_to_exitcode(status)
                self.assertEqual(started.returncode, 0)
                self.assertLess(usage.ru_maxrss, 200 * 1024, "kilobytes")


class DocumentedLinesTest(Exported):
    def test_mib(self):
        printed = type_lines(documented_lines("mib"), self.folder, {"/usr/share/snmp/mibs": os.path.join(SOURCE_DIR, "mibs")})
        self.assertEqual(printed, "VRX-TAMREL-ALARM-MIB::vrxDiskFailed\n")

    def test_formats_that_are_files(self):
        for section, files in (("json", ["vrx-alarms/vrx-alarms.json", "vrx-alarms/vrx-alarms.schema.json"]),
                               ("csv", ["vrx-alarms.csv"]), ("catalogue", ["vrx-alarms.html"]),
                               ("grafana", ["vrx-dashboard.json"])):
            type_lines(documented_lines(section), self.folder, {})
            for file in files:
                self.assertGreater(os.path.getsize(self.path(file)), 1000)

    def test_prometheus(self):
        lines = [line for line in documented_lines("prometheus") if line.split()[0] not in ("apt", "promtool", "systemctl")]
        os.mkdir(self.path("etc"))
        type_lines(lines, self.folder, {"/etc/prometheus/": self.path("etc") + "/", "COMMUNITY": "a-word",
                                        "-g prometheus ": ""})
        self.assertEqual(os.stat(self.path("etc", "snmp.yml")).st_mode & 0o777, 0o640)
        self.assertEqual(sorted(os.listdir(self.path("etc"))), ["prometheus.yml", "snmp.yml", "vrx-rules-test.yml",
                                                                "vrx-rules.yml", "vrx-systems.json"])
        with open(self.path("etc", "snmp.yml"), encoding="utf-8") as file:
            self.assertEqual({module["auth"]["community"] for module in yaml.safe_load(file).values()}, {"a-word"})

    def test_zabbix(self):
        lines = [line for line in documented_lines("zabbix") if not line.startswith("systemctl ")]
        for folder in ("snmp", "server.d"):
            os.mkdir(self.path(folder))
        type_lines(lines, self.folder, {"/etc/snmp/": self.path("snmp") + "/", "/var/log/zabbix-traps": self.path("traps"),
                                        "/etc/zabbix/zabbix_server.conf.d/": self.path("server.d") + "/",
                                        "-o Debian-snmp ": "", "COMMUNITY": "a-word"})
        # What snmptrapd gives a program, and what the server reads.
        for address in ("192.0.2.7", "2001:db8::7"):
            subprocess.run(["sh", self.path("snmp", "zabbix-trap")], check=True, text=True,
                           input="host\nUDP: [%s]:4000->[127.0.0.1]:162\n.1.3.6.1.2.1.1.3.0 0:0:02:03.45\n" % address)
        self.assertEqual(self.read("traps/log"), "ZBXTRAP 192.0.2.7\n.1.3.6.1.2.1.1.3.0 0:0:02:03.45\n"
                         "ZBXTRAP 2001:db8::7\n.1.3.6.1.2.1.1.3.0 0:0:02:03.45\n")

    def test_opennms(self):
        lines = [line for line in documented_lines("opennms") if "send-event" not in line]
        os.makedirs(self.path("etc", "events"))
        shipped = "<events>\n  <global/>\n  <event-file>events/one</event-file>\n  <event-file>events/two</event-file>\n</events>\n"
        self.write("etc/eventconf.xml", shipped)
        type_lines(lines, self.folder, {"/usr/share/opennms/etc/": self.path("etc") + "/"})
        self.assertEqual(self.read("etc/events/vrx.events.xml"), self.export("opennms"))
        files = [entry.text for entry in ElementTree.parse(self.path("etc", "eventconf.xml")).iter("event-file")]
        self.assertEqual(files, ["events/vrx.events.xml", "events/one", "events/two"])

    def test_at_most_ten_lines_to_type(self):
        for name in FORMATS:
            self.assertLessEqual(len(documented_lines(name)), 10, name)


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


class CsvTest(Exported):
    def rows(self, **options):
        # Not text: the reader is to see the line ends.
        return list(csv.DictReader(io.StringIO(self.export("csv", **options), newline=""), strict=True))

    def test_every_shipped_alarm_as_the_json_has_it(self):
        rows, alarms = self.rows(), json.loads(self.export("json"))["alarms"]
        self.assertEqual(len(rows), len(alarms))
        for row, one in zip(rows, alarms):
            for key in ("number", "identifier", "oid", "notification", "title", "cause"):
                self.assertEqual(row[key], str(one[key]))
            self.assertEqual({key: row[key] for key in ("location", "detail", "advice")}, one["sample"])
        (disk,) = [row for row in rows if row["number"] == "262147"]
        self.assertEqual(disk["parameters"], "0; 1; 2 DiskState (1=offline, 2=read-only, 3=foreign, 4=unstable) shown as "
                         "(offline=not reachable, read-only=no longer writable, foreign=part of another system)")

    def test_hostile_texts_stay_in_their_fields(self):
        rows = self.rows(text=hostile_definitions())
        self.assertEqual([row["cause"].removeprefix("'") for row in rows], HOSTILE)

    def test_no_field_is_a_formula(self):
        for start in "=+-@\t":
            (row,) = self.rows(text=definitions(alarm(1, reason=start + "1", suggestion="1" + start)))
            self.assertEqual((row["cause"], row["advice"]), ("'" + start + "1", "1" + start))

    def test_lines_end_in_cr_lf(self):
        text = self.export("csv")
        self.assertEqual(text.count("\r\n"), text.count("\n"))


class Page(html.parser.HTMLParser):
    """A page whose elements are all closed: [(element, attributes, text below it)]."""

    VOID = {"meta", "input"}

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.elements, self._open, self.faults = [], [], []
        self.feed(text)
        self.close()
        self.faults += ["<%s> is not closed" % element[0] for element in self._open]

    def handle_starttag(self, tag, attrs):
        if len(dict(attrs)) != len(attrs):
            self.faults.append("an attribute twice in <%s>" % tag)
        element = [tag, dict(attrs), ""]
        self.elements.append(element)
        if tag not in self.VOID:
            self._open.append(element)

    def handle_endtag(self, tag):
        if not self._open or self._open.pop()[0] != tag:
            self.faults.append("</%s> in a wrong place" % tag)

    def handle_data(self, data):
        for element in self._open:
            element[2] += data

    def all(self, tag):
        return [(attributes, text) for name, attributes, text in self.elements if name == tag]

    def ids(self):
        return [attributes["id"] for _, attributes, _ in self.elements if "id" in attributes]


class CataloguePageTest(Exported):
    def page(self, **options):
        page = Page(self.export("catalogue", **options))
        self.assertEqual(page.faults, [])
        return page

    def test_every_shipped_alarm_with_its_texts_and_anchors(self):
        page, catalogue = self.page(), json.loads(self.export("json"))
        articles = page.all("article")
        self.assertEqual(len(articles), len(catalogue["alarms"]))
        for (attributes, text), one in zip(articles, catalogue["alarms"]):
            self.assertEqual(attributes["id"], str(one["number"]))
            for part in (one["title"], one["cause"], one["identifier"], one["notification"], one["oid"], *one["sample"].values()):
                self.assertIn(part, text)
            for parameter in one["parameters"]:
                for member in catalogue["enumerations"].get(parameter.get("enumeration"), []):
                    self.assertIn("%s = %s" % (member["code"], member["text"]), text)
        self.assertLessEqual({one["oid"] for one in catalogue["alarms"]}, set(page.ids()))

    def test_ids_are_unique_and_links_stay_in_the_page(self):
        twice = definitions(alarm(5), "<param eventID='5' alarmOid='0.5' name='B' reason='R' suggestion='S' detail='D' location='L'/>",
                            alarm(507010006))
        for options in ({}, {"text": hostile_definitions()}, {"text": twice}):
            page = self.page(**options)
            ids = page.ids()
            self.assertEqual(len(ids), len(set(ids)))
            links = [attributes["href"] for attributes, _ in page.all("a")]
            self.assertLessEqual({link[1:] for link in links}, set(ids))
            self.assertEqual({link[0] for link in links}, {"#"})
            named = [attributes.get(name) for _, attributes, _ in page.elements
                     for name in ("for", "aria-labelledby", "aria-describedby") if name in attributes]
            self.assertLessEqual(set(named), set(ids))

    def test_nothing_comes_from_elsewhere_and_no_other_script_may_run(self):
        for options in ({}, {"text": hostile_definitions()}):
            page = self.page(**options)
            self.assertLessEqual({name for name, _, _ in page.elements},
                                 set("html head meta title style body a header h1 h2 p div label input output span main section "
                                     "table tr th td article dl dt dd script".split()))
            self.assertLessEqual({name for _, attributes, _ in page.elements for name in attributes},
                                 set("lang charset http-equiv content name class href id role hidden for type autocomplete "
                                     "spellcheck aria-describedby aria-labelledby aria-label scope".split()))
            ((_, style),), ((_, script),) = page.all("style"), page.all("script")
            self.assertNotRegex(style, r"url\(|@import|\\")
            self.assertNotRegex(script, r"innerHTML|eval|fetch|XMLHttpRequest|import|https?:")
            (policy,) = [attributes["content"] for attributes, _ in page.all("meta") if "http-equiv" in attributes]
            digests = [base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() for text in (style, script)]
            self.assertEqual(policy, "default-src 'none'; style-src 'sha256-%s'; script-src 'sha256-%s'; base-uri 'none'; "
                             "form-action 'none'" % tuple(digests))

    def test_hostile_texts_are_shown(self):
        page = self.page(text=hostile_definitions())
        shown = [text for attributes, text in page.all("dd")]
        for text in HOSTILE:
            self.assertIn(text, shown)
        self.assertEqual([text for _, text in page.all("h2")][1:],
                         ["%s %d" % (text, number) for number, text in enumerate(HOSTILE, 1)])

    def test_colours_have_contrast_in_light_and_dark(self):
        def luminance(colour):
            full = colour if len(colour) == 6 else "".join(digit * 2 for digit in colour)
            parts = [int(full[at:at + 2], 16) / 255 for at in (0, 2, 4)]
            linear = [part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
            return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

        ((_, style),) = self.page().all("style")
        palettes = [dict(re.findall(r"--(\w+): #(\w+);", rule)) for rule in re.findall(r":root \{(.*?)\}", style)]
        self.assertEqual(len(palettes), 3)  # light, dark, print
        for palette in palettes:
            for text in ("text", "faint", "link"):
                for back in ("back", "raised", "mark"):
                    low, high = sorted((luminance(palette[text]), luminance(palette[back])))
                    self.assertGreaterEqual((high + 0.05) / (low + 0.05), 4.5, (palette, text, back))


def documented_metrics():
    with open(os.path.join(SOURCE_DIR, "docs", "status.md"), encoding="utf-8") as file:
        return set(re.findall(r"`(vrx_\w+)`", file.read()))


class PrometheusTest(Exported):
    """The files' structure and texts; scripts/try-receivers has Prometheus, snmp_exporter and promtool themselves."""

    def files(self, text=None):
        """By name, as YAML."""
        self.export("prometheus", text=text)
        return {name: yaml.load(self.read("several/" + name), yaml.CSafeLoader) for name in os.listdir(self.path("several"))}

    @staticmethod
    def rules(files, kind):
        return [rule for group in files["vrx-rules.yml"]["groups"] for rule in group["rules"] if kind in rule]

    def causes(self, files):
        """Labels of the series that causes come from."""
        return [rule["labels"] for rule in self.rules(files, "record") if rule["record"] == "vrx_alarm_definition_info"]

    def test_every_alarm_has_its_cause(self):
        alarms = json.loads(self.export("json"))["alarms"]
        self.assertEqual(self.causes(self.files()), [{"number": str(one["number"]), "title": one["title"], "cause": one["cause"]}
                                                     for one in alarms])

    def test_every_alarm_of_the_table_is_in_the_rules_tests(self):
        alarms = [alarm for alarm in json.loads(self.export("json"))["alarms"] if alarm["in_table"]]
        expected = [alert for case in self.files()["vrx-rules-test.yml"]["tests"][0]["alert_rule_test"]
                    for alert in case.get("exp_alerts") or []]
        by_number = {alert["exp_labels"]["number"]: alert for alert in expected}
        self.assertEqual(len(expected), len(alarms))
        self.assertEqual({alert["exp_labels"]["severity"] for alert in expected}, {"critical", "major", "minor", "warning"})
        for one in alarms:
            self.assertEqual(by_number[one["number"]]["exp_annotations"],
                             {"summary": one["title"] + ": " + one["sample"]["location"], "title": one["title"],
                              "cause": one["cause"], **one["sample"]})

    def test_hostile_texts_are_texts(self):
        files = self.files(hostile_definitions())
        expected = [alert for case in files["vrx-rules-test.yml"]["tests"][0]["alert_rule_test"]
                    for alert in case.get("exp_alerts") or []]
        self.assertEqual({alert["exp_annotations"]["advice"] for alert in expected}, set(HOSTILE))
        self.assertEqual([labels["title"] for labels in self.causes(files)],
                         [" ".join(text.split()) + " %d" % number for number, text in enumerate(HOSTILE, 1)])
        # Templates and expressions are the same as for any definitions.
        for rule in self.rules(files, "alert"):
            self.assertIn(rule, self.rules(self.files(), "alert"))

    def test_characters_that_yaml_and_promql_do_not_take(self):
        text = "a \u2028 b\ufeffc\ufffed\u2029e\ufffdf \\ \" # : - [x] | %"
        files = self.files(definitions(alarm(1, text, text, text, text, text)))
        self.assertEqual(self.causes(files), [{"number": "1", "title": text, "cause": text}])
        series = files["vrx-rules-test.yml"]["tests"][0]["input_series"][1]["series"]
        self.assertIn(',title="%s"' % text.replace("\\", "\\\\").replace('"', '\\"').replace("\ufffd", "\\uFFFD"), series)

    def test_alarms_of_one_number_are_one_series(self):
        files = self.files(definitions(alarm(1), alarm(1, eventID=2 << 32 | 1, alarmOid="0.2", reason="Other.")))
        self.assertEqual(self.causes(files), [{"number": "1", "title": "Disk Failed", "cause": "R."}])

    def test_a_table_that_cannot_be_read_is_no_empty_one(self):
        """A walk ends alike in both cases for snmp_exporter; the instance that it gets besides tells them apart."""
        (instance,) = self.files()["snmp.yml"]["vrx_alarms"]["get"]
        with System() as system:
            self.assertIn("No Such Instance", system.get(instance))
            system.backend.stop()
            wait_for(lambda: "genError" in system.run("snmpget", instance, check=False).stderr, "genErr")
            system.backend.start()
            wait_for(lambda: "No Such Instance" in system.run("snmpget", instance, check=False).stdout, "the table again")

    def test_objects_are_those_of_the_mib(self):
        oids = {metric["oid"]: metric for module in self.files()["snmp.yml"].values() for metric in module["metrics"]}
        done = subprocess.run(["snmptranslate", "-M", mib_path(), "-m", "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-AGENT-MIB", "-Td", *oids],
                              stdout=subprocess.PIPE, text=True, check=True, env=dict(os.environ, SNMPCONFPATH=self.folder))
        objects = re.findall(r"^[\w-]+::(\w+)\n.*?SYNTAX\s+(.*?)\n", done.stdout, re.MULTILINE | re.DOTALL)
        self.assertEqual([name for name, _ in objects], [metric["name"] for metric in oids.values()])
        for (name, syntax), metric in zip(objects, oids.values()):
            if "enum_values" in metric:
                self.assertEqual(re.search(r"\{(.*)\}", syntax).group(1),
                                 ", ".join("%s(%d)" % (text, number) for number, text in metric["enum_values"].items()), name)
            if "Counter32" in syntax:
                self.assertEqual(metric["type"], "counter", name)

    def test_rules_are_of_metrics_that_exist_and_jobs_that_are_configured(self):
        files = self.files()
        exporter = {metric["name"] + ("_info" if metric["type"] == "EnumAsInfo" else "")
                    for module in files["snmp.yml"].values() for metric in module["metrics"]}
        jobs = {job["job_name"]: job for job in files["prometheus.yml"]["scrape_configs"]}
        for rule in self.rules(files, "alert"):
            for job in re.findall(r'job="(.*?)"', rule["expr"]):
                self.assertIn(job, jobs)
            for metric in re.findall(r"\b(vrx\w+)\b(?![:\"=-])", re.sub(r'\{.*?\}|vrx:alarm:active', "", rule["expr"])):
                self.assertIn(metric, exporter | documented_metrics())
        self.assertEqual({job["params"]["module"][0] for job in jobs.values() if "params" in job}, set(files["snmp.yml"]))
        self.assertEqual(files["prometheus.yml"]["rule_files"], ["vrx-rules.yml"])


class ZabbixTest(Exported):
    """The template's structure and texts; scripts/try-receivers has Zabbix itself."""

    def template(self, text=None):
        (template,) = self.whole(text)["templates"]
        return template

    def whole(self, text=None):
        return yaml.load(self.export("zabbix", text=text), yaml.CSafeLoader)["zabbix_export"]

    def test_uuids_are_of_version_4_and_nothing_has_that_of_another(self):
        uuids = re.findall(r"uuid: (.*)$", self.export("zabbix"), re.MULTILINE)
        for uuid in uuids:
            self.assertRegex(uuid, r"^[0-9a-f]{12}4[0-9a-f]{3}[89ab][0-9a-f]{15}$")
        self.assertEqual(len(set(uuids)), len(uuids))
        # As objects of an earlier import keep them, they are the same for any definitions.
        self.assertEqual(re.findall(r"uuid: (.*)$", self.export("zabbix", text=hostile_definitions()), re.MULTILINE), uuids)

    def test_every_alarm_of_the_table_has_its_cause(self):
        alarms = [one for one in json.loads(self.export("json"))["alarms"] if one["in_table"]]
        macros = {macro["macro"]: macro.get("value") for macro in self.template()["macros"]}
        self.assertEqual({name: value for name, value in macros.items() if ":" in name},
                         {'{$VRX.CAUSE:"%d"}' % one["number"]: one["cause"] for one in alarms})
        self.assertLessEqual({"{$VRX.CAUSE}", "{$VRX.DROPPED}", "{$VRX.GONE}", "{$VRX.INTERVAL}"}, set(macros))

    def test_hostile_texts_are_texts_of_the_length_that_zabbix_takes(self):
        shipped, hostile = self.template(), self.template(hostile_definitions())
        causes = [macro for macro in hostile.pop("macros") if ":" in macro["macro"]]
        self.assertEqual([cause["value"] for cause in causes],
                         [" ".join(text.split()) if len(text) < 2000 else text[:1997] + "..." for text in HOSTILE])
        del shipped["macros"]
        self.assertEqual(hostile, shipped)

    def test_alarms_of_one_number_have_one_cause(self):
        template = self.template(definitions(alarm(1), alarm(1, eventID=2 << 32 | 1, alarmOid="0.2", reason="Other.")))
        self.assertEqual([macro["value"] for macro in template["macros"] if ":" in macro["macro"]], ["R."])

    def test_objects_are_those_of_the_mib(self):
        template = self.template()
        names = {"vrx.alarm.table": "vrxAlarm", "vrx.agent.uptime": "sysUpTime", "vrx.topology.status": "vrxTopologyStatus",
                 "vrx.agent.alarms.active": "vrxAgentAlarmsActive", "vrx.agent.alarms.critical": "vrxAgentAlarmsCritical",
                 "vrx.agent.alarms.major": "vrxAgentAlarmsMajor", "vrx.agent.alarms.minor": "vrxAgentAlarmsMinor",
                 "vrx.agent.alarms.warning": "vrxAgentAlarmsWarning", "vrx.agent.backend.state": "vrxAgentBackendState",
                 "vrx.agent.traps.sent": "vrxAgentTrapsSent", "vrx.agent.traps.dropped": "vrxAgentTrapsDropped",
                 "vrx.agent.traps.waiting": "vrxAgentTrapsWaiting"}
        oids = {item["key"]: item["snmp_oid"] for item in template["items"] if item["type"] == "SNMP_AGENT"}
        columns = re.findall(r"\{#(\w+)\},([0-9.]+)", oids.pop("vrx.alarm.table"))
        done = subprocess.run(["snmptranslate", "-M", mib_path(), "-m", "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-AGENT-MIB",
                               *oids.values(), *[oid for _, oid in columns]],
                              stdout=subprocess.PIPE, text=True, check=True, env=dict(os.environ, SNMPCONFPATH=self.folder))
        translated = re.findall(r"::(\w+)", done.stdout)
        self.assertEqual(translated[:len(oids)], [names[key] for key in oids])
        self.assertEqual(dict(zip((name for name, _ in columns), translated[len(oids):])),
                         {"NODE": "vrxAlarmNodeCode", "LOCATION": "vrxAlarmLocationInfo", "ADVICE": "vrxAlarmRestoreAdvice",
                          "TITLE": "vrxAlarmFaultTitle", "LEVEL": "vrxAlarmFaultLevel", "NUMBER": "vrxAlarmAlarmId",
                          "DETAIL": "vrxAlarmAdditionInfo"})

    def test_a_row_that_comes_or_leaves_while_columns_are_read_is_no_alarm(self):
        """Of texts that may be empty nothing tells whether they were read: the first and the last column are numbers."""
        (table,) = [item for item in self.template()["items"] if item["key"] == "vrx.alarm.table"]
        macros = re.findall(r"\{#\w+\}", table["snmp_oid"])
        (script,) = [step["parameters"][0] for step in table["preprocessing"]]
        for macro in (macros[0], macros[-1]):
            self.assertRegex(script, r"/\^\[[0-9]-[0-9]\]\+?\$/\.test\(row\['%s'\]\)" % re.escape(macro))

    def test_triggers_of_several_items_name_items_of_the_template(self):
        whole = self.whole()
        keys = {item["key"] for item in whole["templates"][0]["items"]}
        (trigger,) = whole["triggers"]
        self.assertEqual(trigger["name"], "The alarm table cannot be read")
        named = re.findall(r"/VRX storage system/(.*?),\{\$VRX", trigger["expression"])
        self.assertEqual(len(named), 3)
        self.assertLessEqual(set(named), keys)

    def test_traps_are_told_apart_as_numbers_and_as_names(self):
        patterns = {item["name"]: re.match(r'snmptrap\["(.*)"\]$', item["key"]).group(1)
                    for item in self.template()["items"] if item["type"] == "SNMP_TRAP"}
        enterprises = ("1.3.6.1.4.1", "iso.3.6.1.4.1", "SNMPv2-SMI::enterprises")
        for expected, arcs, names in (
                ("Traps of alarms", (".99871.2.91.10.2.1.0.1", ".99871.2.91.10.2.1.1.0.403"),
                 ("VRX-TAMREL-MIB::vrxAlarmNotification", "VRX-TAMREL-ALARM-MIB::vrxDiskFailed")),
                ("Heartbeats of the agent", (".99871.3.1.0.1",), ("VRX-AGENT-MIB::vrxAgentHeartbeat",)),
                (None, (".99871.2.91.10.2.1.0.12", ".99871.3.1.0.12", ".8072.4.0.2"),
                 ("SNMPv2-MIB::coldStart", "VRX-AGENT-MIB::vrxAgentHeartbeatTraps.0 5"))):
            for trap in [start + arc for start in enterprises for arc in arcs] + list(names):
                text = "ZBXTRAP 192.0.2.7\nSNMPv2-MIB::snmpTrapOID.0 %s\n" % trap
                self.assertEqual([name for name, pattern in patterns.items() if re.search(pattern, text)],
                                 [expected] if expected else [], trap)

    def test_triggers_are_of_items_and_value_maps_that_exist(self):
        template = self.template()
        (rule,) = template["discovery_rules"]
        (prototype,) = rule["item_prototypes"]
        keys = {item["key"] for item in template["items"]} | {prototype["key"]}
        triggers = [trigger for item in template["items"] for trigger in item.get("triggers", [])]
        for trigger in triggers + prototype["trigger_prototypes"]:
            used = re.findall(r"\(/VRX storage system/(.*?\]|[^,\[)]*)[,)]", trigger["expression"])
            self.assertTrue(used)
            self.assertLessEqual(set(used), keys)
            for other in trigger.get("dependencies", []):
                self.assertIn((other["name"], other["expression"]), [(one["name"], one["expression"]) for one in triggers])
        maps = {one["name"] for one in template["valuemaps"]}
        self.assertEqual({item["valuemap"]["name"] for item in [*template["items"], prototype] if "valuemap" in item}, maps)
        self.assertEqual([(one["expression"][-1], one["priority"]) for one in prototype["trigger_prototypes"]],
                         [("1", "DISASTER"), ("2", "HIGH"), ("3", "AVERAGE"), ("4", "WARNING")])
        used = set(re.findall(r"\{#\w+\}", str(prototype)))
        self.assertLessEqual(used, {path["lld_macro"] for path in rule["lld_macro_paths"]})


class OpennmsTest(Exported):
    """By the documented structure of eventconf and the documented way in which a trap finds its event."""

    COMMON = "1.3.6.1.4.1.99871.2.91.10.2.1.0.1"
    HEARTBEAT = "1.3.6.1.4.1.99871.3.1.0.1"
    SEVERITIES = {1: "Critical", 2: "Major", 3: "Minor", 4: "Warning"}
    ACTIVE, ENDED, EVENT = 1, 2, 3
    # Children of an event in their order, and those that it must have.
    ORDER = ("mask uei priority event-label snmp descr logmsg severity correlation operinstruct autoaction varbindsdecode parameter "
             "operaction autoacknowledge loggroup tticket forward script mouseovertext alarm-data filters").split()
    NEEDED = {"uei", "event-label", "descr", "logmsg", "severity"}
    NAMESPACE = "{http://xmlns.opennms.org/xsd/eventconf}"

    def events(self, *arguments, **options):
        root = ElementTree.fromstring(self.export("opennms", *arguments, **options))
        self.assertEqual(root.tag, self.NAMESPACE + "events")
        for element in root.iter():
            self.assertTrue(element.tag.startswith(self.NAMESPACE), element.tag)
            element.tag = element.tag.removeprefix(self.NAMESPACE)
        self.assertEqual({event.tag for event in root}, {"event"})
        return list(root)

    @staticmethod
    def mask(event):
        """({name: values}, {number of a binding: values})"""
        elements = {one.find("mename").text: {value.text for value in one.iter("mevalue")} for one in event.iter("maskelement")}
        bindings = {int(one.find("vbnumber").text): {value.text for value in one.iter("vbvalue")} for one in event.iter("varbind")}
        return elements, bindings

    def of_trap(self, events, oid):
        """Those whose mask has the trap with that OID: of SNMPv2, RFC 3584, section 3.2, makes this of it."""
        enterprise, specific = oid.rsplit(".", 1)
        wanted = {"id": {"." + enterprise.removesuffix(".0")}, "generic": {"6"}, "specific": {specific}}
        return [event for event in events if self.mask(event)[0] == wanted]

    def found(self, events, oid, bindings):
        """Those that a trap with these values of bindings finds."""
        return [event for event in self.of_trap(events, oid)
                if all(str(bindings[number]) in values for number, values in self.mask(event)[1].items())]

    @staticmethod
    def expand(text, bindings):
        """Tokens are %NAME% without blanks; an unknown one is nothing."""
        known = {"%%parm[#%d]%%" % number: str(value) for number, value in bindings.items()}
        known.update({"%nodeid%": "5", "%pctsign%": "%"})
        result = ""
        while "%" in text:
            before, _, text = text.partition("%")
            token, end, rest = text.partition("%")
            result += before
            if not end or re.search(r"\s", token):
                result += "%"
                continue
            result, text = result + known.get("%" + token + "%", ""), rest
        return result + text

    @staticmethod
    def bindings(level=2, category=1, serial=9, alarm_number=262147, node="VRX-0001"):
        return dict(enumerate([node, "Slot 7.", "Replace it.", "Disk Failed", 2, level, alarm_number, "time", serial, "It failed.",
                               category], 1))

    def alarm_data(self, event, bindings):
        attributes = event.find("alarm-data").attrib
        return {name: self.expand(value, bindings) for name, value in attributes.items()}

    def test_every_event_has_the_structure_of_eventconf(self):
        for text in (None, hostile_definitions()):
            events = self.events(text=text)
            for event in events:
                names = [child.tag for child in event]
                self.assertEqual(names, sorted(names, key=self.ORDER.index))
                self.assertEqual({name for name in names if names.count(name) > 1}, {"parameter"})
                self.assertLessEqual(self.NEEDED, set(names))
                self.assertTrue(event.find("uei").text.startswith("uei.opennms.org/vendor/vrx/traps/"))
                self.assertRegex(event.find("uei").text, r"^[a-zA-Z0-9./]+$")
                self.assertEqual(event.find("logmsg").attrib, {"dest": "logndisplay"})
                self.assertIn(event.find("severity").text, ("Critical", "Major", "Minor", "Warning", "Normal"))
                elements, bindings = self.mask(event)
                self.assertEqual(sorted(elements), ["generic", "id", "specific"])
                self.assertLessEqual(max(bindings, default=0), 11)  # those after it move in SNMPv1
                used = re.findall(r"%parm\[#(\d+)\]%", ElementTree.tostring(event, encoding="unicode"))
                self.assertLessEqual(max(map(int, used)), 11)
                parameters = [one.get("name") for one in event.iter("parameter")]
                self.assertEqual(len(parameters), len(set(parameters)))
                self.assertTrue(parameters)
            self.assertEqual(len({event.find("uei").text for event in events}), len(events))
            self.assertEqual(len({str(self.mask(event)) for event in events}), len(events))

    def test_every_alarm_has_one_event_for_each_level_and_one_for_its_end(self):
        events = self.events()
        alarms = json.loads(self.export("json"))["alarms"]
        self.assertEqual(len(events), 5 * (len(alarms) + 1) + 1)
        for oid, name, title in [(self.COMMON, "anyAlarm", None)] + [(one["oid"], one["notification"], one["title"]) for one in alarms]:
            of_trap = self.of_trap(events, oid)
            self.assertEqual(len(of_trap), 5, oid)
            for level, severity in self.SEVERITIES.items():
                for category in (self.ACTIVE, self.EVENT):
                    (event,) = self.found(of_trap, oid, self.bindings(level, category))
                    self.assertEqual((event.find("severity").text, event.find("uei").text.split("traps/")[1]),
                                     (severity, name + "/" + severity.lower()))
                (event,) = self.found(of_trap, oid, self.bindings(level, self.ENDED))
                self.assertEqual((event.find("severity").text, event.find("uei").text.split("traps/")[1]),
                                 ("Normal", name + "/end"))
                self.assertIn(title or "any alarm", event.find("event-label").text)

    def test_a_clear_finds_the_alarm_that_was_raised_at_any_level_and_by_either_trap(self):
        events = self.events()
        own = OWN + "0.403"
        keys = set()
        for oid in (self.COMMON, own):
            for level in self.SEVERITIES:
                bindings = self.bindings(level)
                raised = self.alarm_data(self.found(events, oid, bindings)[0], bindings)
                self.assertEqual((raised["alarm-type"], "clear-key" in raised), ("1", False))
                keys.add(raised["reduction-key"])
                bindings = self.bindings(level, self.ENDED)
                ended = self.alarm_data(self.found(events, oid, bindings)[0], bindings)
                self.assertEqual((ended["alarm-type"], ended["clear-key"]), ("2", raised["reduction-key"]))
                self.assertNotEqual(ended["reduction-key"], ended["clear-key"])
        self.assertEqual(len(keys), 1)
        # Another serial, number or node is another alarm.
        for change in ({"serial": 10}, {"alarm_number": 3}, {"node": "VRX-0002"}):
            bindings = self.bindings(**change)
            keys.add(self.alarm_data(self.found(events, own, bindings)[0], bindings)["reduction-key"])
        self.assertEqual(len(keys), 4)

    def test_texts_and_parameters_are_the_traps(self):
        events, bindings = self.events(), self.bindings()
        (event,) = self.found(events, OWN + "0.403", bindings)
        self.assertEqual(self.expand(event.find("logmsg").text, bindings), "Disk Failed: Slot 7. It failed.")
        self.assertEqual(self.expand(event.find("operinstruct").text, bindings), "Replace it.")
        self.assertEqual({one.get("name"): (one.get("expand"), self.expand(one.get("value"), bindings)) for one in event.iter("parameter")},
                         {"node": ("true", "VRX-0001"), "location": ("true", "Slot 7."), "advice": ("true", "Replace it."),
                          "title": ("true", "Disk Failed"), "number": ("true", "262147"), "serial": ("true", "9"),
                          "detail": ("true", "It failed.")})
        self.assertEqual(self.expand(event.find("descr").text, bindings),
                         "<p>It failed.</p><p>Cause: The disk has a fault of its own, or its connection to the enclosure is damaged.</p>")
        bindings = self.bindings(category=self.ENDED)
        (event,) = self.found(events, OWN + "0.403", bindings)
        self.assertEqual(self.expand(event.find("logmsg").text, bindings), "Disk Failed: ended. Slot 7.")

    def test_hostile_texts_are_texts(self):
        hostile = HOSTILE + ["%parm[#1]% 5%of% %nodeid%%", "a\ufffeb\uffffc %"]
        events = self.events(text=definitions(*[alarm(number, text, text, text, text.replace("{", "("), text)
                                                for number, text in enumerate(hostile, 1)]))
        for number, text in enumerate(hostile, 1):
            line = " ".join(text.replace("\ufffe", "\ufffd").replace("\uffff", "\ufffd").split())
            (event,) = self.found(events, OWN + "0.%d" % number, self.bindings())
            self.assertTrue(event.find("event-label").text.startswith("VRX: " + line[:200]))
            paragraphs = re.fullmatch(r"<p>It failed\.</p><p>Cause: ([^<>]*)</p>",
                                      self.expand(event.find("descr").text, self.bindings()), re.DOTALL)
            self.assertEqual(html.unescape(paragraphs.group(1))[:1500], line[:1500])
            # Whatever the definitions say, nothing but their texts is different.
            self.assertEqual(event.find("logmsg").text, "%parm[#4]%: %parm[#2]% %parm[#10]%")

    def test_a_heartbeat_is_an_event_and_no_alarm(self):
        events = self.events()
        bindings = dict(enumerate(["80001F88", 3, 7, "7.1", 12, 345, 3300, 300, "time"], 1))
        (event,) = self.found(events, self.HEARTBEAT, bindings)
        self.assertEqual((event.find("severity").text, event.find("alarm-data")), ("Normal", None))
        self.assertEqual(self.expand(event.find("logmsg").text, bindings),
                         "Heartbeat 12 of trap destination 3: 345 traps sent so far, next heartbeat in 300 s (0: none)")
        self.assertEqual({one.get("name"): self.expand(one.get("value"), bindings) for one in event.iter("parameter")},
                         {"engine": "80001F88", "destination": "3", "heartbeat": "12", "traps": "345", "next": "300"})


class GrafanaTest(Exported):
    def setUp(self):
        super().setUp()
        self.dashboard = json.loads(self.export("grafana"))
        self.panels = self.dashboard["panels"]

    def test_panels_have_places_and_queries_of_their_own(self):
        self.assertEqual([panel["id"] for panel in self.panels], list(range(1, len(self.panels) + 1)))
        taken = set()
        for panel in self.panels:
            place = panel["gridPos"]
            cells = {(x, y) for x in range(place["x"], place["x"] + place["w"])
                     for y in range(place["y"], place["y"] + place["h"])}
            self.assertFalse(cells & taken, panel["title"])
            self.assertLessEqual(place["x"] + place["w"], 24)
            taken |= cells
            references = [target["refId"] for target in panel["targets"]]
            self.assertEqual(references, sorted(set(references)))
            self.assertTrue(references)

    def test_queries_are_of_metrics_that_exist_and_variables_that_are_defined(self):
        variables = {variable["name"] for variable in self.dashboard["templating"]["list"]}
        self.export("prometheus")
        known = documented_metrics() | set(re.findall(r"\bvrx\w+", self.read("several/snmp.yml")))
        for panel in self.panels:
            self.assertEqual(panel["datasource"], {"type": "prometheus", "uid": "${datasource}"})
            for target in panel["targets"]:
                expression = target["expr"]
                self.assertLessEqual(set(re.findall(r"\$(\w+)", expression)), variables | {"__rate_interval"})
                self.assertIn("$system" if "vrx_" not in expression else "$agent", expression)
                self.assertEqual(expression.count("("), expression.count(")"))
                for metric in re.findall(r"\b(vrx_\w+|vrxA\w+)", expression):
                    self.assertIn(re.sub(r"_bucket$", "", metric), known)

    def test_what_it_is_for(self):
        titles = [panel["title"] for panel in self.panels]
        for title in ("Active alarms", "Alarms by level", "Fate of traps by destination", "Request latency", "Backend"):
            self.assertIn(title, titles)


class MibTest(Exported):
    def lint(self, module):
        """What smilint says of a module, which is in the test's folder."""
        base = mib_path()
        return subprocess.run(["smilint", "-l", "6", "-s", "-m", self.path(module)], stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.STDOUT, env=dict(os.environ, SMIPATH=base), check=True).stdout

    def translate(self, *names):
        """Net-SNMP's answers, with the module of the test's folder: of two with the same name it takes the later."""
        done = subprocess.run(["snmptranslate", "-M", "%s:%s" % (mib_path(), self.folder), "-m",
                               "SNMPv2-MIB:VRX-TAMREL-MIB:VRX-TAMREL-ALARM-MIB", *names], stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.STDOUT, env=dict(os.environ, SNMPCONFPATH=self.folder), check=True)
        return done.stdout

    def test_the_shipped_module_is_what_is_written(self):
        with open(os.path.join(SOURCE_DIR, "mibs", "VRX-TAMREL-ALARM-MIB"), encoding="ascii") as file:
            self.assertEqual(self.export("mib"), file.read())

    def test_hostile_texts_stay_in_their_clauses(self):
        self.export("mib", "--output", self.folder + "/", text=hostile_definitions())
        self.assertEqual(self.lint("VRX-TAMREL-ALARM-MIB"), "")
        module = self.read("VRX-TAMREL-ALARM-MIB")
        self.assertTrue(module.isascii())
        names = re.findall(r"^(vrx\w+) NOTIFICATION-TYPE$", module, re.MULTILINE)
        self.assertEqual(len(names), len(HOSTILE))
        for number, name in enumerate(names, 1):
            self.assertEqual(self.translate("-On", "VRX-TAMREL-ALARM-MIB::" + name), "." + OWN + "0.%d\n" % number)
        # Converters copy the lines of a description: none may be a command of what they write.
        self.assertNotRegex(module, r"(?m)^\s*(EVENT|FORMAT|EXEC|PREEXEC|NODES|MATCH|REGEX|SDESC|EDESC)")

    def test_pysmi_compiles_shipped_and_hostile_modules(self):
        for folder in mib_path().split(":"):
            for file in os.listdir(folder):
                if not file.endswith((".xml", ".txt", ".md")) and os.path.isfile(os.path.join(folder, file)):
                    shutil.copy(os.path.join(folder, file), self.path(file.removesuffix(".mib")))
        for text in (None, hostile_definitions()):
            self.export("mib", "--output", self.folder + "/", text=text)
            done = subprocess.run(["mibdump", "--mib-source=file://" + self.folder, "--mib-borrower=file://" + self.folder,
                                   "--destination-format=json", "--destination-directory=" + self.path("compiled"),
                                   "--generate-mib-texts", "--rebuild", "VRX-TAMREL-ALARM-MIB"],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
            self.assertEqual(done.returncode, 0, done.stdout)
            compiled = json.loads(self.read("compiled/VRX-TAMREL-ALARM-MIB.json"))
            oids = [one["oid"] for one in compiled.values() if one.get("class") == "notificationtype"]
            arguments = () if text is None else ("--definitions", self.path("definitions.xml"))
            self.assertEqual(sorted(oids), sorted(one["oid"] for one in json.loads(self.export("json", *arguments))["alarms"]))

    def test_descriptions_have_cause_detail_and_advice(self):
        self.export("mib", "--output", self.folder + "/")
        self.assertEqual(re.sub(r"\s+", " ", self.translate("-Td", "VRX-TAMREL-ALARM-MIB::vrxDiskFailed")).partition(
            'DESCRIPTION "')[2].partition('"')[0],
            "Cause: The disk has a fault of its own, or its connection to the enclosure is damaged. Detail: The disk in slot [0] of enclosure [1] "
            "cannot be used any more: it is not reachable. Advice: Replace the disk in slot [0] of enclosure [1].")

    def test_very_long_texts_are_cut_to_what_net_snmp_reads(self):
        self.export("mib", "--output", self.folder + "/",
                    text=definitions(alarm(1, reason="word " * 5000, detail="long " * 5000, suggestion="text " * 5000)))
        self.assertIn("text te...\"", self.translate("-Td", "VRX-TAMREL-ALARM-MIB::vrxDiskFailed"))

    def test_alarms_of_one_name_and_names_that_are_no_descriptors_go_by_number(self):
        module = self.export("mib", "--output", self.folder + "/",
                             text=definitions(alarm(1), alarm(2, "DISK failed"), alarm(3, "größe"), alarm(4, "Tamrel"),
                                              alarm(5, "Alarm 1"), alarm(6, ""), revision=None))
        module = self.read("VRX-TAMREL-ALARM-MIB")
        self.assertEqual(re.findall(r"^(vrx\w+) NOTIFICATION-TYPE$", module, re.MULTILINE),
                         ["vrxAlarm%d" % number for number in range(1, 7)])
        self.assertIn('LAST-UPDATED "200001010000Z"', module)
        self.assertEqual(self.lint("VRX-TAMREL-ALARM-MIB"), "")

    def test_converter_writes_events_with_texts(self):
        """snmpttconvertmib: severity, a line with the alarm's texts, and no other command."""
        module = self.export("mib", "--output", self.folder + "/", text=hostile_definitions())
        subprocess.run(["snmpttconvertmib", "--in=" + self.path("VRX-TAMREL-ALARM-MIB"), "--out=" + self.path("converted")],
                       env=dict(os.environ, MIBDIRS="%s:%s" % (mib_path(), self.folder), SNMPCONFPATH=self.folder,
                                MIBS="SNMPv2-MIB:VRX-TAMREL-MIB"), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=True)
        converted = self.read("converted")
        commands = re.findall(r"^(EVENT|FORMAT|EXEC|PREEXEC|NODES|MATCH|REGEX|SDESC|EDESC)\b", converted, re.MULTILINE)
        self.assertEqual(commands, ["EVENT", "FORMAT", "SDESC", "EDESC"] * len(HOSTILE))
        events = re.findall(r"^EVENT (\w+) \.(\S+) \"Status Events\" (\w+)\nFORMAT (.*)$", converted, re.MULTILINE)
        for number, event in enumerate(events, 1):
            self.assertEqual(event[1:3], (OWN + "0.%d" % number, "MAJOR"))
            words, variables = event[3].split(": $2", 1)
            self.assertEqual(" $2" + variables, " $2 $10 Advice: $3 Level $6, category $11, serial $9, node $1")
            self.assertRegex(words, r"^[^$%`{}\\]{4,}$")


if __name__ == "__main__":
    unittest.main()
