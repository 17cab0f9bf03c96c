"""Debian's snmpd before the agent: managers ask it, and a proxy line hands our subtree on (docs/beside-snmpd.md)."""

import os
import signal
import subprocess

from harness import STOP_SECONDS, Failure, free_port, wait_for

SUBTREE = ".1.3.6.1.4.1.99871"
# Lines of the agent's configuration that let the snmpd in, and nobody else.
LET_IN = """
createUser front SHA-256 "front-auth-pass" AES "front-priv-pass"
rwuser front priv
rwcommunity front 127.0.0.1
"""
# What the proxy line speaks to the agent.
V2C_LINK = "-v 2c -c front"
V3_LINK = "-v 3 -l authPriv -u front -a SHA-256 -A front-auth-pass -x AES -X front-priv-pass"
# The daemon's own objects that the tests ask for, and what the configuration's words need.
MODULES = "proxy,system_mib,snmpEngine,usmConf,usmStats,usmUser,vacm_conf,vacm_vars,setSerialNo"


class SnmpdFront:
    """One snmpd with the agent's own configuration lines, but for the agent's own words, and a proxy line to the agent.

    The snmpd waits `seconds` for an answer of the agent, and asks once: each further attempt would be another request.
    """

    def __init__(self, folder, agent_port, config, link, seconds=60):
        self.folder = folder
        self.port = free_port()
        self.log_path = os.path.join(folder, "snmpd.log")
        self.process = None
        os.makedirs(folder)
        lines = [line for line in config.splitlines() if not line.startswith("vrx")]
        lines.append("proxy -t %d -r 0 %s 127.0.0.1:%d %s" % (seconds, link, agent_port, SUBTREE))
        with open(os.path.join(folder, "snmpd.conf"), "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")

    def start(self):
        """Once; the agent may be started before or after it."""
        if self.process is not None:
            return
        command = ["snmpd", "-f", "-Lf", self.log_path, "-C", "-c", os.path.join(self.folder, "snmpd.conf"),
                   "-I", MODULES, "-p", os.path.join(self.folder, "snmpd.pid"), "udp:127.0.0.1:%d" % self.port]
        environment = dict(os.environ, MIBS="", SNMPCONFPATH=os.path.join(self.folder, "none"),
                           SNMP_PERSISTENT_DIR=os.path.join(self.folder, "state"))
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        wait_for(self._is_ready, "snmpd to be ready")

    def _is_ready(self):
        if self.process.poll() is not None:
            raise Failure("snmpd ended with %d:\n%s" % (self.process.returncode, self.log()))
        return "NET-SNMP version" in self.log()

    def log(self):
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8", errors="replace") as log:
            return log.read()

    def stop(self):
        if self.process is None or self.process.poll() is not None:
            return
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
