"""Options and fixtures of every test.

The programs come from KAIKLA_BIN (build/bin), KAIKLA_LAUNCHER stands before each start of the
service (valgrind ...), KAIKLA_SLOW multiplies every limit in time.
"""

import shlex
import signal
import subprocess
import sys
import zlib

import pytest

import peers

# Under nohup, or behind a shell's "&", the programs would inherit that signals are ignored.
for number, handler in [(signal.SIGHUP, signal.SIG_DFL), (signal.SIGINT, signal.default_int_handler)]:
    signal.signal(number, handler)


def namespace():
    """The command that gives a process a loopback to itself; nothing where that is refused."""
    loopback = ["sh", "-c", 'ip link set lo up; exec "$@"', "sh"]
    for command in (["unshare", "-n", *loopback], ["unshare", "-r", "-n", *loopback]):
        if subprocess.run([*command, "true"], capture_output=True, check=False).returncode == 0:
            return command
    return []


def pytest_addoption(parser):
    parser.addoption("--full", action="store_true", help="the long form: floods and a long run")


@pytest.hookimpl(tryfirst=True)
def pytest_cmdline_main(config):
    if config.option.numprocesses and not namespace():
        print("Network namespaces are refused: one worker.", file=sys.stderr)
        config.option.numprocesses = 1


@pytest.hookimpl(optionalhook=True)
def pytest_xdist_setupnodes(specs):
    # The ports are fixed, but a network namespace has its own: one for each worker.
    python = shlex.join([*namespace(), sys.executable])
    for worker in specs:
        worker.python = python


@pytest.hookimpl(optionalhook=True)
def pytest_xdist_make_scheduler(config, log):
    from xdist.scheduler import LoadScopeScheduling

    class OneAtATime(LoadScopeScheduling):
        """By default a worker takes many tests, among them several long ones."""

        def _split_scope(self, nodeid):
            return nodeid

    return OneAtATime(config, log)


def pytest_collection_modifyitems(config, items):
    # The longest tests come first, so that the others fill up the end.
    if getattr(config, "workerinput", {}).get("workercount", 1) > 1:
        items.sort(key=lambda item: (item.path.parent.name not in ("demo", "gateway"),
                                     zlib.crc32(item.nodeid.encode())))


def pytest_terminal_summary(terminalreporter):
    """The figures that tests recorded with record_property."""
    for report in terminalreporter.getreports("passed"):
        for name, value in report.user_properties:
            terminalreporter.write_line(f"{name:70} {value}")


@pytest.fixture
def full(request):
    """Whether the long form is wanted."""
    return request.config.getoption("--full")


@pytest.fixture
def device():
    with peers.Device() as played:
        yield played


@pytest.fixture
def service():
    with peers.Service() as running:
        yield running
