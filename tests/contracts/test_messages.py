"""What the running service sends and takes, against the schemas; and the examples of the documents
against what it sends."""

import collections
import json
import unittest

import sample_device
import schemas
from played_device import PlayedDevice
from running_service import RunningService, wait_until

# Registered for the documents' sake: nobody listens there.
DOCUMENTED_ADDRESS = "tcp://127.0.0.1:7000"

REFUSED_REQUESTS = (
    {"command_id": 4, "command_name": "", "payload": None},
    {"command_id": 1, "command_name": "", "payload": {"address": "nonsense"}},
    {"command_id": 1, "command_name": "", "payload": {}},
    {"command_id": 1, "command_name": "", "payload": {"address": {}}},
    {"command_id": 2, "command_name": "", "payload": "text"},
    {"command_id": -1},
    {"command_name": "GET device status"},
    [],
)
UNREADABLE_REQUESTS = (
    (b"not JSON",),
    (b'{"command_id":0}', b'{"command_id":0}'),
    (b'{"payload":' + b"[" * 100 + b"]" * 100 + b"}",),
    (b'{"command_id":0,"payload":"' + b"x" * 1024 * 1024 + b'"}',),
    (b"",),
)


class Conversation:
    """One run of the service in which every kind of message crosses its connections."""

    def __init__(self):
        self.requests = []
        self.replies = []
        self.refusals = []
        self.published = []
        with RunningService() as service:
            self._service = service
            self._play()

    def _play(self):
        # Nothing is known yet.
        self._ask(0, "GET device status")
        self._ask(3, "GET Server list")
        with PlayedDevice(sample_device.DEVICE_ID) as device:
            self._consumer, self._address = self._service.consumer()
            self._ask(1, "Add remote info consumer", {"address": self._address})
            self._expect("status-all")
            self._report(device)
            self._ask(0, "GET device status")
            self._ask(2, "Remove remote info consumer", {"address": self._address})
            self._ask(1, "Add remote info consumer", {"address": DOCUMENTED_ADDRESS})
            self._ask(3, "GET Server list")
            self._ask(2, "Remove remote info consumer", {"address": DOCUMENTED_ADDRESS})
            self._report_extremes(device)
            self.notifications = device.notifications
            self.nmos_requests = device.nmos_requests
            self.nmos_replies = device.nmos_replies
        for request in REFUSED_REQUESTS:
            self.requests.append(request)
            self.refusals.append(self._service.request(request))
        for frames in UNREADABLE_REQUESTS:
            self.refusals.append(self._service.exchange(*frames))

    def _report(self, device):
        session, system, ptp = "session-manager", "system-manager", "ptp-management"
        sample = sample_device
        for service, name, payload, told in (
            (ptp, "zat_pmc_status_change", sample.PTP_STATUS, "status-all"),
            (system, "sysmgr_dynamic_information_update", sample.DYNAMIC_INFORMATION, "status-all"),
            (session, "avmgr_new_session", sample.SESSION_CONFIGURATION, "status-session"),
            (session, "avmgr_session_status", sample.SESSION_STATUS, "status-session"),
            (ptp, "zat_pmc_configuration_change", sample.PTP_CONFIGURATION, "status-all"),
        ):
            device.notify(service, name, payload)
            self._expect(told)

    def _report_extremes(self, device):
        self._ask(1, "Add remote info consumer", {"address": self._address})
        self._expect("status-all")
        # The least that may be said comes before the most.
        for status in ({"id": 0}, sample_device.EXTREME_STATUS):
            device.notify("session-manager", "avmgr_session_status", status)
            self._expect("status-session")
        for status in ({}, sample_device.EXTREME_PTP_STATUS):
            device.notify("ptp-management", "zat_pmc_status_change", status)
            self._expect("status-all")
        ports = {"eths": [{"name": "eth0"}]}
        device.notify("system-manager", "sysmgr_dynamic_information_update", ports)
        self._expect("status-all")
        for session in (7, 0, sample_device.EXTREME_STATUS["id"]):
            device.notify("session-manager", "avmgr_removed_session", {"id": session})
        wait_until(
            lambda: "sessions" not in self._service.request({"command_id": 0})["payload"]["status"],
            "the last session's end",
        )

    def _ask(self, command, name, payload=None):
        request = {"command_id": command, "command_name": name, "payload": payload}
        reply = self._service.request(request)
        self.requests.append(request)
        self.replies.append(reply)
        return reply

    def _expect(self, kind):
        message = json.loads(self._consumer.recv())
        assert message["command_name"] == kind, message
        self.published.append(message)


class Messages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.conversation = Conversation()

    def sent(self):
        """(schema, message) of everything that the service sent."""
        conversation = self.conversation
        for message in conversation.published:
            yield schemas.named(message["command_name"]), message
        for message in conversation.replies + conversation.refusals:
            yield schemas.named("reply"), message
        for message in conversation.nmos_requests:
            yield schemas.named("nmos-device-info-request"), message

    def test_sent_messages_keep_to_their_schemas(self):
        for schema, message in self.sent():
            self.assertEqual(schemas.errors(schema, message), [], message)

    def test_every_kind_of_message_was_there(self):
        conversation = self.conversation
        replies = [schemas.branch_of("reply", reply) for reply in conversation.replies]
        refusals = [schemas.branch_of("reply", reply) for reply in conversation.refusals]
        self.assertEqual(set(replies) | set(refusals), set(schemas.branches("reply")))
        self.assertEqual(set(refusals), {"refusal"})
        self.assertEqual({reply["result"] for reply in conversation.refusals}, {-8, -33, -101})
        self.assertEqual(len(conversation.nmos_requests), 2)

        documents = [m["payload"] for m in conversation.published if m["command_id"] == 0]
        for key in ("sessions", "eths"):
            self.assertEqual({key in document for document in documents}, {True, False}, key)
        self.assertEqual({"ports" in document["ptp"] for document in documents}, {True, False})

    def test_a_fault_anywhere_breaks_a_sent_message(self):
        seen = collections.Counter()
        for schema, message in self.sent():
            for fault, broken in schemas.broken_copies(message):
                seen[schema["$id"]] += 1
                if schemas.accepts(schema, broken):
                    self.fail(f"{schema['$id']} takes {fault}: {broken}")
        self.assertEqual(len(seen), 4)

    def test_what_was_taken_keeps_to_its_schema(self):
        for request in self.conversation.requests:
            refused = request in REFUSED_REQUESTS
            self.assertNotEqual(schemas.accepts(schemas.named("request"), request), refused)
        for service, message in self.conversation.notifications:
            schemas.branch_of(f"{service}-notification", message)
        for reply in self.conversation.nmos_replies:
            self.assertEqual(schemas.errors(schemas.named("nmos-device-info-reply"), reply), [])

    def test_documented_examples_are_real(self):
        conversation = self.conversation
        real = conversation.requests + conversation.replies + conversation.refusals
        real += conversation.published + conversation.nmos_requests + conversation.nmos_replies
        real += [message for _, message in conversation.notifications]
        self.assertGreaterEqual(len(sample_device.EXAMPLES), 12)
        for example in sample_device.EXAMPLES:
            self.assertIn(example, real)


if __name__ == "__main__":
    unittest.main()
