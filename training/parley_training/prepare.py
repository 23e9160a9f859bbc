"""Turns folders of speech into one table of features: what simulation draws from."""

import argparse
import json
import multiprocessing
import subprocess
import sys
import zlib
from pathlib import Path

import numpy as np

from . import native

AUDIO = {".wav", ".flac", ".opus", ".ogg", ".mp3", ".m4a", ".mp4", ".3gp", ".webm"}
ROWS_PER_SECOND = native.RATE / native.HOP
SILENT = 1e-12  # energies below are as good as none
# ffmpeg's encoder, container and settings of low-rate codecs, as calls and old recorders use them.
CODECS = [
    ("libgsm", "gsm", "-ar 8000"),
    ("libopus", "ogg", "-b:a 9k -application voip"),
    ("libmp3lame", "mp3", "-b:a 24k"),
    ("g722", "wav", ""),
    ("pcm_mulaw", "wav", "-ar 8000"),
]
SHORTEST = 4  # seconds of speech without which a speaker is left out


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
    """Samples as they come out of one of CODECS, of the same length."""
    encoder, container, settings = codec
    raw = ["-f", "s16le", "-ar", str(native.RATE), "-ac", "1"]

    def ffmpeg(arguments, data):
        command = ["ffmpeg", "-nostdin", "-v", "error", *arguments, "-"]
        return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout

    coded = ffmpeg([*raw, "-i", "-", "-c:a", encoder, *settings.split(), "-f", container], samples.tobytes())
    back = np.frombuffer(ffmpeg(["-i", "-", *raw], coded), np.int16)
    return np.pad(back, (0, max(0, len(samples) - len(back))))[:len(samples)]


def speaker_tables(job):
    """[(dataset, speaker, speed, rows, activity, lengths of its clips)] of one speaker, an entry for every speed."""
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
    for speed in [1.0] if background else speeds:
        heard = [c if speed == 1 else native.change_speed(c, speed) for c in clips]
        for i, clip in enumerate(heard):
            draw = zlib.crc32(f"{dataset}/{speaker}/{i}/{speed}".encode())  # the same in every run
            if not background and draw % 1000 < 1000 * coded:
                heard[i] = through_codec(clip, CODECS[draw // 1000 % len(CODECS)])
        rows = [native.features(clip) for clip in heard]
        rows = [np.maximum(r, -32767) for r in rows]
        activity = [speech_activity(r) for r in rows]
        tables.append((dataset, speaker, speed, np.concatenate(rows), np.concatenate(activity), [len(r) for r in rows]))
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
            for dataset, speaker, speed, rows, active, lengths in tables:
                rows.tofile(sink)
                activity.append(active)
                index.append(dict(dataset=dataset, speaker=speaker, speed=speed, start=count, lengths=lengths))
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
    parser.add_argument("--speeds", type=float, nargs="*", default=[0.84, 0.92, 1.0, 1.09, 1.19],
                        help="each speed makes another speaker of every speaker")
    parser.add_argument("--longest", type=float, default=400, help="seconds of a speaker that are used")
    parser.add_argument("--coded", type=float, default=0.0, metavar="SHARE",
                        help="of the clips go through a low-rate codec first (needs ffmpeg; ten times as slow)")
    parser.add_argument("--skip", nargs="*", default=[], help="datasets to leave out")
    parser.add_argument("--workers", type=int, default=multiprocessing.cpu_count())
    options = parser.parse_args()
    index = prepare(options.corpora, options.out, options.speeds, options.longest, options.coded, options.skip,
                    options.workers)
    people = {(e["dataset"], e["speaker"]) for e in index if not e["dataset"].startswith("_")}
    print(f"{len(people)} speakers, {len(index)} with their speeds, in {options.out}")


if __name__ == "__main__":
    main()
