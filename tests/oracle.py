"""An independent model of kaikla: its document, and what it publishes and logs for notifications.

    model = Model(node="dev")                   # the NMOS node's answer; None: it is absent
    model.add("tcp://127.0.0.1:7000")           # returns the command's result
    model.notify(SESSION, 1003, {"id": 1})
    model.document()                            # as in "GET device status"
    model.sent["tcp://127.0.0.1:7000"]          # the exact texts that this consumer has been sent
    model.lines                                 # the log at level 6, as relevant() leaves it
    model.asked                                 # how often the NMOS node has been asked

    twin = Twin(device, service)                # a service with two consumers, and its model
    twin.send(SESSION, 1003, {"id": 1})         # tells both
    twin.compare()                              # documents, messages, log, requests to the node

notifications(random.Random(1)) makes any number of (service, kind, payload).
"""

import json
import re

from peers import PTP, SESSION, SYSTEM, wait_until

UNREACHABLE = -102

# Reading: each field is a function of the JSON value; None stands for a missing key and for null.


def _text(value):
    return value or ""


def _boolean(value):
    return bool(value)


def _real(value):
    return float(value or 0)


def _unsigned(bits):
    return lambda value: int(value or 0) & ((1 << bits) - 1)


def _signed(bits):
    half = 1 << (bits - 1)
    return lambda value: (int(value or 0) + half) % (1 << bits) - half


def _record(**fields):
    """An object with these keys, but for lists without elements."""

    def read(value):
        everything = {key: field((value or {}).get(key)) for key, field in fields.items()}
        return {key: part for key, part in everything.items() if part != []}

    return read


def _list(element):
    return lambda value: [element(part) for part in value] if isinstance(value, list) else []


_U8, _S8, _U16, _U32, _U64, _S64 = map(
    lambda make, bits: make(bits),
    (_unsigned, _signed, _unsigned, _unsigned, _unsigned, _signed),
    (8, 8, 16, 32, 64, 64),
)


def _alarm(value):
    # Only a missing severity is a "warning".
    return _ALARM({"severity": "warning", **value})


_ALARM = _record(severity=_text, description=_text, type=_signed(32))
_STREAM = _record(id=_U64, alarms=_list(_alarm))
_SESSION = _record(
    id=_U64, nmos_id=_text, device_id=_text, alarms=_list(_alarm), stream=_list(_STREAM)
)
_SETTINGS = {"cfgSetting1": _U8, "cfgSetting2": _U8, "cfgSetting3": _U8, "cfgFlag": _boolean}
_PORT_SETTINGS = {"portSetting1": _U8, "portSetting2": _U8, "portSetting3": _U8}
_PTP = _record(
    clock_id=_text,
    grandmaster_id=_text,
    locked=_boolean,
    offset_ns=_S64,
    mean_path_delay_ns=_S64,
    profile=_record(
        name=_text, domain=_U8, announce_interval=_S8, sync_interval=_S8, delay_req_interval=_S8
    ),
    ports=_list(_record(portNumber=_U16, state=_text, **_PORT_SETTINGS)),
    **_SETTINGS,
)
_PTP_CONFIGURATION = _record(
    ports=_list(_record(portNumber=_S8, **_PORT_SETTINGS)), **{**_SETTINGS, "cfgFlag": _U32}
)
_ETHS = _list(
    _record(
        name=_text,
        mac=_text,
        state=_U8,
        ip=_text,
        speed_mbps=_U32,
        sfp=_record(
            present=_boolean,
            vendor=_text,
            part_number=_text,
            serial=_text,
            temperature_c=_real,
            tx_power_dbm=_real,
            rx_power_dbm=_real,
        ),
    )
)


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
    def __init__(self, node="dev"):
        self.node = node
        self.device_id = ""
        self.sessions = []
        self.ptp = _PTP({})
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
        return 0

    def remove(self, address):
        if address in self._registered:
            self._log(f"WRN WebnotifierPublisher: destroying socket to {address}")
            self._registered.remove(address)
        return 0

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

    def _chk(self, signature, code):
        """Logs a negative code; returns it, whatever it is."""
        if code < 0:
            self._log(f"ERR CHK({signature})::# Error Code {code}")
        return code

    def _new_session(self, payload):
        signature = "virtual int WebNotifierHandler::avmgrNotifyNewSessionEvent(SessionConfigData&)"
        self._log(f"INF avmgrNotifyNewSessionEvent:: session {_as_signed(payload.get('id'))}")
        if self._chk(signature, self._make_sure_of_device_id()) < 0:
            return
        streams = [*payload.get("audio", []), *payload.get("video", [])]
        status = {
            "id": payload.get("id"),
            "nmos_id": payload.get("nmos_id"),
            "device_id": self.device_id,
            "stream": [{"id": stream.get("id")} for stream in streams],
        }
        self._chk(signature, self._session_status(status))

    def _session_status(self, payload):
        status = _SESSION(payload)
        self._log(
            "INF avmgrNotifyUpdateSessionStatusEvent:: session "
            f"{_as_signed(status['id'])} - NMOS {status['nmos_id']}"
        )
        self._forget(status["id"])
        self.device_id = status["device_id"]
        self.sessions.append(status)
        code = self._chk(
            "virtual int WebNotifierHandler::avmgrNotifyUpdateSessionStatusEvent("
            "SessionStatusData&)",
            self._make_sure_of_device_id(),
        )
        if code == 0:
            self._publish(1, "status-session", status)
        return code

    def _removed_session(self, payload):
        self._log(f"INF avmgrNotifyRemovedSessionEvent:: session {_as_signed(payload.get('id'))}")
        self._forget(_U64(payload.get("id")))

    def _forget(self, session):
        self.sessions = [status for status in self.sessions if status["id"] != session]

    def _ptp_status(self, payload):
        self._log("INF zatPmcPtpStatusChangeEvent:: PTP changed")
        self.ptp = _PTP(payload)
        signature = "virtual int WebNotifierHandler::zatPmcPtpStatusChangeEvent(PtpCommonInfo&)"
        self._chk(signature, self._publish_all())

    def _ptp_configuration(self, payload):
        self._log("INF zatPmcPtpConfigChangeEvent:: PTP changed")
        configuration = _PTP_CONFIGURATION(payload)
        self.ptp = {**self.ptp, **{key: configuration[key] for key in _SETTINGS}}
        self.ptp["cfgFlag"] = configuration["cfgFlag"] != 0
        for wanted in configuration.get("ports", []):
            for port in self.ptp.get("ports", []):
                if port["portNumber"] == wanted["portNumber"]:
                    port.update({key: wanted[key] for key in _PORT_SETTINGS})
        signature = "virtual int WebNotifierHandler::zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg&)"
        self._chk(signature, self._publish_all())

    def _dynamic_information(self, payload):
        eths = _ETHS(payload.get("eths"))
        first = {}
        for port in eths:
            first.setdefault(port["name"], port["state"])
        known = [(port["name"], port["state"]) for port in self.eths]
        if len(eths) == len(known) and all(first.get(name) == state for name, state in known):
            self._log("DBG notifyDynamicInfoUpdate:: information didn't change")
            return
        self._log("DBG notifyDynamicInfoUpdate:: information did change")
        self.eths = eths
        signature = "virtual int WebNotifierHandler::notifyDynamicInfoUpdate(SysParametersDynamic&)"
        self._chk(signature, self._publish_all())

    def _make_sure_of_device_id(self):
        if self.device_id:
            return 0
        self._log("INF checkIfDeviceIdIsDefined:: device id is not defined. asking for it.")
        self.asked += self.node is not None
        if self.node is None:
            return self._chk("int WebNotifierHandler::checkIfDeviceIdIsDefined()", UNREACHABLE)
        self.device_id = self.node
        self._log(f"INF checkIfDeviceIdIsDefined:: {self.device_id}")
        return 0

    def _publish_all(self, address=""):
        signature = "int WebNotifierHandler::publishAllDeviceStatus(std::string)"
        code = self._chk(signature, self._make_sure_of_device_id())
        if code == 0:
            self._publish(0, "status-all", self.document(), address)
        return code

    def _publish(self, kind, name, payload, target=""):
        text = encode({"command_id": kind, "command_name": name, "payload": payload})
        for address in self.consumers():
            if target in ("", address):
                self._log(f"INF Publishing message to socket ({address}) size {len(text)}")
                self.sent[address].append(text)


def _as_signed(identity):
    return _S64(identity)


class Twin:
    """A running service at log level 6 and its model, which are told the same."""

    def __init__(self, device, service, consumers=2):
        self.device, self.service, self.model = device, service, Model()
        self._start = len(service.log())
        self._last = None
        self.consumers = {}
        for _ in range(consumers):
            self.add(service.consumer(greeting=False))

    def add(self, consumer):
        self.consumers[consumer.address] = consumer
        self.model.add(consumer.address)

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
    ids = [*range(8), 2**32, 2**63, 2**64 - 1]
    while True:
        yield rng.choice(
            [
                lambda: (SESSION, 1000, _some_configuration(rng, ids)),
                lambda: (SESSION, 1001, {"id": rng.choice(ids)}),
                lambda: (SESSION, 1003, _some_status(rng, ids)),
                lambda: (SESSION, 1003, _some_status(rng, ids)),
                lambda: (SESSION, rng.choice((1002, 1004, 1006)), {"id": rng.choice(ids)}),
                lambda: (SYSTEM, 1001, {"eths": _some(rng, _some_port), "uptime_s": 1}),
                lambda: (PTP, 1000, _some_ptp(rng)),
                lambda: (PTP, 1001, _some_ptp_configuration(rng)),
            ]
        )()


def _some(rng, make, most=3):
    return [make(rng) for _ in range(rng.randrange(most + 1))]


def _part(rng, **members):
    """An object with most of these members."""
    return {key: value for key, value in members.items() if rng.random() < 0.8}


def _word(rng):
    return rng.choice(("", "a", "Bühne \U0001f3a5", 'a "quoted"\nline\\', "\x01", "x" * 300))


def _number(rng, bits=32):
    """A whole number of up to so many bits, either sign, often at an end of a width."""
    edge = 1 << rng.choice((0, 7, 8, 15, 16, 31, bits - 1))
    return rng.choice((0, 1, -1, edge - 1, -edge, rng.randrange(edge)))


def _some_alarm(rng):
    return _part(rng, severity=_word(rng), description=_word(rng), type=_number(rng))


def _some_status(rng, ids):
    def stream(_):
        return _part(rng, id=rng.choice(ids), alarms=_some(rng, _some_alarm))

    return _part(
        rng,
        id=rng.choice(ids),
        nmos_id=_word(rng),
        device_id=rng.choice(("dev", "dev", "other", "")),
        alarms=_some(rng, _some_alarm),
        stream=_some(rng, stream),
    )


def _some_configuration(rng, ids):
    def stream(_):
        return _part(rng, id=rng.choice(ids), type="x", codec="y")

    lists = {"audio": _some(rng, stream), "video": _some(rng, stream)}
    return _part(rng, id=rng.choice(ids), nmos_id=_word(rng), **lists)


def _settings(rng, name):
    return {f"{name}{number}": _number(rng, 64) for number in (1, 2, 3)}


def _some_ptp(rng):
    identity = ("", "08-00-11-ff-fe-21-e1-b0")

    def port(_):
        number = rng.choice((1, 2, 2, 127, 200, 65535, 65536))
        return _part(rng, portNumber=number, state="SLAVE", **_settings(rng, "portSetting"))

    intervals = {f"{name}_interval": _number(rng) for name in ("announce", "sync", "delay_req")}
    return _part(
        rng,
        clock_id=rng.choice(identity),
        grandmaster_id=rng.choice(identity),
        locked=rng.random() < 0.5,
        offset_ns=_number(rng, 64),
        mean_path_delay_ns=_number(rng, 64),
        profile=_part(rng, name=_word(rng), domain=_number(rng), **intervals),
        cfgFlag=rng.random() < 0.5,
        ports=_some(rng, port),
        **_settings(rng, "cfgSetting"),
    )


def _some_ptp_configuration(rng):
    def port(_):
        number = rng.choice((1, 2, 127, 200, 257))
        return _part(rng, portNumber=number, **_settings(rng, "portSetting"))

    ports = _some(rng, port)
    return _part(rng, cfgFlag=_number(rng), ports=ports, **_settings(rng, "cfgSetting"))


def _some_port(rng):
    power = rng.randrange(-80, 80) / 4
    module = _part(rng, present=True, vendor=_word(rng), temperature_c=41.5, tx_power_dbm=power)
    return _part(
        rng,
        name=rng.choice(("eth0", "eth0", "eth1")),
        mac="02:00:00:10:00:01",
        state=rng.choice((0, 1, 1, 257)),
        ip=_word(rng),
        speed_mbps=_number(rng, 64),
        sfp=module,
    )
