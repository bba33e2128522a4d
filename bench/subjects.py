"""What is measured: programs that the load generator plays a device for, each started afresh."""

import json
import os
import re
import resource
import shutil
import socket
import subprocess
import sys
import tempfile
from contextlib import contextmanager

from figures import until

LABELS = {"bare": "bare loop", "level-4": "kaikla, level 4",
          "file": "kaikla, default level into a file", "broker": "mosquitto, MQTT at QoS 0"}
PROTOCOL_HEADER = os.path.join(os.path.dirname(__file__), "../platform/PlatformProtocol.hpp")
BROKER = shutil.which("mosquitto", path=os.environ["PATH"] + ":/usr/sbin")
BROKER_PORT = 18830
# As it comes, but for what makes it send without waiting for acknowledgements.
BROKER_SETTINGS = (f"listener {BROKER_PORT} 127.0.0.1\nallow_anonymous true\nlog_type error\n"
                   "set_tcp_nodelay true\n")


def ports(constant=r"\w+"):
    """The ports of the endpoints with this name in the platform's header."""
    with open(PROTOCOL_HEADER, encoding="utf-8") as file:
        return {int(port) for port in
                re.findall(rf'\b{constant} = "tcp://[^"]*:(\d+)"', file.read())}


def accepts(port):
    with socket.socket() as attempt:
        return attempt.connect_ex(("127.0.0.1", port)) == 0


def wait_for(port):
    until(lambda: accepts(port), f"a listener on port {port}", 10)


def prepare():
    """Ends the program when a port is taken; raises the limit of descriptors."""
    for port in ports():
        if accepts(port):
            sys.exit(f"port {port} is taken; in a network namespace of its own it is free: "
                     "unshare -rn sh -c 'ip link set lo up; bench/run'")
    # For hundreds of consumers; the subjects inherit it.
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


@contextmanager
def running(name, build, consumers=1, documents=False, wrapper=()):
    """A subject while it runs; `wrapper` is a command line that stands before its own."""
    with tempfile.TemporaryDirectory() as scratch:
        with open(f"{scratch}/mosquitto.conf", "w", encoding="ascii") as file:
            file.write(BROKER_SETTINGS)
        words = {"bare": [f"{build}/bin/kaikla-bare-loop", str(consumers)] + ["document"] * documents,
                 "level-4": [f"{build}/bin/kaikla", "-l", "4"],
                 "file": [f"{build}/bin/kaikla", "-L", f"{scratch}/kaikla.log"],
                 "broker": [BROKER, "-c", f"{scratch}/mosquitto.conf"]}[name]
        process = subprocess.Popen([*wrapper, *words], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            if name == "broker":
                wait_for(BROKER_PORT)
            yield process
        finally:
            process.kill()
            process.wait()


def measure(name, build, process=None, **options):
    """What the load generator found out about a subject; its options stand in its usage."""
    words = [f"{build}/bin/kaikla-load"]
    if name == "broker":
        options["broker"] = BROKER_PORT
    for option, value in options.items():
        words += [f"--{option}"] if value is True else [f"--{option}", str(value)]
    if process is None:
        with running(name, build, options.get("consumers", 1), "documents" in options) as started:
            return measure(name, build, started, **options)
    load = subprocess.run([*words, "--pid", str(process.pid)], capture_output=True, text=True,
                          check=False)
    if load.returncode != 0:
        sys.exit(f"{' '.join(words)}, on {LABELS[name]}: {load.stderr.strip()}")
    return json.loads(load.stdout or "{}")
