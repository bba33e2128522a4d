"""The demo: a day in 12 seconds, and nothing left behind however it ends."""

import json
import os
import pathlib
import signal
import subprocess

import pytest
import zmq

from peers import BIN, COMMAND_ENDPOINT, ENDPOINTS, PTP, ROOT, bind, wait_until

COURSE = [
    "  status-all      whole status: 0 sessions, no alarm, PTP locked",
    "  status-session  session 1 new (2 streams)\n",
    "  status-session  session 2 new (3 streams)\n",
    " alarm raised: ",
    " alarm cleared: ",
    "  status-all      PTP lost its lock",
    "  status-all      PTP locked",
    "  status-all      port eth1 down\n",
    "  status-all      port eth1 up\n",
    "  status-all      session 1 removed",
    '\n{\n  "device_id": ',
]


class Demo:
    """The demo in a process group of its own, as a terminal runs it."""

    def __init__(self, directory):
        self._directory = directory
        self.process = subprocess.Popen(
            [ROOT / "tools/demo/demo", BIN], start_new_session=True, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={**os.environ, "TMPDIR": str(directory)})

    def read_until(self, text):
        # Its files are the first thing that has to be cleaned up.
        wait_until(lambda: list(self._directory.iterdir()), "the demo's files")
        while text and text not in (line := self.process.stdout.readline()):
            assert line, self.process.stderr.read()

    def finish(self):
        """(exit status, output, errors); no process that inherited our TMPDIR is left, no file."""
        output, error = self.process.communicate(timeout=60)
        marker = f"TMPDIR={self._directory}\0".encode()
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                environment = (process / "environ").read_bytes()
            except OSError:  # it has ended, or is another user's
                continue
            assert marker not in environment, process
        assert list(self._directory.iterdir()) == []
        return self.process.returncode, output, error


def test_the_demo_plays_the_day(tmp_path):
    status, output, error = Demo(tmp_path).finish()
    assert status == 0, error
    at = 0
    for line in COURSE:
        at = output.find(line, at)
        assert at >= 0, f"{line} is missing or too early in {output}"
    assert [session["id"] for session in json.loads(output[at:])["sessions"]] == [2]


# The first one comes while the parts start up.
@pytest.mark.parametrize("moment", ["", "A consumer registers", "whole status", "session 1 new"])
def test_the_demo_can_be_interrupted(tmp_path, moment):
    # Ctrl-C reaches every process of the terminal's foreground group, a plain kill only one.
    for number, send in ((signal.SIGINT, os.killpg), (signal.SIGTERM, os.kill)):
        demo = Demo(tmp_path)
        demo.read_until(moment)
        send(demo.process.pid, number)
        status, _, error = demo.finish()
        assert status == 128 + number, error


EVERYWHERE = COMMAND_ENDPOINT.replace("127.0.0.1", "*")


@pytest.mark.parametrize("endpoint, sentence", [
    (EVERYWHERE, f"demo: {EVERYWHERE} is taken by another program"),
    (ENDPOINTS[PTP], "demo: the simulated device does not start: "),
])
def test_the_demo_names_a_port_that_is_taken(tmp_path, endpoint, sentence):
    with bind(zmq.ROUTER, endpoint):
        status, output, error = Demo(tmp_path).finish()
    assert (status, output, error.count("\n")) == (1, "", 1)
    assert error.startswith(sentence)


def test_the_demo_leaves_a_running_service_alone(service, tmp_path):
    status, output, error = Demo(tmp_path).finish()
    assert (status, output) == (1, "")
    assert error.startswith(f"demo: {COMMAND_ENDPOINT} is taken: another kaikla runs")
    assert service.consumers() == []
