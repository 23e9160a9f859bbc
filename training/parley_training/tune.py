# SPDX-License-Identifier: Apache-2.0
"""Chooses a model's four clustering thresholds and its chunk lengths by the errors that they make on recordings with references.

The network runs once for each pair of lengths; a set of thresholds then costs the clustering alone. Many sets are tried on
every recording; what counts of a set is the mean over its neighbours, so that a lucky point on a few recordings does not win.

Real and simulated recordings weigh the same, and so do recordings as they are and changed ones (scripts/robustness --write
makes them); in each of these the DER of all and the mean over recordings do. The figure to believe is the one of domains
left out: for each domain the thresholds are chosen on all others."""

import argparse
import fnmatch
import multiprocessing
import tempfile
from pathlib import Path

import numpy as np

from . import model_file, native, recordings

COLLARS = (0.25, 0.0)  # seconds to either side, overlaps scored; their DER is averaged: when counts too, not only who
# Whether frames go to the nearest speaker once more, as the tool has it, or not, as the engine alone results, and what that
# counts.
LOOKS = ((True, 0.7), (False, 0.3))
# Offline, prune, segment, and how far the background's threshold is above the segments' (model_file.keep_background).
RANGES = np.array([(0.08, 0.40), (0.08, 0.50), (0.12, 0.45), (0.0, 0.12)])
NEAR = 0.015  # of a threshold: how close a neighbour is
SPEECH, MISSED, FALSE_ALARM, CONFUSION, THERE, FOUND = range(6)  # columns of errors


class Recording:
    def __init__(self, name, version, audio, reference, domains):
        self.name, self.version = name, version
        self.domain, self.kind = domain_of(name, domains)
        self.rows = recordings.features_of(audio)
        self.reference = recordings.read_rttm(reference)


def read_domains(path):
    """[(pattern of a name, domain, "real" or "simulated")]."""
    lines = Path(path).read_text().splitlines()
    return [tuple(line.split("\t")) for line in lines if line and not line.startswith("#")]


def domain_of(name, domains):
    """(domain, "real" or "simulated") of a recording."""
    return next(((d, k) for pattern, d, k in domains if fnmatch.fnmatch(name, pattern)), ("other", "real"))


def load(options):
    domains = read_domains(options.domains)
    found = [Recording(name, version, audio, reference, domains)
             for version, name, audio, reference in recordings.find_versions(options)]
    if not found:
        raise SystemExit("no recordings with references there")
    return found


def errors_of(engine, embeddings, reference, thresholds):
    """For each look and collar: seconds of speech, missed, false alarm, confusion; speakers there, speakers found."""
    hypotheses = [engine.segments(embeddings, thresholds, refine) for refine, _ in LOOKS]
    return [[native.score(reference, hypothesis, collar) for collar in COLLARS] for hypothesis in hypotheses]


def _try(job):
    model, parts, candidates = job
    with native.Engine(model) as engine:
        return np.array([[errors_of(engine, e, r, model_file.keep_background(c)) for e, r in parts] for c in candidates])


def try_all(model, found, embeddings, candidates, workers):
    """Errors (candidates, recordings, looks, collars, 6)."""
    parts = [(e, r.reference) for e, r in zip(embeddings, found)]
    jobs = [(model, parts, candidates[w::workers]) for w in range(workers)]
    with multiprocessing.Pool(workers) as pool:
        results = pool.map(_try, jobs)
    errors = np.empty((len(candidates), *results[0].shape[1:]))
    for w, result in enumerate(results):
        errors[w::workers] = result
    return errors


def rates(errors):
    return errors[..., MISSED:CONFUSION + 1].sum(-1) / np.maximum(errors[..., SPEECH], 1e-3)


def der(errors):
    """Over recordings, the last axis but one."""
    return errors[..., MISSED:CONFUSION + 1].sum((-1, -2)) / errors[..., SPEECH].sum(-1)


def costs(errors, found, count_weight):
    """What each candidate costs: (candidates, recordings, looks, collars, 6) to (candidates,)."""
    groups = {}
    for i, r in enumerate(found):
        groups.setdefault((r.kind, r.version == ""), []).append(i)
    total = 0
    for members in groups.values():
        for look, (_, weight) in enumerate(LOOKS):
            part = errors[:, members, look]
            both = [0.5 * der(part[:, :, c]) + 0.5 * np.minimum(rates(part[:, :, c]), 1).mean(1) for c in range(len(COLLARS))]
            wrong = (part[:, :, 0, THERE] != part[:, :, 0, FOUND]).mean(1)
            total = total + weight * (np.mean(both, 0) + count_weight * wrong)
    return total / len(groups)


def best_of(candidates, cost):
    """The candidate whose neighbourhood is cheapest, and what the neighbourhood costs."""
    near = np.exp(-0.5 * ((candidates[:, None] - candidates[None]) ** 2).sum(-1) / NEAR ** 2)
    smooth = (near @ cost) / near.sum(1)
    smooth[near.sum(1) < 4] = np.inf  # alone: nothing is known about its neighbourhood
    best = smooth.argmin() if np.isfinite(smooth).any() else cost.argmin()
    return best, (smooth if np.isfinite(smooth).any() else cost)[best]


def folds_of(found):
    """Recordings on which to choose, by the domain that is left out; "" leaves out none."""
    everything = np.arange(len(found))
    domains = sorted({r.domain for r in found})
    return {"": everything, **{d: np.array([i for i in everything if found[i].domain != d]) for d in domains if len(domains) > 1}}


def search(model, found, lengths, trials, count_weight, seed, workers):
    """By the domain left out: (cost, thresholds, errors (recordings, looks, collars, 6) of all recordings with these). The
    model's network alone counts: trees that choose among divisions were trained with other thresholds."""
    with tempfile.NamedTemporaryFile(suffix=".zx") as bare:
        bare.write(model_file.network_of(Path(model).read_bytes()))
        bare.flush()
        return search_network(bare.name, found, lengths, trials, count_weight, seed, workers)


def search_network(model, found, lengths, trials, count_weight, seed, workers):
    rng = np.random.default_rng(seed)
    with native.Engine(model) as engine:
        engine.set_chunks(*lengths)
        embeddings = [engine.embed(r.rows) for r in found]
    candidates = rng.uniform(*RANGES.T, (trials // 3, 4))
    candidates[:, 3] += candidates[:, 2]
    errors = try_all(model, found, embeddings, candidates, workers)
    folds = folds_of(found)
    for width in (0.03, 0.015):  # refine around what is good in any fold
        good = [candidates[np.argsort(costs(errors[:, fold], [found[i] for i in fold], count_weight))[:8]]
                for fold in folds.values()]
        good = np.unique(np.concatenate(good), axis=0)
        more = good[rng.integers(len(good), size=trials // 3)] + rng.normal(0, width, (trials // 3, 4))
        more = np.array([model_file.keep_background(np.clip(c, 0.01, 0.9)) for c in more])
        errors = np.concatenate([errors, try_all(model, found, embeddings, more, workers)])
        candidates = np.concatenate([candidates, more])
    results = {}
    for domain, fold in folds.items():
        best, cost = best_of(candidates, costs(errors[:, fold], [found[i] for i in fold], count_weight))
        results[domain] = cost, candidates[best], errors[best]
    return results


def honest(results, found):
    """Errors of every recording with the thresholds chosen without its domain."""
    return np.array([results.get(r.domain, results[""])[2][i] for i, r in enumerate(found)])


def row(name, errors):
    """A row of the table, of errors (recordings, collars, 6)."""
    loose = errors[:, 0]
    missed, false_alarm, confusion = 100 * loose[:, MISSED:CONFUSION + 1].sum(0) / loose[:, SPEECH].sum()
    right = int((loose[:, THERE] == loose[:, FOUND]).sum())
    return (f"| {name} | {len(loose)} | {100 * der(loose):.1f} % | {missed:.1f} | {false_alarm:.1f} | {confusion:.1f} | "
            f"{100 * np.minimum(rates(loose), 1).mean():.1f} % | {100 * der(errors[:, 1]):.1f} % | {right} |")


def table(errors, found):
    """Rows by kind, by domain, by number of speakers, by change; and what the engine alone results."""
    raw, errors = errors[:, 1], errors[:, 0]
    clean = [i for i, r in enumerate(found) if r.version == ""]
    groups = [(k, [i for i in clean if found[i].kind == k]) for k in ("real", "simulated")]
    groups += [(d, [i for i in clean if found[i].domain == d]) for d in sorted({r.domain for r in found})]
    count = lambda i: int(errors[i, 0, THERE])
    groups += [(f"{n} speakers", [i for i in clean if count(i) == n]) for n in sorted({count(i) for i in clean})]
    groups += [(v, [i for i, r in enumerate(found) if r.version == v]) for v in sorted({r.version for r in found}) if v]
    head = ("| Recordings | number | DER | missed | false alarm | confusion | mean over recordings | DER, collar 0 | count right |\n"
            "|---|---|---|---|---|---|---|---|---|\n")
    rows = [row(name, errors[members]) for name, members in groups if members]
    rows += [row(f"{k}, the engine alone", raw[m]) for k, m in groups[:2] if m]
    return head + "\n".join(rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    recordings.add_arguments(parser, "")
    parser.add_argument("--out", help="where the tuned model goes; otherwise only the tables are printed")
    parser.add_argument("--count-weight", type=float, default=0.05,
                        help="what a wrong number of speakers in all recordings would cost, in DER (1 is 100 %%)")
    parser.add_argument("--lengths", nargs="*", default=["2000/200"], metavar="CHUNK/WARMUP", help="frames to try")
    parser.add_argument("--trials", type=int, default=900)
    parser.add_argument("--each", action="store_true", help="print every recording")
    options = parser.parse_args()
    found = load(options)
    best = None
    for pair in options.lengths:
        lengths = tuple(map(int, pair.split("/")))
        results = search(options.model, found, lengths, options.trials, options.count_weight, options.seed, options.workers)
        cost, thresholds, errors = results[""]
        kept_out = honest(results, found)
        print(f"## {pair}: cost {cost:.4f}, of domains left out {costs(kept_out[None], found, options.count_weight)[0]:.4f}; thresholds "
              + " ".join(f"{t:.4f}" for t in thresholds))
        print(f"\nEach domain with thresholds chosen on the others:\n\n{table(kept_out, found)}")
        print(f"\nWith the thresholds chosen on all:\n\n{table(errors, found)}\n", flush=True)
        if options.each:
            for r, e in zip(found, errors[:, 0, 0]):
                print(f"  {r.name:16s} {r.version:28s} DER {100 * rates(e):5.1f} %  missed {100 * e[MISSED] / e[SPEECH]:5.1f}  false "
                      f"alarm {100 * e[FALSE_ALARM] / e[SPEECH]:5.1f}  confusion {100 * e[CONFUSION] / e[SPEECH]:5.1f}  "
                      f"speakers {e[FOUND]:.0f}/{e[THERE]:.0f}")
        if best is None or cost < best[0]:
            best = cost, lengths, thresholds
    if options.out:
        model = dict(model_file.read(options.model), lengths=best[1], thresholds=best[2])
        before, data = Path(options.model).read_bytes(), model_file.write(options.out, model)
        if model_file.has_parameters(before):  # two at once and the level belong to the embeddings, the others hang on thresholds, too
            model_file.write_parameters(options.out, data, model_file.NO_SPEECH, model_file.NO_TREES, model_file.overlap_of(before))
        print(f"{options.out}: {best[1][0]}/{best[1][1]}")


if __name__ == "__main__":
    main()
