# SPDX-License-Identifier: Apache-2.0
"""The engine as an object of Python."""
from __future__ import annotations

import ctypes
import os
import pathlib
import threading
from ctypes import POINTER, byref, c_char_p, c_int16, c_void_p, sizeof
from typing import IO, Any, Callable, Dict, Iterable, Iterator, Optional, Sequence, Tuple, Union

import numpy as np

from ._errors import check
from ._library import OPTIONS_SIZE, CTranscription, Progress, library
from ._results import Diarization
from ._voices import Voices

SAMPLE_RATE = 16000
"""The rate in Hz at which the engine works; other rates are converted to it."""
MAX_CHANNELS = 64


def version() -> str:
    """The version of the library and of the models that it reads."""
    return library.parley_version().decode()


def _to_int16(samples: Any) -> np.ndarray:
    """Interleaved 16-bit samples (n, channels) of an array or tensor of shape (n,), (channels, n) or (n, channels): integers of
    16 bits as they are, floats from -1 to 1 times 32768."""
    if hasattr(samples, "detach"):  # a tensor
        samples = samples.detach().cpu().numpy()
    samples = np.asarray(samples)
    if samples.ndim not in (1, 2):
        raise ValueError(f"samples must have the shape (n,), (channels, n) or (n, channels), not {samples.shape}")
    if samples.ndim == 1:
        samples = samples[:, None]
    elif samples.shape[0] < samples.shape[1]:
        samples = samples.T
    if samples.shape[1] > MAX_CHANNELS:
        raise ValueError(f"{samples.shape[1]} channels are more than {MAX_CHANNELS}")
    if samples.dtype == np.int16:
        return np.ascontiguousarray(samples)
    if not np.issubdtype(samples.dtype, np.floating):
        raise TypeError(f"samples must be int16 or floats from -1 to 1, not {samples.dtype}")
    if not np.isfinite(samples).all():
        raise ValueError("samples must be finite")
    if samples.size and np.abs(samples).max() > 1:
        raise ValueError("floats go from -1 to 1; these go to "
                         f"{np.abs(samples).max():g}: divide integers by their full scale, or scale down what is too loud")
    return np.ascontiguousarray(np.clip(np.rint(samples * 32768.0), -32768, 32767).astype(np.int16))


def _whole_rate(rate: Any) -> int:
    """A sample rate as the library takes it: a whole number of Hz, whatever its type."""
    if not float(rate).is_integer() or abs(rate) >= 2**31:
        raise TypeError(f"sample_rate is a whole number of Hz, not {rate!r}")
    return int(rate)


class _Options:
    """A record of options, and the texts that it refers to."""

    def __init__(self, values: Dict[str, Any]):
        self.record = ctypes.create_string_buffer(OPTIONS_SIZE)
        library.parley_options_init(self.record, OPTIONS_SIZE)
        self.texts = []
        for name, value in values.items():
            if value is None or value is False:
                continue
            if value is True:
                value = "1"
            elif not isinstance(value, str) and isinstance(value, Sequence):
                value = ",".join(map(str, value))
            self.texts.append(str(value).encode())
            check(library.parley_options_set(self.record, name.encode(), self.texts[-1]))


def _asked(options: Dict[str, Any], num_speakers: Optional[int] = None) -> _Options:
    """Of keywords as diarize has them."""
    return _Options({"speakers": num_speakers, **{name.replace("_", "-"): value for name, value in options.items()}})


class Diarizer:
    """A loaded model, ready for recordings.

    model: path of a model file; by default the one that comes with the package.

    Use it as a context manager, or call close(). It may be shared between threads, which then take turns; for work side by
    side give each thread its own.
    """

    def __init__(self, model: Union[str, "os.PathLike[str]", None] = None):
        self._object: Optional[c_void_p] = None
        self._lock = threading.Lock()
        opened = c_void_p()
        check(library.parley_open(None if model is None else os.fsencode(model), byref(opened)))
        self._object = opened

    def diarize(self, source: Union[str, "os.PathLike[str]", IO[bytes], np.ndarray, Any], sample_rate: Optional[int] = None,
                *, num_speakers: Optional[int] = None, min_speakers: Optional[int] = None,
                max_speakers: Optional[int] = None,
                thresholds: Optional[Tuple[float, float, float, float]] = None, merge_gap: Optional[float] = None,
                min_duration: Optional[float] = None, pad: Optional[float] = None,
                names: Optional[Sequence[str]] = None, speaker_prefix: Optional[str] = None, channels: str = "mix",
                refine: bool = True, confidence: bool = False, embeddings: bool = False, overlap: bool = False,
                sensitivity: Optional[float] = None, max_duration: Optional[float] = None, via_ffmpeg: Optional[str] = None,
                jobs: Optional[int] = None, keep_embeddings: bool = False, voices: Optional[Voices] = None,
                progress: Optional[Callable[[float], Optional[bool]]] = None) -> Diarization:
        """Finds out who spoke when.

        source: the path of an audio file (WAV, FLAC, MP3, Ogg Opus or Vorbis, WebM, MP4 or M4A with AAC, 3GP with AMR-NB,
            as the library was built); a file opened for reading bytes; or samples as an array or tensor of shape (n,),
            (channels, n) or (n, channels) of int16 or of floats from -1 to 1.
        sample_rate: in Hz, with samples only: 16000 as they are, 8000 or more than 16000 converted by the engine.
        num_speakers, min_speakers, max_speakers: how many there are.
        thresholds: offline, prune, segment and background, instead of the model's.
        merge_gap, min_duration, pad: seconds: a speaker's segments that close are joined, shorter ones dropped, all
            lengthened where there is room.
        names, speaker_prefix: of the first speakers heard; before the number of the others.
        channels: "mix", "split", where each is a speaker, or "loudest", where that one alone is heard.
        refine: frames go, once more, to the nearest of the speakers found.
        confidence, embeddings: whether formats tell these; the result has them anyway.
        overlap: where two speak at once the second has a segment, too.
        sensitivity: how much is taken for speech, from 0 to 1 (0.5).
        max_duration: seconds; longer recordings are refused before they are read.
        via_ffmpeg: "auto", "never" or "always": whether ffmpeg reads what nothing else here does.
        jobs: threads for this recording (1; 0: one a core), which change nothing of the result.
        keep_embeddings: the result keeps what recluster() takes, 8 kB for each second.
        voices: people who are known: speakers who are near enough to one get that name.
        progress: called with the share that is done, from 0 to 1; when it returns False the run ends with ParleyError.

        Returns the segments in order of time. Raises FileNotFoundError, MemoryError, or ParleyError.
        """
        options = _Options({"speakers": num_speakers, "min-speakers": min_speakers, "max-speakers": max_speakers,
                            "threshold": thresholds, "channels": channels, "no-refine": not refine, "merge-gap": merge_gap,
                            "min-duration": min_duration, "pad": pad, "speaker-prefix": speaker_prefix, "names": names,
                            "confidence": confidence, "embeddings": embeddings, "overlap": overlap, "sensitivity": sensitivity, "max-duration": max_duration,
                            "via-ffmpeg": via_ffmpeg, "jobs": jobs, "keep-embeddings": keep_embeddings})
        if isinstance(source, (str, os.PathLike)) or hasattr(source, "read"):
            if sample_rate is not None:
                raise TypeError("sample_rate goes with samples; a file has its own")
        elif sample_rate is None:
            raise TypeError("samples need their sample_rate")
        if isinstance(source, (str, os.PathLike)):
            path = os.fsencode(os.fspath(source))
            result = self._run(progress, voices, lambda *rest: library.parley_diarize_file(self._object, path, options.record, *rest))
            result._source = os.path.abspath(os.fspath(source))
            return result
        if hasattr(source, "read"):
            data = source.read()
            if not isinstance(data, bytes):
                raise TypeError("the file must be opened for reading bytes: open(path, \"rb\")")
            name = os.fsencode(str(getattr(source, "name", "recording")))
            return self._run(progress, voices, lambda *rest: library.parley_diarize_memory(self._object, data, len(data), name,
                                                                                   options.record, *rest))
        pcm, rate = _to_int16(source), _whole_rate(sample_rate)
        return self._run(progress, voices, lambda *rest: library.parley_diarize_samples(
            self._object, pcm.ctypes.data_as(POINTER(c_int16)), pcm.shape[0], pcm.shape[1], rate, b"recording",
            options.record, *rest))

    def recluster(self, result: Diarization, *, num_speakers: Optional[int] = None, voices: Optional[Voices] = None,
                  **options: Any) -> Diarization:
        """The same recording with other options, from the embeddings that `result` has kept: without another pass.

        result: of diarize(..., keep_embeddings=True), by a diarizer with the same model.
        num_speakers, voices and options: min_speakers, max_speakers, names, sensitivity and so on, as of diarize.
        """
        asked = _asked(options, num_speakers)
        return self._ask(voices, library.parley_recluster, self._object, result._address(), asked.record)

    def read_embeddings(self, path: Union[str, "os.PathLike[str]"], recording: Union[str, "os.PathLike[str]"] = "", *,
                        num_speakers: Optional[int] = None, voices: Optional[Voices] = None, **options: Any) -> Diarization:
        """recluster() of a file that Diarization.write_embeddings wrote.

        recording: the path of the audio, which is not read: formats name it.
        num_speakers, voices and options: as of recluster.
        """
        data = pathlib.Path(path).read_bytes()
        name, asked = os.fsencode(os.fspath(recording)), _asked(options, num_speakers)
        return self._ask(voices, library.parley_read_embeddings, self._object, data, len(data), name, asked.record)

    def transcribe(self, path: Union[str, "os.PathLike[str]"], recognizer: str = "pocketsphinx", arguments: Sequence[str] = (), *,
                   result: Optional[Diarization] = None, time_limit: float = 0, by_turn: bool = False, by_time: bool = False,
                   reach: float = 1.0, jobs: int = 1, progress: Optional[Callable[[float], Optional[bool]]] = None,
                   **options: Any) -> Diarization:
        """Who said what: the recording is diarized, and a speech recognizer, a program that has to be installed, writes the words.

        recognizer: a name that the library knows (docs/transcripts.md), or a command with {audio} in it.
        arguments: for the recognizer, behind its own.
        result: who speaks, if that is known already; without it the recording is diarized with the other options of diarize.
        time_limit: seconds, in which the recognizer has to be ready with a piece of some minutes; 0: any number.
        by_turn: pieces end where the speaker changes, not at pauses alone.
        by_time, reach: as of Diarization.add_words.
        jobs: recognizers at a time, of those that take one core.
        progress: called with the share of the recording that is transcribed; when it returns False it ends with ParleyError.

        Returns the result with its words. Raises FileNotFoundError where there is no such program, too.
        """
        if result is None:
            result = self.diarize(path, keep_embeddings=True, jobs=jobs, **options)
        how = CTranscription()
        library.parley_transcription_init(byref(how), sizeof(how))
        how.recognizer, how.time_limit, how.by_turn, how.rule, how.reach = recognizer.encode(), time_limit, by_turn, by_time, reach
        how.arguments, how.num_arguments = (c_char_p * len(arguments))(*(a.encode() for a in arguments)), len(arguments)
        name, asked = os.fsencode(os.fspath(path)), _Options({"jobs": jobs})
        self._follow(progress, lambda call, context: library.parley_transcribe(self._object, result._address(), name, byref(how),
                                                                               asked.record, call, context))
        result._take_words()
        return result

    def listen(self, pieces: Iterable[Any], sample_rate: int = 16000, *, every: float = 1.0, share: float = 0.05,
               voices: Optional[Voices] = None, **options: Any) -> Iterator[Diarization]:
        """Tells who speaks while samples still come.

        pieces: an iterable of samples as diarize takes them, all of one number of channels, as they are recorded.
        every: seconds of audio between two results, at least.
        share: of the time that passes, for clustering again; in between what is new goes to the nearest of the speakers found.
        voices and options: min_speakers, names, sensitivity and so on, as of diarize.

        Yields what is known so far, with speakers who keep their number, and in the end what diarize would return of all samples.
        """
        asked = _asked(options)
        session = c_void_p()
        heard = reported = 0
        try:
            for piece in pieces:
                pcm = _to_int16(piece)
                if not session:
                    with self._lock:
                        self._check_open()
                        check(library.parley_listen(self._object, b"recording", pcm.shape[1], _whole_rate(sample_rate), asked.record, byref(session)))
                        channels = pcm.shape[1]
                if pcm.shape[1] != channels:
                    raise ValueError(f"a piece has {pcm.shape[1]} channels, those before had {channels}")
                with self._lock:
                    self._check_open()
                    check(library.parley_session_feed(session, pcm.ctypes.data_as(POINTER(c_int16)), pcm.shape[0]))
                heard += pcm.shape[0]
                if heard - reported >= every * sample_rate:
                    reported = heard
                    if (state := self._ask(voices, library.parley_session_update, session, share)) is not None:
                        yield state
            if not session:
                raise ValueError("there were no samples")
            yield self._ask(voices, library.parley_session_end, session)
        finally:
            library.parley_session_delete(session)

    def _check_open(self) -> None:
        if self._object is None:
            raise ValueError("the Diarizer is closed")

    def _ask(self, voices: Optional[Voices], call: Callable[..., int], *arguments: Any) -> Optional[Diarization]:
        result = c_void_p()
        with self._lock:
            self._check_open()
            check(call(*arguments, byref(result)))
        return Diarization._take(result, voices) if result else None

    def _run(self, progress: Optional[Callable[[float], Optional[bool]]], voices: Optional[Voices], call: Callable[..., int]) -> Diarization:
        result = c_void_p()
        self._follow(progress, lambda *rest: call(*rest, byref(result)))
        return Diarization._take(result, voices)

    def _follow(self, progress: Optional[Callable[[float], Optional[bool]]], call: Callable[..., int]) -> None:
        raised: list = []

        def report(_: object, done: float) -> int:
            try:
                return 0 if progress(done) is False else 1
            except BaseException as error:  # which must not cross C; it goes on behind it
                raised.append(error)
                return 0

        with self._lock:
            self._check_open()
            status = call(Progress(report) if progress else Progress(), None)
            if raised:
                raise raised[0]
            check(status)

    def close(self) -> None:
        """Releases the engine; it can be called again."""
        with self._lock:
            if self._object is not None:
                library.parley_close(self._object)
                self._object = None

    def __enter__(self) -> "Diarizer":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_object", None) is not None:
            self.close()
