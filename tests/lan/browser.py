"""A headless Chromium, driven with the WebDriver protocol in a namespace that has no network."""

import base64
import contextlib
import http.client
import json

# Driven by a pipe: for a socket it would look up "localhost", which a bare system has no file for.
CHROMIUM = ["--headless", "--remote-debugging-pipe", "--no-sandbox", "--disable-gpu",
            "--disable-quic", "--no-first-run", "--disable-background-networking",
            "--disable-component-update", "--disable-sync"]


class Browser:
    """Use with `with`."""

    def __init__(self, network, width=1280, height=1000, phone=False):
        self._host = network.namespace()
        driver = self._host.start("chromedriver", "--port=9515")
        driver.wait_for("started successfully", 30)
        arguments = [*CHROMIUM, f"--window-size={width},{height}",
                     f"--user-data-dir={network.folder}/chromium"]
        options = {"args": arguments}
        if phone:
            options["mobileEmulation"] = {
                "deviceMetrics": {"width": width, "height": height, "pixelRatio": 2}}
        self._session = "/session/" + self._ask("POST", "/session", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": options,
            "goog:loggingPrefs": {"browser": "ALL"}}}})["sessionId"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(OSError):
            self._ask("DELETE", self._session)

    def _ask(self, method, path, body=None):
        with self._host.entered():
            connection = http.client.HTTPConnection("127.0.0.1", 9515, timeout=60)
            connection.connect()
        connection.request(method, path, None if body is None else json.dumps(body),
                           {"Content-Type": "application/json"})
        answer = json.loads(connection.getresponse().read())["value"]
        connection.close()
        assert not (isinstance(answer, dict) and "error" in answer), answer
        return answer

    def open(self, path):
        self._ask("POST", self._session + "/url", {"url": f"file://{path}"})

    def run(self, script, *arguments):
        """What a function body returns in the page."""
        return self._ask("POST", self._session + "/execute/sync",
                         {"script": script, "args": list(arguments)})

    def console(self):
        """What the browser says of the page, such as an error in its script or a refused one."""
        entries = self._ask("POST", self._session + "/se/log", {"type": "browser"})
        return [entry["message"] for entry in entries if "chrome://" not in entry["message"]]

    def screenshot(self, path):
        path.write_bytes(base64.b64decode(self._ask("GET", self._session + "/screenshot")))
