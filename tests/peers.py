"""The world around kaikla: the running service, a played device, consumers and clients.

Program paths, the launcher and the slowness come from the environment; see conftest.py.
"""

import contextlib
import functools
import itertools
import json
import os
import pathlib
import re
import shlex
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

import zmq

ROOT = pathlib.Path(__file__).resolve().parents[1]
BIN = pathlib.Path(os.environ.get("KAIKLA_BIN", ROOT / "build/bin")).resolve()
SLOW = float(os.environ.get("KAIKLA_SLOW", "1"))
# Seconds that anything may take, where nothing else is said.
LIMIT = 10
TIMEOUT = LIMIT * SLOW
# A sanitized build, or valgrind: limits of memory and tight limits in time mean nothing then.
INSTRUMENTED = SLOW > 1

SESSION, SYSTEM, PTP = "session-manager", "system-manager", "ptp-management"
_PROTOCOL = (ROOT / "platform/PlatformProtocol.hpp").read_text(encoding="utf-8")


def _endpoint(constant):
    return re.search(rf'{constant} = "(.*?)"', _PROTOCOL)[1]


COMMAND_ENDPOINT = _endpoint("kCommandEndpoint")
NODE_ENDPOINT = _endpoint("kNmosNodeEndpoint")
ENDPOINTS = {
    SESSION: _endpoint("kSessionManagerEndpoint"),
    SYSTEM: _endpoint("kSystemManagerEndpoint"),
    PTP: _endpoint("kPtpManagementEndpoint"),
}
# What kaikla subscribes to.
KINDS = {SESSION: (1000, 1001, 1003), SYSTEM: (1001,), PTP: (1000, 1001)}

CONTEXT = zmq.Context()
CONTEXT.set(zmq.MAX_SOCKETS, 20_000)
CONTEXT.linger = 0


def wait_until(condition, what, seconds=LIMIT):
    """Returns the first true outcome of `condition`."""
    end, pause = time.monotonic() + seconds * SLOW, 0.002
    while not (outcome := condition()):
        assert time.monotonic() < end, f"waited in vain for {what}"
        time.sleep(pause)
        pause = min(1.2 * pause, 0.05)
    return outcome


def run(*command, **options):
    """Runs a program of the build to its end: run("kaiklactl", "list").stdout."""
    arguments = [str(part) for part in command]
    options = {"capture_output": True, "text": True, "timeout": 3 * TIMEOUT, **options}
    return subprocess.run([BIN / arguments[0], *arguments[1:]], **options)


# Below the ports that the system gives to outgoing connections: a connection to one of those that
# nobody listens at can meet itself.
_PORTS = itertools.count(10_000)


def free_port():
    """A port that nobody listens at; none is given twice in this process."""
    for port in _PORTS:
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) != 0:
                return port
    raise AssertionError("no port is left")


def bind(kind, endpoint, **options):
    """A bound socket; a socket that had the port before gives it back in the background."""
    bound = CONTEXT.socket(kind)
    for name, value in {"sndhwm": 0, "rcvtimeo": int(TIMEOUT * 1000), **options}.items():
        setattr(bound, name, value)
    if kind == zmq.PULL:
        # Before anybody can connect.
        bound.get_monitor_socket(zmq.EVENT_ACCEPTED)

    def attempt():
        with contextlib.suppress(zmq.ZMQError):
            bound.bind(endpoint)
            return True

    wait_until(attempt, f"{endpoint} to be free")
    return bound


class Process:
    """A program of the build in the background; leaving the block ends it with status 0."""

    def __init__(self, *command, launcher=(), **options):
        self._log = tempfile.NamedTemporaryFile()
        self._lines = []
        self._parsed = 0
        self.expected_status = 0
        options = {"stderr": self._log, "stdin": subprocess.DEVNULL, **options}
        program = [str(part) for part in (*launcher, BIN / command[0], *command[1:])]
        self.process = subprocess.Popen(program, **options)
        self.pid, self.send_signal = self.process.pid, self.process.send_signal

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        try:
            if self.process.poll() is None:
                self.stop()
        finally:
            self.process.kill()
            self.process.wait()
            # Shown by pytest when the test fails.
            print("\n".join(self.log_text().splitlines()[-100:]))
            self._log.close()
        status = self.process.returncode
        assert failure or status == self.expected_status, f"ended with status {status}"

    def wait(self, seconds=LIMIT):
        """The exit status; a negative one is the signal that ended the process."""
        return self.process.wait(seconds * SLOW)

    def stop(self, number=signal.SIGTERM, seconds=LIMIT):
        """Ends the process with a signal; returns its exit status."""
        self.send_signal(number)
        return self.wait(seconds)

    def kill(self):
        self.expected_status = -signal.SIGKILL
        self.stop(signal.SIGKILL)

    def log_text(self):
        """What the process has written to standard error."""
        return pathlib.Path(self._log.name).read_text(encoding="utf-8", errors="replace")

    def log(self):
        """The lines so far, whole ones: "INF text", with # for a CHK's line in the source."""
        with open(self._log.name, "rb") as log:
            log.seek(self._parsed)
            text = log.read()
        text = text[: text.rfind(b"\n") + 1]
        self._parsed += len(text)
        for line in text.decode(errors="replace").split("\n")[:-1]:
            line = re.sub(r"^\S+Z (\w+) [\w-]+: ", r"\1 ", line)
            self._lines.append(re.sub(r"^(ERR CHK\(.*\)::)\d+ ", r"\1# ", line))
        return self._lines

    def lines_with(self, text):
        return [line for line in self.log() if text in line]

    def wait_line(self, text, count=1, seconds=LIMIT):
        """Waits until `count` lines hold the text; returns them."""
        enough = lambda: len(self.lines_with(text)) >= count
        wait_until(enough, f"{count} times '{text}'", seconds)
        return self.lines_with(text)

    def memory(self, field="VmRSS"):
        """A figure of /proc/PID/status, in KiB where it has a unit."""
        status = pathlib.Path(f"/proc/{self.pid}/status").read_text(encoding="ascii")
        return int(re.search(rf"^{field}:\s+(\d+)", status, re.MULTILINE)[1])

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))


class Client:
    """A connection to the command interface."""

    def __init__(self):
        self.socket = CONTEXT.socket(zmq.DEALER)
        self.socket.rcvtimeo = int(TIMEOUT * 1000)
        self.socket.connect(COMMAND_ENDPOINT)

    def send(self, *frames):
        self.socket.send_multipart([b"", *frames])

    def receive(self):
        delimiter, reply = self.socket.recv_multipart()
        assert delimiter == b""
        return reply

    def exchange(self, *frames):
        """One request of any shape; returns the reply's bytes."""
        self.send(*frames)
        return self.receive()

    def request(self, command, payload=None):
        body = {"command_id": command, "command_name": "", "payload": payload}
        return json.loads(self.exchange(json.dumps(body).encode()))

    def close(self):
        self.socket.close()


class Service(Process):
    """kaikla, ready to answer; `options` replaces `-l 6`, `wait=False` returns at once."""

    def __init__(self, *options, wait=True, launcher=(), **more):
        default = shlex.split(os.environ.get("KAIKLA_LAUNCHER", ""))
        launcher = (*launcher, *default)
        super().__init__("kaikla", *(options or ("-l", "6")), launcher=launcher, **more)
        self.client = Client()
        self.exchange, self.request = self.client.exchange, self.client.request
        self._seen = self._markers = 0
        try:
            if wait:
                self.request(3)
        except zmq.Again:
            self.process.kill()
            raise

    def __exit__(self, *failure):
        self.client.close()
        super().__exit__(*failure)

    def new_lines(self):
        """The lines since the last call, all that were logged so far, without the loop's own."""
        # Lines may be written after the reply that they belong to; a refusal is found among them.
        self._markers += 1
        marker = f"command {1_000_000 + self._markers} "
        self.request(1_000_000 + self._markers)
        self.wait_line("WRN " + marker)
        lines, self._seen = self._lines[self._seen :], len(self._lines)
        return [line for line in lines if marker not in line and "something received" not in line]

    def document(self):
        return self.request(0)["payload"]["status"]

    def add(self, address):
        """The result of registering a consumer."""
        return self.request(1, {"address": address})["result"]

    def remove(self, address):
        return self.request(2, {"address": address})["result"]

    def consumers(self):
        return self.request(3)["payload"].get("remote", [])

    def consumer(self, greeting=True, **options):
        """A consumer, registered and, unless greeting=False, greeted with a "status-all"."""
        consumer = Consumer(**options)
        assert self.add(consumer.address) == 0
        if greeting:
            self.learn_device_id(consumer.address)
            assert consumer.receive()["command_name"] == "status-all"
        return consumer

    def learn_device_id(self, address):
        """Registers the address until the NMOS node has been reached, on a busy machine too."""
        wait_until(lambda: self.document()["device_id"] or self.add(address), "the device's id")


class Consumer:
    """A bound PULL socket; `hwm` limits what is queued on its side."""

    def __init__(self, port=None, hwm=1000):
        # Ports are not reused: a removed consumer's connection may linger and find a stranger.
        self.address = f"tcp://127.0.0.1:{port or free_port()}"
        self._socket = bind(zmq.PULL, self.address, rcvhwm=hwm)
        self._monitor = self._socket.get_monitor_socket()
        self._accepted = 0

    def accepted(self):
        """How many connections it has had."""
        while self._monitor.poll(0):
            self._monitor.recv_multipart()
            self._accepted += 1
        return self._accepted

    def receive_text(self, seconds=None):
        """The next message; None when there is none in `seconds`."""
        if seconds is not None and not self._socket.poll(int(seconds * 1000)):
            return None
        return self._socket.recv().decode()

    def receive(self):
        """The next message, which must fit its schema."""
        import schemas  # pylint: disable=import-outside-toplevel

        message = json.loads(self.receive_text())
        return schemas.check(message["command_name"], message)

    def drain(self, quiet=0.2):
        """Every message until none comes for `quiet` seconds."""
        return list(iter(lambda: self.receive_text(quiet), None))

    def close(self):
        self._socket.disable_monitor()
        self._socket.close()


class Listener:
    """A plain TCP listener at a consumer's address that accepts, and hangs up or holds on."""

    def __init__(self, hangs_up=False):
        self._socket = socket.create_server(("127.0.0.1", free_port()))
        self.port = self._socket.getsockname()[1]
        self.address = f"tcp://127.0.0.1:{self.port}"
        self.accepted = 0
        self._held = []
        self._thread = threading.Thread(target=self._accept, args=(hangs_up,), daemon=True)
        self._thread.start()

    def _accept(self, hangs_up):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._socket.accept()
                self.accepted += 1
                if hangs_up:
                    connection.close()
                else:
                    self._held.append(connection)

    def close(self):
        self._socket.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        for connection in (self._socket, *self._held):
            connection.close()


class Device:
    """The services that kaikla listens to and asks: session manager, system manager, PTP
    management service (XPUB sockets here) and the NMOS node (`node`, a process of its own)."""

    def __init__(self, node="dev"):
        self._sockets = {}
        self._topics = {name: set() for name in ENDPOINTS}
        for name in ENDPOINTS:
            self.open(name)
        self.node = Node()
        self.node.answer(node)
        self.node.open()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for name in list(self._sockets):
            self.close(name)
        self.node.close()

    def open(self, name):
        self._sockets[name] = bind(zmq.XPUB, ENDPOINTS[name])

    def close(self, name):
        self._sockets.pop(name).close()
        self._topics[name].clear()

    def _subscribed(self, name):
        while self._sockets[name].poll(0):
            change = self._sockets[name].recv()
            (self._topics[name].add if change[0] else self._topics[name].discard)(change[1:])
        return self._topics[name]

    def wait_subscribed(self, wanted=True):
        """Waits until kaikla has subscribed to everything; wanted=False: until it has gone."""
        for name in self._sockets:
            topics = {b"%d" % kind for kind in KINDS[name] if wanted}
            wait_until(lambda: self._subscribed(name) == topics, f"what the {name} is asked for")

    def send(self, name, kind, payload):
        """Sends one notification, once kaikla has subscribed to its kind if it ever does."""
        message = {"command_id": kind, "command_name": "played by a test", "payload": payload}
        self.send_frames(name, b"%d" % kind, json.dumps(message).encode())

    def send_frames(self, name, topic, *frames):
        wanted = {b"%d" % kind for kind in KINDS[name]} & {topic}
        wait_until(lambda: wanted <= self._subscribed(name), f"a subscription to {name} {topic}")
        self._sockets[name].send_multipart([topic, *frames])


class Node:
    """The NMOS node service. Its process is kept for the next node of this test process.

    answer(reply, delay)    how each request is answered from now on, `delay` seconds late: a text
                            is the device's id, bytes or a list of them are raw frames, None is
                            silence, and Node.VANISH closes the endpoint
    script(manners)         one (reply, delay) for each of the next requests; the last one stays
    requests()              the requests since answer() or script(), as texts
    """

    VANISH = "vanish"
    _process = None

    def __init__(self):
        if Node._process is None or Node._process.poll() is not None:
            Node._process = subprocess.Popen(
                [sys.executable, __file__], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
            )

    def _ask(self, *what):
        print(json.dumps(what), file=Node._process.stdin, flush=True)
        return json.loads(Node._process.stdout.readline())

    open = functools.partialmethod(_ask, "open")
    close = functools.partialmethod(_ask, "close")
    requests = functools.partialmethod(_ask, "requests")

    def answer(self, reply, delay=0.0):
        self.script([(reply, delay)])

    def script(self, manners):
        self._ask("script", [(_frames(reply), delay) for reply, delay in manners])

    def wait_requests(self, count):
        wait_until(lambda: len(self.requests()) >= count, f"{count} requests to the node")


def device_reply(identity):
    """What a node answers that knows its device's id."""
    payload = {"device": {"id": identity, "label": "played by a test"}}
    name = {"command_id": 0, "command_name": "GET device info"}
    return json.dumps({**name, "result": 0, "payload": payload})


def _frames(reply):
    """A reply as the node's process is told: texts of single-byte characters."""
    if reply is None or reply is Node.VANISH:
        return reply
    if isinstance(reply, str):
        reply = device_reply(reply).encode()
    return [frame.decode("latin-1") for frame in ([reply] if isinstance(reply, bytes) else reply)]


class _NodeProcess:
    """The other side of Node: commands on standard input, one line of reply to each."""

    def __init__(self):
        self._router = None
        self._manners = []
        self._requests = []
        self._due = []  # (time, envelope, frames)

    def run(self):
        while True:
            poller = zmq.Poller()
            poller.register(sys.stdin, zmq.POLLIN)
            if self._router:
                poller.register(self._router, zmq.POLLIN)
            next_due = min((due[0] for due in self._due), default=None)
            wait = None if next_due is None else max(0, next_due - time.monotonic()) * 1000
            ready = dict(poller.poll(wait))
            if self._router in ready:
                self._take_request()
            if sys.stdin.fileno() in ready:
                line = sys.stdin.readline()
                if not line:
                    return
                name, *arguments = json.loads(line)
                print(json.dumps(getattr(self, name)(*arguments)), flush=True)
            for due in [due for due in self._due if due[0] <= time.monotonic()]:
                self._due.remove(due)
                self._router.send_multipart([*due[1], *due[2]])

    def _take_request(self):
        frames = self._router.recv_multipart()
        envelope = frames[: frames.index(b"") + 1]
        self._requests.append(frames[-1].decode("latin-1"))
        reply, delay = self._manners.pop(0) if len(self._manners) > 1 else self._manners[0]
        if reply == Node.VANISH:
            self.close()
        elif reply:
            reply = [frame.encode("latin-1") for frame in reply]
            self._due.append((time.monotonic() + delay, envelope, reply))

    def open(self):
        self._router = self._router or bind(zmq.ROUTER, NODE_ENDPOINT)

    def close(self):
        if self._router:
            self._router.close()
        self._router = None
        self._due.clear()

    def script(self, manners):
        self._manners = manners
        self._requests.clear()

    def requests(self):
        return self._requests


if __name__ == "__main__":
    # A busy machine must not make the node late.
    with contextlib.suppress(OSError):
        os.nice(-10)
    _NodeProcess().run()
