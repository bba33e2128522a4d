"""The demo: a day in 12 seconds, and nothing left behind however it ends."""

import os
import pathlib
import re
import signal
import socket
import subprocess
import time
import urllib.request

import pytest

from gateway.broker import MOSQUITTO
from peers import BIN, ROOT, Service, wait_until

COURSE = [
    "  status-all      whole status: 0 sessions, no alarm, PTP ",
    "  status-session  session 1 new (2 streams)\n", " alarm raised: ", " alarm cleared: ",
    "  status-all      PTP lost its lock", "  status-all      PTP locked",
    "  status-all      port eth1 down\n", "  status-all      session 1 removed",
    '\n{\n  "device_id": ',
]


def start(directory, *mode):
    """The demo in a process group of its own, as a terminal runs it."""
    return subprocess.Popen([ROOT / "tools/demo/demo", BIN, *mode], start_new_session=True, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            env={**os.environ, "TMPDIR": str(directory)})


def finish(demo, directory):
    """(exit status, output, errors). No file is left, and no process that inherited TMPDIR."""
    output, error = demo.communicate(timeout=60)
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            assert f"TMPDIR={directory}\0".encode() not in (process / "environ").read_bytes()
        except OSError:  # it has ended, or is another user's
            continue
    assert list(directory.iterdir()) == []
    return demo.returncode, output, error


def test_the_demo_plays_the_day(tmp_path):
    status, output, error = finish(start(tmp_path), tmp_path)
    assert status == 0, error
    for line in COURSE:
        _, found, output = output.partition(line)
        assert found, f"{line} is missing or too early"


# Ctrl-C reaches every process of the terminal's foreground group, a plain kill only one. The first
# moment comes while the parts start up.
@pytest.mark.parametrize("moment", ["", "A consumer is registered", "whole status"])
@pytest.mark.parametrize("number, send", [(signal.SIGINT, os.killpg), (signal.SIGTERM, os.kill)])
def test_the_demo_can_be_interrupted(tmp_path, moment, number, send):
    demo = start(tmp_path)
    wait_until(lambda: list(tmp_path.iterdir()), "the files that have to be removed")
    while moment and moment not in demo.stdout.readline():
        assert demo.poll() is None
    while demo.poll() is None:  # bash misses a Ctrl-C at the moment when a command ends
        send(demo.pid, number)
        time.sleep(1)
    assert finish(demo, tmp_path)[0] == 128 + number


@pytest.mark.parametrize("taker, sentence", [
    (lambda: socket.create_server(("", 5580)), "tcp://*:5580 is taken by another program"),
    (lambda: socket.create_server(("", 5583)),
     "the simulated device does not start: kaikla-sim: cannot play the PTP management service on "
     "tcp://127.0.0.1:5583: Address already in use"),
    (Service, "tcp://127.0.0.1:5580 is taken: another kaikla"),
])
def test_the_demo_names_a_port_that_is_taken(tmp_path, taker, sentence):
    with taker():
        status, _, error = finish(start(tmp_path), tmp_path)
    assert (status, error.count("\n")) == (1, 1) and f"demo: {sentence}" in error


@pytest.mark.parametrize("mode", ["show", pytest.param("fleet", marks=pytest.mark.skipif(
    not MOSQUITTO, reason="no mosquitto"))])
def test_the_day_can_be_looked_at_until_an_interrupt(tmp_path, mode):
    show = start(tmp_path, mode)
    address = re.search(r"http://\S+?/", show.stdout.readline())[0]
    urllib.request.urlopen(address + "readyz").close()
    os.killpg(show.pid, signal.SIGINT)
    assert finish(show, tmp_path)[::2] == (0, "")
