# SPDX-License-Identifier: Apache-2.0
"""Headless Chromium driven through chromedriver: the WebDriver protocol is JSON over HTTP, so this needs no package."""

import base64
import json
import os
import subprocess
import tempfile
import urllib.request

SKIPPED = 77  # CTest's status for a test that could not run


class Browser:
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

    def run_async(self, script):
        """The script calls its last argument with what it returns."""
        return self.send("POST", self.session + "/execute/async", {"script": script, "args": []})

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
