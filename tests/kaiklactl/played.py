"""kaiklactl with the real service, and with a played one that answers whatever a test wants."""

import json
import pathlib
import subprocess
import tempfile
import threading

import zmq

from peers import BIN, TIMEOUT, Process, bind, free_port, run, wait_until


def ctl(line, **options):
    """Runs kaiklactl to its end: (exit status, standard output, standard error)."""
    done = run("kaiklactl", *line.split(), **options)
    return done.returncode, done.stdout, done.stderr


def bash(script):
    """Runs a script that finds kaiklactl to its end, likewise."""
    done = subprocess.run(["bash", "-c", f"PATH={BIN}:$PATH; {script}"], capture_output=True,
                          text=True, timeout=3 * TIMEOUT, check=False)
    return done.returncode, done.stdout, done.stderr


class Watch(Process):
    """`kaiklactl watch`, whose output can be waited for."""

    def __init__(self, *arguments, **options):
        self._output = tempfile.NamedTemporaryFile()
        super().__init__("kaiklactl", "watch", *arguments, **{"stdout": self._output, **options})

    def lines(self):
        # Opened anew: the program writes at the position that the file object shares with it.
        return pathlib.Path(self._output.name).read_text(encoding="utf-8").splitlines()

    def wait_output(self, text, count=1):
        wait_until(lambda: sum(text in line for line in self.lines()) >= count, text)

    def wait_registered(self):
        self.wait_line("is registered with")
        self.wait_output("whole status")


class PlayedService:
    """A command interface; `answer(command_id)` gives the reply's bytes, or None for silence."""

    def __init__(self, answer, endpoint=None):
        self.endpoint = endpoint or f"tcp://127.0.0.1:{free_port()}"
        self.requests = []
        self._socket = bind(zmq.ROUTER, self.endpoint)
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._serve, args=(answer,))
        self._thread.start()

    def _serve(self, answer):
        while not self._ended.is_set():
            if self._socket.poll(10):
                *envelope, body = self._socket.recv_multipart()
                self.requests.append(json.loads(body)["command_id"])
                if (text := answer(self.requests[-1])) is not None:
                    self._socket.send_multipart([*envelope, text])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()
        self._socket.close()


def reply(command, payload=None, **more):
    """What the service answers to a command."""
    body = {"command_id": command, "command_name": "", "result": 0, "payload": payload or {}}
    return json.dumps({**body, **more}).encode()


def played_ctl(answer, line):
    """kaiklactl against a played service that gives every request the answer."""
    with PlayedService(lambda _: answer) as service:
        return ctl(f"{line} --server {service.endpoint}")
