"""What clients of the gateway see of the device."""

import datetime
import signal
import threading
import time

import pytest

from gateway.portal import Gateway, message, pusher
from kaiklactl.played import PlayedService, reply
from peers import PTP, SESSION, SYSTEM, TIMEOUT, Service, wait_until

LOCKED = {"clock_id": "02-00-00-ff-fe-10-00-01", "grandmaster_id": "gm-1", "locked": True,
          "offset_ns": -12, "mean_path_delay_ns": 2310,
          "profile": {"name": "SMPTE ST 2059-2", "domain": 127, "announce_interval": -2,
                      "sync_interval": -3, "delay_req_interval": -3},
          "ports": [{"portNumber": 1, "state": "SLAVE"}]}
SFP = {"present": True, "vendor": "ACME", "temperature_c": 38.1, "tx_power_dbm": -1.5}
LOST = {"severity": "major", "description": "no <b>RTP</b> packets", "type": 3}


def port(name, state, **more):
    return {"name": name, "state": state, "ip": "192.0.2.10", "speed_mbps": 25000, **more}


def session(number, *alarms, **more):
    return {"id": number, "nmos_id": f"n{number}", "device_id": "dev",
            "stream": [{"id": number, "alarms": list(alarms)}], **more}


@pytest.fixture
def gateway(device, service):
    device.send(PTP, 1000, LOCKED)
    device.send(SYSTEM, 1001, {"eths": [port("eth0", 1, sfp=SFP), port("eth1", 1)]})
    device.send(SESSION, 1003, session(2**64 - 1, LOST))
    wait_until(lambda: service.document().get("sessions"), "the session")
    with Gateway() as running:
        yield running


def test_the_state_appears_and_follows(device, gateway):
    status = gateway.status()
    assert status["device"] == {
        "id": "dev",
        "ptp": {"clock_id": LOCKED["clock_id"], "grandmaster_id": "gm-1", "locked": True,
                "offset_ns": -12, "mean_path_delay_ns": 2310, "since": None,
                "profile": {"name": "SMPTE ST 2059-2", "domain": 127,
                            "announce_interval_log2_s": -2, "sync_interval_log2_s": -3,
                            "delay_req_interval_log2_s": -3},
                "config": {"setting1": 0, "setting2": 0, "setting3": 0, "flag": False},
                "ports": [{"number": 1, "state": "SLAVE", "setting1": 0, "setting2": 0,
                           "setting3": 0}]},
        "ports": [
            {"name": "eth0", "mac": "", "up": True, "since": None, "ip": "192.0.2.10",
             "speed_mbps": 25000,
             "sfp": {"vendor": "ACME", "part_number": "", "serial": "", "temperature_c": 38.1,
                     "tx_power_dbm": -1.5, "rx_power_dbm": 0.0}},
            {"name": "eth1", "mac": "", "up": True, "since": None, "ip": "192.0.2.10",
             "speed_mbps": 25000, "sfp": None}],
        "sessions": [
            {"id": str(2**64 - 1), "nmos_id": f"n{2**64 - 1}", "alarms": [],
             "streams": [{"id": str(2**64 - 1), "alarms": [{**LOST, "since": None}]}]}],
    }
    (only,) = status["device"]["sessions"]
    assert status["monitors"] == {"overall": "unhealthy", "links": "all-up",
                                  "synchronization": "healthy", f"session/{2**64 - 1}": "unhealthy"}
    assert gateway.get(f"/api/v1/sessions/{2**64 - 1}")[2] == only
    assert gateway.get("/api/v1/sessions/7")[0] == 404

    stream = gateway.stream()
    first = stream.event()
    assert first["event"] == "snapshot" and first["data"]["device"] == status["device"]
    assert first["id"] == f"{status['epoch']}-{first['data']['seq']}"
    # What did not change is not sent: a status that is the same, and one that differs in a port.
    device.send(PTP, 1000, LOCKED)
    device.send(SYSTEM, 1001, {"eths": [port("eth1", 0)]})
    changes = stream.changes(2)
    device.send(SESSION, 1003, session(7))
    device.send(SESSION, 1003, session(7))
    device.send(SESSION, 1003, session(7, LOST))
    device.send(SESSION, 1001, {"id": 7})
    changes += stream.changes(3)
    assert [kind for kind, _ in changes] == [
        "port", "port-removed", "session", "session", "session-removed"]
    assert (changes[0][1]["port"]["up"], changes[1][1]["name"]) == (False, "eth0")
    assert changes[0][1]["port"]["since"] and changes[2][1]["session"]["streams"] == [
        {"id": "7", "alarms": []}]
    (alarm,) = changes[3][1]["session"]["streams"][0]["alarms"]
    assert alarm["description"] == LOST["description"] and alarm["since"] > first["data"]["time"]
    assert changes[4][1]["id"] == "7"
    assert gateway.status()["device"]["sessions"] == status["device"]["sessions"]


def test_monitors_worsen_at_once_and_recover_when_it_holds(device, gateway):
    stream = gateway.stream()
    stream.next("snapshot")

    def event_of(name):
        while (event := stream.next("monitor")["data"])["name"] != name:
            pass
        return event

    def shown(name):
        event = event_of(name)
        return event["status"], event["transitions"], event["message"]

    device.send(SESSION, 1001, {"id": 2**64 - 1})
    gone, better = stream.next("session-removed")["data"], event_of("overall")
    assert (better["status"], better["transitions"]) == ("healthy", 0)
    held = [datetime.datetime.fromisoformat(event["time"]) for event in (gone, better)]
    assert (held[1] - held[0]).total_seconds() > 2.9, "a bad session that goes counts for a while"

    device.send(PTP, 1000, {**LOCKED, "locked": False})
    start = time.monotonic()
    assert shown("synchronization") == ("unhealthy", 1, "PTP is not locked")
    assert time.monotonic() - start < 2.9
    start = time.monotonic()
    device.send(PTP, 1000, LOCKED)
    assert shown("synchronization") == ("healthy", 1, "PTP is locked")
    assert time.monotonic() - start > 2.9
    device.send(PTP, 1000, {**LOCKED, "grandmaster_id": "gm-2"})
    assert shown("synchronization") == (
        "partially-healthy", 2, "the grandmaster has just changed")
    device.send(SYSTEM, 1001, {"eths": [port("eth0", 0), port("eth1", 0)]})
    assert shown("links") == ("all-down", 1, "down: eth0, eth1")
    device.send(SESSION, 1003, session(1, {"severity": "minor", "description": "x"}))
    assert shown("session/1") == ("partially-healthy", 0, "stream 1: minor: x (0)")
    device.send(SESSION, 1003, session(1, {"severity": "purple", "description": "x"}))
    assert shown("session/1")[0] == "unhealthy"
    listed = {each["name"]: each for each in gateway.get("/api/v1/monitors")[2]["monitors"]}
    assert listed["links"]["message"] == "down: eth0, eth1" and listed["links"]["since"]


def test_history_has_a_row_a_second(device, gateway):
    for offset, locked in (5, True), (900, False), (7, True):
        device.send(PTP, 1000, {**LOCKED, "offset_ns": offset, "locked": locked})
    rows = lambda: gateway.get("/api/v1/ptp/history?seconds=60")[2]["rows"]
    wait_until(lambda: [row[1:] for row in rows()].count([7, 7, 7, True]) > 1, "two calm rows")
    times = [row[0] for row in rows()]
    assert times == sorted(set(times)) and abs(times[-1] - time.time()) < 3
    assert [row for row in rows() if row[2] == 900 and not row[4] and row[1] <= 7]
    for bad in "0", "3601", "-1", "1e3", "x":
        assert gateway.get(f"/api/v1/ptp/history?seconds={bad}")[0] == 400


def test_the_service_and_the_gateway_come_and_go(device):
    """Each of them killed and started again: one registration, and the state is right."""
    with Service() as service:
        device.send(SESSION, 1003, session(1))
        gateway = Gateway()
        gateway.kill()
        with Gateway(consumer=gateway.consumer) as gateway:
            assert service.consumers() == [gateway.consumer]
            stream = gateway.stream(since="00000000-3")
            assert stream.event()["event"] == "snapshot", "another run's number says nothing"
            device.send(SESSION, 1003, session(1, LOST))
            assert stream.next("session")
            service.kill()
            with Service() as second:
                start = time.monotonic()
                wait_until(lambda: second.consumers() == [gateway.consumer], "the registration")
                assert time.monotonic() - start < 8
                assert stream.next("session-removed")["data"]["id"] == "1"
                gateway.stop()
                assert second.consumers() == []


def test_the_source_is_held_up_lost_and_back():
    answers = {0: reply(0, {"status": {"device_id": "dev"}}), 1: reply(1), 2: reply(2),
               3: reply(3, {"remote": []})}
    held = []
    played = PlayedService(lambda command: None if held else answers[command])
    with Gateway(service=played.endpoint) as gateway:
        stream = gateway.stream()
        assert stream.next("snapshot")["data"]["source"]["state"] == "live"
        held.append(True)
        assert stream.next("source")["data"]["source"]["state"] == "held-up"
        status, _, problem = gateway.get("/readyz")
        assert (status, gateway.get("/healthz")[0]) == (503, 200) and "consumer" in problem["detail"]
        asked = len(played.requests)
        played.__exit__()
        assert stream.next("source")["data"]["source"]["state"] == "lost"
        assert gateway.metrics()["kaikla_up"] == 0
        assert len(played.requests) == asked, "a service that is held up is left alone"
        held.clear()
        with PlayedService(answers.get, endpoint=played.endpoint):
            source = stream.next("source")["data"]["source"]
            assert source["state"] == "live" and source["age_ms"] < 1000
            assert gateway.get("/readyz")[0] == 200


def test_what_comes_before_the_first_status():
    """Messages that a registration of a gateway that crashed has kept."""
    document = {"device_id": "dev", "sessions": [session(7, LOST)]}
    early = threading.Event()
    answers = lambda command: early.wait(TIMEOUT) and reply(command, {"status": document, "remote": []})
    with PlayedService(answers) as played, Gateway(service=played.endpoint, live=False) as gateway:
        stream = gateway.stream()
        sender = pusher(gateway.consumer)
        sender.send(message(1, session(7, LOST)))
        assert stream.next("session")["data"]["session"]["streams"][0]["alarms"] == [{**LOST, "since": None}]
        early.set()
        while stream.next("monitor")["data"]["name"] != "session/7":
            pass
        wait_until(lambda: gateway.status()["monitors"]["overall"] == "unhealthy", "its alarm to count")


def test_what_is_lost_before_it_is_read_is_told():
    """A flood over the inbox's bound, faster than any service could send."""
    document = {"device_id": "dev", "sessions": [session(n) for n in range(2000)]}
    answer = reply(0, {"status": document, "remote": []})
    with PlayedService(lambda command: answer) as played, Gateway(service=played.endpoint) as gateway:
        stream = gateway.stream()
        first = stream.next("snapshot")
        asked = played.requests.count(0)
        sender = pusher(gateway.consumer)
        document["sessions"] = [session(n, LOST) for n in range(2000)]
        text = message(0, document)
        gateway.send_signal(signal.SIGSTOP)
        for _ in range(60):
            sender.send(text)
        gateway.send_signal(signal.SIGCONT)
        resync = stream.next("resync")
        assert resync["data"]["reason"] == "overrun" and resync["data"]["dropped"] > 0
        assert stream.event()["event"] == "snapshot"
        assert gateway.metrics()["kaikla_gateway_inbox_dropped_messages_total"] > 0
        assert gateway.metrics()['kaikla_gateway_resyncs_total{reason="overrun"}'] >= 1
        again = gateway.stream(since=first["id"])
        assert again.event()["event"] == "snapshot", "what lies before the gap is not caught up"
        wait_until(lambda: played.requests.count(0) > asked, "the state to be read anew", 30)
