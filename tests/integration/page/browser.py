"""Chromium without a screen, driven through the HTTP interface of its driver (W3C WebDriver)."""

import json
import subprocess
import tempfile
import urllib.error
import urllib.request

import harness

CHROMIUM = [
    *("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync"),
    *("--disable-background-networking", "--disable-component-update", "--hide-scrollbars", "--mute-audio"),
    *("--autoplay-policy=no-user-gesture-required", "--lang=en-GB"),
]


class Browser:
    def __init__(self):
        self.profile = tempfile.TemporaryDirectory(prefix="sniffer-test-", ignore_cleanup_errors=True)
        port = harness.free_port()  # without IPv6 the driver does not report a port that it has chosen
        self.driver = subprocess.Popen(
            [*harness.die_with_us(), "chromedriver", f"--port={port}"], stdout=subprocess.PIPE, text=True
        )
        next(line for line in self.driver.stdout if "successfully on port" in line)
        self.url = f"http://127.0.0.1:{port}/session"
        arguments = [*CHROMIUM, f"--user-data-dir={self.profile.name}", "--window-size=1280,800"]
        options = {"goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "WARNING"}}
        session = self.call("POST", "", capabilities={"alwaysMatch": options})["sessionId"]
        self.url += "/" + session

    def call(self, method, path, **body):
        request = urllib.request.Request(self.url + path, json.dumps(body).encode() if body else None, method=method)
        try:
            with urllib.request.urlopen(request, timeout=harness.PATIENCE) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise AssertionError(json.load(error)["value"]["message"]) from None

    def open(self, address):
        self.call("POST", "/url", url=address)

    def script(self, text):
        return self.call("POST", "/execute/sync", script=text, args=[])

    def all(self, selector):
        """Returns the texts of the elements."""
        return self.script(f"return Array.from(document.querySelectorAll({selector!r}), e => e.innerText)")

    def click(self, selector):
        self.script(f"document.querySelector({selector!r}).click()")

    def keys(self, text):
        actions = [{"type": kind, "value": key} for key in text for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", actions=[{"type": "key", "id": "keyboard", "actions": actions}])

    def wait(self, expression):
        harness.wait_until(lambda: self.script("return " + expression), expression)

    def complaints(self):
        return self.call("POST", "/se/log", type="browser")

    def close(self):
        self.call("DELETE", "")
        self.driver.kill()
        self.driver.wait()
        self.driver.stdout.close()
        self.profile.cleanup()
