"""What records read and write where no message shows it: values that are kept or reset, texts that
are not read back, numbers cut to their width."""

import json
import subprocess

import pytest

from peers import BIN


@pytest.fixture(scope="module")
def exercise():
    """(the request afterwards, the log) of one record that reads each of `reads`."""
    with subprocess.Popen([BIN / "record_probe"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True) as probe:

        def once(record, *reads, hold=None):
            request = {"record": record, "read": list(reads)}
            if hold is not None:
                request["hold"] = hold
            print(json.dumps(request), file=probe.stdin, flush=True)
            log = ""
            while not (line := probe.stdout.readline()).startswith("{"):
                assert line, "the probe has ended"
                log += line
            return json.loads(line), log

        yield once
        probe.stdin.close()


def same(left, right):
    """1, 1.0 and true are three values."""
    return json.dumps(left, sort_keys=True) == json.dumps(right, sort_keys=True)


ADDRESSES = {"local": "10.0.0.1", "transport": "239.1.1.1", "dscp": 1, "ttl": 2}
TIMING = {"timing-mode": "2059", "initBufDelay": 1, "minWrRdPtrThresh": 2, "maxWrRdPtrThresh": 3,
          "rtpPktsPerFrame": 4}
MANUAL = {"sscr": {"type": "manual", "value": 77}}
SFP = {"present": False, "vendor": "", "part_number": "", "serial": "", "temperature_c": 0.0,
       "tx_power_dbm": 0.0, "rx_power_dbm": 0.0}
PORT = {"name": "", "mac": "", "state": 0, "ip": "", "speed_mbps": 0, "sfp": SFP}
PROFILE = {"name": "", "domain": 0, "announce_interval": 0, "sync_interval": 0, "delay_req_interval": 0}
PTP = {"clock_id": "", "grandmaster_id": "", "locked": False, "offset_ns": 0, "mean_path_delay_ns": 0,
       "profile": PROFILE, "cfgSetting1": 0, "cfgSetting2": 0, "cfgSetting3": 0, "cfgFlag": False}
PTP_PORT = {"portNumber": 0, "state": "", "portSetting1": 0, "portSetting2": 0, "portSetting3": 0}
ALARM = {"severity": "warning", "description": "", "type": 0}
SESSION = {"id": 0, "nmos_id": "", "device_id": ""}

# No value here is what a missing key gives.
AUDIO = {"id": 11, "class": "sender", "state": "Enabled", "type": "audio", "redundant-type": "primary",
         "codec": "L24", "vlan": {"id": 100, "priority": 5, "tpid": 34984}, "source": 5004,
         "destination": 5006, "payload-type": 97, "sscr": {"type": "manual", "value": 4026531841},
         **ADDRESSES, "channels": [{"type": 1, "string": "left"}, {"type": 2, "string": "right"}]}
VIDEO = {**AUDIO, **TIMING, "id": 21, "class": "receiver", "state": "Paused", "type": "video",
         "codec": "raw", "tributary": {"type": "MULTI-2SI", "index": 2}}
del VIDEO["channels"]


def written_as(record, key, *texts, **others):
    """One row a text: the texts in the order of their numbers, each read back over another one."""
    return [(record, [{key: texts[number - 1]}, {key: text}], {key: text, **others})
            for number, text in enumerate(texts)]


def kept(record, reads, *unknown):
    return [(record, [*reads, text], None) for text in unknown]


# (record, what it reads one after the other, what it writes then; None for what it read first)
CASES = [
    *written_as("class", "class", "receiver", "sender"),
    *written_as("state", "state", "Disabled", "Enabled", "Paused"),
    *written_as("type", "type", "audio", "video"),
    *written_as("redundancy", "redundant-type", "none", "primary", "secondary"),
    *written_as("codec", "codec", "AM824", "L32", "L24", "L16", "SMPTE2022-6", "AM824_TRANSPARENT",
                "raw", "Not-supported"),
    *written_as("ssrc", "type", "session-id", "asio", "manual", "unspecified", value=0),
    *written_as("timing", "timing-mode", "frame_sync", "low_latency", "2059"),
    *[("tributary", [{"tributary": {"type": "MULTI-SD", "index": 3}}, {"tributary": {"type": text, "index": 0}}],
       {"tributary": {"type": text, "index": 0}}) for text in ("none", "MULTI-2SI")],
    # An unknown text, and mostly a missing key, keeps the value ...
    *kept("class", [{"class": "sender"}], {"class": "undefined"}, {"class": "Receiver"}, {}),
    *kept("type", [{"type": "video"}], {"type": "ancillary"}, {"type": "Audio"}, {}),
    *kept("redundancy", [{"redundant-type": "primary"}], {"redundant-type": "None"}),
    *kept("timing", [TIMING], {"timing-mode": "unset"}, {"timing-mode": "ERROR"}, {}),
    *kept("rtp", [{"payload-type": 98, **MANUAL}], {}, {"sscr": None}, {"ssrc": {"value": 1}}),
    ("ip", [ADDRESSES, {}], {**ADDRESSES, "dscp": 34, "ttl": 64}),
    ("ip", [ADDRESSES, {"local": "", "dscp": 257, "ttl": 256}], {**ADDRESSES, "dscp": 1, "ttl": 0}),
    ("timing", [TIMING, {"maxWrRdPtrThresh": 5}], {**TIMING, "maxWrRdPtrThresh": 5}),
    ("tributary", [{"tributary": {"type": "MULTI-SD", "index": 3}}, {"tributary": {"type": "multi-2si"}}],
     {"tributary": {"type": "MULTI-SD", "index": -1}}),
    # ... or resets it.
    ("state", [{"state": "Paused"}, {"state": "enabled"}], {"state": "Disabled"}),
    ("redundancy", [{"redundant-type": "primary"}, {}], {"redundant-type": "none"}),
    ("codec", [{"codec": "raw"}, {}], {"codec": "AM824"}),
    ("codec", [{"codec": ""}], {"codec": "Not-supported"}),
    ("codec", [{"codec": "sMpTe2022-6"}], {"codec": "SMPTE2022-6"}),
    ("timing", [TIMING, {"timing-mode": ""}], {**TIMING, "timing-mode": "low_latency"}),
    ("timing", [{"initBufDelay": -1}], {"timing-mode": "unset"}),
    ("vlan", [{"id": 1, "priority": 2, "tpid": 3}, {}], {"id": 0, "priority": 0, "tpid": 33024}),
    ("udp-port", [{"source": 1, "destination": 2}, {}], {"source": 0, "destination": 0}),
    ("daif", [{"type": 1, "string": "left"}, {}], {"type": 11, "string": "auto"}),
    ("rtp", [{"payload-type": 4294967295}], {"payload-type": 255, "sscr": {"type": "session-id", "value": 0}}),
    ("rtp", [MANUAL, {"sscr": 1234}], {"payload-type": 98, "sscr": {"type": "session-id", "value": 1234}}),
    ("rtp", [MANUAL, {"sscr": {"type": "Manual"}}], {"payload-type": 98, "sscr": {"type": "manual", "value": 0}}),
    ("tributary", [{"tributary": {"type": "MULTI-SD", "index": 3}}, {}], {"tributary": {"type": "none", "index": -1}}),
    ("session-configuration", [{"id": 2**64 - 1, "nmos_id": "5f1d", "audio": [AUDIO], "video": [VIDEO]}], None),
    # Widths.
    ("vlan", [{"id": -1, "priority": 259, "tpid": 65537}], {"id": 65535, "priority": 3, "tpid": 1}),
    ("udp-port", [{"source": 65536, "destination": -65535}], {"source": 0, "destination": 1}),
    ("ptp-status", [{"cfgSetting1": 257, "cfgSetting2": -1, "cfgSetting3": 2**64 - 1, "cfgFlag": 2,
                     "offset_ns": -(2.0**63), "profile": {"domain": 300, "announce_interval": 255,
                                                          "sync_interval": 128, "delay_req_interval": -129},
                     "ports": [{"portNumber": 65537, "portSetting1": 256, "portSetting2": 3.9}]}],
     {**PTP, "cfgSetting1": 1, "cfgSetting2": 255, "cfgSetting3": 255, "cfgFlag": True, "offset_ns": -(2**63),
      "profile": {**PROFILE, "domain": 44, "announce_interval": -1, "sync_interval": -128, "delay_req_interval": 127},
      "ports": [{**PTP_PORT, "portNumber": 1, "portSetting2": 3}]}),
    ("dynamic-information", [{"uptime_s": 18446744073709549568.0, "eths": [{"state": 257, "speed_mbps": 2**33 - 100}]}],
     {"uptime_s": 18446744073709549568, "temperature_c": 0.0, "eths": [{**PORT, "state": 1, "speed_mbps": 2**32 - 100}]}),
    ("session-status", [{"id": 7.9, "nmos_id": 5, "device_id": True, "alarms": "text", "stream": 12}],
     {"id": 7, "nmos_id": "5", "device_id": "true"}),
    # A record that is full takes what a fresh one would.
    ("ptp-status", [{"clock_id": "c", "grandmaster_id": "g", "locked": True, "offset_ns": 1, "cfgFlag": True,
                     "mean_path_delay_ns": 1, "profile": {"name": "p", "domain": 1}, "ports": [{}]}, {}], PTP),
    ("document", [{"device_id": "old", "eths": [{}, {}], "ptp": {"locked": True}, "sessions": [{}, {}]},
                  {"sessions": [{"id": 8}]}], {"device_id": "", "ptp": PTP, "sessions": [{**SESSION, "id": 8}]}),
    ("stream-status", [{"alarms": [{}, {"severity": None}, None]}],
     {"id": 0, "alarms": [ALARM, {**ALARM, "severity": ""}, ALARM]}),
]


@pytest.mark.parametrize("record, reads, expected", CASES, ids=[f"{c[0]}-{n}" for n, c in enumerate(CASES)])
def test_a_record_writes_what_it_has_read(exercise, record, reads, expected):
    after, log = exercise(record, *reads)
    assert same(after.get("into"), reads[0] if expected is None else expected), after
    assert log == ""


def test_a_number_without_a_name_is_written_as_the_catch_all(exercise):
    for record, text in (
        ("class", {"class": "undefined"}), ("state", {"state": "Undefined"}), ("type", {"type": "undefined"}),
        ("redundancy", {"redundant-type": "none"}), ("codec", {"codec": "Not-supported"}),
        ("ssrc", {"type": "-", "value": 0}), ("timing", {"timing-mode": "ERROR"}),
        ("tributary", {"tributary": {"type": "none", "index": -1}}),
    ):
        assert same(exercise(record, hold=9)[0]["into"], text)
    assert exercise("type", hold=3)[0]["into"] == {"type": "ancillary"}


def test_an_address_that_is_none_is_logged_and_kept(exercise):
    for text in ("10.0.0.256", "host.example", " 10.0.0.2", "::1"):
        after, log = exercise("ip", ADDRESSES, {"local": text, "transport": "239.2.2.2", "dscp": 46, "ttl": 5})
        assert after["into"] == {"local": "10.0.0.1", "transport": "239.2.2.2", "dscp": 46, "ttl": 5}
        assert log.endswith(f" ERR probe: Error parsing IP [{text}]: invalid IP address\n")


def test_a_value_that_cannot_be_converted_is_refused(exercise):
    for record, *texts in (
        ("codec", {"codec": ["L24"]}), ("daif", {"type": "auto"}), ("ip", {"ttl": -1}),
        ("timing", {"initBufDelay": "5"}), ("tributary", {"tributary": []}), ("vlan", {"id": "7"}, {"id": 2**31}),
        ("rtp", {"payload-type": -1}, {"sscr": -1}, {"sscr": "1234"}, {"sscr": {"value": -1}}),
        ("ptp-status", {"ports": [7]}, {"profile": "p"}, {"offset_ns": 2**63}, {"offset_ns": 2.0**63},
         {"cfgSetting1": "1"}, {"cfgSetting1": 2**64}, {"cfgSetting1": 1e30}, {"locked": "yes"}),
        ("dynamic-information", {"eths": [{"sfp": 1}]}, {"uptime_s": -1}, {"uptime_s": 2**64}, {"temperature_c": "hot"}),
        ("session-status", {"id": -1}, {"id": "7"}, {"id": 2.0**64}, {"nmos_id": {}}, {"alarms": {"a": {}}},
         {"alarms": [5]}, {"alarms": [{"type": 2**31}]}, {"stream": [{"alarms": [[]]}]}),
        ("session-configuration", {"audio": [{"channels": "none"}]}),
        *((record, *({key: no_list} for no_list in (5, "text", True, {}))) for record, key in (
            ("ptp-status", "ports"), ("ptp-configuration", "ports"), ("dynamic-information", "eths"),
            ("session-configuration", "audio"), ("session-configuration", "video"))),
    ):
        for text in texts:
            assert "refused" in exercise(record, text)[0], (record, text)
