"""The commands that ask the service once, the command line and the output."""

import json
import os
import pty
import re
import signal
import subprocess

import pytest

from kaiklactl.played import ctl, played_ctl, reply
from peers import BIN, COMMAND_ENDPOINT, PTP, ROOT, Listener, Process, free_port, wait_until

MISTAKES = [
    ("", "subcommand is required"),
    ("bogus", 'no command "bogus"'),
    ("add", "address is required"),
    ("drain", "address is required"),
    ("list surplus", "surplus"),
    ("status --nonsense", "--nonsense"),
    *((f"list --timeout {seconds}", "--timeout: it must be from 0.01") for seconds in
      "0 nan inf -inf 1e999 3601 soon".split()),
    *((f"watch --count {count}", "--count: it must be a number") for count in "0 -1 x".split()),
    *((f"{use} {address}", fault) for use in ("add", "drain", "list --server", "watch --address")
      for address, fault in {
          "nonsense": '"nonsense" is no address',
          "inproc://x": '"inproc://x" is no address',
          "udp://127.0.0.1:7000": "is no address",
          "tcp://127.0.0.1": "no host and port",
          "tcp://:7000": "no host and port",
          "tcp://127.0.0.1:72536": "no port from 1 to 65535",
          "tcp://127.0.0.1:0": "no port from 1 to 65535",
          "tcp://127.0.0.1:7x": "no port from 1 to 65535",
          "tcp://127.0.0.1:*": "no port from 1 to 65535",
          "tcp://*:7000": "every address of a host",
          "tcp://0.0.0.0:7000": "every address of a host",
          "ipc://": "names no path",
          "ipc:///etc/passwd": "/etc/passwd is there and is no socket",
      }.items()),
    ("watch --bind nonsense", '"nonsense" is no address'),
    ("watch --bind tcp://192.0.2.1:7000", "this host does not have that address"),
    ("drain tcp://192.0.2.1:7000", "run this on the host that has it"),
]


def test_mistakes_are_explained_before_anything_is_sent(service):
    for line, fault in MISTAKES:
        status, output, error = ctl(*line.split())
        assert (status, output) == (2, ""), line
        assert fault in error, line
    assert service.consumers() == []
    assert not service.lines_with("Connecting socket")
    for question in ("--help", "--version"):
        assert ctl(question)[0] == 0


def test_consumers_come_and_go(service):
    listening = service.consumer(greeting=False)
    consumer = listening.address
    gone, deaf = f"tcp://127.0.0.1:{free_port()}", Listener()
    nobody, stopped = "  ! nobody listens there", "  ! what listens there is stopped or no consumer"
    for line, output, notice in [
        ("list", consumer, ""),
        (f"add {gone}", f"{gone} is registered.", f"{gone}: nobody listens there"),
        (f"add {deaf.address}", f"{deaf.address} is registered.", "is stopped or no consumer"),
        (f"add {consumer}", f"{consumer} is registered.", ""),
        ("list", "\n".join(sorted([consumer, gone + nobody, deaf.address + stopped])), ""),
        ("list --no-check", "\n".join(sorted([consumer, gone, deaf.address])), ""),
        (f"remove {gone}", f"{gone} is not registered any more.", ""),
        (f"remove {gone}", f"{gone} was not registered.", ""),
        (f"remove TCP://LocalHost:0{consumer.rpartition(':')[2]}",
         f"TCP://LocalHost:0{consumer.rpartition(':')[2]} was not registered, but {consumer} is.",
         ""),
        (f"remove {deaf.address}", f"{deaf.address} is not registered any more.", ""),
    ]:
        status, printed, error = ctl(*line.split())
        assert (status, printed) == (0, output + "\n"), line
        assert notice in error and bool(notice) == bool(error), line
    assert service.consumers() == [consumer]
    deaf.close()
    listening.close()
    status, output, error = ctl("add", "tcp://a b:7000")
    assert (status, output) == (1, "") and "cannot connect to this address" in error


DOCUMENT = json.loads(r"""{
    "device_id": "dev",
    "eths": [{"name": "Anschluß", "mac": "m0", "state": 1, "ip": "192.0.2.1", "speed_mbps": 25000},
             {"name": "eth1日", "mac": "m1", "state": 0, "ip": "198.51.100.1", "speed_mbps": 0,
              "sfp": {"present": true, "vendor": "V", "part_number": "P", "temperature_c": 38.55,
                      "tx_power_dbm": -1, "rx_power_dbm": -40}}],
    "ptp": {"clock_id": "c", "grandmaster_id": "g", "locked": true, "offset_ns": -12,
            "mean_path_delay_ns": 600, "profile": {"name": "p", "domain": 127},
            "ports": [{"portNumber": 1, "state": "SLAVE"}]},
    "sessions": [{"id": 7, "nmos_id": "n7", "stream": [
                     {"id": 11},
                     {"id": 12, "alarms": [{"description": "late", "type": 5},
                                           {"severity": "major", "description": "lost"}]}]},
                 {"id": 8, "alarms": [{"severity": "", "description": "\u001b[0mX"}]}]}""")

REPORT = r"""Device    dev
PTP       locked, offset -12 ns, path delay 600 ns
          grandmaster g, clock c
          profile p, domain 127
Sessions  2
Alarms    ! 3

PTP PORT  STATE
1         SLAVE

PORT      STATE   SPEED       ADDRESS       MAC  SFP
Anschluß  up      25000 Mb/s  192.0.2.1     m0   none
eth1日    ! down  0 Mb/s      198.51.100.1  m1   V P, 38.5 °C, tx -1.0 dBm, rx -40.0 dBm

SESSION  NMOS ID  STREAM  ALARMS
7        n7       all     none
                  11      none
                  12      ! warning: late (type 5)
                          ! major: lost (type 0)
8        none     all     ! : \x1b[0mX (type 0)
"""


def on_terminal(*command, **environment):
    """What a program writes on a terminal."""
    ours, theirs = pty.openpty()
    variables = {**os.environ, "TERM": "xterm", "NO_COLOR": "", **environment}
    with subprocess.Popen([BIN / "kaiklactl", *command], stdout=theirs, env=variables) as process:
        os.close(theirs)
        text = b""
        try:
            while part := os.read(ours, 4096):
                text += part
        except OSError:  # the other side has closed
            pass
    os.close(ours)
    assert process.returncode == 0
    return text.decode().replace("\r\n", "\n")


def test_the_status_is_a_report_in_colour_on_a_terminal(device, service):
    assert played_ctl(reply(0, {"status": DOCUMENT}), "status") == (0, REPORT, "")
    empty = "Device    unknown\nPTP       not reported\nSessions  none\nAlarms    none\n"
    assert ctl("status") == (0, empty, "")
    device.send(PTP, 1000, {"clock_id": "é\x1b[2J"})
    wait_until(lambda: "PTP       ! not locked" in ctl("status")[1], "the clock")
    plain = ctl("status")[1]
    painted = on_terminal("status")
    assert "\x1b[1;31m! not locked\x1b[0m" in painted and "\x1b[32mnone\x1b[0m" in painted
    assert re.sub(r"\x1b\[[0-9;]*m", "", painted) == plain
    assert on_terminal("status", NO_COLOR="1") == on_terminal("status", TERM="dumb") == plain

    came = service.exchange(b'{"command_id":0}').decode()
    status, output, _ = ctl("status", "--json")
    assert status == 0 and f'"status":{output[:-1]}}}' in came
    pretty = ctl("status", "--pretty")[1]
    assert json.loads(pretty) == service.document() and '\n    "cfgFlag": false,\n' in pretty


def test_silence_and_nonsense_from_the_service():
    endpoint = f"tcp://127.0.0.1:{free_port()}"
    status, _, error = ctl("status", "--timeout", "0.1", "--server", endpoint)
    assert status == 3 and "within 0.1 s: kaikla does not run there" in error
    for command in ("list", "doctor", "watch", f"drain {endpoint}", f"add {endpoint}"):
        status, output, error = played_ctl(None, *command.split(), "--timeout", "0.3")
        assert status == 3, command
        advice = "nothing came to" if command.startswith("drain") else '"kaiklactl drain ADDRESS"'
        assert "waits" in error + output and advice in error + output, command
        assert ("It may still register" in error) == command.startswith("add"), command
    for answer in (b"nonsense", b"[]", b'{"result":"none"}', reply(0, 7),
                   reply(0, {"status": {"device_id": []}})):
        status, output, error = played_ctl(answer, "status")
        assert (status, output) == (3, ""), answer
        assert error.startswith("kaiklactl: the answer "), answer
    refusal = reply(1, result=-1, error="No.\x1b[2J\r\n")
    assert played_ctl(refusal, "add", "tcp://x:1") == (1, "", "kaiklactl: No.\\x1b[2J\\r\\n\n")
    odd = reply(3, {"remote": ["a\nb\u202e"]})
    assert played_ctl(odd, "list", "--no-check") == (0, "a\\nb\\u202e\n", "")


def test_a_signal_ends_the_wait_for_an_answer(service):
    service.send_signal(signal.SIGSTOP)
    for number in (signal.SIGINT, signal.SIGTERM):
        with Process("kaiklactl", "--timeout", "60", "list") as waiting:
            waiting.expected_status = 128 + number
            wait_until(lambda: waiting.descriptors() > 10, "the connection")  # pylint: disable=W0640
            waiting.stop(number)
    service.send_signal(signal.SIGCONT)


@pytest.mark.parametrize("where", [">/dev/full", ">&-"])
def test_output_that_cannot_be_written(device, service, where):
    listening = service.consumer()
    consumer = listening.address
    for command in ("status", "list", f"add {consumer}", "doctor", "watch", "--help",
                    "remove tcp://127.0.0.1:1", "drain tcp://127.0.0.1:6999"):
        shell = subprocess.run(f"{BIN}/kaiklactl {command} {where}", shell=True, timeout=30,
                               capture_output=True, text=True)
        assert shell.returncode == 4, command
        assert command == "--help" or "the output cannot be written" in shell.stderr, command
    assert service.consumers() == [consumer]
    reader = subprocess.run(["bash", "-o", "pipefail", "-c", f"{BIN}/kaiklactl status | true"],
                            timeout=30, capture_output=True, text=True)
    assert (reader.returncode, reader.stderr) == (0, ""), "a reader that has gone is no error"


def offered(line):
    """What bash offers at the end of the line."""
    program = line.split()[0]
    script = f"""PATH={BIN}:$PATH; source {ROOT}/packaging/completions/{program}.bash
        COMP_LINE='{line}'; COMP_POINT=${{#COMP_LINE}}; read -ra COMP_WORDS <<<"${{COMP_LINE//:/ : }}"
        [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=("")
        COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _{program.replace('-', '_')}
        (( ${{#COMPREPLY[@]}} == 0 )) || printf '%s\\n' "${{COMPREPLY[@]}}" """
    done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=30)
    assert done.stderr == ""
    return set(done.stdout.splitlines())


def documented(*command):
    """The long options and subcommands that a program's help names."""
    text = subprocess.run([BIN / command[0], *command[1:], "--help"], capture_output=True,
                          text=True, check=True).stdout
    words = re.findall(r"^ +(?:-h,)?(--[a-z-]+)", text, re.MULTILINE)
    return {*words, *re.findall(r"^  ([a-z]+) ", text.partition("Subcommands:")[2], re.MULTILINE)}


def test_completion_offers_what_the_help_names_and_what_is_registered(service):
    assert offered("kaiklactl ") == documented("kaiklactl") >= {"--server", "drain"}
    assert offered("kaikla-sim ") == documented("kaikla-sim")
    for command in documented("kaiklactl"):
        if not command.startswith("-"):
            expected = documented("kaiklactl", command) | {"--server", "--timeout"}
            assert offered(f"kaiklactl {command} --") == expected, command
    for address in ("tcp://127.0.0.1:7001", "tcp://127.0.0.1:7002", "ipc:///tmp/$(touch x)"):
        service.add(address)
    assert offered("kaiklactl remove tcp://127.0.0.1:700") == {"7001", "7002"}
    assert offered("kaiklactl drain ipc:") == {r"///tmp/\$\(touch\ x\)"}
    assert offered("kaiklactl add ") == offered("kaiklactl watch --bind ") == set()
    assert COMMAND_ENDPOINT in ctl("--help")[1]
