# SPDX-License-Identifier: Apache-2.0
"""Trains a network on so that its embeddings tell where two speak at once, and what reads it out of them: dilated convolutions over
two seconds of embeddings, with an output each for nobody, one, and more.

Where one speaks or nobody, embeddings are held to those of the network it began from, so that what else is read from them
stays; where two speak they are freer. With --rate 0 they are not touched at all, and the model keeps whatever was fitted to
them (detect, choose); otherwise that is left out of the model, and comes next. Learns from conversations mixed as sound
(mixtures.py), made once and kept in the folder of the run, and from stretches of real ones."""

import argparse
import multiprocessing
import time
from pathlib import Path

import numpy as np
import torch
from torch import nn
from torch.nn import functional

from . import mixtures, model_file, native, recordings, tune
from .network import Network
from .train import normalize

CHANNELS, DILATIONS = 40, (1, 2, 4, 8, 16)
FRAMES, BATCH = 500, 16  # of a step
NUMBER_WEIGHTS = (0.7, 1.0, 1.3)  # of frames of nobody, one and more
KEEP, KEEP_OVERLAPS = 2.0, 0.15  # weights of the distance to the old embeddings; share of it where two speak
REAL, FROM_REAL = 0.08, 0.12  # shares of conversations that are real, and of those mixed of real people
HELD_OUT = 60  # mixed conversations that are only looked at


class Block(nn.Module):
    def __init__(self, dilation):
        super().__init__()
        self.spread = nn.Conv1d(CHANNELS, CHANNELS, 3, padding=dilation, dilation=dilation)
        self.norm = nn.BatchNorm1d(CHANNELS)
        self.mix = nn.Conv1d(CHANNELS, CHANNELS, 1)

    def forward(self, x):
        return x + self.mix(torch.relu(self.norm(self.spread(x))))


class Reader(nn.Module):
    """Embeddings of unit length (frames, batch, dimension) to scores of nobody, one, more (frames, batch, 3)."""

    def __init__(self, dimension):
        super().__init__()
        self.first = nn.Conv1d(dimension, CHANNELS, 3, padding=1)
        self.blocks = nn.ModuleList(Block(d) for d in DILATIONS)
        self.last = nn.Conv1d(CHANNELS, 3, 1)

    def forward(self, embeddings):
        x = torch.relu(self.first(8 * embeddings.permute(1, 2, 0)))  # of unit length, so that each value is small
        for block in self.blocks:
            x = block(x)
        return self.last(x).permute(2, 0, 1)

    @torch.no_grad()
    def layers(self, favour):
        """(weight (outputs, inputs, taps), bias, dilation) of its layers as the library computes them: `favour` is added to the
        score of more than one."""
        found = [(8 * self.first.weight, self.first.bias, 1)]
        for block in self.blocks:
            norm = block.norm
            scale = norm.weight / torch.sqrt(norm.running_var + norm.eps)
            bias = (block.spread.bias - norm.running_mean) * scale + norm.bias
            found += [(block.spread.weight * scale[:, None, None], bias, block.spread.dilation[0]), (block.mix.weight, block.mix.bias, 1)]
        return [*found, (self.last.weight, self.last.bias + torch.tensor([0.0, 0.0, favour]), 1)]


def unit(embeddings):
    return functional.normalize(embeddings, dim=2, eps=1e-4)


def features_of(samples, model):
    """Normalized features of frames, and as many of them as there are."""
    rows = native.features(samples)
    rows = np.maximum(rows[:len(rows) // 2 * 2], -32767)
    table = torch.from_numpy((rows / 1024).reshape(-1, 1, 2 * native.BANDS).astype(np.float32))
    return normalize(table, model["mean"], model["scale"])[:, 0].numpy()


_voices = None  # of the process and its children


def _mix(job):
    seed, from_real, number, model = job
    rng = np.random.default_rng([seed, from_real, number])
    if from_real:
        real = _voices[1]
        people = [real[k] for k in rng.permutation(sorted(real))[:2 + rng.integers(3)]]
    else:
        people = _voices[0].choose(rng)
    samples, heard = mixtures.conversation(people, _voices[0].background, rng)
    features = features_of(np.pad(samples, (0, 8 * native.HOP)), model)[:len(heard)]
    return features.astype(np.float16), heard


def make_conversations(options, model, real):
    """Mixed conversations (features, numbers heard), of corpora and of real people, from the run's folder or made there."""
    global _voices
    parts = []
    for from_real, count in ((0, options.conversations), (1, int(options.conversations * FROM_REAL) if real else 0)):
        paths = [Path(options.out) / f"{'real' if from_real else 'mixed'}.{what}.npy" for what in ("features", "heard")]
        if count and not all(p.exists() for p in paths):
            if _voices is None:
                _voices = mixtures.Voices(options.corpora, options.skip, options.workers), mixtures.clips_of_real(real)
            shape = (count, mixtures.ROWS // 2)
            table = np.lib.format.open_memmap(paths[0], "w+", np.float16, (*shape, 2 * native.BANDS))
            heard = np.zeros(shape, np.int8)
            with multiprocessing.Pool(options.workers) as pool:
                jobs = ((options.seed, from_real, i, model) for i in range(count))
                for i, made in enumerate(pool.imap(_mix, jobs, 8)):
                    table[i], heard[i] = made
            np.save(paths[1], heard)
        if count:
            parts.append((np.load(paths[0], mmap_mode="r"), np.load(paths[1])))
    return parts


def real_conversations(found, model):
    """[(name, features, numbers heard)]."""
    result = []
    for name, audio, reference in found:
        features, (times, _) = features_of(native.read_audio(audio), model), recordings.read_rttm(reference)
        heard = np.zeros(len(features), np.int8)
        for start, end in times * native.RATE / native.HOP / 2:
            heard[int(round(start)):int(round(end))] += 1
        result.append((name, features, np.minimum(heard, 2)))
    return result


def batch_of(parts, real, rng):
    """Features (FRAMES, BATCH, 80) and numbers heard (FRAMES, BATCH)."""
    features, heard = [], []
    for _ in range(BATCH):
        if real and rng.random() < REAL:
            _, table, numbers = real[rng.integers(len(real))]
            table = table + np.float32(rng.normal(0, 0.3))
        else:
            part = len(parts) - 1 if rng.random() < FROM_REAL else 0
            tables, all_numbers = parts[part]
            number = rng.integers(0 if part else HELD_OUT, len(tables))
            table, numbers = tables[number].astype(np.float32), all_numbers[number]
        at = rng.integers(len(table) - FRAMES + 1)
        colour = np.tile(rng.normal(0, 0.15, native.BANDS), 2).astype(np.float32)
        features.append(table[at:at + FRAMES] + colour)
        heard.append(numbers[at:at + FRAMES])
    return torch.from_numpy(np.stack(features, 1)), torch.from_numpy(np.stack(heard, 1).astype(np.int64))


def average_precision(scores, heard):
    """Of calling frames in which somebody speaks overlapped, from the highest score on."""
    from sklearn.metrics import average_precision_score
    counts = heard >= 1
    return average_precision_score(heard[counts] == 2, scores[counts]) if (heard == 2).any() else float("nan")


class Run:
    def __init__(self, options, model):
        self.path = Path(options.out) / "overlap.pt"
        self.teacher, self.network = (Network(**model["sizes"]) for _ in range(2))
        for network in (self.teacher, self.network):
            network.load_state_dict({k: v.float() for k, v in model["state"].items()})
        self.teacher.requires_grad_(False)
        torch.manual_seed(options.seed)
        self.reader, self.step = Reader(model["sizes"]["embedding"]), 0
        self.moves = options.rate > 0  # whether embeddings do
        self.optimizer = torch.optim.AdamW([dict(params=self.reader.parameters(), factor=options.reader_rate),
                                            dict(params=self.network.parameters(), factor=options.rate)],
                                           betas=(0.9, 0.98), weight_decay=1e-4)
        if self.path.exists():
            saved = torch.load(self.path)
            self.network.load_state_dict(saved["network"])
            self.reader.load_state_dict(saved["reader"])
            self.optimizer.load_state_dict(saved["optimizer"])
            self.step = saved["step"]

    def save(self):
        part = self.path.with_suffix(".part")
        torch.save(dict(network=self.network.state_dict(), reader=self.reader.state_dict(),
                        optimizer=self.optimizer.state_dict(), step=self.step), part)
        part.rename(self.path)

    def one_step(self, x, heard, steps):
        for group in self.optimizer.param_groups:
            group["lr"] = group["factor"] * min(1, (self.step + 1) / 200) * max(1e-3, (1 + np.cos(np.pi * self.step / steps)) / 2)
        with torch.no_grad():
            old = unit(self.teacher(x))
        new = unit(self.network(x).clamp(-32, 32)) if self.moves else old
        wrong = functional.cross_entropy(self.reader(new).reshape(-1, 3), heard.reshape(-1), torch.tensor(NUMBER_WEIGHTS), ignore_index=-1)
        weight = torch.where(heard == 2, KEEP_OVERLAPS, 1.0)
        moved = ((1 - (new * old).sum(2)) * weight).sum() / weight.sum()
        self.optimizer.zero_grad()
        (wrong + KEEP * moved).backward()
        torch.nn.utils.clip_grad_norm_(self.network.parameters(), 5.0)
        self.optimizer.step()
        self.network.clamp_weights()
        self.step += 1
        return wrong.item(), moved.item()

    @torch.no_grad()
    def scores(self, features):
        """Log odds of two at once (frames,), and how near the embeddings are to the old ones, a cosine."""
        x = torch.from_numpy(features.astype(np.float32))[:, None]
        self.reader.eval()
        new = unit(self.network(x))
        z = self.reader(new)[:, 0]
        self.reader.train()
        return (z[:, 2] - torch.maximum(z[:, 0], z[:, 1])).numpy(), (new * unit(self.teacher(x))).sum(2)[:, 0].numpy()


def report(run, title, conversations):
    scores, near, heard = [], [], []
    for features, numbers in conversations:
        for into, values in zip((scores, near, heard), (*run.scores(features), numbers)):
            into.append(values)
    scores, near, heard = map(np.concatenate, (scores, near, heard))
    cosines = ", ".join(f"{what} {near[heard == number].mean():.4f}"
                        for number, what in ((1, "one speaks"), (2, "two")) if (heard == number).any())
    print(f"  {title}: average precision {average_precision(scores, heard):.3f}; cosine to the old embeddings, {cosines}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("model", help="the .zx file to begin with")
    parser.add_argument("corpora", nargs="+", help="folders as prepare takes them")
    parser.add_argument("--out", required=True, help="folder for conversations, checkpoint and overlap.zx")
    parser.add_argument("--skip", nargs="*", default=[], help="datasets to leave out")
    parser.add_argument("--real", nargs="*", default=[], metavar="FOLDER", help="recordings with references")
    parser.add_argument("--real-names", nargs="*", default=[], metavar="NAME", help="learn from these of them; of the others tell how well it does")
    parser.add_argument("--domains", default=native.ROOT / "training/domains.tsv", help="pattern of a name, domain, real|simulated")
    parser.add_argument("--conversations", type=int, default=5000)
    parser.add_argument("--steps", type=int, default=8000)
    parser.add_argument("--rate", type=float, default=6e-4, help="largest learning rate of the network; 0: it stays as it is")
    parser.add_argument("--reader-rate", type=float, default=3e-3, help="of what reads the embeddings")
    parser.add_argument("--favour", type=float, default=-2.0, help="added to the log odds of two at once: hearing two where one speaks is worse")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--workers", type=int, default=multiprocessing.cpu_count())
    options = parser.parse_args()
    Path(options.out).mkdir(parents=True, exist_ok=True)
    model = model_file.read(options.model)
    found, domains = recordings.find(options.real), tune.read_domains(options.domains)
    parts = make_conversations(options, model, [r for r in found if r[0] in options.real_names])
    real = real_conversations(found, model)
    trained_on = [r for r in real if r[0] in options.real_names and len(r[1]) >= FRAMES]
    held_out = {}
    for name, *conversation in real:
        if name not in options.real_names:
            held_out.setdefault(tune.domain_of(name, domains)[0], []).append(conversation)
    torch.set_num_threads(2)
    run = Run(options, model)
    started, first, saved = time.time(), run.step, time.time()
    smooth = np.zeros(2)
    while run.step < options.steps:
        rng = np.random.default_rng([options.seed, 2, run.step])
        values = np.array(run.one_step(*batch_of(parts, trained_on, rng), options.steps))
        smooth = values if not smooth.any() else 0.98 * smooth + 0.02 * values
        if run.step % 100 == 0:
            seconds = (time.time() - started) / (run.step - first)
            print(f"{run.step:6d}/{options.steps} wrong {smooth[0]:.4f}, moved {smooth[1]:.5f} | {seconds:.2f} s a step", flush=True)
        if run.step % 500 == 0 or run.step == options.steps:
            report(run, "mixed", list(zip(*(a[:HELD_OUT] for a in parts[0]))))
            for domain in sorted(held_out):
                report(run, domain, held_out[domain])
        if time.time() - saved > 240 or run.step == options.steps:
            run.save()
            saved = time.time()
    path, heard_by = Path(options.out) / "overlap.zx", model_file.overlap_bytes(run.reader.layers(options.favour))
    data = Path(options.model).read_bytes()
    if run.moves or not model_file.has_parameters(data):
        state = {**run.network.state_dict(), "background": model["state"]["background"]}
        network = model_file.to_bytes(**dict(model, state=state))
        model_file.write_parameters(path, network, model_file.NO_SPEECH, model_file.NO_TREES, heard_by)
    else:
        model_file.write_overlap(path, data, heard_by)
    print(path)


if __name__ == "__main__":
    main()
