"""What the services of a small device say: the device that docs/messages.md shows."""

import json
import re

import protocol

# Every example of the document, in its order.
EXAMPLES = [
    json.loads(text)
    for text in re.findall(
        r"^```json\n(.*?)^```",
        (protocol.ROOT / "docs/messages.md").read_text(encoding="utf-8"),
        re.DOTALL | re.MULTILINE,
    )
]


def _payloads(name):
    return [example["payload"] for example in EXAMPLES if example["command_name"] == name]


DEVICE_ID = "5f2b7c1e-8d04-4a39-9c55-0e6a1b7d2f48"

SESSION_CONFIGURATION = _payloads("avmgr_new_session")[0]
# A new session first, then its status.
SESSION_STATUS = _payloads("status-session")[1]
PTP_STATUS = _payloads("status-all")[0]["ptp"]
DYNAMIC_INFORMATION = {
    "eths": _payloads("status-all")[0]["eths"],
    "uptime_s": 86400,
    "temperature_c": 51.5,
}
PTP_CONFIGURATION = {
    "cfgSetting1": 1,
    "cfgSetting2": 2,
    "cfgSetting3": 3,
    "cfgFlag": 0,
    "ports": [{"portNumber": 1, "portSetting1": 4, "portSetting2": 5, "portSetting3": 6}],
}

# Every number at the end of its range, and a text beyond ASCII.
EXTREME_STATUS = {
    "id": 2**64 - 1,
    "nmos_id": "Bühne \U0001f3a5",
    "device_id": DEVICE_ID,
    "alarms": [{"severity": "", "description": 'a "quoted"\nline', "type": -(2**31)}],
    "stream": [{"id": 2**64 - 1, "alarms": [{"severity": "x", "type": 2**31 - 1}]}],
}

EXTREME_PTP_STATUS = {
    "offset_ns": -(2**63),
    "mean_path_delay_ns": 2**63 - 1,
    "profile": {"domain": 255, "announce_interval": -128, "sync_interval": 127},
    "cfgSetting1": 255,
    "ports": [{"portNumber": 65535, "portSetting3": 255}, {}],
}

ADVERTISEMENT = {"id": 9, "name": "studio 2", "sdp": "v=0\r\ns=studio 2\r\n"}
