"""What reaches consumers, clients and the log for any list of notifications."""

import random

import pytest

import oracle
from peers import SESSION, wait_until


def play(device, service, model, events):
    """Sends the events to the service and to the model, and compares everything."""
    start = len(service.log())
    model.lines.clear()
    consumers = {}
    for _ in range(2):
        consumer = service.consumer(greeting=False)
        model.add(consumer.address)
        consumers[consumer.address] = consumer
    last = None
    for event in events:
        if event[0] != last:
            # The services' connections are independent: another one's notification may overtake.
            wait_until(lambda: len(oracle.relevant(service.log()[start:])) >= len(model.lines), "x")
            last = event[0]
        device.send(*event)
        model.notify(*event)
    wait_until(lambda: len(oracle.relevant(service.log()[start:])) >= len(model.lines), "the log")
    for address, consumer in consumers.items():
        received = [consumer.receive_text() for _ in model.sent[address]]
        assert received == model.sent[address]
    assert service.document() == model.document()
    assert oracle.relevant(service.log()[start:]) == model.lines
    assert len(device.node.requests()) == model.asked


@pytest.mark.parametrize("seed", range(4))
def test_random_notifications(device, service, seed):
    events = oracle.notifications(random.Random(seed))
    play(device, service, oracle.Model(), [next(events) for _ in range(200)])
