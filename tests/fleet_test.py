#!/usr/bin/env python3
"""The dashboards, rules and alerts in a real Prometheus that scrapes real programs.

    tests/fleet_test.py PATH-OF-CORVANE-MONITOR
"""
import http.client
import itertools
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

PROGRAM = os.path.abspath(sys.argv[1])
CONTRIB = pathlib.Path(__file__).resolve().parent.parent / "contrib"
LOAD_OF_DISKS = "corvane_directory_(busy|operations)"


def dashboards():
    """Each dashboard with all the objects in it."""
    for path in ("fleet.json", "machine.json"):
        nodes = []
        text = (CONTRIB / "grafana" / path).read_text()
        yield json.loads(text, object_hook=lambda node: nodes.append(node) or node), nodes


class FleetTest(unittest.TestCase):
    disk = True
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
        for parent in None, ".":  # the first may be in memory
            cls.folder = pathlib.Path(tempfile.mkdtemp(dir=parent)).resolve()
            cls.addClassCleanup(shutil.rmtree, cls.folder)
            report = subprocess.check_output([PROGRAM, f"--dir={cls.folder}", "--format=json"])
            cls.disk = json.loads(report)["directories"][0]["busy_percent"] is not None
            if cls.disk:
                break
        shutil.copytree(CONTRIB / "prometheus", cls.folder, dirs_exist_ok=True)
        for name in ("scrape.yml", "alerting_rules.yml"):  # in seconds what takes minutes
            text = (cls.folder / name).read_text()
            (cls.folder / name).write_text(re.sub("(interval|timeout|for): .*", r"\1: 1s", text))
        (odd := cls.folder / "an 'odd' (name)+c.d").mkdir()
        pid = str(os.getpid())
        full = [f"--dir={odd}", "--dir=/", "--dir=/dev/shm", f"--pid={pid}", "--pid-file=/gone",
                "--interface=lo"]  # which is everywhere
        targets = [cls.start(r"http://([^/\s]+)", PROGRAM, "--listen=127.0.0.1:0", *args, "1")
                   for args in (full, ["--compatible", "--no-cores"], [])]
        targets.append("127.0.0.1:1")  # nobody listens
        (cls.folder / "targets.yml").write_text(json.dumps([{"targets": targets}]))
        cls.one = {"instance": targets[0], "process": pid, "directory": str(odd)}
        cls.server = cls.start(r'Listening on" address=(\S+).*Server is ready', "prometheus",
                               "--storage.tsdb.path=data", "--config.file=scrape.yml",
                               "--web.listen-address=127.0.0.1:0")

    def ask(self, what, **parameters):
        connection = http.client.HTTPConnection(self.server, timeout=10)
        connection.request("GET", f"/api/v1/{what}?{urllib.parse.urlencode(parameters)}")
        answer = json.load(connection.getresponse())
        connection.close()
        self.assertEqual("success", answer["status"], (parameters, answer))
        return answer["data"]

    def check_answered(self, *expressions):
        """Each gives series, and so does each metric that it names, within 15 s."""
        if not self.disk:
            expressions = [text for text in expressions if not re.search(LOAD_OF_DISKS, text)]
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
                value = self.one.get(label)
                value = value or self.ask(f"label/{label}/values", **{"match[]": series})[0]
                every[label] = variable.get("allValue", value)
                one[label] = value  # and one of several as Grafana puts it into =~ "..."
                if "multi" in variable:
                    one[label] = re.sub(r"[$^*{}\[\]'+?.()|]", r"\\\\\g<0>", value)
            self.check_answered(*[fill(node["expr"], values) for node in nodes if "expr" in node
                                  for values in (every, one)])

    def test_rules(self):
        """With comparisons that drop nothing: they keep the alerts of a healthy fleet quiet."""
        rules = [rule["query"] for group in self.ask("rules")["groups"] for rule in group["rules"]]
        self.assertGreater(len(rules), 15)
        rules = "\n".join(rules).replace("absent(", "count(")
        self.check_answered(*re.sub(" ([=!<>]=|[<>]) ", r" \1 bool ", rules).split("\n"))

    def test_alerts(self):
        """A directory without a disk and a process that does not run fail nothing."""
        self.check_answered('ALERTS{alertname="CorvaneInstanceDown", instance="127.0.0.1:1"}',
                            'ALERTS{alertname=~".*NotRunning", process="/gone"}')
        # Not the compatible reading's, for which many machines have no interface and no disk.
        self.check_answered('absent(ALERTS{alertname=~".*(Failing|Stale|Targets|Restarting)", '
                            f'instance=~"|{self.one["instance"]}"}})')

    def test_files(self):
        """promtool's opinion, and what Grafana would stumble over."""
        for command in ("promtool check config --lint=all --lint-fatal scrape.yml scrape_dns.yml",
                        "promtool check config --syntax-only scrape_tls.yml",
                        "promtool test rules rules_test.yml",
                        "../grafana/tidy --check ../grafana/fleet.json ../grafana/machine.json"):
            ran = subprocess.run(command.split(), cwd=CONTRIB / "prometheus", text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertEqual(0, ran.returncode, ran.stdout)
        for dashboard, nodes in dashboards():
            numbers = [panel["id"] for panel in dashboard["panels"]]
            self.assertEqual(len(numbers), len(set(numbers)))
            for panel in (node for node in nodes if "targets" in node):
                columns = {f"Value #{target['refId']}" for target in panel["targets"]}
                self.assertLessEqual(set(re.findall(r"Value #\w", json.dumps(panel))), columns)
                self.assertEqual("${datasource}", panel["datasource"]["uid"])
            links = {node.get("url", "").partition("?")[0] for node in nodes}
            self.assertLessEqual(links, {"", "/d/corvane-fleet", "/d/corvane-machine"})


if __name__ == "__main__":
    if not shutil.which("prometheus"):
        print("skipped: prometheus is not installed")
        sys.exit(77)
    outcome = unittest.main(argv=sys.argv[:1] + sys.argv[2:], exit=False).result
    if not FleetTest.disk:
        print("skipped: expressions of the load of disks: no folder for files is on one here")
    sys.exit(not outcome.wasSuccessful())
