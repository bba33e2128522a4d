"""The gateway as its clients meet it.

    with Gateway(service=played.endpoint) as gateway:
        status, fields, body = gateway.get("/api/v1/status")     # the body parsed when it is JSON
        stream = gateway.stream(since="7c1f03aa-17")
        event = stream.next("session")                           # skips events of other kinds
"""

import base64
import functools
import http.client
import json
import re
import socket
import time

import jsonschema
import zmq

from peers import COMMAND_ENDPOINT, CONTEXT, ROOT, TIMEOUT, Process, free_port, wait_until

LIVE = ("heartbeat", "monitor", "source")
DESCRIPTION = json.loads((ROOT / "docs/openapi.json").read_text(encoding="utf-8"))
SCHEMAS = DESCRIPTION["components"]["schemas"]
# One for all: it remembers what the references lead to.
VALIDATOR = jsonschema.Draft202012Validator(DESCRIPTION)


def check(value, schema):
    """What is sent is what the description promises."""
    VALIDATOR.evolve(schema=schema).validate(value)
    return value


@functools.lru_cache(maxsize=1000)
def check_event(events, kind, text):
    """Many clients receive the same."""
    check(json.loads(text), SCHEMAS[events]["properties"][kind])


def described(path, status):
    """The schema of a path's JSON answer."""
    for known, item in DESCRIPTION["paths"].items():
        if re.fullmatch(re.sub(r"{\w+}", r"[^/]+", known), path.partition("?")[0]):
            content = item["get"]["responses"].get(str(status), {}).get("content", {})
            return next(iter(content.values()))["schema"] if content else SCHEMAS["Problem"]
    return SCHEMAS["Problem"]


def pusher(address):
    """What a service sends to the gateway with."""
    sender = CONTEXT.socket(zmq.PUSH)
    sender.connect(address)
    return sender


def message(kind, payload):
    return json.dumps({"command_id": kind, "command_name": "", "payload": payload}).encode()


class Gateway(Process):
    EVENTS = "Events"

    def __init__(self, *options, service=COMMAND_ENDPOINT, consumer=None, port=None, live=True, **popen):
        self.port = port or free_port()
        self.consumer = consumer or f"tcp://127.0.0.1:{free_port()}"
        super().__init__("kaikla-gateway", "--service", service, "--consumer", self.consumer,
                         "--listen", f"127.0.0.1:{self.port}", *options, **popen)
        self.wait_line("listening on")
        if live:
            wait_until(lambda: self.state() == "live" and self.status()["device"], "the device")

    def request(self, method, path, fields=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=3 * TIMEOUT)
        connection.request(method, path, headers=fields or {})
        response = connection.getresponse()
        body = response.read()
        connection.close()
        if "json" in response.headers.get("Content-Type", "") and body:
            body = check(json.loads(body), described(path, response.status))
        return response.status, response.headers, body

    def get(self, path, fields=None):
        return self.request("GET", path, fields)

    def status(self):
        return self.get("/api/v1/status")[2]

    def state(self):
        return self.status()["source"]["state"]

    def metrics(self):
        """{name with labels: value}"""
        text = self.get("/metrics")[2].decode()
        return {name: float(value) for name, value in re.findall(r"^([^# ].*) (\S+)$", text, re.M)}

    def connect(self, address="127.0.0.1", port=None, **options):
        return Connection(port or self.port, address, events=self.EVENTS, **options)

    def stream(self, since=None, path="/api/v1/events", user=None, **options):
        stream = self.connect(**options)
        fields = "Host: localhost\r\n" + (f"Last-Event-ID: {since}\r\n" if since else "")
        if user:
            word = base64.b64encode(user.encode()).decode()
            fields += f"Authorization: Basic {word}\r\n"
        stream.send(f"GET {path} HTTP/1.1\r\n{fields}\r\n")
        head = stream.until("\n\n")
        assert head.startswith("HTTP/1.1 200") and "text/event-stream" in head, head
        return stream


class Fleet(Gateway):
    """The view of many devices at a broker."""

    EVENTS = "FleetEvents"

    def __init__(self, address, *options, port=None):
        self.port = port or free_port()
        Process.__init__(self, "kaikla-gateway", "fleet", "--mqtt", address,
                         "--listen", f"127.0.0.1:{self.port}", *options)
        self.wait_line("listening on")

    def ready(self):
        return self.get("/readyz")[0] == 200

    def rows(self):
        """The table: {instance: row}"""
        return {row["instance"]: row for row in self.get("/api/v1/devices")[2]["devices"]}

    def device(self, instance):
        return self.get(f"/api/v1/devices/{instance}")[2]


class Connection:
    """A connection of a client's own; `address` is where it comes from."""

    def __init__(self, port, address, receive_buffer=None, tls=None, events=Gateway.EVENTS):
        self._kinds = events
        self._socket = socket.socket()
        self._socket.settimeout(3 * TIMEOUT)
        if receive_buffer:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self._socket.bind((address, 0))
        self._socket.connect(("127.0.0.1", port))
        if tls:
            self._socket = tls.wrap_socket(self._socket)
        self._text = ""
        self._events = 0

    def send(self, text):
        self._socket.sendall(text.encode())

    def until(self, end):
        """What comes up to and with `end`; without it, up to the end of the connection."""
        while end not in self._text:
            more = self._socket.recv(1 << 16)
            assert more, f"closed after {self._text!r}"
            self._text += more.decode()
        found, _, self._text = self._text.partition(end)
        return found + end

    def rest(self):
        """What comes until the other side closes."""
        text, self._text = self._text, ""
        try:
            while more := self._socket.recv(1 << 16):
                text += more.decode()
        except ConnectionResetError:
            pass
        return text

    def event(self):
        """The next event as {"event", "id" (if any), "data"}."""
        lines = [line.partition(": ") for line in self.until("\n\n").splitlines() if line]
        event = {name: value for name, _, value in lines}
        assert set(event) <= {"event", "id", "data"} and len(lines) == len(event)
        data = json.loads(event["data"])
        self._events += 1
        if self._events <= 50 or self._events % 50 == 0:
            check_event(self._kinds, event["event"], event["data"])
        assert ("id" in event) == (event["event"] != "heartbeat")
        return {**event, "data": data}

    def next(self, *kinds):
        """The next event of one of the kinds."""
        end = time.monotonic() + 3 * TIMEOUT
        while (event := self.event())["event"] not in kinds:
            assert time.monotonic() < end, f"waited in vain for {kinds}"
        return event

    def changes(self, count):
        """The next events that are not of LIVE: [(kind, data)]."""
        found = []
        while len(found) < count:
            event = self.event()
            if event["event"] not in LIVE:
                found.append((event["event"], event["data"]))
        return found

    def close(self):
        self._socket.close()
