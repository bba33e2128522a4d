"""A real MQTT broker, and a client of it that publishes.

    with Broker() as broker:
        broker.publish("kaikla/v1/a/state", "online")           # retained
        Process("kaikla-gateway", "fleet", "--mqtt", broker.address)
"""

import json
import shutil
import socket
import subprocess
import tempfile
import threading

from gateway.portal import message, pusher
from kaiklactl.played import PlayedService, reply
from peers import TIMEOUT, free_port, wait_until

BRANCH = "kaikla/v1/dev/"
MOSQUITTO = shutil.which("mosquitto", path="/usr/sbin:/usr/bin:/usr/local/sbin:/usr/local/bin")


class Broker:
    """mosquitto on loopback; `settings` are further lines of its configuration."""

    def __init__(self, settings=""):
        self.port = free_port()
        self.address = f"mqtt://127.0.0.1:{self.port}"
        self._settings = tempfile.NamedTemporaryFile("w", suffix=".conf")
        self._settings.write(f"user root\nlistener {self.port} 127.0.0.1\n"
                             f"allow_anonymous true\n{settings}\n")
        self._settings.flush()
        self.start()

    def start(self):
        self._process = subprocess.Popen([MOSQUITTO, "-c", self._settings.name],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.send_signal = self._process.send_signal
        wait_until(self._connect, "the broker")

    def stop(self):
        """Ends it; what was retained is lost."""
        self._client.close()
        self._process.kill()
        self._process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def _connect(self):
        try:
            self._client = socket.create_connection(("127.0.0.1", self.port), timeout=3 * TIMEOUT)
        except ConnectionRefusedError:
            return False
        # MQTT 3.1.1, clean session, no keep-alive, no client id.
        self._send(0x10, b"\0\4MQTT\4\2\0\0\0\0")
        return self._client.recv(4) == b"\x20\2\0\0"

    def _send(self, kind, body):
        length, size = len(body), b""
        while length >= 128:
            length, size = length >> 7, size + bytes([length & 127 | 128])
        self._client.sendall(bytes([kind]) + size + bytes([length]) + body)

    def publish(self, topic, payload, retain=True):
        """A text as it is, anything else as JSON; returns when the broker has it."""
        text = payload if isinstance(payload, str) else json.dumps(payload)
        name = topic.encode()
        self._send(0x32 | retain, len(name).to_bytes(2, "big") + name + b"\0\1" + text.encode())
        assert self._client.recv(4) == b"\x40\2\0\1"


class Watcher:
    """says: the retained payload of each topic; heard: each message as (topic, payload)."""

    def __init__(self, port, *options):
        self.says, self.heard = {}, []
        self._process = subprocess.Popen(
            ["mosquitto_sub", "-p", str(port), "-t", "kaikla/v1/#", "-F", r"%t\t%p", *options],
            stdout=subprocess.PIPE, text=True)
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self._process.stdout:
            topic, _, payload = line.rstrip("\n").partition("\t")
            if payload and not topic.endswith("/event/alarm"):
                self.says[topic] = payload
            else:
                self.says.pop(topic, None)
            self.heard.append((topic, payload))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()

    def wait_state(self, state, branch=BRANCH):
        wait_until(lambda: self.says.get(branch + "state") == state, f"{branch} {state}", 60)

    def document(self, topic):
        """A document of the device, None when there is none."""
        text = self.says.get(BRANCH + topic)
        return text and json.loads(text)


class PlayedDevice(PlayedService):
    """A played service whose `status` can be changed and sent."""

    def __init__(self):
        self.status = {"device_id": "dev", "eths": [], "sessions": []}
        self._senders = {}
        super().__init__(lambda command: reply(command, {"status": self.status,
                                                         "remote": list(self._senders)}))

    def send(self, gateway):
        """The whole status."""
        self._send(gateway, 0, self.status)

    def send_session(self, gateway, number, *alarms):
        session = {"id": number, "nmos_id": f"n{number}", "device_id": "dev",
                   "stream": [{"id": 70, "alarms": list(alarms)}]}
        others = [each for each in self.status["sessions"] if each["id"] != number]
        self.status["sessions"] = [*others, session]
        self._send(gateway, 1, session)

    def _send(self, gateway, kind, payload):
        if gateway.consumer not in self._senders:
            self._senders[gateway.consumer] = pusher(gateway.consumer)
        self._senders[gateway.consumer].send(message(kind, payload))
