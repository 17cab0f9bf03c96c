"""The receiver behind Alertmanager's webhook: notes what it is told, and when."""

import collections
import http.server
import json
import threading
import time

# `instance` is the address that Prometheus knows the array by: which of its ways the news came, too.
Told = collections.namedtuple("Told", "when firing alert instance serial")


class Sink:
    """Listens on a loopback port while the context lasts."""

    def __init__(self, port):
        self.port = port
        self.requests = 0
        self.bytes = 0
        self._lock = threading.Lock()
        self._told = []
        sink = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                when = time.time()
                self.send_response(200)
                self.send_header("Content-Length", "0")
                self.end_headers()
                sink.take_webhook(when, body)

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self._server.daemon_threads = True
        self._thread = threading.Thread(target=self._server.serve_forever, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()

    def take_webhook(self, when, body):
        told = [Told(when, alert["status"] == "firing", alert["labels"]["alertname"], alert["labels"].get("instance", ""),
                     alert["labels"].get("serial", "")) for alert in json.loads(body)["alerts"]]
        with self._lock:
            self.requests += 1
            self.bytes += len(body)
        self.take(told)

    def take(self, told):
        with self._lock:
            self._told += told

    def told(self):
        with self._lock:
            return list(self._told)
