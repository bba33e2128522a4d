"""The platform services around kaikla, played by a test."""

import json
import threading

import zmq

import protocol

TIMEOUT_MS = 10_000


class PlayedDevice:
    """Binds the services' endpoints and remembers every message that crosses them: `notifications`
    as (service, message), `nmos_requests` and `nmos_replies`."""

    def __init__(self, device_id):
        self.notifications = []
        self.nmos_requests = []
        self.nmos_replies = []
        self._device_id = device_id
        self._context = zmq.Context()
        self._sockets = {}
        self._subscribed = set()
        for service, endpoint in protocol.NOTIFICATION_ENDPOINTS.items():
            socket = self._context.socket(zmq.XPUB)
            socket.rcvtimeo = TIMEOUT_MS
            socket.bind(endpoint)
            self._sockets[service] = socket
        self._node = self._context.socket(zmq.REP)
        self._node.bind(protocol.NMOS_ENDPOINT)
        self._answering = threading.Thread(target=self._answer_nmos_requests)
        self._answering.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        # Ends the wait of the answering thread, which closes its own socket.
        for socket in self._sockets.values():
            socket.close(linger=0)
        self._context.term()
        self._answering.join()

    def notify(self, service, name, payload):
        """Sends one notification, once kaikla has subscribed to its kind."""
        kind = protocol.KINDS[service][name]
        while (service, kind) not in self._subscribed:
            change = self._sockets[service].recv()
            self._subscribed.add((service, int(change[1:])))
        message = {"command_id": kind, "command_name": name, "payload": payload}
        self.notifications.append((service, message))
        self._sockets[service].send_multipart([b"%d" % kind, json.dumps(message).encode()])

    def _answer_nmos_requests(self):
        try:
            while True:
                request = json.loads(self._node.recv())
                reply = {
                    "command_id": request["command_id"],
                    "command_name": request["command_name"],
                    "result": 0,
                    "payload": {"device": {"id": self._device_id, "label": "played by a test"}},
                }
                self._node.send_string(json.dumps(reply))
                self.nmos_requests.append(request)
                self.nmos_replies.append(reply)
        except zmq.ContextTerminated:
            self._node.close(linger=0)
