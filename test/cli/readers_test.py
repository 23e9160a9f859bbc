#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the tool writes, read by programs that are not ours: readers_test.py PARLEY AUDIO

All formats must agree with each other. A reader that is not installed is named and its format left out."""

import contextlib
import csv
import datetime
import fcntl
import json
import os
import pty
import shutil
import struct
import subprocess
import sys
import tempfile
import termios
import unittest
import xml.etree.ElementTree as xml
import zipfile
from pathlib import Path
from urllib.parse import unquote

try:
    import srt
    import webvtt
except ImportError:
    srt = webvtt = None
try:
    from PIL import Image
except ImportError:
    Image = None

try:
    import jsonschema
except ImportError:
    jsonschema = None

PARLEY, AUDIO = (str(Path(p).resolve()) for p in sys.argv[1:3])
SCHEMAS = Path(__file__).resolve().parents[2] / "docs/schema"
FORMATS = "json,csv,vtt,srt,audacity,textgrid,eaf,ctm,uem,rttm,html,text,table" + (",svg,png" if "png" in subprocess.run(
    [PARLEY, "--help"], capture_output=True, text=True).stdout else "")


class Readers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.held.name)
        subprocess.run([PARLEY, "-f", FORMATS, "-o", cls.folder, "--names", 'Ann "A" <b>,Bob & co', "--confidence", AUDIO],
                       check=True)
        cls.stem = Path(AUDIO).stem
        cls.json = json.loads(cls.file(".json").read_text())
        cls.expected = [(s["start"], s["end"], s["speaker"]) for s in cls.json["segments"]]
        assert len(cls.expected) > 5

    @classmethod
    def tearDownClass(cls):
        cls.held.cleanup()

    @classmethod
    def file(cls, extension):
        return cls.folder / (cls.stem + extension)

    def assert_same(self, found, tolerance=0.0011):
        self.assertEqual(len(found), len(self.expected))
        for (a, b, who), (c, d, name) in zip(sorted(found), sorted(self.expected)):
            self.assertAlmostEqual(a, c, delta=tolerance)
            self.assertAlmostEqual(b, d, delta=tolerance)
            self.assertEqual(who, name)

    def test_json_adds_up(self):
        for speaker in self.json["speakers"]:
            own = sum(s["end"] - s["start"] for s in self.json["segments"] if s["speaker"] == speaker["name"])
            self.assertAlmostEqual(own, speaker["seconds"], delta=0.05)
        self.assertTrue(all(0 <= s["confidence"] <= 1 for s in self.json["segments"]))

    @unittest.skipUnless(jsonschema, "python3-jsonschema is not installed")
    def test_json_and_csv_are_as_their_schemas_say(self):
        check = lambda value, name: jsonschema.validate(value, json.loads((SCHEMAS / name).read_text()))
        check(self.json, "diarization.schema.json")
        lines = subprocess.run([PARLEY, "-f", "jsonl", "--embeddings", "-n", "40", AUDIO], check=True, stdout=subprocess.PIPE).stdout
        check(json.loads(lines), "diarization.schema.json")  # with embeddings and a note
        words = self.folder / "words.srt"
        words.write_text("1\n00:00:01,000 --> 00:00:09,000\nSome words that two people say\n")
        said = subprocess.run([PARLEY, "assign", "-f", "json", "--words", words, AUDIO], check=True, stdout=subprocess.PIPE).stdout
        check(json.loads(said), "transcript.schema.json")
        with self.assertRaises(jsonschema.ValidationError):
            check({**self.json, "segments": [{"start": -1, "end": 0, "speaker": "x"}]}, "diarization.schema.json")
        voices = self.folder / "voices.json"
        subprocess.run([PARLEY, "voices", "add", "Ann", AUDIO, "--speaker", "1", "--voices", voices], check=True, stdout=subprocess.DEVNULL)
        check(json.loads(voices.read_text()), "voices.schema.json")
        named = subprocess.run([PARLEY, "-f", "json", "--voices", voices, AUDIO], check=True, stdout=subprocess.PIPE).stdout
        check(json.loads(named), "diarization.schema.json")
        columns = json.loads((SCHEMAS / "segments.csv-metadata.json").read_text())["tableSchema"]["columns"]
        with open(self.file(".csv"), newline="") as file:
            self.assertEqual(next(csv.reader(file)), [c["name"] for c in columns])

    def test_csv(self):
        with open(self.file(".csv"), newline="") as file:
            self.assert_same([(float(r["start"]), float(r["end"]), r["speaker"]) for r in csv.DictReader(file)])

    @unittest.skipUnless(webvtt, "python3-webvtt and python3-srt are not installed")
    def test_captions(self):
        seconds = lambda t: sum(float(p) * f for p, f in zip(t.split(":"), (3600, 60, 1)))
        import html
        self.assert_same([(seconds(c.start), seconds(c.end), html.unescape(c.text)) for c in webvtt.read(self.file(".vtt"))])
        with open(self.file(".srt")) as file:
            self.assert_same([(c.start.total_seconds(), c.end.total_seconds(), c.content) for c in srt.parse(file)])

    def test_labels(self):
        rows = [line.split("\t") for line in self.file(".labels.txt").read_text().splitlines()]
        self.assert_same([(float(a), float(b), name) for a, b, name in rows])

    @unittest.skipUnless(shutil.which("praat"), "praat is not installed")
    def test_textgrid_in_praat(self):
        script = self.folder / "read.praat"
        script.write_text(f'''Read from file: "{self.file(".TextGrid")}"
tiers = Get number of tiers
for t to tiers
    name$ = Get tier name: t
    n = Get number of intervals: t
    for i to n
        text$ = Get label of interval: t, i
        if text$ <> ""
            a = Get start time of interval: t, i
            b = Get end time of interval: t, i
            writeInfo: ""
            appendFileLine: "{self.folder}/praat.txt", a, tab$, b, tab$, name$
        endif
    endfor
endfor
''')
        subprocess.run(["praat", "--run", script], check=True, stdout=subprocess.DEVNULL)
        rows = [line.split("\t") for line in (self.folder / "praat.txt").read_text().splitlines()]
        self.assert_same([(float(a), float(b), name) for a, b, name in rows])

    def test_what_is_longer_than_the_terminal_goes_through_the_pager(self):
        def shown(lines, pager):
            process, terminal = pty.fork()
            if process == 0:
                fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("HHHH", lines, 80, 0, 0))
                os.environ.update(PAGER=pager, NO_COLOR="1")
                os.execv(PARLEY, [PARLEY, "-q", AUDIO])
            text = b""
            with contextlib.suppress(OSError):  # the end of a terminal
                while part := os.read(terminal, 4096):
                    text += part
            self.assertEqual(os.waitpid(process, 0)[1], 0)
            os.close(terminal)
            return text.decode().replace("\r\n", "\n").splitlines()

        plain = shown(50, "sed s/^/paged:/")
        self.assertGreater(len(plain), 10)
        self.assertEqual(shown(10, ""), plain)
        self.assertEqual(shown(10, "sed s/^/paged:/"), ["paged:" + line for line in plain])
        self.assertEqual(shown(10, "no-such-pager 2>/dev/null"), plain)

    def test_eaf_is_the_xml_that_elan_reads(self):
        root = xml.parse(self.file(".eaf")).getroot()
        slots = [(s.get("TIME_SLOT_ID"), int(s.get("TIME_VALUE"))) for s in root.iter("TIME_SLOT")]
        self.assertEqual([v for _, v in slots], sorted(v for _, v in slots))
        at = dict(slots)
        types = {t.get("LINGUISTIC_TYPE_ID") for t in root.iter("LINGUISTIC_TYPE")}
        found = []
        for tier in root.iter("TIER"):
            self.assertIn(tier.get("LINGUISTIC_TYPE_REF"), types)
            for a in tier.iter("ALIGNABLE_ANNOTATION"):
                found.append((at[a.get("TIME_SLOT_REF1")] / 1000, at[a.get("TIME_SLOT_REF2")] / 1000, tier.get("TIER_ID")))
        self.assert_same(found)
        media = root.find("HEADER/MEDIA_DESCRIPTOR")
        self.assertEqual(media.get("MEDIA_URL"), Path(AUDIO).resolve().as_uri())
        self.assertEqual(media.get("MIME_TYPE"), "audio/wav")
        relative = unquote(media.get("RELATIVE_MEDIA_URL"))
        self.assertTrue(relative.startswith("."))
        self.assertEqual((self.folder / relative).resolve(), Path(AUDIO).resolve())
        datetime.datetime.fromisoformat(root.get("DATE"))

    def test_nist_files(self):
        nist = lambda name: "_".join(name.split())
        expected = sorted((a, b, nist(name)) for a, b, name in self.expected)
        for extension, column in ((".rttm", 7), (".ctm", 4)):
            start = 3 if extension == ".rttm" else 2
            rows = [line.split() for line in self.file(extension).read_text().splitlines()]
            found = sorted((float(r[start]), float(r[start]) + float(r[start + 1]), r[column]) for r in rows)
            for (a, b, who), (c, d, name) in zip(found, expected):
                self.assertEqual((round(a, 2), round(b, 2), who), (round(c, 2), round(d, 2), name))
        name, channel, start, end = self.file(".uem").read_text().split()
        self.assertEqual((float(start), float(end)), (0, self.json["duration"]))

    @unittest.skipUnless(Image and "png" in FORMATS, "python3-pil is not installed, or no cairo")
    def test_pictures(self):
        picture = Image.open(self.file(".png")).convert("RGB")
        colours = {c for _, c in picture.getcolors(1 << 20)}
        self.assertLessEqual({(0, 0x72, 0xB2), (0xE6, 0x9F, 0)}, colours)
        svg = xml.parse(self.file(".svg")).getroot()
        self.assertTrue(svg.tag.endswith("svg"))


class Transcripts(unittest.TestCase):
    """Words in documents and subtitles, each read by what is not ours."""

    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.held.name)
        words = [{"start": t / 3, "end": t / 3 + 0.3, "word": f"w{t}<&>" + ("." if t % 7 == 6 else "")} for t in range(3, 200)]
        cls.words = [w["word"] for w in words]
        (cls.folder / "words.json").write_text(json.dumps(words))
        for name in ("text", "docx", "odt", "tei", "srt", "vtt"):
            subprocess.run([PARLEY, "assign", "--words", cls.folder / "words.json", "-f", name, "-o", cls.folder / f"t.{name}", "--names",
                            'Ann "A" <b>,Bob', AUDIO], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.held.cleanup()

    def test_documents_are_archives_of_xml_with_all_words(self):
        for name, part in (("docx", "word/document.xml"), ("odt", "content.xml")):
            with zipfile.ZipFile(self.folder / f"t.{name}") as archive:
                self.assertIsNone(archive.testzip())
                for inner in archive.namelist():
                    if inner != "mimetype":
                        xml.fromstring(archive.read(inner))
                said = " ".join(xml.fromstring(archive.read(part)).itertext())
            self.assertEqual([w for w in said.split() if w.startswith("w")], self.words, name)
            self.assertIn('Ann "A" <b>', said)

    def test_tei_is_xml_with_all_words_tied_to_times(self):
        root = xml.parse(self.folder / "t.tei").getroot()
        space = "{http://www.tei-c.org/ns/1.0}"
        self.assertEqual([w.text for w in root.iter(space + "w")], self.words)
        points = {p.get("{http://www.w3.org/XML/1998/namespace}id") for p in root.iter(space + "when")}
        self.assertTrue(all(a.get("synch")[1:] in points for a in root.iter(space + "anchor")))

    @unittest.skipUnless(srt and webvtt, "python3-srt and python3-webvtt are not installed")
    def test_subtitles_hold_all_words_within_the_limits(self):
        found = list(srt.parse((self.folder / "t.srt").read_text()))
        self.assertEqual([w for c in found for w in c.content.split() if w.startswith("w")], self.words)
        self.assertTrue(all(len(line) <= 42 for c in found for line in c.content.splitlines()))
        captions = webvtt.read(self.folder / "t.vtt").captions
        self.assertEqual(len([w for c in captions for w in c.text.split() if w.startswith("w")]), len(self.words))
        self.assertTrue(all(len(c.lines) <= 2 for c in captions))

    @unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
    def test_ffmpeg_reads_as_many_subtitles(self):
        for name in ("srt", "vtt"):
            packets = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "packet=pts", "-of", "csv", self.folder / f"t.{name}"],
                                     check=True, capture_output=True, text=True).stdout.split()
            self.assertEqual(len(packets), (self.folder / f"t.{name}").read_text().count("-->"), name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
