"""The packages on a clean system that has booted: what an operator does, in this order.

KAIKLA_PACKAGE names the service's, beside which lies the gateway's. Root only; the system comes from the distribution's mirror.
"""

import os
import pathlib
import re
import signal
import subprocess
import time

import pytest

FILES = """find / -xdev \\( -path /var/lib/dpkg -o -path /var/log/journal -o -name "*.deb" \\
    -o -path /var/log/dpkg.log \\) -prune -o -print | sort"""
# An address that is none of the loopback network's (RFC 5737); nothing leaves the system.
OUTSIDE = "192.0.2.1"
ASK_FROM_OUTSIDE = f"kaiklactl --server tcp://{OUTSIDE}:5580 --timeout 1 list"
OPEN_THE_NETWORK = f"""mkdir -p /run/systemd/system/kaikla.service.d
    printf '[Service]\\nIPAddressAllow={OUTSIDE}\\n' >/run/systemd/system/kaikla.service.d/a.conf
    systemctl daemon-reload; systemctl restart kaikla"""
# A client that sends 60 MB of a message's parts and never the last one. Greeting and READY first.
ENDLESS_MESSAGE = """
import socket
client = socket.create_connection(("127.0.0.1", 5580))
client.sendall(b"\\xff" + bytes(8) + b"\\x7f\\3\\0NULL" + bytes(48))
client.sendall(b"\\4\\x19\\5READY\\x0bSocket-Type\\0\\0\\0\\3REQ")
client.recv(64 + 27, socket.MSG_WAITALL)
try:
    for _ in range(1000):
        client.sendall(b"\\1\\1x" * 20_000)
except ConnectionError:
    raise SystemExit(0)
raise SystemExit("nothing bounds it")
"""

KEEPS_THE_SERVICE = '[ "$(pidof kaikla)" = "$(cat /run/pid)" ]'
RESTART = "/run/systemd/system/kaikla-gateway.service.d"
REGISTERED = "kaiklactl list >/run/list && grep 5590 /run/list"
NOT_REGISTERED = "kaiklactl list >/run/list && ! grep 5590 /run/list"
ASK_GATEWAY = """bash -c 'exec 3<>/dev/tcp/127.0.0.1/8580
    printf "GET /readyz HTTP/1.1\\r\\nHost: localhost\\r\\nConnection: close\\r\\n\\r\\n" >&3
    grep "200 OK" <&3'"""

# What is done or must hold, and a shell command inside; it is tried until it succeeds, at most 20 s.
STEPS = {
    "the files before are noted": f"{FILES} >/run/before",
    "installs": "dpkg -i /package.deb",
    "is enabled and runs": "systemctl is-enabled kaikla && systemctl is-active kaikla",
    "the unit has no mistake": "! systemd-analyze verify --man=no kaikla.service 2>&1 | grep .",
    "the unit is hardened": "systemd-analyze security --threshold=25 kaikla.service",
    "runs as a user made for it": "user=$(stat -c %U /proc/$(pidof kaikla)) && "
    "[ $user != root ] && ! grep ^$user: /etc/passwd",
    "answers": "kaiklactl status",
    "a simulated device": "kaikla-sim >/dev/null 2>&1 &",
    "a consumer gets the status": "timeout 10 kaiklactl watch --count 1 | grep status-all",
    "the gateway installs": "pidof kaikla >/run/pid && dpkg -i /gateway.deb",
    "the gateway is enabled and runs": "systemctl is-enabled kaikla-gateway && "
    "systemctl is-active kaikla-gateway",
    "its unit has no mistake": "! systemd-analyze verify --man=no kaikla-gateway.service 2>&1 | grep .",
    "its unit is hardened": "systemd-analyze security --threshold=25 kaikla-gateway.service",
    "it runs as another user": "user=$(stat -c %u /proc/$(pidof kaikla-gateway)) && "
    "[ $user != 0 ] && [ $user != $(stat -c %u /proc/$(pidof kaikla)) ]",
    "it answers": ASK_GATEWAY,
    "it is registered": REGISTERED,
    "it reads its certificate again": "systemctl reload kaikla-gateway && "
    "systemctl is-active kaikla-gateway",
    "it has a manual and a completion": "test -s /usr/share/man/man8/kaikla-gateway.8.gz && "
    "bash -c '. /usr/share/bash-completion/completions/kaikla-gateway && complete -p kaikla-gateway'",
    "it is killed and stays away": f"mkdir -p {RESTART} && "
    f"printf '[Service]\\nRestart=no\\n' >{RESTART}/a.conf && systemctl daemon-reload && "
    "systemctl kill -s KILL kaikla-gateway",
    "the service does not wait for it": NOT_REGISTERED,
    "an upgrade starts it": f"rm -r {RESTART} && systemctl daemon-reload && dpkg -i /gateway.deb",
    "it answers again": f"{ASK_GATEWAY} && {REGISTERED} && {KEEPS_THE_SERVICE}",
    "the gateway is removed": "dpkg -r kaikla-gateway && ! pidof kaikla-gateway",
    "the service does not notice": f"{NOT_REGISTERED} && {KEEPS_THE_SERVICE}",
    "the gateway is purged": "dpkg -P kaikla-gateway",
    "takes a consumer by host name": "kaiklactl add tcp://localhost:7000",
    "takes a consumer on a Unix socket": "kaiklactl add ipc:///run/consumer",
    "takes a source address": "kaiklactl add 'tcp://127.0.0.1:0;127.0.0.1:7001'",
    "writes its log": "grep 'Publishing message' /var/log/kaikla/kaikla.log",
    "the journal has the log": "journalctl -u kaikla | grep Publishing",
    "the network is closed": f"{ASK_FROM_OUTSIDE}; [ $? = 3 ]",
    "a message without an end is cut off": ENDLESS_MESSAGE,
    "answers afterwards": "kaiklactl list",
    "crashes": "pidof kaikla >/run/crashed && systemctl kill -s KILL kaikla",
    "is restarted": "pidof kaikla && [ $(pidof kaikla) != $(cat /run/crashed) ] && kaiklactl list",
    "the network is opened": OPEN_THE_NETWORK,
    "answers from outside": ASK_FROM_OUTSIDE,
    "stops in good order": "systemctl stop kaikla && "
    "journalctl -u kaikla -n 3 | grep 'Deactivated successfully'",
    "an upgrade leaves it disabled": "systemctl disable -q kaikla && dpkg -i /package.deb && "
    "[ $(systemctl is-enabled kaikla) = disabled ]",
    "is removed": "systemctl start kaikla && dpkg -r kaikla && ! pidof kaikla",
    "leaves nothing but the log": f"! {FILES} | diff /run/before - | grep '^[<>]' | "
    "grep -vE '^> /var/log/(private|private/kaikla.*|kaikla)$'",
    "leaves nothing when purged": f"dpkg -P kaikla && ! {FILES} | diff /run/before - | "
    "grep '^[<>]' | grep -v '^> /var/log/private$'",
}


@pytest.fixture(scope="module")
def system(tmp_path_factory):
    """Runs a command in the namespaces of a booted system; all of them unless others are named."""
    root = tmp_path_factory.mktemp("system")
    package = os.environ["KAIKLA_PACKAGE"]
    gateway = package.replace("kaikla_", "kaikla-gateway_")
    depends = ",".join(subprocess.check_output(["dpkg-deb", "-f", each, "Depends"], text=True)
                       for each in (package, gateway))
    names = set(re.sub(r"\([^)]*\)|\s", "", depends).split(",")) - {"kaikla"}
    release = re.search("VERSION_CODENAME=(.*)", pathlib.Path("/etc/os-release").read_text())[1]
    packages = ",".join(["systemd", *sorted(names)])
    command = ["mmdebstrap", "--variant=essential", f"--include={packages}", release, root]
    subprocess.run(command, check=True)
    subprocess.run(["cp", package, root / "package.deb"], check=True)
    subprocess.run(["cp", gateway, root / "gateway.deb"], check=True)
    nspawn = ["systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--private-network"]
    nspawn += ["--capability=all", "--system-call-filter=bpf", "--boot", "--directory", root]
    with subprocess.Popen(nspawn, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL) as booted:
        find = f"until pgrep -P {booted.pid}; do sleep 0.1; done"
        first = subprocess.check_output(["timeout", "20", "sh", "-c", find], text=True).strip()

        def run(*command, namespaces="-mpnuiC"):
            enter = ["nsenter", "-t", first, *(f"-{name}" for name in namespaces[1:]), *command]
            return subprocess.run(enter, capture_output=True, text=True, timeout=60)

        run("ip", "link", "set", "lo", "up", namespaces="-n")
        run("ip", "address", "add", f"{OUTSIDE}/32", "dev", "lo", namespaces="-n")
        yield run
        booted.send_signal(signal.SIGTERM)


@pytest.mark.parametrize("step", STEPS)
def test_an_operator_can(system, step):
    command = STEPS[step]
    end = time.monotonic() + 20
    while True:
        if command is ENDLESS_MESSAGE:
            done = system("/usr/bin/python3", "-c", command, namespaces="-n")
        else:
            done = system("sh", "-c", command)
        if done.returncode == 0:
            return
        assert time.monotonic() < end, done.stdout + done.stderr
        time.sleep(0.5)
