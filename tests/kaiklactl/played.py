"""kaiklactl with the real service, and with a played one that answers whatever a test wants."""

import json
import pathlib
import tempfile
import threading

import zmq

from peers import CONTEXT, Process, bind, free_port, run, wait_until


def ctl(*arguments, **options):
    """Runs kaiklactl to its end: (exit status, standard output, standard error)."""
    done = run("kaiklactl", *arguments, **options)
    return done.returncode, done.stdout, done.stderr


class Watch(Process):
    """`kaiklactl watch`, whose output and notices can be waited for."""

    def __init__(self, *arguments, **options):
        self._output = tempfile.NamedTemporaryFile()
        super().__init__("kaiklactl", "watch", *arguments, **{"stdout": self._output, **options})

    def lines(self):
        """Standard output."""
        return pathlib.Path(self._output.name).read_text(encoding="utf-8").splitlines()

    def wait_output(self, text, count=1):
        found = lambda: [line for line in self.lines() if text in line]
        wait_until(lambda: len(found()) >= count, f"{count} times '{text}' in {self.lines()}")
        return self

    def wait_registered(self):
        self.wait_line("is registered with")
        return self.wait_output("whole status")


class PlayedService:
    """A command interface; `answer(command_id)` gives the reply's bytes, or None for silence."""

    def __init__(self, answer):
        self.endpoint = f"tcp://127.0.0.1:{free_port()}"
        self.requests = []
        self._socket = bind(zmq.ROUTER, self.endpoint)
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._serve, args=(answer,))
        self._thread.start()

    def _serve(self, answer):
        while not self._ended.is_set():
            if self._socket.poll(10):
                client, delimiter, body = self._socket.recv_multipart()
                request = json.loads(body)
                self.requests.append(request["command_name"])
                reply = answer(request["command_id"])
                if reply is not None:
                    self._socket.send_multipart([client, delimiter, reply])

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


def played_ctl(answer, *arguments):
    """kaiklactl against a played service that gives every request the answer."""
    with PlayedService(lambda _: answer) as service:
        return ctl(*arguments, "--server", service.endpoint)


def pusher(address):
    """A service's connection to a consumer."""
    socket = CONTEXT.socket(zmq.PUSH)
    socket.connect(address)
    return socket
