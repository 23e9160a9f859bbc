# SPDX-License-Identifier: Apache-2.0
"""Trains the network on simulated conversations. Seeded; a run that was stopped goes on from its last checkpoint."""

import argparse
import csv
import dataclasses
import json
import math
import multiprocessing
import os
import time
from pathlib import Path

import numpy as np
import torch

from . import export, model_file, recordings
from .losses import Losses, TERMS
from .network import Network
from .simulate import Recipe, Speech, batch

RECIPE = Recipe()

WEIGHTS = dict(voice=0.5, frame=1.0, pair=0.7, centroid=1.0, follow=0.4, background=0.6, overlap=0.3)
# From this share of the steps on: recordings a step, chunks a recording, frames a chunk (32 ms each). Small at first: random
# weights learn as much from a step of a third of the frames, and take three steps in the time of one.
STAGES = [(0.0, (6, 3, 256)), (0.35, (10, 3, 512)), (0.75, (8, 2, 1280))]
LATER_STAGES = [(0.0, (10, 3, 512)), (0.6, (8, 2, 1280))]  # of a run that starts from trained weights


def stage_of(step, options):
    stages = LATER_STAGES if options.start_from else STAGES
    return [shape for begin, shape in stages if step >= begin * options.steps][-1]


def load_speech(options):
    return Speech(options.features, options.skip, real=recordings.find(options.real, only=options.real_names))


def simulate_steps(options, worker, first, queue):
    """Puts the batches of steps `first + worker`, `first + worker + workers`, ... into the queue. A batch depends on the
    seed and its step alone, so neither the number of workers nor a stop in between changes a run."""
    speech = load_speech(options)
    for step in range(first + worker, options.steps, options.workers):
        rng = np.random.default_rng([options.seed, step])
        queue.put(batch(speech, *stage_of(step, options), RECIPE, rng))


def feature_statistics(speech, seed):
    """Mean and scale (inverse deviation) of the bands in Q10, over simulated conversations; the file holds them as int16."""
    rng = np.random.default_rng([seed, 1 << 40])
    rows = np.concatenate([batch(speech, 4, 1, 640, RECIPE, rng)[0].reshape(-1, 40) for _ in range(20)])
    rows = rows[rows[:, 20] > -20]  # digital silence would drown the rest
    mean, deviation = rows.mean(0), rows.std(0)
    return np.round(mean * 1024).astype(np.int16), np.round(1024 / deviation).astype(np.int16)


def normalize(x, mean, scale):
    """Features in log10 units to the network's inputs, clamped as int16 in Q10 is."""
    mean, scale = (torch.as_tensor(np.tile(v, 2) / 1024, dtype=torch.float32, device=x.device) for v in (mean, scale))
    return ((x - mean) * scale).clamp(-32, 32)


def learning_rate(step, options):
    cosine = 0.5 * (1 + math.cos(math.pi * step / options.steps))
    return options.rate * min(1, (step + 1) / 200) * (0.01 + 0.99 * cosine)


def draw_curves(folder):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    if not (folder / "log.csv").exists():
        return
    with open(folder / "log.csv") as log:
        rows = list(csv.DictReader(log))
    if len(rows) < 2:
        return
    steps = [int(r["step"]) for r in rows]
    figure, axes = plt.subplots(1, 2, figsize=(11, 4), layout="constrained")
    for name in TERMS:
        axes[0].plot(steps, [float(r[name]) for r in rows], label=name)
    axes[0].set(xlabel="step", ylabel="loss", yscale="log", title="Losses")
    for name in ("share_frame", "share_same", "share_different", "share_speech", "share_voice"):
        axes[1].plot(steps, [100 * float(r[name]) for r in rows], label=name[6:])
    axes[1].set(xlabel="step", ylabel="%", title="Right: frames, pairs of runs, speech or not, voices", ylim=(0, 100))
    for axis in axes:
        axis.legend()
        axis.grid(alpha=0.3)
    figure.savefig(folder / "curves.png", dpi=110)
    plt.close(figure)


class Run:
    """Everything that a checkpoint holds."""

    def __init__(self, options):
        self.options = options
        self.folder = Path(options.out)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.speech = load_speech(options)
        torch.manual_seed(options.seed)
        self.network = Network(options.layers, options.units, options.embedding).to(options.device)
        self.losses = Losses(len(self.speech.voices), options.embedding).to(options.device)
        self.optimizer = torch.optim.AdamW([
            dict(params=self.network.parameters(), weight_decay=1e-4, factor=1.0),
            dict(params=self.losses.parameters(), weight_decay=0.0, factor=2.0)], betas=(0.9, 0.98))
        self.averaged = {k: v.detach().clone() for k, v in self.network.state_dict().items()}
        self.step = 0
        self.seconds = 0.0
        self.mean, self.scale = feature_statistics(self.speech, options.seed)
        checkpoint = self.folder / "checkpoint.pt"
        if checkpoint.exists():
            self.load(torch.load(checkpoint, map_location=options.device))
        elif options.start_from:
            if Path(options.start_from).suffix == ".zx":
                start = model_file.read(options.start_from)
            else:
                start = export.model_of(torch.load(options.start_from, map_location=options.device))
            self.network.grow_from(start["state"])
            self.averaged = {k: v.detach().clone() for k, v in self.network.state_dict().items()}
            self.mean, self.scale = start["mean"], start["scale"]

    def load(self, saved):
        self.network.load_state_dict(saved["network"])
        self.losses.load_state_dict(saved["losses"])
        self.optimizer.load_state_dict(saved["optimizer"])
        self.averaged, self.step, self.seconds = saved["averaged"], saved["step"], saved["seconds"]
        self.mean, self.scale = saved["mean"], saved["scale"]

    def save(self):
        part = self.folder / "checkpoint.part"
        torch.save(dict(network=self.network.state_dict(), losses=self.losses.state_dict(),
                        optimizer=self.optimizer.state_dict(), averaged=self.averaged, step=self.step,
                        seconds=self.seconds, mean=self.mean, scale=self.scale, sizes=self.network.sizes,
                        options=vars(self.options)), part)
        part.rename(self.folder / "checkpoint.pt")
        draw_curves(self.folder)

    def one_step(self, features, label, second, weight, voices, chunks):
        device = self.options.device
        x = normalize(torch.from_numpy(features).to(device), self.mean, self.scale)
        label, second, weight, voices = (torch.from_numpy(v).to(device) for v in (label, second, weight, voices))
        embedding = self.network(x).clamp(-32, 32)  # as int16 in Q10 saturates
        losses, shares = self.losses(embedding, self.network.background, label, second, weight, voices, chunks)
        loss = sum(WEIGHTS[k] * v for k, v in losses.items())
        for group in self.optimizer.param_groups:
            group["lr"] = learning_rate(self.step, self.options) * group["factor"]
        self.optimizer.zero_grad()
        loss.backward()
        norm = torch.nn.utils.clip_grad_norm_(self.network.parameters(), 5.0)
        if torch.isfinite(norm) and torch.isfinite(loss):
            self.optimizer.step()
            self.network.clamp_weights()
            keep = min(0.999, (1 + self.step) / (10 + self.step))
            for name, value in self.network.state_dict().items():
                self.averaged[name].lerp_(value, 1 - keep)
        self.step += 1
        return [float(losses[k]) for k in TERMS] + [float(shares[k]) for k in SHARES]


SHARES = ("voice", "same", "different", "frame", "speech")


def train(options):
    torch.set_num_threads(1)  # the layers use a core per direction themselves
    run = Run(options)
    context = multiprocessing.get_context("fork")
    queues = [context.Queue(4) for _ in range(options.workers)]
    workers = [context.Process(target=simulate_steps, args=(options, w, run.step, q), daemon=True)
               for w, q in enumerate(queues)]
    for worker in workers:
        worker.start()
    ran = dict(vars(options), weights=WEIGHTS, stages=LATER_STAGES if options.start_from else STAGES, recipe=dataclasses.asdict(RECIPE))
    (run.folder / "options.json").write_text(json.dumps(ran, indent=1, default=str))
    fresh = not (run.folder / "log.csv").exists()
    smooth = None
    first, started, before, saved = run.step, time.time(), run.seconds, time.time()
    heard = 0.0
    with open(run.folder / "log.csv", "w" if fresh else "a", newline="") as log:
        writer = csv.writer(log)
        if fresh:
            writer.writerow(["step", "hours", *TERMS, *("share_" + s for s in SHARES)])
        while run.step < options.steps:
            shape = stage_of(run.step, options)
            features, label, second, weight, voices = queues[(run.step - first) % options.workers].get()
            values = np.array(run.one_step(features, label, second, weight, voices, shape[1]))
            smooth = values if smooth is None else 0.97 * smooth + 0.03 * values
            heard += features.shape[0] * features.shape[1] * 0.032
            run.seconds = before + time.time() - started
            if run.step % 50 == 0:
                writer.writerow([run.step, f"{run.seconds / 3600:.4f}", *(f"{v:.4f}" for v in smooth)])
                log.flush()
                left = (time.time() - started) / (run.step - first) * (options.steps - run.step) / 60
                print(f"{run.step:6d}/{options.steps} " + " ".join(f"{k} {v:.3f}" for k, v in zip(TERMS, smooth)) + " | " +
                      " ".join(f"{k} {100 * v:.1f}%" for k, v in zip(SHARES, smooth[len(TERMS):])) +
                      f" | {heard / (time.time() - started):.0f}x, {left:.0f} min left", flush=True)
            if time.time() - saved > options.save_every:
                run.save()
                saved = time.time()
    run.save()
    for worker in workers:
        worker.terminate()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--features", required=True, help="what prepare wrote")
    parser.add_argument("--out", required=True, help="folder for checkpoint, log and curves")
    parser.add_argument("--steps", type=int, default=12000)
    parser.add_argument("--units", type=int, default=160)
    parser.add_argument("--layers", type=int, default=2)
    parser.add_argument("--embedding", type=int, default=64)
    parser.add_argument("--rate", type=float, default=2e-3, help="largest learning rate")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--real", nargs="*", default=[], metavar="FOLDER",
                        help="real conversations, each with an RTTM file of the same name beside it, to mix in")
    parser.add_argument("--real-names", nargs="*", metavar="NAME", help="take these of them alone")
    parser.add_argument("--skip", nargs="*", default=[], help="datasets to train without")
    parser.add_argument("--start-from", help="checkpoint of another run or model file (.zx) whose network to begin with; units may be added")
    parser.add_argument("--workers", type=int, default=2, help="processes that simulate")
    parser.add_argument("--save-every", type=float, default=300, help="seconds between checkpoints")
    parser.add_argument("--device", default="cuda" if torch.cuda.is_available() else "cpu")
    options = parser.parse_args()
    train(options)


if __name__ == "__main__":
    main()
