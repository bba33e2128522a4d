"""What is measured: processes that the load generator finds listening, each started afresh."""

import os
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import time

PROTOCOL_HEADER = os.path.join(os.path.dirname(__file__), "../platform/PlatformProtocol.hpp")
BROKER_PORT = 18830
PATIENCE_SECONDS = 10


def raise_descriptor_limit():
    """500 consumers are more descriptors than shells allow; children inherit this."""
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def endpoint_ports(constant=r"\w+"):
    """The ports of the service and its peers; `constant` names a single endpoint."""
    with open(PROTOCOL_HEADER, encoding="utf-8") as file:
        ports = re.findall(rf'\b{constant} = "tcp://[^"]*:(\d+)"', file.read())
    return sorted({int(port) for port in ports})


def prepare(build):
    """Ends the program when something is missing or in the way."""
    if not os.path.exists(os.path.join(build, "bin", "kaikla-load")):
        sys.exit(f"{sys.argv[0]}: {build} holds no measuring programs; build them first")
    raise_descriptor_limit()
    for port in endpoint_ports():
        if accepts(port):
            sys.exit(f"{sys.argv[0]}: somebody listens on port {port} already")


def accepts(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=PATIENCE_SECONDS).close()
        return True
    except ConnectionRefusedError:
        return False


class Subject:
    """A process under measurement, from start to stop.

    `name` is what tables and files call it, `load_options` what the load generator must know.
    Where the log goes says little about a long document: `documents` is whether it is measured.
    """

    name = ""
    label = ""
    load_options = []
    documents = True

    def __init__(self, build, scratch):
        self.programs = os.path.join(build, "bin")
        self.scratch = scratch
        self.processes = []

    def available(self):
        return True

    def start(self, consumers, documents):
        raise NotImplementedError

    def spawn(self, *words, **streams):
        streams.setdefault("stderr", subprocess.DEVNULL)
        process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   **streams)
        self.processes.append(process)
        return process

    @property
    def pid(self):
        return self.processes[0].pid

    def stop(self):
        # Nothing is owed to anybody any more, so there is no point in waiting for an orderly end.
        for process in self.processes:
            process.send_signal(signal.SIGKILL)
        for process in self.processes:
            process.wait()
        self.processes = []


class BareLoop(Subject):
    name = "bare"
    label = "bare loop"

    def start(self, consumers, documents):
        self.spawn(os.path.join(self.programs, "kaikla-bare-loop"), str(consumers),
                   *(["--document"] if documents else []))


class Service(Subject):
    """The service; each kind of it differs in where its log goes and how much that is."""

    def program(self):
        return os.path.join(self.programs, "kaikla")


class ServiceAtLevel4(Service):
    name = "level-4"
    label = "kaikla, level 4"

    def start(self, consumers, documents):
        self.spawn(self.program(), "-l", "4")


class ServiceIntoFile(Service):
    name = "file"
    label = "kaikla, default level into a file"
    documents = False

    def start(self, consumers, documents):
        self.spawn(self.program(), "-L", os.path.join(self.scratch, "kaikla.log"))


class ServiceIntoPipe(Service):
    name = "pipe"
    label = "kaikla, default level into a pipe"
    documents = False

    def start(self, consumers, documents):
        service = self.spawn(self.program(), stderr=subprocess.PIPE)
        reader = subprocess.Popen(["cat"], stdin=service.stderr, stdout=subprocess.DEVNULL)
        self.processes.append(reader)
        service.stderr.close()


class Broker(Subject):
    name = "broker"
    label = "mosquitto (MQTT, QoS 0)"
    load_options = ["--broker", str(BROKER_PORT)]
    # As it comes, but for what lets it answer without waiting for acknowledgements.
    settings = (f"listener {BROKER_PORT} 127.0.0.1\nallow_anonymous true\nlog_type error\n"
                "set_tcp_nodelay true\n")

    def program(self):
        return shutil.which("mosquitto", path=os.environ["PATH"] + ":/usr/sbin")

    def available(self):
        return self.program() is not None

    def start(self, consumers, documents):
        path = os.path.join(self.scratch, "mosquitto.conf")
        with open(path, "w", encoding="ascii") as file:
            file.write(self.settings)
        self.spawn(self.program(), "-c", path)
        end = time.monotonic() + PATIENCE_SECONDS
        while not accepts(BROKER_PORT):
            if time.monotonic() > end:
                raise RuntimeError("mosquitto does not listen")
            time.sleep(0.005)


ALL = [BareLoop, ServiceAtLevel4, ServiceIntoFile, ServiceIntoPipe, Broker]
