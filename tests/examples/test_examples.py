"""The programs of examples/ with the real service."""

import json
import pathlib
import signal
import socket
import subprocess
import sys

import pytest

import peers
from peers import BIN, PTP, ROOT, SESSION, SYSTEM, TIMEOUT, Service

BUILT = BIN.parent / "examples"
CONSUMERS = {
    "python": [sys.executable, ROOT / "examples/python/consumer.py"],
    "javascript": ["node", BUILT / "javascript/consumer.mjs"],
}
ALARMS = [{"severity": "major", "description": "Path lost"}]
TALK = [
    (None, "device dev: PTP not locked, ports none, sessions none"),
    ((PTP, 1000, {"locked": True}), "device dev: PTP locked, ports none, sessions none"),
    ((SESSION, 1000, {"id": 7, "audio": [{"id": 71}], "video": [{"id": 72}]}),
     "session 7: 2 streams, 0 alarms"),
    ((SESSION, 1003, {"id": 7, "device_id": "dev", "alarms": ALARMS,
                      "stream": [{"id": 71, "alarms": [{"description": "Bühne"}]}]}),
     "session 7: 1 streams, 2 alarms; major: Path lost; warning: Bühne"),
    ((SYSTEM, 1001, {"eths": [{"name": "eth0", "state": 1}, {"name": "eth1"}]}),
     "device dev: PTP locked, ports eth0 up, eth1 down, sessions 7"),
]


@pytest.mark.parametrize("language, number", [("python", signal.SIGTERM),
                                              ("javascript", signal.SIGINT)])
def test_a_consumer_prints_a_line_a_message_and_removes_itself(device, service, language, number):
    with subprocess.Popen(CONSUMERS[language], stdout=subprocess.PIPE, text=True) as consumer:
        for event, line in TALK:
            if event:
                device.send(*event)
            assert consumer.stdout.readline() == line + "\n"
        assert len(service.consumers()) == 1
        consumer.send_signal(number)
        assert consumer.wait(TIMEOUT) == 0
        assert consumer.stdout.read() == ""
    assert service.consumers() == []


def test_the_service_on_another_platform_tells_name_and_ports_of_the_host(monkeypatch):
    monkeypatch.setattr(peers, "BIN", BUILT / "platform/bin")
    ports = [(path.parent.name, (path.parent / "operstate").read_text() == "up\n")
             for path in pathlib.Path("/sys/class/net").glob("*/type") if path.read_text() == "1\n"]
    if not ports:
        pytest.skip("this machine has no Ethernet port")
    with Service("-l", "5") as service:
        consumer = service.consumer(greeting=False)
        # The ports are read at start; the consumer may come before or after.
        status = {}
        while "eths" not in status:
            status = json.loads(consumer.receive_text())["payload"]
    assert status["device_id"] == socket.gethostname()
    assert [(port["name"], port["state"]) for port in status["eths"]] == sorted(ports)
