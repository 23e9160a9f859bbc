"""The compiled side: the engine's own front end, network and clustering, scoring, the recurrent layer (native/training.h)."""

import ctypes
import os
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
RATE = 16000  # Hz
HOP = 256  # samples: one row of band energies
BANDS = 40
FRAME_SECONDS = 2 * HOP / RATE  # two rows make a frame

_int16 = np.ctypeslib.ndpointer(np.int16, flags="C_CONTIGUOUS")
_int32 = np.ctypeslib.ndpointer(np.int32, flags="C_CONTIGUOUS")
_uint32 = np.ctypeslib.ndpointer(np.uint32, flags="C_CONTIGUOUS")
_float32 = np.ctypeslib.ndpointer(np.float32, flags="C_CONTIGUOUS")
_float64 = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")
_i32, _i64, _double, _pointer = ctypes.c_int32, ctypes.c_int64, ctypes.c_double, ctypes.c_void_p
_samples_out = ctypes.POINTER(ctypes.POINTER(ctypes.c_int16))
_count_out = ctypes.POINTER(_i64)

_SIGNATURES = {
    "training_free": (None, [_pointer]),
    "training_read_audio": (_i32, [ctypes.c_char_p, _samples_out, _count_out]),
    "training_change_speed": (_i32, [_int16, _i64, _double, _samples_out, _count_out]),
    "training_features": (_i32, [_int16, _i64, _int16]),
    "training_reverberate": (None, [_float32, _i64, _i32, _float32, _float32, _float32]),
    "training_engine_open": (_i32, [ctypes.c_char_p, ctypes.POINTER(_pointer)]),
    "training_engine_close": (None, [_pointer]),
    "training_engine_dimension": (_i32, [_pointer]),
    "training_engine_set_chunks": (None, [_pointer, _i32, _i32]),
    "training_engine_embed": (_i32, [_pointer, _int16, _i32, _float32]),
    "training_engine_cluster": (_i32, [_pointer, _float32, _i32, _float32, _uint32]),
    "training_engine_segment": (_i32, [_pointer, _uint32, _i32, _float64, _int32, ctypes.POINTER(_i32)]),
    "training_score": (None, [_i32, _float64, _int32, _i32, _float64, _int32, _double, _i32, _float64]),
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


class EngineError(RuntimeError):
    """The engine refused something; the text names it and the status."""


def _check(status, what):
    if status != 0:
        raise EngineError(f"{what}: status {status}")


def _take_samples(call, what):
    samples, count = ctypes.POINTER(ctypes.c_int16)(), _i64()
    _check(call(ctypes.byref(samples), ctypes.byref(count)), what)
    try:
        return np.ctypeslib.as_array(samples, (count.value,)).copy() if count.value else np.zeros(0, np.int16)
    finally:
        library.training_free(samples)


def read_audio(path):
    """Mono int16 samples at 16 kHz of a file in any format that the engine reads."""
    return _take_samples(lambda s, n: library.training_read_audio(os.fsencode(path), s, n), str(path))


def change_speed(samples, speed):
    """Samples played `speed` times as fast, with pitch and formants moved by the same factor."""
    samples = np.ascontiguousarray(samples, np.int16)
    return _take_samples(lambda s, n: library.training_change_speed(samples, len(samples), speed, s, n), "speed")


def features(samples):
    """Rows of 40 band energies, 1024 log10(energy / 2^30), one per 256 samples: int16 (rows, 40)."""
    samples = np.ascontiguousarray(samples, np.int16)
    rows = np.empty((len(samples) // HOP, BANDS), np.int16)
    _check(library.training_features(samples, len(samples), rows), "features")
    return rows


def reverberate(energies, decay, tail, texture):
    """Adds an exponentially decaying tail to band energies (rows, 40), in place; decay and tail per band."""
    library.training_reverberate(energies, len(energies), energies.shape[1], decay, tail, texture)


class Engine:
    """An engine whose stages can be run one at a time."""

    def __init__(self, model_path):
        self._engine = _pointer()
        _check(library.training_engine_open(os.fsencode(model_path), ctypes.byref(self._engine)), str(model_path))
        self.dimension = library.training_engine_dimension(self._engine)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        library.training_engine_close(self._engine)

    def set_chunks(self, chunk, warmup):
        library.training_engine_set_chunks(self._engine, chunk, warmup)

    def embed(self, rows):
        """Rows of `features` to unit embeddings: float32 (frames, dimension)."""
        frames = len(rows) // 2
        embeddings = np.empty((frames, self.dimension), np.float32)
        _check(library.training_engine_embed(self._engine, np.ascontiguousarray(rows[: 2 * frames]), frames, embeddings),
               "embed")
        return embeddings

    def segments(self, embeddings, thresholds):
        """Clusters with thresholds (offline, prune, segment, background): times float64 (n, 2) in seconds, tags (n,)."""
        frames = len(embeddings)
        tags = np.empty(frames, np.uint32)
        _check(library.training_engine_cluster(self._engine, embeddings, frames, np.asarray(thresholds, np.float32), tags),
               "cluster")
        times, speakers, count = np.empty((frames, 2)), np.empty(frames, np.int32), _i32()
        _check(library.training_engine_segment(self._engine, tags, frames, times, speakers, ctypes.byref(count)), "segment")
        return times[: count.value].copy(), speakers[: count.value].copy()


def score(reference, hypothesis, collar, skip_overlap=False):
    """Each side is (times, speakers). Seconds of speech, missed, false alarm, confusion; speakers there, found."""
    result = np.empty(6)
    library.training_score(len(reference[1]), np.ascontiguousarray(reference[0]), reference[1], len(hypothesis[1]),
                           np.ascontiguousarray(hypothesis[0]), hypothesis[1], collar, skip_overlap, result)
    return result
