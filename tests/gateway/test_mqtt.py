"""The device on a real MQTT broker."""

import json
import pathlib
import random
import shutil
import signal
import subprocess
import time
import types

import pytest

from gateway.broker import BRANCH, MOSQUITTO, Broker, PlayedDevice, Watcher
from gateway.portal import SCHEMAS, Gateway, check
from gateway.test_access import certificate
from peers import INSTRUMENTED, ROOT, Process, free_port, wait_until

pytestmark = pytest.mark.skipif(not (MOSQUITTO and shutil.which("mosquitto_sub")),
                                reason="no mosquitto")
LOST = {"severity": "major", "description": "no RTP packets", "type": 3}
# What MQTT would read, controls, and bytes beyond ASCII.
NAME, LEVEL = "a/b+c#d%e\x01 \u00e4", "a%2Fb%2Bc%23d%25e%01 %C3%A4"


@pytest.fixture
def device():
    with PlayedDevice() as played:
        played.status["eths"] = [{"name": NAME, "state": 1}, {"name": "eth0", "state": 1}]
        yield played


@pytest.fixture
def broker():
    with Broker() as running:
        yield running


def start(device, broker, *options, **more):
    return Gateway("--mqtt", broker.address, "--instance", "dev", *options, service=device.endpoint,
                   **more)


def wait_told(gateway, watcher, is_wanted=lambda known: True):
    """Waits until the broker has what the gateway knows, and nothing else."""
    def is_told():
        known = gateway.status()["device"]
        if not is_wanted(known):
            return False
        wanted = {BRANCH + "session/" + each["id"]: each for each in known["sessions"]}
        wanted |= {BRANCH + "port/" + each["name"].replace(NAME, LEVEL): each
                   for each in known["ports"]}
        told = {topic: watcher.document(topic.removeprefix(BRANCH)) for topic in list(watcher.says)
                if topic.startswith((BRANCH + "session/", BRANCH + "port/"))}
        return told == wanted and watcher.document("ptp") == known["ptp"]
    wait_until(is_told, "the broker to have the device's state", 60)
    watcher.wait_state("online")


def test_the_device_is_told(device, broker):
    ghosts = ["session/99", "session/007", "port/eth9", "port/eth%30", "ptp"]
    strangers = [BRANCH + "later", "kaikla/v1/other/session/99"]
    for topic in (*(BRANCH + ghost for ghost in ghosts), *strangers):
        broker.publish(topic, "{}")
    with Watcher(broker.port) as watcher:
        with start(device, broker) as gateway:
            watcher.wait_state("online")
            wait_told(gateway, watcher)
            assert set(strangers) <= set(watcher.says)
            check(watcher.document("device"), SCHEMAS["DeviceSummary"])
            # "online" is behind what makes it true.
            order = [topic.removeprefix(BRANCH) for topic, payload in watcher.heard if payload]
            assert order.index("state") > order.index(f"port/{LEVEL}")

            device.send_session(gateway, 7, LOST)
            device.send_session(gateway, 7)
            events = lambda: [check(json.loads(text), SCHEMAS["AlarmEvent"]) for topic, text in watcher.heard
                              if topic == BRANCH + "event/alarm"]
            wait_until(lambda: len(events()) == 2, "both events")
            assert [(each["state"], each["session"], each["stream"], each["alarm"]["description"])
                    for each in events()] == [(state, "7", "70", LOST["description"])
                                              for state in ("raised", "cleared")]
            begin = time.monotonic()
            for offset in range(1, 41):
                device.status["ptp"] = {"clock_id": "c", "offset_ns": offset}
                device.send(gateway)
            wait_told(gateway, watcher, lambda known: known["ptp"] and known["ptp"]["offset_ns"] == 40)
            told = [text for topic, text in watcher.heard if topic == BRANCH + "ptp" and len(text) > 2]
            assert 1 <= len(told) <= time.monotonic() - begin + 1
            assert gateway.metrics()["kaikla_gateway_mqtt_connected"] == 1
            assert gateway.metrics()["kaikla_gateway_mqtt_superseded_total"] >= 20
            device.status["sessions"] = []
            wait_told(gateway, watcher, lambda known: not known["sessions"])
            gateway.kill()
            watcher.wait_state("offline")
        with start(device, broker, consumer=gateway.consumer) as gateway:
            watcher.wait_state("online")
        watcher.wait_state("offline")



def test_a_broker_may_go_and_come(device, broker, full):
    with start(device, broker) as gateway, Watcher(broker.port) as watcher:
        watcher.wait_state("online")
        memory = gateway.memory()
        broker.stop()
        for number in range(3000):
            device.send_session(gateway, number % 50, {**LOST, "type": number})
        device.status["eths"].pop()
        device.send(gateway)
        wait_until(lambda: len(gateway.status()["device"]["ports"]) == 1, "the last change", 60)
        assert gateway.metrics()["kaikla_gateway_mqtt_connected"] == 0
        assert gateway.memory() - memory < 8 * 1024 or INSTRUMENTED
        watcher.says.clear()
        broker.start()
        wait_told(gateway, watcher)
        descriptors = gateway.descriptors()
        for attempt in range(20 if full else 4):
            gateway.wait_line("connected to the broker", count=attempt + 2, seconds=60)
            end = time.monotonic() + random.uniform(0, 3)
            while time.monotonic() < end:
                device.send_session(gateway, attempt % 50, {**LOST, "type": random.randrange(10**6)})
                time.sleep(0.005)
            broker.stop()
            watcher.says.clear()
            broker.start()
        wait_told(gateway, watcher)
        wait_until(lambda: gateway.descriptors() <= descriptors, "closed descriptors")


def test_two_gateways_with_one_name(device, broker):
    with start(device, broker) as first, Watcher(broker.port) as watcher:
        watcher.wait_state("online")
        with PlayedDevice() as other, start(other, broker) as second:
            second.expected_status = 1
            second.wait_line("waiting up to")
            second.wait(60)
            assert second.lines_with("another gateway is dev")
        wait_told(first, watcher)
        # One that crashed in between tells "offline" about an instance that is not its own.
        with PlayedDevice() as other, start(other, broker) as second:
            second.wait_line("waiting up to")
            second.kill()
        wait_until(lambda: (BRANCH + "state", "offline") in watcher.heard, "the will")
        watcher.wait_state("online")


def test_an_access_list_that_forbids_is_told_once(device, tmp_path):
    access = tmp_path / "acl"
    access.write_text("topic readwrite other/#\n", encoding="ascii")
    with Broker(f"acl_file {access}") as broker, start(device, broker) as gateway:
        gateway.wait_line("access list", seconds=60)
        broker.stop()
        broker.start()
        gateway.wait_line("publishing under", count=2, seconds=60)
        time.sleep(6)
        assert len(gateway.lines_with("access list")) == 1
        access.write_text("topic readwrite kaikla/v1/dev/#\n", encoding="ascii")
        broker.send_signal(signal.SIGHUP)
        gateway.wait_line("takes what is under", seconds=60)


def test_tls_with_a_certificate_of_its_own(device, tmp_path):
    certificate(tmp_path, "broker.example")
    for name in "device", "other":
        (tmp_path / name).mkdir()
        certificate(tmp_path / name, name)
    port = free_port()
    with Broker(f"listener {port} 127.0.0.1\ncafile {tmp_path}/device/cert.pem\n"
                f"certfile {tmp_path}/cert.pem\nkeyfile {tmp_path}/key.pem\n"
                "require_certificate true") as broker:
        broker.address = f"mqtts://127.0.0.1:{port}"
        own = ("--mqtt-cert", tmp_path / "device/cert.pem", "--mqtt-key", tmp_path / "device/key.pem")
        with start(device, broker, *own, "--mqtt-ca", tmp_path / "other/cert.pem") as gateway:
            gateway.wait_line("no connection to the broker", seconds=60)
            assert "certificate verify failed" in gateway.lines_with("no connection")[0]
        with start(device, broker, *own, "--mqtt-ca", tmp_path / "cert.pem") as gateway:
            gateway.wait_line("publishing under", seconds=60)


def test_a_stop_does_not_wait_for_a_name(tmp_path):
    """A resolver that is silent: packets to it come in again and are dropped."""
    (tmp_path / "resolv.conf").write_text("nameserver 192.0.2.53\noptions timeout:30 attempts:5\n")
    launcher = ("unshare", "-r", "-n", "-m", "sh", "-c", "ip link set lo up && "
                "ip route add 192.0.2.53 dev lo && mount --bind \"$0\" /etc/resolv.conf && "
                "exec \"$@\"", tmp_path / "resolv.conf")
    with PlayedDevice() as device:
        if subprocess.run([*launcher, "true"], check=False).returncode != 0:
            pytest.skip("namespaces are refused")
        gateway = Gateway("--mqtt", "mqtt://broker.example", "--instance", "dev", live=False,
                          service=device.endpoint, launcher=launcher)
        with gateway:
            assert gateway.stop() == 0


def test_two_bridged_brokers(device, tmp_path, monkeypatch):
    """The files of examples/mqtt as they are, but for their ports."""
    site, centre = free_port(), free_port()
    for file in (ROOT / "examples/mqtt").iterdir():
        text = file.read_text(encoding="ascii").replace("1883", str(site)).replace("1884", str(centre))
        (tmp_path / file.name).write_text(text + "user root\n" * (file.suffix == ".conf"))
    monkeypatch.chdir(tmp_path)
    pathlib.Path("password").write_text("change-me\n")
    pathlib.Path("passwords").touch(0o600)
    for user in "dev", "fleet", "site-a":
        subprocess.run(["mosquitto_passwd", "-b", "passwords", user, "change-me"], check=True)
    with Process(MOSQUITTO, "-c", "centre.conf") as upper, Process(MOSQUITTO, "-c", "site.conf") as lower:
        upper.wait_line("running")
        lower.wait_line("running")
        with Watcher(centre, "-u", "fleet", "-P", "change-me") as watcher:
            broker = types.SimpleNamespace(address=f"mqtt://dev@127.0.0.1:{site}")
            with start(device, broker, "--mqtt-password-file", "password") as gateway:
                device.send_session(gateway, 7, LOST)
                wait_told(gateway, watcher, lambda known: known["sessions"])
                device.status["sessions"] = []
                wait_told(gateway, watcher, lambda known: not known["sessions"])
                for branch in "kaikla/v1/other/", BRANCH:
                    subprocess.run(["mosquitto_pub", "-p", str(site), "-u", "dev", "-P", "change-me",
                                    "-q", "1", "-t", f"{branch}later", "-m", "x"], check=True)
                wait_until(lambda: (BRANCH + "later", "x") in watcher.heard, "its own branch")
                assert ("kaikla/v1/other/later", "x") not in watcher.heard
            watcher.wait_state("offline")
