"""kaikla-sim: what it plays, what it refuses, what it records, and how it ends."""

import fcntl
import json
import signal
import subprocess
import termios
import time

import pytest
import zmq

import peers
from peers import CONTEXT, ENDPOINTS, PTP, SESSION, SYSTEM, TIMEOUT, run, wait_until

SERVICES = {"session": SESSION, "system": SYSTEM, "ptp": PTP}
MIB = 1024 * 1024


def line(service, kind, payload, at=0):
    return json.dumps({"at_ms": at, "service": service, "kind": kind, "payload": payload}) + "\n"


def session(kind, identity, at=0, **payload):
    return line("session", kind, {"id": identity, **payload}, at)


class Sim(peers.Process):
    """A running kaikla-sim that plays `lines`, by default the built-in day."""

    def __init__(self, directory, lines=None, *options):
        if lines is not None:
            (directory / "scenario").write_text(lines, encoding="utf-8")
            options = ("--scenario", directory / "scenario", *options)
        super().__init__("kaikla-sim", *options, stdout=subprocess.PIPE, text=True)
        assert "ready" in self.process.stdout.readline()

    def wait_played(self):
        assert self.process.stdout.readline() == "kaikla-sim: the scenario has been played\n"
        return self


def subscriber(service, *topics, hwm=0):
    created = CONTEXT.socket(zmq.SUB)
    created.rcvhwm, created.rcvtimeo = hwm, int(TIMEOUT * 1000)
    created.connect(ENDPOINTS[SERVICES[service]])
    for topic in topics:
        created.subscribe(topic)
    return created


def receive(socket, count):
    """The next messages as "kind word", and that no other follows."""
    messages = [json.loads(socket.recv_multipart()[1]) for _ in range(count)]
    assert not socket.poll(100)
    return [f"{m['command_id']} {m['payload'].get('nmos_id', '')}".strip() for m in messages]


def ask_node(*frames):
    with CONTEXT.socket(zmq.REQ) as requester:
        requester.rcvtimeo = int(TIMEOUT * 1000)
        requester.connect(peers.NODE_ENDPOINT)
        requester.send_multipart(frames)
        return json.loads(requester.recv())


@pytest.mark.parametrize("options, status", [
    (["--help"], 0), (["--version"], 0),
    (["--unknown"], 2), (["positional"], 2), (["--speed", "0"], 2), (["--speed", "-1"], 2),
    (["--speed", "nan"], 2), (["--speed", "fast"], 2), (["--device-id", ""], 2),
    (["--scenario"], 2), (["record"], 2), (["record", "a", "b"], 2),
    (["--loop", "--exit-at-end"], 2), (["--speed", "2", "record", "/dev/null"], 2),
    (["--scenario", "/absent"], 1), (["--scenario", "/"], 1), (["record", "/absent/file"], 1),
    (["record", "/dev/full"], 1), (["--loop", "--scenario", "/dev/null"], 1),
])
def test_exit_status(options, status):
    ended = run("kaikla-sim", *options)
    assert ended.returncode == status
    assert (ended.stderr == "") == (status == 0)


@pytest.mark.parametrize("text, reason", [
    ("hello", "not JSON"), ("[1]", "not a JSON object"), ("{} {}", "not JSON"),
    ('{"at_ms": 6, "at_ms": 6}', "not JSON"),
    ('{"at_ms": 600, "service": "ptp", "kind": 1000}', '"payload" is missing'),
    ('{"at_ms": 6, "service": "ptp", "kind": 1000, "payload": {}, "not\\nnow": 1}',
     r'no such key as "not\nnow"'),
    *[(line("ptp", 1000, {}, at), '"at_ms" must be') for at in (-1, 600.5, "600", 31536000001)],
    (line("ptp", 1000, {}, 499), "goes back from 500 to 499"),
    (line("nmos", 1000, {}, 600), '"service" must be'),
    (line(1, 1000, {}, 600), '"service" must be'),
    (line("ptp", 1003, {}, 600), '"ptp" has no kind 1003'),
    (line("ptp", "1000", {}, 600), '"kind" must be'),
    (line("ptp", 1000, [], 600), '"payload" must be an object'),
    (line("session", 1003, {"session": 7}, 600), 'kind 1003 (session status) has no "id"'),
    # Each kind is read with the record that receivers read it with.
    *[(line(service, kind, payload, 600), f"kind {kind} ({name}) cannot be decoded")
      for service, kind, name, payload in (
          ("session", 1000, "new session", {"id": 1, "audio": [{"id": "x"}]}),
          ("session", 1001, "removed session", {"id": -1}),
          ("session", 1003, "session status", {"id": 1, "alarms": [{"type": "high"}]}),
          ("session", 1005, "advertisement update", {"id": 1, "sdp": []}),
          ("system", 1001, "dynamic-information update", {"eths": [{"name": {}}]}),
          ("ptp", 1000, "PTP status change", {"offset_ns": "far"}),
          ("ptp", 1001, "PTP configuration change", {"ports": [{"portNumber": []}]}))],
    (line("system", 1000, {"text": "x" * MIB}, 600), "longer than 1048576 bytes"),
    # It fits a line, but not a notification, in which each character is escaped.
    (line("system", 1000, {"text": "?"}, 600).replace("?", "é" * (MIB // 4)),
     "the notification would be"),
], ids=lambda value: value[:60])
def test_a_mistake_is_refused_with_file_line_and_reason(tmp_path, text, reason):
    scenario = tmp_path / "day"
    scenario.write_text("# a comment\n\r\n" + session(1001, 1, 500) + text, encoding="utf-8")
    refused = run("kaikla-sim", "--scenario", scenario)
    assert (refused.returncode, refused.stdout) == (1, "")
    assert refused.stderr.startswith(f"kaikla-sim: {scenario}:4: ")
    assert reason in refused.stderr and refused.stderr.count("\n") == 1


# What is played, and the state that a late subscriber to these topics receives.
HISTORY = "".join([
    session(1000, 1, nmos_id="one"), session(1003, 1, nmos_id="status one"),
    session(1000, 2, nmos_id="two"), session(1003, 2, nmos_id="status two"),
    session(1002, 1, nmos_id="configuration"), session(1003, 1, nmos_id="later status"),
    session(1000, 3), session(1003, 3), session(1002, 3), session(1004, 3, nmos_id="advertised"),
    session(1001, 3), session(1001, 99), session(1004, 4), session(1005, 4), session(1006, 4),
    line("system", 1000, {"nmos_id": "parameter"}), line("system", 1001, {}),
    line("system", 1002, {}), line("system", 1003, {"nmos_id": "list"}),
    line("system", 1001, {"nmos_id": "ports"}),
    line("ptp", 1001, {}), line("ptp", 1000, {"nmos_id": "status"}),
    line("ptp", 1001, {"nmos_id": "configured"}),
])
SESSIONS = ["1000 one", "1000 two", "1003 status two", "1002 configuration", "1003 later status"]


@pytest.mark.parametrize("service, topics, state", [
    ("session", [b""], [*SESSIONS, "1004 advertised"]),
    ("session", [b"1003"], [SESSIONS[2], SESSIONS[4]]),
    ("session", [b"1004"], ["1004 advertised"]),
    ("system", [b""], ["1000 parameter", "1003 list", "1001 ports"]),
    ("ptp", [b""], ["1000 status", "1001 configured"]),
])
def test_a_late_subscriber_receives_the_state(tmp_path, service, topics, state):
    with Sim(tmp_path, HISTORY) as sim:
        sim.wait_played()
        # The second one, too: its subscription is one that the device knows already.
        for _ in range(2):
            assert receive(subscriber(service, *topics), len(state)) == state


def test_a_session_announced_anew_has_no_earlier_status(tmp_path):
    lines = session(1000, 1) + session(1003, 1) + session(1002, 1) + session(1000, 1, nmos_id="new")
    with Sim(tmp_path, lines) as sim:
        sim.wait_played()
        assert receive(subscriber("session", b""), 1) == ["1000 new"]


def test_many_sessions_take_time_in_proportion_and_none_is_dropped(tmp_path):
    count = 30_000
    lines = "".join(session(1003, i, nmos_id="x") for i in range(count))
    with Sim(tmp_path, lines) as sim:
        def ticks():
            with open(f"/proc/{sim.pid}/stat", encoding="ascii") as stat:
                return sum(map(int, stat.read().rpartition(")")[2].split()[11:13]))
        ready = ticks()
        sim.wait_played()
        # A hundred a second. Looking at every session for every session took five seconds.
        assert ticks() - ready < 100 * peers.SLOW
        assert len(receive(subscriber("session", b""), count)) == count


RECORDED = session(1003, 2, device_id="recorded")
PLACEHOLDER = session(1003, 1, device_id="@device")
DEFAULT = "2b1c7f0e-6d54-4c1b-9a37-5e0f8a64d210"


@pytest.mark.parametrize("lines, options, device, names", [
    (PLACEHOLDER + session(1003, 2), [], DEFAULT, [DEFAULT, None]),
    (PLACEHOLDER + RECORDED, [], "recorded", ["recorded", "recorded"]),
    (RECORDED + PLACEHOLDER, [], "recorded", ["recorded", "recorded"]),
    (PLACEHOLDER + RECORDED, ["--device-id", 'é"'], 'é"', ['é"', "recorded"]),
    # Only a session's status names the device.
    (session(1002, 1, device_id="@device"), [], DEFAULT, ["@device"]),
])
def test_the_device_has_one_id(tmp_path, lines, options, device, names):
    with Sim(tmp_path, lines, *options) as sim:
        sim.wait_played()
        sent = subscriber("session", b"")
        messages = [json.loads(sent.recv_multipart()[1]) for _ in names]
        assert [message["payload"].get("device_id") for message in messages] == names
        request = b'{"command_id":0,"command_name":"GET device info"}'
        node = ask_node(request)["payload"]
        assert node == {"device": {"id": device, "label": "simulated device"}}
        for wrong in ([b'{"command_id":1}'], [b"{}"], [b'{"command_id":0,"command_name":[]}'],
                      [b"\0\xff"], [b" " * (MIB + 1)], [request, request]):
            refused = ask_node(*wrong)
            assert refused["result"] < 0 and refused["error"]
        assert ask_node(request)["payload"] == node


def test_plays_in_time_without_being_busy(tmp_path):
    lines = session(1000, 1) + session(1000, 2, at=200) + session(1000, 3, at=200)
    with Sim(tmp_path, lines, "--speed", "0.5", "--exit-at-end") as sim:
        start = time.monotonic()
        assert sim.wait() == 0
        assert time.monotonic() - start > 0.35
        assert "has been played" in sim.process.stdout.read()
    with Sim(tmp_path, lines, "--speed", "20", "--loop") as sim:
        for _ in range(3):
            sim.wait_played()


def test_ends_at_once_on_a_signal_whatever_it_does(tmp_path):
    for number in (signal.SIGTERM, signal.SIGINT):
        with Sim(tmp_path, HISTORY) as sim:
            assert sim.wait_played().stop(number) == 0
    with Sim(tmp_path, session(1000, 1, at=1), "--loop", "--speed", "1e9") as sim:
        assert sim.stop() == 0
    # A scenario that never ends.
    with peers.Process("kaikla-sim", "--scenario", "/dev/stdin", stdin=subprocess.PIPE) as sim:
        sim.process.stdin.write(HISTORY.encode())
        sim.process.stdin.flush()
        # Then it waits for more.
        wait_until(lambda: not any(fcntl.ioctl(sim.process.stdin, termios.FIONREAD, b"\0" * 4)),
                   "the lines to be read")
        assert sim.stop() == 0
    # A subscriber that has stalled.
    lines = "".join(session(1004, i, sdp="x" * 100_000) for i in range(200))
    with Sim(tmp_path, lines) as sim:
        sim.wait_played()
        stalled = subscriber("session", b"1004", hwm=1)
        assert stalled.poll(TIMEOUT * 1000)
        assert sim.stop() == 0


def test_says_in_one_sentence_that_a_port_is_taken():
    for endpoint in (*ENDPOINTS.values(), peers.NODE_ENDPOINT):
        holder = peers.bind(zmq.REP, endpoint)
        refused = run("kaikla-sim")
        assert (refused.returncode, refused.stdout) == (1, "")
        assert refused.stderr.startswith("kaikla-sim: cannot play the ")
        assert refused.stderr.endswith(f" on {endpoint}: Address already in use\n")
        holder.close()


def test_a_service_that_comes_late_or_back_has_the_whole_device(tmp_path):
    def evening():
        with peers.Service() as service:
            return wait_until(lambda: (now := service.document())
                              and len(now.get("sessions", [])) == 1 and len(now["eths"]) == 2
                              and now["ptp"]["ports"][1]["portSetting1"] == 2 and now, "the device")

    recording = tmp_path / "recording"
    with peers.Process("kaikla-sim", "record", recording) as recorder:
        recorder.wait_line("recording until")
        with Sim(tmp_path, None, "--speed", "20", "--device-id", "mine") as sim:
            sim.wait_played()
            device = evening()
            assert device == evening()
            wait_until(lambda: recording.read_text().count('"kind":1001') > 4, "the last line")
        assert recorder.stop(signal.SIGINT) == 0
    assert device["device_id"] == "mine"
    # A recording plays as the device that it was taken from.
    with Sim(tmp_path, recording.read_text(), "--speed", "50") as sim:
        sim.wait_played()
        assert evening() == device


def test_records_what_each_service_says_and_nothing_else(tmp_path, device):
    recording = tmp_path / "recording"
    recording.write_text("?" * 10_000)
    odd = {"device_id": "é\n", "id": 2**64 - 1, "real": -0.1, "unknown": [{}]}
    with peers.Process("kaikla-sim", "record", recording) as recorder:
        every = {SESSION: list(range(1000, 1007)), SYSTEM: list(range(1000, 1004)),
                 PTP: [1000, 1001]}
        wait_until(lambda: device.subscribed() == every, "the subscriptions")
        device.send(SESSION, 1003, odd)
        for payload in ({"id": -1}, [], {"nmos_id": "whose?"}):
            device.send(SESSION, 1003, payload)
        for topic, *frames in (b"1003", b"not JSON"), (b"1003",), (b"1003", b"{}", b"{}"), \
                (b"1003", b'{"command_id":1001,"payload":{"id":1}}'), \
                (b"10035", b'{"command_id":10035,"payload":{}}'), \
                (b"1004", b'{"command_id":1004,"payload":{"sdp":"?"}}'.replace(
                    b"?", b"\xc3\xa9" * (MIB // 4))):
            device.send_frames(SESSION, topic, *frames)
        device.send(SESSION, 1001, {"id": 1})
        wait_until(lambda: len(recording.read_text().splitlines()) == 3, "the removal")
        device.send(PTP, 1000, {"locked": True})
        device.send(SYSTEM, 1002, {})
        wait_until(lambda: len(recording.read_text().splitlines()) == 5, "the lines")
        assert recorder.stop() == 0
        said = recorder.log_text().splitlines()
    assert len(said) == 11 and said[-1] == "kaikla-sim: 4 notifications recorded"
    assert all("skipped what the session manager sent: " in each for each in said[1:-1])
    lines = [json.loads(each) for each in recording.read_text().splitlines()[1:]]
    assert lines[0]["payload"] == odd
    assert sorted((each["service"], each["kind"]) for each in lines) == [
        ("ptp", 1000), ("session", 1001), ("session", 1003), ("system", 1002)]


def test_a_recording_to_a_pipe_ends_with_its_reader(tmp_path):
    record = subprocess.Popen(["bash", "-c", f"set -o pipefail; {peers.BIN}/kaikla-sim record - |"
                               " head -n 1"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True)
    assert record.stdout.readline().startswith("# Recorded by kaikla-sim")
    with Sim(tmp_path, session(1000, 1, at=1), "--loop"):
        assert record.wait(TIMEOUT) == 1
    assert "cannot write to standard output: Broken pipe" in record.stderr.read()
