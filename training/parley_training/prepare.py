# SPDX-License-Identifier: Apache-2.0
"""Turns folders of speech into one table of features: what simulation draws from."""

import argparse
import json
import multiprocessing
import subprocess
import sys
import tempfile
import zlib
from pathlib import Path

import numpy as np

from . import native
from .recordings import AUDIO

ROWS_PER_SECOND = native.RATE / native.HOP
SILENT = 1e-12  # energies below are as good as none
# Low-rate codecs as calls and recorders use them: the rate in Hz at which they run, and ffmpeg's encoder, container, settings.
CODECS = {
    "mulaw": (8000, "pcm_mulaw", "wav", ""),
    "gsm": (8000, "libgsm", "gsm", ""),
    "speex": (8000, "libspeex", "ogg", "-compression_level 3"),  # a CELP coder, as those of mobile telephones are
    "opus": (16000, "libopus", "ogg", "-b:a 12k -application voip"),
    "mp3": (16000, "libmp3lame", "mp3", "-b:a 32k"),
    "g722": (16000, "g722", "wav", ""),
}
CODED_LONGEST = 40  # seconds of a speaker that go through a codec
SHORTEST = 3  # seconds of sound without which a speaker is left out


def find_speakers(corpus):
    """{(dataset, speaker): [files]} below dataset/speaker/**; datasets whose names begin with "_" hold background.

    Deeper folders (speaker/chapter/, speaker/video/) belong to the speaker, so LibriSpeech and VoxCeleb can be taken as
    they are, each as a dataset."""
    found = {}
    for dataset in sorted(p for p in Path(corpus).iterdir() if p.is_dir()):
        if dataset.name.startswith("_"):
            files = sorted(f for f in dataset.rglob("*") if f.suffix.lower() in AUDIO)
            if files:
                found[dataset.name, ""] = files
            continue
        for speaker in sorted(p for p in dataset.iterdir() if p.is_dir()):
            files = sorted(f for f in speaker.rglob("*") if f.suffix.lower() in AUDIO)
            if files:
                found[dataset.name, speaker.name] = files
    return found


def flip_short_runs(mask, value, shortest, at_the_edges):
    """Inverts runs of `value` shorter than `shortest`."""
    mask = mask.copy()
    edges = np.flatnonzero(np.diff(mask.astype(np.int8))) + 1
    bounds = np.concatenate([[0], edges, [len(mask)]])
    for start, end in zip(bounds[:-1], bounds[1:]):
        inside = start > 0 and end < len(mask)
        if mask[start] == value and end - start < shortest and (inside or at_the_edges):
            mask[start:end] = not value
    return mask


def speech_activity(rows):
    """Which rows of a recording of one speaker in quiet hold speech: by energy, against the loudest and quietest parts.

    Runs of speech under 80 ms and gaps under 304 ms are evened out, as references of conversations do."""
    if len(rows) == 0:
        return np.zeros(0, bool)
    energy = (10.0 ** (rows.astype(np.float32) / 1024)).sum(1)
    level = np.convolve(10 * np.log10(energy + SILENT), np.ones(3) / 3, "same")  # dB
    loud, quiet = np.percentile(level, 95), np.percentile(level, 5)
    active = level > max(loud - 32, min(quiet + 8, loud - 15))
    return flip_short_runs(flip_short_runs(active, True, 5, True), False, 19, False)


def through_codec(samples, codec):
    """Samples as they come out of one of CODECS and our own readers, of the same length."""
    rate, encoder, container, settings = CODECS[codec]
    raw = ["-f", "s16le", "-ar", str(native.RATE), "-ac", "1"]
    with tempfile.TemporaryDirectory() as folder:
        coded, decoded = f"{folder}/coded", f"{folder}/decoded.wav"

        def ffmpeg(*arguments):
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *arguments], input=samples.tobytes(), check=True)

        ffmpeg(*raw, "-i", "-", "-c:a", encoder, "-ar", str(rate), *settings.split(), "-f", container, coded)
        ffmpeg("-i", coded, "-ar", str(rate), "-ac", "1", "-c:a", "pcm_s16le", decoded)
        back = native.read_audio(decoded)
    return np.pad(back, (0, max(0, len(samples) - len(back))))[:len(samples)]


def coded_clips(clips, codec, longest):
    """The clips, as far as `longest` seconds of them, through a codec in one go."""
    taken = []
    for clip in clips:
        left = longest * native.RATE - sum(map(len, taken))
        if left < native.RATE // 2:
            break
        taken.append(clip[:left])
    joined = through_codec(np.concatenate(taken), codec)
    return np.split(joined, np.cumsum([len(t) for t in taken])[:-1])


def spectrum(rows, activity):
    """The mean energy of every band over the speech of a voice: log10, its own mean over the bands taken off."""
    energy = (10.0 ** (rows[activity].astype(np.float32) / 1024)).mean(0) if activity.any() else np.ones(native.BANDS)
    level = np.log10(energy + SILENT)
    return level - level.mean()


def speaker_tables(job):
    """[(entry of the index but for its start, rows, activity)] of one speaker, one for every speed and codec."""
    (dataset, speaker), files, speeds, longest, coded = job
    background = dataset.startswith("_")
    tables = []
    clips = []
    total = 0
    for path in files:
        try:
            samples = native.read_audio(path)
        except native.EngineError as error:
            print(f"left out: {error}", file=sys.stderr)
            continue
        if len(samples) < native.RATE // 2:
            continue
        clips.append(samples)
        total += len(samples)
        if not background and total > longest * native.RATE:
            break
    if not clips or (not background and total < SHORTEST * native.RATE):
        return []

    def add(speed, codec, heard):
        rows = [np.maximum(native.features(clip), -32767) for clip in heard]
        activity = np.concatenate([speech_activity(r) for r in rows])
        lengths = [len(r) for r in rows]
        rows = np.concatenate(rows)
        entry = dict(dataset=dataset, speaker=speaker, speed=speed, codec=codec, lengths=lengths,
                     spectrum=np.round(spectrum(rows, activity), 4).tolist())
        tables.append((entry, rows, activity))

    for speed in [1.0] if background else speeds:
        heard = [c if speed == 1 else native.change_speed(c, speed) for c in clips]
        add(speed, "", heard)
        draw = zlib.crc32(f"{dataset}/{speaker}/{speed}".encode())  # the same in every run
        if background and coded > 0:
            for codec in CODECS:
                add(speed, codec, coded_clips(heard, codec, 60 * len(heard)))
        elif draw % 1000 < 1000 * coded:
            codec = sorted(CODECS)[draw // 1000 % len(CODECS)]
            add(speed, codec, coded_clips(heard, codec, CODED_LONGEST))
    return tables


def prepare(corpora, out, speeds, longest, coded, skip, workers):
    """Writes rows.raw (N, 40) int16, activity.npy (N,) bool and index.json below `out`."""
    jobs = [(key, files, speeds, longest, coded) for corpus in corpora for key, files in find_speakers(corpus).items()
            if key[0] not in skip]
    out = Path(out)
    out.mkdir(parents=True, exist_ok=True)
    index, activity, count = [], [], 0
    with open(out / "rows.part", "wb") as sink, multiprocessing.Pool(workers) as pool:
        for done, tables in enumerate(pool.imap(speaker_tables, jobs, chunksize=4), 1):
            for entry, rows, active in tables:
                rows.tofile(sink)
                activity.append(active)
                index.append(dict(entry, start=count))
                count += len(rows)
            if sys.stderr.isatty() or done % 100 == 0 or done == len(jobs):
                print(f"\r{done}/{len(jobs)} speakers, {count / ROWS_PER_SECOND / 3600:.1f} h", end="", file=sys.stderr)
    print(file=sys.stderr)
    np.save(out / "activity.npy", np.concatenate(activity))
    (out / "rows.part").rename(out / "rows.raw")
    (out / "index.json").write_text(json.dumps(index))
    return index


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("corpora", nargs="+", help="folders of dataset/speaker/**/*.{flac,opus,wav,...}")
    parser.add_argument("--out", required=True, help="folder for the features")
    parser.add_argument("--speeds", type=float, nargs="*", default=[0.88, 1.0, 1.13],
                        help="each speed makes another speaker of every speaker")
    parser.add_argument("--longest", type=float, default=400, help="seconds of a speaker that are used")
    parser.add_argument("--coded", type=float, default=0.0, metavar="SHARE",
                        help="of the voices are there a second time through a low-rate codec, and all background "
                             "(needs ffmpeg; three times as slow)")
    parser.add_argument("--skip", nargs="*", default=[], help="datasets to leave out")
    parser.add_argument("--workers", type=int, default=multiprocessing.cpu_count())
    options = parser.parse_args()
    index = prepare(options.corpora, options.out, options.speeds, options.longest, options.coded, options.skip,
                    options.workers)
    people = {(e["dataset"], e["speaker"]) for e in index if not e["dataset"].startswith("_")}
    print(f"{len(people)} speakers, {len(index)} with their speeds, in {options.out}")


if __name__ == "__main__":
    main()
