"""The commands that ask the service once, the command line and the output."""

import json

from kaiklactl.played import bash, ctl, played_ctl, reply
from peers import PTP, ROOT, Listener, free_port, wait_until

BAD_ADDRESSES = {
    '"%s" is no address': "nonsense inproc://x udp://127.0.0.1:7000",
    "%s has no host and port": "tcp://127.0.0.1 tcp://:7000",
    "%s has no port from 1 to 65535": "tcp://h:72536 tcp://h:0 tcp://h:7x",
    "%s stands for every address of a host": "tcp://*:7000 tcp://0.0.0.0:7000",
    "%s names no path": "ipc://",
    "%s must name its path from the root": "ipc://consumer ipc://*",
    "/etc/passwd is there and is no socket": "ipc:///etc/passwd",
}
MISTAKES = [
    ("", "subcommand is required"),
    ("bogus", 'no command "bogus"'),
    ("add", "address is required"),
    *((f"list --timeout {text}", "it must be from 0.01") for text in "0 nan 3601".split()),
    ("watch --count 0", "it must be a number"),
    *((f"{use} {address}", fault.replace("%s", address))
      for use in ("add", "drain", "list --server", "watch --address")
      for fault, addresses in BAD_ADDRESSES.items() for address in addresses.split()),
    ("watch --bind tcp://192.0.2.1:7000", "this host does not have that address"),
    ("drain tcp://192.0.2.1:7000", "run this on the host that has it"),
]


def test_mistakes_are_explained_before_anything_is_sent(service):
    for line, fault in MISTAKES:
        status, output, error = ctl(line)
        assert (status, output) == (2, "") and fault in error, line
    assert service.consumers() == [] and not service.lines_with("Connecting socket")


def test_consumers_come_and_go(service):
    listening, deaf = service.consumer(greeting=False), Listener()
    here, mute, gone = listening.address, deaf.address, f"tcp://127.0.0.1:{free_port()}"
    other = here.upper().replace("127.0.0.1:", "localhost:0")
    for line, output, notice in [
        (f"add {gone}", f"{gone} is registered.", f"{gone}: nobody listens there"),
        (f"add {mute}", f"{mute} is registered.", "is stopped or no consumer"),
        (f"add {here}", f"{here} is registered.", ""),
        ("list", f"{here}\n{mute}  ! what listens there is stopped or no consumer\n"
                 f"{gone}  ! nobody listens there", ""),
        (f"remove {gone}", f"{gone} is not registered any more.", ""),
        (f"remove {gone}", f"{gone} was not registered.", ""),
        (f"remove {other}", f"{other} was not registered, but {here} is.", ""),
    ]:
        status, printed, error = ctl(line)
        assert (status, printed) == (0, output + "\n"), line
        assert notice in error and bool(notice) == bool(error), line
    assert service.consumers() == [here, mute]
    deaf.close()
    listening.close()


DOCUMENT = r"""{"device_id": "dev",
    "eths": [{"name": "Anschluß", "mac": "m0", "state": 1, "ip": "192.0.2.1", "speed_mbps": 25000},
             {"name": "eth1日", "sfp": {"present": true, "vendor": "V", "part_number": "P",
              "temperature_c": 38.55, "tx_power_dbm": -1, "rx_power_dbm": -40}}],
    "ptp": {"clock_id": "c", "grandmaster_id": "g", "locked": true, "offset_ns": -12,
            "mean_path_delay_ns": 600, "profile": {"name": "p", "domain": 127},
            "ports": [{"portNumber": 1, "state": "SLAVE"}]},
    "sessions": [{"id": 7, "nmos_id": "n7", "stream": [{"id": 11}, {"id": 12, "alarms": [
                     {"description": "late", "type": 5}]}]},
                 {"id": 8, "alarms": [{"severity": "", "description": "\u001b[0mX"}]}]}"""
REPORT = r"""Device    dev
PTP       locked, offset -12 ns, path delay 600 ns
          grandmaster g, clock c
          profile p, domain 127
Sessions  2
Alarms    ! 2

PTP PORT  STATE
1         SLAVE

PORT      STATE   SPEED       ADDRESS    MAC  SFP
Anschluß  up      25000 Mb/s  192.0.2.1  m0   none
eth1日    ! down  0 Mb/s                      V P, 38.5 °C, tx -1.0 dBm, rx -40.0 dBm

SESSION  NMOS ID  STREAM  ALARMS
7        n7       all     none
                  11      none
                  12      ! warning: late (type 5)
8        none     all     ! : \x1b[0mX (type 0)
"""


def test_the_status_is_a_report_or_json(device, service):
    assert played_ctl(reply(0, {"status": json.loads(DOCUMENT)}), "status") == (0, REPORT, "")
    empty = "Device    unknown\nPTP       not reported\nSessions  none\nAlarms    none\n"
    assert ctl("status") == (0, empty, "")
    device.send(PTP, 1000, {"clock_id": "é\x1b[2J"})
    wait_until(lambda: "PTP       ! not locked" in ctl("status")[1], "the clock")
    assert ctl("status --json")[1][:-1] + "}" in service.exchange(b'{"command_id":0}').decode()
    pretty = ctl("status --pretty")[1]
    assert json.loads(pretty) == service.document() and '\n    "cfgFlag": false,\n' in pretty


def test_silence_and_nonsense_from_the_service():
    nobody = f"tcp://127.0.0.1:{free_port()}"
    assert "within 0.1 s: kaikla does not run" in ctl(f"status --timeout 0.1 --server {nobody}")[2]
    for line, advice in [("list", "it waits, most likely for a consumer"),
                         ("doctor", "drain ADDRESS"),
                         ("watch", "drain ADDRESS"), (f"drain {nobody}", "nothing came to"),
                         (f"add {nobody}", "It may still register the consumer")]:
        status, output, error = played_ctl(None, f"{line} --timeout 0.3")
        assert status == 3 and advice in output + error, line
    for answer in b"nonsense", reply(0, 7), reply(0, {"status": {"device_id": []}}):
        status, output, error = played_ctl(answer, "status")
        assert (status, output) == (3, "") and error.startswith("kaiklactl: the answer "), answer
    refusal = reply(1, result=-1, error="No.\x1b[2J\r\n")
    assert played_ctl(refusal, "add tcp://x:1") == (1, "", "kaiklactl: No.\\x1b[2J\\r\\n\n")
    odd = reply(3, {"remote": ["a\nb\u202e"]})
    assert played_ctl(odd, "list --no-check") == (0, "a\\nb\\u202e\n", "")


def test_output_that_cannot_be_written(device, service):
    for line in ("status >/dev/full", "status >&-", "add tcp://127.0.0.1:1 >/dev/full",
                 "doctor >/dev/full", "watch >/dev/full", "watch >&-", "--help >/dev/full",
                 "drain tcp://127.0.0.1:1 >/dev/full"):
        assert bash(f"kaiklactl {line}")[0] == 4, line
    assert service.consumers() == []
    gone = bash("set -o pipefail; kaiklactl status | true")
    assert gone == (0, "", ""), "a reader that has gone is no error"


def offered(line):
    """What bash offers at the end of the line."""
    status, output, error = bash(f"""source {ROOT}/packaging/completions/kaiklactl.bash
        COMP_LINE='{line}'; COMP_POINT=${{#COMP_LINE}}
        read -ra COMP_WORDS <<<"${{COMP_LINE//:/ : }}"
        [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=("")
        COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _kaiklactl
        printf '%s\\n' "${{COMPREPLY[@]}}" """)
    assert (status, error) == (0, "")
    return set(output.splitlines()) - {""}


def test_completion_offers_what_is_registered_without_expanding_it(service):
    assert offered("kaiklactl dr") == {"drain"}
    for address in ("tcp://127.0.0.1:7001", "tcp://127.0.0.1:7002", "ipc:///tmp/$(touch x)"):
        service.add(address)
    assert offered("kaiklactl remove tcp://127.0.0.1:700") == {"7001", "7002"}
    assert offered("kaiklactl drain ipc:") == {r"///tmp/\$\(touch\ x\)"}
    assert offered("kaiklactl add ") == offered("kaiklactl watch --bind ") == set()
