"""The load generator calls a run void when a consumer did not get exactly what it should, and
counts and times right when it did. The subject, with its faults, is played here."""

import json
import subprocess
import time

import pytest
import zmq

import peers

LOAD = peers.BIN / "kaikla-load"
FAULTY_EVENT = 50
pytestmark = pytest.mark.skipif(not LOAD.exists(), reason="the measuring programs are not built")

# What a consumer gets in place of two messages.
FAULTS = {
    "lost": lambda one, two: [two],
    "repeated": lambda one, two: [one, one, two],
    "out of order": lambda one, two: [two, one],
    "altered": lambda one, two: [one.replace(b"minor", b"Minor"), two],
    "cut": lambda one, two: [one[:-1], two],
}


def run_load(*options, fault=None, delay=0.0):
    """The ended load, its output as JSON or its errors, and how many events the subject took. The
    subject does what the bare loop does, but a fault for the second consumer."""
    with zmq.Context() as context, subprocess.Popen(
            [LOAD, "--consumers", "2", *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            text=True) as load:
        context.linger = 0
        subscriber, commands, consumers = context.socket(zmq.SUB), context.socket(zmq.REP), []
        for service, kind in ((peers.SESSION, b"1003"), (peers.PTP, b"1000")):
            subscriber.connect(peers.ENDPOINTS[service])
            subscriber.subscribe(kind)
        commands.bind(peers.COMMAND_ENDPOINT.replace("*", "127.0.0.1"))
        events, held = 0, []
        while load.poll() is None:
            if commands.poll(0 if len(consumers) == 2 else 10):
                consumers.append(context.socket(zmq.PUSH))
                consumers[-1].connect(json.loads(commands.recv())["payload"]["address"])
                commands.send(b'{"result":0}')
            if not subscriber.poll(10):
                continue
            payload = json.loads(subscriber.recv_multipart()[1])["payload"]
            body = json.dumps({"command_id": 1, "command_name": "status-session",
                               "payload": payload}, separators=(",", ":"), sort_keys=True).encode()
            time.sleep(delay)
            consumers[0].send(body)
            held.append(body)
            if not fault or events != FAULTY_EVENT:
                for each in fault(*held) if len(held) == 2 else held:
                    consumers[1].send(each)
                held.clear()
            events += 1
        context.destroy()
        output, errors = load.communicate()
        return load.returncode, json.loads(output) if output else errors, events


@pytest.mark.parametrize("fault", FAULTS)
def test_faults_make_the_run_void(fault):
    status, errors, _ = run_load("--seconds", "0.3", fault=FAULTS[fault])
    assert status == 1
    assert "void: a consumer received something else in the place of event" in errors


def test_counts_what_arrived_while_it_measured():
    status, result, events = run_load("--seconds", "0.5")
    assert status == 0, result
    # Not the warm-up, and not what was on its way at the end.
    assert 0 < 0.5 * result["events_per_second"] < events


def test_times_the_way_through_the_subject():
    status, result, _ = run_load("--seconds", "0", "--latency", "0.5", delay=0.02)
    assert status == 0, result
    assert 20_000 <= result["latency_p50_us"] < 100_000
