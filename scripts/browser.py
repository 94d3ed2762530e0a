"""A headless Chromium that is told what to do over WebDriver, for tests and screenshots."""
import base64
import json
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

CHROMIUM_ARGUMENTS = [
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync"]


def missing(*others):
    """Which programs are not installed, these or those that the browser needs; or an empty text."""
    tools = ("chromium", "chromedriver", *others)
    return ", ".join(tool for tool in tools if shutil.which(tool) is None)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, seconds=15):
    """What the condition gave when it was true; its last answer fails with the wait."""
    end = time.monotonic() + seconds
    while not (found := condition()):
        assert time.monotonic() < end, f"after {seconds} s still {found!r}"
        time.sleep(0.1)
    return found


class Browser:
    """Use in a `with`."""

    def __init__(self, width=1440, height=1000):
        self._folder = tempfile.TemporaryDirectory()
        self._size = f"--window-size={width},{height}"

    def __enter__(self):
        port = free_port()
        self._url = f"http://127.0.0.1:{port}"
        self._driver = subprocess.Popen(["chromedriver", f"--port={port}"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            wait_until(self._ready)
            arguments = [*CHROMIUM_ARGUMENTS, self._size, f"--user-data-dir={self._folder.name}"]
            session = self._call("POST", "/session", {"capabilities": {"alwaysMatch": {
                "goog:chromeOptions": {"args": arguments},
                "goog:loggingPrefs": {"browser": "ALL"}}}})
            self._url += "/session/" + session["sessionId"]
        except BaseException:
            self._stop()
            raise
        return self

    def __exit__(self, *_):
        try:
            self._call("DELETE", "")
        finally:
            self._stop()

    def _stop(self):
        self._driver.terminate()
        self._driver.wait()
        self._folder.cleanup()

    def _ready(self):
        try:
            return self._call("GET", "/status")["ready"]
        except urllib.error.URLError:
            return False

    def _call(self, method, path, body=None):
        request = urllib.request.Request(
            self._url + path, method=method, headers={"Content-Type": "application/json"},
            data=None if body is None else json.dumps(body).encode())
        with urllib.request.urlopen(request, timeout=60) as answer:
            return json.load(answer)["value"]

    def open(self, url):
        self._call("POST", "/url", {"url": url})

    def run(self, script, *arguments):
        """The value of a JavaScript function's body."""
        return self._call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def console(self):
        """Messages of the console since the last call, but for those of the browser's own pages."""
        return [entry["message"] for entry in self._call("POST", "/se/log", {"type": "browser"})
                if not entry["message"].startswith("chrome://")]

    def emulate(self, width, height, scale=1, dark=False):
        """A screen of another size, and light or dark."""
        self._devtools("Emulation.setDeviceMetricsOverride", width=width, height=height,
                       deviceScaleFactor=scale, mobile=False)
        self._devtools("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def _devtools(self, command, **parameters):
        self._call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self._call("GET", "/screenshot")))
