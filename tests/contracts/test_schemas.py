"""The schemas by themselves: valid, complete, and in step with the numbers of the code."""

import json
import unittest

import protocol
import sample_device
import schemas


def references(value):
    if isinstance(value, dict):
        if "$ref" in value:
            yield value["$ref"]
        value = list(value.values())
    for child in value if isinstance(value, list) else ():
        yield from references(child)


class Schemas(unittest.TestCase):
    def test_are_valid_and_refer_to_what_is_there(self):
        for name, schema in schemas.STORE.items():
            with self.subTest(name):
                schemas.DIALECT.check_schema(schema)
                self.assertEqual(schema["$schema"], schemas.DIALECT.META_SCHEMA["$id"])
                self.assertIn("title", schema)
                self.assertIn("description", schema)
                for reference in references(schema):
                    document, _, definition = reference.partition("#/$defs/")
                    self.assertIn(document, schemas.STORE)
                    if definition:
                        self.assertIn(definition, schemas.STORE[document]["$defs"])

    def test_know_every_kind_of_notification_and_no_other(self):
        for service, kinds in protocol.KINDS.items():
            described = schemas.branches(f"{service}-notification").values()
            numbers = [schema["properties"]["command_id"]["const"] for schema in described]
            self.assertEqual(numbers, sorted(kinds.values()), service)

    def test_take_what_peers_send(self):
        for service, kind, payload in (
            ("session-manager", 1000, {"id": 1}),
            ("session-manager", 1001, {"id": 7}),
            ("session-manager", 1002, sample_device.SESSION_CONFIGURATION),
            ("session-manager", 1004, sample_device.ADVERTISEMENT),
            ("session-manager", 1005, sample_device.ADVERTISEMENT),
            ("session-manager", 1006, {"id": 9}),
            ("system-manager", 1000, {"name": "host_name", "value": "gateway"}),
            ("system-manager", 1002, {}),
            ("system-manager", 1003, {"groups": []}),
        ):
            schemas.branch_of(f"{service}-notification", {"command_id": kind, "payload": payload})

    def test_take_the_simulated_day(self):
        services = {
            "session": "session-manager",
            "system": "system-manager",
            "ptp": "ptp-management",
        }
        day = (protocol.ROOT / "tools/kaikla-sim/day.jsonl").read_text(encoding="utf-8")
        played = set()
        for line in filter(lambda line: line.startswith("{"), day.splitlines()):
            event = json.loads(line)
            if "kind" in event:
                message = {"command_id": event["kind"], "payload": event["payload"]}
                schemas.branch_of(f"{services[event['service']]}-notification", message)
                played.add(event["service"])
        self.assertEqual(played, services.keys())

    def test_find_what_peers_get_wrong(self):
        """One fault a case, in a message that is otherwise as it should be."""
        stream = {"id": 1}
        for service, kind, payload in (
            ("session-manager", 999, {"id": 1}),
            ("session-manager", 1000, {"nmos_id": "without an id"}),
            ("session-manager", 1000, {"id": 1, "audio": [{**stream, "tributary": {}}]}),
            ("session-manager", 1000, {"id": 1, "video": [{**stream, "channels": []}]}),
            ("session-manager", 1000, {"id": 1, "video": [{**stream, "ssrc": {}}]}),
            ("session-manager", 1000, {"id": 1, "video": [{**stream, "state": "enabled"}]}),
            ("session-manager", 1000, {"id": 1, "video": [{**stream, "local": "10.0.0.256"}]}),
            ("session-manager", 1001, {"id": -1}),
            ("session-manager", 1003, {"id": 1, "streams": []}),
            ("system-manager", 1001, {"eths": [{"name": "eth0", "state": "up"}]}),
            ("system-manager", 1003, []),
            ("ptp-management", 1000, {"clock_id": "080011fffe21e1b0"}),
            ("ptp-management", 1001, {"cfgFlag": True}),
            ("ptp-management", 1001, {"ports": [{"portNumber": 128}]}),
        ):
            message = {"command_id": kind, "command_name": "", "payload": payload}
            with self.subTest(message):
                self.assertFalse(schemas.accepts(schemas.named(f"{service}-notification"), message))


if __name__ == "__main__":
    unittest.main()
