# SPDX-License-Identifier: Apache-2.0
"""Trains what chooses among divisions of a recording: regression trees over the features that the library computes of each, which
predict what choosing it would cost in diarization errors (its logarithm).

The library's own code makes the divisions and their features. Recordings come from three sources: real and simulated ones with
references, as they are and changed (scripts/robustness --write); crops and concatenations of these, so that there are short
ones and ones with many people, and others in the same rooms and over the same lines, with fewer people, with other voices
(played faster or slower) or with twice as many; and conversations out of a corpus (simulate.py), whose voices are moved so that
the network has not been trained on them. The figures to believe are those of domains left out: for each domain (domains.tsv) the
trees are trained without any recording of it, crops and concatenations included."""

import argparse
import dataclasses
import multiprocessing
import os
import pickle
import zlib
from pathlib import Path

import numpy as np

from . import model_file, native, prepare, recordings, simulate, tune

SECONDS = native.HOP * 2 / native.RATE  # a frame
COLLAR = 0.25
SPEEDS = 0.85, 0.9, 0.95, 1.05, 1.1, 1.18  # at which voices of recordings become others
MAX_REGRET = 0.6  # what an error of choice counts at most
SPEECH, MISSED, CONFUSION, THERE, FOUND = 0, 1, 3, 4, 5  # of scores


@dataclasses.dataclass
class Case:
    """A recording with its divisions: features (n, features), scores (n, 6) as native.score gives them."""

    name: str
    version: str  # the change that it has gone through; "crop", "joined", "varied", "corpus" or "long"
    sources: tuple  # names of the recordings that it is made of
    features: np.ndarray
    scores: np.ndarray

    def errors(self):
        return np.minimum(self.scores[:, MISSED:CONFUSION + 1].sum(1) / np.maximum(self.scores[:, SPEECH], 1e-3), 5)

    def regret(self):
        """What choosing each costs: errors more than the best one has, and a little for a wrong number of speakers."""
        wrong = np.abs(self.scores[:, FOUND] - self.scores[:, THERE])
        cost = self.errors() + 0.05 * (wrong > 0) + 0.1 * np.minimum(wrong / np.maximum(self.scores[:, THERE], 2), 1)
        return np.minimum(cost - cost.min(), MAX_REGRET)


def segments_of(labels):
    edges = np.flatnonzero(np.diff(labels, prepend=-1, append=-1))
    spans = [(a, b) for a, b in zip(edges[:-1], edges[1:]) if labels[a] > 0]
    return (np.array(spans, float).reshape(-1, 2) * SECONDS, np.array([labels[a] for a, _ in spans], np.int32))


def clipped(reference, start, end):
    """A reference between two times, from 0 on."""
    times = np.clip(reference[0], start, end) - start
    kept = times[:, 1] - times[:, 0] > 0.01
    return times[kept], reference[1][kept]


def numbered(reference):
    """A reference whose speakers are counted from 1 on."""
    times, speakers = reference
    return times, (np.unique(speakers, return_inverse=True)[1] + 1).astype(np.int32)


def seconds_of(rows):
    return len(rows) * native.HOP / native.RATE


def even(seconds):
    """Rows in so much time, in whole frames."""
    return int(seconds * native.RATE / native.HOP) // 2 * 2


# How far thresholds are from the best ones, in recordings on which they have not been chosen: deviation of the logarithm, of the
# merge threshold and of the others. Of the recordings that are as they are, the model's own count.
ASTRAY = (0.15, 0.06, 0.06, 0.06)


def case_of(engine, name, version, sources, rows, reference):
    """None where there is nothing to choose."""
    rng = np.random.default_rng(zlib.crc32(f"{name} {version}".encode()))
    thresholds = engine.thresholds * (np.exp(rng.normal(0, ASTRAY)) if version else 1)
    if len(reference[1]) == 0:
        return None
    embeddings = engine.embed(rows)
    features, labels = engine.candidates(embeddings, model_file.keep_background(thresholds))
    if len(features) < 2:
        return None
    end = reference[0].max() + 0.5
    scores = []
    for one in labels:
        times, speakers = segments_of(one)
        inside = times[:, 0] < end
        scores.append(native.score(reference, (np.minimum(times[inside], end), speakers[inside]), COLLAR))
    return Case(name, version, sources, features, np.array(scores))


def crop(rng, rows, reference):
    """A stretch of 15 to 90 s, where somebody speaks."""
    length = seconds_of(rows)
    for _ in range(10):
        wanted = rng.uniform(15, 90)
        if wanted > 0.9 * length:
            continue
        start = rng.uniform(0, length - wanted)
        found = numbered(clipped(reference, start, start + wanted))
        if len(found[1]) and (found[0][:, 1] - found[0][:, 0]).sum() > 5:
            return rows[even(start):even(start) + even(wanted)], found
    return None


def with_few(rng, rows, reference):
    """A recording of some of its people: where one of the others speaks, it is cut."""
    times, speakers = reference
    people = np.unique(speakers)
    if len(people) < 2:
        return None
    stay = np.isin(speakers, rng.permutation(people)[:rng.integers(1, len(people))])
    rows = rows[:len(rows) // 2 * 2]
    kept = np.ones(len(rows), bool)
    for start, end in times[~stay]:
        kept[even(start):even(end) + 2] = False
    # Where each row comes to lie.
    place = np.concatenate([[0], np.cumsum(kept)])
    times = place[np.clip(np.round(times[stay] * native.RATE / native.HOP).astype(int), 0, len(rows))] * native.HOP / native.RATE
    heard = times[:, 1] > times[:, 0]
    return rows[kept], numbered((times[heard], speakers[stay][heard]))


def at_speed(audio, reference, speed):
    """A recording (rows, reference) that is played faster: its voices become others."""
    times, speakers = recordings.read_rttm(reference)
    return recordings.features_of(audio, speed), (times / speed, speakers)


def with_other_voices(rng, audio, reference, people):
    """A part of joined recordings, played at one of some speeds; at another speed everybody is another person."""
    speed = rng.choice(SPEEDS)
    return *at_speed(audio, reference, speed), [f"{p} {speed}" for p in people]


def at_two_speeds(rng, audio, reference):
    """A recording in which everybody has two voices: stretches of 2 to 15 s now at one speed and now at another."""
    speeds = rng.choice([0.85, 1.0, 1.15], 2, replace=False)
    versions = [at_speed(audio, reference, speed) for speed in speeds]
    parts, begin, end, which = [], 0.0, seconds_of(versions[0][0]) * speeds[0], 0
    while begin < end - 0.5:
        until = min(begin + np.exp(rng.uniform(np.log(2), np.log(15))), end)
        rows, found = versions[which]
        start, stop = begin / speeds[which], until / speeds[which]
        people = [f"{p} {which}" for p in range(1, found[1].max() + 1)]
        parts.append((rows[even(start):even(stop)], clipped(found, start, stop), people))
        begin, which = until, which ^ (rng.random() < 0.8)
    rows, found = joined(parts)
    return rows, numbered(found)


def varied(rng, audio, reference):
    """Another recording in the same room, over the same line: with fewer people, with other voices, or with twice as many."""
    kind = rng.choice(["few", "others", "twice"])
    if kind == "twice":
        made = at_two_speeds(rng, audio, reference)
    else:
        made = at_speed(audio, reference, rng.choice(SPEEDS))
        if kind == "few":
            made = with_few(rng, *made)
    if made and rng.random() < 0.4:
        made = crop(rng, *made) or made
    return made if made and len(made[1][1]) and seconds_of(made[0]) > 4 else None


def joined(parts):
    """Recordings (rows, reference, people) one after the other; somebody who is in several is one person."""
    rows, times, speakers, everybody, begin = [], [], [], {}, 0.0
    for part, reference, people in parts:
        part = part[:len(part) // 2 * 2]
        number = np.array([0] + [everybody.setdefault(p, len(everybody) + 1) for p in people], np.int32)
        rows.append(part)
        times.append(reference[0] + begin)
        speakers.append(number[reference[1]])
        begin += seconds_of(part)
    return np.concatenate(rows), (np.concatenate(times), np.concatenate(speakers))


def turns_of(active):
    """Who speaks in which row (rows, people) as a reference; pauses up to 0.3 s are bridged."""
    times, speakers = [], []
    for k in range(active.shape[1]):
        bridged = prepare.flip_short_runs(active[:, k], False, 19, False)
        edges = np.flatnonzero(np.diff(prepare.flip_short_runs(bridged, True, 3, True).astype(int), prepend=0, append=0))
        times += zip(edges[::2], edges[1::2])
        speakers += [k + 1] * (len(edges) // 2)
    times = np.array(times, float).reshape(-1, 2) * native.HOP / native.RATE
    return numbered((times, np.array(speakers, int)))


def simulated(rng, speech, people, seconds):
    """A conversation of voices that nobody has."""
    recipe = dataclasses.replace(simulate.Recipe(), nobody=0.0, own_voices=0.12)
    x, *_, active, _ = simulate.mixed_conversation(speech, simulate.seconds(seconds) // 2 * 2, people, recipe, rng)
    return np.clip(np.round(1024 * x), -32768, 32767).astype(np.int16), turns_of(active)


def simulated_short(rng, speech):
    """1 to 30 people, half a minute to a quarter of an hour."""
    people = int(rng.choice([1, 2, 3, 4, 5, 6, 8, 10, 12, 16, 20, 25, 30],
                            p=[0.04, 0.23, 0.16, 0.10, 0.09, 0.07, 0.07, 0.03, 0.06, 0.03, 0.04, 0.03, 0.05]))
    return simulated(rng, speech, people, np.exp(rng.uniform(np.log(30), np.log(240 if people < 8 else 900))))


def simulated_long(rng, speech):
    """2 to 30 people, a quarter of an hour to an hour."""
    people = int(rng.choice([2, 3, 4, 5, 6, 7, 8, 10, 12, 15, 20, 25, 30]))
    return simulated(rng, speech, people, np.exp(rng.uniform(np.log(800), np.log(3600))))


def recordings_of(options, worker):
    """(name, version, sources, rows, reference) of recordings as they are, then of what is made of them, by `worker` of
    `options.workers`."""
    speech = simulate.Speech(options.features) if options.features else None
    loaded, files = [], list(recordings.find_versions(options))
    for version, name, audio, reference in files:
        loaded.append((name, version, *at_speed(audio, reference, 1), recordings.people_of(reference, name)))
    for name, version, rows, reference, _ in loaded[worker::options.workers]:
        yield name, version, (name,), rows, reference
    for i in range(worker, options.crops, options.workers):
        rng = np.random.default_rng([options.seed, 1, i])
        name, _, rows, reference, _ = loaded[rng.integers(len(loaded))]
        part = crop(rng, rows, reference)
        if part:
            yield f"{name} {i}", "crop", (name,), *part
    for i in range(worker, options.joined, options.workers):
        rng = np.random.default_rng([options.seed, 2, i])
        version = loaded[rng.integers(len(loaded))][1]
        pool = [k for k, r in enumerate(loaded) if r[1] == version]
        chosen = rng.permutation(pool)[:rng.integers(2, 11)]
        parts = [loaded[k][2:] if i % 2 == 0 else with_other_voices(rng, *files[k][2:], loaded[k][4]) for k in chosen]
        yield f"joined {i}", "joined", tuple(loaded[k][0] for k in chosen), *joined(parts)
    for i in range(worker, options.varied, options.workers):
        rng = np.random.default_rng([options.seed, 4, i])
        _, name, audio, reference = files[rng.integers(len(files))]
        made = varied(rng, audio, reference)
        if made:
            yield f"{name} {i}", "varied", (name,), *made
    for version, number, make, seed in (("corpus", options.simulated, simulated_short, 3), ("long", options.long, simulated_long, 5)):
        for i in range(worker, number if speech else 0, options.workers):
            yield f"{version} {i}", version, (), *make(np.random.default_rng([options.seed, seed, i]), speech)


def _work(job):
    make, model, options, worker = job
    with native.Engine(model) as engine:
        engine.thresholds = np.array(model_file.read(model)["thresholds"])
        return [made for one in recordings_of(options, worker) if (made := make(engine, *one))]


def over_recordings(make, model, options):
    """What `make` gives of the engine and each recording, but None."""
    with multiprocessing.Pool(options.workers) as pool:
        return sum(pool.map(_work, [(make, model, options, w) for w in range(options.workers)]), [])


def domain_of(name, domains):
    return tune.domain_of(name, domains)[0]


def weight_of(case):
    """Real recordings are few and weigh more than crops of them, these more than simulated ones."""
    return {"": 4.0, "crop": 1.0, "joined": 1.0, "varied": 0.5, "corpus": 0.3, "long": 1.5}.get(case.version, 1.5)


def boosted_trees(**settings):
    """Of all that they are fitted on: which tenth is kept back to stop early moves long recordings by a point or two."""
    from sklearn.ensemble import HistGradientBoostingRegressor
    return HistGradientBoostingRegressor(early_stopping=False, random_state=0, **settings)


def fit(cases):
    x = np.concatenate([c.features for c in cases]).astype(np.float32)
    y = np.log(np.concatenate([c.regret() for c in cases]) + 0.02)  # whether one is the best counts, not how bad bad ones are
    weights = np.concatenate([np.full(len(c.features), weight_of(c) / len(c.features)) for c in cases])
    trees = boosted_trees(max_iter=250, learning_rate=0.04, max_leaf_nodes=31, min_samples_leaf=300, l2_regularization=1.0)
    return trees.fit(x, y, sample_weight=weights * len(y) / weights.sum())


def choice(trees, case):
    return int(trees.predict(case.features.astype(np.float32)).argmin())


def flattened(trees):
    """(roots, nodes) as the library evaluates them: nodes are (feature, distance to the node for values above, value)."""
    roots, nodes = [], []
    base = float(trees._baseline_prediction.ravel()[0])
    for number, (predictor,) in enumerate(trees._predictors):
        table = predictor.nodes
        roots.append(len(nodes))

        def lay(index):
            node, at = table[index], len(nodes)
            if node["is_leaf"]:
                nodes.append((-1, 0, node["value"] + (base if number == 0 else 0)))
                return
            # Values below or at the threshold go to the left, so the threshold is rounded downwards.
            threshold = np.float32(node["num_threshold"])
            if threshold > node["num_threshold"]:
                threshold = np.nextafter(threshold, np.float32(-np.inf))
            nodes.append((int(node["feature_idx"]), 0, threshold))
            lay(node["left"])
            nodes[at] = (nodes[at][0], len(nodes) - at, nodes[at][2])
            lay(node["right"])

        lay(0)
    return roots, nodes


def evaluate(flat, x):
    """What the library makes of rows of features."""
    roots, nodes = flat
    sums = np.zeros(len(x))
    for row, values in enumerate(x):
        for at in roots:
            while nodes[at][0] >= 0:
                at += nodes[at][1] if values[nodes[at][0]] > nodes[at][2] else 1
            sums[row] += np.float32(nodes[at][2])
    return sums


@dataclasses.dataclass
class Segments:
    """What the library finds in a recording, and of how much of each segment's time its speaker is right."""

    version: str
    sources: tuple
    features: np.ndarray
    seconds: np.ndarray
    right: np.ndarray


def segments_case(engine, name, version, sources, rows, reference):
    if len(reference[1]) == 0:
        return None
    times, tags, features = engine.described_segments(engine.embed(rows))
    if len(tags) == 0:
        return None
    # Seconds that each tag shares with each speaker; one to one, so that most is shared.
    from scipy.optimize import linear_sum_assignment
    common = np.maximum(0, np.minimum(times[:, None, 1], reference[0][None, :, 1]) - np.maximum(times[:, None, 0], reference[0][None, :, 0]))
    shared = np.zeros((tags.max() + 1, reference[1].max() + 1))
    np.add.at(shared, (tags[:, None], reference[1][None, :]), common)
    matched = np.full(len(shared), -1)
    rows_of, columns = linear_sum_assignment(-shared)
    matched[rows_of] = columns
    right = (common * (matched[tags][:, None] == reference[1][None, :])).sum(1)
    seconds = times[:, 1] - times[:, 0]
    return Segments(version, sources, features, seconds, np.clip(right / seconds, 0, 1))


def fit_confidence(found):
    x, y = (np.concatenate([getattr(s, k) for s in found]) for k in ("features", "right"))
    weights = np.concatenate([np.sqrt(s.seconds) * weight_of(s) / np.sqrt(s.seconds).sum() for s in found])
    trees = boosted_trees(max_iter=120, learning_rate=0.05, max_leaf_nodes=8, min_samples_leaf=100)
    return trees.fit(x.astype(np.float32), y, sample_weight=weights * len(y) / weights.sum())


def calibration(predicted, right, weights, bins=10):
    """Rows (share, mean predicted, mean right) of ten bins, and the expected calibration error."""
    place = np.clip((predicted * bins).astype(int), 0, bins - 1)
    rows = [(weights[place == b].sum() / weights.sum(), np.average(predicted[place == b], weights=weights[place == b]),
             np.average(right[place == b], weights=weights[place == b])) for b in range(bins) if (place == b).any()]
    return rows, sum(share * abs(p - r) for share, p, r in rows)


def calibration_table(found, domains):
    """Of recordings as they are, each by trees that have not seen its domain."""
    predicted, right, seconds = [], [], []
    for d in sorted({domain_of(s, domains) for f in found for s in f.sources}):
        trees = fit_confidence([f for f in found if all(domain_of(s, domains) != d for s in f.sources)])
        for f in found:
            if f.version == "" and domain_of(f.sources[0], domains) == d:
                predicted.append(np.clip(trees.predict(f.features.astype(np.float32)), 0, 1))
                right.append(f.right)
                seconds.append(f.seconds)
    rows, error = calibration(*map(np.concatenate, (predicted, right, seconds)))
    lines = ["| Share of the time found | confidence, mean | speaker right, mean |", "|---|---|---|"]
    lines += [f"| {100 * s:.1f} % | {p:.2f} | {r:.2f} |" for s, p, r in rows]
    return "\n".join(lines) + f"\n\nExpected calibration error: {error:.3f}"


def rates(scores):
    total = scores.sum(0)
    return 100 * total[MISSED:CONFUSION + 1].sum() / total[SPEECH]


def row(title, cases, chosen):
    """Of the engine's division, the chosen one and the best."""
    cells = []
    for pick in (lambda c, k: 0, lambda c, k: k, lambda c, k: int(c.errors().argmin())):
        s = np.array([c.scores[pick(c, k)] for c, k in zip(cases, chosen)])
        each = np.minimum(s[:, MISSED:CONFUSION + 1].sum(1) / np.maximum(s[:, SPEECH], 1e-3), 1)
        cells.append(f"{rates(s):.1f} % | {100 * each.mean():.1f} % | {(s[:, THERE] == s[:, FOUND]).sum()}")
    return f"| {title} | {len(cases)} | " + " | ".join(cells) + " |"


def left_out(cases, domains):
    """By the place in `cases` of each recording that is one of a kind (changed or not): what is chosen by trees that have not
    seen its domain. Simulated recordings of a corpus are in all fits."""
    chosen = {}
    for d in sorted({domain_of(s, domains) for c in cases for s in c.sources}):
        trees = fit([c for c in cases if all(domain_of(s, domains) != d for s in c.sources)])
        for i, c in enumerate(cases):
            if c.sources and all(domain_of(s, domains) == d for s in c.sources):
                chosen[i] = choice(trees, c)
    return chosen


def many_left_out(cases):
    """By the place of each joined recording and each long conversation: what is chosen by trees that have not been trained on it,
    but on the recordings in it, and on the other half of these."""
    chosen = {}
    ones = [i for i, c in enumerate(cases) if c.version in ("joined", "long")]
    for half in (set(ones[0::2]), set(ones[1::2])):
        trees = fit([c for i, c in enumerate(cases) if i not in half])
        chosen |= {i: choice(trees, cases[i]) for i in half}
    return chosen


HEAD = ("| Recordings | number | engine's division: DER | mean | count right | chosen: DER | mean | count right | best there is: DER | mean "
        "| count right |\n|---|---|---|---|---|---|---|---|---|---|---|")


def rows_of(groups, cases, chosen):
    lines = [HEAD]
    for title, belongs in groups:
        members = [i for i in chosen if belongs(cases[i])]
        if members:
            lines.append(row(title, [cases[i] for i in members], [chosen[i] for i in members]))
    return "\n".join(lines)


def table(cases, chosen, domains):
    groups = [(k, lambda c, k=k: c.version == "" and tune.domain_of(c.name, domains)[1] == k) for k in ("real", "simulated")]
    groups += [(d, lambda c, d=d: c.version == "" and domain_of(c.name, domains) == d)
               for d in sorted({domain_of(s, domains) for c in cases for s in c.sources})]
    groups += [(v, lambda c, v=v: c.version == v) for v in sorted({c.version for c in cases} - {""})]
    return rows_of(groups, cases, chosen)


def unchanged(cases, chosen):
    """Of changed recordings: how many have the number of speakers that the recording has as it is, and how many there are."""
    as_it_is = {cases[i].name: cases[i].scores[k, FOUND] for i, k in chosen.items() if cases[i].version == ""}
    same = [cases[i].scores[k, FOUND] == as_it_is[cases[i].name] for i, k in chosen.items()
            if cases[i].version and cases[i].name in as_it_is]
    return sum(same), len(same)


def table_of_many(cases):
    chosen = many_left_out(cases)
    groups = [(f"{version}, {first} to {last} people",
               lambda c, v=version, a=first, b=last: c.version == v and a <= c.scores[0, THERE] <= b)
              for version in ("joined", "long") for first, last in ((1, 7), (8, 14), (15, 22), (23, 50))]
    found, there = (sum(cases[i].scores[k, what] for i, k in chosen.items()) for what in (FOUND, THERE))
    return rows_of(groups, cases, chosen) + f"\n\n{found:.0f} people found of {there:.0f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    recordings.add_arguments(parser, ", whose network, thresholds and detection of speech are settled")
    parser.add_argument("--features", help="what prepare wrote, for simulated conversations")
    parser.add_argument("--crops", type=int, default=800)
    parser.add_argument("--joined", type=int, default=1050, help="every second one at other speeds")
    parser.add_argument("--varied", type=int, default=6500, help="the same rooms with fewer people, other voices or twice as many")
    parser.add_argument("--simulated", type=int, default=3000)
    parser.add_argument("--long", type=int, default=1000, help="simulated conversations of up to an hour")
    parser.add_argument("--num-features", type=int, metavar="N", help="trees see the first N features alone")
    parser.add_argument("--cases", help="file to keep the recordings' divisions in, or to take them from if it is there")
    parser.add_argument("--out", help="where the model with the trees goes; otherwise only the tables are printed")
    options = parser.parse_args()
    if options.cases and os.path.exists(options.cases):
        cases = pickle.loads(Path(options.cases).read_bytes())
    else:
        cases = over_recordings(case_of, options.model, options)
        if options.cases:
            Path(options.cases).write_bytes(pickle.dumps(cases))
    for case in cases:
        case.features = case.features[:, :options.num_features]
    domains = tune.read_domains(options.domains)
    print(f"{len(cases)} recordings, {sum(len(c.features) for c in cases)} divisions\n")
    chosen = left_out(cases, domains)
    print("Each domain with trees trained on the others:\n\n" + table(cases, chosen, domains) + "\n", flush=True)
    print("The number of speakers is that of the unchanged recording in {} of {}.\n".format(*unchanged(cases, chosen)), flush=True)
    if any(c.version in ("joined", "long") for c in cases):
        print("Joined recordings and long conversations, each by trees that have not been trained on it:\n\n" + table_of_many(cases) + "\n",
              flush=True)
    if not options.out:
        return
    model = Path(options.model).read_bytes()
    network, speech, overlap = model_file.network_of(model), model_file.speech_of(model), model_file.overlap_of(model)
    costs = (*flattened(fit(cases)), cases[0].features.shape[1])
    # Confidence is about what is chosen: its trees come second.
    model_file.write_parameters(options.out, network, speech, (costs, model_file.NO_TREES[1]), overlap)
    # Every recording has many segments: the shorter ones are enough, and a part of those that are varied.
    options.varied, options.long = options.varied // 4, 0
    found = over_recordings(segments_case, options.out, options)
    print("Confidence, each domain with trees trained on the others:\n\n" + calibration_table(found, domains) + "\n")
    confidence = *flattened(fit_confidence(found)), found[0].features.shape[1]
    model_file.write_parameters(options.out, network, speech, (costs, confidence), overlap)
    print(options.out)


if __name__ == "__main__":
    main()
