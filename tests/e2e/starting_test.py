"""How the agent starts, reloads and ends: options, configuration, faults and their exit codes."""

import os
import shutil
import signal
import socket
import subprocess
import unittest

from harness import (AGENT_CONFIG, BUILD_DIR, CLEAR_ALARM, DESTINATIONS, PROGRAM_DIR, TOPOLOGY, V2C, V3, System,
                     free_port, values, wait_for)

EX_OK, EX_USAGE, EX_UNAVAILABLE, EX_OSERR, EX_CONFIG = 0, 64, 69, 71, 78  # sysexits.h
SYS_NAME = "1.3.6.1.2.1.1.5.0"
STATUS = TOPOLOGY + ".8.1"


class Faults(unittest.TestCase):
    def setUp(self):
        self.system = System(start=False)
        self.addCleanup(self.system.close)

    def ends(self, code, text, *arguments):
        """The agent, started so, ends at once with the code and says why."""
        done = subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd")] + list(arguments), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
        self.assertIn(text, done.stdout)
        self.assertEqual(done.returncode, code, done.stdout)

    def root(self):
        return ["--root", self.system.root, "--listen", self.system.address]

    def module(self):
        return self.root() + ["--module", System.module_path()]

    def test_an_unknown_option(self):
        self.ends(EX_USAGE, "--colour", "--colour")

    def test_help(self):
        self.ends(EX_OK, "--embedded-backend", "--help")

    def test_a_root_that_does_not_exist(self):
        self.ends(EX_CONFIG, 'product root "/no/such/root" is no folder', "--root", "/no/such/root")

    def test_a_device_configuration_that_is_missing(self):
        os.unlink(self.system.path("conf/device.xml"))
        self.ends(EX_CONFIG, "device.xml", *self.module())

    def test_a_device_configuration_that_is_broken(self):
        self.system.write("conf/device.xml", "<device><section")
        self.ends(EX_CONFIG, "device.xml", *self.module())

    def test_a_plain_file_in_the_place_of_the_control_socket_is_found_before_the_start_is_counted(self):
        self.system.agent.start()
        self.system.agent.stop()
        self.system.write("state/agent.sock", "")
        before = os.stat(self.system.path("state/net-snmp/vrx-agentd.conf")).st_mtime_ns
        self.ends(EX_OSERR, self.system.path("state/agent.sock"), *self.module())
        self.assertEqual(os.stat(self.system.path("state/net-snmp/vrx-agentd.conf")).st_mtime_ns, before)

    def test_a_second_agent_of_one_state(self):
        self.system.agent.start()
        self.ends(EX_OSERR, self.system.path("state/agent.sock"), *self.module())
        os.unlink(self.system.path("state/agent.sock"))
        self.ends(EX_UNAVAILABLE, "another agent uses " + self.system.path("state/net-snmp"), *self.module())
        self.system.agent.stop()

    def test_a_module_that_does_not_exist(self):
        self.ends(EX_CONFIG, "module /no/such/module.so: ", *self.root(), "--module", "/no/such/module.so")

    def test_a_library_that_is_no_module(self):
        library = os.path.join(BUILD_DIR, "lib", "libvrx_core.so")
        self.ends(EX_CONFIG, "module %s: exports no SNMP_SvcModuleCreator" % library, *self.root(), "--module", library)

    def test_a_module_whose_creator_gives_none(self):
        library = os.path.join(BUILD_DIR, "lib", "libmodule_without_object.so")
        self.ends(EX_CONFIG, "module %s: SNMP_SvcModuleCreator returned no module\n" % library, *self.root(),
                  "--module", library)

    def test_a_module_whose_creator_throws(self):
        library = os.path.join(BUILD_DIR, "lib", "libmodule_that_throws.so")
        self.ends(EX_CONFIG, "module %s: SNMP_SvcModuleCreator threw: no dispatcher\n" % library, *self.root(),
                  "--module", library)

    def test_a_mib_file_that_is_missing(self):
        os.unlink(self.system.path("mibs/VRX-TAMREL-MIB.xml"))
        self.ends(EX_CONFIG, "mibs/VRX-TAMREL-MIB.xml: ", *self.module())

    def test_a_mib_file_without_a_registered_object(self):
        self.system.write("mibs/VRX-TAMREL-MIB.xml", "<smi><nodes/></smi>")
        self.ends(EX_CONFIG, "object 1.3.6.1.4.1.99871.2.91.9.1: not in VRX-TAMREL-MIB.xml", *self.module())

    def test_a_module_that_is_loaded_twice(self):
        self.ends(EX_CONFIG, "another object is registered there", *self.module(), "--module", System.module_path())

    def test_a_port_that_is_taken(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", self.system.port))
            self.ends(EX_UNAVAILABLE, "cannot listen on " + self.system.address, *self.module())

    def test_an_address_that_is_none(self):
        self.ends(EX_UNAVAILABLE, "cannot listen on udp:127.0.0.1:port", "--root", self.system.root, "--listen",
                  "udp:127.0.0.1:port")

    def test_a_word_of_the_configuration_without_its_number(self):
        self.system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "vrxRequestDeadline soon\n")
        with self.system:
            self.system.agent.start()
            self.assertIn("vrxRequestDeadline: not a number from 1 to 3600000: soon", self.system.agent.log())
            self.assertIn("vrx-under-test", self.system.get(SYS_NAME))


class Starting(unittest.TestCase):
    def test_without_configuration_nobody_is_answered(self):
        with System(agent_config="") as system:
            for version in (V2C, ["-v2c", "-c", "private"], V3):
                done = system.run("snmpget", SYS_NAME, version=version, timeout=0.3, retries=0, check=False)
                self.assertNotEqual(done.returncode, 0)

    def test_the_first_start_says_how_to_make_a_user_and_nothing_of_the_library(self):
        with System(agent_config="") as system:
            self.assertIn("no user and no community has access to this agent yet", system.agent.log())
            self.assertNotIn("access control information", system.agent.log())
            self.assertNotIn("snmpconf", system.agent.log())

    def test_the_backend_may_run_inside(self):
        with System(embedded=True) as system:
            self.assertEqual(values(system.get(STATUS)), [(STATUS, "INTEGER: 1")])

    def test_an_object_has_a_thread_only_while_somebody_asks_for_it(self):
        with System(extra_config="vrxMetrics unix:state/metrics.sock\n") as system:
            def objects():
                folder = "/proc/%d/task" % system.agent.pid
                names = set()
                for thread in os.listdir(folder):
                    with open(os.path.join(folder, thread, "comm"), encoding="ascii") as file:
                        names.add(file.read().strip())
                return {name for name in names if name.startswith("vrx") and name != "vrx-agentd"}

            system.get(SYS_NAME)
            self.assertEqual(objects(), set())
            system.get(STATUS)
            self.assertEqual(objects(), {"vrxTopologyTabl"})
            wait_for(lambda: not objects(), "the end of a thread without work")
            self.assertEqual(values(system.get(STATUS)), [(STATUS, "INTEGER: 1")])

    def test_listeners_may_come_from_the_configuration(self):
        ports = [free_port(), free_port()]
        system = System(extra_config="agentAddress udp:127.0.0.1:%d,udp:127.0.0.1:%d\n" % tuple(ports))
        at = system.agent.arguments.index("--listen")
        del system.agent.arguments[at:at + 2]
        with system:
            for port in ports:
                self.assertIn("vrx-under-test", system.get(SYS_NAME, address="udp:127.0.0.1:%d" % port))

    def test_several_listeners_of_every_kind(self):
        udp6, tcp = free_port(), free_port(socket.SOCK_STREAM)
        with System(agent_config=AGENT_CONFIG + "rocommunity6 public ::1\n",
                    agent_arguments=["--listen", "udp6:[::1]:%d" % udp6, "--listen", "tcp:127.0.0.1:%d" % tcp]) as system:
            for address in (system.address, "udp6:[::1]:%d" % udp6, "tcp:127.0.0.1:%d" % tcp):
                self.assertIn("vrx-under-test", system.get(SYS_NAME, address=address))
                self.assertEqual(len(values(system.bulkwalk(TOPOLOGY, address=address))), 8)

    def test_a_manager_that_hangs_up_is_forgotten(self):
        tcp = free_port(socket.SOCK_STREAM)
        with System(agent_arguments=["--listen", "tcp:127.0.0.1:%d" % tcp],
                    device={("BACKEND", "CALL_DEADLINE_MS"): 10_000}, backend_arguments=["--delay-ms", "1000"]) as system:
            for name in (STATUS, TOPOLOGY + ".1.1"):
                asking = subprocess.Popen(["snmpget", "-t", "20"] + V2C + ["tcp:127.0.0.1:%d" % tcp, name],
                                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                          env=system.tool_environment())
                self.assertIn("vrx-under-test", system.get(SYS_NAME))  # the agent has had a turn
                asking.kill()
                asking.wait()
            self.assertEqual(values(system.get(STATUS, timeout=20)), [(STATUS, "INTEGER: 1")])

    def test_a_hangup_signal_reads_the_configuration_again(self):
        with System() as system:
            second = ["-v2c", "-c", "second"]
            done = system.run("snmpget", SYS_NAME, version=second, timeout=0.3, retries=0, check=False)
            self.assertNotEqual(done.returncode, 0)
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "rocommunity second 127.0.0.1\n")
            os.kill(system.agent.pid, signal.SIGHUP)
            wait_for(lambda: system.run("snmpget", SYS_NAME, version=second, timeout=0.3, retries=0,
                                        check=False).returncode == 0, "the new community")
            self.assertEqual(len(values(system.walk(TOPOLOGY, version=V3))), 8)

    def test_both_ending_signals_end_it_cleanly(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with System() as system:
                os.kill(system.agent.pid, number)
                self.assertEqual(system.agent.process.wait(30), EX_OK)

    def test_it_ends_while_a_backend_call_hangs(self):
        with System(device={("BACKEND", "CALL_DEADLINE_MS"): 60_000}) as system:
            os.kill(system.backend.pid, signal.SIGSTOP)
            asking = subprocess.Popen(["snmpget", "-t", "60"] + V2C + [system.address, STATUS],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                      env=system.tool_environment())
            self.assertIn("vrx-under-test", system.get(SYS_NAME))
            system.agent.process.send_signal(signal.SIGTERM)
            self.assertEqual(system.agent.process.wait(30), EX_OK)  # the call itself takes a minute
            asking.kill()
            asking.wait()
            os.kill(system.backend.pid, signal.SIGCONT)


if __name__ == "__main__":
    unittest.main()
