"""The page in a real browser."""

import json
import os
import pathlib

import pytest

from gateway.portal import Gateway, message, pusher
from kaiklactl.played import PlayedService, reply
from peers import ROOT, Process, Service, wait_until

webdriver = pytest.importorskip("selenium.webdriver")
pytestmark = pytest.mark.skipif(not pathlib.Path("/usr/bin/chromedriver").exists(),
                                reason="no chromium-driver")

EVIL = "<img src=x onerror=alert(1)><b>bold</b>"
PTP = {"clock_id": "02-00-00-ff-fe-10-00-01", "grandmaster_id": "gm", "locked": True,
       "offset_ns": -12, "profile": {"name": EVIL}, "ports": [{"portNumber": 1, "state": "SLAVE"}]}


def port(name, state):
    return {"name": name, "state": state, "ip": "192.0.2.10", "speed_mbps": 25000}


def session(number, *alarms):
    return {"id": number, "nmos_id": EVIL, "stream": [{"id": number * 10, "alarms": list(alarms)}]}


class Page:
    def __init__(self, gateway, width=1280, dark=False):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                         f"--window-size={width},900"):
            options.add_argument(argument)
        if dark:
            options.add_argument("--force-dark-mode")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
        self.driver = webdriver.Chrome(options=options, service=service)
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": width < 600})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})
        self.driver.get(f"http://127.0.0.1:{gateway.port}/")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def run(self, script):
        return self.driver.execute_script(script)

    def text(self, css):
        return self.run(f"return document.querySelector({json.dumps(css)}).innerText")

    def wait(self, css, text, seconds=20):
        wait_until(lambda: text in self.text(css), f"'{text}' in {css}", seconds)

    def connection(self, state, seconds=30):
        wait_until(lambda: self.run("return document.getElementById('connection').dataset.state")
                   == state, f"the connection to be {state}", seconds)

    def keys(self, *keys):
        webdriver.ActionChains(self.driver).send_keys(*keys).perform()

    def picture(self, name):
        folder = pathlib.Path(os.environ.get("KAIKLA_PICTURES", ROOT / "build/pictures"))
        folder.mkdir(parents=True, exist_ok=True)
        self.driver.save_screenshot(str(folder / f"{name}.png"))

    def requests(self):
        """The URLs that were asked for."""
        events = [json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events
                if event["method"] == "Network.requestWillBeSent"]


class Played(PlayedService):
    """A service with a document of its own, which may be held up."""

    def __init__(self, **options):
        self.sessions = {7: session(7), 8: session(8)}
        self.held, self.consumer, self._sender = False, None, None
        super().__init__(self._answer, **options)

    def _answer(self, command):
        status = {"device_id": "dev", "ptp": PTP, "eths": [port("eth0", 1), port(EVIL, 1)],
                  "sessions": list(self.sessions.values())}
        payload = {"status": status, "remote": [self.consumer]}
        return None if self.held else reply(command, payload)

    def tell(self, changed):
        self.sessions[changed["id"]] = changed
        self._sender = self._sender or pusher(self.consumer)
        self._sender.send(message(1, changed))


@pytest.fixture
def played():
    with Played() as service:
        yield service


@pytest.fixture
def gateway(played):
    with Gateway(service=played.endpoint) as running:
        played.consumer = running.consumer
        yield running


def test_the_page_shows_the_device_and_follows_it(played, gateway):
    with Page(gateway) as page:
        page.connection("live")
        page.wait("#overall", "● healthy")
        page.wait("#summary", "sessions 2 healthy")
        page.wait("#ports", "● up")
        page.wait("#ptp-words", "● locked since before ")
        page.wait("#chart-note", "locked throughout")
        assert page.run("return document.querySelectorAll('#chart canvas').length") > 0
        page.picture("healthy")

        alarm = {"severity": "major", "description": EVIL, "type": 3}
        played.tell(session(8, alarm))
        page.wait("#overall", "■ unhealthy")
        page.wait("#reason", "session/8: stream 80: major")
        first = page.text("#session-list li")
        assert first.startswith("■ 8") and "major" in first and EVIL in first and "since " in first
        page.wait("#event-list", f"alarm stream 80 major: {EVIL} (3)")
        colour = "return getComputedStyle(document.querySelector('.alarm .bad')).color"
        assert page.run(colour) == "rgb(179, 22, 29)"
        assert page.run("return document.querySelectorAll('main img, main b').length") == 0
        page.picture("alarm")

        # With the keyboard alone: stop the events, then search and filter.
        page.run("document.getElementById('event-stop').focus()")
        page.keys(webdriver.Keys.ENTER)
        assert page.run("return document.activeElement.getAttribute('aria-pressed')") == "true"
        played.tell(session(9))
        page.wait("#summary", "sessions 2 healthy, 1 not")
        assert "session 9" not in page.text("#event-list")
        page.keys(webdriver.Keys.ENTER, webdriver.Keys.TAB, "session 9")
        page.wait("#event-list", "session 9 new, 1 streams")
        assert page.run("return document.querySelectorAll('#event-list li').length") == 1
        page.run("document.getElementById('session-filter').focus()")
        page.keys("major")
        wait_until(lambda: page.run("return document.querySelectorAll('#session-list li').length")
                   == 1, "the filter")

        # A second tab shares the stream.
        page.driver.switch_to.new_window("tab")
        page.driver.get(f"http://127.0.0.1:{gateway.port}/")
        page.wait("#overall", "■ unhealthy")
        assert len(gateway.get("/api/v1/clients")[2]["clients"]) == 1

        assert [entry for entry in page.driver.get_log("browser") if entry["level"] == "SEVERE"] == []
        strangers = [url for url in page.requests() if not url.startswith(f"http://127.0.0.1:{gateway.port}/")]
        assert [url for url in strangers if url.startswith("http")] == []


def test_the_page_says_what_it_is_connected_to(played, gateway):
    with Page(gateway, dark=True) as page:
        page.connection("live")
        played.held = True
        page.connection("held-up")
        assert "source held up: the service waits for another consumer" in page.text("#connection")
        page.picture("held-up")
        played.__exit__()
        page.connection("lost")
        page.wait("#overall", "■ source lost")
        assert page.text("#reason") == "was healthy: everything is well"
        page.picture("lost")
        gateway.kill()
        page.connection("reconnecting")
        page.picture("reconnecting")
        with Gateway(service=played.endpoint, port=gateway.port, live=False):
            page.wait("#overall", "○ unknown")
            with Played(endpoint=played.endpoint):
                page.connection("live")
                page.wait("#overall", "● healthy")


def test_the_simulated_day_can_be_watched():
    with Service(), Process("kaikla-sim", "--loop", "--speed", "0.7"), Gateway() as gateway:
        with Page(gateway) as page:
            page.wait("#event-list", "alarm stream 22 major: no RTP packets received (3)", 60)
            page.wait("#event-list", "cleared stream 22", 60)
            page.wait("#ptp-words", "■ NOT LOCKED", 60)
            page.wait("#event-list", "port eth1 down", 60)
            page.wait("#ports", "■ DOWN")
            page.wait("#chart-note", "s not locked (shaded)", 60)
            page.picture("day")


@pytest.mark.parametrize("width, dark", [(360, False), (1280, True)])
def test_the_page_fits(gateway, width, dark):
    with Page(gateway, width, dark) as page:
        page.wait("#overall", "● healthy")
        assert page.run("return document.documentElement.scrollWidth") <= width
        ground = page.run("return getComputedStyle(document.body).backgroundColor")
        assert ground == ("rgb(18, 23, 29)" if dark else "rgb(244, 245, 247)")
        page.picture(f"{width}-{'dark' if dark else 'light'}")


def test_the_page_is_small(gateway):
    _, fields, page = gateway.get("/", {"Accept-Encoding": "gzip"})
    assert fields["Content-Encoding"] == "gzip"
    plain = gateway.get("/")[2].decode()
    size = len(page)
    wanted, seen = [path for path in plain.split('"') if path.startswith("/assets/")], set()
    while wanted:
        path = wanted.pop()
        if path in seen:
            continue
        seen.add(path)
        _, fields, asset = gateway.get(path, {"Accept-Encoding": "gzip"})
        assert "immutable" in fields["Cache-Control"]
        size += len(asset)
        if path.endswith(".js"):
            text = gateway.get(path)[2].decode()
            wanted += [part for part in text.split("'") if part.startswith("/assets/")]
    assert len(seen) == 15 and size < 96 * 1024
