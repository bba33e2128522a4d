"""A real Prometheus scrapes the gateway and answers what the dashboard asks."""

import json
import shutil
import subprocess
import time
import urllib.parse
import urllib.request

import pytest

from gateway.portal import Gateway
from peers import PTP, ROOT, SESSION, SYSTEM, free_port, wait_until


@pytest.mark.skipif(not shutil.which("prometheus"), reason="no prometheus")
def test_the_dashboard_is_answered(device, service, tmp_path, full):
    device.send(PTP, 1000, {"clock_id": "c", "locked": True, "offset_ns": 5})
    device.send(SYSTEM, 1001, {"eths": [{"name": "eth\u00e4 \\\"0\"\n", "state": 1}]})
    device.send(SESSION, 1003, {"id": 7, "device_id": "dev", "stream": [{"id": 70}]})
    with Gateway("--session-metrics") as gateway:
        text = gateway.get("/metrics")[2]
        lint = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True)
        assert (lint.returncode, lint.stdout + lint.stderr) == (0, b"")
        port = free_port()
        (tmp_path / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": "1s"},
            "scrape_configs": [{"job_name": "kaikla", "static_configs": [
                {"targets": [f"127.0.0.1:{gateway.port}"]}]}]}), encoding="ascii")
        server = subprocess.Popen(
            ["prometheus", f"--config.file={tmp_path}/prometheus.yml",
             f"--storage.tsdb.path={tmp_path}/data", f"--web.listen-address=127.0.0.1:{port}"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def ask(query):
            url = f"http://127.0.0.1:{port}/api/v1/query?" + urllib.parse.urlencode({"query": query})
            try:
                with urllib.request.urlopen(url) as answer:
                    return json.load(answer)["data"]["result"]
            except OSError:
                return []

        def value(query):
            return [float(each["value"][1]) for each in ask(query)]

        try:
            stream = gateway.stream()
            stream.next("snapshot")
            wait_until(lambda: value("kaikla_up") == [1], "the first scrape", seconds=60)
            device.send(PTP, 1000, {"clock_id": "c", "locked": True, "offset_ns": 6})
            stream.next("ptp")
            wait_until(lambda: value("sum(increase(kaikla_gateway_events_total[30s]))") != [],
                       "a second scrape", seconds=60)
            time.sleep(60 if full else 0)
            assert value("min_over_time(up[1m])") == [1]
            dashboard = json.loads((ROOT / "examples/grafana-dashboard.json").read_text())
            for panel in dashboard["panels"]:
                for target in panel["targets"]:
                    query = target["expr"].replace("$instance", ".*")
                    # Nobody has been refused yet.
                    assert ask(query) or "refusals" in query, query
        finally:
            server.terminate()
            server.wait()
