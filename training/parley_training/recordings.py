# SPDX-License-Identifier: Apache-2.0
"""Recordings with references: audio files, each with an RTTM file of the same name beside it."""

import multiprocessing
import re
import unicodedata
from pathlib import Path

import numpy as np

from . import native

AUDIO = {".wav", ".flac", ".opus", ".ogg", ".mp3", ".m4a", ".mp4", ".3gp", ".webm"}
PERSON = re.compile(r"lsto_\d+$|so_SPEAKER\d+$|[FM][EI][DEO]\d{3}$")  # as corpora name people: read speech, meetings
SPEEDS = (0.92, 1.0, 1.09)  # at which a real conversation is heard in training


def _speaker_lines(path):
    """Fields of the lines that say who speaks."""
    return [fields for fields in map(str.split, Path(path).read_text().splitlines()) if fields and fields[0] == "SPEAKER"]


def read_rttm(path):
    """(times float64 (n, 2), speakers int32 (n,), from 1 on) of a file about one recording."""
    times, speakers, names = [], [], {}
    for fields in _speaker_lines(path):
        start = float(fields[3])
        times.append((start, start + float(fields[4])))
        speakers.append(names.setdefault(fields[7], len(names) + 1))
    return np.array(times, np.float64).reshape(-1, 2), np.array(speakers, np.int32)


def people_of(path, recording):
    """Who the speakers of read_rttm are, from 1 on: the same text for the same person. Corpora name people; other names, such as
    "A" and "speaker1", mean somebody in that recording alone."""
    names = {}
    for fields in _speaker_lines(path):
        name = "".join(c for c in unicodedata.normalize("NFD", fields[7]) if not unicodedata.combining(c))
        names.setdefault(fields[7], name if PERSON.match(name) else f"{recording} {name}")
    return list(names.values())


def find(folders, without=(), only=None):
    """[(name, audio, reference)] below `folders`, but for some names or for all but some."""
    found = []
    for folder in folders:
        for audio in sorted(Path(folder).iterdir()):
            reference = audio.with_suffix(".rttm")
            if (audio.suffix.lower() in AUDIO and reference.exists() and audio.stem not in without
                    and (only is None or audio.stem in only)):
                found.append((audio.stem, audio, reference))
    return found


def features_of(audio, speed=1.0):
    """Band energies of a recording, played at a speed."""
    samples = native.read_audio(audio)
    return native.features(samples if speed == 1 else native.change_speed(samples, speed))


def labelled_rows(audio, reference, speed=1.0):
    """Band energies of a recording, the speaker of every row (-1 none; the last to begin where several speak), and where
    several speak."""
    rows = features_of(audio, speed)
    times, speakers = read_rttm(reference)
    label, count = np.full(len(rows), -1), np.zeros(len(rows), int)
    for order in np.argsort(times[:, 0], kind="stable"):
        a, b = (np.round(times[order] / speed * native.RATE / native.HOP)).astype(int)
        label[a:b] = speakers[order] - 1
        count[a:b] += 1
    return rows, label, count > 1


def add_arguments(parser, model):
    """What every step that hears recordings with references is told: `model` says what of the model file it takes as it is."""
    parser.add_argument("model", help=f"the .zx file{model}")
    parser.add_argument("folders", nargs="+", help="folders of recordings, each with an RTTM file of the same name beside it")
    parser.add_argument("--changed", nargs="*", default=[], metavar="FOLDER", help="the same of changed recordings")
    parser.add_argument("--without", nargs="*", default=[], metavar="NAME", help="recordings to leave out")
    parser.add_argument("--domains", default=native.ROOT / "training/domains.tsv", help="pattern of a name, domain, real|simulated")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--workers", type=int, default=multiprocessing.cpu_count())


def find_versions(options):
    """(change or "", name, audio, reference) of all recordings that `options` name, those that are as they are first."""
    for version, folder in [("", f) for f in options.folders] + [(Path(f).name, f) for f in options.changed]:
        for name, audio, reference in find([folder], options.without):
            yield version, name, audio, reference
