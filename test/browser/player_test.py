#!/usr/bin/env python3
"""The page in a real browser: player_test.py PARLEY AUDIO [FOLDER for screenshots]"""

import json
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from browser import SKIPPED, Browser

PARLEY, AUDIO = sys.argv[1:3]
SHOTS = Path(sys.argv[3]) if len(sys.argv) > 3 else None


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        subprocess.run([PARLEY, "-f", "html,json", "-o", cls.held.name, "--names", "Ann <i>,Bob", "--confidence", AUDIO],
                       check=True)
        cls.page = Path(cls.held.name) / (Path(AUDIO).stem + ".html")
        cls.data = json.loads(cls.page.with_suffix(".json").read_text())
        cls.browser = Browser(SHOTS)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.held.cleanup()

    def setUp(self):
        self.browser.resize(1200, 900)
        self.browser.go(self.page.as_uri())
        self.wait("return document.getElementById('audio').readyState >= 1")

    def wait(self, script, seconds=15):
        end = time.time() + seconds
        while not self.browser.run(script):
            self.assertLess(time.time(), end, script)
            time.sleep(0.05)

    def position(self):
        return self.browser.run("return document.getElementById('audio').currentTime")

    def test_lanes_are_the_segments(self):
        lanes = self.browser.run("""return [...document.querySelectorAll('.lane')].map(l => [l.dataset.speaker,
            [...l.querySelectorAll('.part')].map(p => [parseFloat(p.style.left), parseFloat(p.style.width)])])""")
        self.assertEqual([name for name, _ in lanes], [s["name"] for s in self.data["speakers"]])
        for name, parts in lanes:
            own = [s for s in self.data["segments"] if s["speaker"] == name]
            self.assertEqual(len(parts), len(own))
            for (left, width), s in zip(parts, own):
                self.assertAlmostEqual(left, 100 * s["start"] / self.data["duration"], delta=0.01)
                self.assertAlmostEqual(width, 100 * (s["end"] - s["start"]) / self.data["duration"], delta=0.01)
        self.assertEqual(self.browser.run("return document.querySelectorAll('tbody tr').length"), len(self.data["segments"]))
        self.assertEqual(self.browser.complaints(), [])
        self.browser.shot("light.png")

    def test_it_plays_and_pauses(self):
        self.browser.run("document.querySelector('.play').click()")
        self.wait("return document.getElementById('audio').currentTime > 0.3")
        self.wait("return document.querySelector('.play').textContent === 'Pause'")
        self.browser.key(" ")
        self.wait("return document.getElementById('audio').paused")
        self.wait("return document.querySelector('.play').textContent === 'Play'")

    def test_a_click_seeks(self):
        x, y, width = self.browser.run("""const b = document.querySelector('.board').getBoundingClientRect();
            return [b.left, b.top + 20, b.width]""")
        self.browser.click(x + width / 2, y)
        self.wait("return !document.getElementById('audio').paused")
        self.browser.run("document.getElementById('audio').pause()")
        self.assertAlmostEqual(self.position(), self.data["duration"] / 2, delta=1.5)

    def test_a_row_seeks_and_names_who_speaks(self):
        segment = self.data["segments"][4]
        self.browser.run("document.querySelectorAll('tbody tr')[4].click(); document.getElementById('audio').pause()")
        self.wait("return document.querySelector('.speaking').textContent !== ''")
        self.assertAlmostEqual(self.position(), segment["start"], delta=0.5)
        self.assertEqual(self.browser.run("return document.querySelector('.speaking').textContent"), segment["speaker"])
        self.assertTrue(self.browser.run("return document.querySelectorAll('tbody tr')[4].classList.contains('now')"))

    def test_keys_move(self):
        right, down, up = "\ue014", "\ue015", "\ue013"
        self.browser.key(right)
        self.browser.key(right)
        self.wait("return Math.abs(document.getElementById('audio').currentTime - 10) < 0.5")
        following = next(s["start"] for s in self.data["segments"] if s["start"] > 10.01)
        self.browser.key(down)
        self.wait(f"return Math.abs(document.getElementById('audio').currentTime - {following}) < 0.05")
        self.browser.key(up)
        self.wait(f"return document.getElementById('audio').currentTime < {following} - 0.5")
        second = next(s["start"] for s in self.data["segments"] if s["speaker"] == self.data["speakers"][1]["name"])
        self.browser.run("document.getElementById('audio').currentTime = 0")
        self.wait("return document.querySelector('.clock').textContent.startsWith('0:00.0')")
        self.browser.key("2")
        self.wait(f"return Math.abs(document.getElementById('audio').currentTime - {second}) < 1")
        self.browser.run("document.getElementById('audio').pause()")

    def test_phone_and_dark(self):
        self.browser.run("document.documentElement.dataset.theme = 'dark'")
        dark = self.browser.run("return getComputedStyle(document.body).backgroundColor")
        self.browser.shot("dark.png")
        self.browser.run("document.documentElement.dataset.theme = 'light'")
        self.assertNotEqual(self.browser.run("return getComputedStyle(document.body).backgroundColor"), dark)
        self.browser.resize(500, 850)
        self.assertTrue(self.browser.run("return document.documentElement.scrollWidth <= window.innerWidth"))
        self.browser.shot("phone.png")

    def test_nothing_is_fetched(self):
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').filter(r => !r.name.startsWith('data:')).length"), 0)


if __name__ == "__main__":
    if not shutil.which("chromedriver"):
        print("chromedriver is not installed")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
