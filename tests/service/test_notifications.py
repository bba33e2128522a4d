"""What the platform's services say wrongly, and what the long run's chance seldom brings."""

import json

import oracle
from peers import PTP, SESSION, SYSTEM, wait_until

MIB = 1 << 20
STATUS = (SESSION, 1003)


def test_ports_of_one_name_and_ports_of_a_negative_number_in_a_configuration(device, service):
    twin = oracle.Twin(device, service)
    # Each is compared with the first of its name: the second list is the same, the fourth too.
    for states in ((1, 1), (1, 0), (0, 1), (0, 1), (0, 0), (0,)):
        eths = [{"name": "P", "state": state, "ip": str(states)} for state in states]
        twin.send(SYSTEM, 1001, {"eths": eths})
    twin.send(PTP, 1000, {"ports": [{"portNumber": number} for number in (2, 200, 65480, 2)]})
    twin.send(PTP, 1001, {"ports": [{"portNumber": n, "portSetting1": 9} for n in (2, 200)]})
    twin.compare()
    ports = service.document()["ptp"]["ports"]
    assert [port["portSetting1"] for port in ports] == [9, 0, 0, 9]


def message(kind, payload):
    return json.dumps({"command_id": kind, "payload": payload}).encode()


GOOD = message(1003, {"id": 1, "device_id": "dev"})
# Service, topic, frames behind it, the reason that the log names.
DROPPED = [
    (SESSION, b"1003", [], "it does not have two frames"),
    (SESSION, b"1003", [GOOD, b""], "it does not have two frames"),
    (SESSION, b"1003", [b" " * (MIB + 1)], "longer than 1048576 bytes"),
    (SESSION, b"1003", [b"[" * 100_000], "nested deeper than 64 levels"),
    (SESSION, b"1003", [b"[]"], "not a JSON object"),
    (SESSION, b"1003", [b'{"payload":{}}'], '"command_id" is missing'),
    (SESSION, b"1003", [message(1000, {})], "its command_id is 1000"),
    (SESSION, b"1003", [message(1003, [])], "its payload is not an object"),
    (SESSION, b"1003", [b'{"command_id":1003,"payload":{"id":1e999}}'], ""),
    (SYSTEM, b"1001", [b'{"command_id":1001,"payload":{"temperature_c":1e999}}'], ""),
    *(
        (service, b"%d" % kind, [message(kind, {"id": 2, name: value})], "")
        for service, kind, name in ((SESSION, 1000, "audio"), (SESSION, 1000, "video"),
                                    (SYSTEM, 1001, "eths"), (PTP, 1000, "ports"),
                                    (PTP, 1001, "ports"))
        for value in (5, "text", {}, {"a": 1}, True)
    ),
    *(
        (service, b"%d" % kind, [message(kind, payload)], "")
        for service, kind, payloads in (
            (SESSION, 1003, [{"id": -1}, {"id": "1"}, {"id": 2**64}, {"alarms": {"a": 1}},
                             {"alarms": [{"severity": {}}]}, {"alarms": [{"type": 2**31}]}]),
            (SESSION, 1001, [{"id": 2**64}]),
            (SESSION, 1000, [{"audio": [{"id": 1, "channels": 5}]}, {"video": [{"id": -1}]}]),
            (SYSTEM, 1001, [{"eths": [{"name": "P"}, 5]}]),
            (PTP, 1000, [{"offset_ns": 2**63}, {"profile": {"domain": []}}]),
            (PTP, 1001, [{"ports": [{"portNumber": {}}]}]),
        )
        for payload in payloads
    ),
]  # fmt: skip
NAMES = {SESSION: "session manager", SYSTEM: "system manager", PTP: "PTP management"}


def test_a_malformed_notification_is_dropped_whole_with_one_line(device, service):
    consumer = service.consumer()
    for event in ((*STATUS, {"id": 9, "device_id": "dev"}), (SYSTEM, 1001, {"eths": [{}]}),
                  (PTP, 1000, {"ports": [{"portNumber": 1}]})):  # fmt: skip
        device.send(*event)
        consumer.receive()
    before = service.document()
    for count, (name, topic, frames, reason) in enumerate(DROPPED, 1):
        device.send_frames(name, topic, *frames)
        # Nothing else but such a line tells.
        wait_until(lambda: service.lines_with(" dropped: ")[count - 1 :], str(frames)[:200], 2)
        line = service.lines_with(" dropped: ")[-1]
        expected = f"ERR {NAMES[name]}: notification {topic.decode()} dropped: "
        assert line.startswith(expected) and reason in line, frames[:1]
    # A subscription to 1003 brings 10031 too; that, and what is no number, is nobody's.
    device.send_frames(SESSION, b"10031", message(10031, {}))
    device.send_frames(SESSION, b"1003\n\x01\xff", GOOD)
    service.wait_line("notification 1003\\n\\x01")
    assert service.document() == before
    assert not any(line.startswith("ERR") and "10031" in line for line in service.log())
    device.send(*STATUS, {"id": 1, "device_id": "dev"})
    assert consumer.receive()["payload"]["id"] == 1
