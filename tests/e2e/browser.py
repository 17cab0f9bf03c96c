"""A headless Chromium to look at pages with: what they show, by keyboard and pointer, and what they wanted to do."""

import base64
import fcntl
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

from harness import Failure, slowdown, wait_for

PROGRAM = "chromium-headless-shell"
ANSWER_SECONDS = 60


class Browser:
    """One page in a Chromium of its own; use as a context.

        with Browser() as browser:
            browser.open("http://127.0.0.1:9161/")
            browser.evaluate("document.title")
    """

    def __init__(self, *arguments):
        self._folder = tempfile.mkdtemp(prefix="vrx-browser-")
        self._commands, self._page = 0, None
        self._text, self.complaints, self.dialogs, self.requests = b"", [], [], []
        # It reads commands at descriptor 3 and answers at 4.
        low_in, self._out = os.pipe()
        self._in, low_out = os.pipe()
        theirs_in, theirs_out = (fcntl.fcntl(low, fcntl.F_DUPFD, 10) for low in (low_in, low_out))
        command = [PROGRAM, "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                   "--disable-background-networking", "--remote-debugging-pipe", "--user-data-dir=" + self._folder, *arguments]
        shell = 'exec "$@" 3<&%d 4>&%d' % (theirs_in, theirs_out)
        with open(os.path.join(self._folder, "log"), "wb") as log:
            self._process = subprocess.Popen(["bash", "-c", shell, "bash", *command], stdout=log, stderr=log,
                                             pass_fds=(theirs_in, theirs_out))
        for theirs in (low_in, low_out, theirs_in, theirs_out):
            os.close(theirs)

    def __enter__(self):
        target = self.command("Target.createTarget", url="about:blank")["targetId"]
        self._page = self.command("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self.command(domain + ".enable")
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        os.close(self._in)
        os.close(self._out)
        shutil.rmtree(self._folder, ignore_errors=True)

    # Commands of its protocol

    def command(self, method, **parameters):
        self._commands += 1
        message = {"id": self._commands, "method": method, "params": parameters}
        if self._page:
            message["sessionId"] = self._page
        os.write(self._out, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + ANSWER_SECONDS * slowdown()
        while True:
            answer = self._next(end, method)
            if answer.get("id") == self._commands:
                if "error" in answer:
                    raise Failure("%s: %s" % (method, answer["error"]["message"]))
                return answer["result"]
            self._note(answer)

    def _next(self, end, what):
        while b"\0" not in self._text:
            if not select.select([self._in], [], [], max(0, end - time.monotonic()))[0]:
                raise Failure("the browser does not answer: " + what)
            piece = os.read(self._in, 1 << 20)
            if not piece:
                raise Failure("the browser has ended: " + what)
            self._text += piece
        message, self._text = self._text.split(b"\0", 1)
        return json.loads(message)

    def _note(self, event):
        """What the page wants that a page should not."""
        method, said = event.get("method"), event.get("params", {})
        if method == "Log.entryAdded":
            self.complaints.append(said["entry"]["text"])
        elif method == "Runtime.exceptionThrown":
            self.complaints.append(json.dumps(said["exceptionDetails"]))
        elif method == "Page.javascriptDialogOpening":
            self.dialogs.append(said["message"])
        elif method == "Network.requestWillBeSent":
            self.requests.append(said["request"]["url"])

    # Looking

    def open(self, url):
        self.command("Page.navigate", url=url)
        wait_for(lambda: self.evaluate("document.readyState") == "complete", url)

    def evaluate(self, expression):
        answer = self.command("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True,
                              allowUnsafeEvalBlockedByCSP=False)
        if "exceptionDetails" in answer:
            raise Failure("%s: %s" % (expression, answer["exceptionDetails"]))
        return answer["result"].get("value")

    def wait(self, expression, what=None):
        """Until it is true, and what it then is."""
        return wait_for(lambda: self.evaluate(expression), what or expression)

    def text(self, selector):
        """What people see of the elements."""
        return self.evaluate("Array.from(document.querySelectorAll(%s), one => one.innerText)" % json.dumps(selector))

    def show(self, width, height=1000, dark=False, medium=""):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.command("Emulation.setEmulatedMedia", media=medium,
                     features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    KEYS = {"Tab": 9, "Enter": 13, "Escape": 27, "Space": 32, "ArrowDown": 40}

    def press(self, *keys):
        """Keys by their names, characters as they are."""
        for key in keys:
            text = {"Enter": "\r", "Space": " "}.get(key, key if len(key) == 1 else "")
            name = " " if key == "Space" else key
            code = self.KEYS.get(key, ord(key.upper()) if len(key) == 1 else 0)
            self.command("Input.dispatchKeyEvent", type="keyDown" if text else "rawKeyDown", key=name, text=text,
                         windowsVirtualKeyCode=code)
            self.command("Input.dispatchKeyEvent", type="keyUp", key=name, windowsVirtualKeyCode=code)

    def picture(self, path, whole=False):
        data = self.command("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
