#!/usr/bin/env python3
"""The web server, asked over sockets, and its page in a headless Chromium.

usage: page_test.py PATH-OF-CORVANE-MONITOR [TESTS...]
"""
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

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "scripts"))
from browser import Browser, free_port, missing, wait_until  # noqa: E402

PROGRAM = sys.argv.pop(1)
HOSTILE = "<img src=x onerror=\"window.hit=1\">'&amp;\x01\u202e"


class Monitor:
    """The program with --listen. Use in a `with`."""

    def __init__(self, *arguments, address="127.0.0.1:0", files=None):
        self._command = [PROGRAM, "--listen", address, *arguments, "1"]
        self._files = files

    def __enter__(self):
        limit = self._files and (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, self._files))
        self._process = subprocess.Popen(self._command, stderr=subprocess.PIPE, text=True,
                                         preexec_fn=limit)
        self.told = ""
        while not (place := re.search(r"page on (https?)://(.*):(\d+)/,", self.told)):
            line = self._process.stderr.readline()
            assert line, self.told
            self.told += line
        self.scheme, self.host, self.port = place[1], place[2].strip("[]"), int(place[3])
        return self

    def __exit__(self, *_):
        self._process.terminate()
        errors = self._process.communicate()[1]
        assert self._process.returncode == 0, errors

    def ask(self, path, method="GET", headers=None):
        """Status, headers and body."""
        if self.scheme == "https":
            connection = http.client.HTTPSConnection(
                self.host, self.port, timeout=10, context=ssl._create_unverified_context())
        else:
            connection = http.client.HTTPConnection(self.host, self.port, timeout=10)
        connection.request(method, path, headers=headers or {})
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer.status, answer.headers, body

    def measured(self):
        return self.ask("/report.json")[0] == 200


class Server(unittest.TestCase):
    def test_paths(self):
        with Monitor() as monitor:
            self.assertIn(b"\ncorvane_up 0\n", monitor.ask("/metrics")[2])
            self.assertEqual(monitor.ask("/report.json")[0], 503)
            wait_until(monitor.measured)
            self.assertIn(b"\ncorvane_up 1\n", monitor.ask("/metrics")[2])
            for path, status, kind in (
                    ("/", 200, "text/html; charset=utf-8"), ("/page.js", 200, "text/javascript; charset=utf-8"),
                    ("/metrics", 200, "text/plain; version=0.0.4; charset=utf-8"),
                    ("/report.json", 200, "application/json"), ("/history.json", 200, "application/json"),
                    ("/-/healthy", 200, "text/plain; charset=utf-8"), ("/%2e%2e/etc", 404, "text/plain; charset=utf-8")):
                for method in "GET", "HEAD":
                    found, headers, body = monitor.ask(path, method)
                    self.assertEqual((found, headers["Content-Type"], bool(body)), (status, kind, method == "GET"), path)
                    self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
            found, headers, _ = monitor.ask("/metrics", "POST")
            self.assertEqual((found, headers["Allow"]), (405, "GET, HEAD"))
            tag = monitor.ask("/page.js")[1]["ETag"]
            self.assertEqual(monitor.ask("/page.js", headers={"If-None-Match": tag})[0], 304)
            history = wait_until(lambda: (h := json.loads(monitor.ask("/history.json")[2]))["time"][2:] and h)
            for column in (history["memory"]["used_mib"], history["cpu"]["limit_percent"]):
                self.assertEqual(len(column), len(history["time"]))
            later = json.loads(monitor.ask(f"/history.json?since={history['time'][0]}")[2])
            self.assertEqual(later["time"][:2], history["time"][1:3])

    def test_addresses(self):
        for address in ("19503,127.0.0.1:19504", "999.1.1.1:19511", "localhost:9464", "127.1:9464", "::1:9464",
                        "[::1]", "[127.0.0.1]:9464", "127.0.0.1:65536", ":-1", ""):
            found = subprocess.run([PROGRAM, "--listen", address, "1"], capture_output=True, text=True, timeout=10)
            self.assertEqual((found.returncode, found.stderr.count("\n")), (2, 1), address)
        with Monitor(address="0") as monitor:
            self.assertEqual(monitor.host, "127.0.0.1")
            found = subprocess.run([PROGRAM, "--listen", str(monitor.port)], capture_output=True, text=True, timeout=10)
            self.assertEqual((found.returncode, found.stderr), (1,
                f"corvane-monitor: cannot listen on 127.0.0.1:{monitor.port}: Address already in use\n"))
        if socket.has_ipv6 and os.path.exists("/proc/net/if_inet6"):
            for address in "[::1]:0", "[::]:0":
                with Monitor(address=address) as monitor:
                    self.assertEqual((f"[{monitor.host}]:0", monitor.ask("/-/healthy")[0]), (address, 200))

    def test_tls_and_password(self):
        with tempfile.TemporaryDirectory() as folder:
            certificate, key, users = (os.path.join(folder, name) for name in ("cert", "key", "users"))
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=test",
                            "-out", certificate, "-keyout", key], check=True, capture_output=True)
            made = subprocess.run(["openssl", "passwd", "-6", "secret"], check=True, capture_output=True, text=True)
            with open(users, "w", encoding="ascii") as file:
                file.write("# readers\nadmin:" + made.stdout)
            with Monitor("--tls-cert", certificate, "--tls-key", key, "--web-password-file", users) as monitor:
                self.assertEqual((monitor.scheme, monitor.ask("/-/healthy")[0]), ("https", 200))
                for credentials, status in ((None, 401), ("YWRtaW46c2VjcmV0", 200), ("YWRtaW46c2VjcmU=", 401),
                                            ("b3RoZXI6c2VjcmV0", 401), ("YWRtaW46c2VjcmV0", 200), ("!", 401)):
                    header = {"Authorization": f"Basic {credentials}"} if credentials else {}
                    self.assertEqual(monitor.ask("/metrics", headers=header)[0], status, credentials)
            for arguments, status, reason in (
                    (["--tls-cert", certificate], 2, "--tls-key"),
                    (["--tls-cert", certificate, "--tls-key", users], 1, "the key " + users),
                    (["--tls-cert", "/none", "--tls-key", key], 1, "/none: No such file"),
                    (["--web-password-file", certificate], 1, "line 1: not USER:HASH"),
                    (["--web-password-file", "/"], 1, "/: Is a directory")):
                found = subprocess.run([PROGRAM, "--listen", "0", *arguments], capture_output=True, text=True, timeout=10)
                self.assertEqual((found.returncode, found.stderr.count("\n")), (status, 1), found.stderr)
                self.assertIn(reason, found.stderr)

    def test_clients_that_hold_on(self):
        with Monitor(files=(20, 20)) as monitor:
            wait_until(monitor.measured)
            clients = [socket.create_connection((monitor.host, monitor.port)) for _ in range(60)]
            for client in clients[::2]:
                client.sendall(b"GET /dygraph.js HTTP/1.1\r\nHost: x\r\n\r\n" * 100)
            begin = time.monotonic()
            for _ in range(3):
                self.assertEqual(monitor.ask("/metrics")[0], 200)
                self.assertEqual(json.loads(monitor.ask("/report.json")[2])["failed"], [])
                time.sleep(1)
            self.assertLess(time.monotonic() - begin, 6)
            for client in clients:
                client.close()


@unittest.skipIf(missing(), f"not installed: {missing()}")
class Page(unittest.TestCase):
    def test_page(self):
        busy = subprocess.Popen([sys.executable, "-c", "while True: pass"])
        idle = subprocess.Popen(["sleep", "1000"])
        self.addCleanup(lambda: [(child.kill(), child.wait()) for child in (busy, idle)])
        folder = self.enterContext(tempfile.TemporaryDirectory())
        os.mkdir(os.path.join(folder, HOSTILE))
        arguments = ("--pid", str(busy.pid), "--pid", str(idle.pid), "--dir", os.path.join(folder, HOSTILE))
        address = f"127.0.0.1:{free_port()}"
        browser = self.enterContext(Browser())

        def state(name):
            return lambda: browser.run("return document.getElementById('state').dataset.state") == name

        def height(pid):
            """How far up, of 1, the line of a process goes in its plot."""
            return browser.run("""
                const canvas = document.querySelector(`[data-panel="process ${arguments[0]}"] canvas`);
                const {data, width, height} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
                for (let y = 0; y < height; ++y)
                    for (let x = width >> 1; x < width; ++x)
                        if (data[4 * (y * width + x) + 3] > 250 && data[4 * (y * width + x) + 2] > 100) return 1 - y / height;
                return 0;""", pid)
        with Monitor(*arguments, address=address) as monitor:
            wait_until(monitor.measured)
            time.sleep(4)
            browser.open(f"http://{address}/")
            wait_until(state("live"))
            values = browser.run("return document.querySelector(`[data-panel='process ${arguments[0]}'] dd`).innerText", busy.pid)
            self.assertGreater(int(values.split()[0]), 20)  # of the core; others may want it, too
            self.assertGreater(height(busy.pid), height(idle.pid) + 0.15)
            text = browser.run("return document.body.innerText")
            self.assertIn(HOSTILE[:-2] + r"\u{1}\u{202e}", text)
            self.assertEqual(browser.run("return [document.images.length, window.hit ?? 0]"), [0, 0])
            browser.emulate(360, 700)
            self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 360)
            self.assertEqual(browser.console(), [])
        wait_until(state("silent"))
        with Monitor(*arguments, address=address):
            wait_until(state("live"))


if __name__ == "__main__":
    outcome = unittest.main(exit=False, verbosity=2).result
    for test, reason in outcome.skipped:
        print(f"skipped: {test}: {reason}")
    sys.exit(not outcome.wasSuccessful() or (77 if len(outcome.skipped) == outcome.testsRun else 0))
