"""kaikla-sim: what it plays, what it refuses, what it records, and how it ends."""

import json
import signal
import subprocess
import time

import pytest
import zmq

import peers
from peers import CONTEXT, ENDPOINTS, NODE_ENDPOINT, PTP, SESSION, SYSTEM, TIMEOUT, run, wait_until

MIB = 1024 * 1024


def line(service, kind, payload, at=0):
    return json.dumps({"at_ms": at, "service": service, "kind": kind, "payload": payload}) + "\n"


def session(kind, identity, at=0, **payload):
    return line("session", kind, {"id": identity, **payload}, at)


class Sim(peers.Process):
    """A running kaikla-sim that plays `lines`, or its built-in day."""

    def __init__(self, directory, lines=None, *options):
        if lines is not None:
            (directory / "scenario").write_text(lines, encoding="utf-8")
            options = ("--scenario", directory / "scenario", *options)
        super().__init__("kaikla-sim", *options, stdout=subprocess.PIPE, text=True)
        assert "ready" in self.process.stdout.readline()

    def wait_played(self):
        assert self.process.stdout.readline() == "kaikla-sim: the scenario has been played\n"


def connect(kind, endpoint):
    connected = CONTEXT.socket(kind)
    connected.rcvtimeo = int(TIMEOUT * 1000)
    connected.connect(endpoint)
    return connected


def state_of(service, count, topic=b""):
    """The payloads that a new subscriber receives; no other follows."""
    with connect(zmq.SUB, ENDPOINTS[service]) as subscriber:
        subscriber.subscribe(topic)
        messages = [json.loads(subscriber.recv_multipart()[1]) for _ in range(count)]
        assert not subscriber.poll(100)
    return [message["payload"] for message in messages]


@pytest.mark.parametrize("status, table", [
    (0, "--help"),
    (1, "--scenario /absent, --scenario /, record /absent/file, record /dev/full,"
     "--loop --scenario /dev/null"),
    (2, "--unknown, positional, --speed 0, --speed -1, --speed nan, --speed fast, --device-id=,"
     "--scenario, record, record a b, --loop --exit-at-end, --speed 2 record /dev/null"),
])
def test_exit_status(status, table):
    for options in table.split(","):
        ended = run("kaikla-sim", *options.split())
        assert (options, ended.returncode, ended.stderr == "") == (options, status, status == 0)


@pytest.mark.parametrize("text, reason", [
    ("hello", "not JSON"),
    ('{"at_ms": 600, "service": "ptp", "kind": 1000}', '"payload" is missing'),
    ('{"a\\n": 1}', r'no such key as "a\n"'),
    *[(line("ptp", 1000, {}, at), '"at_ms" must be') for at in (-1, 600.5, 31536000001)],
    (line("ptp", 1000, {}, 499), "goes back from 500 to 499"),
    (line("nmos", 1000, {}, 600), '"service" must be'),
    (line("ptp", 1003, {}, 600), '"ptp" has no kind 1003'),
    (line("session", 1003, {"session": 7}, 600), 'kind 1003 (session status) has no "id"'),
    # Each kind is read with the record that receivers read it with.
    (session(1000, 1, 600, audio=[{"id": "x"}]), "kind 1000 (new session) cannot be decoded"),
    (session(1003, 1, 600, alarms=[{"type": ""}]), "kind 1003 (session status) cannot be decoded"),
    (line("system", 1001, {"eths": 7}, 600), "(dynamic-information update) cannot be decoded"),
    # It fits a line, but not a notification, in which each character is escaped.
    (line("ptp", 1000, {"": "?"}, 600).replace("?", "é" * (MIB // 4)), "notification would be"),
], ids=lambda value: value[:60])
def test_a_mistake_is_refused_with_file_line_and_reason(tmp_path, text, reason):
    scenario = tmp_path / "day"
    scenario.write_text("# a comment\n\r\n" + session(1001, 1, 500) + text, encoding="utf-8")
    refused = run("kaikla-sim", "--scenario", scenario)
    assert (refused.returncode, refused.stdout) == (1, "")
    assert refused.stderr.startswith(f"kaikla-sim: {scenario}:4: ")
    assert reason in refused.stderr and refused.stderr.count("\n") == 1


# Service, kind, id and text of each event; those with a text are the state in the end.
HISTORY = "".join(
    line(service, kind, {"id": identity, "text": text}) for service, events in {
        "session": [
            (1000, 4, ""), (1003, 4, ""), (1002, 4, ""), (1000, 1, "one"), (1003, 1, ""),
            (1002, 1, "configuration"), (1003, 1, "status"), (1004, 3, "advertised"),
            (1000, 3, ""), (1003, 3, ""), (1002, 3, ""), (1001, 3, ""), (1001, 99, ""),
            (1000, 4, "anew"), (1004, 4, ""), (1005, 4, ""), (1006, 4, "")],
        "system": [(1001, 0, ""), (1003, 0, "list"), (1001, 0, "ports")],
        "ptp": [(1001, 0, ""), (1000, 0, "status"), (1001, 0, "configured")],
    }.items() for kind, identity, text in events)


@pytest.mark.parametrize("service, topic, state", [
    (SESSION, b"", "one,configuration,status,advertised,anew"), (SESSION, b"1003", "status"),
    (SYSTEM, b"", "list,ports"), (PTP, b"", "status,configured"),
])
def test_a_late_subscriber_receives_the_state(tmp_path, service, topic, state):
    with Sim(tmp_path, HISTORY) as sim:
        sim.wait_played()
        # The second one, too: its subscription is one that the device knows already.
        for _ in range(2):
            payloads = state_of(service, state.count(",") + 1, topic)
            assert ",".join(payload["text"] for payload in payloads) == state


RECORDED = session(1003, 2, device_id="recorded")
PLACEHOLDER = session(1003, 1, device_id="@device")
DEFAULT = "2b1c7f0e-6d54-4c1b-9a37-5e0f8a64d210"


@pytest.mark.parametrize("lines, options, device, names", [
    (PLACEHOLDER + session(1002, 1), [], DEFAULT, [DEFAULT, None]),
    (PLACEHOLDER + RECORDED, [], "recorded", ["recorded", "recorded"]),
    (PLACEHOLDER + RECORDED, ["--device-id", 'é"'], 'é"', ['é"', "recorded"]),
])
def test_the_device_has_one_id(tmp_path, lines, options, device, names):
    with Sim(tmp_path, lines, *options) as sim:
        sim.wait_played()
        payloads = state_of(SESSION, len(names))
        assert [payload.get("device_id") for payload in payloads] == names
        with connect(zmq.REQ, NODE_ENDPOINT) as requester:
            requester.send(b'{"command_id":0}')
            assert requester.recv_json()["payload"]["device"]["id"] == device
            requester.send(b'{"command_id":1}')
            assert requester.recv_json()["result"] < 0


def test_plays_in_time_and_ends_on_a_signal_whatever_it_does(tmp_path):
    start = time.monotonic()
    with Sim(tmp_path, session(1000, 2, at=200), "--speed", "0.5", "--exit-at-end") as sim:
        assert sim.wait() == 0
        assert time.monotonic() - start > 0.4
    with Sim(tmp_path, session(1000, 1, at=100), "--loop") as sim:
        start = time.monotonic()
        for _ in range(4):
            sim.wait_played()
        assert time.monotonic() - start > 0.25, "each round takes its time"
        assert sim.stop(signal.SIGINT) == 0
    # A scenario that never ends: the program reads more than a pipe holds and waits for the rest.
    with peers.Process("kaikla-sim", "--scenario", "/dev/stdin", stdin=subprocess.PIPE) as sim:
        sim.process.stdin.write(HISTORY.encode() * 100)
        sim.process.stdin.flush()
        assert sim.stop() == 0


def test_a_service_that_comes_late_or_back_has_the_whole_device(tmp_path):
    def evening():
        with peers.Service() as service:
            return wait_until(lambda: (now := service.document())
                              and len(now.get("sessions", [])) == 1 and len(now.get("eths", [])) == 2
                              and now["ptp"].get("ports", [{}, {}])[1].get("portSetting1") == 2
                              and now, "the device")

    recording = tmp_path / "recording"
    with peers.Process("kaikla-sim", "record", recording) as recorder:
        recorder.wait_line("recording until")
        with Sim(tmp_path, None, "--speed", "20", "--device-id", "mine") as sim:
            sim.wait_played()
            device = evening()
            assert device == evening()
            wait_until(lambda: '"portSetting1":2' in recording.read_text(), "the last line")
    assert device["device_id"] == "mine"
    # A recording plays as the device that it was taken from.
    with Sim(tmp_path, recording.read_text(), "--speed", "50") as sim:
        sim.wait_played()
        assert evening() == device


def test_records_what_each_service_says_and_nothing_else(tmp_path, device, monkeypatch):
    recording = tmp_path / "recording"
    recording.write_text("?" * 10_000)
    odd = {"device_id": "é\n", "id": 2**64 - 1, "real": -0.1, "unknown": [{}]}
    every = {SESSION: range(1000, 1007), SYSTEM: range(1000, 1004), PTP: range(1000, 1002)}
    monkeypatch.setattr(peers, "KINDS", every)
    with peers.Process("kaikla-sim", "record", recording) as recorder:
        for wrong in [], {"nmos_id": "whose?"}, {"id": 1, "sdp": "é" * (MIB // 4)}:
            device.send(SESSION, 1004, wrong)
        device.send_frames(SESSION, b"1003")
        for name, kind in (SESSION, 1003), (PTP, 1000), (SYSTEM, 1002):
            device.send(name, kind, odd)
            wait_until(lambda: f'"kind":{kind}' in recording.read_text(), "the line")
        assert recorder.stop() == 0
        said = recorder.log_text()
    assert said.count("skipped what the session manager sent: ") == 4
    assert said.endswith("kaikla-sim: 3 notifications recorded\n")
    lines = [json.loads(each) for each in recording.read_text().splitlines()[1:]]
    assert [(each["service"], each["payload"]) for each in lines] == [
        (service, odd) for service in ("session", "ptp", "system")]
    # Milliseconds; hardly ever three whole seconds.
    assert any(each["at_ms"] % 1000 for each in lines)
    device.wait_subscribed(False)
    silent = ["sh", "-c", 'exec "$0" "$@" 2>&-']
    with peers.Process("kaikla-sim", "record", recording, launcher=silent):
        device.send(PTP, 1000, odd)
        wait_until(lambda: '"kind":1000' in recording.read_text(), "the line")
    assert len(recording.read_text().splitlines()) == 2, "nothing said to people"
