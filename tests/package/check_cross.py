"""The packages for other architectures: their programs, under emulation, do what this machine's do.

KAIKLA_ROOTS names the Debian systems, RELEASE-ARCH, in which they were built; dist/ has them.
"""

import json
import os
import pathlib
import random
import shlex
import subprocess
import sys

import pytest

import oracle
import peers

EMULATORS = {"arm64": "qemu-aarch64-static", "armhf": "qemu-arm-static"}
DEMO = peers.ROOT / "tools/demo/demo"


@pytest.fixture(scope="module", params=os.environ.get("KAIKLA_ROOTS", "").split())
def emulated(request, tmp_path_factory):
    """A directory with the package's programs, each to be called by its name."""
    root = pathlib.Path(request.param).resolve()
    arch = root.name.rpartition("-")[2]
    place = tmp_path_factory.mktemp(arch)
    packages = list(peers.ROOT.glob(f"dist/kaikla*_{arch}.deb"))
    assert len(packages) == 2
    for package in packages:
        subprocess.run(["dpkg-deb", "-x", package, place], check=True)
    (place / "bin").mkdir()
    for program in place.glob("usr/*bin/*"):
        command = shlex.join(map(str, [root / "usr/bin" / EMULATORS[arch], "-L", root, program]))
        caller = place / "bin" / program.name
        caller.write_text(f'#!/bin/sh\nexec {command} "$@"\n', encoding="ascii")
        caller.chmod(0o755)
    return place / "bin"


def played(programs, monkeypatch):
    """What a consumer got, and what the log held, over 500 notifications up to a stop."""
    monkeypatch.setattr(peers, "BIN", programs)
    monkeypatch.setattr(peers, "_PORTS", iter(range(20_000, 20_100)))
    events = oracle.notifications(random.Random(1))
    with peers.Device() as device, peers.Service() as service:
        consumer = service.consumer(greeting=False)
        for _ in range(500):
            # One at a time, so that the services' notifications keep their order.
            device.send(*next(events))
            service.document()
        texts = consumer.drain(quiet=1)
        assert service.stop() == 0
        return texts, oracle.relevant(service.log())


def test_messages_log_and_stop_are_the_same_to_the_byte(emulated, monkeypatch):
    here, there = played(peers.BIN, monkeypatch), played(emulated, monkeypatch)
    assert len(here[0]) > 200
    assert there[0] == here[0]
    assert there[1] == here[1]


def test_a_day_is_played(emulated):
    day = subprocess.run([DEMO, emulated], capture_output=True, text=True, timeout=300)
    assert day.returncode == 0, day.stderr
    document = json.loads(day.stdout[day.stdout.index("\n{") :])
    assert document["ptp"]["locked"] and document["sessions"] and document["eths"]


@pytest.mark.timeout(600)
def test_the_gateway_passes_its_tests(emulated):
    """Numbers of 64 bits, times and events in its JSON."""
    tests = peers.ROOT / "tests/gateway/test_state.py"
    command = [sys.executable, "-m", "pytest", "-q", "-n", "0", tests]
    done = subprocess.run(command, env={**os.environ, "KAIKLA_BIN": str(emulated)},
                          capture_output=True, text=True, timeout=590)
    assert done.returncode == 0, done.stdout


def test_a_year_fits(emulated, tmp_path):
    """Times of a scenario are milliseconds of up to a year, more than 32 bits hold."""
    (tmp_path / "year.jsonl").write_text(
        '{"at_ms": 31536000000, "service": "ptp", "kind": 1000, "payload": {"locked": true}}\n'
    )
    options = ["--scenario", tmp_path / "year.jsonl", "--speed", "1e11", "--exit-at-end"]
    subprocess.run([emulated / "kaikla-sim", *options], check=True, timeout=60)
