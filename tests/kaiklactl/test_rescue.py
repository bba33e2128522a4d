"""What an operator does when nothing comes, or nothing answers: the doctor, and drain."""

import signal

import pytest
import zmq

from kaiklactl.played import Watch, ctl
from peers import NODE_ENDPOINT, PTP, Process, bind, free_port, wait_until


def test_the_doctor_finds_what_is_wrong(device, service):
    consumer = service.consumer()
    status, output, _ = ctl(f"doctor {consumer.address}")
    for line in ("ok    service     answers at tcp://127.0.0.1:5580 after ",
                 f"ok    registered  {consumer.address} is registered.\n",
                 f"ok    reachable   a consumer listens at {consumer.address}",
                 "ok    device id   dev.\n", "ok    messages    one came just now"):
        assert status == 0 and line in output
    assert consumer.receive_text(0.2) is None, "the consumer itself is left in peace"
    gone, wrong = (f"tcp://127.0.0.1:{free_port()}" for _ in range(2))
    with bind(zmq.REP, wrong):
        for address, line in {
            gone: f"FAIL  reachable   nobody accepts connections at {gone}",
            wrong: f"FAIL  reachable   something listens at {wrong}",
            "nonsense": 'FAIL  reachable   "nonsense" is no address',
        }.items():
            status, output, _ = ctl(f"doctor --timeout 1 {address}")
            assert status == 1 and line in output
            assert f"FAIL  registered  {address} is not registered" in output
    service.add(gone)
    status, output, _ = ctl("doctor")
    assert status == 1 and "ok    registered  2 consumers.\n" in output
    assert "ok    reachable   " in output and f'"kaiklactl drain {gone}"' in output


def test_the_doctor_names_a_missing_device_id(device, service):
    device.node.close()
    status, output, _ = ctl("doctor")
    assert status == 1 and "FAIL  device id   unknown" in output and NODE_ENDPOINT in output
    assert "FAIL  messages    none came" in output and "note  registered  no consumer" in output
    device.node.answer(None)
    device.node.open()
    with Process("kaiklactl", "doctor") as doctor:
        device.node.wait_requests(1)
        doctor.expected_status = -signal.SIGINT  # by the signal: a script ends with it
        doctor.stop(signal.SIGINT)
    assert service.consumers() == []


@pytest.mark.parametrize("way_out", ["drain", "watch"])
def test_a_killed_watch_blocks_the_service_and_is_drained(device, service, way_out):
    address = "tcp://127.0.0.1:5591"
    with Watch() as killed:
        killed.wait_registered()
        killed.kill()
    for number in range(1500):
        device.send(PTP, 1000, {"offset_ns": number})
    service.wait_line(f"the queue to {address} is full")
    assert "FAIL  service     no answer" in ctl("doctor --timeout 0.3")[1]
    if way_out == "drain":
        assert ctl(f"drain {address}")[1].startswith(f"{address} is not registered any more; 1")
    else:
        with Watch() as second:
            second.wait_registered()
            second.wait_line(f"{address} was registered already; 1")
    assert service.consumers() == []
    wait_until(lambda: service.document()["ptp"]["offset_ns"] == 1499, "the last status")


def test_drain_takes_no_port_away_and_says_what_was_not_there(device, service):
    consumer = service.consumer()
    assert "another program" in ctl(f"drain {consumer.address}")[2]
    assert service.consumers() == [consumer.address]
    absent = "tcp://localhost:7003"
    assert ctl(f"drain {absent}")[1] == f"{absent} was not registered; 0 messages thrown away.\n"
