#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Correcting a transcript as a person does, in a real browser: correcting_test.py PARLEY AUDIO"""

import base64
import json
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from browser import IS_FIREFOX, SKIPPED, Browser, is_installed

PARLEY, AUDIO = (str(Path(p).resolve()) for p in sys.argv[1:3])
DOWN, LEFT, ENTER, ESCAPE, DELETE, BACKSPACE, CONTROL, SHIFT = "\ue015", "\ue012", "\ue007", "\ue00c", "\ue017", "\ue003", "\ue009", "\ue008"
TRANSCRIPTS = ("text", "markdown", "docx", "odt", "srt", "vtt", "tei", "ctm", "stm")


class Correcting(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.held.name)
        cls.audio = cls.folder / "talk.wav"
        shutil.copy(AUDIO, cls.audio)
        subprocess.run([PARLEY, "-q", "-f", "json", "-o", cls.folder, "--names", "Ann,Bob,Cem", cls.audio], check=True)
        cls.data = json.loads((cls.folder / "talk.json").read_text())
        last = cls.data["segments"][-1]  # in the midst of which a second is heard
        second = next(s["name"] for s in cls.data["speakers"] if s["name"] != last["speaker"])
        cls.data["segments"].append({"start": last["start"] + 0.5, "end": last["start"] + 1.75, "speaker": second, "overlap": True})
        (cls.folder / "talk.json").write_text(json.dumps(cls.data))
        # Words all over, of those between the segments, too.
        words = [{"start": t / 2 + 0.1, "end": t / 2 + 0.5, "word": f"w{t}" + ("." if t % 9 == 8 else "")} for t in range(2, 136)]
        (cls.folder / "words.json").write_text(json.dumps(words))
        subprocess.run([PARLEY, "assign", "--words", cls.folder / "words.json", "-o", cls.folder / "talk.html", cls.folder / "talk.json"], check=True)
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.held.cleanup()

    def setUp(self):
        self.open(self.folder / "talk.html")
        self.do("localStorage.clear()")
        self.open(self.folder / "talk.html")

    def open(self, page):
        self.browser.resize(1200, 900)
        self.browser.go(page.as_uri())
        self.wait("return document.getElementById('audio').readyState >= 1")

    def do(self, *script):
        return self.browser.run(*script)

    def wait(self, script, seconds=15):
        end = time.time() + seconds
        while not self.do(script):
            self.assertLess(time.time(), end, script)
            time.sleep(0.05)

    def segments(self):
        return self.do("return parleyShown.result.segments")

    def words(self):
        return self.do("return parleyShown.result.words")

    def rows(self):
        self.do("document.querySelectorAll('.tabs button')[1].click()")

    def choose(self, index):
        self.do(f"""document.querySelector('.row[data-index="{index}"]').click(); document.getElementById('audio').pause()""")

    def field(self, label, value):
        self.do("""const f = document.querySelector(`[aria-label="${arguments[0]}"]`);
                    f.value = arguments[1]; f.dispatchEvent(new Event('change'))""", label, value)

    def said(self):
        return self.do("return document.querySelector('.why').textContent")

    def press(self, text):
        self.do("[...document.querySelectorAll('button')].find((b) => b.textContent.startsWith(arguments[0])).click()", text)

    def speakers_of_words(self):
        return [w["speaker"] for w in self.words()]

    def test_a_rename_renames(self):
        before = self.speakers_of_words()
        self.assertGreater(len(set(before)), 2)
        self.do("parleyShown.result.rename('Ann', 'Zoe')")
        self.assertEqual(self.speakers_of_words(), ["Zoe" if s == "Ann" else s for s in before])
        self.assertIn("Zoe", self.do("return document.querySelector('.words').textContent"))

    def test_a_correction_changes_the_words_of_its_segment_alone(self):
        before, segment = self.words(), self.data["segments"][2]
        self.do("parleyShown.result.assign(2, 'Dan')")
        for old, new in zip(before, self.words()):
            inside = segment["start"] <= (old["start"] + old["end"]) / 2 < segment["end"]
            self.assertEqual(new, {**old, "speaker": "Dan"} if inside else old)
        self.browser.key("z", CONTROL)
        self.assertEqual(self.words(), before)

    def test_what_is_saved_says_what_was_corrected_in_every_format(self):
        """Twenty corrections of ten kinds, two by keyboard alone, a reload in the middle."""
        self.rows()
        self.do("parleyShown.result.rename('Bob', 'Zo\u00eb & <Co>')")
        for index, name in ((1, "Ann"), (3, "Dan"), (5, "Dan")):
            self.do("parleyShown.result.assign(arguments[0], arguments[1])", index, name)
        for index, at in ((0, 3), (4, 24), (7, 45)):
            self.do("parleyShown.result.split(arguments[0], arguments[1])", index, at)
        self.choose(2)
        self.field("End of the segment", "0:14,2")
        self.field("Note on the segment", "who?")
        self.browser.key("1")  # by keyboard: to the first speaker
        self.open(self.folder / "talk.html")
        self.rows()
        self.do("document.querySelector('.row').focus()")
        for _ in range(3):
            self.browser.key(DOWN)
        self.browser.key(DELETE)  # by keyboard
        self.do("parleyShown.result.change('join', [0, 1])")
        self.do("parleyShown.result.add(66, 67.25, 'Eve')")
        self.do("parleyShown.result.add(10, 12, 'Eve')")  # two at once
        self.do("parleyShown.result.change('word', 4, 'corrected')")
        self.do("parleyShown.result.change('word', 5, '')")
        self.do("parleyShown.result.change('paragraph', 9, true)")
        joined = self.do("const w = parleyShown.result.words, i = w.findIndex((one, k) => k > 20 && one.speaker !== w[k - 1].speaker);"
                         "parleyShown.result.change('paragraph', i, false); return i")
        self.do("parleyShown.result.change('fold', 2)")
        self.do("parleyShown.result.comment(1, 'sure')")
        self.do("parleyShown.result.move(0, 'start', 0.5)")
        self.do("parleyShown.result.remove([4])")
        corrected = self.folder / "corrected.json"
        corrected.write_text(self.do("return parleyShown.write('json')"))
        saved = json.loads(corrected.read_text())
        self.assertEqual(saved["segments"], self.segments())
        self.assertEqual(saved["words"], self.words())
        self.assertEqual(saved["words"][4]["text"], "corrected")
        self.assertEqual((saved["words"][9]["paragraph"], saved["words"][joined]["paragraph"]), (True, False))
        self.assertIn("sure", [s.get("comment") for s in saved["segments"]])
        for name in TRANSCRIPTS:
            written = self.do(f"const t = parleyShown.write('words-{name}'); return typeof t === 'string' ? t : [...t]")
            tool = subprocess.run([PARLEY, "convert", corrected, "-f", name], check=True, stdout=subprocess.PIPE).stdout
            self.assertEqual(written.encode() if isinstance(written, str) else bytes(written), tool, name)
        for name in ("text", "json", "jsonl", "rttm", "csv", "vtt", "srt", "textgrid", "audacity", "eaf", "ctm", "uem", "svg"):
            tool = subprocess.run([PARLEY, "convert", corrected, "--without-words", "-f", name], check=True, stdout=subprocess.PIPE, cwd=self.folder).stdout.decode()
            written = self.do(f"return parleyShown.write('{name}')")
            if name == "eaf":
                tool, written = (text.split("<TIME_ORDER>")[1] for text in (tool, written))
            self.assertEqual(written, tool, name)
        # The picture is the tool's but for its letters.
        tool = subprocess.run([PARLEY, "convert", corrected, "--without-words", "-f", "png"], check=True, stdout=subprocess.PIPE).stdout
        sizes, other = self.browser.run_async("""const [tool, done] = arguments;
            const pixels = async (url) => {
                const image = Object.assign(new Image(), { src: url });
                await image.decode();
                const context = Object.assign(document.createElement("canvas"), { width: image.width, height: image.height }).getContext("2d");
                context.drawImage(image, 0, 0);
                return context.getImageData(0, 0, image.width, image.height);
            };
            (async () => {
                const reader = new FileReader();
                reader.readAsDataURL(await parleyShown.write("png"));
                await new Promise((resolve) => { reader.onload = resolve; });
                const [a, b] = [await pixels(reader.result), await pixels("data:image/png;base64," + tool)];
                let other = 0;
                for (let i = 0; i < a.data.length; i += 4) other += [0, 1, 2].some((k) => Math.abs(a.data[i + k] - b.data[i + k]) > 32);
                return [[a.width, a.height, b.width, b.height], other / (a.width * a.height)];
            })().then(done, (error) => done([String(error), 1]));""", base64.b64encode(tool).decode())
        self.assertEqual(sizes[:2], sizes[2:], sizes)
        self.assertLess(other, 0.025)
        # The page itself can be handed on.
        copy = self.folder / "copy.html"
        copy.write_text(self.do("return parleyShown.write('page')"))
        self.open(copy)
        self.assertEqual(self.segments(), saved["segments"])
        self.assertFalse(self.do("return parleyShown.result.isChanged"))
        self.assertEqual(self.words(), saved["words"])
        # And what was saved can be opened in the page it came from.
        self.open(self.folder / "talk.html")
        self.do("parleyShown.result.discard()")
        self.do("parleyShown.open(new File([arguments[0]], 'corrected.json'))", corrected.read_text())
        self.wait("return parleyShown.result.isChanged")
        self.assertEqual((self.segments(), self.words()), (saved["segments"], saved["words"]))
        self.do("parleyShown.open(new File(['nonsense'], 'x.json'))")
        self.wait("return document.querySelector('.why').textContent.startsWith('x.json: is no result')")

    def test_what_an_earlier_version_kept_is_taken_over(self):
        self.do("parleyShown.result.rename('Ann', 'Zoe')")
        self.do("""const key = Object.keys(localStorage)[0], {names, segments} = parleyShown.result.state;
                   localStorage.setItem(key, JSON.stringify({names, segments}))""")
        self.open(self.folder / "talk.html")
        self.assertIn("Zoe", self.do("return parleyShown.result.names"))
        self.browser.key("z", CONTROL)
        self.assertEqual(self.segments(), self.data["segments"])
        self.do("localStorage.setItem(Object.keys(localStorage)[0], '{')")
        self.open(self.folder / "talk.html")
        self.assertEqual(self.segments(), self.data["segments"])

    def test_refused_storage_is_said(self):
        self.do("Storage.prototype.setItem = () => { throw new Error('full'); }")
        self.do("parleyShown.result.rename('Ann', 'Zoe')")
        self.assertIn("This browser keeps nothing: save a file", self.do("return document.querySelector('.changes .warning').textContent"))
        leaving = "const e = new Event('beforeunload', {cancelable: true}); dispatchEvent(e); return e.defaultPrevented"
        self.assertTrue(self.do(leaving))
        self.do("document.querySelector('.changes select').value = 'json'")
        self.press("Save as")  # not by a person: the browser does not ask for a file, and downloads it
        self.wait(f"return !(() => {{ {leaving} }})()")

    def test_two_windows_share_what_was_done(self):
        first = self.browser.window()
        second = self.browser.new_window()
        try:
            self.open(self.folder / "talk.html")
            self.do("parleyShown.result.rename('Ann', 'Zoe')")
            self.browser.switch(first)
            self.wait("return parleyShown.result.names.includes('Zoe')")
            self.do("parleyShown.result.rename('Bob', 'Bert')")
            self.browser.switch(second)
            self.wait("return parleyShown.result.names.includes('Bert')")
            self.assertEqual(self.do("return parleyShown.result.names"), ["Zoe", "Bert", "Cem"])
            self.do("parleyShown.result.undo()")
        finally:
            self.browser.close_window()
            self.browser.switch(first)
        self.wait("return !parleyShown.result.names.includes('Bert')")
        self.assertIn("Zoe", self.do("return parleyShown.result.names"))

    def test_times_that_make_no_sense_are_told(self):
        self.rows()
        self.choose(1)
        before = self.segments()
        least = f"0:{before[1]['start'] + 0.05:06.3f}"
        for typed, told in (("0:15,x", "is no time"), ("soon", "is no time"), ("99:00", f"can lie between {least} and"), ("", "is no time"), ("1:2:3:4", "is no time")):
            self.field("End of the segment", typed)
            self.assertIn(told, self.said())
            self.assertEqual(self.segments(), before)
        self.field("End of the segment", "0:13,5")
        self.assertEqual((self.segments()[1]["end"], self.said()), (13.5, ""))

    def test_segments_are_added_joined_chosen_together_and_folded(self):
        self.rows()
        box = "const b = document.querySelector('.plot').getBoundingClientRect(); return [b.left, b.top, b.width]"
        left, top, width = self.do(box)
        at = lambda seconds: left + seconds / self.data["duration"] * width
        self.browser.hold(SHIFT, lambda: self.browser.drag(at(10), top + 13, at(13), top + 13))
        added = [s for s in self.segments() if s["speaker"] == "Ann" and 9 < s["start"] < 11]
        self.assertEqual(len(added), 1)  # while Bob goes on: two at once
        self.assertAlmostEqual(added[0]["end"], 13, delta=0.3)
        self.browser.key("z", CONTROL)
        self.choose(1)
        self.browser.hold(CONTROL, lambda: self.do("""document.querySelector('.row[data-index="3"]').dispatchEvent(new MouseEvent('click', {bubbles: true, ctrlKey: true}))"""))
        self.assertEqual(self.do("return [...document.querySelectorAll('.row[aria-selected=true]')].map((r) => r.dataset.index)"), ["1", "3"])
        self.browser.key("3")
        self.assertEqual([self.segments()[i]["speaker"] for i in (1, 3)], ["Cem", "Cem"])
        self.choose(1)
        self.press("Join with next")
        self.assertEqual(len(self.segments()), len(self.data["segments"]) - 1)
        self.do("parleyShown.result.add(60, 60.4, 'Noise')")
        self.assertIn("Noise", self.do("return parleyShown.result.names"))
        self.press("give to neighbours")
        self.assertNotIn("Noise", self.do("return parleyShown.result.names"))

    def test_words_stay_with_the_first_of_two_at_once(self):
        before, last = self.words(), len(self.data["segments"]) - 1
        self.do("parleyShown.result.assign([arguments[0]], 'Dan')", last)
        self.assertEqual(self.words(), before)
        self.do("parleyShown.result.change('join', [arguments[0], arguments[1]])", last - 1, last)
        self.assertEqual((self.words(), [s for s in self.segments() if "overlap" in s]), (before, []))

    def test_words_are_edited_in_their_place(self):
        x, y = self.do("const b = document.querySelector('[data-word=\"3\"]').getBoundingClientRect(); return [b.left + 5, b.top + 5]")
        self.browser.double_click(x, y)
        self.do("document.getElementById('audio').pause()")
        self.assertTrue(self.do("return document.activeElement.isContentEditable"))
        for key in "yes!":
            self.browser.key(key)
        self.browser.key(ENTER)
        before = json.loads((self.folder / "words.json").read_text())[3]
        self.assertEqual({k: self.words()[3][k] for k in ("start", "end", "text")}, {"start": before["start"], "end": before["end"], "text": "yes!"})

    @unittest.skipIf(IS_FIREFOX, "which lets no page write files")
    def test_the_same_file_is_written_again(self):
        self.do("""globalThis.written = []; globalThis.showSaveFilePicker = async ({suggestedName}) => { asked = suggestedName; return {name: 'mine.json',
                   createWritable: async () => ({write: async (text) => written.push(text), close: async () => {}})}; }""")
        self.do("document.querySelector('.changes select').value = 'json'")
        self.press("Save as")
        self.wait("return written.length === 1")
        self.assertEqual(self.do("return asked"), "talk.json")
        self.do("parleyShown.result.rename('Ann', 'Zoe'); document.activeElement.blur()")
        self.browser.key("s", CONTROL)
        self.wait("return written.length === 2")
        self.assertIn("Zoe", self.do("return written[1]"))
        self.assertEqual(self.do("return written[1] === parleyShown.write('json')"), True)
        self.press("Save mine.json")
        self.wait("return written.length === 3")

    def test_paragraphs_are_split_and_joined(self):
        paragraphs = "return [...document.querySelectorAll('.words p')].map((p) => p.querySelector('[data-word]').dataset.word)"
        before, words = self.do(paragraphs), self.words()

        def edit(word, *keys):
            find = f"const e = document.querySelector('[data-word=\"{word}\"]');"
            self.do(find + "e.scrollIntoView({block: 'center'})")
            time.sleep(0.6)  # paragraphs get their heights when they are seen, and these clicks do not count with those before
            x, y = self.do(find + "const b = e.getBoundingClientRect(); return [b.left + 5, b.top + 5]")
            self.browser.double_click(x, y)
            self.do("document.getElementById('audio').pause()")
            for key, *held in keys:
                self.browser.key(key, *held)

        edit(5, (ENTER, SHIFT))
        self.assertEqual(self.do(paragraphs), sorted([*before, "5"], key=int))
        second = int(before[1])
        edit(second, (LEFT,), (BACKSPACE,))
        self.assertEqual(self.do(paragraphs), sorted({*before, "5"} - {before[1]}, key=int))
        self.assertEqual({w["speaker"] for w in self.words()[second:int(before[2])]}, {words[second - 1]["speaker"]})
        self.assertEqual([(w["start"], w["end"], w["text"]) for w in self.words()], [(w["start"], w["end"], w["text"]) for w in words])
        self.browser.key("z", CONTROL)
        self.browser.key("z", CONTROL)
        self.assertEqual((self.do(paragraphs), self.words()), (before, words))

    def test_speakers_have_colours_of_ones_choice_and_can_be_hidden(self):
        self.do("""const c = document.querySelector('[aria-label="Colour of Bob"]'); c.value = '#ff0000'; c.dispatchEvent(new Event('change'))""")
        self.do("document.querySelector('[aria-label=\"Hide Ann\"]').click()")
        self.do("parleyShown.result.rename('Bob', 'Bert')")
        shown = [i for i, s in enumerate(self.data["segments"]) if s["speaker"] != "Ann"]
        for _ in range(2):  # and after a reload
            self.rows()
            self.assertEqual(self.do("return [...document.querySelectorAll('.label')].map((l) => l.title)"), ["Bert", "Cem"])
            self.assertEqual(self.do("return document.querySelector('.labels .dot').style.background"), "rgb(255, 0, 0)")
            self.assertEqual(self.do("return [...document.querySelectorAll('.row')].map((r) => Number(r.dataset.index)).sort((a, b) => a - b)"), shown)
            self.assertNotIn("Ann", self.do("return document.querySelector('.words').textContent"))
            self.open(self.folder / "talk.html")
        self.rows()
        self.do("document.querySelector('.row').focus()")
        self.browser.key(DOWN)
        self.assertEqual(self.do("return document.activeElement.dataset.index"), str(shown[1]))
        self.assertEqual(self.segments()[0]["speaker"], "Ann")  # nothing of the result is gone
        self.do("document.querySelector('[aria-label=\"Show Ann\"]').click()")
        self.assertEqual(self.do("return document.querySelectorAll('.label').length"), 3)

    def test_the_focus_stays_and_arrows_do_not_apply(self):
        self.rows()
        self.choose(1)
        self.do("document.querySelector('.tools select').focus()")
        self.browser.key(DOWN)
        self.assertEqual(self.segments()[1]["speaker"], "Bob")
        self.browser.key(ENTER)
        self.assertEqual(self.segments()[1]["speaker"], "Cem")
        self.assertEqual(self.do("return document.activeElement.getAttribute('aria-label')"), "Speaker of the segment")
        self.do("document.querySelector('.row[data-index=\"2\"]').focus()")
        self.browser.key(DOWN)
        self.browser.key("1")
        self.assertEqual((self.segments()[3]["speaker"], self.do("return document.activeElement.dataset.index")), ("Ann", "3"))
        self.assertEqual(self.do("return document.querySelector('[aria-live]').textContent"), "Now Ann.")
        self.browser.key(DELETE)
        self.assertTrue(self.do("return document.activeElement.matches('.row')"))

    def test_hearing(self):
        self.rows()
        self.choose(2)
        segment = self.data["segments"][2]
        self.do("document.querySelector('.controls select').value = '3'; document.querySelector('.controls select').dispatchEvent(new Event('change'))")
        self.browser.key("l")
        self.do(f"document.activeElement.blur(); parleyShown.seek({segment['end'] - 0.5})")
        self.browser.key(" ")
        self.wait(f"return document.getElementById('audio').currentTime < {segment['start'] + 2}")
        self.assertEqual(self.do("return document.getElementById('audio').playbackRate"), 3)
        self.browser.key(" ")
        self.wait("return document.getElementById('audio').paused")
        for key in "[[]kb":
            self.browser.key(key)
        self.assertAlmostEqual(self.do("return document.getElementById('audio').volume"), 0.9)
        self.assertEqual(self.do("return [...document.querySelectorAll('.playing input[type=checkbox]')].map((b) => b.checked)"), [True, True, True, True])
        self.browser.key("?")
        self.assertTrue(self.do("return document.querySelector('details.hint').open"))


if __name__ == "__main__":
    if not is_installed():
        print("the browser is not installed")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
