# SPDX-License-Identifier: Apache-2.0
"""Headless browsers without a package: Chromium through chromedriver (WebDriver is JSON over HTTP) and Firefox through Marionette, which takes
the same commands over a socket. $PARLEY_BROWSER says which, chromium (the default) or firefox."""

import base64
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.request
from pathlib import Path

SKIPPED = 77  # CTest's status for a test that could not run
IS_FIREFOX = os.environ.get("PARLEY_BROWSER") == "firefox"


def is_installed():
    return shutil.which("firefox-esr" if IS_FIREFOX else "chromedriver") is not None


def Browser(*arguments):
    return Firefox(*arguments) if IS_FIREFOX else Chromium(*arguments)


class Chromium:
    def __init__(self, shots=None, *more):
        self.shots = shots  # folder for screenshots
        self.profile = tempfile.TemporaryDirectory()
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        for line in self.driver.stdout:
            if "started successfully on port" in line:
                self.root = "http://127.0.0.1:" + line.split("port")[1].strip(" .\n")
                break
        arguments = ["--headless=new", "--disable-gpu", "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--autoplay-policy=no-user-gesture-required",
                     "--mute-audio", f"--user-data-dir={self.profile.name}", *more]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        options = {"args": arguments}
        capabilities = {"browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        self.session = "/session/" + self.send("POST", "/session", {"capabilities": {"alwaysMatch": capabilities}})["sessionId"]

    def send(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.root + path, data, {"Content-Type": "application/json"}, method=method)
        with urllib.request.urlopen(request, timeout=60) as reply:
            return json.load(reply)["value"]

    def go(self, url):
        self.send("POST", self.session + "/url", {"url": url})

    def run(self, script, *arguments):
        return self.send("POST", self.session + "/execute/sync", {"script": script, "args": list(arguments)})

    def run_async(self, script, *arguments):
        """The script calls its last argument with what it returns."""
        return self.send("POST", self.session + "/execute/async", {"script": script, "args": arguments})

    def act(self, kind, *actions):
        self.send("POST", self.session + "/actions", {"actions": [{"type": kind, "id": kind, "actions": actions}]})

    def key(self, key, held=""):
        down, up = ([{"type": type, "value": k} for k in (*held, key)] for type in ("keyDown", "keyUp"))
        self.act("key", *down, *reversed(up))

    def hold(self, key, work):
        """Does something while a key is held."""
        self.act("key", {"type": "keyDown", "value": key})
        try:
            work()
        finally:
            self.act("key", {"type": "keyUp", "value": key})

    def click(self, x, y):
        self.drag(x, y)

    def double_click(self, x, y):
        press = [{"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0}]
        self.act("pointer", {"type": "pointerMove", "x": int(x), "y": int(y)}, *press, *press)

    def window(self):
        return self.send("GET", self.session + "/window")

    def new_window(self):
        """Opens one and goes there; its name."""
        name = self.send("POST", self.session + "/window/new", {"type": "tab"})["handle"]
        self.switch(name)
        return name

    def switch(self, name):
        self.send("POST", self.session + "/window", {"handle": name})

    def close_window(self):
        self.send("DELETE", self.session + "/window")

    def drag(self, x, y, *to):
        moves = [{"type": "pointerMove", "x": int(to[0]), "y": int(to[1]), "duration": 100}] if to else []
        self.act("pointer", {"type": "pointerMove", "x": int(x), "y": int(y)}, {"type": "pointerDown", "button": 0}, *moves,
                 {"type": "pointerUp", "button": 0})

    def wheel(self, x, y, by):
        self.act("wheel", {"type": "scroll", "x": int(x), "y": int(y), "deltaX": 0, "deltaY": by})

    def resize(self, width, height):
        self.send("POST", self.session + "/window/rect", {"width": width, "height": height})

    def shot(self, name):
        if self.shots:
            self.shots.mkdir(parents=True, exist_ok=True)
            (self.shots / name).write_bytes(base64.b64decode(self.send("GET", self.session + "/screenshot")))

    def complaints(self):
        return [e["message"] for e in self.send("POST", self.session + "/se/log", {"type": "browser"}) if e["level"] == "SEVERE"]

    def close(self):
        self.send("DELETE", self.session)
        self.driver.terminate()
        self.driver.wait()
        self.driver.stdout.close()
        self.profile.cleanup()


class Firefox(Chromium):
    COMMANDS = {  # of Marionette, by WebDriver's methods and the ends of their paths
        ("POST", "/url"): "Navigate", ("POST", "/execute/sync"): "ExecuteScript", ("POST", "/execute/async"): "ExecuteAsyncScript",
        ("POST", "/actions"): "PerformActions", ("GET", "/window"): "GetWindowHandle", ("POST", "/window/new"): "NewWindow",
        ("POST", "/window"): "SwitchToWindow", ("DELETE", "/window"): "CloseWindow", ("POST", "/window/rect"): "SetWindowRect",
        ("GET", "/screenshot"): "TakeScreenshot", ("POST", "/element"): "FindElement", ("POST", "/value"): "ElementSendKeys"}
    SETTINGS = {"marionette.port": 0, "media.autoplay.default": 0, "media.volume_scale": "0", "browser.shell.checkDefaultBrowser": False,
                "datareporting.policy.dataSubmissionEnabled": False, "app.update.disabledForTesting": True, "browser.startup.page": 0,
                "network.captive-portal-service.enabled": False, "toolkit.telemetry.reportingpolicy.firstRun": False,
                "media.navigator.streams.fake": True, "media.navigator.permission.disabled": True}

    def __init__(self, shots=None, *_):
        self.shots = shots
        self.profile = tempfile.TemporaryDirectory()
        folder = Path(self.profile.name)
        (folder / "user.js").write_text("".join(f'user_pref("{name}", {json.dumps(value)});\n' for name, value in self.SETTINGS.items()))
        self.driver = subprocess.Popen(["firefox-esr", "--headless", "--marionette", "--no-remote", "--profile", folder],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env={**os.environ, "HOME": self.profile.name})
        port = folder / "MarionetteActivePort"
        end = time.time() + 60
        while not port.exists() or not port.read_text():
            if time.time() > end or self.driver.poll() is not None:
                raise RuntimeError("Firefox does not begin")
            time.sleep(0.05)
        self.socket = socket.create_connection(("127.0.0.1", int(port.read_text())))
        self.socket.settimeout(60)
        self.reply()  # a greeting
        self.number, self.session = 0, ""
        self.command("NewSession", {"capabilities": {"alwaysMatch": {"timeouts": {"script": 60000}}}})

    def reply(self):
        """A message is its length, a colon and JSON."""
        length = b""
        while not length.endswith(b":"):
            length += self.socket.recv(1)
        text, size = b"", int(length[:-1])
        while len(text) < size:
            text += self.socket.recv(size - len(text))
        return json.loads(text)

    def command(self, name, parameters):
        self.number += 1
        message = json.dumps([0, self.number, f"WebDriver:{name}", parameters]).encode()
        self.socket.sendall(b"%d:%s" % (len(message), message))
        _, _, error, value = self.reply()
        if error:
            raise RuntimeError(f"{name}: {error['message']}")
        return value["value"] if isinstance(value, dict) and "value" in value else value

    def send(self, method, path, body=None):
        element = re.fullmatch(r"/element/([^/]+)/value", path)
        return self.command(self.COMMANDS[method, "/value" if element else path], {**(body or {}), **({"id": element[1]} if element else {})})

    def complaints(self):
        return []  # which Marionette does not tell

    def close(self):
        self.socket.close()
        self.driver.terminate()
        self.driver.wait()
        self.profile.cleanup()
