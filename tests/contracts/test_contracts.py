"""The schemas and the documents against the messages of the running service."""

import json
import re

import pytest

import schemas
from peers import PTP, ROOT, SESSION, SYSTEM, Device, Service, device_reply, run

# Every example of the document, in its order.
DOCUMENT = (ROOT / "docs/messages.md").read_text(encoding="utf-8")
EXAMPLES = [json.loads(text) for text in re.findall(r"\n```json\n(.*?)\n```", DOCUMENT, re.DOTALL)]


def examples(name):
    return [example for example in EXAMPLES if example["command_name"] == name]


DOCUMENTED_ADDRESS = "tcp://127.0.0.1:7000"
REFUSED = [
    {"command_id": 4, "command_name": "", "payload": None},
    {"command_id": 1, "command_name": "", "payload": {"address": "nonsense"}},
    {"command_id": -1},
]


def faulty(message):
    """The message with a key too many, there or in its payload, and without one of its own."""
    yield {**message, "surplus": 1}
    if message.get("payload"):
        yield {**message, "payload": {**message["payload"], "surplus": 1}}
    yield from ({key: message[key] for key in message if key != gone} for gone in message)


class Conversation:
    """One run of the service in which every kind of message crosses its connections."""

    def __init__(self):
        self.requests, self.replies, self.notifications, self.published = [], [], [], []
        document = examples("status-all")[0]["payload"]
        identity = document["device_id"]
        with Service() as self.service, Device(node=identity) as device:
            self.ask(3, "GET Server list")
            self.ask(1, "Add remote info consumer", {"address": DOCUMENTED_ADDRESS})
            self.ask(3, "GET Server list")
            self.ask(2, "Remove remote info consumer", {"address": DOCUMENTED_ADDRESS})
            consumer = self.service.consumer(greeting=False)
            port = {"portNumber": 1, "portSetting1": 4, "portSetting2": 5, "portSetting3": 6}
            settings = {"cfgFlag": 0, "cfgSetting1": 1, "cfgSetting2": 2, "cfgSetting3": 3}
            extreme = {"id": 2**64 - 1, "alarms": [{"type": -(2**31)}], "stream": [{"alarms": [{}]}]}
            for name, kind, payload in (
                (PTP, 1000, document["ptp"]),
                (SYSTEM, 1001, {"eths": document["eths"], "uptime_s": 86400, "temperature_c": 51.5}),
                (SESSION, 1000, examples("avmgr_new_session")[0]["payload"]),
                (SESSION, 1003, examples("status-session")[1]["payload"]),
                (PTP, 1001, {**settings, "ports": [port]}),
                (SESSION, 1003, extreme),
            ):
                device.send(name, kind, payload)
                self.notifications.append((name, {"command_id": kind, "payload": payload}))
                while len(self.published) <= len(self.notifications):
                    self.published.append(consumer.receive())
                if len(self.notifications) == 5:
                    self.ask(0, "GET device status")
            for request in REFUSED:
                self.replies.append(json.loads(self.exchange(request)))
            self.replies.append(json.loads(self.service.exchange(b"not JSON")))
            self.node_requests = list(map(json.loads, device.node.requests()))
        self.node_replies = [json.loads(device_reply(identity))]

    def exchange(self, request):
        return self.service.exchange(json.dumps(request).encode())

    def ask(self, command, name, payload=None):
        self.requests.append({"command_id": command, "command_name": name, "payload": payload})
        self.replies.append(json.loads(self.exchange(self.requests[-1])))

    def sent(self):
        """(schema, message) of everything that the service sent."""
        yield from ((schemas.named(m["command_name"]), m) for m in self.published)
        yield from ((schemas.named("reply"), m) for m in self.replies)
        yield from ((schemas.named("nmos-device-info-request"), m) for m in self.node_requests)


@pytest.fixture(scope="module")
def conversation():
    return Conversation()


def test_the_schemas_know_what_peers_send_and_find_what_they_get_wrong(conversation):
    for schema in schemas.STORE.values():
        schemas.DIALECT.check_schema(schema)
    for name, message in conversation.notifications:
        schemas.branch_of(f"{name}-notification", message)
    for name, kind, payload in (
        (SESSION, 1000, {"nmos_id": "without an id"}), (SESSION, 1003, {"id": 1, "streams": []}),
        (SYSTEM, 1001, {"eths": [{"state": "up"}]}), (PTP, 1000, {"clock_id": "080011fffe21e1b0"}),
    ):
        message = {"command_id": kind, "payload": payload}
        assert schemas.errors(schemas.named(f"{name}-notification"), message), message
    services = {"session": SESSION, "system": SYSTEM, "ptp": PTP}
    day = (ROOT / "tools/kaikla-sim/day.jsonl").read_text(encoding="utf-8").splitlines()
    for event in (json.loads(line) for line in day if '"kind"' in line):
        message = {"command_id": event["kind"], "payload": event["payload"]}
        schemas.branch_of(f"{services[event['service']]}-notification", message)


def test_everything_sent_fits_and_the_documented_examples_are_real(conversation):
    for schema, message in conversation.sent():
        assert schemas.errors(schema, message) == [], message
        for broken in faulty(message):
            assert schemas.errors(schema, broken), f"{schema['$id']} takes {broken}"
    kinds = {schemas.branch_of("reply", reply) for reply in conversation.replies}
    assert kinds == set(schemas.branches("reply"))
    for request in conversation.requests:
        schemas.check("request", request)
    for request in REFUSED:
        assert schemas.errors(schemas.named("request"), request), request
    schemas.check("nmos-device-info-reply", conversation.node_replies[0])
    real = [message for _, message in conversation.sent()]
    real += conversation.requests + REFUSED + conversation.node_replies
    named = [{"command_name": "", **message} for _, message in conversation.notifications]
    assert len(EXAMPLES) >= 12
    for example in EXAMPLES:
        assert example in real or {**example, "command_name": ""} in named, example


@pytest.mark.parametrize("program", ["kaiklactl", "kaikla-sim", "kaikla-gateway"])
def test_the_completion_and_the_manual_page_name_every_option(program):
    words = run(program, "--help").stdout
    commands = re.findall(r"^  ([a-z]+)  ", words.partition("Subcommands:")[2], re.MULTILINE)
    for command in commands:
        words += run(program, command, "--help").stdout
    options = set(re.findall(r"--([a-z-]+)", words)) - {"help"}
    completion = (ROOT / f"packaging/completions/{program}.bash").read_text(encoding="utf-8")
    assert options <= set(re.findall(r"--([a-z-]+)", completion))
    manual = next((ROOT / "packaging/man").glob(f"{program}.*")).read_text(encoding="utf-8")
    assert options <= set(re.findall(r"Fl -([a-z-]+)", manual))
    assert len(options) > 3
