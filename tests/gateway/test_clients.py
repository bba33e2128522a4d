"""Clients of every kind: what they may ask for, and what the gateway does with bad ones."""

import json
import resource
import time

import pytest

from gateway.portal import Gateway, message, pusher
from kaiklactl.played import PlayedService, reply
from peers import INSTRUMENTED, wait_until

# Thousands of connections end in this process.
HARD = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (HARD, HARD))


class Source(PlayedService):
    """A played service that also sends sessions."""

    def __init__(self):
        super().__init__(lambda command: reply(command, {"status": {"device_id": "dev"},
                                                         "remote": [self.consumer]}))
        self.consumer = None
        self.number = 0

    def send(self, count=1, ballast=0):
        """Sessions with new numbers; a size each."""
        self._sender = getattr(self, "_sender", None) or pusher(self.consumer)
        for _ in range(count):
            self.number += 1
            payload = {"id": self.number % 50, "nmos_id": f"{self.number} {'.' * ballast}"}
            self._sender.send(message(1, payload))


@pytest.fixture
def source():
    with Source() as played:
        yield played


@pytest.fixture
def gateway(source):
    with Gateway(service=source.endpoint) as running:
        source.consumer = running.consumer
        yield running


@pytest.mark.parametrize("request_text, status, reason", [
    ("POST /api/v1/status HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1\r\n\r\nx", 405, "method"),
    ("OPTIONS /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n", 405, "method"),
    ("GET /api/v1/status HTTP/1.1\r\nHost: evil.example\r\n\r\n", 421, "host"),
    ("GET /api/v1/status HTTP/1.1\r\nHost: 127.0.0.2\r\n\r\n", 421, "host"),
    ("GET http://evil.example/ HTTP/1.1\r\nHost: localhost\r\n\r\n", 421, "host"),
    ("GET /api/v1/status HTTP/1.1\r\n\r\n", 400, "host"),
    ("GET / HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n", 400, "host"),
    ("GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nhello", 413, "body"),
    ("GET / HTTP/1.1\r\nHost: localhost\r\nX: " + "x" * 9000 + "\r\n\r\n", 431, "head-too-large"),
    ("nonsense\r\n\r\n", 400, "malformed"),
    ("GET /../../etc/passwd HTTP/1.1\r\nHost: localhost\r\n\r\n", 404, None),
    ("GET /assets/..%2f..%2fetc/passwd HTTP/1.1\r\nHost: localhost\r\n\r\n", 404, None),
    ("GET /api/v1/sessions/7x HTTP/1.1\r\nHost: LOCALHOST:1\r\n\r\n", 404, None),
])
def test_a_bad_request_is_a_problem(gateway, request_text, status, reason):
    connection = gateway.connect()
    connection.send(request_text)
    head = connection.until("\r\n\r\n")
    assert head.startswith(f"HTTP/1.1 {status} ")
    assert "Content-Type: application/problem+json\r\n" in head
    assert "Content-Security-Policy: default-src 'none';" in head
    assert json.loads(connection.until("}"))["status"] == status
    if reason:
        assert gateway.metrics()[f'kaikla_gateway_refusals_total{{reason="{reason}"}}'] == 1
        gateway.wait_line(f"refusal ({reason})")


def test_a_connection_carries_many_requests(gateway):
    connection = gateway.connect()
    one = "{} /api/v1/status HTTP/1.1\r\nHost: localhost:9\r\n{}\r\n"
    connection.send(one.format("GET", "") + one.format("HEAD", ""))
    head = connection.until("\r\n\r\n")
    tag = next(line for line in head.splitlines() if line.startswith("ETag: ")).partition(" ")[2]
    body = json.loads(connection.until("\n"))
    assert tag == f'W/"{body["epoch"]}-{body["seq"]}"'
    assert f"ETag: {tag}" in connection.until("\r\n\r\n")
    connection.send(one.format("GET", f"If-None-Match: {tag}\r\n"))
    head = connection.until("\r\n\r\n")
    assert head.startswith("HTTP/1.1 304 ") and "Content-Length" not in head
    connection.send("GET HTTP://localhost:9/healthz HTTP/1.1\r\nHost: ignored.example\r\n\r\n")
    assert connection.until("ok\n").startswith("HTTP/1.1 200 ")
    connection.send("HEAD /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n")
    assert "Content-Type: text/event-stream" in connection.until("\r\n\r\n")
    connection.send(one.format("GET", "Connection: close\r\n"))
    assert connection.until("\r\n\r\n").startswith("HTTP/1.1 200 ")
    assert json.loads(connection.rest())["seq"] == body["seq"]


def test_a_head_that_never_ends_is_cut_off(gateway):
    slow, half = gateway.connect(), gateway.connect()
    slow.send("GET / HTTP/1.1\r\n")
    half.send("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\nGET /")
    half.until("ok\n")
    start = time.monotonic()
    assert slow.rest() == half.rest() == ""
    assert 9 < time.monotonic() - start < 25
    assert gateway.metrics()['kaikla_gateway_refusals_total{reason="slow-head"}'] == 2


def test_who_comes_back_gets_what_was_missed(gateway, source):
    stream = gateway.stream()
    stream.next("snapshot")
    source.send(30)
    events = [stream.next("session") for _ in range(30)]
    stream.close()
    reader = gateway.stream(since=events[-1]["id"])
    source.send(600)
    for number in range(31, 631):
        event = reader.next("session", "resync")
        assert event["event"] == "session", "a burst is not the fault of who reads"
        assert event["data"]["session"]["nmos_id"].startswith(f"{number} ")
    wait_until(lambda: gateway.status()["seq"] - events[-1]["data"]["seq"] >= 600, "the events")
    for options in ({"since": events[4]["id"]},
                    {"path": f"/api/v1/events?since={events[4]['id']}"}):
        stream = gateway.stream(**options)
        numbers = []
        while not numbers or numbers[-1] != 630:
            event = stream.next("session", "snapshot", "resync")
            assert event["event"] == "session"
            numbers.append(int(event["data"]["session"]["nmos_id"].split()[0]))
        assert numbers == list(range(6, 631)), "in order, none missing, none twice"
    source.send(1100)
    wait_until(lambda: gateway.status()["seq"] - events[-1]["data"]["seq"] >= 1700, "the events")
    assert gateway.stream(since=events[4]["id"]).event()["event"] == "snapshot"
    assert gateway.stream(since="nonsense-1").event()["event"] == "snapshot"


def test_who_does_not_read_is_closed_and_holds_up_nobody(gateway, source):
    stalled = gateway.stream(receive_buffer=4096, address="127.0.0.7")
    slow = gateway.stream(receive_buffer=4096, address="127.0.0.8")
    reader = gateway.stream()
    start = time.monotonic()
    for attempt in range(3):
        # Each burst is within the bounds, all of them together are far over them.
        for _ in range(10):
            source.send(80, ballast=1500)
            for _ in range(80):
                reader.next("session")
        if attempt < 2:
            missed = slow.next("resync")
            snapshot = slow.event()
            assert (missed["data"]["reason"], snapshot["event"]) == ("slow", "snapshot")
            # A client that is cut off between the two comes back from before the gap.
            assert missed["id"] == f"{snapshot['data']['epoch']}-{missed['data']['seq']}"
            assert snapshot["data"]["seq"] == missed["data"]["seq"] + missed["data"]["dropped"]
    assert slow.rest().count("event: resync") == 0
    evictions = lambda: gateway.metrics().get('kaikla_gateway_evictions_total{reason="stalled"}')
    wait_until(evictions, "the stalled client to be closed", seconds=30)
    assert stalled.rest() and time.monotonic() - start > 9
    metrics = gateway.metrics()
    assert metrics['kaikla_gateway_evictions_total{reason="slow"}'] == 1
    assert metrics["kaikla_gateway_dropped_events_total"] > 500
    assert metrics["kaikla_gateway_clients"] == 1
    assert metrics["kaikla_gateway_delivery_seconds_count"] >= 2400
    (client,) = gateway.get("/api/v1/clients")[2]["clients"]
    assert (client["address"], client["dropped_events"]) == ("127.0.0.1", 0)
    source.send()
    assert reader.next("session")


def test_a_thousand_clients(gateway, source):
    streams = []
    for place in range(16):
        for _ in range(64 if place < 15 else 40):
            streams.append(gateway.stream(address=f"127.0.1.{place}"))

    def refused(address, forwarded=""):
        extra = gateway.connect(address)
        extra.send(f"GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n{forwarded}\r\n")
        return extra.until("\r\n\r\n")

    assert refused("127.0.1.0").startswith("HTTP/1.1 429 ")
    full = refused("127.0.2.0")
    assert full.startswith("HTTP/1.1 503 ") and "Retry-After: " in full
    assert gateway.get("/healthz")[0] == 200, "others are still answered"
    source.send(5)
    for stream in streams:
        numbers = [stream.next("session")["data"]["seq"] for _ in range(5)]
        assert numbers == sorted(set(numbers))
    assert gateway.metrics()["kaikla_gateway_clients"] == 1000
    for stream in streams[:64]:
        stream.close()
    wait_until(lambda: gateway.metrics()["kaikla_gateway_clients"] == 936, "them to have gone")
    # A proxy on this host speaks for many.
    forwarded = "X-Forwarded-For: 198.51.100.1, 127.0.1.1\r\n"
    assert refused("127.0.0.1", forwarded).startswith("HTTP/1.1 429 ")


def test_a_flood_of_connections_leaves_room(gateway):
    stream, descriptors, sizes = gateway.stream(), gateway.descriptors(), []
    for _ in range(2):
        flood = []
        for number in range(2000):
            # Most from one address; one half says nothing, the other begins and never ends.
            flood.append(gateway.connect("127.0.3.1" if number % 4 else f"127.0.4.{number % 200}"))
            flood[-1].send("GET / HTTP/1.1\r\n" if number % 2 else "")
            if number % 400 == 399:
                assert gateway.get("/")[0] == 200, "the page is given to who asks for it"
        assert gateway.descriptors() < descriptors + 1300
        for connection in flood:
            connection.close()
        wait_until(lambda: gateway.descriptors() <= descriptors + 1, "the connections to be gone")
        sizes.append(gateway.memory())
    metrics = gateway.metrics()
    left = [metrics.get(f"kaikla_gateway_{kind}", 0) for kind in (
        'evictions_total{reason="room"}', 'refusals_total{reason="slow-head"}')]
    assert sum(left) >= 2 * (2000 - 1256)
    assert stream.next("heartbeat"), "a client of the events has kept its place"
    assert INSTRUMENTED or sizes[1] < sizes[0] + 1024, "nothing is kept of them"
