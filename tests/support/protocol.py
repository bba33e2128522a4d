"""The endpoints and numbers of platform/PlatformProtocol.hpp, read from there."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
_HEADER = (ROOT / "platform/PlatformProtocol.hpp").read_text(encoding="utf-8")


def _endpoint(constant):
    return re.search(rf'{constant} = "(.*?)"', _HEADER).group(1)


def _kinds(publisher):
    """{"avmgr_new_session": 1000, ...} of one enumeration."""
    body = re.search(rf"class {publisher} {{.*?enum .*?{{(.*?)}}", _HEADER, re.DOTALL).group(1)
    return {name: int(number) for name, number in re.findall(r"(\w+) = (\d+)", body)}


COMMAND_ENDPOINT = _endpoint("kCommandEndpoint")
NMOS_ENDPOINT = _endpoint("kNmosNodeEndpoint")
NOTIFICATION_ENDPOINTS = {
    "session-manager": _endpoint("kSessionManagerEndpoint"),
    "system-manager": _endpoint("kSystemManagerEndpoint"),
    "ptp-management": _endpoint("kPtpManagementEndpoint"),
}
KINDS = {
    "session-manager": _kinds("AvmgrPublisher"),
    "system-manager": _kinds("SysmgrPublisher"),
    "ptp-management": _kinds("ZatPmcPublisher"),
}
