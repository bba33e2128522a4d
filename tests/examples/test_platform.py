"""The service on the platform of examples/platform, which has no services around it."""

import json
import os
import socket
import subprocess
import unittest

from running_service import RunningService


class Platform(unittest.TestCase):
    def test_bad_option_is_a_usage_error(self):
        program = os.environ["KAIKLA_PROGRAM"]
        ended = subprocess.run([program, "--bad-option"], capture_output=True, check=False)
        self.assertEqual(ended.returncode, 1)
        self.assertIn(b"-l <log_level>", ended.stderr)

    def test_tells_name_and_ports_of_the_host_and_stops(self):
        with RunningService() as service:
            consumer, address = service.consumer()
            self.assertEqual(
                service.request({"command_id": 1, "payload": {"address": address}})["result"], 0
            )
            # The ports are read at start; the consumer may come before or after.
            status = {}
            while "eths" not in status:
                message = json.loads(consumer.recv())
                self.assertEqual(message["command_name"], "status-all")
                status = message["payload"]
        self.assertEqual(status["device_id"], socket.gethostname())
        self.assertIn("lo", [port["name"] for port in status["eths"]])


if __name__ == "__main__":
    unittest.main()
