"""Chooses a model's four clustering thresholds and its chunk lengths by the errors that they make on recordings with references.

The network runs once for each pair of lengths; a set of thresholds then costs the clustering alone. Thresholds are searched
at random and refined around the best; what counts is the mean over small shifts of them, so that a lucky point on a few
recordings does not win."""

import argparse
import multiprocessing
import struct
from pathlib import Path

import numpy as np

from . import native
from .prepare import AUDIO

COLLAR = 0.25  # seconds to either side; overlaps are scored
COLLARS = (COLLAR, 0.0)  # whose DER is averaged: who speaks counts most, when is to be right too
SHIFT = 0.012  # of a threshold
RANGES = np.array([(0.05, 0.45), (0.05, 0.6), (0.05, 0.45), (0.05, 0.5)])  # offline, prune, segment, background


def read_rttm(path):
    """(times float64 (n, 2), speakers int32 (n,)) of a file about one recording."""
    times, speakers, names = [], [], {}
    for line in Path(path).read_text().splitlines():
        fields = line.split()
        if fields and fields[0] == "SPEAKER":
            start = float(fields[3])
            times.append((start, start + float(fields[4])))
            speakers.append(names.setdefault(fields[7], len(names) + 1))
    return np.array(times, np.float64).reshape(-1, 2), np.array(speakers, np.int32)


def find_recordings(folders, without=()):
    """[(name, audio, reference)]: audio files that have an RTTM file of the same name beside them, but for some names."""
    found = []
    for folder in folders:
        for audio in sorted(Path(folder).iterdir()):
            if audio.suffix.lower() in AUDIO and audio.with_suffix(".rttm").exists() and audio.stem not in without:
                found.append((audio.stem, audio, audio.with_suffix(".rttm")))
    return found


class Recordings:
    """Features and references of recordings, and their embeddings by a model at some chunk lengths."""

    def __init__(self, folders, without=()):
        self.names, self.rows, self.references = [], [], []
        for name, audio, reference in find_recordings(folders, without):
            self.names.append(name)
            self.rows.append(native.features(native.read_audio(audio)))
            self.references.append(read_rttm(reference))
        if not self.names:
            raise SystemExit("no recordings with references there")

    def embed(self, engine, chunk, warmup):
        engine.set_chunks(chunk, warmup)
        self.embeddings = [engine.embed(rows) for rows in self.rows]

    def errors(self, engine, thresholds, collar=COLLAR):
        """Per recording: seconds of speech, missed, false alarm, confusion; speakers there, speakers found."""
        return np.array([native.score(reference, engine.segments(embeddings, thresholds), collar)
                         for embeddings, reference in zip(self.embeddings, self.references)])


def der(errors):
    return errors[:, 1:4].sum() / errors[:, 0].sum()


def counted_right(errors):
    """Share of the recordings with 2 to 4 speakers in which as many were found."""
    some = (errors[:, 4] >= 2) & (errors[:, 4] <= 4)
    return (errors[some, 4] == errors[some, 5]).mean() if some.any() else 1.0


def cost(recordings, engine, thresholds, count_weight):
    errors = [recordings.errors(engine, thresholds, collar) for collar in COLLARS]
    return np.mean([der(e) for e in errors]) + count_weight * (1 - counted_right(errors[0]))


def steady_cost(recordings, engine, thresholds, count_weight, rng):
    shifts = rng.normal(0, SHIFT, (6, 4))
    return np.mean([cost(recordings, engine, np.clip(thresholds + s, 0.01, 0.9), count_weight) for s in [0, *shifts]])


def search(job):
    """Best (cost, thresholds) for one pair of lengths."""
    model, folders, without, count_weight, (chunk, warmup), trials, seed = job
    rng = np.random.default_rng(seed)
    with native.Engine(model) as engine:
        recordings = Recordings(folders, without)
        recordings.embed(engine, chunk, warmup)
        tried = []
        for trial in range(trials):
            if trial < trials // 3 or not tried:
                candidate = rng.uniform(*RANGES.T)
            else:
                around = min(tried, key=lambda t: t[0])[1]
                candidate = np.clip(around + rng.normal(0, 0.06 * (1 - trial / trials) + 0.008, 4), 0.01, 0.9)
            tried.append((cost(recordings, engine, candidate, count_weight), candidate))
        tried.sort(key=lambda t: t[0])
        return min(((steady_cost(recordings, engine, c, count_weight, rng), c) for _, c in tried[:20]), key=lambda t: t[0])


def read_tunables(model):
    """(offset of the chunk lengths, offset of the thresholds) in a model file, found from its end."""
    data = Path(model).read_bytes()
    with native.Engine(model) as engine:
        thresholds = len(data) - 4 * engine.dimension - 4 - 16
    return thresholds - 8, thresholds


def write_tunables(model, out, lengths, thresholds):
    at, _ = read_tunables(model)
    data = bytearray(Path(model).read_bytes())
    struct.pack_into("<2i4f", data, at, *lengths, *thresholds)
    Path(out).write_bytes(data)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("model", help="the .zx file")
    parser.add_argument("folders", nargs="+", help="folders of recordings, each with an RTTM file of the same name beside it")
    parser.add_argument("--out", help="where the tuned model goes; otherwise only the table is printed")
    parser.add_argument("--without", nargs="*", default=[], metavar="NAME", help="recordings to leave out")
    parser.add_argument("--count-weight", type=float, default=0.05,
                        help="what a wrong number of speakers in all recordings would cost, in DER (1 is 100 %%)")
    parser.add_argument("--lengths", nargs="*", default=["640/80"], metavar="CHUNK/WARMUP", help="frames to try")
    parser.add_argument("--trials", type=int, default=400)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--workers", type=int, default=multiprocessing.cpu_count())
    parser.add_argument("--each", action="store_true", help="print every recording")
    options = parser.parse_args()
    lengths = [tuple(map(int, pair.split("/"))) for pair in options.lengths]
    jobs = [(options.model, options.folders, options.without, options.count_weight, pair, options.trials, options.seed)
            for pair in lengths]
    with multiprocessing.Pool(min(options.workers, len(jobs))) as pool:
        results = list(zip(pool.map(search, jobs, chunksize=1), lengths))
    recordings = Recordings(options.folders, options.without)
    with native.Engine(options.model) as engine:
        for (value, thresholds), pair in results:
            recordings.embed(engine, *pair)
            errors, strict = (recordings.errors(engine, thresholds, collar) for collar in (COLLAR, 0.0))
            missed, false_alarm, confusion = 100 * errors[:, 1:4].sum(0) / errors[:, 0].sum()
            print(f"{pair[0]}/{pair[1]}: cost {value:.4f}, DER {100 * der(errors):.2f} % (missed {missed:.2f}, false alarm "
                  f"{false_alarm:.2f}, confusion {confusion:.2f}; collar 0.25 s, overlaps scored), {100 * der(strict):.2f} % "
                  f"(collar 0), counted right {100 * counted_right(errors):.0f} % of those with 2 to 4 speakers; thresholds "
                  + " ".join(f"{t:.4f}" for t in thresholds))
            if options.each:
                for name, e in zip(recordings.names, errors):
                    print(f"  {name:16s} DER {100 * der(e[None]):5.1f} %  missed {100 * e[1] / e[0]:5.1f}  false alarm "
                          f"{100 * e[2] / e[0]:5.1f}  confusion {100 * e[3] / e[0]:5.1f}  speakers {e[5]:.0f}/{e[4]:.0f}")
    (_, thresholds), pair = min(results, key=lambda r: r[0][0])
    if options.out:
        write_tunables(options.model, options.out, pair, thresholds)
        print(f"{options.out}: {pair[0]}/{pair[1]}")


if __name__ == "__main__":
    main()
