"""Metrics and status page over TLS: who gets them, what connections cost, and certificates that are read again."""

import contextlib
import http.client
import os
import shutil
import socket
import ssl
import subprocess
import tempfile
import unittest
import warnings

from harness import AGENT_CONFIG, PROGRAM_DIR, System, free_port, wait_for
from status_test import parsed
from stream_test import hung_up

EX_CONFIG = 78
FORBIDDEN = 403


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


class Authority:
    """Makes certificates, in a folder."""

    def __init__(self, folder, name):
        self._folder, self._name = folder, name
        self.path = os.path.join(folder, name + ".pem")
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                "/CN=" + name, "-keyout", self.path + ".key", "-out", self.path)

    def make(self, name, purpose, days=2):
        """Paths of certificate and key; `days` of validity, from today on or before it."""
        path = os.path.join(self._folder, name + ".pem")
        request, extensions = path + ".csr", path + ".ext"
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=" + name,
                "-keyout", path + ".key", "-out", request)
        with open(extensions, "w", encoding="ascii") as file:
            file.write("extendedKeyUsage=%s\nsubjectAltName=IP:127.0.0.1\n" % purpose)
        openssl("x509", "-req", "-in", request, "-CA", self.path, "-CAkey", self.path + ".key", "-CAcreateserial", "-extfile",
                extensions, "-days", str(days), "-out", path)
        return path, path + ".key"


class TlsSystem(System):
    """A system whose metrics are served over TLS on all addresses."""

    def __init__(self, folder, server, clients, **more):
        self.web, self.folder = free_port(socket.SOCK_STREAM), folder
        self.server = server
        super().__init__(agent_config=AGENT_CONFIG, extra_config=self.line(server, clients.path), **more)

    def line(self, server, clients):
        return "vrxMetrics tcp:0.0.0.0:%d --certificate %s --key %s --clients %s\n" % (self.web, *server, clients)

    def ask(self, authority, client=None, path="/metrics", host=None, change=lambda context: None):
        """Status and body; `change` sets the client's context."""
        context = ssl.create_default_context(cafile=authority.path)
        if client:
            context.load_cert_chain(*client)
        change(context)
        connection = http.client.HTTPSConnection("127.0.0.1", self.web, timeout=60, context=context)
        with contextlib.closing(connection):
            connection.request("GET", path, headers={"Host": host} if host else {})
            answer = connection.getresponse()
            return answer.status, answer.read().decode()

    def shown(self, authority):
        """The certificate that it shows."""
        context = ssl.create_default_context(cafile=authority.path)
        with context.wrap_socket(socket.create_connection(("127.0.0.1", self.web), timeout=60),
                                 server_hostname="127.0.0.1") as connection:
            return connection.getpeercert(binary_form=True)


def only(version):
    def change(context):
        context.set_ciphers("DEFAULT@SECLEVEL=0")
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", DeprecationWarning)
            context.minimum_version = context.maximum_version = version
    return change


class Tls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vrx-tls-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.ours, cls.others = Authority(cls.folder, "ours"), Authority(cls.folder, "others")
        cls.server = cls.ours.make("server", "serverAuth")
        cls.client = cls.ours.make("client", "clientAuth")

    def system(self):
        return self.enterContext(TlsSystem(self.folder, self.server, self.ours))

    def test_who_has_a_certificate_gets_metrics_and_page(self):
        system = self.system()
        status, text = system.ask(self.ours, self.client)
        self.assertEqual(status, 200)
        parsed(text)
        for version in (ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3):
            self.assertEqual(system.ask(self.ours, self.client, change=only(version))[0], 200)
        for path in ("/", "/status.json", "/alarms.json"):
            for host in ("array7.example.net:9161", "localhost"):
                self.assertEqual(system.ask(self.ours, self.client, path, host)[0], 200, (path, host))

    def test_others_get_nothing(self):
        system = self.system()
        expired = self.ours.make("expired", "clientAuth", days=-1)
        for client in (None, self.others.make("stranger", "clientAuth"), expired, self.ours.make("no-client", "serverAuth")):
            for path in ("/metrics", "/", "/nothing"):
                with self.subTest(client=client, path=path):
                    status, text = system.ask(self.ours, client, path)
                    self.assertEqual((status, text), (FORBIDDEN, "a certificate for clients is needed\n"))

    def test_older_versions_are_refused(self):
        system = self.system()
        for version in (ssl.TLSVersion.TLSv1, ssl.TLSVersion.TLSv1_1):
            with self.assertRaises((ssl.SSLError, ConnectionError)):
                system.ask(self.ours, self.client, change=only(version))
        with self.assertRaises((http.client.HTTPException, ConnectionError)):
            connection = http.client.HTTPConnection("127.0.0.1", system.web, timeout=60)
            with contextlib.closing(connection):
                connection.request("GET", "/metrics")
                connection.getresponse()
        self.assertEqual(system.ask(self.ours, self.client)[0], 200)

    def test_half_a_handshake_keeps_nobody_out(self):
        system = self.system()
        with contextlib.ExitStack() as held:
            # The beginning of a client's hello, and nothing.
            for said in (b"", b"\x16\x03\x01\x02\x00\x01\x00"):
                clients = []
                for _ in range(20):
                    client = held.enter_context(socket.create_connection(("127.0.0.1", system.web), timeout=60))
                    client.sendall(said)
                    clients.append(client)
                self.assertEqual(system.ask(self.ours, self.client)[0], 200)
                wait_for(lambda client=clients[0]: hung_up(client), "the end of the oldest connection")

    def test_certificates_are_read_again_at_a_reload(self):
        system = self.system()
        before = system.shown(self.ours)
        newer = self.ours.make("newer", "serverAuth")
        for old, new in zip(self.server, newer):
            shutil.copy(old, old + ".kept")
            self.addCleanup(shutil.move, old + ".kept", old)
            shutil.copy(new, old)
        self.assertEqual(system.shown(self.ours), before)
        system.vrxctl("reload")
        self.assertNotEqual(system.shown(self.ours), before)
        self.assertEqual(system.ask(self.ours, self.client)[0], 200)

    def test_a_reload_with_a_faulty_file_keeps_what_there_was(self):
        system = self.system()
        before = system.shown(self.ours)
        certificate, key = self.server
        broken = os.path.join(self.folder, "broken.pem")
        with open(broken, "w", encoding="ascii") as file:
            file.write("-----BEGIN CERTIFICATE-----\nnothing\n-----END CERTIFICATE-----\n")
        line = AGENT_CONFIG.count("\n") + 1
        for server, clients, named in (((broken, key), self.ours.path, broken), ((certificate, broken), self.ours.path, broken),
                                       ((certificate, key), broken, broken), ((certificate, key), "/dev/null", "/dev/null"),
                                       ((certificate, self.client[1]), self.ours.path, self.client[1]),
                                       ((certificate + "x", key), self.ours.path, certificate + "x")):
            with self.subTest(server=server, clients=clients):
                system.write("etc/vrx-agentd.conf", AGENT_CONFIG + system.line(server, clients))
                done = system.vrxctl("reload", check=False)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn("%s:%d: vrxMetrics: " % (system.path("etc/vrx-agentd.conf"), line), done.stderr)
                self.assertIn(named, done.stderr)
                self.assertEqual(system.shown(self.ours), before)
                self.assertEqual(system.ask(self.ours, self.client)[0], 200)

    def test_other_addresses_than_loopback_need_it(self):
        with System(start=False) as system:
            line = AGENT_CONFIG.count("\n") + 1
            files = "--certificate %s --key %s" % self.server
            for words, fault in (("tcp:0.0.0.0:9161", '"0.0.0.0" is not a numeric loopback address'),
                                 ("tcp:0.0.0.0:9161 " + files, "TLS needs --certificate, --key and --clients"),
                                 ("unix:state/x " + files + " --clients " + self.ours.path, "TLS is for tcp: addresses"),
                                 ("tcp:host:9161 " + files + " --clients " + self.ours.path, '"host" is not a numeric address')):
                with self.subTest(words):
                    system.write("etc/vrx-agentd.conf", AGENT_CONFIG + "vrxMetrics %s\n" % words)
                    done = subprocess.run([os.path.join(PROGRAM_DIR, "vrx-agentd"), "--check-config", "--root", system.root],
                                          stdout=subprocess.PIPE, text=True, check=False)
                    self.assertEqual((done.returncode, done.stdout), (EX_CONFIG, "%s:%d: vrxMetrics: %s\n" % (
                        system.path("etc/vrx-agentd.conf"), line, fault)))

    def test_it_goes_on_and_off_at_a_reload(self):
        system = self.system()
        plain = AGENT_CONFIG + "vrxMetrics tcp:127.0.0.1:%d\n" % system.web
        for _ in range(2):
            system.write("etc/vrx-agentd.conf", plain)
            system.vrxctl("reload")
            connection = http.client.HTTPConnection("127.0.0.1", system.web, timeout=60)
            with contextlib.closing(connection):
                connection.request("GET", "/metrics")
                self.assertEqual(connection.getresponse().status, 200)
            system.write("etc/vrx-agentd.conf", AGENT_CONFIG + system.line(self.server, self.ours.path))
            system.vrxctl("reload")
            self.assertEqual(system.ask(self.ours, self.client)[0], 200)
        foreign = system.line(self.server, self.ours.path).replace("0.0.0.0", "192.0.2.1")  # no address of this machine
        system.write("etc/vrx-agentd.conf", AGENT_CONFIG + foreign)
        self.assertIn("vrxMetrics: bind to tcp:192.0.2.1", "".join(system.vrxctl("reload", check=False).stderr))
        self.assertEqual(system.ask(self.ours, self.client)[0], 200, "as before")


if __name__ == "__main__":
    unittest.main()
