"""A consumer of examples/, which CONSUMER names, with the real service."""

import os
import signal
import subprocess
import unittest

from played_device import PlayedDevice
from running_service import RunningService, TIMEOUT_S

GET_SERVER_LIST = {"command_id": 3}


class Consumer(unittest.TestCase):
    def test_prints_a_line_a_message_and_removes_itself(self):
        command = os.environ["CONSUMER"].split()
        with RunningService() as service, PlayedDevice("d1") as device:
            with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as consumer:
                self.lines = consumer.stdout
                self.expect("device d1: PTP not locked, ports none, sessions none")
                self.assertEqual(len(service.request(GET_SERVER_LIST)["payload"]["remote"]), 1)

                device.notify("ptp-management", "zat_pmc_status_change", {"locked": True})
                self.expect("device d1: PTP locked, ports none, sessions none")
                device.notify(
                    "session-manager",
                    "avmgr_new_session",
                    {"id": 7, "audio": [{"id": 71}], "video": [{"id": 72}]},
                )
                self.expect("session 7: 2 streams, 0 alarms")
                device.notify(
                    "session-manager",
                    "avmgr_session_status",
                    {
                        "id": 7,
                        "device_id": "d1",
                        "alarms": [{"severity": "major", "description": "Path lost"}],
                        "stream": [{"id": 71, "alarms": [{"description": "Bühne"}]}],
                    },
                )
                self.expect("session 7: 1 streams, 2 alarms; major: Path lost; warning: Bühne")
                device.notify(
                    "system-manager",
                    "sysmgr_dynamic_information_update",
                    {"eths": [{"name": "eth0", "state": 1}, {"name": "eth1"}]},
                )
                self.expect("device d1: PTP locked, ports eth0 up, eth1 down, sessions 7")

                consumer.send_signal(signal.SIGINT)
                self.assertEqual(consumer.wait(TIMEOUT_S), 0)
                self.assertEqual(self.lines.read(), "")
            self.assertEqual(service.request(GET_SERVER_LIST)["payload"], {})

    def expect(self, line):
        self.assertEqual(self.lines.readline(), line + "\n")


if __name__ == "__main__":
    unittest.main()
