# SPDX-License-Identifier: Apache-2.0
"""Checks of the training pipeline: training/test/run, or python3 -m unittest with training/ in PYTHONPATH."""

import argparse
import shutil
import tempfile
import unittest
from pathlib import Path

import numpy as np
import torch
import torch.nn.functional as F

from parley_training import (choose, detect, losses, mixtures, model_file, native, network, overlap, prepare, recordings, simulate, train,
                             tune)

SAMPLE = native.ROOT / "examples/three-voices.wav"
SAMPLE_RTTM = SAMPLE.with_suffix(".rttm")
RECIPE = simulate.Recipe()


def write_wav(path, samples):
    import wave
    with wave.open(str(path), "wb") as f:
        f.setnchannels(1)
        f.setsampwidth(2)
        f.setframerate(native.RATE)
        f.writeframes(np.asarray(samples, "<i2").tobytes())


def make_corpus(folder):
    """The sample's three voices as a corpus of three speakers, a clip per turn, and a folder of noise."""
    samples = native.read_audio(SAMPLE)
    times, speakers = recordings.read_rttm(SAMPLE_RTTM)
    for i, ((start, end), speaker) in enumerate(zip(times, speakers)):
        clip = Path(folder) / "sample" / str(speaker) / "chapter" / f"{i}.wav"
        clip.parent.mkdir(parents=True, exist_ok=True)
        write_wav(clip, samples[int(start * native.RATE):int(end * native.RATE)])
    (Path(folder) / "_noise").mkdir()
    write_wav(Path(folder) / "_noise/hiss.wav", np.random.default_rng(0).normal(0, 300, 3 * native.RATE))


class Workspace(unittest.TestCase):
    """Features of the small corpus, made once."""

    @classmethod
    def setUpClass(cls):
        cls.held = tempfile.TemporaryDirectory()
        cls.folder = Path(cls.held.name)
        (cls.folder / "corpus").mkdir()
        make_corpus(cls.folder / "corpus")
        cls.index = prepare.prepare([cls.folder / "corpus"], cls.folder / "features", [1.0, 1.25], 400, 0.0, [], 1)
        cls.speech = simulate.Speech(cls.folder / "features", real=[("sample", SAMPLE, SAMPLE_RTTM)])

    @classmethod
    def tearDownClass(cls):
        cls.held.cleanup()


class Native(unittest.TestCase):
    def test_recurrent_layer_and_gradient_agree_with_pytorch(self):
        for frames, batch, inputs, units in [(1, 1, 1, 1), (7, 3, 4, 5), (20, 2, 80, 33)]:
            with self.subTest(frames=frames, batch=batch, inputs=inputs, units=units):
                torch.manual_seed(frames)
                shapes = [(inputs, 3 * units), (units, 3 * units), (3 * units,)] * 2
                results = []
                values = [torch.randn(frames, batch, inputs), *(torch.randn(s) * 0.5 for s in shapes)]
                wanted = torch.randn(frames, batch, units)
                for layer in (lambda x, w: network.BothDirections.apply(x, *w),
                              lambda x, w: network.one_direction(x, *w[:3], False) + network.one_direction(x, *w[3:], True)):
                    tensors = [v.clone().requires_grad_() for v in values]
                    y = layer(tensors[0], tensors[1:])
                    (y * wanted).sum().backward()
                    results.append([y.detach(), *(t.grad for t in tensors)])
                for compiled, reference in zip(*results):
                    torch.testing.assert_close(compiled, reference, rtol=1e-4, atol=1e-5)

    def test_saturated_gates_stay_finite(self):
        y = network.BothDirections.apply(torch.full((3, 1, 2), -1e4), *[torch.ones(2, 12), torch.ones(4, 12), torch.ones(12)] * 2)
        self.assertTrue(torch.isfinite(y).all())

    def test_speed_moves_length_and_pitch(self):
        tone = 8000 * np.sin(2 * np.pi * 1000 * np.arange(4 * native.RATE) / native.RATE)
        for speed in (0.8, 1.25):
            with self.subTest(speed=speed):
                changed = native.change_speed(tone.astype(np.int16), speed)
                self.assertAlmostEqual(len(changed) / len(tone), 1 / speed, delta=0.01)
                spectrum = np.abs(np.fft.rfft(changed[4000:4000 + native.RATE]))  # 1 Hz a bin
                self.assertAlmostEqual(int(spectrum.argmax()), round(1000 * speed), delta=2)

    def test_reverberation_decays_as_asked(self):
        energy = np.zeros((200, 40), np.float32)
        energy[10] = 1
        decay, tail = np.full(40, 0.9, np.float32), np.full(40, 0.5, np.float32)
        native.reverberate(energy, decay, tail, np.ones_like(energy))
        expected = np.where(np.arange(200) > 10, 0.5 * 0.9 ** (np.arange(200) - 10.0), 0)
        expected[10] = 1
        np.testing.assert_allclose(energy, np.repeat(expected[:, None], 40, 1), rtol=1e-4, atol=1e-12)

    def test_unreadable_audio_names_the_file(self):
        with self.assertRaisesRegex(native.EngineError, "no-such-file"):
            native.read_audio("no-such-file.wav")


class Preparing(Workspace):
    def test_short_runs_are_flipped(self):
        for text, value, shortest, edges, expected in [
                ("0011000", 1, 3, True, "0000000"), ("0011100", 1, 3, True, "0011100"), ("1100000", 1, 3, False, "1100000"),
                ("1100000", 1, 3, True, "0000000"), ("1101011", 0, 2, False, "1111111"), ("0110", 0, 2, False, "0110")]:
            mask = np.array([c == "1" for c in text])
            flipped = prepare.flip_short_runs(mask, bool(value), shortest, edges)
            self.assertEqual("".join("01"[int(v)] for v in flipped), expected, text)

    def test_activity_finds_speech_and_closes_short_gaps(self):
        rng = np.random.default_rng(1)
        level = np.full(6 * native.RATE, 8.0)
        for start, end in [(1.0, 2.0), (2.15, 3.0), (4.0, 5.0)]:  # seconds
            level[int(start * native.RATE):int(end * native.RATE)] = 3000
        active = prepare.speech_activity(native.features((rng.normal(0, 1, len(level)) * level).astype(np.int16)))
        edges = np.flatnonzero(np.diff(active.astype(int))) * native.HOP / native.RATE
        np.testing.assert_allclose(edges, [1, 3, 4, 5], atol=0.06)

    def test_corpus_becomes_voices_by_speed(self):
        self.assertEqual(sorted((e["speaker"], e["speed"]) for e in self.index if e["dataset"] == "sample"),
                         [(s, v) for s in "123" for v in (1.0, 1.25)])
        self.assertEqual((len(self.speech.voices), self.speech.num_people, len(self.speech.background[""])), (6, 3, 1))

    @unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
    def test_codecs_keep_length_and_loudness(self):
        samples = native.read_audio(SAMPLE)[:3 * native.RATE]
        for codec in prepare.CODECS:
            with self.subTest(codec=codec):
                coded = prepare.through_codec(samples, codec)
                self.assertEqual(len(coded), len(samples))
                ratio = np.std(coded.astype(float)) / np.std(samples.astype(float))
                self.assertGreater(ratio, 0.6)
                self.assertLess(ratio, 1.4)
                self.assertFalse(np.array_equal(coded, samples))

    def test_skipped_datasets_and_strangers_stay_out(self):
        self.assertEqual(len(simulate.Speech(self.folder / "features", skip=["sample"]).voices), 0)
        self.assertEqual(simulate.Speech(self.folder / "features", only={"sample/2"}).num_people, 1)


class Simulating(Workspace):
    def test_a_seed_gives_one_batch(self):
        first, again, other = (simulate.batch(self.speech, 2, 2, 64, RECIPE, np.random.default_rng(seed)) for seed in (5, 5, 6))
        for a, b in zip(first, again):
            np.testing.assert_array_equal(a, b)
        self.assertFalse(np.array_equal(first[0], other[0]))

    def test_shapes_and_ranges(self):
        for seed in range(30):
            x, label, second, weight, voices = simulate.batch(self.speech, 2, 3, 50, RECIPE, np.random.default_rng(seed))
            self.assertEqual((x.shape, label.shape, weight.shape), ((50, 6, 80), (50, 6), (50, 6)))
            self.assertTrue(np.isfinite(x).all() and (weight > 0).all() and (weight <= 1).all())
            for chunk in range(6):
                spoken = set(label[:, chunk]) - {-1}
                present = voices[chunk // 3]
                self.assertTrue((present < 0).all() or all(present[s] >= 0 for s in spoken))

    def test_people_of_a_recording_differ(self):
        for seed in range(50):
            chosen = simulate.choose_voices(self.speech, 3, "", RECIPE, np.random.default_rng(seed))
            self.assertEqual(len({self.speech.people_of[v] for v in chosen}), 3)

    def test_labels_follow_the_sound(self):
        # Speech is louder than what lies between it, whatever room, channel and noise: in nearly all conversations.
        louder = 0
        for seed in range(40):
            x, label, _, weight, _ = simulate.conversation(self.speech, 600, RECIPE, np.random.default_rng(seed))
            energy = np.log10((10.0 ** x.astype(float)).sum(1) + 1e-15)
            clear = weight > 0.9
            if (label[clear] < 0).sum() > 20 and (label[clear] >= 0).sum() > 20:
                louder += np.median(energy[clear & (label >= 0)]) > np.median(energy[clear & (label < 0)])
            else:
                louder += 1
        self.assertGreaterEqual(louder, 36)

    def test_warping_moves_a_peak(self):
        energy = np.zeros(40)
        energy[20] = 1
        self.assertEqual((energy @ simulate.warp(1.0)).argmax(), 20)
        self.assertLess((energy @ simulate.warp(1.1)).argmax(), 20)
        self.assertGreater((energy @ simulate.warp(0.9)).argmax(), 20)


class LossTerms(unittest.TestCase):
    def test_runs_span_pauses_and_end_at_changes(self):
        label = torch.tensor([[0, 0, -1, 0, 1, 1, -1, 0], [-1, 2, 2, 2, 2, 2, -1, -1]]).t()
        runs = losses.number_runs(label).t().tolist()
        first, second = runs
        self.assertEqual([first[i] for i in (0, 1, 3)], [first[0]] * 3)
        self.assertEqual((first[2], first[6], second[0], second[7]), (-1,) * 4)
        self.assertEqual(len({first[0], first[4], first[7], second[1]}), 4)

    def test_perfect_embeddings_cost_little_and_mixed_ones_much(self):
        label = torch.tensor([0, 1, -1, 1, 0, 1]).repeat_interleave(40)[:, None].repeat(1, 4)
        voices = torch.full((2, simulate.MAX_SPEAKERS), -1)
        voices[0, :2], voices[1, :2] = torch.tensor([0, 1]), torch.tensor([2, 3])
        directions = torch.eye(5)
        background = directions[4]
        of_voice = torch.cat([directions, background[None]])
        voice = torch.stack([torch.where(label[:, b] >= 0, voices[b // 2][label[:, b]], torch.tensor(5)) for b in range(4)], 1)
        good = of_voice[voice]
        second = torch.full_like(label, -1)
        second[:20] = 1  # beside the first speaker: right is what lies between both
        good[:20] = F.normalize(of_voice[voices[0, 0]] + of_voice[voices[0, 1]], dim=0)
        second[:20, 2:] = -1
        good[:20, 2:] = of_voice[voice[:20, 2:]]
        terms = losses.Losses(4, 5)

        def ask(e):
            terms.voices.copy_(directions[:4])
            return {k: float(v) for k, v in terms(e, background, label, second, torch.ones(label.shape), voices, 2)[0].items()}

        # Half of the time the first speaker sounds like the second, and all speech a little like the background.
        mixed = torch.where((label == 0)[..., None] & (torch.arange(240) < 120)[:, None, None], of_voice[voices[0, 1]], good)
        mixed = torch.where(second[..., None] >= 0, directions[3], mixed)
        right, wrong = ask(good), ask(F.normalize(mixed + background, dim=2))
        for term in losses.TERMS:
            self.assertLess(right[term], 0.2, term)
            self.assertGreater(wrong[term], right[term] + 0.3, term)


class Models(Workspace):
    def options(self, out, steps):
        return argparse.Namespace(features=self.folder / "features", out=out, steps=steps, units=12, layers=2, embedding=8,
                                  rate=2e-3, seed=3, skip=[], real=[], real_names=None, start_from=None, workers=2, save_every=1e9, device="cpu")

    def test_exported_model_computes_what_training_does(self):
        torch.manual_seed(4)
        net = network.Network(2, 48, 16)
        for p in net.recurrent:
            p.data += torch.randn_like(p) * 0.1
        net.clamp_weights()
        mean, scale = train.feature_statistics(self.speech, 1)
        model = self.folder / "exported.zx"
        model_file.write(model, dict(state=net.state_dict(), sizes=net.sizes, mean=mean, scale=scale, lengths=(100, 20)))
        rows = native.features(native.read_audio(SAMPLE)[:3 * native.RATE])
        frames = len(rows) // 2
        with native.Engine(model) as engine:
            engine.set_chunks(1000, 20)
            fixed = engine.embed(rows)
        x = torch.from_numpy(rows[:2 * frames].reshape(frames, 1, 80) / 1024).float()
        with torch.no_grad():
            floating = F.normalize(net(train.normalize(x, mean, scale))[:, 0], dim=1).numpy()
        cosine = (fixed * floating).sum(1)
        self.assertGreater(cosine.mean(), 0.995)
        self.assertGreater(cosine.min(), 0.95)

    def test_a_stopped_run_goes_on_as_if_it_had_not_stopped(self):
        whole, parts = self.options(self.folder / "whole", 4), self.options(self.folder / "parts", 4)
        stages, train.STAGES = train.STAGES, [(0.0, (3, 2, 32)), (0.5, (2, 2, 64))]
        try:
            train.train(whole)
            run = train.Run(parts)  # two steps by hand, saved, then the rest
            for step in range(2):
                shape = train.stage_of(step, parts)
                run.one_step(*simulate.batch(run.speech, *shape, RECIPE, np.random.default_rng([3, step])), shape[1])
            run.save()
            train.train(parts)
        finally:
            train.STAGES = stages
        a, b = (torch.load(o.out / "checkpoint.pt") for o in (whole, parts))
        self.assertEqual((a["step"], b["step"]), (4, 4))
        for name, value in a["averaged"].items():
            torch.testing.assert_close(value, b["averaged"][name], rtol=0, atol=1e-6)

    def test_model_file_comes_back_as_it_was_and_grows(self):
        shipped = native.ROOT / "models/parley.zx"
        model = model_file.read(shipped)
        written = model_file.to_bytes(**model)
        tail = 4 * model["sizes"]["embedding"]  # the reference vector, made of unit length again
        self.assertEqual(written[:-tail], model_file.network_of(shipped.read_bytes())[:-tail])
        self.assertEqual(model_file.from_bytes(written)["thresholds"], model["thresholds"])
        x = torch.randn(40, 2, 80)
        same, larger = (network.Network(2, model["sizes"]["units"] + more, 64) for more in (0, 16))
        for net in (same, larger):
            net.grow_from(model["state"])
        with torch.no_grad():
            torch.testing.assert_close(larger(x), same(x), rtol=1e-3, atol=1e-4)

    def test_thresholds_that_let_the_first_speaker_take_the_background_are_not_written(self):
        model = dict(model_file.read(native.ROOT / "models/parley.zx"), thresholds=(0.2, 0.3, 0.25, 0.06))
        self.assertEqual(model_file.from_bytes(model_file.to_bytes(**model))["thresholds"][model_file.BACKGROUND], 0.25)

    def test_tuning_finds_thresholds_for_each_domain_left_out(self):
        folder = self.folder / "recordings"
        folder.mkdir()
        for name in ("sim00", "call_us_1"):
            for source in (SAMPLE, SAMPLE_RTTM):
                (folder / name).with_suffix(source.suffix).write_bytes(source.read_bytes())
        found = tune.load(argparse.Namespace(folders=[folder], changed=[], without=[], domains=native.ROOT / "training/domains.tsv"))
        self.assertEqual([(r.domain, r.kind) for r in found], [("telephone", "real"), ("read", "simulated")])
        shipped = native.ROOT / "models/parley.zx"
        results = tune.search(str(shipped), found, model_file.read(shipped)["lengths"], 90, 0.05, 1, 1)
        self.assertEqual(set(results), {"", "read", "telephone"})
        for cost, thresholds, errors in results.values():
            self.assertGreaterEqual(thresholds[model_file.BACKGROUND], thresholds[model_file.SEGMENT])
            self.assertLess(cost, 0.2)
        self.assertLess(tune.der(tune.honest(results, found)[:, 0, 0]), 0.15)
        self.assertIn("| telephone | 1 |", tune.table(tune.honest(results, found), found))


class Scoring(unittest.TestCase):
    def test_worked_example(self):
        reference = np.array([(0, 2), (1.5, 3.5), (4, 5.1)]), np.array([1, 2, 1], np.int32)
        hypothesis = np.array([(0, 0.8), (0.6, 2.3), (2.1, 3.9), (3.8, 5.2)]), np.array([1, 2, 3, 1], np.int32)
        for collar, skip, expected in [(0, False, (5.1, 0.5, 1.1, 1.3)), (0, True, None), (0.2, False, None)]:
            speech, missed, false_alarm, confusion, there, found = native.score(reference, hypothesis, collar, skip)
            self.assertEqual((there, found), (2, 3))
            if expected:
                np.testing.assert_allclose((speech, missed, false_alarm, confusion), expected, atol=1e-9)
            rate = (missed + false_alarm + confusion) / speech
            self.assertAlmostEqual(rate, {(0, False): 0.5686, (0, True): 0.4634, (0.2, False): 0.3548}[collar, skip], 3)


class Detecting(Workspace):
    def test_the_library_hears_what_the_network_was_trained_to_hear(self):
        model = (native.ROOT / "models/parley.zx").read_bytes()
        with native.Engine(native.ROOT / "models/parley.zx") as engine:
            speech = engine.embed(native.features(native.read_audio(SAMPLE)))
            noise = np.random.default_rng(2).normal(0, 1000, 16 * 60 * 1000).astype(np.int16)
            silence = engine.embed(native.features(noise))
        cases = [detect.Case("a", "telephone", "", speech, np.ones(len(speech), np.int8)),
                 detect.Case("b 1", "_noise", "", silence, np.zeros(len(silence), np.int8))]
        fitted = detect.fit(cases)
        detect.write(self.folder / "model.zx", model, model_file.NO_OVERLAP, fitted, 0.0)
        both = np.concatenate([speech, silence])
        with native.Engine(self.folder / "model.zx") as engine:
            found = engine.speech_log_odds(both)
            times, _ = engine.segments(both, model_file.read(native.ROOT / "models/parley.zx")["thresholds"])
        weights, biases, output_weights, output_bias = fitted
        expected = np.maximum(detect.inputs_of(both) @ weights.T + biases, 0) @ output_weights + output_bias
        np.testing.assert_allclose(found[2::4], expected[2::4][:len(found[2::4])], rtol=1e-3, atol=1e-3)
        self.assertGreater((found[:len(speech)] > 0).mean(), 0.95)
        self.assertLess((found[len(speech):] > 0).mean(), 0.05)
        self.assertLess(times.max(), len(speech) * detect.SECONDS + 5)

    def test_pauses_do_not_count_as_something_else(self):
        label = np.array([0] * 50 + [1] * 20 + [0] * 10 + [1] * 5 + [0] * 30, np.int8)
        expected = np.array([0] * 34 + [-1] * 16 + [1] * 20 + [-1] * 10 + [1] * 5 + [-1] * 16 + [0] * 14)
        np.testing.assert_array_equal(detect.without_pauses(label), expected)


class Overlap(Workspace):
    def voices(self):
        found = mixtures.Voices([self.folder / "corpus"], [], 1)
        found.people = {"sample": {str(i): mixtures.clips_of(sorted((self.folder / f"corpus/sample/{i}").rglob("*.wav"))) for i in (1, 2, 3)}}
        return found

    def test_two_that_are_mixed_are_heard_where_both_speak(self):
        voices = self.voices()
        people = [voices.people["sample"][k] for k in ("1", "2")]
        shares = []
        for seed in range(6):
            rng = np.random.default_rng(seed)
            samples, heard = mixtures.conversation(people, voices.background, rng)
            self.assertEqual((len(samples), len(heard)), (mixtures.SAMPLES, mixtures.ROWS // 2))
            shares.append((heard == 2).mean())
            self.assertTrue(set(np.unique(heard)) <= {-1, 0, 1, 2})
            _, alone = mixtures.conversation(people[:1], voices.background, rng)
            self.assertFalse((alone == 2).any())
        self.assertGreater(max(shares), 0.1)
        energy, active = np.ones((2, 400), np.float32), np.zeros((2, 400), bool)
        active[0, :300], active[1, 100:] = True, True
        energy[1, 200:] = 0.005  # too quiet to count, too loud not to
        self.assertEqual([int(n) for n in mixtures.number_heard(energy, active)[[25, 75, 120, 180]]], [1, 2, -1, 1])

    def test_the_library_hears_what_was_trained(self):
        torch.manual_seed(3)
        model = model_file.read(native.ROOT / "models/parley.zx")
        reader = overlap.Reader(64)
        for _ in range(20):  # statistics of its own
            reader(overlap.unit(torch.randn(50, 4, 64)))
        reader.eval()
        data = (native.ROOT / "models/parley.zx").read_bytes()
        blob = model_file.overlap_bytes(reader.layers(-0.5))
        path = self.folder / "overlap.zx"
        model_file.write_overlap(path, data, blob)
        self.assertEqual(model_file.overlap_of(path.read_bytes()), blob)
        model_file.write_overlap(path, path.read_bytes(), model_file.overlap_of(data))
        self.assertEqual(path.read_bytes(), data)
        model_file.write_parameters(path, data, model_file.speech_of(data), model_file.NO_TREES, blob)
        with native.Engine(path) as engine:
            embeddings = engine.embed(native.features(native.read_audio(SAMPLE)))
            found = engine.overlap_log_odds(embeddings)
        with torch.no_grad():
            z = reader(overlap.unit(torch.from_numpy(embeddings)[:, None]))[:, 0].numpy()
        expected = z[:, 2] - 0.5 - np.maximum(z[:, 0], z[:, 1])
        # Weights are rounded to 8 bits.
        self.assertLess(np.abs(found - expected).mean(), 0.05 * expected.std())
        self.assertEqual(model["sizes"]["embedding"], 64)

    def test_a_step_learns_and_a_stopped_run_goes_on(self):
        voices, folder = self.voices(), self.folder / "run"
        folder.mkdir()
        model = model_file.read(native.ROOT / "models/parley.zx")
        samples, heard = mixtures.conversation(list(voices.people["sample"].values()), voices.background, np.random.default_rng(1))
        table = overlap.features_of(np.pad(samples, (0, 8 * native.HOP)), model)[:len(heard)]
        parts = [(np.stack([table] * (overlap.HELD_OUT + 1)), np.stack([heard] * (overlap.HELD_OUT + 1)))]
        options = argparse.Namespace(out=folder, seed=1, rate=6e-4, reader_rate=3e-3)
        run = overlap.Run(options, model)
        batch = [t[:, :2] for t in overlap.batch_of(parts, [], np.random.default_rng(2))]
        first = run.one_step(*batch, 100)[0]
        for _ in range(10):
            last = run.one_step(*batch, 100)
        self.assertLess(last[0], first)
        self.assertLess(last[1], 0.05)
        run.save()
        again = overlap.Run(options, model)
        self.assertEqual(again.step, 11)
        np.testing.assert_allclose(again.one_step(*batch, 100), run.one_step(*batch, 100), rtol=1e-4)


class Choosing(Workspace):
    def test_trees_give_what_they_were_trained_to_give(self):
        rng = np.random.default_rng(1)
        x = rng.normal(size=(4000, 5)).astype(np.float32)
        x[::7, 2] = np.float32(0.1)  # a value that has no short binary form stands at a threshold
        scores = np.tile(np.array([100.0, 0, 0, 0, 2, 2]), (4000, 1))
        scores[:, choose.CONFUSION] = np.where(x[:, 2] > 0.1, 30, 5) + 5 * (x[:, 0] > 0)
        cases = [choose.Case(str(i), "", ("a",), x[i:i + 10], scores[i:i + 10]) for i in range(0, 4000, 10)]
        trees = choose.fit(cases)
        np.testing.assert_allclose(choose.evaluate(choose.flattened(trees), x), trees.predict(x), atol=1e-5)
        self.assertGreater(np.ptp(trees.predict(x)), 0.5)

    def test_a_model_with_trees_chooses_by_them(self):
        with native.Engine(native.ROOT / "models/parley.zx") as engine:
            embeddings = engine.embed(native.features(native.read_audio(SAMPLE)))
            features, labels = engine.candidates(embeddings, model_file.read(native.ROOT / "models/parley.zx")["thresholds"])
        numbers = features[:, 0]
        self.assertGreater(len(set(numbers)), 3)
        np.testing.assert_array_equal(numbers, [len(set(one) - {0}) for one in labels])
        network = (native.ROOT / "models/parley.zx").read_bytes()
        speech = model_file.speech_of(network)
        for wanted in (1.0, 2.0, 3.0):
            # Two trees: dear from the number on, and dear below it.
            nodes = [(0, 2, wanted), (-1, 0, 0.0), (-1, 0, 1.0), (0, 2, wanted - 0.5), (-1, 0, 1.0), (-1, 0, 0.0)]
            model_file.write_parameters(self.folder / "model.zx", network, speech, (([0, 3], nodes, features.shape[1]),
                                        model_file.NO_TREES[1]), model_file.NO_OVERLAP)
            with native.Engine(self.folder / "model.zx") as engine:
                _, tags, _ = engine.described_segments(embeddings)
            self.assertEqual(len(set(tags)), wanted)

    def test_recordings_one_after_the_other_keep_their_references(self):
        rows, reference = native.features(native.read_audio(SAMPLE)), recordings.read_rttm(SAMPLE_RTTM)
        people = recordings.people_of(SAMPLE_RTTM, "a")
        both, (times, speakers) = choose.joined([(rows[:-1], reference, people), (rows, reference, [*people[:2], "somebody else"])])
        self.assertEqual(len(both), 2 * len(rows) // 2 * 2 - 2)
        self.assertEqual(len(set(speakers)), 4)
        second = times[len(reference[0]):] - (len(rows) - 2) // 2 * 2 * native.HOP / native.RATE
        self.assertLess(np.abs(second - reference[0]).max(), 2.1 * native.HOP / native.RATE)
        part, (times, speakers) = choose.crop(np.random.default_rng(3), rows, reference)
        self.assertLessEqual(times.max(), len(part) * native.HOP / native.RATE + 0.1)
        self.assertEqual(sorted(set(speakers)), list(range(1, speakers.max() + 1)))

    def test_varied_recordings_keep_their_references(self):
        # Every row tells its time and who speaks there, by the reference.
        reference = recordings.read_rttm(SAMPLE_RTTM)
        rows = np.zeros((choose.even(reference[0].max() + 1), 2), np.int16)
        rows[:, 0] = np.arange(len(rows))
        for (start, end), speaker in zip(*reference):
            rows[choose.even(start):choose.even(end) + 2, 1] |= 1 << speaker
        people = set(reference[1])
        numbers = set()
        for seed in range(8):
            part, (times, speakers) = choose.with_few(np.random.default_rng(seed), rows, reference)
            heard = set()
            for speaker in range(1, speakers.max() + 1):
                inside = [part[choose.even(a) + 2:choose.even(b) - 2, 1] for a, b in times[speakers == speaker]]
                heard |= set(np.unique(np.concatenate(inside)))
                self.assertEqual(len(np.unique(np.concatenate(inside))), 1)
            numbers.add(len(heard))
            self.assertLessEqual(set(np.unique(part[:, 1])) - {0}, heard)
            kept = [reference[1] == int(np.log2(h)) for h in heard]
            self.assertAlmostEqual((times[:, 1] - times[:, 0]).sum(), sum(np.diff(reference[0][k]).sum() for k in kept), delta=0.5)
        self.assertEqual(numbers, set(range(1, len(people))))
        length = choose.seconds_of(recordings.features_of(SAMPLE))
        part, (times, speakers) = choose.at_two_speeds(np.random.default_rng(1), SAMPLE, SAMPLE_RTTM)
        self.assertEqual(len(set(speakers)), 2 * len(people))
        self.assertLess(abs(times.max() / choose.seconds_of(part) - reference[0].max() / length), 0.03)
        self.assertTrue(0.85 * length < choose.seconds_of(part) < length / 0.85)

    def test_people_are_the_same_where_corpora_name_them(self):
        with tempfile.NamedTemporaryFile("w", suffix=".rttm") as file:
            file.write("".join(f"SPEAKER x 1 0 1 <NA> <NA> {n} <NA> <NA>\n" for n in ("MÉO069", "A", "lsto_12", "speaker1", "A")))
            file.flush()
            self.assertEqual(recordings.people_of(file.name, "x"), ["MEO069", "x A", "lsto_12", "x speaker1"])

    def test_calibration_error_is_the_distance_of_confidence_and_truth(self):
        predicted, right = np.array([0.95, 0.95, 0.15, 0.15]), np.array([1.0, 0.8, 0.1, 0.0])
        rows, error = choose.calibration(predicted, right, np.ones(4))
        self.assertEqual(len(rows), 2)
        self.assertAlmostEqual(error, 0.5 * 0.05 + 0.5 * 0.1)


if __name__ == "__main__":
    unittest.main()
