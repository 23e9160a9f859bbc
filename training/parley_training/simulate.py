# SPDX-License-Identifier: Apache-2.0
"""Conversations made of band energies: speakers take turns in a room, through a channel, over a background.

Energies of independent sounds add, so a conversation costs a few milliseconds a minute this way, where mixing and
convolving samples would cost a hundred times that. Everything is drawn from the generator that comes in."""

import dataclasses
import json
from pathlib import Path

import numpy as np

from . import native, recordings
from .prepare import CODECS, ROWS_PER_SECOND

BANDS = native.BANDS
BIN_EDGES = native.band_edges()  # FFT bins, 31.25 Hz each
BINS = np.diff(BIN_EDGES)[:-1] + np.diff(BIN_EDGES)[1:]  # FFT bins that a band covers
ABOVE_4_KHZ = int(np.searchsorted(BIN_EDGES[1:-1], 128))  # the first band that telephones do not carry
SILENCE = -32.0  # log10 of no energy, as the filterbank gives it
TEXTURE_ROWS = 1 << 15
MAX_SPEAKERS = 8
AUDIBLE = 0.1  # energy of a second speaker beside the loudest one's (-10 dB)


@dataclasses.dataclass(frozen=True)
class Recipe:
    """How conversations are drawn. Shares are of recordings unless another unit is named; levels and colours are log10 of
    energy; pairs are the borders between which a number is drawn evenly."""

    # Who speaks
    people: tuple = (0.07, 0.30, 0.24, 0.17, 0.09, 0.06, 0.04, 0.03)  # with 1, 2, ... people
    one_dataset: float = 0.7  # whose voices all come from one dataset
    dataset_power: float = 0.4  # a dataset is drawn by this power of the number of its voices
    coded: float = 0.25  # through a low-rate codec, really coded
    real: float = 0.04  # real conversations, if there are any

    # When they speak
    turn_seconds: tuple = ((0.9, 0.22), (2.3, 0.40), (3.5, 0.26), (7.0, 0.12))  # median of the turns, its share
    monologue: float = 0.08  # where one speaks for minutes
    overlapping: tuple = (0.0, 0.4)  # of the changes
    pausing: tuple = (0.02, 0.2)  # of the changes, for 0.8 to 4 s
    long_silence: float = 0.12  # with a pause of 8 to 60 s
    interjecting: tuple = (0.0, 0.3)  # of the turns
    from_the_start: float = 0.6  # which begin within a turn
    nobody: float = 0.08  # in which nobody speaks at all
    few_words: float = 0.0  # in which there are some words and no more

    # How a voice arrives
    alike: float = 0.85  # whose voices' average spectra are pulled together
    alike_by: tuple = (0.3, 1.0)
    turn_alike: tuple = (0.0, 0.3)  # the same of the turns of a voice
    own_microphone: float = 0.12
    own_colour: tuple = (0.2, 0.4)
    shared_colour: tuple = (0.0, 0.12)
    own_voices: float = 0.0  # deviation of the factor by which each voice's vocal tract is made longer or shorter
    restless: tuple = (0.02, 0.2)  # deviation of level and colour from turn to turn
    level_spread: tuple = (0.02, 0.6)  # deviation of the speakers' levels
    reverberant: float = 0.7
    moving: float = 0.3  # whose speakers come nearer and go away
    leaking: float = 0.2  # other people's microphones open

    # What else there is
    background: float = 0.97
    background_below: tuple = (3, 40)  # dB
    bursts: float = 0.25  # with stretches of background as loud as speech
    burst_level: tuple = (-0.8, 0.6)
    sounds: float = 0.35  # breath, coughs, laughter, clicks
    jingle: float = 0.08  # music of its own for seconds, over speech or alone
    hum: float = 0.08
    clipped: float = 0.06
    level: tuple = (-7.5, -2.0)  # of the recording
    converter: tuple = (-12, -8.5)
    narrow: float = 0.2  # of the uncoded ones: a band without its edges
    gated: float = 0.06  # digital silence wherever nobody speaks
    cut: float = 0.06  # digital silence here and there
    silent_start: float = 0.12  # digital silence in front
    quiet_start: float = 0.05  # background alone in front


class Speech:
    """The table that prepare.py wrote, and real conversations."""

    def __init__(self, folder, skip=(), only=None, real=()):
        folder = Path(folder)
        self.rows = np.memmap(folder / "rows.raw", np.int16, "r").reshape(-1, BANDS)
        self.activity = np.load(folder / "activity.npy", mmap_mode="r")
        self.energy_of = (10.0 ** (np.arange(-32768, 32768) / 1024)).astype(np.float32)
        self.voices, self.people_of, self.spectra = [], [], []
        self.background, self.music = ({c: [] for c in ("", *CODECS)} for _ in range(2))
        self.background_datasets = []  # dataset, codec, clips
        self.by_channel = {}  # codec: dataset: voices
        people = {}
        for entry in json.loads((folder / "index.json").read_text()):
            clips = entry["start"] + np.concatenate([[0], np.cumsum(entry["lengths"])])
            codec = entry["codec"]
            if entry["dataset"].startswith("_"):
                if entry["dataset"] in skip:
                    continue
                found = [(a, b) for a, b in zip(clips[:-1], clips[1:]) if b - a >= 60]
                self.background[codec] += found
                self.background_datasets.append((entry["dataset"], codec, found))
                if entry["dataset"] == "_music":
                    self.music[codec] += found
                continue
            person = entry["dataset"] + "/" + entry["speaker"]
            if entry["dataset"] in skip or (only is not None) != (only is not None and person in only):
                continue
            self.by_channel.setdefault(codec, {}).setdefault(entry["dataset"], []).append(len(self.voices))
            self.people_of.append(people.setdefault(person, len(people)))
            self.spectra.append(entry["spectrum"])
            self.voices.append(clips)
        self.num_people = len(people)
        self.spectra = np.array(self.spectra)
        self.real = [recordings.labelled_rows(audio, reference, speed) for name, audio, reference in real
                     for speed in recordings.SPEEDS]
        # Energies of noise in a band scatter as a gamma variable of about half its bins' number of degrees does.
        shape = BINS * 0.6
        self.texture = np.random.default_rng(0).gamma(shape, 1 / shape, (TEXTURE_ROWS, BANDS)).astype(np.float32)

    def energies(self, start, end):
        return self.energy_of[self.rows[start:end].astype(np.int32) + 32768]

    def fluctuation(self, count, rng):
        at = rng.integers(TEXTURE_ROWS)
        return np.take(self.texture, np.arange(at, at + count), axis=0, mode="wrap")


def seconds(s):
    return int(ROWS_PER_SECOND * s)


def curve(rng, deviation, knots=6):
    """A smooth random curve over the bands."""
    return np.interp(np.arange(BANDS), np.linspace(0, BANDS - 1, knots), rng.normal(0, deviation, knots))


def swell(rows, deviation, rng, knots=12):
    """A smooth random curve over time."""
    return 10 ** np.interp(np.arange(rows), np.linspace(0, rows, knots), rng.normal(0, deviation, knots)).astype(np.float32)


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


def choose_voices(speech, count, codec, recipe, rng):
    """Voices of `count` different people (or of all there are), mostly of one dataset, so that its channel does not tell
    them apart."""
    pools = speech.by_channel[codec]
    everyone = [v for d in sorted(pools) for v in pools[d]]
    datasets = sorted(pools)
    if rng.random() < recipe.one_dataset:
        sizes = np.array([len(pools[d]) for d in datasets], float) ** recipe.dataset_power
        pool = pools[datasets[rng.choice(len(datasets), p=sizes / sizes.sum())]]
    else:
        pool = everyone
    count = min(count, len({speech.people_of[v] for v in everyone}))
    there = len({speech.people_of[v] for v in pool})
    voices, people = [], set()
    while len(voices) < count:
        voice = int(pool[rng.integers(len(pool))])
        if speech.people_of[voice] not in people:
            people.add(speech.people_of[voice])
            voices.append(voice)
        elif len(people) >= there:
            pool = everyone
    return voices


def plan_turns(rows, count, recipe, rng):
    """[(start, end, speaker)] in rows; turns overlap, pause, follow at once, and sometimes hold a short interjection."""
    if recipe.few_words > 0 and rng.random() < recipe.few_words:
        starts = np.sort(rng.integers(0, rows - 60, rng.integers(1, 4)))
        return [(at, at + seconds(np.exp(rng.uniform(np.log(0.4), np.log(3)))), int(rng.integers(count))) for at in starts]
    share = rng.dirichlet(np.full(count, 2.0))
    medians, chances = zip(*recipe.turn_seconds)
    middle = rng.choice(medians, p=chances)
    monologue = rng.random() < recipe.monologue
    if monologue:
        share = 0.15 * share
        share[rng.integers(count)] += 0.85
    overlapping, pausing = rng.uniform(*recipe.overlapping), rng.uniform(*recipe.pausing)
    interjecting = rng.uniform(*recipe.interjecting)
    silence = rng.integers(rows) if rng.random() < recipe.long_silence else rows
    turns = []
    at = -rng.integers(0, 150) if rng.random() < recipe.from_the_start else rng.integers(0, 120)
    speaker = -1
    while at < rows:
        chances = share.copy()
        if speaker >= 0 and count > 1:
            chances[speaker] *= 0.12
        speaker = rng.choice(count, p=chances / chances.sum())
        longest = 25
        length = np.exp(rng.normal(np.log(middle), 0.8))
        if monologue and share[speaker] > 0.5:
            longest, length = 120, 10 * length
        length = seconds(np.clip(length, 0.3, longest))
        turns.append((at, at + length, speaker))
        if count > 1 and length > 120 and rng.random() < interjecting:
            start = at + rng.integers(30, length - 60)
            turns.append((start, start + seconds(rng.uniform(0.3, 1.0)), (speaker + 1 + rng.integers(count - 1)) % count))
        u = rng.random()
        if at + length > silence:
            gap, silence = seconds(rng.uniform(8, 60)), rows
        elif u < overlapping:
            gap = -seconds(rng.exponential(0.45))
        elif u < overlapping + pausing:
            gap = seconds(rng.uniform(0.8, 4))
        else:
            gap = seconds(rng.exponential(0.3))
        at += max(length + gap, 10)
    return turns


def lay_voice(speech, voice, spans, rows, restless, turn_alike, rng):
    """A voice's clips, one after the other from a random place on, along its turns: energies and activity over `rows`.

    From turn to turn its level and colour change with a deviation of `restless` (log10 units), so that they alone do not
    tell who speaks, and a turn's average spectrum is pulled towards the voice's by the share `turn_alike`."""
    energy, active = np.zeros((rows, BANDS), np.float32), np.zeros(rows, bool)
    clips = speech.voices[voice]
    for start, end in spans:
        clip = rng.integers(len(clips) - 1)
        fits = clips[clip + 1] - clips[clip] - (end - start)
        at = clips[clip] + (rng.integers(fits + 1) if fits > 0 else 0)
        turn = rng.normal(0, restless) + curve(rng, 0.4 * restless)
        begin = max(start, 0)
        while start < min(end, rows):
            take = min(end - start, clips[clip + 1] - at)
            a, b = max(start, 0), min(start + take, rows)
            if b > a:
                skip = a - start
                energy[a:b] = speech.energies(at + skip, at + skip + b - a)
                active[a:b] = speech.activity[at + skip:at + skip + b - a]
            start += take
            clip = (clip + 1) % (len(clips) - 1)
            at = clips[clip]
        stop = min(end, rows)
        if stop > begin:
            if turn_alike > 0 and stop - begin > 60:
                mean = np.log10(energy[begin:stop].mean(0) + 1e-12)
                turn += np.clip(turn_alike * (speech.spectra[voice] - (mean - mean.mean())), -1, 1)
            energy[begin:stop] *= (10 ** turn).astype(np.float32)
    return energy, active


def background(speech, rows, codec, rng):
    """Energies of one kind of background with a mean of 1."""
    kind = rng.random()
    if speech.background[codec] and kind < 0.45:
        start, end = speech.background[codec][rng.integers(len(speech.background[codec]))]
        noise = np.take(speech.energies(start, end), np.arange(rows) + rng.integers(end - start), axis=0, mode="wrap")
        if rng.random() < 0.5:
            noise = noise * 10 ** curve(rng, 0.25).astype(np.float32)
    elif kind < 0.6:  # babble
        voices = [v for pool in speech.by_channel[codec].values() for v in pool]
        noise = np.zeros((rows, BANDS), np.float32)
        for _ in range(rng.integers(3, 9)):
            clips = speech.voices[voices[rng.integers(len(voices))]]
            span = np.take(speech.energies(clips[0], clips[-1]), np.arange(rows) + rng.integers(clips[-1] - clips[0]),
                           axis=0, mode="wrap")
            noise += span / (span.mean() + 1e-15)
        noise *= 10 ** curve(rng, 0.25).astype(np.float32)
    else:  # stationary, of any colour
        colour = 10 ** (curve(rng, 0.5) + rng.uniform(-0.05, 0.02) * np.arange(BANDS))
        noise = colour.astype(np.float32) * speech.fluctuation(rows, rng)
        if narrow_band(codec):
            noise[:, ABOVE_4_KHZ:] *= 1e-4
    if rng.random() < 0.3:
        noise = noise * swell(rows, 0.4, rng)[:, None]
    mean = noise.sum(1).mean()
    return noise / mean if mean > 1e-11 else np.zeros_like(noise)


def narrow_band(codec):
    return codec != "" and CODECS[codec][0] < native.RATE


def sounds(speech, rows, voices, rng):
    """Breath, coughs, laughter and clicks, relative to speech of energy 1; and the rows where laughter makes it doubtful
    whether somebody speaks."""
    energy, doubtful = np.zeros((rows, BANDS), np.float32), np.zeros(rows, bool)
    bands = np.arange(BANDS)
    for _ in range(rng.poisson(rows / seconds(rng.uniform(4, 20)))):
        at = rng.integers(rows)
        kind = rng.choice(4, p=[0.4, 0.15, 0.15, 0.3])
        if kind == 0:  # breath: a hiss that comes and goes
            length, level = seconds(rng.uniform(0.15, 0.7)), rng.uniform(-3.5, -1.2)
            shape = np.hanning(length + 2)[1:-1]
            colour = curve(rng, 0.3) + rng.uniform(-0.02, 0.04) * bands
        elif kind == 1:  # cough: sudden, then falling
            length, level = seconds(rng.uniform(0.12, 0.5)), rng.uniform(-1, 0.6)
            shape = 10 ** (-rng.uniform(1, 3) * np.arange(length) / length)
            colour = curve(rng, 0.4) - rng.uniform(0, 0.03) * bands
        elif kind == 2:  # laughter: a voice chopped four to six times a second
            length, level = seconds(rng.uniform(0.5, 2)), rng.uniform(-1.5, 0.3)
            clips = speech.voices[voices[rng.integers(len(voices))]]
            beat = rng.uniform(4, 6) / ROWS_PER_SECOND
            shape = 10 ** (-1.5 * (1 - np.abs(np.sin(np.pi * beat * np.arange(length)))))
            take = np.take(speech.energies(clips[0], clips[-1]), np.arange(length) + rng.integers(clips[-1] - clips[0]),
                           axis=0, mode="wrap")
            colour = np.log10(take.mean(0) + 1e-12)
            doubtful[at:at + length] = True
        else:  # click, knock, key
            length, level = rng.integers(1, 4), rng.uniform(-2, 0.3)
            shape = 10 ** (-rng.uniform(0.3, 1.5) * np.arange(length))
            colour = curve(rng, 0.5)
        colour = 10 ** (colour - np.log10((10 ** colour).sum()))
        burst = 10 ** level * shape[:, None] * colour * speech.fluctuation(length, rng)
        energy[at:at + length] += burst[:rows - at]
    return energy, doubtful


def lay_over(total, energy, level, fading, rng):
    """Adds `energy` somewhere, `level` times as loud, with `fading` seconds from nothing to all and back."""
    length = len(energy)
    fade = np.clip(np.minimum(np.arange(length), np.arange(length)[::-1]) / seconds(fading), 0, 1)
    at = rng.integers(len(total) - length + 1)
    total[at:at + length] += energy * (level * fade[:, None]).astype(np.float32)


def band_limit(log_energy, rng):
    """What a narrow channel leaves: bands above and below it hold little but its own noise."""
    rows = len(log_energy)
    low = rng.integers(0, 5) if rng.random() < 0.5 else 0
    high = rng.integers(26, BANDS)
    floor = rng.uniform(-11, -7)
    log_energy[:, high:] = np.minimum(log_energy[:, high:] - rng.uniform(1, 5), floor) + rng.normal(0, 0.12, (rows, BANDS - high))
    if low:
        log_energy[:, :low] -= rng.uniform(0.5, 2.5)


def add_reverberation(speech, energy, room, rng):
    """The room's answer to one speaker, in place; with `room.moving` the speaker comes nearer and goes away."""
    decay_time, moving = room
    rows = len(energy)
    own = decay_time * rng.uniform(0.85, 1.15) * (1 - 0.5 * np.linspace(0, 1, BANDS) * rng.random())
    decay = 10 ** (-6 / (own * ROWS_PER_SECOND))
    direct_to_reverberant = 10 ** (rng.uniform(-2, 18) / 10)
    tail = (1 - decay) / decay / direct_to_reverberant
    dry = energy.copy() if moving else None
    native.reverberate(energy, decay.astype(np.float32), tail.astype(np.float32), speech.fluctuation(rows, rng))
    if moving:
        far = np.clip(np.interp(np.arange(rows), np.linspace(0, rows, 8), rng.uniform(-0.3, 1.3, 8)), 0, 1)
        energy *= far[:, None].astype(np.float32)
        energy += (1 - far)[:, None].astype(np.float32) * dry * swell(rows, 0.1, rng, 8)[:, None]


def add_silence(log_energy, label, speaking, recipe, rng):
    """Digital silence: wherever nobody speaks, here and there, or in front; in front there may be background alone too."""
    rows = len(log_energy)
    if rng.random() < recipe.gated:
        log_energy[~speaking] = SILENCE
    if rng.random() < recipe.cut:
        for _ in range(rng.integers(1, 6)):
            at = rng.integers(rows)
            span = slice(at, at + rng.choice([1, 2, 5, 20, 100, 400]))
            log_energy[span] = SILENCE
            label[span] = -1
    if rng.random() < recipe.silent_start:
        span = slice(0, rng.choice([1, 2, 3, 4, 6, 8, 12, 30, 80, rng.integers(1, 120)]))
        log_energy[span] = SILENCE
        label[span] = -1


def frames_of(log_energy, row_label, second, doubtful):
    """Rows to frames of two: features (frames, 80), the label of a frame, that of a second speaker at the same time (-1 none),
    how much the frame counts. A frame of two kinds of rows counts less, as do overlaps and changes."""
    frames = len(log_energy) // 2
    first, second_row = row_label[0::2], row_label[1::2]
    label = np.maximum(first, second_row)
    weight = np.where(first == second_row, np.where(doubtful[0::2] | doubtful[1::2], 0.3, 1.0), 0.4)
    change = np.flatnonzero(np.diff(label))
    near = np.clip(change[:, None] + np.arange(-1, 3), 0, frames - 1)
    weight[np.unique(near)] *= 0.5
    other = np.where(second[0::2] == second[1::2], second[0::2], -1)
    other = np.where(first == second_row, other, -1)
    return log_energy.reshape(frames, 2 * BANDS), label, other, weight.astype(np.float32)


def real_conversation(speech, frames, recipe, rng):
    """A stretch of a real one, louder or softer, of another colour, over more noise; its voices have no number (-1)."""
    rows = 2 * frames
    table, label, several = speech.real[rng.integers(len(speech.real))]
    at = (np.arange(rows) + rng.integers(len(table))) % len(table)
    total = speech.energy_of[table[at].astype(np.int32) + 32768]
    total = total * (10 ** (curve(rng, 0.25) + rng.normal(0, 0.6))).astype(np.float32)
    if rng.random() < 0.5:
        loudness = total.sum(1).mean()
        total = total + loudness * background(speech, rows, "", rng) * np.float32(10 ** (-rng.uniform(8, 40) / 10))
    log_energy = np.log10(np.maximum(total, 1e-15))
    row_label = label[at].copy()
    add_silence(log_energy, row_label, row_label >= 0, recipe, rng)
    return *frames_of(log_energy, row_label, np.full(rows, -1), several[at]), [-1] * (int(label.max()) + 1)


def conversation(speech, frames, recipe, rng):
    """Features before normalization (frames, 80) float32, log10 of energy; the local speaker of every frame (int, -1 none), a
    second one at the same time (likewise), how much a frame counts (float32), and the voices behind the local speakers."""
    if speech.real and rng.random() < recipe.real:
        return real_conversation(speech, frames, recipe, rng)
    log_energy, row_label, second, doubtful, _, voices = mixed_conversation(
        speech, 2 * frames, 1 + rng.choice(MAX_SPEAKERS, p=recipe.people), recipe, rng)
    return *frames_of(log_energy, row_label, second, doubtful), voices


def mixed_conversation(speech, rows, count, recipe, rng):
    """A conversation of `count` people (or of all there are): log10 of energy (rows, 40), the loudest speaker of every row (-1
    none), the next of those who can be heard beside, the rows in which that is doubtful, who speaks (rows, count), and the voices behind the speakers."""
    codecs = [c for c in CODECS if c in speech.by_channel]
    codec = codecs[rng.integers(len(codecs))] if codecs and rng.random() < recipe.coded else ""
    voices = choose_voices(speech, count, codec, recipe, rng)
    count = len(voices)
    turns = [] if rng.random() < recipe.nobody else plan_turns(rows, count, recipe, rng)

    room_colour = curve(rng, rng.choice([0.15, 0.4]))  # common to all
    # Mostly one microphone, in some recordings one of everyone's own.
    differing = rng.uniform(*(recipe.own_colour if rng.random() < recipe.own_microphone else recipe.shared_colour))
    alike = rng.uniform(*recipe.alike_by) if rng.random() < recipe.alike else 0.0
    turn_alike = rng.uniform(*recipe.turn_alike)
    restless = rng.uniform(*recipe.restless)
    spread = rng.uniform(*recipe.level_spread)
    reverberant = rng.random() < recipe.reverberant
    room = rng.uniform(0.15, 0.9), rng.random() < recipe.moving  # seconds to fall by 60 dB
    leaking = rng.random() < recipe.leaking
    common = speech.spectra[voices].mean(0)
    total = np.zeros((rows, BANDS), np.float32)
    power, active = np.zeros((rows, count), np.float32), np.zeros((rows, count), bool)
    for k, voice in enumerate(voices):
        spans = [(a, b) for a, b, s in turns if s == k]
        energy, active[:, k] = lay_voice(speech, voice, spans, rows, restless, turn_alike, rng)
        colour = room_colour + curve(rng, differing) + np.clip(alike * (common - speech.spectra[voice]), -2, 2)
        channel = warp(rng.uniform(0.95, 1.05)) if rng.random() < 0.5 else np.eye(BANDS)
        if recipe.own_voices > 0:
            channel = channel @ warp(np.clip(1 + rng.normal(0, recipe.own_voices), 0.8, 1.25))
            colour = colour + curve(rng, 2 * recipe.own_voices)
        energy = energy @ (channel * 10 ** colour).astype(np.float32)
        mean = energy[active[:, k]].sum(1).mean() if active[:, k].any() else 0
        if mean <= 0:
            continue
        energy *= 10 ** rng.normal(0, spread) / mean
        if reverberant:
            add_reverberation(speech, energy, room, rng)
        if leaking:
            late = rng.integers(1, 4)
            energy[late:] += (energy[:-late] * 10 ** (curve(rng, 0.3) - rng.uniform(0.7, 2.5))).astype(np.float32)
        power[:, k] = energy.sum(1)
        total += energy
    speaking = active.any(1)
    several = active.sum(1) > 1
    loudness = total[speaking].sum(1).mean() if speaking.any() else 1.0
    total /= loudness
    if rng.random() < recipe.clipped:  # distortion where it is loud
        strength = total.sum(1)
        over = np.maximum(strength - np.quantile(strength, rng.uniform(0.6, 0.95)), 0)
        total += (over * 10 ** rng.uniform(-3, -1.3) / BINS.sum())[:, None] * BINS * speech.fluctuation(rows, rng)
    if rng.random() < recipe.background:
        for _ in range(1 + (rng.random() < 0.2)):
            total += background(speech, rows, codec, rng) * np.float32(10 ** (-rng.uniform(*recipe.background_below) / 10))
    doubtful = several
    if rng.random() < recipe.sounds:
        extra, laughing = sounds(speech, rows, voices, rng)
        total += extra
        doubtful = several | (laughing & ~speaking)
    if rng.random() < recipe.bursts:
        for _ in range(rng.integers(1, 5)):
            length = min(seconds(rng.uniform(0.5, 15)), rows)
            lay_over(total, background(speech, length, codec, rng), 10 ** rng.uniform(*recipe.burst_level), 0.1, rng)
    if speech.music[codec] and rng.random() < recipe.jingle:
        start, end = speech.music[codec][rng.integers(len(speech.music[codec]))]
        length = min(seconds(rng.uniform(2, 20)), rows)
        music = np.take(speech.energies(start, end), np.arange(length) + rng.integers(end - start), axis=0, mode="wrap")
        lay_over(total, music / (music.sum(1).mean() + 1e-12), 10 ** rng.uniform(-1.5, 0.3), 1, rng)
    if rng.random() < recipe.hum:
        total[:, :rng.integers(1, 4)] += np.float32(10 ** rng.uniform(-2, 1))
    total *= np.float32(10 ** rng.uniform(*recipe.level))
    own_noise = np.float32(10 ** rng.uniform(*recipe.converter)) * speech.fluctuation(rows, rng)
    if narrow_band(codec):
        own_noise[:, ABOVE_4_KHZ:] *= 1e-2
    total += own_noise
    # The louder of those who speak has the row.
    heard = power * active
    row_label = np.where(speaking, heard.argmax(1), -1)
    order = np.sort(heard, 1)
    beside = several & (order[:, -2:].min(1) > AUDIBLE * order[:, -1])
    second = np.where(beside, np.argsort(heard, 1)[:, -2:][:, 0], -1)
    if rng.random() < recipe.quiet_start:
        span = slice(0, rng.integers(1, min(400, rows)))
        quiet = total[~speaking] if (~speaking).any() else own_noise
        total[span] = np.median(quiet, 0) * speech.fluctuation(span.stop, rng)
        row_label[span] = -1
    log_energy = np.log10(np.maximum(total, 1e-15))
    if codec == "" and rng.random() < recipe.narrow:
        band_limit(log_energy, rng)
    add_silence(log_energy, row_label, speaking, recipe, rng)
    active[row_label < 0] = False
    second[row_label < 0] = -1
    return log_energy, row_label, second, doubtful, active, voices


def batch(speech, recordings, chunks, frames, recipe, rng):
    """`chunks` consecutive chunks of each of `recordings` conversations, B = recordings * chunks, side by side.

    features (frames, B, 80) float32; label (frames, B), the speaker's number in its recording or -1; second (frames, B), the
    same of one who speaks at the same time; weight (frames, B);
    voices (recordings, 8), the table's voice behind each number or -1."""
    parts = []
    all_voices = np.full((recordings, MAX_SPEAKERS), -1)
    for r in range(recordings):
        x, label, second, weight, voices = conversation(speech, chunks * frames, recipe, rng)
        parts.append([v.reshape(chunks, frames, *v.shape[1:]) for v in (x, label, second, weight)])
        all_voices[r, :len(voices)] = voices
    features, label, second, weight = (np.ascontiguousarray(np.swapaxes(np.concatenate(p), 0, 1)) for p in zip(*parts))
    return features.astype(np.float32), label, second, weight, all_voices
