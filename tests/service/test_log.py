"""The log: what reaches standard error and the file, and no fault of either costs a message."""

import json
import os
import pathlib
import shutil
import stat
import subprocess
import threading

import pytest

from peers import SESSION, Service, wait_until

KIB, MIB = 1 << 10, 1 << 20
LOST = "its lines are lost until it can be written again"
BACK = "can be written again"
PRIVATE_MOUNTS = ["unshare", "--map-root-user", "--mount"]


class Chatter:
    """A consumer, and messages to it that each make two lines in the log."""

    def __init__(self, device, service):
        self.device, self.service = device, service
        self.consumer = service.consumer()
        self.sent = 0

    def log_at_least(self, size):
        """Every message has to arrive meanwhile, whatever becomes of the log."""
        for _ in range(0, size, 2 * KIB):
            text = f"{self.sent} " + "." * 2 * KIB
            self.device.send(SESSION, 1003, {"id": 1, "device_id": "dev", "nmos_id": text})
            assert json.loads(self.consumer.receive_text())["payload"]["nmos_id"] == text
            self.sent += 1


def test_the_file_gets_the_same_lines(device, tmp_path):
    file = tmp_path / "log"
    expected = ""
    for _ in range(2):
        with Service("-L", file) as service:
            Chatter(device, service).log_at_least(16 * KIB)
            service.stop()
            expected += service.log_text()
        assert file.read_text(encoding="utf-8") == expected
    assert "session 1 - NMOS" in expected
    with Service("-L", "/nowhere/x.log") as service:
        assert service.log()[0] == (
            "ERR log file /nowhere/x.log cannot be opened: No such file or directory; "
            "going on without it"
        )


def full_at_first(tmp_path):
    """A file system of 64 KiB that only the service sees, of which 40 are taken."""
    mount = f'mount -t tmpfs -o size=64k tmpfs {tmp_path} && head -c 40960 /dev/zero >{tmp_path}/x'
    return [*PRIVATE_MOUNTS, "sh", "-c", mount + ' && exec "$0" "$@"']


@pytest.mark.parametrize("fault", ["full disk", "directory gone"])
def test_a_file_that_cannot_be_written_is_told_once(device, tmp_path, fault):
    directory = tmp_path / "logs"
    directory.mkdir()
    if fault == "full disk" and subprocess.run([*PRIVATE_MOUNTS, "true"]).returncode != 0:
        pytest.skip("private mounts are refused")
    file = directory / "log"
    launcher = full_at_first(directory) if fault == "full disk" else []
    with Service("-L", file, launcher=launcher) as service:
        chatter = Chatter(device, service)
        chatter.log_at_least(128 * KIB)
        if fault == "directory gone":
            shutil.rmtree(directory)
            chatter.log_at_least(5 * MIB)
        service.wait_line(LOST)
        assert len(service.lines_with(LOST)) == len(service.lines_with(BACK)) == 1
        if fault == "directory gone":
            directory.mkdir()
        else:
            os.unlink(f"/proc/{service.pid}/root{directory}/x")
        chatter.log_at_least(8 * KIB)
        service.wait_line(BACK, 2)
        seen = pathlib.Path(f"/proc/{service.pid}/root{file}")
        wait_until(lambda: f" {chatter.sent - 1} ." in seen.read_text("utf-8"), "the last line")


def test_a_fifo_is_written_while_it_is_read_and_costs_no_message_when_its_reader_goes(
    device, tmp_path
):
    fifo = tmp_path / "fifo"
    os.mkfifo(fifo)
    with Service("-L", fifo) as service:
        assert "cannot be opened: No such device or address" in service.log_text()
    # A reader that sees no end before there is a writer.
    both_ends = os.open(fifo, os.O_RDWR)
    with subprocess.Popen(["cat", fifo], stdout=subprocess.PIPE) as reader:
        with Service("-L", fifo) as service:
            os.close(both_ends)
            chatter = Chatter(device, service)
            read = []
            threading.Thread(target=lambda: read.extend(reader.stdout), daemon=True).start()
            chatter.log_at_least(256 * KIB)
            wait_until(
                lambda: b"".join(read).decode().count("\n") == service.log_text().count("\n"),
                "the lines on the other side",
            )
            reader.kill()
            chatter.log_at_least(64 * KIB)
            assert service.stop() == 0
    assert stat.S_ISFIFO(os.stat(fifo).st_mode)


def test_a_device_is_never_renamed(device, tmp_path):
    null = tmp_path / "null"
    try:
        # One of the test's own, like the null device.
        os.mknod(null, 0o600 | stat.S_IFCHR, os.makedev(1, 3))
        null.write_bytes(b"x")
    except OSError:
        pytest.skip("no device can be made here")
    link = tmp_path / "link"
    link.symlink_to(null)
    with Service("-L", link) as service:
        Chatter(device, service).log_at_least(5 * MIB)
    assert sorted(os.listdir(tmp_path)) == ["link", "null"]
    assert stat.S_ISCHR(os.stat(null).st_mode)


def test_standard_error_may_be_closed_or_its_reader_gone(device, tmp_path):
    commands = ['exec "$0" "$@" 2> >(true)', 'exec "$0" "$@" 2>&-']
    # valgrind does not start without standard error.
    for command in commands[: 1 if os.environ.get("KAIKLA_LAUNCHER") else 2]:
        file = tmp_path / command[-3:]
        with Service("-L", file, launcher=["bash", "-c", command]) as service:
            Chatter(device, service).log_at_least(128 * KIB)
            # No file and no socket gets the number of a closed one.
            assert os.readlink(f"/proc/{service.pid}/fd/2") == "/dev/null" or "&-" not in command
            assert service.stop() == 0
        assert file.read_text(encoding="utf-8").endswith("Destroying 1 active connections\n")
