"""The NMOS node: asked for the device's id while that is empty, however it behaves."""

import signal
import time

import pytest

from peers import INSTRUMENTED, NODE_ENDPOINT, PTP, SESSION, Node, device_reply

MIB = 1 << 20
UNREACHABLE, MALFORMED = -102, -101
REQUEST = '{"command_id":0,"command_name":"GET device info","payload":null}'
ASKING = "INF checkIfDeviceIdIsDefined:: device id is not defined. asking for it."
AT_ONCE, ANSWER_LIMIT = 0.3, 1.5


class Anonymous:
    """A service whose device id is unknown, with one consumer; registering it again asks once."""

    def __init__(self, device, service):
        self.node, self.device, self.service = device.node, device, service
        device.node.close()
        self.consumer = service.consumer(greeting=False)
        self.sessions = 0

    def ask(self):
        """Seconds that the service was busy with it, and the lines that it logged."""
        self.service.new_lines()
        started = time.monotonic()
        assert self.service.add(self.consumer.address) == 0
        took = time.monotonic() - started
        return took, self.service.new_lines()

    def forget(self):
        """A session without a device id empties the document's, and asks; returns the same."""
        self.service.new_lines()
        self.sessions += 1
        started = time.monotonic()
        self.device.send(SESSION, 1003, {"id": self.sessions, "device_id": ""})
        lines = []
        while not any(f"session {self.sessions} - NMOS" in line for line in lines):
            lines += self.service.new_lines()
        # The line is there before the wait for the node; commands are answered after it.
        lines += self.service.new_lines()
        return time.monotonic() - started, lines

    def device_id(self):
        return self.service.document()["device_id"]


@pytest.fixture
def anonymous(device, service):
    return Anonymous(device, service)


def failed(code):
    """The chain of lines of a registration that has no device id."""
    chain = ("checkIfDeviceIdIsDefined()", "publishAllDeviceStatus(std::string)")
    return [f"ERR CHK(int WebNotifierHandler::{name})::# Error Code {code}" for name in chain]


def test_an_absent_node_fails_at_once_and_is_found_when_it_comes_and_comes_back(
    anonymous, full, record_property
):
    longest = 0.0
    for _ in range(3):
        for _ in range(50 if full else 5):
            took, lines = anonymous.ask()
            longest = max(longest, took)
            assert took < AT_ONCE or INSTRUMENTED
            reason = f"ERR request to {NODE_ENDPOINT}: not connected"
            assert [ASKING, reason, *failed(UNREACHABLE)] == [
                line for line in lines if line.startswith(("INF", "ERR CHK", "ERR request"))
            ]
        anonymous.node.answer("dev")
        anonymous.node.open()
        anonymous.service.learn_device_id(anonymous.consumer.address)
        assert anonymous.device_id() == "dev"
        assert anonymous.node.requests() == [REQUEST]
        anonymous.node.close()
        anonymous.forget()
        assert anonymous.device_id() == ""
    record_property("absent node: longest request", f"{longest * 1000:.0f} ms")


def test_a_silent_node_is_given_up_after_a_second_and_its_late_answers_are_not_taken(
    anonymous, full, record_property
):
    node = anonymous.node
    node.open()
    # Every other answer comes when its request has been given up and the next one is pending.
    rounds = 10 if full else 2
    node.script(
        [(f"answer {n}", 1.05 if n % 2 else 0.15) for n in range(1, 2 * rounds + 1)] + [(None, 0)]
    )
    for n in range(1, rounds + 1):
        # A busy machine may not reach the node in time, which costs no request.
        while len(node.requests()) < 2 * n - 1:
            took, lines = anonymous.forget()
        assert 0.9 < took < ANSWER_LIMIT or INSTRUMENTED
        assert f"ERR request to {NODE_ENDPOINT}: no answer in time" in lines
        assert anonymous.device_id() == ""
        anonymous.service.learn_device_id(anonymous.consumer.address)
        assert anonymous.device_id() == f"answer {2 * n}"
    assert len(node.requests()) == 2 * rounds
    record_property("silent node", f"given up after {took * 1000:.0f} ms, {rounds} late answers, "
                    "0 taken for another's")  # fmt: skip


def test_nonsense_is_refused_an_answer_without_an_id_taken_and_the_next_one_asked_for(anonymous):
    node = anonymous.node
    node.open()
    answer = device_reply("x").encode()
    no_id = (b'7', b'{"device":"x"}', b'{"device":["x"]}', b'{"device":{"id":{}}}')
    malformed = [b"", b"\xff\xfe\x00", b"null", b'{"payload":{"device":{"id":', [answer, b""],
                 b'{"a":' + b"[" * 100_000, b" " * (MIB + 1),
                 b'{"result":"0","payload":{"device":{"id":"x"}}}',
                 *(b'{"payload":%s}' % payload for payload in no_id)]  # fmt: skip
    refused = b'{"result":-7,"payload":{"device":{"id":"x"}},"error":"no"}'
    table = [(reply, MALFORMED) for reply in malformed] + [(refused, -7)]
    # Without an id the document is published without one, and the next registration asks again.
    payloads = (b"null", b"{}", b'{"device":{}}', b'{"device":null}', b'{"device":{"id":""}}')
    table += [(reply, 0) for reply in (b"{}", *(b'{"payload":%s}' % part for part in payloads))]
    for reply, code in table:
        node.answer(reply)
        took, lines = anonymous.ask()
        assert took < AT_ONCE or INSTRUMENTED
        chain = failed(code) if code else []
        assert [line for line in lines if line.startswith("ERR CHK")] == chain, reply
        assert ("INF checkIfDeviceIdIsDefined:: " in lines) == (code == 0), reply
        assert code or anonymous.consumer.receive()["payload"]["device_id"] == ""
        assert len(node.requests()) == 1
    node.answer(b'{"payload":{"device":{"id":12}}}')
    anonymous.ask()
    assert anonymous.consumer.receive()["payload"]["device_id"] == "12"


def test_a_request_is_not_swallowed_by_a_connection_that_is_ending(anonymous, full):
    node = anonymous.node
    node.open()
    # What the node answers ends the connection each time, and what waits asks anew at once.
    count = 200
    node.script([(b"null", 0.3), (b"null", 0)])
    for _ in range(count):
        anonymous.device.send(PTP, 1000, {})
    lines = anonymous.service.wait_line(f"ERR request to {NODE_ENDPOINT}: ", 1 + count)
    assert not any("no answer in time" in line for line in lines)
    node.close()
    for round_ in range(60 if full else 12):
        # The node goes while it is asked, or right before, and another one takes its place.
        node.open()
        node.answer(Node.VANISH if round_ % 2 else "dev")
        took, _ = anonymous.ask()
        assert took < ANSWER_LIMIT or INSTRUMENTED
        node.close()
        node.answer(f"round {round_}")
        node.open()
        anonymous.forget()
        assert anonymous.device_id() in (f"round {round_}", "")
        anonymous.service.learn_device_id(anonymous.consumer.address)
        assert anonymous.device_id() == f"round {round_}"
        node.close()
        anonymous.forget()


def test_a_stop_ends_the_wait_for_the_node_and_the_log_tells_what_it_was(anonymous):
    node = anonymous.node
    node.open()
    node.answer(None)
    anonymous.device.send(PTP, 1000, {})
    # Written before the wait, not after it.
    anonymous.service.wait_line(ASKING, 2, seconds=0.9)
    node.wait_requests(1)
    started = time.monotonic()
    anonymous.service.send_signal(signal.SIGTERM)
    assert anonymous.service.wait() == 0
    assert time.monotonic() - started < 0.95 or INSTRUMENTED
    assert "no answer in time" not in anonymous.service.log_text()
    assert "WRN WebNotifierServer:: Main loop interrupted." in anonymous.service.log()
