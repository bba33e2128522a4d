"""`kaiklactl watch`: its words for what changes, and how it comes and goes."""

import copy
import json
import re
import signal
import socket
import subprocess

from kaiklactl.played import PlayedService, Watch, ctl, pusher, reply
from peers import BIN, PTP, SESSION, Service, free_port, wait_until

UNLOCKED = {"clock_id": "08-00-11-ff-fe-21-e1-b0"}
LOCKED = {**UNLOCKED, "locked": True, "offset_ns": 7}

WHOLE = {
    "device_id": "dev",
    "eths": [{"name": "eth0", "state": 1, "ip": "192.0.2.1", "speed_mbps": 25000},
             {"name": "eth1", "state": 1}],
    "ptp": {"clock_id": "c", "grandmaster_id": "g", "locked": True, "offset_ns": 12,
            "mean_path_delay_ns": 600, "profile": {"name": "p", "domain": 1},
            "ports": [{"portNumber": 1, "state": "SLAVE", "portSetting1": 1}]},
    "sessions": [{"id": 7, "device_id": "dev", "stream": [{"id": 11}, {"id": 12}]}],
}
FIRST = "whole status: 1 session, no alarm, PTP locked, offset 12 ns, 2 ports, device dev"
MALFORMED = "this message cannot be read: "
BIG = 2**64 - 1


def session(number, *streams, **more):
    """A "status-session" message."""
    return {"id": number, "device_id": "dev", "stream": list(streams), **more}


# One after the other: a path in the whole status and its new value, or a session's status, or a
# frame; then the words for it.
STORY = [
    ({"id": 7, "stream": [{"id": 1, "alarms": [{}, {}]}]}, "session 7: 1 stream, 2 alarms"),
    ((), FIRST),
    ((), "nothing new"),
    (("ptp", "locked", False), "PTP lost its lock"),
    (("ptp", "offset_ns", -1840), "PTP offset -1840 ns"),
    (("ptp", "locked", True), "PTP locked, offset -1840 ns"),
    (("ptp", "mean_path_delay_ns", 640), "PTP path delay 640 ns"),
    (("ptp", "grandmaster_id", "h"), "PTP grandmaster h"),
    (("ptp", "grandmaster_id", ""), "PTP grandmaster none"),
    (("ptp", "clock_id", "d"), "PTP clock d"),
    (("ptp", "cfgSetting2", 3), "PTP configuration changed"),
    (("ptp", "ports", 0, "portSetting1", 2), "PTP configuration changed"),
    (("ptp", "profile", "domain", 127), "PTP profile p, domain 127"),
    (("ptp", "ports", [{"portNumber": 1, "state": "LISTENING", "portSetting1": 2},
                       {"portNumber": 2, "state": "PASSIVE"}]),
     "PTP port 1 LISTENING; PTP port 2 new, PASSIVE"),
    (("ptp", "ports", []), "PTP port 1 gone; PTP port 2 gone"),
    (("eths", 0, {"name": "eth0", "state": 0, "ip": "192.0.2.1"}), "port eth0 down"),
    (("eths", 0, {"name": "eth0", "state": 1, "ip": "192.0.2.1"}), "port eth0 up"),
    (("eths", 0, {"name": "eth0", "state": 1, "ip": "192.0.2.2", "speed_mbps": 10000,
                  "sfp": {"present": True}}),
     "port eth0 speed 10000 Mb/s; port eth0 address 192.0.2.2; port eth0 SFP inserted"),
    (("eths", [{"name": "eth2", "state": 7}]),
     "port eth2 new, state 7; port eth0 gone; port eth1 gone"),
    (session(8, {"id": 1}, {"id": 2}, {"id": 3}), "session 8 new (3 streams)"),
    (session(8, {"id": 1}, {"id": 2}, {"id": 3}), "session 8 reported again"),
    (session(8, {"id": 1}, {"id": 2, "alarms": [{"description": "late", "type": 5}]}, nmos_id="x"),
     "session 8 NMOS id x; session 8 stream 2 alarm raised: warning: late (type 5); "
     "session 8 stream 3 gone"),
    (session(8, {"id": 1}, {"id": 2, "alarms": [{"description": "lost", "type": 5}]}, nmos_id="x",
             alarms=[{"severity": "major", "description": "off"}]),
     "session 8 alarm raised: major: off (type 0); "
     "session 8 stream 2 alarm raised: warning: lost (type 5); "
     "session 8 stream 2 alarm cleared: warning: late (type 5)"),
    (session(BIG, {"id": 4, "alarms": [{}]}),
     f"session {BIG} new (1 stream); session {BIG} stream 4 alarm raised: warning:  (type 0)"),
    *((frame, MALFORMED) for frame in (
        b"", b"nonsense", b"[]", b'{"payload":{}}', b'{"command_id":-1}', b"[" * 100_000,
        b'{"command_id":0,"payload":7}', b'{"command_id":1,"payload":{"id":"seven"}}',
        b'{"command_id":0,"payload":{"sessions":[7]}}')),
    (b'{"command_id":9,"command_name":"\x1b[31m"}',
     "a kind of message that this program does not know (9)"),
    (session(7, nmos_id="\x1b[2J\nX\x9b31m\u202e\0é\ttail"),
     r"session 7 NMOS id \x1b[2J\nX\u009b31m\u202e\x00é\ttail; "
     "session 7 stream 11 gone; session 7 stream 12 gone"),
    (("sessions", []), f"session 8 removed; session {BIG} removed; session 7 removed"),
]


def test_the_words_for_what_changes():
    whole = copy.deepcopy(WHOLE)
    frames = []
    for what, _ in STORY:
        if isinstance(what, tuple):
            *path, key, value = what or ("device_id", "dev")
            place = whole
            for part in path:
                place = place[part]
            place[key] = value
        kind = (1, "status-session") if isinstance(what, dict) else (0, "status-all")
        message = {"command_id": kind[0], "command_name": kind[1],
                   "payload": what if isinstance(what, dict) else whole}
        frames.append(what if isinstance(what, bytes) else json.dumps(message).encode())
    address = f"tcp://127.0.0.1:{free_port()}"
    with PlayedService(reply) as service:
        options = ("--server", service.endpoint, "--bind", address, "--count", len(STORY))
        with Watch(*options) as watch:
            watch.wait_line("is registered with")
            sender = pusher(address)
            for frame in frames:
                sender.send(frame)
            assert watch.wait() == 0
            sender.close()
            lines = watch.lines()
    assert len(lines) == len(STORY)
    for line, (what, words) in zip(lines, STORY):
        kind, said = re.fullmatch(r"\d\d:\d\d:\d\d\.\d{3}  (\S+) {2,}(.*)", line).groups()
        assert (kind == "malformed") == (words is MALFORMED), what
        assert said.startswith(words) if words is MALFORMED else said == words, what
        assert line.isprintable()
    assert service.requests[:2] == ["GET Server list", "Add remote info consumer"]


def test_a_watch_prints_what_comes_and_removes_itself(device, service):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        device.send(PTP, 1000, UNLOCKED)
        with Watch() as watch:
            watch.wait_registered()
            assert service.consumers() == ["tcp://127.0.0.1:5591"]
            device.send(PTP, 1000, LOCKED)
            watch.wait_output("  status-all      PTP locked, offset 7 ns")
            device.send(SESSION, 1003, session(7, {"id": 1, "alarms": [{}]}))
            watch.wait_output(" alarm raised: warning")
            device.send(SESSION, 1001, {"id": 7})
            device.send(PTP, 1000, UNLOCKED)
            watch.wait_output("session 7 removed; PTP lost its lock")
            assert watch.stop(number) == 0
        assert service.consumers() == []
    piped = f"set -o pipefail; {BIN}/kaiklactl watch | head -n 1"
    reader = subprocess.run(["bash", "-c", piped], capture_output=True, text=True, timeout=30)
    assert reader.returncode == 0 and "whole status" in reader.stdout
    assert service.consumers() == []

    consumer = service.consumer()
    with Watch("--json", "--count", 3, "--bind", "tcp://0.0.0.0:7001") as three:
        wait_until(three.lines, "the first message")
        assert sorted(service.consumers()) == sorted([consumer.address, "tcp://127.0.0.1:7001"])
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
        for restart in (1, 2):
            watch.wait_line("the service is gone", restart)
            with Service() as service:
                watch.wait_line("is registered again", restart)
                watch.wait_output("whole status", restart + 1)
                assert service.consumers() == ["tcp://localhost:7002"]
                if restart == 2:
                    service.remove("tcp://localhost:7002")
                    watch.wait_line("somebody else has removed")
                    watch.expected_status = 1
                    assert watch.wait() == 1


def test_a_watch_that_gets_nothing_says_so(device, service):
    device.node.close()
    with Watch() as watch:
        watch.wait_line('nothing has come yet; "kaiklactl doctor tcp://127.0.0.1:5591"')
        device.node.open()
        device.send(PTP, 1000, LOCKED)
        watch.wait_output("whole status")


def test_a_reader_that_stops_does_not_stop_the_watch(device, service):
    unread, ours = socket.socketpair()
    with Watch(stdout=ours) as watch:
        watch.wait_line("is registered with")
        # More than all queues in between hold together.
        for number in range(20_000):
            device.send(PTP, 1000, LOCKED if number % 2 else UNLOCKED)
        device.send(PTP, 1000, {"clock_id": "last"})
        wait_until(lambda: service.document()["ptp"]["clock_id"] == "last", "the last message")
    unread.close()
    ours.close()
    assert service.consumers() == []


def test_a_busy_service_is_not_waited_for_at_the_end(device, service):
    with PlayedService(lambda command: None if command == 1 else reply(command)) as busy:
        status, _, error = ctl("watch", "--timeout", "0.3", "--server", busy.endpoint)
        assert status == 3 and "waits, most likely for a consumer" in error
        wait_until(lambda: busy.requests[2:] == ["Remove remote info consumer"], "the removal")
    with Watch("--timeout", "60") as watch:
        watch.wait_registered()
        assert ctl("watch", "--bind", "tcp://127.0.0.1:5591")[2].endswith("maybe another watch, does; end it first.\n")
        service.send_signal(signal.SIGSTOP)
        watch.expected_status = 3
        assert watch.stop(signal.SIGTERM, seconds=5) == 3
        watch.wait_line("it removes tcp://127.0.0.1:5591 when it is free again")
        service.send_signal(signal.SIGCONT)
    wait_until(lambda: service.consumers() == [], "the removal")


def test_only_a_socket_is_replaced_by_a_watch(device, service, tmp_path):
    plain, path = tmp_path / "plain", tmp_path / "socket"
    plain.write_text("kept", encoding="ascii")
    status, _, error = ctl("watch", "--bind", f"ipc://{plain}")
    assert status == 2 and "is there and is no socket" in error
    assert plain.read_text(encoding="ascii") == "kept"
    with Watch("--bind", f"ipc://{path}") as killed:
        killed.wait_registered()
        status, _, error = ctl("watch", "--bind", f"ipc://{path}")
        assert status == 2 and "another program does" in error
        killed.kill()
    with Watch("--bind", f"ipc://{path}") as watch:
        watch.wait_registered()
    assert not path.exists()
