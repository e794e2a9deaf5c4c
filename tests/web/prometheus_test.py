"""A Prometheus scrapes vrx-web: its metrics are whole, its rules are right, and an alert fires for what is played."""

import json
import os
import re
import shutil
import socket
import subprocess
import unittest
import urllib.parse
import urllib.request

from played import SOURCES, Site, wait_until

HERE = os.path.dirname(os.path.abspath(__file__))
RULES = os.path.join(SOURCES, "packaging", "vrx-web.rules.yml")

# The rules wait for minutes: here they are asked each half second, and wait for a moment.
CONFIGURATION = """
global: {{scrape_interval: 500ms, scrape_timeout: 500ms, evaluation_interval: 500ms}}
scrape_configs:
  - {{job_name: vrx-web, static_configs: [{{targets: ['127.0.0.1:{port}']}}]}}
rule_files: ['{rules}']
"""


def promtool(*words, text=None):
    told = subprocess.run(["promtool", *words], input=text, capture_output=True, text=True, timeout=60, check=False)
    return told.returncode, told.stdout + told.stderr


def sample(metrics, name):
    return [line.rpartition(" ")[2] for line in metrics.splitlines() if line.rpartition(" ")[0] == name]


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Rules(unittest.TestCase):
    def test_they_fire_when_they_should(self):
        status, said = promtool("test", "rules", os.path.join(HERE, "vrx-web.rules.test.yml"))
        self.assertEqual(status, 0, said)
        status, said = promtool("check", "rules", RULES)
        self.assertEqual((status, "SUCCESS" in said), (0, True), said)


class Prometheus(unittest.TestCase):
    def setUp(self):
        self.site = Site()
        self.addCleanup(self.site.end)

    def metrics(self):
        status, text = self.site.web.ask("/metrics")
        self.assertEqual(status, 200, text)
        return text

    def start(self):
        """Prometheus itself: on a port that was free a moment ago, so it is tried again."""
        rules = os.path.join(self.site.folder, "rules.yml")
        with open(RULES, encoding="utf-8") as given:
            text = given.read()
        self.site.write("rules.yml", re.sub(r"for: \d+m\n", "for: 1s\n", text))
        configuration = self.site.write("prometheus.yml",
                                        CONFIGURATION.format(port=self.site.web.port, rules=rules))
        for _ in range(5):
            port = free_port()
            program = self.site.run(shutil.which("prometheus"), "--config.file=" + configuration,
                                    "--storage.tsdb.path=" + os.path.join(self.site.folder, "tsdb"),
                                    f"--web.listen-address=127.0.0.1:{port}")
            self.address = f"http://127.0.0.1:{port}"
            wait_until(lambda: self.is_ready() or program.process.poll() is not None, "Prometheus is ready", 60)
            if program.process.poll() is None:
                return
        self.fail("Prometheus finds no port: " + program.said())

    def is_ready(self):
        try:
            with urllib.request.urlopen(self.address + "/-/ready", timeout=5) as answer:
                return answer.status == 200
        except OSError:
            return False

    def ask(self, path, **parameters):
        with urllib.request.urlopen(f"{self.address}/api/v1/{path}?{urllib.parse.urlencode(parameters)}", timeout=20) as answer:
            return json.load(answer)["data"]

    def value(self, query):
        result = self.ask("query", query=query)["result"]
        return float(result[0]["value"][1]) if result else None

    def firing(self):
        return {(one["labels"]["alertname"], one["labels"].get("class") or one["labels"].get("initiator") or "")
                for one in self.ask("alerts")["alerts"] if one["state"] == "firing"}

    def test_promtool_finds_no_fault(self):
        self.site.play("check-condition lun=3 sense=5/24/00 times=3\nlink board=0")
        wait_until(lambda: sample(self.metrics(), 'scopeagent_check_conditions_total{initiator="10000025b5010000",'
                                                  'sense_key="illegal_request"}') == ["3"], "the events are counted")
        status, said = promtool("check", "metrics", text=self.metrics())
        self.assertEqual((status, said.strip()), (0, ""))

    def test_an_alert_fires_for_what_is_played_and_ends_with_it(self):
        self.start()
        wait_until(lambda: self.value('up{job="vrx-web"}') == 1, "it is scraped")
        wait_until(lambda: self.value("scopeagent_agent_up") == 1, "the agent is seen")
        self.assertEqual(self.firing(), set())
        port = "10000025b5010000"
        self.site.play("host link-down host1\nlink board=0")
        expected = {("ScopeAgentPortDown", port), ("ScopeAgentSevereIncident", "port_down")}
        wait_until(lambda: expected <= self.firing(), "the alerts fire", 60)
        # What Prometheus has is what the interface says.
        told = self.site.web.api("incidents")["incidents"]
        self.assertEqual(self.value("sum(scopeagent_incidents_open)"), sum(one["state"] != "closed" for one in told))
        self.assertEqual(self.value("sum(scopeagent_paths_usable)"),
                         sum(one["usable"] for one in self.site.web.api("paths")["luns"]))
        self.site.play("host link-up host1")
        wait_until(lambda: not any(name == "ScopeAgentPortDown" for name, _ in self.firing()), "the port is well", 60)
        self.site.agent.end()
        wait_until(lambda: ("ScopeAgentAgentDown", "") in self.firing(), "the agent is missed", 60)
        self.site.sensor.end()
        wait_until(lambda: ("ScopeAgentSensorDown", "") in self.firing(), "the sensor is missed", 60)

