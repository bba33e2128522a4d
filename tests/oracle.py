"""An independent model of kaikla: its document, what it publishes and what it logs."""

import json
import re

from peers import PTP, SESSION, SYSTEM, wait_until

UNREACHABLE = -102


class Plain:
    """How a value is read (None stands for a missing key and for null) and made at random."""

    def __init__(self, read, *choices):
        self.read = read
        self.make = lambda rng: rng.choice(choices)


class Number(Plain):
    """A whole number cut to its width; what is sent may need `sent` bits, of either sign."""

    def __init__(self, bits, signed, sent=64):
        low = -(1 << (bits - 1)) if signed else 0
        edges = [1 << bit for bit in (1, 7, 8, 15, 16, 31, sent - 1)]
        choices = [number for edge in edges for number in (edge - 1, -edge, edge * 2 // 3, 0)]
        super().__init__(lambda value: (int(value or 0) - low) % (1 << bits) + low, *choices)


class Many:
    """A list; what is no list has no elements, and some of that may be sent."""

    def __init__(self, element, *no_lists):
        self._element, self._no_lists = element, (None, *no_lists)

    def read(self, value):
        return [self._element.read(part) for part in value] if isinstance(value, list) else []

    def make(self, rng):
        if rng.random() < 0.1:
            return rng.choice(self._no_lists)
        return [self._element.make(rng) for _ in range(rng.randrange(4))]


class Record:
    """An object: "key:type key:type", and what nests. Lists without elements are not written."""

    def __init__(self, plain="", **nested):
        pairs = (word.split(":") for word in plain.split())
        self._fields = {**{key: TYPES[name] for key, name in pairs}, **nested}

    def read(self, value):
        parts = ((key, field.read((value or {}).get(key))) for key, field in self._fields.items())
        return {key: part for key, part in parts if part != []}

    def make(self, rng):
        """With most of its members."""
        return {key: part.make(rng) for key, part in self._fields.items() if rng.random() < 0.8}


class Alarm(Record):
    def read(self, value):
        # Only a missing severity is a "warning".
        return super().read({"severity": "warning", **value})


def text(value):
    return value or ""


_WORDS = ("", "a", "B\u00fchne \U0001f3a5", 'a "quoted"\nline\\', "\x01", "x" * 300)
TYPES = {
    "text": Plain(text, *_WORDS),
    "bool": Plain(bool, True, False),
    # Those that need no 17 digits.
    "real": Plain(lambda value: float(value or 0), -3.25, 0, 41, 41.5),
    "u8": Number(8, False),
    "s8": Number(8, True),
    "u32": Number(32, False),
    "s32": Number(32, True, sent=32),
    "s64": Number(64, True),
    "id": Plain(lambda value: value or 0, *range(8), 2**32, 2**63, 2**64 - 1),
    "device": Plain(text, "dev", "dev", "other", ""),
    "clock": Plain(text, "", "08-00-11-ff-fe-21-e1-b0"),
    "portState": Plain(text, "SLAVE", "MASTER"),
    "port": Plain(lambda value: (value or 0) & 0xFFFF, 1, 2, 2, 200, 200, 65480, 65538),
    "configuredPort": Plain(Number(8, True).read, 1, 200, 258),
    "name": Plain(text, "eth0", "eth0", "eth1"),
    "mac": Plain(text, "02:00:00:10:00:01"),
    "up": Plain(lambda value: (value or 0) & 0xFF, 0, 1, 1, 257),
}
_NO_LISTS = (5, "text", True)
_ALARMS = Many(Alarm("severity:text description:text type:s32"), *_NO_LISTS)
_STATUS = Record("id:id nmos_id:text device_id:device", alarms=_ALARMS,
                 stream=Many(Record("id:id", alarms=_ALARMS), *_NO_LISTS))  # fmt: skip
_STREAMS = Many(Record("id:id type:text codec:text"))
_CONFIGURATION = Record("id:id nmos_id:text", audio=_STREAMS, video=_STREAMS)
_REMOVED = Record("id:id")
_SETTINGS = "cfgSetting1:u8 cfgSetting2:u8 cfgSetting3:u8"
_PORT_SETTINGS = "portSetting1:u8 portSetting2:u8 portSetting3:u8"
_PTP = Record(
    f"clock_id:clock grandmaster_id:clock locked:bool offset_ns:s64 mean_path_delay_ns:s64 "
    f"cfgFlag:bool {_SETTINGS}",
    profile=Record("name:text domain:u8 announce_interval:s8 sync_interval:s8 "
                   "delay_req_interval:s8"),
    ports=Many(Record(f"portNumber:port state:portState {_PORT_SETTINGS}")),
)  # fmt: skip
_PTP_CONFIGURATION = Record(
    f"cfgFlag:u32 {_SETTINGS}",
    ports=Many(Record(f"portNumber:configuredPort {_PORT_SETTINGS}")),
)
_MODULE = Record("present:bool vendor:text part_number:text serial:text temperature_c:real "
                 "tx_power_dbm:real rx_power_dbm:real")  # fmt: skip
_ETHS = Many(Record("name:name mac:mac state:up ip:text speed_mbps:u32", sfp=_MODULE))
_DYNAMIC = Record("uptime_s:id temperature_c:real", eths=_ETHS)


def keys(words):
    return [word.partition(":")[0] for word in words.split()]


def encode(value):
    """Compact JSON as kaikla writes it, for reals that need no 17 digits."""
    return json.dumps(value, separators=(",", ":"), sort_keys=True)


def relevant(lines):
    """Log lines without the loop's, the command interface's and the platform's own reasons."""
    left_out = ("DBG WebNotifierServer: ", "DBG command ", "VERBOSE ", "ERR request to ")
    return [line for line in lines if not line.startswith(left_out) and "poll size" not in line]


def _escaped(character):
    escapes = {"\n": "\\n", "\r": "\\r", "\t": "\\t"}
    return escapes.get(character[0]) or "".join(f"\\x{b:02x}" for b in character[0].encode())


class Model:
    def __init__(self, node=lambda: "dev"):
        self.node = node
        self.device_id = ""
        self.sessions = []
        self.ptp = _PTP.read({})
        self.eths = []
        self.sent = {}
        self.lines = []
        self.asked = 0
        self._registered = set()

    def document(self):
        lists = {"sessions": self.sessions, "eths": self.eths}
        return {
            "device_id": self.device_id,
            "ptp": self.ptp,
            **{key: part for key, part in lists.items() if part},
        }

    def consumers(self):
        return sorted(self._registered)

    def add(self, address):
        if address in self._registered:
            self._log(
                "ERR WebnotifierPublisher: we already have a connection to this remote server "
                f"{address}. ignoring it."
            )
        self._registered.add(address)
        self.sent.setdefault(address, [])
        self._publish_all(address)

    def remove(self, address):
        if address in self._registered:
            self._log(f"WRN WebnotifierPublisher: destroying socket to {address}")
            self._registered.remove(address)

    def notify(self, service, kind, payload):
        action = {
            (SESSION, 1000): self._new_session,
            (SESSION, 1001): self._removed_session,
            (SESSION, 1003): self._session_status,
            (SYSTEM, 1001): self._dynamic_information,
            (PTP, 1000): self._ptp_status,
            (PTP, 1001): self._ptp_configuration,
        }.get((service, kind))
        if action:
            action(payload)

    def _log(self, line):
        self.lines.append(re.sub(r"[\0-\x1f\x7f-\x9f]", _escaped, line))

    def _chk(self, operation, code, kind="virtual int"):
        """Logs a negative code; returns it, whatever it is."""
        if code < 0:
            self._log(f"ERR CHK({kind} WebNotifierHandler::{operation})::# Error Code {code}")
        return code

    def _new_session(self, payload):
        operation = "avmgrNotifyNewSessionEvent(SessionConfigData&)"
        self._log(f"INF avmgrNotifyNewSessionEvent:: session {_as_signed(payload.get('id'))}")
        if self._chk(operation, self._make_sure_of_device_id()) < 0:
            return
        streams = [*(payload.get("audio") or []), *(payload.get("video") or [])]
        status = {
            "id": payload.get("id"),
            "nmos_id": payload.get("nmos_id"),
            "device_id": self.device_id,
            "stream": [{"id": stream.get("id")} for stream in streams],
        }
        self._chk(operation, self._session_status(status))

    def _session_status(self, payload):
        status = _STATUS.read(payload)
        self._log(
            "INF avmgrNotifyUpdateSessionStatusEvent:: session "
            f"{_as_signed(status['id'])} - NMOS {status['nmos_id']}"
        )
        self._forget(status["id"])
        self.device_id = status["device_id"]
        self.sessions.append(status)
        operation = "avmgrNotifyUpdateSessionStatusEvent(SessionStatusData&)"
        code = self._chk(operation, self._make_sure_of_device_id())
        if code == 0:
            self._publish(1, "status-session", status)
        return code

    def _removed_session(self, payload):
        self._log(f"INF avmgrNotifyRemovedSessionEvent:: session {_as_signed(payload.get('id'))}")
        self._forget(payload.get("id", 0))

    def _forget(self, session):
        self.sessions = [status for status in self.sessions if status["id"] != session]

    def _ptp_status(self, payload):
        self._log("INF zatPmcPtpStatusChangeEvent:: PTP changed")
        self.ptp = _PTP.read(payload)
        self._chk("zatPmcPtpStatusChangeEvent(PtpCommonInfo&)", self._publish_all())

    def _ptp_configuration(self, payload):
        self._log("INF zatPmcPtpConfigChangeEvent:: PTP changed")
        configuration = _PTP_CONFIGURATION.read(payload)
        self.ptp = {**self.ptp, **{key: configuration[key] for key in keys(_SETTINGS)}}
        self.ptp["cfgFlag"] = configuration["cfgFlag"] != 0
        for wanted in configuration.get("ports", []):
            for port in self.ptp.get("ports", []):
                if port["portNumber"] == wanted["portNumber"]:
                    port.update({key: wanted[key] for key in keys(_PORT_SETTINGS)})
        self._chk("zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg&)", self._publish_all())

    def _dynamic_information(self, payload):
        eths = _ETHS.read(payload.get("eths"))
        first = {}
        for port in eths:
            first.setdefault(port["name"], port["state"])
        known = [(port["name"], port["state"]) for port in self.eths]
        if len(eths) == len(known) and all(first.get(name) == state for name, state in known):
            self._log("DBG notifyDynamicInfoUpdate:: information didn't change")
            return
        self._log("DBG notifyDynamicInfoUpdate:: information did change")
        self.eths = eths
        self._chk("notifyDynamicInfoUpdate(SysParametersDynamic&)", self._publish_all())

    def _make_sure_of_device_id(self):
        if self.device_id:
            return 0
        self._log("INF checkIfDeviceIdIsDefined:: device id is not defined. asking for it.")
        answer = self.node()
        if answer is None:
            return self._chk("checkIfDeviceIdIsDefined()", UNREACHABLE, "int")
        self.asked += 1
        self.device_id = answer
        self._log(f"INF checkIfDeviceIdIsDefined:: {self.device_id}")
        return 0

    def _publish_all(self, address=""):
        operation = "publishAllDeviceStatus(std::string)"
        code = self._chk(operation, self._make_sure_of_device_id(), "int")
        if code == 0:
            self._publish(0, "status-all", self.document(), address)
        return code

    def _publish(self, kind, name, payload, target=""):
        text = encode({"command_id": kind, "command_name": name, "payload": payload})
        for address in self.consumers():
            if target in ("", address):
                self._log(f"INF Publishing message to socket ({address}) size {len(text)}")
                self.sent[address].append(text)


_as_signed = TYPES["s64"].read  # as the log prints ids


class Twin:
    """A running service at log level 6 and its model, which are told the same."""

    def __init__(self, device, service):
        self.device, self.service, self.model = device, service, Model(self._answer)
        self.node_present = True
        self._asks = self._unreached = 0
        first = service.consumer()
        self.model.device_id = service.document()["device_id"]
        self.model.asked = len(device.node.requests())
        service.remove(first.address)
        service.new_lines()
        self._start = len(service.log())
        self._last = None
        self.consumers = {}
        for _ in range(2):
            consumer = service.consumer(greeting=False)
            self.consumers[consumer.address] = consumer
            self.model.add(consumer.address)
            assert service.add(consumer.address) == 0
            self.model.add(consumer.address)

    def _answer(self):
        """What the service made of the node: on a busy machine it may miss one that is there."""
        self._asks += 1
        asked = "checkIfDeviceIdIsDefined"

        def outcomes():
            found = [line for line in self.lines() if asked in line and "asking for" not in line]
            return found[self._asks - 1 :]

        reached = wait_until(outcomes, "the node's answer")[0].startswith("INF")
        assert self.node_present or not reached
        self._unreached += self.node_present and not reached
        return "dev" if reached else None

    def lines(self):
        return relevant(self.service.log()[self._start :])

    def send(self, *event):
        if event[0] != self._last:
            # The services' connections are independent: one's notification may overtake another's.
            self.wait()
            self._last = event[0]
        self.device.send(*event)
        self.model.notify(*event)

    def wait(self):
        """Until everything that was sent has been carried through."""
        expected = len(self.model.lines)
        wait_until(lambda: len(self.lines()) >= expected, "the log of what was sent")

    def compare(self):
        """Asserts that nothing differs; returns what each consumer has been sent since the last."""
        self.wait()
        assert self._unreached <= 2
        self._unreached = 0
        for address, sent in self.model.sent.items():
            assert [self.consumers[address].receive_text() for _ in sent] == sent
        assert self.service.document() == self.model.document()
        assert self.service.consumers() == self.model.consumers()
        assert self.lines() == self.model.lines
        assert len(self.device.node.requests()) == self.model.asked
        sent = {address: list(map(json.loads, texts)) for address, texts in self.model.sent.items()}
        for texts in self.model.sent.values():
            texts.clear()
        return sent


def notifications(rng):
    """Any number of (service, kind, payload); every kind that kaikla subscribes to, and others."""
    kinds = (
        [(SESSION, 1000, _CONFIGURATION), (SESSION, 1001, _REMOVED), (SYSTEM, 1001, _DYNAMIC)]
        + [(SESSION, 1003, _STATUS)] * 3
        + [(SESSION, kind, _REMOVED) for kind in (1002, 1004, 1006)]
        + [(SYSTEM, kind, _DYNAMIC) for kind in (1000, 1003)]
        + [(PTP, 1000, _PTP), (PTP, 1001, _PTP_CONFIGURATION)]
    )
    while True:
        service, kind, record = rng.choice(kinds)
        yield service, kind, record.make(rng)
