"""Restarted services, crowds of clients, consumers that come and go, and a long run."""

import itertools
import json
import random
import socket
import threading
import time

import pytest
import zmq

import oracle
import schemas
from peers import (COMMAND_ENDPOINT, INSTRUMENTED, PTP, SESSION, SYSTEM, TIMEOUT, Client, Consumer,
                   Service)  # fmt: skip

NODE = "node"


@pytest.mark.parametrize("part", range(4))
def test_services_that_go_and_come_back_in_any_order_are_followed(
    device, service, full, part, record_property
):
    rng = random.Random(part)
    events = oracle.notifications(rng)
    twin = oracle.Twin(device, service)
    present = {SESSION, SYSTEM, PTP, NODE}
    longest = messages = 0
    orders = list(itertools.permutations([SESSION, SYSTEM, PTP, NODE]))[part::4]

    def tell():
        for event in itertools.islice(events, 20):
            if event[0] in present:
                twin.send(*event)
        twin.wait()

    for order in orders if full else orders[:2]:
        for name in order:
            present.remove(name)
            device.node.close() if name == NODE else device.close(name)
            twin.node_present = NODE in present
            tell()
        for name in order:
            present.add(name)
            started = time.monotonic()
            if name == NODE:
                device.node.open()
            else:
                device.open(name)
                device.wait_subscribed()
                longest = max(longest, time.monotonic() - started)
            twin.node_present = NODE in present
            tell()
        for message in itertools.chain(*twin.compare().values()):
            schemas.check(message["command_name"], message)
            messages += 1
    assert longest < 1 or INSTRUMENTED
    record_property(f"restarts, part {part}", f"{len(orders) if full else 2} orders, {messages} "
                    f"messages as expected, followed again after {longest * 1000:.0f} ms")  # fmt: skip


class Regular(Client):
    """Registers, looks itself up, reads the status and leaves, over and over."""

    def __init__(self):
        super().__init__()
        self.consumer = Consumer()
        self.steps = itertools.cycle((1, 3, 0, 2, 4))
        self.answers = 0

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
        self.answers += 1


class Vandal(Regular):
    """Sends what no request is."""

    def ask(self):
        number = random.randrange(1000)
        self.send(
            *random.choice([
                [random.randbytes(1 + number)],
                [b""],
                [b'{"command_id":0}', random.randbytes(number)],
                [b"[" * 100 * number],
                [b'{"command_id":0,"payload":{"address":"'],
                [b'{"command_id":-%d}' % (1 + number)],
                [b'{"command_id":1,"payload":{"address":{}}}'],
                [b"x" * ((1 << 20) + 1)],
            ])  # fmt: skip
        )

    def take(self):
        assert json.loads(self.receive())["result"] == -101
        self.answers += 1


def stranger(over, visits):
    """Speaks no ZeroMQ, and hangs up as soon as something comes back."""
    port = int(COMMAND_ENDPOINT.rpartition(":")[2])
    while not over.is_set():
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1) as connection:
                # Taken for the beginning of an old peer's name, which never ends. One that ends
                # costs now and then a reply of the library's REP socket.
                connection.sendall(b"\xfe" + random.randbytes(random.randrange(1, 200)))
                connection.recv(100)
        except OSError:
            pass
        visits.append(1)


def test_a_crowd_of_clients_is_answered(device, full, record_property):
    with Service("-l", "2") as service:
        device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})
        clients = [Regular() for _ in range(25)] + [Vandal() for _ in range(20)]
        poller = zmq.Poller()
        for client in clients:
            poller.register(client.socket, zmq.POLLIN)
            client.ask()
        by_socket = {client.socket: client for client in clients}
        over, visits = threading.Event(), []
        strangers = [threading.Thread(target=stranger, args=(over, visits)) for _ in range(5)]
        for thread in strangers:
            thread.start()
        end = time.monotonic() + (30 if full else 2)
        try:
            while time.monotonic() < end:
                ready = poller.poll(TIMEOUT * 1000)
                assert ready, "nobody is answered"
                for client, _ in ready:
                    by_socket[client].take()
                    by_socket[client].ask()
        finally:
            over.set()
            for thread in strangers:
                thread.join()
        assert all(client.answers > 0 for client in clients) and visits
        assert service.request(3)["result"] == 0
    regular = sum(client.answers for client in clients[:25])
    vandals = sum(client.answers for client in clients[25:])
    record_property("crowd: 50 clients", f"{regular} requests answered, {vandals} malformed ones "
                    f"refused, {len(visits)} connections without ZeroMQ")  # fmt: skip


def test_a_long_run_with_consumers_that_come_and_go(device, full, record_property):
    rng = random.Random(1)
    events = oracle.notifications(rng)
    model = oracle.Model()
    total, places = (200_000, 10) if full else (3_000, 4)
    with Service("-l", "2") as service:
        consumers = {}

        def come():
            consumer = service.consumer(greeting=False)
            consumers[consumer.address] = consumer
            model.add(consumer.address)
            model.lines.clear()

        def go(address):
            assert service.remove(address) == 0
            model.remove(address)
            consumer = consumers.pop(address)
            assert consumer.drain(0.05) == []
            consumer.close()
            del model.sent[address]

        def take():
            received = 0
            for address, texts in model.sent.items():
                for text in texts:
                    assert consumers[address].receive_text() == text
                received += len(texts)
                texts.clear()
            model.lines.clear()
            return received

        for _ in range(places):
            come()
        sent = received = comings = documents = 0
        early = None
        while sent < total:
            # Connections are independent of each other: each batch is one service's, and its last
            # notification is published.
            one = rng.choice((SESSION, SESSION, SYSTEM, PTP))
            batch = [event for event in itertools.islice(events, 60) if event[0] == one]
            batch.append((SESSION, 1003, {"id": 3, "device_id": "dev"}) if one == SESSION else
                         (one, 1000 + (one == SYSTEM), {"eths": [{"name": str(sent)}]}))  # fmt: skip
            for event in batch:
                device.send(*event)
                model.notify(*event)
            sent += len(batch)
            received += take()
            if rng.random() < 0.2:
                address = rng.choice(list(consumers)[1:])
                go(address)
                come()
                comings += 1
            if rng.random() < 0.02:
                assert service.document() == model.document()
                text = oracle.encode({"command_id": 0, "command_name": "status-all",
                                      "payload": model.document()})  # fmt: skip
                schemas.check("status-all", json.loads(text))
                documents += 1
            if early is None and sent > total / 10:
                early = service.memory(), service.descriptors()
        grown = service.memory() - early[0]
        assert service.descriptors() <= early[1] + 2
        assert grown < 4096 or INSTRUMENTED
        highest = service.memory("VmHWM")
    record_property("long run", f"{sent} notifications, {received} messages as expected, "
                    f"{comings} consumers came and went, {documents} documents equal")  # fmt: skip
    record_property("long run: memory", f"{highest} KiB at most, {grown} KiB more after a tenth")
