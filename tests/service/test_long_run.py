"""Restarted services, consumers that come and go, and a long run."""

import itertools
import random
import time

import pytest

import oracle
import schemas
from peers import INSTRUMENTED, PTP, SESSION, SYSTEM, Service

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

    for order in orders if full else orders[:2]:
        for name in (*order, *order):
            # The first time it goes, the second time it comes back.
            present ^= {name}
            twin.node_present = NODE in present
            if name == NODE:
                device.node.open() if twin.node_present else device.node.close()
            elif name not in present:
                device.close(name)
            else:
                started = time.monotonic()
                device.open(name)
                device.wait_subscribed()
                longest = max(longest, time.monotonic() - started)
            for event in itertools.islice(events, 20):
                if event[0] in present:
                    twin.send(*event)
            twin.wait()
        for message in itertools.chain(*twin.compare().values()):
            schemas.check(message["command_name"], message)
            messages += 1
    assert longest < 1 or INSTRUMENTED
    record_property(f"restarts, part {part}", f"{len(orders) if full else 2} orders, {messages} "
                    f"messages as expected, followed again after {longest * 1000:.0f} ms")  # fmt: skip


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

        for _ in range(places):
            come()
        sent = received = comings = documents = early = 0
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
            for address, texts in model.sent.items():
                assert [consumers[address].receive_text() for _ in texts] == texts
                received += len(texts)
                texts.clear()
            model.lines.clear()
            if rng.random() < 0.2:
                go(rng.choice(list(consumers)[1:]))
                come()
                comings += 1
            if rng.random() < 0.02:
                assert service.document() == model.document()
                documents += 1
            if not early and sent > total / 10:
                early = service.memory(), service.descriptors()
        grown = service.memory() - early[0]
        assert service.descriptors() <= early[1] + 2
        assert grown < 4096 or INSTRUMENTED
        highest = service.memory("VmHWM")
    record_property("long run", f"{sent} notifications, {received} messages as expected, "
                    f"{comings} consumers came and went, {documents} documents equal")  # fmt: skip
    record_property("long run: memory", f"{highest} KiB at most, {grown} KiB more after a tenth")
