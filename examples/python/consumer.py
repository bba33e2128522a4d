#!/usr/bin/env python3
"""Prints one line for each message of kaikla until Ctrl-C or SIGTERM.

    consumer.py [ADDRESS [SERVICE]]

ADDRESS is where the service reaches this consumer, such as tcp://192.0.2.10:7000, an address of
this machine; by default a free port of the loopback interface. SERVICE is the service's command
interface, tcp://127.0.0.1:5580 by default. Needs pyzmq (Debian's python3-zmq).
"""

import json
import signal
import sys

import zmq

ADD_CONSUMER, REMOVE_CONSUMER = 1, 2
TIMEOUT_MS = 5000
QUIET_MS = 200


def command(context, service, command_id, address):
    with context.socket(zmq.REQ) as client:
        client.linger = 0
        client.rcvtimeo = TIMEOUT_MS
        client.connect(service)
        client.send_json({"command_id": command_id, "payload": {"address": address}})
        try:
            reply = client.recv_json()
        except zmq.Again:
            sys.exit(f"{service} does not answer")
    if reply["result"] < 0:
        sys.exit(f"refused: {reply['error']}")


def session_line(session):
    streams = session.get("stream", [])
    alarms = session.get("alarms", []) + [a for s in streams for a in s.get("alarms", [])]
    line = f"session {session['id']}: {len(streams)} streams, {len(alarms)} alarms"
    return "; ".join([line] + [f"{alarm['severity']}: {alarm['description']}" for alarm in alarms])


def device_line(status):
    ports = [f"{e['name']} {'up' if e['state'] else 'down'}" for e in status.get("eths", [])]
    ptp = "locked" if status["ptp"]["locked"] else "not locked"
    sessions = [str(session["id"]) for session in status.get("sessions", [])]
    return (
        f"device {status['device_id']}: PTP {ptp}, ports {', '.join(ports) or 'none'}, "
        f"sessions {', '.join(sessions) or 'none'}"
    )


def show(message):
    kind, payload = message["command_name"], message["payload"]
    if kind == "status-all":
        print(device_line(payload), flush=True)
    elif kind == "status-session":
        print(session_line(payload), flush=True)


def main(address="tcp://127.0.0.1:*", service="tcp://127.0.0.1:5580"):
    # A service manager ends its programs with SIGTERM.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    context = zmq.Context()
    messages = context.socket(zmq.PULL)
    # First bind, then register: the service connects to this address at once.
    messages.bind(address)
    address = messages.last_endpoint.decode().rstrip("\0")
    try:
        command(context, service, ADD_CONSUMER, address)
        while True:
            show(messages.recv_json())
    except KeyboardInterrupt:
        # A second one would leave the consumer registered.
        for number in signal.SIGINT, signal.SIGTERM:
            signal.signal(number, signal.SIG_IGN)
        command(context, service, REMOVE_CONSUMER, address)
        # What is left on its way would stay with the service for the next one at this address.
        while messages.poll(QUIET_MS):
            show(messages.recv_json())


if __name__ == "__main__":
    main(*sys.argv[1:])
