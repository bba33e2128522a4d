"""What the platform's services say: carried through as the model has it, or dropped whole."""

import json

import pytest

import oracle
from peers import PTP, SESSION, SYSTEM, wait_until

MIB = 1 << 20
STATUS = (SESSION, 1003)


def eths(*ports):
    keys = ("name", "state", "ip")
    return SYSTEM, 1001, {"eths": [dict(zip(keys, port)) for port in ports], "uptime_s": 1}


def ports(*numbers):
    return [{"portNumber": number, "portSetting1": 1} for number in numbers]


# Each a list of notifications; what is looked for afterwards in the document, and in how many
# messages the consumers were told of it. The model knows the rest.
SCENES = {
    "audio before video, nothing else of the configuration": (
        [(SESSION, 1000, {"id": 7, "nmos_id": "n", "video": [{"id": 5, "type": "x", "class": 1}],
                          "audio": [{"id": 11, "codec": "l24"}, {"id": 12}]})],
        lambda d: [s["id"] for s in d["sessions"][0]["stream"]] == [11, 12, 5], 1,
    ),
    "an updated session moves to the end": (
        [(*STATUS, {"id": n, "device_id": "dev"}) for n in (1, 2, 1)]
        + [(SESSION, 1000, {"id": 2})],
        lambda d: [s["id"] for s in d["sessions"]] == [1, 2], 4,
    ),
    "a removal is silent, a second one too": (
        [(*STATUS, {"id": 2**64 - 1, "device_id": "dev"})]
        + [(SESSION, 1001, {"id": n}) for n in (5, 2**64 - 1, 2**64 - 1)],
        lambda d: "sessions" not in d, 1,
    ),
    "a session without a device id makes the node be asked": (
        [(*STATUS, {"id": 1, "device_id": "other"}), (*STATUS, {"id": 1}), (PTP, 1000, {})],
        lambda d: d["device_id"] == "dev" and d["sessions"][0]["device_id"] == "", 3,
    ),
    "missing members of a status take their defaults": (
        [(*STATUS, {"stream": [{"alarms": [{}, {"severity": ""}]}, {}], "alarms": [{"type": -1}]})],
        lambda d: d["sessions"][0]["stream"][0]["alarms"][0]["severity"] == "warning", 1,
    ),
    "what is no list in a status has no elements": (
        [(*STATUS, {"id": n, "device_id": "dev", "alarms": value, "stream": value})
         for n, value in enumerate((5, "text", True, None, []))],
        lambda d: all(set(s) == {"device_id", "id", "nmos_id"} for s in d["sessions"]), 5,
    ),
    "the same PTP status is published again, a fresh one is read into a fresh record": (
        [(PTP, 1000, {"locked": True, "ports": ports(1, 2)})] * 2 + [(PTP, 1000, {})],
        lambda d: not d["ptp"]["locked"] and "ports" not in d["ptp"], 3,
    ),
    "a PTP configuration sets its settings on every port of the number": (
        [(PTP, 1000, {"clock_id": "c", "ports": ports(2, 3, 2, 200, 65480)}),
         (PTP, 1001, {"cfgFlag": 2, "cfgSetting1": 300, "ports": [
             {"portNumber": n, "portSetting1": 9, "portSetting3": -1} for n in (2, 200, 7)]})],
        lambda d: [p["portSetting1"] for p in d["ptp"]["ports"]] == [9, 1, 9, 1, 1]
        and d["ptp"]["cfgSetting1"] == 44 and d["ptp"]["cfgFlag"] and d["ptp"]["clock_id"] == "c", 2,
    ),
    "ports count by number, name and state": (
        [eths(("P", 1, "old"), ("Q", 1, "old")), eths(("Q", 1, "new"), ("P", 1, "new"))],
        lambda d: [e["name"] + e["ip"] for e in d["eths"]] == ["Pold", "Qold"], 1,
    ),
    "each port is compared with the first of its name": (
        [eths(("P", 1, "a"), ("P", 1, "b")), eths(("P", 1, "c"), ("Q", 1, "c")),
         eths(("P", 1, "d"), ("P", 0, "d")), eths(("P", 0, "e"), ("P", 1, "e"))],
        lambda d: [e["ip"] for e in d["eths"]] == ["e", "e"], 2,
    ),
    "no ports any more": (
        [eths(("P", 1, "")), eths(), eths(), (SYSTEM, 1001, {"eths": None})],
        lambda d: "eths" not in d, 2,
    ),
    "kinds that nobody asked for": (
        [(SESSION, kind, {"id": 1, "name": "n", "sdp": "s"}) for kind in (1002, 1004, 1005, 1006)]
        + [(SYSTEM, kind, {"eths": [{"name": "P"}]}) for kind in (1000, 1002, 1003)],
        lambda d: set(d) == {"device_id", "ptp"}, 0,
    ),
}  # fmt: skip


@pytest.mark.parametrize("scene", SCENES)
def test_scenes(device, service, scene):
    events, expected, messages = SCENES[scene]
    twin = oracle.Twin(device, service)
    for event in events:
        twin.send(*event)
    sent = twin.compare()
    assert expected(service.document())
    # One more greeted each consumer, the first of them alone.
    assert [len(texts) for texts in sent.values()] == [1 + messages] * 2


def message(kind, payload):
    return json.dumps({"command_id": kind, "payload": payload}).encode()


GOOD = message(1003, {"id": 1, "device_id": "dev"})
# Service, topic, frames behind it, the reason that the log names.
DROPPED = [
    (SESSION, b"1003", [], "it does not have two frames"),
    (SESSION, b"1003", [GOOD, b""], "it does not have two frames"),
    (SESSION, b"1003", [b""], "not JSON"),
    (SESSION, b"1003", [b" " * (MIB + 1)], "longer than 1048576 bytes"),
    (SESSION, b"1003", [b"[" * 100_000], "nested deeper than 64 levels"),
    (SESSION, b"1003", [b"[]"], "not a JSON object"),
    (SESSION, b"1003", [b'{"payload":{}}'], '"command_id" is missing'),
    (SESSION, b"1003", [message(1000, {})], "its command_id is 1000"),
    (SESSION, b"1003", [message(1003, [])], "its payload is not an object"),
    (SESSION, b"1003", [b'{"command_id":1003}'], "its payload is not an object"),
    (SESSION, b"1003", [b'{"command_id":1003,"payload":{"id":1e999}}'], ""),
    (SYSTEM, b"1001", [b'{"command_id":1001,"payload":{"temperature_c":1e999}}'], ""),
    *(
        (service, b"%d" % kind, [message(kind, {"id": 2, name: value})], "")
        for service, kind, name in (
            (SESSION, 1000, "audio"),
            (SESSION, 1000, "video"),
            (SYSTEM, 1001, "eths"),
            (PTP, 1000, "ports"),
            (PTP, 1001, "ports"),
        )
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
    for event in ((*STATUS, {"id": 9, "device_id": "dev"}), eths(("P", 1, "")),
                  (PTP, 1000, {"ports": ports(1)})):  # fmt: skip
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
