"""kaikla as a process, and the ends of its connections."""

import json
import os
import signal
import subprocess
import tempfile
import time

import zmq

import protocol

TIMEOUT_S = 10


def wait_until(condition, what):
    """Polls `condition` until it gives something true, which is returned."""
    end = time.monotonic() + TIMEOUT_S
    while not (outcome := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited {TIMEOUT_S} s in vain for {what}")
        time.sleep(0.01)
    return outcome


class RunningService:
    """Starts the program that KAIKLA_PROGRAM names and stops it at the end of the block."""

    def __init__(self):
        self._context = zmq.Context()
        self._log = tempfile.TemporaryFile()
        self._process = subprocess.Popen([os.environ["KAIKLA_PROGRAM"]], stderr=self._log)

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        self._context.destroy(linger=0)
        self._process.send_signal(signal.SIGTERM)
        status = self._process.wait(TIMEOUT_S)
        if failure or status != 0:
            self._log.seek(0)
            print(self._log.read().decode(errors="replace"))
        self._log.close()
        assert status == 0, f"kaikla ended with {status}"

    def exchange(self, *frames):
        """Sends one request of any shape and returns the reply, parsed."""
        with self._context.socket(zmq.REQ) as client:
            client.linger = 0
            client.rcvtimeo = TIMEOUT_S * 1000
            client.connect(protocol.COMMAND_ENDPOINT)
            client.send_multipart(frames)
            return json.loads(client.recv())

    def request(self, message):
        return self.exchange(json.dumps(message).encode())

    def consumer(self):
        """A bound PULL socket and the address to register."""
        socket = self._context.socket(zmq.PULL)
        socket.rcvtimeo = TIMEOUT_S * 1000
        port = socket.bind_to_random_port("tcp://127.0.0.1")
        return socket, f"tcp://127.0.0.1:{port}"
