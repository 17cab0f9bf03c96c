"""vrxctl doctor: each seeded fault is found and named, a clean installation has no finding, and nothing is changed.

A seed is a row: how to break a product root, and the finding that names it. Most need no program but vrxctl: they break
a copy of one root in which agent and backend ran once.
"""

import contextlib
import http.server
import json
import os
import re
import shutil
import signal
import socket
import socketserver
import sqlite3
import subprocess
import tempfile
import threading
import time
import unittest

from harness import AGENT_CONFIG, PROGRAM_DIR, Program, System, free_port, wait_for

FAULT, WARNING = "fault", "warning"
SECONDS = 60  # for one run: far more than all of its waits together
IS_ROOT = os.geteuid() == 0
NOBODY = 65534

CLEAN_CONFIG = AGENT_CONFIG + "trapcommunity receivers\n"


def doctor(root, *arguments, user=None):
    """The exit code and the JSON of a run."""
    done = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", root, "doctor", "--json"] + list(arguments),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=SECONDS, check=False,
                          user=user)
    if done.stderr:
        raise AssertionError("stderr: " + done.stderr)
    return done.returncode, json.loads(done.stdout)


def findings_of(report):
    return "\n".join("%(severity)s [%(check)s] %(subject)s: %(what)s" % finding for finding in report["findings"])


class Root:
    """A product root without programs, to be broken."""

    def __init__(self, mould):
        self.folder = tempfile.mkdtemp(prefix="vrx-doctor-")
        self.path_of_root = os.path.join(self.folder, "root")
        subprocess.run(["cp", "-a", mould, self.path_of_root], check=True)
        if IS_ROOT:
            os.chown(self.folder, NOBODY, -1)
        self.open = contextlib.ExitStack()

    def close(self):
        self.open.close()
        subprocess.run(["chmod", "-R", "u+rwx", self.folder], check=True)
        shutil.rmtree(self.folder)

    def path(self, *parts):
        return os.path.join(self.path_of_root, *parts)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, text):
        """Replaces the content; owner and mode stay."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def add(self, text, name="etc/vrx-agentd.conf"):
        self.write(name, self.read(name) + text)

    def change(self, name, before, after):
        text = self.read(name)
        assert before in text, (name, before)
        self.write(name, text.replace(before, after))

    def remove(self, name):
        path = self.path(name)
        shutil.rmtree(path) if os.path.isdir(path) else os.unlink(path)

    def folder_at(self, name):
        self.remove(name)
        os.mkdir(self.path(name))

    def link_to_nothing(self, name):
        self.remove(name)
        os.symlink("/no/such/place", self.path(name))

    def mode(self, name, mode):
        os.chmod(self.path(name), mode)

    def show_to_all(self):
        for folder in (self.folder, self.path()):
            os.chmod(folder, 0o755)

    def cut(self, name, at):
        text = self.read(name)
        self.write(name, text[:int(len(text) * at)])

    def device(self, key, value):
        self.write("conf/device.xml", re.sub(r'(<item key="%s" value=")[^"]*' % key, r"\g<1>" + value,
                                             self.read("conf/device.xml")))

    def device_item(self, section, key, value):
        self.change("conf/device.xml", '<section name="%s">' % section,
                    '<section name="%s"><item key="%s" value="%s"/>' % (section, key, value))

    def destination(self, number=1, address="127.0.0.1", version=2, trap_type=3, user="receivers", port=9162):
        with contextlib.closing(sqlite3.connect(self.path("state/trap_destinations.db"))) as database:
            with database:
                database.execute("INSERT INTO destination(number, address, canonical, port, version, trap_type, user) "
                                 "VALUES(?,?,?,?,?,?,?)", (number, address, address, port, version, trap_type, user))

    def dead_socket(self, name):
        """As a server leaves it that was killed."""
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(self.path(name))

    def taken_port(self, kind):
        taken = self.open.enter_context(socket.socket(socket.AF_INET, kind))
        taken.bind(("127.0.0.1", 0))
        if kind == socket.SOCK_STREAM:
            taken.listen()
        return taken.getsockname()[1]

    def server(self, name, answer=None):
        """Listens and, without an answer, says nothing."""
        server = self.open.enter_context(socket.socket(socket.AF_UNIX))
        server.bind(self.path(name))
        server.listen(16)
        if answer is None:
            return

        def serve():
            with contextlib.suppress(OSError):
                while True:
                    client = server.accept()[0]
                    with client:
                        client.recv(65536)
                        client.sendall(answer)

        threading.Thread(target=serve, daemon=True).start()
        self.open.callback(server.shutdown, socket.SHUT_RDWR)


def late_file(root):
    later = time.time() + 86400
    os.utime(root.path("state/notifications.db"), (later, later))


def long_definition(root):
    root.change("conf/alarm_definitions.xml", 'suggestion="', 'suggestion="' + 66000 * "x")


# name: how to break it, then the finding: severity, check, subject (a part), text (a part)
SEEDS = {
    # Files
    "device_configuration_missing": (lambda r: r.remove("conf/device.xml"), FAULT, "files", "conf/device.xml",
                                     "No such file"),
    "device_configuration_is_a_folder": (lambda r: r.folder_at("conf/device.xml"), FAULT, "files", "conf/device.xml",
                                         "no regular file"),
    "device_configuration_cut_off": (lambda r: r.cut("conf/device.xml", 0.5), FAULT, "configuration",
                                     "conf/device.xml", ""),
    "device_configuration_unreadable": (lambda r: r.mode("conf/device.xml", 0), FAULT, "files", "conf/device.xml",
                                        "may not read it"),
    "device_configuration_of_everybody": (lambda r: r.mode("conf/device.xml", 0o666), WARNING, "files",
                                          "conf/device.xml", "Everybody may write it"),
    "agent_configuration_missing": (lambda r: r.remove("etc/vrx-agentd.conf"), WARNING, "files", "vrx-agentd.conf",
                                    "does not exist"),
    "agent_configuration_links_to_nothing": (lambda r: r.link_to_nothing("etc/vrx-agentd.conf"), FAULT, "files",
                                             "vrx-agentd.conf", "No such file"),
    "agent_configuration_is_a_folder": (lambda r: r.folder_at("etc/vrx-agentd.conf"), FAULT, "files",
                                        "vrx-agentd.conf", "no regular file"),
    "agent_configuration_unreadable": (lambda r: r.mode("etc/vrx-agentd.conf", 0), FAULT, "files", "vrx-agentd.conf",
                                       "may not read it"),
    "mib_folder_locked": (lambda r: r.mode("mibs", 0), FAULT, "files", "/mibs", "may not enter"),
    "mib_file_missing": (lambda r: r.remove("mibs/VRX-TAMREL-MIB.xml"), FAULT, "files", "VRX-TAMREL-MIB.xml",
                         "No such file"),
    "mib_file_of_another_module": (lambda r: r.write("mibs/VRX-TAMREL-MIB.xml", "<smi><nodes/></smi>"), FAULT,
                                   "configuration", "module", "not in VRX-TAMREL-MIB.xml"),
    "definitions_missing": (lambda r: r.remove("conf/alarm_definitions.xml"), FAULT, "files",
                            "alarm_definitions.xml", "No such file"),
    "definitions_unreadable": (lambda r: r.mode("conf/alarm_definitions.xml", 0), FAULT, "files",
                               "alarm_definitions.xml", "may not read it"),
    "enumerations_missing": (lambda r: r.remove("conf/alarm_enumerations.xml"), FAULT, "files",
                             "alarm_enumerations.xml", "No such file"),
    # State
    "state_links_to_nothing": (lambda r: r.link_to_nothing("state"), FAULT, "state", "state", "no folder"),
    "state_open_to_others": (lambda r: r.mode("state", 0o755), WARNING, "state", "state", "may look into it"),
    "state_read_only": (lambda r: r.mode("state", 0o500), FAULT, "state", "state", "may not write into it"),
    "keys_open_to_others": (lambda r: r.mode("state/net-snmp/vrx-agentd.conf", 0o644), WARNING, "state",
                            "net-snmp/vrx-agentd.conf", "Others than its owner"),
    "store_not_writable": (lambda r: r.mode("state/trap_destinations.db", 0o400), FAULT, "state",
                           "trap_destinations.db", "may not read and write"),
    "control_socket_is_a_file": (lambda r: r.write("state/agent.sock", ""), FAULT, "state", "agent.sock", "no socket"),
    "backend_socket_is_a_folder": (lambda r: os.mkdir(r.path("state/backend.sock")), FAULT, "state", "backend.sock",
                                   "no socket"),
    "destinations_damaged": (lambda r: r.write("state/trap_destinations.db", 40 * "damaged "), FAULT, "state",
                             "trap_destinations.db", "no database"),
    "alarms_damaged": (lambda r: r.write("state/backend.db", 40 * "damaged "), FAULT, "state", "backend.db",
                       "no database"),
    "notification_log_damaged": (lambda r: r.write("state/notification_log.db", 40 * "damaged "), FAULT, "state",
                                 "notification_log.db", "no database"),
    "informs_are_a_folder": (lambda r: r.folder_at("state/informs.db"), FAULT, "state", "informs.db",
                             "no regular file"),
    "clock_set_back": (late_file, WARNING, "clock", "clock", "it was set back"),
    "log_folder_missing": (lambda r: r.device_item("LOG", "FILE", "no/such/agent.log"), FAULT, "disk space",
                           "no/such", "cannot be used"),
    # Values of conf/device.xml
    "backend_address_of_another_machine": (lambda r: r.device("ADDRESS", "tcp:192.0.2.1:9000"), FAULT,
                                           "configuration", "device.xml", "192.0.2.1"),
    "backend_deadline_no_number": (lambda r: r.device("CALL_DEADLINE_MS", "soon"), FAULT, "configuration",
                                   "device.xml", "CALL_DEADLINE_MS"),
    "command_number_twice": (lambda r: r.device("CLEAR_ALARM", "2001"), FAULT, "backend", "device.xml", ""),
    "log_level_unknown": (lambda r: r.device("LEVEL", "chatty"), FAULT, "configuration", "device.xml", "LEVEL"),
    "trap_rate_no_number": (lambda r: r.device_item("TRAP", "RATE_PER_SECOND", "fast"), FAULT, "configuration",
                            "device.xml", "RATE_PER_SECOND"),
    "no_definitions_configured": (lambda r: r.device("ALARM_INI_PATH", ""), FAULT, "definitions", "device.xml",
                                  "ALARM_INI_PATH"),
    # Definitions
    "definitions_cut_off": (lambda r: r.cut("conf/alarm_definitions.xml", 0.7), FAULT, "definitions",
                            "alarm_definitions.xml", ""),
    "definition_with_a_bad_trap_oid": (lambda r: r.change("conf/alarm_definitions.xml", 'alarmOid="0.101"',
                                                          'alarmOid="none"'), FAULT, "definitions",
                                       "alarm_definitions.xml:", "oid"),
    # etc/vrx-agentd.conf
    "unknown_directive": (lambda r: r.add("rocomunity readers\n"), FAULT, "configuration", "vrx-agentd.conf:",
                          "rocomunity"),
    "number_out_of_range": (lambda r: r.add("vrxNotificationSize 70000\n"), FAULT, "configuration",
                            "vrx-agentd.conf:", "vrxNotificationSize"),
    "address_without_a_port": (lambda r: r.add("agentaddress udp:127.0.0.1:port\n"), FAULT, "configuration",
                               "vrx-agentd.conf:", "port"),
    "metrics_for_the_network": (lambda r: r.add("vrxMetrics tcp:192.0.2.1:9161\n"), FAULT, "configuration",
                                "vrx-agentd.conf:", "192.0.2.1"),
    "address_of_another_machine": (lambda r: r.add("agentaddress udp:192.0.2.1:1161\n"), FAULT, "listeners",
                                   "vrx-agentd.conf:", "does not have the address"),
    "port_taken": (lambda r: r.add("agentaddress udp:127.0.0.1:%d\n" % r.taken_port(socket.SOCK_DGRAM)), FAULT,
                   "listeners", "vrx-agentd.conf:", "Another program has"),
    "stream_port_taken": (lambda r: r.add("agentaddress tcp:127.0.0.1:%d\n" % r.taken_port(socket.SOCK_STREAM)), FAULT,
                          "listeners", "vrx-agentd.conf:", "Another program has"),
    "metrics_port_taken": (lambda r: r.add("vrxMetrics tcp:127.0.0.1:%d\n" % r.taken_port(socket.SOCK_STREAM)), FAULT,
                           "metrics", "vrx-agentd.conf:", "Another program has"),
    "metrics_folder_missing": (lambda r: r.add("vrxMetrics unix:/no/such/metrics.sock\n"), FAULT, "metrics",
                               "vrx-agentd.conf:", "no folder /no/such"),
    # Who may ask
    "nobody_may_ask": (lambda r: r.write("etc/vrx-agentd.conf", "sysName alone\n"), WARNING, "users",
                       "vrx-agentd.conf", "Nobody may ask"),
    "user_without_keys": (lambda r: r.add("rouser auditor priv\n"), FAULT, "users", "vrx-agentd.conf:",
                          "User auditor has no keys"),
    "keys_without_a_line": (lambda r: r.change("etc/vrx-agentd.conf", "rwuser admin", "#rwuser admin"), WARNING,
                            "users", "user admin", "lets it in"),
    "community_that_writes": (lambda r: r.add("rwcommunity writers 127.0.0.1\n"), WARNING, "communities",
                              "vrx-agentd.conf:", "may write"),
    "well_known_community": (lambda r: r.add("rocommunity private\n"), WARNING, "communities", "vrx-agentd.conf:",
                             "well-known community private"),
    "view_that_is_not_defined": (lambda r: r.add("rocommunity readers 127.0.0.1 -V everything\n"), FAULT, "views",
                                 "vrx-agentd.conf:", "the view everything"),
    "secrets_of_everybody": (lambda r: (r.mode("etc/vrx-agentd.conf", 0o644), r.show_to_all()), WARNING,
                             "secrets", "vrx-agentd.conf", "may read it"),
    # Engine
    "engine_id_cut_off": (lambda r: r.cut("state/engine/vrx-agentd.conf", 0.6), FAULT, "engine",
                          "engine/vrx-agentd.conf", "cut off"),
    "engine_id_lost": (lambda r: (r.remove("state/engine/vrx-agentd.conf"),
                                  r.change("etc/vrx-agentd.conf", "createUser", "#createUser")), FAULT, "users",
                       "vrx-agentd.conf:", "for another engine ID"),
    "keys_cut_off": (lambda r: r.cut("state/net-snmp/vrx-agentd.conf", 0.9), FAULT, "engine",
                     "net-snmp/vrx-agentd.conf", ""),
    "keys_lost": (lambda r: r.remove("state/net-snmp/vrx-agentd.conf"), FAULT, "engine", "net-snmp/vrx-agentd.conf",
                  "snmpEngineBoots"),
    "boots_at_the_end": (lambda r: r.write("state/net-snmp/vrx-agentd.conf", re.sub(
        r"engineBoots \d+", "engineBoots 2147483646", r.read("state/net-snmp/vrx-agentd.conf"))), FAULT, "engine",
                         "net-snmp/vrx-agentd.conf", "2147483647 is the last"),
    # Backend
    "backend_killed": (lambda r: r.dead_socket("state/backend.sock"), FAULT, "backend", "backend", "refused"),
    "backend_that_hangs": (lambda r: r.server("state/backend.sock"), FAULT, "backend", "backend", "does not answer"),
    "backend_that_is_another_program": (lambda r: r.server("state/backend.sock", b"220 ready\r\n" * 10), FAULT,
                                        "backend", "backend", "does not answer"),
    # Agent
    "agent_killed": (lambda r: r.dead_socket("state/agent.sock"), FAULT, "agent", "agent", "ended without notice"),
    "agent_that_hangs": (lambda r: r.server("state/agent.sock"), FAULT, "agent", "agent", "does not answer"),
    "agent_that_is_another_program": (lambda r: r.server("state/agent.sock", b"220 ready\r\n"), FAULT, "agent",
                                      "agent", "does not answer"),
    # Destinations
    "destination_without_an_address": (lambda r: r.destination(address="nms.invalid"), FAULT, "destinations",
                                       "trap destination 1, nms.invalid:9162", "The name has no address"),
    "destination_without_a_route": (lambda r: r.destination(address="fe80::1"), FAULT, "destinations",
                                    "trap destination 1, [fe80::1]:9162", "No route"),
    "destination_of_an_unknown_user": (lambda r: r.destination(version=3, user="gone"), FAULT, "destinations",
                                       "trap destination 1", "no keys of its user, gone"),
    "destination_without_a_community": (lambda r: (r.destination(user="--"), r.change(
        "etc/vrx-agentd.conf", "trapcommunity", "#trapcommunity")), FAULT, "destinations", "trap destination 1",
                                        "no community"),
    "destination_that_filters_all": (lambda r: r.destination(version=1, trap_type=4), FAULT, "destinations",
                                     "trap destination 1", "It gets nothing"),
    "destination_without_counter64": (lambda r: r.destination(version=1), WARNING, "destinations",
                                      "trap destination 1", "Counter64"),
    "trap_longer_than_the_path": (lambda r: (r.destination(address="::1"), long_definition(r)), WARNING,
                                  "message size", "trap destination 1", "the path takes 65488"),
    "inform_receiver_without_an_address": (lambda r: r.add("informsink nms.invalid c\n"), FAULT, "informs",
                                           "nms.invalid", "The name has no address"),
    "inform_receiver_without_a_community": (lambda r: (r.change("etc/vrx-agentd.conf", "trapcommunity",
                                                                "#trapcommunity"), r.add("informsink 127.0.0.1\n")),
                                            FAULT, "", "vrx-agentd.conf:", "community"),
}


class Mould(unittest.TestCase):
    """Makes a root in which agent and backend ran once, and the agent's status while they did."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vrx-doctor-mould-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.mould = os.path.join(cls.folder, "root")
        with System(agent_config=CLEAN_CONFIG) as system:
            cls.status = system.vrxctl("status", "--json")
            system.agent.stop()
            system.backend.stop()
            for log in ("agent.log", "backend.log"):
                os.unlink(system.path(log))
            subprocess.run(["cp", "-a", system.root, cls.mould], check=True)
            if IS_ROOT:  # as installed: the agent has a user of its own
                subprocess.run(["chown", "-R", str(NOBODY), cls.mould], check=True)

    def root(self):
        root = Root(self.mould)
        self.addCleanup(root.close)
        return root

    def assert_named(self, report, severity, check, subject, text):
        for finding in report["findings"]:
            if (finding["severity"] == severity and finding["check"].startswith(check) and
                    subject in finding["subject"] and text in finding["what"]):
                self.assertTrue(finding["why"] and finding["remedy"], finding)
                return
        self.fail("no %s [%s] about %s with \"%s\" in\n%s" % (severity, check, subject, text, findings_of(report)))


class SeededFaults(Mould):
    """Each row of SEEDS is a test of its own."""

    def test_without_a_seed_agent_and_backend_are_away_and_nothing_else(self):
        code, report = doctor(self.root().path())
        self.assertEqual([(f["severity"], f["subject"]) for f in report["findings"]],
                         [(FAULT, "backend"), (FAULT, "agent")], findings_of(report))
        self.assertEqual(code, 2)

    def test_a_configuration_of_every_kind_has_no_finding(self):
        root = self.root()
        root.add("""
[snmp] sendMessageMaxSize 1472
view everything included .1
rocommunity readers 127.0.0.1 -V everything
rocommunity6 readers ::1
com2sec -Cn ctx managers 127.0.0.1 word
group managers v2c managers
access managers "" any noauth exact everything none none
createUser -e 0x8000000001020304 informer SHA-256 "informer-pass-1" AES "informer-pass-2"
createUser "second one" SHA-256 "second-auth-pass" AES "second-priv-pass"
rouser -s usm "second one" priv -V everything
agentaddress udp:127.0.0.1:%d,tcp:127.0.0.1:%d,udp6:[::1]:%d
vrxMetrics unix:state/metrics.sock
vrxNotificationSize 1232
informsink 127.0.0.1 word 1162
informsink [::1]:1162 word
trapsess -Ci -v3 -u informer -l authPriv -a SHA-256 -A "informer-pass-1" -x AES -X "informer-pass-2" udp:127.0.0.1:1163
""" % (free_port(), free_port(socket.SOCK_STREAM), free_port()))
        root.destination(1, "localhost", 2, user="--")
        root.destination(2, "::1", 3, user="admin")
        root.destination(3, "::1", 3, user="second one")
        code, report = doctor(root.path())
        self.assertEqual([(f["severity"], f["subject"]) for f in report["findings"]],
                         [(FAULT, "backend"), (FAULT, "agent")], findings_of(report))

    def test_nothing_is_changed(self):
        root = self.root()
        root.destination()
        root.destination(2, "nms.invalid", 3, user="admin")

        def everything():
            return {path: os.lstat(path)[:7] + (os.lstat(path).st_mtime_ns,)
                    for folder, folders, files in os.walk(root.path())
                    for path in [folder] + [os.path.join(folder, name) for name in folders + files]}

        before = everything()
        doctor(root.path())
        self.assertEqual(everything(), before)

    @unittest.skipUnless(IS_ROOT, "only root can make files of others")
    def test_a_file_of_another_owner(self):
        root = self.root()
        for name in ("informs.db", "backend.db", "net-snmp/vrx-agentd.conf"):
            os.chown(root.path("state", name), 12345, -1)
        _, report = doctor(root.path())
        self.assert_named(report, FAULT, "state", "/state/", "belongs to 12345, not to the agent's user, nobody; 2 other")

    @unittest.skipUnless(IS_ROOT, "only root can become another user")
    def test_a_user_who_may_not_look_is_told_what_was_not_checked(self):
        root = self.root()
        root.show_to_all()
        root.mode("etc/vrx-agentd.conf", 0o640)  # as the package has it
        code, report = doctor(root.path(), user=12345)
        unchecked = "\n".join("%(subject)s: %(reason)s" % one for one in report["not_checked"])
        for subject in ("engine ID and keys", "trap destinations", "agent", "backend"):
            self.assertIn(subject + ": ", unchecked)
        self.assert_named(report, WARNING, "account", "account", "You may not look into the state")
        self.assertEqual((code, len(report["findings"])), (1, 1), findings_of(report))

    def test_a_pipe_without_a_writer_is_not_waited_for(self):
        for name in ("conf/device.xml", "etc/vrx-agentd.conf", "conf/alarm_definitions.xml",
                     "conf/alarm_enumerations.xml", "mibs/VRX-TAMREL-MIB.xml", "state/net-snmp/vrx-agentd.conf",
                     "state/engine/vrx-agentd.conf", "state/trap_destinations.db", "state/notification_log.db"):
            with self.subTest(name=name):
                root = self.root()
                root.remove(name)
                os.mkfifo(root.path(name))
                os.chown(root.path(name), os.stat(root.path("state")).st_uid, -1)
                code, report = doctor(root.path())
                self.assert_named(report, FAULT, "", name, "regular file")
                self.assertEqual(code, 2)

    def test_links_of_an_installed_product_are_told_as_what_they_lead_to(self):
        """/usr/share/vrx/etc is a link to /etc/vrx, and so on."""
        root = self.root()
        os.mkdir(root.path("../places"))
        os.chown(root.path("../places"), os.stat(root.path("state")).st_uid, -1)
        for name in ("conf", "etc", "state"):
            os.rename(root.path(name), root.path("../places", name))
            os.symlink("../places/" + name, root.path(name))
        root.add("rouser auditor priv\n")
        root.remove("conf/device.xml")
        _, report = doctor(root.path())
        places = os.path.realpath(root.path("../places"))
        subjects = [finding["subject"].split(":")[0] for finding in report["findings"]]
        self.assertEqual(subjects[:2], [places + "/conf/device.xml", places + "/etc/vrx-agentd.conf"], subjects)
        self.assertNotIn(root.path() + "/etc", json.dumps(report))

    def test_no_product_root(self):
        code, report = doctor("/no/such/root")
        self.assert_named(report, FAULT, "product root", "/no/such/root", "no folder")
        self.assertEqual(code, 2)

    def test_a_product_root_that_is_a_file(self):
        _, report = doctor(os.path.join(self.mould, "conf", "device.xml"))
        self.assert_named(report, FAULT, "product root", "device.xml", "no folder")

    def test_an_empty_product_root(self):
        with tempfile.TemporaryDirectory() as empty:
            code, report = doctor(empty)
            self.assert_named(report, FAULT, "files", "conf/device.xml", "No such file")
            self.assertEqual(code, 2)

    def test_text_is_80_columns_wide_but_for_paths_and_commands(self):
        root = self.root()
        root.add("rouser auditor priv\n")
        root.destination(version=1)
        done = subprocess.run([os.path.join(PROGRAM_DIR, "vrxctl"), "--root", root.path(), "doctor"],
                              stdout=subprocess.PIPE, text=True, timeout=SECONDS, check=False)
        lines = done.stdout.splitlines()
        self.assertRegex(lines[-1], r"^3 faults, 1 warning in \d+ checks; begin with .*/vrx-agentd\.conf:\d+$")
        self.assertIn("FAULT   agent", lines)
        self.assertIn("  why   No manager is answered, and no trap is sent.", lines)
        self.assertIn("  mend  systemctl start vrx-agentd", lines)
        self.assertEqual([line for line in lines if len(line) > 80 and "/" not in line], [])


def seeded(seed):
    breaks, severity, check, subject, text = seed

    def test(self):
        root = self.root()
        breaks(root)
        code, report = doctor(root.path())
        self.assert_named(report, severity, check, subject, text)
        self.assertEqual(code, 2)  # agent and backend are away, too

    return test


for seed_name, seed_row in SEEDS.items():
    setattr(SeededFaults, "test_" + seed_name, seeded(seed_row))


def set_value(path, value):
    """Changes a field of the agent's status: "backend/connected"."""
    def change(status):
        *way, last = path.split("/")
        place = status
        for word in way:
            place = place[int(word) if isinstance(place, list) else word]
        place[last] = value
    return change


def lost(status):
    status["destinations"] = [{"number": "7", "state": "ready", "sent": 1, "dropped": {"queue full": 3}}]


def failing(status):
    status["destinations"] = [{"number": "7", "state": "sending fails", "sent": 1, "dropped": {"queue full": 0}}]


def silent_receiver(status):
    status["informs"] = [{"destination": "127.0.0.1:162", "state": "does not answer", "sent": 1, "dropped": {}}]


def read_long_ago(status):
    status["agent"]["uptime_seconds"] = 86400


# What an agent says of itself: how its status is changed, then the finding as in SEEDS. The exit code tells how bad it
# is: there is nothing else.
STATUS_SEEDS = {
    "another_version": (set_value("agent/version", "0.0.9"), WARNING, "version", "agent", "Version 0.0.9 runs"),
    "another_engine_id": (set_value("agent/engine_id", "8001861f050102030405060708"), FAULT, "engine",
                          "engine/vrx-agentd.conf", "another engine ID"),
    "reload_refused": (set_value("agent/last_reload_taken", False), WARNING, "status", "agent",
                       "the last reload was refused"),
    "backend_away": (set_value("backend/connected", False), FAULT, "status", "agent", "the backend is away"),
    "definitions_not_loaded": (set_value("events/definitions_loaded", False), FAULT, "status", "agent",
                               "definitions cannot be loaded"),
    "object_unreadable": (set_value("objects/1/readable", False), WARNING, "status", "object vrxAlarmTable",
                          "cannot be read"),
    "log_not_written": (set_value("notification_log/fault", "disk full"), WARNING, "status", "agent", "disk full"),
    "log_entries_lost": (set_value("notification_log/not_written", 5), WARNING, "losses", "agent",
                         "5 notifications are not in the log"),
    "events_lost": (set_value("events/missing", 4), WARNING, "losses", "agent", "4 events were lost"),
    "traps_lost": (lost, WARNING, "losses", "trap destination 7", "3 (queue full 3)"),
    "destination_fails": (failing, FAULT, "status", "trap destination 7", "sending fails"),
    "inform_receiver_silent": (silent_receiver, WARNING, "status", "inform destination 127.0.0.1:162",
                               "does not answer"),
    "alarms_miscounted": (set_value("alarms/active", 3), FAULT, "alarms", "alarms",
                          "The backend has 0 active alarms, the agent counts 3"),
    "files_changed_since": (read_long_ago, WARNING, "status", "etc/vrx-agentd.conf", "changed after the agent read it"),
}


class FakeAgent(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
    """Gives a status to whoever asks."""

    def __init__(self, path, status):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                body = json.dumps(status).encode()
                self.send_response(200)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def address_string(self):
                return "vrxctl"

            def log_message(self, *arguments):
                pass

        super().__init__(path, Handler)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __exit__(self, *what):
        self.shutdown()
        self.server_close()


class SeededStatus(Mould):
    """A backend that runs, and in the agent's place one that says what the row wants."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.shared = Root(cls.mould)
        cls.addClassCleanup(cls.shared.close)
        if IS_ROOT:  # the backend runs as this user
            subprocess.run(["chown", "-R", "0", cls.shared.folder], check=True)
        listener = cls.shared.open.enter_context(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
        listener.bind(("127.0.0.1", 0))
        cls.shared.add("agentaddress udp:127.0.0.1:%d\n" % listener.getsockname()[1])
        cls.backend = Program("vrx-backendd", ["--root", cls.shared.path()], cls.shared.path("backend.log"))
        cls.backend.start()
        cls.addClassCleanup(cls.backend.stop)

    def examine(self, change=lambda status: None):
        status = json.loads(self.status)
        status["agent"].update(pid=os.getpid(), uptime_seconds=0)
        change(status)
        with FakeAgent(self.shared.path("state/agent.sock"), status):
            result = doctor(self.shared.path())
        os.unlink(self.shared.path("state/agent.sock"))
        return result

    def test_without_a_seed_nothing_is_found(self):
        code, report = self.examine()
        self.assertEqual((code, findings_of(report)), (0, ""))

    def test_an_agent_of_another_version_may_say_anything(self):
        code, report = self.examine(lambda status: status.clear())
        self.assert_named(report, WARNING, "version", "agent", "")
        self.assertEqual(code, 1)


def seeded_status(seed):
    change, severity, check, subject, text = seed

    def test(self):
        code, report = self.examine(change)
        self.assert_named(report, severity, check, subject, text)
        self.assertEqual(code, {WARNING: 1, FAULT: 2}[severity], findings_of(report))

    return test


for seed_name, seed_row in STATUS_SEEDS.items():
    setattr(SeededStatus, "test_" + seed_name, seeded_status(seed_row))


class RunningSystem(unittest.TestCase):
    """The real agent and the real backend."""

    @classmethod
    def setUpClass(cls):
        cls.system = cls.enterClassContext(System(agent_config=CLEAN_CONFIG))

    assert_named = Mould.assert_named

    def examine(self, *arguments):
        return doctor(self.system.root, *arguments)

    def test_1_a_clean_installation_has_no_finding(self):
        for number, version, user in ((1, 2, None), (2, 3, "admin")):
            self.system.add_destination(number, 9162, version=version, user=user)
        code, report = self.examine()
        self.assertEqual((code, findings_of(report)), (0, ""))
        self.assertGreaterEqual(report["checks"], 20)

    def test_2_nothing_is_sent_unless_asked(self):
        self.system.vrxctl("raise", "4295229443", "7", "CTE0", "1")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            receiver.bind(("127.0.0.1", 0))
            self.system.add_destination(3, receiver.getsockname()[1])
            receiver.settimeout(30)

            def sent():
                rows = json.loads(self.system.vrxctl("status", "--json"))["destinations"]
                return {row["number"]: row["sent"] for row in rows}

            wait_for(lambda: sent()["1"] >= 2 and sent()["2"] >= 2, "the traps of the alarm")
            wait_for(lambda: self.system.vrxctl("traps", "--last", "2").count("raise") == 2, "their log")
            before = sent()
            self.assertEqual(self.examine()[0], 0)
            self.assertEqual(sent(), before)
            code, report = self.examine("--send-test-trap", "3")
            self.assertEqual((code, findings_of(report)), (0, ""))
            self.assertRegex(report["done"][0], r"^entry \d+ of the notification log was sent to trap destination 3 again")
            receiver.recv(65536)
            self.assertEqual(sent(), dict(before, **{"3": before["3"] + 1}))

    def test_3_a_test_trap_to_nobody(self):
        code, report = self.examine("--send-test-trap", "9")
        self.assert_named(report, FAULT, "test trap", "trap destination 9", "no such destination")
        self.assertEqual(code, 2)

    def test_4_an_alarm_without_a_definition(self):
        serial = self.system.vrxctl("raise", "12345").strip()
        code, report = self.examine()
        self.assert_named(report, FAULT, "alarms", "alarms", "have no definition: 12345")
        self.assertEqual(code, 2)
        self.system.vrxctl("clear", serial)

    def test_5_a_backend_that_is_stopped(self):
        os.kill(self.system.backend.pid, signal.SIGSTOP)
        try:
            _, report = self.examine()
            self.assert_named(report, FAULT, "backend", "backend", "does not answer")
        finally:
            os.kill(self.system.backend.pid, signal.SIGCONT)

    def test_6_an_agent_that_is_stopped(self):
        os.kill(self.system.agent.pid, signal.SIGSTOP)
        try:
            _, report = self.examine()
            self.assert_named(report, FAULT, "agent", "agent", "does not answer on its control socket")
        finally:
            os.kill(self.system.agent.pid, signal.SIGCONT)

    def test_7_a_backend_slower_than_the_agent_waits(self):
        self.system.backend.stop()
        self.system.backend.arguments += ["--delay-ms", "1000"]
        self.system.backend.start()
        _, report = self.examine()
        self.assert_named(report, FAULT, "backend", "backend", "the agent waits 800 ms")

    def test_8_a_slow_backend(self):
        self.system.backend.stop()
        self.system.backend.arguments[-1] = "600"
        self.system.backend.start()
        _, report = self.examine()
        self.assert_named(report, WARNING, "backend", "backend", "the agent waits 800 ms at most")


if __name__ == "__main__":
    unittest.main()
