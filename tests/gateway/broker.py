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

from peers import TIMEOUT, free_port, wait_until

MOSQUITTO = shutil.which("mosquitto", path="/usr/sbin:/usr/bin:/usr/local/sbin:/usr/local/bin")


class Broker:
    """mosquitto on loopback; `settings` are further lines of its configuration."""

    def __init__(self, settings=""):
        self.port = free_port()
        self.address = f"mqtt://127.0.0.1:{self.port}"
        self._settings = tempfile.NamedTemporaryFile("w", suffix=".conf")
        self._settings.write(f"listener {self.port} 127.0.0.1\nallow_anonymous true\n{settings}\n")
        self._settings.flush()
        self.start()

    def start(self):
        self._process = subprocess.Popen([MOSQUITTO, "-c", self._settings.name],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
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
        """A text as it is, anything else as JSON; QoS 0."""
        text = payload if isinstance(payload, str) else json.dumps(payload)
        name = topic.encode()
        self._send(0x30 | retain, len(name).to_bytes(2, "big") + name + text.encode())
