#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The page of build/web in a real browser: web_test.py WEB-FOLDER PARLEY AUDIO [FOLDER for screenshots]

AUDIO is a WAV file at 16 kHz, so that the browser's decoder gives the samples that the tool reads."""

import functools
import http.server
import json
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

from browser import IS_FIREFOX, SKIPPED, Browser, is_installed

WEB, PARLEY, AUDIO = sys.argv[1:4]
SHOTS = Path(sys.argv[4]) if len(sys.argv) > 4 else None


class Handler(http.server.SimpleHTTPRequestHandler):
    requests = []

    def log_message(self, *arguments):
        self.requests.append(self.path)


class Web(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Handler, directory=WEB))
        threading.Thread(target=cls.server.serve_forever, daemon=True).start()
        cls.expected = json.loads(subprocess.run([PARLEY, "--format", "json", AUDIO], check=True, stdout=subprocess.PIPE).stdout)
        cls.browser = Browser(SHOTS, "--use-fake-device-for-media-stream", "--use-fake-ui-for-media-stream",
                              f"--use-file-for-fake-audio-capture={Path(AUDIO).resolve()}")
        cls.browser.resize(1100, 1000)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.server.shutdown()
        cls.server.server_close()

    def setUp(self):
        self.browser.go(f"http://127.0.0.1:{self.server.server_port}/")

    def wait(self, script, seconds=90):
        end = time.time() + seconds
        while not self.browser.run(script):
            self.assertLess(time.time(), end, script + ": " + self.browser.run("return document.getElementById('status').textContent"))
            time.sleep(0.05)

    def text(self, format):
        """What the engine in the page writes of the result that it shows."""
        return self.browser.run_async(f"parleyRecording().result.text('{format}').then(arguments[0])")

    def choose(self, *paths):
        found = self.browser.send("POST", self.browser.session + "/element", {"using": "css selector", "value": "#file"})
        element = next(iter(found.values()))
        self.browser.send("POST", f"{self.browser.session}/element/{element}/value", {"text": "\n".join(str(Path(p).resolve()) for p in paths)})

    def test_a_file_gives_what_the_tool_gives(self):
        # How long the page's own thread was held up, and the progress shown.
        self.browser.run("""window.gaps = [0]; window.shares = []; let last = performance.now();
            setInterval(() => { gaps.push(performance.now() - last); last = performance.now();
                                const p = document.getElementById('progress'); if (!p.hidden) shares.push(p.value); }, 10);""")
        self.choose(AUDIO)
        self.wait("return globalThis.parleyShown !== undefined")
        data = json.loads(self.text("json"))
        self.assertEqual(data["segments"], self.expected["segments"])
        self.assertEqual([s["name"] for s in data["speakers"]], [s["name"] for s in self.expected["speakers"]])
        self.assertEqual(self.browser.run("return parleyShown.result.segments"), self.expected["segments"])
        shares = self.browser.run("return shares")
        self.assertGreater(len(set(shares)), 2, "progress moves")
        self.assertEqual(shares, sorted(shares))
        print("status:", self.browser.run("return document.getElementById('status').textContent"))
        self.assertEqual(self.browser.complaints(), [])
        self.browser.shot("web.png")

        # In every format the bytes of the tool, but for the path of the file, which a page never learns.
        known = [name for name in self.browser.run("return parleyRecording().engine.formats.map((format) => format.name)") if name != "html"]
        self.assertGreater(len(known), 10)
        for name in known:
            tool = subprocess.run([str(Path(PARLEY).resolve()), "-f", name, Path(AUDIO).name], check=True, stdout=subprocess.PIPE,
                                  cwd=Path(AUDIO).parent).stdout.decode()
            of_the_place = re.compile(r'DATE="[^"]*"|MEDIA_URL="[^"]*"|MIME_TYPE="[^"]*"')  # a page knows no folders
            self.assertEqual(of_the_place.sub("", self.text(name)), of_the_place.sub("", tool), name)

        # The player follows the file that was chosen.
        self.browser.run("document.querySelectorAll('.row')[2].click()")
        self.wait("return document.getElementById('audio').currentTime >= %f" % data["segments"][2]["start"])
        self.browser.run("document.getElementById('audio').pause()")

        # Only the page's own parts were asked for, and nothing was sent.
        self.assertTrue(all(Path(WEB, path.split("?")[0].strip("/") or "index.html").exists() or path == "/favicon.ico"
                            for path in Handler.requests), Handler.requests)

    @unittest.skipIf(IS_FIREFOX, "which pretends to hear a tone, not a recording")
    def test_the_microphone_shows_lanes_while_people_speak(self):
        self.browser.run("document.getElementById('listen').click()")
        self.wait("return document.querySelectorAll('.label').length > 0")
        self.wait("return document.querySelector('.slider')?.ariaValueNow > 12")
        self.assertIn("speaker", self.browser.run("return document.getElementById('status').textContent"))
        self.assertGreater(self.browser.run("return document.getElementById('level').value"), 0)
        self.browser.shot("microphone.png")
        self.browser.run("document.getElementById('listen').click()")
        self.wait("return globalThis.parleyShown !== undefined")
        data = json.loads(self.text("json"))
        self.assertGreater(data["duration"], 12)
        self.assertGreaterEqual(len(data["speakers"]), 1)
        self.wait("return document.getElementById('audio').readyState >= 1")
        self.assertAlmostEqual(self.browser.run("return document.getElementById('audio').duration"), data["duration"], delta=0.1)
        # What was recorded gets, as a whole, the same result.
        again = self.browser.run_async("""const done = arguments[0];
            (async () => {
                const { Parley } = await import('./parley.js');
                const bytes = await parleyRecording().sound.arrayBuffer();
                const parley = await Parley.load();
                const result = await parley.diarize(new Int16Array(bytes, 44), { sampleRate: new DataView(bytes).getUint32(24, true) });
                const found = result.segments.map(({ start, end, speaker }) => [start, end, result.speakers[speaker - 1].name]);
                parley.close();
                return found;
            })().then(done, (error) => done(String(error)));""")
        self.assertEqual(again, [[s["start"], s["end"], s["speaker"]] for s in data["segments"]])
        self.assertEqual(self.browser.complaints(), [])

    def test_a_voice_that_was_named_is_known_next_time(self):
        self.choose(AUDIO)
        self.wait("return globalThis.parleyShown !== undefined")
        self.browser.run("parleyShown.result.rename('speaker 2', 'Ann')")
        self.browser.run("document.querySelector('#people button').click()")
        self.wait("return document.getElementById('known').textContent === 'This browser knows Ann.'")
        self.browser.go(f"http://127.0.0.1:{self.server.server_port}/")
        self.choose(AUDIO)
        self.wait("return globalThis.parleyShown !== undefined")
        expected = [s["speaker"].replace("speaker 2", "Ann") for s in self.expected["segments"]]
        self.assertEqual([s["speaker"] for s in json.loads(self.text("json"))["segments"]], expected)
        kept = self.browser.run("return localStorage.getItem('parley-voices')")
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:  # the tool knows the file, too
            file.write(kept)
            file.flush()
            tool = subprocess.run([PARLEY, "-f", "json", "--voices", file.name, AUDIO], check=True, stdout=subprocess.PIPE).stdout
        self.assertEqual([s["speaker"] for s in json.loads(tool)["segments"]], expected)
        self.browser.run("document.getElementById('forget-voices').click()")
        self.assertIsNone(self.browser.run("return localStorage.getItem('parley-voices')"))
        self.assertEqual(self.browser.complaints(), [])

    def test_another_number_and_an_earlier_result(self):
        run = self.browser.run
        with tempfile.TemporaryDirectory() as folder:
            earlier = Path(folder, "earlier.rttm")
            earlier.write_text("SPEAKER x 1 1 5 <NA> <NA> Eve <NA> <NA>\n")
            self.choose(earlier)  # in any order
            self.wait("return document.getElementById('status').textContent.includes('now the recording')")
            self.choose(AUDIO)
            self.wait("return globalThis.parleyShown?.result.segments.length === 1")
            self.assertEqual(run("return parleyShown.result.segments"), [{"start": 1, "end": 6, "speaker": "Eve"}])
            run("parleyShown.result.undo()")
        run("parleyShown.result.rename('speaker 1', 'Ann')")
        run("parleyShown.result.assign(4, 'Dan')")
        pinned = run("return parleyShown.result.segments[4]")
        run("document.getElementById('number').value = 2; document.getElementById('find-again').click()")
        self.wait("return document.getElementById('status').textContent === '2 speakers.'")
        asked = json.loads(subprocess.run([PARLEY, "-n", "2", "--format", "json", AUDIO], check=True, stdout=subprocess.PIPE).stdout)
        self.assertEqual([s["start"] for s in run("return parleyShown.result.data.segments")], [s["start"] for s in asked["segments"]])
        self.assertIn("Ann", run("return parleyShown.result.names"))
        middle = (pinned["start"] + pinned["end"]) / 2
        self.assertEqual(run(f"return parleyShown.result.segments[parleyShown.result.at({middle})[0]].speaker"), "Dan")
        self.assertEqual(self.browser.complaints(), [])

    def test_recordings_queue_up_and_their_results_stay(self):
        run = self.browser.run
        states = "return [...document.querySelectorAll('#queue li')].map((li) => [li.firstChild.textContent, li.children[1].textContent])"
        with tempfile.TemporaryDirectory() as folder:
            for name in ("a.wav", "b.wav", "c.wav"):
                shutil.copy(AUDIO, Path(folder, name))
            Path(folder, "no.wav").write_text("nothing")
            self.choose(*(Path(folder, name) for name in ("a.wav", "no.wav", "b.wav", "c.wav")))
            self.wait("return globalThis.parleyShown !== undefined")
            run("parleyShown.result.rename('speaker 1', 'Ann')")
            self.wait("return document.querySelectorAll('#queue li')[2].children[1].textContent === ''")
            run("document.getElementById('cancel').click()")  # ends c alone
            self.wait("return document.querySelectorAll('#queue li')[3].children[1].textContent === 'cancelled'")
            found = run(states)
            self.assertEqual([name for name, _ in found], ["a.wav", "no.wav", "b.wav", "c.wav"])
            self.assertEqual([bool(state) for _, state in found], [False, True, False, True])
            self.assertEqual(run("return parleyShown.result.data.recording"), "a")
            run("document.querySelectorAll('#queue li button')[4].click()")
            self.wait("return parleyShown?.result.data.recording === 'b'")
            self.assertEqual(run("return parleyShown.result.segments"), self.expected["segments"])
            run("document.querySelectorAll('#queue li button')[0].click()")  # back, with what was corrected
            self.wait("return parleyShown?.result.data.recording === 'a'")
            self.assertIn("Ann", run("return parleyShown.result.names"))
            run("document.getElementById('number').value = 2; document.getElementById('find-again').click()")
            self.wait("return document.getElementById('status').textContent === '2 speakers.'")
            run("document.querySelector('[aria-label=\"Remove a.wav\"]').click()")
            self.assertEqual(run("return [globalThis.parleyShown === undefined, document.querySelectorAll('#queue li').length]"), [True, 3])
            voices = Path(folder, "people.json")
            voices.write_text(json.dumps({"schema": "parley-voices-2", "model": "0", "people": []}))
            self.choose(voices)
            self.wait("return localStorage.getItem('parley-voices') !== null")
            run("localStorage.clear()")

    def test_what_is_no_audio_is_said_and_the_next_file_works(self):
        self.choose(Path(WEB) / "app.css")
        self.wait("return document.getElementById('status').textContent.startsWith('app.css: ')")
        self.choose(AUDIO)
        self.wait("return globalThis.parleyShown !== undefined")


if __name__ == "__main__":
    if not is_installed() or not Path(WEB, "index.html").exists():
        print("the browser is not installed, or bindings/wasm/build was not run")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
