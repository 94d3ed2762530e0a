#!/usr/bin/env python3
"""The web server, asked over sockets, and its page in a headless Chromium.

Usage: page_test.py PATH-OF-CORVANE-MONITOR [CLASS[.TEST]...]
Exits with 77 when everything was skipped.
"""
import base64
import http.client
import json
import os
import re
import resource
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts"))
from browser import Browser, free_port, missing, wait_until  # noqa: E402

PROGRAM = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 else sys.exit(__doc__)
HOSTILE = "<img src=x onerror=\"window.hit=1\">'&amp;\x01\u202e"
HOSTILE_SHOWN = HOSTILE[:-2] + r"\u{1}\u{202e}"
TEXT, JSON = "text/plain; charset=utf-8", "application/json"


class Monitor:
    """The program with --listen. Use in a `with`; it has to end well."""

    def __init__(self, *arguments, address="127.0.0.1:0", files=None):
        self._command = [PROGRAM, "--listen", address, *arguments, "1"]
        self._limit = files and (
            lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (files, files)))

    def __enter__(self):
        self._process = subprocess.Popen(self._command, stderr=subprocess.PIPE, text=True,
                                         preexec_fn=self._limit)
        told = ""
        while not (place := re.search(r"page on (https?)://(.*):(\d+)/,", told)):
            line = self._process.stderr.readline()
            assert line, told
            told += line
        self.scheme, self.host, self.port = place[1], place[2], int(place[3])
        return self

    def __exit__(self, *_):
        self._process.terminate()
        errors = self._process.communicate()[1]
        assert self._process.returncode == 0, errors

    def ask(self, path, method="GET", **headers):
        """Status, headers and body."""
        place = (self.host.strip("[]"), self.port)
        if self.scheme == "https":
            connection = http.client.HTTPSConnection(
                *place, timeout=10, context=ssl._create_unverified_context())
        else:
            connection = http.client.HTTPConnection(*place, timeout=10)
        with_dashes = {name.replace("_", "-"): value for name, value in headers.items()}
        connection.request(method, path, headers=with_dashes)
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer.status, answer.headers, body

    def json(self, path):
        return json.loads(self.ask(path)[2])

    def is_measured(self):
        return self.ask("/report.json")[0] == 200


class Server(unittest.TestCase):
    def assert_refused(self, status, reason, *arguments):
        """The program ends, with a line that says why."""
        found = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=10)
        self.assertEqual((found.returncode, found.stderr.count("\n")), (status, 1), arguments)
        self.assertIn(reason, found.stderr)

    def test_paths(self):
        with Monitor() as monitor:
            self.assertIn(b"\ncorvane_up 0\n", monitor.ask("/metrics")[2])
            self.assertEqual(monitor.ask("/report.json")[0], 503)
            wait_until(monitor.is_measured)
            self.assertIn(b"\ncorvane_up 1\n", monitor.ask("/metrics")[2])
            for path, status, kind in (
                    ("/", 200, "text/html; charset=utf-8"), ("/-/healthy", 200, TEXT),
                    ("/page.js", 200, "text/javascript; charset=utf-8"),
                    ("/metrics", 200, "text/plain; version=0.0.4; charset=utf-8"),
                    ("/report.json", 200, JSON), ("/history.json", 200, JSON),
                    ("/%2e%2e/etc/passwd", 404, TEXT)):
                for method in "GET", "HEAD":
                    found, headers, body = monitor.ask(path, method)
                    self.assertEqual((found, headers["Content-Type"], bool(body)),
                                     (status, kind, method == "GET"), path)
                    self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
            found, headers, _ = monitor.ask("/metrics", "POST")
            self.assertEqual((found, headers["Allow"]), (405, "GET, HEAD"))
            tag = monitor.ask("/page.js")[1]["ETag"]
            self.assertEqual(monitor.ask("/page.js", If_None_Match=tag)[0], 304)
            wait_until(lambda: len(monitor.json("/history.json")["time"]) > 2)
            history = monitor.json("/history.json")
            self.assertEqual(len(history["memory"]["used_mib"]), len(history["time"]))
            later = monitor.json(f"/history.json?since={history['time'][0]}")
            self.assertEqual(later["time"][:2], history["time"][1:3])

    def test_addresses(self):
        for address in ("19503,127.0.0.1:19504", "999.1.1.1:19511", "localhost:9464", "127.1:9464",
                        "::1:9464", "[::1]", "[127.0.0.1]:9464", "127.0.0.1:65536", ":-1", ""):
            self.assert_refused(2, "not one address", "--listen", address)
        with Monitor(address="0") as monitor:
            self.assertEqual(monitor.host, "127.0.0.1")
            place = f"127.0.0.1:{monitor.port}"
            self.assert_refused(1, f"cannot listen on {place}: Address already in use",
                                "--listen", place)
        for host in ("[::1]", "[::]") if os.path.exists("/proc/net/if_inet6") else ():
            with Monitor(address=host + ":0") as monitor:
                self.assertEqual((monitor.host, monitor.ask("/-/healthy")[0]), (host, 200))

    def test_tls_and_password(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        cert, key, users = (os.path.join(folder, name) for name in ("cert", "key", "users"))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                        "/CN=test", "-out", cert, "-keyout", key], check=True, capture_output=True)
        made = subprocess.check_output(["openssl", "passwd", "-6", "secret"], text=True)
        with open(users, "w", encoding="ascii") as file:
            file.write("# readers\n\nadmin:" + made)
        with Monitor("--tls-cert", cert, "--tls-key", key, "--web-password-file",
                     users) as monitor:
            self.assertEqual((monitor.scheme, monitor.ask("/-/healthy")[0]), ("https", 200))
            self.assertEqual(monitor.ask("/metrics")[0], 401)
            for credentials, status in (
                    ("admin:secret", 200), ("admin:secrets", 401), ("other:secret", 401),
                    ("admin:secret", 200), ("admin:", 401), ("admin", 401)):
                basic = "Basic " + base64.b64encode(credentials.encode()).decode()
                self.assertEqual(monitor.ask("/metrics", Authorization=basic)[0], status)
        for status, reason, *arguments in (
                (2, "--tls-key", "--tls-cert", cert),
                (1, "the key " + users, "--tls-cert", cert, "--tls-key", users),
                (1, "/none: No such file", "--tls-cert", "/none", "--tls-key", key),
                (1, "line 1: not USER:HASH", "--web-password-file", cert),
                (1, "/: Is a directory", "--web-password-file", "/")):
            self.assert_refused(status, reason, "--listen", "0", *arguments)

    def test_clients_that_hold_on(self):
        with Monitor("--interface", "lo", files=20) as monitor:
            wait_until(monitor.is_measured)
            clients = [socket.create_connection((monitor.host, monitor.port)) for _ in range(60)]
            for client in clients[::2]:
                client.sendall(b"GET /dygraph.js HTTP/1.1\r\nHost: x\r\n\r\n" * 100)
            for _ in range(3):
                begin = time.monotonic()
                self.assertEqual(monitor.ask("/metrics")[0], 200)
                self.assertLess(time.monotonic() - begin, 2)
                self.assertEqual(monitor.json("/report.json")["failed"], [])
                time.sleep(1)
            for client in clients:
                client.close()


@unittest.skipIf(missing(), f"not installed: {missing()}")
class Page(unittest.TestCase):
    # How far up, of 1, the lines go in the right half of the plot of a process.
    HEIGHT = """
        const canvas = document.querySelector(`[data-panel="process ${arguments[0]}"] canvas`);
        const {width, height} = canvas;
        const {data} = canvas.getContext('2d').getImageData(0, 0, width, height);
        for (let y = 0; y < height; ++y)
            for (let x = width >> 1; x < width; ++x) {
                const [blue, alpha] = data.slice(4 * (y * width + x) + 2);
                if (alpha > 250 && blue > 100) return 1 - y / height;
            }
        return 0;"""

    def test_page(self):
        busy = subprocess.Popen([sys.executable, "-c", "while True: pass"])
        idle = subprocess.Popen(["sleep", "1000"])
        self.addCleanup(lambda: [(child.kill(), child.wait()) for child in (busy, idle)])
        directory = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), HOSTILE)
        os.mkdir(directory)
        arguments = ("--pid", f"{busy.pid},{idle.pid}", "--dir", directory)
        address = f"127.0.0.1:{free_port()}"
        browser = self.enterContext(Browser())

        def state(name):
            script = "return document.getElementById('state').dataset.state"
            return lambda: browser.run(script) == name

        with Monitor(*arguments, address=address) as monitor:
            wait_until(monitor.is_measured)
            time.sleep(4)
            browser.open(f"http://{address}/")
            wait_until(state("live"))
            # Others may want the core, too.
            self.assertGreater(browser.run(self.HEIGHT, busy.pid),
                               browser.run(self.HEIGHT, idle.pid) + 0.05)
            self.assertIn(HOSTILE_SHOWN, browser.run("return document.body.innerText"))
            self.assertEqual([0, None], browser.run("return [document.images.length, window.hit]"))
            browser.emulate(360, 700)
            self.assertLessEqual(browser.run("return document.body.scrollWidth"), 360)
            self.assertEqual(browser.console(), [])
        wait_until(state("silent"))
        with Monitor(*arguments, address=address):
            wait_until(state("live"))


if __name__ == "__main__":
    outcome = unittest.main(exit=False, verbosity=2).result
    for test, reason in outcome.skipped:
        print(f"skipped: {test}: {reason}")
    sys.exit(not outcome.wasSuccessful() or (77 if len(outcome.skipped) == outcome.testsRun else 0))
