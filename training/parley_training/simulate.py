"""Conversations made of band energies: speakers take turns in a room, through a channel, over a background.

Energies of independent sounds add, so a conversation costs a few milliseconds a minute this way, where mixing and
convolving samples would cost a hundred times that. Everything is drawn from the generator that comes in."""

import json
from pathlib import Path

import numpy as np

from . import native
from .prepare import ROWS_PER_SECOND

BANDS = native.BANDS
BIN_EDGES = np.array([0, 1, 3, 5, 6, 8, 10, 12, 14, 17, 19, 22, 25, 28, 31, 34, 38, 41, 45, 50, 54, 59, 64, 70, 76, 82, 89,
                      96, 103, 111, 120, 129, 138, 148, 159, 171, 183, 196, 210, 225, 240, 257])
BINS = np.diff(BIN_EDGES)[:-1] + np.diff(BIN_EDGES)[1:]  # FFT bins that a band covers
SILENCE = -32.0  # log10 of no energy, as the filterbank gives it
TEXTURE_ROWS = 1 << 15
MOST_SPEAKERS = 6


class Speech:
    """The table that prepare.py wrote."""

    def __init__(self, folder, skip=(), only=None):
        folder = Path(folder)
        self.rows = np.memmap(folder / "rows.raw", np.int16, "r").reshape(-1, BANDS)
        self.activity = np.load(folder / "activity.npy", mmap_mode="r")
        self.energy_of = (10.0 ** (np.arange(-32768, 32768) / 1024)).astype(np.float32)
        self.voices, self.background, self.by_dataset = [], [], {}
        people = {}
        for entry in json.loads((folder / "index.json").read_text()):
            clips = entry["start"] + np.concatenate([[0], np.cumsum(entry["lengths"])])
            if entry["dataset"].startswith("_"):
                self.background += [(a, b) for a, b in zip(clips[:-1], clips[1:]) if b - a >= 60]
                continue
            person = entry["dataset"] + "/" + entry["speaker"]
            if entry["dataset"] in skip or (only is not None) != (only is not None and person in only):
                continue
            people.setdefault(person, len(people))
            self.by_dataset.setdefault(entry["dataset"], []).append(len(self.voices))
            self.voices.append((clips, people[person]))
        self.num_people = len(people)
        # Energies of noise in a band scatter as a gamma variable of about half its bins' number of degrees does.
        shape = BINS * 0.6
        self.texture = np.random.default_rng(0).gamma(shape, 1 / shape, (TEXTURE_ROWS, BANDS)).astype(np.float32)

    def energies(self, start, end):
        return self.energy_of[self.rows[start:end].astype(np.int32) + 32768]

    def fluctuation(self, count, rng):
        at = rng.integers(TEXTURE_ROWS)
        return np.take(self.texture, np.arange(at, at + count), axis=0, mode="wrap")


def curve(rng, deviation, knots=6):
    """A smooth random curve over the bands."""
    return np.interp(np.arange(BANDS), np.linspace(0, BANDS - 1, knots), rng.normal(0, deviation, knots))


def warp(factor):
    """The matrix that moves energy along the bands as a change of vocal tract length by `factor` would."""
    middle = BIN_EDGES[1:-1].astype(float)
    source = np.interp(middle * factor, middle, np.arange(BANDS))
    low = np.clip(source.astype(int), 0, BANDS - 2)
    part = source - low
    matrix = np.zeros((BANDS, BANDS))
    matrix[low, np.arange(BANDS)] += 1 - part
    matrix[low + 1, np.arange(BANDS)] += part
    return matrix


def choose_voices(speech, count, rng):
    """Voices of `count` different people (or of all there are), mostly of one dataset, so that its channel does not tell
    them apart."""
    count = min(count, speech.num_people)
    datasets = sorted(speech.by_dataset)
    if rng.random() < 0.75:
        sizes = np.array([len(speech.by_dataset[d]) for d in datasets], float) ** 0.7
        pool = speech.by_dataset[datasets[rng.choice(len(datasets), p=sizes / sizes.sum())]]
    else:
        pool = range(len(speech.voices))
    voices, people = [], set()
    while len(voices) < count:
        voice = int(pool[rng.integers(len(pool))])
        if speech.voices[voice][1] not in people:
            people.add(speech.voices[voice][1])
            voices.append(voice)
        elif len(people) >= len({speech.voices[v][1] for v in pool}):
            pool = range(len(speech.voices))
    return voices


def plan_turns(rows, count, rng):
    """[(start, end, speaker)] in rows; turns overlap, pause, follow at once, and sometimes hold a short interjection."""
    share = rng.dirichlet(np.full(count, 2.0))
    middle = rng.choice([0.9, 2.3, 3.5, 7.0], p=[0.22, 0.4, 0.26, 0.12])  # seconds
    overlapping, pausing = rng.uniform(0, 0.4), rng.uniform(0.02, 0.2)
    interjecting = rng.uniform(0, 0.15)
    seconds = lambda s: int(ROWS_PER_SECOND * s)
    turns = []
    at = -rng.integers(0, 150) if rng.random() < 0.6 else rng.integers(0, 120)
    speaker = -1
    while at < rows:
        chances = share.copy()
        if speaker >= 0 and count > 1:
            chances[speaker] *= 0.12
        speaker = rng.choice(count, p=chances / chances.sum())
        length = seconds(np.clip(np.exp(rng.normal(np.log(middle), 0.8)), 0.3, 25))
        turns.append((at, at + length, speaker))
        if count > 1 and length > 120 and rng.random() < interjecting:
            start = at + rng.integers(30, length - 60)
            turns.append((start, start + seconds(rng.uniform(0.3, 1.0)), (speaker + 1 + rng.integers(count - 1)) % count))
        u = rng.random()
        if u < overlapping:
            gap = -seconds(rng.exponential(0.45))
        elif u < overlapping + pausing:
            gap = seconds(rng.uniform(0.8, 4))
        else:
            gap = seconds(rng.exponential(0.3))
        at += max(length + gap, 10)
    return turns


def lay_voice(speech, voice, spans, rows, restless, rng):
    """A voice's clips, one after the other from a random place on, along its turns: energies and activity over `rows`.

    From turn to turn its level and colour change with a deviation of `restless` (log10 units), so that they alone do not
    tell who speaks."""
    energy, active = np.zeros((rows, BANDS), np.float32), np.zeros(rows, bool)
    clips = speech.voices[voice][0]
    for start, end in spans:
        clip = rng.integers(len(clips) - 1)
        fits = clips[clip + 1] - clips[clip] - (end - start)
        at = clips[clip] + (rng.integers(fits + 1) if fits > 0 else 0)
        turn = (10 ** (rng.normal(0, restless) + curve(rng, 0.4 * restless))).astype(np.float32)
        while start < min(end, rows):
            take = min(end - start, clips[clip + 1] - at)
            a, b = max(start, 0), min(start + take, rows)
            if b > a:
                skip = a - start
                energy[a:b] = speech.energies(at + skip, at + skip + b - a) * turn
                active[a:b] = speech.activity[at + skip:at + skip + b - a]
            start += take
            clip = (clip + 1) % (len(clips) - 1)
            at = clips[clip]
    return energy, active


def background(speech, rows, rng):
    """Energies of one kind of background with a mean of 1."""
    kind = rng.random()
    if speech.background and kind < 0.45:
        start, end = speech.background[rng.integers(len(speech.background))]
        noise = np.take(speech.energies(start, end), np.arange(rows) + rng.integers(end - start), axis=0, mode="wrap")
        if rng.random() < 0.5:
            noise = noise * 10 ** curve(rng, 0.25).astype(np.float32)
    elif kind < 0.6:  # babble
        noise = np.zeros((rows, BANDS), np.float32)
        for _ in range(rng.integers(3, 9)):
            clips = speech.voices[rng.integers(len(speech.voices))][0]
            span = np.take(speech.energies(clips[0], clips[-1]), np.arange(rows) + rng.integers(clips[-1] - clips[0]),
                           axis=0, mode="wrap")
            noise += span / (span.mean() + 1e-15)
        noise *= 10 ** curve(rng, 0.25).astype(np.float32)
    else:  # stationary, of any colour
        colour = 10 ** (curve(rng, 0.5) + rng.uniform(-0.05, 0.02) * np.arange(BANDS))
        noise = colour.astype(np.float32) * speech.fluctuation(rows, rng)
    if rng.random() < 0.3:
        swell = 10 ** np.interp(np.arange(rows), np.linspace(0, rows, 12), rng.normal(0, 0.4, 12))
        noise = noise * swell[:, None].astype(np.float32)
    mean = noise.sum(1).mean()
    return noise / mean if mean > 1e-11 else np.zeros_like(noise)


def band_limit(log_energy, rng):
    """What a narrow channel leaves: bands above and below it hold little but its own noise."""
    rows = len(log_energy)
    low = rng.integers(0, 5) if rng.random() < 0.5 else 0
    high = rng.integers(26, BANDS)
    floor = rng.uniform(-11, -7)
    log_energy[:, high:] = np.minimum(log_energy[:, high:] - rng.uniform(1, 5), floor) + rng.normal(0, 0.12, (rows, BANDS - high))
    if low:
        log_energy[:, :low] -= rng.uniform(0.5, 2.5)


def conversation(speech, frames, rng):
    """Features before normalization (frames, 80) float32, log10 of energy; the local speaker of every frame (int, -1 none),
    how much a frame counts (float32), and the voices behind the local speakers."""
    rows = 2 * frames
    count = rng.choice(np.arange(1, MOST_SPEAKERS + 1), p=[0.06, 0.32, 0.28, 0.2, 0.09, 0.05])
    voices = choose_voices(speech, count, rng)
    count = len(voices)
    turns = plan_turns(rows, count, rng)

    room = curve(rng, rng.choice([0.15, 0.4]))  # log10 units, common to all
    # Mostly one microphone, in some recordings one of everyone's own.
    differing = rng.uniform(0.2, 0.4) if rng.random() < 0.15 else rng.uniform(0, 0.12)
    restless = rng.uniform(0.02, 0.2)
    decay_time = rng.uniform(0.15, 0.9)  # seconds to fall by 60 dB
    reverberant = rng.random() < 0.7
    spread = rng.uniform(0.02, 0.55)  # of the speakers' levels, log10 units
    total = np.zeros((rows, BANDS), np.float32)
    power, active = np.zeros((rows, count), np.float32), np.zeros((rows, count), bool)
    for k, voice in enumerate(voices):
        energy, active[:, k] = lay_voice(speech, voice, [(a, b) for a, b, s in turns if s == k], rows, restless, rng)
        colour = room + curve(rng, differing)
        channel = warp(rng.uniform(0.95, 1.05)) if rng.random() < 0.5 else np.eye(BANDS)
        energy = energy @ (channel * 10 ** colour).astype(np.float32)
        mean = energy[active[:, k]].sum(1).mean() if active[:, k].any() else 0
        if mean <= 0:
            continue
        energy *= 10 ** rng.normal(0, spread) / mean
        if reverberant:
            own = decay_time * rng.uniform(0.85, 1.15) * (1 - 0.5 * np.linspace(0, 1, BANDS) * rng.random())
            decay = 10 ** (-6 / (own * ROWS_PER_SECOND))
            direct_to_reverberant = 10 ** (rng.uniform(-2, 18) / 10)
            tail = (1 - decay) / decay / direct_to_reverberant
            native.reverberate(energy, decay.astype(np.float32), tail.astype(np.float32), speech.fluctuation(rows, rng))
        power[:, k] = energy.sum(1)
        total += energy
    speaking = active.any(1)
    loudness = total[speaking].sum(1).mean() if speaking.any() else 1.0
    total /= loudness
    if rng.random() < 0.97:
        for _ in range(1 + (rng.random() < 0.2)):
            total += background(speech, rows, rng) * np.float32(10 ** (-rng.uniform(3, 40) / 10))
    total *= np.float32(10 ** rng.uniform(-6.3, -2.2))  # level of the recording
    total += np.float32(10 ** rng.uniform(-12, -8.5)) * speech.fluctuation(rows, rng)  # of the converter
    log_energy = np.log10(np.maximum(total, 1e-15))
    u = rng.random()
    if u < 0.25:
        band_limit(log_energy, rng)
    elif u < 0.29:
        log_energy[~speaking] = SILENCE

    # The louder of those who speak has the row; a frame of two kinds of rows counts less, as do overlaps and changes.
    several = active.sum(1) > 1
    row_label = np.where(speaking, (power * active).argmax(1), -1)
    first, second = row_label[0::2], row_label[1::2]
    label = np.maximum(first, second)
    weight = np.where(first == second, np.where(several[0::2] | several[1::2], 0.3, 1.0), 0.4)
    change = np.flatnonzero(np.diff(label))
    near = np.clip(change[:, None] + np.arange(-1, 3), 0, frames - 1)
    weight[np.unique(near)] *= 0.5
    return log_energy.reshape(frames, 2 * BANDS), label, weight.astype(np.float32), voices


def batch(speech, recordings, chunks, frames, rng):
    """`chunks` consecutive chunks of each of `recordings` conversations, B = recordings * chunks, side by side.

    features (frames, B, 80) float32; label (frames, B), the speaker's number in its recording or -1; weight (frames, B);
    voices (recordings, 6), the table's voice behind each number or -1."""
    parts = []
    all_voices = np.full((recordings, MOST_SPEAKERS), -1)
    for r in range(recordings):
        x, label, weight, voices = conversation(speech, chunks * frames, rng)
        parts.append([v.reshape(chunks, frames, *v.shape[1:]) for v in (x, label, weight)])
        all_voices[r, :len(voices)] = voices
    features, label, weight = (np.ascontiguousarray(np.swapaxes(np.concatenate(p), 0, 1)) for p in zip(*parts))
    return features.astype(np.float32), label, weight, all_voices
