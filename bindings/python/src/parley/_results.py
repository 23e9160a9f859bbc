# SPDX-License-Identifier: Apache-2.0
"""What a diarization is: segments, and what one does with them."""
from __future__ import annotations

import ctypes
import json
import os
import pathlib
from ctypes import byref, c_int32, c_size_t, c_void_p
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Mapping, NamedTuple, Optional, Tuple, Union

import numpy as np

from ._errors import ParleyError, Status, check
from ._library import FORMATS, TRANSCRIPT_FORMATS, library

if TYPE_CHECKING:
    import pandas


class Segment(NamedTuple):
    """A stretch of one speaker."""

    start: float
    """Seconds from the start of the audio."""
    end: float
    """Seconds; the end of the segment's last frame of 32 ms."""
    speaker: int
    """1, 2, ... in order of appearance."""

    @property
    def duration(self) -> float:
        """Seconds."""
        return self.end - self.start


class Word(NamedTuple):
    """A word of a transcript."""

    start: float
    """Seconds from the start of the audio."""
    end: float
    text: str
    speaker: str
    """A name; "" where nobody is known to speak."""


class _Handle:
    """Owns a parley_result."""

    def __init__(self, address: c_void_p):
        self.address = address

    def __del__(self) -> None:
        library.parley_result_delete(self.address)


class Diarization(Tuple[Segment, ...]):
    """The segments of a recording in order of time: a tuple, with conversions.

    duration: seconds of audio.
    names: the speakers' names by number.
    similarities: the cosines of those who were named by a known voice, by number.
    embeddings: their vectors of unit length by number.
    confidences: of each segment, the probability that its speaker is right.
    waveform: the loudest sample of every twentieth of a second, from 0 to 1.
    words: of a transcript, if one was added (add_words, Diarizer.transcribe).
    note: what the user should know, or "".
    """

    duration: float
    names: Dict[int, str]
    similarities: Dict[int, float]
    embeddings: Dict[int, np.ndarray]
    confidences: List[float]
    waveform: np.ndarray
    words: List[Word]
    note: str
    _source: Optional[str] = None  # the file that it is about

    @classmethod
    def _take(cls, address: c_void_p, voices: Any = None) -> "Diarization":
        """The result behind an address, which is owned from then on, with the names of known people."""
        handle = _Handle(address)
        if voices is not None:
            check(library.parley_result_name_voices(address, str(voices).encode(), 0))
        records = [library.parley_result_segment(address, i) for i in range(library.parley_result_num_segments(address))]
        self = cls(Segment(round(s.start, 3), round(s.end, 3), s.speaker + 1) for s in records)
        speakers = [library.parley_result_speaker(address, i) for i in range(library.parley_result_num_speakers(address))]
        count, rate = c_int32(), c_int32()
        peaks = library.parley_result_waveform(address, byref(count), byref(rate))
        self._handle = handle
        self.duration = library.parley_result_duration(address)
        self.names = {i: s.name.decode(errors="replace") for i, s in enumerate(speakers, 1)}
        self.similarities = {i: s.similarity for i, s in enumerate(speakers, 1) if s.similarity > 0}
        self.embeddings = {i: np.array(s.embedding[: s.embedding_size], np.float32) for i, s in enumerate(speakers, 1)}
        self.confidences = [s.confidence for s in records]
        self.waveform = np.array(peaks[: count.value], np.float32)
        self.note = library.parley_result_note(address).decode(errors="replace")
        self._take_words()
        return self

    def _take_words(self) -> None:
        words = (library.parley_result_word(self._address(), i) for i in range(library.parley_result_num_words(self._address())))
        self.words = [Word(w.start, w.end, w.text.decode(errors="replace"), w.speaker.decode(errors="replace")) for w in words]

    def __reduce__(self) -> Any:
        kept = {k: v for k, v in self.__dict__.items() if k != "_handle"}
        return _without_handle, (tuple(self), kept)

    def _address(self) -> c_void_p:
        handle = getattr(self, "_handle", None)
        if handle is None:
            raise ParleyError("this result was copied from another process, without what the library has of it", Status.INVALID, [])
        return handle.address

    @property
    def speakers(self) -> List[int]:
        """The speakers, in order."""
        return sorted({segment.speaker for segment in self})

    def talk_time(self) -> Dict[int, float]:
        """Seconds of speech of each speaker."""
        times = {speaker: 0.0 for speaker in self.speakers}
        for segment in self:
            times[segment.speaker] += segment.duration
        return times

    def to_bytes(self, format: str) -> bytes:
        """The result in one of parley.FORMATS, byte for byte what the command line tool writes."""
        return _bytes_of(library.parley_write_text, self._address(), format.encode())

    def write(self, path: Union[str, "os.PathLike[str]"], format: Optional[str] = None) -> None:
        """Writes a file, in the format that its name ends like unless one is named."""
        path = pathlib.Path(path)
        format = format or _format_of(path, FORMATS)
        self._link_audio(path, format)
        path.write_bytes(self.to_bytes(format))

    def write_embeddings(self, path: Union[str, "os.PathLike[str]"]) -> None:
        """Writes what Diarizer.read_embeddings takes, 8 kB for each second, of a result that has kept its embeddings."""
        pathlib.Path(path).write_bytes(_bytes_of(library.parley_write_embeddings, self._address()))

    def _link_audio(self, path: pathlib.Path, format: str) -> None:
        if self._source and format in ("html", "eaf"):  # which refer to the recording from where they lie
            url = c_void_p()
            check(library.parley_url_of_path(os.fsencode(os.path.relpath(self._source, path.parent)), byref(url)))
            try:
                check(library.parley_result_link_audio(self._address(), ctypes.string_at(url.value), -1))
            finally:
                library.parley_free(url)

    def add_words(self, transcript: Union[str, bytes, Mapping[str, Any], Iterable[Mapping[str, Any]]], *, reach: float = 1.0,
                  by_time: bool = False) -> None:
        """Adds the words of a transcript, each with its speaker, in place of those that were there.

        transcript: its text (JSON of Whisper and many others, TSV, SRT, WebVTT, CTM), or what such JSON holds.
        reach: seconds as far as which words may lie from a segment; those outside go to whom they sound like, if the result was
            made with keep_embeddings, or else to the nearest.
        by_time: the first and the last word of a sentence, if two share it, are whose part is longer, and do not go with the sentence.
        """
        if not isinstance(transcript, (str, bytes)):
            transcript = json.dumps(transcript if isinstance(transcript, Mapping) else list(transcript))
        text = transcript.encode() if isinstance(transcript, str) else transcript
        check(library.parley_result_add_words(self._address(), text, len(text), reach, by_time))
        self._take_words()

    def transcript(self, format: str = "text") -> bytes:
        """The words in one of parley.TRANSCRIPT_FORMATS, byte for byte what the command line tool writes."""
        return _bytes_of(library.parley_write_words, self._address(), format.encode())

    def write_transcript(self, path: Union[str, "os.PathLike[str]"], format: Optional[str] = None) -> None:
        """Writes them into a file, in the format that its name ends like unless one is named."""
        path = pathlib.Path(path)
        format = format or _format_of(path, TRANSCRIPT_FORMATS)
        self._link_audio(path, format)
        path.write_bytes(self.transcript(format))

    def to_dataframe(self) -> "pandas.DataFrame":
        """A pandas table with the columns start, end, duration (seconds), speaker, name and confidence. Needs pandas."""
        import pandas

        rows = [(*s[:2], s.duration, s.speaker, self.names[s.speaker], c) for s, c in zip(self, self.confidences)]
        return pandas.DataFrame(rows, columns=["start", "end", "duration", "speaker", "name", "confidence"])

    def __repr__(self) -> str:
        times = ", ".join(f"{self.names[speaker]}: {seconds:.1f} s" for speaker, seconds in self.talk_time().items())
        return f"<Diarization of {self.duration:.1f} s, {len(self)} segments; {times or 'nobody speaks'}>"

    def _repr_html_(self) -> str:
        """A lane per speaker, for notebooks."""
        if not self:
            return "<p>Nobody speaks.</p>"
        lanes = []
        for row, (speaker, seconds) in enumerate(self.talk_time().items()):
            color = library.parley_color(speaker - 1).decode()
            bars = "".join(
                f'<rect x="{1000 * s.start / self.duration:.2f}" y="{24 * row + 4}" '
                f'width="{max(1000 * s.duration / self.duration, 0.5):.2f}" height="16" fill="{color}">'
                f"<title>{s.start:.2f} to {s.end:.2f} s</title></rect>" for s in self if s.speaker == speaker)
            lanes.append(f'{bars}<text x="1010" y="{24 * row + 17}" font-size="13" fill="currentColor">speaker {speaker}: '
                         f"{seconds:.1f} s</text>")
        return (f'<svg viewBox="0 0 1180 {24 * len(lanes)}" width="100%" role="img" font-family="sans-serif">'
                f'{"".join(lanes)}</svg>')


def _bytes_of(write: Any, *arguments: Any) -> bytes:
    text, size = c_void_p(), c_size_t()
    check(write(*arguments, byref(text), byref(size)))
    try:
        return ctypes.string_at(text.value, size.value)
    finally:
        library.parley_free(text)


def _format_of(path: pathlib.Path, formats: Any) -> str:
    found = [f for f in formats if path.name.lower().endswith(f.extension.decode().lower())]
    if not found:
        raise ValueError(f"{path}: no format has such names; name one")
    return max(found, key=lambda f: len(f.extension)).name.decode()  # .labels.txt before .txt


def read(path: Union[str, "os.PathLike[str]"]) -> Diarization:
    """A result that was written earlier, here or by others, and maybe corrected: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT with
    voices, Audacity labels."""
    text = pathlib.Path(path).read_bytes()
    result = c_void_p()
    check(library.parley_read_result(text, len(text), os.fsencode(os.fspath(path)), byref(result)))
    return Diarization._take(result)


def _without_handle(segments: Iterable[Segment], kept: Dict[str, Any]) -> Diarization:
    result = Diarization(segments)
    result.__dict__.update(kept)
    return result


def _add_conversion(name: str, purpose: str, is_text: bool) -> None:
    def convert(self: Diarization) -> Union[str, bytes]:
        data = self.to_bytes(name)
        return data.decode(errors="replace") if is_text else data

    convert.__doc__ = f"{purpose[0].upper()}{purpose[1:]}."
    convert.__name__ = f"to_{name}"
    setattr(Diarization, convert.__name__, convert)


for _format in FORMATS:
    _add_conversion(_format.name.decode(), _format.purpose.decode(), not _format.media_type.startswith(b"image/png"))
