"""vrxctl against a running agent: users with keys that are made for them, status, reload; and the socket that it asks."""

import http.client
import json
import os
import re
import socket
import stat
import time
import unittest

from harness import AGENT_CONFIG, System, TOPOLOGY, values, wait_for

EX_USAGE, EX_UNAVAILABLE, EX_CONFIG = 64, 69, 78  # sysexits.h


def user_of(output):
    """What vrxctl says of a new user, as options of Net-SNMP's tools."""
    name = re.search(r"^user (\S+) may ", output).group(1)
    (hashed, authentication), (encrypted, privacy) = re.findall(r"^  \S+ \((\S+)\): +(\S+)$", output, re.M)
    return ["-v3", "-l", "authPriv", "-u", name, "-a", hashed, "-A", authentication, "-x", encrypted, "-X", privacy]


class Users(unittest.TestCase):
    def test_an_agent_without_configuration_tells_how_to_make_a_user_and_serves_it(self):
        with System(agent_config="") as system:
            self.assertIn('create a user with "vrxctl --root %s user add NAME"' % system.root, system.agent.log())
            user = user_of(system.vrxctl("user", "add", "oncall"))
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8)
            system.set("1.3.6.1.2.1.1.4.0", "s", "Night shift", version=user)
            system.agent.kill()
            system.agent.start()
            self.assertNotIn("create a user", system.agent.log(since_start=True))
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8)

    def test_a_user_who_may_only_read(self):
        with System() as system:
            user = user_of(system.vrxctl("user", "add", "monitor", "--read-only"))
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8)
            done = system.run("snmpset", "1.3.6.1.2.1.1.4.0", "s", "x", version=user, check=False)
            self.assertIn("noAccess", done.stderr)

    def test_weaker_security_than_a_new_user_has_is_refused(self):
        with System(agent_config="") as system:
            user = user_of(system.vrxctl("user", "add", "oncall"))
            for level in ("noAuthNoPriv", "authNoPriv"):
                weaker = [level if word == "authPriv" else word for word in user]
                done = system.run("snmpget", "1.3.6.1.2.1.1.4.0", version=weaker, timeout=1, retries=0, check=False)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn("authorizationError", done.stdout + done.stderr)

    def test_a_user_may_be_made_before_the_agent_starts(self):
        with System(agent_config="", start=False) as system:
            user = user_of(system.vrxctl("user", "add", "oncall"))
            state = system.path("state", "net-snmp", "vrx-agentd.conf")
            self.assertEqual(stat.S_IMODE(os.stat(state).st_mode), 0o600)
            system.backend.start()
            system.agent.start()
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8)
            with open(state, encoding="utf-8") as file:
                self.assertNotIn(user[user.index("-A") + 1], file.read())

    def test_other_protocols(self):
        protocols = (("SHA", "AES"), ("MD5", "DES"), ("SHA-224", "AES-192"), ("SHA-384", "AES-256"), ("SHA-512", "AES"))
        with System(agent_config="") as system:
            for place, (authentication, privacy) in enumerate(protocols):
                if place == 3:
                    system.agent.stop()  # the others are left for its next start
                name = "user%d" % place
                user = user_of(system.vrxctl("user", "add", name, "--auth", authentication, "--priv", privacy))
                self.assertEqual((user[user.index("-a") + 1], user[user.index("-x") + 1]), (authentication, privacy))
                if not system.agent.running():
                    system.agent.start()
                self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8)
            done = system.vrxctl("user", "add", "other", "--auth", "SHA-3", check=False)
            self.assertEqual(done.returncode, EX_USAGE)
            self.assertIn("SHA-256", done.stderr)

    def test_a_user_is_made_or_refused_at_every_moment_of_a_start(self):
        with System(agent_config="", start=False) as system:
            system.backend.start()
            for number in range(20):
                system.agent.start(wait=False)
                end = time.monotonic() + number * 0.01
                wait_for(lambda: time.monotonic() >= end, "the moment")
                user = user_of(system.vrxctl("user", "add", "user%d" % number))
                system.agent.wait_ready()
                self.assertEqual(len(values(system.walk(TOPOLOGY, version=user))), 8, number)
                system.agent.stop()

    def test_without_its_socket_a_running_agent_is_not_taken_for_one_that_is_away(self):
        with System() as system:
            os.unlink(system.path("state", "agent.sock"))
            with open(system.path("etc", "vrx-agentd.conf"), encoding="utf-8") as file:
                before = file.read()
            done = system.vrxctl("user", "add", "oncall", check=False)
            self.assertEqual((done.returncode, done.stdout), (EX_UNAVAILABLE, ""))
            self.assertIn("though one runs: start it again. No user was made", done.stderr)
            with open(system.path("etc", "vrx-agentd.conf"), encoding="utf-8") as file:
                self.assertEqual(file.read(), before)

    def test_a_user_whose_line_is_not_taken_over_is_not_made(self):
        with System() as system:
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "sysNaem x\n")
            done = system.vrxctl("user", "add", "oncall", check=False)
            self.assertIn("Unknown token: sysNaem.", done.stderr)
            with open(system.path("etc", "vrx-agentd.conf"), encoding="utf-8") as file:
                self.assertEqual(file.read(), AGENT_CONFIG + "sysNaem x\n")
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG)
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=user_of(system.vrxctl("user", "add", "oncall"))))), 8)

    def test_a_removed_user_is_gone_and_stays_so(self):
        with System() as system:
            user = user_of(system.vrxctl("user", "add", "oncall"))
            system.vrxctl("user", "remove", "oncall")
            for _ in range(2):
                done = system.run("snmpget", "1.3.6.1.2.1.1.4.0", version=user, timeout=1, retries=0, check=False)
                self.assertIn("Unknown user name", done.stderr)
                system.agent.stop()
                system.agent.start()
            with open(system.path("etc", "vrx-agentd.conf"), encoding="utf-8") as file:
                self.assertNotIn("oncall", file.read())

    def test_faults(self):
        with System() as system:
            system.vrxctl("user", "add", "oncall")
            for arguments, text in ((("add", "oncall"), "there is a user oncall already"),
                                    (("add", "on call"), "a user's name has"), (("add", "x" * 33), "a user's name has"),
                                    (("remove", "nobody"), "there is no user nobody")):
                done = system.vrxctl("user", *arguments, check=False)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn(text, done.stderr)


class Control(unittest.TestCase):
    def test_status_as_tables_and_json(self):
        with System() as system:
            system.add_destination(1, 9, user="traps")
            text = system.vrxctl("status")
            status = json.loads(system.vrxctl("status", "--json"))
            self.assertEqual(status["agent"]["pid"], system.agent.pid)
            self.assertEqual(status["agent"]["engine_boots"], 1)
            self.assertEqual([(d["number"], d["address"], d["port"]) for d in status["destinations"]],
                             [("1", "127.0.0.1", 9)])
            self.assertIn("127.0.0.1 9", text)
            self.assertIn(status["agent"]["engine_id"], text)
            self.assertRegex(text, r"\Avrx-agentd \S+, up \d+ s: all is well\n")
            whole = system.vrxctl("status", "--all")
            for title in status:
                self.assertIn("\n%s\n" % title, whole)
                self.assertNotIn("\n%s\n" % title, text)
            self.assertTrue(whole.startswith("vrx-agentd "), whole)

    def test_status_says_what_is_wrong_in_its_first_line(self):
        with System(backend=False) as system:
            self.assertRegex(system.vrxctl("status"), r"\Avrx-agentd \S+, up \d+ s: the backend is away\n")

    def test_reload_tells_faults_and_ends_with_their_code(self):
        with System() as system:
            self.assertEqual(system.vrxctl("reload"), "")
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "sysNaem x\n")
            done = system.vrxctl("reload", check=False)
            self.assertEqual(done.returncode, EX_CONFIG)
            line = AGENT_CONFIG.count("\n") + 1
            self.assertEqual(done.stderr, "%s:%d: Unknown token: sysNaem.\n" % (system.path("etc/vrx-agentd.conf"), line))
            status = json.loads(system.vrxctl("status", "--json"))["agent"]
            self.assertEqual((status["reloads_taken"], status["reloads_refused"]), (1, 1))

    def test_without_an_agent(self):
        with System(start=False) as system:
            done = system.vrxctl("status", check=False)
            self.assertEqual(done.returncode, EX_UNAVAILABLE)
            self.assertIn("no agent can be reached at " + system.path("state", "agent.sock"), done.stderr)

    def test_the_socket_is_the_owners_alone_and_goes_with_the_agent(self):
        with System() as system:
            path = system.path("state", "agent.sock")
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            system.agent.kill()
            self.assertTrue(os.path.exists(path))  # of a process that was killed: the next one replaces it
            system.agent.start()
            system.vrxctl("status")
            system.agent.stop()
            self.assertFalse(os.path.exists(path))

    def test_what_is_no_request_is_answered_with_its_fault(self):
        with System() as system:
            def ask(method, path, body=""):
                connection = http.client.HTTPConnection("agent")
                connection.sock = socket.socket(socket.AF_UNIX)
                connection.sock.connect(system.path("state", "agent.sock"))
                connection.request(method, path, body)
                with connection.sock, connection.getresponse() as answer:
                    return "%d %s" % (answer.status, answer.read().decode().strip())

            self.assertEqual(ask("GET", "/nothing"), "404 nothing here")
            self.assertEqual(ask("PUT", "/status"), "405 no such method here")
            self.assertEqual(ask("POST", "/users", "no json"), "400 the body is no JSON object")
            self.assertEqual(ask("POST", "/users", "{}"), "400 name is missing")
            self.assertEqual(ask("POST", "/users", "x" * 2_000_000), "413 too long")
            wait_for(lambda: ask("GET", "/status").startswith("200 {"), "an answer after all that")


if __name__ == "__main__":
    unittest.main()
