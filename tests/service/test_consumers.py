"""What consumers receive: everything, in order, over one connection; what a full queue does."""

import json
import time

from peers import INSTRUMENTED, SESSION, Consumer, Listener, Service, free_port, wait_until

FULL = "the queue to {} is full, waiting for it to be read"
QUEUE = 1000


class Numbers:
    """Numbered session statuses of a device, and what has to arrive of them."""

    def __init__(self, device, ballast=0):
        self.device, self.sent = device, 0
        self.ballast = "." * ballast

    def send(self, count):
        for _ in range(count):
            status = {"id": 1, "device_id": "dev", "nmos_id": f"{self.sent} {self.ballast}"}
            self.device.send(SESSION, 1003, status)
            self.sent += 1


def in_order(consumer, last):
    """Receives up to the number `last`; asserts that none is missing, twice or out of order."""
    numbers = []
    while last not in numbers[-1:]:
        message = json.loads(consumer.receive_text())
        # The document that greets it is not numbered.
        if message["command_id"] == 1:
            numbers.append(int(message["payload"]["nmos_id"].split()[0]))
    assert numbers == list(range(numbers[0], last + 1))
    return numbers


def test_a_listener_that_hangs_up_costs_no_message_and_no_order(device, service, record_property):
    listener = Listener(hangs_up=True)
    assert service.add(listener.address) == 0
    numbers = Numbers(device)
    numbers.send(500)
    wait_until(lambda: listener.accepted > 2, "the connection to be tried again")
    numbers.send(2500)
    service.wait_line(FULL.format(listener.address))
    memory = service.memory()
    assert memory < 40_000 or INSTRUMENTED
    # The block holds up what comes next, the rest is queued on the device's side.
    accepted = len(service.lines_with("Publishing message to socket"))
    assert QUEUE <= accepted < 3000
    listener.close()
    consumer = Consumer(port=listener.port)
    assert in_order(consumer, 2999)[0] == 0
    record_property("listener that hangs up", f"3000 messages in order after {listener.accepted} "
                    f"connections, {memory} KiB resident")  # fmt: skip


def test_a_stalled_consumer_sees_one_connection_and_gets_everything_once_it_reads(
    device, full, record_property
):
    count = 20_000
    # Warnings only: twenty thousand lines more would be most of this test's work.
    with Service("-l", "3") as service:
        consumer = service.consumer(hwm=1)
        numbers = Numbers(device, ballast=200)
        numbers.send(count)
        line = FULL.format(consumer.address)
        service.wait_line(line)
        time.sleep(12 if full else 1)
        memory = service.memory()
        assert in_order(consumer, count - 1)[0] == 0
        assert consumer.accepted() == 1
        # A block is told once, and ends when half of the queue is free.
        assert len(service.lines_with(line)) <= 2 * count / QUEUE
        assert service.consumers() == [consumer.address]
    record_property("stalled consumer", f"{count} messages in order over one connection, {memory} "
                    "KiB resident")  # fmt: skip


def test_a_stop_ends_a_block_and_delivers_what_is_queued_for_those_that_read(device, service):
    live = service.consumer()
    absent = [f"tcp://127.0.0.1:{free_port()}" for _ in range(3)]
    for address in absent:
        assert service.add(address) == 0
    numbers = Numbers(device)
    numbers.send(3 * QUEUE)
    # The first in the order of the addresses is named before the block.
    service.wait_line("WRN WebnotifierPublisher: " + FULL.format(absent[0]))
    started = time.monotonic()
    assert service.stop() == 0
    # A second, and what a busy machine adds.
    assert time.monotonic() - started < 1.5 or INSTRUMENTED
    published = service.lines_with(f"Publishing message to socket ({live.address})")
    assert len(live.drain()) == len(published) - 1 >= QUEUE - 1
    refused = "ERR [WebnotifierPublisher] Error: sending message to socket {} interrupted"
    for address in absent:
        assert service.lines_with(refused.format(address))
    assert service.log()[-1] == "INF Destroying 4 active connections"
    assert len(service.lines_with("WRN WebNotifierServer:: Main loop interrupted.")) == 1


def test_consumers_that_vanish_stall_and_return_cost_nobody_else_a_message(
    device, full, record_property
):
    rounds = 50 if full else 5
    with Service("-l", "3") as service:
        steady, stalling, vanishing = (service.consumer() for _ in range(3))
        numbers = Numbers(device)
        seen = {steady: [], stalling: []}
        lost = 0
        for _ in range(rounds):
            numbers.send(400)
            in_order(vanishing, numbers.sent - 1)
            # One goes while messages are on their way, the other only stops reading.
            numbers.send(50)
            vanishing.close()
            numbers.send(400)
            seen[steady] += in_order(steady, numbers.sent - 1)
            vanishing = Consumer(port=int(vanishing.address.rpartition(":")[2]))
            wait_until(vanishing.accepted, "the consumer to be connected to again")
            numbers.send(1)
            seen[steady] += in_order(steady, numbers.sent - 1)
            lost += 451 - len(in_order(vanishing, numbers.sent - 1))
            seen[stalling] += in_order(stalling, numbers.sent - 1)
        assert seen[steady] == seen[stalling] == list(range(numbers.sent))
    record_property("consumers that vanish, stall and return", f"{rounds} rounds, {numbers.sent} "
                    f"messages, {lost} lost with a connection, 0 else")  # fmt: skip
