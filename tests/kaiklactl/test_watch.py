"""`kaiklactl watch`: its words for what changes, and how it comes and goes."""

import functools
import operator
import re
import signal
import socket

import zmq

from kaiklactl.played import PlayedService, Watch, bash, ctl, reply
from peers import CONTEXT, PTP, Service, free_port, wait_until

UNLOCKED = {"clock_id": "08-00-11-ff-fe-21-e1-b0"}
LOCKED = {**UNLOCKED, "locked": True, "offset_ns": 7}
WHOLE = {
    "device_id": "dev",
    "eths": [{"name": "eth0", "state": 1, "speed_mbps": 25000}, {"name": "eth1", "state": 1}],
    "ptp": {"locked": True, "offset_ns": 12, "ports": [{"portNumber": 1, "state": "SLAVE"}]},
    "sessions": [{"id": 7, "device_id": "dev"}],
}
MANY = 60_000
MALFORMED = "this message cannot be read: "


def session(number, *streams, **more):
    """A session's status."""
    return {"id": number, "device_id": "dev", "stream": list(streams), **more}


def alarm(stream, text):
    return {"id": stream, "alarms": [{"description": text, "type": 5}]}


# One after the other: a path in the whole status and its new value, or a session's status, or a
# frame; then the words for it.
STORY = [
    (session(7, {"id": 1, "alarms": [{}, {}]}), "session 7: 1 stream, 2 alarms"),
    (("device_id", "dev"),
     "whole status: 1 session, no alarm, PTP locked, offset 12 ns, 2 ports, device dev"),
    (("ptp", "locked", False), "PTP lost its lock"),
    (("ptp", "ports", [{"portNumber": 2, "state": "PASSIVE"}]),
     "PTP port 2 new, PASSIVE; PTP port 1 gone"),
    (("ptp", "ports", [{"portNumber": 2, "state": "SLAVE", "portSetting1": 2}]),
     "PTP port 2 SLAVE; PTP configuration changed"),
    (("eths", [{"name": "eth0", "state": 1, "ip": "192.0.2.2", "speed_mbps": 10000,
                "sfp": {"present": True}}, {"name": "eth2", "state": 7}]),
     "port eth0 speed 10000 Mb/s; port eth0 address 192.0.2.2; port eth0 SFP inserted; "
     "port eth2 new, state 7; port eth1 gone"),
    (("eths", 0, "state", 0), "port eth0 down"),
    (session(8, {"id": 2}, {"id": 3}), "session 8 new (2 streams)"),
    (session(8, alarm(2, "late"), nmos_id="x"),
     "session 8 NMOS id x; session 8 stream 2 alarm raised: warning: late (type 5); "
     "session 8 stream 3 gone"),
    (session(8, {"id": 2}, nmos_id="x"),
     "session 8 stream 2 alarm cleared: warning: late (type 5)"),
    *((frame, MALFORMED) for frame in (
        b"nonsense", b'{"command_id":-1}', b'{"command_id":0,"payload":{"sessions":[7]}}')),
    (b'{"command_id":9,"command_name":"\x1b[31m"}',
     "a kind of message that this program does not know (9)"),
    (session(7, nmos_id="\x1b[2J\nX\x9b31m\u202e\0é\ttail"),
     r"session 7 NMOS id \x1b[2J\nX\u009b31m\u202e\x00é\ttail"),
    (("sessions", []), "session 8 removed; session 7 removed"),
    # Comparing each with each would take longer than the end is waited for.
    (("sessions", [session(number) for number in range(MANY)]),
     "; ".join(f"session {number} new (0 streams)" for number in range(MANY))),
    (("device_id", "dev"), "nothing new"),
]


def frame_of(what):
    if isinstance(what, bytes):
        return what
    if isinstance(what, dict):
        return reply(1, what, command_name="status-session")
    *path, key, value = what
    functools.reduce(operator.getitem, path, WHOLE)[key] = value
    return reply(0, WHOLE, command_name="status-all")


def test_the_words_for_what_changes():
    address = f"tcp://127.0.0.1:{free_port()}"
    with PlayedService(reply) as service, CONTEXT.socket(zmq.PUSH) as sender, Watch(
            "--server", service.endpoint, "--bind", address, "--count", len(STORY)) as watch:
        watch.wait_line("is registered with")
        sender.connect(address)
        for what, _ in STORY:
            sender.send(frame_of(what))
        assert watch.wait() == 0
        lines = watch.lines()
    assert len(lines) == len(STORY)
    for line, (what, words) in zip(lines, STORY):
        kind, said = re.fullmatch(r"\d\d:\d\d:\d\d\.\d{3}  (\S+) {2,}(.*)", line).groups()
        assert (kind == "malformed") == (words is MALFORMED) and line.isprintable(), what
        assert said == words or (words is MALFORMED and said.startswith(words)), what


def test_a_watch_prints_what_comes_and_removes_itself(device, service):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        device.send(PTP, 1000, UNLOCKED)
        with Watch() as watch:
            watch.wait_registered()
            assert service.consumers() == ["tcp://127.0.0.1:5591"]
            device.send(PTP, 1000, LOCKED)
            watch.wait_output("  status-all      PTP locked, offset 7 ns")
            assert watch.stop(number) == 0
        assert service.consumers() == []
    status, output, _ = bash("set -o pipefail; kaiklactl watch | head -n 1")
    assert status == 0 and "whole status" in output

    consumer = service.consumer()
    with Watch("--json", "--count", 3, "--bind", "tcp://0.0.0.0:7001") as three:
        wait_until(three.lines, "the first message")
        assert service.consumers() == sorted([consumer.address, "tcp://127.0.0.1:7001"])
        service.add(consumer.address)
        for status in (LOCKED, UNLOCKED, LOCKED):
            device.send(PTP, 1000, status)
        assert three.wait() == 0
        assert three.lines() == [consumer.receive_text() for _ in range(3)]


def test_a_watch_registers_again_after_a_restart(device):
    with Service() as service:
        watch = Watch("--bind", "tcp://127.0.0.1:7002", "--address", "tcp://localhost:7002")
        watch.wait_registered()
    with watch:
        watch.wait_line("the service is gone")
        device.node.close()
        with Service() as service:
            watch.wait_line("is registered again")
            watch.wait_line('nothing has come yet; "kaiklactl doctor tcp://localhost:7002"')
            device.node.open()
            service.learn_device_id("tcp://localhost:7002")
            watch.wait_output("whole status", 2)
            service.remove("tcp://localhost:7002")
            watch.wait_line("somebody else has removed")
            watch.expected_status = 1
            assert watch.wait() == 1


def test_a_reader_that_stops_does_not_stop_the_watch(device, service):
    unread, ours = socket.socketpair()
    with unread, ours, Watch(stdout=ours) as watch:
        watch.wait_line("is registered with")
        # More than all queues in between hold together.
        for number in range(20_000):
            device.send(PTP, 1000, LOCKED if number % 2 else UNLOCKED)
        device.send(PTP, 1000, {"clock_id": "last"})
        wait_until(lambda: service.document()["ptp"]["clock_id"] == "last", "the last message")


def test_a_busy_service_is_not_waited_for_at_the_end(device, service):
    with Watch("--timeout", "60") as watch:
        watch.wait_registered()
        assert "another program does" in ctl("watch --bind tcp://127.0.0.1:5591")[2]
        service.send_signal(signal.SIGSTOP)
        watch.expected_status = 3
        assert watch.stop(seconds=5) == 3
        watch.wait_line("it removes tcp://127.0.0.1:5591 when it is free again")
        service.send_signal(signal.SIGCONT)
    wait_until(lambda: service.consumers() == [], "the removal")


def test_only_a_socket_is_replaced_by_a_watch(service, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    plain = tmp_path / "@plain"
    plain.touch()
    for path in plain, plain.name:
        assert "is there and is no socket" in ctl(f"watch --bind ipc://{path}")[2]
    with Watch("--bind", f"ipc://{tmp_path}/socket") as killed:
        killed.wait_line("is registered with")
        assert "another program does" in ctl(f"watch --bind ipc://{tmp_path}/socket")[2]
        killed.kill()
    with Watch("--bind", f"ipc://{tmp_path}/socket") as watch:
        watch.wait_line("is registered with")
    with Watch("--bind", "ipc://@abstract") as watch:
        watch.wait_line("is registered with")
    assert list(tmp_path.iterdir()) == [plain]
