#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The JavaScript package as strangers meet it: npm_test.py PARLEY AUDIO

Packs build/npm (bindings/wasm/build) and installs it into empty projects: Node, the small command, a plain page, Vite and webpack, the last two
from npm's registry. Everywhere the RTTM must be that of the tool. Pages run in headless Chromium."""

import functools
import http.server
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "test/browser"))
from browser import SKIPPED, Browser  # noqa: E402

PARLEY, AUDIO = (Path(p).resolve() for p in sys.argv[1:3])
PAGE = '<!DOCTYPE html><title>waiting</title><script type="module" src="{}"></script>'
# Pages have no decoder of the browser's, Node has no ffmpeg: what is read is read by the package.
MAIN = """import { Parley } from "%s";
delete globalThis.OfflineAudioContext;
try {
  const blob = await (await fetch("./recording.wav")).blob();
  const parley = await Parley.load();
  const shares = [];
  const result = await parley.diarize(blob, { name: "recording.wav", onProgress: (share) => shares.push(share) });
  globalThis.told = await result.text("rttm");
  globalThis.moved = new Set(shares).size > 2;
  const stop = new AbortController();
  const cancelled = parley.diarize(blob, { signal: stop.signal }).catch((error) => error.name);
  stop.abort();
  globalThis.cancelled = await cancelled;
} catch (error) {
  globalThis.told = String(error.stack || error);
}
"""


def run(*command, **more):
    ran = subprocess.run([str(c) for c in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **more)
    if ran.returncode != 0:
        raise AssertionError(f"{command}: {ran.stdout[-1000:]} {ran.stderr[-1000:]}")
    return ran.stdout


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *arguments):
        pass


class Npm(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = Path(cls.folder.name)
        packed = run("npm", "pack", "--silent", "--pack-destination", cls.root, ROOT / "build/npm").strip().splitlines()[-1]
        cls.package = cls.root / packed
        shutil.copy(AUDIO, cls.root / "recording.wav")
        cls.expected = run(PARLEY, "-q", "-f", "rttm", "recording.wav", cwd=cls.root)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def project(self, name, *packages):
        folder = self.root / name
        folder.mkdir()
        (folder / "package.json").write_text(json.dumps({"name": name, "private": True, "type": "module"}))
        run("npm", "install", "--silent", "--no-audit", "--no-fund", self.package, *packages, cwd=folder)
        shutil.copy(AUDIO, folder / "recording.wav")
        return folder

    def page(self, folder):
        """The page of a folder by a plain server."""
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=str(folder)))
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            self.look_at(f"http://127.0.0.1:{server.server_port}/")
        finally:
            server.shutdown()
            server.server_close()

    def look_at(self, url):
        """What a page tells in a browser."""
        browser = Browser()
        try:
            browser.go(url)
            end = time.time() + 60
            while not (told := browser.run("return globalThis.cancelled ?? globalThis.told?.startsWith('Error')")):
                self.assertLess(time.time(), end, f"{told}: {browser.run('return globalThis.told')} {browser.complaints()}")
                time.sleep(0.1)
            self.assertEqual(browser.run("return globalThis.told"), self.expected)
            self.assertTrue(browser.run("return globalThis.moved"), "progress")
            self.assertEqual(browser.run("return globalThis.cancelled"), "AbortError")
        finally:
            browser.close()

    def test_node(self):
        folder = self.project("node")
        (folder / "main.js").write_text("""import { Parley } from "parley";
const parley = await Parley.load();
const result = await parley.diarize("recording.wav");
process.stdout.write(await result.text("rttm"));
const refusals = ["missing.wav", "main.js"].map((path) => parley.diarize(path).catch((error) => error.message));
console.error((await Promise.all(refusals)).join("\\n"));
const kept = await parley.diarize("recording.wav", { keepEmbeddings: true });
const two = await kept.again({ numSpeakers: 2 });
const later = await parley.readEmbeddings(await kept.writeEmbeddings(), { name: "recording.wav", numSpeakers: 2 });
const asked = await parley.diarize("recording.wav", { numSpeakers: 2 });
console.error(two.speakers.length, await two.text("rttm") === await asked.text("rttm"), await later.text("rttm") === await asked.text("rttm"));
let voices = await kept.remember("Ann", 1);
const first = kept.segments[0];
voices = await kept.remember("Bob", 0, voices, first);
console.error(JSON.parse(voices).people.map(({ name, samples }) => `${name} ${samples[0].seconds.toFixed(1)}`).join(),
  (first.end - first.start).toFixed(1));
const known = await parley.diarize("recording.wav", { voices });
console.error(known.speakers.map(({ name }) => name).join());
const recognizer = `process.stdout.write(JSON.stringify({ words: [{ word: process.argv[1].slice(-9), start: 1, end: 2 }] }))`;
const spoken = await parley.transcribe("recording.wav", [process.execPath, "-e", recognizer, "{audio}"], { names: ["Ann"] });
const read = await parley.read(await spoken.text("json"));
console.error([spoken, read].map(({ words: [w] }) => `${w.start} ${w.text} ${w.speaker}`).join(), new TextDecoder().decode(await read.transcript("stm")).trim());
console.error((await Promise.all([parley.transcribe("recording.wav", ["nowhere"]), parley.read("x"), kept.transcript()]
  .map((call) => call.catch((error) => error.message)))).join("; "));
parley.close();
""")
        ran = subprocess.run([shutil.which("node"), "main.js"], cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                             check=True, env={**os.environ, "PATH": "/nonexistent"})
        self.assertEqual(ran.stdout, self.expected)
        missing, unread, again, remembered, known, spoken, refused = ran.stderr.strip().splitlines()
        self.assertEqual(again, "2 true true")
        self.assertRegex(remembered, r"^Ann [0-9.]+,Bob ([0-9.]+) \1$")
        self.assertTrue(known.startswith("Bob,Ann,"), known)
        self.assertEqual(spoken, "1 rding.wav Ann,1 rding.wav Ann recording 1 Ann 1.000 2.000 rding.wav")
        self.assertRegex(refused, "^nowhere is not installed; result: holds no segments.*; the result has no words$")
        self.assertEqual(missing, "missing.wav: there is no such file")
        self.assertTrue(unread.startswith("main.js: ") and "ffmpeg" in unread, unread)
        self.assertEqual(run("npx", "parley", "-f", "rttm", "recording.wav", cwd=folder), self.expected)
        self.assertTrue(all((folder / "node_modules/parley" / name).exists() for name in ("LICENSE", "NOTICES", "README.md")))

    def test_plain_page(self):
        folder = self.project("plain")
        (folder / "index.html").write_text(PAGE.format("main.js"))
        (folder / "main.js").write_text(MAIN % "./node_modules/parley/parley.js")
        self.page(folder)

    def test_vite(self):
        folder = self.project("vite", "vite")
        (folder / "index.html").write_text(PAGE.format("/main.js"))
        (folder / "main.js").write_text(MAIN % "parley")
        run("npx", "vite", "build", cwd=folder)
        shutil.copy(AUDIO, folder / "dist/recording.wav")
        self.page(folder / "dist")
        port = free_port()
        server = subprocess.Popen(["node_modules/.bin/vite", "--port", str(port), "--strictPort"], cwd=folder, stdout=subprocess.PIPE, text=True)
        try:
            for line in server.stdout:
                if "Local:" in line:
                    break
            self.look_at(f"http://localhost:{port}/")
        finally:
            server.terminate()
            server.communicate()

    def test_webpack(self):
        folder = self.project("webpack", "webpack", "webpack-cli")
        (folder / "main.js").write_text(MAIN % "parley")
        run("npx", "webpack", "--mode", "production", "--entry", "./main.js", cwd=folder)
        (folder / "dist/index.html").write_text(PAGE.format("main.js"))
        shutil.copy(AUDIO, folder / "dist/recording.wav")
        self.page(folder / "dist")


if __name__ == "__main__":
    if not shutil.which("chromedriver") or not (ROOT / "build/npm/package.json").exists():
        print("chromedriver is not installed, or bindings/wasm/build was not run")
        sys.exit(SKIPPED)
    os.environ.pop("NODE_PATH", None)
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
