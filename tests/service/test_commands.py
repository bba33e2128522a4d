"""The command interface: every request gets one reply, and a bad one changes nothing."""

import itertools
import json
import random
import re
import resource
import socket
import threading
import time
from collections import Counter
from contextlib import suppress

import pytest
import zmq

import schemas
from peers import COMMAND_ENDPOINT, INSTRUMENTED, SESSION, TIMEOUT, Client, Consumer, Service

MIB = 1 << 20
MALFORMED, NOT_CONNECTED, UNKNOWN = -101, -33, -8
CHK = "ERR CHK(virtual int WebNotifierHandler::ipcProcessMsg(IpcMsg&, Json::Value&, bool&))::# "


def nested(levels):
    """A request that nests so deep altogether."""
    return b'{"command_id":3,"payload":%s%s}' % (b"[" * (levels - 1), b"]" * (levels - 1))


# Frames, result, command_id of the reply, and what the reason says.
REFUSED = [
    ([b""], MALFORMED, 0, "not JSON"),
    ([b'{"command_id":0}', b'{"command_id":0}'], MALFORMED, 0, "several frames"),
    ([b" " * (MIB + 1)], MALFORMED, 0, "longer than 1048576 bytes"),
    ([b'{"command_id":3,"x":"' + b"x" * MIB + b'"}'], MALFORMED, 0, "longer than"),
    ([b"[1]"], MALFORMED, 0, "not a JSON object"),
    ([b"\xff\xfe\x00"], MALFORMED, 0, "not JSON"),
    ([b'{"command_id":0}\x00'], MALFORMED, 0, "NUL"),
    ([b'{"command_id":0} x'], MALFORMED, 0, "not JSON"),
    ([b'{"command_id":0,"command_id":1}'], MALFORMED, 0, "not JSON"),
    ([nested(65)], MALFORMED, 0, "deeper"),
    ([nested(300_000)], MALFORMED, 0, "deeper"),
    ([b"{}"], MALFORMED, 0, '"command_id" is missing'),
    *(
        ([b'{"command_id":%s}' % value], MALFORMED, 0, "")
        for value in b'-1 4294967296 18446744073709551616 1e999 1.5 "1" null true {} []'.split()
    ),
    ([b'{"command_id":1,"command_name":{}}'], MALFORMED, 1, "cannot be decoded"),
    ([b'{"command_id":1,"payload":{"address":{}}}'], MALFORMED, 1, "cannot be decoded"),
    ([b'{"command_id":1,"payload":{"address":1e999}}'], MALFORMED, None, ""),
    ([b'{"command_id":2,"payload":["address"]}'], MALFORMED, 2, "cannot be decoded"),
    ([b'{"command_id":4}'], UNKNOWN, 4, "no command with this command_id"),
    ([b'{"command_id":4294967295,"payload":[[[]]]}'], UNKNOWN, 2**32 - 1, "no command"),
    ([b'{"command_id":1}'], NOT_CONNECTED, 1, "cannot connect"),
    *(
        ([b'{"command_id":1,"payload":{"address":%s}}' % address], NOT_CONNECTED, 1, "connect")
        for address in b'"" "nonsense" "tcp://" "tcp://127.0.0.1" 12'.split()
    ),
]


def test_a_refused_request_gets_one_reply_and_changes_nothing(device, service):
    device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})
    service.wait_line("session 1 - NMOS")
    before = service.document()
    names = {0: "", 1: "Add remote info consumer", 2: "Remove remote info consumer"}
    for frames, result, command, reason in REFUSED:
        reply = schemas.check("reply", json.loads(service.exchange(*frames)))
        shown = frames[0][:60]
        assert reply["result"] == result, shown
        assert reply["command_id"] == (reply["command_id"] if command is None else command), shown
        name = names.get(reply["command_id"], "not recognized")
        assert reply["command_name"] in (name, ""), shown
        assert reason in reply["error"] and reply["error"].endswith("."), shown
        assert reply["payload"] == {} and set(reply) == {*"result error payload".split(), *reply}
    assert service.document() == before
    assert service.consumers() == []
    lines = service.log()
    assert "ERR WebnotifierHandler command 4 is not recognized." in lines
    at = next(i for i, line in enumerate(lines) if "on addr nonsense." in line)
    assert lines[at : at + 2] == [
        "ERR WebnotifierPublisher: Error  Connecting socket on addr nonsense. "
        "Error [22]::Invalid argument",
        CHK + "Error Code -33",
    ]
    for just_allowed in (nested(64), b'{"command_id":3}'.ljust(MIB)):
        assert json.loads(service.exchange(just_allowed))["result"] == 0


def test_a_consumer_is_added_greeted_listed_and_removed(device, service):
    consumer = service.consumer()
    body = b'{"command_id":1,"payload":{"address":"%s"}}' % consumer.address.encode()
    assert service.exchange(body) == (
        b'{"command_id":1,"command_name":"Add remote info consumer","payload":{},"result":0}'
    )
    assert service.new_lines()[-1] == "DBG command 1 (Add remote info consumer) carried out"
    # Byte for byte, ascending: others in between, and texts that only begin alike.
    others = [consumer.address, "tcp://b:1", "tcp://a:2", "tcp://a:1", "tcp://a:10"]
    for address in others[1:]:
        assert service.add(address) == 0
    sent = [line for line in service.new_lines() if "Publishing message" in line]
    assert [re.search(r"\((.*)\)", line)[1] for line in sent] == others[1:]
    assert service.request(3)["payload"] == {"remote": sorted(others)}
    for address in (consumer.address.upper(), consumer.address + "0", *others, others[0]):
        assert service.remove(address) == 0
    assert service.exchange(b'{"command_id":3}') == (
        b'{"command_id":3,"command_name":"GET Server list","payload":{},"result":0}'
    )
    destroyed = service.wait_line("destroying socket to", count=5)
    assert destroyed == [f"WRN WebnotifierPublisher: destroying socket to {a}" for a in others]


@pytest.mark.skipif(INSTRUMENTED, reason="limits the address space")
def test_a_lack_of_memory_costs_a_command_and_never_cuts_a_text(device, service):
    def limit(room):
        size = resource.RLIM_INFINITY if room is None else (service.memory("VmSize") << 10) + room
        resource.prlimit(service.pid, resource.RLIMIT_AS, (size, resource.RLIM_INFINITY))

    short = (
        b'{"command_id":0,"command_name":"","error":"The service is short of memory.",'
        b'"payload":{},"result":-103}'
    )
    # As long as a request may be, and some seventy times as large in memory.
    part = b"," + b"[" * 60 + b"]" * 60
    huge = b'{"command_id":3,"payload":[0' + part * ((MIB - 40) // len(part)) + b"]}"
    limit(8 * MIB)
    for _ in range(3):
        assert service.exchange(huge) == short
        assert service.request(3)["result"] == 0
    assert service.lines_with("ERR command interface: std::bad_alloc")
    limit(None)
    consumer = service.consumer()

    # Each time the document has grown, so that there is not enough from the time before.
    def under_limits(first, ask):
        for session in range(first, first + 12):
            device.send(SESSION, 1003, {"id": session, "device_id": "", "nmos_id": "n" * 1_000_000})
        service.wait_line(f"session {first + 11} - NMOS")
        results = []
        for room in range(12):
            limit(room * 4 * MIB)
            results.append(ask())
        limit(None)
        return results, ask()

    replies, whole = under_limits(0, lambda: service.exchange(b'{"command_id":0}'))
    assert len(whole) > 12_000_000 and replies[0] == short and set(replies) <= {short, whole}
    results, last = under_limits(12, lambda: service.add(consumer.address))
    assert (results[0], last) == (-103, 0) and set(results) == {-103, 0}
    whole = service.document()
    for _ in service.lines_with("Publishing message to socket")[1:]:
        message = json.loads(consumer.receive_text())
        assert message["command_id"] == 1 or message["payload"] == whole
    assert json.loads(service.exchange(huge))["result"] == 0


class Regular(Client):
    """Registers, looks itself up, reads the status and leaves, over and over."""

    def __init__(self):
        super().__init__()
        self.consumer = Consumer()
        self.steps = itertools.cycle((1, 3, 0, 2, 4))

    def ask(self):
        self.command = next(self.steps)
        payload = {"address": self.consumer.address}
        self.send(json.dumps({"command_id": self.command, "payload": payload}).encode())

    def take(self):
        reply = json.loads(self.receive())
        assert (reply["command_id"], reply["result"]) == (self.command, -8 * (self.command == 4))
        if self.command == 3:
            assert reply["payload"]["remote"].count(self.consumer.address) == 1
        if self.command == 0:
            assert reply["payload"]["status"]["device_id"] == "dev"
        while self.consumer.receive_text(0):
            pass


class Vandal(Client):
    """Sends what no request is."""

    def ask(self):
        garbage = random.randbytes(random.randrange(1, 1000))
        frames, self.result, *_ = random.choice([([garbage], MALFORMED), *REFUSED])
        self.send(*frames)

    def take(self):
        assert json.loads(self.receive())["result"] == self.result


def stranger(over, visits):
    """Speaks no ZeroMQ, and hangs up as soon as something comes back."""
    port = int(COMMAND_ENDPOINT.rpartition(":")[2])
    while not over.is_set():
        address = ("127.0.0.1", port)
        with suppress(OSError), socket.create_connection(address, timeout=1) as connection:
            # Taken for the beginning of an old peer's name, which never ends. One that ends costs
            # now and then a reply of the library's REP socket.
            connection.sendall(b"\xfe" + random.randbytes(random.randrange(1, 200)))
            connection.recv(100)
        visits.append(1)


def test_a_crowd_of_clients_is_answered(device, full, record_property):
    with Service("-l", "2") as service:
        device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})
        clients = [Regular() for _ in range(25)] + [Vandal() for _ in range(20)]
        by_socket = {client.socket: client for client in clients}
        answers = Counter()
        poller = zmq.Poller()
        for client in clients:
            poller.register(client.socket, zmq.POLLIN)
            client.ask()
        over, visits = threading.Event(), []
        strangers = [threading.Thread(target=stranger, args=(over, visits)) for _ in range(5)]
        for thread in strangers:
            thread.start()
        end = time.monotonic() + (30 if full else 2)
        try:
            while time.monotonic() < end:
                ready = poller.poll(TIMEOUT * 1000)
                assert ready, "nobody is answered"
                for client in (by_socket[each] for each, _ in ready):
                    client.take()
                    client.ask()
                    answers[client] += 1
        finally:
            over.set()
        for thread in strangers:
            thread.join()
        assert len(answers) == len(clients) and visits
        assert service.request(3)["result"] == 0
    regular = sum(answers[client] for client in clients[:25])
    vandals = answers.total() - regular
    record_property("crowd: 50 clients", f"{regular} requests answered, {vandals} malformed ones "
                    f"refused, {len(visits)} connections without ZeroMQ")  # fmt: skip
