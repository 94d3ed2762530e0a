#!/usr/bin/env python3
"""The web server, asked over sockets, and its page in a headless Chromium.

Usage: page_test.py PATH-OF-CORVANE-MONITOR [CLASS[.TEST]...]
Exits with 77 when everything was skipped.
"""
import base64
import json
import os
import resource
import signal
import socket
import subprocess
import sys
import time
import unittest

from program_test import ProgramTest, main

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts"))
from browser import Browser, free_port, missing  # noqa: E402

HOSTILE = "<img src=x onerror=\"window.hit=1\">'&amp;\x01\u202e"
HOSTILE_SHOWN = HOSTILE[:-2] + r"\u{1}\u{202e}"
TEXT, JSON = "text/plain; charset=utf-8", "application/json"


class Server(ProgramTest):
    def json(self, process, path):
        return json.loads(self.ask(process, path)[2])

    def assert_refused(self, status, reason, *arguments):
        """The program ends, with a line that says why."""
        errors = self.run_program(*arguments, status=status)[1]
        self.assertEqual(1, errors.count("\n"))
        self.assertIn(reason, errors)

    def test_paths(self):
        monitor = self.listen()
        self.assertIn(b"\ncorvane_up 0\n", self.ask(monitor, "/metrics")[2])
        self.assertEqual(503, self.ask(monitor, "/report.json")[0])
        self.until_measured(monitor)
        self.assertIn(b"\ncorvane_up 1\n", self.ask(monitor, "/metrics")[2])
        for path, status, kind in (
                ("/", 200, "text/html; charset=utf-8"), ("/-/healthy", 200, TEXT),
                ("/page.js", 200, "text/javascript; charset=utf-8"),
                ("/metrics", 200, "text/plain; version=0.0.4; charset=utf-8"),
                ("/report.json", 200, JSON), ("/history.json", 200, JSON),
                ("/%2e%2e/etc/passwd", 404, TEXT)):
            for method in "GET", "HEAD":
                found, headers, body = self.ask(monitor, path, method)
                self.assertEqual((status, kind, method == "GET"),
                                 (found, headers["Content-Type"], bool(body)), path)
                self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
        found, headers, _ = self.ask(monitor, "/metrics", "POST")
        self.assertEqual((405, "GET, HEAD"), (found, headers["Allow"]))
        tag = self.ask(monitor, "/page.js")[1]["ETag"]
        self.assertEqual(304, self.ask(monitor, "/page.js", If_None_Match=tag)[0])
        self.until(lambda: len(self.json(monitor, "/history.json")["time"]) > 2, "a history")
        history = self.json(monitor, "/history.json")
        self.assertEqual(len(history["memory"]["used_mib"]), len(history["time"]))
        later = self.json(monitor, f"/history.json?since={history['time'][0]}")
        self.assertEqual(later["time"][:2], history["time"][1:3])
        self.ends(monitor, signal.SIGTERM)

    def test_addresses(self):
        for address in ("19503,127.0.0.1:19504", "999.1.1.1:19511", "localhost:9464", "127.1:9464",
                        "::1:9464", "[::1]", "[127.0.0.1]:9464", "127.0.0.1:65536", ":-1", ""):
            self.assert_refused(2, "not one address", "--listen", address)
        place = self.listen(address="0").address
        self.assertRegex(place, r"^127\.0\.0\.1:\d+$")
        self.assert_refused(1, f"cannot listen on {place}: Address already in use",
                            "--listen", place)
        for host in ("[::1]", "[::]") if os.path.exists("/proc/net/if_inet6") else ():
            monitor = self.listen(address=host + ":0")
            self.assertEqual((host, 200), (monitor.host, self.ask(monitor, "/-/healthy")[0]))

    def test_tls_and_password(self):
        cert, key, users = (self.path(name) for name in ("cert", "key", "users"))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                        "/CN=test", "-out", cert, "-keyout", key], check=True, capture_output=True)
        made = subprocess.check_output(["openssl", "passwd", "-6", "secret"], text=True)
        with open(users, "w", encoding="ascii") as file:
            file.write("# readers\n\nadmin:" + made)
        monitor = self.listen("--tls-cert", cert, "--tls-key", key, "--web-password-file", users)
        self.assertEqual(("https", 200), (monitor.scheme, self.ask(monitor, "/-/healthy")[0]))
        self.assertEqual(401, self.ask(monitor, "/metrics")[0])
        for credentials, status in (
                ("admin:secret", 200), ("admin:secrets", 401), ("other:secret", 401),
                ("admin:secret", 200), ("admin:", 401), ("admin", 401)):
            basic = "Basic " + base64.b64encode(credentials.encode()).decode()
            self.assertEqual(status, self.ask(monitor, "/metrics", Authorization=basic)[0])
        for status, reason, *arguments in (
                (2, "--tls-key", "--tls-cert", cert),
                (1, "the key " + users, "--tls-cert", cert, "--tls-key", users),
                (1, "/none: No such file", "--tls-cert", "/none", "--tls-key", key),
                (1, "line 1: not USER:HASH", "--web-password-file", cert),
                (1, "/: Is a directory", "--web-password-file", "/")):
            self.assert_refused(status, reason, "--listen", "0", *arguments)

    def test_clients_that_hold_on(self):
        monitor = self.listen(
            "--interface", "lo", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (20, 20)))
        self.until_measured(monitor)
        clients = [socket.create_connection(monitor.address.split(":")) for _ in range(60)]
        for client in clients[::2]:
            client.sendall(b"GET /dygraph.js HTTP/1.1\r\nHost: x\r\n\r\n" * 100)
        for _ in range(3):
            begin = time.monotonic()
            self.assertEqual(200, self.ask(monitor, "/metrics")[0])
            self.assertLess(time.monotonic() - begin, 2)
            self.assertEqual([], self.json(monitor, "/report.json")["failed"])
            time.sleep(1)
        for client in clients:
            client.close()
        self.ends(monitor, signal.SIGTERM)


@unittest.skipIf(missing(), f"not installed: {missing()}")
class Page(ProgramTest):
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
        busy = self.spawn(sys.executable, "-c", "while True: pass")
        idle = self.spawn("sleep", "1000")
        directory = self.path(HOSTILE)
        os.mkdir(directory)
        arguments = ("--pid", f"{busy.pid},{idle.pid}", "--dir", directory)
        address = f"127.0.0.1:{free_port()}"
        browser = self.enterContext(Browser())

        def until(state):
            script = "return document.getElementById('state').dataset.state"
            self.until(lambda: browser.run(script) == state, state)

        monitor = self.listen(*arguments, address=address)
        self.until_measured(monitor)
        time.sleep(4)
        browser.open(f"http://{address}/")
        until("live")
        # Others may want the core, too.
        self.assertGreater(browser.run(self.HEIGHT, busy.pid),
                           browser.run(self.HEIGHT, idle.pid) + 0.05)
        self.assertIn(HOSTILE_SHOWN, browser.run("return document.body.innerText"))
        self.assertEqual([0, None], browser.run("return [document.images.length, window.hit]"))
        browser.emulate(360, 700)
        self.assertLessEqual(browser.run("return document.body.scrollWidth"), 360)
        self.assertEqual(browser.console(), [])
        self.ends(monitor, signal.SIGTERM)
        until("silent")
        self.listen(*arguments, address=address)
        until("live")


if __name__ == "__main__":
    main()
