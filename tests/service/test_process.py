"""The process: command line, exit status, signals, limits."""

import json
import random
import signal
import time

import pytest

from peers import BIN, INSTRUMENTED, SESSION, Client, Consumer, Service, free_port, run

KAIKLA = str(BIN / "kaikla")
USAGE = f"""{KAIKLA}
    [-L <log_filename>] [-l <log_level 0..7>] [-s]

  -L <log_filename>        : file to log debug output to
  -l <log_level>           : 2=ERR 3=WRN 4=NTF 5=INF, 6=DBG 7=VERBOSE
"""


# What is written: errors, warnings, information, debug lines. The storm tells of the wordiest.
LEVELS = {"": "EWI", "positional": "EWI", "-l 2": "E", "-l 12x": "EW", "-l 6 -l 3": "EW",
          "-l -1": "EWID", "-l 8": "", "-l abc": ""}  # fmt: skip


def test_anything_but_the_two_options_gives_the_usage_and_status_1(tmp_path):
    file = tmp_path / "log"
    for options, complaint in {
        "-s": "",
        f"-l 5 -L {file} -d": "",
        "-x": f"{KAIKLA}: invalid option -- 'x'\n",
        "-l": f"{KAIKLA}: option requires an argument -- 'l'\n",
        # Each of its letters is looked at as an option.
        "--help": f"{KAIKLA}: invalid option -- '-'\n",
    }.items():
        ended = run("kaikla", *options.split())
        assert (ended.returncode, ended.stdout, ended.stderr) == (1, "", complaint + USAGE)
    assert not file.exists()


@pytest.mark.parametrize("options", LEVELS)
def test_the_low_three_bits_of_the_level_decide_what_is_written(options):
    with Service(*(options.split() or ["--"])) as service:
        service.request(4)
        service.stop()
        assert {line[0] for line in service.log()} - {"V"} == set(LEVELS[options])


def test_the_start_the_stop_and_a_second_instance():
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        with Service("--") as service:
            assert service.stop(number) == 0
            assert service.log() == [
                "INF WebNotifierServer - waiting for commands! poll size 5",
                "WRN WebNotifierServer:: Main loop interrupted.",
                "INF Destroying 0 active connections",
            ]
    with Service() as first, Service("-l", "7", wait=False) as second:
        second.expected_status = 221
        started = time.monotonic()
        assert second.wait() == 221
        assert time.monotonic() - started < 1 or INSTRUMENTED
        assert second.log() == [
            "ERR WebnotifierHandler: Error binding on socket tcp://*:5580. "
            "Error [98]::Address already in use",
            "ERR CHK(int WebNotifierServer::init())::# Error Code -35",
            "ERR CHK(int main(int, char**))::# Error Code -35",
            "INF Destroying 0 active connections",
        ]
        assert first.request(3)["result"] == 0


def test_a_hang_up_is_ignored_when_the_starter_wants_that_and_blocked_signals_are_heard():
    def block():
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])

    launcher = ["sh", "-c", 'trap "" HUP; exec "$0" "$@"']
    with Service(launcher=launcher, preexec_fn=block) as service:
        service.send_signal(signal.SIGHUP)
        service.request(3)
        service.request(3)


def test_a_storm_of_signals_changes_nothing(device, full):
    with Service("-l", "7") as service:
        consumer = service.consumer()
        # A stopped process is interrupted in whatever it waits for when it goes on.
        for count in range(3000 if full else 300):
            service.send_signal(signal.SIGSTOP)
            service.client.send(b'{"command_id":%d}' % (count % 4))
            device.send(SESSION, 1003, {"id": 1, "device_id": "dev", "nmos_id": str(count)})
            time.sleep(0.002)
            service.send_signal(signal.SIGCONT)
            assert b'"command_id":%d' % (count % 4) in service.client.receive()
            assert consumer.receive()["payload"]["nmos_id"] == str(count)
        assert service.lines_with("event received: 2 events")
        started = time.monotonic()
        while service.process.poll() is None:
            for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGPIPE):
                service.send_signal(number)
            time.sleep(0.002)
        assert time.monotonic() - started < 1.2 or INSTRUMENTED


def test_what_is_carried_out_before_a_stop_has_its_reply_in_order(full):
    # Replies that are short, as they have to fit into what the connection holds.
    commands = [2, 3] * 1000
    for count in range(40 if full else 8):
        with Service() as service:
            for command in commands:
                service.client.send(b'{"command_id":%d}' % command)
            replies = [service.client.receive()]
            time.sleep(count * 0.001)
            service.stop()
            # The one of its own start is among the lines.
            while len(replies) < len(service.lines_with("carried out")) - 1:
                replies.append(service.client.receive())
            answered = [json.loads(reply)["command_id"] for reply in replies]
            assert answered == commands[: len(replies)]
            assert not service.client.socket.poll(100)


def just_ready(device, service):
    pass


def flood(device, service):
    for _ in range(random.randrange(200)):
        device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})


def asking_the_node(device, service):
    device.node.answer(None)
    device.send(SESSION, 1003, {"id": 1})
    time.sleep(random.random() / 30)


def consumer_reading(device, service):
    service.consumer()
    flood(device, service)


def queue_full(device, service):
    service.add(f"tcp://127.0.0.1:{free_port()}")
    for _ in range(1500):
        device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})


MOMENTS = [just_ready, flood, asking_the_node, consumer_reading, queue_full]


@pytest.mark.parametrize("moment", MOMENTS)
def test_a_stop_at_any_moment_ends_in_time_with_status_0(device, moment, full, record_property):
    longest, times = 0.0, 100 if full else 4
    for _ in range(times):
        with Service("-l", "2", wait=False) as service:
            device.wait_subscribed()
            moment(device, service)
            started = time.monotonic()
            assert service.stop() == 0
            longest = max(longest, time.monotonic() - started)
        device.wait_subscribed(False)
    # A second, and what a busy machine adds.
    assert longest < 1.5 or INSTRUMENTED
    record_property(f"stop, {moment.__name__}: longest of {times}", f"{longest * 1000:.0f} ms")


def test_one_consumer_too_many_is_refused_and_everything_else_goes_on(device):
    # The service asks for as many descriptors as it may have.
    launcher = [] if INSTRUMENTED else ["prlimit", "--nofile=64:"]
    with Service(launcher=launcher) as service:
        consumer = service.consumer()
        results = [service.add(f"tcp://127.0.0.1:{20_000 + number}") for number in range(1030)]
        # What the library gives, but for the service's own.
        assert results == [0] * (1023 - 6) + [-33] * (len(results) - 1023 + 6)
        # The node is still asked after it was away: a fresh attempt needs no other socket.
        device.node.close()
        device.send(SESSION, 1003, {"id": 1})
        service.wait_line("session 1 - NMOS")
        assert service.document()["device_id"] == ""
        device.node.answer("again")
        device.node.open()
        service.learn_device_id(consumer.address)
        assert consumer.receive()["payload"]["device_id"] == "again"


@pytest.mark.skipif(INSTRUMENTED, reason="the sanitizers need descriptors")
def test_the_limit_of_descriptors_is_survived(device, record_property):
    with Service(launcher=["prlimit", "--nofile=64"]) as service:
        # Each takes one descriptor when it is registered and one when it is connected to.
        consumers = [service.consumer()]
        while service.add((another := Consumer()).address) == 0:
            consumers.append(another)
        assert 20 < len(consumers) < 60
        record_property("64 descriptors", f"{len(consumers)} consumers accepted")
        device.send(SESSION, 1003, {"id": 1, "device_id": "dev"})
        while consumers[0].receive()["command_id"] != 1:
            pass
        newcomer = Client()
        for consumer in consumers[1:10]:
            assert service.remove(consumer.address) == 0
        assert newcomer.request(3)["result"] == 0
        service.consumer()
