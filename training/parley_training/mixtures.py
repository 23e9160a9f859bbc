# SPDX-License-Identifier: Apache-2.0
"""Conversations mixed as sound, and how many speak in each frame.

simulate.py adds energies of bands, which is quick. But two voices at once interfere: in every band the energy of their sum
swings around the sum of their energies, and that is much of what tells two from one. So what hears two at once learns from
samples that were added."""

import dataclasses
import multiprocessing
from pathlib import Path

import numpy as np
from scipy.signal import fftconvolve, lfilter, resample_poly

from . import native, prepare, recordings

ROWS = 2000  # of a conversation, 32 s
SAMPLES = ROWS * native.HOP
LONGEST_CLIP, LONGEST_VOICE, SHORTEST_VOICE = (s * native.RATE for s in (30, 90, 4))
SINGLE_WORDS = {"gsc", "gsc_short", "an4", "arabic_commands", "fsdd"}  # which are heard less often than speech that goes on
AUDIBLE, INAUDIBLE = 0.02, 0.0003  # energy of a second voice beside the first: -17 and -35 dB; in between it does not count
CODECS = [c for c in prepare.CODECS if c]


@dataclasses.dataclass
class Clip:
    samples: np.ndarray  # int16, whole rows
    active: np.ndarray  # bool, of each row


def clip_of(samples):
    samples = samples[:len(samples) // native.HOP * native.HOP]
    rows = len(samples) // native.HOP
    # The last rows of a recording have no energies of their own.
    energies = native.features(np.pad(samples, (0, 8 * native.HOP)))[:rows]
    return Clip(samples, np.pad(prepare.speech_activity(energies), (0, rows - len(energies))))


def clips_of(files):
    clips, total = [], 0
    for path in files:
        try:
            samples = native.read_audio(path)
        except native.EngineError:
            continue
        if len(samples) >= native.RATE // 2 and total < LONGEST_VOICE:
            clips.append(clip_of(samples[:LONGEST_CLIP]))
            total += len(samples)
    return clips


def clips_of_real(found):
    """{speaker: clips} of the stretches of recordings with references in which one speaks alone."""
    people = {}
    for name, audio, reference in found:
        samples, (times, speakers) = native.read_audio(audio), recordings.read_rttm(reference)
        active = np.zeros((speakers.max() + 1, len(samples) // native.HOP), bool)
        for (start, end), k in zip(times * native.RATE / native.HOP, speakers):
            active[k, int(start):int(end)] = True
        for k in np.unique(speakers):
            edges = np.flatnonzero(np.diff((active[k] & (active.sum(0) == 1)).astype(int), prepend=0, append=0))
            people[f"{name} {k}"] = [clip_of(samples[a * native.HOP:b * native.HOP]) for a, b in zip(edges[::2], edges[1::2]) if b - a >= 25]
    return {k: clips for k, clips in people.items() if clips}


class Voices:
    """{dataset: {speaker: clips}}, and clips of background."""

    def __init__(self, corpora, skip, workers):
        found = [(key, files) for corpus in corpora for key, files in prepare.find_speakers(corpus).items() if key[0] not in skip]
        self.people, self.background = {}, []
        with multiprocessing.Pool(workers) as pool:
            for ((dataset, speaker), _), clips in zip(found, pool.imap(clips_of, [files for _, files in found], 8)):
                if dataset.startswith("_"):
                    self.background += [c.samples for c in clips if len(c.samples) > 3 * native.RATE]
                elif sum(len(c.samples) for c in clips) > SHORTEST_VOICE:
                    self.people.setdefault(dataset, {})[speaker] = clips
        self.people = {d: people for d, people in self.people.items() if len(people) >= 6}

    def choose(self, rng):
        """Clips of one to six people, mostly of one dataset."""
        datasets = sorted(self.people)
        share = np.array([len(self.people[d]) ** 0.6 * (0.35 if d in SINGLE_WORDS else 1) for d in datasets])
        chosen = [datasets[rng.choice(len(datasets), p=share / share.sum())]] if rng.random() < 0.85 else datasets
        pool = [self.people[d][s] for d in chosen for s in sorted(self.people[d])]
        count = 1 + rng.choice(6, p=[0.05, 0.25, 0.25, 0.25, 0.12, 0.08])
        return [pool[i] for i in rng.permutation(len(pool))[:count]]


def turns_of(count, rng):
    """[(first row, end, speaker)]: people who take turns, interrupt and interject, or who do not care about each other."""
    def rows(seconds):
        return int(seconds * native.RATE / native.HOP)

    def length(middle, deviation, least, most):
        return rows(np.clip(np.exp(rng.normal(np.log(middle), deviation)), least, most))

    turns = []
    if rng.random() < 0.5:
        share, middle = rng.dirichlet(np.full(count, 2.0)), rng.choice([0.9, 2.3, 3.5, 7.0], p=[0.22, 0.4, 0.26, 0.12])
        overlapping, pausing, interjecting = rng.uniform(0.1, 0.8), rng.uniform(0.02, 0.2), rng.uniform(0.1, 0.8)
        at, speaker, overlap = -rng.integers(0, 150), -1, rng.choice([0.45, 0.9])
        while at < ROWS:
            chances = share * np.where(np.arange(count) == speaker, 0.12 if count > 1 else 1, 1)
            speaker = rng.choice(count, p=chances / chances.sum())
            end = at + length(middle, 0.8, 0.3, 25)
            turns.append((at, end, speaker))
            while count > 1 and end - at > 120 and rng.random() < interjecting:
                start = at + rng.integers(20, end - at - 40)
                turns.append((start, start + length(0.6, 0.6, 0.25, 4), (speaker + 1 + rng.integers(count - 1)) % count))
                if rng.random() < 0.5:
                    break
            kind = rng.random()
            if kind < overlapping:
                gap = -rows(rng.exponential(overlap))
            elif kind < overlapping + pausing:
                gap = rows(rng.uniform(0.8, 4))
            else:
                gap = rows(rng.exponential(0.3))
            at = max(end + gap, at + 10)
        return turns
    speaking = rng.uniform(0.6, 2.0)  # at once, in the mean
    for speaker in range(count):
        at, middle = -rng.integers(0, 200), rng.choice([0.9, 2.3, 4.0])
        share = np.clip(speaking / count * rng.uniform(0.4, 1.8), 0.05, 0.85)
        while at < ROWS:
            spoken = length(middle, 0.8, 0.3, 20)
            at += int(spoken * (1 / share - 1) * rng.exponential() + 5)
            turns.append((at, at + spoken, speaker))
            at += spoken
    return turns


def spoken(clips, rows, rng):
    """So many rows of somebody's speech, and where there is some."""
    samples, active, at = np.zeros(rows * native.HOP, np.float32), np.zeros(rows, bool), 0
    while at < rows:
        clip = clips[rng.integers(len(clips))]
        take = min(rows - at, len(clip.active))
        if take == 0:
            break
        start = rng.integers(len(clip.active) - take + 1)
        samples[at * native.HOP:(at + take) * native.HOP] = clip.samples[start * native.HOP:(start + take) * native.HOP]
        active[at:at + take] = clip.active[start:start + take]
        at += take
    edge = min(160, len(samples) // 4)
    samples[:edge] *= np.linspace(0, 1, edge, dtype=np.float32)
    samples[len(samples) - edge:] *= np.linspace(1, 0, edge, dtype=np.float32)
    return samples, active


def colour(deviation, rng):
    """A filter with a smooth random response, in dB."""
    response = np.interp(np.linspace(0, 1, 65), np.linspace(0, 1, 7), rng.normal(0, deviation, 7))
    return (np.roll(np.fft.irfft(10 ** (response / 20)), 64) * np.hanning(128)).astype(np.float32)


def room(decay_time, direct_to_reverberant, rng):
    """An impulse response: noise that falls by 60 dB in the decay time behind the direct sound."""
    at = np.arange(int(native.RATE * min(decay_time, 0.9))) / native.RATE
    response = rng.normal(0, 1, len(at)) * 10 ** (-3 * at / decay_time)
    response[:rng.integers(20, 120)] = 0
    response *= np.sqrt(10 ** (-direct_to_reverberant / 10) / max(1e-9, (response ** 2).sum()))
    response[0] = 1
    return response.astype(np.float32)


def leaked(samples, rng):
    """With what other microphones hear of it a little later."""
    result = samples.copy()
    for _ in range(rng.integers(1, 4)):
        late = rng.integers(8, 400)
        result[late:] += samples[:-late] * np.float32(10 ** (-rng.uniform(6, 22) / 20) * rng.choice([-1, 1]))
    return result


def noise(background, rng):
    """Background from somewhere, or noise of some colour."""
    if background and rng.random() < 0.5:
        clip = background[rng.integers(len(background))]
        return np.take(clip, np.arange(SAMPLES) + rng.integers(len(clip)), mode="wrap").astype(np.float32)
    white = fftconvolve(rng.normal(0, 1, SAMPLES), colour(8, rng))[:SAMPLES]
    return lfilter([1], [1, -rng.uniform(0, 0.95)], white).astype(np.float32)


def heard_through(samples, rng):
    """As a telephone, a recorder that is set too loud, or a codec leaves it; int16."""
    kind = rng.random()
    if kind < 0.2:
        low = resample_poly(samples, 1, 2)
        samples = resample_poly(low, 2, 1)[:SAMPLES]
    elif kind < 0.3:
        limit = np.percentile(np.abs(samples), rng.uniform(98, 99.9))
        samples = np.clip(samples, -limit, limit)
    pcm = np.clip(np.round(samples), -32768, 32767).astype(np.int16)
    if kind < 0.1 or kind > 0.75:
        pcm = prepare.through_codec(pcm, CODECS[rng.integers(len(CODECS))])
    return pcm


def number_heard(energy, active):
    """How many speak in each frame of two rows (int8), at most 2; -1 where that is doubtful."""
    loud = np.sort(np.stack([np.convolve(e, np.ones(9) / 9, "same") for e in energy]) * active, 0)[::-1]
    number = np.minimum(active.sum(0), 1).astype(np.int8)
    if len(energy) > 1:
        ratio, several = loud[1] / np.maximum(loud[0], 1e-12), active.sum(0) > 1
        number[several & (ratio > INAUDIBLE)] = -1
        number[several & (ratio > AUDIBLE)] = 2
    number[active.any(0) & (loud.sum(0) < 1e-4 * (energy[active].mean() if active.any() else 1))] = -1
    return np.where(number[0::2] == number[1::2], number[0::2], -1).astype(np.int8)


def conversation(people, background, rng):
    """Of people, each a list of clips: samples (int16, 32 s), and number_heard of its frames."""
    turns = turns_of(len(people), rng)
    total = np.zeros(SAMPLES, np.float32)
    energy, active = np.zeros((len(people), ROWS), np.float32), np.zeros((len(people), ROWS), bool)
    reverberant, decay_time, leaking = rng.random() < 0.6, rng.uniform(0.15, 0.8), rng.random() < 0.35
    level_spread, colour_spread = rng.uniform(0.5, 5), rng.uniform(0.5, 4)  # dB
    for k, clips in enumerate(people):
        voice = np.zeros(SAMPLES, np.float32)
        for start, end in ((max(a, 0), min(b, ROWS)) for a, b, speaker in turns if speaker == k):
            if end - start < 4:
                continue
            samples, speech = spoken(clips, end - start, rng)
            voice[start * native.HOP:end * native.HOP] += samples * np.float32(10 ** (rng.normal(0, 1.5) / 20))
            active[k, start:end] |= speech
        loudness = (voice.reshape(ROWS, native.HOP)[active[k]] ** 2).mean() if active[k].any() else 0
        if loudness <= 0:
            continue
        voice = fftconvolve(voice / np.sqrt(loudness), colour(colour_spread, rng))[:SAMPLES]
        if leaking:
            voice = leaked(voice, rng)
        if reverberant:
            voice = fftconvolve(voice, room(decay_time, rng.uniform(-2, 20), rng))[:SAMPLES]
        voice = (voice * 10 ** (rng.normal(0, level_spread) / 20)).astype(np.float32)
        energy[k] = (voice.reshape(ROWS, native.HOP) ** 2).mean(1)
        total += voice
    loudness = energy[active].mean() if active.any() else 1
    for _ in range(rng.choice(3, p=[0.1, 0.63, 0.27])):
        added = noise(background, rng)
        if (power := (added ** 2).mean()) > 0:
            total += added * np.float32(np.sqrt(loudness / power) * 10 ** (-rng.uniform(3, 45) / 20))
    total *= np.float32(32768 * 10 ** (-rng.uniform(14, 42) / 20) / np.sqrt(loudness))
    return heard_through(total, rng), number_heard(energy, active)
