"""A headless Chromium that loads one page at a time, driven over a pipe by its debugging protocol."""

import base64
import json
import os
import pathlib
import re
import select
import shutil
import signal
import subprocess
import tempfile
import time

# No profile, no updates and no network of its own; software rendering, as on a system without a display.
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--no-default-browser-check", "--mute-audio", "--hide-scrollbars",
           "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1", "--remote-debugging-pipe"]
DEADLINE = 120  # seconds for one answer, on a busy system


def find_chromium():
    """The path of Chromium, "" if it is not installed."""
    return shutil.which("chromium") or shutil.which("chromium-browser") or ""


class BrowserError(Exception):
    """The browser ended, did not answer, or a script of a test failed in it."""


class Browser:
    """Use it with `with`; the process and its profile are gone afterwards."""

    def __init__(self, width=1280, height=860):
        self.profile = tempfile.mkdtemp(prefix="pimbsr-web-")
        self.number, self.buffer = 0, b""
        self.errors, self.requests = [], []
        self.expected = r"$."  # errors that a test provokes
        to_browser, self.out = os.pipe()
        self.inp, from_browser = os.pipe()

        def pipes():  # the protocol is on the descriptors 3 and 4
            high = [os.dup2(fd, base) for fd, base in ((to_browser, 30), (from_browser, 31))]
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        command = [find_chromium(), *OPTIONS, f"--window-size={width},{height}",
                   f"--user-data-dir={self.profile}", "about:blank"]
        # pylint: disable-next=subprocess-popen-preexec-fn
        self.process = subprocess.Popen(command, preexec_fn=pipes, close_fds=False, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(to_browser)
        os.close(from_browser)
        self.session = None

    def __enter__(self):
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")
        return self

    def __exit__(self, *_):
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        os.close(self.out)
        os.close(self.inp)
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, **params):
        """Sends one command and returns its result."""
        self.number += 1
        message = {"id": self.number, "method": method, "params": params}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + DEADLINE
        while True:
            answer = self.receive(end)
            if answer.get("id") != self.number:
                self.note(answer)
            elif "error" in answer:
                raise BrowserError(f"{method}: {answer['error']}")
            else:
                return answer["result"]

    def receive(self, end):
        while b"\0" not in self.buffer:
            if not select.select([self.inp], [], [], max(0, end - time.monotonic()))[0]:
                raise BrowserError(f"no answer in {DEADLINE} s")
            data = os.read(self.inp, 1 << 20)
            if not data:
                raise BrowserError("the browser has ended")
            self.buffer += data
        line, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(line)

    def note(self, event):
        """Keeps errors of the console, exceptions, and addresses that were requested."""
        self.keep(event)
        self.errors = [error for error in self.errors if not re.search(self.expected, error)]

    def keep(self, event):
        method, params = event.get("method"), event.get("params", {})
        if method == "Runtime.exceptionThrown":
            details = params["exceptionDetails"]
            self.errors.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Log.entryAdded" and params["entry"]["level"] in ("error", "warning"):
            self.errors.append(params["entry"]["text"])
        elif method == "Runtime.consoleAPICalled" and params["type"] in ("error", "warning", "assert"):
            self.errors.append(str([one.get("value") for one in params["args"]]))
        elif method == "Network.requestWillBeSent":
            self.requests.append(params["request"]["url"])

    def run(self, script):
        """The value of an expression in the page; waits if it is a promise."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            details = result["exceptionDetails"]
            raise BrowserError(details.get("exception", {}).get("description", details["text"]))
        return result["result"].get("value")

    def open(self, path, fragment=""):
        """Loads a page; returns after it has set data-ready, or failed to."""
        self.visit(pathlib.Path(path).resolve().as_uri() + fragment)

    def visit(self, url):
        """The same by an address."""
        self.errors.clear()
        self.requests.clear()
        self.call("Page.navigate", url="about:blank")
        self.call("Page.navigate", url=url)
        self.until("document.readyState === 'complete' && document.body.dataset.ready > 0")

    def until(self, condition, seconds=60):
        """Waits until a condition holds in the page."""
        end = time.monotonic() + seconds
        while not self.run(condition):
            if time.monotonic() > end or self.errors:
                raise BrowserError(f"{condition} does not hold; errors: {self.errors}")
            time.sleep(0.05)

    def key(self, key):
        text = {"text": key} if len(key) == 1 else {}
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, **text)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key)

    def mouse(self, kind, x, y):
        pressed = {"button": "left", "buttons": 1, "clickCount": 1} if kind != "mouseReleased" else {
            "button": "left", "clickCount": 1}
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **pressed)

    def click(self, x, y):
        self.mouse("mousePressed", x, y)
        self.mouse("mouseReleased", x, y)

    def screenshot(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))
