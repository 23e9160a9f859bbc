"""The engine as an object of Python."""
from __future__ import annotations

import ctypes
import enum
import os
import tempfile
import threading
import wave
from ctypes import POINTER, byref, c_char_p, c_int16, c_int32, c_void_p
from typing import Callable, List, Optional, Union

import numpy as np

from ._library import CSegment, find_model, library
from ._results import Diarization, Segment

SAMPLE_RATE: int = library.zx_sample_rate()
"""The rate in Hz at which the engine works; other rates are converted to it."""

FRAME = 512 / SAMPLE_RATE
"""Seconds of audio that one decision covers. The C interface gives the start of a segment's last frame; here the end of
that frame is given, so that durations are those of the audio."""


class Status(enum.IntEnum):
    """Why a call failed, as the C interface says it."""

    SUCCESS = 0
    OUT_OF_MEMORY = 1
    IO_ERROR = 2
    INVALID_ARGUMENT = 3
    STOP_ITERATION = 4
    KEY_ERROR = 5
    INVALID_STATE = 6
    RUNTIME_ERROR = 7


class ParleyError(Exception):
    """A call of the engine failed.

    status: the engine's status.
    messages: what it said about it, the innermost fault first.
    """

    def __init__(self, what: str, status: Status, messages: List[str]):
        self.status = status
        self.messages = messages
        super().__init__(f"{what}: {status.name}" + "".join(f"\n  {message}" for message in messages))


def version() -> str:
    """The version of the library and of the models that it reads."""
    return library.zx_parley_version().decode()


def _take_messages() -> List[str]:
    stack = POINTER(c_char_p)()
    depth = c_int32()
    library.zx_get_error_stack(byref(stack), byref(depth))
    if not stack:
        return []
    messages = [stack[i].decode(errors="replace") for i in range(depth.value)]
    library.zx_free_error_stack(stack)
    return messages


def _check(what: str, status: int) -> None:
    if status != Status.SUCCESS:
        messages = _take_messages()
        if status == Status.OUT_OF_MEMORY:
            raise MemoryError(f"{what}: " + "; ".join(messages))
        raise ParleyError(what, Status(status), messages)


def _to_int16(samples: np.ndarray) -> np.ndarray:
    """Mono 16-bit samples of an array of shape (n,) or (n, channels): integers of 16 bits as they are, floats from -1 to 1
    times 32768 with saturation; channels are averaged."""
    samples = np.asarray(samples)
    if samples.ndim not in (1, 2):
        raise ValueError(f"samples must have the shape (n,) or (n, channels), not {samples.shape}")
    if samples.ndim == 2 and samples.shape[1] > 64:
        raise ValueError(f"{samples.shape[1]} channels of {samples.shape[0]} samples: transpose the array")
    if samples.dtype == np.int16:
        if samples.ndim == 2:
            samples = np.trunc(samples.mean(axis=1, dtype=np.float64)).astype(np.int16)
    elif np.issubdtype(samples.dtype, np.floating):
        if samples.ndim == 2:
            samples = samples.mean(axis=1)
        if not np.isfinite(samples).all():
            raise ValueError("samples must be finite")
        samples = np.clip(np.rint(samples * 32768.0), -32768, 32767).astype(np.int16)
    else:
        raise TypeError(f"samples must be int16 or floats from -1 to 1, not {samples.dtype}")
    return np.ascontiguousarray(samples)


class Diarizer:
    """A loaded model, ready for recordings.

    model: path of a model file; by default the one that comes with the package.

    Use it as a context manager, or call close(). It may be shared between threads, which then take turns; for work side by
    side give each thread its own.
    """

    def __init__(self, model: Union[str, "os.PathLike[str]", None] = None):
        self._object: Optional[c_void_p] = None
        self._lock = threading.Lock()
        path = os.fspath(model) if model is not None else find_model()
        engine = c_void_p()
        _check(f"loading {path}", library.zx_parley_init(os.fsencode(path), byref(engine)))
        self._object = engine

    def diarize(self, source: Union[str, "os.PathLike[str]", np.ndarray], sample_rate: Optional[int] = None) -> Diarization:
        """Finds out who spoke when.

        source: the path of an audio file (WAV, FLAC, MP3, Ogg Opus or Vorbis, WebM, MP4 or M4A with AAC, 3GP with AMR-NB,
            as the library was built), or samples as an array of shape (n,) or (n, channels) of int16 or of floats from -1
            to 1.
        sample_rate: in Hz, with samples only: 16000 as they are, 8000 or more than 16000 converted by the engine.

        Returns the segments in order of time. Raises ParleyError with the engine's status and messages.
        """
        if isinstance(source, (str, os.PathLike)):
            if sample_rate is not None:
                raise TypeError("sample_rate goes with samples; a file has its own")
            path = os.fspath(source)
            return self._run(f"diarizing {path}", lambda *out: library.zx_parley_process_file(
                self._object, os.fsencode(path), *out))
        if sample_rate is None:
            raise TypeError("samples need their sample_rate")
        pcm = _to_int16(source)
        if sample_rate == SAMPLE_RATE:
            if len(pcm) > 2**31 - 1:
                raise ValueError("more than 2^31 - 1 samples")
            return self._run("diarizing samples", lambda *out: library.zx_parley_process(
                self._object, pcm.ctypes.data_as(POINTER(c_int16)), len(pcm), *out))
        # The engine converts rates when it reads files: so the samples become one.
        with tempfile.NamedTemporaryFile(suffix=".wav") as file:
            with wave.open(file, "wb") as writer:
                writer.setparams((1, 2, sample_rate, 0, "NONE", ""))
                writer.writeframes(pcm.astype("<i2").tobytes())
            file.flush()
            return self._run(f"diarizing samples at {sample_rate} Hz", lambda *out: library.zx_parley_process_file(
                self._object, os.fsencode(file.name), *out))

    def _run(self, what: str, call: Callable[..., int]) -> Diarization:
        count = c_int32()
        segments = POINTER(CSegment)()
        with self._lock:
            if self._object is None:
                raise ValueError("the Diarizer is closed")
            _check(what, call(byref(count), byref(segments)))
        try:
            records = segments[: count.value] if segments else []
            # A tag of 0 in the last records carries no speaker.
            return Diarization(Segment(round(s.start_sec, 3), round(s.end_sec + FRAME, 3), s.speaker_tag)
                               for s in records if s.speaker_tag != 0)
        finally:
            library.zx_parley_segments_delete(segments)

    def close(self) -> None:
        """Releases the engine; it can be called again."""
        with self._lock:
            if self._object is not None:
                library.zx_parley_delete(self._object)
                self._object = None

    def __enter__(self) -> "Diarizer":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_object", None) is not None:
            self.close()
