# SPDX-License-Identifier: Apache-2.0
"""The compiled side: the engine's own front end, network and clustering, scoring, the recurrent layer (native/training.h)."""

import ctypes
import os
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[2]

_int16 = np.ctypeslib.ndpointer(np.int16, flags="C_CONTIGUOUS")
_int32 = np.ctypeslib.ndpointer(np.int32, flags="C_CONTIGUOUS")
_float32 = np.ctypeslib.ndpointer(np.float32, flags="C_CONTIGUOUS")
_float64 = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")
_i32, _i64, _double, _pointer = ctypes.c_int32, ctypes.c_int64, ctypes.c_double, ctypes.c_void_p
_samples_out = ctypes.POINTER(ctypes.POINTER(ctypes.c_int16))
_count_out = ctypes.POINTER(_i64)

_SIGNATURES = {
    "parley_free": (None, [_pointer]),
    "parley_message": (ctypes.c_char_p, []),
    "parley_stage_rate": (_i32, []),
    "parley_stage_hop": (_i32, []),
    "parley_stage_bands": (_i32, []),
    "parley_stage_band_edges": (None, [_int16]),
    "parley_stage_read": (_i32, [ctypes.c_char_p, _samples_out, _count_out]),
    "parley_stage_change_speed": (_i32, [_int16, _i64, _double, _samples_out, _count_out]),
    "parley_stage_features": (_i32, [_int16, _i64, _int16]),
    "parley_stages_open": (_i32, [ctypes.c_char_p, ctypes.POINTER(_pointer)]),
    "parley_stages_close": (None, [_pointer]),
    "parley_stages_dimension": (_i32, [_pointer]),
    "parley_stages_set_chunks": (None, [_pointer, _i32, _i32]),
    "parley_stages_embed": (_i32, [_pointer, _int16, _i32, _float32]),
    "parley_stages_speech_log_odds": (_i32, [_pointer, _float32, _i32, _float32]),
    "parley_stages_overlap_log_odds": (_i32, [_pointer, _float32, _i32, _float32]),
    "parley_stages_segments": (_i32, [_pointer, _float32, _i32, _float64, _i32, _float64, _int32, ctypes.POINTER(_i32)]),
    "parley_stages_num_features": (_i32, []),
    "parley_stages_candidates": (_i32, [_pointer, _float32, _i32, _float64, _i32, ctypes.POINTER(_i32), _float64, _int32]),
    "parley_stages_num_segment_features": (_i32, []),
    "parley_stages_described_segments": (_i32, [_pointer, _float32, _i32, _float64, _int32, _float64, ctypes.POINTER(_i32)]),
    "parley_stage_score": (_i32, [_i32, _float64, _int32, _i32, _float64, _int32, _double, _i32, _float64]),
    "training_reverberate": (None, [_float32, _i64, _i32, _float32, _float32, _float32]),
    # Tensors go in by address.
    "training_recurrent_forward": (None, [_i32] * 5 + [_pointer] * 8),
    "training_recurrent_backward": (None, [_i32] * 5 + [_pointer] * 12),
}


def _load():
    path = os.environ.get("PARLEY_TRAINING_LIBRARY", ROOT / "build/release/training/libparley_training.so")
    if not Path(path).exists():
        raise SystemExit(f"{path} is not there: run training/setup first")
    library = ctypes.CDLL(str(path))
    for name, (result, arguments) in _SIGNATURES.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


library = _load()
RATE = library.parley_stage_rate()  # Hz
HOP = library.parley_stage_hop()  # samples: one row of band energies; two rows make a frame
BANDS = library.parley_stage_bands()
MAX_CANDIDATES = 64


class EngineError(RuntimeError):
    """Something was refused; the text says what and why."""


def _check(status):
    if status != 0:
        raise EngineError(library.parley_message().decode(errors="replace"))


def _take_samples(call):
    samples, count = ctypes.POINTER(ctypes.c_int16)(), _i64()
    _check(call(ctypes.byref(samples), ctypes.byref(count)))
    try:
        return np.ctypeslib.as_array(samples, (count.value,)).copy() if count.value else np.zeros(0, np.int16)
    finally:
        library.parley_free(samples)


def band_edges():
    """FFT bins, 31.25 Hz each: band b rises from edge b to its peak at edge b + 1 and falls to edge b + 2."""
    edges = np.empty(BANDS + 2, np.int16)
    library.parley_stage_band_edges(edges)
    return edges.astype(int)


def read_audio(path):
    """Mono int16 samples at 16 kHz of a file in any format that the engine reads."""
    return _take_samples(lambda s, n: library.parley_stage_read(os.fsencode(path), s, n))


def change_speed(samples, speed):
    """Samples played `speed` times as fast, with pitch and formants moved by the same factor."""
    samples = np.ascontiguousarray(samples, np.int16)
    return _take_samples(lambda s, n: library.parley_stage_change_speed(samples, len(samples), speed, s, n))


def features(samples):
    """Rows of 40 band energies, 1024 log10(energy / 2^30), one per 256 samples: int16 (rows, 40)."""
    samples = np.ascontiguousarray(samples, np.int16)
    rows = np.empty((len(samples) // HOP, BANDS), np.int16)
    _check(library.parley_stage_features(samples, len(samples), rows))
    return rows


def reverberate(energies, decay, tail, texture):
    """Adds an exponentially decaying tail to band energies (rows, 40), in place; decay and tail per band."""
    library.training_reverberate(energies, len(energies), energies.shape[1], decay, tail, texture)


class Engine:
    """An engine whose stages can be run one at a time."""

    def __init__(self, model_path):
        self._engine = _pointer()
        _check(library.parley_stages_open(os.fsencode(model_path), ctypes.byref(self._engine)))
        self.dimension = library.parley_stages_dimension(self._engine)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        library.parley_stages_close(self._engine)

    def set_chunks(self, chunk, warmup):
        library.parley_stages_set_chunks(self._engine, chunk, warmup)

    def embed(self, rows):
        """A recording as rows of `features`, made louder where it is quiet, to unit embeddings: float32 (frames, dimension)."""
        frames = len(rows) // 2
        embeddings = np.empty((frames, self.dimension), np.float32)
        _check(library.parley_stages_embed(self._engine, np.ascontiguousarray(rows[: 2 * frames]), frames, embeddings))
        return embeddings

    def speech_log_odds(self, embeddings):
        """Of somebody speaking, in each frame: float32 (frames,)."""
        log_odds = np.empty(len(embeddings), np.float32)
        _check(library.parley_stages_speech_log_odds(self._engine, embeddings, len(embeddings), log_odds))
        return log_odds

    def overlap_log_odds(self, embeddings):
        """Of two speaking at once, likewise."""
        log_odds = np.empty(len(embeddings), np.float32)
        _check(library.parley_stages_overlap_log_odds(self._engine, embeddings, len(embeddings), log_odds))
        return log_odds

    def segments(self, embeddings, thresholds, refine=True):
        """A result's segments with thresholds (offline, prune, segment, background): times float64 (n, 2) in seconds, tags
        (n,)."""
        frames = len(embeddings)
        times, speakers, count = np.empty((frames, 2)), np.empty(frames, np.int32), _i32()
        _check(library.parley_stages_segments(self._engine, embeddings, frames, np.asarray(thresholds, np.float64), refine,
                                              times, speakers, ctypes.byref(count)))
        return times[: count.value].copy(), speakers[: count.value].copy()


    def described_segments(self, embeddings):
        """The product's segments: times float64 (n, 2), tags int32 (n,), and what confidence is made of, float64 (n, features)."""
        frames, count = len(embeddings), _i32()
        times, speakers = np.empty((frames, 2)), np.empty(frames, np.int32)
        features = np.empty((frames, library.parley_stages_num_segment_features()))
        _check(library.parley_stages_described_segments(self._engine, embeddings, frames, times, speakers, features,
                                                        ctypes.byref(count)))
        return times[:count.value].copy(), speakers[:count.value].copy(), features[:count.value].copy()

    def candidates(self, embeddings, thresholds):
        """Divisions among speakers of which the library chooses one, with these thresholds: features float64 (n, features), labels int32 (n, frames),
        0 where nobody speaks. The engine's own is the first."""
        frames, count = len(embeddings), _i32()
        features = np.empty((MAX_CANDIDATES, library.parley_stages_num_features()))
        labels = np.empty((MAX_CANDIDATES, frames), np.int32)
        _check(library.parley_stages_candidates(self._engine, embeddings, frames, np.asarray(thresholds, np.float64), MAX_CANDIDATES,
                                                ctypes.byref(count), features, labels))
        return features[:count.value].copy(), labels[:count.value].copy()


def score(reference, hypothesis, collar, skip_overlap=False):
    """Each side is (times, speakers). Seconds of speech, missed, false alarm, confusion; speakers there, found."""
    result = np.empty(6)
    _check(library.parley_stage_score(len(reference[1]), np.ascontiguousarray(reference[0]), reference[1], len(hypothesis[1]),
                           np.ascontiguousarray(hypothesis[0]), hypothesis[1], collar, skip_overlap, result))
    return result
