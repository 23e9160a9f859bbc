"""Recordings with references: audio files, each with an RTTM file of the same name beside it."""

from pathlib import Path

import numpy as np

from . import native

AUDIO = {".wav", ".flac", ".opus", ".ogg", ".mp3", ".m4a", ".mp4", ".3gp", ".webm"}
SPEEDS = (0.92, 1.0, 1.09)  # at which a real conversation is heard in training


def read_rttm(path):
    """(times float64 (n, 2), speakers int32 (n,), from 1 on) of a file about one recording."""
    times, speakers, names = [], [], {}
    for line in Path(path).read_text().splitlines():
        fields = line.split()
        if fields and fields[0] == "SPEAKER":
            start = float(fields[3])
            times.append((start, start + float(fields[4])))
            speakers.append(names.setdefault(fields[7], len(names) + 1))
    return np.array(times, np.float64).reshape(-1, 2), np.array(speakers, np.int32)


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


def labelled_rows(audio, reference, speed=1.0):
    """Band energies of a recording, the speaker of every row (-1 none; the last to begin where several speak), and where
    several speak."""
    samples = native.read_audio(audio)
    rows = native.features(samples if speed == 1 else native.change_speed(samples, speed))
    times, speakers = read_rttm(reference)
    label, count = np.full(len(rows), -1), np.zeros(len(rows), int)
    for order in np.argsort(times[:, 0], kind="stable"):
        a, b = (np.round(times[order] / speed * native.RATE / native.HOP)).astype(int)
        label[a:b] = speakers[order] - 1
        count[a:b] += 1
    return rows, label, count > 1
