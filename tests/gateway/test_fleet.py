"""The view of many devices: from what is at a broker, and from that alone."""

import json
import subprocess
import time

import pytest

from gateway.broker import MOSQUITTO, Broker
from gateway.portal import Fleet
from gateway.test_page import Page, webdriver
from peers import SLOW, Process, wait_until

pytestmark = pytest.mark.skipif(not MOSQUITTO, reason="no mosquitto")

NOW = "2026-03-01T12:00:00.000Z"
EVIL = "<img src=x onerror=alert(1)>"
PTP = {"clock_id": "c", "grandmaster_id": "gm", "locked": True, "since": None, "offset_ns": -12,
       "mean_path_delay_ns": 800, "ports": [],
       "config": {"setting1": 0, "setting2": 0, "setting3": 0, "flag": False},
       "profile": {"name": EVIL, "domain": 127, "announce_interval_log2_s": 0,
                   "sync_interval_log2_s": 0, "delay_req_interval_log2_s": 0}}


def port(name, up=True):
    return {"name": name, "mac": "m", "up": up, "since": None, "ip": "192.0.2.1",
            "speed_mbps": 25000, "sfp": None}


def session(number, *alarms):
    return {"id": str(number), "nmos_id": EVIL, "alarms": [],
            "streams": [{"id": "70", "alarms": list(alarms)}]}


MAJOR = {"severity": "major", "description": EVIL, "type": 3, "since": NOW}


def device(sessions=1, majors=0, overall="healthy", message="everything is well"):
    monitors = {name: {"name": name, "status": status, "message": message, "transitions": 0,
                       "since": None}
                for name, status in (("overall", overall), ("links", "all-up"),
                                     ("synchronization", "healthy"))}
    return {"time": NOW, "id": "2b1c", "epoch": "7c1f03aa", "monitors": monitors,
            "source": {"state": "live", "since": NOW, "age_ms": 5},
            "sessions": sessions, "streams": sessions,
            "alarms": {"critical": 0, "major": majors, "minor": 0, "warning": 0, "other": 0}}


def publish(broker, instance, **branches):
    for branch, payload in {"state": "online", "device": device(), "session/7": session(7),
                            "ptp": PTP, "port/eth0%2F1": port("eth0/1"), **branches}.items():
        broker.publish(f"kaikla/v1/{instance}/{branch}", payload)


@pytest.fixture
def broker():
    with Broker() as running:
        yield running


def test_what_devices_publish_is_told(broker):
    publish(broker, "a")
    publish(broker, "b", state="offline", ptp="")
    with Fleet(broker.address) as fleet:
        wait_until(lambda: len(fleet.rows()) == 2 and fleet.rows()["a"]["ptp"], "the devices")
        assert fleet.rows()["a"]["heard"] == NOW, "retained: as old as the device says"
        whole = lambda: fleet.device("a")
        wait_until(lambda: whole()["device"]["sessions"] and whole()["device"]["ports"], "its parts")
        assert whole()["device"]["ports"] == [port("eth0/1")] and whole()["source"]["state"] == "live"
        assert whole()["monitors"]["session/7"] == "healthy"
        assert fleet.device("b")["source"]["state"] == "lost"
        assert fleet.get("/api/v1/devices/c")[0] == 404

        stream = fleet.stream()
        assert len(stream.next("snapshot")["data"]["devices"]) == 2
        publish(broker, "a", device=device(1, 1, "unhealthy", EVIL), ptp={**PTP, "offset_ns": 40},
                **{"session/7": session(7, MAJOR), "port/eth0%2F1": port("eth0/1", False)})
        assert stream.next("monitor")["data"]["message"] == EVIL
        assert stream.next("session")["data"]["status"] == "unhealthy"
        assert stream.next("ptp")["data"]["instance"] == "a"
        assert stream.next("row")["data"]["row"]["ports"] == {"up": 0, "down": 1}
        broker.publish("kaikla/v1/a/event/alarm", {"time": NOW, "state": "raised", "session": "7",
                                                   "stream": "70", "alarm": MAJOR}, retain=False)
        assert stream.next("alarm")["data"]["alarm"]["alarm"] == MAJOR
        broker.publish("kaikla/v1/a/session/7", "")
        assert stream.next("session-removed")["data"]["id"] == "7"
        for branch in ("state", "device", "session/7", "port/eth0%2F1"):
            broker.publish(f"kaikla/v1/b/{branch}", "")
        assert stream.next("row-removed")["data"]["instance"] == "b"
        missed = stream.next("heartbeat")["data"]["seq"]
        again = fleet.stream(since=f"{fleet.get('/api/v1/devices')[2]['epoch']}-{missed - 1}")
        assert again.event()["data"]["seq"] == missed

        metrics = fleet.metrics()
        assert metrics['kaikla_up{instance="a"}'] == metrics["kaikla_gateway_mqtt_connected"] == 1
        assert metrics['kaikla_ptp_offset_seconds{instance="a"}'] == 4e-8
        assert metrics['kaikla_port_up{instance="a",port="eth0/1"}'] == 0
        assert metrics['kaikla_alarms{instance="a",severity="major"}'] == 1
        lint = subprocess.run(["promtool", "check", "metrics"], input=fleet.get("/metrics")[2],
                              capture_output=True)
        assert (lint.returncode, lint.stdout + lint.stderr) == (0, b"")


def test_what_is_not_of_the_contract_is_left_out(broker):
    publish(broker, "a")
    with Fleet(broker.address) as fleet:
        wait_until(lambda: "a" in fleet.rows(), "the device")
        for topic in ("kaikla/v1/a/foreign", "kaikla/v1/a/port/x/y", "kaikla/v1/a b/state"):
            broker.publish(topic, "online")
        for branch, payload in (("ptp", "{"), ("ptp", []), ("ptp", {**PTP, "locked": "yes"}),
                                ("session/8", session(7)), ("state", "perhaps"), ("device", {})):
            broker.publish(f"kaikla/v1/a/{branch}", payload)
        left_out = lambda reason: fleet.metrics().get(
            f'kaikla_gateway_left_out_messages_total{{reason="{reason}"}}', 0)
        wait_until(lambda: left_out("malformed") >= 6, "the malformed ones to be counted")
        assert fleet.wait_line("left out (malformed): a/ptp: ")
        assert list(fleet.rows()) == ["a"] and fleet.rows()["a"]["state"] == "online"
        assert len(fleet.device("a")["device"]["sessions"]) == 1

        for number in range(1100):
            broker.publish(f"kaikla/v1/a/session/{100 + number}", session(100 + number))
        publish(broker, "b", **{"session/7": {**session(7), "nmos_id": "x" * (1 << 20)}})
        wait_until(lambda: left_out("topics") == 105 and left_out("bytes") == 1, "the bounds")
        assert len(fleet.device("a")["device"]["sessions"]) == 996
        assert not fleet.rows()["a"]["complete"] and not fleet.rows()["b"]["complete"]
        before = fleet.memory()
        for _ in range(60):
            broker.publish("kaikla/v1/b/session/7", {**session(7), "nmos_id": "x" * (1 << 20)})
        wait_until(lambda: left_out("bytes") == 61, "the flood")
        assert SLOW > 1 or fleet.memory() < before + 32 * 1024


def test_the_broker_goes_and_comes_back(broker):
    publish(broker, "a")
    publish(broker, "gone")
    with Fleet(broker.address) as fleet:
        wait_until(lambda: len(fleet.rows()) == 2 and fleet.device("a")["device"]["sessions"], "both")
        stream = fleet.stream()
        broker.stop()
        assert stream.next("source")["data"]["source"]["state"] == "lost"
        assert fleet.get("/readyz")[0] == 503 and len(fleet.rows()) == 2
        broker.start()
        publish(broker, "a", device=device(0), **{"session/7": ""})
        assert stream.next("source")["data"]["source"]["state"] == "live"
        removed = [stream.next("session-removed", "row-removed") for _ in range(3)]
        wait_until(lambda: list(fleet.rows()) == ["a"], "what is there no more to go", 60 * SLOW)
        assert {event["data"]["instance"] for event in removed} == {"a", "gone"}
        assert fleet.device("a")["device"]["sessions"] == []


def test_a_thousand_devices_in_a_browser(broker, record_property):
    """The broker has its usual bounds: it drops what is beyond a thousand queued messages."""
    with Process("kaikla-devices", "--mqtt", broker.address, "--devices", "1000"):
        with Fleet(broker.address) as fleet, Page(fleet) as page:
            wait_until(lambda: len(fleet.rows()) == 1000 and all(
                row["ptp"] for row in fleet.rows().values()), "all devices", 60 * SLOW)
            publish(broker, "zz-worst", state="offline")
            publish(broker, "zz-bad", device=device(1, 1, "unhealthy", EVIL),
                    **{"session/7": session(7, MAJOR)})
            page.connection("live")
            wait_until(lambda: page.run("return [...document.querySelectorAll('#devices th a')]"
                                        ".map((a) => a.textContent)")[0] == "zz-worst", "the worst", 30)
            assert "■ offline" in page.text("#devices tbody tr")
            page.wait("#device-more", "the worst 500 of 1002")
            page.picture("fleet")
            page.run("document.getElementById('device-search').focus()")
            page.keys("zz-")
            page.wait("#device-more", "2 of 1002")
            rows = page.text("#devices tbody")
            assert EVIL in rows and "1 major" in rows and "1 up" in rows
            page.keys(webdriver.Keys.BACKSPACE * 3)
            page.wait("#device-more", "the worst 500 of 1002")
            # Scripts and layout of each update; the median, since the machine does other things.
            page.run("""const next = requestAnimationFrame;
                window.times = [];
                window.requestAnimationFrame = (draw) => next(() => {
                    const start = performance.now();
                    draw();
                    document.body.offsetHeight;
                    times.push(performance.now() - start);
                });""")
            times = wait_until(lambda: (page.run("return times") + [None] * 20)[19] and
                               page.run("return times"), "updates", 60)
            record_property("an update of the page, ms", f"{sorted(times)[len(times) // 2]:.1f}")
            assert sorted(times)[len(times) // 2] < 100 * SLOW
            assert page.run("return document.documentElement.scrollWidth") <= 1280

            page.run("[...document.querySelectorAll('#devices th a')]"
                     ".find((a) => a.textContent === 'zz-bad').click()")
            page.wait("#overall", "■ unhealthy")
            page.wait("#device", "zz-bad · 2b1c")
            page.wait("#session-list", f"■ 7 {EVIL}")
            page.connection("live")
            broker.publish("kaikla/v1/zz-bad/ptp", {**PTP, "locked": False})
            page.wait("#ptp-words", "■ NOT LOCKED")
            broker.publish("kaikla/v1/zz-bad/state", "offline")
            page.wait("#overall", "■ offline")
            assert page.run("return document.querySelectorAll('main img').length") == 0
            severe = [entry for entry in page.driver.get_log("browser") if entry["level"] == "SEVERE"]
            assert severe == []
