#!/usr/bin/env python3
"""The dashboards, rules and alerts in a real Prometheus that scrapes real programs.

    tests/fleet_test.py PATH-OF-CORVANE-MONITOR
"""
import contextlib
import http.client
import itertools
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

CONTRIB = pathlib.Path(__file__).resolve().parent.parent / "contrib"


def dashboards():
    """Each dashboard with all the objects in it."""
    for path in ("fleet.json", "machine.json"):
        nodes = []
        text = (CONTRIB / "grafana" / path).read_text()
        yield json.loads(text, object_hook=lambda node: nodes.append(node) or node), nodes


def in_expression(value):
    """One of several values, as Grafana puts it into a regular expression in quotes."""
    return re.sub(r"[$^*{}\[\]'+?.()|]", r"\\\\\g<0>", value.replace("\\", "\\" * 4))


class FleetTest(unittest.TestCase):
    @classmethod
    def start(cls, told, *arguments):
        """Starts a program and waits for what it tells on standard error."""
        child = subprocess.Popen(arguments, stderr=subprocess.PIPE, text=True, cwd=cls.folder)
        cls.addClassCleanup(child.communicate)
        cls.addClassCleanup(child.kill)
        texts = itertools.accumulate(child.stderr)
        return next(found[1] for text in texts if (found := re.search(told, text, re.DOTALL)))

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        shutil.copytree(CONTRIB / "prometheus", cls.folder, dirs_exist_ok=True)
        for name in ("scrape.yml", "alerting_rules.yml"):  # in seconds what takes minutes
            text = (cls.folder / name).read_text()
            (cls.folder / name).write_text(re.sub("(interval|timeout|for): .*", r"\1: 1s", text))
        odd = cls.folder / "an 'odd' (name)+c.d"
        odd.mkdir()
        dead = socket.socket()  # taken, and nobody listens
        cls.addClassCleanup(dead.close)
        dead.bind(("127.0.0.1", 0))
        cls.dead = "127.0.0.1:%d" % dead.getsockname()[1]
        process = str(os.getpid())
        full = [f"--dir={odd}", "--dir=/", "--dir=/dev/shm", "--unit=gone.service", "--pid", process]
        targets = [cls.start(r"http://([^/\s]+)", sys.argv[1], "--listen=127.0.0.1:0", *options, "1")
                   for options in (full, ["--compatible", "--no-cores"], [])]
        (cls.folder / "targets.yml").write_text(json.dumps([{"targets": [*targets, cls.dead]}]))
        cls.one = {"instance": targets[0], "process": process, "directory": str(odd)}
        cls.server = cls.start(
            r'Listening on" address=(\S+).*Server is ready', "prometheus",
            "--config.file=scrape.yml", "--storage.tsdb.path=data",
            "--web.listen-address=127.0.0.1:0")

    def ask(self, what, **parameters):
        connection = http.client.HTTPConnection(self.server, timeout=10)
        connection.request("GET", f"/api/v1/{what}?{urllib.parse.urlencode(parameters)}")
        with contextlib.closing(connection), connection.getresponse() as response:
            answer = json.load(response)
        self.assertEqual("success", answer["status"], (parameters, answer))
        return answer["data"]

    def check_answered(self, *expressions):
        """Each gives series, and so does each metric that it names, within 15 s."""
        missing = {*expressions, *re.findall(r"[\w:]*corvane_[\w:]+", " ".join(expressions))}
        end = time.monotonic() + 15
        while missing and time.monotonic() < end:
            missing = {text for text in missing if not self.ask("query", query=text)["result"]}
            time.sleep(0.3)
        self.assertEqual(set(), missing, "no series")

    def test_dashboards(self):
        for dashboard, nodes in dashboards():
            every, one = ({"__rate_interval": "10s", "__range": "60s"} for _ in range(2))
            fill = lambda text, values: re.sub(r"\$(\w+)", lambda name: values[name[1]], text)
            for variable in dashboard["templating"]["list"][1:]:
                definition = re.fullmatch(r"label_values\((.*), (\w+)\)", variable["definition"])
                series, label = fill(definition[1], every), definition[2]
                self.check_answered(series)
                values = self.ask(f"label/{label}/values", **{"match[]": series})
                value = self.one[label] if self.one.get(label) in values else values[0]
                every[label] = variable["allValue"] if variable.get("multi") else value
                one[label] = in_expression(value) if variable.get("multi") else value
            expressions = [node["expr"] for node in nodes if "expr" in node]
            self.check_answered(*[fill(text, values) for text in expressions for values in (every, one)])

    def test_rules(self):
        """With comparisons that drop nothing: they keep the alerts of a healthy fleet quiet."""
        rules = [rule["query"] for group in self.ask("rules")["groups"] for rule in group["rules"]]
        self.assertGreater(len(rules), 15)
        rules = "\n".join(rules).replace("absent(", "count(")
        self.check_answered(*re.sub(" ([=!<>]=|[<>]) ", r" \1 bool ", rules).split("\n"))

    def test_alerts(self):
        """A directory without a disk and a process that does not run fail nothing."""
        self.check_answered('ALERTS{alertname="CorvaneInstanceDown", instance="%s"}' % self.dead,
                            'ALERTS{alertname=~".*NotRunning", process="gone.service"}')
        self.check_answered('absent(ALERTS{alertname=~".*(Failing|Stale|Targets|Restarting)"})')

    def test_files(self):
        """promtool's opinion, and what Grafana would stumble over."""
        for command in ("promtool check config --lint=all --lint-fatal prometheus/scrape.yml",
                        "promtool check config --lint=all --lint-fatal prometheus/scrape_dns.yml",
                        "promtool check config --syntax-only prometheus/scrape_tls.yml",
                        "promtool test rules prometheus/rules_test.yml",
                        "grafana/tidy --check grafana/fleet.json grafana/machine.json"):
            ran = subprocess.run(command.split(), cwd=CONTRIB, capture_output=True, text=True)
            self.assertEqual(0, ran.returncode, ran.stdout + ran.stderr)
        for dashboard, _ in dashboards():
            places = [(grid["x"] + x, grid["y"] + y)
                      for grid in (panel["gridPos"] for panel in dashboard["panels"])
                      for x in range(grid["w"]) for y in range(grid["h"])]
            self.assertEqual(len(places), len({place for place in places if place[0] < 24}))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
