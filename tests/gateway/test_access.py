"""Who may connect from another host, and how often a wrong password may be tried."""

import base64
import signal
import socket
import ssl
import subprocess
import urllib.error
import urllib.request

import pytest

from gateway.portal import Gateway
from kaiklactl.played import PlayedService, reply
from peers import run, wait_until


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True, text=True).stdout


def certificate(folder, name):
    openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
            "-keyout", f"{folder}/key.pem", "-out", f"{folder}/cert.pem", "-days", "2", "-subj",
            f"/CN={name}", "-addext", f"subjectAltName=DNS:{name},IP:127.0.0.1")


def write_users(folder, **users):
    lines = [f"{name}:{openssl('passwd', '-6', word).strip()}\n" for name, word in users.items()]
    (folder / "users").write_text("".join(lines), encoding="ascii")


@pytest.fixture
def guarded(tmp_path):
    certificate(tmp_path, "one.example")
    write_users(tmp_path, anna="right: secret")
    with PlayedService(lambda command: reply(command, {"status": {"device_id": "dev"}})) as service:
        any_address = "[::]" if socket.has_dualstack_ipv6() else "0.0.0.0"
        options = ("--tls-cert", tmp_path / "cert.pem", "--tls-key", tmp_path / "key.pem",
                   "--users", tmp_path / "users", "--listen", f"{any_address}:8443", "--host", "one.example")
        with Gateway(*options, service=service.endpoint) as gateway:
            gateway.folder = tmp_path
            yield gateway


def get(gateway, user=None, host="127.0.0.1"):
    """The status and the fields of an answer over TLS, checked against the certificate."""
    trust = ssl.create_default_context(cafile=gateway.folder / "cert.pem")
    request = urllib.request.Request(f"https://127.0.0.1:8443/readyz", headers={"Host": host})
    if user:
        request.add_header("Authorization", "Basic " + base64.b64encode(user.encode()).decode())
    try:
        with urllib.request.urlopen(request, context=trust) as answer:
            return answer.status, answer.headers
    except urllib.error.HTTPError as error:
        return error.code, error.headers


def test_a_password_is_needed_from_outside(guarded):
    assert guarded.get("/readyz")[0] == 200, "loopback needs nothing"
    status, fields = get(guarded)
    assert status == 401 and fields["WWW-Authenticate"].startswith("Basic ")
    assert get(guarded, "anna:right: secret")[0] == 200
    assert get(guarded, "anna:right: secret", "one.example")[0] == 200
    assert get(guarded, "anna:right: secret", "other.example")[0] == 421
    for wrong in "anna:wrong", "anna:", "bert:right: secret", ":", "nocolon":
        wait_until(lambda: get(guarded, wrong)[0] == 401, "the delay to be over")
    status, fields = get(guarded, "anna:right: secret")
    assert status == 429 and int(fields["Retry-After"]) > 0, "even a right one has to wait"
    assert guarded.metrics()['kaikla_gateway_refusals_total{reason="password"}'] == 5
    wait_until(lambda: get(guarded, "anna:right: secret")[0] == 200, "the delay to be over")
    assert get(guarded, "anna:right: secret")[0] == 200, "forgiven"


def test_certificate_and_users_are_read_again(guarded):
    trust = ssl.create_default_context(cafile=guarded.folder / "cert.pem")
    trust.check_hostname = False
    stream = guarded.stream(port=8443, tls=trust, user="anna:right: secret")
    certificate(guarded.folder, "two.example")
    write_users(guarded.folder, bert="new")
    guarded.send_signal(signal.SIGHUP)
    guarded.wait_line("have been read again")
    assert get(guarded, "bert:new")[0] == 200
    assert stream.next("heartbeat"), "what stands, stands"
    for broken in "users", "cert.pem":
        (guarded.folder / broken).write_text("nothing\n", encoding="ascii")
        guarded.send_signal(signal.SIGHUP)
        guarded.wait_line("going on with the old", count=1 if broken == "users" else 2)
        write_users(guarded.folder, bert="new")
    assert guarded.get("/readyz")[0] == 200


@pytest.mark.parametrize("options, status, words", [
    ("--listen 0.0.0.0:8580", 2, "beyond loopback needs"),
    ("--listen 192.0.2.1:8580 --tls-cert c --tls-key k", 2, "go together"),
    ("--tls-cert c --tls-key k --users u", 2, "beyond loopback"),
    ("--listen localhost:8580", 2, "no ADDRESS:PORT"),
    # A file may come later: the unit tries again.
    ("--listen 0.0.0.0:8580 --tls-cert c --tls-key k --users /nowhere", 1, "/nowhere"),
    ("--consumer nonsense", 2, "is no address"),
    ("fleet", 2, "--mqtt is required"),
])
def test_a_start_that_fails_is_told(options, status, words):
    done = run("kaikla-gateway", *options.split())
    assert done.returncode == status and words in done.stderr + done.stdout
