"""The load generator must call a run void when a consumer did not get exactly what it should, and
must count and time correctly when it did. The subject, with its faults, is played here.
"""

import json
import os
import subprocess
import time
import unittest

import zmq

import protocol

LOAD = os.environ["KAIKLA_LOAD"]
PUBLISHERS = {"session-manager": "avmgr_session_status", "ptp-management": "zat_pmc_status_change"}
FAULTY_EVENT = 50


class Subject:
    """Does what the bare loop does; event FAULTY_EVENT goes through `fault` on its way to the
    second of two consumers. `fault(bodies)` gives what to send in place of that event's body and
    of the one after it."""

    def __init__(self, fault=None, delay_seconds=0.0):
        self.fault = fault
        self.delay_seconds = delay_seconds
        self.events = 0
        self.context = zmq.Context()
        self.subscriber = self.context.socket(zmq.SUB)
        for service, kind in PUBLISHERS.items():
            self.subscriber.connect(protocol.NOTIFICATION_ENDPOINTS[service])
            self.subscriber.subscribe(b"%d" % protocol.KINDS[service][kind])
        self.commands = self.context.socket(zmq.REP)
        self.commands.bind(protocol.COMMAND_ENDPOINT)
        self.consumers = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.context.destroy(linger=0)

    def serve(self, load):
        """Until the load generator has ended."""
        poller = zmq.Poller()
        poller.register(self.commands, zmq.POLLIN)
        poller.register(self.subscriber, zmq.POLLIN)
        held = []
        while load.poll() is None:
            ready = dict(poller.poll(10))
            if self.commands in ready:
                address = json.loads(self.commands.recv())["payload"]["address"]
                self.consumers.append(self.context.socket(zmq.PUSH))
                self.consumers[-1].connect(address)
                self.commands.send(b'{"result":0}')
            if self.subscriber in ready:
                payload = json.loads(self.subscriber.recv_multipart()[1])["payload"]
                body = json.dumps({"command_id": 1, "command_name": "status-session",
                                   "payload": payload}, separators=(",", ":"), sort_keys=True)
                self.publish(body.encode(), held)

    def publish(self, body, held):
        time.sleep(self.delay_seconds)
        for place, consumer in enumerate(self.consumers):
            bodies = [body]
            if place == 1 and self.fault and self.events in (FAULTY_EVENT, FAULTY_EVENT + 1):
                held.append(body)
                bodies = self.fault(held) if len(held) == 2 else []
            for each in bodies:
                consumer.send(each)
        self.events += 1


class LoadTest(unittest.TestCase):
    def run_load(self, subject, *options):
        command = [LOAD, "--consumers", "2", "--warm-up", "0", *options]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True) as load:
            subject.serve(load)
            output, errors = load.communicate()
            return load.returncode, output, errors

    def test_faults_make_the_run_void(self):
        faults = {
            "lost": lambda bodies: bodies[1:],
            "repeated": lambda bodies: [bodies[0], *bodies],
            "out of order": lambda bodies: bodies[::-1],
            "altered": lambda bodies: [bodies[0].replace(b"minor", b"Minor"), bodies[1]],
            "cut": lambda bodies: [bodies[0][:-1], bodies[1]],
        }
        for name, fault in faults.items():
            with self.subTest(name), Subject(fault) as subject:
                status, output, errors = self.run_load(subject, "--seconds", "0.3")
                self.assertEqual((status, output), (1, ""))
                self.assertRegex(errors, r"void: a consumer received something else in the place "
                                         rf"of event {FAULTY_EVENT}\b"
                                 if name != "repeated" else rf"place of event {FAULTY_EVENT + 1}\b")

    def test_counts_what_arrived(self):
        with Subject() as subject:
            status, output, errors = self.run_load(subject, "--seconds", "0.5")
        self.assertEqual(status, 0, errors)
        result = json.loads(output)
        counted = result["events_per_second"] * 0.5
        # What was still under way at the end is not counted, nor are the first eight sessions.
        self.assertGreater(counted, 0.75 * subject.events)
        self.assertLessEqual(counted, subject.events)
        self.assertAlmostEqual(result["deliveries_per_second"], 2 * result["events_per_second"],
                               delta=1)

    def test_times_the_way_through_the_subject(self):
        delay = 0.02
        with Subject(delay_seconds=delay) as subject:
            status, output, errors = self.run_load(subject, "--seconds", "0", "--latency", "0.5")
        self.assertEqual(status, 0, errors)
        result = json.loads(output)
        self.assertGreaterEqual(result["latency_p50_us"], delay * 1e6)
        self.assertLess(result["latency_p50_us"], 5 * delay * 1e6)
        self.assertGreaterEqual(result["latency_p99_us"], result["latency_p50_us"])

    def test_refuses_an_option_that_it_does_not_know(self):
        for words in (["--consumer-count", "3"], ["--consumers", "three"], ["--window", "0"]):
            with self.subTest(words=words):
                load = subprocess.run([LOAD, *words], capture_output=True, check=False)
                self.assertEqual(load.returncode, 2)


if __name__ == "__main__":
    unittest.main()
