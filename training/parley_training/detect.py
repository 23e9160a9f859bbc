# SPDX-License-Identifier: Apache-2.0
"""Trains what detects speech: a network with one hidden layer on means of the embeddings around a frame, for music, noise, animals
and machines that last for seconds. Pauses and borders are not its duty.

Speech comes from recordings with references (as they are and changed) and from conversations out of a corpus, the rest from
these, too, and from the corpus's background (datasets whose names begin with `_`), at all levels and through all codecs. The
figures to believe are those of what was left out: each domain of recordings (domains.tsv), and a part of the background."""

import argparse
import dataclasses
import multiprocessing
import zlib
from pathlib import Path

import numpy as np
import torch
from torch import nn

from . import model_file, native, recordings, simulate, tune

SECONDS = native.HOP * 2 / native.RATE  # a frame
CONTEXTS = (9, 47, 157, 301)  # frames: 0.3, 1.5, 5 and 9.6 s
UNITS = 32
NEAR = 16  # frames: what is nearer to speech than that does not count
STEPS, BATCH, RATE = 900, 4096, 5e-3
LEVELS = (-30, 3)  # dB


@dataclasses.dataclass
class Case:
    name: str
    kind: str  # a dataset of background, a domain of recordings, or "corpus"
    version: str
    embeddings: np.ndarray
    label: np.ndarray  # int8 (frames,): 1 speech, 0 none, -1 does not count
    reference: tuple = None

    def weight(self):
        return 0.35 if self.kind == "corpus" or self.version else 1.0


def labels_of(reference, frames):
    label = np.zeros(frames, np.int8)
    for start, end in reference[0]:
        label[int(round(start / SECONDS)):int(round(end / SECONDS))] = 1
    return label


def without_pauses(label):
    """The same where frames near to speech do not count as none."""
    near = np.convolve(label == 1, np.ones(2 * NEAR + 1), "same") > 0.5
    return np.where((label == 0) & near, -1, label).astype(np.int8)


def background_clips(speech):
    """(dataset, name, rows) of clips of background, a sixth of the coded ones."""
    for dataset, codec, clips in speech.background_datasets:
        for number, (start, end) in enumerate(clips):
            name = f"{dataset} {number} {codec}".rstrip()
            if not codec or zlib.crc32(name.encode()) % 6 == 0:
                yield dataset, name, np.array(speech.rows[start:end])


def cases_of(options, worker):
    """Embeddings and labels of every `options.workers`-th recording."""
    domains = tune.read_domains(options.domains)
    speech = simulate.Speech(options.features, options.skip)
    with native.Engine(options.model) as engine:
        def case(name, kind, version, rows, label, reference=None):
            embeddings = engine.embed(rows)
            return Case(name, kind, version, embeddings, without_pauses(label[:len(embeddings)]), reference)

        found = []
        for number, (version, name, audio, path) in enumerate(recordings.find_versions(options), 1):
            if number % options.workers == worker:
                rows, reference = recordings.features_of(audio), recordings.read_rttm(path)
                found.append(case(name, tune.domain_of(name, domains)[0], version, rows,
                                  labels_of(reference, len(rows) // 2), reference))
        for i in range(worker, options.simulated, options.workers):
            rng = np.random.default_rng([options.seed, 1, i])
            recipe = dataclasses.replace(simulate.Recipe(), nobody=0.05, few_words=0.3)
            x, who, _, doubtful, active, _ = simulate.mixed_conversation(
                speech, simulate.seconds(90) // 2 * 2, int(rng.choice([1, 2, 3, 4, 6])), recipe, rng)
            active = active.any(1)
            label = np.where(doubtful | (active & (who < 0)), -1, active.astype(np.int8))
            label = np.where(label[0::2] == label[1::2], label[0::2], -1)
            rows = np.clip(np.round(1024 * x), -32768, 32767).astype(np.int16)
            found.append(case(f"simulated {i}", "corpus", "", rows, label))
        for number, (dataset, name, rows) in enumerate(background_clips(speech)):
            if number % options.workers == worker:
                rng = np.random.default_rng([options.seed, 2, number])
                level = 0 if rng.random() < 0.5 else int(102.4 * rng.uniform(*LEVELS))
                rows = np.clip(rows.astype(np.int32) + level, -32768, 32767).astype(np.int16)
                found.append(case(name, dataset, "", rows, np.zeros(len(rows) // 2, np.int8)))
    return found


def _work(job):
    return cases_of(*job)


def inputs_of(embeddings):
    """Means of the frames around each: float32 (frames, contexts x dimension)."""
    sums = np.concatenate([np.zeros((1, embeddings.shape[1])), np.cumsum(embeddings, 0, np.float64)])
    at = np.arange(len(embeddings))
    means = []
    for context in CONTEXTS:
        first, end = np.maximum(at - context // 2, 0), np.minimum(at + context // 2 + 1, len(at))
        means.append((sums[end] - sums[first]) / (end - first)[:, None])
    return np.concatenate(means, 1).astype(np.float32)


def fit(cases, seed=0):
    """Weights (units, inputs), biases, output weights, output bias."""
    torch.manual_seed(seed)
    inputs, labels, weights = [], [], []
    for case in cases:
        step = 6 if case.kind == "corpus" else 3
        counts = case.label[::step] >= 0
        inputs.append(inputs_of(case.embeddings)[::step][counts])
        labels.append(case.label[::step][counts])
        weights.append(np.full(counts.sum(), case.weight(), np.float32))
    x, y, w = (torch.from_numpy(np.concatenate(a)) for a in (inputs, labels, weights))
    network = nn.Sequential(nn.Linear(x.shape[1], UNITS), nn.ReLU(), nn.Linear(UNITS, 1))
    optimizer = torch.optim.AdamW(network.parameters(), lr=RATE, weight_decay=1e-4)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, RATE, total_steps=STEPS)
    for _ in range(STEPS):
        some = torch.randint(len(x), (BATCH,))
        wrong = nn.functional.binary_cross_entropy_with_logits(network(x[some])[:, 0], y[some].float(), reduction="none")
        optimizer.zero_grad()
        (wrong * w[some]).mean().backward()
        optimizer.step()
        schedule.step()
    first, last = network[0], network[2]
    return [p.detach().numpy() for p in (first.weight, first.bias, last.weight[0], last.bias)]


def write(path, network, overlap, fitted, favour):
    weights, biases, output_weights, output_bias = fitted
    speech = model_file.speech_bytes(CONTEXTS, weights, biases, output_weights, output_bias + np.float32(favour))
    model_file.write_parameters(path, network, speech, model_file.NO_TREES, overlap)


def part_of(case, parts):
    """Which part of the background a clip belongs to: whole datasets, but for those that hold recordings of many kinds."""
    key = case.name.split()[0:2] if case.kind in ("_noise", "_music", "_home") else case.kind
    return zlib.crc32(str(key).encode()) % parts


def row(title, before, after):
    """Of recordings: speech missed and false alarm, in percent of the speech."""
    cells = []
    for scores in (before, after):
        speech, missed, false_alarm = np.array(scores).sum(0)[:3]
        cells.append(f"{100 * missed / speech:.1f} % | {100 * false_alarm / speech:.1f} %")
    return f"| {title} | {len(before)} | " + " | ".join(cells) + " |"


def left_out(cases, options):
    """Speech found by networks that have not been trained on it, and without one: ({(kind, version): [(scores, scores)]},
    {dataset: [(seconds called speech, the same before, seconds)]})."""
    domains = sorted({c.kind for c in cases if c.reference})
    network, path = model_file.network_of(Path(options.model).read_bytes()), Path(options.out).with_suffix(".part")
    thresholds = np.array(model_file.read(options.model)["thresholds"])
    people, nobody = {}, {}
    for part, domain in enumerate(domains):
        def is_out(c):
            return c.kind == domain or (c.kind.startswith("_") and part_of(c, len(domains)) == part)
        engines = []
        for fitted in (None, fit([c for c in cases if not is_out(c)])):
            if fitted is None:
                path.write_bytes(network)
            else:
                write(path, network, model_file.NO_OVERLAP, fitted, options.favour)
            engines.append(native.Engine(path))
        for c in filter(is_out, cases):
            found = [engine.segments(c.embeddings, thresholds) for engine in engines]
            if c.reference:
                people.setdefault((c.kind, c.version), []).append([native.score(c.reference, f, 0.25) for f in found])
            else:
                seconds = [float((times[:, 1] - times[:, 0]).sum()) for times, _ in found]
                nobody.setdefault(c.kind, []).append((*seconds, len(c.embeddings) * SECONDS))
    path.unlink()
    return people, nobody


def tables(people, nobody):
    lines = ["| Recordings | number | missed | false alarm | missed, with detection | false alarm, with detection |", "|---|---|---|---|---|---|"]
    versions = sorted({v for _, v in people})
    for version in versions:
        pairs = [p for (kind, v), found in people.items() if v == version and kind != "read" for p in found]
        lines.append(row("real, " + (version or "as they are"), *zip(*pairs)))
    for (kind, version), pairs in sorted(people.items()):
        if version == "":
            lines.append(row(kind, *zip(*pairs)))
    lines += ["", "| Background | files | called speech | with detection | files with nobody | with detection |", "|---|---|---|---|---|---|"]
    everything = [c for clips in nobody.values() for c in clips]
    for title, clips in [*sorted(nobody.items()), ("all", everything)]:
        before, after, seconds = np.array(clips).T
        lines.append(f"| {title.lstrip('_')} | {len(clips)} | {100 * before.sum() / seconds.sum():.1f} % | {100 * after.sum() / seconds.sum():.1f} % | "
                     f"{100 * (before == 0).mean():.0f} % | {100 * (after == 0).mean():.0f} % |")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    recordings.add_arguments(parser, ", whose network and thresholds are settled")
    parser.add_argument("--features", required=True, help="what prepare wrote")
    parser.add_argument("--skip", nargs="*", default=[], metavar="DATASET", help="background to leave out")
    parser.add_argument("--simulated", type=int, default=600, help="conversations out of the corpus")
    parser.add_argument("--favour", type=float, default=2.75, help="added to the log odds of speech: losing some is worse than hearing "
                        "some where there is none")
    parser.add_argument("--out", required=True, help="where the model with the network that detects speech goes; without trees")
    options = parser.parse_args()
    with multiprocessing.Pool(options.workers) as pool:
        cases = sum(pool.map(_work, [(options, w) for w in range(options.workers)]), [])
    torch.set_num_threads(options.workers)
    print(f"{len(cases)} recordings, {sum(len(c.label) for c in cases) * SECONDS / 3600:.1f} hours\n", flush=True)
    print("\nEach domain of recordings and each part of the background with what was trained on the others:\n\n"
          + tables(*left_out(cases, options)) + "\n", flush=True)
    model = Path(options.model).read_bytes()
    write(options.out, model, model_file.overlap_of(model), fit(cases), options.favour)
    print(options.out)


if __name__ == "__main__":
    main()
