#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The page in a real browser: player_test.py PARLEY AUDIO [FOLDER for screenshots]"""

import csv
import json
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from browser import SKIPPED, Browser, is_installed

PARLEY, AUDIO = (str(Path(p).resolve()) for p in sys.argv[1:3])
SHOTS = Path(sys.argv[3]) if len(sys.argv) > 3 else None
AXE = Path(__file__).resolve().parents[2] / "build/axe/node_modules/axe-core/axe.min.js"
SAVED = ("text", "rttm", "json", "jsonl", "csv", "vtt", "srt", "textgrid", "eaf", "audacity", "ctm", "uem")  # a drawing is of the time that JSON tells: correcting_test.py
RIGHT, LEFT, DOWN, UP, HOME, END, DELETE, CONTROL, SHIFT = "\ue014", "\ue012", "\ue015", "\ue013", "\ue011", "\ue010", "\ue017", "\ue009", "\ue008"
DATE = re.compile(r'DATE="[^"]*"')


def long_page(page, hours, num_speakers):
    """The page with another result: hours of turns of made-up people, and their words."""
    draw = random.Random(1)
    names = [f"Person {i + 1}" for i in range(num_speakers)]
    segments, words, at = [], [], 0.0
    while at < hours * 3600:
        length = round(draw.uniform(0.5, 8), 3)
        segments.append({"start": round(at, 3), "end": round(at + length, 3), "speaker": draw.choice(names), "confidence": 0.5})
        step = length / max(1, int(length * 2.5))
        words += [{"start": at + i * step, "end": at + (i + 1) * step, "text": draw.choice("it was a long and dull meeting".split()),
                   "speaker": segments[-1]["speaker"]} for i in range(int(length * 2.5))]
        at += length + draw.uniform(0, 0.8)
    data = {"schema": "parley-diarization-1", "recording": "long", "path": "long.wav", "duration": at,
            "speakers": [{"name": n, "seconds": sum(s["end"] - s["start"] for s in segments if s["speaker"] == n)} for n in names],
            "segments": segments, "waveform": [round(draw.random() ** 3, 2) for _ in range(int(20 * at))],
            "media": {"url": "long.wav", "beside": "./long.wav", "type": "audio/wav"}, "words": words}
    text = page.read_text()
    text = re.sub(r'(type="application/json">).*?(</script>)', lambda m: m[1] + json.dumps(data) + m[2], text, flags=re.S)
    return re.sub(r'<audio [^>]*>', '<audio id="audio" data-why="no sound">', text), data


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.held.name)
        subprocess.run([PARLEY, "-f", ",".join(("html", *SAVED)), "-o", cls.held.name, "--names", 'Ann <i>, "A",Bob\xe9', "--confidence",
                        Path(AUDIO).name], check=True, cwd=Path(AUDIO).parent)
        cls.page = cls.folder / (Path(AUDIO).stem + ".html")
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
        self.browser.run("parleyShown.result.discard()")

    def wait(self, script, seconds=15):
        end = time.time() + seconds
        while not self.browser.run(script):
            self.assertLess(time.time(), end, script)
            time.sleep(0.05)

    def position(self):
        return self.browser.run("return document.getElementById('audio').currentTime")

    def pause(self):
        self.browser.run("document.getElementById('audio').pause()")

    def box(self, selector):
        return self.browser.run(f"""const b = document.querySelector('{selector}').getBoundingClientRect();
            return [b.left, b.top, b.width, b.height]""")

    def point(self, seconds, lane):
        """Where a time lies in a speaker's lane."""
        left, top, width, _ = self.box(".plot")
        first, last = self.browser.run("return parleyShown.timeline.view")
        return left + (seconds - first) / (last - first) * width, top + 26 * lane + 13

    def pixels(self, seconds, lane):
        """The colour drawn there."""
        self.settle()
        x, y = self.point(seconds, lane)
        left, top, *_ = self.box(".plot")
        return self.browser.run(f"""const c = document.querySelector('.plot canvas'), r = devicePixelRatio;
            return [...c.getContext('2d').getImageData({x - left} * r, {y - top} * r, 1, 1).data]""")

    def settle(self):
        self.browser.run_async("requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")

    def segments(self):
        return self.browser.run("return parleyShown.result.segments")

    def lane(self, segment):
        return [s["name"] for s in self.data["speakers"]].index(segment["speaker"])

    def test_lanes_are_the_segments(self):
        labels = self.browser.run("return [...document.querySelectorAll('.label')].map(l => l.textContent)")
        self.assertEqual(labels, [s["name"] for s in self.data["speakers"]])
        for segment in self.data["segments"]:
            middle = (segment["start"] + segment["end"]) / 2
            for lane in range(len(labels)):
                overlapped = any(s["start"] <= middle < s["end"] and self.lane(s) == lane for s in self.data["segments"])
                self.assertEqual(self.pixels(middle, lane)[3] > 0, overlapped, (segment, lane))
        self.assertEqual(self.browser.complaints(), [])
        self.browser.shot("light.png")

    def test_it_plays_and_pauses(self):
        self.browser.run("document.querySelector('.play').click()")
        self.wait("return document.getElementById('audio').currentTime > 0.3")
        self.wait("return document.querySelector('.play').textContent === 'Pause'")
        self.browser.run("document.activeElement.blur()")
        self.browser.key(" ")
        self.wait("return document.getElementById('audio').paused")
        self.wait("return document.querySelector('.play').textContent === 'Play'")

    def test_the_waveform_seeks_and_is_a_slider(self):
        left, top, width, height = self.box(".slider")
        self.browser.click(left + width / 2, top + height / 2)
        self.wait("return !document.getElementById('audio').paused")
        self.pause()
        self.assertAlmostEqual(self.position(), self.data["duration"] / 2, delta=1.5)
        self.browser.run("document.querySelector('.slider').focus()")
        for key, expected in ((HOME, 0), (UP, 5), (RIGHT, 10), (DOWN, 5), (LEFT, 0), (END, self.data["duration"])):
            self.browser.key(key)
            self.wait(f"return Math.abs(document.querySelector('.slider').ariaValueNow - {expected}) < 0.2")
        self.pause()

    def test_rows_seek_by_mouse_and_keyboard(self):
        segment = self.data["segments"][4]
        self.browser.run("document.querySelectorAll('.row')[4].click(); document.getElementById('audio').pause()")
        self.wait("return document.querySelector('.speaking').textContent !== ''")
        self.assertAlmostEqual(self.position(), segment["start"], delta=0.5)
        self.assertEqual(self.browser.run("return document.querySelector('.speaking').textContent"), segment["speaker"])
        self.assertTrue(self.browser.run("return document.querySelectorAll('.row')[4].classList.contains('now')"))
        self.browser.run("document.querySelectorAll('.row')[4].focus()")
        for key, expected in ((DOWN, 5), (UP, 4), (HOME, 0), (END, len(self.data["segments"]) - 1)):
            self.browser.key(key)
            self.assertEqual(self.browser.run("return Number(document.activeElement.dataset.index)"), expected)
        self.assertEqual(self.browser.run("return document.querySelectorAll('.row[tabindex=\"0\"]').length"), 1)

    def test_keys_move(self):
        self.browser.key(RIGHT)
        self.browser.key(RIGHT)
        self.wait("return Math.abs(document.getElementById('audio').currentTime - 10) < 0.5")
        following = next(s["start"] for s in self.data["segments"] if s["start"] > 10.01)
        self.browser.key("n")
        self.wait(f"return Math.abs(document.getElementById('audio').currentTime - {following}) < 0.05")
        self.browser.key("p")
        self.wait(f"return document.getElementById('audio').currentTime < {following} - 0.5")
        second = next(s["start"] for s in self.data["segments"] if s["speaker"] == self.data["speakers"][1]["name"])
        self.browser.run("document.getElementById('audio').currentTime = 0")
        self.wait("return document.querySelector('.clock').textContent.startsWith('0:00.0')")
        self.browser.key("2", SHIFT)
        self.wait(f"return Math.abs(document.getElementById('audio').currentTime - {second}) < 1")
        self.pause()

    def test_zooming_keeps_the_place(self):
        left, top, width, height = self.box(".slider")
        self.browser.wheel(left + width / 4, top + height / 2, -400)
        self.assertEqual(self.browser.run("return parleyShown.timeline.view[0]"), 0)  # which scrolls the page
        self.browser.hold(CONTROL, lambda: self.browser.wheel(left + width / 4, top + height / 2, -400))
        first, last = self.browser.run("return parleyShown.timeline.view")
        quarter = self.data["duration"] / 4
        self.assertLess(last - first, self.data["duration"] / 1.5)
        self.assertAlmostEqual(first + (last - first) / 4, quarter, delta=0.5)
        self.browser.drag(left + width / 2, top + height / 2, left + width / 4, top + height / 2)
        self.assertGreater(self.browser.run("return parleyShown.timeline.view")[0], first + 1)
        self.browser.key("0")
        self.assertEqual(self.browser.run("return parleyShown.timeline.view"), [0, self.browser.run("return parleyShown.result.data.duration")])

    def test_what_is_saved_is_what_the_tool_writes(self):
        for name in SAVED:
            extension = {"textgrid": ".TextGrid", "audacity": ".labels.txt", "text": ".txt"}.get(name, f".{name}")
            tool = self.folder / (Path(AUDIO).stem + extension)
            written = self.browser.run(f"return parleyShown.write('{name}')")
            self.assertEqual(DATE.sub("", written), DATE.sub("", tool.read_bytes().decode()), name)

    def test_borders_move_by_dragging(self):
        segment = next(s for s in self.data["segments"] if s["end"] - s["start"] > 3)
        index, lane = self.data["segments"].index(segment), self.lane(segment)
        self.browser.click(*self.point((segment["start"] + segment["end"]) / 2, lane))
        self.wait("return !document.querySelector('.tools').hidden")
        from_x, y = self.point(segment["end"], lane)
        to_x, _ = self.point(segment["end"] - 1, lane)
        self.browser.drag(from_x, y, to_x, y)
        moved = self.segments()[index]
        self.assertAlmostEqual(moved["end"], segment["end"] - 1, delta=0.2)
        self.assertEqual((moved["start"], moved["edited"]), (segment["start"], True))
        self.browser.key("z", CONTROL)
        self.assertEqual(self.segments(), self.data["segments"])

    def test_corrections_are_kept_undone_and_saved(self):
        run = self.browser.run
        ann, bob = (s["name"] for s in self.data["speakers"][:2])
        first = self.data["segments"][0]
        before = [s["end"] - s["start"] for s in self.data["segments"]]
        # By hand: a new name, a note, another speaker, a split, a deletion.
        run("document.querySelector('.shares .name').click()")
        run("const i = document.querySelector('.shares input:not(.color)'); i.value = 'Zoe'; "
            "i.dispatchEvent(new KeyboardEvent('keydown', {key: 'Enter', bubbles: true}))")
        self.assertEqual(self.segments()[0]["speaker"], "Zoe")
        run("document.querySelectorAll('.row')[1].click(); document.getElementById('audio').pause()")
        run("const n = document.querySelector('.tools .note'); n.value = 'who?'; n.dispatchEvent(new Event('change'))")
        run("const w = document.querySelector('.tools select'); w.value = 'Zoe'; w.dispatchEvent(new Event('change'))")
        second = self.segments()[1]
        self.assertEqual((second["speaker"], second["comment"], second["edited"]), ("Zoe", "who?", True))
        at = round((first["start"] + first["end"]) / 2, 2)
        run(f"parleyShown.seek({at})")
        self.wait(f"return Math.abs(document.getElementById('audio').currentTime - {at}) < 0.01")
        run("document.querySelectorAll('.row')[0].focus()")
        self.browser.key("s")
        self.assertEqual(len(self.segments()), len(before) + 1)
        run("document.querySelectorAll('.row')[3].click(); document.getElementById('audio').pause()")
        self.browser.key(DELETE)
        changed = self.segments()
        self.assertEqual(len(changed), len(before))
        # In every format, and as the tool would write it.
        saved = json.loads(run("return parleyShown.write('json')"))
        self.assertEqual(saved["segments"], changed)
        for speaker in saved["speakers"]:
            self.assertAlmostEqual(speaker["seconds"], sum(s["end"] - s["start"] for s in changed if s["speaker"] == speaker["name"]),
                                   delta=0.002)
        rows = list(csv.DictReader(run("return parleyShown.write('csv')").splitlines()))
        self.assertEqual([(float(r["start"]), r["speaker"]) for r in rows], [(s["start"], s["speaker"]) for s in changed])
        (self.folder / "changed.rttm").write_text(run("return parleyShown.write('rttm')"))
        scored = subprocess.run([PARLEY, "score", self.folder / "changed.rttm", self.folder / "changed.rttm"], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        self.assertRegex(scored, r"total +0\.00 ")
        # A reload loses nothing, what can be undone included: step by step, or back to what the tool found.
        self.browser.go(self.page.as_uri())
        self.assertEqual(self.segments(), changed)
        self.browser.key("z", CONTROL)
        self.assertEqual(len(self.segments()), len(before) + 1)
        self.browser.key("z", CONTROL)
        self.assertEqual(len(self.segments()), len(before))
        self.assertEqual(self.segments()[1], second)
        run("[...document.querySelectorAll('.changes button')].find((b) => b.textContent.startsWith('Discard')).click()")
        self.assertEqual(self.segments(), self.data["segments"])
        self.assertEqual(run("return parleyShown.result.names"), [s["name"] for s in self.data["speakers"]])
        # Two who are one.
        run(f"parleyShown.result.rename({json.dumps(bob)}, {json.dumps(ann)})")
        self.assertNotIn(bob, run("return parleyShown.result.names"))

    def test_a_transcript_is_read_and_searched(self):
        words = [{"start": s["start"] + 0.1, "end": s["end"] - 0.1, "text": f"It was number{i} <b>"} for i, s in enumerate(self.data["segments"])]
        transcript = self.folder / "words.json"
        transcript.write_text(json.dumps({"segments": words}))
        page = self.folder / "words.html"
        page.write_bytes(subprocess.run([PARLEY, "assign", "-f", "html", "--words", transcript, AUDIO], check=True, stdout=subprocess.PIPE).stdout)
        self.browser.go(page.as_uri())
        spoken = self.browser.run("return [...document.querySelectorAll('.words p')].map(p => p.textContent)")
        self.assertIn("number0 <b>", spoken[0])
        self.browser.run("const s = document.querySelector('.search'); s.value = 'was numb'; s.dispatchEvent(new Event('input'))")
        self.assertEqual(self.browser.run("return document.querySelector('.count').textContent"), f"1 of {len(words)}")
        self.browser.run("document.querySelectorAll('[data-word]')[9].click()")
        self.wait("return document.getElementById('audio').currentTime > %f" % (words[2]["start"] + 0.01))
        self.wait("return document.querySelector('.words .now') !== null")
        self.pause()
        self.browser.shot("words.png")

    def test_five_hours_of_thirty_people(self):
        text, data = long_page(self.page, 5, 30)
        page = self.folder / "long.html"
        page.write_text(text)
        self.browser.go(page.as_uri())
        run = self.browser.run
        self.assertEqual(run("return document.querySelector('.why').textContent"), "no sound")
        self.browser.shot("long.png")
        run("document.querySelectorAll('.tabs button')[1].click()")
        self.assertLess(run("return document.querySelectorAll('.row').length"), 100)
        # Every row can be reached, and the cursor moves without a lane being drawn again.
        run("document.querySelector('.row').focus()")
        self.browser.key(END)
        self.assertEqual(run("return Number(document.activeElement.dataset.index)"), len(data["segments"]) - 1)
        took = self.browser.run_async("""const done = arguments[0], times = []; let k = 0;
            const step = () => { const begin = performance.now(); parleyShown.seek(1000 + k * 0.016); times.push(performance.now() - begin);
                                 if (++k < 120) requestAnimationFrame(step); else done(times.sort((a, b) => a - b)[114]); };
            parleyShown.timeline.show(990, 1100); requestAnimationFrame(step);""")
        self.assertLess(took, 16, "ms for a frame while playing")
        print(f"five hours: {took:.1f} ms for nineteen of twenty frames")

    def test_phone_and_dark(self):
        self.browser.run("document.documentElement.dataset.theme = 'dark'")
        dark = self.browser.run("return getComputedStyle(document.body).backgroundColor")
        self.browser.shot("dark.png")
        self.browser.run("document.documentElement.dataset.theme = 'light'")
        self.assertNotEqual(self.browser.run("return getComputedStyle(document.body).backgroundColor"), dark)
        self.browser.resize(500, 850)
        self.assertTrue(self.browser.run("return document.documentElement.scrollWidth <= window.innerWidth"))
        self.browser.shot("phone.png")
        (self.folder / "phone.html").write_text(long_page(self.page, 1, 12)[0])
        self.browser.go((self.folder / "phone.html").as_uri())
        self.browser.run("document.querySelectorAll('.tabs button')[1].click(); document.querySelector('.row').click(); scrollTo(0, 400)")
        self.settle()
        stage, undo, number = self.browser.run("""const box = (e) => e.getBoundingClientRect(), cut = document.querySelectorAll('.label .cut')[11];
            return [box(document.querySelector('.stage')).height, box(document.querySelector('.changes button')).bottom, box(cut.lastChild).right <= box(cut).right + 1]""")
        self.assertLessEqual(stage, 850 / 3)
        self.assertLessEqual(undo, 850)
        self.assertTrue(number, "the number of a name that is cut off")

    def test_colours_can_be_read(self):
        """Text against its ground, 4.5 to 1 (WCAG AA), in both schemes."""
        for theme in ("light", "dark"):
            worst = self.browser.run("""document.documentElement.dataset.theme = arguments[0];
                const parse = (c) => { const p = document.createElement('canvas').getContext('2d', {willReadFrequently: true});
                    p.fillStyle = c; p.fillRect(0, 0, 1, 1); return [...p.getImageData(0, 0, 1, 1).data]; };
                const light = (c) => c.slice(0, 3).map(v => v / 255).map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4)
                    .reduce((s, v, i) => s + v * [0.2126, 0.7152, 0.0722][i], 0);
                let worst = [99];
                for (const e of document.querySelectorAll('.parley *')) {
                    if (![...e.childNodes].some(n => n.nodeType === 3 && n.data.trim()) || e.disabled || !e.checkVisibility()) continue;
                    let ground = e;
                    while (ground && parse(getComputedStyle(ground).backgroundColor)[3] < 255) ground = ground.parentElement;
                    const [a, b] = [light(parse(getComputedStyle(e).color)), light(parse(getComputedStyle(ground ?? document.body).backgroundColor))];
                    const ratio = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
                    if (ratio < worst[0]) worst = [ratio, e.className + ': ' + e.textContent.slice(0, 20)];
                }
                return worst;""", theme)
            self.assertGreaterEqual(worst[0], 4.5, (theme, worst))

    @unittest.skipUnless(AXE.exists(), "npm install --prefix build/axe axe-core")
    def test_accessibility_rules_hold(self):
        (self.folder / "two-hours.html").write_text(long_page(self.page, 2, 12)[0])
        for page in (self.page, self.folder / "two-hours.html"):
            for theme in ("light", "dark"):
                self.browser.go(page.as_uri())
                self.browser.run(f"""document.documentElement.dataset.theme = '{theme}';
                    document.querySelectorAll('.tabs button')[1]?.click(); document.querySelector('.row').click()""")
                self.browser.run(AXE.read_text())
                found = self.browser.run_async("const done = arguments[0]; axe.run().then(r => done(r.violations.map(v => [v.id, v.nodes[0].html])))")
                self.assertEqual(found, [], (page.name, theme))

    def test_sound_is_where_it_is_said_to_be(self):
        source = self.folder / "in" / "a #1%.wav"
        source.parent.mkdir(exist_ok=True)
        shutil.copy(AUDIO, source)
        for how, expected in (("link", "../in/a%20%231%25.wav"), ("copy", "./a%20%231%25.wav"), ("none", None)):
            out = self.folder / how
            subprocess.run([PARLEY, "-f", "html", "--audio", how, "-o", out, source], check=True)
            self.browser.go((out / "a #1%.html").as_uri())
            if expected:
                self.wait("return document.getElementById('audio').readyState >= 1")
                self.assertEqual(self.browser.run("return document.getElementById('audio').getAttribute('src')").lstrip("./"), expected.lstrip("./"))
            else:
                self.assertIn("without sound", self.browser.run("return document.querySelector('.why').textContent"))
        out = self.folder / "stream.html"
        with open(AUDIO, "rb") as stream:
            out.write_bytes(subprocess.run([PARLEY, "-f", "html", "-"], check=True, stdin=stream, stdout=subprocess.PIPE).stdout)
        self.browser.go(out.as_uri())
        self.wait("return document.getElementById('audio').readyState >= 1")

    def test_nothing_is_fetched(self):
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').filter(r => !r.name.startsWith('data:')).length"), 0)


if __name__ == "__main__":
    if not is_installed():
        print("the browser is not installed")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
